#pragma once

#include "tracereader/Source.h"

#include <Fleetlog/Format.h>

#include <cstdint>

namespace TraceReader {

/// The header of a file: what is checked of it, where it says that the parts are, and whether the
/// file is as long as it says.
class Header {
  public:
    /// Reads it into the source. Throws Error.
    explicit Header( Source & source );

    /// Reads what a writer changes.
    void readAgain();

    /// A file that is being followed may be cut under its writer, which nobody may do.
    void checkNotCut();

    /// Whether somebody may still be writing.
    Writer writer() const;

    std::uint64_t descriptorOffset() const noexcept { return descriptorOffset_; }
    std::uint64_t ringOffset() const noexcept { return ringOffset_; }
    std::uint64_t recordRoom() const noexcept { return recordRoom_; }
    Fleetlog::Timestamps timestamps() const noexcept { return timestamps_; }
    const Clock & clock() const noexcept { return clock_; }

  private:
    void read();
    void checkSize();

    Source & source_;
    const Bytes & bytes_;
    Info & info_;
    std::uint64_t descriptorOffset_ = 0;
    std::uint64_t ringOffset_ = 0;
    std::uint64_t recordRoom_ = 0;
    std::uint64_t size_ = 0; ///< of the file, when it was last looked at
    Fleetlog::Timestamps timestamps_{};
    Clock clock_;
};

} // namespace TraceReader
