#!/usr/bin/env bash
# Builds the libraries a second time, in a folder of another name, and compares the bytes.
#
#     reproducible_test.sh SOURCE_TREE WORK_FOLDER LIBRARY...
set -euo pipefail
source_tree=$1
again=$2/another-and-longer-name
shift 2

rm -rf "$again"
mkdir -p "$again"
cmake -S "$source_tree" --preset release -B "$again" \
    -DCAIRN_BUILD_TESTS=OFF -DCAIRN_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build "$again" --target cairn_lt_helper cairn_platform >"$again/log" || {
    cat "$again/log"
    exit 1
}
failed=0
for library in "$@"; do
    if ! cmp "$library" "$again/lib/${library##*/}"; then
        echo "${library##*/} differs between two builds of the same sources"
        failed=1
    fi
done
exit $failed
