#include "text/NearestName.h"

#include <gtest/gtest.h>

using namespace Text;

namespace {

TEST( NamesTest, TheNearestNameIsFound ) {
    const std::vector<std::string_view> names = { "OUTER_ECN", "INNER_ECN", "CHANGE_INNER_ECN" };
    EXPECT_EQ( nearestName( "OUTER_ECM", names ), "OUTER_ECN" );
    EXPECT_EQ( nearestName( "outer_ecn", names ), "OUTER_ECN" );
    EXPECT_EQ( nearestName( "OUETR_ECN", names ), "OUTER_ECN" ) << "a swap is one step";
    EXPECT_EQ( nearestName( "INNERECN", names ), "INNER_ECN" );
    EXPECT_EQ( nearestName( "CHANGE_INNER", names ), "CHANGE_INNER_ECN" );
    EXPECT_EQ( nearestName( "INER_ECNN", names ), "INNER_ECN" );
}

TEST( NamesTest, NothingNearIsNothing ) {
    const std::vector<std::string_view> names = { "OUTER_ECN", "ABC" };
    EXPECT_EQ( nearestName( "VLAN", names ), "" );
    EXPECT_EQ( nearestName( "", {} ), "" );
    EXPECT_EQ( nearestName( "XY", {} ), "" );
    EXPECT_EQ( nearestName( "AB", names ), "ABC" );
    EXPECT_EQ( nearestName( "XYZ", names ), "" );
    EXPECT_EQ( nearestHint( "AB", names ), "; the nearest name is ABC" );
    EXPECT_EQ( nearestHint( "XYZ", names ), "" );
}

TEST( NamesTest, OfTwoEquallyNearTheFirstWins ) {
    const std::vector<std::string_view> names = { "AB1", "AB2" };
    EXPECT_EQ( nearestName( "AB3", names ), "AB1" );
}

} // namespace
