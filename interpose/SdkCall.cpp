#include "interpose/SdkCall.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace Interpose {

namespace {

using Number = std::uint32_t ( Shim::Sdk::* )() noexcept;
using Text = const char * (Shim::Sdk::*)() noexcept;

struct CallInfo {
    SdkCall call;
    std::string_view name;
    SdkCallKind kind;
    // Constants: one of the two.
    Number number = nullptr;
    Text text = nullptr;
};

constexpr CallInfo constantNumber( SdkCall call, std::string_view name, Number number ) {
    return { call, name, SdkCallKind::constant, number };
}

constexpr CallInfo constantText( SdkCall call, std::string_view name, Text text ) {
    return { call, name, SdkCallKind::constant, nullptr, text };
}

using enum SdkCallKind;
using Shim::Sdk;

constexpr std::array calls = {
    CallInfo{ SdkCall::errmsg, "errmsg", text },
    constantNumber( SdkCall::attrGetFromHw, "BCMLT_ENT_ATTR_GET_FROM_HW",
                    &Sdk::BCMLT_ENT_ATTR_GET_FROM_HW ),
    constantNumber( SdkCall::opcodeDelete, "BCMLT_OPCODE_DELETE", &Sdk::BCMLT_OPCODE_DELETE ),
    constantNumber( SdkCall::opcodeInsert, "BCMLT_OPCODE_INSERT", &Sdk::BCMLT_OPCODE_INSERT ),
    constantNumber( SdkCall::opcodeLookup, "BCMLT_OPCODE_LOOKUP", &Sdk::BCMLT_OPCODE_LOOKUP ),
    constantNumber( SdkCall::opcodeUpdate, "BCMLT_OPCODE_UPDATE", &Sdk::BCMLT_OPCODE_UPDATE ),
    constantNumber( SdkCall::priorityNormal, "BCMLT_PRIORITY_NORMAL", &Sdk::BCMLT_PRIORITY_NORMAL ),
    constantNumber( SdkCall::ptOpcodeGet, "BCMLT_PT_OPCODE_GET", &Sdk::BCMLT_PT_OPCODE_GET ),
    constantNumber( SdkCall::ptOpcodeModify, "BCMLT_PT_OPCODE_MODIFY",
                    &Sdk::BCMLT_PT_OPCODE_MODIFY ),
    constantNumber( SdkCall::ptOpcodeSet, "BCMLT_PT_OPCODE_SET", &Sdk::BCMLT_PT_OPCODE_SET ),
    CallInfo{ SdkCall::entryAllocate, "bcmlt_entry_allocate", operation },
    CallInfo{ SdkCall::entryAttribSet, "bcmlt_entry_attrib_set", operation },
    CallInfo{ SdkCall::entryCommit, "bcmlt_entry_commit", operation },
    CallInfo{ SdkCall::entryFieldAdd, "bcmlt_entry_field_add", operation },
    CallInfo{ SdkCall::entryFieldArrayAdd, "bcmlt_entry_field_array_add", operation },
    CallInfo{ SdkCall::entryFieldGet, "bcmlt_entry_field_get", operation },
    CallInfo{ SdkCall::entryFieldSymbolAdd, "bcmlt_entry_field_symbol_add", operation },
    CallInfo{ SdkCall::entryFree, "bcmlt_entry_free", operation },
    CallInfo{ SdkCall::ptEntryCommit, "bcmlt_pt_entry_commit", operation },
    constantNumber( SdkCall::invalidHandle, "BCMLT_INVALID_HDL", &Sdk::BCMLT_INVALID_HDL ),
    constantText( SdkCall::enableName, "ENABLEs", &Sdk::ENABLEs ),
    constantText( SdkCall::numLanesName, "NUM_LANESs", &Sdk::NUM_LANESs ),
    constantText( SdkCall::pcPhysPortIdName, "PC_PHYS_PORT_IDs", &Sdk::PC_PHYS_PORT_IDs ),
    constantText( SdkCall::pcPortPhysMapName, "PC_PORT_PHYS_MAPs", &Sdk::PC_PORT_PHYS_MAPs ),
    constantText( SdkCall::pcPortName, "PC_PORTs", &Sdk::PC_PORTs ),
    constantText( SdkCall::portIdName, "PORT_IDs", &Sdk::PORT_IDs ),
    constantText( SdkCall::speedName, "SPEEDs", &Sdk::SPEEDs ),
    CallInfo{ SdkCall::preCallHook, "preCallHook", hook },
    CallInfo{ SdkCall::failureHook, "failureHook", hook },
};

// The table is indexed by the enumerators.
constexpr bool inOrder() {
    for ( std::size_t i = 0; i < calls.size(); ++i ) {
        if ( static_cast<std::size_t>( calls[i].call ) != i )
            return false;
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

std::uint32_t askNumber( Shim::Sdk & sdk, SdkCall number ) noexcept {
    return ( sdk.*calls[static_cast<std::size_t>( number )].number )();
}

const char * askText( Shim::Sdk & sdk, SdkCall text ) noexcept {
    return ( sdk.*calls[static_cast<std::size_t>( text )].text )();
}

std::span<const SdkCall> sdkOperations() { return operations; }

std::string_view shortName( SdkCall call ) {
    const std::string_view full = name( call );
    for ( const std::string_view prefix : { "bcmlt_entry_", "bcmlt_" } ) {
        if ( full.starts_with( prefix ) )
            return full.substr( prefix.size() );
    }
    return full;
}

std::array<std::string_view, 3> namesOf( SdkCall operation ) {
    const std::string_view full = name( operation );
    return { full, full.substr( std::string_view( "bcmlt_" ).size() ), shortName( operation ) };
}

std::optional<SdkCall> operationByName( std::string_view wanted ) {
    for ( const SdkCall call : operations ) {
        const auto names = namesOf( call );
        if ( std::find( names.begin(), names.end(), wanted ) != names.end() )
            return call;
    }
    return {};
}

} // namespace Interpose
