#include "tools/model/BringupFile.h"

#include "tools/model/Errors.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

// Any bytes as a bring-up file: refused with a message that names the file, or a bring-up whose
// steps can be told.

extern "C" int LLVMFuzzerTestOneInput( const std::uint8_t * data, std::size_t size ) {
    static const Sim::Schema chip = Sim::referenceSchema();
    const std::string_view contents( reinterpret_cast<const char *>( data ), size );
    try {
        const Tool::Bringup bringup =
            Tool::parseBringup( contents, "x.toml", []( const std::string & ) { return chip; } );
        if ( bringup.model.chips.empty() )
            std::abort();
        for ( const Tool::Step & step : bringup.steps ) {
            if ( toText( step ).empty() && std::get_if<Tool::StageStep>( &step.what ) == nullptr )
                std::abort();
        }
    } catch ( const Tool::InputError & error ) {
        if ( !std::string_view( error.what() ).starts_with( "x.toml:" ) )
            std::abort();
    }
    return 0;
}
