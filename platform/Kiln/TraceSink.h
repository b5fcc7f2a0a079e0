#pragma once

#include <Kiln/TraceHandle.h>

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

// Where trace lines go: standard error (the start value), a file, or a function of the host.
//
// A line on standard error or in a file looks like this, times in UTC:
//
//     2026-03-01T07:30:00.123456Z 4711 ApiCairn/4 Cairn/CairnLtHelper:31 setEgrTunnelEcnEncap: TEXT
//
// A sink that does not take a line (a pipe that nobody reads, a full disk, a file at its size limit)
// never stops the process. Lines that were not written are counted, and the next that is written
// comes after one of the facility "Kiln" that tells how many.
//
// Each line leaves the process in one write, with nothing kept back, so no line is lost when the
// process aborts and lines of several threads or processes do not mix.

namespace Kiln {

/// A finished line, as a callback sees it. The references are valid during the callback only.
struct TraceLine {
    std::chrono::system_clock::time_point time;
    int thread;                ///< the kernel's thread id
    std::string_view facility; ///< "ApiCairn"
    TraceFacility::FacilityLevel level;
    std::string_view file; ///< source position, "Cairn/CairnLtHelper"
    int line;
    std::string_view function; ///< "setEgrTunnelEcnEncap"
    std::string_view text;     ///< what was written to the stream
};

/// The line as it is written to standard error or a file, without the line end.
std::string formatTraceLine( const TraceLine & line );

/// Lines go to standard error from now on.
void traceToStandardError();

/// Lines are appended to the file from now on; it is made if it does not exist. Throws
/// std::system_error, and leaves the sink as it was, if the file cannot be opened.
void traceToFile( const std::string & path );

/// Lines are handed to the callback from now on, one at a time, on the thread that traces, which
/// mostly holds the activity lock. The callback must not trace. What it throws ends the process.
void traceToCallback( std::function<void( const TraceLine & )> callback );

} // namespace Kiln
