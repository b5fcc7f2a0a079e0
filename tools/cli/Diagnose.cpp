#include "text/Escape.h"
#include "text/Time.h"
#include "tools/cli/Verbs.h"
#include "tools/diagnose/Diagnosis.h"
#include "tools/diagnose/LastRecords.h"
#include "tools/diagnose/Report.h"
#include "tools/model/Errors.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Tool {

namespace {

using Json = nlohmann::ordered_json;
using Found = Diagnosis::Found;

// A line of a report that is longer is taken to be two.
constexpr std::size_t longestLine = 1 << 20;

ReportReader readReport( const std::string & path ) {
    const bool isInput = path == "-";
    const auto refuse = [&]( int error ) {
        return InputError( isInput ? "standard input" : path, 0,
                           fmt::format( "cannot be read: {}", std::strerror( error ) ) );
    };
    const std::unique_ptr<std::FILE, void ( * )( std::FILE * )> file(
        isInput ? stdin : std::fopen( path.c_str(), "rbe" ), []( std::FILE * each ) {
            if ( each != nullptr && each != stdin )
                std::fclose( each );
        } );
    if ( !file )
        throw refuse( errno );
    ReportReader report;
    std::string rest;
    std::array<char, 1 << 16> buffer;
    while ( const std::size_t size = std::fread( buffer.data(), 1, buffer.size(), file.get() ) ) {
        std::string_view chunk( buffer.data(), size );
        for ( std::size_t end = chunk.find( '\n' ); end != std::string_view::npos;
              end = chunk.find( '\n' ) ) {
            if ( rest.empty() ) {
                report.add( chunk.substr( 0, end ) );
            } else {
                report.add( rest += chunk.substr( 0, end ) );
                rest.clear();
            }
            chunk.remove_prefix( end + 1 );
        }
        rest += chunk;
        if ( rest.size() > longestLine ) {
            report.add( rest );
            rest.clear();
        }
    }
    if ( std::ferror( file.get() ) )
        throw refuse( errno );
    if ( !rest.empty() )
        report.add( rest );
    return report;
}

// What the trace says of one stop.
struct Context {
    const ThreadRecords * thread = nullptr;
    std::size_t others = 0;
};

Context contextOf( const Diagnosis & diagnosis, const LastRecords * records ) {
    Context context;
    if ( records == nullptr )
        return context;
    const auto process = diagnosis.stop.process();
    context.thread =
        records->find( diagnosis.function, process ? &*process : nullptr, context.others );
    return context;
}

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

std::string siteText( const Site & site ) {
    return fmt::format( "Cairn/CairnLtHelper:{} in {}, call {}", site.line, site.recipe,
                        site.call );
}

// --- Text

// Lines of a label and what it says, under each other.
class Sheet {
  public:
    void add( std::string_view label, std::string_view text ) {
        if ( !text.empty() )
            text_ += fmt::format( "  {:<10}{}\n", label, Text::printable( text ) );
    }
    const std::string & text() const { return text_; }

  private:
    std::string text_;
};

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

std::string textOf( const Diagnosis & diagnosis, const SiteTable & table,
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

// --- JSON

// What is not UTF-8 in a report is escaped.
std::string valid( std::string_view text ) { return Text::printable( text ); }

Json siteJson( const Site & site ) {
    return { { "line", site.line },
             { "recipe", site.recipe },
             { "call", site.call },
             { "text", site.text } };
}

Json jsonOf( const Diagnosis & diagnosis, const Context & context ) {
    const Stop & stop = diagnosis.stop;
    constexpr const char * kinds[] = { "api_error", "assertion", "lock_misuse" };
    constexpr const char * found[] = { "exactly", "by_text", "ambiguous", "nowhere", "not_asked" };
    Json json{ { "kind", kinds[static_cast<int>( stop.kind )] },
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
    json["found"] = found[static_cast<int>( diagnosis.found )];
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

} // namespace

int diagnose( const DiagnoseOptions & options ) {
    const SiteTable table =
        options.library.empty() ? SiteTable::own() : SiteTable::fromLibrary( options.library );
    const Model model = modelOf( options.chips );
    std::optional<LastRecords> records;
    if ( !options.trace.empty() )
        records.emplace( options.trace );
    const ReportReader report = readReport( options.report );

    std::string text;
    Json stops = Json::array();
    for ( const Stop & stop : report.stops() ) {
        const Diagnosis diagnosis = diagnose( stop, table, model.chips.front().schema );
        const Context context = contextOf( diagnosis, records ? &*records : nullptr );
        if ( options.format == Format::json )
            stops.push_back( jsonOf( diagnosis, context ) );
        else
            text += ( text.empty() ? "" : "\n" ) + textOf( diagnosis, table, context );
    }
    if ( options.format == Format::json )
        text = Json{ { "release", table.version() },
                     { "count", report.count() },
                     { "stops", std::move( stops ) } }
                   .dump( 2 ) +
               "\n";
    else if ( report.count() == 0 )
        text = "nothing in the report says that this library stopped a process\n";
    print( text );
    if ( report.count() > report.stops().size() )
        complain( fmt::format( "{} of {} stops are shown; give a part of the report",
                               report.stops().size(), report.count() ) );
    if ( records ) {
        for ( const std::string & finding : records->findings() )
            complain( finding );
    }
    return report.count() == 0 ? 1 : 0;
}

} // namespace Tool
