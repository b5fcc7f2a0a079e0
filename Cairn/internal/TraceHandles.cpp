#include "Cairn/internal/TraceHandles.h"

namespace Cairn {

namespace {

constinit const Kiln::TraceFacility::Mask everyLevel = ~0u;

} // namespace

Kiln::TraceHandle apiCairn( "ApiCairn", false );

constinit std::atomic<const Kiln::TraceFacility::Mask *> defaultMask = &everyLevel;

Kiln::TraceHandle & _defaultTraceHandle() {
    static Kiln::TraceHandle handle( "CairnLtHelper", false );
    defaultMask.store( &handle.mask(), std::memory_order_release );
    return handle;
}

} // namespace Cairn
