#include "interpose/Recorder.h"
#include "sim/Chip.h"
#include "tests/support/Allocations.h"
#include "tests/support/InstructionCount.h"
#include "tests/support/QuietSdk.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/bare/BareRecipes.h"
#include "tools/model/Arguments.h"
#include "tools/model/Model.h"
#include "tools/recipes/Registry.h"

#include <Fleetlog/TraceHandle.h>
#include <Kiln/ActivityLock.h>
#include <Kiln/TraceSink.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

// What is counted exactly and has a limit: allocations of each recipe, instructions of the guard.

namespace {

class BudgetTest : public ::testing::Test {
  protected:
    BudgetTest() { Shim::sdk_ = &Support::quietSdk(); }
    ~BudgetTest() override { Shim::sdk_ = nullptr; }
};

/// A folder with an open trace in it.
class OpenTrace {
  public:
    OpenTrace() {
        Fleetlog::OpenOptions options;
        options.directory = folder_.path();
        Fleetlog::openDefault( options );
    }
    ~OpenTrace() { Fleetlog::closeDefault(); }

  private:
    Support::TemporaryFolder folder_;
};

TEST_F( BudgetTest, RecipesAllocateNothingButTheTableNamesThatTheyBuild ) {
    // A text of more than a few characters is two pieces of memory when it is shared, and one when
    // not.
    const std::map<std::string_view, std::uint64_t> names{ { "setLoadBalanceRandSeedCtrl", 3 * 2 },
                                                           { "setLoadBalanceRandSeedMem", 3 * 2 },
                                                           { "setEmRobustHashDisable", 5 } };
    const OpenTrace trace;
    const Tool::Model model =
        Tool::defaultModel( { Tool::defaultChip( 0, Sim::referenceSchema(), "reference" ) } );
    const auto state = Tool::applyModel( model );
    const std::lock_guard lock( Kiln::activityLock() );
    for ( const Tool::Recipe & recipe : Tool::recipes() ) {
        auto texts = Tool::sampleArguments( recipe, model );
        // What the SDK of this test reads back.
        if ( recipe.name == "getOpaqueTagIngress" )
            texts.back() = "1";
        const auto arguments = Tool::parseArguments( recipe, texts, model );
        recipe.invoke( arguments, state );
        const std::uint64_t before = Support::allocations();
        recipe.invoke( arguments, state );
        const std::uint64_t taken = Support::allocations() - before;
        const auto allowed = names.find( recipe.name );
        EXPECT_EQ( taken, allowed == names.end() ? 0u : allowed->second ) << recipe.name;
    }
    const std::uint64_t before = Support::allocations();
    ::operator delete( ::operator new( 1 ) );
    EXPECT_EQ( Support::allocations() - before, 1u ) << "allocations are counted";
}

#if defined( CAIRN_COUNT_INSTRUCTIONS )

// A recipe and its arguments, for plain functions that a child process is stepped through.
struct Counted {
    const Tool::Recipe * recipe;
    std::vector<Tool::Argument> arguments;
    Cairn::CairnCommonSmData::Ptr state;
};
const Counted * counted = nullptr;
void runCounted() { counted->recipe->invoke( counted->arguments, counted->state ); }

std::optional<std::uint64_t> instructions( const Counted & what ) {
    counted = &what;
    return Support::countInstructions( runCounted );
}

// The operations of the SDK, and how often "CairnLtHelper" was asked for a message or a line.
struct Made {
    std::uint64_t calls = 0;
    std::uint64_t lines = 0;
};

Made made( const Counted & what ) {
    Made result;
    Interpose::Recorder recorder( Support::quietSdk() );
    Shim::sdk_ = &recorder;
    Kiln::traceToCallback( [&]( const Kiln::TraceLine & ) { ++result.lines; } );
    Kiln::traceSettings( { { "CairnLtHelper", ~0u } } );
    what.recipe->invoke( what.arguments, what.state );
    Kiln::traceOff();
    Kiln::traceToStandardError();
    Shim::sdk_ = &Support::quietSdk();
    for ( const Interpose::Event & event : recorder.events() )
        result.calls += Interpose::kind( event.call ) == Interpose::SdkCallKind::operation;
    return result;
}

// Of each recipe against the same recipe compiled without guard and messages. A message or a line
// that goes nowhere may take what a message to the binary trace may.
TEST_F( BudgetTest, GuardAddsAtMostTwelveInstructionsToEachCallOfEachRecipe ) {
    const Tool::Model model =
        Tool::defaultModel( { Tool::defaultChip( 0, Sim::referenceSchema(), "reference" ) } );
    const auto state = Tool::applyModel( model );
    const std::lock_guard lock( Kiln::activityLock() );
    ASSERT_EQ( Tool::recipes().size(), bareRecipes().size() );
    for ( std::size_t i = 0; i < Tool::recipes().size(); ++i ) {
        const Tool::Recipe & recipe = Tool::recipes()[i];
        auto texts = Tool::sampleArguments( recipe, model );
        // What the SDK of this test reads back.
        if ( recipe.name == "getOpaqueTagIngress" )
            texts.back() = "1";
        const auto arguments = Tool::parseArguments( recipe, texts, model );
        const Counted guarded{ &recipe, arguments, state };
        const Counted bare{ &bareRecipes()[i], arguments, state };
        const Made expected = made( guarded );
        ASSERT_GT( expected.calls, 0u ) << recipe.name;
        const std::uint64_t limit = expected.calls * 12 + expected.lines * 60;
        // What the C library does once in a while (it binds a symbol, it tidies its heap) adds to a
        // count and never takes from it, so that a count that is off is made anew.
        std::uint64_t withGuard = UINT64_MAX;
        std::uint64_t without = UINT64_MAX;
        for ( int attempt = 0; attempt < 3; ++attempt ) {
            const auto guardedCount = instructions( guarded );
            const auto bareCount = instructions( bare );
            ASSERT_TRUE( guardedCount && bareCount ) << "processes cannot be stepped here";
            withGuard = std::min( withGuard, *guardedCount );
            without = std::min( without, *bareCount );
            if ( withGuard > without && withGuard <= without + limit )
                break;
        }
        EXPECT_GT( withGuard, without ) << recipe.name;
        EXPECT_LE( withGuard, without + limit ) << recipe.name;
    }
}

#endif

} // namespace
