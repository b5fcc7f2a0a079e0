#!/usr/bin/env bash
# Runs trace_reader_bench, and beside it babeltrace2 on the same events as lttng-ust wrote them, if both are
# installed.
#
#     bench/trace_reader_bench.sh BUILD-FOLDER [RECORDS]
set -euo pipefail
source "$( dirname "${BASH_SOURCE[0]}" )/lttng_session.sh"
if [ $# -lt 1 ] || [ ! -x "$1/bin/trace_reader_bench" ]; then
    echo "usage: trace_reader_bench.sh BUILD-FOLDER [RECORDS]; build trace_reader_bench there first" >&2
    exit 2
fi
build=$1
records=${2-1000000}
"$build/bin/trace_reader_bench" "$records"
for tool in lttng lttng-sessiond babeltrace2; do
    if ! command -v "$tool" >/dev/null; then
        echo "trace_reader_bench.sh: $tool is not installed: no comparison" >&2
        exit 0
    fi
done

# The writer waits for the disk: no event is lost.
start_session --blocking-timeout=inf --subbuf-size=1M --num-subbuf=8
LTTNG_UST_ALLOW_BLOCKING=1 "$build/bin/trace_reader_bench" "$records" lttng
lttng --quiet stop >/dev/null
lttng --quiet destroy --all >/dev/null

bytes=$( du --bytes --summarize "$LTTNG_HOME/trace" | cut -f1 )
lines=$( babeltrace2 "$LTTNG_HOME/trace" | wc -l )
if [ "$lines" -ne "$records" ]; then
    echo "trace_reader_bench.sh: lttng kept $lines of $records events" >&2
    exit 1
fi
seconds=
for run in 1 2 3; do
    took=$( { TIMEFORMAT='%U %S'; time babeltrace2 "$LTTNG_HOME/trace" >/dev/null; } 2>&1 |
            awk '{ print $1 + $2 }' )
    seconds=$( awk -v a="${seconds:-$took}" -v b="$took" 'BEGIN { print a < b ? a : b }' )
done
printf 'babeltrace2, text\t%s\t%s\t%s\n' "$bytes" "$records" "$seconds"
