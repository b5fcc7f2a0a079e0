#include "tests/tools/Program.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <regex>
#include <set>
#include <string>
#include <vector>

// What the program offers to the scripts of the shells.

namespace {

using ToolTest::cairnLt;
using ToolTest::lines;
using Words = std::set<std::string>;

struct Offer {
    bool hasFiles = false;
    Words words = {};
};

// What is offered in place of the last word.
Offer offered( std::vector<std::string> words ) {
    words.insert( words.begin(), "complete" );
    const auto run = cairnLt( words );
    EXPECT_EQ( run.exitCode, 0 );
    EXPECT_EQ( run.err, "" );
    const std::vector<std::string> all = lines( run.out );
    Offer offer;
    if ( all.empty() ) {
        ADD_FAILURE() << "nothing is said";
        return offer;
    }
    EXPECT_TRUE( all.front() == "files" || all.front() == "words" ) << all.front();
    offer.hasFiles = all.front() == "files";
    for ( std::size_t i = 1; i < all.size(); ++i ) {
        EXPECT_EQ( std::count( all[i].begin(), all[i].end(), '\t' ), 1 ) << all[i];
        offer.words.insert( all[i].substr( 0, all[i].find( '\t' ) ) );
    }
    return offer;
}

// What a help lists below a heading.
Words listed( const std::string & help, const std::string & heading, const std::regex & name ) {
    Words names;
    const std::size_t begin = help.find( heading + ":" );
    for ( const std::string & line : lines( help.substr( std::min( begin, help.size() ) ) ) ) {
        if ( line.empty() )
            break;
        std::smatch match;
        if ( std::regex_search( line, match, name ) )
            names.insert( match[1] );
    }
    return names;
}

Words verbsOfHelp() {
    return listed( cairnLt( { "--help" } ).out, "Subcommands", std::regex( "^  ([a-z-]+) " ) );
}

TEST( CompletionTest, VerbsAreThoseOfTheHelp ) {
    EXPECT_EQ( offered( { "" } ).words, verbsOfHelp() );
    EXPECT_EQ( offered( {} ).words, verbsOfHelp() );
    EXPECT_EQ( offered( { "expl" } ).words, Words{ "explain" } );
    EXPECT_EQ( offered( { "--" } ).words, ( Words{ "--help", "--version" } ) );
}

TEST( CompletionTest, OptionsAreThoseOfTheHelp ) {
    for ( const std::string & verb : verbsOfHelp() ) {
        const Words options = listed( cairnLt( { verb, "--help" } ).out, "Options",
                                      std::regex( "^  (?:-[a-z],)?(--[a-z-]+)" ) );
        EXPECT_TRUE( options.contains( "--help" ) ) << verb;
        EXPECT_EQ( offered( { verb, "--" } ).words, options ) << verb;
    }
}

// The verb itself says which formats there are.
TEST( CompletionTest, FormatsAreThoseOfTheVerb ) {
    std::size_t compared = 0;
    for ( const std::string & verb : verbsOfHelp() ) {
        if ( !offered( { verb, "--format" } ).words.contains( "--format" ) )
            continue;
        const std::vector<std::vector<std::string>> others{
            {}, { "x" }, { "x", "x" }, { "--state", "x" } };
        std::string said;
        for ( const auto & other : others ) {
            std::vector<std::string> words{ verb, "--format", "none" };
            words.insert( words.end(), other.begin(), other.end() );
            said = cairnLt( words ).err;
            if ( said.find( "there is no format" ) != std::string::npos )
                break;
        }
        std::smatch match;
        ASSERT_TRUE( std::regex_search( said, match, std::regex( "; write (.*)\n" ) ) ) << said;
        const std::string list = match[1];
        Words formats;
        const std::regex format( "[a-z]+" );
        for ( std::sregex_iterator each( list.begin(), list.end(), format ), end; each != end;
              ++each )
            if ( each->str() != "or" )
                formats.insert( each->str() );
        EXPECT_EQ( offered( { verb, "--format", "" } ).words, formats )
            << verb << ": say so in tools/cli/Completion.cpp";
        ++compared;
    }
    EXPECT_GE( compared, 11u );
}

TEST( CompletionTest, RecipesAndTheirArguments ) {
    EXPECT_EQ( offered( { "run", "" } ).words.size(), 47u );
    EXPECT_EQ( offered( { "sweep", "setLearnCacheEnabled", "" } ).words.size(), 47u );
    EXPECT_EQ( offered( { "run", "setEgrTunnelEcnEncap", "" } ).words, Words{ "0" } );
    EXPECT_EQ( offered( { "run", "setEgrTunnelEcnEncap", "0", "" } ).words, Words{} );
    EXPECT_EQ( offered( { "run", "setLearnCacheEnabled", "0", "" } ).words,
               ( Words{ "false", "true" } ) );
    EXPECT_EQ( offered( { "run", "enable1BitEccRpt", "0", "EGR_TUNNEL" } ).words,
               Words{ "EGR_TUNNEL_ECN_ENCAPm" } );
    EXPECT_TRUE(
        offered( { "run", "programMonTraceCpu", "0", "" } ).words.contains( "L3_URPF_FAIL" ) );
    EXPECT_EQ( offered( { "run", "noSuchRecipe", "" } ).words, Words{} );
    // Options between them, and their values, are no arguments.
    EXPECT_EQ(
        offered( { "run", "--trace", "x", "setLearnCacheEnabled", "--dump", "0", "" } ).words,
        ( Words{ "false", "true" } ) );
    EXPECT_EQ( offered( { "run", "--", "setLearnCacheE" } ).words,
               Words{ "setLearnCacheEnabled" } );
}

TEST( CompletionTest, Faults ) {
    EXPECT_EQ( offered( { "run", "--inject", "op=commit,a" } ).words,
               ( Words{ "op=commit,at=", "op=commit,always" } ) );
    EXPECT_EQ( offered( { "run", "--inject=op=pt_" } ).words,
               Words{ "--inject=op=pt_entry_commit" } );
    EXPECT_EQ( offered( { "run", "--inject", "table=EGR_TUNNEL_ECN_ENCAPm,field=" } ).words,
               ( Words{ "table=EGR_TUNNEL_ECN_ENCAPm,field=ECN_PROFILE",
                        "table=EGR_TUNNEL_ECN_ENCAPm,field=INT_CN_MAP",
                        "table=EGR_TUNNEL_ECN_ENCAPm,field=OUTER_ECN" } ) );
    EXPECT_TRUE( offered( { "run", "--inject", "field=" } ).words.contains( "field=SPEED" ) );
}

TEST( CompletionTest, ValuesThatAreKnown ) {
    EXPECT_EQ( offered( { "run", "--trace", "" } ).words,
               ( Words{ "ApiCairn/", "CairnLtHelper/" } ) );
    EXPECT_EQ( offered( { "replay", "--ignore", "" } ).words, ( Words{ "codes", "values" } ) );
    EXPECT_EQ( offered( { "check", "--ignore", "written" } ).words, Words{ "written-twice" } );
    EXPECT_EQ( offered( { "trace", "--operation", "a" } ).words,
               ( Words{ "allocate", "attrib_set" } ) );
    EXPECT_EQ( offered( { "trace", "--recipe", "setLearnC" } ).words,
               ( Words{ "setLearnCacheDropEnabled", "setLearnCacheEnabled" } ) );
    EXPECT_EQ( offered( { "run", "--dump=" } ).words, ( Words{ "--dump=json", "--dump=text" } ) );
}

TEST( CompletionTest, FilesWhereTheyMayStand ) {
    EXPECT_TRUE( offered( { "bringup", "" } ).hasFiles );
    EXPECT_TRUE( offered( { "diff", "a", "" } ).hasFiles );
    EXPECT_TRUE( offered( { "run", "--state", "" } ).hasFiles );
    EXPECT_TRUE( offered( { "replay", "--from", "" } ).hasFiles );
    const Offer chip = offered( { "run", "--chip", "1=" } );
    EXPECT_TRUE( chip.hasFiles );
    EXPECT_EQ( chip.words, Words{ "1=reference" } );
    EXPECT_FALSE( offered( { "trace", "--from", "" } ).hasFiles );
    EXPECT_FALSE( offered( { "trace", "--unit", "" } ).hasFiles );
    EXPECT_FALSE( offered( { "run", "" } ).hasFiles );
    EXPECT_FALSE( offered( { "bringup", "a", "" } ).hasFiles );
}

TEST( CompletionTest, ChipsOfTheLine ) {
    const Support::TemporaryFolder folder;
    const std::string file = folder.path() + "/chip.toml";
    std::ofstream( file ) << "base = \"nothing\"\n[[tables]]\nname = \"OWNm\"\nkind = \"memory\"\n"
                             "fields = [ { name = \"F\", width = 8 } ]\n";
    EXPECT_EQ( offered( { "tables", "--chip", file, "" } ).words, Words{ "OWNm" } );
    EXPECT_EQ( offered( { "tables", "--chip=" + file, "" } ).words, Words{ "OWNm" } );
    EXPECT_EQ( offered( { "run", "--chip", "7=" + file, "setOpaqueTagIngress", "" } ).words,
               Words{ "7" } );
    // One that cannot be read is as good as none.
    std::ofstream( file ) << "base = ";
    EXPECT_TRUE( offered( { "tables", "--chip", file, "" } ).words.contains( "PC_PORT" ) );
}

TEST( CompletionTest, WhateverStandsThere ) {
    for ( const std::vector<std::string> & words : std::vector<std::vector<std::string>>{
              { "noSuchVerb", "" },
              { "list", "x", "" },
              { "run", "--nosuch", "" },
              { "run", "--nosuch=" },
              { "run", "--inject", ",,=," },
              { "run", "=" },
              { "run", "-", "" },
              { "run", std::string( 100'000, 'x' ) },
          } )
        EXPECT_FALSE( offered( words ).words.contains( "list" ) );
}

TEST( CompletionTest, IsNoVerbForPeople ) {
    EXPECT_EQ( cairnLt( { "--help" } ).out.find( "complete" ), std::string::npos );
    EXPECT_EQ( cairnLt( { "complet" } ).exitCode, 2 );
}

} // namespace
