#include "Cairn/GuardedCall.h"

#include <Kiln/TraceHelper.h>

#include <iostream>
#include <string>

// The failure function of the C library's assert(), which NDEBUG must not take away.
#undef NDEBUG
#include <cassert>

namespace Cairn {

namespace {

std::string position( const CallSite & site ) {
    return std::string( sourceFile ) + ":" + std::to_string( site.line ) + " " + site.text;
}

void writeTraceLine( const CallSite & site, const std::string & text ) {
    Kiln::TraceHelper line( apiCairn, Kiln::TraceFacility::level4, sourceFile, site.line,
                            site.recipe->function );
    line.stream() << text;
}

} // namespace

void failCall( const CallSite & site, int rc ) noexcept {
    // The line is built first and written whole, so that two threads that fail at once do not mix.
    const std::string report = position( site ) + " API ERROR:" + Shim::sdk_->errmsg( rc ) + " (" +
                               std::to_string( rc ) + ")";
    std::cerr << report << std::endl;
    Shim::sdk_->failureHook();
    stopByAssertion( "0", site.line, *site.recipe );
}

void traceCall( const CallSite & site, int rc ) noexcept {
    writeTraceLine( site, position( site ) + " (rc:" + std::to_string( rc ) + ")" );
}

void traceIgnoredCall( const CallSite & site ) noexcept {
    writeTraceLine( site, position( site ) + " no rc check" );
}

void stopByAssertion( const char * expression, int line, const Recipe & recipe ) noexcept {
    __assert_fail( expression, sourceFile, static_cast<unsigned>( line ), recipe.pretty );
}

} // namespace Cairn
