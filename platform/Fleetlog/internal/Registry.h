#pragma once

#include <Fleetlog/TraceFile.h>

#include <memory>
#include <mutex>
#include <thread>
#include <vector>

// The trace files of the process. Needed for what crosses threads: fork(), the end of a thread, the
// closing of a handle.

namespace Fleetlog {

class Registry {
  public:
    /// Never destroyed: threads may end, and so close their files, while the process does.
    static Registry & instance();

    /// Each TraceFile is known from its construction to its destruction.
    void add( TraceFile & file );
    void remove( TraceFile & file ) noexcept;

    /// Owns the file of a thread on behalf of the handle with this generation.
    void addThreadFile( std::unique_ptr<TraceFile> file, unsigned generation );
    void closeThreadFiles( unsigned generation ) noexcept;

    /// The calling thread ends. The next thread of a handle that has no file takes over the one that
    /// this thread had there.
    void leaveThreadFiles() noexcept;

    /// The calling thread's file of the handle: the one it has, or one whose thread has ended. Null if
    /// there is neither.
    TraceFile * threadFile( unsigned generation ) noexcept;

  private:
    struct ThreadFile {
        std::unique_ptr<TraceFile> file;
        unsigned generation;
        std::thread::id thread =
            std::this_thread::get_id(); ///< none in a child: it was the parent's
        bool hasThread = true;          ///< which has not ended
    };

    Registry();
    template <class Predicate>
    std::unique_ptr<TraceFile> takeThreadFile( Predicate isWanted ) noexcept;

    std::mutex mutex_; ///< held over fork(), so that the child finds it free and the lists whole
    std::vector<TraceFile *> files_;
    std::vector<ThreadFile> threadFiles_;
};

} // namespace Fleetlog
