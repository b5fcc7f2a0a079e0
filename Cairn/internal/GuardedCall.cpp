#include "Cairn/internal/GuardedCall.h"

#include <csignal>
#include <iostream>
#include <string>
#include <unistd.h>

// The failure function of the C library's assert(), which NDEBUG must not take away.
#undef NDEBUG
#include <cassert>

namespace Cairn {

namespace {

template <class... Pieces>
void writeTraceLine( int line, const Recipe & recipe, Pieces... pieces ) {
    Kiln::TraceHelper traceLine( apiCairn, CairnPlatform::level( callTraceLevel ), sourceFile, line,
                                 recipe.function );
    ( static_cast<void>( CairnPlatform::stream( traceLine ) << pieces ), ... );
}

/// From here on a write that nobody reads, or that a limit refuses, fails and does not end the process: there is a
/// hook to be called and an abort to come. For this thread alone, which does not return.
void blockWriteSignals() noexcept {
    sigset_t signals;
    sigemptyset( &signals );
    sigaddset( &signals, SIGPIPE );
    sigaddset( &signals, SIGXFSZ );
    pthread_sigmask( SIG_BLOCK, &signals, nullptr );
}

/// Writes to std::cerr in one piece, whatever state the agent has left it in.
void writeReport( const std::string & report ) {
    std::cerr.exceptions( std::ios_base::goodbit );
    std::cerr.clear();
    try {
        // Unformatted: neither base nor width matters.
        if ( std::cerr.write( report.data(), static_cast<std::streamsize>( report.size() ) )
                 .flush() )
            return;
    } catch ( ... ) {
        // Of a stream that is flushed first because std::cerr is tied to it.
    }
    // The stream has nothing behind it, or what it has fails. Nobody is left to tell if this fails, too.
    [[maybe_unused]] const auto written = ::write( STDERR_FILENO, report.data(), report.size() );
}

[[noreturn]] void failCall( const char * text, int line, const Recipe & recipe, int rc ) {
    const char * const errorText = Shim::sdk_->errmsg( rc );
    const std::string report =
        std::string( sourceFile ) + ":" + std::to_string( line ) + " " + text +
        " API ERROR:" + ( errorText != nullptr ? errorText : "(no error text)" ) + " (" +
        std::to_string( rc ) + ")\n";
    blockWriteSignals();
    writeReport( report );
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
    writeTraceLine( line, recipe, sourceFile, ":", line, " ", text, " (rc:", rc, ")" );
}

void traceIgnoredCall( const char * text, int line, const Recipe & recipe ) noexcept {
    writeTraceLine( line, recipe, sourceFile, ":", line, " ", text, " no rc check" );
}

void stopByAssertion( const char * expression, int line, const Recipe & recipe ) noexcept {
    blockWriteSignals();
    __assert_fail( expression, sourceFile, static_cast<unsigned>( line ), recipe.pretty );
}

} // namespace Cairn
