#include "tools/model/State.h"

#include "tools/model/Errors.h"
#include "tools/model/Files.h"

#include "tests/tools/Program.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <ostream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using Sim::Rows;

class StateTest : public ::testing::Test {
  protected:
    std::string file( const char * name = "chip.json" ) const { return folder_.path( name ); }

    std::string refusal( const std::string & contents ) const {
        try {
            Sim::Chip chip;
            for ( const Tool::SavedUnit & kept : Tool::parseState( contents, "x.json" ) ) {
                chip.addUnit( kept.unit, kept.schema );
                Tool::restore( chip, { kept }, "x.json" );
            }
        } catch ( const Tool::InputError & error ) {
            return error.what();
        }
        return "accepted";
    }

    static void save( const Sim::Chip & chip, const std::string & file ) {
        Tool::replaceFile( file, Tool::stateText( chip ) );
    }

    Support::TemporaryFolder folder_;
};

// A chip with something of everything: rows of all kinds of tables, arrays, a symbol, a row whose
// hardware differs, a row of a preloaded table that was deleted.
void fill( Sim::Chip & chip ) {
    const auto commit = [&]( const char * table, auto && fields, uint32_t opcode ) {
        uint32_t handle = 0;
        ASSERT_EQ( chip.bcmlt_entry_allocate( 0, table, &handle ), 0 );
        fields( handle );
        const bool physical = chip.schema( 0 )->find( table )->isPhysical();
        ASSERT_EQ( physical
                       ? chip.bcmlt_pt_entry_commit( handle, opcode, chip.BCMLT_PRIORITY_NORMAL() )
                       : chip.bcmlt_entry_commit( handle, opcode, chip.BCMLT_PRIORITY_NORMAL() ),
                   0 )
            << chip.lastError();
        chip.bcmlt_entry_free( handle );
    };
    commit(
        "EGR_TUNNEL_ECN_ENCAPm",
        [&]( uint32_t handle ) {
            chip.bcmlt_entry_field_add( handle, "BCMLT_PT_INDEX", 5 );
            chip.bcmlt_entry_field_add( handle, "OUTER_ECN", 2 );
        },
        chip.BCMLT_PT_OPCODE_MODIFY() );
    commit(
        "EGR_VLAN_CONTROL_1r",
        [&]( uint32_t handle ) {
            chip.bcmlt_entry_field_add( handle, "BCMLT_PT_PORT", 7 );
            chip.bcmlt_entry_field_add( handle, "VT_ENABLE", 0 );
        },
        chip.BCMLT_PT_OPCODE_SET() );
    ASSERT_EQ( chip.pokeHardware( 0, "EGR_VLAN_CONTROL_1r", { .port = 7 }, "VT_KEY_TYPE", 9 ),
               Sim::Rc::ok );
    commit(
        "IPOST_LAG_RAND_NUM_SEED_1m",
        [&]( uint32_t handle ) {
            const uint64_t seed[] = { ~uint64_t( 0 ) };
            chip.bcmlt_entry_field_array_add( handle, "SEED", 1, seed, 1 );
        },
        chip.BCMLT_PT_OPCODE_MODIFY() );
    commit(
        "LEARN_CACHE_DATA_CONTROL",
        [&]( uint32_t handle ) {
            chip.bcmlt_entry_field_symbol_add( handle, "LEARN_CACHE_DATA_INFO_ID",
                                               "LEARN_VXLAN_VIEW" );
            chip.bcmlt_entry_field_add( handle, "LEARN_CACHE", 1 );
        },
        chip.BCMLT_OPCODE_INSERT() );
    commit(
        "SER_PT_CONTROL",
        [&]( uint32_t handle ) {
            chip.bcmlt_entry_field_symbol_add( handle, "PT_ID", "ING_EN_EFILTER_BITMAPm" );
        },
        chip.BCMLT_OPCODE_DELETE() );
}

TEST_F( StateTest, WhatIsKeptComesBackAsItWas ) {
    Sim::Chip before;
    before.addUnit( 0, Sim::referenceSchema() );
    before.addUnit( 5, Sim::referenceSchema() );
    fill( before );
    save( before, file() );

    const std::vector<Tool::SavedUnit> kept = Tool::loadState( file() );
    ASSERT_EQ( kept.size(), 2u );
    EXPECT_EQ( kept[1].unit, 5 );
    EXPECT_EQ( kept[0].schema, Sim::referenceSchema() );
    Sim::Chip after;
    for ( const Tool::SavedUnit & unit : kept )
        after.addUnit( unit.unit, unit.schema );
    Tool::restore( after, kept, file() );

    std::size_t rows = 0;
    for ( const int unit : { 0, 5 } ) {
        for ( const Sim::Table & table : before.schema( unit )->tables() ) {
            const auto expected = before.rows( unit, table.name, Rows::stored );
            EXPECT_EQ( after.rows( unit, table.name, Rows::stored ), expected ) << table.name;
            rows += expected.size();
        }
    }
    EXPECT_GT( rows, 10u );
    EXPECT_EQ( after.value( 0, "EGR_VLAN_CONTROL_1r", { .port = 7 }, "VT_KEY_TYPE", 0,
                            Sim::Copy::hardware ),
               9u );

    // A second file of the same chip is the same file.
    save( after, file( "again.json" ) );
    EXPECT_EQ( Support::contents( file( "again.json" ) ), Support::contents( file() ) );
}

