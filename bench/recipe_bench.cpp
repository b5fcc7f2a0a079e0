#include "Cairn/CairnLtHelper.h"

#include "sim/Chip.h"

#include <Kiln/ActivityLock.h>
#include <Shim/Sdk.h>

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <mutex>

// A recipe against the same shim calls written bare, hooks included and no guard around them, on
// the simulated chip. Both run in turn within one iteration, so that the machine's moods meet both;
// the counter "ratio" is what the guard costs.

namespace {

using Clock = std::chrono::steady_clock;

constexpr int batch = 200;

void check( int rc ) {
    if ( rc < 0 )
        std::abort();
}

void bareEgrTunnelEcnEncap( int unit, uint32_t index, uint32_t outerEcn ) {
    auto & sdk = *Shim::sdk_;
    uint32_t entry;
    sdk.preCallHook();
    check( sdk.bcmlt_entry_allocate( unit, "EGR_TUNNEL_ECN_ENCAPm", &entry ) );
    sdk.preCallHook();
    check( sdk.bcmlt_entry_field_add( entry, "BCMLT_PT_INDEX", index ) );
    sdk.preCallHook();
    check( sdk.bcmlt_entry_field_add( entry, "OUTER_ECN", outerEcn ) );
    sdk.preCallHook();
    check( sdk.bcmlt_pt_entry_commit( entry, sdk.BCMLT_PT_OPCODE_MODIFY(),
                                      sdk.BCMLT_PRIORITY_NORMAL() ) );
    sdk.preCallHook();
    check( sdk.bcmlt_entry_free( entry ) );
}

void bareIngTunnelEcnDecap( int unit, uint32_t index, uint32_t innerEcn, bool changeEcn ) {
    auto & sdk = *Shim::sdk_;
    uint32_t entry;
    sdk.preCallHook();
    check( sdk.bcmlt_entry_allocate( unit, "ING_TUNNEL_ECN_DECAPm", &entry ) );
    sdk.preCallHook();
    check( sdk.bcmlt_entry_field_add( entry, "BCMLT_PT_INDEX", index ) );
    sdk.preCallHook();
    check( sdk.bcmlt_entry_field_add( entry, "INNER_ECN", innerEcn ) );
    sdk.preCallHook();
    check( sdk.bcmlt_entry_field_add( entry, "CHANGE_INNER_ECN", changeEcn ) );
    sdk.preCallHook();
    check( sdk.bcmlt_pt_entry_commit( entry, sdk.BCMLT_PT_OPCODE_MODIFY(),
                                      sdk.BCMLT_PRIORITY_NORMAL() ) );
    sdk.preCallHook();
    check( sdk.bcmlt_entry_free( entry ) );
}

template <class Recipe, class Bare>
void pair( benchmark::State & state, const Recipe & recipe, const Bare & bare ) {
    Sim::Chip chip;
    chip.addUnit( 0, Sim::referenceSchema() );
    Shim::sdk_ = &chip;
    const std::lock_guard lock( Kiln::activityLock() );
    Clock::duration recipeTime{};
    Clock::duration bareTime{};
    for ( auto _ : state ) {
        const auto start = Clock::now();
        for ( uint32_t i = 0; i < batch; ++i )
            bare( i % 8 );
        const auto middle = Clock::now();
        for ( uint32_t i = 0; i < batch; ++i )
            recipe( i % 8 );
        const auto end = Clock::now();
        bareTime += middle - start;
        recipeTime += end - middle;
    }
    Shim::sdk_ = nullptr;
    const auto perCall = [&]( Clock::duration time ) {
        return std::chrono::duration<double, std::nano>( time ).count() /
               ( static_cast<double>( state.iterations() ) * batch );
    };
    state.counters["recipe_ns"] = perCall( recipeTime );
    state.counters["bare_ns"] = perCall( bareTime );
    state.counters["ratio"] = perCall( recipeTime ) / perCall( bareTime );
}

void egrTunnelEcnEncap( benchmark::State & state ) {
    pair(
        state, []( uint32_t i ) { Cairn::setEgrTunnelEcnEncap( 0, i, 2 ); },
        []( uint32_t i ) { bareEgrTunnelEcnEncap( 0, i, 2 ); } );
}
BENCHMARK( egrTunnelEcnEncap );

void ingTunnelEcnDecap( benchmark::State & state ) {
    pair(
        state, []( uint32_t i ) { Cairn::setIngTunnelEcnDecap( 0, i, 1, true ); },
        []( uint32_t i ) { bareIngTunnelEcnDecap( 0, i, 1, true ); } );
}
BENCHMARK( ingTunnelEcnDecap );

} // namespace

BENCHMARK_MAIN();
