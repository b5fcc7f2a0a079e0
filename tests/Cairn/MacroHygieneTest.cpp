#include "Cairn/internal/GuardedCall.h"
#include "Cairn/internal/TraceMessage.h"

#include "sim/Chip.h"

#include <Kiln/TraceSink.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

// Each macro of the recipes among hostile names and in each place where one statement may stand.

namespace HygieneTest {

using namespace Cairn;

std::uint32_t evaluations = 0;

// An operation, and a value, with a comma in its template arguments.
template <int one, int other>
int sum( int number ) {
    ++evaluations;
    return one + other + number;
}

// The branches of an if without braces. A macro of two statements, or of none, does not compile.
void branches( int which ) noexcept {
    CAIRN_RECIPE( "void HygieneTest::branches(int)" );
    int code = 0;
    if ( which == 0 )
        CAIRN_CALL( sum<0, 0>( which ) );
    else if ( which == 1 )
        CAIRN_CALL_LOCK_KEPT( sum<0, 0>( which ) );
    else if ( which == 2 )
        CAIRN_CALL_UNCHECKED( code, sum<0, 0>( which ) );
    else if ( which == 3 )
        CAIRN_CALL_IGNORED( sum<0, 0>( which ) );
    else if ( which == 4 )
        CAIRN_ASSERT( sum<0, 0>( which ) == 4 );
    else if ( which == 5 )
        CAIRN_LINE( 2, "branches" << " which: " << sum<0, 0>( which ) );
    else
        CAIRN_MESSAGE( "i", ( " which: ", "%s" ), sum<0, 0>( which ) );
}

// The cases of a switch, without braces: nothing is declared where another case could jump over it.
void cases( int which ) noexcept {
    CAIRN_RECIPE( "void HygieneTest::cases(int)" );
    int code = 0;
    switch ( which ) {
    case 0:
        CAIRN_CALL( sum<1, 2>( which ) );
        break;
    case 1:
        CAIRN_CALL_LOCK_KEPT( sum<1, 2>( which ) );
        break;
    case 2:
        CAIRN_CALL_UNCHECKED( code, sum<1, 2>( which ) );
        break;
    case 3:
        CAIRN_CALL_IGNORED( sum<1, 2>( which ) );
        break;
    case 4:
        CAIRN_ASSERT( sum<1, 2>( which ) == 7 );
        break;
    case 5:
        CAIRN_LINE( 2, "cases" << " sum: " << sum<1, 2>( which ) );
        break;
    default:
        CAIRN_MESSAGE( "i", ( " sum: ", "%s" ), sum<1, 2>( which ) );
    }
}

// The body of a loop without braces.
void loops() noexcept {
    CAIRN_RECIPE( "void HygieneTest::loops()" );
    int code = 0;
    for ( int i = 0; i < 2; ++i )
        CAIRN_CALL( sum<0, 0>( i ) );
    for ( int i = 0; i < 2; ++i )
        CAIRN_CALL_LOCK_KEPT( sum<0, 0>( i ) );
    for ( int i = 0; i < 2; ++i )
        CAIRN_CALL_UNCHECKED( code, sum<0, 0>( i ) );
    for ( int i = 0; i < 2; ++i )
        CAIRN_CALL_IGNORED( sum<0, 0>( i ) );
    for ( int i = 0; i < 2; ++i )
        CAIRN_ASSERT( sum<0, 0>( i ) == i );
    for ( int i = 0; i < 2; ++i )
        CAIRN_LINE( 2, "loops" << " i: " << sum<0, 0>( i ) );
    for ( int i = 0; i < 2; ++i )
        CAIRN_MESSAGE( "i", ( " i: ", "%s" ), sum<0, 0>( i ) );
}

// Locals and namespaces whose names a careless macro could have chosen, or reached by a short name.
int hostileNames( int rc, int text, int line, int site, int file ) noexcept {
    CAIRN_RECIPE( "int HygieneTest::hostileNames(int, int, int, int, int)" );
    const int recipe = 6;
    const int anchor = 7;
    const int level = 8;
    const int msgId = 9;
    const int pieces = 10;
    const int letters = 11;
    const int Cairn = 12;
    const int Kiln = 13;
    CAIRN_CALL( sum<0, 0>( rc + Cairn + Kiln ) );
    CAIRN_CALL_LOCK_KEPT( sum<0, 0>( text + recipe ) );
    CAIRN_CALL_UNCHECKED( rc, sum<0, 0>( line + anchor ) );
    CAIRN_CALL_IGNORED( sum<0, 0>( site + level ) );
    CAIRN_ASSERT( sum<0, 0>( file + msgId ) == 14 );
    CAIRN_LINE( 2, "hostileNames" << " line: " << line << " level: " << level << " pieces: " << pieces );
    CAIRN_MESSAGE( "iiii", ( " ", "%s", " ", "%s", " ", "%s", " ", "%s" ), rc, msgId, pieces, letters );
    return rc;
}

} // namespace HygieneTest

