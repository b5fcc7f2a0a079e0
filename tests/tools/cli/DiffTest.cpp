#include "tests/tools/Program.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <string>

// cairn-lt diff as its users see it.

namespace {

using Json = nlohmann::json;
using ToolTest::cairnLt;
using ToolTest::Outcome;

class DiffVerb : public ::testing::Test {
  protected:
    // Runs a recipe that sets a row of the state.
    void encap( const std::string & state, const std::string & index, const std::string & ecn ) {
        const Outcome run =
            cairnLt( { "run", "setEgrTunnelEcnEncap", "0", index, ecn, "--state", state } );
        ASSERT_EQ( run.exitCode, 0 ) << run.err;
    }

    const Support::TemporaryFolder folder_;
    const std::string before_ = folder_.path( "before.json" );
    const std::string after_ = folder_.path( "after.json" );
};

TEST_F( DiffVerb, StatesThatAreTheSameAreNotSpokenOf ) {
    encap( before_, "5", "2" );
    encap( after_, "5", "2" );
    const Outcome run = cairnLt( { "diff", before_, after_ } );
    EXPECT_EQ( run.exitCode, 0 );
    EXPECT_EQ( run.out, "" );
    EXPECT_EQ( run.err, "" );
}

TEST_F( DiffVerb, StatesThatDiffer ) {
    encap( before_, "5", "2" );
    encap( after_, "5", "1" );
    const Outcome run = cairnLt( { "diff", before_, after_ } );
    EXPECT_EQ( run.exitCode, 1 );
    EXPECT_EQ( run.err, "" );
    EXPECT_EQ( run.out, "--- " + before_ + "\n+++ " + after_ +
                            "\n"
                            "EGR_TUNNEL_ECN_ENCAPm  unit 0, memory\n"
                            "  index 5\n"
                            "-   OUTER_ECN  2\n"
                            "+   OUTER_ECN  1\n"
                            "0 rows added, 0 removed, 1 changed\n" );
    const Outcome json = cairnLt( { "diff", before_, after_, "--format", "json" } );
    EXPECT_EQ( json.exitCode, 1 );
    EXPECT_EQ( Json::parse( json.out )["rows"][0]["fields"],
               Json( { { { "field", "OUTER_ECN" }, { "before", 2 }, { "after", 1 } } } ) );
}

TEST_F( DiffVerb, StatesOfDifferentChipsAreRefused ) {
    encap( before_, "5", "2" );
    const Outcome small = cairnLt( { "run", "setEgrTunnelEcnEncap", "0", "5", "2", "--chip",
                                     "examples/chips/small.toml", "--state", after_ } );
    ASSERT_EQ( small.exitCode, 0 ) << small.err;
    const Outcome run = cairnLt( { "diff", before_, after_ } );
    EXPECT_EQ( run.exitCode, 2 );
    EXPECT_EQ( run.out, "" );
    EXPECT_EQ( run.err.find( "cairn-lt: " + before_ + " and " + after_ +
                             " are states of different chips: unit 0: table " ),
               0u )
        << run.err;
    EXPECT_EQ( ToolTest::lines( run.err ).size(), 1u );
}

TEST_F( DiffVerb, WhatIsNoStateIsRefused ) {
    encap( before_, "5", "2" );
    const Outcome missing = cairnLt( { "diff", before_, after_ } );
    EXPECT_EQ( missing.exitCode, 2 );
    EXPECT_EQ( missing.err,
               "cairn-lt: " + after_ + ": cannot be read: No such file or directory\n" );
    const Outcome other = cairnLt( { "diff", "README.md", before_ } );
    EXPECT_EQ( other.exitCode, 2 );
    EXPECT_EQ( other.err, "cairn-lt: README.md: neither a state file nor a recording; name a file "
                          "that --state has written, or what --record-to has\n" );
    const std::string broken = folder_.write( "broken.json", "{}" );
    const Outcome state = cairnLt( { "diff", broken, before_ } );
    EXPECT_EQ( state.exitCode, 2 );
    EXPECT_EQ( state.err.find( "cairn-lt: " + broken + ": not a state file: " ), 0u ) << state.err;
    EXPECT_EQ( ToolTest::lines( state.err ).size(), 1u );
}

} // namespace
