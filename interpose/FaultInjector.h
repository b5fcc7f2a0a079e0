#pragma once

#include "interpose/Fault.h"
#include "interpose/Forwarder.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

// Faults on demand: an SDK that fails where it is told to.
//
//     Interpose::FaultInjector faults( chip );
//     faults.add( { .operation = Interpose::SdkCall::ptEntryCommit, .rc = -7 } );
//     Shim::sdk_ = &faults;
//     Cairn::setEgrTunnelEcnEncap( 0, 5, 2 ); // its commit fails with -7

namespace Interpose {

/// How a fault fared.
struct FaultReport {
    Fault fault;
    uint64_t matches = 0; ///< operations that it was about
    uint64_t strikes = 0; ///< operations that it changed
};

/// A decorator over another SDK. All that no fault strikes is passed on unchanged, error texts,
/// hooks and constants always.
///
/// Each fault counts its own matches. Where several strike at the same operation, the one that was
/// added first decides; the others have counted a match but no strike.
///
/// Threads: as the SDK behind it; faults are matched under a lock of their own, which is not held
/// while the SDK works.
class FaultInjector final : public Forwarder {
  public:
    /// `inner` must outlive the injector.
    explicit FaultInjector( Shim::Sdk & inner );
    ~FaultInjector();

    /// Adds a fault; matches are counted from now on. Throws std::invalid_argument if the fault
    /// makes no sense: not an operation, occurrence 0, code 0, or a handle without an allocate.
    void add( Fault fault );

    /// All faults in the order of adding.
    std::vector<FaultReport> reports() const;
    /// Those that never struck.
    std::vector<Fault> unfired() const;

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

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace Interpose
