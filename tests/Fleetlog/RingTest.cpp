#include "tests/support/TraceFiles.h"

#include <Fleetlog/MsgDesc.h>
#include <Fleetlog/TraceHandle.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <pthread.h>
#include <sched.h>
#include <set>
#include <string>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>

// Fleetlog by itself: files, registration, records.

namespace {

using namespace Fleetlog;

int registerSite( TraceFile & file, int & msgId, const char * letters,
                  std::initializer_list<const char *> pieces, int line = 7 ) {
    MsgDesc descriptor( &file, &msgId, "Cairn/CairnLtHelper", line );
    for ( ; *letters != '\0'; ++letters ) {
        const char letter[] = { *letters, '\0' };
        descriptor.formatString().put( letter );
    }
    for ( const char * const piece : pieces )
        descriptor << piece;
    descriptor.finish();
    return msgId;
}

bool isRegistered( const TraceFile & file, int msgId ) {
    return static_cast<unsigned>( msgId ) < file.initialisedLength() &&
           file.initialised()[msgId] != 0;
}

void writeNumber( TraceFile & file, int msgId, std::uint32_t number ) {
    file.ringBuf()->startMsg( &file, msgId );
    file.ringBuf()->put4( number );
    file.ringBuf()->endMsg();
}

void writeText( TraceFile & file, int msgId, const char * text ) {
    file.ringBuf()->startMsg( &file, msgId );
    put( file.ringBuf(), text );
    file.ringBuf()->endMsg();
}

class FleetlogTest : public testing::Test {
  protected:
    OpenOptions options( std::size_t ringBytes = 1 << 16 ) const {
        return { .directory = directory_.path(),
                 .ringBytes = ringBytes,
                 .descriptorBytes = 4096,
                 .timestamps = Timestamps::counter,
                 .files = Files::perProcess };
    }

    std::unique_ptr<TraceFile> openFile( std::size_t ringBytes = 1 << 16 ) const {
        return std::make_unique<TraceFile>( options( ringBytes ), 0 );
    }

