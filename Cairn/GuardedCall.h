#pragma once

#include "Cairn/Recipe.h"
#include "Cairn/SdkNames.h"
#include "Cairn/TraceHandles.h"

#include <Kiln/ActivityLock.h>

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

/// What is known of a call site when the library is built. Read-only.
struct CallSite {
    const char * text; ///< the call as it is spelled
    const Recipe * recipe;
    int line;
};

/// The failure report, the failure hook and the assertion stop.
[[noreturn, gnu::cold, gnu::noinline]] void failCall( const CallSite & site, int rc ) noexcept;

/// Writes a call trace line that ends in the return code.
[[gnu::cold, gnu::noinline]] void traceCall( const CallSite & site, int rc ) noexcept;

/// Writes a call trace line that ends in " no rc check".
[[gnu::cold, gnu::noinline]] void traceIgnoredCall( const CallSite & site ) noexcept;

/// The assertion stop: prints and aborts as assert() does, in every build type.
[[noreturn, gnu::cold, gnu::noinline]] void stopByAssertion( const char * expression, int line,
                                                             const Recipe & recipe ) noexcept;

inline bool callTraceEnabled() noexcept {
    return apiCairn.enabled( Kiln::TraceFacility::level4 );
}

/// Steps 5 and 6 of a guarded call.
inline void judgeCall( const CallSite & site, int rc ) noexcept {
    if ( rc < 0 ) [[unlikely]]
        failCall( site, rc );
    if ( callTraceEnabled() ) [[unlikely]]
        traceCall( site, rc );
}

} // namespace Cairn

/// The descriptor of the call site; internal to the macros below.
#define CAIRN_CALL_SITE_( text ) \
    static constexpr ::Cairn::CallSite cairnSite_ { text, &cairnRecipe_, __LINE__ }

#define CAIRN_CALL( ... )                                      \
    do {                                                       \
        CAIRN_CALL_SITE_( #__VA_ARGS__ );                      \
        ::Shim::sdk_->preCallHook();                           \
        int cairnRc_;                                          \
        {                                                      \
            const ::Kiln::ActivityUnlockAnchor cairnUnlocked_; \
            cairnRc_ = __VA_ARGS__;                            \
        }                                                      \
        ::Cairn::judgeCall( cairnSite_, cairnRc_ );            \
    } while ( false )

#define CAIRN_CALL_LOCK_KEPT( ... )                 \
    do {                                            \
        CAIRN_CALL_SITE_( #__VA_ARGS__ );           \
        ::Shim::sdk_->preCallHook();                \
        const int cairnRc_ = __VA_ARGS__;           \
        ::Cairn::judgeCall( cairnSite_, cairnRc_ ); \
    } while ( false )

#define CAIRN_CALL_UNCHECKED( rc, ... )                        \
    do {                                                       \
        CAIRN_CALL_SITE_( #__VA_ARGS__ );                      \
        {                                                      \
            const ::Kiln::ActivityUnlockAnchor cairnUnlocked_; \
            ( rc ) = __VA_ARGS__;                              \
        }                                                      \
        if ( ::Cairn::callTraceEnabled() ) [[unlikely]]        \
            ::Cairn::traceCall( cairnSite_, rc );              \
    } while ( false )

#define CAIRN_CALL_IGNORED( ... )                              \
    do {                                                       \
        CAIRN_CALL_SITE_( #__VA_ARGS__ );                      \
        {                                                      \
            const ::Kiln::ActivityUnlockAnchor cairnUnlocked_; \
            static_cast<void>( __VA_ARGS__ );                  \
        }                                                      \
        if ( ::Cairn::callTraceEnabled() ) [[unlikely]]        \
            ::Cairn::traceIgnoredCall( cairnSite_ );           \
    } while ( false )

#define CAIRN_ASSERT( ... )                                                   \
    do {                                                                      \
        if ( !( __VA_ARGS__ ) ) [[unlikely]]                                  \
            ::Cairn::stopByAssertion( #__VA_ARGS__, __LINE__, cairnRecipe_ ); \
    } while ( false )
