#include "tools/recording/Check.h"

#include "interpose/FaultInjector.h"
#include "sim/Chip.h"
#include "tests/tools/recording/EventRecorder.h"
#include "tools/model/Arguments.h"
#include "tools/model/Errors.h"
#include "tools/model/Model.h"
#include "tools/recipes/Registry.h"

#include <Kiln/ActivityLock.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

// Each rule of cairn-lt check: on a recording that breaks it, and on one that does not.

namespace {

using Tool::Check;
using Tool::CheckFinding;
using Tool::CheckRule;

class CheckOfEvents : public ::testing::Test {
  protected:
    CheckOfEvents() : recorder_( chip_ ), schema_( Sim::referenceSchema() ) {
        chip_.addUnit( 0, schema_ );
    }

    // The names of the rules that are broken, in the order in which that is found.
    std::vector<std::string> found( Check::Options options = {} ) {
        findings_.clear();
        options.schema = [this]( std::int32_t ) { return &schema_; };
        Check check( options,
                     [this]( const CheckFinding & finding ) { findings_.push_back( finding ); } );
        recorder_.giveTo( check );
        check.finish();
        ofOlderEntries_ = check.ofOlderEntries();
        isLockUnknown_ = check.isLockUnknown();
        std::vector<std::string> names;
        for ( const CheckFinding & finding : findings_ )
            names.emplace_back( Tool::checkRules()[static_cast<std::size_t>( finding.rule )].name );
        return names;
    }

    std::vector<std::uint64_t> callsOf( std::size_t finding ) const {
        std::vector<std::uint64_t> numbers;
        for ( const Tool::CheckedCall & call : findings_[finding].calls )
            numbers.push_back( call.number );
        return numbers;
    }

    std::uint32_t allocate( const char * table ) {
        std::uint32_t handle = 0;
        recorder_.preCallHook();
        recorder_.bcmlt_entry_allocate( 0, table, &handle );
        return handle;
    }
    void add( std::uint32_t handle, const char * field, std::uint64_t value ) {
        recorder_.preCallHook();
        recorder_.bcmlt_entry_field_add( handle, field, value );
    }
    void commit( std::uint32_t handle, std::uint32_t opcode ) {
        recorder_.preCallHook();
        recorder_.bcmlt_entry_commit( handle, opcode, chip_.BCMLT_PRIORITY_NORMAL() );
    }
    void ptCommit( std::uint32_t handle, std::uint32_t opcode ) {
        recorder_.preCallHook();
        recorder_.bcmlt_pt_entry_commit( handle, opcode, chip_.BCMLT_PRIORITY_NORMAL() );
    }
    void free( std::uint32_t handle ) {
        recorder_.preCallHook();
        recorder_.bcmlt_entry_free( handle );
    }
    // The register of a port, with the port.
    std::uint32_t control( std::uint64_t port ) {
        const std::uint32_t handle = allocate( "EGR_VLAN_CONTROL_1r" );
        add( handle, "BCMLT_PT_PORT", port );
        return handle;
    }
    void setControl( std::uint64_t port, std::uint64_t value ) {
        const std::uint32_t handle = control( port );
        add( handle, "OUTER_TPID_INDEX", value );
        ptCommit( handle, chip_.BCMLT_PT_OPCODE_MODIFY() );
        free( handle );
    }

