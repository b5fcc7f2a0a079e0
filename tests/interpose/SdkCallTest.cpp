#include "interpose/SdkCall.h"

#include <gtest/gtest.h>

using namespace Interpose;

namespace {

TEST( SdkCallTest, OperationsAreFoundByTheirNames ) {
    EXPECT_EQ( operationByName( "bcmlt_entry_allocate" ), SdkCall::entryAllocate );
    EXPECT_EQ( operationByName( "allocate" ), SdkCall::entryAllocate );
    EXPECT_EQ( operationByName( "field_array_add" ), SdkCall::entryFieldArrayAdd );
    EXPECT_EQ( operationByName( "commit" ), SdkCall::entryCommit );
    EXPECT_EQ( operationByName( "pt_entry_commit" ), SdkCall::ptEntryCommit );
    EXPECT_EQ( operationByName( "bcmlt_pt_entry_commit" ), SdkCall::ptEntryCommit );
    EXPECT_EQ( operationByName( "entry_free" ), SdkCall::entryFree );
    EXPECT_EQ( operationByName( "entry_commit" ), SdkCall::entryCommit );
    for ( const char * none : { "", "entry", "bcmlt_", "pt_commit", "preCallHook", "errmsg" } )
        EXPECT_EQ( operationByName( none ), std::nullopt ) << none;
    for ( const SdkCall call : sdkOperations() ) {
        EXPECT_EQ( kind( call ), SdkCallKind::operation );
        EXPECT_EQ( operationByName( name( call ) ), call );
        EXPECT_EQ( operationByName( shortName( call ) ), call );
        for ( const std::string_view each : namesOf( call ) )
            EXPECT_EQ( operationByName( each ), call ) << each;
    }
    EXPECT_EQ( sdkOperations().size(), 9u );
}

TEST( SdkCallTest, CallsKnowTheirNamesAndKinds ) {
    EXPECT_EQ( name( SdkCall::errmsg ), "errmsg" );
    EXPECT_EQ( kind( SdkCall::errmsg ), SdkCallKind::text );
    EXPECT_EQ( name( SdkCall::speedName ), "SPEEDs" );
    EXPECT_EQ( kind( SdkCall::speedName ), SdkCallKind::constant );
    EXPECT_EQ( name( SdkCall::failureHook ), "failureHook" );
    EXPECT_EQ( kind( SdkCall::failureHook ), SdkCallKind::hook );
    EXPECT_EQ( shortName( SdkCall::opcodeInsert ), "BCMLT_OPCODE_INSERT" );
}

} // namespace
