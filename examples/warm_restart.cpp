#include "interpose/LatencyMeter.h"
#include "interpose/WriteGate.h"
#include "sim/Chip.h"

#include <Cairn/CairnLtHelper.h>
#include <Kiln/ActivityLock.h>
#include <Shim/Sdk.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <mutex>

// An agent that comes back while its chip goes on forwarding: behind a write gate its tests prove that
// it writes nothing, and behind a latency meter they see which operations it takes.

namespace {

// sample: agent
// The agent's code: which link aggregation group each L2 interface sends to.
class Destinations {
  public:
    explicit Destinations( CairnCentral::ChipInfo chip ) : chip_( chip ) {}

    void send( std::uint16_t l2If, std::uint32_t lag ) {
        const std::lock_guard lock( Kiln::activityLock() );
        Cairn::programL2EifSystemDestinationTable( chip_, 0, 0, lag, 128, l2If, true, true );
        lags_[l2If] = lag;
    }

    // After a restart: `wanted` is what the agent has kept. Writes only what the chip has not.
    void restore( const std::map<std::uint16_t, std::uint32_t> & wanted ) {
        for ( const auto & [l2If, lag] : wanted )
            if ( !isOnChip( l2If, lag ) )
                send( l2If, lag );
        lags_ = wanted;
    }

    const std::map<std::uint16_t, std::uint32_t> & lags() const { return lags_; }

  private:
    bool isOnChip( std::uint16_t l2If, std::uint32_t lag ) {
        const std::lock_guard lock( Kiln::activityLock() );
        return Cairn::verifyL2EifSystemDestinationTable( chip_, 0, 0, lag, 128, l2If, true, true );
    }

    CairnCentral::ChipInfo chip_;
    std::map<std::uint16_t, std::uint32_t> lags_;
};
// end of sample

class WarmRestartTest : public testing::Test {
  protected:
    WarmRestartTest() {
        chip_.addUnit( 0, Sim::referenceSchema() );
        Shim::sdk_ = &chip_;
        Destinations before( leaf_ );
        before.send( 7, 1 );
        before.send( 8, 2 );
        kept_ = before.lags();
    }
    ~WarmRestartTest() override { Shim::sdk_ = nullptr; }

    std::uint64_t lagOf( std::uint64_t l2If ) {
        return chip_.value( 0, "L2_EIF_SYSTEM_DESTINATION", { .key = { l2If } }, "TRUNK_ID" )
            .value_or( 0 );
    }

    const CairnCentral::ChipInfo leaf_{ "leaf", 1, 0, 0 };
    Sim::Chip chip_;
    std::map<std::uint16_t, std::uint32_t> kept_;
};

// sample: gate
TEST_F( WarmRestartTest, WritesNothing ) {
    Interpose::WriteGate gate( chip_, Interpose::WriteGate::Mode::skip );
    Shim::sdk_ = &gate;
    Destinations( leaf_ ).restore( kept_ );
    EXPECT_EQ( gate.writeCount(), 0u ) << toText( gate.writes() );
}
// end of sample

TEST_F( WarmRestartTest, WhatItWouldWriteIsToldAndTheChipIsAsItWas ) {
    Interpose::WriteGate gate( chip_, Interpose::WriteGate::Mode::skip );
    Shim::sdk_ = &gate;
    kept_[8] = 3;
    Destinations( leaf_ ).restore( kept_ );
    ASSERT_EQ( gate.writes().size(), 1u );
    EXPECT_EQ( gate.writes()[0].table, "L2_EIF_SYSTEM_DESTINATION" );
    EXPECT_EQ( gate.writes()[0].opcodeName, "BCMLT_OPCODE_UPDATE" );
    EXPECT_EQ( gate.writes()[0].skipped, 1u );
    EXPECT_EQ( lagOf( 8 ), 2u );

    gate.setMode( Interpose::WriteGate::Mode::allow );
    Destinations( leaf_ ).restore( kept_ );
    EXPECT_EQ( lagOf( 8 ), 3u );
}

using WarmRestartDeathTest = WarmRestartTest;
TEST_F( WarmRestartDeathTest, BehindAGateThatRefusesTheFirstWriteStopsTheAgent ) {
    Interpose::WriteGate gate( chip_, Interpose::WriteGate::Mode::refuse );
    Shim::sdk_ = &gate;
    EXPECT_DEATH( Destinations( leaf_ ).send( 9, 4 ), "bcmlt_entry_commit.*API ERROR" );
}

// sample: meter
TEST_F( WarmRestartTest, TakesOneLookupForEachInterface ) {
    Interpose::LatencyMeter meter( chip_ );
    Shim::sdk_ = &meter;
    Destinations( leaf_ ).restore( kept_ );
    for ( const Interpose::Latency & each : meter.latencies() ) {
        if ( each.operation == Interpose::SdkCall::entryCommit ) {
            EXPECT_EQ( each.count, kept_.size() ) << toText( meter.latencies() );
        }
    }
}
// end of sample

} // namespace
