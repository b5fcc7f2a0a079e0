#include <Twinlog/FleetlogConverter.h>

#include <CairnPlatform/internal/CopyText.h>

#include <algorithm>
#include <cstring>

namespace Twinlog {

namespace {

constexpr std::string_view placeholder = "%s";

// Copies the text, and returns whether it may have a '%': it says so of any that has one, and of some
// others.
bool copyAndFindPercent( char * to, std::string_view text ) noexcept {
    return CairnPlatform::copyText( to, text, []<class Word>( Word word ) {
        using CairnPlatform::inEachByte;
        const Word other = word ^ inEachByte<Word>( '%' );
        // The highest bit of a byte that is 0, and of one that is 1 behind it.
        return ( other - inEachByte<Word>( 1 ) ) & ~other & inEachByte<Word>( 0x80 );
    } );
}

} // namespace

constinit FixedStream twinlogFixed_;

FixedStream & FixedStream::operator<<( const char * piece ) noexcept {
    // Most "%s" are pieces of their own. One that is noted here is not looked for in a text that was
    // stored just before, where reading several bytes at a time waits for the stores.
    if ( piece[0] == '%' && piece[1] == 's' && piece[2] == '\0' &&
         placeholders_ < maxPlaceholders && length_ <= capacity - placeholder.size() ) {
        places_[placeholders_++] = static_cast<std::uint16_t>( length_ );
        placeholder.copy( text_ + length_, placeholder.size() );
        length_ += placeholder.size();
        return *this;
    }
    constexpr std::string_view cutMark = "...";
    const std::size_t length = std::strlen( piece );
    const std::size_t kept = std::min( length, capacity - length_ );
    if ( copyAndFindPercent( text_ + length_, { piece, kept } ) )
        areAllNoted_ = false;
    length_ += kept;
    if ( kept < length ) [[unlikely]] {
        cutMark.copy( text_ + capacity - cutMark.size(), cutMark.size() );
        areAllNoted_ = false;
    }
    return *this;
}

std::size_t FixedStream::findPlaceholder( std::size_t from, std::size_t before ) const noexcept {
    if ( areAllNoted_ )
        return before < placeholders_ ? places_[before] : length_;
    return std::min( text().find( placeholder, from ), length_ );
}

FleetlogConverter::FleetlogConverter() { twinlogFixed_.clear(); }

void FleetlogConverter::appendUpToPlaceholder() {
    const std::string_view pieces = twinlogFixed_.text();
    const std::size_t at = twinlogFixed_.findPlaceholder( used_, filled_ );
    text_.append( pieces.substr( used_, at - used_ ) );
    used_ = at;
    if ( at == pieces.size() ) {
        text_.append( ' ' );
    } else {
        used_ += placeholder.size();
        ++filled_;
    }
}

FleetlogConverter & FleetlogConverter::operator<<( const char * value ) {
    appendUpToPlaceholder();
    text_.append( std::string_view( value == nullptr ? "(null)" : value ) );
    return *this;
}

FleetlogConverter & FleetlogConverter::operator<<( bool value ) {
    return *this << ( value ? "true" : "false" );
}

FleetlogConverter & FleetlogConverter::operator<<( int value ) {
    appendUpToPlaceholder();
    text_.append( value );
    return *this;
}

FleetlogConverter & FleetlogConverter::operator<<( unsigned int value ) {
    appendUpToPlaceholder();
    text_.append( value );
    return *this;
}

FleetlogConverter & FleetlogConverter::operator<<( unsigned short value ) {
    appendUpToPlaceholder();
    text_.append( value );
    return *this;
}

const char * FleetlogConverter::finish() {
    const std::string_view rest = twinlogFixed_.text().substr( used_ );
    text_.append( rest );
    used_ += rest.size();
    return text_.c_str();
}

} // namespace Twinlog
