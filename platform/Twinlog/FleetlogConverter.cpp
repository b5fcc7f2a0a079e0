#include <Twinlog/FleetlogConverter.h>

#include <algorithm>
#include <cstring>

namespace Twinlog {

constinit FixedStream twinlogFixed_;

FixedStream & FixedStream::operator<<( const char * piece ) noexcept {
    constexpr std::string_view cutMark = "...";
    const std::size_t length = std::strlen( piece );
    const std::size_t kept = std::min( length, capacity - length_ );
    std::memcpy( text_ + length_, piece, kept );
    length_ += kept;
    if ( kept < length )
        cutMark.copy( text_ + capacity - cutMark.size(), cutMark.size() );
    return *this;
}

FleetlogConverter::FleetlogConverter() { twinlogFixed_.clear(); }

void FleetlogConverter::appendUpToPlaceholder() {
    constexpr std::string_view placeholder = "%s";
    const std::string_view rest = twinlogFixed_.text().substr( used_ );
    const std::size_t at = rest.find( placeholder );
    if ( at == std::string_view::npos ) {
        text_.append( rest );
        text_.append( ' ' );
        used_ += rest.size();
    } else {
        text_.append( rest.substr( 0, at ) );
        used_ += at + placeholder.size();
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
