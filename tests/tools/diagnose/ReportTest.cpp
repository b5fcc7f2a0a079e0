#include "tools/diagnose/Report.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <random>
#include <string>
#include <vector>

// What is found in a report, and what is not.

namespace {

using Tool::ReportReader;
using Tool::Stop;

ReportReader reportOf( const std::vector<std::string> & lines ) {
    ReportReader report;
    for ( const std::string & line : lines )
        report.add( line );
    return report;
}

const std::string failedCall =
    "Cairn/CairnLtHelper:286 bcmlt_entry_field_add( entry, \"OUTER_ECN\", outerEcn ) API "
    "ERROR:value is too wide for the field (-14)";
const std::string failedCallStop =
    "agent: Cairn/CairnLtHelper:286: void Cairn::setEgrTunnelEcnEncap(uint32_t, uint32_t, "
    "uint32_t): Assertion `0' failed.";

TEST( ReportTest, FailedCallAndItsAssertionAreOneStop ) {
    const ReportReader report = reportOf( { "starting", failedCall, failedCallStop, "bye" } );
    ASSERT_EQ( report.stops().size(), 1u );
    const Stop & stop = report.stops()[0];
    EXPECT_EQ( stop.kind, Stop::Kind::apiError );
    EXPECT_EQ( stop.reportLine, 2u );
    EXPECT_EQ( stop.line, 286 );
    EXPECT_EQ( stop.text, "bcmlt_entry_field_add( entry, \"OUTER_ECN\", outerEcn )" );
    EXPECT_EQ( stop.words, "value is too wide for the field" );
    EXPECT_EQ( stop.rc, -14 );
    EXPECT_EQ( stop.program, "agent" );
    EXPECT_EQ( stop.signature, "void Cairn::setEgrTunnelEcnEncap(uint32_t, uint32_t, uint32_t)" );
    EXPECT_EQ( stop.prefix, "" );
    EXPECT_FALSE( stop.process() );
}

TEST( ReportTest, AJournalsPrefixesNameTimeAndProcess ) {
    const std::string prefix = "Nov 21 03:00:01 leaf7 agent[4711]: ";
    const ReportReader report = reportOf( { prefix + failedCall, prefix + failedCallStop } );
    ASSERT_EQ( report.stops().size(), 1u );
    EXPECT_EQ( report.stops()[0].prefix, prefix );
    EXPECT_EQ( report.stops()[0].process(), 4711u );
    EXPECT_EQ( report.stops()[0].program, "agent" );
}

TEST( ReportTest, LinesOfTwoProcessesAreToldApart ) {
    const std::string one = "leaf7 agent[1]: ";
    const std::string two = "leaf7 agent[2]: ";
    std::string secondStop = failedCallStop;
    secondStop.replace( 0, 5, "other" );
    const ReportReader report =
        reportOf( { one + failedCall, two + failedCall, two + secondStop, one + failedCallStop } );
    ASSERT_EQ( report.stops().size(), 2u );
    EXPECT_EQ( report.stops()[0].process(), 1u );
    EXPECT_EQ( report.stops()[0].program, "agent" );
    EXPECT_EQ( report.stops()[1].process(), 2u );
    EXPECT_EQ( report.stops()[1].program, "other" );
}

TEST( ReportTest, AssertionAndMisuseOfTheLockAreStops ) {
    const ReportReader report = reportOf(
        { "agent: Cairn/CairnLtHelper:98: void Cairn::programL2IfIngSystemPortTable(uint32_t): "
          "Assertion `profile' failed.",
          "Kiln activity lock: taken by a thread that holds it already" } );
    ASSERT_EQ( report.stops().size(), 2u );
    EXPECT_EQ( report.stops()[0].kind, Stop::Kind::assertion );
    EXPECT_EQ( report.stops()[0].text, "profile" );
    EXPECT_EQ( report.stops()[0].line, 98 );
    EXPECT_EQ( report.stops()[1].kind, Stop::Kind::lockMisuse );
    EXPECT_EQ( report.stops()[1].text, "taken by a thread that holds it already" );
}

TEST( ReportTest, AssertionOfAFailedCallIsAStopOfItsOwnWithoutTheFirstLine ) {
    const ReportReader report = reportOf( { failedCallStop } );
    ASSERT_EQ( report.stops().size(), 1u );
    EXPECT_EQ( report.stops()[0].kind, Stop::Kind::assertion );
    EXPECT_EQ( report.stops()[0].text, "0" );
}

TEST( ReportTest, WordsOfTheSdkMayHoldAnything ) {
    for ( const char * words : { "", "no (-3) such row", "a: b (x)", "API ERROR:again" } ) {
        const ReportReader report =
            reportOf( { std::string( "Cairn/CairnLtHelper:1 f( x ) API ERROR:" ) + words +
                        " (-2147483648)\r" } );
        ASSERT_EQ( report.stops().size(), 1u ) << words;
        EXPECT_EQ( report.stops()[0].words, words );
        EXPECT_EQ( report.stops()[0].text, "f( x )" );
        EXPECT_EQ( report.stops()[0].rc, -2147483647 - 1 );
    }
}

TEST( ReportTest, WhatIsLikeAStopAndNoneIsPassedOver ) {
    const std::vector<std::string> lines{
        "",
        "Cairn/CairnLtHelper:",
        "Cairn/CairnLtHelper:286",
        "Cairn/CairnLtHelper:286 f( x ) (rc:0)",
        "Cairn/CairnLtHelper:286 f( x ) API ERROR:words",
        "Cairn/CairnLtHelper:286 f( x ) API ERROR:words (7)",
        "Cairn/CairnLtHelper:286 f( x ) API ERROR:words (-0)",
        "Cairn/CairnLtHelper:286 f( x ) API ERROR:words (-99999999999)",
        "Cairn/CairnLtHelper:286 f( x ) API ERROR:words (--1)",
        "Cairn/CairnLtHelper:99999999999 f( x ) API ERROR:words (-1)",
        "Cairn/CairnLtHelper:x f( x ) API ERROR:words (-1)",
        "Cairn/CairnLtHelper:286  API ERROR:words (-1)",
        "Cairn/CairnLtHelper:286: f: Assertion `x",
        "Other/Source:286 f( x ) API ERROR:words (-1)",
    };
    for ( const std::string & line : lines )
        EXPECT_EQ( reportOf( { line } ).count(), 0u ) << line;
}

TEST( ReportTest, RandomTextIsNoStop ) {
    std::mt19937 random( 1 );
    const std::vector<std::string> pieces{ "Cairn/CairnLtHelper:",
                                           "286",
                                           " ",
                                           "API ERROR:",
                                           "bcmlt_",
                                           "(-14",
                                           std::string( 1, '\0' ),
                                           ": Assertion `",
                                           "Kiln activity",
                                           "x",
                                           "\xff" };
    for ( int round = 0; round < 20000; ++round ) {
        std::string line;
        for ( std::size_t i = 0; i < 8; ++i )
            line += pieces[random() % pieces.size()];
        EXPECT_EQ( reportOf( { line } ).count(), 0u ) << line;
    }
}

TEST( ReportTest, ManyStopsAreCountedAndNotAllKept ) {
    ReportReader report;
    for ( std::size_t i = 0; i < ReportReader::maxStops + 5; ++i ) {
        report.add( failedCall );
        report.add( failedCallStop );
    }
    EXPECT_EQ( report.stops().size(), ReportReader::maxStops );
    EXPECT_EQ( report.count(), ReportReader::maxStops + 5 );
}

} // namespace
