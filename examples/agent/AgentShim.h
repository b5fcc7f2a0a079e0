#pragma once

#include <Shim/Sdk.h>
#include <sim/Chip.h>

#include <atomic>
#include <cstdint>
#include <cstdio>

/// The agent's door to the SDK. A simulated chip stands where the SDK does. In an agent of your own each operation
/// calls the SDK's function of its name, and each constant is the SDK's.
///
/// Threads: operations come from several at once, without the activity lock; the hooks come with it held.
class AgentShim final : public Shim::Sdk {
  public:
    /// `sdk` must outlive the shim.
    explicit AgentShim( Sim::Chip & sdk ) : sdk_( sdk ) {}

    /// How many guarded calls the recipes have made.
    std::uint64_t callCount() const { return calls_.load( std::memory_order_relaxed ); }

    // --- Hooks

    /// Before each guarded call; so it must be quick.
    void preCallHook() noexcept override { calls_.fetch_add( 1, std::memory_order_relaxed ); }

    /// After the library's report, right before the process stops: the place for what only the agent knows.
    void failureHook() noexcept override {
        std::fprintf( stderr, "example-agent: stopping at guarded call %llu\n",
                      static_cast<unsigned long long>( callCount() ) );
    }

    // --- Operations

    int bcmlt_entry_allocate( int unit, const char * table,
                              std::uint32_t * handle ) noexcept override {
        return sdk_.bcmlt_entry_allocate( unit, table, handle );
    }
    int bcmlt_entry_attrib_set( std::uint32_t handle, std::uint32_t attribute ) noexcept override {
        return sdk_.bcmlt_entry_attrib_set( handle, attribute );
    }
    int bcmlt_entry_commit( std::uint32_t handle, std::uint32_t opcode,
                            std::uint32_t priority ) noexcept override {
        return sdk_.bcmlt_entry_commit( handle, opcode, priority );
    }
    int bcmlt_entry_field_add( std::uint32_t handle, const char * field,
                               std::uint64_t value ) noexcept override {
        return sdk_.bcmlt_entry_field_add( handle, field, value );
    }
    int bcmlt_entry_field_array_add( std::uint32_t handle, const char * field,
                                     std::uint32_t startIndex, const std::uint64_t * values,
                                     std::uint32_t count ) noexcept override {
        return sdk_.bcmlt_entry_field_array_add( handle, field, startIndex, values, count );
    }
    int bcmlt_entry_field_get( std::uint32_t handle, const char * field,
                               std::uint64_t * value ) noexcept override {
        return sdk_.bcmlt_entry_field_get( handle, field, value );
    }
    int bcmlt_entry_field_symbol_add( std::uint32_t handle, const char * field,
                                      const char * symbol ) noexcept override {
        return sdk_.bcmlt_entry_field_symbol_add( handle, field, symbol );
    }
    int bcmlt_entry_free( std::uint32_t handle ) noexcept override {
        return sdk_.bcmlt_entry_free( handle );
    }
    int bcmlt_pt_entry_commit( std::uint32_t handle, std::uint32_t opcode,
                               std::uint32_t priority ) noexcept override {
        return sdk_.bcmlt_pt_entry_commit( handle, opcode, priority );
    }
    const char * errmsg( int rc ) noexcept override { return sdk_.errmsg( rc ); }

    // --- Constants

    std::uint32_t BCMLT_ENT_ATTR_GET_FROM_HW() noexcept override {
        return sdk_.BCMLT_ENT_ATTR_GET_FROM_HW();
    }
    std::uint32_t BCMLT_OPCODE_DELETE() noexcept override { return sdk_.BCMLT_OPCODE_DELETE(); }
    std::uint32_t BCMLT_OPCODE_INSERT() noexcept override { return sdk_.BCMLT_OPCODE_INSERT(); }
    std::uint32_t BCMLT_OPCODE_LOOKUP() noexcept override { return sdk_.BCMLT_OPCODE_LOOKUP(); }
    std::uint32_t BCMLT_OPCODE_UPDATE() noexcept override { return sdk_.BCMLT_OPCODE_UPDATE(); }
    std::uint32_t BCMLT_PRIORITY_NORMAL() noexcept override { return sdk_.BCMLT_PRIORITY_NORMAL(); }
    std::uint32_t BCMLT_PT_OPCODE_GET() noexcept override { return sdk_.BCMLT_PT_OPCODE_GET(); }
    std::uint32_t BCMLT_PT_OPCODE_MODIFY() noexcept override {
        return sdk_.BCMLT_PT_OPCODE_MODIFY();
    }
    std::uint32_t BCMLT_PT_OPCODE_SET() noexcept override { return sdk_.BCMLT_PT_OPCODE_SET(); }
    std::uint32_t BCMLT_INVALID_HDL() noexcept override { return sdk_.BCMLT_INVALID_HDL(); }
    const char * ENABLEs() noexcept override { return sdk_.ENABLEs(); }
    const char * NUM_LANESs() noexcept override { return sdk_.NUM_LANESs(); }
    const char * PC_PHYS_PORT_IDs() noexcept override { return sdk_.PC_PHYS_PORT_IDs(); }
    const char * PC_PORT_PHYS_MAPs() noexcept override { return sdk_.PC_PORT_PHYS_MAPs(); }
    const char * PC_PORTs() noexcept override { return sdk_.PC_PORTs(); }
    const char * PORT_IDs() noexcept override { return sdk_.PORT_IDs(); }
    const char * SPEEDs() noexcept override { return sdk_.SPEEDs(); }

  private:
    Sim::Chip & sdk_;
    std::atomic<std::uint64_t> calls_{ 0 };
};
