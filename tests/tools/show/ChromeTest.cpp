#include "tools/show/Chrome.h"

#include "tests/support/TemporaryFolder.h"
#include "tests/tools/Program.h"
#include "tracereader/TraceReader.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

// The trace-event document: what the format asks for, and whether it holds all there is.

namespace {

using Json = nlohmann::json;
using ToolTest::cairnLt;

// What the format asks of each event, and that slices of a thread lie within each other.
void expectValid( const Json & document ) {
    ASSERT_TRUE( document.is_object() );
    ASSERT_TRUE( document["traceEvents"].is_array() );
    struct Slice {
        double begin;
        double end;
    };
    std::map<std::pair<int, int>, std::vector<Slice>> slices;
    std::map<std::pair<int, int>, std::vector<Json>> begun;
    for ( const Json & event : document["traceEvents"] ) {
        const auto phase = event.at( "ph" ).get<std::string>();
        ASSERT_TRUE( event.at( "pid" ).is_number_unsigned() ) << event;
        ASSERT_TRUE( event.at( "tid" ).is_number_unsigned() ) << event;
        const std::pair<int, int> thread( event["pid"], event["tid"] );
        ASSERT_TRUE( event.at( "name" ).is_string() ) << event;
        if ( phase == "M" ) {
            ASSERT_TRUE( event["name"] == "process_name" || event["name"] == "thread_name" );
            ASSERT_TRUE( event.at( "args" ).at( "name" ).is_string() );
            continue;
        }
        ASSERT_TRUE( event.at( "ts" ).is_number() ) << event;
        const double time = event["ts"];
        if ( phase == "X" ) {
            ASSERT_GE( event.at( "dur" ).get<double>(), 0 ) << event;
            slices[thread].push_back( { time, time + event["dur"].get<double>() } );
        } else if ( phase == "B" ) {
            begun[thread].push_back( event );
        } else if ( phase == "E" ) {
            ASSERT_FALSE( begun[thread].empty() ) << event;
            const Json & begin = begun[thread].back();
            ASSERT_GE( time, begin["ts"].get<double>() );
            ASSERT_EQ( event["name"], begin["name"] ); // viewers match them
            ASSERT_EQ( event["cat"], begin["cat"] );
            slices[thread].push_back( { begin["ts"], time } );
            begun[thread].pop_back();
        } else if ( phase == "i" ) {
            const auto scope = event.at( "s" ).get<std::string>();
            ASSERT_TRUE( scope == "t" || scope == "p" ) << event;
        } else {
            ASSERT_EQ( phase, "C" ) << event;
            for ( const Json & value : event.at( "args" ) )
                ASSERT_TRUE( value.is_number() );
        }
    }
    for ( const auto & [thread, open] : begun )
        EXPECT_TRUE( open.empty() );
    constexpr double halfNanosecond = 0.0005;
    for ( auto & [thread, all] : slices ) {
        std::stable_sort( all.begin(), all.end(), []( const Slice & one, const Slice & other ) {
            return std::pair( one.begin, -one.end ) < std::pair( other.begin, -other.end );
        } );
        std::vector<Slice> open;
        for ( const Slice & slice : all ) {
            while ( !open.empty() && open.back().end <= slice.begin + halfNanosecond )
                open.pop_back();
            ASSERT_TRUE( open.empty() || slice.end <= open.back().end + halfNanosecond )
                << slice.begin << " to " << slice.end << " crosses the end of a slice";
            open.push_back( slice );
        }
    }
}

std::size_t count( const Json & document, const std::string & phase ) {
    const auto & events = document["traceEvents"];
    return static_cast<std::size_t>( std::count_if(
        events.begin(), events.end(), [&]( const Json & each ) { return each["ph"] == phase; } ) );
}

class ChromeExportTest : public testing::Test {
  protected:
    std::string folder() const { return temporary_.path( "trace" ); }

    Json exported( const std::vector<std::string> & more = {} ) const {
        const std::string file = temporary_.path( "out.json" );
        std::vector<std::string> arguments{ "trace", folder(), "--export", "chrome", "-o", file };
        arguments.insert( arguments.end(), more.begin(), more.end() );
        const auto run = cairnLt( arguments );
        EXPECT_EQ( run.exitCode, 0 ) << run.err;
        return Json::parse( Support::contents( file ) );
    }

    std::vector<Json> records( const std::vector<std::string> & more = {} ) const {
        std::vector<std::string> arguments{ "trace", folder(), "--format", "json" };
        arguments.insert( arguments.end(), more.begin(), more.end() );
        std::vector<Json> all;
        for ( const auto & line : ToolTest::lines( cairnLt( arguments ).out ) )
            all.push_back( Json::parse( line ) );
        return all;
    }

