#include "sim/Schema.h"
#include "tests/tools/Program.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <cstddef>
#include <string>
#include <vector>

// cairn-lt tables: what a chip looks like.

namespace {

using Json = nlohmann::json;
using ToolTest::cairnLt;
using ToolTest::lines;
using ToolTest::Outcome;

TEST( ChipTablesTest, AllTablesOfTheReferenceChipAreListedWithKindAndSize ) {
    const Outcome run = cairnLt( { "tables" } );
    EXPECT_EQ( run.exitCode, 0 ) << run.err;
    const Sim::Schema schema = Sim::referenceSchema();
    const std::vector<std::string> shown = lines( run.out );
    ASSERT_EQ( shown.size(), 2 + schema.tables().size() );
    for ( std::size_t i = 0; i < schema.tables().size(); ++i )
        EXPECT_TRUE( shown[2 + i].starts_with( "  " + schema.tables()[i].name + " " ) )
            << shown[2 + i];
    EXPECT_EQ( shown[0], "unit 0: reference, 43 tables" );
    EXPECT_EQ( ToolTest::linesWith( run.out, "EGR_VLAN_CONTROL_1r" )[0],
               "  EGR_VLAN_CONTROL_1r                         register       1      1          "
               "1024   6" );
}

TEST( ChipTablesTest, TableThatIsNamedIsShownWithItsFields ) {
    const Outcome run = cairnLt( { "tables", "PC_PORT" } );
    EXPECT_EQ( run.exitCode, 0 ) << run.err;
    EXPECT_EQ( run.out,
               "PC_PORT: logical table of unit 0, at most 1024 rows\n"
               "  field           role  bits  elements  reset         power-on      symbols\n"
               "  PORT_ID         key   16    1         -             -\n"
               "  ENABLE          data  1     1         0             1\n"
               "  NUM_LANES       data  4     1         0             5\n"
               "  SPEED           data  20    1         0             0x5a5a5\n"
               "  AUTONEG         data  1     1         0             1\n"
               "  MAX_FRAME_SIZE  data  14    1         0             9637\n"
               "  LOOPBACK_MODE   data  2     1         PC_LPBK_NONE  PC_LPBK_NONE  "
               "PC_LPBK_NONE=0, PC_LPBK_MAC=1, PC_LPBK_PHY=2\n"
               "  FEC_MODE        data  2     1         PC_FEC_NONE   PC_FEC_NONE   "
               "PC_FEC_NONE=0, PC_FEC_BASE_R=1, PC_FEC_RS=2\n" );
}

TEST( ChipTablesTest, WhatAddressesARegisterOrMemoryIsSaid ) {
    const auto heading = []( const char * table, const char * chip ) {
        return lines( cairnLt( { "tables", table, "--chip", chip } ).out ).at( 0 );
    };
    EXPECT_EQ( heading( "EGR_TUNNEL_ECN_ENCAPm", "reference" ),
               "EGR_TUNNEL_ECN_ENCAPm: memory of unit 0, 256 rows, BCMLT_PT_INDEX 0 to 255" );
    EXPECT_EQ( heading( "EGR_VLAN_CONTROL_1r", "reference" ),
               "EGR_VLAN_CONTROL_1r: register of unit 0, 1 row; BCMLT_PT_PORT 0 to 1023" );
    EXPECT_EQ( heading( "MMU_QSCH_SPECIAL_CONFIGr", "examples/chips/large.toml" ),
               "MMU_QSCH_SPECIAL_CONFIGr: register of unit 0, 1 row; BCMLT_PT_INSTANCE 0 to 15" );
}

TEST( ChipTablesTest, DocumentHoldsAllThatASchemaHolds ) {
    const Outcome run = cairnLt( { "tables", "--format", "json" } );
    EXPECT_EQ( run.exitCode, 0 ) << run.err;
    const Json unit = Json::parse( run.out )["units"].at( 0 );
    EXPECT_EQ( unit["unit"], 0 );
    EXPECT_EQ( unit["source"], "reference" );
    const Sim::Schema schema = Sim::referenceSchema();
    ASSERT_EQ( unit["tables"].size(), schema.tables().size() );
    for ( std::size_t i = 0; i < schema.tables().size(); ++i ) {
        const Sim::Table & table = schema.tables()[i];
        const Json & shown = unit["tables"][i];
        SCOPED_TRACE( table.name );
        EXPECT_EQ( shown["name"], table.name );
        EXPECT_EQ( shown["kind"], Sim::kindName( table.kind ) );
        EXPECT_EQ( shown["rows"], table.size.rows );
        if ( table.isPhysical() ) {
            EXPECT_EQ( shown["instances"], table.size.instances );
            EXPECT_EQ( shown["ports"], table.size.ports );
        } else {
            EXPECT_EQ( shown["preloaded"], table.preloaded );
        }
        ASSERT_EQ( shown["fields"].size(), table.fields.size() );
        for ( std::size_t j = 0; j < table.fields.size(); ++j ) {
            const Sim::Field & field = table.fields[j];
            const Json & shownField = shown["fields"][j];
            EXPECT_EQ( shownField["name"], field.name );
            EXPECT_EQ( shownField["width"], field.width );
            EXPECT_EQ( shownField["length"], field.length );
            EXPECT_EQ( shownField["role"], field.role == Sim::FieldRole::key ? "key" : "data" );
            EXPECT_EQ( shownField["symbols"].size(), field.symbols.size() );
            for ( const Sim::Symbol & symbol : field.symbols )
                EXPECT_EQ( shownField["symbols"][symbol.name], symbol.value );
            if ( field.role == Sim::FieldRole::data ) {
                EXPECT_EQ( shownField["reset"], field.reset );
                EXPECT_EQ( shownField["power_on"], field.initial() );
            }
        }
    }
}

TEST( ChipTablesTest, ChipsComeFromOptionsAsInOtherVerbs ) {
    const std::vector<std::string> twoChips{ "tables", "--chip", "reference", "--chip",
                                             "7=examples/chips/small.toml" };
    std::vector<std::string> one = twoChips;
    one.insert( one.end(), { "--unit", "7", "--format", "json" } );
    EXPECT_EQ( Json::parse( cairnLt( one ).out )["units"].size(), 1u );
    EXPECT_EQ(
        ToolTest::linesWith( cairnLt( twoChips ).out, "unit 7: examples/chips/small.toml" ).size(),
        1u );

    const Support::TemporaryFolder folder;
    const std::string state = folder.path( "chip.json" );
    cairnLt( { "run", "setOpaqueTagEgress", "0", "--state", state } );
    EXPECT_EQ( lines( cairnLt( { "tables", "--state", state } ).out ).size(), 45u );
    EXPECT_EQ( lines( cairnLt( { "tables", "--model", "examples/kova.toml" } ).out ).at( 0 ),
               "unit 0: examples/chips/kova.toml, 41 tables" );
}

TEST( ChipTablesTest, WhatDoesNotExistIsAnsweredWithTheNearestThatDoes ) {
    const Outcome table = cairnLt( { "tables", "PC_PROT" } );
    EXPECT_EQ( table.exitCode, 2 );
    EXPECT_EQ( table.out, "" );
    EXPECT_EQ( table.err, "cairn-lt: there is no table \"PC_PROT\"; the nearest is PC_PORT; "
                          "\"cairn-lt tables\" shows all\n" );
    const Outcome unit = cairnLt( { "tables", "--unit", "3" } );
    EXPECT_EQ( unit.exitCode, 2 );
    EXPECT_EQ( unit.err,
               "cairn-lt: --unit: there is no unit 3; \"cairn-lt tables\" without --unit shows "
               "all\n" );
}

} // namespace
