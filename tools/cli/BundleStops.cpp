#include "tools/cli/BundleStops.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <utility>

namespace Tool {

namespace {

std::string capitalised( std::string text ) {
    if ( !text.empty() )
        text.front() =
            static_cast<char>( std::toupper( static_cast<unsigned char>( text.front() ) ) );
    return text;
}

// The place of a call that has this number.
std::optional<std::size_t> placeOf( const Report & report, std::uint64_t number ) {
    const auto & calls = report.calls.items();
    const auto found = std::find_if( calls.begin(), calls.end(), [&]( const ReportCall & call ) {
        return call.number == number;
    } );
    if ( found == calls.end() )
        return {};
    return report.calls.dropped() + static_cast<std::size_t>( found - calls.begin() );
}

} // namespace

BundleStops::BundleStops( const Case & given, std::optional<std::uint32_t> process )
    : given_( given ), investigation_( given ), process_( process ) {
    all_.title = "Stops in the report";
    all_.heads = { "line", "process", "what", "recipe", "call", "code" };
    for ( const Stop & stop : given.report.stops() )
        look( stop, process );
}

void BundleStops::look( const Stop & stop, std::optional<std::uint32_t> wanted ) {
    auto [diagnosis, context] = investigation_.look( stop );
    const auto process =
        context.found.thread != nullptr ? context.found.thread->process : diagnosis.stop.process();
    const bool hasCode = stop.kind == Stop::Kind::apiError;
    all_.rows.push_back( { fmt::to_string( stop.reportLine ),
                           process ? fmt::to_string( *process ) : "", endText( stop ),
                           diagnosis.function, stop.text == "0" ? "" : stop.text,
                           hasCode ? fmt::to_string( stop.rc ) : "" } );
    all_.isBad.push_back( 0 );
    if ( wanted && process != wanted )
        return;
    std::fill( all_.isBad.begin(), all_.isBad.end(), 0 );
    all_.isBad.back() = 1;
    process_ = process;
    shown_ = { std::move( diagnosis ), std::move( context ) };
}

void BundleStops::addTo( Report & report, std::optional<std::size_t> stop ) const {
    report.facts.emplace_back( "Stops in the report", fmt::to_string( given_.report.count() ) );
    report.facts.emplace_back( "Release of the library", given_.table.version() );
    if ( all_.rows.size() > 1 )
        report.grids.push_back( all_ );
    if ( given_.report.count() > all_.rows.size() )
        report.notes.push_back(
            fmt::format( "Of the stops the first {} are shown.", all_.rows.size() ) );
    if ( !shown_ ) {
        report.notes.emplace_back(
            all_.rows.empty() ? "Nothing in the report says that this library stopped a process."
                              : "The report tells of no stop of this process." );
        return;
    }
    report.ending = Report::Ending::bad;
    report.endingText = fmt::format( "{}, and the process was stopped.",
                                     capitalised( endText( shown_->diagnosis.stop ) ) );
    report.failure = failureOf( report, stop );
}

Report::Failure BundleStops::failureOf( const Report & report,
                                        std::optional<std::size_t> stop ) const {
    const auto & [diagnosis, context] = *shown_;
    Report::Failure failure{ .title = capitalised( endText( diagnosis.stop ) ), .facts = {} };
    if ( !diagnosis.function.empty() )
        failure.title += " in " + diagnosis.function;
    const Sheet sheet = stopSheet( diagnosis, given_.table, context );
    std::string label;
    for ( const auto & [name, text] : sheet.lines() ) {
        if ( !name.empty() )
            label = name;
        if ( label != "before" ) // the page has all of the trace
            failure.facts.emplace_back( capitalised( name ), text );
    }
    failure.call = context.scene && context.scene->operation
                       ? placeOf( report, context.scene->operation->number )
                       : stop;
    return failure;
}

} // namespace Tool
