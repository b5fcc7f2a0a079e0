#include "interpose/Interposer.h"

#include "tests/sim/TestChip.h"
#include "tests/support/Allocations.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>

using namespace Interpose;
using namespace Sim;

namespace {

// Keeps the last operation, and passes all on.
class Keeper final : public Interposer {
  public:
    using Interposer::Interposer;

    Operation last;

  private:
    int operate( const Operation & operation ) noexcept override {
        last = operation;
        return perform( inner(), operation );
    }
};

class InterposerTest : public testing::Test {
  protected:
    InterposerTest() { chip.addUnit( 0, SimTest::smallSchema() ); }

    std::uint32_t entryOf( const char * table ) {
        std::uint32_t handle = 0;
        EXPECT_EQ( chip.bcmlt_entry_allocate( 0, table, &handle ), 0 );
        return handle;
    }

    Chip chip;
    Keeper keeper{ chip };
};

TEST_F( InterposerTest, EachOperationIsAValueOnItsWayAndReachesTheChip ) {
    std::uint32_t handle = 0;
    EXPECT_EQ( keeper.bcmlt_entry_allocate( 0, "MAPm", &handle ), 0 );
    EXPECT_EQ( keeper.last.call, SdkCall::entryAllocate );
    EXPECT_EQ( keeper.last.unit, 0 );
    EXPECT_STREQ( keeper.last.table, "MAPm" );
    EXPECT_EQ( keeper.last.newHandle, &handle );

    EXPECT_EQ( keeper.bcmlt_entry_field_add( handle, "BCMLT_PT_INDEX", 5 ), 0 );
    EXPECT_EQ( keeper.last.call, SdkCall::entryFieldAdd );
    EXPECT_EQ( keeper.last.handle, handle );
    EXPECT_STREQ( keeper.last.field, "BCMLT_PT_INDEX" );
    EXPECT_EQ( keeper.last.count, 1u );

    EXPECT_EQ( keeper.bcmlt_entry_field_symbol_add( handle, "MODE", "AUTO" ), 0 );
    EXPECT_EQ( keeper.last.call, SdkCall::entryFieldSymbolAdd );
    EXPECT_STREQ( keeper.last.symbol, "AUTO" );

    const std::array<std::uint64_t, 2> words = { 7, 8 };
    EXPECT_EQ( keeper.bcmlt_entry_field_array_add( handle, "WORDS", 1, words.data(), 2 ), 0 );
    EXPECT_EQ( keeper.last.call, SdkCall::entryFieldArrayAdd );
    EXPECT_EQ( keeper.last.startIndex, 1u );
    EXPECT_EQ( keeper.last.values, words.data() );
    EXPECT_EQ( keeper.last.count, 2u );

    EXPECT_EQ( keeper.bcmlt_entry_attrib_set( handle, chip.BCMLT_ENT_ATTR_GET_FROM_HW() ), 0 );
    EXPECT_EQ( keeper.last.call, SdkCall::entryAttribSet );
    EXPECT_EQ( keeper.last.attribute, chip.BCMLT_ENT_ATTR_GET_FROM_HW() );

    EXPECT_EQ( keeper.bcmlt_pt_entry_commit( handle, chip.BCMLT_PT_OPCODE_MODIFY(),
                                             chip.BCMLT_PRIORITY_NORMAL() ),
               0 );
    EXPECT_EQ( keeper.last.call, SdkCall::ptEntryCommit );
    EXPECT_EQ( keeper.last.opcode, chip.BCMLT_PT_OPCODE_MODIFY() );
    EXPECT_EQ( keeper.last.priority, chip.BCMLT_PRIORITY_NORMAL() );
    EXPECT_EQ( chip.value( 0, "MAPm", { .index = 5 }, "WORDS", 2 ), 8u );

    std::uint64_t value = 0;
    EXPECT_EQ( keeper.bcmlt_entry_field_get( handle, "MODE", &value ), 0 );
    EXPECT_EQ( keeper.last.call, SdkCall::entryFieldGet );
    EXPECT_EQ( keeper.last.result, &value );
    EXPECT_EQ( value, 5u );

    EXPECT_EQ( keeper.bcmlt_entry_free( handle ), 0 );
    EXPECT_EQ( keeper.last.call, SdkCall::entryFree );
    EXPECT_EQ( chip.liveEntryCount(), 0u );
}

TEST_F( InterposerTest, ALogicalCommitReachesTheChip ) {
    const std::uint32_t handle = entryOf( "EVENT" );
    ASSERT_EQ( keeper.bcmlt_entry_field_symbol_add( handle, "ID", "MISS" ), 0 );
    EXPECT_EQ( keeper.bcmlt_entry_commit( handle, chip.BCMLT_OPCODE_LOOKUP(),
                                          chip.BCMLT_PRIORITY_NORMAL() ),
               0 );
    EXPECT_EQ( keeper.last.call, SdkCall::entryCommit );
    EXPECT_EQ( keeper.last.opcode, chip.BCMLT_OPCODE_LOOKUP() );
}

TEST_F( InterposerTest, NothingIsAllocatedOnTheWay ) {
    const std::uint32_t handle = entryOf( "MAPm" );
    const std::uint64_t before = Support::allocations();
    for ( unsigned i = 0; i < 100; ++i )
        keeper.bcmlt_entry_field_add( handle, "TAG", 1 );
    EXPECT_EQ( Support::allocations(), before );
}

} // namespace
