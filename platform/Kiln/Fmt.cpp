#include <Kiln/Fmt.h>

#include <string>
#include <string_view>

namespace Kiln {

Nacre::Impl::StrB _fmt( const char * pattern, int value ) {
    std::string text;
    text.reserve( 32 );
    for ( std::string_view rest = pattern; !rest.empty(); ) {
        if ( rest.starts_with( "%d" ) ) {
            text += std::to_string( value );
            rest.remove_prefix( 2 );
        } else {
            if ( rest.starts_with( "%%" ) )
                rest.remove_prefix( 1 );
            text += rest.front();
            rest.remove_prefix( 1 );
        }
    }
    return text;
}

} // namespace Kiln
