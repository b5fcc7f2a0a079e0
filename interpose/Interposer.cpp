#include "interpose/Interposer.h"

namespace Interpose {

const char * Interposer::errmsg( int rc ) noexcept { return inner_.errmsg( rc ); }

std::uint32_t Interposer::BCMLT_ENT_ATTR_GET_FROM_HW() noexcept {
    return number( SdkCall::attrGetFromHw );
}
std::uint32_t Interposer::BCMLT_OPCODE_DELETE() noexcept { return number( SdkCall::opcodeDelete ); }
std::uint32_t Interposer::BCMLT_OPCODE_INSERT() noexcept { return number( SdkCall::opcodeInsert ); }
std::uint32_t Interposer::BCMLT_OPCODE_LOOKUP() noexcept { return number( SdkCall::opcodeLookup ); }
std::uint32_t Interposer::BCMLT_OPCODE_UPDATE() noexcept { return number( SdkCall::opcodeUpdate ); }
std::uint32_t Interposer::BCMLT_PRIORITY_NORMAL() noexcept {
    return number( SdkCall::priorityNormal );
}
std::uint32_t Interposer::BCMLT_PT_OPCODE_GET() noexcept { return number( SdkCall::ptOpcodeGet ); }
std::uint32_t Interposer::BCMLT_PT_OPCODE_MODIFY() noexcept {
    return number( SdkCall::ptOpcodeModify );
}
std::uint32_t Interposer::BCMLT_PT_OPCODE_SET() noexcept { return number( SdkCall::ptOpcodeSet ); }
std::uint32_t Interposer::BCMLT_INVALID_HDL() noexcept { return number( SdkCall::invalidHandle ); }

const char * Interposer::ENABLEs() noexcept { return text( SdkCall::enableName ); }
const char * Interposer::NUM_LANESs() noexcept { return text( SdkCall::numLanesName ); }
const char * Interposer::PC_PHYS_PORT_IDs() noexcept { return text( SdkCall::pcPhysPortIdName ); }
const char * Interposer::PC_PORT_PHYS_MAPs() noexcept { return text( SdkCall::pcPortPhysMapName ); }
const char * Interposer::PC_PORTs() noexcept { return text( SdkCall::pcPortName ); }
const char * Interposer::PORT_IDs() noexcept { return text( SdkCall::portIdName ); }
const char * Interposer::SPEEDs() noexcept { return text( SdkCall::speedName ); }

int Interposer::bcmlt_entry_allocate( int unit, const char * table,
                                      std::uint32_t * handle ) noexcept {
    return operate(
        { .call = SdkCall::entryAllocate, .unit = unit, .table = table, .newHandle = handle } );
}

int Interposer::bcmlt_entry_attrib_set( std::uint32_t handle, std::uint32_t attribute ) noexcept {
    return operate( { .call = SdkCall::entryAttribSet, .handle = handle, .attribute = attribute } );
}

int Interposer::bcmlt_entry_commit( std::uint32_t handle, std::uint32_t opcode,
                                    std::uint32_t priority ) noexcept {
    return operate( { .call = SdkCall::entryCommit,
                      .handle = handle,
                      .opcode = opcode,
                      .priority = priority } );
}

int Interposer::bcmlt_entry_field_add( std::uint32_t handle, const char * field,
                                       std::uint64_t value ) noexcept {
    return operate( { .call = SdkCall::entryFieldAdd,
                      .handle = handle,
                      .field = field,
                      .values = &value,
                      .count = 1 } );
}

int Interposer::bcmlt_entry_field_array_add( std::uint32_t handle, const char * field,
                                             std::uint32_t startIndex, const std::uint64_t * values,
                                             std::uint32_t count ) noexcept {
    return operate( { .call = SdkCall::entryFieldArrayAdd,
                      .handle = handle,
                      .field = field,
                      .values = values,
                      .startIndex = startIndex,
                      .count = count } );
}

int Interposer::bcmlt_entry_field_get( std::uint32_t handle, const char * field,
                                       std::uint64_t * value ) noexcept {
    return operate(
        { .call = SdkCall::entryFieldGet, .handle = handle, .field = field, .result = value } );
}

int Interposer::bcmlt_entry_field_symbol_add( std::uint32_t handle, const char * field,
                                              const char * symbol ) noexcept {
    return operate( { .call = SdkCall::entryFieldSymbolAdd,
                      .handle = handle,
                      .field = field,
                      .symbol = symbol } );
}

int Interposer::bcmlt_entry_free( std::uint32_t handle ) noexcept {
    return operate( { .call = SdkCall::entryFree, .handle = handle } );
}

int Interposer::bcmlt_pt_entry_commit( std::uint32_t handle, std::uint32_t opcode,
                                       std::uint32_t priority ) noexcept {
    return operate( { .call = SdkCall::ptEntryCommit,
                      .handle = handle,
                      .opcode = opcode,
                      .priority = priority } );
}

void Interposer::preCallHook() noexcept { inner_.preCallHook(); }
void Interposer::failureHook() noexcept { inner_.failureHook(); }

int Interposer::operate( const Operation & operation ) noexcept {
    return perform( inner_, operation );
}

std::uint32_t Interposer::number( SdkCall constant ) noexcept {
    return askNumber( inner_, constant );
}

const char * Interposer::text( SdkCall constant ) noexcept { return askText( inner_, constant ); }

} // namespace Interpose
