#include "tools/diagnose/CrashScene.h"

#include "tools/model/Errors.h"
#include "tools/recording/EntrySteps.h"

#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <map>
#include <string_view>

namespace Tool {

namespace {

using Moment = TraceReader::Event::Moment;
using TraceReader::RecordedCall;
using TraceReader::SdkCall;
using Values = std::vector<std::pair<std::string, std::string>>;

// How much of a thread is kept: a run of a recipe is shorter.
constexpr std::size_t maxHistory = 4096;

// --- Arguments

// Parameters of a recipe, and what is known of them. What was bound first is the nearest to the stop.
class Binding {
  public:
    explicit Binding( const Recipe * recipe ) : recipe_( recipe ) {}

    void bind( std::string_view name, std::string value ) {
        if ( recipe_ == nullptr )
            return;
        for ( const Parameter & parameter : recipe_->parameters() ) {
            if ( parameter.name != name || bound_.contains( parameter.name ) )
                continue;
            if ( parameter.type == ArgumentType::boolean )
                value = value == "0" ? "false" : "true";
            bound_.emplace( parameter.name, std::move( value ) );
            return;
        }
    }

    void bind( const Values & values ) {
        for ( const auto & [name, value] : values )
            bind( name, value );
    }

    // What the expression of a call's text had for a value.
    void bindExpression( std::string_view expression, const std::string & value ) {
        constexpr std::string_view oneOrZero = " ? 1 : 0";
        if ( expression.ends_with( oneOrZero ) )
            expression.remove_suffix( oneOrZero.size() );
        bind( expression, value );
    }

    Values inOrder() const {
        Values all;
        if ( recipe_ == nullptr )
            return all;
        for ( const Parameter & parameter : recipe_->parameters() ) {
            if ( const auto found = bound_.find( parameter.name ); found != bound_.end() )
                all.emplace_back( found->first, found->second );
        }
        return all;
    }

  private:
    const Recipe * recipe_;
    std::map<std::string_view, std::string> bound_;
};

// What the arguments of one call of the source had for values.
void bindCall( Binding & binding, const Site & site, const RecordedCall & call ) {
    const auto arguments = argumentsOf( site.text );
    switch ( call.call ) {
    case SdkCall::entryAllocate:
        if ( call.unit && arguments.size() == 3 )
            binding.bindExpression( arguments[0], fmt::to_string( *call.unit ) );
        break;
    case SdkCall::entryFieldAdd:
        if ( call.values.size() == 1 && arguments.size() == 3 )
            binding.bindExpression( arguments[2], fmt::to_string( call.values[0] ) );
        break;
    case SdkCall::entryFieldSymbolAdd:
        if ( call.isWhole && arguments.size() == 3 )
            binding.bindExpression( arguments[2], call.symbol );
        break;
    default:
        break;
    }
}

// The calls that stand in the source of a recipe.
class RecipeCalls {
  public:
    RecipeCalls( const SiteTable & table, std::string_view recipe ) {
        for ( const Site & site : table.sites() ) {
            if ( site.recipe == recipe && site.isCall() )
                calls_.emplace_back( &site, table.patternOf( site ) );
        }
    }

    bool have( const RecordedCall & call ) const {
        return std::any_of( calls_.begin(), calls_.end(),
                            [&]( const auto & each ) { return each.second.fits( call ); } );
    }

    // The one that a recorded call is of; null if several could be, with other texts.
    const Site * find( const RecordedCall & call ) const {
        const Site * found = nullptr;
        for ( const auto & [site, pattern] : calls_ ) {
            if ( !pattern.fits( call ) )
                continue;
            if ( found != nullptr && found->text != site->text )
                return nullptr;
            found = site;
        }
        return found;
    }

    // The line of the first; 0 if there is none.
    int firstLine() const { return calls_.empty() ? 0 : calls_.front().first->line; }

  private:
    std::vector<std::pair<const Site *, CallPattern>> calls_;
};

// --- What a thread did

class ThreadReader {
  public:
    ThreadReader( const ThreadRecords & thread, const Diagnosis & diagnosis,
                  const SiteTable & table )
        : thread_( thread ), recipe_( diagnosis.function ), calls_( table, recipe_ ),
          binding_( diagnosis.recipe ) {}

    void take( const TraceReader::Event & event ) {
        if ( event.moment == Moment::message ) {
            if ( event.record.site != nullptr && event.record.site->function == recipe_ &&
                 isOfThread( event.record ) )
                takeMessage( event.record );
        } else if ( ( event.moment == Moment::after || event.moment == Moment::neverReturned ) &&
                    !TraceReader::isHook( event.call->call ) ) {
            takeCall( *event.call );
        }
    }

