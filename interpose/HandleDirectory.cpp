#include "interpose/HandleDirectory.h"

#include <utility>

namespace Interpose {

HandleDirectory::Entry HandleDirectory::find( const Operation & operation ) const {
    if ( operation.call == SdkCall::entryAllocate )
        return { operation.unit, operation.table != nullptr ? operation.table : "" };
    const std::lock_guard lock( mutex_ );
    const auto it = entries_.find( operation.handle );
    return it == entries_.end() ? Entry{} : it->second;
}

int HandleDirectory::perform( const Operation & operation ) {
    // The handle is forgotten before the entry is freed: after that, another thread may be given
    // the same one. A free that fails brings it back.
    Entries::node_type freed;
    if ( operation.call == SdkCall::entryFree ) {
        const std::lock_guard lock( mutex_ );
        freed = entries_.extract( operation.handle );
    }
    const int rc = Interpose::perform( sdk_, operation );
    if ( freed ) {
        const std::lock_guard lock( mutex_ );
        if ( rc < 0 )
            entries_.insert( std::move( freed ) );
        else
            spare_.push_back( std::move( freed ) );
    }
    if ( operation.call == SdkCall::entryAllocate && rc >= 0 && operation.newHandle != nullptr &&
         *operation.newHandle != invalidHandle_ )
        add( *operation.newHandle, operation.unit, operation.table );
    return rc;
}

void HandleDirectory::add( std::uint32_t handle, int unit, std::string_view table ) {
    const std::lock_guard lock( mutex_ );
    auto known = tables_.find( table );
    if ( known == tables_.end() )
        known = tables_.emplace( table ).first;
    const Entry entry{ unit, *known };
    if ( spare_.empty() || entries_.contains( handle ) ) {
        entries_.insert_or_assign( handle, entry );
        return;
    }
    spare_.back().key() = handle;
    spare_.back().mapped() = entry;
    entries_.insert( std::move( spare_.back() ) );
    spare_.pop_back();
}

} // namespace Interpose
