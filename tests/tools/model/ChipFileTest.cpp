#include "tools/model/ChipFile.h"

#include "tools/model/Errors.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace {

using Sim::FieldRole;
using Sim::TableKind;
using Tool::parseChipFile;

std::string refusalOfChip( const std::string & contents ) {
    try {
        parseChipFile( contents, "x.toml" );
    } catch ( const Tool::InputError & error ) {
        return error.what();
    }
    return "accepted";
}

TEST( ChipFileTest, TheReferenceChipCanBeTakenAsItIs ) {
    EXPECT_EQ( parseChipFile( "base = 'reference'", "x.toml" ), Sim::referenceSchema() );
}

TEST( ChipFileTest, TablesAreRemovedResizedAndAdded ) {
    const Sim::Schema schema = parseChipFile( R"(
base = "reference"
remove = [ "PC_PORT", "OPAQUE_TAG_CONFIGr" ]

[[resize]]
table = "EGR_TUNNEL_ECN_ENCAPm"
rows = 64

[[resize]]
table = "MMU_QSCH_SPECIAL_CONFIGr"
instances = 2

[[tables]]
name = "OPAQUE_TAG_CONFIGr"
kind = "register"
ports = 3
fields = [ { name = "VALID", width = 1 } ]
)",
                                              "x.toml" );
    EXPECT_EQ( schema.find( "PC_PORT" ), nullptr );
    EXPECT_EQ( schema.find( "EGR_TUNNEL_ECN_ENCAPm" )->size.rows, 64u );
    EXPECT_EQ( schema.find( "MMU_QSCH_SPECIAL_CONFIGr" )->size.instances, 2u );
    EXPECT_EQ( schema.find( "MMU_QSCH_SPECIAL_CONFIGr" )->size.rows, 1u );
    EXPECT_EQ( schema.find( "OPAQUE_TAG_CONFIGr" )->size.ports, 3u );
    EXPECT_EQ( schema.find( "OPAQUE_TAG_CONFIGr" )->fields.size(), 1u );
}

TEST( ChipFileTest, ATableIsDescribedFieldByField ) {
    const Sim::Schema schema = parseChipFile( R"(
description = "a chip of one table"
base = "nothing"
[[tables]]
name = "EVENTS"
kind = "logical"
rows = 8
preloaded = true
fields = [
    { name = "ID", width = 6, key = true, symbols = { FIRST = 1, SECOND = 5 } },
    { name = "MODE", width = 2, symbols = [ "OFF", "ON" ], reset = 1 },
    { name = "MASK", width = 64, power_on = "0xffffffffffffffff", reset = "0x8000000000000000" },
    { name = "LIST", width = 8, length = 4, power_on = 0 },
]
)",
                                              "x.toml" );
    ASSERT_EQ( schema.tables().size(), 1u );
    const Sim::Table & table = schema.tables()[0];
    EXPECT_EQ( table.kind, TableKind::logical );
    EXPECT_EQ( table.size.rows, 8u );
    EXPECT_TRUE( table.preloaded );
    ASSERT_EQ( table.fields.size(), 4u );
    EXPECT_EQ( table.fields[0].role, FieldRole::key );
    EXPECT_EQ( table.fields[0].symbols,
               ( std::vector<Sim::Symbol>{ { "FIRST", 1 }, { "SECOND", 5 } } ) );
    EXPECT_EQ( table.fields[1].symbols, ( std::vector<Sim::Symbol>{ { "OFF", 0 }, { "ON", 1 } } ) );
    EXPECT_EQ( table.fields[1].role, FieldRole::data );
    EXPECT_EQ( table.fields[1].reset, 1u );
    EXPECT_EQ( table.fields[2].powerOn, ~uint64_t( 0 ) );
    EXPECT_EQ( table.fields[2].reset, uint64_t( 1 ) << 63 );
    EXPECT_EQ( table.fields[3].length, 4u );
}

struct BadChip {
    const char * contents;
    const char * message;
};

void PrintTo( const BadChip & each, std::ostream * out ) { *out << each.message; }

class ChipFileRefusalTest : public ::testing::TestWithParam<BadChip> {};

TEST_P( ChipFileRefusalTest, NamesFileLineAndRemedy ) {
    EXPECT_EQ( refusalOfChip( GetParam().contents ), GetParam().message );
}

