#include "interpose/SdkCall.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <variant>

namespace Interpose {

namespace {

using Number = std::uint32_t ( Shim::Sdk::* )() noexcept;
using Text = const char * (Shim::Sdk::*)() noexcept;

struct CallInfo {
    SdkCall call;
    std::string_view name;
    std::variant<SdkCallKind, Number, Text> what; ///< a constant: how it is asked
};

using enum SdkCall;
using enum SdkCallKind;
using Shim::Sdk;

constexpr CallInfo calls[] = {
    { errmsg, "errmsg", text },
    { attrGetFromHw, "BCMLT_ENT_ATTR_GET_FROM_HW", &Sdk::BCMLT_ENT_ATTR_GET_FROM_HW },
    { opcodeDelete, "BCMLT_OPCODE_DELETE", &Sdk::BCMLT_OPCODE_DELETE },
    { opcodeInsert, "BCMLT_OPCODE_INSERT", &Sdk::BCMLT_OPCODE_INSERT },
    { opcodeLookup, "BCMLT_OPCODE_LOOKUP", &Sdk::BCMLT_OPCODE_LOOKUP },
    { opcodeUpdate, "BCMLT_OPCODE_UPDATE", &Sdk::BCMLT_OPCODE_UPDATE },
    { priorityNormal, "BCMLT_PRIORITY_NORMAL", &Sdk::BCMLT_PRIORITY_NORMAL },
    { ptOpcodeGet, "BCMLT_PT_OPCODE_GET", &Sdk::BCMLT_PT_OPCODE_GET },
    { ptOpcodeModify, "BCMLT_PT_OPCODE_MODIFY", &Sdk::BCMLT_PT_OPCODE_MODIFY },
    { ptOpcodeSet, "BCMLT_PT_OPCODE_SET", &Sdk::BCMLT_PT_OPCODE_SET },
    { entryAllocate, "bcmlt_entry_allocate", operation },
    { entryAttribSet, "bcmlt_entry_attrib_set", operation },
    { entryCommit, "bcmlt_entry_commit", operation },
    { entryFieldAdd, "bcmlt_entry_field_add", operation },
    { entryFieldArrayAdd, "bcmlt_entry_field_array_add", operation },
    { entryFieldGet, "bcmlt_entry_field_get", operation },
    { entryFieldSymbolAdd, "bcmlt_entry_field_symbol_add", operation },
    { entryFree, "bcmlt_entry_free", operation },
    { ptEntryCommit, "bcmlt_pt_entry_commit", operation },
    { invalidHandle, "BCMLT_INVALID_HDL", &Sdk::BCMLT_INVALID_HDL },
    { enableName, "ENABLEs", &Sdk::ENABLEs },
    { numLanesName, "NUM_LANESs", &Sdk::NUM_LANESs },
    { pcPhysPortIdName, "PC_PHYS_PORT_IDs", &Sdk::PC_PHYS_PORT_IDs },
    { pcPortPhysMapName, "PC_PORT_PHYS_MAPs", &Sdk::PC_PORT_PHYS_MAPs },
    { pcPortName, "PC_PORTs", &Sdk::PC_PORTs },
    { portIdName, "PORT_IDs", &Sdk::PORT_IDs },
    { speedName, "SPEEDs", &Sdk::SPEEDs },
    { preCallHook, "preCallHook", hook },
    { failureHook, "failureHook", hook },
};

// The table is indexed by the enumerators.
constexpr bool inOrder() {
    for ( std::size_t i = 0; i < std::size( calls ); ++i ) {
        if ( static_cast<std::size_t>( calls[i].call ) != i )
            return false;
    }
    return std::size( calls ) == static_cast<std::size_t>( failureHook ) + 1;
}
static_assert( inOrder() );

constexpr SdkCall operations[] = { entryAllocate,       entryAttribSet,     entryCommit,
                                   entryFieldAdd,       entryFieldArrayAdd, entryFieldGet,
                                   entryFieldSymbolAdd, entryFree,          ptEntryCommit };

const CallInfo & infoOf( SdkCall call ) { return calls[static_cast<std::size_t>( call )]; }

} // namespace

std::string_view name( SdkCall call ) { return infoOf( call ).name; }

SdkCallKind kind( SdkCall call ) {
    const auto * const kind = std::get_if<SdkCallKind>( &infoOf( call ).what );
    return kind == nullptr ? constant : *kind;
}

std::uint32_t askNumber( Shim::Sdk & sdk, SdkCall number ) noexcept {
    return ( sdk.*std::get<Number>( infoOf( number ).what ) )();
}

const char * askText( Shim::Sdk & sdk, SdkCall text ) noexcept {
    return ( sdk.*std::get<Text>( infoOf( text ).what ) )();
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
