#include "tests/sim/TestChip.h"
#include "tests/support/Allocations.h"

#include <gtest/gtest.h>

#include <cstddef>

// What the simulated chip takes from the heap: nothing, once its rows are there. And what it says
// when there is no memory left.

using namespace SimTest;
using Sim::Rc;

namespace {

void visitEveryKind( Sim::Chip & chip ) {
    {
        Entry entry( chip, "EVENT" );
        entry.symbol( "ID", "MISS" );
        EXPECT_EQ( entry.lookup(), Rc::ok );
        entry.add( "CPU", 1 );
        EXPECT_EQ( entry.update(), Rc::ok );
    }
    {
        Entry entry( chip, "POLICY" );
        EXPECT_EQ( entry.lookup(), Rc::entryNotFound );
        entry.add( "LIMIT", 4 );
        EXPECT_EQ( entry.insert(), Rc::ok );
        EXPECT_EQ( entry.remove(), Rc::ok );
        EXPECT_EQ( entry.add( "LIMIT", 0x1'0000 ), Rc::valueTooWide );
    }
    Entry entry( chip, "PORTr" );
    entry.add( "BCMLT_PT_PORT", 2 );
    EXPECT_EQ( entry.fromHardware(), Rc::ok );
    EXPECT_EQ( entry.ptGet(), Rc::ok );
    entry.add( "VALUE", 1 );
    EXPECT_EQ( entry.ptSet(), Rc::ok );
    EXPECT_EQ( entry.ptModify(), Rc::ok );
}

TEST( AllocationTest, VisitsToRowsThatExistTakeNothingFromTheHeap ) {
    Sim::Chip chip;
    chip.addUnit( 0, smallSchema() );
    visitEveryKind( chip );
    const std::size_t before = Support::allocations();
    for ( int i = 0; i < 100; ++i )
        visitEveryKind( chip );
    EXPECT_EQ( Support::allocations() - before, 0u );
    EXPECT_GT( before, 0u ) << "allocations are counted";
}

TEST( AllocationTest, WithoutMemoryOperationsFailAndChangeNothing ) {
    Sim::Chip chip;
    chip.addUnit( 0, smallSchema() );
    std::uint32_t handle = 0;
    int allocated = 0;
    {
        const Support::NoMemory noMemory;
        allocated = chip.bcmlt_entry_allocate( 0, "POLICY", &handle );
    }
    EXPECT_EQ( allocated, toInt( Rc::outOfMemory ) );
    EXPECT_STREQ( chip.errmsg( toInt( Rc::outOfMemory ) ), "out of memory" );
    EXPECT_EQ( chip.liveEntryCount(), 0u );

    Entry entry( chip, "POLICY" );
    EXPECT_EQ( entry.add( "LIMIT", 4 ), Rc::ok );
    Rc inserted = Rc::ok;
    {
        const Support::NoMemory noMemory;
        inserted = entry.insert();
    }
    EXPECT_EQ( inserted, Rc::outOfMemory );
    EXPECT_EQ( chip.rowCount( 0, "POLICY" ), 0u );
    EXPECT_EQ( entry.insert(), Rc::ok );
    EXPECT_EQ( chip.rowCount( 0, "POLICY" ), 1u );
}

} // namespace
