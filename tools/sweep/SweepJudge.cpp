#include "tools/sweep/SweepJudge.h"

#include "sim/Chip.h"
#include "text/Escape.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <regex>
#include <string_view>

namespace Tool {

namespace {

using Interpose::SdkCall;

constexpr std::string_view sourceFile = "Cairn/CairnLtHelper";
constexpr std::string_view checkText = "rc";

bool contains( std::string_view text, std::string_view part ) {
    return text.find( part ) != std::string_view::npos;
}

std::string quoted( std::string_view text ) { return fmt::format( "\"{}\"", text ); }

std::string errorText( int rc ) { return Sim::Chip().errmsg( rc ); }

/// What is handed over, without what came back.
std::string inWords( const ObservedCall & call ) {
    if ( call.isCheck() )
        return "the check of rc";
    Interpose::Event operation = call.operation;
    operation.returned = false;
    return Interpose::toText( operation );
}

CallKind kindOf( const Recipe & recipe, const ObservedCall & call ) {
    return call.isCheck() ? CallKind::guarded : kindOf( recipe, call.operation );
}

// --- Expectations

/// The number that follows `before` at the front of a text; 0 if there is none.
int numberBehind( std::string_view before, std::string_view text ) {
    int number = 0;
    if ( text.starts_with( before ) )
        std::from_chars( text.data() + before.size(), text.data() + text.size(), number );
    return number;
}

/// A call of a run. One that stopped it left no trace line: its report has the text and the line,
/// "FILE:LINE TEXT API ERROR:...".
ObservedCall callOf( const SweepRun & run, std::size_t index ) {
    ObservedCall call = run.calls[index];
    if ( !call.text.empty() || index + 1 != run.calls.size() )
        return call;
    const std::string_view report =
        std::string_view( run.standardError ).substr( 0, run.standardError.find( '\n' ) );
    const std::size_t begin = report.find( ' ' ) + 1;
    const std::size_t end = report.find( " API ERROR:" );
    const int line = numberBehind( fmt::format( "{}:", sourceFile ), report );
    if ( line != 0 && end != std::string_view::npos ) {
        call.text = report.substr( begin, end - begin );
        call.line = line;
    }
    return call;
}

/// Whether a lookup answers the opposite of what the chip says.
bool answersOpposite( const ObservedCall & call, SweepFault::Kind kind ) {
    return ( call.operation.rc < 0 ) != ( codeOf( kind ) < 0 );
}

/// Follows an undisturbed run, call by call, and says what each call must lead to.
class Prediction {
  public:
    explicit Prediction( const SweptCase & swept ) : recipe_( *swept.recipe ), path_( &swept ) {
        const Recipe & output = outputOf( recipe_ );
        expected_.function = output.name;
        expected_.signature = signatureOf( output );
        expected_.tables = swept.undisturbed.tablesBefore;
        expected_.model = &swept.model;
    }

    SweepExpectation follow( const std::optional<SweepFault> & fault ) {
        for ( ; !isOver_; ++place_ ) {
            addMessages();
            if ( place_ == run().calls.size() )
                endAsPlanned();
            else if ( fault && fault->call == place_ )
                strike( fault->kind );
            else
                goOn();
        }
        return std::move( expected_ );
    }

  private:
    /// What the struck call left behind.
    enum class After : std::uint8_t { nothing, invalidHandle, oppositeAnswer };

    const SweepRun & run() const { return path_->undisturbed; }

    /// The messages of the run that come at this place, unless the last call told its own.
    void addMessages() {
        static const std::regex handle( " entry handle: [0-9]*" );
        static const std::string invalid =
            fmt::format( " entry handle: {}", Sim::Chip().BCMLT_INVALID_HDL() );
        for ( const SweepMessage & message : run().messages ) {
            if ( message.afterCalls == place_ && !toldOwnMessage_ )
                expected_.messages.push_back(
                    after_ == After::invalidHandle
                        ? std::regex_replace( message.text, handle, invalid )
                        : message.text );
        }
    }

    /// A call that is not struck.
    void goOn() {
        ObservedCall call = callOf( run(), place_ );
        int rc = call.isCheck() ? lastRc_ : call.operation.rc;
        if ( !call.isCheck() && after_ == After::invalidHandle ) {
            call.operation.handle = 0;
            call.operation.unit = -1;
            call.operation.table.clear();
            rc = toInt( Sim::Rc::unknownHandle );
        } else if ( after_ == After::oppositeAnswer )
            rc = rcAfterOpposite( call, rc );
        addCall( std::move( call ), rc, rc >= 0 );
    }

