#include "tools/show/Folded.h"

#include "tracereader/TraceReader.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <string>

// The time of calls by recipe, table and operation.

namespace {

using Moment = TraceReader::Event::Moment;
using TraceReader::RecordedCall;
using TraceReader::SdkCall;

class FoldedTest : public testing::Test {
  protected:
    // A call of a thread, which begins at a time.
    RecordedCall begin( SdkCall operation, std::int64_t time, const std::string & table = {},
                        std::uint32_t thread = 1 ) {
        RecordedCall call;
        call.call = operation;
        call.number = ++number_;
        call.process = file_.info().process;
        call.thread = thread;
        call.table = table;
        call.before.file = &file_;
        call.before.time = time;
        take( call, Moment::before, time );
        return call;
    }

    void end( RecordedCall & call, std::int64_t time, bool isWanted = true ) {
        call.after.file = &file_;
        call.after.time = time;
        take( call, Moment::after, time, isWanted );
    }

    void call( SdkCall operation, std::int64_t from, std::int64_t to,
               const std::string & table = {}, std::uint32_t thread = 1 ) {
        RecordedCall made = begin( operation, from, table, thread );
        end( made, to );
    }

    void message( const std::string & recipe, std::int64_t time, std::uint32_t thread = 1 ) {
        sites_.push_back( { .id = 1,
                            .file = "f",
                            .line = 1,
                            .letters = "",
                            .function = recipe,
                            .texts = { recipe },
                            .isPlain = true } );
        TraceReader::Event event;
        event.record.file = &file_;
        event.record.site = &sites_.back();
        event.record.thread = thread;
        event.record.time = time;
        folded_.take( event, true );
    }

    void take( const RecordedCall & call, Moment moment, std::int64_t time, bool isWanted = true ) {
        TraceReader::Event event;
        event.moment = moment;
        event.call = &call;
        event.record.file = &file_;
        event.record.time = time;
        folded_.take( event, isWanted );
    }

    Tool::Folded folded_;

  private:
    TraceReader::File file_{ SOURCE_TREE "/tests/tracereader/data/version2-counter.fleetlog" };
    std::deque<TraceReader::Site> sites_;
    std::uint64_t number_ = 0;
};

TEST_F( FoldedTest, TimesOfAStackAreAddedUp ) {
    call( SdkCall::entryAllocate, 10, 17, "MAPm" );
    call( SdkCall::entryFieldAdd, 20, 23, "MAPm" );
    call( SdkCall::entryFieldAdd, 30, 35, "MAPm" );
    call( SdkCall::entryFree, 40, 41, "MAPm" );
    EXPECT_EQ( folded_.text(), "(recipe_not_known);MAPm;bcmlt_entry_allocate 7\n"
                               "(recipe_not_known);MAPm;bcmlt_entry_field_add 8\n"
                               "(recipe_not_known);MAPm;bcmlt_entry_free 1\n" );
}

TEST_F( FoldedTest, ARecipeHasAllCallsOfTheEntryThatItsMessageIsOf ) {
    call( SdkCall::entryAllocate, 10, 17, "MAPm" );
    message( "setVxlanDecapAdaptLookup", 18 );
    call( SdkCall::entryFree, 20, 23, "MAPm" );
    call( SdkCall::entryAllocate, 30, 31, "MAPm" );
    call( SdkCall::entryFree, 32, 33, "MAPm" );
    EXPECT_EQ( folded_.text(), "(recipe_not_known);MAPm;bcmlt_entry_allocate 1\n"
                               "(recipe_not_known);MAPm;bcmlt_entry_free 1\n"
                               "setVxlanDecapAdaptLookup;MAPm;bcmlt_entry_allocate 7\n"
                               "setVxlanDecapAdaptLookup;MAPm;bcmlt_entry_free 3\n" );
}

TEST_F( FoldedTest, AnotherRecipesMessageBeginsAnotherSpan ) {
    call( SdkCall::entryAllocate, 10, 17, "LEAKm" );
    message( "setVxlanDecapAdaptLookup", 18 );
    message( "setVxlanUdpSourcePortSel", 19 );
    call( SdkCall::entryAllocate, 20, 22, "MAPm" );
    call( SdkCall::entryFree, 30, 33, "MAPm" );
    const std::string text = folded_.text();
    EXPECT_NE( text.find( "setVxlanDecapAdaptLookup;LEAKm;bcmlt_entry_allocate 7\n" ), text.npos )
        << text;
}

TEST_F( FoldedTest, AMessageOfAnyThreadIsTheOnlyOnes ) {
    call( SdkCall::entryAllocate, 10, 17, "MAPm" );
    message( "setVxlanDecapAdaptLookup", 18, 0 );
    EXPECT_EQ( folded_.text(), "setVxlanDecapAdaptLookup;MAPm;bcmlt_entry_allocate 7\n" );
}

TEST_F( FoldedTest, AMessageOfAnyThreadIsNobodysIfThereAreSeveral ) {
    call( SdkCall::entryAllocate, 10, 17, "MAPm", 1 );
    call( SdkCall::entryAllocate, 10, 12, "MAPm", 2 );
    message( "setVxlanDecapAdaptLookup", 18, 0 );
    EXPECT_EQ( folded_.text(), "(recipe_not_known);MAPm;bcmlt_entry_allocate 9\n" );
}

TEST_F( FoldedTest, ACallWithinAHookIsNotTheHooksTime ) {
    RecordedCall hook = begin( SdkCall::preCallHook, 100 );
    call( SdkCall::entryFieldGet, 110, 140, "MAPm" );
    end( hook, 150 );
    EXPECT_EQ( folded_.text(), "(recipe_not_known);preCallHook 20\n"
                               "(recipe_not_known);preCallHook;MAPm;bcmlt_entry_field_get 30\n" );
}

TEST_F( FoldedTest, SeparatorsInATableAreReplaced ) {
    call( SdkCall::entryAllocate, 10, 17, "A;B C\nD" );
    EXPECT_EQ( folded_.text(), "(recipe_not_known);A_B_C\\nD;bcmlt_entry_allocate 7\n" );
}

TEST_F( FoldedTest, HalvesAreCountedAndNotTimed ) {
    RecordedCall lone;
    lone.call = SdkCall::entryFieldGet;
    lone.number = 77;
    lone.process = 1;
    lone.thread = 1;
    end( lone, 10 );
    RecordedCall never = begin( SdkCall::entryFieldGet, 20 );
    take( never, Moment::neverReturned, 0 );
    EXPECT_EQ( folded_.callsWithoutTime(), 2u );
    EXPECT_EQ( folded_.text(), "" );
}

TEST_F( FoldedTest, WhatIsNotWantedIsNotCounted ) {
    RecordedCall other = begin( SdkCall::entryFieldGet, 20 );
    end( other, 30, false );
    EXPECT_EQ( folded_.text(), "" );
    EXPECT_EQ( folded_.callsWithoutTime(), 0u );
}

} // namespace
