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

    // The fault that is due at this operation, null if none is; counts matches.
    FaultReport * due( const Operation & operation ) {
        const HandleDirectory::Entry entry = entries.find( operation );
        const std::lock_guard lock( mutex );
        FaultReport * first = nullptr;
        for ( FaultReport & report : faults ) {
            if ( !matches( report.fault, operation, entry ) )
                continue;
            ++report.matches;
            const bool isDue = report.fault.always ? report.matches >= report.fault.occurrence
                                                   : report.matches == report.fault.occurrence;
            if ( isDue && first == nullptr )
                first = &report;
        }
        return first;
    }

    // What the caller sees is the fault's doing.
    int strike( FaultReport & report ) {
        const std::lock_guard lock( mutex );
        ++report.strikes;
        return report.fault.rc;
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

int FaultInjector::operate( const Operation & operation ) noexcept {
    FaultReport * const report = state_->due( operation );
    if ( report == nullptr )
        return state_->entries.perform( operation );
    const Fault & fault = report->fault;
    const bool reaches = fault.rc >= 0 && !fault.invalidHandle;
    const int rc = reaches ? state_->entries.perform( operation ) : fault.rc;
    const bool isRefused = reaches && rc < 0;
    if ( reaches && ( rc == fault.rc || ( isRefused && !fault.overridesRefusal ) ) )
        return rc;
    if ( ( fault.invalidHandle || isRefused ) && operation.newHandle != nullptr )
        *operation.newHandle = state_->entries.invalidHandle();
    return state_->strike( *report );
}

} // namespace Interpose
