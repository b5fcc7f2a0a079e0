#include "interpose/TraceRecorder.h"
#include "tests/support/Allocations.h"
#include "tests/support/QuietSdk.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TraceOperations.h"

#include <Kiln/ActivityLock.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <iostream>

// What it costs that an SDK operation is recorded, before and after.

namespace {

Shim::Sdk * sdk = nullptr;

// Texts as recipes have them: not across the end of a page, where strlen() takes a longer way.
alignas( 64 ) char table[32] = "EGR_TUNNEL_ECN_ENCAPm";
alignas( 64 ) char field[32] = "BCMLT_PT_INDEX";
alignas( 64 ) char symbol[32] = "L3_DST_LOOKUP_MISS";

struct Allocate {
    Shim::Sdk & to = *sdk;
    std::uint32_t * handle = &place;
    static inline std::uint32_t place = 0;
    void run( std::uint32_t, std::uint32_t ) const { to.bcmlt_entry_allocate( 0, table, handle ); }
};
struct AttribSet {
    Shim::Sdk & to = *sdk;
    void run( std::uint32_t i, std::uint32_t ) const { to.bcmlt_entry_attrib_set( i, 1 ); }
};
struct Commit {
    Shim::Sdk & to = *sdk;
    void run( std::uint32_t i, std::uint32_t ) const { to.bcmlt_entry_commit( i, 5, 6 ); }
};
struct FieldAdd {
    Shim::Sdk & to = *sdk;
    void run( std::uint32_t i, std::uint32_t j ) const { to.bcmlt_entry_field_add( i, field, j ); }
};
struct FieldArrayAdd {
    Shim::Sdk & to = *sdk;
    static constexpr std::uint64_t values[2] = { 1, 2 };
    void run( std::uint32_t i, std::uint32_t ) const {
        to.bcmlt_entry_field_array_add( i, field, 0, values, 2 );
    }
};
struct FieldGet {
    Shim::Sdk & to = *sdk;
    static inline std::uint64_t value = 0;
    void run( std::uint32_t i, std::uint32_t ) const {
        to.bcmlt_entry_field_get( i, field, &value );
    }
};
struct FieldSymbolAdd {
    Shim::Sdk & to = *sdk;
    void run( std::uint32_t i, std::uint32_t ) const {
        to.bcmlt_entry_field_symbol_add( i, field, symbol );
    }
};
struct Free {
    Shim::Sdk & to = *sdk;
    void run( std::uint32_t i, std::uint32_t ) const { to.bcmlt_entry_free( i ); }
};
struct PtCommit {
    Shim::Sdk & to = *sdk;
    void run( std::uint32_t i, std::uint32_t ) const { to.bcmlt_pt_entry_commit( i, 8, 6 ); }
};

class RecorderBudgetTest : public ::testing::Test {
  protected:
    RecorderBudgetTest() { sdk = &recorder_; }
    ~RecorderBudgetTest() override { sdk = nullptr; }

    // What the recorder adds to the operation.
    template <class Operation>
    void expectAtMost( std::uint64_t limit, const char * name ) {
        sdk = &Support::quietSdk();
        const auto bare = Support::instructionsOf<Operation>();
        sdk = &recorder_;
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
    expectAtMost<Allocate>( 140, "allocate" );
    expectAtMost<AttribSet>( 140, "attrib_set" );
    expectAtMost<Commit>( 140, "commit" );
    expectAtMost<FieldAdd>( 140, "field_add" );
    expectAtMost<FieldArrayAdd>( 140, "field_array_add" );
    expectAtMost<FieldGet>( 140, "field_get" );
    expectAtMost<FieldSymbolAdd>( 140, "field_symbol_add" );
    expectAtMost<Free>( 140, "free" );
    expectAtMost<PtCommit>( 140, "pt_commit" );
}

} // namespace
