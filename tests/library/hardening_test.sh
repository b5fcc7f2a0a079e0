#!/usr/bin/env bash
# What the built libraries have against misuse of memory.
#
#     hardening_test.sh LIBRARY...
set -euo pipefail
failed=0
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
done
exit $failed
