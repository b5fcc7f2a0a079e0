#include "interpose/Interposer.h"

namespace Interpose {

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

} // namespace Interpose
