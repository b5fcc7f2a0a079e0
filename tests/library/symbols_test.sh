#!/usr/bin/env bash
# What the built library shows to a loader: its soname, its exported and its undefined symbols.
#
#     symbols_test.sh LIBRARY PLATFORM_LIBRARY EXPORTS
set -euo pipefail
library=$1
platform=$2
exports=$3
failed=0

check() { # what, expected, found
    if ! difference=$( diff <( printf '%s\n' "$2" ) <( printf '%s\n' "$3" ) ); then
        printf '%s differs (< expected, > found):\n%s\n' "$1" "$difference"
        failed=1
    fi
}

soname=$( readelf -d "$library" | sed -n 's/.*Library soname: \[\(.*\)\]/\1/p' )
check "The soname" libCairnLtHelper.so "$soname"

# The version script hides what it does not name, and is silent about a name that is not there.
check "The list of exported symbols" "$( sed -n 's/^ *"\(.*\)";$/\1/p' "$exports" | LC_ALL=C sort )" \
    "$( nm -DC --defined-only "$library" | cut -d' ' -f3- | LC_ALL=C sort )"

# Undefined symbols are the platform's, the shim pointer, and those of the C and C++ runtime.
undefined=$( nm -D --undefined-only "$library" | awk '{ print $NF }' | sed 's/@.*//' | LC_ALL=C sort -u )
provided=$( nm -D --defined-only "$platform" | awk '{ print $NF }' | LC_ALL=C sort -u )
if ! grep -qx _ZN4Shim4sdk_E <<<"$undefined"; then
    echo "Shim::sdk_ is not imported"
    failed=1
fi
runtime='^(_Unwind_|__cxa_|__gxx_|__dynamic_cast$|_Zn|_Zd|_ZNSt|_ZNKSt|_ZSt|_ZNS[aosi]|_ZT[ISV]|__asan_|__ubsan_|__tsan_|__gmon_start__|_ITM_|__stack_chk_(fail|guard$)|__getauxval$|__libc_single_threaded|__assert_fail|(pthread_sigmask|sigemptyset|sigaddset|write)$|mem(cpy|move|set|cmp|chr)|str(len|cmp)$|__(mem|str)[a-z]*_chk)'
foreign=$( LC_ALL=C comm -23 <( printf '%s\n' "$undefined" ) <( printf '%s\n' "$provided" ) |
    grep -vx _ZN4Shim4sdk_E | grep -vE "$runtime" || true )
check "The list of undefined symbols that are neither platform, shim nor runtime" "" "$foreign"

# What the library exports it never asks the loader for: another definition in the process would be called instead.
relocated=$( readelf -rW "$library" | grep -oE '\b_Z[A-Za-z0-9_]+' | LC_ALL=C sort -u )
own=$( nm -D --defined-only "$library" | awk '{ print $NF }' | LC_ALL=C sort -u )
[ -n "$relocated" ] || { echo "no relocation of a C++ symbol found: readelf prints them otherwise"; failed=1; }
check "The list of own symbols with a relocation (link with -Bsymbolic-functions)" "" \
    "$( LC_ALL=C comm -12 <( printf '%s\n' "$relocated" ) <( printf '%s\n' "$own" ) )"

exit $failed
