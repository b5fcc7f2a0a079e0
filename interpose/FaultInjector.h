#pragma once

#include "interpose/Fault.h"
#include "interpose/Interposer.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

// Faults on demand: an SDK in which chosen operations fail.
//
//     Interpose::FaultInjector faults( chip );
//     faults.add( { .operation = Interpose::SdkCall::ptEntryCommit, .rc = -7 } );
//     Shim::sdk_ = &faults;
//     Cairn::setEgrTunnelEcnEncap( 0, 5, 2 ); // its commit fails with -7

namespace Interpose {

/// A fault, and how often it matched and struck.
struct FaultReport {
    Fault fault;
    std::uint64_t matches = 0; ///< operations that it matched
    std::uint64_t strikes = 0; ///< operations whose outcome it changed
};

/// Passes on unchanged what no fault strikes, and all error texts, hooks and constants.
///
/// Each fault counts its own matches. Where several are due at the same operation, the one that was
/// added first decides; the others have counted a match but no strike. A fault counts a strike only
/// if the caller sees something else than without it.
///
/// Threads: as the SDK behind it; faults are matched under a lock of their own, which is not held
/// while the SDK works.
class FaultInjector final : public Interposer {
  public:
    /// `sdk` must outlive the injector.
    explicit FaultInjector( Shim::Sdk & sdk );
    ~FaultInjector();

    /// Adds a fault; matches are counted from now on. Throws std::invalid_argument if the fault
    /// makes no sense: not an operation, occurrence 0, code 0, or a handle without an allocate.
    void add( Fault fault );

    /// All faults in the order of adding.
    std::vector<FaultReport> reports() const;

  private:
    int operate( const Operation & operation ) noexcept override;

    struct State;
    std::unique_ptr<State> state_;
};

} // namespace Interpose
