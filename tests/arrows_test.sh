#!/usr/bin/env bash
# Reads every include of the sources and names those that point against the architecture.
#
#     arrows_test.sh SOURCE_TREE
set -euo pipefail
cd "$1"

# A project include by the folder that it points into; nothing for others.
target_of() {
    case $1 in
        Shim/*) echo shim ;;
        Fleetlog/Format.h) echo traceformat ;;
        Kiln/* | Fleetlog/* | Twinlog/* | Nacre/* | ChipModel/*) echo platform ;;
        CairnCommon/*) echo CairnCommon ;;
        Cairn/*) echo Cairn ;;
        text/*) echo text ;;
        interpose/*) echo interpose ;;
        sim/*) echo sim ;;
        tracereader/*) echo tracereader ;;
        tools/*) echo tools ;;
        tests/*) echo tests ;;
        bench/*) echo bench ;;
    esac
}

declare -A allowed=(
    [shim]="shim"
    [platform]="platform traceformat"
    [CairnCommon]="CairnCommon platform"
    [Cairn]="Cairn CairnCommon platform shim"
    [text]="text"
    [interpose]="interpose shim text"
    [sim]="sim shim text"
    [tracereader]="tracereader text traceformat"
    [tools]="tools tracereader interpose sim text Cairn CairnCommon platform shim"
)

failed=0
seen=0
for folder in "${!allowed[@]}"; do
    while IFS=: read -r file line text; do
        include=$( sed -E 's/.*#include *[<"]([^>"]*)[>"].*/\1/' <<<"$text" )
        target=$( target_of "$include" )
        [ -n "$target" ] || continue
        seen=$(( seen + 1 ))
        if [[ " ${allowed[$folder]} " != *" $target "* ]]; then
            echo "$file:$line: $folder/ must not include $include; it may include: ${allowed[$folder]}"
            failed=1
        fi
    done < <( grep -rnE --include='*.h' --include='*.cpp' '^ *# *include' "$folder" )
done
if [ "$seen" -eq 0 ]; then
    echo "no project include found below $1: is it the source tree?"
    failed=1
fi
exit $failed
