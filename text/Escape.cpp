#include "text/Escape.h"

#include <array>

namespace Text {

namespace {

// Which characters stand for themselves in a printed line, and which in a JSON string.
enum : unsigned char { inLine = 1, inJson = 2 };

constexpr auto plainness = [] {
    std::array<unsigned char, 256> table{};
    for ( std::size_t each = 0x20; each < 0x7f; ++each )
        table[each] = each == '"' || each == '\\' ? inLine : inLine | inJson;
    return table;
}();

// Takes the characters off the front of a text that stand for themselves.
std::string_view takePlain( std::string_view & text, unsigned char where ) {
    std::size_t length = 0;
    while ( length < text.size() &&
            ( plainness[static_cast<unsigned char>( text[length] )] & where ) != 0 )
        ++length;
    const std::string_view plain = text.substr( 0, length );
    text.remove_prefix( length );
    return plain;
}

void appendByte( std::string & out, char byte ) {
    constexpr char digits[] = "0123456789abcdef";
    out += digits[static_cast<unsigned char>( byte ) >> 4];
    out += digits[static_cast<unsigned char>( byte ) & 15];
}

// The control characters beyond ASCII, U+0080 to U+009F, which terminals obey as well.
bool isControl( std::string_view character ) {
    return character.size() == 2 && character[0] == '\xc2' &&
           static_cast<unsigned char>( character[1] ) < 0xa0;
}

// Appends the text; `appendEscaped( character, isUtf8 )` appends a character, or a byte that is none,
// that does not stand for itself.
template <class AppendEscaped>
void appendWith( std::string & out, std::string_view text, unsigned char where,
                 const AppendEscaped & appendEscaped ) {
    for ( ;; ) {
        out += takePlain( text, where );
        if ( text.empty() )
            return;
        const std::size_t length = characterLength( text );
        const std::string_view character = text.substr( 0, length == 0 ? 1 : length );
        if ( length > 1 && !isControl( character ) )
            out += character;
        else
            appendEscaped( character, length != 0 );
        text.remove_prefix( character.size() );
    }
}

} // namespace

std::size_t characterLength( std::string_view text ) {
    const auto byte = [&]( std::size_t at ) { return static_cast<unsigned char>( text[at] ); };
    const auto isBetween = [&]( std::size_t at, unsigned low, unsigned high ) {
        return at < text.size() && byte( at ) >= low && byte( at ) <= high;
    };
    const unsigned first = byte( 0 );
    if ( first < 0x80 )
        return 1;
    if ( first >= 0xc2 && first <= 0xdf )
        return isBetween( 1, 0x80, 0xbf ) ? 2 : 0;
    if ( first >= 0xe0 && first <= 0xef ) {
        const unsigned low = first == 0xe0 ? 0xa0 : 0x80;
        const unsigned high = first == 0xed ? 0x9f : 0xbf;
        return isBetween( 1, low, high ) && isBetween( 2, 0x80, 0xbf ) ? 3 : 0;
    }
    if ( first >= 0xf0 && first <= 0xf4 ) {
        const unsigned low = first == 0xf0 ? 0x90 : 0x80;
        const unsigned high = first == 0xf4 ? 0x8f : 0xbf;
        const bool isWhole =
            isBetween( 1, low, high ) && isBetween( 2, 0x80, 0xbf ) && isBetween( 3, 0x80, 0xbf );
        return isWhole ? 4 : 0;
    }
    return 0;
}

void appendPrintable( std::string & out, std::string_view text ) {
    appendWith( out, text, inLine, [&]( std::string_view character, bool ) {
        if ( character == "\n" ) {
            out += "\\n";
        } else if ( character == "\t" ) {
            out += "\\t";
        } else {
            for ( const char byte : character ) {
                out += "\\x";
                appendByte( out, byte );
            }
        }
    } );
}

std::string printable( std::string_view text ) {
    std::string line;
    appendPrintable( line, text );
    return line;
}

void appendJson( std::string & out, std::string_view text ) {
    appendWith( out, text, inJson, [&]( std::string_view character, bool isUtf8 ) {
        if ( !isUtf8 ) {
            out += "\\ufffd";
        } else if ( character == "\"" || character == "\\" ) {
            out += '\\';
            out += character;
        } else {
            out += "\\u00";
            appendByte( out, character.back() );
        }
    } );
}

} // namespace Text
