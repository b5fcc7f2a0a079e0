#include "Cairn/CairnLtHelper.h"

#include "sim/Chip.h"
#include "tests/support/Allocations.h"

#include <ChipModel/ChipProfile.h>
#include <Kiln/ActivityLock.h>
#include <Shim/Sdk.h>

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <mutex>

// System-port mappings programmed, verified and removed, from 1,000 to 65,536 of them. The cost of an
// operation should not depend on their number. The counter "allocations" is the heap allocations of
// one recipe; the simulated chip's own rows count only while it grows.

namespace {

const CairnCentral::ChipInfo chipInfo( "bench", 1, 0, 0 );
constexpr std::uint32_t maxPorts = 255;

/// 255 ports a module, numbered from 1, so that no two mappings meet.
std::uint32_t moduleOf( std::uint32_t mapping ) { return mapping / 255; }
std::uint32_t portOf( std::uint32_t mapping ) { return 1 + mapping % 255; }

void program( std::uint32_t mapping, bool op ) {
    Cairn::programL2IfIngSystemPortTable( chipInfo, 0, moduleOf( mapping ), portOf( mapping ),
                                          maxPorts, static_cast<std::uint16_t>( mapping ), op );
}

void systemPorts( benchmark::State & state ) {
    const auto count = static_cast<std::uint32_t>( state.range( 0 ) );
    Sim::Chip chip;
    chip.addUnit( 0, Sim::referenceSchema() );
    Shim::sdk_ = &chip;
    const auto profile = Nacre::make<Asic::ChipProfile>();
    profile->addFeature( Nacre::make<CairnCentral::CairnChipAttributes>( false ) );
    CairnProfile::setActiveChipProfile( chipInfo, profile );
    const std::lock_guard lock( Kiln::activityLock() );

    // Once without a clock, so that the chip's own storage has grown.
    for ( std::uint32_t mapping = 0; mapping < count; ++mapping )
        program( mapping, true );
    for ( std::uint32_t mapping = 0; mapping < count; ++mapping )
        program( mapping, false );

    const std::uint64_t before = Support::allocations();
    for ( auto _ : state ) {
        for ( std::uint32_t mapping = 0; mapping < count; ++mapping )
            program( mapping, true );
        for ( std::uint32_t mapping = 0; mapping < count; ++mapping ) {
            if ( !Cairn::verifyL2IfIngSystemPortTable(
                     chipInfo, 0, moduleOf( mapping ), portOf( mapping ), maxPorts,
                     static_cast<std::uint16_t>( mapping ), true ) )
                std::abort();
        }
        for ( std::uint32_t mapping = 0; mapping < count; ++mapping )
            program( mapping, false );
    }
    const double recipes = static_cast<double>( state.iterations() ) * count * 3;
    state.counters["per_recipe"] =
        benchmark::Counter( recipes, benchmark::Counter::kIsRate | benchmark::Counter::kInvert );
    state.counters["allocations"] =
        static_cast<double>( Support::allocations() - before ) / recipes;
    CairnProfile::clearActiveChipProfiles();
    Shim::sdk_ = nullptr;
}
BENCHMARK( systemPorts )->Arg( 1000 )->Arg( 8192 )->Arg( 65536 )->Unit( benchmark::kMillisecond );

} // namespace

BENCHMARK_MAIN();
