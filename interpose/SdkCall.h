#pragma once

#include <Shim/Sdk.h>

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

// The calls of the SDK shim as values, in the order of its virtual table.

namespace Interpose {

enum class SdkCall : std::uint8_t {
    errmsg,
    attrGetFromHw,
    opcodeDelete,
    opcodeInsert,
    opcodeLookup,
    opcodeUpdate,
    priorityNormal,
    ptOpcodeGet,
    ptOpcodeModify,
    ptOpcodeSet,
    entryAllocate,
    entryAttribSet,
    entryCommit,
    entryFieldAdd,
    entryFieldArrayAdd,
    entryFieldGet,
    entryFieldSymbolAdd,
    entryFree,
    ptEntryCommit,
    invalidHandle,
    enableName,
    numLanesName,
    pcPhysPortIdName,
    pcPortPhysMapName,
    pcPortName,
    portIdName,
    speedName,
    preCallHook,
    failureHook,
};

enum class SdkCallKind : std::uint8_t {
    operation, ///< bcmlt_...: acts on the chip and returns a code
    constant,  ///< asks for a number or a name text
    text,      ///< errmsg
    hook,
};

/// The name as the shim spells it: "bcmlt_entry_allocate", "BCMLT_OPCODE_INSERT", "PC_PORTs".
std::string_view name( SdkCall call );
SdkCallKind kind( SdkCall call );

/// The operations (SdkCallKind::operation) in the order of the shim.
std::span<const SdkCall> sdkOperations();

/// The name of an operation without "bcmlt_entry_" or "bcmlt_": "field_add", "commit",
/// "pt_entry_commit". No two operations share one. Names of other calls are returned whole.
std::string_view shortName( SdkCall call );

/// Asks an SDK for one of its constants: a number (BCMLT_...), or a name text (...s).
std::uint32_t askNumber( Shim::Sdk & sdk, SdkCall number ) noexcept;
const char * askText( Shim::Sdk & sdk, SdkCall text ) noexcept;

/// The names that operationByName() takes for an operation: its name, its name without "bcmlt_" and
/// its short name.
std::array<std::string_view, 3> namesOf( SdkCall operation );

/// An operation by one of its names. Nothing if there is none.
std::optional<SdkCall> operationByName( std::string_view wanted );

} // namespace Interpose
