#include "interpose/TraceRecorder.h"

#include "interpose/FaultInjector.h"
#include "interpose/Recorder.h"
#include "tests/sim/TestChip.h"
#include "tests/support/Allocations.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/QuietSdk.h"
#include "tests/support/TraceFiles.h"
#include "tracereader/Recording.h"

#include <Fleetlog/MsgDesc.h>
#include <Fleetlog/TraceHandle.h>
#include <Kiln/ActivityLock.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

// What the recorder writes, as the reader finds it.

namespace {

using Interpose::TraceRecorder;
using TraceReader::Event;
using TraceReader::RecordedCall;
using TraceReader::Recording;
using TraceReader::SdkCall;
using Moment = TraceReader::Event::Moment;

std::string textOf( const RecordedCall & call ) {
    std::string text;
    appendText( text, call );
    return text;
}

// The calls of a recording that have returned, and then those that have not.
struct Calls {
    std::vector<RecordedCall> returned;
    std::vector<RecordedCall> unreturned;
    std::vector<std::string> findings;
    bool hasLostBeginning = false;

    std::vector<std::string> texts() const {
        std::vector<std::string> texts;
        for ( const auto & call : returned )
            texts.push_back( textOf( call ) );
        return texts;
    }
};

Calls readCalls( const std::string & path ) {
    Recording recording( { path } );
    Calls calls;
    Event event;
    while ( recording.next( event ) ) {
        if ( event.moment == Moment::after )
            calls.returned.push_back( *event.call );
        else if ( event.moment == Moment::neverReturned )
            calls.unreturned.push_back( *event.call );
    }
    for ( const auto & finding : recording.findings() )
        calls.findings.push_back( finding.text() );
    calls.hasLostBeginning = recording.hasLostBeginning();
    return calls;
}

class TraceRecorderTest : public testing::Test {
  protected:
    TraceRecorderTest() {
        chip_.addUnit( 0, SimTest::smallSchema() );
        chip_.addUnit( 3, SimTest::smallSchema() );
        seen_.keepConstants( false );
    }

    TraceRecorder::Options options() const {
        return { .directory = directory_.path(), .fileBytes = 1 << 20 };
    }

    // As a recipe does it, without the constants.
    static void writeRow( Shim::Sdk & sdk, int unit, std::uint64_t row, std::uint64_t value ) {
        std::uint32_t handle = 0;
        sdk.preCallHook();
        sdk.bcmlt_entry_allocate( unit, "MAPm", &handle );
        sdk.preCallHook();
        sdk.bcmlt_entry_field_add( handle, "BCMLT_PT_INDEX", row );
        sdk.bcmlt_entry_field_add( handle, "CLASS", value );
        sdk.bcmlt_pt_entry_commit( handle, sdk.BCMLT_PT_OPCODE_MODIFY(),
                                   sdk.BCMLT_PRIORITY_NORMAL() );
        sdk.bcmlt_entry_free( handle );
    }

    std::vector<std::string> seenTexts() const {
        std::vector<std::string> texts;
        for ( const auto & event : seen_.events() )
            texts.push_back( toText( event ) );
        return texts;
    }

