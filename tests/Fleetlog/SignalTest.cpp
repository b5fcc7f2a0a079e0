#include "Cairn/internal/TraceMessage.h"

#include "tests/support/TraceFiles.h"

#include <Fleetlog/TraceHandle.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <fcntl.h>
#include <map>
#include <pthread.h>
#include <set>
#include <string>
#include <thread>
#include <ucontext.h>
#include <unistd.h>
#include <vector>

// A message of a signal handler, at the single instructions of what it may interrupt: the processor
// traps after each, and the handler of that signal writes the message after one of them.

#if defined( __x86_64__ ) && !defined( __SANITIZE_ADDRESS__ ) && !defined( __SANITIZE_THREAD__ )

namespace {

using namespace Fleetlog;

constexpr std::size_t descriptorBytes = std::size_t( 4 ) << 20;

// Three kinds of messages, told apart by their second value; the first is the round of the test.
enum Kind : std::uint32_t { interrupted, ofHandler, afterwards, filling };
constexpr Cairn::Recipe recipe{ "f", "f" };
constexpr const char * pieces[] = { " ", "%s", " ", "%s" };
constexpr Cairn::MessageSite site{ &recipe, 1, "ii", pieces };

void send( int & msgId, std::uint32_t round, Kind kind ) {
    Cairn::sendMessage<std::uint32_t, std::uint32_t>( site, msgId, round, kind );
}

// --- The trap

constexpr unsigned long long trapFlag = 0x100;
volatile std::uint64_t instructionsLeft = 0; ///< before the handler writes
volatile bool hasInterrupted = false;
void ( *volatile interrupt )() = nullptr;

void onTrap( int, siginfo_t *, void * context ) {
    if ( instructionsLeft > 0 ) {
        instructionsLeft = instructionsLeft - 1;
        return;
    }
    interrupt();
    hasInterrupted = true;
    static_cast<ucontext_t *>( context )->uc_mcontext.gregs[REG_EFL] &=
        ~static_cast<greg_t>( trapFlag );
}

void watchTraps() {
    struct sigaction action {};
    action.sa_sigaction = onTrap;
    action.sa_flags = SA_SIGINFO;
    ::sigaction( SIGTRAP, &action, nullptr );
}

[[gnu::always_inline]] inline void startTraps() {
    __builtin_ia32_writeeflags_u64( __builtin_ia32_readeflags_u64() | trapFlag );
}

[[gnu::always_inline]] inline void stopTraps() {
    __builtin_ia32_writeeflags_u64( __builtin_ia32_readeflags_u64() & ~trapFlag );
}

// Does the work once and again, interrupted after one more instruction each time, or, if it is long,
// after so many more that all of it takes seconds. The last time, nothing is left to interrupt. Returns
// how often it was interrupted.
template <class Work>
std::uint32_t interruptEverywhere( Work work ) {
    const auto run = [&]( std::uint32_t round, std::uint64_t instructions ) {
        instructionsLeft = instructions;
        hasInterrupted = false;
        work( round );
        return static_cast<bool>( hasInterrupted );
    };
    run( 0, UINT64_MAX );
    const std::uint64_t instructions = UINT64_MAX - instructionsLeft;
    EXPECT_GT( instructions, 40u );
    constexpr std::uint64_t mostTraps = 100'000;
    const std::uint64_t apart =
        std::max<std::uint64_t>( 1, instructions * instructions / 2 / mostTraps );
    std::uint32_t round = 1;
    for ( std::uint64_t after = 0; run( round, after ); after += apart )
        ++round;
    return round - 1;
}

// --- What was written

class SignalTest : public testing::Test {
  protected:
    ~SignalTest() override { closeDefault(); }

    void open() const {
        openDefault( { .directory = directory_.path(),
                       .ringBytes = std::size_t( 128 ) << 20,
                       .descriptorBytes = descriptorBytes,
                       .files = Files::perThread } );
    }

    // The kinds of the messages of each round, in a file without damage in which no site is registered
    // twice. How many were dropped is added to `dropped`.
    std::map<std::uint32_t, std::vector<std::uint32_t>> rounds( const std::string & path,
                                                                std::uint64_t & dropped ) const {
        std::map<std::uint32_t, std::vector<std::uint32_t>> found;
        TraceReader::File file( path );
        TraceReader::Record record;
        std::vector<TraceReader::Value> values;
        while ( file.next( record ) ) {
            decode( record, values );
            if ( values.size() != 2 )
                ADD_FAILURE() << "a record without its values at byte " << record.offset;
            else if ( values[1].number != filling )
                found[values[0].number].push_back( values[1].number );
        }
        for ( const auto & finding : file.findings() )
            ADD_FAILURE() << finding.text();
        std::set<std::uint32_t> ids;
        for ( const auto & each : file.sites() )
            EXPECT_TRUE( ids.insert( each.id ).second ) << "site " << each.id << " twice";
        dropped += file.info().interrupting;
        return found;
    }

    Support::Directory directory_;
};

// --- A message that is interrupted

int interruptedId = 0;
int handlersId = 0;
bool isSameSite = false;
std::uint32_t currentRound = 0;

void sendFromHandler() { send( isSameSite ? interruptedId : handlersId, currentRound, ofHandler ); }

// Where the blocks of a file end.
class Blocks {
  public:
    explicit Blocks( const std::string & path )
        : descriptor_( ::open( path.c_str(), O_RDONLY | O_CLOEXEC ) ) {}
    ~Blocks() { ::close( descriptor_ ); }
    Blocks( const Blocks & ) = delete;
    Blocks & operator=( const Blocks & ) = delete;

