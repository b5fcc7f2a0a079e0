#include "text/Columns.h"
#include "text/Numbers.h"
#include "tools/cli/Progress.h"
#include "tools/cli/Verbs.h"
#include "tools/model/Arguments.h"
#include "tools/sweep/SweepRunner.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <set>
#include <string>
#include <string_view>

namespace Tool {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::string_view good = "as expected";
constexpr std::string_view bad = "UNEXPECTED";

// --- Text

void addDifferences( Text::Columns & grid, const std::vector<std::string> & differences ) {
    for ( const std::string & difference : differences )
        grid.addRemark( "    " + difference );
}

std::string verdict( const std::vector<std::string> & differences, const std::string & expected ) {
    return differences.empty() ? expected : std::string( bad ) + "; expected: " + expected;
}

std::string callText( const SweepFaultReport & fault ) {
    return fmt::format( "{} {}", fault.fault.call + 1, fault.call );
}

void addFault( Text::Columns & grid, const SweepCaseReport & report,
               const SweepFaultReport & fault ) {
    grid.add( { std::string( report.plan->name ), callText( fault ), toText( fault.fault.kind ),
                verdict( fault.differences, fault.expected ) } );
    addDifferences( grid, fault.differences );
}

// What is said of the undisturbed run, in every style.
std::string undisturbedVerdict( const SweepCaseReport & report ) {
    return verdict( report.differences, report.refused.empty()
                                            ? report.expected
                                            : "the chip refuses " + report.refused );
}

// A line a case; what is not as expected in full.
std::string summaryOf( const std::vector<const SweepCaseReport *> & reports ) {
    Text::Columns cases;
    Text::Columns unexpected;
    cases.add( { "CASE", "CALLS", "FAULTS", "VERDICT" } );
    for ( const SweepCaseReport * report : reports ) {
        const std::string name( report->plan->name );
        if ( !report->leftOut.empty() ) {
            cases.add( { name, "", "", "left out: " + report->leftOut } );
            continue;
        }
        std::size_t wrong = report->differences.empty() ? 0 : 1;
        for ( const SweepFaultReport & fault : report->faults ) {
            if ( fault.differences.empty() )
                continue;
            ++wrong;
            addFault( unexpected, *report, fault );
        }
        if ( !report->differences.empty() ) {
            unexpected.add( { name, "all calls", "undisturbed", undisturbedVerdict( *report ) } );
            addDifferences( unexpected, report->differences );
        }
        std::string words( wrong == 0 ? good : bad );
        if ( wrong != 0 )
            words += fmt::format( ": {}", wrong );
        else if ( !report->refused.empty() )
            words += "; the chip refuses " + report->refused;
        cases.add( { name, fmt::to_string( report->undisturbed.calls.size() ),
                     fmt::to_string( report->faults.size() ), words } );
    }
    return cases.text() + unexpected.text();
}

// A line a fault.
std::string allOf( const std::vector<const SweepCaseReport *> & reports ) {
    Text::Columns grid;
    grid.add( { "CASE", "CALL", "FAULT", "VERDICT" } );
    for ( const SweepCaseReport * report : reports ) {
        const std::string name( report->plan->name );
        if ( !report->leftOut.empty() ) {
            grid.add( { name, "", "", "left out: " + report->leftOut } );
            continue;
        }
        grid.add( { name, Text::counted( report->undisturbed.calls.size(), "call" ), "undisturbed",
                    undisturbedVerdict( *report ) } );
        addDifferences( grid, report->differences );
        for ( const SweepFaultReport & fault : report->faults )
            addFault( grid, *report, fault );
    }
    return grid.text();
}

std::size_t recipeCount( const SweepReport & report ) {
    std::set<std::string_view> names;
    for ( const SweepCaseReport & each : report.cases )
        names.insert( each.plan->recipe );
    return names.size();
}

std::string conclusion( const SweepReport & report ) {
    std::string text = fmt::format(
        "{}, {}, {}: {}", Text::counted( recipeCount( report ), "recipe" ),
        Text::counted( report.cases.size(), "case" ), Text::counted( report.faults, "fault" ),
        report.unexpected == 0 ? fmt::format( "all {}", good )
                               : fmt::format( "{} unexpected", report.unexpected ) );
    if ( report.refused != 0 )
        text += fmt::format( "; {} that the chip itself refuses",
                             Text::counted( report.refused, "case" ) );
    if ( report.leftOut != 0 )
        text += fmt::format( "; {} left out", Text::counted( report.leftOut, "case" ) );
    return text;
}

void printText( const SweepReport & report, bool verbose ) {
    std::string text;
    for ( auto first = report.cases.begin(); first != report.cases.end(); ) {
        std::vector<const SweepCaseReport *> ofRecipe;
        const std::string_view recipe = first->plan->recipe;
        for ( ; first != report.cases.end() && first->plan->recipe == recipe; ++first )
            ofRecipe.push_back( &*first );
        text += heading( recipe ) + "\n";
        text += ( verbose ? allOf( ofRecipe ) : summaryOf( ofRecipe ) ) + "\n";
    }
    print( text + conclusion( report ) + "\n" );
}

// --- JSON

Json faultJson( const SweepFaultReport & fault ) {
    Json json{ { "call", fault.fault.call + 1 },
               { "text", fault.call },
               { "fault", name( fault.fault.kind ) },
               { "expected", fault.expected },
               { "as_expected", fault.differences.empty() } };
    if ( !fault.differences.empty() )
        json["differences"] = fault.differences;
    return json;
}

Json caseJson( const SweepCaseReport & report ) {
    Json json{ { "case", report.plan->name } };
    if ( !report.leftOut.empty() ) {
        json["left_out"] = report.leftOut;
        return json;
    }
    json["calls"] = report.undisturbed.calls.size();
    json["expected"] = report.expected;
    json["as_expected"] = report.differences.empty();
    if ( !report.differences.empty() )
        json["differences"] = report.differences;
    if ( !report.refused.empty() )
        json["refused"] = report.refused;
    json["faults"] = Json::array();
    for ( const SweepFaultReport & fault : report.faults )
        json["faults"].push_back( faultJson( fault ) );
    return json;
}

void printJson( const SweepReport & report ) {
    Json recipes = Json::array();
    for ( const SweepCaseReport & each : report.cases ) {
        if ( recipes.empty() || recipes.back()["recipe"] != each.plan->recipe )
            recipes.push_back( { { "recipe", each.plan->recipe }, { "cases", Json::array() } } );
        recipes.back()["cases"].push_back( caseJson( each ) );
    }
    const Json summary{ { "recipes", recipeCount( report ) }, { "cases", report.cases.size() },
                        { "faults", report.faults },          { "unexpected", report.unexpected },
                        { "refused", report.refused },        { "left_out", report.leftOut } };
    print( documentText( { { "recipes", std::move( recipes ) }, { "summary", summary } } ) );
}

SweepReport sweepWithProgress( const Model & model, const std::vector<const Recipe *> & recipes ) {
    Progress progress( "sweep" );
    return sweepRecipes( model, recipes, { .progress = [&]( std::size_t done, std::size_t total ) {
                             progress.tellRuns( done, total );
                         } } );
}

} // namespace

int sweep( const SweepOptions & options ) {
    std::vector<const Recipe *> swept;
    for ( const std::string & name : options.recipes )
        swept.push_back( &needRecipe( name ) );
    if ( swept.empty() ) {
        for ( const Recipe & recipe : recipes() )
            swept.push_back( &recipe );
    }
    const SweepReport report = sweepWithProgress( modelOf( options.chips ), swept );
    if ( options.format == Format::json )
        printJson( report );
    else
        printText( report, options.verbose );
    return report.unexpected == 0 ? 0 : 1;
}

} // namespace Tool
