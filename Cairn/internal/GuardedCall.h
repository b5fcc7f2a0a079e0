#pragma once

#include "Cairn/internal/Recipe.h"
#include "Cairn/internal/SdkNames.h"
#include "Cairn/internal/TraceHandles.h"

#include <CairnPlatform/Adapter.h>

// The guarded call: every SDK call of a recipe is observable, loud and final.
//
//     CAIRN_CALL( bcmlt_entry_allocate( unit, "EGR_TUNNEL_ECN_ENCAPm", &egrTunnelEcnEncapEntry ) );
//
// In this order:
//   1. the shim's pre-call hook, before anything of the call is evaluated;
//   2. the interpreter lock (if this thread holds it) and the activity lock are released;
//   3. the call is evaluated: constants are asked of the shim, then the SDK operation is made;
//   4. both locks are taken back;
//   5. rc < 0: one API ERROR line on standard error, the shim's failure hook, then the assertion stop;
//   6. rc >= 0: a call trace line, if "ApiCairn" has level 4 enabled. Nothing is built otherwise.
//
// The stop always speaks. A shim that has no error text gets one in its place. The report is one write, to std::cerr
// whatever flags, width and exceptions were set there, or past it if it fails. Standard error may be a pipe that nobody
// reads or a full disk: the failure hook is called all the same, and the process ends by SIGABRT. For that, SIGPIPE and
// SIGXFSZ are blocked in this thread from the report on, the hook included. The shim's operations do not throw; if one
// does, std::terminate() ends the process at that place, for all of this is noexcept.
//
// NDEBUG changes nothing of this. The text that is printed is the call as it is spelled, so a call site
// is one line, with a blank after "(" and before ")".
//
// The family:
//   CAIRN_CALL( call )                 all of the above
//   CAIRN_CALL_LOCK_KEPT( call )       steps 2 and 4 left out
//   CAIRN_CALL_UNCHECKED( rc, call )   no hook; rc keeps the result; a trace line whatever its sign; no
//                                      report and no stop
//   CAIRN_CALL_IGNORED( call )         the same, the result is dropped and the line says so
//   CAIRN_ASSERT( condition )          the assertion stop if the condition does not hold; no hooks, no
//                                      report
// Each is one statement, to be ended with a semicolon, in a function that begins with CAIRN_RECIPE.

namespace Cairn {

/// The level of the call trace lines.
inline constexpr int callTraceLevel = 4;

// A call site passes its text, line and recipe one by one, as constants of its cold code. A descriptor would hold two
// addresses that the loader relocates, for each site and in each process.

/// Step 1. A function: a call through the shim's virtual table would take 8 bytes more at each of some 280 sites.
void preCallHook() noexcept;

/// Steps 5 and 6 once there is something to do: the failure report, the failure hook and the assertion
/// stop if rc < 0; else the call trace line.
[[gnu::cold, gnu::noinline]] void settleCall( const char * text, int line, const Recipe & recipe,
                                              int rc ) noexcept;

/// Writes a call trace line that ends in the return code.
[[gnu::cold, gnu::noinline]] void traceCall( const char * text, int line, const Recipe & recipe,
                                             int rc ) noexcept;

/// Writes a call trace line that ends in " no rc check".
[[gnu::cold, gnu::noinline]] void traceIgnoredCall( const char * text, int line,
                                                    const Recipe & recipe ) noexcept;

/// The assertion stop: prints and aborts as assert() does, in every build type.
[[noreturn, gnu::cold, gnu::noinline]] void stopByAssertion( const char * expression, int line,
                                                             const Recipe & recipe ) noexcept;

/// Steps 5 and 6 of a guarded call. One test covers both: the level's bit of the mask is shifted to the sign bit, so
/// the result is negative if the call failed or the level is on.
inline void judgeCall( const CairnPlatform::LevelMask & api, const char * text, int line,
                       const Recipe & recipe, int rc ) noexcept {
    const uint32_t enabled = CairnPlatform::read( api ) << ( 31 - callTraceLevel );
    if ( static_cast<int>( static_cast<uint32_t>( rc ) | enabled ) < 0 ) [[unlikely]]
        settleCall( text, line, recipe, rc );
}

} // namespace Cairn

#define CAIRN_CALL( ... )                                                                          \
    do {                                                                                           \
        ::Cairn::preCallHook();                                                                    \
        int cairnRc_;                                                                              \
        {                                                                                          \
            const ::Kiln::ActivityUnlockAnchor cairnUnlocked_;                                     \
            cairnRc_ = __VA_ARGS__;                                                                \
        }                                                                                          \
        ::Cairn::judgeCall( cairnApi_, #__VA_ARGS__, __LINE__, cairnRecipe_, cairnRc_ );           \
    } while ( false )

#define CAIRN_CALL_LOCK_KEPT( ... )                                                                \
    do {                                                                                           \
        ::Cairn::preCallHook();                                                                    \
        const int cairnRc_ = __VA_ARGS__;                                                          \
        ::Cairn::judgeCall( cairnApi_, #__VA_ARGS__, __LINE__, cairnRecipe_, cairnRc_ );           \
    } while ( false )

#define CAIRN_CALL_UNCHECKED( rc, ... )                                                            \
    do {                                                                                           \
        {                                                                                          \
            const ::Kiln::ActivityUnlockAnchor cairnUnlocked_;                                     \
            ( rc ) = __VA_ARGS__;                                                                  \
        }                                                                                          \
        if ( ::Cairn::isEnabled( cairnApi_, ::Cairn::callTraceLevel ) ) [[unlikely]]               \
            ::Cairn::traceCall( #__VA_ARGS__, __LINE__, cairnRecipe_, rc );                        \
    } while ( false )

#define CAIRN_CALL_IGNORED( ... )                                                                  \
    do {                                                                                           \
        {                                                                                          \
            const ::Kiln::ActivityUnlockAnchor cairnUnlocked_;                                     \
            static_cast<void>( __VA_ARGS__ );                                                      \
        }                                                                                          \
        if ( ::Cairn::isEnabled( cairnApi_, ::Cairn::callTraceLevel ) ) [[unlikely]]               \
            ::Cairn::traceIgnoredCall( #__VA_ARGS__, __LINE__, cairnRecipe_ );                     \
    } while ( false )

#define CAIRN_ASSERT( ... )                                                                        \
    do {                                                                                           \
        if ( !( __VA_ARGS__ ) ) [[unlikely]]                                                       \
            ::Cairn::stopByAssertion( #__VA_ARGS__, __LINE__, cairnRecipe_ );                      \
    } while ( false )