    Support::Directory directory_;
    Sim::Chip chip_;
    Interpose::Recorder seen_{ chip_ }; ///< what comes through the recorder
};

// --- What is in a recording

TEST_F( TraceRecorderTest, EveryOperationAndHookIsReadAsItWasMade ) {
    TraceRecorder recorder( seen_, options() );
    std::uint32_t handle = 0;
    std::uint64_t value = 0;
    const std::uint64_t labels[] = { 7, 8, 9 };
    const std::uint32_t priority = recorder.BCMLT_PRIORITY_NORMAL();
    recorder.preCallHook();
    recorder.bcmlt_entry_allocate( 3, "ROUTE", &handle );
    recorder.bcmlt_entry_field_add( handle, "PREFIX", 0xFEDCBA9876543210 );
    recorder.bcmlt_entry_field_add( handle, "VRF", 2 );
    recorder.bcmlt_entry_field_symbol_add( handle, "MODE", "AUTO" );
    recorder.bcmlt_entry_field_array_add( handle, "LABELS", 1, labels, 3 );
    recorder.bcmlt_entry_commit( handle, recorder.BCMLT_OPCODE_INSERT(), priority );
    recorder.bcmlt_entry_commit( handle, recorder.BCMLT_OPCODE_LOOKUP(), priority );
    recorder.bcmlt_entry_field_get( handle, "PREFIX", &value );
    recorder.bcmlt_entry_field_get( handle, "NO_SUCH_FIELD", &value );
    recorder.bcmlt_entry_attrib_set( handle, recorder.BCMLT_ENT_ATTR_GET_FROM_HW() );
    recorder.bcmlt_entry_attrib_set( handle, 4242 );
    recorder.bcmlt_entry_commit( handle, 77, 78 );
    recorder.bcmlt_entry_free( handle );
    recorder.bcmlt_entry_free( handle );
    recorder.bcmlt_entry_allocate( 0, "NO_SUCH_TABLE", &handle );
    writeRow( recorder, 0, 5, 2 );
    recorder.failureHook();

    const Calls calls = readCalls( directory_.path() );
    EXPECT_EQ( calls.texts(), seenTexts() );
    EXPECT_EQ( calls.findings, std::vector<std::string>() );
    EXPECT_TRUE( calls.unreturned.empty() );
    EXPECT_FALSE( calls.hasLostBeginning );
    EXPECT_EQ( value, 0xFEDCBA9876543210 );
    EXPECT_EQ( chip_.preCallCount(), 3u ) << "hooks are passed on";
    EXPECT_EQ( chip_.failureCount(), 1u );
}

TEST_F( TraceRecorderTest, CallsHaveTheirMembers ) {
    const TraceRecorder::Options withLock = { .directory = directory_.path(),
                                              .isLockHeld = Kiln::holdsActivityLock };
    TraceRecorder recorder( chip_, withLock );
    std::uint32_t handle = 0;
    std::uint64_t value = 0;
    {
        const std::lock_guard lock( Kiln::activityLock() );
        recorder.bcmlt_entry_allocate( 0, "MAPm", &handle );
    }
    recorder.bcmlt_entry_field_add( handle, "BCMLT_PT_INDEX", 5 );
    recorder.bcmlt_pt_entry_commit( handle, recorder.BCMLT_PT_OPCODE_GET(),
                                    recorder.BCMLT_PRIORITY_NORMAL() );
    recorder.bcmlt_entry_field_get( handle, "CLASS", &value );

    const auto calls = readCalls( directory_.path() ).returned;
    ASSERT_EQ( calls.size(), 4u );
    for ( const auto & call : calls ) {
        EXPECT_EQ( call.process, static_cast<std::uint32_t>( ::getpid() ) );
        EXPECT_EQ( call.thread, static_cast<std::uint32_t>( ::gettid() ) );
        EXPECT_EQ( call.handle, handle );
        EXPECT_EQ( call.unit, 0 );
        EXPECT_EQ( call.table, "MAPm" );
        EXPECT_EQ( call.rc, 0 );
        EXPECT_TRUE( call.isWhole );
        EXPECT_EQ( call.number, static_cast<std::uint64_t>( &call - calls.data() ) + 1 );
        EXPECT_EQ( call.isLockHeld, call.number == 1 );
        EXPECT_LT( call.before.offset, call.after.offset );
        EXPECT_LT( call.before.counter, call.after.counter );
        EXPECT_LE( call.before.time, call.after.time );
    }
    EXPECT_EQ( calls[0].call, SdkCall::entryAllocate );
    EXPECT_EQ( calls[1].field, "BCMLT_PT_INDEX" );
    EXPECT_EQ( calls[1].values, std::vector<std::uint64_t>{ 5 } );
    EXPECT_EQ( calls[2].opcode, ( TraceReader::SdkConstant{ recorder.BCMLT_PT_OPCODE_GET(),
                                                            "BCMLT_PT_OPCODE_GET" } ) );
    EXPECT_EQ( calls[2].priority, ( TraceReader::SdkConstant{ recorder.BCMLT_PRIORITY_NORMAL(),
                                                              "BCMLT_PRIORITY_NORMAL" } ) );
    EXPECT_EQ( calls[3].value, value );
}

TEST_F( TraceRecorderTest, WithoutAQuestionForTheLockItIsUnknown ) {
    TraceRecorder recorder( chip_, options() );
    recorder.preCallHook();
    EXPECT_EQ( readCalls( directory_.path() ).returned.at( 0 ).isLockHeld, std::nullopt );
}

TEST_F( TraceRecorderTest, TextsOfAnyLengthAndPlaceAreWhole ) {
    // At the end of a page, behind which nothing may be read.
    constexpr std::size_t page = 4096;
    std::vector<char> memory( 4 * page, 'x' );
    const auto pageEnd = ( reinterpret_cast<std::uintptr_t>( memory.data() ) / page + 2 ) * page;
    char * const end = reinterpret_cast<char *>( pageEnd );
    end[-1] = '\0';
    TraceRecorder recorder( seen_, options() );
    for ( std::size_t length = 0; length <= 700; length += length < 140 ? 1 : 97 ) {
        const std::string text( length, static_cast<char>( 'a' + length % 26 ) );
        const std::string other( length / 2, 'z' );
        recorder.bcmlt_entry_field_symbol_add( 1, text.c_str(), other.c_str() );
        recorder.bcmlt_entry_field_symbol_add( 1, other.c_str(), text.c_str() );
        recorder.bcmlt_entry_field_add( 1, end - 1 - length, length );
        std::uint32_t handle = 0;
        recorder.bcmlt_entry_allocate( 0, text.c_str(), &handle );
    }
    const Calls calls = readCalls( directory_.path() );
    EXPECT_EQ( calls.texts(), seenTexts() );
    EXPECT_EQ( calls.findings, std::vector<std::string>() );
    for ( const auto & call : calls.returned )
        EXPECT_TRUE( call.isWhole );
}

TEST_F( TraceRecorderTest, NullTextsAndPlacesAreRecordedAndPassedOn ) {
    TraceRecorder recorder( chip_, options() );
    EXPECT_LT( recorder.bcmlt_entry_allocate( 0, nullptr, nullptr ), 0 );
    EXPECT_LT( recorder.bcmlt_entry_field_add( 1, nullptr, 3 ), 0 );
    EXPECT_LT( recorder.bcmlt_entry_field_get( 1, nullptr, nullptr ), 0 );
    EXPECT_LT( recorder.bcmlt_entry_field_array_add( 1, nullptr, 0, nullptr, 100 ), 0 );
    const auto calls = readCalls( directory_.path() ).returned;
    ASSERT_EQ( calls.size(), 4u );
    EXPECT_EQ( calls[0].table, "(null)" );
    EXPECT_EQ( calls[1].field, "(null)" );
    EXPECT_EQ( calls[3].count, 100u );
    EXPECT_TRUE( calls[3].values.empty() );
}

TEST_F( TraceRecorderTest, ArraysOfAnyLengthAreWhole ) {
    TraceRecorder recorder( chip_, options() );
    std::vector<std::uint64_t> values( 1000 );
    std::iota( values.begin(), values.end(), 0x1234567800000000u );
    const std::uint32_t lengths[] = { 0, 1, 15, 16, 17, 31, 32, 33, 1000 };
    const std::string longName( 300, 'f' );
    for ( const std::uint32_t length : lengths )
        recorder.bcmlt_entry_field_array_add( 1, length % 2 == 0 ? "LABELS" : longName.c_str(), 5,
                                              values.data(), length );
    const auto calls = readCalls( directory_.path() ).returned;
    ASSERT_EQ( calls.size(), std::size( lengths ) );
    for ( std::size_t i = 0; i < calls.size(); ++i ) {
        EXPECT_EQ( calls[i].field, lengths[i] % 2 == 0 ? "LABELS" : longName );
        EXPECT_EQ( calls[i].startIndex, 5u );
        EXPECT_EQ( calls[i].count, lengths[i] );
        EXPECT_TRUE( calls[i].isWhole );
        EXPECT_TRUE( std::equal( calls[i].values.begin(), calls[i].values.end(), values.begin(),
                                 values.begin() + lengths[i] ) )
            << lengths[i];
    }
}

TEST_F( TraceRecorderTest, CodesAreThoseOfTheSdk ) {
    Interpose::FaultInjector faults( chip_ );
    faults.add( { .operation = Interpose::SdkCall::entryFieldAdd, .rc = -2147483647 } );
    faults.add(
        { .operation = Interpose::SdkCall::entryAllocate, .rc = 3, .invalidHandle = true } );
    TraceRecorder recorder( faults, options() );
    std::uint32_t handle = 99;
    EXPECT_EQ( recorder.bcmlt_entry_allocate( 0, "MAPm", &handle ), 3 );
    EXPECT_EQ( recorder.bcmlt_entry_field_add( 1, "CLASS", 1 ), -2147483647 );
    const auto calls = readCalls( directory_.path() ).returned;
    ASSERT_EQ( calls.size(), 2u );
    EXPECT_EQ( calls[0].rc, 3 );
    EXPECT_EQ( calls[0].handle, handle ) << "the invalid one";
    EXPECT_EQ( calls[1].rc, -2147483647 );
}

// --- Calls that do not return

// An SDK whose free never returns.
class DeadlySdk final : public Interpose::Interposer {
  public:
    using Interposer::Interposer;
    int bcmlt_entry_free( std::uint32_t ) noexcept override {
        ::raise( SIGKILL );
        return 0;
    }
};

TEST_F( TraceRecorderTest, CallThatNeverReturnedIsTheLastOneSeen ) {
    DeadlySdk deadly( chip_ );
    const int status = Support::runInChild( [&] {
        TraceRecorder recorder( deadly, options() );
        writeRow( recorder, 0, 5, 2 );
        return true;
    } );
    ASSERT_TRUE( WIFSIGNALED( status ) );
    const Calls calls = readCalls( directory_.path() );
    EXPECT_EQ( calls.returned.size(), 6u );
    ASSERT_EQ( calls.unreturned.size(), 1u );
    EXPECT_EQ( textOf( calls.unreturned[0] ), "bcmlt_entry_free entry 1 MAPm" );
    EXPECT_FALSE( calls.unreturned[0].hasReturned() );
    EXPECT_EQ( calls.unreturned[0].number, 7u );
    EXPECT_EQ( calls.findings, std::vector<std::string>() );
}

// --- Threads and processes

TEST_F( TraceRecorderTest, ThreadsHaveFilesOfTheirOwnAndOneOrder ) {
    constexpr unsigned rounds = 200;
    TraceRecorder recorder( chip_, options() );
    // Each waits for its turn, so that the order is known.
    std::atomic<unsigned> turn{ 0 };
    const auto work = [&]( unsigned self ) {
        for ( unsigned i = 0; i < rounds; ++i ) {
            while ( turn.load( std::memory_order_acquire ) != 2 * i + self )
                std::this_thread::yield();
            recorder.bcmlt_entry_free( 1000 + 2 * i + self );
            turn.store( 2 * i + self + 1, std::memory_order_release );
        }
    };
    std::thread other( work, 1 );
    work( 0 );
    other.join();
    EXPECT_EQ( directory_.files().size(), 2u );
    const Calls calls = readCalls( directory_.path() );
    EXPECT_EQ( calls.findings, std::vector<std::string>() );
    ASSERT_EQ( calls.returned.size(), 2 * rounds );
    std::set<std::uint32_t> threads;
    for ( unsigned i = 0; i < 2 * rounds; ++i ) {
        EXPECT_EQ( calls.returned[i].handle, 1000 + i );
        EXPECT_EQ( calls.returned[i].number, i + 1 );
        threads.insert( calls.returned[i].thread );
    }
    EXPECT_EQ( threads.size(), 2u );
}

TEST_F( TraceRecorderTest, ThreadTakesOverTheFileOfOneThatHasEnded ) {
    TraceRecorder recorder( chip_, options() );
    for ( unsigned i = 0; i < 20; ++i )
        std::thread( [&] { recorder.bcmlt_entry_free( 1000 + i ); } ).join();
    EXPECT_EQ( directory_.files().size(), 2u );
    const Calls calls = readCalls( directory_.path() );
    EXPECT_EQ( calls.findings, std::vector<std::string>() );
    ASSERT_EQ( calls.returned.size(), 20u );
    for ( unsigned i = 0; i < 20; ++i )
        EXPECT_EQ( calls.returned[i].handle, 1000 + i );
}

TEST_F( TraceRecorderTest, ForkedChildRecordsIntoFilesOfItsOwn ) {
    TraceRecorder recorder( chip_, options() );
    recorder.bcmlt_entry_free( 1001 );
    EXPECT_EQ( Support::runInChild( [&] {
                   recorder.bcmlt_entry_free( 1002 );
                   return true;
               } ),
               0 );
    recorder.bcmlt_entry_free( 1003 );
    Recording recording( { directory_.path() } );
    ASSERT_EQ( recording.processes().size(), 2u );
    std::map<std::uint32_t, std::vector<std::uint32_t>> handles; // by process
    Event event;
    while ( recording.next( event ) )
        if ( event.moment == Moment::after )
            handles[event.call->process].push_back( event.call->handle );
    const auto own = static_cast<std::uint32_t>( ::getpid() );
    EXPECT_EQ( handles[own], ( std::vector<std::uint32_t>{ 1001, 1003 } ) );
    handles.erase( own );
    ASSERT_EQ( handles.size(), 1u );
    EXPECT_EQ( handles.begin()->second, std::vector<std::uint32_t>{ 1002 } );

    Recording ofChild( { directory_.path() }, { .process = handles.begin()->first } );
    ASSERT_TRUE( ofChild.next( event ) );
    EXPECT_EQ( event.call->handle, 1002u );
}

// The platform's trace and the recorder have writers, files and clocks of their own.
TEST_F( TraceRecorderTest, CallsAndMessagesAreReadInOneOrder ) {
    Fleetlog::openDefault( { .directory = directory_.path(), .ringBytes = 1 << 20 } );
    Fleetlog::TraceFile & file = *Fleetlog::defaultFleetlogHandle->traceFile();
    int msgId = 0;
    Fleetlog::MsgDesc descriptor( &file, &msgId, "Test", 1 );
    descriptor.formatString().put( "i" );
    descriptor << "message"
               << " %s";
    descriptor.finish();
    constexpr unsigned rounds = 2000;
    {
        TraceRecorder recorder( chip_, options() );
        for ( unsigned i = 0; i < rounds; ++i ) {
            Fleetlog::RecordWriter record;
            ASSERT_TRUE( record.start( *file.ringBuf(), file, msgId ) );
            record.put4( i );
            record.end();
            recorder.bcmlt_entry_free( 1000 + i );
        }
    }
    Fleetlog::closeDefault();
    Recording recording( { directory_.path() }, { .wantsMessages = true } );
    Event event;
    for ( unsigned i = 0; i < rounds; ++i ) {
        ASSERT_TRUE( recording.next( event ) );
        ASSERT_EQ( event.moment, Moment::message ) << i;
        std::string text;
        appendText( text, event.record );
        EXPECT_EQ( text, "message " + std::to_string( i ) );
        ASSERT_TRUE( recording.next( event ) );
        ASSERT_EQ( event.moment, Moment::before ) << i;
        ASSERT_TRUE( recording.next( event ) );
        ASSERT_EQ( event.moment, Moment::after ) << i;
        EXPECT_EQ( event.call->handle, 1000 + i );
    }
    EXPECT_FALSE( recording.next( event ) );
}

// --- What is kept

TEST_F( TraceRecorderTest, RingKeepsTheNewestAndSaysThatTheBeginningIsLost ) {
    TraceRecorder recorder( chip_, { .directory = directory_.path(), .fileBytes = 8192 } );
    constexpr unsigned calls = 2000;
    for ( unsigned i = 0; i < calls; ++i )
        recorder.bcmlt_entry_free( 1000 + i );
    const Calls read = readCalls( directory_.path() );
    EXPECT_EQ( read.findings, std::vector<std::string>() );
    EXPECT_TRUE( read.hasLostBeginning );
    ASSERT_GT( read.returned.size(), 50u );
    ASSERT_LT( read.returned.size(), calls );
    for ( std::size_t i = 0; i < read.returned.size(); ++i )
        EXPECT_EQ( read.returned[i].handle, 1000 + calls - read.returned.size() + i );
}

TEST_F( TraceRecorderTest, EverythingIsKeptInFilesThatAreAdded ) {
    constexpr unsigned calls = 60'000;
    {
        TraceRecorder recorder( chip_, { .directory = directory_.path(),
                                         .keep = TraceRecorder::Keep::everything,
                                         .fileBytes = 2 << 20 } );
        for ( unsigned i = 0; i < calls; ++i )
            recorder.bcmlt_entry_free( 1000 + i );
    }
    const auto files = directory_.files();
    ASSERT_EQ( files.size(), 3u );
    for ( std::size_t i = 0; i < files.size(); ++i ) {
        const TraceReader::File file( files[i] );
        EXPECT_EQ( file.info().segment, i + 1 );
        EXPECT_TRUE( file.info().isClosed );
        EXPECT_EQ( file.info().blockCount, i == 0 ? 256u : 512u );
        EXPECT_NE( files[i].find( "-000" + std::to_string( i + 1 ) + ".fleetlog" ),
                   std::string::npos );
    }
    const Calls read = readCalls( directory_.path() );
    EXPECT_EQ( read.findings, std::vector<std::string>() );
    EXPECT_FALSE( read.hasLostBeginning );
    EXPECT_TRUE( read.unreturned.empty() );
    ASSERT_EQ( read.returned.size(), calls );
    for ( unsigned i = 0; i < calls; ++i )
        ASSERT_EQ( read.returned[i].handle, 1000 + i );
}

TEST_F( TraceRecorderTest, OldestFullFilesAreRemovedWhereOnlySomeAreToStay ) {
    constexpr unsigned calls = 60'000;
    {
        TraceRecorder recorder( chip_, { .directory = directory_.path(),
                                         .keep = TraceRecorder::Keep::everything,
                                         .fileBytes = 1 << 20,
                                         .keepFullFiles = 2 } );
        for ( unsigned i = 0; i < calls; ++i )
            recorder.bcmlt_entry_free( 1000 + i );
    }
    EXPECT_EQ( directory_.files().size(), 3u );
    const Calls read = readCalls( directory_.path() );
    EXPECT_EQ( read.findings, std::vector<std::string>() );
    EXPECT_TRUE( read.hasLostBeginning );
    ASSERT_FALSE( read.returned.empty() );
    EXPECT_EQ( read.returned.back().handle, 1000 + calls - 1 );
    for ( std::size_t i = 1; i < read.returned.size(); ++i )
        ASSERT_EQ( read.returned[i].handle, read.returned[i - 1].handle + 1 );
}

// A limit on the size of files stands for a disk that is full.
void limitFiles( rlim_t bytes ) {
    rlimit limit{};
    ::getrlimit( RLIMIT_FSIZE, &limit );
    limit.rlim_cur = bytes;
    ::setrlimit( RLIMIT_FSIZE, &limit );
}

TEST_F( TraceRecorderTest, FullDiskIsSaidOnceAndSurvivedAndWhatIsNewestIsKept ) {
    const std::string said = directory_.path( "said" );
    EXPECT_EQ( Support::runInChild( [&] {
                   if ( std::freopen( said.c_str(), "w", stderr ) == nullptr )
                       return false;
                   TraceRecorder recorder( chip_, { .directory = directory_.path(),
                                                    .keep = TraceRecorder::Keep::everything,
                                                    .fileBytes = 2 << 20 } );
                   limitFiles( 3 << 19 ); // room for the first file, not for the second
                   unsigned i = 0;
                   for ( ; i < 50'000; ++i )
                       recorder.bcmlt_entry_free( 1000 + i );
                   limitFiles( RLIM_INFINITY ); // there is room again
                   for ( ; i < 80'000; ++i )
                       recorder.bcmlt_entry_free( 1000 + i );
                   return true;
               } ),
               0 );
    const std::string line = Support::contents( said );
    EXPECT_EQ( std::count( line.begin(), line.end(), '\n' ), 1 ) << line;
    EXPECT_NE( line.find( "cannot reserve" ), std::string::npos ) << line;
    EXPECT_NE( line.find( "overwrite the oldest" ), std::string::npos ) << line;
    const Calls read = readCalls( directory_.path() );
    EXPECT_EQ( read.findings, std::vector<std::string>() );
    EXPECT_TRUE( read.hasLostBeginning );
    ASSERT_GT( read.returned.size(), 30'000u );
    EXPECT_EQ( read.returned.back().handle, 1000 + 80'000u - 1 );
    for ( std::size_t i = 1; i < read.returned.size(); ++i )
        ASSERT_EQ( read.returned[i].handle, read.returned[i - 1].handle + 1 );
}

TEST_F( TraceRecorderTest, ThreadThatGetsNoFileGoesOnUnrecorded ) {
    EXPECT_EQ( Support::runInChild( [&] {
                   if ( std::freopen( directory_.path( "said" ).c_str(), "w", stderr ) == nullptr )
                       return false;
                   TraceRecorder recorder( chip_, options() );
                   limitFiles( 4096 );
                   std::thread( [&] { writeRow( recorder, 0, 5, 2 ); } ).join();
                   return chip_.rowCount( 0, "MAPm" ) == 1;
               } ),
               0 );
    EXPECT_NE( Support::contents( directory_.path( "said" ) ).find( "are not recorded" ),
               std::string::npos );
}

TEST_F( TraceRecorderTest, FolderThatIsNotThereIsRefused ) {
    EXPECT_THROW( TraceRecorder( chip_, { .directory = directory_.path( "missing" ) } ),
                  std::system_error );
}

TEST_F( TraceRecorderTest, NothingIsAllocatedForACall ) {
    TraceRecorder recorder( Support::quietSdk(), options() );
    const std::string longName( 200, 'f' );
    const std::uint64_t values[40] = {};
    const auto before = Support::allocations();
    for ( unsigned i = 0; i < 1000; ++i ) {
        std::uint32_t handle = 0;
        recorder.preCallHook();
        recorder.bcmlt_entry_allocate( 0, longName.c_str(), &handle );
        recorder.bcmlt_entry_field_array_add( handle, "LABELS", 0, values, 40 );
        recorder.bcmlt_entry_free( handle );
    }
    EXPECT_EQ( Support::allocations(), before );
}

} // namespace
