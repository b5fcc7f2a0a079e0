#!/usr/bin/env bash
# What the built libraries have against misuse of memory.
#
#     hardening_test.sh [--fortified] LIBRARY...
#
# --fortified: built so that the C library checks the sizes of buffers. Then a library calls the checking ones of its
# functions, such as __snprintf_chk, and not those that do not check.
set -euo pipefail
failed=0
fortified=
if [ "$1" = --fortified ]; then
    fortified=yes
    shift
fi
checking=0
fail() {
    echo "$1"
    failed=1
}

for library in "$@"; do
    dynamic=$( readelf -dW "$library" )
    segments=$( readelf -lW "$library" )
    imported=$( nm -D --undefined-only "$library" )
    grep -q GNU_RELRO <<<"$segments" || fail "$library: no read-only relocations; link with -z relro"
    grep -qE 'BIND_NOW|FLAGS_1.*NOW' <<<"$dynamic" || fail "$library: lazy binding; link with -z now"
    grep -E 'GNU_STACK' <<<"$segments" | grep -q 'RW ' || fail "$library: no stack segment that is not executable"
    grep -E 'GNU_STACK' <<<"$segments" | grep -q 'RWE' && fail "$library: executable stack; find the object that asks for it"
    grep -q TEXTREL <<<"$dynamic" && fail "$library: relocations in code; compile with -fPIC"
    grep -q __stack_chk_fail <<<"$imported" ||
        fail "$library: no stack protector; compile with -fstack-protector-strong"
    if [ -n "$fortified" ]; then
        checking=$(( checking + $( grep -cE ' __[a-z]+_chk(@|$)' <<<"$imported" || true ) ))
        unchecked=$( grep -oE ' v?(f|s|sn|d)?printf(@|$)' <<<"$imported" || true )
        [ -z "$unchecked" ] || fail "$library: calls$unchecked, not the one that checks; define _FORTIFY_SOURCE"
    fi
done
if [ -n "$fortified" ] && [ "$checking" -eq 0 ]; then
    fail "no library calls a checking function of the C library; define _FORTIFY_SOURCE"
fi
exit $failed
