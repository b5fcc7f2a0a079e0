#!/usr/bin/env bash
# Reads every include of the sources and names those that point against the architecture.
#
#     arrows_test.sh SOURCE_TREE
set -euo pipefail
cd "$1"

# What each room may include beside itself; "traceformat" is the headers of the platform that tell how trace files are
# laid out. The tests and the benchmarks may include everything.
declare -A allowed=(
    [shim]=""
    [platform]="traceformat"
    [CairnCommon]="platform"
    [Cairn]="CairnCommon platform shim"
    [text]=""
    [interpose]="platform traceformat shim text"
    [sim]="shim text"
    [tracereader]="text traceformat"
)
library="Cairn CairnCommon platform shim"
allowed[tools/recipes]=$library
allowed[tools/model]="tools/recipes sim text $library"
allowed[tools/run]="tools/model interpose ${allowed[tools/model]}"
allowed[tools/explain]="tools/run ${allowed[tools/run]}"
allowed[tools/sweep]=${allowed[tools/explain]}
allowed[tools/recording]="tools/run tracereader ${allowed[tools/run]}"
allowed[tools/diagnose]="tools/recording ${allowed[tools/recording]}"
allowed[tools/show]="tools/diagnose tools/recording ${allowed[tools/recording]}"
allowed[tools/cli]="tools/explain tools/show tools/sweep ${allowed[tools/show]}"
# All but the command line.
allowed[python]=${allowed[tools/cli]}

# The room of a file, or of a project include; nothing for others.
room_of() {
    case $1 in
        Shim/*) echo shim ;;
        Fleetlog/Format.h | Fleetlog/CallFormat.h) echo traceformat ;;
        CairnPlatform/* | Kiln/* | Fleetlog/* | Twinlog/* | Nacre/* | ChipModel/*) echo platform ;;
        tools/*/*) echo "${1%/*}" ;;
        shim/* | platform/* | CairnCommon/* | Cairn/* | text/* | interpose/* | sim/* | tracereader/* | \
            python/* | tools/* | tests/* | bench/*)
            echo "${1%%/*}"
            ;;
    esac
}

failed=0
seen=0
while IFS=: read -r file line text; do
    room=$( room_of "$file" )
    if [ -z "${allowed[$room]+known}" ]; then
        echo "$file: $room/ is no room; put the file into one, or say here what $room/ may include"
        failed=1
        continue
    fi
    include=$( sed -E 's/.*#include *[<"]([^>"]*)[>"].*/\1/' <<<"$text" )
    target=$( room_of "$include" )
    [ -n "$target" ] || continue
    seen=$(( seen + 1 ))
    if [[ " $room ${allowed[$room]} " != *" $target "* ]]; then
        echo "$file:$line: $room/ must not include $include; it may include: ${allowed[$room]:-nothing}"
        failed=1
    fi
done < <( grep -rnE --include='*.h' --include='*.cpp' '^ *# *include' shim platform CairnCommon Cairn text interpose sim \
    tracereader tools python )
if [ "$seen" -eq 0 ]; then
    echo "no project include found below $1: is it the source tree?"
    failed=1
fi
exit $failed
