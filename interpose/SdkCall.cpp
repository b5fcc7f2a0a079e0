#include "interpose/SdkCall.h"

#include <array>
#include <cstddef>

namespace Interpose {

namespace {

struct CallInfo {
    SdkCall call;
    std::string_view name;
    SdkCallKind kind;
};

using enum SdkCallKind;

constexpr std::array calls = {
    CallInfo{ SdkCall::errmsg, "errmsg", text },
    CallInfo{ SdkCall::attrGetFromHw, "BCMLT_ENT_ATTR_GET_FROM_HW", constant },
    CallInfo{ SdkCall::opcodeDelete, "BCMLT_OPCODE_DELETE", constant },
    CallInfo{ SdkCall::opcodeInsert, "BCMLT_OPCODE_INSERT", constant },
    CallInfo{ SdkCall::opcodeLookup, "BCMLT_OPCODE_LOOKUP", constant },
    CallInfo{ SdkCall::opcodeUpdate, "BCMLT_OPCODE_UPDATE", constant },
    CallInfo{ SdkCall::priorityNormal, "BCMLT_PRIORITY_NORMAL", constant },
    CallInfo{ SdkCall::ptOpcodeGet, "BCMLT_PT_OPCODE_GET", constant },
    CallInfo{ SdkCall::ptOpcodeModify, "BCMLT_PT_OPCODE_MODIFY", constant },
    CallInfo{ SdkCall::ptOpcodeSet, "BCMLT_PT_OPCODE_SET", constant },
    CallInfo{ SdkCall::entryAllocate, "bcmlt_entry_allocate", operation },
    CallInfo{ SdkCall::entryAttribSet, "bcmlt_entry_attrib_set", operation },
    CallInfo{ SdkCall::entryCommit, "bcmlt_entry_commit", operation },
    CallInfo{ SdkCall::entryFieldAdd, "bcmlt_entry_field_add", operation },
    CallInfo{ SdkCall::entryFieldArrayAdd, "bcmlt_entry_field_array_add", operation },
    CallInfo{ SdkCall::entryFieldGet, "bcmlt_entry_field_get", operation },
    CallInfo{ SdkCall::entryFieldSymbolAdd, "bcmlt_entry_field_symbol_add", operation },
    CallInfo{ SdkCall::entryFree, "bcmlt_entry_free", operation },
    CallInfo{ SdkCall::ptEntryCommit, "bcmlt_pt_entry_commit", operation },
    CallInfo{ SdkCall::invalidHandle, "BCMLT_INVALID_HDL", constant },
    CallInfo{ SdkCall::enableName, "ENABLEs", constant },
    CallInfo{ SdkCall::numLanesName, "NUM_LANESs", constant },
    CallInfo{ SdkCall::pcPhysPortIdName, "PC_PHYS_PORT_IDs", constant },
    CallInfo{ SdkCall::pcPortPhysMapName, "PC_PORT_PHYS_MAPs", constant },
    CallInfo{ SdkCall::pcPortName, "PC_PORTs", constant },
    CallInfo{ SdkCall::portIdName, "PORT_IDs", constant },
    CallInfo{ SdkCall::speedName, "SPEEDs", constant },
    CallInfo{ SdkCall::preCallHook, "preCallHook", hook },
    CallInfo{ SdkCall::failureHook, "failureHook", hook },
};

// The table is indexed by the enumerators.
constexpr bool inOrder() {
    for ( std::size_t i = 0; i < calls.size(); ++i ) {
        if ( static_cast<std::size_t>( calls[i].call ) != i ) {
            return false;
        }
    }
    return calls.size() == static_cast<std::size_t>( SdkCall::failureHook ) + 1;
}
static_assert( inOrder() );

constexpr std::array operations = {
    SdkCall::entryAllocate,       SdkCall::entryAttribSet,     SdkCall::entryCommit,
    SdkCall::entryFieldAdd,       SdkCall::entryFieldArrayAdd, SdkCall::entryFieldGet,
    SdkCall::entryFieldSymbolAdd, SdkCall::entryFree,          SdkCall::ptEntryCommit,
};

} // namespace

std::string_view name( SdkCall call ) { return calls[static_cast<std::size_t>( call )].name; }

SdkCallKind kind( SdkCall call ) { return calls[static_cast<std::size_t>( call )].kind; }

std::span<const SdkCall> sdkOperations() { return operations; }

std::string_view shortName( SdkCall call ) {
    const std::string_view full = name( call );
    for ( const std::string_view prefix : { "bcmlt_entry_", "bcmlt_" } ) {
        if ( full.starts_with( prefix ) ) {
            return full.substr( prefix.size() );
        }
    }
    return full;
}

std::optional<SdkCall> operationByName( std::string_view wanted ) {
    for ( const SdkCall call : operations ) {
        if ( wanted == name( call ) || wanted == shortName( call ) ) {
            return call;
        }
    }
    return {};
}

} // namespace Interpose
