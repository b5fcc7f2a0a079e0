# A tracing session of lttng-ust for a benchmark. Sourced by the scripts beside it.
#
#     start_session CHANNEL-OPTION...
#
# Starts a daemon and a session with the events of the benchmarks; the trace is $LTTNG_HOME/trace. The daemon is the
# script's own: it has a home of its own, and ends with the script.

lttng_daemon=

end_session() {
    lttng --quiet destroy --all >/dev/null 2>&1 || true
    if [ -n "$lttng_daemon" ]; then
        kill "$lttng_daemon" 2>/dev/null || true
        wait "$lttng_daemon" 2>/dev/null || true
    fi
    rm -rf "$LTTNG_HOME"
}

start_session() {
    LTTNG_HOME=$( mktemp -d )
    export LTTNG_HOME
    trap end_session EXIT
    # A daemon of the whole machine would be found first.
    lttng-sessiond --no-kernel --quiet &
    lttng_daemon=$!
    for (( i = 0; i < 100; ++i )); do
        lttng --quiet list >/dev/null 2>&1 && break
        sleep 0.1
    done
    lttng --quiet create trace-bench --output="$LTTNG_HOME/trace" >/dev/null
    lttng --quiet enable-channel --userspace "$@" bench >/dev/null
    lttng --quiet enable-event --userspace --channel=bench 'cairn_trace_bench:*' >/dev/null
    lttng --quiet start >/dev/null
}
