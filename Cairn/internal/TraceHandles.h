#pragma once

#include <CairnPlatform/Adapter.h>

#include <atomic>

// The two trace handles of the library.

namespace Cairn {

/// "ApiCairn": the call trace lines, at level 4. Created when the library is loaded.
extern __attribute__( ( visibility( "hidden" ) ) ) Kiln::TraceHandle apiCairn;

/// "CairnLtHelper": the recipes' own messages. Created on the first call, safe from several threads.
__attribute__( ( visibility( "hidden" ) ) ) Kiln::TraceHandle & _defaultTraceHandle();

/// The level mask of "CairnLtHelper", to be tested without a call. Until the handle is created this is a mask
/// with every level on, so that the first line or message calls _defaultTraceHandle() and creates it.
extern __attribute__( ( visibility( "hidden" ) ) ) std::atomic<const CairnPlatform::LevelMask *>
    defaultMask;

/// The level of the dual trace messages.
inline constexpr int messageLevel = 2;

/// Whether the level is enabled in the mask, which is read at this moment.
inline bool isEnabled( const CairnPlatform::LevelMask & mask, int level ) noexcept {
    return ( CairnPlatform::read( mask ) & ( 1u << level ) ) != 0;
}

/// Whether the level of "CairnLtHelper" may be enabled: false is certain.
inline bool messagesMayBeEnabled( int level ) noexcept {
    return isEnabled( *defaultMask.load( std::memory_order_acquire ), level );
}

/// Whether the level of "CairnLtHelper" is enabled.
inline bool messagesEnabled( int level ) {
    return messagesMayBeEnabled( level ) &&
           isEnabled( CairnPlatform::levelMask( _defaultTraceHandle() ), level );
}

} // namespace Cairn
