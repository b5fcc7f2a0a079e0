#include "tools/cli/SessionOutput.h"

#include "tools/cli/Tables.h"
#include "tools/model/Arguments.h"
#include "tools/model/Errors.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <exception>
#include <string>
#include <utility>

namespace Tool {

namespace {

using Json = nlohmann::ordered_json;

bool hasResult( const Result & result ) {
    return !std::holds_alternative<std::monostate>( result );
}

Json argumentJson( const Argument & argument ) {
    if ( const auto * number = std::get_if<uint64_t>( &argument ) )
        return *number;
    if ( const auto * flag = std::get_if<bool>( &argument ) )
        return *flag;
    return toText( argument );
}

Json resultJson( const Result & result ) {
    if ( const auto * flag = std::get_if<bool>( &result ) )
        return *flag;
    return std::get<uint16_t>( result );
}

// "FILE:LINE: ", or nothing for a step of the command line.
std::string placeOf( const Session & session, const Step & step ) {
    return step.line == 0 ? "" : fmt::format( "{}:{}: ", session.bringup().file, step.line );
}

Json outcomeJson( const StepOutcome & outcome, bool withRecord ) {
    Json json;
    if ( outcome.step->line != 0 )
        json["line"] = outcome.step->line;
    json["step"] = toText( *outcome.step );
    if ( const auto * recipe = std::get_if<RecipeStep>( &outcome.step->what ) ) {
        json["recipe"] = recipe->recipe->name;
        Json arguments = Json::object();
        const auto parameters = recipe->recipe->parameters();
        for ( std::size_t i = 0; i < parameters.size(); ++i )
            arguments[std::string( parameters[i].name )] = argumentJson( recipe->arguments[i] );
        json["arguments"] = std::move( arguments );
        if ( hasResult( outcome.result ) )
            json["result"] = resultJson( outcome.result );
        if ( recipe->expected )
            json["expected"] = resultJson( *recipe->expected );
    }
    json["good"] = outcome.isGood();
    if ( withRecord ) {
        json["record"] = Json::array();
        for ( const Interpose::Event & operation : outcome.operations )
            json["record"].push_back( Interpose::toText( operation ) );
    }
    return json;
}

// Why the last call failed; empty if it did not.
std::string stopReason( const Session & session ) {
    return session.lastCallInjected() ? "a fault that was injected" : session.lastFailure();
}

class Printer final : public SessionListener {
  public:
    Printer( const SessionOutput & output, bool withRecord )
        : output_( output ), withRecord_( withRecord ) {}

    // Before the step, so that its trace lines follow.
    void stepBegins( const Session & session, const StepOutcome & outcome ) override {
        if ( output_.format == Format::text && output_.style == SessionOutput::Style::steps )
            print( fmt::format( "{:>{}}  {}\n", outcome.number, numberWidth( session ),
                                toText( *outcome.step ) ) );
    }

    void stepEnded( const Session & session, const StepOutcome & outcome ) override {
        if ( output_.format == Format::json )
            return;
        printRecord( session, outcome );
        if ( !hasResult( outcome.result ) )
            return;
        if ( output_.style == SessionOutput::Style::results )
            print( toText( outcome.result ) + "\n" );
        else
            print( fmt::format(
                "{}returns {}{}\n", indent( session ), toText( outcome.result ),
                outcome.isGood() ? ""
                                 : fmt::format( ", {} is wanted", toText( *outcome.wanted() ) ) ) );
    }

    void stopped( const Session & session ) override {
        const StepOutcome & outcome = session.outcomes().back();
        complain( fmt::format( "{}stopped in step {} of {}: {}", placeOf( session, *outcome.step ),
                               outcome.number, session.bringup().steps.size(),
                               toText( *outcome.step ) ) );
        if ( const auto & call = session.lastCall() )
            complain( ( call->returned ? "last SDK call: " : "in the SDK call: " ) +
                      Interpose::toText( *call ) );
        const std::string reason = stopReason( session );
        if ( !reason.empty() )
            complain( ( session.lastCallInjected() ? "it is " : "the chip says: " ) + reason );
        if ( !session.saveError().empty() )
            complain( session.saveError() );
        try {
            if ( output_.format == Format::text )
                printRecord( session, outcome );
            printTables( session );
        } catch ( const std::exception & error ) {
            complain( error.what() );
        }
    }

