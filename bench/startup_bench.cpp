#include "tests/support/ChildProcess.h"

#include <benchmark/benchmark.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <string>
#include <unistd.h>

// The time to load the library into a process that does not have it: finding it, mapping it, its
// relocations, its start code. Each load happens in a process of its own, which measures it and
// ends.
//
// This program is the host: it defines Shim::sdk_. The platform is measured by itself, too, and is
// part of the library's figure. A library with nothing in it shows what the rest costs.

namespace {

using Clock = std::chrono::steady_clock;

// Seconds, or a negative number if the library cannot be loaded.
double loadInAnotherProcess( const char * library ) {
    std::array<int, 2> ends{};
    if ( ::pipe( ends.data() ) != 0 )
        return -1;
    Support::runInChild( [&] {
        const auto start = Clock::now();
        const void * const loaded = ::dlopen( library, RTLD_NOW | RTLD_LOCAL );
        const double took = std::chrono::duration<double>( Clock::now() - start ).count();
        if ( loaded == nullptr )
            std::fprintf( stderr, "%s\n", ::dlerror() );
        return loaded != nullptr && ::write( ends[1], &took, sizeof took ) == sizeof took;
    } );
    ::close( ends[1] );
    double answer = -1;
    if ( ::read( ends[0], &answer, sizeof answer ) != sizeof answer )
        answer = -1;
    ::close( ends[0] );
    return answer;
}

void load( benchmark::State & state, const std::string & library ) {
    for ( auto _ : state ) {
        const double took = loadInAnotherProcess( library.c_str() );
        if ( took < 0 ) {
            state.SkipWithError( "the library cannot be loaded" );
            return;
        }
        state.SetIterationTime( took );
    }
}

} // namespace

int main( int argc, char ** argv ) {
    for ( const char * name :
          { "libStartupFloor.so", "libCairnPlatform.so", "libCairnLtHelper.so" } )
        benchmark::RegisterBenchmark( name, [name]( benchmark::State & state ) {
            load( state, std::string( LIBRARY_FOLDER "/" ) + name );
        } )->UseManualTime();
    benchmark::Initialize( &argc, argv );
    if ( benchmark::ReportUnrecognizedArguments( argc, argv ) )
        return 2;
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
