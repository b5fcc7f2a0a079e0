#include "text/Time.h"

#include <gtest/gtest.h>

namespace {

constexpr std::int64_t halfPastSeven = 1'772'350'200'250'000'000; // 2026-03-01

TEST( TimeTest, IsWrittenWithNanoseconds ) {
    EXPECT_EQ( Text::utc( halfPastSeven ), "2026-03-01T07:30:00.250000000Z" );
    EXPECT_EQ( Text::utc( 0 ), "1970-01-01T00:00:00.000000000Z" );
    EXPECT_EQ( Text::utc( -1 ), "1969-12-31T23:59:59.999999999Z" );
    EXPECT_EQ( Text::utc( INT64_MIN ), "1677-09-21T00:12:43.145224192Z" );
    EXPECT_EQ( Text::utc( INT64_MAX ), "2262-04-11T23:47:16.854775807Z" );
}

TEST( TimeTest, OfEachDayIsReadAsItWasWritten ) {
    constexpr std::int64_t day = 86'400'000'000'000;
    for ( std::int64_t time = INT64_MIN + day; time < INT64_MAX - day; time += day )
        ASSERT_EQ( Text::parseUtc( Text::utc( time ) ), time );
}

TEST( TimeTest, IsReadWithAndWithoutAFraction ) {
    EXPECT_EQ( Text::parseUtc( "2026-03-01T07:30:00.25" ), halfPastSeven );
    EXPECT_EQ( Text::parseUtc( "2026-03-01T07:30:00.250000000Z" ), halfPastSeven );
    EXPECT_EQ( Text::parseUtc( "2026-03-01T07:30:00Z" ), halfPastSeven - 250'000'000 );
    for ( const char * text : { "", "2026-03-01", "07:30:00", "2026-03-01T07:30:00.25+01:00" } )
        EXPECT_EQ( Text::parseUtc( text ), std::nullopt ) << text;
}

TEST( TimeTest, DatesAndTimesThatThereAreNotAreRefused ) {
    EXPECT_TRUE( Text::parseUtc( "2024-02-29T23:59:59.999999999" ) );
    for ( const char * text :
          { "2026-02-31T00:00:00", "2025-02-29T00:00:00", "2026-00-01T00:00:00",
            "2026-13-01T00:00:00", "2026-01-01T24:00:00", "2026-01-01T00:60:00",
            "2026-01-01T00:00:60", "2026-1-1T00:00:00", "2026-01-01T00:00:00.",
            "-026-01-01T00:00:00", " 2026-01-01T00:00:00", "2026-01-01T00:00:00 " } )
        EXPECT_EQ( Text::parseUtc( text ), std::nullopt ) << text;
}

TEST( TimeTest, TimesThat64BitsDoNotHoldAreTheLastOrTheFirst ) {
    EXPECT_EQ( Text::parseUtc( "9999-01-01T00:00:00" ), INT64_MAX );
    EXPECT_EQ( Text::parseUtc( "2300-01-01T00:00:00" ), INT64_MAX );
    EXPECT_EQ( Text::parseUtc( "1600-01-01T00:00:00" ), INT64_MIN );
    EXPECT_EQ( Text::parseUtc( "1969-12-31T23:59:59.999999999" ), -1 );
}

} // namespace
