#pragma once

#include "tools/model/State.h"

#include <functional>
#include <string>
#include <vector>

// A state file in use.

namespace Tool {

/// A state file that no other process uses while this lives, so that what one saves is not lost to
/// another. Processes that only read the file (loadState()) are not kept from it.
///
/// The lock is a file beside it, ".NAME.lock", which is removed at the end. It is held by the
/// kernel: a process that is killed holds it no more.
class StateFile {
  public:
    /// Waits for the process that uses the file; `onWait` is called before that. InputError if it
    /// is no regular file, Trouble if it cannot be locked. The path may lead to it through
    /// symbolic links.
    StateFile( const std::string & path, const std::function<void()> & onWait );
    ~StateFile();
    StateFile( const StateFile & ) = delete;
    StateFile & operator=( const StateFile & ) = delete;

    /// What it holds; nothing if there is no such file yet.
    std::vector<SavedUnit> load() const;

    /// Writes all units of a chip. The file is replaced as a whole. Trouble, and the old file is
    /// kept, if that fails.
    void save( const Sim::Chip & chip ) const;

  private:
    std::string path_; // as messages name it
    std::string file_; // where it leads
    std::string lock_;
    int descriptor_ = -1;
};

} // namespace Tool
