#pragma once

#include "tracereader/TraceReader.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Reads recordings: the SDK calls that a recorder has written into a trace (docs/trace-format.md).
//
//     TraceReader::Recording recording( { "recording/" } );
//     TraceReader::Event event;
//     while ( recording.next( event ) )
//         if ( event.moment == TraceReader::Event::Moment::after )
//             std::cout << name( event.call->call ) << " -> " << event.call->rc << '\n';
//
// The files of all threads are merged in the order in which things happened. A call has two
// moments, before and after it, between which those of other threads may lie. What is kept in
// memory is the calls that have not returned yet and the entries that are allocated, however long
// the recording is.
//
// Nothing in a recording is trusted. What is not understood is passed over, and a finding says so.
//
// Threads: an object is used by one thread at a time.

namespace TraceReader {

/// What a recorder writes down: the operations of the SDK, and the hooks.
enum class SdkCall : std::uint8_t {
    entryAllocate,
    entryAttribSet,
    entryCommit,
    entryFieldAdd,
    entryFieldArrayAdd,
    entryFieldGet,
    entryFieldSymbolAdd,
    entryFree,
    ptEntryCommit,
    preCallHook,
    failureHook,
};
inline constexpr std::size_t sdkCallCount = 11;

/// The name as the shim spells it: "bcmlt_entry_allocate".
std::string_view name( SdkCall call ) noexcept;
std::optional<SdkCall> sdkCallByName( std::string_view name ) noexcept;

/// Whether it is a hook: such a call has no inputs but the lock, and no results.
constexpr bool isHook( SdkCall call ) noexcept {
    return call == SdkCall::preCallHook || call == SdkCall::failureHook;
}

constexpr bool isFieldAdd( SdkCall call ) noexcept {
    return call == SdkCall::entryFieldAdd || call == SdkCall::entryFieldArrayAdd ||
           call == SdkCall::entryFieldSymbolAdd;
}

constexpr bool isCommit( SdkCall call ) noexcept {
    return call == SdkCall::entryCommit || call == SdkCall::ptEntryCommit;
}

/// One of the SDK's constants: its number in the recorded process, and its name, "BCMLT_OPCODE_INSERT";
/// empty if the number is none that the recorder knew.
struct SdkConstant {
    std::uint32_t number = 0;
    std::string name;

    /// Its name, or else its number.
    std::string text() const { return name.empty() ? std::to_string( number ) : name; }

    bool operator==( const SdkConstant & ) const = default;
};

/// Where and when one half of a call was recorded.
struct Stamp {
    const File * file = nullptr; ///< null: this half is not in the recording
    std::uint64_t offset = 0;    ///< in the file, in bytes
    std::int64_t time = 0;       ///< nanoseconds since 1970, UTC
    std::int64_t counter = 0;    ///< counts since the base of the file's clock
};

/// A recorded call. Members that the call does not have keep their defaults; so do its inputs
/// without `before.file`, when the ring has lost them, and its results without `after.file`.
struct RecordedCall {
    SdkCall call = SdkCall::entryFree;
    /// The place of its first half in the recording, from 1: what is said of a call names it.
    std::uint64_t number = 0;
    std::uint32_t process = 0;
    std::uint32_t thread = 0;
    Stamp before;
    Stamp after;

    // --- Inputs

    /// Whether the thread held the activity lock; nothing if the recorder was not told how to ask.
    std::optional<bool> isLockHeld;
    /// All operations. An allocate has its handle once it has returned, with a code of at least 0.
    std::uint32_t handle = 0;
    /// Those of the entry. Nothing, and empty: its allocate is not in the recording.
    std::optional<std::int32_t> unit;
    std::string table;
    std::string field;
    std::string symbol;
    /// Field add: the value. Array add: `count` values for the elements from `startIndex` on.
    std::vector<std::uint64_t> values;
    std::uint32_t startIndex = 0;
    std::uint32_t count = 0;
    SdkConstant opcode;
    SdkConstant priority;
    SdkConstant attribute;
    /// False: a long text or array of it is not in the recording as a whole. Texts then have their
    /// beginning, and of the values the first ones are there.
    bool isWhole = true;

    // --- Results

    std::int32_t rc = 0;
    std::uint64_t value = 0; ///< field get, if `rc` is at least 0: what was read