    /// What the chip answers after a lookup whose code was the opposite of the truth.
    static int rcAfterOpposite( const ObservedCall & call, int rc ) {
        if ( call.is( SdkCall::entryFieldGet ) )
            return toInt( Sim::Rc::fieldNotCarried );
        if ( !call.is( SdkCall::entryCommit ) )
            return rc;
        return toInt( call.operation.opcode.constant == SdkCall::opcodeInsert
                          ? Sim::Rc::entryExists
                          : Sim::Rc::entryNotFound );
    }

    void strike( SweepFault::Kind fault ) {
        const ObservedCall call = callOf( run(), place_ );
        const CallKind kind = kindOf( recipe_, call );
        const int rc = codeOf( fault );
        const bool isInvalid = fault == SweepFault::Kind::invalidHandle;
        expected_.struck = place_;
        addCall( call, rc, rc >= 0 && call.operation.rc >= 0 && !isInvalid );
        if ( isInvalid ) {
            after_ = After::invalidHandle;
            if ( assertsHandle( recipe_ ) )
                stopByAssertion( "ent_hdl != BCMLT_INVALID_HDL" );
        } else if ( kind == CallKind::lookup && answersOpposite( call, fault ) ) {
            after_ = After::oppositeAnswer;
            path_ = path_->fallback;
        } else if ( kind == CallKind::skipsTable && rc != 0 ) {
            const auto & calls = run().calls;
            while ( place_ + 1 < calls.size() && !calls[place_ + 1].is( SdkCall::entryAllocate ) )
                ++place_;
        }
    }

    /// A call that returns `rc`; `reaches` says whether the chip does what it says.
    void addCall( ObservedCall call, int rc, bool reaches ) {
        const CallKind kind = kindOf( recipe_, call );
        const bool stops = kind == CallKind::guarded && rc < 0;
        if ( reaches )
            takeEffect( call );
        if ( !call.isCheck() )
            call.operation.rc = rc;
        call.hook = call.hookLocked = kind == CallKind::guarded;
        call.operationLocked = !call.isCheck() && keepsLock( recipe_ );
        call.ending = stops                       ? ""
                      : kind == CallKind::ignored ? std::string( ObservedCall::ignoredEnding )
                                                  : fmt::format( " (rc:{})", rc );
        expected_.calls.push_back( call );
        lastRc_ = rc;
        toldOwnMessage_ = kind == CallKind::tolerated;

        if ( stops )
            end( { SweepEnding::Kind::report, call.text, rc, call.line } );
        else if ( kind == CallKind::mustMiss && rc >= 0 )
            stopByAssertion( "rc < 0" );
        else if ( kind == CallKind::tolerated && rc < 0 )
            tell( "{} svp entry insertion errored out rc: {}", expected_.signature, rc );
        else if ( kind == CallKind::endsRecipe && rc != 0 ) {
            tell( "{} skipping register {}", expected_.function, allocates() - 1 );
            end( {} );
        }
    }

    template <class... Values>
    void tell( fmt::format_string<const Values &...> format, const Values &... values ) {
        expected_.messages.push_back( fmt::format( format, values... ) );
    }

    void takeEffect( const ObservedCall & call ) {
        std::vector<std::string> & live = expected_.liveEntries;
        const TableId table = tableOf( call.operation );
        if ( call.is( SdkCall::entryAllocate ) )
            live.push_back( table.table );
        if ( call.is( SdkCall::entryFree ) ) {
            const auto entry = std::find( live.begin(), live.end(), table.table );
            if ( entry != live.end() )
                live.erase( entry );
        }
        const auto write = run().writes.find( place_ );
        if ( write != run().writes.end() )
            expected_.tables[table] = write->second;
    }

    long allocates() const {
        return std::count_if( expected_.calls.begin(), expected_.calls.end(),
                              []( const auto & c ) { return c.is( SdkCall::entryAllocate ); } );
    }

    void endAsPlanned() {
        if ( path_->plan->stopsBy.empty() )
            end( { .text = std::string( path_->plan->returns ) } );
        else
            stopByAssertion( path_->plan->stopsBy );
    }

    void stopByAssertion( std::string_view expression ) {
        const auto & calls = run().calls;
        end( { .kind = SweepEnding::Kind::assertion,
               .text = std::string( expression ),
               .line = expected_.calls.empty() ? 0 : expected_.calls.back().line,
               .before = place_ + 1 < calls.size() ? calls[place_ + 1].line : 0 } );
    }

