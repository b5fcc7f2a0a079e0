#include "tools/cli/DiagnoseOutput.h"

#include "text/Escape.h"
#include "text/Numbers.h"
#include "text/Time.h"

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

void addPlace( Sheet & sheet, const Diagnosis & diagnosis, const SiteTable & table,
               const Context & context ) {
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
        for ( const Site & site : diagnosis.sites ) {
            const bool isOfMessage = context.found.how == ThreadFound::How::byMessage &&
                                     context.found.thread != nullptr &&
                                     context.found.thread->function == site.recipe;
            sheet.add( "",
                       siteText( site ) + ( isOfMessage ? ", of which the last message is" : "" ) );
        }
        break;
    case Found::nowhere:
        sheet.add( "place", fmt::format( "line {}: release {} has no such text",
                                         diagnosis.stop.line, table.version() ) );
        break;
    case Found::notAsked:
        break;
    }
}

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
        lines_.emplace_back( label, Text::printable( text ) );
}

std::string Sheet::text() const {
    std::string all;
    for ( const auto & [label, text] : lines_ )
        all += fmt::format( "  {:<10}{}\n", label, text );
    return all;
}

const char * nameOf( Stop::Kind kind ) { return kindNames[static_cast<int>( kind )]; }
const char * nameOf( Found found ) { return foundNames[static_cast<int>( found )]; }

namespace {

std::string callText( const TraceReader::RecordedCall & call ) {
    std::string text;
    TraceReader::appendText( text, call );
    return text;
}

std::string argumentsText( const CrashScene & scene ) {
    std::string text;
    for ( const auto & [name, value] : scene.arguments )
        text += fmt::format( "{}{}={}", text.empty() ? "" : ", ", name, value );
    return text;
}

// With what the recipe and the SDK were called.
void addArguments( Sheet & sheet, const Stop & stop, const Context & context ) {
    sheet.add( "arguments", !stop.step.empty() ? stop.step
                            : context.scene    ? argumentsText( *context.scene )
                                               : std::string() );
    sheet.add( "operation", context.scene && context.scene->operation
                                ? callText( *context.scene->operation )
                                : stop.operation );
    sheet.add( "fault", stop.fault );
}

// As the recording tells or, without one, as the source of the recipe does.
void addLeft( Sheet & sheet, const Diagnosis & diagnosis, const Context & context ) {
    std::vector<std::string> left;
    if ( context.scene && context.scene->operation ) {
        const CrashScene & scene = *context.scene;
        for ( const std::string & entry : scene.openEntries )
            left.push_back( "not freed: " + entry );
        if ( scene.changes != 0 )
            left.push_back( fmt::format(
                "{} changed before{}, the last first:", Text::counted( scene.changes, "row" ),
                scene.isOneRun ? "" : ", by this run or by those of the recipe just before it" ) );
        for ( const std::string & row : scene.changedRows )
            left.push_back( "  " + row );
        if ( left.empty() )
            left.emplace_back( "nothing: no entry is allocated, and no row was changed" );
    } else {
        left = diagnosis.leftBehind;
    }
    for ( std::size_t i = 0; i < left.size(); ++i )
        sheet.add( i == 0 ? "left" : "", left[i] );
}

void addBefore( Sheet & sheet, const Context & context ) {
    const ThreadRecords * const thread = context.found.thread;
    if ( thread == nullptr )
        return;
    const std::string which =
        thread->thread == 0 ? "" : fmt::format( "thread {} of ", thread->thread );
    sheet.add( "before", fmt::format( "{}process {}{}, the last first:", which, thread->process,
                                      context.found.how == ThreadFound::How::byProcess
                                          ? ", which may be another one than the one that stopped"
                                          : "" ) );
    for ( const auto & line : thread->lines )
        sheet.add( "", fmt::format( "{} {}", Text::utc( line.time ), line.text ) );
    if ( context.found.others != 0 )
        sheet.add( "", fmt::format( "{} of the trace could be meant as well",
                                    Text::counted( context.found.others, "other thread" ) ) );
}

// Whether it happened before.
void addEarlier( Sheet & sheet, const Context & context ) {
    std::vector<std::string> earlier;
    if ( context.stopsLikeIt != 0 )
        earlier.push_back( fmt::format( "{} before in the report, first in line {}",
                                        Text::counted( context.stopsLikeIt, "time" ),
                                        context.firstLikeIt ) );
    if ( context.failuresLikeIt && *context.failuresLikeIt == 0 )
        earlier.emplace_back( "no other thread of the trace was stopped by such a call" );
    else if ( context.failuresLikeIt )
        earlier.push_back( fmt::format(
            "{} of the trace {} stopped by such a call, the last at {} in process {}",
            Text::counted( *context.failuresLikeIt, "other thread" ),
            *context.failuresLikeIt == 1 ? "was" : "were",
            Text::utc( context.lastLikeIt->after.time ), context.lastLikeIt->process ) );
    for ( std::size_t i = 0; i < earlier.size(); ++i )
        sheet.add( i == 0 ? "earlier" : "", earlier[i] );
}

} // namespace

std::string stopTitle( const Stop & stop ) {
    return fmt::format( "line {}: {}", stop.reportLine, endText( stop ) );
}

