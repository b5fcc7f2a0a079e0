#include "interpose/LatencyMeter.h"
#include "interpose/WriteGate.h"
#include "tests/sim/TestChip.h"
#include "tests/support/Allocations.h"
#include "tests/support/QuietSdk.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

// The interposers that keep writes away and measure.

namespace {

using namespace Interpose;

class GateTest : public testing::Test {
  protected:
    GateTest() { chip_.addUnit( 0, SimTest::smallSchema() ); }

    int writeRow( std::uint64_t row ) {
        std::uint32_t handle = 0;
        EXPECT_EQ( gate_.bcmlt_entry_allocate( 0, "MAPm", &handle ), 0 );
        gate_.bcmlt_entry_field_add( handle, "BCMLT_PT_INDEX", row );
        gate_.bcmlt_entry_field_add( handle, "CLASS", 2 );
        const int rc = gate_.bcmlt_pt_entry_commit( handle, gate_.BCMLT_PT_OPCODE_MODIFY(),
                                                    gate_.BCMLT_PRIORITY_NORMAL() );
        EXPECT_EQ( gate_.bcmlt_entry_free( handle ), 0 );
        return rc;
    }

    int commitPolicy( std::uint32_t opcode ) {
        std::uint32_t handle = 0;
        EXPECT_EQ( gate_.bcmlt_entry_allocate( 0, "POLICY", &handle ), 0 );
        gate_.bcmlt_entry_field_add( handle, "LIMIT", 7 );
        const int rc = gate_.bcmlt_entry_commit( handle, opcode, gate_.BCMLT_PRIORITY_NORMAL() );
        EXPECT_EQ( gate_.bcmlt_entry_free( handle ), 0 );
        return rc;
    }

    Sim::Chip chip_;
    WriteGate gate_{ chip_ };
};

TEST_F( GateTest, RefusesWritesWithItsCodeAndNothingReachesTheChip ) {
    EXPECT_EQ( gate_.mode(), WriteGate::Mode::refuse );
    EXPECT_EQ( writeRow( 5 ), -1 );
    gate_.setMode( WriteGate::Mode::refuse, -99 );
    EXPECT_EQ( writeRow( 5 ), -99 );
    EXPECT_EQ( commitPolicy( chip_.BCMLT_OPCODE_INSERT() ), -99 );
    EXPECT_EQ( chip_.rowCount( 0, "MAPm" ), 0u );
    EXPECT_EQ( chip_.rowCount( 0, "POLICY" ), 0u );
    EXPECT_EQ( gate_.writeCount(), 3u );
}

TEST_F( GateTest, SkippedWritesSucceedAndNothingReachesTheChip ) {
    gate_.setMode( WriteGate::Mode::skip );
    EXPECT_EQ( writeRow( 5 ), 0 );
    EXPECT_EQ( chip_.rowCount( 0, "MAPm" ), 0u );
    EXPECT_EQ( chip_.liveEntryCount(), 0u );
}

TEST_F( GateTest, AllowedWritesReachTheChip ) {
    gate_.setMode( WriteGate::Mode::allow );
    EXPECT_EQ( writeRow( 5 ), 0 );
    EXPECT_EQ( commitPolicy( chip_.BCMLT_OPCODE_INSERT() ), 0 );
    EXPECT_EQ( chip_.rowCount( 0, "MAPm" ), 1u );
    EXPECT_EQ( chip_.rowCount( 0, "POLICY" ), 1u );
}

TEST_F( GateTest, ReadsAreNoWrites ) {
    EXPECT_LT( commitPolicy( chip_.BCMLT_OPCODE_LOOKUP() ), 0 ) << "there is no such row";
    EXPECT_EQ( gate_.writeCount(), 0u );
    EXPECT_TRUE( gate_.writes().empty() );
    EXPECT_EQ( toText( gate_.writes() ), "" );
}

TEST_F( GateTest, TellsWhatWasWrittenAndWhatBecameOfIt ) {
    gate_.setMode( WriteGate::Mode::skip );
    writeRow( 1 );
    writeRow( 2 );
    gate_.setMode( WriteGate::Mode::allow );
    writeRow( 3 );
    gate_.setMode( WriteGate::Mode::refuse );
    commitPolicy( chip_.BCMLT_OPCODE_DELETE() );
    gate_.bcmlt_entry_commit( 4242, 77, 1 );
    EXPECT_EQ( toText( gate_.writes() ),
               "bcmlt_entry_commit unit -1 77: 0 allowed, 1 refused, 0 skipped\n"
               "bcmlt_pt_entry_commit MAPm unit 0 BCMLT_PT_OPCODE_MODIFY: 1 allowed, 0 refused, 2 "
               "skipped\n"
               "bcmlt_entry_commit POLICY unit 0 BCMLT_OPCODE_DELETE: 0 allowed, 1 refused, 0 "
               "skipped\n" );
    EXPECT_EQ( gate_.writeCount(), 5u );
    gate_.reset();
    EXPECT_EQ( gate_.writeCount(), 0u );
}

TEST_F( GateTest, CodeOfARefusalIsNegative ) {
    EXPECT_THROW( gate_.setMode( WriteGate::Mode::refuse, 0 ), std::invalid_argument );
}

// A clock that a test moves.
std::uint64_t now = 0;
std::uint64_t testClock() noexcept { return now; }

// Takes as long as it is told.
class SlowSdk final : public Interposer {
  public:
    using Interposer::Interposer;
    std::uint64_t takes = 0;

