#include "tools/sweep/SweepJudge.h"

#include "sim/Chip.h"
#include "text/Escape.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <iterator>
#include <string_view>

namespace Tool {

namespace {

constexpr std::string_view sourceFile = "Cairn/CairnLtHelper";
constexpr std::string_view checkText = "rc";

bool contains( std::string_view text, std::string_view part ) {
    return text.find( part ) != std::string_view::npos;
}

std::string rcEnding( int rc ) { return fmt::format( " (rc:{})", rc ); }

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

TableId tableOf( const ObservedCall & call ) {
    return { call.operation.unit, call.operation.table };
}

// --- A report as it was written

/// Takes a number off the front of a text; 0 if there is none.
int takeNumber( std::string_view & text ) {
    int number = 0;
    const char * const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars( text.data(), end, number );
    text.remove_prefix( static_cast<std::size_t>( rest - text.data() ) );
    return error == std::errc() ? number : 0;
}

struct Report {
    int line = 0;
    std::string_view text;
};

/// "FILE:LINE TEXT API ERROR:..." in the first line; nothing if that is not what stands there.
std::optional<Report> parseReport( std::string_view standardError ) {
    std::string_view rest = standardError.substr( 0, standardError.find( " API ERROR:" ) );
    if ( rest.size() == standardError.size() || contains( rest, "\n" ) ||
         !rest.starts_with( sourceFile ) )
        return {};
    rest.remove_prefix( sourceFile.size() );
    if ( !rest.starts_with( ':' ) )
        return {};
    rest.remove_prefix( 1 );
    const int line = takeNumber( rest );
    if ( line == 0 || !rest.starts_with( ' ' ) )
        return {};
    return Report{ line, rest.substr( 1 ) };
}

// --- Expectations

/// A call of an undisturbed run, to be expected again.
struct Pattern {
    ObservedCall call;
    /// The rows of its table, if it changed them.
    const TableRows * write = nullptr;
    /// The line of the call that follows it, or 0.
    int next = 0;
};

/// A call that stopped the run left no trace line; its report has the text.
Pattern patternOf( const SweepRun & run, std::size_t index ) {
    Pattern pattern{ .call = run.calls[index] };
    if ( pattern.call.text.empty() && index + 1 == run.calls.size() ) {
        if ( const auto report = parseReport( run.standardError ) ) {
            pattern.call.text = report->text;
            pattern.call.line = report->line;
        }
    }
    const auto write = run.writes.find( index );
    if ( write != run.writes.end() )
        pattern.write = &write->second;
    if ( index + 1 < run.calls.size() )
        pattern.next = run.calls[index + 1].line;
    return pattern;
}

/// Puts an expectation together, call by call.
class Builder {
  public:
    explicit Builder( const SweptCase & swept ) : recipe_( *swept.recipe ) {
        const Recipe & output = outputOf( recipe_ );
        expected_.function = output.name;
        expected_.signature = signatureOf( output );
        expected_.tables = swept.undisturbed.tablesBefore;
        expected_.model = &swept.model;
    }

    SweepExpectation & expected() { return expected_; }
    bool isOver() const { return over_; }

    enum class Handle { valid, invalid };

    /// The messages of a run that come at this place, unless the last call already told its own.
    void addMessages( const SweepRun & run, std::size_t afterCalls,
                      Handle handle = Handle::valid ) {
        if ( over_ || toldOwnMessage_ )
            return;
        for ( const SweepMessage & message : run.messages ) {
            if ( message.afterCalls == afterCalls )
                expected_.messages.push_back(
                    handle == Handle::valid ? message.text : withInvalidHandle( message.text ) );
        }
    }