    void end( SweepEnding ending ) {
        expected_.ending = std::move( ending );
        isOver_ = true;
    }

    const Recipe & recipe_;
    const SweptCase * path_;
    std::size_t place_ = 0; // of the next call in that run
    After after_ = After::nothing;
    int lastRc_ = 0;
    bool toldOwnMessage_ = false;
    bool isOver_ = false;
    SweepExpectation expected_;
};

// --- Differences

/// Writes down where a run is not as expected.
class Comparison {
  public:
    Comparison( const SweepExpectation & expected, const SweepRun & run )
        : expected_( expected ), run_( run ) {}

    std::vector<std::string> differences() {
        if ( !run_.complete )
            add( "the process did not get to say what happened" );
        compareEnding();
        if ( !run_.complete )
            return std::move( all_ );
        compareCalls();
        for ( const std::string & function : run_.functions )
            compare( "function in a trace line", function, expected_.function );
        std::vector<std::string> messages;
        for ( const SweepMessage & message : run_.messages )
            messages.push_back( message.text );
        compare( "messages", messages, expected_.messages );
        compare( "live entries", run_.liveEntries, expected_.liveEntries );
        compareTables();
        return std::move( all_ );
    }

  private:
    template <class T>
    void compare( const std::string & what, const T & seen, const T & expected ) {
        if ( seen != expected )
            add( fmt::format( "{}: {}, expected {}", what, word( seen ), word( expected ) ) );
    }

    void add( std::string difference ) { all_.push_back( std::move( difference ) ); }

    static std::string word( bool value ) { return value ? "yes" : "no"; }
    static std::string word( const std::string & value ) {
        return value.empty() ? "nothing" : quoted( Text::printable( value ) );
    }
    template <class Number>
    static std::string word( const Number & value ) {
        return fmt::to_string( value );
    }
    template <class T>
    static std::string word( const std::vector<T> & values ) {
        std::string text;
        for ( const T & value : values )
            text += ( text.empty() ? "" : ", " ) + word( value );
        return text.empty() ? "none" : text;
    }

    void compareEnding() {
        const SweepEnding & ending = expected_.ending;
        const bool returns = ending.kind == SweepEnding::Kind::returns;
        const bool reports = ending.kind == SweepEnding::Kind::report;
        compare( "signal", run_.signal, returns ? 0 : SIGABRT );
        compare( "the recipe returned", run_.returned, returns );
        if ( returns ) {
            compare( "exit code", run_.exitCode, 0 );
            compare( "result", run_.result, ending.text );
        }
        compareStandardError();
        compare( "failure hooks", run_.failureHooks, std::size_t( reports ? 1 : 0 ) );
        compare( "error texts asked", run_.errorTexts,
                 reports ? std::vector{ ending.rc } : std::vector<int>() );
        if ( reports && run_.failureHooks == 1 ) {
            compare( "lock held in the failure hook", run_.failureHookLocked, true );
            compare( "reported before the failure hook", run_.reportedBeforeHook, true );
        }
    }

    void compareStandardError() {
        const SweepEnding & ending = expected_.ending;
        const std::string before =
            fmt::format( "{}: {}:", ::program_invocation_short_name, sourceFile );
        std::string text;
        std::string line = fmt::to_string( ending.line );
        std::string_view failed = "0";
        if ( ending.kind == SweepEnding::Kind::report )
            text = fmt::format( "{}:{} {} API ERROR:{} ({})\n", sourceFile, line, ending.text,
                                errorText( ending.rc ), ending.rc );
        if ( ending.kind == SweepEnding::Kind::assertion ) {
            failed = ending.text;
            // All that is known of its line is that it lies between two calls.
            const int seen = numberBehind( before, run_.standardError );
            line = seen == 0 ? "LINE" : fmt::to_string( seen );
            if ( seen != 0 &&
                 ( seen <= ending.line || ( ending.before != 0 && seen >= ending.before ) ) )
                add( fmt::format(
                    "the assertion stands in line {}, expected behind {}{}", seen, ending.line,
                    ending.before == 0 ? "" : fmt::format( " and before {}", ending.before ) ) );
        }
        if ( ending.kind != SweepEnding::Kind::returns )
            text += fmt::format( "{}{}: {}: Assertion `{}' failed.\n", before, line,
                                 expected_.signature, failed );
        compare( "standard error", run_.standardError, text );
    }

