#include "tools/model/State.h"

#include "tools/model/Errors.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

// Any bytes as a state file: refused with a message that names the file, or schemas that a chip can
// be built of.

extern "C" int LLVMFuzzerTestOneInput( const std::uint8_t * data, std::size_t size ) {
    const std::string_view contents( reinterpret_cast<const char *>( data ), size );
    try {
        for ( const Tool::SavedUnit & kept : Tool::parseState( contents, "x.json" ) ) {
            if ( !kept.schema.check().empty() )
                std::abort();
        }
    } catch ( const Tool::InputError & error ) {
        if ( !std::string_view( error.what() ).starts_with( "x.json: " ) )
            std::abort();
    }
    return 0;
}