    Support::Directory directory_;
};

TEST_F( FleetlogTest, RecordIsReadBackWithItsValuesAndItsDescriptor ) {
    auto file = openFile();
    int msgId = 0;
    registerSite(
        *file, msgId, "isbp",
        { "setThing", " unit: ", "%s", " l2If: ", "%s", " op: ", "%s", " mem: ", "%s", "." }, 409 );
    RingBuf & ring = *file->ringBuf();
    ring.startMsg( file.get(), msgId );
    ring.put4( 0xfedcba98 );
    ring.put2( 0xabcd );
    ring.put1( 1 );
    put( &ring, "L3_HDR_ERROR" );
    ring.endMsg();

    TraceReader::File reader( directory_.file() );
    TraceReader::Record record;
    ASSERT_TRUE( reader.next( record ) );
    ASSERT_NE( record.site, nullptr );
    EXPECT_EQ( record.site->file, "Cairn/CairnLtHelper" );
    EXPECT_EQ( record.site->line, 409u );
    EXPECT_EQ( record.site->letters, "isbp" );
    EXPECT_EQ( record.site->function, "setThing" );
    EXPECT_EQ( record.site->texts, ( std::vector<std::string>{
                                       "setThing unit: ", " l2If: ", " op: ", " mem: ", "." } ) );
    std::vector<TraceReader::Value> values;
    decode( record, values );
    ASSERT_EQ( values.size(), 4u );
    EXPECT_EQ( values[0].number, 0xfedcba98u );
    EXPECT_EQ( values[1].number, 0xabcdu );
    EXPECT_EQ( values[2].number, 1u );
    EXPECT_EQ( values[3].text, "L3_HDR_ERROR" );
    EXPECT_FALSE( values[3].isCut );
    EXPECT_FALSE( reader.next( record ) );
    EXPECT_TRUE( reader.findings().empty() );
}

TEST_F( FleetlogTest, ValuesAreStoredInNativeByteOrderWithoutPadding ) {
    auto file = openFile();
    int msgId = 0;
    registerSite( *file, msgId, "bis", { "f", "%s", "%s", "%s" } );
    RingBuf & ring = *file->ringBuf();
    ring.startMsg( file.get(), msgId );
    ring.put1( 1 );
    ring.put4( 0x04030201 );
    ring.put2( 0x0605 );
    ring.endMsg();

    TraceReader::File reader( directory_.file() );
    TraceReader::Record record;
    ASSERT_TRUE( reader.next( record ) );
    const unsigned char expected[] = { 1, 1, 2, 3, 4, 5, 6 };
    ASSERT_EQ( record.payload.size(), 8u );
    EXPECT_EQ( std::memcmp( record.payload.data(), expected, sizeof expected ), 0 );
}

TEST_F( FleetlogTest, ValuesWithoutAnActiveRecordAreDropped ) {
    auto file = openFile();
    RingBuf & ring = *file->ringBuf();
    const auto before = Support::contentOf( directory_.file() );
    ring.put4( 1 );
    ring.put2( 2 );
    ring.put1( 3 );
    put( &ring, "text" );
    ring.endMsg();
    EXPECT_EQ( Support::contentOf( directory_.file() ), before );

    int msgId = 0;
    registerSite( *file, msgId, "i", { "f", "%s" } );
    writeNumber( *file, msgId, 1 );
    ring.put4( 99 ); // after the end of a record, too
    writeNumber( *file, msgId, 2 );
    EXPECT_EQ( Support::read( directory_.file() ).texts,
               ( std::vector<std::string>{ "f1", "f2" } ) );
}

TEST_F( FleetlogTest, RecordThatIsNotEndedIsNotInTheFileAndKeepsOthersOut ) {
    auto file = openFile();
    int msgId = 0;
    registerSite( *file, msgId, "i", { "f", "%s" } );
    writeNumber( *file, msgId, 1 );
    ASSERT_TRUE( file->ringBuf()->startMsg( file.get(), msgId ) );
    file->ringBuf()->put4( 2 );
    EXPECT_EQ( Support::read( directory_.file() ).texts, std::vector<std::string>{ "f1" } );
    EXPECT_FALSE( file->ringBuf()->startMsg( file.get(), msgId ) );
    file->ringBuf()->endMsg();
    writeNumber( *file, msgId, 3 );
    const auto reading = Support::read( directory_.file() );
    EXPECT_EQ( reading.texts, ( std::vector<std::string>{ "f1", "f2", "f3" } ) );
    EXPECT_TRUE( reading.findings.empty() );
    EXPECT_EQ( reading.info.interrupting, 1u );
}

// --- Signal handlers

// What a handler does: a whole record, at any moment of another.
bool writeInterrupting( TraceFile & file, int msgId, std::uint32_t number ) {
    RecordWriter record;
    if ( !record.start( *file.ringBuf(), file, msgId ) )
        return false;
    record.put4( number );
    record.end();
    return true;
}

TEST_F( FleetlogTest, RecordThatInterruptsAnotherIsDroppedAndCountedAndTheOtherIsWhole ) {
    auto file = openFile( 2 * 4096 );
    int msgId = 0;
    registerSite( *file, msgId, "ii", { "%s", " ", "%s" } );
    std::uint32_t interrupting = 0;
    for ( std::uint32_t i = 0; i < 1000; ++i ) { // at each place of a block, and at its end
        RecordWriter record;
        ASSERT_TRUE( record.start( *file->ringBuf(), *file, msgId ) );
        for ( int j = 0; j < 3; ++j, ++interrupting )
            EXPECT_FALSE( writeInterrupting( *file, msgId, 99 ) );
        record.put4( i );
        EXPECT_FALSE( writeInterrupting( *file, msgId, 99 ) );
        ++interrupting;
        record.put4( ~i );
        record.end();
    }
    const auto reading = Support::read( directory_.file() );
    EXPECT_TRUE( reading.findings.empty() );
    EXPECT_EQ( reading.info.interrupting, interrupting );
    ASSERT_GT( reading.texts.size(), 150u );
    for ( std::size_t i = 0; i < reading.texts.size(); ++i ) {
        const auto number = static_cast<std::uint32_t>( 1000 - reading.texts.size() + i );
        EXPECT_EQ( reading.texts[i], std::to_string( number ) + " " + std::to_string( ~number ) );
    }
}

TEST_F( FleetlogTest, RecordBetweenTwoOthersIsKeptWhoeverWritesIt ) {
    auto file = openFile();
    int msgId = 0;
    registerSite( *file, msgId, "i", { "%s" } );
    writeNumber( *file, msgId, 1 );
    EXPECT_TRUE( writeInterrupting( *file, msgId, 2 ) );
    writeNumber( *file, msgId, 3 );
    EXPECT_EQ( Support::read( directory_.file() ).texts,
               ( std::vector<std::string>{ "1", "2", "3" } ) );
}

// For the handler of a real signal.
TraceFile * interruptedFile = nullptr;
int interruptedId = 0;
volatile std::sig_atomic_t handled = 0;

TEST_F( FleetlogTest, SignalHandlersThatWriteLoseNothingButTheirOwnRecords ) {
    constexpr std::uint32_t total = 400'000;
    constexpr std::uint32_t ofHandler = 0x80000000;
    auto file = openFile( std::size_t( 64 ) << 20 );
    registerSite( *file, interruptedId, "i", { "%s" } );
    interruptedFile = file.get();
    handled = 0;
    struct sigaction action {};
    action.sa_handler = []( int ) {
        for ( int i = 0; i < 5; ++i ) // enough to come to the end of a block now and then
            writeInterrupting( *interruptedFile, interruptedId, ofHandler );
        handled = handled + 1;
    };
    struct sigaction before {};
    ASSERT_EQ( ::sigaction( SIGUSR1, &action, &before ), 0 );
    std::atomic<bool> isHandling{ false };
    std::atomic<bool> isEnding{ false };
    std::atomic<std::uint32_t> written{ 0 };
    const pthread_t writer = ::pthread_self();
    std::thread interrupting( [&] {
        // One signal for each step of the writer at most: a slow build would do nothing but
        // handle signals if they came as fast as they can be sent. The first is sent until it is
        // handled: the thread sanitizer can lose one, and the writer waits for it.
        while ( !isEnding.load() ) {
            const std::uint32_t step = written.load();
            ::pthread_kill( writer, SIGUSR1 );
            while ( isHandling.load() && written.load() == step && !isEnding.load() )
                ::sched_yield();
        }
    } );
    while ( handled == 0 ) // until the other thread runs
        ::usleep( 1 );
    isHandling = true;
    for ( std::uint32_t i = 0; i < total; ++i ) {
        writeNumber( *file, interruptedId, i );
        written.store( i + 1, std::memory_order_relaxed );
    }
    isEnding = true;
    interrupting.join();
    ASSERT_EQ( ::sigaction( SIGUSR1, &before, nullptr ), 0 );

    TraceReader::File reader( directory_.file() );
    TraceReader::Record record;
    std::vector<TraceReader::Value> values;
    std::uint32_t next = 0;
    std::uint64_t kept = 0;
    while ( reader.next( record ) ) {
        decode( record, values );
        ASSERT_EQ( values.size(), 1u );
        if ( values[0].number == ofHandler )
            ++kept;
        else if ( values[0].number != next++ )
            FAIL() << values[0].number << " stands where " << next - 1 << " is due";
    }
    EXPECT_EQ( next, total );
    EXPECT_TRUE( reader.findings().empty() );
    EXPECT_EQ( kept + reader.info().interrupting, 5 * static_cast<std::uint64_t>( handled ) );
}

TEST_F( FleetlogTest, SiteThatAHandlerRegistersWithinARegistrationIsRegisteredAtItsNextMessage ) {
    auto file = openFile();
    int outer = 0;
    int inner = 0;
    {
        // The outer descriptor finds its site in a handler's hands: begun, and finished later.
        MsgDesc descriptor( file.get(), &outer, "Cairn/CairnLtHelper", 1 );
        descriptor << "outer";
        registerSite( *file, inner, "", { "inner" } );
        descriptor.finish();
    }
    for ( const int msgId : { outer, inner } ) {
        ASSERT_TRUE( isRegistered( *file, msgId ) );
        file->ringBuf()->startMsg( file.get(), msgId );
        file->ringBuf()->endMsg();
    }
    EXPECT_EQ( Support::read( directory_.file() ).texts,
               ( std::vector<std::string>{ "outer", "inner" } ) );
}

TEST_F( FleetlogTest, TextsOfEveryLengthAreKeptAndTheLongOnesAreCutVisibly ) {
    auto file = openFile();
    int msgId = 0;
    registerSite( *file, msgId, "pi", { "%s", "|", "%s" } );
    std::vector<std::string> expected;
    for ( std::size_t length = 0; length <= maxTextBytes + 20; ++length ) {
        std::string text;
        for ( std::size_t i = 0; i < length; ++i )
            text += static_cast<char>( 'a' + i % 26 );
        RingBuf & ring = *file->ringBuf();
        ring.startMsg( file.get(), msgId );
        put( &ring, text.c_str() );
        ring.put4( static_cast<std::uint32_t>( length ) );
        ring.endMsg();
        expected.push_back(
            ( length > maxTextBytes ? text.substr( 0, maxTextBytes ) + "..." : text ) + "|" +
            std::to_string( length ) );
    }
    EXPECT_EQ( Support::read( directory_.file() ).texts, expected );
}

TEST_F( FleetlogTest, NullTextIsShownAsATraceLineShowsIt ) {
    auto file = openFile();
    int msgId = 0;
    registerSite( *file, msgId, "p", { "f ", "%s" } );
    writeText( *file, msgId, nullptr );
    EXPECT_EQ( Support::read( directory_.file() ).texts, std::vector<std::string>{ "f (null)" } );
}

TEST_F( FleetlogTest, ValueThatContainsThePlaceholderTakesNoOtherValuesPlace ) {
    auto file = openFile();
    int msgId = 0;
    registerSite( *file, msgId, "pp", { "f ", "%s", " and ", "%s" } );
    file->ringBuf()->startMsg( file.get(), msgId );
    put( file->ringBuf(), "%s" );
    put( file->ringBuf(), "second" );
    file->ringBuf()->endMsg();
    EXPECT_EQ( Support::read( directory_.file() ).texts,
               std::vector<std::string>{ "f %s and second" } );
}

TEST_F( FleetlogTest, RecordOfTheLargestSizeFitsWhereverTheBlockEnds ) {
    // Two texts of full length and numbers up to maxPayloadBytes, each beginning 8 bytes further
    // on.
    auto file = openFile( 1 << 20 );
    int filler = 0;
    int largest = 0;
    constexpr std::size_t textBytes = 2 * ( maxTextBytes + 2 );
    constexpr std::size_t numbers = ( maxPayloadBytes - textBytes ) / 4;
    registerSite( *file, filler, "", { "filler" } );
    registerSite( *file, largest, ( "pp" + std::string( numbers, 'i' ) ).c_str(), { "largest " } );
    const std::string text( maxTextBytes, 'x' );
    std::size_t written = 0;
    for ( int shift = 0; shift < 60; ++shift ) {
        for ( int i = 0; i < shift; ++i ) {
            file->ringBuf()->startMsg( file.get(), filler );
            file->ringBuf()->endMsg();
            ++written;
        }
        for ( int i = 0; i < 13; ++i ) {
            RingBuf & ring = *file->ringBuf();
            ring.startMsg( file.get(), largest );
            put( &ring, text.c_str() );
            put( &ring, text.c_str() );
            for ( std::uint32_t n = 0; n < numbers; ++n )
                ring.put4( n );
            ring.endMsg();
            ++written;
        }
    }
    const auto reading = Support::read( directory_.file() );
    EXPECT_EQ( reading.findings, std::vector<std::string>{} );
    EXPECT_EQ( reading.counts.overwrittenBlocks, 0u );
    EXPECT_EQ( reading.counts.records, written );
}

TEST_F( FleetlogTest, RingThatWrapsKeepsTheNewestRecordsAndCountsTheOthers ) {
    auto file = openFile( 4 * 4096 );
    int msgId = 0;
    registerSite( *file, msgId, "i", { "%s" } );
    constexpr std::uint32_t total = 100'000;
    for ( std::uint32_t i = 0; i < total; ++i )
        writeNumber( *file, msgId, i );
    const auto reading = Support::read( directory_.file() );
    EXPECT_TRUE( reading.findings.empty() );
    ASSERT_FALSE( reading.texts.empty() );
    const std::size_t first = total - reading.texts.size();
    for ( std::size_t i = 0; i < reading.texts.size(); ++i )
        ASSERT_EQ( reading.texts[i], std::to_string( first + i ) );
    EXPECT_GT( reading.counts.overwrittenRecords(), first * 8 / 10 );
    EXPECT_LT( reading.counts.overwrittenRecords(), first * 12 / 10 );
    EXPECT_EQ( reading.counts.blocks, 4u );
    EXPECT_GT( reading.counts.overwrittenBlocks, 100u );
    EXPECT_EQ( reading.counts.missingBlocks, 0u );
}

TEST_F( FleetlogTest, CounterGivesWallClockTimesInOrder ) {
    timespec before{};
    ::clock_gettime( CLOCK_REALTIME, &before );
    auto file = openFile();
    int msgId = 0;
    registerSite( *file, msgId, "i", { "%s" } );
    for ( std::uint32_t i = 0; i < 1000; ++i )
        writeNumber( *file, msgId, i );
    timespec after{};
    ::clock_gettime( CLOCK_REALTIME, &after );

    const auto nanoseconds = []( const timespec & time ) {
        return time.tv_sec * std::int64_t( 1'000'000'000 ) + time.tv_nsec;
    };
    constexpr std::int64_t tolerance = 1'000'000;
    TraceReader::File reader( directory_.file() );
    TraceReader::Record record;
    std::int64_t last = nanoseconds( before ) - tolerance;
    int read = 0;
    while ( reader.next( record ) ) {
        ASSERT_GE( record.time, last );
        last = record.time;
        ++read;
    }
    EXPECT_EQ( read, 1000 );
    EXPECT_LE( last, nanoseconds( after ) + tolerance );
    EXPECT_EQ( reader.info().timestamps, "counter" );
    EXPECT_FALSE( reader.info().isTimeOfBlock );
}

TEST_F( FleetlogTest, TickIsTheTimeOfTheLastRefresh ) {
    OpenOptions ticking = options();
    ticking.timestamps = Timestamps::tick;
    openDefault( ticking );
    TraceFile & file = *defaultFleetlogHandle->traceFile();
    int msgId = 0;
    registerSite( file, msgId, "i", { "%s" } );
    writeNumber( file, msgId, 1 );
    writeNumber( file, msgId, 2 );
    const timespec pause{ .tv_sec = 0, .tv_nsec = 2'000'000 };
    ::nanosleep( &pause, nullptr );
    refreshTick();
    writeNumber( file, msgId, 3 );

    TraceReader::File reader( directory_.file() );
    TraceReader::Record first;
    TraceReader::Record second;
    TraceReader::Record third;
    ASSERT_TRUE( reader.next( first ) && reader.next( second ) && reader.next( third ) );
    EXPECT_EQ( first.time, second.time );
    EXPECT_GE( third.time, second.time + pause.tv_nsec );
    EXPECT_LE( third.time, second.time + 1'000'000'000 );
    EXPECT_EQ( reader.info().timestamps, "tick" );
    closeDefault();
}

TEST_F( FleetlogTest, WithoutTimestampsARecordHasTheTimeOfItsBlock ) {
    OpenOptions untimed = options();
    untimed.timestamps = Timestamps::none;
    TraceFile file( untimed, 0 );
    int msgId = 0;
    registerSite( file, msgId, "i", { "%s" } );
    writeNumber( file, msgId, 1 );
    TraceReader::File reader( directory_.file() );
    TraceReader::Record record;
    ASSERT_TRUE( reader.next( record ) );
    EXPECT_TRUE( reader.info().isTimeOfBlock );
    EXPECT_NEAR( static_cast<double>( record.time ) / 1e9,
                 static_cast<double>( std::time( nullptr ) ), 2 );
}

// --- Registration

TEST_F( FleetlogTest, IdentifierIsGivenOnceAndStaysInEveryFile ) {
    auto one = openFile();
    auto other = openFile();
    int msgId = 0;
    const int given = registerSite( *one, msgId, "i", { "%s" } );
    EXPECT_GT( given, 0 );
    EXPECT_TRUE( isRegistered( *one, given ) );
    EXPECT_FALSE( isRegistered( *other, given ) );
    EXPECT_EQ( registerSite( *other, msgId, "i", { "%s" } ), given );
    EXPECT_TRUE( isRegistered( *other, given ) );
    EXPECT_TRUE( isRegistered( *one, given ) );
}

TEST_F( FleetlogTest, IdentifierZeroIsNeverRegistered ) {
    auto file = openFile();
    int msgId = 0;
    registerSite( *file, msgId, "i", { "%s" } );
    ASSERT_GT( file->initialisedLength(), 0u );
    EXPECT_EQ( file->initialised()[0], 0 );
}

TEST_F( FleetlogTest, IdentifierBeyondTheTableRegistersAndIsReplacedIfFleetlogNeverGaveIt ) {
    auto file = openFile();
    for ( const int foreign : { 1'000'000, -1, INT32_MAX, INT32_MIN } ) {
        int msgId = foreign;
        EXPECT_FALSE( isRegistered( *file, msgId ) );
        const int given = registerSite( *file, msgId, "i", { "%s" } );
        EXPECT_NE( given, foreign );
        EXPECT_TRUE( isRegistered( *file, given ) );
    }
}

TEST_F( FleetlogTest, DescriptorsThatFindNoRoomAreCountedAndTheirRecordsShownAsBytes ) {
    auto file = openFile();
    std::vector<int> msgIds( 60, 0 );
    for ( int & msgId : msgIds ) {
        registerSite( *file, msgId, "i",
                      { "aFunctionWithALongName", " a long piece of text: ", "%s" } );
        EXPECT_TRUE( isRegistered( *file, msgId ) );
    }
    for ( const int msgId : msgIds )
        writeNumber( *file, msgId, 0x01020304 );
    const auto reading = Support::read( directory_.file() );
    ASSERT_EQ( reading.texts.size(), msgIds.size() );
    EXPECT_EQ( reading.texts.front(), "aFunctionWithALongName a long piece of text: 16909060" );
    EXPECT_EQ( reading.texts.back(),
               "message " + std::to_string( msgIds.back() ) + " with bytes 0403020100000000" );
    EXPECT_EQ( reading.sites.size() + reading.info.unregistered, msgIds.size() );
    ASSERT_EQ( reading.findings.size(), reading.info.unregistered );
    EXPECT_NE( reading.findings.front().find( "The writer had no room for" ), std::string::npos );
}

TEST_F( FleetlogTest, DescriptorOfExcessiveLengthIsLeftOut ) {
    auto file = openFile();
    int msgId = 0;
    registerSite( *file, msgId, "", { std::string( 3000, 'x' ).c_str() } );
    file->ringBuf()->startMsg( file.get(), msgId );
    file->ringBuf()->endMsg();
    const auto reading = Support::read( directory_.file() );
    EXPECT_EQ( reading.info.unregistered, 1u );
    EXPECT_EQ( reading.texts,
               std::vector<std::string>{ "message " + std::to_string( msgId ) + " with bytes " } );
}

// --- Files

TEST_F( FleetlogTest, FileIsNamedAfterProgramAndProcessAndNeverReplacesAnother ) {
    const std::string stem = directory_.path() + "/" + program_invocation_short_name + "-" +
                             std::to_string( ::getpid() );
    auto first = openFile();
    auto second = openFile();
    TraceFile third( options(), ::gettid() );
    EXPECT_EQ( first->path(), stem + ".fleetlog" );
    EXPECT_EQ( second->path(), stem + ".2.fleetlog" );
    EXPECT_EQ( third.path(), stem + "-" + std::to_string( ::gettid() ) + ".fleetlog" );
}

TEST_F( FleetlogTest, HeaderTellsWriterAndWhetherItClosed ) {
    auto file = openFile( 10'000 );
    auto info = Support::read( directory_.file() ).info;
    EXPECT_FALSE( info.isClosed );
    EXPECT_EQ( info.program, program_invocation_short_name );
    EXPECT_EQ( info.process, static_cast<std::uint32_t>( ::getpid() ) );
    EXPECT_EQ( info.thread, 0u );
    EXPECT_EQ( info.blockCount, 3u ); // rounded up
    file.reset();
    info = Support::read( directory_.file() ).info;
    EXPECT_TRUE( info.isClosed );
}

std::string errorOf( const std::function<void()> & work ) {
    try {
        work();
    } catch ( const std::system_error & error ) {
        return error.what();
    }
    return "no error";
}

TEST_F( FleetlogTest, MissingDirectoryIsAnErrorThatNamesTheFile ) {
    OpenOptions missing = options();
    missing.directory = directory_.path() + "/missing";
    const std::string error = errorOf( [&] { openDefault( missing ); } );
    EXPECT_NE( error.find( "cannot make a trace file in " + directory_.path() + "/missing" ),
               std::string::npos )
        << error;
    EXPECT_NE( error.find( "No such file or directory" ), std::string::npos ) << error;
    EXPECT_EQ( defaultFleetlogHandle, nullptr );
}

TEST_F( FleetlogTest, EmptyDirectoryNameIsAnError ) {
    OpenOptions nowhere = options();
    nowhere.directory.clear();
    EXPECT_NE( errorOf( [&] { openDefault( nowhere ); } ).find( "no directory is given" ),
               std::string::npos );
}

TEST_F( FleetlogTest, PermissionsAreThoseOfTheOptions ) {
    const mode_t before = ::umask( 0 );
    const auto modeOf = []( const TraceFile & file ) {
        struct stat status {};
        ::stat( file.path().c_str(), &status );
        return status.st_mode & 0777;
    };
    OpenOptions open = options();
    EXPECT_EQ( modeOf( TraceFile( open, 0 ) ), 0640u );
    open.mode = 0600;
    EXPECT_EQ( modeOf( TraceFile( open, 0 ) ), 0600u );
    ::umask( before );
}

TEST_F( FleetlogTest, ProgramOfALongNameIsTracedUnderItsFirst63Bytes ) {
    std::string name( 250, 'n' );
    char * const before = program_invocation_short_name;
    program_invocation_short_name = name.data();
    const auto file = openFile();
    program_invocation_short_name = before;
    EXPECT_EQ( Support::read( file->path() ).info.program, std::string( 63, 'n' ) );
    EXPECT_TRUE(
        file->path().starts_with( directory_.path() + "/" + std::string( 63, 'n' ) + "-" ) );
}

TEST_F( FleetlogTest, FileAppearsUnderItsNameWhenItIsComplete ) {
    // A process that is stopped at each system call while it makes a file: whatever is seen under a
    // trace file's name can be read.
    const pid_t child = Support::startChild( [&] {
        if ( ::ptrace( PTRACE_TRACEME, 0, nullptr, nullptr ) != 0 )
            return false;
        ::raise( SIGSTOP );
        const TraceFile file( options(), 0 );
        return true;
    } );
    int status = 0;
    ASSERT_EQ( ::waitpid( child, &status, 0 ), child );
    if ( !WIFSTOPPED( status ) )
        GTEST_SKIP() << "this process may not trace another";
    int steps = 0;
    std::size_t seen = 0;
    while ( ::ptrace( PTRACE_SYSCALL, child, nullptr, nullptr ) == 0 &&
            ::waitpid( child, &status, 0 ) == child && WIFSTOPPED( status ) ) {
        ++steps;
        for ( const auto & path : directory_.files() ) {
            const auto reading = Support::read( path );
            EXPECT_TRUE( reading.findings.empty() );
            EXPECT_EQ( reading.counts.blocks, 1u );
            ++seen;
        }
    }
    EXPECT_EQ( status, 0 );
    EXPECT_GT( steps, 10 );
    EXPECT_GT( seen, 1u );
    EXPECT_EQ( directory_.files().size(), 1u );
}

TEST_F( FleetlogTest, LivingWriterIsToldFromADeadOneByItsLock ) {
    std::string path;
    {
        const auto file = openFile();
        path = file->path();
        EXPECT_EQ( TraceReader::File( path ).writer(), TraceReader::Writer::lives );
    }
    EXPECT_EQ( TraceReader::File( path ).writer(), TraceReader::Writer::ended );
    std::filesystem::remove( path );

    const pid_t child = Support::startChild( [&] {
        const TraceFile file( options(), 0 );
        ::raise( SIGSTOP );
        return true;
    } );
    int status = 0;
    ASSERT_EQ( ::waitpid( child, &status, WUNTRACED ), child );
    ASSERT_TRUE( WIFSTOPPED( status ) );
    TraceReader::File reader( directory_.file() );
    EXPECT_EQ( reader.writer(), TraceReader::Writer::lives );
    ::kill( child, SIGKILL );
    Support::statusOf( child );
    EXPECT_EQ( reader.writer(), TraceReader::Writer::ended );
    EXPECT_FALSE( reader.info().isClosed );
}

TEST_F( FleetlogTest, LockGoesWithTheParentAlsoIfAChildLivesOn ) {
    int gate[2];
    int hasForked[2];
    ASSERT_EQ( ::pipe( gate ), 0 );
    ASSERT_EQ( ::pipe( hasForked ), 0 );
    const pid_t parent = Support::startChild( [&] {
        static TraceFile file( options(), 0 );
        char byte = 0;
        if ( ::fork() == 0 ) { // lives until the test closes the pipe
            ::close( gate[1] );
            const bool isTold = ::write( hasForked[1], &byte, 1 ) == 1;
            ::_exit( isTold && ::read( gate[0], &byte, 1 ) == 0 ? 0 : 1 );
        }
        if ( ::read( hasForked[0], &byte, 1 ) == 1 )
            ::kill( ::getpid(), SIGKILL );
        return false;
    } );
    Support::statusOf( parent );
    EXPECT_EQ( TraceReader::File( directory_.file() ).writer(), TraceReader::Writer::ended );
    for ( const int end : { gate[0], gate[1], hasForked[0], hasForked[1] } )
        ::close( end );
}

// --- What ended processes leave

class OldFilesTest : public FleetlogTest {
  protected:
    // A file of a process that has ended, last written so many seconds ago.
    std::string leave( int secondsAgo ) const {
        std::string path;
        {
            const TraceFile file( options( 8192 ), 0 );
            path = directory_.path() + "/" + program_invocation_short_name + "-" +
                   std::to_string( secondsAgo ) +
                   ".fleetlog"; // a number that is not this process's
            std::filesystem::rename( file.path(), path );
        }
        setAge( path, secondsAgo );
        return path;
    }

    static void setAge( const std::string & path, int secondsAgo ) {
        timespec times[2]{};
        ::clock_gettime( CLOCK_REALTIME, &times[1] );
        times[1].tv_sec -= secondsAgo;
        times[0] = times[1];
        ::utimensat( AT_FDCWD, path.c_str(), times, 0 );
    }

    void open( std::size_t keepFiles, std::uint64_t keepBytes = UINT64_MAX ) const {
        OpenOptions limited = options( 8192 );
        limited.keepFiles = keepFiles;
        limited.keepBytes = keepBytes;
        const TraceHandle handle( limited );
    }

    static bool exists( const std::string & path ) { return std::filesystem::exists( path ); }
};

TEST_F( OldFilesTest, OldestBeyondTheNumberAreRemovedAtOpen ) {
    const std::string oldest = leave( 40 );
    const std::string newest = leave( 10 );
    const std::string middle = leave( 20 );
    const std::string old = leave( 30 );
    open( 2 );
    EXPECT_TRUE( exists( newest ) && exists( middle ) );
    EXPECT_FALSE( exists( old ) || exists( oldest ) );
}

TEST_F( OldFilesTest, OldestBeyondTheSizeAreRemovedAtOpen ) {
    const std::string old = leave( 30 );
    const std::string newest = leave( 10 );
    const std::uint64_t each = std::filesystem::file_size( newest );
    open( 100, each + each / 2 );
    EXPECT_TRUE( exists( newest ) );
    EXPECT_FALSE( exists( old ) );
}

TEST_F( OldFilesTest, FilesOfLivingProcessesAreNotRemovedNorCounted ) {
    const std::string old = leave( 10 );
    const TraceFile living( options( 8192 ), 0 );
    setAge( living.path(), 100 );
    open( 1 );
    EXPECT_TRUE( exists( living.path() ) && exists( old ) );
    open( 0 );
    EXPECT_TRUE( exists( living.path() ) );
    EXPECT_FALSE( exists( old ) );
}

TEST_F( OldFilesTest, FilesOfOtherProgramsAndWithoutALockAreNotRemoved ) {
    const std::string mine = leave( 30 );
    const std::string other = directory_.path() + "/other-1.fleetlog";
    std::filesystem::rename( leave( 30 ), other );
    const std::string copy =
        directory_.path() + "/" + program_invocation_short_name + "-version1.fleetlog";
    std::filesystem::copy_file( TEST_DATA "/version1-counter.fleetlog", copy );
    const std::string foreign =
        directory_.path() + "/" + program_invocation_short_name + "-notes.fleetlog";
    std::ofstream( foreign ) << "notes";
    open( 0 );
    EXPECT_FALSE( exists( mine ) );
    EXPECT_TRUE( exists( other ) && exists( copy ) && exists( foreign ) );
}

TEST_F( OldFilesTest, FilesThatWereBegunAndNeverCompletedAreRemovedAfterAMinute ) {
    const std::string begun = directory_.path() + "/." + program_invocation_short_name + "-1.new";
    std::ofstream( begun ) << "begun";
    open( 100 );
    EXPECT_TRUE( exists( begun ) );
    setAge( begun, 61 );
    open( 100 );
    EXPECT_FALSE( exists( begun ) );
}

TEST_F( OldFilesTest, ChildrenBoundTheFolderToo ) {
    OpenOptions limited = options( 8192 );
    limited.keepFiles = 3;
    TraceHandle handle( limited );
    int msgId = 0;
    registerSite( *handle.traceFile(), msgId, "i", { "%s" } );
    for ( int i = 0; i < 10; ++i )
        EXPECT_EQ( Support::runInChild( [&] {
                       writeNumber( *handle.traceFile(), msgId, 1 );
                       return true;
                   } ),
                   0 );
    EXPECT_EQ( directory_.files().size(), 1u + 3u + 1u ); // the parent's, three, the last child's
}

TEST_F( FleetlogTest, RingOutOfRangeIsAnError ) {
    EXPECT_NE( errorOf( [&] { openFile( 4096 ); } ).find( "a ring of 4096 bytes" ),
               std::string::npos );
    EXPECT_NE( errorOf( [&] { openFile( std::size_t( 1 ) << 50 ); } ).find( "a ring of" ),
               std::string::npos );
    EXPECT_TRUE( directory_.files().empty() );
}

TEST_F( FleetlogTest, FileSizeLimitIsAnErrorAtOpenAndLeavesNoFile ) {
    const int status = Support::runInChild( [&] {
        const rlimit limit{ 8192, 8192 };
        ::setrlimit( RLIMIT_FSIZE, &limit );
        const std::string error = errorOf( [&] { openDefault( options() ); } );
        return error.find( "cannot reserve" ) != std::string::npos &&
               error.find( "make room or choose a smaller ring" ) != std::string::npos;
    } );
    EXPECT_EQ( status, 0 );
    EXPECT_TRUE( directory_.files().empty() );
}

TEST_F( FleetlogTest, FullDiskIsAnErrorAtOpenAndLeavesNoFile ) {
    // A file system in memory refuses at once what is more than all of it.
    const std::string memory = "/dev/shm";
    struct statvfs disk {};
    if ( ::statvfs( memory.c_str(), &disk ) != 0 || ::access( memory.c_str(), W_OK ) != 0 )
        GTEST_SKIP() << "no " << memory;
    OpenOptions large = options( ( disk.f_blocks + 1 ) * disk.f_frsize );
    large.directory = memory;
    const std::string error = errorOf( [&] { openDefault( large ); } );
    EXPECT_NE( error.find( "cannot reserve" ), std::string::npos ) << error;
    EXPECT_NE( error.find( "No space left on device" ), std::string::npos ) << error;
    const std::string path = memory + "/" + program_invocation_short_name + "-" +
                             std::to_string( ::getpid() ) + ".fleetlog";
    EXPECT_FALSE( std::filesystem::exists( path ) );
}

// --- Handles

TEST_F( FleetlogTest, MultiThreadFlagIsTheFirstFieldOfTheHandle ) {
    const auto flagOf = []( const TraceHandle & handle ) {
        int flag = 0;
        std::memcpy( &flag, static_cast<const void *>( &handle ), sizeof flag );
        return flag;
    };
    TraceHandle none;
    EXPECT_EQ( flagOf( none ), 0 );
    EXPECT_EQ( none.traceFile(), nullptr );
    TraceHandle ofProcess( options() );
    EXPECT_EQ( flagOf( ofProcess ), 0 );
    EXPECT_NE( ofProcess.traceFile(), nullptr );
    OpenOptions perThread = options();
    perThread.files = Files::perThread;
    TraceHandle ofThreads( perThread );
    EXPECT_NE( flagOf( ofThreads ), 0 );
    EXPECT_EQ( ofThreads.traceFile(), nullptr );
    EXPECT_NE( ofThreads.mtTraceFile(), nullptr );
    EXPECT_EQ( ofThreads.mtTraceFile(), ofThreads.mtTraceFile() );
}

TEST_F( FleetlogTest, OpeningReplacesTheDefaultAndClosingTakesItAway ) {
    openDefault( options() );
    TraceHandle * const first = defaultFleetlogHandle;
    ASSERT_NE( first, nullptr );
    openDefault( options() );
    EXPECT_NE( defaultFleetlogHandle, nullptr );
    closeDefault();
    EXPECT_EQ( defaultFleetlogHandle, nullptr );
    closeDefault();
    refreshTick(); // nothing to refresh
    ASSERT_EQ( directory_.files().size(), 2u );
    for ( const auto & path : directory_.files() )
        EXPECT_TRUE( Support::read( path ).info.isClosed );
}

TEST_F( FleetlogTest, EachThreadHasItsFileWhichIsClosedWhenTheThreadEnds ) {
    OpenOptions perThread = options();
    perThread.files = Files::perThread;
    openDefault( perThread );
    static int msgId = 0;
    std::string path;
    int given = 0;
    std::thread( [&] {
        TraceFile & file = *defaultFleetlogHandle->mtTraceFile();
        given = registerSite( file, msgId, "i", { "thread ", "%s" } );
        writeNumber( file, msgId, 1 );
        path = file.path();
    } ).join();
    TraceFile & file = *defaultFleetlogHandle->mtTraceFile();
    EXPECT_NE( file.path(), path );
    EXPECT_FALSE( isRegistered( file, msgId ) );
    EXPECT_EQ( registerSite( file, msgId, "i", { "thread ", "%s" } ), given );
    writeNumber( file, msgId, 2 );

    const auto ended = Support::read( path );
    EXPECT_TRUE( ended.info.isClosed );
    EXPECT_EQ( ended.texts, std::vector<std::string>{ "thread 1" } );
    const auto running = Support::read( file.path() );
    EXPECT_FALSE( running.info.isClosed );
    EXPECT_EQ( running.texts, std::vector<std::string>{ "thread 2" } );
    closeDefault();
}

TEST_F( FleetlogTest, ThreadsThatComeAndGoShareAsManyFilesAsThereAreAtATime ) {
    constexpr std::uint32_t threads = 500;
    OpenOptions perThread = options( std::size_t( 4 ) << 20 );
    perThread.files = Files::perThread;
    openDefault( perThread );
    static int msgId = 0;
    std::vector<std::uint32_t> ids;
    for ( std::uint32_t i = 0; i < threads; ++i )
        std::thread( [&] {
            TraceFile & file = *defaultFleetlogHandle->mtTraceFile();
            registerSite( file, msgId, "i", { "%s" } );
            for ( std::uint32_t j = 0; j < 1 + i % 400; ++j ) // one record to several blocks
                writeNumber( file, msgId, i );
            ids.push_back( static_cast<std::uint32_t>( ::gettid() ) );
        } ).join();
    ASSERT_EQ( directory_.files().size(), 2u ); // with that of this thread, which opened the trace
    closeDefault();

    TraceReader::Merge merge;
    for ( const auto & path : directory_.files() )
        ASSERT_TRUE( merge.add( path ) );
    TraceReader::Record record;
    std::vector<std::uint32_t> counts( threads, 0 );
    std::uint32_t last = 0;
    while ( merge.next( record ) ) {
        std::string text;
        appendText( text, record );
        const auto thread = static_cast<std::uint32_t>( std::stoul( text ) );
        ASSERT_GE( thread, last );
        ASSERT_EQ( record.thread, ids[thread] );
        last = thread;
        ++counts[thread];
    }
    std::uint64_t all = 0;
    for ( std::uint32_t i = 0; i < threads; ++i ) {
        EXPECT_EQ( counts[i], 1 + i % 400 ) << i;
        all += counts[i];
    }
    for ( const auto & file : merge.files() ) {
        EXPECT_TRUE( file->findings().empty() );
        EXPECT_EQ( file->counts().overwrittenBlocks, 0u );
    }
    EXPECT_GT( all, 4096u );
}

TEST_F( FleetlogTest, FileThatIsTakenOverIsOpenAgain ) {
    OpenOptions perThread = options();
    perThread.files = Files::perThread;
    openDefault( perThread );
    static int msgId = 0;
    std::string path;
    const auto write = [&] {
        TraceFile & file = *defaultFleetlogHandle->mtTraceFile();
        registerSite( file, msgId, "", { "f" } );
        file.ringBuf()->startMsg( &file, msgId );
        file.ringBuf()->endMsg();
        EXPECT_FALSE( Support::read( file.path() ).info.isClosed );
        EXPECT_TRUE( path.empty() || path == file.path() );
        path = file.path();
    };
    std::thread( write ).join();
    EXPECT_TRUE( Support::read( path ).info.isClosed );
    EXPECT_EQ( TraceReader::File( path ).writer(), TraceReader::Writer::lives );
    std::thread( write ).join();
    EXPECT_EQ( Support::read( path ).texts, ( std::vector<std::string>{ "f", "f" } ) );
    closeDefault();
    EXPECT_EQ( TraceReader::File( path ).writer(), TraceReader::Writer::ended );
}

TEST_F( FleetlogTest, ThreadThatOutlivesAHandleWritesToTheNextOne ) {
    OpenOptions perThread = options();
    perThread.files = Files::perThread;
    int msgId = 0;
    openDefault( perThread );
    const std::string first = defaultFleetlogHandle->mtTraceFile()->path();
    closeDefault();
    openDefault( perThread );
    TraceFile & file = *defaultFleetlogHandle->mtTraceFile();
    EXPECT_NE( file.path(), first );
    registerSite( file, msgId, "i", { "%s" } );
    writeNumber( file, msgId, 5 );
    EXPECT_EQ( Support::read( file.path() ).texts, std::vector<std::string>{ "5" } );
    closeDefault();
}

TEST_F( FleetlogTest, ThreadHasOneFileInEachHandleHoweverItAlternates ) {
    OpenOptions perThread = options();
    perThread.files = Files::perThread;
    TraceHandle one( perThread );
    TraceHandle other( perThread );
    const auto alternate = [&] {
        std::set<TraceFile *> files;
        for ( int i = 0; i < 50; ++i ) {
            files.insert( one.mtTraceFile() );
            files.insert( other.mtTraceFile() );
        }
        return files;
    };
    const auto here = alternate();
    EXPECT_EQ( here.size(), 2u );
    std::set<TraceFile *> there;
    std::thread( [&] { there = alternate(); } ).join();
    EXPECT_EQ( there.size(), 2u );
    EXPECT_EQ( directory_.files().size(), 4u );
    // Both are left when the thread ends, and the next thread takes both over.
    std::thread( [&] { EXPECT_EQ( alternate(), there ); } ).join();
    EXPECT_EQ( directory_.files().size(), 4u );
    // In a child the thread goes on with both, and a thread that the child starts has its own.
    EXPECT_EQ( Support::runInChild( [&] {
                   std::set<TraceFile *> childs;
                   std::thread( [&] { childs = alternate(); } ).join();
                   return alternate() == here && childs.size() == 2;
               } ),
               0 );
}

TEST_F( FleetlogTest, ThreadWhoseFileCannotBeMadeSaysSoOnceAndGoesOn ) {
    OpenOptions perThread = options();
    perThread.files = Files::perThread;
    openDefault( perThread );
    testing::internal::CaptureStderr();
    std::thread( [&] {
        std::filesystem::rename( directory_.path(), directory_.path() + "-away" );
        EXPECT_EQ( defaultFleetlogHandle->mtTraceFile(), nullptr );
        EXPECT_EQ( defaultFleetlogHandle->mtTraceFile(), nullptr );
        std::filesystem::rename( directory_.path() + "-away", directory_.path() );
    } ).join();
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ( std::count( said.begin(), said.end(), '\n' ), 1 ) << said;
    EXPECT_NE( said.find( "cannot make a trace file in " ), std::string::npos ) << said;
    EXPECT_NE( said.find( "messages of process" ), std::string::npos ) << said;
    closeDefault();
}

// --- Fork

TEST_F( FleetlogTest, ParentAndChildWriteTheirOwnFilesAfterFork ) {
    for ( const Files files : { Files::perProcess, Files::perThread } ) {
        Support::Directory directory;
        OpenOptions forking = options();
        forking.directory = directory.path();
        forking.files = files;
        openDefault( forking );
        TraceFile & file = files == Files::perThread ? *defaultFleetlogHandle->mtTraceFile()
                                                     : *defaultFleetlogHandle->traceFile();
        int msgId = 0;
        registerSite( file, msgId, "i", { "of ", "%s" } );
        writeNumber( file, msgId, 1 );

        const int status = Support::runInChild( [&] {
            TraceFile & mine = files == Files::perThread ? *defaultFleetlogHandle->mtTraceFile()
                                                         : *defaultFleetlogHandle->traceFile();
            if ( isRegistered( mine, msgId ) || directory.files().size() != 1 )
                return false; // nothing is made before the first message
            const int before = msgId;
            registerSite( mine, msgId, "i", { "of ", "%s" } );
            writeNumber( mine, msgId, 2 );
            return msgId == before && directory.files().size() == 2;
        } );
        EXPECT_EQ( status, 0 );
        writeNumber( file, msgId, 3 );

        std::vector<std::vector<std::string>> texts;
        for ( const auto & path : directory.files() )
            texts.push_back( Support::read( path ).texts );
        std::sort( texts.begin(), texts.end() );
        EXPECT_EQ( texts,
                   ( std::vector<std::vector<std::string>>{ { "of 1", "of 3" }, { "of 2" } } ) );
        EXPECT_EQ( Support::read( file.path() ).texts.size(), 2u );
        closeDefault();
    }
}

TEST_F( FleetlogTest, ChildThatWritesARecordWithoutRegisteringGetsAFileToo ) {
    auto file = openFile();
    int msgId = 0;
    registerSite( *file, msgId, "i", { "%s" } );
    EXPECT_EQ( Support::runInChild( [&] {
                   writeNumber( *file, msgId, 2 );
                   return true;
               } ),
               0 );
    EXPECT_EQ( directory_.files().size(), 2u );
    EXPECT_TRUE( Support::read( file->path() ).texts.empty() );
}

TEST_F( FleetlogTest, ChildWhoseFileCannotBeMadeSaysSoOnceAndGoesOn ) {
    auto file = openFile();
    int msgId = 0;
    registerSite( *file, msgId, "i", { "%s" } );
    writeNumber( *file, msgId, 1 );
    testing::internal::CaptureStderr();
    EXPECT_EQ( Support::runInChild( [&] {
                   const rlimit limit{ 8192, 8192 };
                   ::setrlimit( RLIMIT_FSIZE, &limit );
                   registerSite( *file, msgId, "i", { "%s" } );
                   for ( std::uint32_t i = 0; i < 1000; ++i )
                       writeNumber( *file, msgId, i );
                   writeText( *file, msgId, "dropped" );
                   return isRegistered( *file, msgId );
               } ),
               0 );
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ( std::count( said.begin(), said.end(), '\n' ), 1 ) << said;
    EXPECT_EQ( Support::read( directory_.file() ).texts, std::vector<std::string>{ "1" } );
}

} // namespace
