#include "tracereader/Recording.h"

#include "tests/support/TraceFiles.h"

#include <Fleetlog/CallFormat.h>
#include <Fleetlog/Format.h>
#include <Fleetlog/MsgDesc.h>
#include <Fleetlog/TraceFile.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

// Recordings as they come: of this version and later ones, cut, damaged, mixed up, foreign, empty.

namespace {

using TraceReader::Event;
using TraceReader::Recording;
using Moment = TraceReader::Event::Moment;
namespace Layout = Fleetlog::Format;

// A line for each event: number, thread, lock, moment, call.
std::string listing( Recording & recording ) {
    std::string lines;
    Event event;
    while ( recording.next( event ) ) {
        const auto & call = *event.call;
        lines += std::to_string( call.number ) + " " + std::to_string( call.thread ) +
                 ( call.isLockHeld.value_or( false ) ? " held " : " free " ) +
                 ( event.moment == Moment::before  ? "before "
                   : event.moment == Moment::after ? "after  "
                                                   : "never  " );
        appendText( lines, call );
        lines += call.isWhole ? "\n" : " (cut)\n";
    }
    return lines;
}

std::vector<std::string> findingsOf( const Recording & recording ) {
    std::vector<std::string> texts;
    for ( const auto & finding : recording.findings() )
        texts.push_back( finding.text() );
    return texts;
}

std::string refusal( const std::vector<std::string> & paths,
                     const Recording::Options & options = {} ) {
    try {
        const Recording recording( paths, options );
    } catch ( const TraceReader::Error & error ) {
        return error.what();
    }
    return "";
}

const std::string kept = TEST_DATA "/recording-version3";
const std::string keptRing = TEST_DATA "/recording-version3-ring";

// The one file in the folder of the ring.
std::string ringFile() { return TraceReader::findFiles( keptRing ).at( 0 ); }

// --- Recordings that are kept

TEST( RecordingTest, Version3StaysReadable ) {
    Recording recording( { kept } );
    EXPECT_EQ( listing( recording ), Support::contents( kept + "/expected.txt" ) );
    EXPECT_EQ( findingsOf( recording ), std::vector<std::string>() );
    EXPECT_FALSE( recording.hasLostBeginning() );
    ASSERT_EQ( recording.processes().size(), 1u );
    EXPECT_EQ( recording.processes()[0].program, "agent" );
}

TEST( RecordingTest, Version3OfARingStaysReadable ) {
    Recording recording( { keptRing } );
    EXPECT_EQ( listing( recording ), Support::contents( keptRing + "/expected.txt" ) );
    EXPECT_EQ( findingsOf( recording ), std::vector<std::string>() );
    EXPECT_TRUE( recording.hasLostBeginning() );
}

TEST( RecordingTest, CallsAreJson ) {
    Recording recording( { kept } );
    Event event;
    std::vector<nlohmann::json> calls;
    while ( recording.next( event ) ) {
        std::string json = "{";
        appendJson( json, *event.call );
        calls.push_back( nlohmann::json::parse( json + "}" ) );
    }
    EXPECT_EQ( calls.at( 0 ), nlohmann::json::parse( R"({ "call": "bcmlt_entry_allocate",
        "number": 1, "unit": 1, "table": "ROUTE", "lockHeld": false })" ) );
    EXPECT_EQ( calls.at( 1 ), nlohmann::json::parse( R"({ "call": "bcmlt_entry_allocate",
        "number": 1, "handle": 1, "unit": 1, "table": "ROUTE", "lockHeld": false, "rc": 0 })" ) );
    EXPECT_EQ( calls.at( 9 ), nlohmann::json::parse( R"({ "call": "bcmlt_entry_field_array_add",
        "number": 5, "handle": 1, "unit": 1, "table": "ROUTE", "lockHeld": false,
        "field": "LABELS", "start": 1, "count": 3, "values": [0, 4294967297, 8589934594],
        "rc": -14 })" ) );
    EXPECT_EQ( calls.at( 13 )["opcode"], "BCMLT_OPCODE_LOOKUP" );
    EXPECT_EQ( calls.at( 15 )["read"], 0xFEDCBA9876543210u );
    EXPECT_EQ( calls.at( 22 )["opcode"], 77 );
}

TEST( RecordingTest, CallsHaveTheNamesOfTheShim ) {
    for ( std::size_t i = 0; i < TraceReader::sdkCallCount; ++i ) {
        const auto call = static_cast<TraceReader::SdkCall>( i );
        EXPECT_EQ( TraceReader::sdkCallByName( name( call ) ), call );
    }
    EXPECT_EQ( name( TraceReader::SdkCall::ptEntryCommit ), "bcmlt_pt_entry_commit" );
    EXPECT_EQ( TraceReader::sdkCallByName( "bcmlt_transaction_allocate" ), std::nullopt );
}

// --- Bad input

class BadRecordingTest : public testing::Test {
  protected:
    // A copy of a file with one place overwritten, and perhaps cut.
    std::string copy( const std::string & from, const std::string & name ) const {
        std::filesystem::copy_file( from, directory_.path( name ) );
        return directory_.path( name );
    }

