#include "tools/recording/Replay.h"

#include "text/Escape.h"
#include "text/Numbers.h"
#include "text/Time.h"
#include "tools/cli/Progress.h"
#include "tools/cli/RecordingInput.h"
#include "tools/cli/Tables.h"
#include "tools/cli/Verbs.h"
#include "tools/model/Errors.h"
#include "tools/model/Files.h"
#include "tools/model/StateFile.h"
#include "tools/recording/OpenRecording.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <vector>

namespace Tool {

namespace {

using Json = nlohmann::ordered_json;

// However many operations diverge, so many are shown.
constexpr std::size_t maxShown = 1000;

// Where a replay ends.
struct Until {
    std::uint64_t number = std::numeric_limits<std::uint64_t>::max();
    std::int64_t time = std::numeric_limits<std::int64_t>::max();

    bool isBeyond( const TraceReader::Event & event ) const {
        if ( event.call == nullptr )
            return false;
        const TraceReader::Stamp & stamp =
            event.call->hasReturned() ? event.call->after : event.call->before;
        return event.call->number > number || stamp.time > time;
    }
};

Until untilOf( const std::string & text ) {
    Until until;
    if ( text.empty() )
        return until;
    if ( std::uint64_t number = 0; Text::parseNumber( text, number ) )
        until.number = number;
    else if ( const auto time = Text::parseUtc( text ) )
        until.time = *time;
    else
        throw InputError( "--until: \"" + text +
                              "\" is neither the number of a call nor a time in UTC",
                          "write it as in 2026-03-01T07:30:00.25" );
    return until;
}

std::string callText( const TraceReader::RecordedCall & call ) {
    std::string text;
    TraceReader::appendText( text, call );
    return text;
}

std::string headText( const TraceReader::RecordedCall & call ) {
    return fmt::format( "call {}, {}, thread {}", call.number, Text::utc( call.before.time ),
                        call.thread );
}

class ReplayVerb {
  public:
    explicit ReplayVerb( const ReplayOptions & options )
        : options_( options ), until_( untilOf( options.until ) ) {}

    int run() {
        setUpChips();
        recording_ = openRecording( options_.recording, options_.process );
        for ( const std::string & what : options_.ignore ) {
            if ( what == "codes" )
                rules_.ignoresCodes = true;
            else if ( what == "values" )
                rules_.ignoresValues = true;
            else
                throw InputError( "--ignore: there is no \"" + what + "\" to ignore",
                                  "write codes or values" );
        }
        rules_.hasLostBeginning = [this] { return recording_->hasLostBeginning(); };
        replay_ = std::make_unique<Replay>(
            chip_, rules_, Text::printable( options_.recording ),
            [this]( const Divergence & divergence ) { show( divergence ); } );
        perform();
        if ( stateFile_ )
            stateFile_->save( chip_ );
        const bool isDamaged = tellLosses( *recording_ );
        tellUnknown();
        print( options_.format == Format::json ? json() : text() );
        return replay_->counts().divergences != 0 || isDamaged ? 1 : 0;
    }

  private:
    void perform() {
        Progress progress( "replay" );
        TraceReader::Event event;
        while ( ( replay_->counts().divergences == 0 || options_.keepGoing ) &&
                recording_->next( event ) && !until_.isBeyond( event ) ) {
            replay_->take( event );
            progress.tell( event );
        }
    }

    void setUpChips() {
        const std::string & start = options_.from.empty() ? options_.state : options_.from;
        ChipOptions chips = options_.chips;
        chips.state = start;
        addUnits( chip_, modelOf( chips ) );
        if ( !options_.state.empty() )
            stateFile_.emplace( options_.state, [this] {
                complain(
                    fmt::format( "waiting for {}, which another process uses", options_.state ) );
            } );
        if ( start.empty() )
            return;
        const auto kept =
            options_.from.empty() ? stateFile_->load() : parseState( readFile( start ), start );
        restoreDescribed( chip_, kept, start );
    }

    void show( const Divergence & divergence ) {
        if ( shown_ == maxShown )
            return;
        if ( options_.format == Format::json )
            showJson( divergence );
        else
            showText( divergence );
        ++shown_;
    }

