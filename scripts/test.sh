#!/usr/bin/env bash
# Sets everything up and passes the tests.
#
#     scripts/test.sh            the release build, quick
#     scripts/test.sh --all      every preset: both compilers, debug and release, the sanitizers, the fuzzers, and aarch64 in
#                                an emulator; and clang-tidy
#     scripts/test.sh PRESET...  these presets; "tidy" stands for clang-tidy
set -euo pipefail
cd "$( dirname "${BASH_SOURCE[0]}" )/.."
source scripts/packages.sh

every_preset=( release dev asan tsan clang-dev clang-release aarch64 tidy )
case "${1-}" in
    "") presets=( release ) ;;
    --all) presets=( "${every_preset[@]}" ) ;;
    -h | --help)
        sed -n '2,7s/^# \{0,1\}//p' "${BASH_SOURCE[0]}"
        exit 0
        ;;
    *) presets=( "$@" ) ;;
esac
for preset in "${presets[@]}"; do
    if [[ " ${every_preset[*]} " != *" $preset "* ]]; then
        echo "test.sh: no preset \"$preset\"; there are ${every_preset[*]}, or --all" >&2
        exit 2
    fi
done

packages=( "${build_packages[@]}" "${python_packages[@]}" "${test_packages[@]}" )
if [ "${presets[*]}" != release ]; then
    packages+=( "${all_packages[@]}" )
fi
if [ "${1-}" = --all ]; then
    packages+=( "${browser_packages[@]}" )
    export CAIRN_BROWSER=required # elsewhere the test of the pages is skipped if there is none
fi
if [[ " ${presets[*]} " == *" aarch64 "* ]]; then
    packages+=( "${aarch64_packages[@]}" )
fi
install_packages "${packages[@]}"

for preset in "${presets[@]}"; do
    echo "== $preset"
    if [ "$preset" = tidy ]; then
        scripts/tidy.py
        continue
    fi
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset"
    ctest --preset "$preset" -j "$( nproc )"
done
echo "All tests passed: ${presets[*]}"
