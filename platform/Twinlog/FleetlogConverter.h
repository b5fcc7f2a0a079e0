#pragma once

#include <CairnPlatform/TextBuffer.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

// Builds the text of a message from the same pieces that its descriptor in the trace file has.
//
//     Twinlog::FleetlogConverter converter;
//     Twinlog::twinlogFixed_ << "setLoadBalanceRandSeedCtrl"
//                            << " unit: " << "%s" << " seed: " << "%s";
//     converter << unit << seed;
//     converter.finish(); // "setLoadBalanceRandSeedCtrl unit: 0 seed: 12345"
//
// Threads: the stream of pieces is shared by the process. A message is built from the converter's
// construction to finish() with the activity lock held.

namespace Twinlog {

/// A text of fixed capacity that pieces are written into.
class FixedStream {
  public:
    static constexpr std::size_t capacity = 4096;

    /// Appends the piece. What goes beyond the capacity is dropped, and the text ends in "...".
    FixedStream & operator<<( const char * piece ) noexcept;

    void clear() noexcept {
        length_ = 0;
        placeholders_ = 0;
        areAllNoted_ = true;
    }
    std::string_view text() const noexcept { return { text_, length_ }; }

  private:
    friend class FleetlogConverter;

    /// The place of the next "%s" from `from` on; that of the text's end if there is none. `before` says
    /// how many there are before `from`.
    std::size_t findPlaceholder( std::size_t from, std::size_t before ) const noexcept;

    static constexpr std::size_t maxPlaceholders = 32;

    std::size_t length_ = 0;
    std::size_t placeholders_ = 0;
    std::uint16_t places_[maxPlaceholders] = {}; ///< of the pieces that were a "%s"
    bool areAllNoted_ = true; ///< there is no "%s" but these, and each of them is whole
    char text_[capacity] = {};
};

/// The pieces of the message that is being built.
extern FixedStream twinlogFixed_;

/// Puts values in the place of the "%s" of the pieces, in order. A value is copied as it is: one
/// that contains "%s" takes no other value's place. Values are written as a trace line writes them:
/// integers in decimal, bool as "true" or "false", a null text as "(null)".
///
/// A "%s" without a value is left in the text. A value without a "%s" is appended after a blank.
class FleetlogConverter {
  public:
    /// Begins a message: clears twinlogFixed_.
    FleetlogConverter();

    FleetlogConverter( const FleetlogConverter & ) = delete;
    FleetlogConverter & operator=( const FleetlogConverter & ) = delete;

    FleetlogConverter & operator<<( const char * value );
    FleetlogConverter & operator<<( bool value );
    FleetlogConverter & operator<<( int value );
    FleetlogConverter & operator<<( unsigned int value );
    FleetlogConverter & operator<<( unsigned short value );

    /// The text: appends the pieces that follow the last value. Belongs to the converter.
    const char * finish();

  private:
    void appendUpToPlaceholder();

    CairnPlatform::TextBuffer text_;
    std::size_t used_ = 0;   ///< how much of the pieces has gone into text_
    std::size_t filled_ = 0; ///< how many "%s" were in it
};

} // namespace Twinlog
