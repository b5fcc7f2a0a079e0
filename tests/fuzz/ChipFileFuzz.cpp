#include "tools/model/ChipFile.h"

#include "tools/model/Errors.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

// Any bytes as a chip file: refused with a message that names the file and the line, or a chip that
// can be built.

extern "C" int LLVMFuzzerTestOneInput( const std::uint8_t * data, std::size_t size ) {
    const std::string_view contents( reinterpret_cast<const char *>( data ), size );
    try {
        if ( !Tool::parseChipFile( contents, "x.toml" ).check().empty() )
            std::abort();
    } catch ( const Tool::InputError & error ) {
        if ( !std::string_view( error.what() ).starts_with( "x.toml:" ) )
            std::abort();
    }
    return 0;
}
