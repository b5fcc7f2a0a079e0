#!/usr/bin/env bash
# The positions that the README shows are those of the calls they are shown with.
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
if [ "$seen" -lt 5 ]; then
    echo "README.md shows fewer than five call positions: has the walk-through changed its form?"
    failed=1
fi
exit $failed
