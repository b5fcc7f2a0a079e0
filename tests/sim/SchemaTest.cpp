#include "tests/sim/TestChip.h"

#include <gtest/gtest.h>

#include <functional>

using namespace Sim;
using SimTest::smallSchema;

namespace {

TEST( FieldTest, MaximumAndInitialValue ) {
    EXPECT_EQ( ( Field{ .name = "F", .width = 1 }.maximum() ), 1u );
    EXPECT_EQ( ( Field{ .name = "F", .width = 63 }.maximum() ), ~std::uint64_t( 0 ) >> 1 );
    EXPECT_EQ( ( Field{ .name = "F", .width = 64 }.maximum() ), ~std::uint64_t( 0 ) );
    EXPECT_EQ( ( Field{ .name = "F", .width = 1 }.initial() ), 1u );
    EXPECT_EQ( ( Field{ .name = "F", .width = 16 }.initial() ), 0xA5A5u );
    EXPECT_EQ( ( Field{ .name = "F", .width = 16, .powerOn = 0 }.initial() ), 0u );
    EXPECT_EQ(
        ( Field{ .name = "F", .width = 2, .symbols = { { "A", 2 } }, .reset = 2 }.initial() ), 2u );
}

TEST( FieldTest, SymbolsAreFoundByNameAndValue ) {
    const Field field = { .name = "F", .width = 4, .symbols = { { "A", 2 }, { "B", 7 } } };
    EXPECT_EQ( field.findSymbol( "B" )->value, 7u );
    EXPECT_EQ( field.findSymbol( std::uint64_t( 2 ) )->name, "A" );
    EXPECT_EQ( field.findSymbol( "C" ), nullptr );
    EXPECT_EQ( field.findSymbol( std::uint64_t( 3 ) ), nullptr );
    EXPECT_EQ( field.symbolNames(), ( std::vector<std::string_view>{ "A", "B" } ) );
}

TEST( SchemaTest, TablesAreFoundAddedAndRemoved ) {
    Schema schema = smallSchema();
    EXPECT_EQ( schema.check(), std::vector<std::string>{} );
    ASSERT_NE( schema.find( "MAPm" ), nullptr );
    EXPECT_EQ( schema.find( "MAPm" )->elementCount(), 7u );
    EXPECT_EQ( schema.find( "MAPm" )->find( "TAG" )->width, 12u );
    EXPECT_EQ( schema.find( "MAPm" )->find( "TAGS" ), nullptr );
    EXPECT_FALSE( schema.find( "ROUTE" )->isKeyless() );
    EXPECT_TRUE( schema.find( "POLICY" )->isKeyless() );
    EXPECT_EQ( schema.find( "MAP" ), nullptr );

    EXPECT_EQ( schema.remove( "MAPm" ), "" );
    EXPECT_EQ( schema.find( "MAPm" ), nullptr );
    EXPECT_EQ( schema.remove( "PORT" ), "there is no table PORT; the nearest name is PORTr" );
    EXPECT_EQ( schema.add( { .name = "NEW", .fields = { { .name = "F" } } } ), "" );
    EXPECT_EQ( schema.tables().back().name, "NEW" );
    EXPECT_EQ( schema.add( { .name = "NEW" } ),
               "there is a table NEW already; remove it first, or rename the new one" );
    EXPECT_EQ( schema.tables().back().fields.size(), 1u );
}

TEST( SchemaTest, TablesAreResized ) {
    Schema schema = smallSchema();
    EXPECT_EQ( schema.resize( "MAPm", { .rows = 64, .instances = 2 } ), "" );
    EXPECT_EQ( schema.find( "MAPm" )->size, ( TableSize{ .rows = 64, .instances = 2 } ) );
    EXPECT_EQ( schema.resize( "MAPm", { .rows = 0 } ),
               "table MAPm: it has no rows; give it at least 1" );
    EXPECT_EQ( schema.resize( "ROUTE", { .rows = 5, .ports = 3 } ),
               "table ROUTE: a logical table has neither instances nor ports; leave them out" );
    EXPECT_EQ( schema.resize( "MAPn", { .rows = 5 } ),
               "there is no table MAPn; the nearest name is MAPm" );
    EXPECT_EQ( schema.find( "MAPm" )->size, ( TableSize{ .rows = 64, .instances = 2 } ) );
}

struct ProblemCase {
    const char * table;
    std::function<void( Table & )> spoil;
    const char * problem;
};

TEST( SchemaTest, EveryProblemIsNamedWithItsRemedy ) {
    const std::vector<ProblemCase> cases = {
        { "MAPm", []( Table & t ) { t.name = "M APm"; },
          "table M APm: a table name is made of letters, digits and underscores; rename it" },
        { "MAPm", []( Table & t ) { t.name = ""; },
          "table : a table name is made of letters, digits and underscores; rename it" },
        { "MAPm", []( Table & t ) { t.name = "MAP"; },
          "table MAP: the name of a memory ends in \"m\"; rename it, or change its kind" },
        { "ONEr", []( Table & t ) { t.name = "ONEm"; },
          "table ONEm: the name of a register ends in \"r\"; rename it, or change its kind" },
        { "MAPm", []( Table & t ) { t.size.rows = 0; },
          "table MAPm: it has no rows; give it at least 1" },
        { "MAPm", []( Table & t ) { t.size.instances = 0; },
          "table MAPm: it has no instances; give it at least 1" },
        { "MAPm",
          []( Table & t ) {
              t.size = { 1u << 24, 1, 2 };
          },
          "table MAPm: more than 16777216 rows in all instances and ports; make it smaller" },
        { "MAPm",
          []( Table & t ) {
              t.size = { ~0u, ~0u, ~0u };
          },
          "table MAPm: more than 16777216 rows in all instances and ports; make it smaller" },
        { "POLICY", []( Table & t ) { t.size.rows = 2; },
          "table POLICY: a logical table without a key field "
          "has 1 row, not 2; give it a key field, or 1 row" },
        { "POLICY", []( Table & t ) { t.size.instances = 2; },
          "table POLICY: a logical table has neither instances nor ports; leave them out" },
        { "POLICY", []( Table & t ) { t.fields.clear(); },
          "table POLICY: it has no fields; give it at least 1" },
        { "ONEr", []( Table & t ) { t.fields.push_back( t.fields[0] ); },
          "table ONEr: field VALUE: there are two of that name; rename one" },
        { "ONEr", []( Table & t ) { t.fields[0].name = "A.B"; },
          "table ONEr: field A.B: a field name is made "
          "of letters, digits and underscores; rename it" },
        { "ONEr", []( Table & t ) { t.fields[0].name = "BCMLT_PT_INDEX"; },
          "table ONEr: field BCMLT_PT_INDEX: names that "
          "begin with BCMLT_ belong to the SDK; rename it" },
        { "ONEr", []( Table & t ) { t.fields[0].width = 0; },
          "table ONEr: field VALUE: width 0 is not possible; give it 1 to 64 bits an element" },
        { "ONEr", []( Table & t ) { t.fields[0].length = 0; },
          "table ONEr: field VALUE: it has no elements; give it a length of at least 1" },
        { "ONEr", []( Table & t ) { t.fields[0].length = 4097; },
          "table ONEr: its fields have 4097 elements together, "
          "4096 are possible; make the arrays shorter" },
        { "ONEr", []( Table & t ) { t.fields[0].role = FieldRole::key; },
          "table ONEr: field VALUE: a register is addressed by "
          "BCMLT_PT_INDEX; make the field data" },
        { "ROUTE", []( Table & t ) { t.fields[0].length = 2; },
          "table ROUTE: field VRF: an array cannot be a key; give it a length of 1" },
        { "ROUTE", []( Table & t ) { t.fields[3].reset = 4096; },
          "table ROUTE: field COST: reset value 4096 does not fit 12 bits; at most 4095" },
        { "ROUTE", []( Table & t ) { t.fields[3].powerOn = 4096; },
          "table ROUTE: field COST: power-on value 4096 does not fit 12 bits; at most 4095" },
        { "ROUTE", []( Table & t ) { t.fields[4].reset = 2; },
          "table ROUTE: field MODE: reset value 2 is none of "
          "its symbols; give it the value of one" },
        { "ROUTE", []( Table & t ) { t.fields[4].symbols[0].name = ""; },
          "table ROUTE: field MODE: symbol : a symbol is "
          "made of letters, digits and underscores; rename it" },
        { "ROUTE", []( Table & t ) { t.fields[4].symbols[0].name = "ON"; },
          "table ROUTE: field MODE: there are two symbols ON; rename one" },
        { "ROUTE", []( Table & t ) { t.fields[4].symbols[0].value = 1; },
          "table ROUTE: field MODE: symbol ON has the "
          "value of another one, 1; give it one of its own" },
        { "ROUTE", []( Table & t ) { t.fields[4].symbols[0].value = 8; },
          "table ROUTE: field MODE: symbol OFF = 8 does not fit 3 bits; widen the field" },
        { "ONEr", []( Table & t ) { t.preloaded = true; },
          "table ONEr: rows of a physical table always exist; do not preload it" },
        { "ROUTE", []( Table & t ) { t.preloaded = true; },
          "table ROUTE: only a table without a key, or with one key field that has symbols, can be "
          "preloaded; do not preload it" },
        { "EVENT", []( Table & t ) { t.fields[0].symbols.clear(); },
          "table EVENT: only a table without a key, or with one key field that has symbols, can be "
          "preloaded; do not preload it" },
        { "EVENT", []( Table & t ) { t.size.rows = 1; },
          "table EVENT: it has 1 rows and is preloaded with 2; give it that many" },
    };
    for ( const ProblemCase & test : cases ) {
        Table table = *smallSchema().find( test.table );
        EXPECT_EQ( check( table ), std::vector<std::string>{} );
        test.spoil( table );
        EXPECT_EQ( check( table ), std::vector<std::string>{ test.problem } );
    }
}

TEST( SchemaTest, AllProblemsOfAllTablesAreTold ) {
    Schema schema = smallSchema();
    schema.find( "MAPm" )->size.rows = 0;
    schema.find( "ONEr" )->fields.clear();
    schema.find( "PORTr" )->name = "ONEr";
    EXPECT_EQ( schema.check(), ( std::vector<std::string>{
                                   "table MAPm: it has no rows; give it at least 1",
                                   "table ONEr: it has no fields; give it at least 1",
                                   "table ONEr: there are two of that name; rename one" } ) );
}

} // namespace