    Support::Directory directory_;
};

TEST_F( BadRecordingTest, MissingEmptyAndForeignInputIsRefusedWithWhatCanBeDone ) {
    const std::string missing = directory_.path( "missing" );
    EXPECT_EQ( refusal( { missing } ), missing + ": cannot be read: No such file or directory" );
    EXPECT_EQ( refusal( { directory_.path() } ),
               directory_.path() + ": no trace files (*.fleetlog) in this directory" );
    const std::string empty = directory_.write( "empty.fleetlog", "" );
    EXPECT_EQ( refusal( { empty } ),
               empty + ": is empty: its writer was stopped before it had made it" );
    const std::string foreign = directory_.write( "foreign.fleetlog", "no trace at all" );
    EXPECT_EQ( refusal( { foreign } ),
               foreign + ": not a trace file: it does not begin with \"FLEETLOG\"" );
    const std::string messages = TEST_DATA "/version2-none.fleetlog";
    EXPECT_EQ( refusal( { messages } ),
               messages + ": holds no SDK calls; record them with \"--record-to\", or in an agent "
                          "with Interpose::TraceRecorder" );
}

TEST_F( BadRecordingTest, GoodFilesAreReadBesideBadOnes ) {
    copy( ringFile(), "good.fleetlog" );
    const std::string bad = directory_.write( "bad.fleetlog", "no trace at all" );
    Recording recording( { directory_.path() } );
    EXPECT_EQ( listing( recording ), Support::contents( keptRing + "/expected.txt" ) );
    EXPECT_EQ( findingsOf( recording ),
               std::vector<std::string>{
                   bad + ": not a trace file: it does not begin with \"FLEETLOG\"" } );
}

TEST_F( BadRecordingTest, CutFileIsReadAsFarAsItGoes ) {
    const std::string path = copy( ringFile(), "cut.fleetlog" );
    std::filesystem::resize_file( path, 4096 + 8192 + 2000 );
    Recording recording( { path } );
    const std::string lines = listing( recording );
    EXPECT_NE( lines.find( "bcmlt_entry_field_add" ), std::string::npos );
    EXPECT_LT( lines.size(), Support::contents( keptRing + "/expected.txt" ).size() );
    ASSERT_FALSE( findingsOf( recording ).empty() );
    EXPECT_NE( findingsOf( recording )[0].find( "the file ends here" ), std::string::npos );
}

TEST_F( BadRecordingTest, LostSegmentIsALostBeginning ) {
    const auto files = TraceReader::findFiles( kept );
    ASSERT_EQ( files.size(), 3u );
    copy( files[1], "second.fleetlog" );
    Recording recording( { directory_.path() } );
    listing( recording );
    EXPECT_TRUE( recording.hasLostBeginning() );
}

TEST_F( BadRecordingTest, ProcessesInOneFolderAreToldApart ) {
    copy( ringFile(), "ring.fleetlog" );
    for ( const auto & file : TraceReader::findFiles( kept ) )
        copy( file, std::filesystem::path( file ).filename().string() );
    Recording both( { directory_.path() } );
    ASSERT_EQ( both.processes().size(), 2u );
    const auto first = both.processes()[0].process;
    const auto second = both.processes()[1].process;
    Recording ring( { directory_.path() }, { .process = second } );
    EXPECT_EQ( listing( ring ), Support::contents( keptRing + "/expected.txt" ) );
    EXPECT_EQ( refusal( { directory_.path() }, { .process = 1 } ),
               directory_.path() + ": has no SDK calls of process 1; it has those of: " +
                   std::to_string( std::min( first, second ) ) + ", " +
                   std::to_string( std::max( first, second ) ) );
}

// What writes recordings as no recorder does.
class Writer {
  public:
    explicit Writer( const std::string & directory )
        : file_( { .directory = directory, .ringBytes = 1 << 16 }, 1 ) {}

    int site( const char * function, const char * letters, Layout::CallPart part,
              const char * source = Layout::callSource ) {
        int id = 0;
        Fleetlog::MsgDesc descriptor( &file_, &id, source, static_cast<int>( part ) );
        descriptor.formatString().put( letters );
        descriptor << function;
        descriptor.finish();
        return id;
    }

    template <class Put>
    void write( int id, Put put ) {
        Fleetlog::RecordWriter record;
        ASSERT_TRUE( record.start( *file_.ringBuf(), file_, id ) );
        put( record );
        record.end();
    }

    void free( std::uint32_t handle, Layout::CallPart part ) {
        if ( part == Layout::CallPart::before )
            write( before_, [&]( auto & record ) {
                record.put2( 2 );
                record.put4( handle );
            } );
        else
            write( after_, [&]( auto & record ) {
                record.put4( 0 );
                record.put4( handle );
            } );
    }

