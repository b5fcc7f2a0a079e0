// sample: includes
#include "sim/Chip.h"

#include <Cairn/CairnLtHelper.h>
#include <Kiln/ActivityLock.h>
#include <Shim/Sdk.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <mutex>

// end of sample

// How an agent tests its own code against the simulated chip.

namespace {

// sample: test
// The agent's code: it knows recipes, and nothing of the simulated chip.
void markCongestedTunnels( std::uint32_t unit, std::uint32_t ecn ) {
    const std::lock_guard lock( Kiln::activityLock() );
    for ( std::uint32_t index = 0; index < 4; ++index )
        Cairn::setEgrTunnelEcnEncap( unit, index, ecn );
}

class AgentTest : public testing::Test {
  protected:
    AgentTest() {
        chip_.addUnit( 0, Sim::referenceSchema() );
        Shim::sdk_ = &chip_;
    }
    ~AgentTest() override { Shim::sdk_ = nullptr; }

    Sim::Chip chip_;
};

TEST_F( AgentTest, EachTunnelIsMarked ) {
    markCongestedTunnels( 0, 2 );
    EXPECT_EQ( chip_.rowCount( 0, "EGR_TUNNEL_ECN_ENCAPm" ), 4u );
    EXPECT_EQ( chip_.value( 0, "EGR_TUNNEL_ECN_ENCAPm", { .index = 3 }, "OUTER_ECN" ), 2u );
    EXPECT_EQ( chip_.liveEntryCount(), 0u );
}

TEST_F( AgentTest, AnEcnThatDoesNotFitStopsTheAgent ) {
    EXPECT_DEATH( markCongestedTunnels( 0, 4 ), "OUTER_ECN.*API ERROR" );
}
// end of sample

} // namespace