    void finish( CrashScene & scene ) {
        if ( !history_.empty() )
            scene.operation = history_.back();
        for ( const auto & [handle, entry] : entries_ ) {
            if ( entry.thread == thread_.thread )
                scene.openEntries.push_back(
                    fmt::format( "entry {} of {} on unit {}", handle, entry.table, entry.unit ) );
        }
        tellChanges( scene );
        scene.changes = changeCount_;
        scene.isOneRun = hasBegun_;
        for ( auto message = messages_.rbegin(); message != messages_.rend(); ++message )
            binding_.bind( *message );
        bindCalls();
        scene.arguments = binding_.inOrder();
    }

  private:
    struct Entry {
        std::uint32_t thread = 0;
        std::int32_t unit = 0;
        std::string table;
    };

    // A file of a whole process does not tell who wrote; if there is one thread, it is clear.
    bool isOfThread( const TraceReader::Record & message ) const {
        return message.thread == thread_.thread || ( message.thread == 0 && !hasOtherThreads_ );
    }

    // A message before the first call is the one with which each run begins.
    void takeMessage( const TraceReader::Record & message ) {
        if ( static_cast<int>( message.site->line ) < calls_.firstLine() ) {
            forgetRun();
            hasBegun_ = true;
        }
        if ( messages_.size() < maxHistory )
            messages_.push_back( valuesOf( message ) );
    }

    void forgetRun() {
        messages_.clear();
        history_.clear();
        changeCount_ = 0;
    }

    void takeCall( const RecordedCall & call ) {
        if ( call.call == SdkCall::entryAllocate && call.hasReturned() && call.rc >= 0 )
            entries_[call.handle] = {
                .thread = call.thread, .unit = call.unit.value_or( 0 ), .table = call.table };
        if ( call.thread == thread_.thread )
            takeOwnCall( call );
        else
            hasOtherThreads_ = true;
        if ( call.call == SdkCall::entryFree && call.hasReturned() && call.rc >= 0 )
            entries_.erase( call.handle );
    }

    void takeOwnCall( const RecordedCall & call ) {
        // What another recipe does ends the runs of this one, as far as no message tells.
        if ( !hasBegun_ && !calls_.have( call ) )
            forgetRun();
        if ( history_.size() == maxHistory ) { // its memory is used again
            history_.push_back( std::move( history_.front() ) );
            history_.pop_front();
            history_.back() = call;
        } else {
            history_.push_back( call );
        }
        if ( isChange( call ) )
            ++changeCount_;
    }

    // A commit that wrote a row, as far as its opcode tells.
    static bool isChange( const RecordedCall & call ) {
        return isCommit( call.call ) && call.hasReturned() && call.rc >= 0 &&
               call.opcode.name != "BCMLT_OPCODE_LOOKUP" &&
               call.opcode.name != "BCMLT_PT_OPCODE_GET";
    }

    // Each commit with the fields that its entry carried.
    void tellChanges( CrashScene & scene ) const {
        std::map<std::uint32_t, std::string> fields; // by handle
        std::deque<std::string> changes;
        for ( const RecordedCall & call : history_ ) {
            if ( call.call == SdkCall::entryAllocate )
                fields[call.handle].clear();
            else if ( isFieldAdd( call.call ) && call.rc >= 0 )
                fields[call.handle] += operationText( call ) + ", ";
            if ( !isChange( call ) )
                continue;
            changes.push_front( fmt::format( "unit {} {}: {}{} (call {})", call.unit.value_or( 0 ),
                                             call.table, fields[call.handle], operationText( call ),
                                             call.number ) );
            if ( changes.size() > CrashScene::maxChangedRows )
                changes.pop_back();
        }
        scene.changedRows.assign( changes.begin(), changes.end() );
    }

    // Those of this run for sure: since the message with which it began, or else of the last entry.
    void bindCalls() {
        for ( auto call = history_.rbegin(); call != history_.rend(); ++call ) {
            const bool isOfLastEntry = call->handle == history_.back().handle;
            if ( !hasBegun_ && !isOfLastEntry )
                return;
            if ( const Site * const site = calls_.find( *call ) )
                bindCall( binding_, *site, *call );
            if ( !hasBegun_ && call->call == SdkCall::entryAllocate )
                return;
        }
    }

