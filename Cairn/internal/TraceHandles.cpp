#include "Cairn/internal/TraceHandles.h"

namespace Cairn {

namespace {

/// Only the loader reads it.
[[gnu::used]] void ( *const counterpart )() noexcept = CairnPlatform::counterpart;

constinit const CairnPlatform::LevelMask everyLevel{ ~uint32_t( 0 ) };

} // namespace

Kiln::TraceHandle apiCairn( "ApiCairn", false );

constinit std::atomic<const CairnPlatform::LevelMask *> defaultMask = &everyLevel;

Kiln::TraceHandle & _defaultTraceHandle() {
    static Kiln::TraceHandle handle( "CairnLtHelper", false );
    defaultMask.store( &CairnPlatform::levelMask( handle ), std::memory_order_release );
    return handle;
}

} // namespace Cairn
