#include "tools/show/Ctf.h"

#include "tests/support/TemporaryFolder.h"
#include "tests/tools/Program.h"
#include "tracereader/Recording.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

// What babeltrace2 reads of an export, event by event, against what is in the trace files.

namespace {

using Moment = TraceReader::Event::Moment;
using TraceReader::RecordedCall;
using TraceReader::SdkCall;

bool hasBabeltrace() {
    return std::system( "command -v babeltrace2 > /dev/null" ) ==
           0; // NOLINT(concurrency-mt-unsafe)
}

// What babeltrace2 prints: the events, and what it warns of.
struct Shown {
    std::vector<std::string> events;
    std::vector<std::string> warnings;
};

Shown babeltrace( const std::string & folder, const std::string & options ) {
    const std::string command = "babeltrace2 --no-delta --clock-seconds " + options + " '" +
                                folder + "' 2>'" + folder + ".err'";
    const std::unique_ptr<FILE, int ( * )( FILE * )> pipe( ::popen( command.c_str(), "r" ),
                                                           ::pclose );
    std::string out;
    std::array<char, 4096> buffer{};
    for ( std::size_t count = 0;
          ( count = std::fread( buffer.data(), 1, buffer.size(), pipe.get() ) ) > 0; )
        out.append( buffer.data(), count );
    return { ToolTest::lines( out ), ToolTest::lines( Support::contents( folder + ".err" ) ) };
}

// --- The expected lines, as babeltrace2 prints events without the names of fields

std::string inQuotes( std::string_view text ) {
    if ( text.empty() )
        return R"("\"\"")";
    std::string result = "\"";
    for ( const char each : text ) {
        if ( each == '"' || each == '\\' || each == '\'' || each == '?' )
            result += '\\';
        result += each;
    }
    return result + "\"";
}

std::string joined( const std::vector<std::string> & values ) {
    std::string result = "{";
    for ( const std::string & each : values )
        result += ( result.size() == 1 ? " " : ", " ) + each;
    return result + " }";
}

std::string numbers( const std::vector<std::uint64_t> & values ) {
    std::string result = "[";
    for ( const std::uint64_t each : values )
        result += ( result.size() == 1 ? " " : ", " ) + std::to_string( each );
    return result + " ]";
}

std::string lockText( std::optional<bool> isHeld ) {
    return !isHeld   ? "( \"unknown\" : container = 2 )"
           : *isHeld ? "( \"held\" : container = 1 )"
                     : "( \"free\" : container = 0 )";
}

