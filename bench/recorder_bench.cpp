#include "interpose/TraceRecorder.h"
#include "tests/support/QuietSdk.h"
#include "tests/support/TemporaryFolder.h"
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

BENCHMARK( bare )->Name( "calls/bare" );
BENCHMARK( recorded<Interpose::TraceRecorder::Keep::newest> )->Name( "calls/recorded, ring" );
BENCHMARK( recorded<Interpose::TraceRecorder::Keep::everything> )
    ->Name( "calls/recorded, everything" );
BENCHMARK( read )->Name( "calls/read" )->Unit( benchmark::kMillisecond );

} // namespace

BENCHMARK_MAIN();
