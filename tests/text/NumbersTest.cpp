#include "text/Numbers.h"

#include <gtest/gtest.h>

namespace {

TEST( NumbersTest, AreReadInDecimalAndHexadecimal ) {
    std::uint64_t number = 0;
    EXPECT_TRUE( Text::parseNumber( "42", number ) );
    EXPECT_EQ( number, 42u );
    EXPECT_TRUE( Text::parseNumber( "0xfF", number ) );
    EXPECT_EQ( number, 255u );
    EXPECT_TRUE( Text::parseNumber( "18446744073709551615", number ) );
    EXPECT_EQ( number, ~std::uint64_t( 0 ) );
    for ( const char * text : { "", "0x", "-1", "+1", " 1", "1 ", "ff", "18446744073709551616" } )
        EXPECT_FALSE( Text::parseNumber( text, number ) ) << text;
}

TEST( NumbersTest, AreWrittenForReaders ) {
    EXPECT_EQ( Text::numberBothWays( 255 ), "255" );
    EXPECT_EQ( Text::numberBothWays( 256 ), "256 (0x100)" );
    EXPECT_EQ( Text::numberForTable( 99999 ), "99999" );
    EXPECT_EQ( Text::numberForTable( 100000 ), "0x186a0" );
}

TEST( NumbersTest, OfThingsSayOneOrMany ) {
    EXPECT_EQ( Text::counted( 0, "row" ), "0 rows" );
    EXPECT_EQ( Text::counted( 1, "row" ), "1 row" );
    EXPECT_EQ( Text::counted( 12, "row" ), "12 rows" );
}

} // namespace
