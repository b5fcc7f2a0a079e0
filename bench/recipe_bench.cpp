#include "interpose/Recorder.h"
#include "sim/Chip.h"
#include "tests/support/InstructionCount.h"
#include "tests/support/QuietSdk.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/bare/BareRecipes.h"
#include "tools/model/Arguments.h"
#include "tools/model/Model.h"
#include "tools/recipes/Registry.h"

#include <Fleetlog/TraceHandle.h>
#include <Kiln/ActivityLock.h>
#include <Kiln/TraceHandle.h>
#include <Kiln/TraceSink.h>
#include <Shim/Sdk.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

// Each recipe against the same recipe compiled bare: the same calls, hooks and lock releases, and
// nothing around them. Both run on the simulated chip, alternating within one run, so that a change of
// the machine's speed affects both; the shortest time of each counts. Then with the calls traced.
//
// bare_ns, recipe_ns, ratio      nothing is traced
// tick_ratio, counter_ratio      messages go to the binary trace, with these timestamps
// null_ns, file_ns               level 4 on, into a sink that drops the lines, and into a file
// calls, lines                   SDK operations of one recipe; messages and plain lines
// guard_instructions             what the guard and the messages add, for each operation: counted,
//                                on an SDK that does nothing

namespace {

using Clock = std::chrono::steady_clock;

// A chip on which recipes can be repeated: once the rows are there, an INSERT is an UPDATE of them.
class RepeatingChip final : public Sim::Chip {
  public:
    bool hasRows = false;
    std::uint32_t BCMLT_OPCODE_INSERT() noexcept override {
        return hasRows ? BCMLT_OPCODE_UPDATE() : Chip::BCMLT_OPCODE_INSERT();
    }
};

struct Pair {
    const Tool::Recipe * guarded;
    const Tool::Recipe * bare;
    std::vector<Tool::Argument> arguments;
};

Cairn::CairnCommonSmData::Ptr state;

struct Cost {
    double nanoseconds = 0; // of the shortest batch, for each recipe
    void take( Clock::duration batch, int recipes ) {
        const double each = std::chrono::duration<double, std::nano>( batch ).count() / recipes;
        if ( nanoseconds == 0 || each < nanoseconds )
            nanoseconds = each;
    }
};

constexpr int batch = 20;

Clock::duration timeBatch( const Tool::Recipe & recipe, const Pair & pair ) {
    const auto start = Clock::now();
    for ( int i = 0; i < batch; ++i )
        recipe.invoke( pair.arguments, state );
    return Clock::now() - start;
}

double tracedNanoseconds( const Pair & pair ) {
    Kiln::traceSettings( { { "ApiCairn", 1u << 4 } } );
    Cost cost;
    for ( int i = 0; i < 50; ++i )
        cost.take( timeBatch( *pair.guarded, pair ), batch );
    Kiln::traceOff();
    Kiln::traceToStandardError();
    return cost.nanoseconds;
}

// The number of SDK operations that the recipe makes.
std::size_t operations( const Pair & pair, Shim::Sdk & sdk ) {
    Interpose::Recorder recorder( sdk );
    Shim::sdk_ = &recorder;
    pair.guarded->invoke( pair.arguments, state );
    const auto & events = recorder.events();
    return static_cast<std::size_t>(
        std::count_if( events.begin(), events.end(), []( const auto & event ) {
            return Interpose::kind( event.call ) == Interpose::SdkCallKind::operation;
        } ) );
}

// The number of its lines and messages.
int lines( const Pair & pair ) {
    int count = 0;
    Kiln::traceToCallback( [&]( const Kiln::TraceLine & ) { ++count; } );
    Kiln::traceSettings( { { "CairnLtHelper", ~0u } } );
    pair.guarded->invoke( pair.arguments, state );
    Kiln::traceOff();
    Kiln::traceToStandardError();
    return count;
}

// Plain functions: countInstructions() steps a child process through them.
const Pair * counted = nullptr;
void runGuarded() { counted->guarded->invoke( counted->arguments, state ); }
void runBare() { counted->bare->invoke( counted->arguments, state ); }

void measure( benchmark::State & benchmarkState, const Pair & pair, RepeatingChip & chip,
              const std::array<Fleetlog::TraceHandle *, 2> & traces, const std::string & file ) {
    auto & counters = benchmarkState.counters;
    counters["calls"] = static_cast<double>( operations( pair, chip ) );
    Shim::sdk_ = &chip;
    counters["lines"] = lines( pair );
    Cost bare;
    Cost guarded;
    Cost recorded[2];
    for ( auto _ : benchmarkState ) {
        bare.take( timeBatch( *pair.bare, pair ), batch );
        guarded.take( timeBatch( *pair.guarded, pair ), batch );
        for ( std::size_t i = 0; i < 2; ++i ) {
            Fleetlog::defaultFleetlogHandle = traces[i];
            recorded[i].take( timeBatch( *pair.guarded, pair ), batch );
        }
        Fleetlog::defaultFleetlogHandle = nullptr;
    }
    counters["bare_ns"] = bare.nanoseconds;
    counters["recipe_ns"] = guarded.nanoseconds;
    counters["ratio"] = guarded.nanoseconds / bare.nanoseconds;
    counters["tick_ratio"] = recorded[0].nanoseconds / bare.nanoseconds;
    counters["counter_ratio"] = recorded[1].nanoseconds / bare.nanoseconds;
    Kiln::traceToCallback( []( const Kiln::TraceLine & ) {} );
    counters["null_ns"] = tracedNanoseconds( pair );
    Kiln::traceToFile( file );
    counters["file_ns"] = tracedNanoseconds( pair );

    const std::size_t steppedCalls = operations( pair, Support::quietSdk() );
    Shim::sdk_ = &Support::quietSdk();
    counted = &pair;
    const auto with = Support::countInstructions( runGuarded );
    const auto without = Support::countInstructions( runBare );
    if ( with && without && steppedCalls != 0 )
        counters["guard_instructions"] =
            ( static_cast<double>( *with ) - static_cast<double>( *without ) ) /
            static_cast<double>( steppedCalls );
    Shim::sdk_ = &chip;
}

} // namespace

