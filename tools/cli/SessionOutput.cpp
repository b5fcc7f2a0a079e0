#include "tools/cli/SessionOutput.h"

#include "text/Escape.h"
#include "text/Numbers.h"
#include "tools/cli/Tables.h"
#include "tools/model/Arguments.h"
#include "tools/model/Errors.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <poll.h>
#include <string>
#include <unistd.h>
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

// Who is to blame for a stop: the chip that refused the last call, faults that struck it or calls
// before, both, or neither, where the recipe stopped by itself.
const char * causeOfStop( const Session & session ) {
    const bool byChip = !session.lastRefusal().empty();
    const bool byFault = !session.strikes().empty();
    if ( byChip )
        return byFault ? "chip and fault" : "chip";
    return byFault ? "fault" : "recipe";
}

std::string idleText( const Interpose::FaultReport & report ) {
    if ( report.matches == 0 )
        return "no operation matched";
    std::string matched = Text::counted( report.matches, "operation" ) + " matched";
    if ( report.matches < report.fault.occurrence )
        return matched;
    return matched + ", and the recipe saw nothing else than without it";
}

class Printer final : public SessionListener {
  public:
    Printer( const SessionOutput & output, bool withRecord )
        : output_( output ), withRecord_( withRecord ) {}

    void waitsFor( const std::string & stateFile ) override {
        complain( fmt::format( "waiting for {}, which another process uses", stateFile ) );
    }

    // Before the step, so that its trace lines follow.
    void stepBegins( const Session & session, const StepOutcome & outcome ) override {
        if ( output_.format == Format::text && output_.style == SessionOutput::Style::steps )
            say( fmt::format( "{:>{}}  {}\n", outcome.number, numberWidth( session ),
                              Text::printable( toText( *outcome.step ) ) ) );
    }

    void stepEnded( const Session & session, const StepOutcome & outcome ) override {
        if ( output_.format == Format::json )
            return;
        printRecord( session, outcome );
        if ( !hasResult( outcome.result ) )
            return;
        if ( output_.style == SessionOutput::Style::results )
            say( toText( outcome.result ) + "\n" );
        else
            say( fmt::format(
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
        if ( !session.lastRefusal().empty() )
            complain( "the chip says: " + session.lastRefusal() );
        complainOfStrikes( session );
        complainOfIdleFaults( session );
        if ( !session.saveError().empty() )
            complain( session.saveError() );
        if ( output_.format == Format::text )
            printRecord( session, outcome );
        printTables( session );
        if ( outputError_ )
            complain( outputError_->what() );
    }

    void interrupted( const Session & session, int signal ) override {
        // If nobody reads standard error, the process ends all the same.
        pollfd standardError{ STDERR_FILENO, POLLOUT, 0 };
        if ( ::poll( &standardError, 1, 0 ) != 1 )
            return;
        const std::string name = fmt::format( "SIG{}", ::sigabbrev_np( signal ) );
        const std::size_t steps = session.bringup().steps.size();
        if ( session.outcomes().empty() ) {
            complain( fmt::format( "{} before the first of {} steps", name, steps ) );
        } else {
            const StepOutcome & outcome = session.outcomes().back();
            complain( fmt::format( "{}{} {} step {} of {}: {}", placeOf( session, *outcome.step ),
                                   name, outcome.isFinished ? "after" : "in", outcome.number, steps,
                                   toText( *outcome.step ) ) );
        }
        if ( !session.saveError().empty() )
            complain( session.saveError() );
    }

    int finish( const Session & session ) {
        complainOfIdleFaults( session );
        for ( const Sim::LiveEntry & entry : session.chip().liveEntries() )
            complain( fmt::format( "warning: an entry of {} on unit {} was never freed",
                                   entry.table, entry.unit ) );
        printTables( session );
        if ( !session.saveError().empty() )
            throw Trouble( session.saveError() );
        if ( outputError_ )
            throw Trouble( *outputError_ );
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
    static void complainOfStrikes( const Session & session ) {
        for ( const Strike & strike : session.strikes() ) {
            const bool isLast = session.lastCallIsStruck() && &strike == &session.strikes().back();
            const std::string fault = Interpose::toText( strike.fault );
            complain(
                isLast ? fmt::format( "it is a fault that was injected: {}", fault )
                       : fmt::format( "a fault that was injected struck before: {}, in step {}: {}",
                                      fault, strike.step, Interpose::toText( strike.operation ) ) );
        }
    }

    static void complainOfIdleFaults( const Session & session ) {
        for ( const Interpose::FaultReport & report : session.idleFaults() )
            complain( fmt::format( "warning: the fault \"{}\" never struck: {}",
                                   Interpose::toText( report.fault ), idleText( report ) ) );
    }

    // Output that fails is told when the chips are saved; until then the steps go on without.
    void say( std::string_view text ) {
        if ( outputError_ )
            return;
        try {
            print( text );
        } catch ( const Trouble & error ) {
            outputError_ = error;
        }
    }

    static std::size_t numberWidth( const Session & session ) {
        return fmt::formatted_size( "{}", session.bringup().steps.size() );
    }

    // What stands below the text of a step.
    std::string indent( const Session & session ) const {
        return output_.style == SessionOutput::Style::results
                   ? ""
                   : std::string( numberWidth( session ) + 2, ' ' );
    }

    void printRecord( const Session & session, const StepOutcome & outcome ) {
        for ( const Interpose::Event & operation : outcome.operations )
            say( indent( session ) + Text::printable( Interpose::toText( operation ) ) + "\n" );
    }

    void printTables( const Session & session ) {
        if ( output_.format == Format::json )
            say( documentText( document( session ) ) );
        else if ( output_.dump == Format::json )
            say( documentText( tablesJson( session.chip(), {} ) ) );
        else if ( output_.dump )
            say( tablesText( session.chip(), {} ) );
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
            Json struck = Json::array();
            for ( const Strike & strike : session.strikes() )
                struck.push_back( { { "fault", Interpose::toText( strike.fault ) },
                                    { "step", strike.step },
                                    { "call", Interpose::toText( strike.operation ) } } );
            json["stopped_at"] = { { "call", call ? Interpose::toText( *call ) : "" },
                                   { "cause", causeOfStop( session ) },
                                   { "reason", session.lastCallIsStruck()
                                                   ? "a fault that was injected"
                                                   : session.lastRefusal() },
                                   { "faults_that_struck", std::move( struck ) } };
        }
        Json idle = Json::array();
        for ( const Interpose::FaultReport & report : session.idleFaults() )
            idle.push_back( Interpose::toText( report.fault ) );
        json["faults_that_never_struck"] = std::move( idle );
        json["entries_never_freed"] = session.chip().liveEntryCount();
        if ( output_.dump )
            json["tables"] = tablesJson( session.chip(), {} );
        return json;
    }

    const SessionOutput & output_;
    bool withRecord_;
    std::optional<Trouble> outputError_;
};

} // namespace

int runSession( Bringup bringup, const SessionOptions & options, const SessionOutput & output ) {
    if ( output.format == Format::json && output.dump == Format::text )
        throw InputError( "--dump: with --format json the tables are part of the document",
                          "leave \"=text\" out" );
    std::signal( SIGPIPE, SIG_IGN ); // a reader who leaves ends neither the steps nor what is saved
    Printer printer( output, options.record );
    Session session( std::move( bringup ), options, printer );
    session.run();
    return printer.finish( session );
}

} // namespace Tool
