#include "tools/diagnose/ErrorPages.h"
#include "tests/tools/Program.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <string>

// The knowledge pages. That there is one for each error is compared with the sources by another test.

namespace {

using ToolTest::cairnLt;
using ToolTest::Outcome;

std::string nameOf( const char * wanted ) {
    const Tool::ErrorPage * const page = Tool::findErrorPage( wanted );
    return page == nullptr ? "" : std::string( page->name );
}

TEST( ErrorPagesTest, PageIsFoundByNameCodeAndPrintedLine ) {
    EXPECT_EQ( nameOf( "entry-not-found" ), "entry-not-found" );
    EXPECT_EQ( nameOf( "-14" ), "value-too-wide" );
    EXPECT_EQ( nameOf( "Kiln activity lock: taken by a thread that holds it already" ),
               "lock-misuse" );
    EXPECT_EQ( nameOf( "agent: Cairn/CairnLtHelper:98: void Cairn::f(uint32_t): Assertion "
                       "`chipAttr' failed." ),
               "no-chip-attributes" );
    EXPECT_EQ(
        nameOf( "cairn-lt: bringup.toml:7: there is a chip \"a\" already (line 3); give this "
                "one another name" ),
        "not-unique" );
    EXPECT_EQ( nameOf( "value is too wide for the field" ), "value-too-wide" );
}

TEST( ErrorPagesTest, WhatIsOnNoPageIsNotClaimed ) {
    for ( const char * text : { "", "0", "-999", "14", "all is well", "value-too", "{}", "rc" } )
        EXPECT_EQ( nameOf( text ), "" ) << text;
}

TEST( ErrorPagesTest, VerbShowsAPage ) {
    const Outcome text = cairnLt( { "diagnose", "--error=-27" } );
    EXPECT_EQ( text.exitCode, 0 ) << text.err;
    EXPECT_EQ( text.out,
               "entry-not-found: a code of the simulated SDK, -27\n"
               "  meaning   There is no such row.\n"
               "  causes    It was never inserted, or was deleted since.\n"
               "  to do     Look for its insert with \"cairn-lt trace TRACE --table TABLE\".\n"
               "  printed   row does not exist\n" );
    const Outcome json = cairnLt( { "diagnose", "--error", "no-profile", "--format", "json" } );
    EXPECT_EQ( nlohmann::json::parse( json.out )["texts"][0], "profile" );
}

TEST( ErrorPagesTest, UnknownNameIsAnsweredWithTheNearest ) {
    const Outcome run = cairnLt( { "diagnose", "--error", "entry-not-fuond" } );
    EXPECT_EQ( run.exitCode, 2 );
    EXPECT_EQ( run.err,
               "cairn-lt: --error: there is no page of \"entry-not-fuond\"; the nearest name "
               "is entry-not-found; \"cairn-lt diagnose --error all\" shows all\n" );
}

} // namespace