  private:
    Fleetlog::TraceFile file_;
    int before_ = site( "bcmlt_entry_free", "si", Layout::CallPart::before );
    int after_ = site( "bcmlt_entry_free", "ni", Layout::CallPart::after );
};

TEST_F( BadRecordingTest, WhatALaterVersionAddsIsPassedOver ) {
    {
        Writer writer( directory_.path() );
        const int newCall =
            writer.site( "bcmlt_transaction_allocate", "si", Layout::CallPart::before );
        const int newPart = writer.site( "bcmlt_entry_free", "i", Layout::CallPart{ 9 } );
        const int longer = writer.site( "bcmlt_entry_free", "sipl", Layout::CallPart::before );
        const int otherLetters = writer.site( "bcmlt_entry_free", "ii", Layout::CallPart::before );
        for ( int i = 0; i < 3; ++i ) {
            writer.write( newCall, []( auto & record ) {
                record.put2( 0 );
                record.put4( 1 );
            } );
            writer.write( newPart, []( auto & record ) { record.put4( 1 ); } );
            writer.write( otherLetters, []( auto & record ) {
                record.put4( 1 );
                record.put4( 1 );
            } );
            writer.write( longer, []( auto & record ) {
                record.put2( 1 );
                record.put4( 7 );
                record.putText( "new" );
                record.put8( 1 );
            } );
            writer.free( 7, Layout::CallPart::after );
        }
    }
    Recording recording( { directory_.path() } );
    Event event;
    for ( int i = 0; i < 3; ++i ) {
        ASSERT_TRUE( recording.next( event ) );
        EXPECT_EQ( event.moment, Moment::before );
        EXPECT_EQ( event.call->isLockHeld, true );
        ASSERT_TRUE( recording.next( event ) );
        EXPECT_EQ( event.moment, Moment::after );
        EXPECT_EQ( event.call->handle, 7u );
        EXPECT_TRUE( event.call->hasInputs() );
    }
    EXPECT_FALSE( recording.next( event ) );
    const auto findings = findingsOf( recording );
    ASSERT_EQ( findings.size(), 3u ) << "one for each site";
    EXPECT_NE( findings[0].find( "a call that this version does not know, "
                                 "bcmlt_transaction_allocate (si); it is passed over" ),
               std::string::npos );
}

TEST_F( BadRecordingTest, ResultsWithoutTheirCallsAreTold ) {
    {
        Writer writer( directory_.path() );
        writer.free( 7, Layout::CallPart::after );
        writer.free( 8, Layout::CallPart::before );
        writer.free( 9, Layout::CallPart::after );
    }
    Recording recording( { directory_.path() } );
    const auto thread = std::to_string( ::gettid() );
    EXPECT_EQ( listing( recording ), "1 " + thread +
                                         " free after  bcmlt_entry_free entry 7 "
                                         "(inputs lost) -> rc 0\n2 " +
                                         thread + " free before bcmlt_entry_free entry 8\n3 " +
                                         thread +
                                         " free after  bcmlt_entry_free entry 9 (inputs lost) -> "
                                         "rc 0\n2 " +
                                         thread + " free never  bcmlt_entry_free entry 8\n" );
    EXPECT_TRUE( recording.hasLostBeginning() );
}

TEST_F( BadRecordingTest, CallsThatNeverEndAreNotKeptForEver ) {
    {
        Writer writer( directory_.path() );
        for ( std::uint32_t i = 0; i < 1000; ++i )
            writer.free( i, Layout::CallPart::before );
    }
    Recording recording( { directory_.path() } );
    Event event;
    unsigned unreturned = 0;
    while ( recording.next( event ) )
        unreturned += event.moment == Moment::neverReturned ? 1 : 0;
    EXPECT_EQ( unreturned, 16u );
    const auto findings = findingsOf( recording );
    ASSERT_FALSE( findings.empty() );
    EXPECT_NE( findings[0].find( "never returned, or the records after them are lost" ),
               std::string::npos );
}

TEST_F( BadRecordingTest, LostPiecesLeaveTheBeginningOfATextAndOfAnArray ) {
    {
        Writer writer( directory_.path() );
        const int text = writer.site( "piece", Layout::callTextLetters, Layout::CallPart::text );
        const int values =
            writer.site( "piece", Layout::callValuesLetters, Layout::CallPart::values );
        const int add =
            writer.site( "bcmlt_entry_field_array_add", "siiipa", Layout::CallPart::before );
        // The pieces from 126 and from 16 on are not there, those after them are.
        writer.write( text, []( auto & record ) {
            record.put4( 0 );
            record.put4( 252 );
            record.put4( 260 );
            record.putText( "12345678" );
        } );
        writer.write( values, []( auto & record ) {
            record.put4( 32 );
            record.put4( 33 );
            record.put2( 1 );
            record.put8( 1 );
        } );
        writer.write( add, []( auto & record ) {
            record.put2( 0 );
            record.put4( 7 );
            record.put4( 0 );
            record.put4( 33 );
            record.putText( std::string( 260, 'f' ).c_str() );
            record.put2( 2 );
            record.put8( 5 );
            record.put8( 6 );
        } );
    }
    Recording recording( { directory_.path() } );
    Event event;
    ASSERT_TRUE( recording.next( event ) );
    EXPECT_FALSE( event.call->isWhole );
    EXPECT_EQ( event.call->field, std::string( 126, 'f' ) );
    EXPECT_EQ( event.call->values, ( std::vector<std::uint64_t>{ 5, 6 } ) );
}

} // namespace
