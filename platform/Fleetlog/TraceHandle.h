#pragma once

#include <Fleetlog/TraceFile.h>

#include <atomic>
#include <memory>

// The handle through which code finds the trace file that it writes to, and the host's calls that
// open and close it.
//
//     Fleetlog::openDefault( { .directory = "/var/log/agent" } );   // when the agent starts
//     ...
//     Fleetlog::closeDefault();                                     // when it ends; not needed
//
// Nothing is opened unless the host does: with no handle, a message is not recorded.

namespace Fleetlog {

/// A file that a thread has written messages to, and its handle, by the generation.
struct KnownFile {
    unsigned generation = 0; ///< 0: of no handle
    TraceFile * file = nullptr;

    /// In an order in which a signal handler never finds a generation with the file of another.
    void set( unsigned newGeneration, TraceFile * newFile ) noexcept {
        generation = 0;
        std::atomic_signal_fence( std::memory_order_seq_cst );
        file = newFile;
        std::atomic_signal_fence( std::memory_order_seq_cst );
        generation = newGeneration;
    }
};

/// The calling thread's. Written by rememberFile(), read inline with each message.
extern constinit thread_local KnownFile knownFile [[gnu::tls_model( "initial-exec" )]];

/// Where the messages of a process go.
class TraceHandle {
  public:
    /// A handle without a file.
    TraceHandle() = default;

    /// Opens the file of the process, or with Files::perThread that of the calling thread; those of
    /// other threads are made at their first message. Throws as TraceFile does.
    explicit TraceHandle( const OpenOptions & options );

    /// Closes all files of the handle. No thread may be writing to them.
    ~TraceHandle();

    TraceHandle( const TraceHandle & ) = delete;
    TraceHandle & operator=( const TraceHandle & ) = delete;

    /// Not zero when each thread has a file of its own.
    int multiThread() const noexcept { return multiThread_; }

    /// The single file of the process; null if there is none.
    TraceFile * traceFile() const noexcept { return file_.get(); }

    /// The calling thread's file. A thread that has none takes over the file of a thread of the
    /// handle that has ended, which keeps its name and its records; without such a file, one is made
    /// now. So there are as many files as there were threads at a time. When a thread ends, its file
    /// is marked as closed. Null if no file could be made: standard error has said so once, and the
    /// thread's messages are not recorded. Only for handles with Files::perThread.
    TraceFile * mtTraceFile() noexcept;

    /// The file that was remembered last, if that was done by this thread and for this handle; else
    /// null.
    TraceFile * rememberedFile() const noexcept {
        if ( knownFile.generation != generation_ )
            return nullptr;
        if ( knownFile.file == nullptr )
            __builtin_unreachable();
        return knownFile.file;
    }

    /// From here on rememberedFile() tells this thread this file: its own, or that of the process.
    void rememberFile( TraceFile & file ) const noexcept { knownFile.set( generation_, &file ); }

  private:
    friend struct CairnPlatform::Layout;

    void makeThreadFile();
    TraceFile * openThreadFile() noexcept;

    int multiThread_ = 0;       // the first field: hosts read it without a call
    unsigned generation_ = ~0u; ///< tells this handle from any other that the process had
    std::unique_ptr<TraceFile> file_;
    OpenOptions options_;
};

/// The handle that messages are written through; null when there is none. Set it before threads
/// that write messages are started, or read it with std::atomic_ref.
extern TraceHandle * defaultFleetlogHandle;

/// Opens a handle and makes it the default. Throws as TraceFile does, and leaves the default as it
/// was. Closes the default that was open before; no thread may be writing to that.
void openDefault( const OpenOptions & options );

/// Closes the default handle, if there is one. No thread may be writing a message. A process that
/// ends without it loses nothing; its files are marked as not closed.
void closeDefault() noexcept;

/// For files with Timestamps::tick: gives the default handle's file (of the process, or of the
/// calling thread) the current time. Call it from the agent's loop, with the activity lock held if
/// the process shares the file.
void refreshTick() noexcept;

} // namespace Fleetlog
