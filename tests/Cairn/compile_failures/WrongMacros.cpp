#include "Cairn/internal/GuardedCall.h"
#include "Cairn/internal/TraceMessage.h"

#include <cstdint>

// Macros of the recipes used wrongly, one at a time: with WRONG left out it compiles.

#ifndef WRONG
#define WRONG none
#endif
#define IS_WRONG_none 0
#define IS_WRONG_signature 1
#define IS_WRONG_letter 2
#define IS_WRONG_letter_missing 3
#define IS_WRONG_letter_left_over 4
#define IS_WRONG_type 5
#define IS_WRONG_placeholder_missing 6
#define IS_WRONG_placeholder_left_over 7
#define IS_WRONG_too_long 8
#define IS_WRONG_level 9
#define IS_WRONG_negative_level 10
#define IS_WRONG_call_outside 11
#define IS_WRONG_message_outside 12
#define IS_WRONG_line_outside 13
#define JOINED( one, other ) one##other
#define IS_WRONG_( what ) JOINED( IS_WRONG_, what )
#define IS_WRONG( number ) ( IS_WRONG_( WRONG ) == ( number ) )

namespace CompileTest {

void recipe( uint32_t unit, const char * text, uint64_t wide ) noexcept {
#if IS_WRONG( 1 )
    CAIRN_RECIPE( "void CompileTest::recipe(uint32_t)" );
#elif !IS_WRONG( 11 ) && !IS_WRONG( 12 ) && !IS_WRONG( 13 )
    CAIRN_RECIPE( "void CompileTest::recipe(uint32_t, const char*, uint64_t)" );
#endif

#if IS_WRONG( 2 )
    CAIRN_MESSAGE( "s", ( " unit: ", "%s" ), unit );
#elif IS_WRONG( 3 )
    CAIRN_MESSAGE( "", ( " unit: ", "%s" ), unit );
#elif IS_WRONG( 4 )
    CAIRN_MESSAGE( "ii", ( " unit: ", "%s" ), unit );
#elif IS_WRONG( 5 )
    CAIRN_MESSAGE( "i", ( " wide: ", "%s" ), wide );
#elif IS_WRONG( 6 )
    CAIRN_MESSAGE( "i", ( " unit: " ), unit );
#elif IS_WRONG( 7 )
    CAIRN_MESSAGE( "i", ( " unit: ", "%s", " again: ", "%s" ), unit );
#elif IS_WRONG( 8 )
    CAIRN_MESSAGE( "ppp", ( " ", "%s", " ", "%s", " ", "%s" ), text, text, text );
#elif IS_WRONG( 9 )
    CAIRN_LINE( 10, "recipe" << " unit: " << unit );
#elif IS_WRONG( 10 )
    CAIRN_LINE( -1, "recipe" << " unit: " << unit );
#elif IS_WRONG( 11 )
    CAIRN_CALL( static_cast<int>( unit ) );
#elif IS_WRONG( 12 )
    CAIRN_MESSAGE( "i", ( " unit: ", "%s" ), unit );
#elif IS_WRONG( 13 )
    CAIRN_LINE( 2, "recipe" << " unit: " << unit );
#else
    CAIRN_MESSAGE( "ip", ( " unit: ", "%s", " text: ", "%s" ), unit, text );
    CAIRN_LINE( 2, "recipe" << " unit: " << unit );
    CAIRN_CALL( static_cast<int>( wide ) );
#endif
}

} // namespace CompileTest
