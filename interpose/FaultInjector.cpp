#include "interpose/FaultInjector.h"

#include "interpose/HandleDirectory.h"

#include <deque>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>

namespace Interpose {

namespace {

bool matches( const Fault & fault, const Operation & operation,
              const HandleDirectory::Entry & entry ) {
    if ( fault.invalidHandle && operation.call != SdkCall::entryAllocate )
        return false;
    return ( !fault.operation || *fault.operation == operation.call ) &&
           ( !fault.unit || *fault.unit == entry.unit ) &&
           ( !fault.table || *fault.table == entry.table ) &&
           ( !fault.field || ( operation.field != nullptr && *fault.field == operation.field ) );
}

} // namespace

struct FaultInjector::State {
    explicit State( Shim::Sdk & sdk ) : entries( sdk ) {}

    mutable std::mutex mutex; // guards the faults, of which none is ever removed
    std::deque<FaultReport> faults;
    HandleDirectory entries;

    // The fault that strikes at this operation, null if none does; counts matches and strikes.
    const Fault * strike( const Operation & operation ) {
        const HandleDirectory::Entry entry = entries.find( operation );
        const std::lock_guard lock( mutex );
        FaultReport * striking = nullptr;
        for ( FaultReport & report : faults ) {
            if ( !matches( report.fault, operation, entry ) )
                continue;
            ++report.matches;
            const bool isDue = report.fault.always ? report.matches >= report.fault.occurrence
                                                   : report.matches == report.fault.occurrence;
            if ( isDue && striking == nullptr )
                striking = &report;
        }
        if ( striking == nullptr )
            return nullptr;
        ++striking->strikes;
        return &striking->fault;
    }
};

FaultInjector::FaultInjector( Shim::Sdk & sdk )
    : Interposer( sdk ), state_( std::make_unique<State>( sdk ) ) {}

FaultInjector::~FaultInjector() = default;

void FaultInjector::add( Fault fault ) {
    const std::string problem = check( fault );
    if ( !problem.empty() )
        throw std::invalid_argument( problem );
    const std::lock_guard lock( state_->mutex );
    state_->faults.push_back( { std::move( fault ) } );
}

std::vector<FaultReport> FaultInjector::reports() const {
    const std::lock_guard lock( state_->mutex );
    return { state_->faults.begin(), state_->faults.end() };
}

std::vector<Fault> FaultInjector::unfired() const {
    std::vector<Fault> faults;
    for ( FaultReport & report : reports() ) {
        if ( report.strikes == 0 )
            faults.push_back( std::move( report.fault ) );
    }
    return faults;
}

int FaultInjector::operate( const Operation & operation ) noexcept {
    const Fault * const fault = state_->strike( operation );
    if ( fault == nullptr )
        return state_->entries.perform( operation );
    if ( fault->rc < 0 )
        return fault->rc;
    const auto invalidateHandle = [&] {
        if ( operation.newHandle != nullptr )
            *operation.newHandle = state_->entries.invalidHandle();
    };
    if ( fault->invalidHandle ) {
        invalidateHandle();
        return fault->rc;
    }
    const int rc = state_->entries.perform( operation );
    if ( rc >= 0 )
        return fault->rc;
    if ( !fault->overridesRefusal )
        return rc;
    invalidateHandle();
    return fault->rc;
}

} // namespace Interpose
