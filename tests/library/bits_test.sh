#!/usr/bin/env bash
# Configures the project for a 32-bit target, which must be refused with the reason.
#
#     bits_test.sh SOURCE_TREE WORK_FOLDER CXX_COMPILER
set -euo pipefail

reason="CairnLtHelper needs a 64-bit target, and this compiler's has 32 bits."
rm -rf "$2"
if said=$( cmake -S "$1" -B "$2" -G Ninja -DCMAKE_CXX_COMPILER="$3" -DCMAKE_CXX_FLAGS=-m32 \
    -DCMAKE_TRY_COMPILE_TARGET_TYPE=STATIC_LIBRARY 2>&1 ); then
    echo "a 32-bit target is not refused"
    exit 1
fi
if ! grep -qF "$reason" <<<"$said"; then
    echo "a 32-bit target is refused without \"$reason\":"
    echo "$said"
    exit 1
fi