    int finish( const Session & session ) {
        for ( const Interpose::Fault & fault : session.unfiredFaults() )
            complain( fmt::format( "warning: the fault \"{}\" never struck",
                                   Interpose::toText( fault ) ) );
        for ( const Sim::LiveEntry & entry : session.chip().liveEntries() )
            complain( fmt::format( "warning: an entry of {} on unit {} was never freed",
                                   entry.table, entry.unit ) );
        printTables( session );
        if ( !session.saveError().empty() )
            throw Trouble( session.saveError() );
        const auto & outcomes = session.outcomes();
        const auto bad = std::find_if( outcomes.begin(), outcomes.end(),
                                       []( const auto & each ) { return !each.isGood(); } );
        if ( bad == outcomes.end() )
            return 0;
        if ( output_.style == SessionOutput::Style::steps )
            complain( fmt::format( "{}{} = {}, {} is wanted", placeOf( session, *bad->step ),
                                   toText( *bad->step ), toText( bad->result ),
                                   toText( *bad->wanted() ) ) );
        return 1;
    }

  private:
    static std::size_t numberWidth( const Session & session ) {
        return fmt::formatted_size( "{}", session.bringup().steps.size() );
    }

    // What stands below the text of a step.
    std::string indent( const Session & session ) const {
        return output_.style == SessionOutput::Style::results
                   ? ""
                   : std::string( numberWidth( session ) + 2, ' ' );
    }

    void printRecord( const Session & session, const StepOutcome & outcome ) const {
        for ( const Interpose::Event & operation : outcome.operations )
            print( indent( session ) + Interpose::toText( operation ) + "\n" );
    }

    void printTables( const Session & session ) const {
        if ( output_.format == Format::json )
            print( document( session ).dump( 2 ) + "\n" );
        else if ( output_.dump == Format::json )
            print( tablesJson( session.chip(), {} ).dump( 2 ) + "\n" );
        else if ( output_.dump )
            print( tablesText( session.chip(), {} ) );
    }

    Json document( const Session & session ) const {
        Json steps = Json::array();
        for ( const StepOutcome & outcome : session.outcomes() )
            steps.push_back( outcomeJson( outcome, withRecord_ ) );
        Json json;
        if ( !session.bringup().file.empty() )
            json["file"] = session.bringup().file;
        json["steps"] = std::move( steps );
        if ( !session.outcomes().empty() && !session.outcomes().back().isFinished ) {
            const auto & call = session.lastCall();
            json["stopped_at"] = { { "call", call ? Interpose::toText( *call ) : "" },
                                   { "reason", stopReason( session ) } };
        }
        Json unfired = Json::array();
        for ( const Interpose::Fault & fault : session.unfiredFaults() )
            unfired.push_back( Interpose::toText( fault ) );
        json["faults_that_never_struck"] = std::move( unfired );
        json["entries_never_freed"] = session.chip().liveEntryCount();
        if ( output_.dump )
            json["tables"] = tablesJson( session.chip(), {} );
        return json;
    }

    const SessionOutput & output_;
    bool withRecord_;
};

} // namespace

int runSession( Bringup bringup, const SessionOptions & options, const SessionOutput & output ) {
    if ( output.format == Format::json && output.dump == Format::text )
        throw InputError( "--dump: with --format json the tables are part of the document",
                          "leave \"=text\" out" );
    Printer printer( output, options.record );
    Session session( std::move( bringup ), options, printer );
    session.run();
    return printer.finish( session );
}

} // namespace Tool
