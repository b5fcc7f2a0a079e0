#include "Cairn/CairnLtHelper.h"

#include "tests/support/Allocations.h"
#include "tests/support/InstructionCount.h"
#include "tests/support/QuietSdk.h"
#include "tools/Arguments.h"
#include "tools/Model.h"
#include "tools/Registry.h"

#include <Fleetlog/TraceHandle.h>
#include <Kiln/ActivityLock.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <unistd.h>

// What is counted exactly and has a limit: allocations of each recipe, instructions of the guard.

namespace {

class Budget : public ::testing::Test {
  protected:
    Budget() { Shim::sdk_ = &Support::quietSdk(); }
    ~Budget() override { Shim::sdk_ = nullptr; }
};

/// A folder with an open trace in it.
class OpenTrace {
  public:
    OpenTrace()
        : folder_( std::filesystem::temp_directory_path() /
                   ( "cairn_budget_" + std::to_string( ::getpid() ) ) ) {
        std::filesystem::create_directory( folder_ );
        Fleetlog::OpenOptions options;
        options.directory = folder_;
        Fleetlog::openDefault( options );
    }
    ~OpenTrace() {
        Fleetlog::closeDefault();
        std::filesystem::remove_all( folder_ );
    }

  private:
    std::filesystem::path folder_;
};

TEST_F( Budget, RecipesAllocateNothingButTheTableNamesThatTheyBuild ) {
    // A text of more than a few characters is two pieces of memory when it is shared, and one when
    // not.
    const std::map<std::string_view, uint64_t> names{ { "setLoadBalanceRandSeedCtrl", 3 * 2 },
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
        const uint64_t before = Support::allocations();
        recipe.invoke( arguments, state );
        const uint64_t taken = Support::allocations() - before;
        const auto allowed = names.find( recipe.name );
        EXPECT_EQ( taken, allowed == names.end() ? 0u : allowed->second ) << recipe.name;
    }
    const uint64_t before = Support::allocations();
    ::operator delete( ::operator new( 1 ) );
    EXPECT_EQ( Support::allocations() - before, 1u ) << "allocations are counted";
}

#if defined( CAIRN_COUNT_INSTRUCTIONS )

void guarded() { Cairn::setEgrTunnelEcnEncap( 0, 5, 2 ); }

[[gnu::noinline]] void bareCalls( int unit, uint32_t index, uint32_t outerEcn ) {
    uint32_t entry;
    Shim::sdk_->preCallHook();
    Shim::sdk_->bcmlt_entry_allocate( unit, "EGR_TUNNEL_ECN_ENCAPm", &entry );
    Shim::sdk_->preCallHook();
    Shim::sdk_->bcmlt_entry_field_add( entry, "BCMLT_PT_INDEX", index );
    Shim::sdk_->preCallHook();
    Shim::sdk_->bcmlt_entry_field_add( entry, "OUTER_ECN", outerEcn );
    Shim::sdk_->preCallHook();
    const uint32_t priority = Shim::sdk_->BCMLT_PRIORITY_NORMAL();
    Shim::sdk_->bcmlt_pt_entry_commit( entry, Shim::sdk_->BCMLT_PT_OPCODE_MODIFY(), priority );
    Shim::sdk_->preCallHook();
    Shim::sdk_->bcmlt_entry_free( entry );
}

void bare() { bareCalls( 0, 5, 2 ); }

TEST_F( Budget, GuardAddsAtMostTwelveInstructionsToACall ) {
    const auto withGuard = Support::countInstructions( guarded );
    const auto without = Support::countInstructions( bare );
    ASSERT_TRUE( withGuard && without ) << "processes cannot be stepped here";
    RecordProperty( "guarded", std::to_string( *withGuard ) );
    RecordProperty( "bare", std::to_string( *without ) );
    EXPECT_GT( *withGuard, *without );
    EXPECT_LE( *withGuard - *without, 5u * 12u );
}

#endif

} // namespace