std::string line( const TraceReader::Record & record, const std::string & name,
                  const std::vector<std::string> & values ) {
    const auto & info = record.file->info();
    std::ostringstream out;
    char time[64];
    std::snprintf( time, sizeof time, "[%lld.%09lld] ",
                   static_cast<long long>( record.time / 1'000'000'000 ),
                   static_cast<long long>( record.time % 1'000'000'000 ) );
    out << time << name << ": "
        << joined( { std::to_string( info.process ), inQuotes( info.program ),
                     inQuotes( info.path ), inQuotes( info.timestamps ) } )
        << ", " << joined( { std::to_string( record.thread ), "0" } );
    out << ", " << joined( values );
    return out.str();
}

std::vector<std::string> valuesOf( const TraceReader::Record & record ) {
    std::vector<TraceReader::Value> values;
    decode( record, values );
    std::vector<std::string> texts;
    for ( const auto & value : values ) {
        switch ( value.letter ) {
        case 'p':
            texts.push_back( inQuotes( std::string( value.text ) + ( value.isCut ? "..." : "" ) ) );
            break;
        case 'l':
            texts.push_back( std::to_string( value.wide ) );
            break;
        default:
            texts.push_back( std::to_string( value.number ) );
        }
    }
    return texts;
}

std::vector<std::string> inputsOf( const RecordedCall & call ) {
    std::vector<std::string> values{ std::to_string( call.number ), lockText( call.isLockHeld ) };
    const auto text = [&]( const std::string & each ) { values.push_back( inQuotes( each ) ); };
    const auto number = [&]( auto each ) { values.push_back( std::to_string( each ) ); };
    if ( isHook( call.call ) )
        return values;
    if ( call.call != SdkCall::entryAllocate )
        number( call.handle );
    number( call.unit.value_or( -1 ) );
    text( call.table );
    switch ( call.call ) {
    case SdkCall::entryAttribSet:
        number( call.attribute.number );
        text( call.attribute.name );
        break;
    case SdkCall::entryCommit:
    case SdkCall::ptEntryCommit:
        number( call.opcode.number );
        text( call.opcode.name );
        number( call.priority.number );
        text( call.priority.name );
        break;
    case SdkCall::entryFieldAdd:
        text( call.field );
        number( call.values.at( 0 ) );
        break;
    case SdkCall::entryFieldArrayAdd:
        text( call.field );
        number( call.startIndex );
        number( call.count );
        number( call.values.size() );
        values.push_back( numbers( call.values ) );
        break;
    case SdkCall::entryFieldGet:
        text( call.field );
        break;
    case SdkCall::entryFieldSymbolAdd:
        text( call.field );
        text( call.symbol );
        break;
    default:
        break;
    }
    number( call.isWhole ? 1 : 0 );
    return values;
}

std::vector<std::string> resultsOf( const RecordedCall & call ) {
    std::vector<std::string> values{ std::to_string( call.number ) };
    if ( isHook( call.call ) )
        return values;
    values.insert( values.end(),
                   { std::to_string( call.rc ), std::to_string( call.handle ),
                     std::to_string( call.unit.value_or( -1 ) ), inQuotes( call.table ) } );
    if ( call.call == SdkCall::entryFieldGet )
        values.push_back( std::to_string( call.value ) );
    return values;
}

std::vector<std::string> expectedOf( const std::vector<std::string> & paths ) {
    TraceReader::Merge merge;
    for ( const auto & path : paths )
        merge.add( path );
    TraceReader::CallAssembler assembler;
    TraceReader::Record record;
    TraceReader::Event event;
    std::vector<std::string> lines;
    while ( merge.next( record ) ) {
        if ( !assembler.take( record, event ) )
            continue;
        if ( event.moment == Moment::message )
            lines.push_back( line( record,
                                   record.site->file + ":" + std::to_string( record.site->line ) +
                                       " " + record.site->function,
                                   valuesOf( record ) ) );
        else if ( event.moment == Moment::before )
            lines.push_back( line( record, std::string( name( event.call->call ) ) + ":begin",
                                   inputsOf( *event.call ) ) );
        else
            lines.push_back( line( record, std::string( name( event.call->call ) ) + ":end",
                                   resultsOf( *event.call ) ) );
    }
    return lines;
}

class CtfTest : public testing::Test {
  protected:
    void SetUp() override {
        if ( !hasBabeltrace() )
            GTEST_SKIP() << "babeltrace2 is not installed";
    }

    static std::string data( const std::string & name ) {
        return SOURCE_TREE "/tests/tracereader/data/" + name;
    }

    // Exports the files, which may be damaged, and holds what babeltrace2 reads against them.
    std::vector<std::string> expectSame( const std::vector<std::string> & paths ) {
        const std::string folder = temporary_.path( "export-" + std::to_string( ++exports_ ) );
        std::vector<std::string> arguments{ "trace", "--export", "ctf", "-o", folder };
        arguments.insert( arguments.end(), paths.begin(), paths.end() );
        const auto run = ToolTest::cairnLt( arguments );
        EXPECT_LE( run.exitCode, 1 ) << run.err;
        EXPECT_GE( run.exitCode, 0 );
        Shown shown = babeltrace( folder, "--names=none" );
        std::vector<std::string> expected = expectedOf( paths );
        EXPECT_FALSE( expected.empty() );
        // Events of one time stand in any order if they are of several files.
        if ( paths.size() > 1 ) {
            std::sort( shown.events.begin(), shown.events.end() );
            std::sort( expected.begin(), expected.end() );
        }
        EXPECT_EQ( shown.events.size(), expected.size() ) << paths.front();
        for ( std::size_t i = 0; i < std::min( shown.events.size(), expected.size() ); ++i ) {
            EXPECT_EQ( shown.events[i], expected[i] );
            if ( HasFailure() )
                break;
        }
        return shown.warnings;
    }

    std::string copy( const std::string & name, std::uintmax_t size ) {
        std::string path = temporary_.path( "copy-" + std::to_string( ++copies_ ) + ".fleetlog" );
        std::filesystem::copy_file( data( name ), path );
        std::filesystem::resize_file( path, size );
        return path;
    }

    Support::TemporaryFolder temporary_;

  private:
    int exports_ = 0;
    int copies_ = 0;
};

TEST_F( CtfTest, EveryRecordOfEveryVersionAndClock ) {
    for ( const char * name :
          { "version1-none", "version1-tick", "version2-counter", "version2-none" } )
        expectSame( { data( std::string( name ) + ".fleetlog" ) } );
}

TEST_F( CtfTest, WhatARingHasOverwrittenIsDiscarded ) {
    for ( const char * name : { "version1-counter.fleetlog", "version2-tick.fleetlog" } ) {
        TraceReader::File file( data( name ) );
        TraceReader::Record record;
        while ( file.next( record ) ) {
        }
        ASSERT_GT( file.counts().overwrittenRecords().value(), 0u );
        const auto warnings = expectSame( { data( name ) } );
        ASSERT_EQ( warnings.size(), 1u );
        EXPECT_NE( warnings[0].find( "Tracer discarded " +
                                     std::to_string( *file.counts().overwrittenRecords() ) +
                                     " events between " ),
                   std::string::npos )
            << warnings[0];
    }
}

TEST_F( CtfTest, EveryCallOfARecordingOfSeveralFiles ) {
    expectSame( TraceReader::findFiles( data( "recording-version3" ) ) );
    expectSame( TraceReader::findFiles( data( "recording-version3-ring" ) ) );
}

TEST_F( CtfTest, ARunOfAllRecipes ) {
    ASSERT_EQ(
        ToolTest::cairnLt( { "bringup", "examples/bringup.toml", "--record-to",
                             temporary_.path( "both" ), "--trace-dir", temporary_.path( "both" ) } )
            .exitCode,
        0 );
    EXPECT_TRUE( expectSame( TraceReader::findFiles( temporary_.path( "both" ) ) ).empty() );
}

TEST_F( CtfTest, TheRecordsOfABlockThatIsMissingAreDiscarded ) {
    const std::string folder = temporary_.path( "recording" );
    ASSERT_EQ(
        ToolTest::cairnLt( { "bringup", "examples/bringup.toml", "--record-to", folder } ).exitCode,
        0 );
    const std::string path = TraceReader::findFiles( folder ).at( 0 );
    const auto blocks = TraceReader::File( path ).info().blockCount;
    std::fstream file( path, std::ios::in | std::ios::out | std::ios::binary );
    constexpr std::streamoff blockBytes = 4096;
    const auto ring = static_cast<std::streamoff>( std::filesystem::file_size( path ) ) -
                      static_cast<std::streamoff>( blocks ) * blockBytes;
    file.seekp( ring + 5 * blockBytes );
    file << "no block";
    file.close();
    const auto warnings = expectSame( { path } );
    ASSERT_EQ( warnings.size(), 1u );
    EXPECT_NE( warnings[0].find( "Tracer discarded " ), std::string::npos ) << warnings[0];
}

TEST_F( CtfTest, WhatIsLeftOfFilesThatWereCut ) {
    for ( const std::uintmax_t size : { 12'000u, 12'288u, 12'300u, 16'000u } ) {
        expectSame( { copy( "version1-counter.fleetlog", size ) } );
        expectSame( { copy( "version2-tick.fleetlog", size ) } );
    }
}

// --- Events that no file has

class CtfEventTest : public CtfTest {
  protected:
    CtfEventTest() : file_( data( "version2-counter.fleetlog" ) ) {
        std::filesystem::create_directory( folder() );
    }

    std::string folder() const { return temporary_.path( "ctf" ); }

    void take( const TraceReader::Site * site, std::int64_t time, const std::string & payload ) {
        TraceReader::Event event;
        event.record.file = &file_;
        event.record.site = site;
        event.record.id = 77;
        event.record.time = time;
        event.record.payload = std::as_bytes( std::span( payload ) );
        ctf_.take( event, true );
    }

    std::vector<std::string> shown() {
        ctf_.finish();
        const Shown all = babeltrace( folder(), "--names=context,payload" );
        EXPECT_EQ( all.warnings, std::vector<std::string>() );
        std::vector<std::string> events;
        for ( const std::string & each : all.events ) {
            const auto packet = each.find( "{ process = " );
            const auto event = each.find( "{ thread = " );
            events.push_back( each.substr( 0, packet ) +
                              each.substr( std::min( event, each.size() ) ) );
        }
        return events;
    }

    TraceReader::File file_;
    Tool::Ctf ctf_{
        [this]( const std::string & name, std::uint64_t offset, std::string_view bytes ) {
            const std::string path = folder() + "/" + name;
            if ( !std::filesystem::exists( path ) )
                std::ofstream( path ).flush();
            std::fstream out( path, std::ios::in | std::ios::out | std::ios::binary );
            out.seekp( static_cast<std::streamoff>( offset ) );
            out << bytes;
        } };
};

TEST_F( CtfEventTest, ValuesOfAllKindsAreNamedAfterTheWordsBeforeThem ) {
    const TraceReader::Site site{ .id = 1,
                                  .file = "a\"\\b",
                                  .line = 7,
                                  .letters = "nlpaisb",
                                  .function = "setX",
                                  .texts = { "setX unit: ", " struct=", " the text \"", "\" ",
                                             " unit: ", " ", " */ ", " end" },
                                  .isPlain = false };
    std::string payload;
    const auto append = [&]( auto number ) {
        payload.append( reinterpret_cast<const char *>( &number ), sizeof number );
    };
    append( std::int32_t{ -5 } );
    append( std::uint64_t{ 0xFFFF'FFFF'FFFF'FFFE } );
    append( static_cast<std::uint16_t>( 4 | 0x8000 ) );
    payload += std::string( "a\0\xFFz", 4 );
    append( std::uint16_t{ 2 } );
    append( std::uint64_t{ 1 } );
    append( std::uint64_t{ 0x1234'5678'9ABC'DEF0 } );
    append( std::uint32_t{ 4'000'000'000 } );
    append( std::uint16_t{ 65535 } );
    append( std::uint8_t{ 1 } );
    take( &site, 1'500'000'000, payload );
    EXPECT_EQ(
        shown(),
        ( std::vector<std::string>{
            "[1.500000000] a\"\\b:7 setX: { thread = 0, behind = 0 }, { unit = -5, "
            "struct = 18446744073709551614, the_text = \"a\\\\x00\\\\xffz...\", _value_length = "
            "2, value = [ [0] = 1, [1] = 1311768467463790320 ], unit_2 = 4000000000, value_2 = "
            "65535, value_3 = 1 }" } ) );
}

TEST_F( CtfEventTest, TimesThatGoBackAreKept ) {
    const TraceReader::Site site{ .id = 1,
                                  .file = "f",
                                  .line = 1,
                                  .letters = "",
                                  .function = "setX",
                                  .texts = { "setX" },
                                  .isPlain = true };
    for ( const std::int64_t time : { 5000, 3000, -7, 6000 } )
        take( &site, time, "" );
    EXPECT_EQ( shown(), ( std::vector<std::string>{
                            "[0.000005000] f:1 setX: { thread = 0, behind = 0 }, { }",
                            "[0.000005000] f:1 setX: { thread = 0, behind = 2000 }, { }",
                            "[0.000005000] f:1 setX: { thread = 0, behind = 5007 }, { }",
                            "[0.000006000] f:1 setX: { thread = 0, behind = 0 }, { }" } ) );
}

TEST_F( CtfEventTest, WithoutADescriptionTheBytesAreThere ) {
    take( nullptr, 1, "\x01\xFF" );
    EXPECT_EQ( shown(),
               ( std::vector<std::string>{
                   "[0.000000001] message without description: { thread = 0, behind = 0 }, "
                   "{ site = 77, _bytes_length = 2, bytes = [ [0] = 1, [1] = 255 ] }" } ) );
}

TEST_F( CtfEventTest, ATraceWithoutEventsIsATrace ) {
    ctf_.finish();
    EXPECT_EQ( babeltrace( folder(), "" ).events, std::vector<std::string>() );
}

} // namespace
