#pragma once

#include <Shim/Sdk.h>

#include <cstdint>

// An SDK that passes every call on to another one, unchanged: the base of decorators, which
// override what they change.

namespace Interpose {

class Forwarder : public Shim::Sdk {
  public:
    /// `inner` must outlive the forwarder.
    explicit Forwarder( Shim::Sdk & inner ) : inner_( inner ) {}
    Forwarder( const Forwarder & ) = delete;
    Forwarder & operator=( const Forwarder & ) = delete;

    const char * errmsg( int rc ) noexcept override;
    uint32_t BCMLT_ENT_ATTR_GET_FROM_HW() noexcept override;
    uint32_t BCMLT_OPCODE_DELETE() noexcept override;
    uint32_t BCMLT_OPCODE_INSERT() noexcept override;
    uint32_t BCMLT_OPCODE_LOOKUP() noexcept override;
    uint32_t BCMLT_OPCODE_UPDATE() noexcept override;
    uint32_t BCMLT_PRIORITY_NORMAL() noexcept override;
    uint32_t BCMLT_PT_OPCODE_GET() noexcept override;
    uint32_t BCMLT_PT_OPCODE_MODIFY() noexcept override;
    uint32_t BCMLT_PT_OPCODE_SET() noexcept override;
    int bcmlt_entry_allocate( int unit, const char * table, uint32_t * handle ) noexcept override;
    int bcmlt_entry_attrib_set( uint32_t handle, uint32_t attribute ) noexcept override;
    int bcmlt_entry_commit( uint32_t handle, uint32_t opcode, uint32_t priority ) noexcept override;
    int bcmlt_entry_field_add( uint32_t handle, const char * field,
                               uint64_t value ) noexcept override;
    int bcmlt_entry_field_array_add( uint32_t handle, const char * field, uint32_t startIndex,
                                     const uint64_t * values, uint32_t count ) noexcept override;
    int bcmlt_entry_field_get( uint32_t handle, const char * field,
                               uint64_t * value ) noexcept override;
    int bcmlt_entry_field_symbol_add( uint32_t handle, const char * field,
                                      const char * symbol ) noexcept override;
    int bcmlt_entry_free( uint32_t handle ) noexcept override;
    int bcmlt_pt_entry_commit( uint32_t handle, uint32_t opcode,
                               uint32_t priority ) noexcept override;
    uint32_t BCMLT_INVALID_HDL() noexcept override;
    const char * ENABLEs() noexcept override;
    const char * NUM_LANESs() noexcept override;
    const char * PC_PHYS_PORT_IDs() noexcept override;
    const char * PC_PORT_PHYS_MAPs() noexcept override;
    const char * PC_PORTs() noexcept override;
    const char * PORT_IDs() noexcept override;
    const char * SPEEDs() noexcept override;
    void preCallHook() noexcept override;
    void failureHook() noexcept override;

  protected:
    ~Forwarder() = default;

    Shim::Sdk & inner() noexcept { return inner_; }

  private:
    Shim::Sdk & inner_;
};

} // namespace Interpose
