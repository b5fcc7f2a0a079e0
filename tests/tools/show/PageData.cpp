#include "tests/tools/show/PageData.h"

#include <gtest/gtest.h>

#include <zlib.h>

#include <cstddef>
#include <cstring>
#include <sstream>
#include <string_view>

namespace ToolTest {

namespace {

std::string decoded( std::string_view base64 ) {
    static constexpr std::string_view digits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    unsigned bits = 0;
    int count = 0;
    for ( const char c : base64 ) {
        const std::size_t digit = digits.find( c );
        if ( digit == std::string_view::npos )
            break;
        bits = bits << 6 | static_cast<unsigned>( digit );
        count += 6;
        if ( count >= 8 ) {
            count -= 8;
            bytes += static_cast<char>( bits >> count & 0xFF );
        }
    }
    return bytes;
}

std::string inflated( const std::string & packed ) {
    std::string out( 1 << 16, '\0' );
    for ( ;; ) {
        uLongf size = static_cast<uLongf>( out.size() );
        const int rc = ::uncompress( reinterpret_cast<Bytef *>( out.data() ), &size,
                                     reinterpret_cast<const Bytef *>( packed.data() ),
                                     static_cast<uLong>( packed.size() ) );
        if ( rc == Z_OK ) {
            out.resize( size );
            return out;
        }
        if ( rc != Z_BUF_ERROR )
            return {};
        out.resize( out.size() * 2 );
    }
}

template <class Number>
std::uint64_t numberAt( const std::string & bytes, std::size_t offset ) {
    Number number{};
    std::memcpy( &number, bytes.data() + offset, sizeof number );
    return number;
}

} // namespace

PageData::PageData( const std::string & page ) {
    const std::string begin = "<script id=\"data\" type=\"application/octet-stream\">";
    const std::size_t from = page.find( begin );
    if ( from == std::string::npos ) {
        ADD_FAILURE() << "the page holds no data";
        return;
    }
    const std::size_t first = from + begin.size();
    const std::string data =
        inflated( decoded( std::string_view( page ).substr( first, page.find( '<', first ) ) ) );
    if ( data.size() < 8 ) {
        ADD_FAILURE() << "the data cannot be unpacked";
        return;
    }
    const auto length = static_cast<std::size_t>( numberAt<std::uint32_t>( data, 0 ) );
    head = nlohmann::json::parse( data.substr( 8, length ) );
    columns_ = data.substr( 8 + length );
    const auto & texts = head["columns"]["texts"];
    std::istringstream lines( columns_.substr( texts[0], texts[2] ) );
    for ( std::string line; std::getline( lines, line ); )
        texts_.push_back( line );
}

std::vector<std::uint64_t> PageData::column( const std::string & name ) const {
    const auto & entry = head["columns"].at( name );
    const std::size_t offset = entry[0];
    const std::size_t width = entry[1];
    const std::size_t count = entry[2];
    EXPECT_EQ( offset % 8, 0u ) << name;
    std::vector<std::uint64_t> numbers;
    std::size_t at = offset;
    std::uint64_t last = 0;
    for ( std::size_t i = 0; i < count; ++i ) {
        if ( width == 0 ) {
            std::uint64_t value = 0;
            int shift = 0;
            unsigned char byte = 0;
            do {
                byte = static_cast<unsigned char>( columns_.at( at++ ) );
                value |= static_cast<std::uint64_t>( byte & 0x7F ) << shift;
                shift += 7;
            } while ( byte > 0x7F );
            last += value >> 1 ^ ( ~( value & 1 ) + 1 );
            numbers.push_back( last );
            continue;
        }
        const std::size_t place = offset + i * width;
        numbers.push_back( width == 1   ? numberAt<std::uint8_t>( columns_, place )
                           : width == 2 ? numberAt<std::uint16_t>( columns_, place )
                           : width == 4 ? numberAt<std::uint32_t>( columns_, place )
                                        : numberAt<std::uint64_t>( columns_, place ) );
    }
    return numbers;
}

std::vector<std::string> PageData::texts( const std::string & name ) const {
    std::vector<std::string> all;
    for ( const std::uint64_t number : column( name ) )
        all.push_back( texts_.at( number ) );
    return all;
}

namespace {

std::string named( const nlohmann::json & facts, const std::string & name ) {
    for ( const auto & fact : facts ) {
        if ( fact[0] == name )
            return fact[1];
    }
    return {};
}

} // namespace

std::string PageData::fact( const std::string & name ) const {
    return named( head["facts"], name );
}

std::string PageData::failureFact( const std::string & name ) const {
    return head.contains( "failure" ) ? named( head["failure"]["facts"], name ) : std::string();
}

nlohmann::json PageData::table( const std::string & name ) const {
    for ( const auto & table : head["tables"] ) {
        if ( table["name"] == name )
            return table;
    }
    return nullptr;
}

} // namespace ToolTest
