#include "AgentShim.h"
#include "EventLoop.h"
#include "Stall.h"

#include <Cairn/CairnLtHelper.h>
#include <Fleetlog/TraceHandle.h>
#include <Kiln/ActivityLock.h>
#include <Shim/Sdk.h>
#include <interpose/FaultInjector.h>
#include <interpose/TraceRecorder.h>
#include <sim/Chip.h>

#include <CLI/CLI.hpp>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <iostream>
#include <mutex>
#include <optional>
#include <string>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <thread>
#include <unistd.h>

// An agent of one chip. It brings the chip up; then one thread gives it a new load-balance seed at each tick, and
// another one moves L2 interfaces from one link aggregation group to the next. All around these recipes is what an
// agent of your own needs as well.

Shim::Sdk * Shim::sdk_ = nullptr;

namespace {

struct Options {
    std::string traceTo;
    std::size_t keepFiles = 50;
    std::string recordTo;
    unsigned periodMs = 1000;
    std::string fault;
    std::uint64_t stallAt = 0;
};

constexpr std::uint32_t unit = 0;

// --- The work: recipes, called with the activity lock held

void bringUp() {
    Cairn::setOpaqueTagIngress( unit, 0 );
    Cairn::setOpaqueTagEgress( unit );
    Cairn::setLearnCacheEnabled( unit, true );
    Cairn::programPacketTraceForTtlError( unit );
}

class Seeds {
  public:
    void renew() { Cairn::setLoadBalanceRandSeedCtrl( unit, ++seed_ ); }

  private:
    std::uint32_t seed_ = 0;
};

class Destinations {
  public:
    void moveOne() {
        constexpr std::uint16_t interfaces = 8;
        constexpr std::uint32_t lags = 4;
        const auto l2If = static_cast<std::uint16_t>( 1 + moves_ % interfaces );
        const std::uint32_t lag = 1 + moves_ / interfaces % lags;
        Cairn::programL2EifSystemDestinationTable( chip_, unit, 0, lag, 128, l2If, true, true );
        ++moves_;
    }

  private:
    const CairnCentral::ChipInfo chip_{ "leaf", 1, 0, 0 };
    std::uint32_t moves_ = 0;
};

// --- Around it

/// Keeps descriptors 0 to 2 from becoming those of other files, if the caller has closed them: reports would be
/// written there. Writing to them goes on failing.
void occupyStandardDescriptors() {
    int descriptor = 0;
    do
        descriptor = ::open( "/dev/null", O_RDONLY );
    while ( descriptor >= 0 && descriptor <= STDERR_FILENO );
    ::close( descriptor );
}

/// SIGTERM and SIGINT, as a descriptor to read from. Blocked also in the threads that are started later.
Descriptor stopSignals() {
    sigset_t signals;
    ::sigemptyset( &signals );
    ::sigaddset( &signals, SIGTERM );
    ::sigaddset( &signals, SIGINT );
    ::pthread_sigmask( SIG_BLOCK, &signals, nullptr );
    return { ::signalfd( -1, &signals, SFD_CLOEXEC ), "signalfd" };
}

void run( const Options & options ) {
    const Descriptor signals = stopSignals();
    const Descriptor stopOthers( ::eventfd( 0, EFD_CLOEXEC ), "eventfd" );
    const std::chrono::milliseconds period( options.periodMs );

    if ( !options.traceTo.empty() )
        Fleetlog::openDefault( { .directory = options.traceTo,
                                 .timestamps = Fleetlog::Timestamps::tick,
                                 .files = Fleetlog::Files::perThread,
                                 .keepFiles = options.keepFiles } );

    Sim::Chip chip;
    chip.addUnit( unit, Sim::referenceSchema() );
    AgentShim shim( chip );
    Shim::sdk_ = &shim;
    // What is asked for stands in front of the shim; the recorder first, so that it sees what the recipes see.
    std::optional<Interpose::FaultInjector> faults;
    if ( !options.fault.empty() ) {
        faults.emplace( *Shim::sdk_ ).add( *Interpose::parseFault( options.fault ).fault );
        Shim::sdk_ = &*faults;
    }
    std::optional<Stall> stall;
    if ( options.stallAt != 0 )
        Shim::sdk_ = &stall.emplace( *Shim::sdk_, options.stallAt );
    std::optional<Interpose::TraceRecorder> recorder;
    if ( !options.recordTo.empty() )
        Shim::sdk_ = &recorder.emplace( *Shim::sdk_, Interpose::TraceRecorder::Options{
                                                         .directory = options.recordTo,
                                                         .keepFiles = options.keepFiles,
                                                         .isLockHeld = Kiln::holdsActivityLock } );

    {
        const std::lock_guard lock( Kiln::activityLock() );
        bringUp();
    }
    std::fprintf( stderr, "example-agent: the chip is up\n" );

    Seeds seeds;
    Destinations destinations;
    std::thread mover( [&] { runUntil( stopOthers, period, [&] { destinations.moveOne(); } ); } );
    runUntil( signals, period, [&] { seeds.renew(); } );
    ::eventfd_write( stopOthers.get(), 1 );
    mover.join();

    // No thread makes calls or writes messages any more.
    Shim::sdk_ = nullptr;
    recorder.reset();
    Fleetlog::closeDefault();
    std::fprintf( stderr, "example-agent: stopped after %llu guarded calls\n",
                  static_cast<unsigned long long>( shim.callCount() ) );
}

} // namespace

int main( int argc, char ** argv ) {
    occupyStandardDescriptors();
    ::signal( SIGPIPE, SIG_IGN ); // a log that nobody reads is no reason to end
    Options options;
    CLI::App app( "Keeps a simulated chip busy, until SIGTERM", "example-agent" );
    app.add_option( "--trace-to", options.traceTo, "Writes the always-on trace into this folder" );
    app.add_option( "--keep-files", options.keepFiles,
                    "Trace files of former runs that stay in a folder (default 50)" )
        ->check( CLI::Range( 1, 100'000 ) );
    app.add_option( "--record-to", options.recordTo,
                    "Records the newest SDK calls into this folder" );
    app.add_option( "--period", options.periodMs, "Milliseconds from tick to tick (default 1000)" )
        ->check( CLI::Range( 1, 3'600'000 ) );
    app.add_option( "--inject", options.fault, "Makes an SDK call fail, as cairn-lt run --inject" )
        ->check( []( const std::string & text ) { return Interpose::parseFault( text ).error; } );
    app.add_option( "--stall-at", options.stallAt, "The SDK call with this number does not return" )
        ->check( CLI::PositiveNumber );
    try {
        app.parse( argc, argv );
    } catch ( const CLI::CallForHelp & ) {
        if ( std::cout << app.help() << std::flush )
            return 0;
        std::cerr << "example-agent: standard output takes no more\n";
        return 1;
    } catch ( const CLI::ParseError & error ) {
        std::cerr << "example-agent: " << error.what() << "; see example-agent --help\n";
        return 2;
    }
    try {
        run( options );
    } catch ( const std::exception & error ) {
        std::cerr << "example-agent: " << error.what() << '\n';
        return 1;
    }
}
