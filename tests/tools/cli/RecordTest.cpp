#include "tests/support/TemporaryFolder.h"
#include "tests/tools/Program.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

// Recordings of runs, and the verb that shows them beside the messages.

namespace {

using Json = nlohmann::json;
using ToolTest::cairnLt;
using ToolTest::lines;
using ToolTest::Outcome;

class RecordTest : public ::testing::Test {
  protected:
    // A run whose second commit fails.
    RecordTest() {
        const Outcome run =
            cairnLt( { "run", "setLoadBalanceRandSeedCtrl", "0", "12345", "--record-to", folder(),
                       "--trace-dir", folder(), "--inject", "op=pt_entry_commit,rc=-30,at=2" } );
        EXPECT_NE( run.exitCode, 0 );
    }

    std::string folder() const { return temporary_.path( "recording" ); }

    std::vector<std::string> shown( std::vector<std::string> options ) const {
        std::vector<std::string> arguments{ "trace", folder(), "--format", "brief" };
        arguments.insert( arguments.end(), options.begin(), options.end() );
        const Outcome trace = cairnLt( arguments );
        EXPECT_EQ( trace.exitCode, 0 );
        EXPECT_EQ( trace.err, "" );
        std::vector<std::string> texts;
        for ( const std::string & line : lines( trace.out ) )
            texts.push_back( line.substr( line.find( ' ' ) + 1 ) ); // without the time
        return texts;
    }

    Support::TemporaryFolder temporary_;
};

const std::string commits[] = {
    "bcmlt_pt_entry_commit entry 1 IPOST_LAG_RAND_NUM_CTRL_0r BCMLT_PT_OPCODE_MODIFY "
    "BCMLT_PRIORITY_NORMAL -> rc 0",
    "bcmlt_pt_entry_commit entry 65537 IPOST_LAG_RAND_NUM_CTRL_1r BCMLT_PT_OPCODE_MODIFY "
    "BCMLT_PRIORITY_NORMAL -> rc -30",
};

TEST_F( RecordTest, CallsAndMessagesAreInOneOrder ) {
    const auto texts = shown( {} );
    ASSERT_FALSE( texts.empty() );
    EXPECT_EQ( texts.front(), "setLoadBalanceRandSeedCtrl unit: 0 seed: 12345" );
    EXPECT_EQ( texts[1], "bcmlt_entry_allocate unit 0 IPOST_LAG_RAND_NUM_CTRL_0r -> entry 1 rc 0" );
    EXPECT_EQ( texts[texts.size() - 2], commits[1] );
    EXPECT_EQ( texts.back(), "failureHook" );
}

TEST_F( RecordTest, CallsAreChosenByOperationTableUnitAndCode ) {
    EXPECT_EQ( shown( { "--operation", "pt_entry_commit" } ),
               ( std::vector<std::string>{ commits[0], commits[1] } ) );
    EXPECT_EQ( shown( { "--operation", "bcmlt_pt_entry_commit", "--table",
                        "IPOST_LAG_RAND_NUM_CTRL_0r" } ),
               std::vector<std::string>{ commits[0] } );
    EXPECT_EQ( shown( { "--code=-30" } ), std::vector<std::string>{ commits[1] } );
    EXPECT_EQ( shown( { "--unit", "1" } ), std::vector<std::string>() );
    EXPECT_EQ( shown( { "--unit", "0", "--match", "rc -30" } ),
               std::vector<std::string>{ commits[1] } );
    EXPECT_EQ( shown( { "--recipe", "setLoadBalanceRandSeedCtrl" } ).size(), 1u ) << "the message";
}

TEST_F( RecordTest, CallsAreJson ) {
    const Outcome trace = cairnLt( { "trace", folder(), "--code=-30", "--format", "json" } );
    const Json call = Json::parse( trace.out );
    EXPECT_EQ( call["call"], "bcmlt_pt_entry_commit" );
    EXPECT_EQ( call["unit"], 0 );
    EXPECT_EQ( call["table"], "IPOST_LAG_RAND_NUM_CTRL_1r" );
    EXPECT_EQ( call["opcode"], "BCMLT_PT_OPCODE_MODIFY" );
    EXPECT_EQ( call["lockHeld"], false );
    EXPECT_EQ( call["rc"], -30 );
}

TEST_F( RecordTest, OperationThatDoesNotExistIsRefused ) {
    const Outcome trace = cairnLt( { "trace", folder(), "--operation", "field_ad" } );
    EXPECT_EQ( trace.exitCode, 2 );
    EXPECT_NE( trace.err.find( "--operation: there is no operation \"field_ad\"" ),
               std::string::npos );
    EXPECT_NE( trace.err.find( "field_add" ), std::string::npos );
}

TEST( RecordToTest, FolderThatCannotBeMadeIsRefused ) {
    const Support::TemporaryFolder folder;
    const std::string file = folder.write( "file", "" );
    const Outcome run =
        cairnLt( { "run", "setEgrTunnelEcnEncap", "0", "5", "2", "--record-to", file + "/in" } );
    EXPECT_EQ( run.exitCode, 2 );
    EXPECT_NE( run.err.find( "--record-to: " + file + "/in: " ), std::string::npos );
}

} // namespace
