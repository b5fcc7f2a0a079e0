#pragma once

#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"
#include "tracereader/TraceReader.h"

#include <cstddef>
#include <string>
#include <vector>

// What the tests of the trace have in common: a place for files, and what a reader finds in one.

namespace Support {

/// A temporary folder that traces are written into.
class Directory : public TemporaryFolder {
  public:
    /// The trace files in it, by name.
    std::vector<std::string> files() const;

    /// The one trace file in it; fails the test if there is not exactly one.
    std::string file() const;
};

/// All that a reader finds.
struct Reading {
    std::vector<std::string> texts;
    std::vector<std::string> findings;
    TraceReader::Info info;
    TraceReader::Counts counts;
    std::vector<TraceReader::Site> sites;
};

Reading read( const std::string & path );
Reading read( std::vector<std::byte> content );
Reading read( TraceReader::File & file );

std::vector<std::byte> contentOf( const std::string & path );

} // namespace Support
