#pragma once

#include "interpose/Forwarder.h"
#include "interpose/Operation.h"

// The base of SDKs that stand in front of another one and do something about its operations: each
// operation comes as a value, so that one function deals with all of them.
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
// Constants, error texts and hooks are passed on, unless the interposer overrides them. Nothing is
// allocated on the way.

namespace Interpose {

class Interposer : public Forwarder {
  public:
    using Forwarder::Forwarder;

    int bcmlt_entry_allocate( int unit, const char * table, std::uint32_t * handle ) noexcept final;
    int bcmlt_entry_attrib_set( std::uint32_t handle, std::uint32_t attribute ) noexcept final;
    int bcmlt_entry_commit( std::uint32_t handle, std::uint32_t opcode,
                            std::uint32_t priority ) noexcept final;
    int bcmlt_entry_field_add( std::uint32_t handle, const char * field,
                               std::uint64_t value ) noexcept final;
    int bcmlt_entry_field_array_add( std::uint32_t handle, const char * field,
                                     std::uint32_t startIndex, const std::uint64_t * values,
                                     std::uint32_t count ) noexcept final;
    int bcmlt_entry_field_get( std::uint32_t handle, const char * field,
                               std::uint64_t * value ) noexcept final;
    int bcmlt_entry_field_symbol_add( std::uint32_t handle, const char * field,
                                      const char * symbol ) noexcept final;
    int bcmlt_entry_free( std::uint32_t handle ) noexcept final;
    int bcmlt_pt_entry_commit( std::uint32_t handle, std::uint32_t opcode,
                               std::uint32_t priority ) noexcept final;

  protected:
    ~Interposer() = default;

    /// Does what becomes of an operation of the SDK, and returns what the caller is told.
    virtual int operate( const Operation & operation ) noexcept = 0;
};

} // namespace Interpose