    Support::TemporaryFolder temporary_;
};

TEST_F( ChromeExportTest, HoldsEveryCallAndEveryMessage ) {
    ASSERT_EQ( cairnLt( { "bringup", "examples/bringup.toml", "--record-to", folder(),
                          "--trace-dir", folder() } )
                   .exitCode,
               0 );
    const Json document = exported();
    expectValid( document );
    std::size_t calls = 0;
    std::size_t hooks = 0;
    std::size_t allocates = 0;
    const auto all = records();
    for ( const Json & record : all ) {
        const std::string call = record.value( "call", "" );
        calls += call.empty() ? 0 : 1;
        hooks += call.ends_with( "Hook" ) ? 1 : 0;
        allocates += call == "bcmlt_entry_allocate" ? 1 : 0;
    }
    EXPECT_EQ( count( document, "X" ), calls );
    EXPECT_EQ( count( document, "C" ), calls - hooks );
    EXPECT_EQ( count( document, "i" ), all.size() - calls );
    EXPECT_GT( count( document, "B" ), 0u );
    EXPECT_LE( count( document, "B" ), allocates );
    EXPECT_EQ( count( document, "B" ), count( document, "E" ) );

    // The recipe is known by its message.
    std::set<std::string> recipes;
    for ( const Json & event : document["traceEvents"] )
        if ( event["ph"] == "B" && event["cat"] == "recipe" )
            recipes.insert( event["name"] );
    EXPECT_TRUE( recipes.contains( "setLoadBalanceRandSeedCtrl" ) );
    EXPECT_TRUE( recipes.contains( "setDefip128StrengthProfile" ) );
}

TEST_F( ChromeExportTest, ACallHasItsTimesAndValues ) {
    ASSERT_EQ( cairnLt( { "run", "setEgrTunnelEcnEncap", "0", "5", "2", "--record-to", folder() } )
                   .exitCode,
               0 );
    const Json document = exported( { "--operation", "pt_entry_commit" } );
    const Json record = records( { "--operation", "pt_entry_commit" } ).at( 0 );
    ASSERT_EQ( count( document, "X" ), 1u );
    for ( const Json & event : document["traceEvents"] ) {
        if ( event["ph"] == "B" ) {
            EXPECT_EQ( event["name"], "EGR_TUNNEL_ECN_ENCAPm" );
        }
        if ( event["ph"] == "C" ) {
            EXPECT_GE( event["args"]["ns"], 0 );
        }
        if ( event["ph"] != "X" )
            continue;
        EXPECT_EQ( event["name"], "bcmlt_pt_entry_commit" );
        for ( const char * member : { "number", "handle", "table", "opcode", "rc" } )
            EXPECT_EQ( event["args"][member], record[member] ) << member;
    }
}

TEST_F( ChromeExportTest, AStopIsWithinItsRecipe ) {
    cairnLt( { "run", "setLoadBalanceRandSeedCtrl", "0", "12345", "--record-to", folder(),
               "--trace-dir", folder(), "--inject", "op=pt_entry_commit,rc=-30,at=2" } );
    const Json document = exported();
    expectValid( document );
    EXPECT_EQ( count( document, "X" ),
               records( { "--match", "ook" } ).size() + records( { "--match", "bcmlt" } ).size() );
    EXPECT_EQ( count( document, "B" ), count( document, "E" ) );
}

TEST_F( ChromeExportTest, CallsThatNeverReturnAreThere ) {
    const auto run =
        cairnLt( { "trace", "tests/tracereader/data/recording-version3", "--export", "chrome" } );
    const Json document = Json::parse( run.out );
    expectValid( document );
    const auto & events = document["traceEvents"];
    EXPECT_EQ( std::count_if( events.begin(), events.end(),
                              []( const Json & each ) {
                                  return each["ph"] == "X" && each["args"].contains( "returned" );
                              } ),
               1 );
}

TEST_F( ChromeExportTest, ALostBeginIsSaid ) {
    const auto run = cairnLt(
        { "trace", "tests/tracereader/data/recording-version3-ring", "--export", "chrome" } );
    const Json document = Json::parse( run.out );
    expectValid( document );
    const auto & events = document["traceEvents"];
    EXPECT_EQ( std::count_if( events.begin(), events.end(),
                              []( const Json & each ) {
                                  return each["ph"] == "X" && each["args"].contains( "beginning" );
                              } ),
               1 );
}

// A thread that never frees its entry is one span, however long: what is kept of it is bounded.
TEST( ChromeTest, WritesAsItGoes ) {
    TraceReader::File file( SOURCE_TREE "/tests/tracereader/data/version2-counter.fleetlog" );
    std::string document;
    std::size_t written = 0;
    std::size_t mostBehind = 0;
    Tool::Chrome chrome( [&]( std::string_view text ) {
        document += text;
        written += text.size();
    } );
    constexpr std::uint64_t calls = 10'000;
    std::size_t sizeOfCall = 0;
    for ( std::uint64_t number = 1; number <= calls; ++number ) {
        const auto time = static_cast<std::int64_t>( 10 * number );
        TraceReader::RecordedCall call;
        call.call = TraceReader::SdkCall::entryFieldAdd;
        call.number = number;
        call.process = 1;
        call.values = { number };
        call.thread = 2;
        call.before.file = &file;
        call.before.time = time;
        TraceReader::Event event;
        event.moment = TraceReader::Event::Moment::before;
        event.call = &call;
        event.record.file = &file;
        event.record.time = time;
        chrome.take( event, true );
        call.after.file = &file;
        call.after.time = time + 5;
        event.moment = TraceReader::Event::Moment::after;
        event.record.time = time + 5;
        chrome.take( event, true );
        if ( sizeOfCall == 0 && written != 0 )
            sizeOfCall = written / number + 1;
        if ( sizeOfCall != 0 )
            mostBehind = std::max( mostBehind,
                                   number * sizeOfCall - std::min( written, number * sizeOfCall ) );
    }
    EXPECT_GT( written, document.size() / 2 );
    EXPECT_LT( mostBehind, 300'000u );
    chrome.finish();
    const Json parsed = Json::parse( document );
    expectValid( parsed );
    EXPECT_EQ( count( parsed, "X" ), calls );
    EXPECT_EQ( count( parsed, "B" ), 1u );
}

} // namespace
