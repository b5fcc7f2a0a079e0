#include "tests/sim/TestChip.h"

#include "interpose/FaultInjector.h"
#include "interpose/Recorder.h"

#include <gtest/gtest.h>

#include <thread>

using namespace Interpose;
using namespace Sim;
using SimTest::smallSchema;

namespace {

std::vector<std::string> texts( const Recorder & recorder ) {
    std::vector<std::string> lines;
    for ( const Event & event : recorder.events() )
        lines.push_back( toText( event ) );
    return lines;
}

class RecorderTest : public testing::Test {
  protected:
    RecorderTest() { chip.addUnit( 0, smallSchema() ); }

    // As a recipe does it: hook, constants, operation.
    void writeOneRow() {
        std::uint32_t handle = 0;
        recorder.preCallHook();
        recorder.bcmlt_entry_allocate( 0, "MAPm", &handle );
        recorder.preCallHook();
        recorder.bcmlt_entry_field_add( handle, "BCMLT_PT_INDEX", 5 );
        recorder.preCallHook();
        const std::uint32_t priority = recorder.BCMLT_PRIORITY_NORMAL();
        recorder.bcmlt_pt_entry_commit( handle, recorder.BCMLT_PT_OPCODE_MODIFY(), priority );
        recorder.preCallHook();
        recorder.bcmlt_entry_free( handle );
    }