constexpr BadChip badChips[] = {
    { "", "x.toml:1: a chip file needs a key \"base\"" },
    { "base = 'referense'",
      "x.toml:1: there is no base \"referense\"; write \"reference\" or \"nothing\"" },
    { "base = 7", "x.toml:1: base must be a text, not an integer" },
    { "base = 'nothing'\nresizes = []",
      "x.toml:2: a chip file has no key \"resizes\"; the nearest is resize" },
    { "base = 'reference'\nremove = [\n  'PC_PORT',\n  'PC_PORTS',\n]",
      "x.toml:4: there is no table PC_PORTS" },
    { "base = 'reference'\nremove = 'PC_PORT'", "x.toml:2: remove must be an array, not a text" },
    { "base = 'reference'\n[[resize]]\nrows = 4", "x.toml:2: [[resize]] needs a key \"table\"" },
    { "base = 'reference'\n[[resize]]\ntable = 'EGR_TUNNEL_ECN_ENCAPn'\nrows = 4",
      "x.toml:3: there is no table EGR_TUNNEL_ECN_ENCAPn; the nearest name is "
      "EGR_TUNNEL_ECN_ENCAPm" },
    { "base = 'reference'\n[[resize]]\ntable = 'EGR_TUNNEL_ECN_ENCAPm'\nrows = 0",
      "x.toml:3: table EGR_TUNNEL_ECN_ENCAPm: it has no rows; give it at least 1" },
    { "base = 'reference'\n[[resize]]\ntable = 'EGR_TUNNEL_ECN_ENCAPm'\nrows = -4",
      "x.toml:4: rows: -4 is negative; write 0 to 4294967295" },
    { "base = 'reference'\n[resize]\ntable = 'EGR_TUNNEL_ECN_ENCAPm'",
      "x.toml:2: [[resize]] must be an array, not a table" },
    { "base = 'nothing'\n[[tables]]\nname = 'T'", "x.toml:2: table T needs a key \"kind\"" },
    { "base = 'nothing'\n[[tables]]\nname = 'T'\nkind = 'table'",
      "x.toml:4: there is no kind \"table\"; write \"logical\", \"register\" or \"memory\"" },
    { "base = 'nothing'\n[[tables]]\nname = 'T'\nkind = 'memory'\n"
      "fields = [ { name = 'F', width = 1 } ]",
      "x.toml:3: table T: the name of a memory ends in \"m\"; rename it, or change its kind" },
    { "base = 'nothing'\n[[tables]]\nname = 'Tm'\nkind = 'memory'\n"
      "fields = [\n  { name = 'F' },\n]",
      "x.toml:6: field F needs a key \"width\"" },
    { "base = 'nothing'\n[[tables]]\nname = 'Tm'\nkind = 'memory'\n"
      "fields = [\n  { name = 'F', width = 1 },\n  { name = 'G', width = 65 },\n]",
      "x.toml:7: table Tm: field G: width 65 is not possible; give it 1 to 64 bits an element" },
    { "base = 'nothing'\n[[tables]]\nname = 'Tm'\nkind = 'memory'\n"
      "fields = [\n  { name = 'F', width = 1, symbols = [ 1 ] },\n]",
      "x.toml:6: a symbol must be a text, not an integer" },
    { "base = 'nothing'\n[[tables]]\nname = 'Tm'\nkind = 'memory'\n"
      "fields = [ { name = 'F', width = 4, reset = 'x' } ]",
      "x.toml:5: field F: reset: \"x\" is not an unsigned number; write it in decimal, or in "
      "hexadecimal after 0x" },
    { "base = 'reference'\n[[tables]]\nname = 'PC_PORT'\nkind = 'logical'\n"
      "fields = [ { name = 'F', width = 1 } ]",
      "x.toml:3: there is a table PC_PORT already; remove it first, or rename the new one" },
};

INSTANTIATE_TEST_SUITE_P( All, ChipFileRefusalTest, ::testing::ValuesIn( badChips ) );

TEST( ChipFileTest, WhatIsNotTomlIsRefusedWithItsLine ) {
    const std::string message = refusalOfChip( "base = 'reference'\nremove = [\n" );
    EXPECT_TRUE( message.starts_with( "x.toml:" ) ) << message;
    EXPECT_NE( message.find( ": not TOML: " ), std::string::npos ) << message;
    EXPECT_EQ( message.find( '\n' ), std::string::npos ) << message;
}

TEST( ChipFileTest, AMissingFileIsNamed ) {
    try {
        Tool::loadChip( "/nowhere/chip.toml" );
        FAIL();
    } catch ( const Tool::InputError & error ) {
        EXPECT_STREQ( error.what(),
                      "/nowhere/chip.toml: cannot be read: No such file or directory" );
    }
}

TEST( ChipFileTest, AFolderIsNotAFile ) {
    EXPECT_THROW( Tool::loadChip( "/tmp" ), Tool::InputError );
}

} // namespace
