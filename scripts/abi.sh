#!/usr/bin/env bash
# Compares the binary interface with its description in tests/abi/: the exported functions with all types that can be
# reached from them, the interfaces that hosts implement, the platform's functions and layouts.
#
#     scripts/abi.sh [BUILD_TREE]            compares; build/dev unless given, a build by g++ with debug information
#     scripts/abi.sh --write [BUILD_TREE]    describes anew, after a change that is intended; also debian/*.symbols
#
# docs/versions.md says which changes need which version.
set -euo pipefail
root=$( cd "$( dirname "${BASH_SOURCE[0]}" )/.." && pwd )
descriptions=$root/tests/abi

write=
if [ "${1-}" = --write ]; then
    write=yes
    shift
fi
if [ $# -gt 1 ] || [[ "${1-}" == -* ]]; then
    sed -n '2,8s/^# \{0,1\}//p' "${BASH_SOURCE[0]}" >&2
    exit 2
fi
build=${1-$root/build/dev}
libraries=( libCairnLtHelper libCairnPlatform interfaces )
for library in "${libraries[@]}"; do
    if [ ! -e "$build/lib/$library.so" ]; then
        echo "abi.sh: no $build/lib/$library.so; build the preset dev, or name the tree of another build with debug information" >&2
        exit 2
    fi
    if ! readelf -SW "$build/lib/$library.so" | grep -q '\.debug_info'; then
        echo "abi.sh: $build/lib/$library.so has no debug information; build it with -g" >&2
        exit 2
    fi
done
if ! command -v abidw >/dev/null; then
    echo "abi.sh: no abidw; install the package abigail-tools" >&2
    exit 2
fi

work=$( mktemp -d )
trap 'rm -rf "$work"' EXIT
# An inline function is compiled by whoever calls it. Whether a library also has it depends on the compiler.
ignore() { # library
    cat "$descriptions/own.abignore"
    nm -D --defined-only "$1" | awk '$2 ~ /^[VWu]$/ { print $3 }' | LC_ALL=C sort | while read -r inline; do
        printf '\n[suppress_function]\n  symbol_name = %s\n  drop = yes\n' "$inline"
    done
}
# Only types of the public headers: the others are nobody's business.
describe() { # library
    abidw --suppressions "$work/ignore" --exported-interfaces-only --drop-private-types \
        --headers-dir "$root/platform" --headers-dir "$root/shim" \
        --header-file "$root/Cairn/CairnLtHelper.h" --header-file "$root/CairnCommon/CairnCommonUtil.h" \
        --type-id-style hash --no-corpus-path --no-comp-dir-path --no-show-locs --no-elf-needed --no-parameter-names "$1"
}

failed=0
for library in "${libraries[@]}"; do
    ignore "$build/lib/$library.so" >"$work/ignore"
    describe "$build/lib/$library.so" >"$work/$library.abi"
    if [ -n "$write" ]; then
        cp "$work/$library.abi" "$descriptions/$library.abi"
    elif ! abidiff --harmless "$descriptions/$library.abi" "$work/$library.abi" >"$work/changes" 2>&1; then
        echo "The binary interface of $library differs from tests/abi/$library.abi:"
        cat "$work/changes"
        failed=1
    fi
done
# Debian's tools hold the packages to lists of symbols: the same interface once more.
if [ -n "$write" ]; then
    "$root/scripts/debian_symbols.py" "$build"
else
    "$root/scripts/debian_symbols.py" --check "$build" || failed=1
fi
if [ $failed -ne 0 ]; then
    echo "If the change is intended: docs/versions.md says what it does to the version; then scripts/abi.sh --write"
fi
exit $failed