    Chip chip;
    Recorder recorder{ chip };
};

TEST_F( RecorderTest, WritesDownEveryCallInOrder ) {
    writeOneRow();
    const std::vector<std::string> wanted = {
        "preCallHook",
        "bcmlt_entry_allocate unit 0 MAPm -> entry 1 rc 0",
        "preCallHook",
        "bcmlt_entry_field_add entry 1 MAPm BCMLT_PT_INDEX = 5 -> rc 0",
        "preCallHook",
        "BCMLT_PRIORITY_NORMAL -> 3001",
        "BCMLT_PT_OPCODE_MODIFY -> 2002",
        "bcmlt_pt_entry_commit entry 1 MAPm BCMLT_PT_OPCODE_MODIFY BCMLT_PRIORITY_NORMAL -> rc 0",
        "preCallHook",
        "bcmlt_entry_free entry 1 MAPm -> rc 0",
    };
    EXPECT_EQ( texts( recorder ), wanted );
    EXPECT_EQ( recorder.eventCount(), wanted.size() );
    EXPECT_EQ( chip.preCallCount(), 4u ) << "hooks are passed on";
}

TEST_F( RecorderTest, ConstantsCanBeLeftOut ) {
    recorder.keepConstants( false );
    writeOneRow();
    for ( const Event & event : recorder.events() )
        EXPECT_NE( kind( event.call ), SdkCallKind::constant ) << toText( event );
    EXPECT_EQ( recorder.eventCount(), 8u );
}

TEST_F( RecorderTest, EventsHoldWhatWasPassedAndReturned ) {
    std::uint32_t handle = 0;
    ASSERT_EQ( recorder.bcmlt_entry_allocate( 0, "MAPm", &handle ), 0 );
    recorder.bcmlt_entry_commit( handle, chip.BCMLT_OPCODE_INSERT(), 77 );
    recorder.bcmlt_entry_attrib_set( handle, 9 );
    const std::vector<Event> wanted = {
        { .call = SdkCall::entryAllocate,
          .handle = handle,
          .unit = 0,
          .table = "MAPm",
          .returned = true },
        { .call = SdkCall::entryCommit,
          .handle = handle,
          .unit = 0,
          .table = "MAPm",
          .opcode = { chip.BCMLT_OPCODE_INSERT(), SdkCall::opcodeInsert },
          .priority = { 77 },
          .rc = toInt( Rc::wrongCommitKind ),
          .returned = true },
        { .call = SdkCall::entryAttribSet,
          .handle = handle,
          .unit = 0,
          .table = "MAPm",
          .attribute = { 9 },
          .rc = toInt( Rc::unknownAttribute ),
          .returned = true },
    };
    EXPECT_EQ( recorder.events(), wanted );
}

TEST_F( RecorderTest, EveryCallHasALine ) {
    std::uint32_t handle = 0;
    std::uint64_t value = 0;
    const std::uint64_t words[] = { 7, 8 };
    recorder.bcmlt_entry_allocate( 0, "NONE", &handle );
    recorder.bcmlt_entry_allocate( 0, "MAPm", &handle );
    recorder.bcmlt_entry_attrib_set( handle, chip.BCMLT_ENT_ATTR_GET_FROM_HW() );
    recorder.bcmlt_entry_attrib_set( handle, 9 );
    recorder.bcmlt_entry_field_array_add( handle, "WORDS", 1, words, 2 );
    recorder.bcmlt_entry_field_symbol_add( handle, "MODE", "AUTO" );
    recorder.bcmlt_entry_field_get( handle, "MODE", &value );
    recorder.bcmlt_entry_field_get( handle, "TAG", &value );
    recorder.bcmlt_entry_commit( handle, chip.BCMLT_PT_OPCODE_SET(), 77 );
    recorder.bcmlt_entry_free( handle );
    recorder.bcmlt_entry_free( handle );
    recorder.bcmlt_entry_field_add( 0, "TAG", 1 );
    recorder.errmsg( -27 );
    recorder.failureHook();
    recorder.PC_PORTs();
    const std::vector<std::string> wanted = {
        "bcmlt_entry_allocate unit 0 NONE -> rc -3",
        "bcmlt_entry_allocate unit 0 MAPm -> entry 1 rc 0",
        "bcmlt_entry_attrib_set entry 1 MAPm BCMLT_ENT_ATTR_GET_FROM_HW -> rc 0",
        "bcmlt_entry_attrib_set entry 1 MAPm 9 -> rc -13",
        "bcmlt_entry_field_array_add entry 1 MAPm WORDS from 1 count 2 = 7 8 -> rc 0",
        "bcmlt_entry_field_symbol_add entry 1 MAPm MODE = AUTO -> rc 0",
        "bcmlt_entry_field_get entry 1 MAPm MODE -> 5 rc 0",
        "bcmlt_entry_field_get entry 1 MAPm TAG -> rc -29",
        "bcmlt_entry_commit entry 1 MAPm 2003 77 -> rc -10",
        "bcmlt_entry_free entry 1 MAPm -> rc 0",
        "bcmlt_entry_free entry 1 -> rc -8",
        "bcmlt_entry_field_add entry 0 TAG = 1 -> rc -6",
        "errmsg -27 -> \"row does not exist\"",
        "failureHook",
        "PC_PORTs -> PC_PORT",
    };
    EXPECT_EQ( texts( recorder ), wanted );
}

TEST_F( RecorderTest, EveryConstantIsPassedOnAndWrittenDown ) {
    struct {
        std::uint32_t ( Shim::Sdk::*ask )() noexcept;
        SdkCall call;
    } const numbers[] = {
        { &Shim::Sdk::BCMLT_ENT_ATTR_GET_FROM_HW, SdkCall::attrGetFromHw },
        { &Shim::Sdk::BCMLT_OPCODE_DELETE, SdkCall::opcodeDelete },
        { &Shim::Sdk::BCMLT_OPCODE_INSERT, SdkCall::opcodeInsert },
        { &Shim::Sdk::BCMLT_OPCODE_LOOKUP, SdkCall::opcodeLookup },
        { &Shim::Sdk::BCMLT_OPCODE_UPDATE, SdkCall::opcodeUpdate },
        { &Shim::Sdk::BCMLT_PRIORITY_NORMAL, SdkCall::priorityNormal },
        { &Shim::Sdk::BCMLT_PT_OPCODE_GET, SdkCall::ptOpcodeGet },
        { &Shim::Sdk::BCMLT_PT_OPCODE_MODIFY, SdkCall::ptOpcodeModify },
        { &Shim::Sdk::BCMLT_PT_OPCODE_SET, SdkCall::ptOpcodeSet },
        { &Shim::Sdk::BCMLT_INVALID_HDL, SdkCall::invalidHandle },
    };
    struct {
        const char * ( Shim::Sdk::*ask )() noexcept;
        SdkCall call;
    } const names[] = {
        { &Shim::Sdk::ENABLEs, SdkCall::enableName },
        { &Shim::Sdk::NUM_LANESs, SdkCall::numLanesName },
        { &Shim::Sdk::PC_PHYS_PORT_IDs, SdkCall::pcPhysPortIdName },
        { &Shim::Sdk::PC_PORT_PHYS_MAPs, SdkCall::pcPortPhysMapName },
        { &Shim::Sdk::PC_PORTs, SdkCall::pcPortName },
        { &Shim::Sdk::PORT_IDs, SdkCall::portIdName },
        { &Shim::Sdk::SPEEDs, SdkCall::speedName },
    };
    Shim::Sdk & inner = chip;
    Shim::Sdk & outer = recorder;
    for ( const auto & number : numbers ) {
        EXPECT_EQ( ( outer.*number.ask )(), ( inner.*number.ask )() ) << name( number.call );
        EXPECT_EQ( recorder.events().back().call, number.call );
        EXPECT_EQ( recorder.events().back().result, ( inner.*number.ask )() );
    }
    for ( const auto & text : names ) {
        EXPECT_STREQ( ( outer.*text.ask )(), ( inner.*text.ask )() ) << name( text.call );
        EXPECT_EQ( recorder.events().back().call, text.call );
        EXPECT_EQ( recorder.events().back().text, ( inner.*text.ask )() );
    }
}

TEST_F( RecorderTest, NullPointersAreWrittenDownAsNothing ) {
    std::uint32_t handle = 0;
    EXPECT_EQ( recorder.bcmlt_entry_allocate( 0, nullptr, &handle ), toInt( Rc::nullArgument ) );
    EXPECT_EQ( recorder.bcmlt_entry_allocate( 0, "MAPm", nullptr ), toInt( Rc::nullArgument ) );
    ASSERT_EQ( recorder.bcmlt_entry_allocate( 0, "MAPm", &handle ), 0 );
    recorder.clear();
    recorder.bcmlt_entry_field_add( handle, nullptr, 1 );
    recorder.bcmlt_entry_field_symbol_add( handle, "MODE", nullptr );
    recorder.bcmlt_entry_field_array_add( handle, "WORDS", 0, nullptr, 1 );
    recorder.bcmlt_entry_field_get( handle, "TAG", nullptr );
    EXPECT_EQ( recorder.events()[0].field, "" );
    EXPECT_EQ( recorder.events()[1].symbol, "" );
    EXPECT_EQ( recorder.events()[2].values, std::vector<std::uint64_t>{} );
    EXPECT_EQ( toText( recorder.events()[3] ), "bcmlt_entry_field_get entry 1 MAPm TAG -> rc -1" );
}

TEST_F( RecorderTest, OfALongArrayTheBeginningIsKept ) {
    std::uint32_t handle = 0;
    ASSERT_EQ( recorder.bcmlt_entry_allocate( 0, "MAPm", &handle ), 0 );
    const std::vector<std::uint64_t> words( 65, 3 );
    recorder.bcmlt_entry_field_array_add( handle, "WORDS", 0, words.data(), 65 );
    const Event event = recorder.events().back();
    EXPECT_EQ( event.count, 65u );
    EXPECT_EQ( event.values, std::vector<std::uint64_t>( 64, 3 ) );
    EXPECT_NE( toText( event ).find( " 3 3 ... -> rc -19" ), std::string::npos );
}

TEST_F( RecorderTest, ClearForgetsEventsButNotTables ) {
    std::uint32_t handle = 0;
    recorder.bcmlt_entry_allocate( 0, "MAPm", &handle );
    recorder.clear();
    EXPECT_EQ( recorder.eventCount(), 0u );
    recorder.bcmlt_entry_free( handle );
    EXPECT_EQ( texts( recorder ),
               std::vector<std::string>{ "bcmlt_entry_free entry 1 MAPm -> rc 0" } );
}

TEST_F( RecorderTest, AHandleThatBelongsToNothingHasNoTable ) {
    std::uint32_t handle = 0;
    chip.bcmlt_entry_allocate( 0, "MAPm", &handle );
    recorder.bcmlt_entry_free( handle );
    EXPECT_EQ( recorder.events()[0].table, "" );
    EXPECT_EQ( recorder.events()[0].unit, -1 );
}

TEST_F( RecorderTest, AnEntryKeepsItsTableWhenItsFreeFails ) {
    FaultInjector faults( chip );
    faults.add( { .operation = SdkCall::entryFree, .rc = -70 } );
    Recorder outer( faults );
    std::uint32_t handle = 0;
    outer.bcmlt_entry_allocate( 0, "MAPm", &handle );
    outer.bcmlt_entry_free( handle );
    outer.bcmlt_entry_free( handle );
    EXPECT_EQ( texts( outer ),
               ( std::vector<std::string>{ "bcmlt_entry_allocate unit 0 MAPm -> entry 1 rc 0",
                                           "bcmlt_entry_free entry 1 MAPm -> rc -70",
                                           "bcmlt_entry_free entry 1 MAPm -> rc 0" } ) );
}

TEST_F( RecorderTest, AnInvalidHandleHasNoTable ) {
    FaultInjector faults( chip );
    faults.add( { .rc = 0, .invalidHandle = true } );
    Recorder outer( faults );
    std::uint32_t handle = 99;
    outer.bcmlt_entry_allocate( 0, "MAPm", &handle );
    outer.bcmlt_entry_field_add( handle, "TAG", 1 );
    EXPECT_EQ( texts( outer ),
               ( std::vector<std::string>{ "bcmlt_entry_allocate unit 0 MAPm -> entry 0 rc 0",
                                           "bcmlt_entry_field_add entry 0 TAG = 1 -> rc -6" } ) );
}

TEST_F( RecorderTest, TheObserverLooksBeforeAndAfterEachCall ) {
    recorder.keepConstants( false );
    std::vector<std::string> seen;
    recorder.observe( [&]( Recorder::Moment moment, const Event & event ) {
        const bool isBefore = moment == Recorder::Moment::before;
        EXPECT_EQ( event.returned, !isBefore );
        seen.push_back( ( isBefore ? "before " : "after " ) + toText( event ) + ", " +
                        std::to_string( chip.liveEntryCount() ) + " live, " +
                        std::to_string( recorder.eventCount() ) + " kept" );
    } );
    std::uint32_t handle = 0;
    recorder.bcmlt_entry_allocate( 0, "MAPm", &handle );
    recorder.BCMLT_OPCODE_INSERT();
    recorder.bcmlt_entry_free( handle );
    recorder.observe( {} );
    recorder.preCallHook();
    const std::vector<std::string> wanted = {
        "before bcmlt_entry_allocate unit 0 MAPm, 0 live, 0 kept",
        "after bcmlt_entry_allocate unit 0 MAPm -> entry 1 rc 0, 1 live, 0 kept",
        "before BCMLT_OPCODE_INSERT, 1 live, 1 kept",
        "after BCMLT_OPCODE_INSERT -> 1002, 1 live, 1 kept",
        "before bcmlt_entry_free entry 1 MAPm, 1 live, 1 kept",
        "after bcmlt_entry_free entry 1 MAPm -> rc 0, 0 live, 1 kept",
    };
    EXPECT_EQ( seen, wanted );
}

TEST_F( RecorderTest, CallsOfOneThreadStayInOrder ) {
    std::vector<std::thread> workers;
    for ( std::uint64_t worker = 0; worker < 4; ++worker ) {
        workers.emplace_back( [&, worker] {
            std::uint32_t handle = 0;
            EXPECT_EQ( recorder.bcmlt_entry_allocate( 0, "MAPm", &handle ), 0 );
            for ( std::uint64_t i = 0; i < 200; ++i ) {
                EXPECT_EQ( recorder.bcmlt_entry_field_add( handle, "COUNT", worker * 1000 + i ),
                           0 );
            }
            EXPECT_EQ( recorder.bcmlt_entry_free( handle ), 0 );
        } );
    }
    for ( std::thread & worker : workers )
        worker.join();
    EXPECT_EQ( recorder.eventCount(), 4u * 202 );
    std::vector<std::uint64_t> next = { 0, 0, 0, 0 };
    for ( const Event & event : recorder.events() ) {
        EXPECT_EQ( event.table, "MAPm" );
        if ( event.call == SdkCall::entryFieldAdd ) {
            const std::uint64_t value = event.values.at( 0 );
            EXPECT_EQ( value % 1000, next[value / 1000]++ );
        }
    }
    EXPECT_EQ( next, std::vector<std::uint64_t>( 4, 200 ) );
}

} // namespace
