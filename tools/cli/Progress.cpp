#include "tools/cli/Progress.h"

#include "tools/model/Files.h"

#include <fmt/format.h>

#include <unistd.h>

namespace Tool {

Progress::Progress( std::string_view work )
    : work_( work ), isShown_( ::isatty( STDERR_FILENO ) != 0 ) {}

Progress::~Progress() { clear(); }

void Progress::clear() {
    if ( isWritten_ )
        writeAll( STDERR_FILENO, "\r\033[K" );
    isWritten_ = false;
}

void Progress::tellRuns( std::size_t done, std::size_t total ) {
    constexpr std::size_t runs = 16;
    if ( isShown_ && ( done % runs == 0 || done == total ) )
        write( fmt::format( "{} of {} runs", done, total ) );
}

void Progress::writeCalls() {
    if ( isShown_ )
        write( fmt::format( "{} calls", calls_ ) );
}

void Progress::write( const std::string & text ) {
    isWritten_ = true;
    writeAll( STDERR_FILENO, fmt::format( "\r{}: {}", work_, text ) );
}

} // namespace Tool
