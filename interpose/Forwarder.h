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
    std::uint32_t BCMLT_ENT_ATTR_GET_FROM_HW() noexcept override;
    std::uint32_t BCMLT_OPCODE_DELETE() noexcept override;
    std::uint32_t BCMLT_OPCODE_INSERT() noexcept override;
    std::uint32_t BCMLT_OPCODE_LOOKUP() noexcept override;
    std::uint32_t BCMLT_OPCODE_UPDATE() noexcept override;
    std::uint32_t BCMLT_PRIORITY_NORMAL() noexcept override;
    std::uint32_t BCMLT_PT_OPCODE_GET() noexcept override;
    std::uint32_t BCMLT_PT_OPCODE_MODIFY() noexcept override;
    std::uint32_t BCMLT_PT_OPCODE_SET() noexcept override;
    int bcmlt_entry_allocate( int unit, const char * table,
                              std::uint32_t * handle ) noexcept override;
    int bcmlt_entry_attrib_set( std::uint32_t handle, std::uint32_t attribute ) noexcept override;
    int bcmlt_entry_commit( std::uint32_t handle, std::uint32_t opcode,
                            std::uint32_t priority ) noexcept override;
    int bcmlt_entry_field_add( std::uint32_t handle, const char * field,
                               std::uint64_t value ) noexcept override;
    int bcmlt_entry_field_array_add( std::uint32_t handle, const char * field,
                                     std::uint32_t startIndex, const std::uint64_t * values,
                                     std::uint32_t count ) noexcept override;
    int bcmlt_entry_field_get( std::uint32_t handle, const char * field,
                               std::uint64_t * value ) noexcept override;
    int bcmlt_entry_field_symbol_add( std::uint32_t handle, const char * field,
                                      const char * symbol ) noexcept override;
    int bcmlt_entry_free( std::uint32_t handle ) noexcept override;
    int bcmlt_pt_entry_commit( std::uint32_t handle, std::uint32_t opcode,
                               std::uint32_t priority ) noexcept override;
    std::uint32_t BCMLT_INVALID_HDL() noexcept override;
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
