#pragma once

#include <cstddef>
#include <string>
#include <sys/types.h>

namespace Fleetlog {

/// A trace file that is being made. It has a hidden name until it is complete, so that no reader
/// meets it in between, and from its first moment a lock that the kernel drops when the process
/// ends. What is not published is removed.
class NewFile {
  public:
    /// Makes a file in a directory. Throws std::system_error.
    NewFile( const std::string & directory, const std::string & stem, mode_t mode );
    ~NewFile();
    NewFile( const NewFile & ) = delete;
    NewFile & operator=( const NewFile & ) = delete;

    /// Gives the file its disk space: without it, some later store would stop the process. Throws
    /// std::system_error.
    void reserve( std::size_t bytes );

    /// Maps all of it, for reading and writing. The mapping keeps the lock, too, so that no
    /// descriptor stays open. Throws std::system_error.
    std::byte * map( std::size_t bytes );

    /// Whether the file could be locked.
    bool isLocked() const noexcept { return isLocked_; }

    /// Names it <stem>.fleetlog, or <stem>.2.fleetlog and so on: the first of them that does not
    /// exist. Returns the path. Throws std::system_error.
    std::string publish();

    /// How the hidden names end.
    static constexpr const char * hiddenEnding = ".new";

  private:
    std::string directory_;
    std::string stem_;
    std::string hiddenPath_;
    int descriptor_ = -1;
    bool isLocked_ = false;
};

} // namespace Fleetlog
