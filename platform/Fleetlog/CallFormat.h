#pragma once

#include <cstddef>
#include <cstdint>

// How the calls of an SDK lie in a trace file, as docs/trace-format.md describes it. Written by
// Interpose::TraceRecorder, decoded by TraceReader::CallAssembler from these same declarations.
//
// A call is two records of one thread: one before it with the inputs, one after it with the results.
// What does not fit into the first is in pieces that are written before it, so that the call is
// recorded in whole when its first record is.

namespace Fleetlog::Format {

/// The source file of the sites of calls. Their function is the call, their line a CallPart.
inline constexpr char callSource[] = "Shim::Sdk";

enum class CallPart : std::uint32_t {
    before = 1,
    after = 2,
    text =
        3, ///< of the thread's next call, a piece of a text: which one, start, length of all, piece
    values = 4, ///< the same, of an array: start, count of all, some values
};

/// Whether the thread held the activity lock.
enum class LockState : std::uint16_t {
    free = 0,
    held = 1,
    unknown = 2, ///< the recorder was not told how to ask
};

/// How much of a text is in the call's own record, and in each piece.
inline constexpr std::size_t callTextPieceBytes = 126;

/// How many elements of an array are in one record.
inline constexpr std::size_t maxCallValues = 16;

/// The values of a call's records by their format letters. A later version may have more of them
/// behind these, and more calls.
struct CallLayout {
    const char * name;
    const char * before;
    const char * beforeText; ///< the message, with a "%s" for each value
    const char * after;
    const char * afterText;
};

inline constexpr CallLayout callLayouts[] = {
    { "bcmlt_entry_allocate", "snp", " lock: %s unit: %s table: %s", "ni", " rc: %s handle: %s" },
    { "bcmlt_entry_attrib_set", "siip", " lock: %s handle: %s attribute: %s %s", "ni",
      " rc: %s handle: %s" },
    { "bcmlt_entry_commit", "siiipp", " lock: %s handle: %s opcode: %s priority: %s %s %s", "ni",
      " rc: %s handle: %s" },
    { "bcmlt_entry_field_add", "silp", " lock: %s handle: %s value: %s field: %s", "ni",
      " rc: %s handle: %s" },
    { "bcmlt_entry_field_array_add", "siiipa",
      " lock: %s handle: %s start: %s count: %s field: %s values: %s", "ni", " rc: %s handle: %s" },
    { "bcmlt_entry_field_get", "sip", " lock: %s handle: %s field: %s", "nil",
      " rc: %s handle: %s value: %s" },
    { "bcmlt_entry_field_symbol_add", "sipp", " lock: %s handle: %s field: %s symbol: %s", "ni",
      " rc: %s handle: %s" },
    { "bcmlt_entry_free", "si", " lock: %s handle: %s", "ni", " rc: %s handle: %s" },
    { "bcmlt_pt_entry_commit", "siiipp", " lock: %s handle: %s opcode: %s priority: %s %s %s", "ni",
      " rc: %s handle: %s" },
    { "preCallHook", "s", " lock: %s", "", " done" },
    { "failureHook", "s", " lock: %s", "", " done" },
};
inline constexpr std::size_t callCount = sizeof( callLayouts ) / sizeof( callLayouts[0] );

/// The function, letters and message of the pieces.
inline constexpr char callPieceName[] = "piece";
inline constexpr char callTextLetters[] = "iiip";
inline constexpr char callTextText[] = " text: %s start: %s length: %s %s";
inline constexpr char callValuesLetters[] = "iia";
inline constexpr char callValuesText[] = " start: %s count: %s values: %s";

/// What is no call: the hardware has changed an element of a row by itself, as a simulated chip is told
/// to. A record of a site with this source file and function; readers that do not know it show it as
/// the message that it is.
inline constexpr char hardwareSource[] = "Sim::Chip";
inline constexpr char hardwareName[] = "hardware";
inline constexpr char hardwareLetters[] = "iiiippil";
inline constexpr char hardwareText[] =
    " unit: %s index: %s instance: %s port: %s table: %s field: %s element: %s value: %s";

} // namespace Fleetlog::Format
