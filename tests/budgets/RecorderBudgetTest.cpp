#include "interpose/TraceRecorder.h"
#include "tests/support/Allocations.h"
#include "tests/support/QuietSdk.h"
#include "tests/support/SdkOperations.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TraceOperations.h"

#include <Kiln/ActivityLock.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <iostream>

// What it costs that an SDK operation is recorded, before and after.

namespace {

class RecorderBudgetTest : public ::testing::Test {
  protected:
    ~RecorderBudgetTest() override { Support::operationSdk = nullptr; }

    // What the recorder adds to the operation.
    template <class Operation>
    void expectAtMost( std::uint64_t limit, const char * name ) {
        Support::operationSdk = &Support::quietSdk();
        const auto bare = Support::instructionsOf<Operation>();
        Support::operationSdk = &recorder_;
        const auto recorded = Support::instructionsOf<Operation>();
        ASSERT_TRUE( bare && recorded ) << "processes cannot be stepped here";
        RecordProperty( name, std::to_string( *recorded - *bare ) );
        std::cout << name << ": " << *recorded - *bare << " instructions\n";
        EXPECT_GT( *recorded, *bare + 40 ) << name << ": less than two records take";
        EXPECT_LE( *recorded - *bare, limit ) << name;
    }

    Support::TemporaryFolder folder_;
    Interpose::TraceRecorder recorder_{
        Support::quietSdk(),
        { .directory = folder_.path(), .isLockHeld = Kiln::holdsActivityLock } };
};

// With names of at most 31 characters, as nearly all are, and two values in the array. Each further
// value takes four instructions.
TEST_F( RecorderBudgetTest, OperationTakesAtMost140Instructions ) {
    expectAtMost<Support::Allocate>( 140, "allocate" );
    expectAtMost<Support::AttribSet>( 140, "attrib_set" );
    expectAtMost<Support::Commit>( 140, "commit" );
    expectAtMost<Support::FieldAdd>( 140, "field_add" );
    expectAtMost<Support::FieldArrayAdd>( 140, "field_array_add" );
    expectAtMost<Support::FieldGet>( 140, "field_get" );
    expectAtMost<Support::FieldSymbolAdd>( 140, "field_symbol_add" );
    expectAtMost<Support::Free>( 140, "free" );
    expectAtMost<Support::PtCommit>( 140, "pt_commit" );
}

} // namespace