    /// A call like `pattern` that returns `rc`; `reaches` says whether the chip does what it says.
    void addCall( const Pattern & pattern, int rc, bool reaches, Handle handle = Handle::valid ) {
        if ( over_ )
            return;
        ObservedCall call = pattern.call;
        const CallKind kind = kindOf( recipe_, call );
        if ( !call.isCheck() )
            call.operation.rc = rc;
        call.hook = call.hookLocked = kind == CallKind::guarded;
        call.operationLocked = !call.isCheck() && keepsLock( recipe_ );
        call.ending =
            kind == CallKind::ignored ? std::string( ObservedCall::ignoredEnding ) : rcEnding( rc );
        const bool stops = kind == CallKind::guarded && rc < 0;
        if ( stops )
            call.ending.clear();
        if ( reaches )
            takeEffect( pattern );
        expected_.calls.push_back( std::move( call ) );
        lastRc_ = rc;
        toldOwnMessage_ = false;

        if ( stops ) {
            end( { .kind = SweepEnding::Kind::report,
                   .text = pattern.call.text,
                   .rc = rc,
                   .line = pattern.call.line } );
        } else if ( handle == Handle::invalid && assertsHandle( recipe_ ) ) {
            end( assertion( "ent_hdl != BCMLT_INVALID_HDL", pattern.call.line, pattern.next ) );
        } else if ( kind == CallKind::mustMiss && rc >= 0 ) {
            end( assertion( "rc < 0", pattern.call.line, pattern.next ) );
        } else if ( kind == CallKind::endsRecipe && rc != 0 ) {
            tell( fmt::format( "{} skipping register {}", expected_.function, allocates() - 1 ) );
            end( {} );
        } else if ( kind == CallKind::tolerated ) {
            toldOwnMessage_ = true;
            if ( rc < 0 )
                tell( fmt::format( "{} svp entry insertion errored out rc: {}", expected_.signature,
                                   rc ) );
        }
    }

    /// The end that the plan states.
    void endAsPlanned( const SweepCase & plan ) {
        if ( plan.stopsBy.empty() )
            end( { .result = std::string( plan.returns ) } );
        else
            end( assertion( plan.stopsBy, lastLine(), 0 ) );
    }

    int lastRc() const { return lastRc_; }

  private:
    // Some messages show the handle.
    static std::string withInvalidHandle( std::string text ) {
        constexpr std::string_view label = " entry handle: ";
        const std::size_t found = text.find( label );
        if ( found == std::string::npos )
            return text;
        const std::size_t first = found + label.size();
        const std::size_t end =
            std::min( text.find_first_not_of( "0123456789", first ), text.size() );
        return text.replace( first, end - first,
                             fmt::to_string( Sim::Chip().BCMLT_INVALID_HDL() ) );
    }

    static SweepEnding assertion( std::string_view expression, int behind, int before ) {
        return { .kind = SweepEnding::Kind::assertion,
                 .expression = std::string( expression ),
                 .line = behind,
                 .before = before };
    }

    void end( SweepEnding ending ) {
        if ( over_ )
            return;
        expected_.ending = std::move( ending );
        over_ = true;
    }

    void tell( std::string message ) {
        expected_.messages.push_back( std::move( message ) );
        toldOwnMessage_ = true;
    }

    void takeEffect( const Pattern & pattern ) {
        const ObservedCall & call = pattern.call;
        std::vector<std::string> & live = expected_.liveEntries;
        if ( call.is( Interpose::SdkCall::entryAllocate ) )
            live.push_back( call.operation.table );
        if ( call.is( Interpose::SdkCall::entryFree ) ) {
            const auto entry = std::find( live.begin(), live.end(), call.operation.table );
            if ( entry != live.end() )
                live.erase( entry );
        }
        if ( pattern.write == nullptr )
            return;
        if ( pattern.write->empty() )
            expected_.tables.erase( tableOf( call ) );
        else
            expected_.tables[tableOf( call )] = *pattern.write;
    }

    long allocates() const {
        return std::count_if( expected_.calls.begin(), expected_.calls.end(), []( const auto & c ) {
            return c.is( Interpose::SdkCall::entryAllocate );
        } );
    }

    int lastLine() const { return expected_.calls.empty() ? 0 : expected_.calls.back().line; }

