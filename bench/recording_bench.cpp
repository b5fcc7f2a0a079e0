#include "interpose/TraceRecorder.h"
#include "sim/Chip.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <thread>
#include <vector>

// Makes a recording for bench/recording_figures.py:
//
//     recording_bench FOLDER OPERATIONS [SEED]
//
// Two threads write and read rows of the reference chip, one with each unit. A seed other than 0 makes one of
// 10,000 entries write another value.

namespace {

// What an agent does with an entry: 6 operations.
class Worker {
  public:
    Worker( Shim::Sdk & sdk, int unit, std::uint64_t seed )
        : sdk_( sdk ), unit_( unit ), seed_( seed ) {}

    void run( std::uint64_t operations ) {
        for ( std::uint64_t i = 0; i * 6 < operations; ++i ) {
            const std::uint64_t value =
                seed_ != 0 && i % 10'000 == seed_ % 10'000 ? 3 : i / 256 % 3;
            write( i % 256, value );
        }
    }

  private:
    void write( std::uint64_t index, std::uint64_t value ) {
        std::uint32_t handle = 0;
        std::uint64_t read = 0;
        sdk_.preCallHook();
        sdk_.bcmlt_entry_allocate( unit_, "EGR_TUNNEL_ECN_ENCAPm", &handle );
        sdk_.preCallHook();
        sdk_.bcmlt_entry_field_add( handle, "BCMLT_PT_INDEX", index );
        sdk_.preCallHook();
        sdk_.bcmlt_entry_field_add( handle, "OUTER_ECN", value );
        sdk_.preCallHook();
        sdk_.bcmlt_pt_entry_commit( handle, sdk_.BCMLT_PT_OPCODE_MODIFY(),
                                    sdk_.BCMLT_PRIORITY_NORMAL() );
        sdk_.preCallHook();
        sdk_.bcmlt_entry_field_get( handle, "OUTER_ECN", &read );
        sdk_.preCallHook();
        sdk_.bcmlt_entry_free( handle );
    }

    Shim::Sdk & sdk_;
    int unit_;
    std::uint64_t seed_;
};

} // namespace

int main( int argc, char ** argv ) {
    if ( argc < 3 ) {
        std::fprintf( stderr, "usage: recording_bench FOLDER OPERATIONS [SEED]\n" );
        return 2;
    }
    try {
        std::filesystem::create_directories( argv[1] );
        const std::uint64_t operations = std::strtoull( argv[2], nullptr, 10 );
        const std::uint64_t seed = argc > 3 ? std::strtoull( argv[3], nullptr, 10 ) : 0;
        Sim::Chip chip;
        chip.addUnit( 0, Sim::referenceSchema() );
        chip.addUnit( 1, Sim::referenceSchema() );
        Interpose::TraceRecorder recorder( chip,
                                           { .directory = argv[1],
                                             .keep = Interpose::TraceRecorder::Keep::everything,
                                             .isLockHeld = [] { return false; } } );
        std::vector<std::thread> threads;
        for ( const int unit : { 0, 1 } )
            threads.emplace_back(
                [&, unit] { Worker( recorder, unit, seed ).run( operations / 2 ); } );
        for ( std::thread & thread : threads )
            thread.join();
    } catch ( const std::exception & trouble ) {
        std::fprintf( stderr, "recording_bench: %s\n", trouble.what() );
        return 2;
    }
    return 0;
}
