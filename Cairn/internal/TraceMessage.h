#pragma once

#include "Cairn/internal/Recipe.h"
#include "Cairn/internal/TraceHandles.h"

#include <CairnPlatform/Adapter.h>

#include <atomic>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

// The recipes' own messages.
//
//     CAIRN_MESSAGE( "ii", ( " unit: ", "%s", " seed: ", "%s" ), unit, seed );
//
// A dual trace message. It goes, in binary form, to the ring of the Fleetlog trace file, if there
// is one, and then, if "CairnLtHelper" has level 2 enabled, as a line of text to that handle. In
// this order:
//   1. the trace file is looked up; without one, steps 2 and 3 are skipped;
//   2. a site that is not registered in the file is registered: position, format letters, pieces;
//   3. the record is written: the site's identifier and the values;
//   4. level 2 is tested; if it is off, that is all: nothing was formatted;
//   5. the text is built from the pieces and the values;
//   6. level 2 is tested again; if it is off by now, the text is discarded;
//   7. the line is written.
// The pieces are the recipe's name, which is not written at the call, and those in the parentheses,
// of which each "%s" stands for the next argument. The letters give the arguments' types: "i"
// uint32_t or int, "s" uint16_t, "b" bool, "p" const char *. Letters, arguments and "%s" are
// checked against each other at compile time. Each argument is evaluated once, whether or not
// anything is written.
//
//     CAIRN_LINE( 8, "lbPortInit" << " portId: " << portId );
//
// A plain line at a level of "CairnLtHelper", with no record in the ring. While the level is off,
// nothing of it is evaluated.
//
// Both are one statement, to be ended with a semicolon, on one source line, in a function that
// begins with CAIRN_RECIPE. The activity lock is held. An exception of the trace libraries ends the
// process.

namespace Cairn {

/// What is known of a message when the library is built. Read-only.
struct MessageSite {
    const Recipe * recipe;
    int line;
    std::string_view letters;
    std::span<const char * const> pieces; ///< without the recipe's name, which comes first
};

/// The format letter of an argument's type; a letter that no message has if there is none.
template <class Argument>
inline constexpr char letterOf = '\0';
template <>
inline constexpr char letterOf<std::uint32_t> = 'i';
template <>
inline constexpr char letterOf<int> = 'i';
template <>
inline constexpr char letterOf<std::uint16_t> = 's';
template <>
inline constexpr char letterOf<bool> = 'b';
template <>
inline constexpr char letterOf<const char *> = 'p';
template <>
inline constexpr char letterOf<char *> = 'p';

/// The arguments of a message, as types. What a record can take up is counted with its texts at
/// full length.
template <class... Arguments>
struct MessageArguments {
    static constexpr std::size_t count = sizeof...( Arguments );

    static consteval bool match( std::string_view letters ) {
        constexpr char expected[] = { letterOf<Arguments>..., '\0' };
        return letters == std::string_view( expected, count );
    }

