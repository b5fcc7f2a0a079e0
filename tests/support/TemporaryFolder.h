#pragma once

#include <string>

// A place for the files of a test.

namespace Support {

/// A new folder, removed at the end with what is in it.
class TemporaryFolder {
  public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder( const TemporaryFolder & ) = delete;
    TemporaryFolder & operator=( const TemporaryFolder & ) = delete;

    const std::string & path() const { return path_; }
    /// The path of a file in it.
    std::string path( const std::string & name ) const;
    /// Writes a file and returns its path.
    std::string write( const std::string & name, const std::string & contents ) const;

  private:
    std::string path_;
};

/// The contents of a file; empty if there is none.
std::string contents( const std::string & path );

} // namespace Support
