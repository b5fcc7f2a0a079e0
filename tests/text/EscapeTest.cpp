#include "text/Escape.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace {

std::string json( std::string_view text ) {
    std::string out;
    Text::appendJson( out, text );
    return out;
}

TEST( EscapeTest, WhatBreaksALineIsEscaped ) {
    EXPECT_EQ( Text::printable( "plain \"text\" \\ 100%" ), "plain \"text\" \\ 100%" );
    EXPECT_EQ( Text::printable( "two\nlines\tand\x1b[1m" ), "two\\nlines\\tand\\x1b[1m" );
    EXPECT_EQ( Text::printable( std::string_view( "a\0b\x7f", 4 ) ), "a\\x00b\\x7f" );
}

TEST( EscapeTest, CharactersOfUtf8StandAndOtherBytesAreEscaped ) {
    EXPECT_EQ( Text::printable( "Gr\xc3\xbc\xc3\x9f"
                                "e \xf0\x9f\x94\xa7" ),
               "Gr\xc3\xbc\xc3\x9f"
               "e \xf0\x9f\x94\xa7" );
    EXPECT_EQ( Text::printable( "\xc3" ), "\\xc3" );
    EXPECT_EQ( Text::printable( "\xc0\xaf" ), "\\xc0\\xaf" );          // overlong
    EXPECT_EQ( Text::printable( "\xed\xa0\x80" ), "\\xed\\xa0\\x80" ); // a surrogate
    EXPECT_EQ( Text::printable( "\xf4\x90\x80\x80" ), "\\xf4\\x90\\x80\\x80" );
}

TEST( EscapeTest, JsonTextsAreEscaped ) {
    EXPECT_EQ( json( "a \"b\" \\c" ), "a \\\"b\\\" \\\\c" );
    EXPECT_EQ( json( "\n\t\x1f" ), "\\u000a\\u0009\\u001f" );
    EXPECT_EQ( json( "\xff\xc3\xbc" ), "\\ufffd\xc3\xbc" );
}

TEST( EscapeTest, ControlCharactersBeyondAsciiAreEscaped ) {
    EXPECT_EQ( Text::printable( "a\xc2\x9b[2J \xc2\xa0" ), "a\\xc2\\x9b[2J \xc2\xa0" );
    EXPECT_EQ( json( "a\xc2\x9b[2J" ), "a\\u009b[2J" );
}

} // namespace
