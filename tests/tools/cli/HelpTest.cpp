#include "tests/tools/Program.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

// The help, and the documents about it.

namespace {

using ToolTest::cairnLt;
using ToolTest::lines;

// The verbs, as the help of the program lists them.
std::vector<std::string> verbs() {
    const std::string help = cairnLt( { "--help" } ).out;
    const std::string list = help.substr( help.find( "Subcommands:" ) );
    std::vector<std::string> names;
    for ( const std::string & line : lines( list ) ) {
        std::smatch match;
        if ( std::regex_search( line, match, std::regex( "^  ([a-z-]+)  " ) ) )
            names.push_back( match[1] );
    }
    return names;
}

// The long options that a text names.
std::set<std::string> optionsIn( const std::string & text ) {
    std::set<std::string> names;
    const std::regex option( "(^|[^-\\w])(--[a-z][a-z-]*)" );
    for ( std::sregex_iterator each( text.begin(), text.end(), option ), end; each != end; ++each )
        names.insert( ( *each )[2] );
    return names;
}

// The options that a verb has, by its help.
std::set<std::string> optionsOf( const std::string & help ) {
    std::string list;
    for ( const std::string & line : lines( help ) ) {
        if ( line.starts_with( "  -" ) )
            list += line.substr( 0, line.find( "   " ) ) + "\n";
    }
    return optionsIn( std::regex_replace( list, std::regex( "-h,|\\{[^}]*\\}" ), "" ) );
}

TEST( HelpTest, DocumentHoldsTheHelpOfEachVerb ) {
    const std::string document = Support::contents( SOURCE_TREE "/docs/commands.md" );
    std::vector<std::vector<std::string>> commands{ { "--help" } };
    for ( const std::string & verb : verbs() )
        commands.push_back( { verb, "--help" } );
    EXPECT_GE( commands.size(), 8u );
    std::size_t blocks = 0;
    for ( std::size_t at = 0; ( at = document.find( "```console\n", at ) ) != std::string::npos;
          ++at )
        ++blocks;
    EXPECT_EQ( blocks, commands.size() ) << "a verb that there is no more?";
    for ( const auto & command : commands ) {
        std::string line = "$ build/bringup/bin/cairn-lt";
        for ( const std::string & word : command )
            line += " " + word;
        const std::string block = "```console\n" + line + "\n" + cairnLt( command ).out + "```\n";
        EXPECT_NE( document.find( block ), std::string::npos )
            << line << ": renew docs/commands.md with scripts/samples.py";
    }
}

// Where a document calls the tool, the verb has the options.
TEST( HelpTest, CommandsInDocumentsAreOnesThatThereAre ) {
    std::map<std::string, std::set<std::string>> options;
    for ( const std::string & verb : verbs() )
        options[verb] = optionsOf( cairnLt( { verb, "--help" } ).out );
    EXPECT_TRUE( options["run"].contains( "--inject" ) );
    EXPECT_TRUE( options["run"].contains( "--dump" ) );

    std::vector<std::filesystem::path> documents{ SOURCE_TREE "/README.md",
                                                  SOURCE_TREE "/CONTRIBUTING.md" };
    for ( const auto & entry : std::filesystem::directory_iterator( SOURCE_TREE "/docs" ) ) {
        if ( entry.path().extension() == ".md" )
            documents.push_back( entry.path() );
    }
    const std::regex command( "cairn-lt ([a-z]+)([^|`>\n]*)" );
    std::size_t calls = 0;
    for ( const auto & document : documents ) {
        const std::string text = Support::contents( document );
        for ( std::sregex_iterator each( text.begin(), text.end(), command ), end; each != end;
              ++each ) {
            const std::string verb = ( *each )[1];
            const auto used = optionsIn( ( *each )[2] );
            if ( !options.contains( verb ) ) {
                EXPECT_TRUE( used.empty() ) << document << ": " << each->str();
                continue;
            }
            ++calls;
            for ( const std::string & option : used )
                EXPECT_TRUE( options[verb].contains( option ) ) << document << ": " << each->str();
        }
    }
    EXPECT_GT( calls, 20u );
}

TEST( HelpTest, OfInjectNamesTheOperations ) {
    const std::string help = cairnLt( { "run", "--help" } ).out;
    for ( const char * name : { "allocate", "attrib_set", "commit", "field_add", "field_array_add",
                                "field_get", "field_symbol_add", "free", "pt_entry_commit" } ) {
        EXPECT_NE( help.find( std::string( " " ) + name ), std::string::npos ) << name;
        EXPECT_EQ( cairnLt( { "run", "setOpaqueTagEgress", "0", "--inject",
                              std::string( "op=" ) + name + ",rc=-1,at=99" } )
                       .exitCode,
                   0 )
            << name;
    }
}

} // namespace
