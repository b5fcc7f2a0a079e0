#pragma once

#include "tracereader/Recording.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Tool {

/// One line of standard error that tells how far long work is, if that is a terminal. It is gone when
/// this is.
class Progress {
  public:
    /// "sweep", "replay": what the line begins with.
    explicit Progress( std::string_view work );
    ~Progress();
    Progress( const Progress & ) = delete;
    Progress & operator=( const Progress & ) = delete;

    /// "sweep: 32 of 5170 runs"
    void tellRuns( std::size_t done, std::size_t total );

    /// "replay: 1310720 calls": how many have returned. Cheap enough for each event of a recording.
    void tell( const TraceReader::Event & event ) {
        if ( event.moment == TraceReader::Event::Moment::after && ++calls_ % step == 0 )
            writeCalls();
    }

    /// Before anything else is written to a terminal: takes the line away.
    void clear();

  private:
    static constexpr std::uint64_t step = 8192;
    void writeCalls();
    void write( const std::string & text );

    std::string work_;
    bool isShown_;
    bool isWritten_ = false;
    std::uint64_t calls_ = 0;
};

} // namespace Tool
