#include "tests/support/ChildProcess.h"

#include <benchmark/benchmark.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <string>
#include <sys/resource.h>
#include <unistd.h>

// The time to load the library into a process that does not have it: finding it, mapping it, its
// relocations, its start code. Each load happens in a process that was started for it, as an agent is;
// a forked child would copy pages of the loader on top. The process measures the load and ends.
//
// This program is the host: it defines Shim::sdk_. The platform is measured by itself, too, and is
// part of the library's figure. A library with nothing in it shows what the rest costs, and one that
// needs it what it takes to find and map a second one.

namespace {

using Clock = std::chrono::steady_clock;

struct Case {
    const char * name;
    const char * before; ///< a library that the process has already; null: none of these
    const char * library;
};
constexpr Case cases[] = {
    { "libStartupFloor.so", nullptr, "libStartupFloor.so" },
    { "libStartupNeeds.so", nullptr, "libStartupNeeds.so" },
    { "libCairnPlatform.so", nullptr, "libCairnPlatform.so" },
    { "libCairnLtHelper.so, the platform is there", "libCairnPlatform.so", "libCairnLtHelper.so" },
    { "libCairnLtHelper.so", nullptr, "libCairnLtHelper.so" },
};

const void * load( const char * library ) {
    const void * const loaded =
        ::dlopen( ( LIBRARY_FOLDER "/" + std::string( library ) ).c_str(), RTLD_NOW | RTLD_LOCAL );
    if ( loaded == nullptr )
        std::fprintf( stderr, "startup_bench: %s\n", ::dlerror() );
    return loaded;
}

struct Measured {
    double seconds = -1;
    long faults = 0; ///< pages that the process was given, or found in memory
};

long faults() {
    rusage usage{};
    ::getrusage( RUSAGE_SELF, &usage );
    return usage.ru_minflt;
}

// The child: measures one load, and writes what it found to standard output.
int measureHere( const Case & each ) {
    if ( each.before != nullptr && load( each.before ) == nullptr )
        return 1;
    Measured measured{ .faults = faults() };
    const auto start = Clock::now();
    const void * const loaded = load( each.library );
    measured.seconds = std::chrono::duration<double>( Clock::now() - start ).count();
    measured.faults = faults() - measured.faults;
    return loaded != nullptr && ::write( STDOUT_FILENO, &measured, sizeof measured ) ==
                                    static_cast<ssize_t>( sizeof measured )
               ? 0
               : 1;
}

Measured measureInAnotherProcess( const Case & each ) {
    std::array<int, 2> ends{};
    if ( ::pipe( ends.data() ) != 0 )
        return {};
    Support::runInChild( [&] {
        ::dup2( ends[1], STDOUT_FILENO );
        ::execl( "/proc/self/exe", "startup_bench", "--load", each.name, nullptr );
        return false;
    } );
    ::close( ends[1] );
    Measured answer;
    if ( ::read( ends[0], &answer, sizeof answer ) != static_cast<ssize_t>( sizeof answer ) )
        answer = {};
    ::close( ends[0] );
    return answer;
}

// The shortest of many loads: each is over before the system has had time to do something else.
void measure( benchmark::State & state, const Case & each ) {
    constexpr int loads = 400;
    Measured best;
    for ( auto _ : state ) {
        for ( int i = 0; i < loads; ++i ) {
            const Measured measured = measureInAnotherProcess( each );
            if ( measured.seconds < 0 ) {
                state.SkipWithError( "the library cannot be loaded" );
                return;
            }
            if ( best.seconds < 0 || measured.seconds < best.seconds )
                best = measured;
        }
        state.SetIterationTime( best.seconds );
    }
    state.counters["faults"] = static_cast<double>( best.faults );
}

} // namespace

int main( int argc, char ** argv ) {
    for ( const Case & each : cases ) {
        if ( argc == 3 && std::strcmp( argv[1], "--load" ) == 0 &&
             std::strcmp( argv[2], each.name ) == 0 )
            return measureHere( each );
        benchmark::RegisterBenchmark(
            each.name, [&each]( benchmark::State & state ) { measure( state, each ); } )
            ->UseManualTime()
            ->Iterations( 1 );
    }
    benchmark::Initialize( &argc, argv );
    if ( benchmark::ReportUnrecognizedArguments( argc, argv ) )
        return 2;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
