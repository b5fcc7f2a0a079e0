#include "tools/show/ReportDocument.h"

#include "tools/model/Errors.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace Tool {

namespace {

using Json = nlohmann::ordered_json;

// A value as a cell shows it; empty if it is not there.
std::string textOf( const Json & json, const char * name ) {
    const auto found = json.find( name );
    if ( found == json.end() || found->is_null() )
        return {};
    if ( found->is_string() )
        return found->get<std::string>();
    if ( found->is_boolean() )
        return found->get<bool>() ? "yes" : "no";
    return found->dump( -1, ' ', false, Json::error_handler_t::replace );
}

// The texts of a list, one after the other.
std::string joined( const Json & json, const char * name ) {
    const auto found = json.find( name );
    std::string text;
    if ( found != json.end() )
        for ( const Json & each : *found )
            text += ( text.empty() ? "" : "; " ) + each.get<std::string>();
    return text;
}

std::uint64_t numberOf( const Json & json, const char * name ) {
    return json.at( name ).get<std::uint64_t>();
}

void addFacts( Report & report, const Json & json,
               std::initializer_list<std::pair<const char *, const char *>> facts ) {
    for ( const auto & [label, name] : facts )
        report.facts.emplace_back( label, fmt::to_string( numberOf( json, name ) ) );
}

void addSweep( Report & report, const Json & json ) {
    const Json & summary = json.at( "summary" );
    const std::uint64_t unexpected = numberOf( summary, "unexpected" );
    const std::uint64_t refused = numberOf( summary, "refused" );
    report.kind = "Sweep";
    report.ending = unexpected + refused == 0 ? Report::Ending::good : Report::Ending::bad;
    report.endingText =
        unexpected + refused == 0
            ? "Whatever fails, each recipe does what it promises."
            : fmt::format( "{} not as expected, {} could not be run.", unexpected, refused );
    addFacts( report, summary,
              { { "Recipes", "recipes" },
                { "Cases", "cases" },
                { "Faults", "faults" },
                { "Unexpected", "unexpected" },
                { "Refused", "refused" },
                { "Left out", "left_out" } } );
    ReportGrid grid{ .title = "Faults",
                     .heads = { "recipe", "case", "call", "text", "fault", "expected", "came" },
                     .rows = {},
                     .isBad = {} };
    for ( const Json & recipe : json.at( "recipes" ) ) {
        for ( const Json & each : recipe.at( "cases" ) ) {
            const auto add = [&]( const Json & from, const std::string & fault,
                                  const std::string & came ) {
                grid.isBad.push_back( came != "as expected" ? 1 : 0 );
                grid.rows.push_back( { textOf( recipe, "recipe" ), textOf( each, "case" ),
                                       textOf( from, "call" ), textOf( from, "text" ), fault,
                                       textOf( from, "expected" ), came } );
            };
            const auto cameOf = [&]( const Json & from ) {
                return from.at( "as_expected" ).get<bool>() ? std::string( "as expected" )
                                                            : joined( from, "differences" );
            };
            if ( each.contains( "left_out" ) ) {
                report.notes.push_back(
                    fmt::format( "{}, {}: left out: {}", textOf( recipe, "recipe" ),
                                 textOf( each, "case" ), textOf( each, "left_out" ) ) );
                continue;
            }
            add( each, "none", each.contains( "refused" ) ? "refused" : cameOf( each ) );
            for ( const Json & fault : each.at( "faults" ) )
                add( fault, textOf( fault, "fault" ), cameOf( fault ) );
        }
    }
    report.grids.push_back( std::move( grid ) );
}

void addDifferenceFacts( Report & report, const Json & json, const char * what ) {
    const bool isDifferent = json.at( "different" ).get<bool>();
    report.kind = "Difference";
    report.ending = isDifferent ? Report::Ending::bad : Report::Ending::good;
    report.endingText = isDifferent ? fmt::format( "The two {} differ.", what )
                                    : fmt::format( "The two {} do not differ.", what );
    addFacts( report, json,
              { { "Added", "added" }, { "Removed", "removed" }, { "Changed", "changed" } } );
}

void addStateDifference( Report & report, const Json & json ) {
    addDifferenceFacts( report, json, "states" );
    ReportGrid grid{ .title = "Fields that differ",
                     .heads = { "unit", "table", "row", "change", "field", "before", "after" },
                     .rows = {},
                     .isBad = {} };
    for ( const Json & row : json.at( "rows" ) ) {
        std::string place;
        for ( const auto & [name, value] : row.at( "place" ).items() )
            place += fmt::format( "{}{} {}", place.empty() ? "" : ", ", name,
                                  textOf( row.at( "place" ), name.c_str() ) );
        for ( const Json & field : row.at( "fields" ) ) {
            std::string name = textOf( field, "field" );
            if ( field.contains( "element" ) )
                name += fmt::format( " [{}]", textOf( field, "element" ) );
            if ( field.contains( "copy" ) )
                name += fmt::format( ", {}", textOf( field, "copy" ) );
            grid.rows.push_back( { textOf( row, "unit" ), textOf( row, "table" ), place,
                                   textOf( row, "change" ), name, textOf( field, "before" ),
                                   textOf( field, "after" ) } );
        }
    }
    grid.isBad.resize( grid.rows.size() );
    report.grids.push_back( std::move( grid ) );
}

void addRecordingDifference( Report & report, const Json & json ) {
    addDifferenceFacts( report, json, "recordings" );
    addFacts( report, json, { { "The same", "same" }, { "In another place", "reordered" } } );
    ReportGrid grid{ .title = "Steps that differ",
                     .heads = { "unit", "table", "change", "in", "call", "operation" },
                     .rows = {},
                     .isBad = {} };
    for ( const Json & step : json.at( "differences" ) ) {
        for ( const auto & [name, side] :
              { std::pair( "before", "first" ), std::pair( "after", "second" ) } ) {
            const auto operations = step.find( name );
            if ( operations == step.end() )
                continue;
            for ( const Json & operation : *operations )
                grid.rows.push_back( { textOf( step, "unit" ), textOf( step, "table" ),
                                       textOf( step, "change" ), side, textOf( operation, "call" ),
                                       textOf( operation, "operation" ) } );
        }
    }
    grid.isBad.resize( grid.rows.size() );
    report.grids.push_back( std::move( grid ) );
}

} // namespace

void addDocument( Report & report, std::string_view contents, const std::string & file ) {
    const auto refuse = [&]( const std::string & what ) {
        return InputError( file, 0, what,
                           "give what \"cairn-lt sweep --format json\" or \"cairn-lt diff --format "
                           "json\" has printed" );
    };
    const Json json = Json::parse( contents, nullptr, false );
    if ( json.is_discarded() )
        throw refuse( "it is no JSON" );
    if ( !json.is_object() )
        throw refuse( "it is JSON of another kind" );
    try {
        if ( json.contains( "summary" ) && json.contains( "recipes" ) )
            addSweep( report, json );
        else if ( json.contains( "different" ) && json.contains( "rows" ) )
            addStateDifference( report, json );
        else if ( json.contains( "different" ) && json.contains( "differences" ) )
            addRecordingDifference( report, json );
        else
            throw refuse( "it is JSON of another kind" );
    } catch ( const Json::exception & ) {
        throw refuse( "it is not as the verb printed it" );
    }
}

} // namespace Tool