Sheet stopSheet( const Diagnosis & diagnosis, const SiteTable & table, const Context & context ) {
    const Stop & stop = diagnosis.stop;
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
    addPlace( sheet, diagnosis, table, context );
    if ( diagnosis.sites.size() == 1 && diagnosis.sites.front().isCall() )
        sheet.add( "step", fmt::format( "call {} of {}: {}", diagnosis.sites.front().call,
                                        diagnosis.calls, diagnosis.inWords ) );
    sheet.add( stop.kind == Stop::Kind::assertion ? "expected" : "call",
               stop.text == "0" ? "" : stop.text );
    addArguments( sheet, stop, context );
    sheet.add( "chip", diagnosis.target );
    if ( stop.kind == Stop::Kind::apiError )
        sheet.add( "SDK", fmt::format( "{} ({})", stop.words, stop.rc ) );
    sheet.add( "meaning", diagnosis.meaning );
    if ( context.scene && context.scene->operation )
        sheet.add( "tried", trialText( *context.scene ) );
    else if ( !stop.chipSays.empty() )
        sheet.add( "tried", "The simulated chip says: " + stop.chipSays );
    addBefore( sheet, context );
    addLeft( sheet, diagnosis, context );
    addEarlier( sheet, context );
    for ( std::size_t i = 0; i < diagnosis.nextActions.size(); ++i )
        sheet.add( i == 0 ? "next" : "", diagnosis.nextActions[i] );
    return sheet;
}

namespace {

constexpr const char * howNames[] = { "by_call", "by_message", "by_process" };
constexpr const char * verdictNames[] = { "untried", "refuses", "accepts", "agrees", "disagrees" };

Json sceneJson( const CrashScene & scene ) {
    Json arguments = Json::object();
    for ( const auto & [name, value] : scene.arguments )
        arguments[Text::printable( name )] = Text::printable( value );
    Json json{ { "arguments", std::move( arguments ) } };
    if ( !scene.operation )
        return json;
    const auto all = []( const std::vector<std::string> & texts ) {
        Json list = Json::array();
        for ( const std::string & text : texts )
            list.push_back( Text::printable( text ) );
        return list;
    };
    json["operation"] = Text::printable( callText( *scene.operation ) );
    json["open_entries"] = all( scene.openEntries );
    json["changes"] = scene.changes;
    json["changed_rows"] = all( scene.changedRows );
    json["is_one_run"] = scene.isOneRun;
    Json chip{ { "verdict", verdictNames[static_cast<int>( scene.verdict() )] },
               { "says", Text::printable( trialText( scene ) ) } };
    if ( scene.trial )
        chip["rc"] = scene.trial->rc;
    chip["operations"] = scene.counts.operations;
    chip["divergences"] = scene.counts.divergences;
    chip["lost_beginning"] = scene.hasLostBeginning;
    json["simulated_chip"] = std::move( chip );
    return json;
}

Json traceJson( const Context & context ) {
    const ThreadRecords & thread = *context.found.thread;
    Json before = Json::array();
    for ( const auto & line : thread.lines )
        before.push_back( { { "time", Text::utc( line.time ) },
                            { "function", Text::printable( line.function ) },
                            { "text", Text::printable( line.text ) } } );
    Json json{ { "process", thread.process },
               { "thread", thread.thread },
               { "program", Text::printable( thread.program ) },
               { "found", howNames[static_cast<int>( context.found.how )] },
               { "other_threads", context.found.others },
               { "before", std::move( before ) } };
    if ( context.scene )
        json.update( sceneJson( *context.scene ) );
    if ( context.failuresLikeIt )
        json["failures_like_it"] = *context.failuresLikeIt;
    return json;
}

} // namespace

Json stopJson( const Diagnosis & diagnosis, const Context & context ) {
    const Stop & stop = diagnosis.stop;
    Json json{ { "kind", nameOf( stop.kind ) },
               { "report_line", stop.reportLine },
               { "prefix", Text::printable( stop.prefix ) },
               { "program", Text::printable( stop.program ) } };
    if ( const auto process = stop.process() )
        json["process"] = *process;
    json["text"] = Text::printable( stop.text );
    if ( stop.kind != Stop::Kind::lockMisuse )
        json["line"] = stop.line;
    if ( stop.kind == Stop::Kind::apiError ) {
        json["rc"] = stop.rc;
        json["words"] = Text::printable( stop.words );
    }
    json["found"] = nameOf( diagnosis.found );
    Json sites = Json::array();
    for ( const Site & site : diagnosis.sites )
        sites.push_back( siteJson( site ) );
    json["sites"] = std::move( sites );
    json["recipe"] = Text::printable( diagnosis.function );
    if ( diagnosis.recipe != nullptr ) {
        json["family"] = diagnosis.recipe->family;
        json["summary"] = diagnosis.recipe->summary;
        json["calls"] = diagnosis.calls;
    }
    json["in_words"] = diagnosis.inWords;
    json["chip"] = diagnosis.target;
    json["meaning"] = diagnosis.meaning;
    json["left"] = diagnosis.leftBehind;
    if ( !stop.step.empty() )
        json["tool"] = { { "step", Text::printable( stop.step ) },
                         { "operation", Text::printable( stop.operation ) },
                         { "chip_says", Text::printable( stop.chipSays ) },
                         { "fault", Text::printable( stop.fault ) } };
    if ( context.found.thread != nullptr )
        json["trace"] = traceJson( context );
    json["stops_like_it_before"] = context.stopsLikeIt;
    json["next"] = diagnosis.nextActions;
    return json;
}

} // namespace Tool
