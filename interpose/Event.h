#pragma once

#include "interpose/Operation.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

// Calls of an SDK as records, which own their texts and values and hold the results.

namespace Interpose {

/// A number that stands for one of the SDK's constants.
struct SdkNumber {
    std::uint32_t number = 0;
    std::optional<SdkCall> constant = {}; ///< which; nothing if it is none of them

    bool operator==( const SdkNumber & ) const = default;
};

/// "BCMLT_OPCODE_INSERT", or the number that no constant has.
std::string toText( const SdkNumber & number );

/// The numbers that an SDK has for some of its constants.
std::vector<SdkNumber> numbersOf( Shim::Sdk & sdk, std::span<const SdkCall> constants );

/// The one of these that a number stands for. Constants of different kinds may have the same number.
SdkNumber findNumber( const std::vector<SdkNumber> & among, std::uint32_t number );

/// The opcodes of bcmlt_entry_commit() and of bcmlt_pt_entry_commit().
inline constexpr SdkCall sdkOpcodes[] = { SdkCall::opcodeDelete, SdkCall::opcodeInsert,
                                          SdkCall::opcodeLookup, SdkCall::opcodeUpdate };
inline constexpr SdkCall sdkPtOpcodes[] = { SdkCall::ptOpcodeGet, SdkCall::ptOpcodeModify,
                                            SdkCall::ptOpcodeSet };

/// One call: an operation, a query of a constant or an error text, a hook. Members that the call
/// does not have keep their defaults.
struct Event {
    SdkCall call = SdkCall::preCallHook;

    /// Operations: the entry, its unit and its table. A handle that was not allocated through this
    /// recorder has unit -1 and no table. The handle of an allocate is BCMLT_INVALID_HDL before it
    /// returns, and after it failed.
    std::uint32_t handle = 0;
    int unit = -1;
    std::string table = {};

    std::string field = {};
    std::string symbol = {};
    /// Field operations: the values added; the value read, once it has been read.
    std::vector<std::uint64_t> values = {};
    /// Array add: the first element, and the number of elements. Of more than `maxRecordedValues`
    /// only the first ones are in `values`.
    std::uint32_t startIndex = 0;
    std::uint32_t count = 0;

    /// Commits; attribute set.
    SdkNumber opcode = {};
    SdkNumber priority = {};
    SdkNumber attribute = {};

    /// Constants: the number, or the name text. errmsg: its text, and in `rc` the code asked for.
    std::uint32_t result = 0;
    std::string text = {};
    /// Operations: the return code, 0 before the call has returned.
    int rc = 0;
    bool returned = false;

    bool operator==( const Event & ) const = default;
};

/// An array add is recorded up to this many elements.
inline constexpr std::uint32_t maxRecordedValues = 64;

/// One readable line without an end of line; before the call has returned, without its result.
std::string toText( const Event & event );

} // namespace Interpose
