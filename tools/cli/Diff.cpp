#include "interpose/TraceRecorder.h"
#include "text/Escape.h"
#include "text/Numbers.h"
#include "tools/cli/Progress.h"
#include "tools/cli/RecordingInput.h"
#include "tools/cli/Verbs.h"
#include "tools/model/Errors.h"
#include "tools/model/Files.h"
#include "tools/model/State.h"
#include "tools/recording/OpenRecording.h"
#include "tools/recording/Plan.h"
#include "tools/recording/RecordingDiff.h"
#include "tools/recording/StateDifferences.h"

#include <Kiln/ActivityLock.h>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>
#include <vector>

namespace Tool {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char * makeState =
    "\"cairn-lt replay RECORDING --state FILE\" makes a state of a recording";

std::string namesText( const DiffOptions & options ) {
    return "--- " + Text::printable( options.before ) + "\n+++ " +
           Text::printable( options.after ) + "\n";
}

void load( Sim::Chip & chip, const std::string & file ) {
    const std::vector<SavedUnit> kept = parseState( readFile( file ), file );
    for ( const SavedUnit & unit : kept )
        chip.addUnit( unit.unit, unit.schema );
    restore( chip, kept, file );
}

// The operations of a plan, recorded.
struct Plan {
    std::uint64_t operations = 0;
    std::size_t outOfReach = 0;
};

// Performs the plan on a chip of its own, which must then hold what the second state does.
Plan recordPlan( const DiffOptions & options, const Sim::Chip & after,
                 const std::vector<RowDifference> & differences ) {
    std::error_code error;
    std::filesystem::create_directories( options.plan, error );
    if ( error )
        throw InputError( "--plan: " + options.plan + ": " + error.message(),
                          "name a folder that can be written to" );
    if ( !std::filesystem::is_empty( options.plan, error ) || error )
        throw InputError( "--plan: " + options.plan + " is not an empty folder", "name another" );
    Sim::Chip chip;
    load( chip, options.before );
    Plan plan;
    try {
        Interpose::TraceRecorder recorder(
            chip, { .directory = options.plan,
                    .keep = Interpose::TraceRecorder::Keep::everything,
                    .isLockHeld = [] { return Kiln::activityLock().heldByThisThread(); } } );
        plan.operations = performPlan( recorder, differences );
    } catch ( const std::system_error & trouble ) {
        throw Trouble( "--plan: " + options.plan + ": " + trouble.what() );
    }
    for ( const RowDifference & left : differencesOf( chip, after ) ) {
        if ( isWithinReach( left ) )
            throw Trouble( "the plan does not lead to " + options.after );
        ++plan.outOfReach;
        complain( fmt::format( "{} unit {}, {}: no SDK operation makes the cache differ from the "
                               "hardware; with the plan both hold what the hardware does",
                               left.table->name, left.unit, placeText( *left.table, left.id() ) ) );
    }
    return plan;
}

int diffStates( const DiffOptions & options ) {
    Sim::Chip before;
    Sim::Chip after;
    load( before, options.before );
    load( after, options.after );
    const std::string trouble = incomparable( before, after );
    if ( !trouble.empty() )
        throw InputError( options.before + " and " + options.after +
                              " are states of different chips: " + trouble,
                          "compare states of the same chips" );
    const std::vector<RowDifference> differences = differencesOf( before, after );
    std::optional<Plan> plan;
    if ( !options.plan.empty() )
        plan = recordPlan( options, after, differences );
    if ( options.format == Format::json ) {
        Json json = differencesJson( differences );
        if ( plan )
            json["plan"] = { { "recording", options.plan },
                             { "operations", plan->operations },
                             { "rows_out_of_reach", plan->outOfReach } };
        print( documentText( std::move( json ) ) );
    } else {
        std::string text;
        if ( !differences.empty() )
            text = namesText( options ) + differencesText( differences );
        if ( plan )
            text += fmt::format( "{} operations in {} make the first state the second\n",
                                 plan->operations, Text::printable( options.plan ) );
        print( text );
    }
    return differences.empty() ? 0 : 1;
}

// The differences of two recordings as they come.
class RecordingDifferences {
  public:
    explicit RecordingDifferences( const DiffOptions & options )
        : options_( options ), isJson_( options.format == Format::json ) {}