    static consteval bool fit() {
        return ( std::size_t( 0 ) + ... +
                 ( letterOf<Arguments> == 'p' ? 2 + CairnPlatform::maxTextBytes
                                              : sizeof( Arguments ) ) ) <=
               CairnPlatform::maxPayloadBytes;
    }
};

/// Names the types of a message's arguments; never called.
template <class... Arguments>
MessageArguments<Arguments...> messageArguments( Arguments... );

consteval std::size_t countPlaceholders( std::span<const char * const> pieces ) {
    std::size_t count = 0;
    for ( const std::string_view piece : pieces )
        for ( std::size_t at = 0; ( at = piece.find( "%s", at ) ) != std::string_view::npos;
              at += 2 )
            ++count;
    return count;
}

/// The identifier of a site. Another thread may be giving it at this moment.
inline unsigned identifierOf( int & msgId ) noexcept {
    // Unsigned, so that it is an index without a conversion.
    return std::atomic_ref( reinterpret_cast<unsigned &>( msgId ) )
        .load( std::memory_order_relaxed );
}

/// Whether the site with this identifier is registered in the file. 0, which a site has before it
/// is given an identifier, never is, whatever the table's first byte holds.
inline bool msgIdInitialized( const Fleetlog::TraceFile & file, unsigned msgId ) noexcept {
    // 0 wraps to the highest number. As wide as an address, so that nothing is converted.
    const std::size_t index = msgId;
    return index - 1 < CairnPlatform::highestSite( file ) &&
           CairnPlatform::initialisedSites( file )[index] != 0;
}

/// Registers the site in the file, and gives it an identifier if it has none. Returns it.
[[gnu::cold, gnu::noinline]] unsigned
registerMessage( Fleetlog::TraceFile & file, const MessageSite & site, int & msgId ) noexcept;

inline void putValue( CairnPlatform::Record & record, std::uint32_t value ) noexcept {
    CairnPlatform::put4( record, value );
}
inline void putValue( CairnPlatform::Record & record, int value ) noexcept {
    CairnPlatform::put4( record, static_cast<std::uint32_t>( value ) );
}
inline void putValue( CairnPlatform::Record & record, std::uint16_t value ) noexcept {
    CairnPlatform::put2( record, value );
}
inline void putValue( CairnPlatform::Record & record, std::same_as<bool> auto value ) noexcept {
    CairnPlatform::put1( record, value );
}
[[gnu::always_inline]] inline void putValue( CairnPlatform::Record & record,
                                             const char * value ) noexcept {
    CairnPlatform::putText( record, value );
}

/// Writes the pieces into Twinlog's fixed stream.
void writePieces( const MessageSite & site ) noexcept;

/// Writes the text line, if level 2 is still enabled.
void writeMessageLine( const MessageSite & site, Twinlog::FleetlogConverter & text ) noexcept;

template <class... Values>
[[gnu::cold, gnu::noinline]] void writeMessageText( const MessageSite & site,
                                                    Values... values ) noexcept {
    if ( !messagesEnabled( messageLevel ) )
        return;
    Twinlog::FleetlogConverter text;
    writePieces( site );
    ( static_cast<void>( text << values ), ... );
    writeMessageLine( site, text );
}

/// Step 1 where the thread does not remember its file. Null if there is none.
Fleetlog::TraceFile * messageFile( Fleetlog::TraceHandle & handle ) noexcept;

/// A message whose file is not remembered, whose site is not registered yet, or that does not go into
/// the current block.
template <class... Values>
[[gnu::cold, gnu::noinline]] void writeRareMessage( Fleetlog::TraceHandle & handle,
                                                    const MessageSite & site, int & msgId,
                                                    Values... values ) noexcept {
    Fleetlog::TraceFile * const file = messageFile( handle );
    if ( file != nullptr ) {
        unsigned id = identifierOf( msgId );
        if ( !msgIdInitialized( *file, id ) )
            id = registerMessage( *file, site, msgId );
        CairnPlatform::Record record;
        if ( CairnPlatform::startMsg( record, *file, static_cast<int>( id ) ) ) {
            ( putValue( record, values ), ... );
            CairnPlatform::endMsg( record );
        }
    }
    writeMessageText( site, values... );
}

inline Fleetlog::TraceHandle * messageHandle() noexcept {
    return std::atomic_ref( Fleetlog::defaultFleetlogHandle ).load( std::memory_order_acquire );
}

/// Steps 1 to 7. A function for each list of types, not inline: that would be 200 bytes of code at each
/// site. Without a text among the values it calls nothing before its last step, so that it has almost
/// no registers to save.
template <class... Values>
[[gnu::noinline]] void sendMessage( const MessageSite & site, int & msgId,
                                    Values... values ) noexcept {
    Fleetlog::TraceHandle * const handle = messageHandle();
    if ( handle != nullptr ) {
        Fleetlog::TraceFile * const file = CairnPlatform::rememberedFile( *handle );
        const unsigned id = identifierOf( msgId );
        CairnPlatform::Record record;
        if ( file == nullptr || !msgIdInitialized( *file, id ) ||
             !CairnPlatform::startMsgInBlock( record, *file, static_cast<int>( id ) ) ) [[unlikely]]
            return writeRareMessage( *handle, site, msgId, values... );
        ( putValue( record, values ), ... );
        CairnPlatform::endMsg( record );
    }
    if ( messagesMayBeEnabled( messageLevel ) ) [[unlikely]]
        writeMessageText( site, values... );
}

/// One dual trace message. `msgId` belongs to the site; several threads may share it. Many values
/// would be put on the stack for the call, so whether they go anywhere is asked before.
template <class... Values>
[[gnu::always_inline]] inline void writeMessage( const MessageSite & site, int & msgId,
                                                 Values... values ) noexcept {
    constexpr std::size_t fewValues = 3;
    if constexpr ( sizeof...( Values ) > fewValues )
        if ( messageHandle() == nullptr && !messagesMayBeEnabled( messageLevel ) )
            return;
    sendMessage( site, msgId, values... );
}

/// One plain line. Every operation ends the process if it throws.
class TraceLine {
  public:
    [[gnu::cold]] TraceLine( int level, int line, const Recipe & recipe ) noexcept;
    [[gnu::cold]] ~TraceLine();

    template <class Value>
    TraceLine & operator<<( const Value & value ) noexcept {
        CairnPlatform::stream( line_ ) << value;
        return *this;
    }

  private:
    Kiln::TraceHelper line_;
};

} // namespace Cairn

/// Removes the parentheses around a list of pieces; internal to CAIRN_MESSAGE.
#define CAIRN_PIECES_( ... ) __VA_ARGS__

#define CAIRN_MESSAGE( letters, pieces, ... )                                                      \
    do {                                                                                           \
        using CairnArguments_ = decltype( ::Cairn::messageArguments( __VA_ARGS__ ) );              \
        static constexpr const char * cairnPieces_[] = { CAIRN_PIECES_ pieces };                   \
        static_assert( CairnArguments_::match( letters ),                                          \
                       "CAIRN_MESSAGE: one letter for each argument, by its type" );               \
        static_assert( CairnArguments_::count == ::Cairn::countPlaceholders( cairnPieces_ ),       \
                       "CAIRN_MESSAGE: one \"%s\" for each argument" );                            \
        static_assert( CairnArguments_::fit(), "CAIRN_MESSAGE: too many arguments" );              \
        static constexpr ::Cairn::MessageSite cairnMessage_{ &cairnRecipe_, __LINE__, letters,     \
                                                             cairnPieces_ };                       \
        static constinit int cairnMsgId_ = 0;                                                      \
        ::Cairn::writeMessage( cairnMessage_, cairnMsgId_ __VA_OPT__(, ) __VA_ARGS__ );            \
    } while ( false )

#define CAIRN_LINE( level, ... )                                                                   \
    do {                                                                                           \
        static_assert( ( level ) >= 0 && ( level ) < ::CairnPlatform::levelCount,                  \
                       "CAIRN_LINE: no such level" );                                              \
        if ( ::Cairn::messagesEnabled( level ) ) [[unlikely]]                                      \
            ::Cairn::TraceLine( level, __LINE__, cairnRecipe_ ) << __VA_ARGS__;                    \
    } while ( false )
