#include "Cairn/internal/GuardedCall.h"

#include <iostream>
#include <string>

// The failure function of the C library's assert(), which NDEBUG must not take away.
#undef NDEBUG
#include <cassert>

namespace Cairn {

namespace {

std::string position( const char * text, int line ) {
    return std::string( sourceFile ) + ":" + std::to_string( line ) + " " + text;
}

void writeTraceLine( int line, const Recipe & recipe, const std::string & text ) {
    Kiln::TraceHelper traceLine( apiCairn, CairnPlatform::level( callTraceLevel ), sourceFile, line,
                                 recipe.function );
    CairnPlatform::stream( traceLine ) << text;
}

[[noreturn]] void failCall( const char * text, int line, const Recipe & recipe, int rc ) {
    // The line is built first and written whole, so that two threads that fail at once do not mix.
    const std::string report = position( text, line ) + " API ERROR:" + Shim::sdk_->errmsg( rc ) +
                               " (" + std::to_string( rc ) + ")";
    std::cerr << report << std::endl;
    Shim::sdk_->failureHook();
    stopByAssertion( "0", line, recipe );
}

} // namespace

void preCallHook() noexcept { Shim::sdk_->preCallHook(); }

void settleCall( const char * text, int line, const Recipe & recipe, int rc ) noexcept {
    if ( rc < 0 )
        failCall( text, line, recipe, rc );
    traceCall( text, line, recipe, rc );
}

void traceCall( const char * text, int line, const Recipe & recipe, int rc ) noexcept {
    writeTraceLine( line, recipe, position( text, line ) + " (rc:" + std::to_string( rc ) + ")" );
}

void traceIgnoredCall( const char * text, int line, const Recipe & recipe ) noexcept {
    writeTraceLine( line, recipe, position( text, line ) + " no rc check" );
}

void stopByAssertion( const char * expression, int line, const Recipe & recipe ) noexcept {
    __assert_fail( expression, sourceFile, static_cast<unsigned>( line ), recipe.pretty );
}

} // namespace Cairn
