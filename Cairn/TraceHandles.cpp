#include "Cairn/TraceHandles.h"

namespace Cairn {

Kiln::TraceHandle apiCairn( "ApiCairn", false );

Kiln::TraceHandle & _defaultTraceHandle() {
    static Kiln::TraceHandle handle( "CairnLtHelper", false );
    return handle;
}

} // namespace Cairn
