#!/usr/bin/env bash
# The positions that the README shows are those of the calls and messages they are shown with.
#
#     readme_test.sh SOURCE_TREE
set -euo pipefail
cd "$1"
failed=0
seen=0
while read -r number text; do
    seen=$(( seen + 1 ))
    if ! grep -qF -- "$text" <<<"$( sed -n "${number}p" Cairn/CairnLtHelper.cpp )"; then
        echo "README.md shows \"$text\" at line $number, where Cairn/CairnLtHelper.cpp has something else; paste the walk-through anew"
        failed=1
    fi
done < <( grep -oE 'Cairn/CairnLtHelper:[0-9]+ bcmlt_[a-z_]+\( .* \)' README.md | sed -E 's/^Cairn\/CairnLtHelper:([0-9]+) /\1 /' | sort -u )
# A message: its recipe, and the first of its pieces.
while read -r number recipe piece; do
    seen=$(( seen + 1 ))
    above=$( head -n "$number" Cairn/CairnLtHelper.cpp | grep -E '^[a-z].* noexcept \{' | tail -n 1 )
    if ! grep -qF -- " $recipe(" <<<"$above" ||
        ! grep -qF -- "\" $piece " <<<"$( sed -n "${number}p" Cairn/CairnLtHelper.cpp | grep CAIRN_MESSAGE )"; then
        echo "README.md shows a message of $recipe at line $number, where Cairn/CairnLtHelper.cpp has something else; paste the walk-through anew"
        failed=1
    fi
done < <( grep -oE '[0-9]+ Cairn/CairnLtHelper:[0-9]+ [A-Za-z0-9]+ [a-z]+: ' README.md | sed -E 's/^[0-9]+ Cairn\/CairnLtHelper:([0-9]+) /\1 /' | sort -u )
if [ "$seen" -lt 6 ]; then
    echo "README.md shows fewer than six positions: has the walk-through changed its form?"
    failed=1
fi
exit $failed
