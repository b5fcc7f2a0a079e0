#include "interpose/TraceRecorder.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/tools/Program.h"
#include "tests/tools/sweep/ReferenceModel.h"
#include "tools/diagnose/CrashScene.h"
#include "tools/diagnose/Diagnosis.h"
#include "tools/diagnose/LastRecords.h"
#include "tools/diagnose/Report.h"
#include "tools/model/Arguments.h"
#include "tools/recipes/Registry.h"
#include "tools/sweep/SweepRunner.h"

#include <Fleetlog/TraceHandle.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

// Each fault of the sweep that stops the process, diagnosed from what the process leaves. What must
// be found is what the plan of the sweep states by hand.

namespace {

using Tool::Diagnosis;
using Tool::Site;
using Tool::SiteTable;
using Tool::SweepEnding;
using Tool::SweepExpectation;
using Tool::SweepFault;
using Tool::SweepRun;
using Tool::SweptCase;

std::vector<const Tool::Recipe *> allRecipes() {
    std::vector<const Tool::Recipe *> all;
    for ( const Tool::Recipe & recipe : Tool::recipes() )
        all.push_back( &recipe );
    return all;
}

Tool::ReportReader reportOf( const std::string & text ) {
    Tool::ReportReader report;
    std::istringstream lines( text );
    for ( std::string line; std::getline( lines, line ); )
        report.add( line );
    return report;
}

// A fault and the run that it stopped.
struct Stopped {
    const SweptCase & swept;
    const SweepExpectation & expectation;
    const SweepRun & run;
};

// Calls `look` for each fault that stops the process. Returns how many there were.
std::size_t forEachStop( Tool::SweepSetup setup, const auto & look ) {
    std::size_t stops = 0;
    setup.onFault = [&]( const SweptCase & swept, const SweepFault & fault,
                         const SweepExpectation & expectation, const SweepRun & run ) {
        if ( expectation.ending.kind == SweepEnding::Kind::returns )
            return;
        ++stops;
        SCOPED_TRACE( std::string( swept.plan->recipe ) + ", " + std::string( swept.plan->name ) +
                      ", call " + std::to_string( fault.call + 1 ) + " " + toText( fault.kind ) );
        look( Stopped{ swept, expectation, run } );
    };
    Tool::sweepRecipes( ToolTest::referenceModel(), allRecipes(), setup );
    return stops;
}

// What must be found, from the hand-written plan and the line of the trace of the last call.
void expectFound( const Diagnosis & found, const Stopped & stopped ) {
    const SweepEnding & ending = stopped.expectation.ending;
    EXPECT_EQ( found.found, Diagnosis::Found::exactly );
    EXPECT_EQ( found.function, stopped.expectation.function );
    EXPECT_EQ( found.stop.signature, stopped.expectation.signature );
    ASSERT_EQ( found.sites.size(), 1u );
    const Site & site = found.sites.front();
    ASSERT_FALSE( stopped.run.calls.empty() );
    EXPECT_EQ( site.text, ending.text );
    if ( ending.kind == SweepEnding::Kind::report ) {
        EXPECT_EQ( found.stop.kind, Tool::Stop::Kind::apiError );
        EXPECT_EQ( found.stop.rc, ending.rc );
        EXPECT_EQ( site.line, ending.line );
        EXPECT_NE( found.inWords, "" );
    } else {
        EXPECT_EQ( found.stop.kind, Tool::Stop::Kind::assertion );
        EXPECT_GT( site.line, ending.line );
        EXPECT_NE( found.meaning, "" );
    }
}

// --- Standard error alone, of this release and of an older one

// The same place in another release: the same of those in the recipe that have the text.
const Site * sameIn( const SiteTable & other, const Site & site, const SiteTable & own ) {
    const auto placesOf = [&]( const SiteTable & table ) {
        std::vector<const Site *> places;
        for ( const Site & each : table.sites() ) {
            if ( each.recipe == site.recipe && each.kind == site.kind && each.text == site.text )
                places.push_back( &each );
        }
        return places;
    };
    const auto here = placesOf( own );
    const auto there = placesOf( other );
    if ( here.size() != there.size() )
        return nullptr;
    const auto place = std::find_if( here.begin(), here.end(),
                                     [&]( const Site * each ) { return each->line == site.line; } );
    return there[static_cast<std::size_t>( place - here.begin() )];
}

std::string replacedEverywhere( std::string text, const std::string & what,
                                const std::string & by ) {
    for ( std::size_t at = text.find( what ); at != std::string::npos;
          at = text.find( what, at + by.size() ) )
        text.replace( at, what.size(), by );
    return text;
}

TEST( SweepDiagnosisTest, EachFaultThatStopsIsFoundByItsStandardError ) {
    const SiteTable own = SiteTable::own();
    const SiteTable older =
        SiteTable::fromLibrary( SOURCE_TREE "/tests/tools/diagnose/data/older.so" );
    const Sim::Schema schema = Sim::referenceSchema();
    std::size_t moved = 0;
    const std::size_t stops = forEachStop( {}, [&]( const Stopped & stopped ) {
        const Tool::ReportReader report = reportOf( stopped.run.standardError );
        ASSERT_EQ( report.stops().size(), 1u ) << stopped.run.standardError;
        const Diagnosis found = Tool::diagnose( report.stops().front(), own, schema );
        expectFound( found, stopped );

        // What the older release wrote at this place.
        ASSERT_EQ( found.sites.size(), 1u );
        const Site & site = found.sites.front();
        const Site * const before = sameIn( older, site, own );
        ASSERT_NE( before, nullptr );
        if ( before->line == site.line )
            return;
        ++moved;
        const auto lineText = []( const Site & each ) {
            return "Cairn/CairnLtHelper:" + std::to_string( each.line );
        };
        const Tool::ReportReader old = reportOf( replacedEverywhere(
            stopped.run.standardError, lineText( site ), lineText( *before ) ) );
        ASSERT_EQ( old.stops().size(), 1u );
        const Diagnosis then = Tool::diagnose( old.stops().front(), older, schema );
        EXPECT_EQ( then.found, Diagnosis::Found::exactly );
        EXPECT_EQ( then.function, stopped.expectation.function );
        EXPECT_EQ( then.stop.rc, found.stop.rc );
        ASSERT_EQ( then.sites.size(), 1u );
        EXPECT_EQ( then.sites.front().line, before->line );
        EXPECT_EQ( then.sites.front().call, before->call );
        EXPECT_EQ( then.sites.front().text, site.text );

        // Without that library the place is among those told, and no other recipe is named.
        const Diagnosis without = Tool::diagnose( old.stops().front(), own, schema );
        EXPECT_EQ( without.function, stopped.expectation.function );
        EXPECT_TRUE( std::any_of( without.sites.begin(), without.sites.end(),
                                  [&]( const Site & each ) { return each.text == site.text; } ) );
    } );
    EXPECT_GT( stops, 500u );
    EXPECT_GT( moved, 500u );
}

// --- With a trace

// Records what the library sees into a folder of the process's own, messages and operations.
Shim::Sdk & recordTo( const std::string & folder, Shim::Sdk & watched ) {
    static std::optional<Interpose::TraceRecorder> recorder;
    const std::string own = folder + "/" + std::to_string( ::getpid() );
    std::filesystem::create_directories( own );
    Fleetlog::OpenOptions messages;
    messages.directory = own;
    messages.ringBytes = 1 << 14;
    Fleetlog::openDefault( messages );
    recorder.emplace( watched,
                      Interpose::TraceRecorder::Options{ .directory = own, .fileBytes = 1 << 16 } );
    std::fprintf( stderr, "%d\n", ::getpid() );
    return *recorder;
}

// Whether a parameter stands in the text of a call.
bool names( const std::string & call, const std::string & parameter ) {
    const auto arguments = Tool::argumentsOf( call );
    return std::any_of( arguments.begin(), arguments.end(), [&]( const std::string & argument ) {
        return argument == parameter || argument == parameter + " ? 1 : 0";
    } );
}

TEST( SweepDiagnosisTest, TraceTellsTheArguments ) {
    const SiteTable table = SiteTable::own();
    const Support::TemporaryFolder folder;
    Tool::SweepSetup setup;
    // The undisturbed runs, which come first, must not write a word.
    bool isDisturbed = false;
    setup.progress = [&]( std::size_t done, std::size_t ) {
        isDisturbed = done >= Tool::sweepCases().size();
    };
    setup.around = [&]( Shim::Sdk & watched ) -> Shim::Sdk & {
        return isDisturbed ? recordTo( folder.path(), watched ) : watched;
    };
    std::size_t arguments = 0;
    std::size_t seen = 0;
    forEachStop( setup, [&]( const Stopped & stopped ) {
        // Files are made in each run, which takes its time; with a sanitizer, too much of it.
        if ( ToolTest::isSanitized && seen++ % 10 != 0 )
            return;
        SCOPED_TRACE( stopped.run.standardError );
        const Tool::ReportReader report = reportOf( stopped.run.standardError );
        ASSERT_EQ( report.stops().size(), 1u );
        const Tool::Stop & stop = report.stops().front();
        const std::string & said = stopped.run.standardError;
        const std::string own = folder.path( said.substr( 0, said.find( '\n' ) ) );
        const auto source = Tool::traceAt( own );
        const Tool::LastRecords records( source );
        Diagnosis found = Tool::diagnose( stop, table, Sim::referenceSchema() );
        const Tool::ThreadFound thread = records.find( found, table );
        ASSERT_EQ( thread.how, Tool::ThreadFound::How::byCall );
        found = Tool::diagnose( stop, table, Sim::referenceSchema(), &*thread.thread->lastCall );
        expectFound( found, stopped );

        Sim::Chip chip;
        addUnits( chip, stopped.swept.model );
        const Tool::CrashScene scene = Tool::rebuild( source, *thread.thread, found, table, chip );
        ASSERT_TRUE( scene.operation );
        const auto & calls = stopped.run.calls;
        const auto last = std::find_if( calls.rbegin(), calls.rend(),
                                        []( const auto & call ) { return !call.isCheck(); } );
        ASSERT_NE( last, calls.rend() );
        EXPECT_EQ( scene.operation->rc, last->operation.rc );
        // The sweep knows no table of an invalid handle.
        EXPECT_TRUE( last->operation.table.empty() ||
                     scene.operation->table == last->operation.table );
        EXPECT_EQ( scene.operation->field, last->operation.field );
        const bool isRead =
            last->is( Interpose::SdkCall::entryFieldGet ) && last->operation.rc >= 0;
        EXPECT_EQ( isRead ? std::vector{ scene.operation->value } : scene.operation->values,
                   last->operation.values );

        const Tool::SweptCase & swept = stopped.swept;
        const auto parameters = swept.recipe->parameters();
        for ( std::size_t i = 0; i < parameters.size(); ++i ) {
            const std::string name( parameters[i].name );
            const auto told =
                std::find_if( scene.arguments.begin(), scene.arguments.end(),
                              [&]( const auto & each ) { return each.first == name; } );
            if ( told != scene.arguments.end() ) {
                ++arguments;
                EXPECT_EQ( told->second, Tool::toText( swept.arguments[i] ) ) << name;
            } else {
                EXPECT_FALSE(
                    std::any_of( calls.begin(), calls.end(),
                                 [&]( const auto & call ) { return names( call.text, name ); } ) )
                    << name;
            }
        }
        std::filesystem::remove_all( own );
    } );
    EXPECT_GT( arguments, ToolTest::isSanitized ? 100u : 1000u );
}

} // namespace
