#!/usr/bin/env bash
# Whether a source does not compile, for one reason.
#
#     compile_failure_test.sh REASON COMPILER ARGUMENT...
#
# The first error that the compiler reports must contain REASON, a basic regular expression. Without a REASON it must
# compile.
set -euo pipefail
reason=$1
shift
if output=$( LC_ALL=C "$@" 2>&1 ); then
    [ -z "$reason" ] && exit 0
    echo "it compiles"
    exit 1
fi
if [ -n "$reason" ] && grep -m 1 ' error: ' <<<"$output" | grep -q -- "$reason"; then
    exit 0
fi
echo "expected as the first error: ${reason:-none}; the compiler says:"
echo "$output"
exit 1
