#pragma once

#include <Kiln/TraceHandle.h>

#include <atomic>

// The two trace handles of the library.

namespace Cairn {

/// "ApiCairn": the call trace lines, at level 4. Created when the library is loaded.
extern __attribute__( ( visibility( "hidden" ) ) ) Kiln::TraceHandle apiCairn;

/// "CairnLtHelper": the recipes' own messages. Created on the first call, safe from several threads.
__attribute__( ( visibility( "hidden" ) ) ) Kiln::TraceHandle & _defaultTraceHandle();

/// The level mask of "CairnLtHelper", to be tested without a call. Until the handle is created this is a mask
/// with every level on, so that who would trace goes on to _defaultTraceHandle() and creates it.
extern __attribute__( ( visibility( "hidden" ) ) ) std::atomic<const Kiln::TraceFacility::Mask *>
    defaultMask;

/// Whether the level of "CairnLtHelper" may be enabled: false is certain.
inline bool messagesMayBeEnabled( Kiln::TraceFacility::FacilityLevel level ) noexcept {
    const Kiln::TraceFacility::Mask * const mask = defaultMask.load( std::memory_order_acquire );
    return ( mask->load( std::memory_order_relaxed ) & ( 1u << level ) ) != 0;
}

/// Whether the level of "CairnLtHelper" is enabled.
inline bool messagesEnabled( Kiln::TraceFacility::FacilityLevel level ) {
    return messagesMayBeEnabled( level ) && _defaultTraceHandle().enabled( level );
}

} // namespace Cairn