  private:
    int operate( const Operation & operation ) noexcept override {
        now += takes;
        return perform( inner(), operation );
    }
};

class MeterTest : public testing::Test {
  protected:
    MeterTest() { chip_.addUnit( 0, SimTest::smallSchema() ); }

    Sim::Chip chip_;
    SlowSdk slow_{ chip_ };
    LatencyMeter meter_{ slow_, testClock };
};

TEST_F( MeterTest, CountsByTableAndOperation ) {
    std::uint32_t handle = 0;
    slow_.takes = 1000;
    meter_.bcmlt_entry_allocate( 0, "MAPm", &handle );
    slow_.takes = 10;
    meter_.bcmlt_entry_field_add( handle, "CLASS", 2 );
    slow_.takes = 50;
    meter_.bcmlt_entry_field_add( handle, "CLASS", 3 );
    slow_.takes = 300;
    meter_.bcmlt_entry_field_add( handle, "NO_SUCH_FIELD", 3 );
    slow_.takes = 0;
    meter_.bcmlt_entry_free( handle );
    meter_.bcmlt_entry_free( 4242 );

    const auto latencies = meter_.latencies();
    ASSERT_EQ( latencies.size(), 4u );
    EXPECT_EQ( latencies[0].table, "" );
    EXPECT_EQ( latencies[0].failures, 1u );
    EXPECT_EQ( latencies[1].operation, SdkCall::entryAllocate );
    EXPECT_EQ( latencies[1].total, 1000u );
    const Latency & adds = latencies[2];
    EXPECT_EQ( adds.table, "MAPm" );
    EXPECT_EQ( adds.operation, SdkCall::entryFieldAdd );
    EXPECT_EQ( adds.count, 3u );
    EXPECT_EQ( adds.failures, 1u );
    EXPECT_EQ( adds.total, 360u );
    EXPECT_EQ( adds.least, 10u );
    EXPECT_EQ( adds.most, 300u );
    EXPECT_EQ( adds.buckets[3], 1u ); // 8 to 15
    EXPECT_EQ( adds.buckets[5], 1u ); // 32 to 63
    EXPECT_EQ( adds.buckets[8], 1u ); // 256 to 511
    EXPECT_EQ( latencies[3].operation, SdkCall::entryFree );
    EXPECT_EQ( latencies[3].buckets[0], 1u );

    EXPECT_EQ(
        toText( latencies ),
        "  table      operation  count  failures  least us  average  50%    90%    99%    most\n"
        "  (unknown)  free       1      1         0.000     0.000    0.000  0.000  0.000  0.000\n"
        "  MAPm       allocate   1      0         1.000     1.000    1.000  1.000  1.000  1.000\n"
        "  MAPm       field_add  3      1         0.010     0.120    0.064  0.300  0.300  0.300\n"
        "  MAPm       free       1      0         0.000     0.000    0.000  0.000  0.000  0.000\n" );
    const auto json = nlohmann::json::parse( toJson( latencies ) );
    ASSERT_EQ( json.size(), 4u );
    EXPECT_EQ( json[2], nlohmann::json::parse( R"({ "table": "MAPm", "operation":
        "bcmlt_entry_field_add", "count": 3, "failures": 1, "total": 360, "least": 10, "most": 300,
        "buckets": [[16,1],[64,1],[512,1]] })" ) );
    meter_.reset();
    EXPECT_TRUE( meter_.latencies().empty() );
    EXPECT_EQ( nlohmann::json::parse( toJson( {} ) ), nlohmann::json::array() );
}

TEST_F( MeterTest, PercentilesAreEndsOfBucketsButNeverMoreThanTheMost ) {
    Latency latency{ .count = 100, .most = 5000 };
    latency.buckets[4] = 50;
    latency.buckets[6] = 49;
    latency.buckets[12] = 1;
    EXPECT_EQ( latency.percentile( 50 ), 32u );
    EXPECT_EQ( latency.percentile( 51 ), 128u );
    EXPECT_EQ( latency.percentile( 99 ), 128u );
    EXPECT_EQ( latency.percentile( 100 ), 5000u );
}

TEST_F( MeterTest, LongestTimesAreInTheLastBucket ) {
    slow_.takes = std::uint64_t( 1 ) << 50;
    meter_.bcmlt_entry_free( 1 );
    EXPECT_EQ( meter_.latencies()[0].buckets.back(), 1u );
}

TEST_F( MeterTest, ThreadsAddUp ) {
    LatencyMeter meter( Support::quietSdk() );
    std::vector<std::thread> threads;
    for ( int i = 0; i < 4; ++i )
        threads.emplace_back( [&] {
            for ( int j = 0; j < 500; ++j )
                meter.bcmlt_entry_free( 7 );
        } );
    for ( auto & thread : threads )
        thread.join();
    EXPECT_EQ( meter.latencies().at( 0 ).count, 2000u );
}

TEST_F( MeterTest, NothingIsAllocatedOnceATableIsKnown ) {
    LatencyMeter meter( Support::quietSdk() );
    const auto work = [&] {
        for ( int i = 0; i < 100; ++i ) {
            std::uint32_t handle = 0;
            ASSERT_EQ( meter.bcmlt_entry_allocate( 0, "A_TABLE_WITH_A_LONG_NAME", &handle ), 0 );
            meter.bcmlt_entry_field_add( handle, "FIELD", 1 );
            meter.bcmlt_entry_free( handle );
        }
    };
    work();
    const auto before = Support::allocations();
    work();
    EXPECT_EQ( Support::allocations(), before );
}

} // namespace