namespace {

using Lines = std::vector<std::string>;

class MacroHygieneTest : public testing::Test {
  protected:
    MacroHygieneTest() {
        Kiln::activityLock().lock();
        Shim::sdk_ = &chip_;
        Kiln::traceSettings( { { "ApiCairn", 1u << 4 }, { "CairnLtHelper", 1u << 2 } } );
        Kiln::traceToCallback( [this]( const Kiln::TraceLine & line ) {
            // Without "Cairn/CairnLtHelper:LINE ", which stands before the text of a call.
            const bool isCall = line.facility == "ApiCairn";
            lines_.emplace_back( line.text.substr( isCall ? line.text.find( ' ' ) + 1 : 0 ) );
        } );
        HygieneTest::evaluations = 0;
    }
    ~MacroHygieneTest() override {
        Kiln::traceToStandardError();
        Kiln::traceOff();
        Shim::sdk_ = nullptr;
        Kiln::activityLock().unlock();
    }

    Sim::Chip chip_;
    Lines lines_;
};

TEST_F( MacroHygieneTest, EachIsOneStatementOfABranchAndEvaluatesOnce ) {
    for ( int which = 0; which < 7; ++which ) {
        HygieneTest::branches( which );
        EXPECT_EQ( HygieneTest::evaluations, static_cast<std::uint32_t>( which ) + 1 );
    }
    EXPECT_EQ( lines_, ( Lines{ "sum<0, 0>( which ) (rc:0)", "sum<0, 0>( which ) (rc:1)",
                                "sum<0, 0>( which ) (rc:2)", "sum<0, 0>( which ) no rc check",
                                "branches which: 5", "branches which: 6" } ) );
}

TEST_F( MacroHygieneTest, EachIsOneStatementOfACaseAndTakesCommas ) {
    for ( int which = 0; which < 7; ++which ) {
        HygieneTest::cases( which );
        EXPECT_EQ( HygieneTest::evaluations, static_cast<std::uint32_t>( which ) + 1 );
    }
    EXPECT_EQ( lines_, ( Lines{ "sum<1, 2>( which ) (rc:3)", "sum<1, 2>( which ) (rc:4)",
                                "sum<1, 2>( which ) (rc:5)", "sum<1, 2>( which ) no rc check",
                                "cases sum: 8", "cases sum: 9" } ) );
}

TEST_F( MacroHygieneTest, EachIsOneStatementOfALoop ) {
    HygieneTest::loops();
    EXPECT_EQ( HygieneTest::evaluations, 14u );
    EXPECT_EQ( lines_,
               ( Lines{ "sum<0, 0>( i ) (rc:0)", "sum<0, 0>( i ) (rc:1)", "sum<0, 0>( i ) (rc:0)",
                        "sum<0, 0>( i ) (rc:1)", "sum<0, 0>( i ) (rc:0)", "sum<0, 0>( i ) (rc:1)",
                        "sum<0, 0>( i ) no rc check", "sum<0, 0>( i ) no rc check", "loops i: 0",
                        "loops i: 1", "loops i: 0", "loops i: 1" } ) );
}

TEST_F( MacroHygieneTest, LocalNamesAreThoseOfTheCaller ) {
    EXPECT_EQ( HygieneTest::hostileNames( 1, 2, 3, 4, 5 ), 10 );
    EXPECT_EQ(
        lines_,
        ( Lines{ "sum<0, 0>( rc + Cairn + Kiln ) (rc:26)", "sum<0, 0>( text + recipe ) (rc:8)",
                 "sum<0, 0>( line + anchor ) (rc:10)", "sum<0, 0>( site + level ) no rc check",
                 "hostileNames line: 3 level: 8 pieces: 10", "hostileNames 10 9 10 11" } ) );
}

TEST_F( MacroHygieneTest, ValuesOfALineThatIsOffAreNotEvaluatedThoseOfAllOthersAre ) {
    Kiln::traceOff();
    for ( int which = 0; which < 7; ++which )
        HygieneTest::branches( which );
    EXPECT_EQ( HygieneTest::evaluations, 6u );
    EXPECT_TRUE( lines_.empty() );
}

} // namespace
