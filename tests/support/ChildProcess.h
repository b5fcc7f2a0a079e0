#pragma once

#include <functional>
#include <sys/types.h>

// Work that a test has done in a process of its own, because it ends that process or is killed.

namespace Support {

/// Starts `work` in a child process, which leaves no core file. The child ends by _exit( 0 ), or by
/// _exit( 1 ) if work() returns false.
pid_t startChild( const std::function<bool()> & work );

/// Waits for the end of a child and returns what waitpid() says of it.
int statusOf( pid_t child );

/// Both.
int runInChild( const std::function<bool()> & work );

} // namespace Support