int main( int argc, char ** argv ) {
    const Tool::Model model =
        Tool::defaultModel( { Tool::defaultChip( 0, Sim::referenceSchema(), "reference" ) } );
    state = Tool::applyModel( model );
    RepeatingChip chip;
    chip.addUnit( 0, Sim::referenceSchema() );
    Shim::sdk_ = &chip;
    const Support::TemporaryFolder folder;
    const std::string file = folder.path( "lines" );
    Fleetlog::OpenOptions options;
    options.directory = folder.path();
    options.timestamps = Fleetlog::Timestamps::tick;
    Fleetlog::TraceHandle ticks( options );
    options.timestamps = Fleetlog::Timestamps::counter;
    options.directory = folder.path( "counter" );
    std::filesystem::create_directory( options.directory );
    Fleetlog::TraceHandle counters( options );
    const std::lock_guard lock( Kiln::activityLock() );

    std::vector<Pair> pairs;
    for ( std::size_t i = 0; i < Tool::recipes().size(); ++i ) {
        const Tool::Recipe & recipe = Tool::recipes()[i];
        auto texts = Tool::sampleArguments( recipe, model );
        // The value that the quiet SDK reads back.
        if ( recipe.name == "setOpaqueTagIngress" || recipe.name == "getOpaqueTagIngress" )
            texts.back().assign( 1, '1' );
        pairs.push_back(
            { &recipe, &bareRecipes()[i], Tool::parseArguments( recipe, texts, model ) } );
        // Once beforehand, so that the rows exist that recipes look up or insert.
        recipe.invoke( pairs.back().arguments, state );
    }
    chip.hasRows = true;
    for ( const Pair & pair : pairs )
        benchmark::RegisterBenchmark( std::string( pair.guarded->name ).c_str(),
                                      [&]( benchmark::State & s ) {
                                          measure( s, pair, chip, { &ticks, &counters }, file );
                                      } );

    benchmark::Initialize( &argc, argv );
    if ( benchmark::ReportUnrecognizedArguments( argc, argv ) )
        return 2;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
