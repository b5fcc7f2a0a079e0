#pragma once

#include <Fleetlog/RingBuf.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

// A trace file that is being written: descriptors of message sites, and a ring of records, in a
// file that is mapped into memory. What was written is in the file when the process ends in
// whatever way; only a machine that goes down loses what the kernel had not yet brought to the
// disk.
//
// The file is decoded without the program that wrote it (docs/trace-format.md).
//
// A file appears under its name when it is complete. While its process lives, a lock of the kernel
// (F_OFD_SETLK) tells that it does, whatever the process id is reused for. The lock goes with the
// mapping: no descriptor stays open.
//
// Never truncate a file that a process may be writing: its next store there would be a SIGBUS, which
// no library can prevent. Move it away or delete it; the process goes on writing to it, and a new
// process makes a new one.
//
// Fork: a child never writes into its parent's file. Its first message makes a file of its own,
// beside the parent's, with the child's process id in the name. This needs the handlers that fork()
// runs: a child made by clone() or _Fork() shares its parent's file and damages it if it writes
// messages. Neither a fork from a signal handler that interrupted a message is allowed.

namespace Fleetlog {

/// Whether the threads of a process share a file.
enum class Files {
    perProcess, ///< one file, written with the activity lock held
    perThread,  ///< one file a thread, got at the thread's first message; no lock is needed
};

/// What is done when a file is full.
enum class Keep {
    newest, ///< the file is a ring: the oldest records are overwritten
    /// The next file is begun, a segment: all records are kept, or the newest segments of them. When
    /// there is no room for another, standard error says so once, the segment goes on as a ring, and
    /// each time it is full again another one is tried.
    all,
};

struct OpenOptions {
    /// Where the files go. It must exist.
    std::string directory;

    /// Size of each file's ring, at least 8192; rounded up to blocks of 4 KiB. With Keep::all, of the
    /// largest segments: the first has at most 1 MiB, and each next one twice as much as the one before.
    std::size_t ringBytes = std::size_t( 1 ) << 20;

    /// Room for descriptors in each file, about 150 bytes a message site; rounded up to 4 KiB.
    std::size_t descriptorBytes = std::size_t( 64 ) << 10;

    Timestamps timestamps = Timestamps::counter;
    Files files = Files::perProcess;

    Keep keep = Keep::newest;

    /// Keep::all: how many full segments of a file stay; 0: all. Beyond that, the oldest is removed.
    std::size_t keepSegments = 0;

    /// Put behind the program's name in the names of the files. Files with another suffix are other
    /// files: neither `keepFiles` nor `keepBytes` counts them.
    std::string suffix = {};

    /// Permissions of the files, less the process's umask.
    mode_t mode = 0640;

    /// What the ended processes of this program may leave in the directory: so many files with so
    /// many bytes on disk. When a process opens its first file, those beyond are removed, the ones
    /// that were written longest ago first. Files of living processes are not counted.
    std::size_t keepFiles = 1000;
    std::uint64_t keepBytes = std::uint64_t( 1 ) << 30;
};

class TraceFile {
  public:
    /// How far the table of registered sites goes. Sites with identifiers beyond it are recorded all the
    /// same, but each of their messages takes the long way through MsgDesc.
    static constexpr std::size_t maxSites = 16384;

    /// Makes `<directory>/<program><suffix>-<process>[-<thread>][-<segment>].fleetlog`, reserves its
    /// disk space, maps it and touches each of its pages, so that no message waits for a page fault or meets a full
    /// disk. A file of that name from an earlier process is left alone: a number is added to the
    /// name. Of a program's name 63 bytes are used.
    ///
    /// `thread` is the thread id for a file of one thread, 0 for a file of the process.
    ///
    /// Throws std::system_error if the options are out of range, no directory is given, it cannot be
    /// written, or there is no room; no file is left behind. A process that is killed meanwhile may
    /// leave one with a hidden name, `.<program>-...new`, which a later process removes.
    TraceFile( const OpenOptions & options, int thread );

    /// Marks the file as closed and unmaps it. The file stays on disk.
    ~TraceFile();

    TraceFile( const TraceFile & ) = delete;
    TraceFile & operator=( const TraceFile & ) = delete;

    /// Removes what the ended processes of this program have left in the directory beyond the
    /// options' limits. What cannot be removed stays.
    static void removeOldFiles( const OpenOptions & options );

    /// Where the file is. In a child after fork(): the parent's, until the first message.
    const std::string & path() const noexcept { return path_; }

    RingBuf * ringBuf() noexcept { return &ring_; }

    /// The table of the sites that are registered in this file: at a site's identifier, a byte that
    /// is not zero. Identifiers from initialisedLength() on are not in the table; its first byte is no
    /// site's, so that its length is at least 1.
    const unsigned char * initialised() const noexcept { return initialised_; }
    std::size_t initialisedLength() const noexcept { return lastInitialised_ + 1; }

    /// With Timestamps::tick, the time that records carry from now on: the wall clock's. Otherwise
    /// does nothing.
    void refreshTick() noexcept;

  private:
    friend struct CairnPlatform::Layout;
    friend class MsgDesc;
    friend class RingBuf;
    friend class Registry;

    void create();
    std::string stem() const;
    std::size_t ringBytes() const noexcept;

    /// With Keep::all: goes on in a new segment. False if there is none.
    bool beginSegment() noexcept;

    /// Marks the file as closed and unmaps it.
    void close() noexcept;

    /// Whether the site is registered in this file, in the table or beyond it.
    bool isRegistered( std::uint32_t id ) const noexcept;
    void setRegistered( std::uint32_t id );

    /// Whether there is a file to write to. In a child after fork(), makes one at the first call.
    bool makeInChild() noexcept;

    /// Counts a record that was dropped, because it interrupted another.
    void countInterrupting() noexcept;

    /// The thread of the file has ended; another may take the file over.
    void leaveToThread() noexcept;
    void takeOver( int thread ) noexcept;

    /// In a child after fork(): lets go of the parent's file.
    void leaveToParent() noexcept;
    Format::FileHeader & header() noexcept;

    RingBuf ring_;
    std::size_t lastInitialised_ = 0; ///< the highest identifier in the table
    unsigned char initialised_[maxSites] = {};
    std::vector<bool> registeredBeyond_; ///< the sites from maxSites on

    OpenOptions options_;
    int thread_;
    int firstThread_;           ///< that the file was made for
    std::uint32_t segment_ = 0; ///< with Keep::all, from 1
    std::vector<std::string> fullSegments_;
    std::string path_;
    std::byte * memory_ = nullptr;
    std::size_t memoryBytes_ = 0;
    std::size_t descriptorsUsed_ = 0;
    bool mayCreate_ = false;     ///< in a child after fork(), until the first message
    bool isRegistering_ = false; ///< a descriptor is being written
};

} // namespace Fleetlog
