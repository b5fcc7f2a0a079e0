#include "tests/support/RecipeTest.h"

#include "Cairn/CairnLtHelper.h"

#include <Kiln/TraceHandle.h>

#include <csignal>

namespace {

using namespace Support;

const Sim::RowId rowZero{ .index = 0, .instance = 0, .port = 0, .key = { 0 } };

class LearnCacheTest : public RecipeTest {
  protected:
    /// Puts the row of LEARN_L2_VIEW there, with a key mask of its own.
    void putDataRow( uint64_t learnCache ) {
        putRow( 0, "LEARN_CACHE_DATA_CONTROL",
                { { "LEARN_CACHE_DATA_INFO_ID", 0 },
                  { "LEARN_CACHE", learnCache },
                  { "KEY_MASK", 0x1234 } } );
    }
    std::optional<uint64_t> dataRow( const char * field ) {
        return chip().value( 0, "LEARN_CACHE_DATA_CONTROL", rowZero, field );
    }
    std::optional<uint64_t> dropRow( const char * field ) {
        return chip().value( 0, "LEARN_CACHE_DROP_CONTROL", rowZero, field );
    }
};
using LearnCacheDeathTest = LearnCacheTest;

constexpr char dataPretty[] = "void Cairn::setLearnCacheEnabled(uint32_t, bool)";
constexpr char dropPretty[] = "void Cairn::setLearnCacheDropEnabled(uint32_t, bool)";

Script dataInsert( int lookupRc = -27 ) {
    return Script( "setLearnCacheEnabled" )
        .add( {
            guarded(
                R"(bcmlt_entry_allocate( unit, "LEARN_CACHE_DATA_CONTROL", &learnCacheEntry ))",
                "allocate 0 LEARN_CACHE_DATA_CONTROL" ),
            guarded(
                R"(bcmlt_entry_field_symbol_add( learnCacheEntry, "LEARN_CACHE_DATA_INFO_ID", "LEARN_L2_VIEW" ))",
                "symbol LEARN_CACHE_DATA_INFO_ID = LEARN_L2_VIEW" ),
            unchecked(
                R"(bcmlt_entry_commit( learnCacheEntry, BCMLT_OPCODE_LOOKUP, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_LOOKUP; commit BCMLT_OPCODE_LOOKUP",
                lookupRc ),
            guarded( R"(bcmlt_entry_field_add( learnCacheEntry, "LEARN_CACHE", val ))",
                     "add LEARN_CACHE = 1" ),
            guarded(
                R"(bcmlt_entry_commit( learnCacheEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_INSERT; commit BCMLT_OPCODE_INSERT" ),
            guarded( R"(bcmlt_entry_free( learnCacheEntry ))", "free" ),
        } );
}

Script dataUpdate( int lookupRc = 0 ) {
    return Script( "setLearnCacheEnabled" )
        .add( {
            guarded(
                R"(bcmlt_entry_allocate( unit, "LEARN_CACHE_DATA_CONTROL", &learnCacheEntry ))",
                "allocate 0 LEARN_CACHE_DATA_CONTROL" ),
            guarded(
                R"(bcmlt_entry_field_symbol_add( learnCacheEntry, "LEARN_CACHE_DATA_INFO_ID", "LEARN_L2_VIEW" ))",
                "symbol LEARN_CACHE_DATA_INFO_ID = LEARN_L2_VIEW" ),
            unchecked(
                R"(bcmlt_entry_commit( learnCacheEntry, BCMLT_OPCODE_LOOKUP, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_LOOKUP; commit BCMLT_OPCODE_LOOKUP",
                lookupRc ),
            guarded( R"(bcmlt_entry_field_add( learnCacheEntry, "LEARN_CACHE", val ))",
                     "add LEARN_CACHE = 0" ),
            guarded(
                R"(bcmlt_entry_commit( learnCacheEntry, BCMLT_OPCODE_UPDATE, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_UPDATE; commit BCMLT_OPCODE_UPDATE" ),
            guarded( R"(bcmlt_entry_free( learnCacheEntry ))", "free" ),
        } );
}

Script dropInsert() {
    return Script( "setLearnCacheDropEnabled" )
        .add( {
            guarded(
                R"(bcmlt_entry_allocate( unit, "LEARN_CACHE_DROP_CONTROL", &learnCacheDropEntry ))",
                "allocate 3 LEARN_CACHE_DROP_CONTROL" ),
            guarded(
                R"(bcmlt_entry_field_symbol_add( learnCacheDropEntry, "EVENT_ID", "L2_DST_DISCARD" ))",
                "symbol EVENT_ID = L2_DST_DISCARD" ),
            unchecked(
                R"(bcmlt_entry_commit( learnCacheDropEntry, BCMLT_OPCODE_LOOKUP, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_LOOKUP; commit BCMLT_OPCODE_LOOKUP", -27 ),
            guarded( R"(bcmlt_entry_field_add( learnCacheDropEntry, "LEARN_CACHE", val ))",
                     "add LEARN_CACHE = 0" ),
            guarded(
                R"(bcmlt_entry_commit( learnCacheDropEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_INSERT; commit BCMLT_OPCODE_INSERT" ),
            guarded( R"(bcmlt_entry_free( learnCacheDropEntry ))", "free" ),
        } );
}

Script dropUpdate() {
    return Script( "setLearnCacheDropEnabled" )
        .add( {
            guarded(
                R"(bcmlt_entry_allocate( unit, "LEARN_CACHE_DROP_CONTROL", &learnCacheDropEntry ))",
                "allocate 0 LEARN_CACHE_DROP_CONTROL" ),
            guarded(
                R"(bcmlt_entry_field_symbol_add( learnCacheDropEntry, "EVENT_ID", "L2_DST_DISCARD" ))",
                "symbol EVENT_ID = L2_DST_DISCARD" ),
            unchecked(
                R"(bcmlt_entry_commit( learnCacheDropEntry, BCMLT_OPCODE_LOOKUP, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_LOOKUP; commit BCMLT_OPCODE_LOOKUP" ),
            guarded( R"(bcmlt_entry_field_add( learnCacheDropEntry, "LEARN_CACHE", val ))",
                     "add LEARN_CACHE = 1" ),
            guarded(
                R"(bcmlt_entry_commit( learnCacheDropEntry, BCMLT_OPCODE_UPDATE, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_UPDATE; commit BCMLT_OPCODE_UPDATE" ),
            guarded( R"(bcmlt_entry_free( learnCacheDropEntry ))", "free" ),
        } );
}

TEST_F( LearnCacheTest, EmptyTableIsLookedUpInVainAndTheRowIsInserted ) {
    Cairn::setLearnCacheEnabled( 0, true );
    expectLog( dataInsert() );
    EXPECT_EQ( dataRow( "LEARN_CACHE" ), 1u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( LearnCacheTest, EmptyDropTableIsLookedUpInVainAndTheRowIsInserted ) {
    Cairn::setLearnCacheDropEnabled( 3, false );
    expectLog( dropInsert() );
    EXPECT_EQ( chip().value( 3, "LEARN_CACHE_DROP_CONTROL", rowZero, "LEARN_CACHE" ), 0u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( LearnCacheTest, PresentRowIsUpdatedFromOneToZeroWhenDisabled ) {
    putDataRow( 1 );
    Cairn::setLearnCacheEnabled( 0, false );
    expectLog( dataUpdate() );
    EXPECT_EQ( dataRow( "LEARN_CACHE" ), 0u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( LearnCacheTest, PresentDropRowIsUpdatedOnTheSecondCall ) {
    Cairn::setLearnCacheDropEnabled( 0, false );
    EXPECT_EQ( dropRow( "LEARN_CACHE" ), 0u );
    clearLog();
    Cairn::setLearnCacheDropEnabled( 0, true );
    expectLog( dropUpdate() );
    EXPECT_EQ( dropRow( "LEARN_CACHE" ), 1u );
    EXPECT_EQ( chip().rowCount( 0, "LEARN_CACHE_DROP_CONTROL" ), 1u );
}

TEST_F( LearnCacheTest, UpdateChangesNothingButLearnCache ) {
    putDataRow( 1 );
    Cairn::setLearnCacheEnabled( 0, false );
    EXPECT_EQ( dataRow( "KEY_MASK" ), 0x1234u );
}

TEST_F( LearnCacheTest, RowIsNeverDeletedWhenDisabled ) {
    Cairn::setLearnCacheEnabled( 0, true );
    Cairn::setLearnCacheEnabled( 0, false );
    EXPECT_EQ( chip().rowCount( 0, "LEARN_CACHE_DATA_CONTROL" ), 1u );
    EXPECT_EQ( dataRow( "LEARN_CACHE" ), 0u );
}

TEST_F( LearnCacheTest, AnyNegativeLookupCodeLeadsToInsert ) {
    inject( "op=commit,rc=-5" );
    Cairn::setLearnCacheEnabled( 0, true );
    expectLog( dataInsert( -5 ) );
}

TEST_F( LearnCacheTest, AnyPositiveLookupCodeLeadsToUpdate ) {
    putDataRow( 1 );
    inject( "op=commit,rc=7" );
    Cairn::setLearnCacheEnabled( 0, false );
    expectLog( dataUpdate( 7 ) );
}

TEST_F( LearnCacheTest, InterpreterLockIsReleasedAroundGuardedAndUncheckedCallsAlike ) {
    holdInterpreterLock();
    Script script( "setLearnCacheEnabled" );
    script.holdInterpreterLock();
    script.add( {
        guarded( R"(bcmlt_entry_allocate( unit, "LEARN_CACHE_DATA_CONTROL", &learnCacheEntry ))",
                 "allocate 0 LEARN_CACHE_DATA_CONTROL" ),
        guarded(
            R"(bcmlt_entry_field_symbol_add( learnCacheEntry, "LEARN_CACHE_DATA_INFO_ID", "LEARN_L2_VIEW" ))",
            "symbol LEARN_CACHE_DATA_INFO_ID = LEARN_L2_VIEW" ),
        unchecked(
            R"(bcmlt_entry_commit( learnCacheEntry, BCMLT_OPCODE_LOOKUP, BCMLT_PRIORITY_NORMAL ))",
            "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_LOOKUP; commit BCMLT_OPCODE_LOOKUP", -27 ),
        guarded( R"(bcmlt_entry_field_add( learnCacheEntry, "LEARN_CACHE", val ))",
                 "add LEARN_CACHE = 1" ),
        guarded(
            R"(bcmlt_entry_commit( learnCacheEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
            "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_INSERT; commit BCMLT_OPCODE_INSERT" ),
        guarded( R"(bcmlt_entry_free( learnCacheEntry ))", "free" ),
    } );
    Cairn::setLearnCacheEnabled( 0, true );
    expectLog( script );
}

TEST_F( LearnCacheTest, NoMessageAndWithoutTheCallTraceNoOutput ) {
    Cairn::setLearnCacheEnabled( 0, true );
    Cairn::setLearnCacheDropEnabled( 0, true );
    EXPECT_TRUE( logOf( "CairnLtHelper" ).empty() );
    Kiln::traceOff();
    clearLog();
    testing::internal::CaptureStderr();
    Cairn::setLearnCacheEnabled( 0, true );
    Cairn::setLearnCacheDropEnabled( 0, true );
    EXPECT_EQ( testing::internal::GetCapturedStderr(), "" );
    EXPECT_TRUE( logOf( "ApiCairn" ).empty() );
}

TEST_F( LearnCacheDeathTest, EachCallButTheLookupStopsTheProcessWhenTheRowIsAbsent ) {
    expectEachFailureToStop( dataInsert(), dataPretty,
                             [] { Cairn::setLearnCacheEnabled( 0, true ); } );
    expectEachFailureToStop( dropInsert(), dropPretty,
                             [] { Cairn::setLearnCacheDropEnabled( 3, false ); } );
}

TEST_F( LearnCacheDeathTest, EachCallButTheLookupStopsTheProcessWhenTheRowIsThere ) {
    putDataRow( 1 );
    expectEachFailureToStop( dataUpdate(), dataPretty,
                             [] { Cairn::setLearnCacheEnabled( 0, false ); } );
    Cairn::setLearnCacheDropEnabled( 0, false );
    expectEachFailureToStop( dropUpdate(), dropPretty,
                             [] { Cairn::setLearnCacheDropEnabled( 0, true ); } );
}

TEST_F( LearnCacheDeathTest, LookupThatFailsAlthoughTheRowIsThereStopsAtTheInsert ) {
    putDataRow( 1 );
    const auto stop = stopOf( [this] {
        inject( "op=commit,rc=-5" );
        Cairn::setLearnCacheEnabled( 0, true );
    } );
    EXPECT_EQ( stop.signal, SIGABRT );
    EXPECT_EQ(
        stop.standardError,
        report(
            R"(bcmlt_entry_commit( learnCacheEntry, BCMLT_OPCODE_INSERT, BCMLT_PRIORITY_NORMAL ))",
            chip().errmsg( -26 ), -26, dataPretty ) );
    EXPECT_EQ( stop.count( "preCallHook" ), 4 );
    EXPECT_EQ( stop.count( "failureHook" ), 1 );
    EXPECT_EQ( stop.count( "free" ), 0 );
}

} // namespace
