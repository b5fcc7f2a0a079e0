#include "interpose/Operation.h"

namespace Interpose {

int perform( Shim::Sdk & sdk, const Operation & o ) noexcept {
    switch ( o.call ) {
    case SdkCall::entryAllocate:
        return sdk.bcmlt_entry_allocate( o.unit, o.table, o.newHandle );
    case SdkCall::entryAttribSet:
        return sdk.bcmlt_entry_attrib_set( o.handle, o.attribute );
    case SdkCall::entryCommit:
        return sdk.bcmlt_entry_commit( o.handle, o.opcode, o.priority );
    case SdkCall::entryFieldAdd:
        return sdk.bcmlt_entry_field_add( o.handle, o.field, *o.values );
    case SdkCall::entryFieldArrayAdd:
        return sdk.bcmlt_entry_field_array_add( o.handle, o.field, o.startIndex, o.values,
                                                o.count );
    case SdkCall::entryFieldGet:
        return sdk.bcmlt_entry_field_get( o.handle, o.field, o.result );
    case SdkCall::entryFieldSymbolAdd:
        return sdk.bcmlt_entry_field_symbol_add( o.handle, o.field, o.symbol );
    case SdkCall::ptEntryCommit:
        return sdk.bcmlt_pt_entry_commit( o.handle, o.opcode, o.priority );
    default:
        return sdk.bcmlt_entry_free( o.handle );
    }
}

} // namespace Interpose
