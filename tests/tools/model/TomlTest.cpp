#include "tools/model/Toml.h"

#include "tests/tools/Program.h"
#include "tools/model/ChipFile.h"
#include "tools/model/Errors.h"
#include "tools/model/Files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <vector>

// Files that are made to break a reader.

namespace {

using ToolTest::cairnLt;
using ToolTest::lines;
using ToolTest::Outcome;

std::string refusal( const std::function<void()> & read ) {
    try {
        read();
    } catch ( const Tool::InputError & error ) {
        return error.what();
    }
    return "accepted";
}

std::string refusal( const std::string & toml ) {
    return refusal( [&] { Tool::TomlFile( toml, "x.toml" ); } );
}

std::string repeated( const std::string & text, std::size_t times ) {
    std::string all;
    all.reserve( text.size() * times );
    for ( std::size_t i = 0; i < times; ++i )
        all += text;
    return all;
}

const std::string tooDeep = ": nested more than 100 deep; make it flat";

TEST( TomlTest, NestsAsDeepAsTheLimit ) {
    EXPECT_EQ( refusal( "a" + repeated( ".a", 100 ) + " = 1" ), "accepted" );
    EXPECT_EQ( refusal( "[a" + repeated( ".a", 99 ) + "]" ), "accepted" );
    EXPECT_EQ( refusal( "a" + repeated( ".a", 101 ) + " = 1" ), "x.toml:1" + tooDeep );
    EXPECT_EQ( refusal( "[a" + repeated( ".a", 100 ) + "]" ), "x.toml:1" + tooDeep );
}

TEST( TomlTest, IsRefusedIfItNestsTooDeepInWhateverWay ) {
    constexpr std::size_t many = 50'000;
    for ( const std::string & toml : {
              "\nx" + repeated( ".a", many ) + " = 1",
              "\nx" + repeated( " . 'a'", many ) + " = 1",
              "\nx" + repeated( ".\"a\\\"\"", many ) + " = 1",
              "\n[x" + repeated( ".a", many ) + "]",
              "\n[[x" + repeated( ".a", many ) + "]]",
              "\nx = " + repeated( "{ a.a.a = ", many ),
              "\nx = " + repeated( "[", many ),
              "\nx = { y = \"\"\"t\"\"\"\"\", z" + repeated( ".a", many ) + " = 1 }",
              "\nx = { y = '''t'''', z" + repeated( ".a", many ) + " = 1 }",
              "# \"\"\"\nx" + repeated( ".a", many ) + " = 1",
          } )
        EXPECT_EQ( refusal( toml ), "x.toml:2" + tooDeep ) << toml.substr( 0, 40 );
}

TEST( TomlTest, DepthsOfAHeaderAndOfWhatFollowsAddUp ) {
    EXPECT_EQ( refusal( "[a" + repeated( ".a", 60 ) + "]\nb" + repeated( ".b", 60 ) + " = 1" ),
               "x.toml:2" + tooDeep );
    EXPECT_EQ( refusal( "a = [ 1,\n{ b" + repeated( ".b", 99 ) + " = 1 } ]" ),
               "x.toml:2" + tooDeep );
}

TEST( TomlTest, DotsThatNestNothingDoNotCount ) {
    const std::string dots( 1000, '.' );
    EXPECT_EQ( refusal( "a = \"" + dots + "\"\nb = '" + dots + "'\nc = \"\"\"" + dots + "\n" +
                        dots + "\"\"\"\n# " + dots + "\n'" + dots + "' = 1\nd = [ " +
                        repeated( "1.5, ", 1000 ) + "]\n" +
                        repeated( "[[e.f]]\ng.h = 1.5\n", 1000 ) ),
               "accepted" );
}

TEST( TomlTest, HasALimitOfValues ) {
    EXPECT_EQ( refusal( "a = [ " + repeated( "1,", 900'000 ) + " ]" ), "accepted" );
    EXPECT_EQ( refusal( "\na = [ " + repeated( "1,", 1'000'000 ) + " ]" ),
               "x.toml:2: more than 1000000 values; make several files of it" );
}

// --- Pieces

// The texts of `name` in the tables under [[key]], streamed or not.
std::string names( const Tool::TomlFile & file, const char * key ) {
    std::string all;
    const auto add = [&all]( const Tool::TomlNode & table ) {
        const Tool::TomlNode * name = table.find( "name" );
        all += ( name == nullptr ? "-" : name->text ) + ":" + std::to_string( table.line ) + " ";
    };
    if ( const Tool::TomlNode * tables = file.root().find( key ) )
        std::for_each( tables->items.begin(), tables->items.end(), add );
    file.forEachStreamed( add );
    return all;
}

const char * const twoKeys = R"(title = "x"
[[a]]
name = "a1"
[[b]]
name = "b1"
[b.part]
name = "not this"
[[b.list]]
[[b]]
[[a]]
name = """
[[a]]
"""
)";

TEST( TomlPiecesTest, TablesOfAKeyAreInTheOrderOfTheFileWithTheirLines ) {
    const Tool::TomlFile file( twoKeys, "x.toml" );
    EXPECT_EQ( file.root().members.size(), 3u );
    EXPECT_EQ( names( file, "a" ), "a1:2 [[a]]\n:10 " );
    EXPECT_EQ( names( file, "b" ), "b1:4 -:9 " );
}

TEST( TomlPiecesTest, StreamedTablesAreThoseThatAreLeftOut ) {
    const Tool::TomlFile file( twoKeys, "x.toml", "b" );
    EXPECT_EQ( file.root().find( "b" ), nullptr );
    EXPECT_EQ( names( file, "b" ), "b1:4 -:9 " );
    EXPECT_EQ( names( Tool::TomlFile( twoKeys, "x.toml", "a" ), "a" ), "a1:2 [[a]]\n:10 " );
}

TEST( TomlPiecesTest, PartsOfATableMayFollowAnotherTable ) {
    const Tool::TomlFile file( "[[a]]\n[[b]]\n[a.part]\nname = 'p'\n[c]\n", "x.toml", "a" );
    const Tool::TomlNode * tables = file.root().find( "a" );
    ASSERT_NE( tables, nullptr );
    ASSERT_NE( tables->items.at( 0 ).find( "part" ), nullptr );
    EXPECT_EQ( tables->items[0].find( "part" )->find( "name" )->line, 4 );
    EXPECT_NE( file.root().find( "c" ), nullptr );
    file.forEachStreamed( []( const Tool::TomlNode & ) { FAIL() << "read already"; } );
}

TEST( TomlPiecesTest, AKeyIsNotGivenTwice ) {
    EXPECT_EQ( refusal( "a = []\n[[a]]\n" ), "x.toml:2: not TOML: there is a \"a\" already" );
    EXPECT_EQ( refusal( "[a.b]\n[[a]]\n" ), "x.toml:2: not TOML: there is a \"a\" already" );
    EXPECT_NE( refusal( "[[a]]\n[a]\n" ), "accepted" );
    EXPECT_NE( refusal( "[[a]]\n[[b]]\n[a]\n" ), "accepted" );
}

TEST( TomlPiecesTest, WhatIsNoTomlIsRefusedAtItsLineInWhateverPiece ) {
    const std::string wrong =
        repeated( "[[steps]]\nrecipe = 'x'\n", 10'000 ) + "[[steps]]\nrecipe = \n";
    EXPECT_EQ( refusal( wrong ).substr( 0, 22 ), "x.toml:20002: not TOML" );
    const Tool::TomlFile file( wrong, "x.toml", "steps" );
    EXPECT_EQ( refusal( [&] { names( file, "steps" ); } ).substr( 0, 22 ),
               "x.toml:20002: not TOML" );
}

TEST( TomlPiecesTest, EachTableMayHaveAsManyValuesAsTheLimit ) {
    const std::string table = "[[a]]\nb = [ " + repeated( "1,", 600'000 ) + " ]\n";
    EXPECT_EQ( refusal( table + table ), "accepted" );
    EXPECT_EQ( refusal( table + table + "[c]\n" ),
               "x.toml:4: more than 1000000 values; make several files of it" );
}

// --- The same given to the tool

std::string input( const Support::TemporaryFolder & folder, const std::string & contents ) {
    return folder.write( "x.toml", contents );
}

std::string complaint( const std::string & file, int line, const std::string & what ) {
    return "cairn-lt: " + file + ":" + std::to_string( line ) + what + "\n";
}

TEST( HostileFileTest, EndsInOneLineWhereverItIsGiven ) {
    const Support::TemporaryFolder folder;
    constexpr std::size_t many = 50'000;
    for ( const std::string & toml :
          { "a" + repeated( ".a", many ) + " = 1\n", "[a" + repeated( ".a", many ) + "]\n" } ) {
        const std::string file = input( folder, toml );
        for ( const std::vector<std::string> & command :
              { std::vector<std::string>{ "bringup", file },
                { "run", "setOpaqueTagEgress", "0", "--chip", file },
                { "explain", "setOpaqueTagEgress", "--model", file } } ) {
            const Outcome run = cairnLt( command );
            EXPECT_EQ( run.exitCode, 2 ) << command[0];
            EXPECT_EQ( run.err, complaint( file, 1, tooDeep ) );
        }
    }
}

TEST( HostileFileTest, AFileWithoutEndIsRefusedByItsSize ) {
    const std::string message =
        "cairn-lt: /dev/zero: is larger than 256 MiB; name a smaller file\n";
    for ( const std::vector<std::string> & command :
          { std::vector<std::string>{ "bringup", "/dev/zero" },
            { "run", "setOpaqueTagEgress", "0", "--chip", "/dev/zero" },
            { "dump", "--state", "/dev/zero" } } ) {
        const Outcome run = cairnLt( command );
        EXPECT_EQ( run.exitCode, 2 ) << command[0];
        EXPECT_EQ( run.err, message );
    }
}

// The parser alone would take more than twenty times the file.
TEST( HostileFileTest, ALongBringUpTakesASmallMultipleOfItsSize ) {
    if ( ToolTest::isSanitized )
        GTEST_SKIP() << "a sanitizer's own memory is beyond the limit";
    const Support::TemporaryFolder folder;
    const std::string bringup = "[[chips]]\nname = 'leaf'\nunit = 0\n" +
                                repeated( "[[steps]]\nrecipe = 'setEgrTunnelEcnEncap'\n"
                                          "arguments = { unit = 0, index = 3, outerEcn = 2 }\n",
                                          80'000 );
    const std::string file = input( folder, bringup );
    const Outcome run = cairnLt( { "explain", "setEgrTunnelEcnEncap", "--model", file }, {}, [&] {
        const rlim_t bytes = ( rlim_t( 64 ) << 20 ) + 8 * bringup.size();
        const rlimit limit{ bytes, bytes };
        ::setrlimit( RLIMIT_AS, &limit );
    } );
    EXPECT_EQ( run.exitCode, 0 ) << run.err;
}

TEST( HostileFileTest, ManyChipsAreRefused ) {
    const Support::TemporaryFolder folder;
    std::ostringstream chips;
    for ( int i = 0; i <= 1024; ++i )
        chips << "[[chips]]\nname = \"chip" << i << "\"\nunit = " << i << "\n";
    const std::string file = input( folder, chips.str() );
    const Outcome run = cairnLt( { "bringup", file } );
    EXPECT_EQ( run.exitCode, 2 );
    EXPECT_EQ( run.err, "cairn-lt: " + file + ":3073: more than 1024 chips; describe fewer\n" );
}

TEST( HostileFileTest, ManyFieldsAreReadInTheTimeTheyTake ) {
    std::ostringstream chip;
    chip << "base = \"nothing\"\n[[tables]]\nname = \"T1m\"\nkind = \"memory\"\nfields = [\n";
    for ( int i = 0; i < 100'000; ++i )
        chip << "{ name = \"F" << i << "\", width = 1 },\n";
    chip << "]\n";
    EXPECT_EQ( refusal( [&] { Tool::parseChipFile( chip.str(), "x.toml" ); } ),
               "x.toml:3: table T1m: its fields have 100000 elements together, 4096 are possible; "
               "make the arrays shorter" );
}

} // namespace
