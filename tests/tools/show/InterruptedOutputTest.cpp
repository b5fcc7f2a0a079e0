#include "tests/support/TemporaryFolder.h"
#include "tests/tools/Program.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

// What stands under the name of an output when cairn-lt is ended in the middle of it. The program is
// the one of EndInTheMiddle.cpp.

namespace {

using ToolTest::cairnLt;
using ToolTest::Outcome;

struct Output {
    const char * name;
    std::vector<std::string> arguments; ///< "RECORDING" is the recording
    bool isFolder = false;
};

void PrintTo( const Output & output, std::ostream * out ) { *out << output.name; }

class InterruptedOutputTest : public testing::TestWithParam<Output> {
  protected:
    void SetUp() override {
        ASSERT_EQ( cairnLt( { "run", "setLoadBalanceRandSeedCtrl", "0", "12345", "--record-to",
                              recording_, "--trace-dir", recording_ } )
                       .exitCode,
                   0 );
        std::filesystem::create_directory( place_ );
        std::filesystem::create_directory( scratch_ );
        const Outcome run = write( 0, 0 );
        ASSERT_TRUE( isWhole( run ) ) << run.err;
        whole_ = outputs();
        ASSERT_FALSE( whole_.empty() );
    }

    using Contents = std::map<std::string, std::string>; ///< by file

    // Runs the verb, which gets the signal at a call.
    Outcome write( int call, int signal ) const {
        std::filesystem::remove_all( output_ );
        if ( !GetParam().isFolder )
            std::ofstream( output_ ) << old;
        std::vector<std::string> arguments = GetParam().arguments;
        for ( std::string & argument : arguments )
            argument = argument == "RECORDING" ? recording_ : argument;
        arguments.insert( arguments.end(), { "-o", output_ } );
        return cairnLt( arguments, {}, [&] {
            ::setenv( "END_AT", std::to_string( call ).c_str(), 1 );
            ::setenv( "END_WITH", std::to_string( signal ).c_str(), 1 );
            ::setenv( "TMPDIR", scratch_.c_str(), 1 );
        } );
    }

    // The verb went its way to the end, which is a stop if that is what the page is about.
    static bool isWhole( const Outcome & run ) {
        return run.exitCode == 0 || run.signal == SIGABRT;
    }

    // The files that stand under the name of the output.
    Contents outputs() const {
        Contents all;
        if ( std::filesystem::is_directory( output_ ) ) {
            for ( const auto & each : std::filesystem::directory_iterator( output_ ) )
                all[each.path().filename()] = Support::contents( each.path() );
        } else if ( std::filesystem::exists( output_ ) ) {
            all[""] = Support::contents( output_ );
        }
        return all;
    }

    // The output is as it was before, or whole.
    void expectNothingHalf( const std::string & when ) const {
        const Contents found = outputs();
        if ( found == ( GetParam().isFolder ? Contents() : Contents{ { "", old } } ) )
            return;
        // The times of a bring-up are those of its run.
        if ( GetParam().arguments.front() == "report" )
            EXPECT_TRUE( found.at( "" ).ends_with( "</html>\n" ) ) << when;
        else
            EXPECT_EQ( found, whole_ ) << when;
    }

    static constexpr const char * old = "as it was";
    const Support::TemporaryFolder folder_;
    const std::string recording_ = folder_.path( "recording" );
    const std::string place_ = folder_.path( "place" );
    const std::string scratch_ = folder_.path( "scratch" );
    const std::string output_ = place_ + "/out";
    Contents whole_;
};

TEST_P( InterruptedOutputTest, NothingHalfWrittenEverHasTheName ) {
    int kills = 0;
    for ( ;; ++kills ) {
        const Outcome run = write( kills + 1, SIGKILL );
        expectNothingHalf( "killed at call " + std::to_string( kills + 1 ) );
        if ( run.signal != SIGKILL ) {
            EXPECT_TRUE( isWhole( run ) ) << run.err;
            break;
        }
    }
    EXPECT_GE( kills, 2 ); // a write, and what gives it the name

    // These can be caught: nothing lies beside the output, either.
    for ( const int signal : { SIGINT, SIGTERM, SIGHUP } ) {
        for ( int call = 1; call <= kills; ++call ) {
            std::filesystem::remove_all( place_ );
            std::filesystem::create_directory( place_ );
            std::filesystem::remove_all( scratch_ );
            std::filesystem::create_directory( scratch_ );
            write( call, signal );
            const std::string when =
                "signal " + std::to_string( signal ) + " at call " + std::to_string( call );
            expectNothingHalf( when );
            for ( const auto & each : std::filesystem::directory_iterator( place_ ) )
                EXPECT_EQ( each.path(), output_ ) << when;
            EXPECT_TRUE( std::filesystem::is_empty( scratch_ ) ) << when;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Outputs, InterruptedOutputTest,
    testing::Values( Output{ "ctf", { "trace", "RECORDING", "--export", "ctf" }, true },
                     Output{ "chrome", { "trace", "RECORDING", "--export", "chrome" } },
                     Output{ "folded", { "trace", "RECORDING", "--export", "folded" } },
                     Output{ "page", { "report", "RECORDING" } },
                     Output{ "pageOfBringup", { "report", "examples/bringup.toml" } },
                     Output{ "pageOfStop",
                             { "report", "examples/bringup.toml", "--inject",
                               "op=pt_entry_commit,rc=-30,at=2" } } ),
    []( const auto & each ) { return std::string( each.param.name ); } );

} // namespace
