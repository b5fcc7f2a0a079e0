#pragma once

#include "interpose/Operation.h"
#include "interpose/SdkCall.h"

#include <Shim/Sdk.h>

#include <cstdint>

// The base of SDKs that stand in front of another one. Each operation comes as a value, and each
// constant as the call that asks for it, so that one function deals with all of them.
//
//     class Counter final : public Interpose::Interposer {
//       public:
//         using Interposer::Interposer;
//         unsigned operations = 0;
//
//       private:
//         int operate( const Interpose::Operation & operation ) noexcept override {
//             ++operations;
//             return perform( inner(), operation );
//         }
//     };
//
// What an interposer does not override is passed on unchanged. Nothing is allocated on the way.

namespace Interpose {

class Interposer : public Shim::Sdk {
  public:
    /// `inner` must outlive the interposer.
    explicit Interposer( Shim::Sdk & inner ) noexcept : inner_( inner ) {}
    Interposer( const Interposer & ) = delete;
    Interposer & operator=( const Interposer & ) = delete;

    const char * errmsg( int rc ) noexcept override { return inner_.errmsg( rc ); }
    std::uint32_t BCMLT_ENT_ATTR_GET_FROM_HW() noexcept override {
        return number( SdkCall::attrGetFromHw );
    }
    std::uint32_t BCMLT_OPCODE_DELETE() noexcept override {
        return number( SdkCall::opcodeDelete );
    }
    std::uint32_t BCMLT_OPCODE_INSERT() noexcept override {
        return number( SdkCall::opcodeInsert );
    }
    std::uint32_t BCMLT_OPCODE_LOOKUP() noexcept override {
        return number( SdkCall::opcodeLookup );
    }
    std::uint32_t BCMLT_OPCODE_UPDATE() noexcept override {
        return number( SdkCall::opcodeUpdate );
    }
    std::uint32_t BCMLT_PRIORITY_NORMAL() noexcept override {
        return number( SdkCall::priorityNormal );
    }
    std::uint32_t BCMLT_PT_OPCODE_GET() noexcept override { return number( SdkCall::ptOpcodeGet ); }
    std::uint32_t BCMLT_PT_OPCODE_MODIFY() noexcept override {
        return number( SdkCall::ptOpcodeModify );
    }
    std::uint32_t BCMLT_PT_OPCODE_SET() noexcept override { return number( SdkCall::ptOpcodeSet ); }
    int bcmlt_entry_allocate( int unit, const char * table,
                              std::uint32_t * handle ) noexcept override {
        return operate(
            { .call = SdkCall::entryAllocate, .unit = unit, .table = table, .newHandle = handle } );
    }
    int bcmlt_entry_attrib_set( std::uint32_t handle, std::uint32_t attribute ) noexcept override {
        return operate(
            { .call = SdkCall::entryAttribSet, .handle = handle, .attribute = attribute } );
    }
    int bcmlt_entry_commit( std::uint32_t handle, std::uint32_t opcode,
                            std::uint32_t priority ) noexcept override {
        return operate( { .call = SdkCall::entryCommit,
                          .handle = handle,
                          .opcode = opcode,
                          .priority = priority } );
    }
    int bcmlt_entry_field_add( std::uint32_t handle, const char * field,
                               std::uint64_t value ) noexcept override {
        return operate( { .call = SdkCall::entryFieldAdd,
                          .handle = handle,
                          .field = field,
                          .values = &value,
                          .count = 1 } );
    }
    int bcmlt_entry_field_array_add( std::uint32_t handle, const char * field,
                                     std::uint32_t startIndex, const std::uint64_t * values,
                                     std::uint32_t count ) noexcept override {
        return operate( { .call = SdkCall::entryFieldArrayAdd,
                          .handle = handle,
                          .field = field,
                          .values = values,
                          .startIndex = startIndex,
                          .count = count } );
    }
    int bcmlt_entry_field_get( std::uint32_t handle, const char * field,
                               std::uint64_t * value ) noexcept override {
        return operate(
            { .call = SdkCall::entryFieldGet, .handle = handle, .field = field, .result = value } );
    }
    int bcmlt_entry_field_symbol_add( std::uint32_t handle, const char * field,
                                      const char * symbol ) noexcept override {
        return operate( { .call = SdkCall::entryFieldSymbolAdd,
                          .handle = handle,
                          .field = field,
                          .symbol = symbol } );
    }
    int bcmlt_entry_free( std::uint32_t handle ) noexcept override {
        return operate( { .call = SdkCall::entryFree, .handle = handle } );
    }
    int bcmlt_pt_entry_commit( std::uint32_t handle, std::uint32_t opcode,
                               std::uint32_t priority ) noexcept override {
        return operate( { .call = SdkCall::ptEntryCommit,
                          .handle = handle,
                          .opcode = opcode,
                          .priority = priority } );
    }
    std::uint32_t BCMLT_INVALID_HDL() noexcept override { return number( SdkCall::invalidHandle ); }
    const char * ENABLEs() noexcept override { return text( SdkCall::enableName ); }
    const char * NUM_LANESs() noexcept override { return text( SdkCall::numLanesName ); }
    const char * PC_PHYS_PORT_IDs() noexcept override { return text( SdkCall::pcPhysPortIdName ); }
    const char * PC_PORT_PHYS_MAPs() noexcept override {
        return text( SdkCall::pcPortPhysMapName );
    }
    const char * PC_PORTs() noexcept override { return text( SdkCall::pcPortName ); }
    const char * PORT_IDs() noexcept override { return text( SdkCall::portIdName ); }
    const char * SPEEDs() noexcept override { return text( SdkCall::speedName ); }
    void preCallHook() noexcept override { inner_.preCallHook(); }
    void failureHook() noexcept override { inner_.failureHook(); }

  protected:
    ~Interposer() = default;

    Shim::Sdk & inner() noexcept { return inner_; }

    /// Deals with an operation and returns the code that the caller gets.
    virtual int operate( const Operation & operation ) noexcept;

    /// The values of constants that the caller gets.
    virtual std::uint32_t number( SdkCall constant ) noexcept;
    virtual const char * text( SdkCall constant ) noexcept;

  private:
    Shim::Sdk & inner_;
};

} // namespace Interpose
