// The events of trace_bench_lttng.cpp. lttng-ust includes this file several times.

#undef LTTNG_UST_TRACEPOINT_PROVIDER
#define LTTNG_UST_TRACEPOINT_PROVIDER cairn_trace_bench

#undef LTTNG_UST_TRACEPOINT_INCLUDE
#define LTTNG_UST_TRACEPOINT_INCLUDE "bench/trace_bench_events.h"

#if !defined( CAIRN_TRACE_BENCH_EVENTS_H ) || defined( LTTNG_UST_TRACEPOINT_HEADER_MULTI_READ )
#define CAIRN_TRACE_BENCH_EVENTS_H

#include <lttng/tracepoint.h>

#include <stdint.h>

// clang-format off
LTTNG_UST_TRACEPOINT_EVENT(
    cairn_trace_bench, two_values,
    LTTNG_UST_TP_ARGS( uint32_t, unit, uint32_t, seed ),
    LTTNG_UST_TP_FIELDS( lttng_ust_field_integer( uint32_t, unit, unit )
                         lttng_ust_field_integer( uint32_t, seed, seed ) ) )

LTTNG_UST_TRACEPOINT_EVENT(
    cairn_trace_bench, text,
    LTTNG_UST_TP_ARGS( uint32_t, unit, const char *, text ),
    LTTNG_UST_TP_FIELDS( lttng_ust_field_integer( uint32_t, unit, unit )
                         lttng_ust_field_string( text, text ) ) )
// clang-format on

#endif

#include <lttng/tracepoint-event.h>