    void compareCalls() {
        const auto & calls = expected_.calls;
        const std::size_t common = std::min( run_.calls.size(), calls.size() );
        for ( std::size_t i = 0; i < common; ++i )
            compareCall( fmt::format( "call {}", i + 1 ), run_.calls[i], calls[i] );
        if ( run_.calls.size() > common )
            add( fmt::format( "{} calls too many, the first is {}", run_.calls.size() - common,
                              inWords( run_.calls[common] ) ) );
        if ( calls.size() > common )
            add( fmt::format( "{} calls are missing, the first is {}", calls.size() - common,
                              inWords( calls[common] ) ) );
        const auto hooks = std::count_if( calls.begin(), calls.end(),
                                          []( const auto & call ) { return call.hook; } );
        compare( "pre-call hooks", run_.preCallHooks, static_cast<std::size_t>( hooks ) );
    }

    void compareCall( const std::string & where, const ObservedCall & seen,
                      const ObservedCall & expected ) {
        if ( inWords( seen ) != inWords( expected ) )
            return compare( where, inWords( seen ), inWords( expected ) );
        compare( where + ": return code", seen.operation.rc, expected.operation.rc );
        compare( where + ": pre-call hook", seen.hook, expected.hook );
        if ( seen.hook && expected.hook )
            compare( where + ": lock held in the pre-call hook", seen.hookLocked,
                     expected.hookLocked );
        compare( where + ": lock held", seen.operationLocked, expected.operationLocked );
        compare( where + ": end of the trace line", seen.ending, expected.ending );
        if ( seen.ending.empty() || expected.ending.empty() )
            return;
        compare( where + ": text in the trace line", seen.text, expected.text );
        compare( where + ": line in the trace line", seen.line, expected.line );
    }

    void compareTables() {
        SweepTables all = run_.tables;
        all.insert( expected_.tables.begin(), expected_.tables.end() );
        for ( const auto & each : all ) {
            const TableId & id = each.first;
            const TableRows & seen = rowsIn( run_.tables, id );
            const TableRows & expected = rowsIn( expected_.tables, id );
            const auto [one, other] =
                std::mismatch( seen.begin(), seen.end(), expected.begin(), expected.end() );
            const auto rowText = [&]( const TableRows & rows, TableRows::const_iterator row ) {
                return row == rows.end() ? std::string()
                                         : toText( *findTable( *expected_.model, id ), *row );
            };
            compare( toText( id ) + ": row", rowText( seen, one ), rowText( expected, other ) );
        }
    }

