#pragma once

#include "tracereader/TraceReader.h"

#include <cstddef>
#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

// What the tests of the trace have in common: a place for files, and what a reader finds in one.

namespace Support {

/// A new directory, removed at the end with what is in it.
class Directory {
  public:
    Directory();
    ~Directory();
    Directory( const Directory & ) = delete;
    Directory & operator=( const Directory & ) = delete;

    const std::string & path() const { return path_; }

    /// The trace files in it, by name.
    std::vector<std::string> files() const;

    /// The one trace file in it; fails the test if there is not exactly one.
    std::string file() const;

  private:
    std::string path_;
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

/// Runs `work` in a child process and returns what waitpid() says of its end. The child leaves by
/// _exit( 0 ), or _exit( 1 ) if work() returns false.
int runInChild( const std::function<bool()> & work );

/// Starts `work` in a child process.
pid_t startChild( const std::function<bool()> & work );

} // namespace Support
