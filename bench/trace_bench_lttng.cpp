#include "bench/trace_bench_lttng.h"

#if defined( TRACE_BENCH_LTTNG )

#define LTTNG_UST_TRACEPOINT_CREATE_PROBES
#define LTTNG_UST_TRACEPOINT_DEFINE
#include "bench/trace_bench_events.h"

namespace TraceBenchLttng {

bool isTraced() { return lttng_ust_tracepoint_enabled( cairn_trace_bench, two_values ); }

void twoValues( std::uint32_t unit, std::uint32_t seed ) {
    lttng_ust_tracepoint( cairn_trace_bench, two_values, unit, seed );
}

void text( std::uint32_t unit, const char * text ) {
    lttng_ust_tracepoint( cairn_trace_bench, text, unit, text );
}

} // namespace TraceBenchLttng

#else

namespace TraceBenchLttng {

bool isTraced() { return false; }
void twoValues( std::uint32_t, std::uint32_t ) {}
void text( std::uint32_t, const char * ) {}

} // namespace TraceBenchLttng

#endif
