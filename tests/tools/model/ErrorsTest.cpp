#include "tools/model/Errors.h"

#include <gtest/gtest.h>

namespace {

TEST( InputErrorTest, HoldsWhatItSays ) {
    const Tool::InputError error( "x.toml", 4, "there is no chip \"leef\"", "the nearest is leaf" );
    EXPECT_EQ( error.file(), "x.toml" );
    EXPECT_EQ( error.line(), 4 );
    EXPECT_EQ( error.problem(), "there is no chip \"leef\"" );
    EXPECT_EQ( error.remedy(), "the nearest is leaf" );
    EXPECT_STREQ( error.what(), "x.toml:4: there is no chip \"leef\"; the nearest is leaf" );
}

TEST( InputErrorTest, NamesNoLineOfAFileAsAWhole ) {
    EXPECT_STREQ( Tool::InputError( "x.toml", 0, "cannot be read" ).what(),
                  "x.toml: cannot be read" );
}

TEST( InputErrorTest, IsPutInALine ) {
    const Tool::InputError error =
        Tool::InputError( "no recipe", "name one" ).within( "x.toml", 7 );
    EXPECT_EQ( error.line(), 7 );
    EXPECT_EQ( error.remedy(), "name one" );
    EXPECT_STREQ( error.what(), "x.toml:7: no recipe; name one" );
}

TEST( InputErrorTest, OfAFileThatIsNamedInAnotherNamesBoth ) {
    EXPECT_STREQ( Tool::InputError( "chip.toml", 0, "cannot be read" ).within( "x.toml", 7 ).what(),
                  "x.toml:7: chip.toml: cannot be read" );
}

} // namespace
