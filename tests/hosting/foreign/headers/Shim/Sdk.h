#pragma once

#include <cstdint>

// The shim as that agent declares it: a class of another name, with more operations and in another
// order, none of which promises that it does not throw.

namespace Shim {
inline namespace vendor {

class VendorApi {
  public:
    virtual ~VendorApi() = default;
    virtual int bcmlt_transaction_allocate( int kind ) = 0;
    virtual const char * ENABLEs() const = 0;
    virtual const char * NUM_LANESs() const = 0;
    virtual const char * PC_PHYS_PORT_IDs() const = 0;
    virtual const char * PC_PORT_PHYS_MAPs() const = 0;
    virtual const char * PC_PORTs() const = 0;
    virtual const char * PORT_IDs() const = 0;
    virtual const char * SPEEDs() const = 0;
    virtual std::int32_t BCMLT_ENT_ATTR_GET_FROM_HW() const = 0;
    virtual std::int32_t BCMLT_OPCODE_DELETE() const = 0;
    virtual std::int32_t BCMLT_OPCODE_INSERT() const = 0;
    virtual std::int32_t BCMLT_OPCODE_LOOKUP() const = 0;
    virtual std::int32_t BCMLT_OPCODE_UPDATE() const = 0;
    virtual std::int32_t BCMLT_PRIORITY_NORMAL() const = 0;
    virtual std::int32_t BCMLT_PT_OPCODE_GET() const = 0;
    virtual std::int32_t BCMLT_PT_OPCODE_MODIFY() const = 0;
    virtual std::int32_t BCMLT_PT_OPCODE_SET() const = 0;
    virtual std::uint32_t BCMLT_INVALID_HDL() const = 0;
    virtual int bcmlt_entry_allocate( int unit, const char * table, std::uint32_t * handle ) = 0;
    virtual int bcmlt_entry_attrib_set( std::uint32_t handle, std::int32_t attribute ) = 0;
    virtual int bcmlt_entry_commit( std::uint32_t handle, std::int32_t opcode,
                                    std::int32_t priority ) = 0;
    virtual int bcmlt_pt_entry_commit( std::uint32_t handle, std::int32_t opcode,
                                       std::int32_t priority ) = 0;
    virtual int bcmlt_entry_field_add( std::uint32_t handle, const char * field,
                                       std::uint64_t value ) = 0;
    virtual int bcmlt_entry_field_array_add( std::uint32_t handle, const char * field,
                                             std::uint32_t startIndex, const std::uint64_t * values,
                                             std::uint32_t count ) = 0;
    virtual int bcmlt_entry_field_get( std::uint32_t handle, const char * field,
                                       std::uint64_t * value ) = 0;
    virtual int bcmlt_entry_field_symbol_add( std::uint32_t handle, const char * field,
                                              const char * symbol ) = 0;
    virtual int bcmlt_entry_free( std::uint32_t handle ) = 0;
    virtual void preCallHook() = 0;
    virtual void failureHook() = 0;
    virtual const char * errmsg( int rc ) = 0;
};

} // namespace vendor

extern VendorApi * sdk_;

} // namespace Shim
