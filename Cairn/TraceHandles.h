#pragma once

#include <Kiln/TraceHandle.h>

// The two trace handles of the library.

namespace Cairn {

/// "ApiCairn": the call trace lines, at level 4. Created when the library is loaded.
extern __attribute__( ( visibility( "hidden" ) ) ) Kiln::TraceHandle apiCairn;

/// "CairnLtHelper": the recipes' own messages. Created on the first call, safe from several threads.
__attribute__( ( visibility( "hidden" ) ) ) Kiln::TraceHandle & _defaultTraceHandle();

} // namespace Cairn