TEST_F( StateTest, ThereIsNothingInAFileThatDoesNotExist ) {
    EXPECT_TRUE( Tool::loadState( file( "none.json" ) ).empty() );
}

TEST_F( StateTest, FilesOfAnotherKindAreRefused ) {
    const std::string remedy = "; name another file, or remove this one to start afresh";
    EXPECT_EQ(
        refusal( "{}" ),
        "x.json: not a state file: it does not begin with the format \"cairn-lt chip state\"" +
            remedy );
    EXPECT_EQ( refusal( R"({"format":"cairn-lt chip state","version":2,"units":[]})" ),
               "x.json: not a state file: version 2 is not known, this program reads version 1" +
                   remedy );
    EXPECT_EQ( refusal( "[" ), "x.json: not a state file: it is not JSON at byte 2" + remedy );
    EXPECT_EQ( refusal( "[1e999]" ),
               "x.json: not a state file: it holds a number that is too large" + remedy );
    EXPECT_NE( refusal( "" ), "accepted" );
}

struct BadState {
    std::string units;
    std::string what;
};

void PrintTo( const BadState & each, std::ostream * out ) { *out << each.what; }

class StateRefusalTest : public StateTest, public ::testing::WithParamInterface<BadState> {};

TEST_P( StateRefusalTest, SaysWhatIsWrong ) {
    EXPECT_EQ( refusal( std::string( R"({"format":"cairn-lt chip state","version":1,"units":)" ) +
                        GetParam().units + "}" ),
               "x.json: not a state file: " + GetParam().what +
                   "; name another file, or remove this one to start afresh" );
}

// The units of a chip with one table.
std::string units( const std::string & kind, const std::string & field, const std::string & row ) {
    return R"([{"unit":0,"tables":[{"name":"T1m","kind":")" + kind +
           R"(","rows":4,"instances":1,"ports":0,"preloaded":false,"fields":[)" + field +
           R"(],"contents":[)" + row + "]}]}]";
}

const std::string field = R"({"name":"F","width":4})";

const BadState badStates[] = {
    { "3", "\"units\" is not an array" },
    { "[{}]", "\"unit\" is missing" },
    { R"([{"unit":-1,"tables":[]}])", "\"unit\" is not a number from 0 to 65535" },
    { R"([{"unit":0,"tables":[]},{"unit":0,"tables":[]}])", "unit 0 is there twice" },
    { R"([{"unit":0,"tables":[{"name":7}]}])", "\"name\" is not a text" },
    { units( "sponge", field, "" ), "there is no kind \"sponge\"" },
    { units( "memory", R"({"name":"F","width":65})", "" ),
      "table T1m: field F: width 65 is not possible; give it 1 to 64 bits an element" },
    { units( "memory", R"({"name":"F","width":4,"symbols":[["A"]]})", "" ),
      "a symbol is not a name and a value" },
    { units( "memory", R"({"name":"F","width":4,"key":1})", "" ), "\"key\" is not true or false" },
    { units( "memory", field, R"({"values":[1],"written":"1","touched":true})" ),
      "\"at\" is missing" },
    { units( "memory", field, R"({"at":[0],"values":[1],"written":"1","touched":true})" ),
      "\"at\" is not an index, an instance and a port" },
    { units( "memory", field, R"({"at":[0,0,0],"values":[1,2],"written":"11","touched":true})" ),
      "table T1m: a row does not have a value for each element" },
    { units( "memory", field, R"({"at":[0,0,0],"values":["x"],"written":"1","touched":true})" ),
      "\"values\" is not a number from 0 to 18446744073709551615" },
};

INSTANTIATE_TEST_SUITE_P( All, StateRefusalTest, ::testing::ValuesIn( badStates ) );

TEST_F( StateTest, RowsThatDoNotFitAreRefused ) {
    for ( const char * row : { R"({"at":[4,0,0],"values":[1],"written":"1","touched":true})",
                               R"({"at":[0,0,0],"values":[16],"written":"1","touched":true})" } ) {
        const std::string message =
            refusal( R"({"format":"cairn-lt chip state","version":1,"units":)" +
                     units( "memory", field, row ) + "}" );
        EXPECT_TRUE( message.starts_with( "x.json: not a state file: T1m" ) ) << message;
    }
}

} // namespace