    bool hasInputs() const noexcept { return before.file != nullptr; }
    bool hasReturned() const noexcept { return after.file != nullptr; }
};

/// Something that happened.
struct Event {
    enum class Moment {
        before, ///< `call` is about to be made; it has its inputs
        after,  ///< `call` has returned; it has its results, and its inputs if they are known
        neverReturned, ///< at the end of the recording: `call` was made and has not returned
        message,       ///< `record` is no SDK call: a message of the trace, in the same order
    };
    Moment moment = Moment::message;
    const RecordedCall * call = nullptr; ///< valid until the next call of next()
    Record record;                       ///< the one that was read; not with neverReturned
};

/// A change that the hardware made by itself, which is recorded where a simulated chip is told to make
/// it. Texts are valid as long as the record.
struct HardwareChange {
    std::int32_t unit = 0;
    std::uint32_t index = 0;
    std::uint32_t instance = 0;
    std::uint32_t port = 0;
    std::string_view table;
    std::string_view field;
    std::uint32_t element = 0;
    std::uint64_t value = 0;
};

/// Nothing if the record is another message.
std::optional<HardwareChange> hardwareChangeOf( const Record & record );

/// Puts the calls of a trace together again, record by record: for those who read the records
/// themselves, in their order. Recording does it for everybody else.
class CallAssembler {
  public:
    CallAssembler();
    ~CallAssembler();
    CallAssembler( const CallAssembler & ) = delete;
    CallAssembler & operator=( const CallAssembler & ) = delete;

    /// Whether the records of a site are parts of recorded calls, understood or not.
    static bool isOfRecorder( const Site & site ) noexcept;

    /// Takes the next record. False if nothing comes of it: it is a part of a call whose record is
    /// still to come, or not understood, which is a finding. For a record that is none of a
    /// recorder the event is the message.
    bool take( const Record & record, Event & event );

    /// When all records have been taken: one after the other, in the order in which they were made,
    /// the calls that have not returned; false when there are no more.
    bool takeUnreturned( Event & event );

    const std::vector<Finding> & findings() const noexcept;

    /// Calls whose first half was not there: a ring has lost its beginning.
    std::uint64_t callsWithoutBefore() const noexcept;

  private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

/// Whether a file holds recorded calls, as far as its sites are registered.
bool hasCalls( const File & file );

/// The recording in some trace files.
class Recording {
  public:
    struct Options {
        /// Also the messages of the trace are events. Otherwise they are passed over.
        bool wantsMessages = false;
        /// Only the files of this process.
        std::optional<std::uint32_t> process = {};
    };

    struct Process {
        std::uint32_t process;
        std::string program;
        std::int64_t openTime; ///< when it opened its trace, nanoseconds since 1970, UTC
    };

    /// Opens files, and all trace files of directories. Throws Error, in one line with the remedy,
    /// if there is nothing that can be read, or if what can be read has no place for SDK calls.
    /// Files that cannot be read beside others that can are findings.
    explicit Recording( const std::vector<std::string> & paths );
    Recording( const std::vector<std::string> & paths, const Options & options );

    /// Reads files that are open.
    Recording( Merge merge, const Options & options );

    /// The next event; false at the end.
    bool next( Event & event );

    /// The processes whose SDK calls are here, by the time at which they opened their traces. The
    /// handles of one mean nothing in another.
    const std::vector<Process> & processes() const noexcept { return processes_; }

    /// What is not as it was written, and what is not understood; complete at the end. Those of the
    /// kinds `overwritten` and `removed` are in the nature of a ring and of a folder.
    std::vector<Finding> findings() const;

    /// Whether what came first is lost, as far as it was read: blocks of the ring were overwritten,
    /// or calls had no first half.
    bool hasLostBeginning() const;

    const Merge & merge() const noexcept { return merge_; }

  private:
    bool hasLostSegments() const;

    Merge merge_;
    Options options_;
    std::vector<Process> processes_;
    std::unique_ptr<CallAssembler> assembler_;
    bool isAtEnd_ = false;
};

/// The call in one line, as the tool shows it: name, entry, inputs, and results if it has returned.
///     bcmlt_entry_field_add entry 1 EGR_TUNNEL_ECN_ENCAPm OUTER_ECN = 2 -> rc 0
void appendText( std::string & out, const RecordedCall & call );

/// The same as members of a JSON object, without braces:
///     "call":"bcmlt_entry_field_add","number":3,"handle":1,"unit":0,"table":"...", ...
void appendJson( std::string & out, const RecordedCall & call );

} // namespace TraceReader
