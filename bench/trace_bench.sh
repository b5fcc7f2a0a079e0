#!/usr/bin/env bash
# Runs trace_bench in a tracing session of lttng-ust, if that is installed, so that it is in the table too.
#
#     bench/trace_bench.sh BUILD-FOLDER [ARGUMENT OF trace_bench]...
set -euo pipefail
source "$( dirname "${BASH_SOURCE[0]}" )/lttng_session.sh"
if [ $# -lt 1 ] || [ ! -x "$1/bin/trace_bench" ]; then
    echo "usage: trace_bench.sh BUILD-FOLDER [ARGUMENT]...; build the target trace_bench there first" >&2
    exit 2
fi
build=$1
shift
if ! command -v lttng >/dev/null || ! command -v lttng-sessiond >/dev/null; then
    exec "$build/bin/trace_bench" "$@"
fi

# Memory enough that no event is dropped, and the newest kept, as a ring keeps them.
start_session --overwrite --subbuf-size=1M --num-subbuf=4
"$build/bin/trace_bench" "$@"
