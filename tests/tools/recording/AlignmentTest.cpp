#include "tools/recording/Alignment.h"

#include "tests/tools/recording/RandomProgram.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

// Two sequences of steps beside each other.

namespace {

using Tool::AlignedStep;
using Tool::Alignment;
using Tool::EntryStep;

// A step is a letter here; its thread is 1, unless another one is given after a digit: "ab2c".
std::vector<EntryStep> stepsOf( const std::string & text ) {
    std::vector<EntryStep> steps;
    for ( const char letter : text ) {
        if ( letter >= '0' && letter <= '9' ) {
            steps.back().thread = static_cast<std::uint32_t>( letter - '0' );
            continue;
        }
        EntryStep step;
        step.thread = 1;
        step.hash = static_cast<unsigned char>( letter );
        step.operations.push_back( { .number = 1, .text = std::string( 1, letter ) } );
        steps.push_back( std::move( step ) );
    }
    return steps;
}

Alignment::Source sourceOf( const std::vector<EntryStep> & steps ) {
    return [steps, i = std::size_t( 0 )]( EntryStep & step ) mutable {
        if ( i == steps.size() )
            return false;
        step = steps[i++];
        return true;
    };
}

std::string letterOf( const EntryStep & step ) { return step.operations.front().text; }

// "ab-c+d": what is the same, what is in the first alone, and in the second alone.
std::string aligned( const std::vector<EntryStep> & before, const std::vector<EntryStep> & after,
                     const Tool::AlignmentLimits & limits = {} ) {
    Alignment alignment( sourceOf( before ), sourceOf( after ), limits );
    std::string text;
    AlignedStep place;
    while ( alignment.next( place ) ) {
        if ( place.isSame() )
            text += letterOf( *place.before );
        else if ( place.before )
            text += "-" + letterOf( *place.before );
        else
            text += "+" + letterOf( *place.after );
    }
    return text;
}

std::string aligned( const std::string & before, const std::string & after ) {
    return aligned( stepsOf( before ), stepsOf( after ) );
}

TEST( Alignment, SequencesThatAreTheSame ) {
    EXPECT_EQ( aligned( "", "" ), "" );
    EXPECT_EQ( aligned( "abc", "abc" ), "abc" );
}

TEST( Alignment, StepsOfOneSequenceAlone ) {
    EXPECT_EQ( aligned( "", "ab" ), "+a+b" );
    EXPECT_EQ( aligned( "abc", "abcd" ), "abc+d" );
    EXPECT_EQ( aligned( "abcdef", "abef" ), "ab-c-def" );
    EXPECT_EQ( aligned( "abcdef", "abxdef" ), "ab-c+xdef" );
}

TEST( Alignment, StepsThatAreThereOftenAreNotShifted ) {
    EXPECT_EQ( aligned( "xyxz", "yxz" ), "-xyxz" );
    EXPECT_EQ( aligned( "xxxxa", "xxxa" ), "xxx-xa" );
    EXPECT_EQ( aligned( "abababc", "ababc" ), "abab-a-bc" );
}

TEST( Alignment, ALongStretchIsFoundWithinTheLookahead ) {
    const std::string stretch( 3000, 'q' );
    const std::string rest = "abcdefghijkl";
    const std::string result = aligned( stretch + rest, rest );
    EXPECT_EQ( result.substr( result.size() - rest.size() ), rest );
    EXPECT_EQ( result.size(), 2 * stretch.size() + rest.size() );
}

TEST( Alignment, ALongerStretchCostsWhatFollowsAndNoMore ) {
    std::string before( 100, 'q' );
    for ( int i = 0; i < 300; ++i )
        before += static_cast<char>( 'a' + i % 13 );
    const std::string after = before.substr( 100 );
    const std::string result =
        aligned( stepsOf( before ), stepsOf( after ), { .lookahead = 16, .reordering = 8 } );
    // They meet again where the first sequence repeats itself.
    EXPECT_GT( std::count( result.begin(), result.end(), '-' ), 100 );
    EXPECT_NE( result.find( before.substr( 100, 150 ) ), std::string::npos ) << result;
}

TEST( Alignment, AStepOfTheSameThreadInAnotherPlaceIsADifference ) {
    EXPECT_EQ( aligned( "abcdef", "bcadef" ), "-abc+adef" );
}

TEST( Alignment, StepsOfSeveralThreadsHaveNoOrder ) {
    // The letter a is of a thread of its own in both.
    EXPECT_EQ( aligned( "a2bcdef", "bca2def" ), "abcdef" );
    // In one of them all is of one thread: nothing was promised of the order either.
    EXPECT_EQ( aligned( "a2bcdef", "bcadef" ), "abcdef" );
    // Two threads in turn, or one after the other.
    EXPECT_EQ( aligned( "a1x2b1y2c1z2", "a1b1c1x2y2z2" ).find_first_of( "-+" ), std::string::npos );
}

TEST( Alignment, ThreadsCountWhateverTheirNumbers ) {
    EXPECT_EQ( aligned( "a1x2b1y2c1z2", "a8b8c8x7y7z7" ).find_first_of( "-+" ), std::string::npos );
    EXPECT_NE( aligned( "a1x2b1y2c1z2", "b8a8c8x7y7z7" ).find_first_of( "-+" ), std::string::npos );
}

std::size_t commonLength( const std::string & before, const std::string & after ) {
    std::vector<std::vector<std::size_t>> lengths( before.size() + 1,
                                                   std::vector<std::size_t>( after.size() + 1 ) );
    for ( std::size_t i = 1; i <= before.size(); ++i ) {
        for ( std::size_t k = 1; k <= after.size(); ++k )
            lengths[i][k] = before[i - 1] == after[k - 1]
                                ? lengths[i - 1][k - 1] + 1
                                : std::max( lengths[i - 1][k], lengths[i][k - 1] );
    }
    return lengths[before.size()][after.size()];
}

TEST( Alignment, NothingIsLostAndLittleIsMissedOfRandomSequences ) {
    std::size_t found = 0;
    std::size_t best = 0;
    for ( std::uint64_t seed = 1; seed <= 300; ++seed ) {
        SCOPED_TRACE( "seed " + std::to_string( seed ) );
        ToolTest::Random random( seed );
        std::string before;
        for ( std::uint64_t i = random.below( 80 ); i > 0; --i )
            before += static_cast<char>( 'a' + random.below( 12 ) );
        std::string after;
        for ( const char letter : before ) {
            if ( random.oneIn( 8 ) )
                after += static_cast<char>( 'a' + random.below( 12 ) );
            if ( !random.oneIn( 8 ) )
                after += letter;
        }
        const std::string result = aligned( before, after );
        std::string first;
        std::string second;
        for ( std::size_t i = 0; i < result.size(); ++i ) {
            if ( result[i] == '-' ) {
                first += result[++i];
            } else if ( result[i] == '+' ) {
                second += result[++i];
            } else {
                first += result[i];
                second += result[i];
                ++found;
            }
        }
        EXPECT_EQ( first, before );
        EXPECT_EQ( second, after );
        best += commonLength( before, after );
    }
    EXPECT_LE( found, best );
    EXPECT_GE( found * 100, best * 95 );
}

} // namespace
