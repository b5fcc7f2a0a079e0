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

FleetlogConverter & FleetlogConverter::operator<<( const char * value ) {
    constexpr std::string_view placeholder = "%s";
    const std::string_view rest = twinlogFixed_.text().substr( used_ );
    const std::size_t at = rest.find( placeholder );
    if ( at == std::string_view::npos ) {
        text_ += rest;
        text_ += ' ';
        used_ += rest.size();
    } else {
        text_ += rest.substr( 0, at );
        used_ += at + placeholder.size();
    }
    text_ += value == nullptr ? "(null)" : value;
    return *this;
}

FleetlogConverter & FleetlogConverter::operator<<( bool value ) {
    return *this << ( value ? "true" : "false" );
}

FleetlogConverter & FleetlogConverter::operator<<( int value ) {
    return *this << std::to_string( value ).c_str();
}

FleetlogConverter & FleetlogConverter::operator<<( unsigned int value ) {
    return *this << std::to_string( value ).c_str();
}

FleetlogConverter & FleetlogConverter::operator<<( unsigned short value ) {
    return *this << std::to_string( value ).c_str();
}

std::string FleetlogConverter::text() const {
    return text_ + std::string( twinlogFixed_.text().substr( used_ ) );
}

} // namespace Twinlog
