#pragma once

#include <string>

// The framework's debug assertion: reports something that must not happen, and stops the process
// only where the host wants that.

namespace Nacre {

namespace Platform {

/// The text of a debug report that is being built.
class DebugStream {
  public:
    DebugStream & operator<<( const char * text );
    DebugStream & operator<<( unsigned int value ); ///< in decimal
    const std::string & text() const noexcept { return text_; }

  private:
    std::string text_;
};

} // namespace Platform

/// Writes "FILE:LINE FUNCTION: TEXT" as one line to standard error; then aborts the process if
/// debugAssertStops(), otherwise returns.
void debugAndAssert( const Platform::DebugStream & message, const char * file,
                     const char * function, int line );

/// Whether a debug assertion stops the process; false at the start. Any thread.
bool debugAssertStops() noexcept;
void setDebugAssertStops( bool stops ) noexcept;

} // namespace Nacre
