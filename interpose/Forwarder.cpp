#include "interpose/Forwarder.h"

namespace Interpose {

const char * Forwarder::errmsg( int rc ) noexcept { return inner_.errmsg( rc ); }

std::uint32_t Forwarder::BCMLT_ENT_ATTR_GET_FROM_HW() noexcept {
    return inner_.BCMLT_ENT_ATTR_GET_FROM_HW();
}
std::uint32_t Forwarder::BCMLT_OPCODE_DELETE() noexcept { return inner_.BCMLT_OPCODE_DELETE(); }
std::uint32_t Forwarder::BCMLT_OPCODE_INSERT() noexcept { return inner_.BCMLT_OPCODE_INSERT(); }
std::uint32_t Forwarder::BCMLT_OPCODE_LOOKUP() noexcept { return inner_.BCMLT_OPCODE_LOOKUP(); }
std::uint32_t Forwarder::BCMLT_OPCODE_UPDATE() noexcept { return inner_.BCMLT_OPCODE_UPDATE(); }
std::uint32_t Forwarder::BCMLT_PRIORITY_NORMAL() noexcept { return inner_.BCMLT_PRIORITY_NORMAL(); }
std::uint32_t Forwarder::BCMLT_PT_OPCODE_GET() noexcept { return inner_.BCMLT_PT_OPCODE_GET(); }
std::uint32_t Forwarder::BCMLT_PT_OPCODE_MODIFY() noexcept {
    return inner_.BCMLT_PT_OPCODE_MODIFY();
}
std::uint32_t Forwarder::BCMLT_PT_OPCODE_SET() noexcept { return inner_.BCMLT_PT_OPCODE_SET(); }

int Forwarder::bcmlt_entry_allocate( int unit, const char * table,
                                     std::uint32_t * handle ) noexcept {
    return inner_.bcmlt_entry_allocate( unit, table, handle );
}

int Forwarder::bcmlt_entry_attrib_set( std::uint32_t handle, std::uint32_t attribute ) noexcept {
    return inner_.bcmlt_entry_attrib_set( handle, attribute );
}

int Forwarder::bcmlt_entry_commit( std::uint32_t handle, std::uint32_t opcode,
                                   std::uint32_t priority ) noexcept {
    return inner_.bcmlt_entry_commit( handle, opcode, priority );
}

int Forwarder::bcmlt_entry_field_add( std::uint32_t handle, const char * field,
                                      std::uint64_t value ) noexcept {
    return inner_.bcmlt_entry_field_add( handle, field, value );
}

int Forwarder::bcmlt_entry_field_array_add( std::uint32_t handle, const char * field,
                                            std::uint32_t startIndex, const std::uint64_t * values,
                                            std::uint32_t count ) noexcept {
    return inner_.bcmlt_entry_field_array_add( handle, field, startIndex, values, count );
}

int Forwarder::bcmlt_entry_field_get( std::uint32_t handle, const char * field,
                                      std::uint64_t * value ) noexcept {
    return inner_.bcmlt_entry_field_get( handle, field, value );
}

int Forwarder::bcmlt_entry_field_symbol_add( std::uint32_t handle, const char * field,
                                             const char * symbol ) noexcept {
    return inner_.bcmlt_entry_field_symbol_add( handle, field, symbol );
}

int Forwarder::bcmlt_entry_free( std::uint32_t handle ) noexcept {
    return inner_.bcmlt_entry_free( handle );
}

int Forwarder::bcmlt_pt_entry_commit( std::uint32_t handle, std::uint32_t opcode,
                                      std::uint32_t priority ) noexcept {
    return inner_.bcmlt_pt_entry_commit( handle, opcode, priority );
}

std::uint32_t Forwarder::BCMLT_INVALID_HDL() noexcept { return inner_.BCMLT_INVALID_HDL(); }

const char * Forwarder::ENABLEs() noexcept { return inner_.ENABLEs(); }
const char * Forwarder::NUM_LANESs() noexcept { return inner_.NUM_LANESs(); }
const char * Forwarder::PC_PHYS_PORT_IDs() noexcept { return inner_.PC_PHYS_PORT_IDs(); }
const char * Forwarder::PC_PORT_PHYS_MAPs() noexcept { return inner_.PC_PORT_PHYS_MAPs(); }
const char * Forwarder::PC_PORTs() noexcept { return inner_.PC_PORTs(); }
const char * Forwarder::PORT_IDs() noexcept { return inner_.PORT_IDs(); }
const char * Forwarder::SPEEDs() noexcept { return inner_.SPEEDs(); }

void Forwarder::preCallHook() noexcept { inner_.preCallHook(); }
void Forwarder::failureHook() noexcept { inner_.failureHook(); }

} // namespace Interpose
