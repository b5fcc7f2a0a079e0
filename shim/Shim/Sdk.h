#pragma once

#include <cstdint>

// The SDK shim: the one door to the chip vendor's logical-table SDK (bcmlt).
//
// The library never links the SDK. It calls the operations below on the object that Shim::sdk_
// points to, and asks it for every SDK constant. A host installs an implementation that forwards to
// the SDK; a simulated chip or a recorder serves equally well.
//
// Binary interface: the library calls through the virtual table, so the order of the operations is
// fixed. New operations are appended, none is ever moved or removed.
//
// Return codes: int, negative means failure. Field values are 64 bits, entry handles 32 bits.
// Opcodes, priorities and attributes are 32-bit values whose numbers only the shim knows.
//
// Threads: the library makes SDK operations with the activity lock released, so two threads may be
// in here at once; an implementation must allow what the SDK itself allows. The hooks run with the
// lock held. No operation may throw.

namespace Shim {

class __attribute__( ( visibility( "default" ) ) ) Sdk {
  public:
    /// The SDK's text for error code `rc`. Asked once for each API ERROR report; the text is
    /// printed as returned and need only live until the next call.
    virtual const char * errmsg( int rc ) noexcept = 0;

    /// Entry attribute: read the entry from the hardware rather than from the SDK's cache.
    virtual uint32_t BCMLT_ENT_ATTR_GET_FROM_HW() noexcept = 0;

    /// Logical-table opcodes.
    virtual uint32_t BCMLT_OPCODE_DELETE() noexcept = 0;
    virtual uint32_t BCMLT_OPCODE_INSERT() noexcept = 0;
    virtual uint32_t BCMLT_OPCODE_LOOKUP() noexcept = 0;
    virtual uint32_t BCMLT_OPCODE_UPDATE() noexcept = 0;

    /// The priority that every commit of the library uses.
    virtual uint32_t BCMLT_PRIORITY_NORMAL() noexcept = 0;

    /// Physical-table opcodes: GET reads a row, MODIFY writes the fields that the entry carries,
    /// SET writes the whole row.
    virtual uint32_t BCMLT_PT_OPCODE_GET() noexcept = 0;
    virtual uint32_t BCMLT_PT_OPCODE_MODIFY() noexcept = 0;
    virtual uint32_t BCMLT_PT_OPCODE_SET() noexcept = 0;

    /// Allocates an entry of the named table on a unit and stores its handle.
    virtual int bcmlt_entry_allocate( int unit, const char * table,
                                      uint32_t * handle ) noexcept = 0;

    /// Sets an attribute of an entry.
    virtual int bcmlt_entry_attrib_set( uint32_t handle, uint32_t attribute ) noexcept = 0;

    /// Commits an entry of a logical table.
    virtual int bcmlt_entry_commit( uint32_t handle, uint32_t opcode,
                                    uint32_t priority ) noexcept = 0;

    /// Sets a scalar field of an entry.
    virtual int bcmlt_entry_field_add( uint32_t handle, const char * field,
                                       uint64_t value ) noexcept = 0;

    /// Sets `count` elements of an array field, from element `startIndex` on.
    virtual int bcmlt_entry_field_array_add( uint32_t handle, const char * field,
                                             uint32_t startIndex, const uint64_t * values,
                                             uint32_t count ) noexcept = 0;

    /// Reads a scalar field of an entry after a LOOKUP or a GET.
    virtual int bcmlt_entry_field_get( uint32_t handle, const char * field,
                                       uint64_t * value ) noexcept = 0;

    /// Sets a field of an entry to a symbol, by the symbol's name.
    virtual int bcmlt_entry_field_symbol_add( uint32_t handle, const char * field,
                                              const char * symbol ) noexcept = 0;

    /// Releases an entry.
    virtual int bcmlt_entry_free( uint32_t handle ) noexcept = 0;

    /// Commits an entry of a physical table (a register or a memory).
    virtual int bcmlt_pt_entry_commit( uint32_t handle, uint32_t opcode,
                                       uint32_t priority ) noexcept = 0;

    /// The handle value that means "no entry".
    virtual uint32_t BCMLT_INVALID_HDL() noexcept = 0;

    /// The SDK's own texts of table and field names; the CPU port recipe takes its names from here.
    virtual const char * ENABLEs() noexcept = 0;
    virtual const char * NUM_LANESs() noexcept = 0;
    virtual const char * PC_PHYS_PORT_IDs() noexcept = 0;
    virtual const char * PC_PORT_PHYS_MAPs() noexcept = 0;
    virtual const char * PC_PORTs() noexcept = 0;
    virtual const char * PORT_IDs() noexcept = 0;
    virtual const char * SPEEDs() noexcept = 0;

    /// Runs immediately before every guarded SDK call, before anything of the call is evaluated.
    virtual void preCallHook() noexcept = 0;

    /// Runs once after an API ERROR report, right before the process stops.
    virtual void failureHook() noexcept = 0;

  protected:
    // The host owns the object; the library must not be able to delete it.
    ~Sdk() = default;
};

/// The shim in force. The host defines and sets it before the first recipe runs and keeps the
/// object alive until after the last. The library reads it afresh at every use and never writes it.
__attribute__( ( visibility( "default" ) ) ) extern Sdk * sdk_;

} // namespace Shim
