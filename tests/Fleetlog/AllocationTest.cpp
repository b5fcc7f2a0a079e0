#include "Cairn/internal/TraceMessage.h"

#include "tests/support/Allocations.h"
#include "tests/support/TraceFiles.h"

#include <gtest/gtest.h>

// A message allocates nothing. This program counts.

namespace AllocationTest {

void message( uint32_t unit, const char * text ) noexcept {
    CAIRN_RECIPE( "void AllocationTest::message(uint32_t, const char*)" );
    CAIRN_MESSAGE( "ip", ( " unit: ", "%s", " text: ", "%s" ), unit, text );
    CAIRN_LINE( 8, "message" << " unit: " << unit );
}

class MessageAllocationTest : public testing::TestWithParam<Fleetlog::Files> {};

TEST_P( MessageAllocationTest, AMessageAllocatesNothingNotEvenWhenItRegisters ) {
    const Support::Directory directory;
    Fleetlog::openDefault(
        { .directory = directory.path(), .ringBytes = 8192, .files = GetParam() } );
    Cairn::_defaultTraceHandle(); // made on first use, once in a process
    std::size_t before = Support::allocations();
    message( 1, "the first one registers" );
    for ( uint32_t i = 0; i < 1000; ++i ) // many blocks, and the ring wraps
        message( i, "a text that is not short" );
    EXPECT_EQ( Support::allocations() - before, 0u );

    Fleetlog::closeDefault();
    before = Support::allocations();
    message( 1, "to no file" );
    EXPECT_EQ( Support::allocations() - before, 0u );

    // The count does count.
    ::operator delete( ::operator new( 1 ) );
    EXPECT_EQ( Support::allocations() - before, 1u );
}

INSTANTIATE_TEST_SUITE_P(, MessageAllocationTest,
                         testing::Values( Fleetlog::Files::perProcess,
                                          Fleetlog::Files::perThread ) );

} // namespace AllocationTest
