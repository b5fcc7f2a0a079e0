#pragma once

#include "tracereader/Recording.h"

#include <cstdint>
#include <memory>
#include <string>

// Where "cairn-lt trace --export" writes to.

namespace Tool {

enum class ExportFormat { ctf, chrome, folded };

/// A trace in a format of other programs.
class Export {
  public:
    virtual ~Export() = default;

    /// Takes all events, in their order. Those that are not wanted are not written.
    virtual void take( const TraceReader::Event & event, bool isWanted ) = 0;

    /// When all events have been taken: what was written takes its place.
    virtual void finish() = 0;

    /// Whether something lies on the disk that only the end of this object removes.
    virtual bool hasLeftovers() const = 0;
};

/// `output` is a file, or, of the format ctf, a directory: it is not there yet, or empty. A file that is
/// there is replaced. An empty text is standard output. InputError if it cannot be that; Trouble if it
/// cannot be written. Without finish(), nothing is left behind.
std::unique_ptr<Export> startExport( ExportFormat format, const std::string & output );

} // namespace Tool
