#pragma once

#include <Shim/Sdk.h>

#include <cstdint>
#include <type_traits>

// The SDK's names as C++ entities. A recipe spells its calls as the SDK's documentation does, and the
// text of the call is printed as written, so these must not be macros. Each name asks Shim::sdk_ when it
// is evaluated, each time anew; nothing is kept.
//
// The two commits ask for the priority first and then for the opcode, whatever order the compiler
// evaluates arguments in.

namespace Cairn {

/// The shim's class, whatever the host calls it.
using Sdk = std::remove_pointer_t<decltype( Shim::sdk_ )>;

/// A constant of the SDK whose value only the shim knows.
template <auto ask>
struct SdkConstant {
    using Value = decltype( ( Shim::sdk_->*ask )() );
    operator Value() const noexcept { return ( Shim::sdk_->*ask )(); }
};

inline constexpr SdkConstant<&Sdk::BCMLT_ENT_ATTR_GET_FROM_HW> BCMLT_ENT_ATTR_GET_FROM_HW;
inline constexpr SdkConstant<&Sdk::BCMLT_OPCODE_DELETE> BCMLT_OPCODE_DELETE;
inline constexpr SdkConstant<&Sdk::BCMLT_OPCODE_INSERT> BCMLT_OPCODE_INSERT;
inline constexpr SdkConstant<&Sdk::BCMLT_OPCODE_LOOKUP> BCMLT_OPCODE_LOOKUP;
inline constexpr SdkConstant<&Sdk::BCMLT_OPCODE_UPDATE> BCMLT_OPCODE_UPDATE;
inline constexpr SdkConstant<&Sdk::BCMLT_PRIORITY_NORMAL> BCMLT_PRIORITY_NORMAL;
inline constexpr SdkConstant<&Sdk::BCMLT_PT_OPCODE_GET> BCMLT_PT_OPCODE_GET;
inline constexpr SdkConstant<&Sdk::BCMLT_PT_OPCODE_MODIFY> BCMLT_PT_OPCODE_MODIFY;
inline constexpr SdkConstant<&Sdk::BCMLT_PT_OPCODE_SET> BCMLT_PT_OPCODE_SET;
inline constexpr SdkConstant<&Sdk::BCMLT_INVALID_HDL> BCMLT_INVALID_HDL;

inline constexpr SdkConstant<&Sdk::ENABLEs> ENABLEs;
inline constexpr SdkConstant<&Sdk::NUM_LANESs> NUM_LANESs;
inline constexpr SdkConstant<&Sdk::PC_PHYS_PORT_IDs> PC_PHYS_PORT_IDs;
inline constexpr SdkConstant<&Sdk::PC_PORT_PHYS_MAPs> PC_PORT_PHYS_MAPs;
inline constexpr SdkConstant<&Sdk::PC_PORTs> PC_PORTs;
inline constexpr SdkConstant<&Sdk::PORT_IDs> PORT_IDs;
inline constexpr SdkConstant<&Sdk::SPEEDs> SPEEDs;

inline int bcmlt_entry_allocate( uint32_t unit, const char * table, uint32_t * handle ) noexcept {
    return Shim::sdk_->bcmlt_entry_allocate( static_cast<int>( unit ), table, handle );
}

template <auto attribute>
int bcmlt_entry_attrib_set( uint32_t handle,
                            const SdkConstant<attribute> & askAttribute ) noexcept {
    return Shim::sdk_->bcmlt_entry_attrib_set( handle, askAttribute );
}

template <auto opcode, auto priority>
int bcmlt_entry_commit( uint32_t handle, const SdkConstant<opcode> & askOpcode,
                        const SdkConstant<priority> & askPriority ) noexcept {
    const typename SdkConstant<priority>::Value priorityValue = askPriority;
    return Shim::sdk_->bcmlt_entry_commit( handle, askOpcode, priorityValue );
}

inline int bcmlt_entry_field_add( uint32_t handle, const char * field, uint64_t value ) noexcept {
    return Shim::sdk_->bcmlt_entry_field_add( handle, field, value );
}

inline int bcmlt_entry_field_array_add( uint32_t handle, const char * field, uint32_t startIndex,
                                        const uint64_t * values, uint32_t count ) noexcept {
    return Shim::sdk_->bcmlt_entry_field_array_add( handle, field, startIndex, values, count );
}

inline int bcmlt_entry_field_get( uint32_t handle, const char * field, uint64_t * value ) noexcept {
    return Shim::sdk_->bcmlt_entry_field_get( handle, field, value );
}

inline int bcmlt_entry_field_symbol_add( uint32_t handle, const char * field,
                                         const char * symbol ) noexcept {
    return Shim::sdk_->bcmlt_entry_field_symbol_add( handle, field, symbol );
}

inline int bcmlt_entry_free( uint32_t handle ) noexcept {
    return Shim::sdk_->bcmlt_entry_free( handle );
}

template <auto opcode, auto priority>
int bcmlt_pt_entry_commit( uint32_t handle, const SdkConstant<opcode> & askOpcode,
                           const SdkConstant<priority> & askPriority ) noexcept {
    const typename SdkConstant<priority>::Value priorityValue = askPriority;
    return Shim::sdk_->bcmlt_pt_entry_commit( handle, askOpcode, priorityValue );
}

} // namespace Cairn
