#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/tools/Program.h"

#include "interpose/Interposer.h"
#include "interpose/TraceRecorder.h"
#include "sim/Chip.h"
#include "tools/cli/Workers.h"
#include "tracereader/TraceReader.h"

#include <Fleetlog/MsgDesc.h>
#include <Fleetlog/TraceFile.h>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

// Lines of a trace that are made on several processors.

namespace {

using Tool::Workers;
using ToolTest::cairnLt;
using ToolTest::lines;
using ToolTest::Outcome;

// Messages in several files, of which each is written to in turn: "turn file: F number: N text: T".
// Returns the first file.
std::string writeMessages( const std::string & folder, std::uint32_t files,
                           std::uint32_t records ) {
    constexpr std::uint32_t turn = 7;
    const std::array<const char *, 4> texts{ "plain", "\x1b[31m", "\xff\"\\", "" };
    std::deque<Fleetlog::TraceFile> writers;
    std::deque<int> ids;
    for ( std::uint32_t i = 0; i < files; ++i ) {
        Fleetlog::OpenOptions options;
        options.directory = folder;
        options.ringBytes = records * std::size_t( 64 );
        Fleetlog::MsgDesc descriptor( &writers.emplace_back( options, 0 ), &ids.emplace_back(),
                                      "turns", 1 );
        descriptor.formatString().put( "iip" );
        descriptor << "turn"
                   << " file: "
                   << "%s"
                   << " number: "
                   << "%s"
                   << " text: "
                   << "%s";
        descriptor.finish();
    }
    for ( std::uint32_t i = 0; i < records; ++i ) {
        const std::uint32_t file = i / turn % files;
        Fleetlog::RingBuf & ring = *writers[file].ringBuf();
        ring.startMsg( &writers[file], ids[file] );
        ring.put4( file );
        ring.put4( i );
        Fleetlog::put( &ring, texts[i % texts.size()] );
        ring.endMsg();
    }
    return writers.front().path();
}

// An SDK with which a process ends at the first free.
class EndsAtFree final : public Interpose::Interposer {
  public:
    using Interposer::Interposer;

  private:
    int operate( const Interpose::Operation & operation ) noexcept override {
        if ( operation.call == Interpose::SdkCall::entryFree )
            ::_exit( 0 );
        return perform( inner(), operation );
    }
};

// Calls with texts and arrays; the last never returns.
void recordCalls( const std::string & folder, int entries ) {
    Support::runInChild( [&] {
        Sim::Chip chip;
        chip.addUnit( 0, Sim::referenceSchema() );
        EndsAtFree sdk( chip );
        Interpose::TraceRecorder recorder(
            sdk, { .directory = folder, .keep = Interpose::TraceRecorder::Keep::everything } );
        std::uint32_t handle = 0;
        for ( int i = 0; i < entries; ++i ) {
            recorder.bcmlt_entry_allocate( 0, "EGR_TUNNEL_ECN_ENCAPm", &handle );
            recorder.bcmlt_entry_field_add( handle, "OUTER_ECN", 1 );
            const std::vector<std::uint64_t> values( static_cast<std::size_t>( i % 40 ), 5 );
            recorder.bcmlt_entry_field_array_add( handle, "OUTER_ECN", 0, values.data(),
                                                  static_cast<std::uint32_t>( values.size() ) );
        }
        recorder.bcmlt_entry_free( handle );
        return true;
    } );
}

class TraceLinesTest : public ::testing::Test {
  protected:
    Outcome trace( std::vector<std::string> options, const std::string & jobs,
                   const std::function<void()> & prepare = {} ) const {
        options.insert( options.begin(), { "trace", folder_.path() } );
        options.insert( options.end(), { "--jobs", jobs } );
        return cairnLt( options, {}, prepare );
    }

    const std::string & folder() const { return folder_.path(); }

    // One in the second half of the file that was written last.
    void damageLateRecord() const {
        std::string latest;
        std::vector<std::uint64_t> offsets;
        std::int64_t time = 0;
        for ( const std::string & path : TraceReader::findFiles( folder() ) ) {
            TraceReader::File file( path );
            TraceReader::Record record;
            std::vector<std::uint64_t> found;
            while ( file.next( record ) )
                found.push_back( record.offset );
            if ( found.size() > 1000 && record.time > time ) {
                latest = path;
                offsets = found;
                time = record.time;
            }
        }
        ASSERT_FALSE( offsets.empty() );
        std::fstream file( latest, std::ios::in | std::ios::out | std::ios::binary );
        file.seekp( static_cast<std::streamoff>( offsets[offsets.size() * 3 / 4] ) );
        file << "\x01"; // the size of a record is a multiple of 8
    }

