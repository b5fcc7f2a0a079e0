#include "tools/cli/DiagnoseOutput.h"

#include "text/Escape.h"
#include "text/Time.h"
#include "tools/cli/Output.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <utility>

namespace Tool {

namespace {

using Json = nlohmann::ordered_json;
using Found = Diagnosis::Found;

std::string siteText( const Site & site ) {
    return fmt::format( "Cairn/CairnLtHelper:{} in {}, call {}", site.line, site.recipe,
                        site.call );
}

void addPlace( Sheet & sheet, const Diagnosis & diagnosis, const SiteTable & table ) {
    switch ( diagnosis.found ) {
    case Found::exactly:
        sheet.add( "place", siteText( diagnosis.sites.front() ) );
        break;
    case Found::byText:
        sheet.add( "place",
                   fmt::format( "{}, by its text: the report is of another release than {}, where "
                                "the line is {}",
                                siteText( diagnosis.sites.front() ), table.version(),
                                diagnosis.stop.line ) );
        break;
    case Found::ambiguous:
        sheet.add( "place", fmt::format( "one of {}, which the report does not tell apart:",
                                         diagnosis.sites.size() ) );
        for ( const Site & site : diagnosis.sites )
            sheet.add( "", siteText( site ) );
        break;
    case Found::nowhere:
        sheet.add( "place", fmt::format( "line {}: release {} has no such text",
                                         diagnosis.stop.line, table.version() ) );
        break;
    case Found::notAsked:
        break;
    }
}

// What is not UTF-8 in a report is escaped.
std::string valid( std::string_view text ) { return Text::printable( text ); }

constexpr const char * kindNames[] = { "api_error", "assertion", "lock_misuse" };
constexpr const char * foundNames[] = { "exactly", "by_text", "ambiguous", "nowhere", "not_asked" };

Json siteJson( const Site & site ) {
    return { { "line", site.line },
             { "recipe", site.recipe },
             { "call", site.call },
             { "text", site.text } };
}

} // namespace

const char * endText( const Stop & stop ) {
    switch ( stop.kind ) {
    case Stop::Kind::apiError:
        return "an SDK call failed";
    case Stop::Kind::assertion:
        return stop.text == "0" ? "an SDK call failed" : "an assertion failed";
    case Stop::Kind::lockMisuse:
        return "the activity lock was misused";
    }
    return "";
}

void Sheet::add( std::string_view label, std::string_view text ) {
    if ( !text.empty() )
        text_ += fmt::format( "  {:<10}{}\n", label, Text::printable( text ) );
}

const char * nameOf( Stop::Kind kind ) { return kindNames[static_cast<int>( kind )]; }
const char * nameOf( Found found ) { return foundNames[static_cast<int>( found )]; }

std::string stopText( const Diagnosis & diagnosis, const SiteTable & table,
                      const Context & context ) {
    const Stop & stop = diagnosis.stop;
    std::string text =
        heading( fmt::format( "line {}: {}", stop.reportLine, endText( stop ) ) ) + "\n";
    Sheet sheet;
    const auto process = stop.process();
    sheet.add( "process", fmt::format( "{}{}", stop.program,
                                       process ? fmt::format( "[{}]", *process ) : "" ) );
    sheet.add( "when", stop.prefix );
    if ( diagnosis.recipe != nullptr )
        sheet.add( "recipe", fmt::format( "{} ({}): {}", diagnosis.recipe->name,
                                          diagnosis.recipe->family, diagnosis.recipe->summary ) );
    else
        sheet.add( "recipe", diagnosis.function );
    addPlace( sheet, diagnosis, table );
    if ( diagnosis.sites.size() == 1 && diagnosis.sites.front().isCall() )
        sheet.add( "step", fmt::format( "call {} of {}: {}", diagnosis.sites.front().call,
                                        diagnosis.calls, diagnosis.inWords ) );
    sheet.add( stop.kind == Stop::Kind::assertion ? "expected" : "call",
               stop.text == "0" ? "" : stop.text );
    sheet.add( "chip", diagnosis.target );
    if ( stop.kind == Stop::Kind::apiError )
        sheet.add( "SDK", fmt::format( "{} ({})", stop.words, stop.rc ) );
    sheet.add( "meaning", diagnosis.meaning );
    for ( std::size_t i = 0; i < diagnosis.leftBehind.size(); ++i )
        sheet.add( i == 0 ? "left" : "", diagnosis.leftBehind[i] );
    if ( context.thread != nullptr ) {
        const std::string thread = context.thread->thread == 0
                                       ? ""
                                       : fmt::format( "thread {} of ", context.thread->thread );
        sheet.add( "before", fmt::format( "{}process {}, the last first:", thread,
                                          context.thread->process ) );
        for ( const auto & line : context.thread->lines )
            sheet.add( "", fmt::format( "{} {}", Text::utc( line.time ), line.text ) );
        if ( context.others != 0 )
            sheet.add( "", fmt::format( "{} other thread{} of the trace could be meant as well",
                                        context.others, context.others == 1 ? "" : "s" ) );
    }
    for ( std::size_t i = 0; i < diagnosis.nextActions.size(); ++i )
        sheet.add( i == 0 ? "next" : "", diagnosis.nextActions[i] );
    return text + sheet.text();
}

Json stopJson( const Diagnosis & diagnosis, const Context & context ) {
    const Stop & stop = diagnosis.stop;
    Json json{ { "kind", nameOf( stop.kind ) },
               { "report_line", stop.reportLine },
               { "prefix", valid( stop.prefix ) },
               { "program", valid( stop.program ) } };
    if ( const auto process = stop.process() )
        json["process"] = *process;
    json["text"] = valid( stop.text );
    if ( stop.kind != Stop::Kind::lockMisuse )
        json["line"] = stop.line;
    if ( stop.kind == Stop::Kind::apiError ) {
        json["rc"] = stop.rc;
        json["words"] = valid( stop.words );
    }
    json["found"] = nameOf( diagnosis.found );
    Json sites = Json::array();
    for ( const Site & site : diagnosis.sites )
        sites.push_back( siteJson( site ) );
    json["sites"] = std::move( sites );
    json["recipe"] = valid( diagnosis.function );
    if ( diagnosis.recipe != nullptr ) {
        json["family"] = diagnosis.recipe->family;
        json["summary"] = diagnosis.recipe->summary;
        json["calls"] = diagnosis.calls;
    }
    json["in_words"] = diagnosis.inWords;
    json["chip"] = diagnosis.target;
    json["meaning"] = diagnosis.meaning;
    json["left"] = diagnosis.leftBehind;
    if ( context.thread != nullptr ) {
        Json before = Json::array();
        for ( const auto & line : context.thread->lines )
            before.push_back( { { "time", Text::utc( line.time ) },
                                { "function", valid( line.function ) },
                                { "text", valid( line.text ) } } );
        json["trace"] = { { "process", context.thread->process },
                          { "thread", context.thread->thread },
                          { "program", valid( context.thread->program ) },
                          { "other_threads", context.others },
                          { "before", std::move( before ) } };
    }
    json["next"] = diagnosis.nextActions;
    return json;
}

} // namespace Tool
