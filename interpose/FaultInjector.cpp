#include "interpose/FaultInjector.h"

#include "interpose/HandleDirectory.h"

#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace Interpose {

namespace {

// One operation on its way to the chip.
struct Attempt {
    SdkCall operation;
    int unit;
    std::string_view table;
    const char * field; // null if the operation names none
};

// What a fault does to the operation that it strikes.
struct Strike {
    int rc;
    bool invalidHandle;
};

bool matches( const Fault & fault, const Attempt & attempt ) {
    if ( fault.invalidHandle && attempt.operation != SdkCall::entryAllocate ) {
        return false;
    }
    return ( !fault.operation || *fault.operation == attempt.operation ) &&
           ( !fault.unit || *fault.unit == attempt.unit ) &&
           ( !fault.table || *fault.table == attempt.table ) &&
           ( !fault.field || ( attempt.field && *fault.field == attempt.field ) );
}

} // namespace

struct FaultInjector::State {
    mutable std::mutex mutex;
    std::vector<FaultReport> faults;
    HandleDirectory entries;

    // What happens to this attempt if a fault strikes at it; counts it.
    std::optional<Strike> strike( const Attempt & attempt ) {
        FaultReport * striking = nullptr;
        for ( FaultReport & report : faults ) {
            if ( !matches( report.fault, attempt ) ) {
                continue;
            }
            ++report.matches;
            const bool isDue = report.fault.always ? report.matches >= report.fault.occurrence
                                                   : report.matches == report.fault.occurrence;
            if ( isDue && !striking ) {
                striking = &report;
            }
        }
        if ( !striking ) {
            return {};
        }
        ++striking->strikes;
        return Strike{ striking->fault.rc, striking->fault.invalidHandle };
    }

    std::optional<Strike> strikeEntry( SdkCall operation, uint32_t handle, const char * field ) {
        const std::lock_guard lock( mutex );
        const HandleDirectory::Entry entry = entries.find( handle );
        return strike( { operation, entry.unit, entry.table, field } );
    }

    // Does an operation on an entry, or what a fault makes of it.
    template <typename Operation>
    int operate( SdkCall which, uint32_t handle, const char * field, Operation && operation ) {
        const std::optional<Strike> fault = strikeEntry( which, handle, field );
        if ( fault && fault->rc < 0 ) {
            return fault->rc;
        }
        const int rc = operation();
        return fault && rc >= 0 ? fault->rc : rc;
    }
};

FaultInjector::FaultInjector( Shim::Sdk & sdk )
    : Forwarder( sdk ), state_( std::make_unique<State>() ) {}

FaultInjector::~FaultInjector() = default;

void FaultInjector::add( Fault fault ) {
    const std::string problem = check( fault );
    if ( !problem.empty() ) {
        throw std::invalid_argument( problem );
    }
    const std::lock_guard lock( state_->mutex );
    state_->faults.push_back( { std::move( fault ) } );
}

std::vector<FaultReport> FaultInjector::reports() const {
    const std::lock_guard lock( state_->mutex );
    return state_->faults;
}

std::vector<Fault> FaultInjector::unfired() const {
    std::vector<Fault> faults;
    for ( FaultReport & report : reports() ) {
        if ( report.strikes == 0 ) {
            faults.push_back( std::move( report.fault ) );
        }
    }
    return faults;
}

int FaultInjector::bcmlt_entry_allocate( int unit, const char * table,
                                         uint32_t * handle ) noexcept {
    const char * const tableName = table ? table : "";
    std::optional<Strike> fault;
    {
        const std::lock_guard lock( state_->mutex );
        fault = state_->strike( { SdkCall::entryAllocate, unit, tableName, nullptr } );
    }
    if ( fault && fault->rc < 0 ) {
        return fault->rc;
    }
    if ( fault && fault->invalidHandle ) {
        if ( handle ) {
            *handle = inner().BCMLT_INVALID_HDL();
        }
        return fault->rc;
    }
    const int rc = inner().bcmlt_entry_allocate( unit, table, handle );
    if ( rc >= 0 && handle ) {
        const std::lock_guard lock( state_->mutex );
        state_->entries.add( *handle, unit, tableName );
    }
    return fault && rc >= 0 ? fault->rc : rc;
}

int FaultInjector::bcmlt_entry_attrib_set( uint32_t handle, uint32_t attribute ) noexcept {
    return state_->operate( SdkCall::entryAttribSet, handle, nullptr,
                            [&] { return inner().bcmlt_entry_attrib_set( handle, attribute ); } );
}

int FaultInjector::bcmlt_entry_commit( uint32_t handle, uint32_t opcode,
                                       uint32_t priority ) noexcept {
    return state_->operate( SdkCall::entryCommit, handle, nullptr, [&] {
        return inner().bcmlt_entry_commit( handle, opcode, priority );
    } );
}

int FaultInjector::bcmlt_entry_field_add( uint32_t handle, const char * field,
                                          uint64_t value ) noexcept {
    return state_->operate( SdkCall::entryFieldAdd, handle, field,
                            [&] { return inner().bcmlt_entry_field_add( handle, field, value ); } );
}

int FaultInjector::bcmlt_entry_field_array_add( uint32_t handle, const char * field,
                                                uint32_t startIndex, const uint64_t * values,
                                                uint32_t count ) noexcept {
    return state_->operate( SdkCall::entryFieldArrayAdd, handle, field, [&] {
        return inner().bcmlt_entry_field_array_add( handle, field, startIndex, values, count );
    } );
}

int FaultInjector::bcmlt_entry_field_get( uint32_t handle, const char * field,
                                          uint64_t * value ) noexcept {
    return state_->operate( SdkCall::entryFieldGet, handle, field,
                            [&] { return inner().bcmlt_entry_field_get( handle, field, value ); } );
}

int FaultInjector::bcmlt_entry_field_symbol_add( uint32_t handle, const char * field,
                                                 const char * symbol ) noexcept {
    return state_->operate( SdkCall::entryFieldSymbolAdd, handle, field, [&] {
        return inner().bcmlt_entry_field_symbol_add( handle, field, symbol );
    } );
}

int FaultInjector::bcmlt_entry_free( uint32_t handle ) noexcept {
    return state_->operate( SdkCall::entryFree, handle, nullptr, [&] {
        HandleDirectory::Entry entry;
        {
            const std::lock_guard lock( state_->mutex );
            entry = state_->entries.take( handle );
        }
        const int rc = inner().bcmlt_entry_free( handle );
        if ( rc < 0 && entry.unit >= 0 ) {
            const std::lock_guard lock( state_->mutex );
            state_->entries.add( handle, entry.unit, entry.table );
        }
        return rc;
    } );
}

int FaultInjector::bcmlt_pt_entry_commit( uint32_t handle, uint32_t opcode,
                                          uint32_t priority ) noexcept {
    return state_->operate( SdkCall::ptEntryCommit, handle, nullptr, [&] {
        return inner().bcmlt_pt_entry_commit( handle, opcode, priority );
    } );
}

} // namespace Interpose
