#pragma once

#include "Cairn/internal/SdkNames.h"

#include <Kiln/ActivityLock.h>

// Stands in for the library's header of this name where the recipes are compiled bare: the same
// calls, hooks and lock releases, in the same order, by the same compiler, and nothing of what
// guards them. What a recipe costs beyond this is what the guard costs.

namespace Cairn {

/// An assertion's condition is evaluated, because it asks the shim for constants, and its value is
/// not used.
inline void ignore( bool ) noexcept {}

} // namespace Cairn

#define CAIRN_RECIPE( pretty ) static_assert( sizeof( pretty ) != 0 )

#define CAIRN_CALL( ... )                                                                          \
    do {                                                                                           \
        ::Shim::sdk_->preCallHook();                                                               \
        [[maybe_unused]] int cairnRc_;                                                             \
        {                                                                                          \
            const ::Kiln::ActivityUnlockAnchor cairnUnlocked_;                                     \
            cairnRc_ = __VA_ARGS__;                                                                \
        }                                                                                          \
    } while ( false )

#define CAIRN_CALL_LOCK_KEPT( ... )                                                                \
    do {                                                                                           \
        ::Shim::sdk_->preCallHook();                                                               \
        [[maybe_unused]] const int cairnRc_ = __VA_ARGS__;                                         \
    } while ( false )

#define CAIRN_CALL_UNCHECKED( rc, ... )                                                            \
    do {                                                                                           \
        const ::Kiln::ActivityUnlockAnchor cairnUnlocked_;                                         \
        ( rc ) = __VA_ARGS__;                                                                      \
    } while ( false )

#define CAIRN_CALL_IGNORED( ... )                                                                  \
    do {                                                                                           \
        const ::Kiln::ActivityUnlockAnchor cairnUnlocked_;                                         \
        static_cast<void>( __VA_ARGS__ );                                                          \
    } while ( false )

#define CAIRN_ASSERT( ... ) ::Cairn::ignore( static_cast<bool>( __VA_ARGS__ ) )
