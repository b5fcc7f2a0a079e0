#include "tools/model/Arguments.h"

#include "tools/model/Errors.h"
#include "tools/model/Model.h"

#include "sim/Schema.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Tool::Argument;

class ArgumentsTest : public ::testing::Test {
  protected:
    std::vector<Argument> parse( const char * recipe, const std::vector<std::string> & texts ) {
        return Tool::parseArguments( *Tool::findRecipe( recipe ), texts, model_ );
    }

    std::string refusal( const char * recipe, const std::vector<std::string> & texts ) {
        try {
            parse( recipe, texts );
        } catch ( const Tool::InputError & error ) {
            return error.what();
        }
        return "accepted";
    }

    Tool::Model model_ = Tool::defaultModel(
        { Tool::defaultChip( 0, {}, "a.toml" ), Tool::defaultChip( 4, {}, "b.toml" ) } );
};

TEST_F( ArgumentsTest, IntegersAreDecimalOrHexadecimal ) {
    const auto arguments = parse( "setEgrTunnelEcnEncap", { "4", "0xFf", "4294967295" } );
    EXPECT_EQ( std::get<uint64_t>( arguments[0] ), 4u );
    EXPECT_EQ( std::get<uint64_t>( arguments[1] ), 255u );
    EXPECT_EQ( std::get<uint64_t>( arguments[2] ), 4294967295u );
}

TEST_F( ArgumentsTest, IntegersThatAreNoneAreRefused ) {
    const std::string remedy = "; write 0 to 4294967295, in decimal or in hexadecimal after 0x";
    for ( const char * text : { "", "two", "-1", "+1", " 1", "1 ", "1.5", "0x", "0xg", "1e3" } )
        EXPECT_EQ( refusal( "setEgrTunnelEcnEncap", { "0", "5", text } ),
                   "setEgrTunnelEcnEncap: outerEcn: \"" + std::string( text ) +
                       "\" is not a uint32_t" + remedy );
}

TEST_F( ArgumentsTest, IntegersBeyondTheTypeAreRefused ) {
    EXPECT_EQ( refusal( "setEgrTunnelEcnEncap", { "0", "5", "4294967296" } ),
               "setEgrTunnelEcnEncap: outerEcn: 4294967296 is too large for a uint32_t; write 0 to "
               "4294967295" );
    EXPECT_EQ( refusal( "setEgrTunnelEcnEncap", { "0", "5", "99999999999999999999999" } ),
               "setEgrTunnelEcnEncap: outerEcn: 99999999999999999999999 is too large for a "
               "uint32_t; write 0 to 4294967295" );
    EXPECT_EQ( refusal( "setOpaqueTagIngress", { "0", "256" } ),
               "setOpaqueTagIngress: tagType: 256 is too large for a uint8_t; write 0 to 255" );
    EXPECT_EQ( refusal( "programL2IfIngSystemPortTable",
                        { "chip0", "0", "1", "5", "128", "65536", "true" } ),
               "programL2IfIngSystemPortTable: l2If: 65536 "
               "is too large for a uint16_t; write 0 to 65535" );
}

TEST_F( ArgumentsTest, TheBitmapOfTheEgressFilterEndsAt4096Bits ) {
    EXPECT_EQ( std::get<uint64_t>( parse( "resetIngEnEfilterBitMap", { "0", "4096" } )[1] ),
               4096u );
    EXPECT_EQ( refusal( "resetIngEnEfilterBitMap", { "0", "4097" } ),
               "resetIngEnEfilterBitMap: bitMapBits: 4097 is too large: the recipe has that many "
               "zeros to hand over; write 0 to 4096" );
}

TEST_F( ArgumentsTest, BoolsHaveThreeSpellings ) {
    for ( const char * text : { "true", "1", "on" } )
        EXPECT_TRUE( std::get<bool>( parse( "setLearnCacheEnabled", { "0", text } )[1] ) ) << text;
    for ( const char * text : { "false", "0", "off" } )
        EXPECT_FALSE( std::get<bool>( parse( "setLearnCacheEnabled", { "0", text } )[1] ) ) << text;
    EXPECT_EQ(
        refusal( "setLearnCacheEnabled", { "0", "yes" } ),
        "setLearnCacheEnabled: enable: \"yes\" is not a bool; write true, false, 1, 0, on or off" );
}

TEST_F( ArgumentsTest, TextsAreTakenAsTheyAre ) {
    EXPECT_EQ( std::get<std::string>( parse( "programMonTraceCpu", { "0", " %s x " } )[1] ),
               " %s x " );
}

TEST_F( ArgumentsTest, ChipsGoByName ) {
    const auto arguments =
        parse( "programL2IfIngSystemPortTable", { "chip4", "0", "1", "5", "128", "77", "true" } );
    EXPECT_EQ( std::get<CairnCentral::ChipInfo>( arguments[0] ).name().view(), "chip4" );
    EXPECT_EQ(
        refusal( "programL2IfIngSystemPortTable", { "chop4", "0", "1", "5", "128", "77", "true" } ),
        "programL2IfIngSystemPortTable: chipInfo: "
        "there is no chip \"chop4\"; the nearest is chip4" );
}

TEST_F( ArgumentsTest, UnitsMustExist ) {
    EXPECT_EQ( refusal( "setEgrTunnelEcnEncap", { "1", "5", "2" } ),
               "setEgrTunnelEcnEncap: unit: there is no unit 1; the chips are units 0, 4" );
}

TEST_F( ArgumentsTest, TooFewOrTooManyAreRefused ) {
    EXPECT_EQ( refusal( "setEgrTunnelEcnEncap", { "0", "5" } ),
               "setEgrTunnelEcnEncap takes 3 arguments: unit, index, outerEcn; 2 are given" );
    EXPECT_EQ( refusal( "setOpaqueTagEgress", { "0", "5" } ),
               "setOpaqueTagEgress takes 1 argument: unit; 2 are given" );
    EXPECT_EQ( refusal( "cpuPortInit", { "0" } ), "cpuPortInit takes no arguments; 1 is given" );
}

TEST_F( ArgumentsTest, ARecipeOfTheFirstModuleNeedsOne ) {
    EXPECT_TRUE( parse( "setVlanXlateMissDrop", {} ).empty() );
    model_.modules.clear();
    EXPECT_EQ( refusal( "setVlanXlateMissDrop", {} ),
               "setVlanXlateMissDrop: it works on the first module, and there is none; describe it "
               "as [[modules]]" );
}

TEST_F( ArgumentsTest, CallsAreShownWithTheNamesOfTheirParameters ) {
    const Tool::Recipe & recipe = *Tool::findRecipe( "setIngTunnelEcnDecap" );
    const std::vector<Argument> arguments{ uint64_t( 0 ), uint64_t( 9 ), uint64_t( 1 ), true };
    EXPECT_EQ( Tool::callText( recipe, arguments ),
               "setIngTunnelEcnDecap( unit=0, index=9, innerEcn=1, changeEcn=true )" );
    EXPECT_EQ( Tool::callText( *Tool::findRecipe( "cpuPortInit" ), {} ), "cpuPortInit()" );
}

TEST_F( ArgumentsTest, UnknownRecipesAreAnsweredWithTheNearest ) {
    try {
        Tool::needRecipe( "setEgrTunelEcnEncap" );
        FAIL();
    } catch ( const Tool::InputError & error ) {
        EXPECT_STREQ( error.what(), "there is no recipe \"setEgrTunelEcnEncap\"; the nearest is "
                                    "setEgrTunnelEcnEncap; \"cairn-lt list\" shows all" );
    }
}

} // namespace
