#include "interpose/Fault.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

// Any bytes as an injection rule: refused with a message, or a fault that makes sense and reads
// back from its own text.

extern "C" int LLVMFuzzerTestOneInput( const std::uint8_t * data, std::size_t size ) {
    const std::string_view text( reinterpret_cast<const char *>( data ), size );
    const Interpose::ParsedFault parsed = Interpose::parseFault( text );
    if ( parsed.fault.has_value() != parsed.error.empty() )
        std::abort();
    if ( parsed.fault ) {
        if ( !Interpose::check( *parsed.fault ).empty() )
            std::abort();
        if ( Interpose::parseFault( Interpose::toText( *parsed.fault ) ).fault != parsed.fault )
            std::abort();
    }
    return 0;
}