    const Recipe & recipe_;
    SweepExpectation expected_;
    bool over_ = false;
    bool toldOwnMessage_ = false;
    int lastRc_ = 0;
};

/// The calls of an undisturbed run from `first` to before `last`. `answer` says what each returns,
/// and may change what it is.
template <class Answer>
void addCalls( Builder & builder, const SweepRun & run, std::size_t first, std::size_t last,
               const Answer & answer, Builder::Handle handle = Builder::Handle::valid ) {
    for ( std::size_t i = first; i < last; ++i ) {
        builder.addMessages( run, i, handle );
        Pattern pattern = patternOf( run, i );
        const int answered = answer( pattern.call );
        const int rc = pattern.call.isCheck() ? builder.lastRc() : answered;
        builder.addCall( pattern, rc, rc >= 0 );
    }
}

/// The same to the end.
template <class Answer>
void addRest( Builder & builder, const SweptCase & swept, std::size_t first, const Answer & answer,
              Builder::Handle handle = Builder::Handle::valid ) {
    const SweepRun & run = swept.undisturbed;
    addCalls( builder, run, first, run.calls.size(), answer, handle );
    builder.addMessages( run, run.calls.size(), handle );
    builder.endAsPlanned( *swept.plan );
}

/// What the chip answered in that run.
int sameAnswer( const ObservedCall & call ) { return call.operation.rc; }

/// What it answers to a handle that was never allocated.
int answerToInvalidHandle( ObservedCall & call ) {
    call.operation.handle = 0;
    call.operation.unit = -1;
    call.operation.table.clear();
    return toInt( Sim::Rc::unknownHandle );
}

/// What it answers after a lookup whose code was the opposite of the truth.
int answerToOpposite( const ObservedCall & call ) {
    using Interpose::SdkCall;
    if ( call.is( SdkCall::entryFieldGet ) )
        return toInt( Sim::Rc::fieldNotCarried );
    if ( !call.is( SdkCall::entryCommit ) )
        return call.operation.rc;
    return toInt( call.operation.opcode.constant == SdkCall::opcodeInsert
                      ? Sim::Rc::entryExists
                      : Sim::Rc::entryNotFound );
}

/// The first allocate at or behind `first`.
std::size_t nextAllocate( const SweepRun & run, std::size_t first ) {
    while ( first < run.calls.size() && !run.calls[first].is( Interpose::SdkCall::entryAllocate ) )
        ++first;
    return first;
}

/// The field of a call was not written.
void dropFieldOf( SweepExpectation & expected, const SweepRun & run, const ObservedCall & call ) {
    const TableId id = tableOf( call );
    const Sim::Table * table = findTable( *expected.model, id );
    const Sim::Field * field = table == nullptr ? nullptr : table->find( call.operation.field );
    const auto rows = expected.tables.find( id );
    if ( field == nullptr || rows == expected.tables.end() )
        return;
    const auto before = run.tablesBefore.find( id );
    dropField( rows->second, before == run.tablesBefore.end() ? TableRows() : before->second,
               *table, *field );
}

// --- Faults

/// Whether a lookup answers the opposite of what the chip says.
bool answersOpposite( const ObservedCall & call, SweepFault::Kind kind ) {
    return ( call.operation.rc < 0 ) != ( codeOf( kind ) < 0 );
}

// --- Differences

/// Writes down what is not as expected.
class Differences {
  public:
    template <class T>
    void compare( const std::string & what, const T & seen, const T & expected ) {
        if ( seen != expected )
            add( fmt::format( "{}: {}, expected {}", what, word( seen ), word( expected ) ) );
    }

    void add( std::string difference ) { all_.push_back( std::move( difference ) ); }

    std::vector<std::string> take() { return std::move( all_ ); }

  private:
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