    const SweepExpectation & expected_;
    const SweepRun & run_;
    std::vector<std::string> all_;
};

// --- Undisturbed runs, and faults

/// Whether the text of a call says what the call does.
bool textFits( const ObservedCall & call ) {
    if ( call.isCheck() )
        return call.text == checkText;
    const Interpose::Event & operation = call.operation;
    if ( !call.text.starts_with( fmt::format( "{}( ", Interpose::name( operation.call ) ) ) ||
         !call.text.ends_with( " )" ) )
        return false;
    if ( operation.opcode.constant )
        return call.text.ends_with(
            fmt::format( ", {}, BCMLT_PRIORITY_NORMAL )", toText( operation.opcode ) ) );
    return operation.field.empty() || contains( call.text, quoted( operation.field ) ) ||
           contains( call.text, fmt::format( " {}s,", operation.field ) );
}

bool occurs( const SweepRun & run, std::string_view part ) {
    return std::any_of( run.calls.begin(), run.calls.end(),
                        [&]( const auto & call ) { return contains( call.text, part ); } ) ||
           std::any_of( run.messages.begin(), run.messages.end(),
                        [&]( const auto & message ) { return contains( message.text, part ); } );
}

struct FaultKind {
    std::string_view name;
    std::string_view text;
    int code;
};

/// In the order of the kinds.
constexpr FaultKind faultKinds[] = { { "fails", "returns -1", -1 },
                                     { "positive", "returns 1", 1 },
                                     { "succeeds", "returns 0", 0 },
                                     { "invalid-handle", "leaves the handle invalid", 0 } };

const FaultKind & infoOf( SweepFault::Kind kind ) {
    return faultKinds[static_cast<std::size_t>( kind )];
}

/// Whether it is known what a fault must lead to.
bool isPossible( const SweptCase & swept, const SweepFault & fault ) {
    const ObservedCall & call = swept.undisturbed.calls[fault.call];
    if ( call.isCheck() )
        return false;
    const CallKind kind = kindOf( *swept.recipe, call );
    if ( kind == CallKind::lookup && answersOpposite( call, fault.kind ) &&
         ( swept.fallback == nullptr || fault.call >= swept.fallback->undisturbed.calls.size() ) )
        return false;
    const bool allocates = call.is( SdkCall::entryAllocate );
    const bool isRefused = call.operation.rc < 0;
    const bool maySucceed =
        !isRefused || ( kind != CallKind::guarded && kind != CallKind::checkedNext );
    switch ( fault.kind ) {
    case SweepFault::Kind::fails:
        return true;
    case SweepFault::Kind::positive:
        return maySucceed;
    case SweepFault::Kind::succeeds:
        return isRefused && maySucceed && !allocates;
    case SweepFault::Kind::invalidHandle:
        return !isRefused && allocates;
    }
    return false;
}

} // namespace

int codeOf( SweepFault::Kind kind ) { return infoOf( kind ).code; }
std::string toText( SweepFault::Kind kind ) { return std::string( infoOf( kind ).text ); }
std::string_view name( SweepFault::Kind kind ) { return infoOf( kind ).name; }

std::string toText( const SweepExpectation & expectation ) {
    const SweepEnding & ending = expectation.ending;
    switch ( ending.kind ) {
    case SweepEnding::Kind::returns:
        return ending.text.empty() ? "returns" : fmt::format( "returns {}", ending.text );
    case SweepEnding::Kind::assertion:
        return fmt::format( "stops by the assertion \"{}\"", ending.text );
    case SweepEnding::Kind::report:
        break;
    }
    if ( !expectation.struck || *expectation.struck + 1 == expectation.calls.size() )
        return "is reported and stops";
    return fmt::format( "goes on to {}, which is reported and stops", ending.text );
}

const ObservedCall * refusedCall( const SweptCase & swept ) {
    const auto & calls = swept.undisturbed.calls;
    if ( calls.empty() )
        return nullptr;
    const ObservedCall * last = &calls.back();
    if ( last->isCheck() && calls.size() > 1 )
        --last; // the call that it checks
    else if ( kindOf( *swept.recipe, *last ) != CallKind::guarded )
        return nullptr;
    return last->operation.rc < 0 ? last : nullptr;
}

SweepExpectation expectUndisturbed( const SweptCase & swept ) {
    return Prediction( swept ).follow( {} );
}

std::vector<std::string> judgeUndisturbed( const SweptCase & swept ) {
    const SweepRun & run = swept.undisturbed;
    std::vector<std::string> differences = judge( expectUndisturbed( swept ), run );
    for ( std::size_t i = 0; i < run.calls.size(); ++i ) {
        const ObservedCall call = callOf( run, i );
        if ( !textFits( call ) )
            differences.push_back( fmt::format( "call {}: the text \"{}\" does not say {}", i + 1,
                                                call.text, inWords( call ) ) );
    }
    if ( !swept.isReference )
        return differences;
    if ( const ObservedCall * refused = refusedCall( swept ) )
        differences.push_back( fmt::format( "the reference chip refuses {}: {}",
                                            inWords( *refused ),
                                            errorText( refused->operation.rc ) ) );
    for ( const std::string_view part : swept.plan->with ) {
        if ( !occurs( run, part ) )
            differences.push_back( fmt::format( "no call and no message has \"{}\"", part ) );
    }
    for ( const std::string_view part : swept.plan->without ) {
        if ( occurs( run, part ) )
            differences.push_back( fmt::format( "a call or a message has \"{}\"", part ) );
    }
    return differences;
}

std::vector<SweepFault> faultsOf( const SweptCase & swept ) {
    std::vector<SweepFault> faults;
    for ( std::size_t i = 0; i < swept.undisturbed.calls.size(); ++i ) {
        for ( const SweepFault::Kind kind :
              { SweepFault::Kind::fails, SweepFault::Kind::positive, SweepFault::Kind::succeeds,
                SweepFault::Kind::invalidHandle } ) {
            if ( isPossible( swept, { kind, i } ) )
                faults.push_back( { kind, i } );
        }
    }
    return faults;
}

SweepExpectation expectFault( const SweptCase & swept, const SweepFault & fault ) {
    SweepExpectation expected = Prediction( swept ).follow( fault );
    const ObservedCall & struck = swept.undisturbed.calls[fault.call];
    if ( kindOf( *swept.recipe, struck ) == CallKind::ignored && codeOf( fault.kind ) < 0 )
        dropField( expected.tables, swept.undisturbed.tablesBefore, swept.model, struck.operation );
    return expected;
}

std::vector<std::string> judge( const SweepExpectation & expectation, const SweepRun & run ) {
    return Comparison( expectation, run ).differences();
}

} // namespace Tool