    Sim::Chip chip_;
    ToolTest::EventRecorder recorder_;
    Sim::Schema schema_;
    std::vector<CheckFinding> findings_;
    std::uint64_t ofOlderEntries_ = 0;
    bool isLockUnknown_ = false;
};

using Names = std::vector<std::string>;

TEST_F( CheckOfEvents, NothingIsWrongOfAnEntryThatIsUsedAsItShouldBe ) {
    setControl( 1, 2 );
    setControl( 2, 2 );
    setControl( 1, 3 );
    setControl( 1, 2 );
    EXPECT_EQ( found(), Names() );
}

TEST_F( CheckOfEvents, AnEntryIsLeaked ) {
    const std::uint32_t handle = control( 1 );
    setControl( 2, 2 );
    add( handle, "OUTER_TPID_INDEX", 2 );
    ptCommit( handle, chip_.BCMLT_PT_OPCODE_MODIFY() );
    EXPECT_EQ( found(), Names{ "leaked" } );
    EXPECT_EQ( findings_[0].what, "an entry of EGR_VLAN_CONTROL_1r on unit 0 is never freed" );
    EXPECT_EQ( callsOf( 0 ), ( std::vector<std::uint64_t>{ 2, 18 } ) );
}

TEST_F( CheckOfEvents, AnEntryIsUsedAfterItsFree ) {
    const std::uint32_t handle = control( 1 );
    ptCommit( handle, chip_.BCMLT_PT_OPCODE_GET() );
    free( handle );
    recorder_.preCallHook();
    recorder_.bcmlt_entry_field_add( handle, "OUTER_TPID_INDEX", 2 );
    EXPECT_EQ( found(), Names{ "used-after-free" } );
    EXPECT_EQ( callsOf( 0 ), ( std::vector<std::uint64_t>{ 8, 10 } ) );
}

TEST_F( CheckOfEvents, AnEntryThatNobodyAllocatedIsUsed ) {
    recorder_.preCallHook();
    recorder_.bcmlt_entry_field_add( 77, "OUTER_TPID_INDEX", 2 );
    EXPECT_EQ( found(), Names{ "used-after-free" } );
    // It may have been allocated before a recording without its beginning.
    EXPECT_EQ( found( { .schema = {}, .hasLostBeginning = [] { return true; } } ), Names() );
    EXPECT_EQ( ofOlderEntries_, 1u );
}

TEST_F( CheckOfEvents, AnEntryIsFreedTwice ) {
    const std::uint32_t handle = control( 1 );
    ptCommit( handle, chip_.BCMLT_PT_OPCODE_GET() );
    free( handle );
    recorder_.preCallHook();
    recorder_.bcmlt_entry_free( handle );
    EXPECT_EQ( found(), Names{ "freed-twice" } );
    EXPECT_EQ( callsOf( 0 ), ( std::vector<std::uint64_t>{ 8, 10 } ) );
}

TEST_F( CheckOfEvents, AnEntryIsCommittedWithoutItsKey ) {
    const std::uint32_t logical = allocate( "PC_PORT" );
    add( logical, "ENABLE", 1 );
    recorder_.bcmlt_entry_commit( logical, chip_.BCMLT_OPCODE_LOOKUP(),
                                  chip_.BCMLT_PRIORITY_NORMAL() );
    free( logical );
    const std::uint32_t physical = allocate( "EGR_VLAN_CONTROL_1r" );
    add( physical, "OUTER_TPID_INDEX", 1 );
    recorder_.preCallHook();
    recorder_.bcmlt_pt_entry_commit( physical, chip_.BCMLT_PT_OPCODE_MODIFY(),
                                     chip_.BCMLT_PRIORITY_NORMAL() );
    EXPECT_EQ( found( { .schema = {}, .ignored = { CheckRule::leaked } } ),
               ( Names{ "no-key", "no-key" } ) );
    EXPECT_EQ( findings_[0].what, "an entry of PC_PORT on unit 0 is committed without PORT_ID" );
    EXPECT_EQ( findings_[1].what,
               "an entry of EGR_VLAN_CONTROL_1r on unit 0 is committed without BCMLT_PT_PORT" );
}

TEST_F( CheckOfEvents, AnEntryIsFilledAndNeverCommitted ) {
    const std::uint32_t handle = control( 1 );
    add( handle, "OUTER_TPID_INDEX", 2 );
    free( handle );
    EXPECT_EQ( found(), Names{ "not-committed" } );
    EXPECT_EQ( callsOf( 0 ), ( std::vector<std::uint64_t>{ 2, 8 } ) );
}

TEST_F( CheckOfEvents, TheLockIsHeld ) {
    recorder_.setLockHeld( true );
    const std::uint32_t encap = allocate( "EGR_TUNNEL_ECN_ENCAPm" ); // keeps it
    recorder_.setLockHeld( false );
    free( encap );
    const std::uint32_t handle = control( 1 );
    recorder_.setLockHeld( true );
    ptCommit( handle, chip_.BCMLT_PT_OPCODE_GET() );
    recorder_.setLockHeld( false );
    free( handle );
    EXPECT_EQ( found(), Names{ "lock-held" } );
    EXPECT_EQ( callsOf( 0 ), std::vector<std::uint64_t>{ 10 } );
    EXPECT_FALSE( isLockUnknown_ );
}

TEST_F( CheckOfEvents, WhetherTheLockIsHeldMayNotBeKnown ) {
    recorder_.setLockHeld( {} );
    setControl( 1, 2 );
    EXPECT_EQ( found(), Names() );
    EXPECT_TRUE( isLockUnknown_ );
}

TEST_F( CheckOfEvents, AHookIsMissing ) {
    const std::uint32_t handle = control( 1 );
    recorder_.bcmlt_entry_field_add( handle, "OUTER_TPID_INDEX", 2 );
    ptCommit( handle, chip_.BCMLT_PT_OPCODE_MODIFY() );
    free( handle );
    EXPECT_EQ( found(), Names{ "no-hook" } );
    EXPECT_EQ( callsOf( 0 ), std::vector<std::uint64_t>{ 5 } );
}

TEST_F( CheckOfEvents, AHookCountsForItsThread ) {
    std::uint32_t handle = 0;
    recorder_.preCallHook();
    recorder_.setThread( 2 );
    recorder_.bcmlt_entry_allocate( 0, "PC_PORT", &handle );
    free( handle );
    EXPECT_EQ( found(), Names{ "no-hook" } );
}

TEST_F( CheckOfEvents, AThreadGoesOnAfterAGuardedCallThatFailed ) {
    const std::uint32_t handle = control( 1 );
    add( handle, "OUTER_TPID_INDEX", 1000 ); // too wide
    recorder_.setThread( 2 );
    setControl( 2, 1 ); // another thread may still be at work
    recorder_.setThread( 1 );
    ptCommit( handle, chip_.BCMLT_PT_OPCODE_GET() );
    free( handle );
    EXPECT_EQ( found(), Names{ "after-failure" } ); // said once
    EXPECT_EQ( callsOf( 0 ), ( std::vector<std::uint64_t>{ 6, 17 } ) );
}

TEST_F( CheckOfEvents, TheFailureHookIsNoGoingOn ) {
    const std::uint32_t handle = control( 1 );
    add( handle, "OUTER_TPID_INDEX", 1000 );
    recorder_.failureHook();
    EXPECT_EQ( found(), Names{ "leaked" } );
}

TEST_F( CheckOfEvents, AnythingAfterTheFailureHookIsGoingOn ) {
    recorder_.failureHook();
    setControl( 1, 2 );
    EXPECT_EQ( found(), Names{ "after-failure" } );
}

TEST_F( CheckOfEvents, ARowIsModifiedFromTheCache ) {
    const std::uint32_t handle = control( 1 );
    ptCommit( handle, chip_.BCMLT_PT_OPCODE_GET() );
    add( handle, "OUTER_TPID_INDEX", 2 );
    ptCommit( handle, chip_.BCMLT_PT_OPCODE_SET() );
    free( handle );
    EXPECT_EQ( found(), Names{ "stale-modify" } );
    EXPECT_EQ( callsOf( 0 ), ( std::vector<std::uint64_t>{ 6, 10 } ) );
}

TEST_F( CheckOfEvents, ARowThatIsReadFromTheHardwareIsModifiedWell ) {
    const std::uint32_t handle = control( 1 );
    recorder_.preCallHook();
    recorder_.bcmlt_entry_attrib_set( handle, chip_.BCMLT_ENT_ATTR_GET_FROM_HW() );
    ptCommit( handle, chip_.BCMLT_PT_OPCODE_GET() );
    add( handle, "OUTER_TPID_INDEX", 2 );
    ptCommit( handle, chip_.BCMLT_PT_OPCODE_SET() );
    free( handle );
    EXPECT_EQ( found(), Names() );
}

TEST_F( CheckOfEvents, ARowIsWrittenTwiceWithTheSameValues ) {
    setControl( 1, 2 );
    setControl( 2, 3 );
    setControl( 1, 2 );
    EXPECT_EQ( found(), Names{ "written-twice" } );
    EXPECT_EQ( callsOf( 0 ), ( std::vector<std::uint64_t>{ 8, 28 } ) );
}

TEST_F( CheckOfEvents, ARowThatWasDeletedIsWrittenAnew ) {
    for ( const std::uint32_t opcode : { chip_.BCMLT_OPCODE_INSERT(), chip_.BCMLT_OPCODE_DELETE(),
                                         chip_.BCMLT_OPCODE_INSERT() } ) {
        const std::uint32_t handle = allocate( "PC_PORT" );
        add( handle, "PORT_ID", 3 );
        if ( opcode == chip_.BCMLT_OPCODE_INSERT() )
            add( handle, "ENABLE", 1 );
        commit( handle, opcode );
        free( handle );
    }
    EXPECT_EQ( found(), Names() );
}

TEST_F( CheckOfEvents, AnUpdateIsNoSecondInsert ) {
    const std::uint32_t insert = chip_.BCMLT_OPCODE_INSERT();
    const std::uint32_t update = chip_.BCMLT_OPCODE_UPDATE();
    const auto write = [&]( std::uint32_t opcode ) {
        const std::uint32_t handle = allocate( "PC_PORT" );
        add( handle, "PORT_ID", 3 );
        add( handle, "ENABLE", 1 );
        commit( handle, opcode );
        free( handle );
    };
    write( insert );
    write( update );
    EXPECT_EQ( found(), Names() );
    write( update );
    EXPECT_EQ( found(), Names{ "written-twice" } );
}

TEST_F( CheckOfEvents, ASetAfterAModifyResetsTheOtherFields ) {
    for ( const std::uint32_t opcode :
          { chip_.BCMLT_PT_OPCODE_MODIFY(), chip_.BCMLT_PT_OPCODE_SET() } ) {
        const std::uint32_t handle = control( 1 );
        add( handle, "OUTER_TPID_INDEX", 2 );
        ptCommit( handle, opcode );
        free( handle );
    }
    EXPECT_EQ( found(), Names() );
}

TEST_F( CheckOfEvents, AnEntryCrossesThreads ) {
    const std::uint32_t handle = control( 1 );
    recorder_.setThread( 2 );
    ptCommit( handle, chip_.BCMLT_PT_OPCODE_GET() );
    free( handle );
    EXPECT_EQ( found(), Names{ "other-thread" } ); // said once
    EXPECT_EQ( callsOf( 0 ), ( std::vector<std::uint64_t>{ 2, 6 } ) );
}

TEST_F( CheckOfEvents, AHandleThatIsGivenAgainWhileItIsFreedHasNotCrossed ) {
    const std::uint32_t first = control( 1 );
    ptCommit( first, chip_.BCMLT_PT_OPCODE_GET() );
    recorder_.preCallHook();
    recorder_.setThread( 2 );
    recorder_.preCallHook();
    recorder_.setThread( 1 );
    const std::size_t free = recorder_.eventCount();
    recorder_.bcmlt_entry_free( first );
    recorder_.setThread( 2 );
    std::uint32_t second = 0;
    recorder_.bcmlt_entry_allocate( 0, "EGR_VLAN_CONTROL_1r", &second );
    add( second, "BCMLT_PT_PORT", 2 );
    ptCommit( second, chip_.BCMLT_PT_OPCODE_GET() );
    recorder_.preCallHook();
    recorder_.bcmlt_entry_free( second );
    recorder_.swap( free + 1, free + 3 ); // the moment after the free, and that after the allocate
    for ( std::size_t i = free + 1; i < recorder_.eventCount(); ++i ) {
        if ( recorder_.callAt( i ).handle == second )
            recorder_.callAt( i ).handle = first;
    }
    EXPECT_EQ( found(), Names() );
}

TEST_F( CheckOfEvents, NullArgumentsBreakNoRuleThatWrongNamesDoNot ) {
    const auto callsWith = [this]( const char * name, std::uint64_t * value ) {
        std::uint32_t none = 0;
        EXPECT_LT( recorder_.bcmlt_entry_allocate( 0, name, &none ), 0 );
        const std::uint32_t handle = control( 1 );
        EXPECT_LT( recorder_.bcmlt_entry_field_add( handle, name, 2 ), 0 );
        EXPECT_LT( recorder_.bcmlt_entry_field_array_add( handle, name, 0, value, 1 ), 0 );
        EXPECT_LT( recorder_.bcmlt_entry_field_get( handle, name, value ), 0 );
        EXPECT_LT( recorder_.bcmlt_entry_field_symbol_add( handle, name, name ), 0 );
        EXPECT_LT( recorder_.bcmlt_entry_field_symbol_add( handle, "OUTER_TPID_INDEX", name ), 0 );
        add( handle, "OUTER_TPID_INDEX", 2 );
        ptCommit( handle, chip_.BCMLT_PT_OPCODE_MODIFY() );
        free( handle );
    };
    std::uint64_t value = 1;
    callsWith( nullptr, nullptr );
    callsWith( nullptr, &value );
    const Names ofNull = found();
    callsWith( "NO_SUCH_NAME", &value );
    Names ofAll = found();
    // A row was written again with the same values, and the calls without a hook are found.
    EXPECT_EQ( std::count( ofNull.begin(), ofNull.end(), "no-hook" ), 12 );
    EXPECT_EQ( std::count( ofAll.begin(), ofAll.end(), "no-hook" ), 18 );
    std::erase( ofAll, "no-hook" );
    EXPECT_EQ( ofAll, ( Names{ "written-twice", "written-twice" } ) );
}

TEST_F( CheckOfEvents, NullForAHandleLeaksNothing ) {
    EXPECT_LT( recorder_.bcmlt_entry_allocate( 0, "EGR_VLAN_CONTROL_1r", nullptr ), 0 );
    EXPECT_EQ( found( { .schema = {}, .ignored = { CheckRule::noHook } } ), Names() );
}

TEST_F( CheckOfEvents, ARuleCanBeSilenced ) {
    control( 1 );
    EXPECT_EQ( found( { .schema = {}, .ignored = { CheckRule::leaked } } ), Names() );
    EXPECT_EQ( Tool::checkRuleByName( "leaked" ), CheckRule::leaked );
    try {
        Tool::checkRuleByName( "leakd" );
        ADD_FAILURE();
    } catch ( const Tool::InputError & error ) {
        EXPECT_STREQ( error.what(), "there is no rule \"leakd\"; the nearest is leaked; \"cairn-lt "
                                    "check --list\" shows all" );
    }
}

// --- The library

// Each recipe with sample arguments on a fresh chip, after the one that prepares the chip for it.
TEST( CheckOfRecipes, NoRecipeBreaksARule ) {
    const Tool::Model model =
        Tool::defaultModel( { Tool::defaultChip( 0, Sim::referenceSchema(), "reference" ) } );
    for ( const Tool::Recipe & recipe : Tool::recipes() ) {
        SCOPED_TRACE( std::string( recipe.name ) );
        Sim::Chip chip;
        Tool::addUnits( chip, model );
        const auto sharedState = Tool::applyModel( model );
        ToolTest::EventRecorder recorder( chip );
        recorder.askLock( [] { return Kiln::activityLock().heldByThisThread(); } );
        Shim::Sdk * const previousSdk = std::exchange( Shim::sdk_, &recorder );
        {
            const std::lock_guard lock( Kiln::activityLock() );
            const auto arguments =
                Tool::parseArguments( recipe, Tool::sampleArguments( recipe, model ), model );
            if ( !recipe.preparedBy.empty() )
                Tool::needRecipe( recipe.preparedBy ).invoke( arguments, sharedState );
            recipe.invoke( arguments, sharedState );
        }
        Shim::sdk_ = previousSdk;
        const Sim::Schema schema = Sim::referenceSchema();
        Check check( { .schema = [&]( std::int32_t ) { return &schema; } },
                     []( const CheckFinding & finding ) { ADD_FAILURE() << finding.what; } );
        recorder.giveTo( check );
        check.finish();
        EXPECT_GT( check.operations(), 0u );
    }
}

} // namespace