    void showText( const Divergence & divergence ) {
        const TraceReader::RecordedCall & call = divergence.call;
        divergences_ += fmt::format(
            "{}{}{}\n  {}\n", shown_ == 0 ? "first divergence: " : "", headText( call ),
            divergence.recipe.empty() ? "" : fmt::format( ", in {}", divergence.recipe ),
            callText( call ) );
        if ( call.rc >= 0 && divergence.value )
            divergences_ += fmt::format( "  recorded: rc {}, value {}\n", call.rc,
                                         Text::numberBothWays( call.value ) );
        else
            divergences_ += fmt::format( "  recorded: rc {}\n", call.rc );
        divergences_ += fmt::format( "  replayed: rc {}", divergence.rc );
        if ( divergence.value )
            divergences_ += ", value " + Text::numberBothWays( *divergence.value );
        if ( !divergence.chipSays.empty() )
            divergences_ += ": " + divergence.chipSays;
        divergences_ += "\n";
        if ( shown_ != 0 )
            return;
        for ( const TraceReader::RecordedCall * before : replay_->latest() )
            divergences_ += fmt::format( "{}  {}  {}\n",
                                         before == replay_->latest().front() ? "before it:\n" : "",
                                         before->number, callText( *before ) );
    }

    static Json callJson( const TraceReader::RecordedCall & call ) {
        std::string text = "{";
        TraceReader::appendJson( text, call );
        return Json::parse( text + "}", nullptr, false );
    }

    void showJson( const Divergence & divergence ) {
        const TraceReader::RecordedCall & call = divergence.call;
        Json json{ { "time", Text::utc( call.before.time ) },
                   { "thread", call.thread },
                   { "recorded", callJson( call ) } };
        if ( !divergence.recipe.empty() )
            json["recipe"] = divergence.recipe;
        json["rc"] = divergence.rc;
        if ( divergence.value )
            json["value"] = *divergence.value;
        if ( !divergence.chipSays.empty() )
            json["reason"] = divergence.chipSays;
        if ( shown_ == 0 ) {
            json["before"] = Json::array();
            for ( const TraceReader::RecordedCall * before : replay_->latest() )
                json["before"].push_back( callJson( *before ) );
        }
        list_.push_back( std::move( json ) );
    }

    // What the replay cannot know.
    void tellUnknown() const {
        const ReplayCounts & counts = replay_->counts();
        const auto tell = [&]( std::uint64_t count, const std::string & what ) {
            if ( count != 0 )
                complain( fmt::format( "{}: {} {}{}", options_.recording, count,
                                       count == 1 ? "operation" : "operations", what ) );
        };
        if ( recording_->hasLostBeginning() )
            complain( options_.recording +
                      ": the beginning is lost; what the chip held then is not known" +
                      ( options_.from.empty() ? ", unless --from tells" : "" ) );
        tell(
            counts.failuresFromOutside,
            " of a guarded call failed for a reason that is none of the chip's; it fails as it was "
            "recorded" );
        tell( counts.withoutInputs, " left out: not recorded as a whole" );
        tell( counts.ofOlderEntries,
              " left out: on entries that were allocated before the recording begins" );
        tell( counts.ofLostEntries, " left out: on entries that the chip did not give" );
        tell( counts.onUnknownRows,
              " not compared: on rows that nobody has written since the recording begins" );
        tell( counts.neverReturned, " never returned; whether it took effect is not known, and it "
                                    "is left out" );
    }

    std::string text() const {
        const ReplayCounts & counts = replay_->counts();
        std::string text = divergences_;
        if ( counts.divergences > shown_ )
            text += fmt::format( "{} more are not shown\n", counts.divergences - shown_ );
        text +=
            fmt::format( "{} operations replayed, {}\n", counts.operations,
                         counts.divergences == 0 ? "all as recorded"
                         : !options_.keepGoing   ? "the last one diverges"
                                               : fmt::format( "{} diverge", counts.divergences ) );
        if ( options_.dump )
            text += options_.dump == Format::json ? documentText( tablesJson( chip_, {} ) )
                                                  : tablesText( chip_, {} );
        return text;
    }

    std::string json() const {
        const ReplayCounts & counts = replay_->counts();
        Json json{ { "recording", options_.recording },
                   { "operations", counts.operations },
                   { "divergences", counts.divergences },
                   { "shown", list_ },
                   { "failures_from_outside", counts.failuresFromOutside },
                   { "lost_beginning", recording_->hasLostBeginning() },
                   { "left_out",
                     { { "not_whole", counts.withoutInputs },
                       { "older_entries", counts.ofOlderEntries },
                       { "lost_entries", counts.ofLostEntries },
                       { "never_returned", counts.neverReturned } } },
                   { "not_compared", counts.onUnknownRows } };
        if ( options_.dump )
            json["tables"] = tablesJson( chip_, {} );
        return documentText( json );
    }

    const ReplayOptions & options_;
    const Until until_;
    ReplayRules rules_;
    Sim::Chip chip_;
    std::optional<StateFile> stateFile_;
    std::unique_ptr<TraceReader::Recording> recording_;
    std::unique_ptr<Replay> replay_;
    std::string divergences_;
    Json list_ = Json::array();
    std::size_t shown_ = 0;
};

} // namespace

int replay( const ReplayOptions & options ) { return ReplayVerb( options ).run(); }

} // namespace Tool
