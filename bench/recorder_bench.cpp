#include "interpose/TraceRecorder.h"
#include "tests/support/QuietSdk.h"
#include "tests/support/SdkOperations.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TraceOperations.h"
#include "tracereader/Recording.h"

#include <Kiln/ActivityLock.h>

#include <benchmark/benchmark.h>

#include <cstdint>

// What it costs that the SDK calls of an agent are recorded, and how fast a recording is read: a row
// written, an allocate, two fields, a commit and a free, on an SDK that does almost nothing.

namespace {

constexpr std::int64_t callsOfRow = 5;

void writeRow( Shim::Sdk & sdk, std::uint64_t row ) {
    std::uint32_t handle = 0;
    sdk.bcmlt_entry_allocate( 0, "EGR_TUNNEL_ECN_ENCAPm", &handle );
    sdk.bcmlt_entry_field_add( handle, "BCMLT_PT_INDEX", row );
    sdk.bcmlt_entry_field_add( handle, "OUTER_ECN", 2 );
    sdk.bcmlt_pt_entry_commit( handle, 8, 6 );
    sdk.bcmlt_entry_free( handle );
}

void writeRows( benchmark::State & state, Shim::Sdk & sdk ) {
    std::uint64_t row = 0;
    for ( auto _ : state )
        writeRow( sdk, row++ % 256 );
    state.SetItemsProcessed( state.iterations() * callsOfRow );
}

void bare( benchmark::State & state ) { writeRows( state, Support::quietSdk() ); }

template <Interpose::TraceRecorder::Keep keep>
void recorded( benchmark::State & state ) {
    const Support::TemporaryFolder folder;
    Interpose::TraceRecorder recorder( Support::quietSdk(),
                                       { .directory = folder.path(),
                                         .keep = keep,
                                         .keepFullFiles = 2,
                                         .isLockHeld = Kiln::holdsActivityLock } );
    writeRows( state, recorder );
}

void read( benchmark::State & state ) {
    const Support::TemporaryFolder folder;
    constexpr std::int64_t rows = 200'000;
    {
        Interpose::TraceRecorder recorder(
            Support::quietSdk(),
            { .directory = folder.path(), .keep = Interpose::TraceRecorder::Keep::everything } );
        for ( std::int64_t row = 0; row < rows; ++row )
            writeRow( recorder, static_cast<std::uint64_t>( row % 256 ) );
    }
    for ( auto _ : state ) {
        TraceReader::Recording recording( { folder.path() } );
        TraceReader::Event event;
        std::int64_t calls = 0;
        while ( recording.next( event ) )
            calls += event.moment == TraceReader::Event::Moment::after ? 1 : 0;
        if ( calls != rows * callsOfRow )
            state.SkipWithError( "calls are missing" );
    }
    state.SetItemsProcessed( state.iterations() * rows * callsOfRow );
}

// One operation of a kind, recorded in a ring. Counted are the instructions that the recorder adds.
template <class Operation>
void operation( benchmark::State & state ) {
    const Support::TemporaryFolder folder;
    Interpose::TraceRecorder recorder(
        Support::quietSdk(),
        { .directory = folder.path(), .isLockHeld = Kiln::holdsActivityLock } );
    Support::operationSdk = &Support::quietSdk();
    const auto bare = Support::instructionsOf<Operation>();
    Support::operationSdk = &recorder;
    const auto counted = Support::instructionsOf<Operation>();
    const Operation made;
    std::uint32_t i = 0;
    for ( auto _ : state ) {
        ++i;
        made.run( i, i );
    }
    state.SetItemsProcessed( state.iterations() );
    if ( bare && counted )
        state.counters["instructions"] = static_cast<double>( *counted - *bare );
}

BENCHMARK( bare )->Name( "calls/of a row, bare" );
BENCHMARK( recorded<Interpose::TraceRecorder::Keep::newest> )->Name( "calls/of a row, ring" );
BENCHMARK( recorded<Interpose::TraceRecorder::Keep::everything> )
    ->Name( "calls/of a row, everything" );
BENCHMARK( operation<Support::Allocate> )->Name( "calls/allocate" );
BENCHMARK( operation<Support::AttribSet> )->Name( "calls/attrib_set" );
BENCHMARK( operation<Support::FieldAdd> )->Name( "calls/field_add" );
BENCHMARK( operation<Support::FieldArrayAdd> )->Name( "calls/field_array_add, two values" );
BENCHMARK( operation<Support::FieldGet> )->Name( "calls/field_get" );
BENCHMARK( operation<Support::FieldSymbolAdd> )->Name( "calls/field_symbol_add" );
BENCHMARK( operation<Support::Commit> )->Name( "calls/commit" );
BENCHMARK( operation<Support::PtCommit> )->Name( "calls/pt_commit" );
BENCHMARK( operation<Support::Free> )->Name( "calls/free" );
BENCHMARK( read )->Name( "calls/read back" )->Unit( benchmark::kMillisecond );

} // namespace

BENCHMARK_MAIN();