    const ThreadRecords & thread_;
    const std::string recipe_;
    const RecipeCalls calls_;
    Binding binding_;
    bool hasOtherThreads_ = false;
    bool hasBegun_ = false;
    std::vector<Values> messages_;
    std::deque<RecordedCall> history_;
    std::map<std::uint32_t, Entry> entries_; ///< of all threads, by handle
    std::size_t changeCount_ = 0;
};

} // namespace

CrashScene::Verdict CrashScene::verdict() const {
    if ( !trial || !operation )
        return Verdict::untried;
    if ( operation->rc < 0 )
        return trial->rc < 0 ? Verdict::refuses : Verdict::accepts;
    const bool isInvalid = operation->call == SdkCall::entryAllocate && operation->handle == 0;
    const bool isOther = trial->value && *trial->value != operation->value;
    return trial->rc < 0 || isInvalid || isOther ? Verdict::disagrees : Verdict::agrees;
}

std::string trialText( const CrashScene & scene ) {
    constexpr std::string_view cause = "the cause is the device's or the SDK's";
    const auto & trial = scene.trial;
    std::string text;
    switch ( scene.verdict() ) {
    case CrashScene::Verdict::untried:
        return scene.problem.empty()
                   ? "It could not be tried: the recording does not have the whole of its entry."
                   : "The chip could not be rebuilt: " + scene.problem;
    case CrashScene::Verdict::refuses:
        text = fmt::format( "The simulated chip in the same state refuses it, too: {} ({}).",
                            trial->chipSays, trial->rc );
        break;
    case CrashScene::Verdict::accepts:
        text = fmt::format( "The simulated chip in the same state accepts it: {}.", cause );
        break;
    case CrashScene::Verdict::agrees:
        text = "The simulated chip in the same state does the same.";
        break;
    case CrashScene::Verdict::disagrees:
        text = trial->rc < 0 ? fmt::format( "The simulated chip in the same state refuses it, "
                                            "where it succeeded: {} ({}).",
                                            trial->chipSays, trial->rc )
               : trial->value
                   ? fmt::format( "The simulated chip in the same state holds {}, where {} was "
                                  "read: {}, or what writes beside this process.",
                                  *trial->value, scene.operation->value, cause )
                   : fmt::format( "The simulated chip gives a valid handle: {}.", cause );
        break;
    }
    if ( scene.hasLostBeginning )
        text += " The recording has lost its beginning: rows may hold what is not known.";
    if ( scene.counts.divergences != 0 )
        text += fmt::format( " {} of {} operations did something else than recorded.",
                             scene.counts.divergences, scene.counts.operations );
    return text;
}

CrashScene sceneOf( const ThreadRecords & thread, const Diagnosis & diagnosis ) {
    Binding binding( diagnosis.recipe );
    for ( const ThreadRecords::Line & line : thread.lines ) {
        if ( line.function == diagnosis.function )
            binding.bind( line.values );
        else
            break;
    }
    return { .arguments = binding.inOrder() };
}

CrashScene rebuild( const TraceSource & source, const ThreadRecords & thread,
                    const Diagnosis & diagnosis, const SiteTable & table, Sim::Chip & chip ) {
    CrashScene scene;
    TraceReader::Recording recording( source( thread.process ), { .wantsMessages = true } );
    ThreadReader reader( thread, diagnosis, table );
    Replay replay(
        chip,
        { .hasLostBeginning = [&] { return recording.hasLostBeginning(); }, .ignoresCodes = true },
        "the recording", []( const Divergence & ) {} );
    const RecordedCall & last = *thread.lastCall;
    replay.watch( [&]( const Judgement & judgement ) {
        const RecordedCall & call = judgement.call;
        if ( call.thread != last.thread || call.after.counter != last.after.counter ||
             call.after.offset != last.after.offset )
            return;
        scene.trial = { .rc = judgement.rc,
                        .value = judgement.value,
                        .chipSays = judgement.rc < 0 ? chip.lastError() : std::string() };
    } );
    TraceReader::Event event;
    while ( recording.next( event ) ) {
        reader.take( event );
        if ( !scene.problem.empty() )
            continue;
        try {
            replay.take( event );
        } catch ( const InputError & error ) {
            scene.problem = error.what();
        }
    }
    reader.finish( scene );
    if ( scene.operation ) { // the files of this recording are closed soon, those of the first stay
        scene.operation->before.file = last.before.file;
        scene.operation->after.file = last.after.file;
    }
    scene.hasLostBeginning = recording.hasLostBeginning();
    scene.counts = replay.counts();
    return scene;
}

} // namespace Tool
