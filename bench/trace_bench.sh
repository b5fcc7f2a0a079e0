#!/usr/bin/env bash
# Runs trace_bench in a tracing session of lttng-ust, if that is installed, so that it is in the table too.
#
#     bench/trace_bench.sh BUILD-FOLDER [ARGUMENT OF trace_bench]...
#
# The session's daemon is this script's own: it has a home of its own and ends with the script.
set -euo pipefail
if [ $# -lt 1 ] || [ ! -x "$1/bin/trace_bench" ]; then
    echo "usage: trace_bench.sh BUILD-FOLDER [ARGUMENT]...; build the target trace_bench there first" >&2
    exit 2
fi
build=$1
shift
if ! command -v lttng >/dev/null || ! command -v lttng-sessiond >/dev/null; then
    exec "$build/bin/trace_bench" "$@"
fi

LTTNG_HOME=$( mktemp -d )
export LTTNG_HOME
daemon=
finish() {
    lttng --quiet destroy --all >/dev/null 2>&1 || true
    if [ -n "$daemon" ]; then
        kill "$daemon" 2>/dev/null || true
        wait "$daemon" 2>/dev/null || true
    fi
    rm -rf "$LTTNG_HOME"
}
trap finish EXIT

# A daemon of the whole machine would be found first.
lttng-sessiond --no-kernel --quiet &
daemon=$!
for (( i = 0; i < 100; ++i )); do
    lttng --quiet list >/dev/null 2>&1 && break
    sleep 0.1
done
lttng --quiet create trace-bench --output="$LTTNG_HOME/trace" >/dev/null
# Memory enough that no event is dropped, and the newest kept, as a ring keeps them.
lttng --quiet enable-channel --userspace --overwrite --subbuf-size=1M --num-subbuf=4 bench >/dev/null
lttng --quiet enable-event --userspace --channel=bench 'cairn_trace_bench:*' >/dev/null
lttng --quiet start >/dev/null
"$build/bin/trace_bench" "$@"