  private:
    Support::TemporaryFolder folder_;
};

// Several batches for each of four threads.
constexpr std::uint32_t manyRecords = 50'000;

TEST_F( TraceLinesTest, OfManyRecordsAreAllThereInTheirOrder ) {
    writeMessages( folder(), 3, manyRecords );
    for ( const char * jobs : { "1", "2", "4" } ) {
        const Outcome run = trace( { "--format", "brief" }, jobs );
        EXPECT_EQ( run.exitCode, 0 );
        EXPECT_EQ( run.err, "" );
        const auto shown = lines( run.out );
        ASSERT_EQ( shown.size(), manyRecords ) << jobs;
        for ( std::uint32_t i = 0; i < manyRecords; ++i )
            ASSERT_NE( shown[i].find( " number: " + std::to_string( i ) + " text: " ),
                       std::string::npos )
                << jobs << ", line " << i << ": " << shown[i];
    }
}

TEST_F( TraceLinesTest, AreTheSameOnAnyNumberOfProcessors ) {
    const std::string first = writeMessages( folder(), 3, manyRecords );
    recordCalls( folder(), 2'000 );
    std::filesystem::resize_file( first, std::filesystem::file_size( first ) / 2 );
    std::ofstream( folder() + "/notes.fleetlog" ) << "these are notes\n";
    const auto shown = lines( trace( { "--format", "brief" }, "1" ).out );
    ASSERT_GT( shown.size(), manyRecords );
    const std::string middle = shown[shown.size() / 2].substr( 0, shown[0].find( ' ' ) );
    for ( const std::vector<std::string> & options :
          std::vector<std::vector<std::string>>{ {},
                                                 { "--format", "json" },
                                                 { "--match", "OUTER_ECN" },
                                                 { "--operation", "field_array_add" },
                                                 { "--from", middle } } ) {
        const Outcome alone = trace( options, "1" );
        EXPECT_EQ( alone.exitCode, 1 );
        EXPECT_NE( alone.err.find( "notes.fleetlog" ), std::string::npos );
        for ( const char * jobs : { "2", "4" } ) {
            const Outcome run = trace( options, jobs );
            EXPECT_EQ( run.exitCode, alone.exitCode );
            EXPECT_EQ( run.err, alone.err );
            EXPECT_TRUE( run.out == alone.out )
                << jobs << ": " << ::testing::PrintToString( options );
        }
    }
    const Outcome unreturned = trace( { "--operation", "free" }, "4" );
    EXPECT_TRUE( unreturned.out.ends_with( " (never returned)\n" ) ) << unreturned.out;
}

TEST_F( TraceLinesTest, OfCallsAreThoseBeforeTheEndAndWhatFollowsIsNotRead ) {
    recordCalls( folder(), 3'000 );
    const auto all = lines( trace( { "--format", "brief" }, "1" ).out );
    ASSERT_EQ( all.size(), 3u * 3'000 + 1 );
    const auto timeOf = []( const std::string & line ) {
        return line.substr( 0, line.find( ' ' ) );
    };
    for ( const std::size_t end : { 0u, 1u, 100u, 5'000u } ) {
        const std::string time = timeOf( all[end] );
        std::vector<std::string> before;
        for ( const std::string & line : all )
            if ( timeOf( line ) < time )
                before.push_back( line );
        EXPECT_EQ( lines( trace( { "--format", "brief", "--to", time }, "1" ).out ), before )
            << end;
    }

    damageLateRecord();
    EXPECT_EQ( trace( {}, "1" ).exitCode, 1 );
    const Outcome run = trace( { "--to", timeOf( all[100] ) }, "1" );
    EXPECT_EQ( run.exitCode, 0 );
    EXPECT_EQ( run.err, "" );
}

TEST_F( TraceLinesTest, EndAtOnceWhenTheirReaderLeaves ) {
    writeMessages( folder(), 1, manyRecords );
    for ( const bool isIgnored : { false, true } ) {
        int ends[2];
        ASSERT_EQ( ::pipe( ends ), 0 );
        ToolTest::StartedProgram run( { "trace", folder(), "--format", "json", "--jobs", "4" },
                                      [&] {
                                          ::dup2( ends[1], STDOUT_FILENO );
                                          ::close( ends[0] );
                                          std::signal( SIGPIPE, isIgnored ? SIG_IGN : SIG_DFL );
                                      } );
        ::close( ends[1] );
        // Beyond what is printed before there are threads.
        std::vector<char> part( 1 << 16 );
        for ( std::size_t got = 0; got < ( std::size_t( 4 ) << 20 ); ) {
            const ssize_t size = ::read( ends[0], part.data(), part.size() );
            ASSERT_GT( size, 0 );
            got += static_cast<std::size_t>( size );
        }
        ::close( ends[0] );
        const Outcome ended = run.wait();
        if ( isIgnored ) {
            EXPECT_EQ( ended.exitCode, 2 );
            EXPECT_EQ( ended.err, "cairn-lt: standard output cannot be written: Broken pipe\n" );
        } else {
            EXPECT_EQ( ended.signal, SIGPIPE );
            EXPECT_EQ( ended.err, "" );
        }
    }
}

TEST_F( TraceLinesTest, AreMadeWithoutThreadsWhereThereIsNoRoomForThem ) {
    if ( ToolTest::isSanitized )
        GTEST_SKIP() << "a sanitizer starts a thread of its own";
    writeMessages( folder(), 1, manyRecords );
    const Outcome run = trace( {}, "4", [] {
        // What threads get for their stacks, and no address space has.
        const rlimit enormous{ rlim_t( 1 ) << 60, RLIM_INFINITY };
        if ( ::setrlimit( RLIMIT_STACK, &enormous ) != 0 )
            ::_exit( 3 );
    } );
    EXPECT_EQ( run.exitCode, 0 ) << run.err;
    EXPECT_TRUE( run.out == trace( {}, "1" ).out );
}

// --- The threads

class Counting final : public Workers::Task {
  public:
    std::atomic<int> runs = 0;
    bool isFailing = false;

  private:
    void run() override {
        ++runs;
        if ( isFailing )
            throw std::runtime_error( "failing" );
    }
};

TEST( WorkersTest, DoEachTaskOnce ) {
    for ( const unsigned threads : { 0u, 1u, 3u } ) {
        std::deque<Counting> tasks( 1000 );
        Workers workers( threads );
        for ( int round = 1; round <= 2; ++round ) {
            for ( Counting & task : tasks )
                workers.begin( task );
            for ( Counting & task : tasks ) {
                workers.finish( task );
                ASSERT_EQ( task.runs, round );
            }
        }
    }
}

TEST( WorkersTest, WhatATaskThrowsComesToTheOneWhoFinishesIt ) {
    for ( const unsigned threads : { 0u, 2u } ) {
        std::deque<Counting> tasks( 100 );
        tasks[50].isFailing = true;
        Workers workers( threads );
        for ( Counting & task : tasks )
            workers.begin( task );
        for ( Counting & task : tasks ) {
            if ( task.isFailing )
                EXPECT_THROW( workers.finish( task ), std::runtime_error );
            else
                EXPECT_NO_THROW( workers.finish( task ) );
        }
        tasks[50].isFailing = false;
        workers.begin( tasks[50] );
        EXPECT_NO_THROW( workers.finish( tasks[50] ) );
    }
}

// Holds the thread that does it.
class Holding final : public Workers::Task {
  public:
    std::promise<void> isBegun;
    std::promise<void> mayEnd;
    std::atomic<bool> hasEnded = false;

  private:
    void run() override {
        isBegun.set_value();
        mayEnd.get_future().wait();
        hasEnded = true;
    }
};

TEST( WorkersTest, AtTheirEndWaitForWhatIsBegun ) {
    Holding holding;
    std::deque<Counting> waiting( 10 ); // whether they are done does not matter
    std::optional<Workers> workers( std::in_place, 1 );
    workers->begin( holding );
    holding.isBegun.get_future().wait();
    for ( Counting & task : waiting )
        workers->begin( task );
    const auto end = std::async( std::launch::async, [&] { workers.reset(); } );
    EXPECT_EQ( end.wait_for( std::chrono::milliseconds( 20 ) ), std::future_status::timeout );
    holding.mayEnd.set_value();
    end.wait();
    EXPECT_TRUE( holding.hasEnded );
}

} // namespace
