#include "interpose/Interposer.h"

namespace Interpose {

int Interposer::operate( const Operation & operation ) noexcept {
    return perform( inner_, operation );
}

std::uint32_t Interposer::number( SdkCall constant ) noexcept {
    return askNumber( inner_, constant );
}

const char * Interposer::text( SdkCall constant ) noexcept { return askText( inner_, constant ); }

} // namespace Interpose
