#include "tests/tools/Program.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sstream>
#include <string>
#include <unistd.h>

// What becomes of a bring-up that is interrupted: it says in which step, keeps the state asked for,
// and ends as the signal ends a process.

namespace {

using Json = nlohmann::json;
using ToolTest::cairnLt;
using ToolTest::linesWith;
using ToolTest::Outcome;
using ToolTest::StartedProgram;

// A pipe that fills up, because only some of it is read.
class FullPipe {
  public:
    FullPipe() { EXPECT_EQ( ::pipe2( ends_, O_CLOEXEC ), 0 ); }
    ~FullPipe() {
        ::close( ends_[0] );
        closeInput();
    }

    int input() const { return ends_[1]; }
    void closeInput() {
        if ( ends_[1] >= 0 )
            ::close( ends_[1] );
        ends_[1] = -1;
    }
    // Waits for so much output; false if there is less.
    bool read( std::size_t count ) const {
        std::string buffer( count, '\0' );
        for ( std::size_t read = 0; read < count; ) {
            const ssize_t more = ::read( ends_[0], buffer.data(), count - read );
            if ( more <= 0 )
                return false;
            read += static_cast<std::size_t>( more );
        }
        return true;
    }

  private:
    int ends_[2] = { -1, -1 };
};

class InterruptTest : public ::testing::TestWithParam<int> {
  protected:
    // More steps than a pipe holds the texts of.
    std::string manySteps() const {
        std::ostringstream file;
        file << "[[chips]]\nname = \"leaf\"\nunit = 0\n";
        for ( int i = 0; i < stepCount; ++i )
            file << "[[steps]]\nrecipe = \"setEgrTunnelEcnEncap\"\narguments = [ 0, " << i % 256
                 << ", 2 ]\n";
        return folder_.write( "x.toml", file.str() );
    }

    std::size_t savedRows() const {
        const Json json = Json::parse(
            cairnLt( { "dump", "--state", state_, "--format", "json", "EGR_TUNNEL_ECN_ENCAPm" } )
                .out,
            nullptr, false );
        return json.is_discarded() ? 0 : json["units"][0]["tables"][0]["rows"].size();
    }

    static constexpr int stepCount = 5000;
    Support::TemporaryFolder folder_;
    std::string state_ = folder_.path( "chip.json" );
};

TEST_P( InterruptTest, SaysWhereAndKeepsTheState ) {
    FullPipe pipe;
    StartedProgram program( { "bringup", manySteps(), "--state", state_ },
                            [&] { ::dup2( pipe.input(), STDOUT_FILENO ); } );
    pipe.closeInput();
    EXPECT_TRUE( pipe.read( 500 ) ); // some steps are done, and not all will be told
    ::kill( program.process(), GetParam() );
    const Outcome run = program.wait();
    EXPECT_EQ( run.signal, GetParam() );
    EXPECT_EQ( ToolTest::lines( run.err ).size(), 1u ) << run.err;
    EXPECT_EQ( linesWith( run.err, "x.toml:" ).size(), 1u ) << run.err;
    EXPECT_EQ(
        linesWith( run.err, ": SIG" + std::string( ::sigabbrev_np( GetParam() ) ) + " " ).size(),
        1u )
        << run.err;
    EXPECT_EQ( linesWith( run.err, " of 5000: setEgrTunnelEcnEncap( unit=0, index=" ).size(), 1u )
        << run.err;
    EXPECT_GE( savedRows(), 1u );
}

// Nobody reads the trace either, so the step stands still within a call.
TEST_P( InterruptTest, EndsAlsoIfTheTraceIsNotRead ) {
    FullPipe pipe;
    StartedProgram program( { "bringup", manySteps(), "--state", state_, "--trace", "*/*" }, [&] {
        ::dup2( pipe.input(), STDOUT_FILENO );
        ::dup2( pipe.input(), STDERR_FILENO );
    } );
    pipe.closeInput();
    EXPECT_TRUE( pipe.read( 500 ) );
    ::kill( program.process(), GetParam() );
    EXPECT_EQ( program.wait().signal, GetParam() );
    EXPECT_NE( Support::contents( state_ ), "" );
}

TEST_P( InterruptTest, IsIgnoredIfItWasIgnored ) {
    FullPipe pipe;
    StartedProgram program( { "bringup", manySteps(), "--state", state_ }, [&] {
        ::dup2( pipe.input(), STDOUT_FILENO );
        std::signal( GetParam(), SIG_IGN );
    } );
    pipe.closeInput();
    EXPECT_TRUE( pipe.read( 500 ) );
    ::kill( program.process(), GetParam() );
    while ( pipe.read( 4096 ) ) {
    }
    EXPECT_EQ( program.wait().exitCode, 0 );
}

INSTANTIATE_TEST_SUITE_P( All, InterruptTest, ::testing::Values( SIGINT, SIGTERM, SIGHUP ),
                          []( const auto & each ) {
                              return "SIG" + std::string( ::sigabbrev_np( each.param ) );
                          } );

} // namespace
