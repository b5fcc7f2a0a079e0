#!/usr/bin/env bash
# Each installed header compiles by itself, without a warning.
#
#     headers_test.sh BUILD_TREE WORK_FOLDER CXX_COMPILER
set -euo pipefail
build=$1
work=$2
compiler=$3

rm -rf "$work"
mkdir -p "$work"
cmake --install "$build" --prefix "$work" >/dev/null
headers=$work/include/CairnLtHelper
cd "$headers"
count=$( find . -name '*.h' | wc -l )
if [ "$count" -lt 40 ]; then
    echo "only $count headers are installed"
    exit 1
fi
failed=0
while read -r header; do
    if ! "$compiler" -std=c++20 -fsyntax-only -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror -I "$headers" \
        -include "$header" -x c++ /dev/null; then
        echo "$header does not compile by itself"
        failed=1
    fi
done < <( find . -name '*.h' -printf '%P\n' | sort )
exit $failed