    int run() {
        RecordingDiff diff( opener( options_.before, before_ ), opener( options_.after, after_ ) );
        if ( isJson_ )
            text_ = "{\"differences\":[";
        const RecordingDiffCounts counts =
            diff.run( [this]( const StepDifference & difference ) { show( difference ); } );
        if ( isJson_ )
            text_ += fmt::format( "\n],\"different\":{},\"same\":{},\"added\":{},\"removed\":{},"
                                  "\"changed\":{},\"reordered\":{}}}\n",
                                  counts.isDifferent(), counts.steps, counts.added, counts.removed,
                                  counts.changed, counts.reordered );
        else if ( counts.isDifferent() )
            text_ += fmt::format( "{} added, {} removed, {} changed, {} the same\n",
                                  Text::counted( counts.added, "step" ), counts.removed,
                                  counts.changed, counts.steps );
        progress_.clear();
        print( text_ );
        bool isDamaged = false;
        for ( const auto * side : { &before_, &after_ } ) {
            isDamaged = tellLosses( **side ) || isDamaged;
            if ( ( *side )->hasLostBeginning() )
                complain( ( side == &before_ ? options_.before : options_.after ) +
                          ": the beginning is lost" );
        }
        if ( counts.steps == 0 && counts.removed != 0 && counts.added != 0 )
            complain( options_.before + " and " + options_.after +
                      " have nothing in common; are they of the same chip?" );
        return counts.isDifferent() || isDamaged ? 1 : 0;
    }

  private:
    using Reading = std::shared_ptr<TraceReader::Recording>;

    // Opens the recording anew each time; the last reading tells what is lost.
    RecordingDiff::Open opener( const std::string & path, Reading & last ) {
        return [this, &path, &last]() -> EntrySteps::Source {
            last = openRecording( path, {}, "give the files of each a folder of their own" );
            return [this, reading = last]( TraceReader::Event & event ) {
                const bool isThere = reading->next( event );
                if ( isThere )
                    progress_.tell( event );
                return isThere;
            };
        };
    }

    void show( const StepDifference & difference ) {
        if ( isJson_ ) {
            text_ += count_ == 0 ? "\n" : ",\n";
            text_ += differenceJson( difference );
        } else {
            if ( count_ == 0 )
                text_ += namesText( options_ );
            text_ += differenceText( difference );
        }
        ++count_;
        if ( text_.size() < outputChunk )
            return;
        progress_.clear();
        print( text_ );
        text_.clear();
    }

    // "@@ -120 +130 @@ unit 0 PC_PORT, in cpuPortInit"
    std::string differenceText( const StepDifference & difference ) const {
        const EntryStep & step = difference.either();
        std::string text = "@@";
        if ( difference.before )
            text += fmt::format( " -{}", difference.before->operations.front().number );
        if ( difference.after )
            text += fmt::format( " +{}", difference.after->operations.front().number );
        text += " @@ " + tableText( step ) + "\n";
        const std::vector<DifferenceLine> lines = linesOf( difference );
        // A line is shown if one that differs is near.
        std::vector<bool> isShown( lines.size() );
        for ( std::size_t i = 0; i < lines.size(); ++i ) {
            if ( lines[i].mark == ' ' )
                continue;
            const std::size_t first = i - std::min<std::size_t>( i, options_.context );
            for ( std::size_t k = first; k < lines.size() && k <= i + options_.context; ++k )
                isShown[k] = true;
        }
        for ( std::size_t i = 0; i < lines.size(); ++i ) {
            if ( isShown[i] )
                text += fmt::format( "{}{}\n", lines[i].mark,
                                     Text::printable( lines[i].operation->text ) );
            else if ( i == 0 || isShown[i - 1] )
                text += " ...\n";
        }
        return text;
    }

    static std::string tableText( const EntryStep & step ) {
        std::string text =
            step.unit ? fmt::format( "unit {} {}", *step.unit, Text::printable( step.table ) )
                      : "an entry from before the recording";
        if ( !step.recipe.empty() )
            text += fmt::format( ", in {}", step.recipe );
        return text;
    }

    static std::string differenceJson( const StepDifference & difference ) {
        const EntryStep & step = difference.either();
        Json json{ { "unit", step.unit ? Json( *step.unit ) : Json() }, { "table", step.table } };
        if ( !step.recipe.empty() )
            json["recipe"] = step.recipe;
        json["change"] = !difference.before ? "added" : !difference.after ? "removed" : "changed";
        const auto sideJson = []( const EntryStep & side ) {
            Json operations = Json::array();
            for ( const EntryStep::Operation & operation : side.operations )
                operations.push_back(
                    { { "call", operation.number }, { "operation", operation.text } } );
            return operations;
        };
        if ( difference.before )
            json["before"] = sideJson( *difference.before );
        if ( difference.after )
            json["after"] = sideJson( *difference.after );
        return json.dump( -1, ' ', false, Json::error_handler_t::replace );
    }

    const DiffOptions & options_;
    const bool isJson_;
    Progress progress_{ "diff" };
    Reading before_;
    Reading after_;
    std::string text_;
    std::uint64_t count_ = 0;
};

} // namespace

int diff( const DiffOptions & options ) {
    const bool isOfRecordings = isRecording( options.before );
    if ( isRecording( options.after ) != isOfRecordings )
        throw InputError( fmt::format( "one of {} and {} is a recording, the other one a state",
                                       options.before, options.after ),
                          makeState );
    if ( !isOfRecordings )
        return diffStates( options );
    if ( !options.plan.empty() )
        throw InputError( "--plan is made of two states", makeState );
    return RecordingDifferences( options ).run();
}

} // namespace Tool