    // Writes until the next message goes into a block that is not begun yet.
    void fill( int & msgId ) {
        const std::uint64_t last = begun();
        while ( begun() == last )
            send( msgId, 0, filling );
        constexpr int recordsOfBlock = 156;
        for ( int i = 1; i < recordsOfBlock; ++i )
            send( msgId, 0, filling );
    }

    // How many were begun.
    std::uint64_t begun() {
        for ( ;; ++begun_ ) {
            std::uint64_t sequence = 0;
            const auto offset = static_cast<off_t>( Format::pageBytes + descriptorBytes +
                                                    begun_ * Format::pageBytes );
            if ( ::pread( descriptor_, &sequence, sizeof sequence, offset ) != sizeof sequence ||
                 sequence == 0 )
                return begun_;
        }
    }

  private:
    int descriptor_;
    std::uint64_t begun_ = 0;
};

enum class Way {
    usual, ///< everything is known, and there is room in the block
    rare,  ///< the file is not remembered, the site is not registered, the block is full
};

class InterruptedMessageTest : public SignalTest,
                               public testing::WithParamInterface<std::pair<Way, bool>> {};

TEST_P( InterruptedMessageTest, NoInstructionLetsAHandlersMessageDamageAnother ) {
    isSameSite = GetParam().second;
    watchTraps();
    interrupt = sendFromHandler;
    open();
    int fillingId = 0;
    Blocks blocks( directory_.file() );
    send( fillingId, 0, filling );
    send( interruptedId = 0, 0, filling );
    send( handlersId = 0, 0, filling );
    const std::uint32_t interruptions = interruptEverywhere( [&]( std::uint32_t round ) {
        currentRound = round;
        const std::uint64_t begun = blocks.begun();
        if ( GetParam().first == Way::rare ) {
            blocks.fill( fillingId );
            interruptedId = handlersId = 0;
            knownFile = {};
        }
        startTraps();
        send( interruptedId, round, interrupted );
        stopTraps();
        // The site of the handler may have met a registration and be registered only now.
        send( handlersId, round, afterwards );
        if ( GetParam().first == Way::rare ) {
            EXPECT_GE( blocks.begun(), begun + 2 );
        }
    } );

    std::uint64_t dropped = 0;
    std::uint64_t kept = 0;
    for ( const auto & [round, kinds] : rounds( directory_.file(), dropped ) ) {
        for ( const Kind kind : { interrupted, afterwards } )
            EXPECT_EQ( std::count( kinds.begin(), kinds.end(), kind ), 1 ) << "round " << round;
        kept += kinds.size() - 2;
    }
    EXPECT_EQ( kept + dropped, interruptions );
    EXPECT_GT( kept, 0u );
    EXPECT_GT( dropped, 0u );
}

INSTANTIATE_TEST_SUITE_P( Ways, InterruptedMessageTest,
                          testing::Values( std::pair( Way::usual, false ),
                                           std::pair( Way::usual, true ),
                                           std::pair( Way::rare, false ),
                                           std::pair( Way::rare, true ) ) );

// --- The end of a thread that is interrupted

std::string * pathOfThread = nullptr;
bool wasLeft = false;

// Notes whether the thread's file was left already, to be taken over by another thread.
void sendAtTheEnd() {
    const int descriptor = ::open( pathOfThread->c_str(), O_RDONLY | O_CLOEXEC );
    std::uint32_t state = 0;
    wasLeft = ::pread( descriptor, &state, sizeof state, offsetof( Format::FileHeader, state ) ) ==
                  sizeof state &&
              state == static_cast<std::uint32_t>( Format::State::closed );
    ::close( descriptor );
    send( interruptedId, currentRound, ofHandler );
}

TEST_F( SignalTest, NoInstructionOfAThreadsEndLetsAHandlerWriteToAFileThatWasLeft ) {
    watchTraps();
    interrupt = sendAtTheEnd;
    open();
    const std::string ofMain = directory_.file();
    send( interruptedId = 0, 0, filling );
    std::thread( [] { send( interruptedId, 0, filling ); } ).join();
    auto paths = directory_.files();
    std::erase( paths, ofMain );
    ASSERT_EQ( paths.size(), 1u );
    pathOfThread = paths.data();
    // Later than the one that tells the end of a thread to its files.
    static pthread_key_t last;
    ASSERT_EQ( ::pthread_key_create( &last, []( void * ) { stopTraps(); } ), 0 );

    std::set<std::uint32_t> roundsOfFilesLeft;
    const std::uint32_t interruptions = interruptEverywhere( [&]( std::uint32_t round ) {
        currentRound = round;
        std::thread( [] {
            ::pthread_setspecific( last, &last );
            send( interruptedId, currentRound, interrupted );
            startTraps();
        } ).join();
        if ( hasInterrupted && wasLeft )
            roundsOfFilesLeft.insert( round );
    } );
    ::pthread_key_delete( last );
    EXPECT_GT( roundsOfFilesLeft.size(), 0u );
    EXPECT_LT( roundsOfFilesLeft.size(), interruptions );

    std::uint64_t dropped = 0;
    for ( const auto & [round, kinds] : rounds( paths[0], dropped ) ) {
        EXPECT_EQ( std::count( kinds.begin(), kinds.end(), interrupted ), 1 ) << "round " << round;
        EXPECT_LE( kinds.size(), roundsOfFilesLeft.contains( round ) ? 1u : 2u )
            << "round " << round;
    }
    EXPECT_EQ( dropped, 0u );
}

} // namespace

#endif
