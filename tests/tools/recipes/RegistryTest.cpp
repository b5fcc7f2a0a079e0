#include "tools/recipes/Registry.h"

#include "tools/model/Arguments.h"
#include "tools/model/Model.h"

#include "sim/Schema.h"
#include "tests/tools/Program.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

namespace {

using Tool::ArgumentType;
using Tool::Recipe;

TEST( RegistryTest, HoldsEachRecipeOnce ) {
    std::set<std::string_view> names;
    for ( const Recipe & recipe : Tool::recipes() )
        EXPECT_TRUE( names.insert( recipe.name ).second ) << recipe.name;
}

TEST( RegistryTest, HoldsWhatTheLibraryExports ) {
    // "Cairn::setEgrTunnelEcnEncap(unsigned int, unsigned int, unsigned int)"
    std::set<std::string> exported;
    for ( const std::string & line :
          ToolTest::lines( Support::contents( SOURCE_TREE "/Cairn/exports.map" ) ) ) {
        const auto scope = line.find( "Cairn::" );
        const auto parenthesis = line.find( '(' );
        if ( scope != std::string::npos && parenthesis != std::string::npos )
            exported.insert( line.substr( scope + 7, parenthesis - scope - 7 ) );
    }
    std::set<std::string> registered;
    for ( const Recipe & recipe : Tool::recipes() )
        registered.emplace( recipe.name );
    EXPECT_EQ( registered, exported );
}

TEST( RegistryTest, FamiliesStandTogether ) {
    std::set<std::string_view> seen;
    std::string_view last;
    for ( const Recipe & recipe : Tool::recipes() ) {
        if ( recipe.family != last ) {
            EXPECT_TRUE( seen.insert( recipe.family ).second ) << recipe.name;
        }
        last = recipe.family;
    }
    EXPECT_EQ( seen.size(), 11u );
}

TEST( RegistryTest, EveryRecipeIsDescribed ) {
    for ( const Recipe & recipe : Tool::recipes() ) {
        EXPECT_TRUE( recipe.summary.ends_with( '.' ) ) << recipe.name;
        EXPECT_NE( recipe.invoke, nullptr ) << recipe.name;
        std::set<std::string_view> names;
        for ( const Tool::Parameter & parameter : recipe.parameters() ) {
            EXPECT_FALSE( parameter.name.empty() ) << recipe.name;
            EXPECT_TRUE( names.insert( parameter.name ).second ) << recipe.name;
        }
    }
}

TEST( RegistryTest, TypesComeFromTheSignatures ) {
    const Recipe & recipe = *Tool::findRecipe( "programL2EifSystemDestinationTable" );
    const std::vector<std::pair<std::string_view, ArgumentType>> expected = {
        { "chipInfo", ArgumentType::chip },   { "unit", ArgumentType::uint32 },
        { "modId", ArgumentType::uint32 },    { "portOrLagId", ArgumentType::uint32 },
        { "maxPorts", ArgumentType::uint32 }, { "l2If", ArgumentType::uint16 },
        { "lag", ArgumentType::boolean },     { "op", ArgumentType::boolean },
    };
    ASSERT_EQ( recipe.parameters().size(), expected.size() );
    for ( std::size_t i = 0; i < expected.size(); ++i ) {
        EXPECT_EQ( recipe.parameters()[i].name, expected[i].first );
        EXPECT_EQ( recipe.parameters()[i].type, expected[i].second );
    }
    EXPECT_EQ( recipe.result, Tool::ResultType::none );
    EXPECT_EQ( Tool::findRecipe( "verifyL2EifSystemDestinationTable" )->result,
               Tool::ResultType::boolean );
    EXPECT_EQ( Tool::findRecipe( "getOpaqueTagIngress" )->result, Tool::ResultType::uint16 );
    EXPECT_EQ( Tool::findRecipe( "getOpaqueTagIngress" )->parameters()[1].type,
               ArgumentType::uint8 );
    EXPECT_EQ( Tool::findRecipe( "programMonTraceCpu" )->parameters()[1].type, ArgumentType::text );
    EXPECT_TRUE( Tool::findRecipe( "lbPortInit" )->takesSharedState );
    EXPECT_TRUE( Tool::findRecipe( "lbPortInit" )->parameters().empty() );
}

TEST( RegistryTest, RecipesThatPrepareTakeTheSameArguments ) {
    for ( const Recipe & recipe : Tool::recipes() ) {
        if ( recipe.preparedBy.empty() )
            continue;
        const Recipe * before = Tool::findRecipe( recipe.preparedBy );
        ASSERT_NE( before, nullptr ) << recipe.name;
        ASSERT_EQ( before->parameters().size(), recipe.parameters().size() ) << recipe.name;
        for ( std::size_t i = 0; i < recipe.parameters().size(); ++i )
            EXPECT_EQ( before->parameters()[i].type, recipe.parameters()[i].type ) << recipe.name;
    }
}

TEST( RegistryTest, SamplesAreArguments ) {
    const Tool::Model model =
        Tool::defaultModel( { Tool::defaultChip( 3, Sim::referenceSchema(), "reference" ) } );
    for ( const Recipe & recipe : Tool::recipes() )
        EXPECT_NO_THROW(
            Tool::parseArguments( recipe, Tool::sampleArguments( recipe, model ), model ) )
            << recipe.name;
}

TEST( RegistryTest, FindsNothingUnderAWrongName ) {
    EXPECT_EQ( Tool::findRecipe( "setEgrTunnelEcnEncaps" ), nullptr );
    EXPECT_EQ( Tool::findRecipe( "" ), nullptr );
}

} // namespace
