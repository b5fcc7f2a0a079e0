#pragma once

#include <CairnPlatform/TextBuffer.h>
#include <Kiln/TraceHandle.h>

#include <string>
#include <string_view>

// Writing trace lines. Test the level first; a TraceHelper is only made for a line that is wanted.
//
//     if ( handle.enabled( Kiln::TraceFacility::level8 ) ) {
//         Kiln::TraceHelper line( handle, Kiln::TraceFacility::level8,
//                                 "Cairn/CairnLtHelper", 42, "lbPortInit" );
//         line.stream() << "lbPortInit" << " portId: " << portId;
//     }
//
// The line goes to the process's trace sink (<Kiln/TraceSink.h>) when the helper is destroyed.

namespace Kiln {

/// The text of a line that is being built. Integers are written in decimal, bool as "true" or
/// "false", a null text as "(null)". Control characters of a text are escaped ("\n", "\t", "\x1b"),
/// so that no value looks like another line, or steers a terminal.
class TraceStream {
  public:
    TraceStream & operator<<( const char * text );
    TraceStream & operator<<( const std::string & text );
    TraceStream & operator<<( bool value );
    TraceStream & operator<<( int value );
    TraceStream & operator<<( unsigned int value );
    TraceStream & operator<<( unsigned long value );
    TraceStream & operator<<( unsigned short value );

    /// Valid until the next `<<`.
    std::string_view text() const noexcept { return text_.text(); }

  private:
    CairnPlatform::TextBuffer text_;
};

/// One open trace line. Belongs to the thread that made it.
class TraceHelper {
  public:
    /// Opens a line. `file` and `function` must outlive the helper. Does not test the level.
    TraceHelper( TraceHandle & handle, TraceFacility::FacilityLevel level, const char * file,
                 int line, const char * function );
    /// Emits the line. An exception of the sink terminates the process.
    ~TraceHelper();

    TraceHelper( const TraceHelper & ) = delete;
    TraceHelper & operator=( const TraceHelper & ) = delete;

    TraceStream & stream() noexcept { return stream_; }

  private:
    friend struct CairnPlatform::Layout;

    TraceHandle & handle_;
    TraceFacility::FacilityLevel level_;
    const char * file_;
    int line_;
    const char * function_;
    TraceStream stream_;
};

} // namespace Kiln
