#include "interpose/HandleDirectory.h"

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
    decltype( entries_ )::node_type freed;
    if ( operation.call == SdkCall::entryFree ) {
        const std::lock_guard lock( mutex_ );
        freed = entries_.extract( operation.handle );
    }
    const int rc = Interpose::perform( sdk_, operation );
    if ( rc < 0 && freed ) {
        const std::lock_guard lock( mutex_ );
        entries_.insert( std::move( freed ) );
    }
    if ( operation.call == SdkCall::entryAllocate && rc >= 0 && operation.newHandle != nullptr &&
         *operation.newHandle != invalidHandle_ ) {
        const std::lock_guard lock( mutex_ );
        const auto table = tables_.emplace( operation.table ).first;
        entries_.insert_or_assign( *operation.newHandle, Entry{ operation.unit, *table } );
    }
    return rc;
}

} // namespace Interpose
