#include "tests/support/TemporaryFolder.h"
#include "tests/support/TraceOperations.h"

#include <gtest/gtest.h>

#include <string>

// What a record and a message may cost, in instructions.

namespace {

using Fleetlog::Timestamps;

class TraceBudgetTest : public ::testing::Test {
  protected:
    TraceBudgetTest() { options_.directory = folder_.path(); }
    ~TraceBudgetTest() override { Support::traceTargets = nullptr; }

    template <class Operation>
    void expectAtMost( std::uint64_t limit ) {
        Support::TraceTargets targets( options_ );
        Support::traceTargets = &targets;
        const auto instructions = Support::instructionsOf<Operation>();
        ASSERT_TRUE( instructions ) << "processes cannot be stepped here";
        RecordProperty( "instructions", std::to_string( *instructions ) );
        EXPECT_GT( *instructions, 0u );
        EXPECT_LE( *instructions, limit );
    }

    template <class Operation>
    void expectMessageAtMost( std::uint64_t limit, Fleetlog::Files files ) {
        options_.files = files;
        Fleetlog::openDefault( options_ );
        expectAtMost<Operation>( limit );
        Fleetlog::closeDefault();
    }

    Support::TemporaryFolder folder_;
    Fleetlog::OpenOptions options_;
};

TEST_F( TraceBudgetTest, RecordOfTwoValuesWithoutTimestampTakesAtMost15Instructions ) {
    expectAtMost<Support::RecordTwoValues<Timestamps::none>>( 15 );
}

TEST_F( TraceBudgetTest, RecordOfTwoValuesWithTickTakesAtMost15Instructions ) {
    expectAtMost<Support::RecordTwoValues<Timestamps::tick>>( 15 );
}

TEST_F( TraceBudgetTest, RecordOfTwoValuesWithCounterTakesAtMost18Instructions ) {
    expectAtMost<Support::RecordTwoValues<Timestamps::counter>>( 18 );
}

TEST_F( TraceBudgetTest, RecordOfAValueAndATextOf20CharactersTakesAtMost57Instructions ) {
    expectAtMost<Support::RecordText<Timestamps::none>>( 57 );
    expectAtMost<Support::RecordText<Timestamps::tick>>( 57 );
    expectAtMost<Support::RecordText<Timestamps::counter>>( 57 );
}

TEST_F( TraceBudgetTest, RecordOfAValueAndATextOf12CharactersTakesAtMost57Instructions ) {
    using Support::TraceTargets;
    expectAtMost<Support::RecordText<Timestamps::none, &TraceTargets::shortText>>( 57 );
    expectAtMost<Support::RecordText<Timestamps::counter, &TraceTargets::shortText>>( 57 );
}

TEST_F( TraceBudgetTest, MessageOfTwoValuesToTheFileOfTheProcessTakesAtMost48Instructions ) {
    expectMessageAtMost<Support::MessageTwoValues>( 48, Fleetlog::Files::perProcess );
}

TEST_F( TraceBudgetTest, MessageOfTwoValuesToTheFileOfTheThreadTakesAtMost48Instructions ) {
    expectMessageAtMost<Support::MessageTwoValues>( 48, Fleetlog::Files::perThread );
}

} // namespace