    std::vector<std::string> all_;
};

void compareCall( Differences & differences, std::size_t index, const ObservedCall & seen,
                  const ObservedCall & expected ) {
    const std::string where = fmt::format( "call {}", index + 1 );
    if ( inWords( seen ) != inWords( expected ) ) {
        differences.compare( where, inWords( seen ), inWords( expected ) );
        return;
    }
    differences.compare( where + ": return code", seen.operation.rc, expected.operation.rc );
    differences.compare( where + ": pre-call hook", seen.hook, expected.hook );
    if ( seen.hook && expected.hook )
        differences.compare( where + ": lock held in the pre-call hook", seen.hookLocked,
                             expected.hookLocked );
    differences.compare( where + ": lock held", seen.operationLocked, expected.operationLocked );
    differences.compare( where + ": end of the trace line", seen.ending, expected.ending );
    if ( seen.ending.empty() || expected.ending.empty() )
        return;
    differences.compare( where + ": text in the trace line", seen.text, expected.text );
    differences.compare( where + ": line in the trace line", seen.line, expected.line );
}

void compareCalls( Differences & differences, const SweepExpectation & expectation,
                   const SweepRun & run ) {
    const std::size_t common = std::min( run.calls.size(), expectation.calls.size() );
    for ( std::size_t i = 0; i < common; ++i )
        compareCall( differences, i, run.calls[i], expectation.calls[i] );
    if ( run.calls.size() > common )
        differences.add( fmt::format( "{} calls too many, the first is {}",
                                      run.calls.size() - common, inWords( run.calls[common] ) ) );
    if ( expectation.calls.size() > common )
        differences.add( fmt::format( "{} calls are missing, the first is {}",
                                      expectation.calls.size() - common,
                                      inWords( expectation.calls[common] ) ) );
    const auto hooks =
        static_cast<std::size_t>( std::count_if( expectation.calls.begin(), expectation.calls.end(),
                                                 []( const auto & call ) { return call.hook; } ) );
    differences.compare( "pre-call hooks", run.preCallHooks, hooks );
}

void compareStandardError( Differences & differences, const SweepExpectation & expectation,
                           const SweepRun & run ) {
    const SweepEnding & ending = expectation.ending;
    const bool reports = ending.kind == SweepEnding::Kind::report;
    const std::string before =
        fmt::format( "{}: {}:", ::program_invocation_short_name, sourceFile );
    int line = ending.line;
    std::string expected;
    if ( reports )
        expected = fmt::format( "{}:{} {} API ERROR:{} ({})\n", sourceFile, line, ending.text,
                                errorText( ending.rc ), ending.rc );
    if ( ending.kind == SweepEnding::Kind::assertion ) {
        // All that is known of its line is that it lies between two calls.
        std::string_view seen = run.standardError;
        seen.remove_prefix( seen.starts_with( before ) ? before.size() : seen.size() );
        line = takeNumber( seen );
        if ( line != 0 &&
             ( line <= ending.line || ( ending.before != 0 && line >= ending.before ) ) )
            differences.add( fmt::format(
                "the assertion stands in line {}, expected behind {}{}", line, ending.line,
                ending.before == 0 ? "" : fmt::format( " and before {}", ending.before ) ) );
    }
    if ( ending.kind != SweepEnding::Kind::returns )
        expected += fmt::format( "{}{}: {}: Assertion `{}' failed.\n", before,
                                 line == 0 ? "LINE" : fmt::to_string( line ), expectation.signature,
                                 reports ? "0" : ending.expression );
    differences.compare( "standard error", run.standardError, expected );
}

void compareEnding( Differences & differences, const SweepExpectation & expectation,
                    const SweepRun & run ) {
    const SweepEnding & ending = expectation.ending;
    const bool returns = ending.kind == SweepEnding::Kind::returns;
    const bool reports = ending.kind == SweepEnding::Kind::report;
    differences.compare( "signal", run.signal, returns ? 0 : SIGABRT );
    differences.compare( "the recipe returned", run.returned, returns );
    if ( returns ) {
        differences.compare( "exit code", run.exitCode, 0 );
        differences.compare( "result", run.result, ending.result );
    }
    compareStandardError( differences, expectation, run );
    differences.compare( "failure hooks", run.failureHooks, std::size_t( reports ? 1 : 0 ) );
    differences.compare( "error texts asked", run.errorTexts,
                         reports ? std::vector<int>{ ending.rc } : std::vector<int>() );
    if ( reports && run.failureHooks == 1 ) {
        differences.compare( "lock held in the failure hook", run.failureHookLocked, true );
        differences.compare( "reported before the failure hook", run.reportedBeforeHook, true );
    }
}

void compareTables( Differences & differences, const SweepExpectation & expectation,
                    const SweepTables & seen ) {
    const auto rowsIn = []( const SweepTables & tables, const TableId & id ) {
        const auto found = tables.find( id );
        return found == tables.end() ? TableRows() : found->second;
    };
    SweepTables all = seen;
    all.insert( expectation.tables.begin(), expectation.tables.end() );
    for ( const auto & [id, ignored] : all ) {
        const TableRows seenRows = rowsIn( seen, id );
        const TableRows expectedRows = rowsIn( expectation.tables, id );
        const auto [one, other] = std::mismatch( seenRows.begin(), seenRows.end(),
                                                 expectedRows.begin(), expectedRows.end() );
        if ( one == seenRows.end() && other == expectedRows.end() )
            continue;
        const Sim::Table & table = *findTable( *expectation.model, id );
        differences.compare(
            toText( id ) + ": row", one == seenRows.end() ? std::string() : toText( table, *one ),
            other == expectedRows.end() ? std::string() : toText( table, *other ) );
    }
}

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

} // namespace

namespace {

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

} // namespace

int codeOf( SweepFault::Kind kind ) { return infoOf( kind ).code; }
std::string toText( SweepFault::Kind kind ) { return std::string( infoOf( kind ).text ); }
std::string_view name( SweepFault::Kind kind ) { return infoOf( kind ).name; }

std::string toText( const SweepExpectation & expectation ) {
    const SweepEnding & ending = expectation.ending;
    switch ( ending.kind ) {
    case SweepEnding::Kind::returns:
        return ending.result.empty() ? "returns" : fmt::format( "returns {}", ending.result );
    case SweepEnding::Kind::assertion:
        return fmt::format( "stops by the assertion \"{}\"", ending.expression );
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
    const ObservedCall & last = calls.back();
    if ( last.isCheck() && calls.size() > 1 ) {
        const ObservedCall & checked = *std::prev( calls.end(), 2 );
        return checked.operation.rc < 0 ? &checked : nullptr;
    }
    return kindOf( *swept.recipe, last ) == CallKind::guarded && last.operation.rc < 0 ? &last
                                                                                       : nullptr;
}

SweepExpectation expectUndisturbed( const SweptCase & swept ) {
    Builder builder( swept );
    addRest( builder, swept, 0, sameAnswer );
    return std::move( builder.expected() );
}

std::vector<std::string> judgeUndisturbed( const SweptCase & swept ) {
    const SweepRun & run = swept.undisturbed;
    std::vector<std::string> differences = judge( expectUndisturbed( swept ), run );
    for ( std::size_t i = 0; i < run.calls.size(); ++i ) {
        const ObservedCall call = patternOf( run, i ).call;
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
    using Kind = SweepFault::Kind;
    std::vector<SweepFault> faults;
    const SweepRun & run = swept.undisturbed;
    for ( std::size_t i = 0; i < run.calls.size(); ++i ) {
        const ObservedCall & call = run.calls[i];
        if ( call.isCheck() )
            continue;
        const CallKind kind = kindOf( *swept.recipe, call );
        const auto add = [&]( Kind fault ) {
            const bool needsFallback = kind == CallKind::lookup && answersOpposite( call, fault );
            if ( !needsFallback ||
                 ( swept.fallback != nullptr && i < swept.fallback->undisturbed.calls.size() ) )
                faults.push_back( { fault, i } );
        };
        add( Kind::fails );
        if ( call.operation.rc >= 0 ) {
            add( Kind::positive );
            if ( call.is( Interpose::SdkCall::entryAllocate ) )
                add( Kind::invalidHandle );
            continue;
        }
        // A refused call is made to look successful only where it is known what follows.
        if ( kind == CallKind::guarded || kind == CallKind::checkedNext )
            continue;
        add( Kind::positive );
        if ( !call.is( Interpose::SdkCall::entryAllocate ) )
            add( Kind::succeeds );
    }
    return faults;
}

SweepExpectation expectFault( const SweptCase & swept, const SweepFault & fault ) {
    const SweepRun & run = swept.undisturbed;
    Builder builder( swept );
    addCalls( builder, run, 0, fault.call, sameAnswer );

    const Pattern pattern = patternOf( run, fault.call );
    const ObservedCall & struck = pattern.call;
    const CallKind kind = kindOf( *swept.recipe, struck );
    const int code = codeOf( fault.kind );
    const bool invalid = fault.kind == SweepFault::Kind::invalidHandle;
    builder.addMessages( run, fault.call );
    builder.addCall( pattern, code, code >= 0 && struck.operation.rc >= 0 && !invalid,
                     invalid ? Builder::Handle::invalid : Builder::Handle::valid );
    builder.expected().struck = fault.call;

    const std::size_t next = fault.call + 1;
    if ( invalid )
        addRest( builder, swept, next, answerToInvalidHandle, Builder::Handle::invalid );
    else if ( kind == CallKind::lookup && answersOpposite( struck, fault.kind ) )
        addRest( builder, *swept.fallback, next, answerToOpposite );
    else if ( kind == CallKind::skipsTable && code != 0 )
        addRest( builder, swept, nextAllocate( run, next ), sameAnswer );
    else
        addRest( builder, swept, next, sameAnswer );

    SweepExpectation expected = std::move( builder.expected() );
    if ( kind == CallKind::ignored && code < 0 )
        dropFieldOf( expected, run, struck );
    return expected;
}

std::vector<std::string> judge( const SweepExpectation & expectation, const SweepRun & run ) {
    Differences differences;
    if ( !run.complete )
        differences.add( "the process did not get to say what happened" );
    compareEnding( differences, expectation, run );
    if ( !run.complete )
        return differences.take();
    compareCalls( differences, expectation, run );
    for ( const std::string & function : run.functions )
        differences.compare( "function in a trace line", function, expectation.function );
    std::vector<std::string> messages;
    for ( const SweepMessage & message : run.messages )
        messages.push_back( message.text );
    differences.compare( "messages", messages, expectation.messages );
    differences.compare( "live entries", run.liveEntries, expectation.liveEntries );
    compareTables( differences, expectation, run.tables );
    return differences.take();
}

} // namespace Tool
