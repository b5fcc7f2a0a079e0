#pragma once

#include "interpose/Interposer.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

// The trace recorder: an SDK that writes each operation and each hook, on its way to another SDK,
// into trace files (docs/trace-format.md). Link Cairn::Recorder.
//
//     Interpose::TraceRecorder recorder( agentsShim, { .directory = "/var/log/agent" } );
//     Shim::sdk_ = &recorder;
//
// A call is recorded before it is made, with all its inputs, and once it has returned, with its code
// and its outputs. What was recorded is in the files when the process ends in whatever way, kill -9
// included; a call that never returned is the last one of its thread.
//
// The files are of the form of the always-on trace, one for each thread, and `cairn-lt` reads both in
// one order. The recorder brings its own writer: it needs nothing of the platform that the agent has.
//
// Hooks, constants and error texts are passed on. Constants are asked once, here, to give the
// opcodes, priorities and attributes of the recording their names.

namespace Interpose {

/// Its operations are spelled out one by one, not taken as values: it is there all the time.
class TraceRecorder final : public Interposer {
  public:
    enum class Keep {
        newest,    ///< the newest calls of each thread, in a ring
        everything ///< all calls, in files that are added as they are full
    };

    struct Options {
        /// Where the files go, `<program>.sdk-<process>-<thread>...fleetlog`. It must exist.
        std::string directory = {};

        Keep keep = Keep::newest;

        /// Size of a thread's ring; a call takes about 120 bytes. With Keep::everything, of the
        /// largest files: the first of a thread has at most 1 MiB, each next one twice as much as
        /// the one before. 0: 4 MiB for a ring, 64 MiB for files.
        std::size_t fileBytes = 0;

        /// Keep::everything: how many full files of a thread stay; 0: all. The oldest is removed.
        std::size_t keepFullFiles = 0;

        /// What the ended processes of this program may leave in the directory: so many files with
        /// so many bytes. Those beyond are removed when a recorder is made, the ones that were
        /// written longest ago first. Full files of a living process count as those of an ended one.
        /// 0: 1000 files with 4 GiB for rings; no limit for Keep::everything.
        std::size_t keepFiles = 0;
        std::uint64_t keepBytes = 0;

        /// Tells whether the calling thread holds the agent's activity lock, which is then recorded
        /// with each call; on our platform, Kiln::holdsActivityLock. Called at each call and hook;
        /// must not throw. Null: it is recorded as unknown.
        bool ( *isLockHeld )() = nullptr;
    };

    /// Makes the calling thread's file; those of other threads are made at their first calls. `inner`
    /// must outlive the recorder. Throws std::system_error if the directory cannot be written or
    /// there is no room.
    TraceRecorder( Shim::Sdk & inner, const Options & options );

    /// Closes the files. No call may be under way.
    ~TraceRecorder();

    int bcmlt_entry_allocate( int unit, const char * table,
                              std::uint32_t * handle ) noexcept override;
    int bcmlt_entry_attrib_set( std::uint32_t handle, std::uint32_t attribute ) noexcept override;
    int bcmlt_entry_commit( std::uint32_t handle, std::uint32_t opcode,
                            std::uint32_t priority ) noexcept override;
    int bcmlt_entry_field_add( std::uint32_t handle, const char * field,
                               std::uint64_t value ) noexcept override;
    int bcmlt_entry_field_array_add( std::uint32_t handle, const char * field,
                                     std::uint32_t startIndex, const std::uint64_t * values,
                                     std::uint32_t count ) noexcept override;
    int bcmlt_entry_field_get( std::uint32_t handle, const char * field,
                               std::uint64_t * value ) noexcept override;
    int bcmlt_entry_field_symbol_add( std::uint32_t handle, const char * field,
                                      const char * symbol ) noexcept override;
    int bcmlt_entry_free( std::uint32_t handle ) noexcept override;
    int bcmlt_pt_entry_commit( std::uint32_t handle, std::uint32_t opcode,
                               std::uint32_t priority ) noexcept override;
    void preCallHook() noexcept override;
    void failureHook() noexcept override;

    /// An element of a row that the hardware has changed by itself.
    struct HardwareChange {
        int unit = 0;
        const char * table = nullptr;
        std::uint32_t index = 0;
        std::uint32_t instance = 0;
        std::uint32_t port = 0;
        const char * field = nullptr;
        std::uint32_t element = 0;
        std::uint64_t value = 0;
    };

    /// Records a change behind the SDK's back, as a simulated chip is told to make: a replay makes it,
    /// too. On a real chip nobody sees them.
    void noteHardwareChange( const HardwareChange & change ) noexcept;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

// Threads: any number at once, each writes to a file of its own and takes no lock. Nothing is
// allocated for a call; a thread's first call, and with Keep::everything the one that fills a file,
// make a file, which takes some milliseconds. When the disk is full, standard error says so once and
// the agent goes on: without a file of its own a thread's calls are not recorded; with Keep::everything
// the newest calls overwrite the oldest of the last file until there is room again.
//
// Forks: a child records into files of its own, from its first call on. Signal handlers must not
// make SDK calls through a recorder.

} // namespace Interpose
