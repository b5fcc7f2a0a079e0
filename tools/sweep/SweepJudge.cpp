#include "tools/sweep/SweepJudge.h"

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

std::string rcEnding( int rc ) { return " (rc:" + std::to_string( rc ) + ")"; }

std::string quoted( std::string_view text ) { return "\"" + std::string( text ) + "\""; }

std::string errorText( int rc ) { return Sim::Chip().errmsg( rc ); }

/// What is handed over, without what came back.
std::string inWords( const SweepCall & call ) {
    if ( call.isCheck )
        return "the check of rc";
    std::string text( Interpose::name( call.operation ) );
    if ( call.operation == Interpose::SdkCall::entryAllocate )
        return text + " unit " + std::to_string( call.unit ) + " " + call.table;
    text += " entry " + std::to_string( call.entry );
    if ( !call.table.empty() )
        text += " " + call.table;
    return text + call.details;
}

CallKind kindOf( const Recipe & recipe, const SweepCall & call ) {
    return call.isCheck ? CallKind::guarded
                        : kindOf( recipe, call.operation, call.opcode, call.field );
}

std::string tableKey( const SweepCall & call ) {
    return "unit " + std::to_string( call.unit ) + " " + call.table;
}

// --- A report as it was written

struct Report {
    int line = 0;
    std::string text;
};

/// "FILE:LINE TEXT API ERROR:..." in the first line; nothing if that is not what stands there.
std::optional<Report> parseReport( std::string_view standardError ) {
    const std::string_view first = standardError.substr( 0, standardError.find( '\n' ) );
    const std::size_t end = first.find( " API ERROR:" );
    if ( end == std::string_view::npos || !first.starts_with( sourceFile ) )
        return {};
    const std::string_view rest = first.substr( 0, end ).substr( sourceFile.size() );
    const std::size_t blank = rest.find( ' ' );
    Report report;
    if ( !rest.starts_with( ':' ) || blank == std::string_view::npos ||
         std::from_chars( rest.data() + 1, rest.data() + blank, report.line ).ptr !=
             rest.data() + blank )
        return {};
    report.text = rest.substr( blank + 1 );
    return report;
}

// --- Expectations

/// Puts an expectation together, call by call.
class Builder {
  public:
    Builder( const PreparedCase & prepared, const SweepRun & undisturbed ) : prepared_( prepared ) {
        const Recipe & output = outputOf( *prepared.recipe );
        expected_.function = output.name;
        expected_.signature = signatureOf( output );
        expected_.tables = undisturbed.tablesBefore;
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
    /// `next` is the line of the call that would follow, or 0.
    void addCall( const SweepCall & pattern, int rc, bool reaches, int next,
                  Handle handle = Handle::valid ) {
        if ( over_ )
            return;
        const CallKind kind = kindOf( *prepared_.recipe, pattern );
        SweepCall call = pattern;
        call.rc = call.isCheck ? 0 : rc;
        call.hook = call.hookLocked = kind == CallKind::guarded;
        call.operationLocked = !call.isCheck && keepsLock( *prepared_.recipe );
        call.ending = kind == CallKind::ignored ? " no rc check" : rcEnding( rc );
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
                   .text = pattern.text,
                   .rc = rc,
                   .line = pattern.line } );
        } else if ( handle == Handle::invalid && assertsHandle( *prepared_.recipe ) ) {
            end( assertion( "ent_hdl != BCMLT_INVALID_HDL", pattern.line, next ) );
        } else if ( kind == CallKind::mustMiss && rc >= 0 ) {
            end( assertion( "rc < 0", pattern.line, next ) );
        } else if ( kind == CallKind::endsRecipe && rc != 0 ) {
            tell( expected_.function + " skipping register " + std::to_string( allocates() - 1 ) );
            end( {} );
        } else if ( kind == CallKind::tolerated ) {
            toldOwnMessage_ = true;
            if ( rc < 0 )
                tell( expected_.signature +
                      " svp entry insertion errored out rc: " + std::to_string( rc ) );
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
                             std::to_string( Sim::Chip().BCMLT_INVALID_HDL() ) );
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

    void takeEffect( const SweepCall & call ) {
        if ( call.operation == Interpose::SdkCall::entryAllocate && !call.isCheck )
            expected_.liveEntries.push_back( call.table );
        if ( call.operation == Interpose::SdkCall::entryFree && !call.isCheck ) {
            const auto entry =
                std::find( expected_.liveEntries.begin(), expected_.liveEntries.end(), call.table );
            if ( entry != expected_.liveEntries.end() )
                expected_.liveEntries.erase( entry );
        }
        if ( !call.rows )
            return;
        if ( call.rows->empty() )
            expected_.tables.erase( tableKey( call ) );
        else
            expected_.tables[tableKey( call )] = *call.rows;
    }

    long allocates() const {
        return std::count_if( expected_.calls.begin(), expected_.calls.end(), []( const auto & c ) {
            return !c.isCheck && c.operation == Interpose::SdkCall::entryAllocate;
        } );
    }

    int lastLine() const { return expected_.calls.empty() ? 0 : expected_.calls.back().line; }

    const PreparedCase & prepared_;
    SweepExpectation expected_;
    bool over_ = false;
    bool toldOwnMessage_ = false;
    int lastRc_ = 0;
};

int lineOf( const SweepRun & run, std::size_t call ) {
    return call < run.calls.size() ? run.calls[call].line : 0;
}

/// A call of an undisturbed run again. One that stopped it left no trace line; its report has the
/// text.
SweepCall patternOf( const SweepRun & run, std::size_t index ) {
    SweepCall call = run.calls[index];
    if ( call.text.empty() && index + 1 == run.calls.size() ) {
        if ( const auto report = parseReport( run.standardError ) ) {
            call.text = report->text;
            call.line = report->line;
        }
    }
    return call;
}

/// The calls of an undisturbed run from `first` on, with the codes that they had there.
void addRest( Builder & builder, const SweptCase & swept, std::size_t first ) {
    const SweepRun & run = *swept.undisturbed;
    for ( std::size_t i = first; i < run.calls.size(); ++i ) {
        builder.addMessages( run, i );
        const SweepCall call = patternOf( run, i );
        const int rc = call.isCheck ? builder.lastRc() : call.rc;
        builder.addCall( call, rc, rc >= 0, lineOf( run, i + 1 ) );
    }
    builder.addMessages( run, run.calls.size() );
    builder.endAsPlanned( *swept.prepared->plan );
}

/// The same with a handle that never was one: the chip refuses every call.
void addRestOfInvalidHandle( Builder & builder, const SweptCase & swept, std::size_t first ) {
    const SweepRun & run = *swept.undisturbed;
    for ( std::size_t i = first; i < run.calls.size() && !builder.isOver(); ++i ) {
        builder.addMessages( run, i, Builder::Handle::invalid );
        SweepCall call = patternOf( run, i );
        call.entry = 0;
        call.unit = -1;
        call.table.clear();
        const int rc = call.isCheck ? builder.lastRc() : toInt( Sim::Rc::unknownHandle );
        builder.addCall( call, rc, false, lineOf( run, i + 1 ) );
    }
}

/// What the chip answers to a call that follows a lookup which did not tell the truth.
int refusalOf( const SweepCall & call ) {
    if ( call.operation == Interpose::SdkCall::entryFieldGet )
        return toInt( Sim::Rc::fieldNotCarried );
    if ( call.operation != Interpose::SdkCall::entryCommit )
        return 0;
    return toInt( call.opcode == "BCMLT_OPCODE_INSERT" ? Sim::Rc::entryExists
                                                       : Sim::Rc::entryNotFound );
}

/// The calls after a lookup as the case `otherwise` makes them, on a chip where the opposite holds.
void addRestOfOtherwise( Builder & builder, const SweptCase & otherwise, std::size_t first ) {
    const SweepRun & run = *otherwise.undisturbed;
    for ( std::size_t i = first; i < run.calls.size(); ++i ) {
        builder.addMessages( run, i );
        const SweepCall call = patternOf( run, i );
        const int refusal = refusalOf( call );
        const int rc = refusal != 0 ? refusal : call.rc;
        builder.addCall( call, rc, rc >= 0, lineOf( run, i + 1 ) );
    }
    builder.addMessages( run, run.calls.size() );
    builder.endAsPlanned( *otherwise.prepared->plan );
}

/// The first allocate at or behind `first`.
std::size_t nextAllocate( const SweepRun & run, std::size_t first ) {
    while ( first < run.calls.size() &&
            ( run.calls[first].isCheck ||
              run.calls[first].operation != Interpose::SdkCall::entryAllocate ) )
        ++first;
    return first;
}

// --- Rows as text: "[KEY=1] FIELD=2 OTHER=3"

std::string_view rowId( std::string_view row ) { return row.substr( 0, row.find( ']' ) + 1 ); }

std::vector<std::string> linesOf( std::string_view text ) {
    std::vector<std::string> lines;
    while ( !text.empty() ) {
        const std::size_t end = std::min( text.find( '\n' ), text.size() );
        lines.emplace_back( text.substr( 0, end ) );
        text.remove_prefix( std::min( end + 1, text.size() ) );
    }
    return lines;
}

/// Where the value of a field stands in a row: the first character and the length.
std::pair<std::size_t, std::size_t> valuePlace( std::string_view row, std::string_view field ) {
    const std::string name = " " + std::string( field ) + "=";
    const std::size_t found = row.find( name );
    if ( found == std::string_view::npos )
        return { row.size(), 0 };
    const std::size_t first = found + name.size();
    return { first, std::min( row.find( ' ', first ), row.size() ) - first };
}

/// The rows as a write leaves them that does not carry `field`: it keeps its value in rows that
/// were there before, and takes its reset value in new ones.
std::string withoutField( std::string_view rows, std::string_view rowsBefore,
                          std::string_view field, uint64_t reset ) {
    const std::vector<std::string> before = linesOf( rowsBefore );
    std::string text;
    for ( std::string row : linesOf( rows ) ) {
        const auto old = std::find_if( before.begin(), before.end(), [&]( const auto & each ) {
            return rowId( each ) == rowId( row );
        } );
        std::string value = std::to_string( reset );
        if ( old != before.end() ) {
            const auto [first, length] = valuePlace( *old, field );
            value = old->substr( first, length );
        }
        const auto [first, length] = valuePlace( row, field );
        text += row.replace( first, length, value ) + "\n";
    }
    return text;
}

void dropField( SweepExpectation & expected, const PreparedCase & prepared, const SweepRun & run,
                const SweepCall & call ) {
    const ChipDescription * chip =
        prepared.model.findUnit( static_cast<uint64_t>( std::max( call.unit, 0 ) ) );
    const Sim::Table * table = chip == nullptr ? nullptr : chip->schema.find( call.table );
    const Sim::Field * field = table == nullptr ? nullptr : table->find( call.field );
    const auto rows = expected.tables.find( tableKey( call ) );
    if ( field == nullptr || rows == expected.tables.end() )
        return;
    const auto before = run.tablesBefore.find( tableKey( call ) );
    rows->second = withoutField( rows->second,
                                 before == run.tablesBefore.end() ? std::string() : before->second,
                                 call.field, field->reset );
}

// --- Faults

/// Whether a lookup answers the opposite of what the chip says.
bool answersOpposite( const SweepCall & call, SweepFault::Kind kind ) {
    return ( call.rc < 0 ) != ( codeOf( kind ) < 0 );
}

// --- Deviations

/// Writes down what is not as expected.
class Differences {
  public:
    template <class T>
    void compare( const std::string & what, const T & seen, const T & expected ) {
        if ( seen != expected )
            add( what + ": " + word( seen ) + ", expected " + word( expected ) );
    }

    void add( std::string difference ) { all_.push_back( std::move( difference ) ); }

    std::vector<std::string> take() { return std::move( all_ ); }

  private:
    static std::string word( bool value ) { return value ? "yes" : "no"; }
    static std::string word( int value ) { return std::to_string( value ); }
    static std::string word( std::size_t value ) { return std::to_string( value ); }
    static std::string word( const std::string & value ) {
        std::string line = value;
        for ( auto end = line.find( '\n' ); end != std::string::npos; end = line.find( '\n', end ) )
            line.replace( end, 1, "\\n" );
        return line.empty() ? "nothing" : quoted( line );
    }
    static std::string word( const std::vector<std::string> & values ) {
        std::string text;
        for ( const std::string & value : values )
            text += ( text.empty() ? "" : ", " ) + quoted( value );
        return text.empty() ? "none" : text;
    }
    static std::string word( const std::vector<int> & values ) {
        std::string text;
        for ( const int value : values )
            text += ( text.empty() ? "" : ", " ) + std::to_string( value );
        return text.empty() ? "none" : text;
    }

    std::vector<std::string> all_;
};

void compareCall( Differences & differences, std::size_t index, const SweepCall & seen,
                  const SweepCall & expected ) {
    const std::string where = "call " + std::to_string( index + 1 );
    if ( inWords( seen ) != inWords( expected ) ) {
        differences.compare( where, inWords( seen ), inWords( expected ) );
        return;
    }
    differences.compare( where + ": return code", seen.rc, expected.rc );
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
        differences.add( std::to_string( run.calls.size() - common ) +
                         " calls too many, the first is " + inWords( run.calls[common] ) );
    if ( expectation.calls.size() > common )
        differences.add( std::to_string( expectation.calls.size() - common ) +
                         " calls are missing, the first is " +
                         inWords( expectation.calls[common] ) );
    const auto hooks =
        static_cast<std::size_t>( std::count_if( expectation.calls.begin(), expectation.calls.end(),
                                                 []( const auto & call ) { return call.hook; } ) );
    differences.compare( "pre-call hooks", run.preCallHooks, hooks );
}

/// The line of the standard assertion failure, and what it must look like.
struct AssertionLine {
    std::string before; ///< up to the line number
    std::string after;
};

AssertionLine assertionLine( const SweepExpectation & expectation, std::string_view expression ) {
    return {
        std::string( ::program_invocation_short_name ) + ": " + std::string( sourceFile ) + ":",
        ": " + expectation.signature + ": Assertion `" + std::string( expression ) + "' failed." };
}

void compareStandardError( Differences & differences, const SweepExpectation & expectation,
                           const SweepRun & run ) {
    const SweepEnding & ending = expectation.ending;
    switch ( ending.kind ) {
    case SweepEnding::Kind::returns:
        differences.compare( "standard error", run.standardError, std::string() );
        return;
    case SweepEnding::Kind::report: {
        const AssertionLine stop = assertionLine( expectation, "0" );
        const std::string line = std::to_string( ending.line );
        differences.compare( "standard error", run.standardError,
                             std::string( sourceFile ) + ":" + line + " " + ending.text +
                                 " API ERROR:" + errorText( ending.rc ) + " (" +
                                 std::to_string( ending.rc ) + ")\n" + stop.before + line +
                                 stop.after + "\n" );
        return;
    }
    case SweepEnding::Kind::assertion:
        break;
    }
    // The line of an assertion is known no better than that it lies between two calls.
    const AssertionLine stop = assertionLine( expectation, ending.expression );
    std::string_view number = run.standardError;
    const std::string after = stop.after + "\n";
    int line = 0;
    const bool framed = number.starts_with( stop.before ) && number.ends_with( after ) &&
                        number.size() > stop.before.size() + after.size();
    if ( framed ) {
        number.remove_prefix( stop.before.size() );
        number.remove_suffix( after.size() );
        const char * const end = number.data() + number.size();
        if ( std::from_chars( number.data(), end, line ).ptr != end )
            line = 0;
    }
    if ( line == 0 )
        differences.compare( "standard error", run.standardError, stop.before + "LINE" + after );
    else if ( line <= ending.line || ( ending.before != 0 && line >= ending.before ) )
        differences.add(
            "the assertion stands in line " + std::to_string( line ) + ", expected behind " +
            std::to_string( ending.line ) +
            ( ending.before == 0 ? "" : " and before " + std::to_string( ending.before ) ) );
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

void compareTables( Differences & differences, const SweepTables & seen,
                    const SweepTables & expected ) {
    const auto rowsOf = []( const SweepTables & tables, const std::string & table ) {
        const auto found = tables.find( table );
        return found == tables.end() ? std::string() : found->second;
    };
    SweepTables all = seen;
    all.insert( expected.begin(), expected.end() );
    for ( const auto & [table, ignored] : all ) {
        const std::vector<std::string> seenRows = linesOf( rowsOf( seen, table ) );
        const std::vector<std::string> expectedRows = linesOf( rowsOf( expected, table ) );
        const auto [one, other] = std::mismatch( seenRows.begin(), seenRows.end(),
                                                 expectedRows.begin(), expectedRows.end() );
        if ( one != seenRows.end() || other != expectedRows.end() )
            differences.compare( table + ": row", one == seenRows.end() ? std::string() : *one,
                                 other == expectedRows.end() ? std::string() : *other );
    }
}

/// Whether the text of a call says what the call does.
bool textFits( const SweepCall & call ) {
    if ( call.isCheck )
        return call.text == checkText;
    const std::string begin = std::string( Interpose::name( call.operation ) ) + "( ";
    if ( !call.text.starts_with( begin ) || !call.text.ends_with( " )" ) )
        return false;
    if ( !call.opcode.empty() )
        return call.text.ends_with( ", " + call.opcode + ", BCMLT_PRIORITY_NORMAL )" );
    return call.field.empty() || contains( call.text, quoted( call.field ) ) ||
           contains( call.text, " " + call.field + "s," );
}

bool occurs( const SweepRun & run, std::string_view part ) {
    return std::any_of( run.calls.begin(), run.calls.end(),
                        [&]( const auto & call ) { return contains( call.text, part ); } ) ||
           std::any_of( run.messages.begin(), run.messages.end(),
                        [&]( const auto & message ) { return contains( message.text, part ); } );
}

} // namespace

int codeOf( SweepFault::Kind kind ) {
    switch ( kind ) {
    case SweepFault::Kind::fails:
        return -1;
    case SweepFault::Kind::positive:
        return 1;
    case SweepFault::Kind::succeeds:
    case SweepFault::Kind::invalidHandle:
        break;
    }
    return 0;
}

std::string toText( SweepFault::Kind kind ) {
    switch ( kind ) {
    case SweepFault::Kind::fails:
    case SweepFault::Kind::positive:
    case SweepFault::Kind::succeeds:
        return "returns " + std::to_string( codeOf( kind ) );
    case SweepFault::Kind::invalidHandle:
        break;
    }
    return "leaves the handle invalid";
}

std::string_view name( SweepFault::Kind kind ) {
    switch ( kind ) {
    case SweepFault::Kind::fails:
        return "fails";
    case SweepFault::Kind::positive:
        return "positive";
    case SweepFault::Kind::succeeds:
        return "succeeds";
    case SweepFault::Kind::invalidHandle:
        break;
    }
    return "invalid-handle";
}

std::string toText( const SweepExpectation & expectation ) {
    const SweepEnding & ending = expectation.ending;
    switch ( ending.kind ) {
    case SweepEnding::Kind::returns:
        return ending.result.empty() ? "returns" : "returns " + ending.result;
    case SweepEnding::Kind::assertion:
        return "stops by the assertion \"" + ending.expression + "\"";
    case SweepEnding::Kind::report:
        break;
    }
    if ( !expectation.struck || *expectation.struck + 1 == expectation.calls.size() )
        return "is reported and stops";
    return "goes on to " + ending.text + ", which is reported and stops";
}

const SweepCall * refusedCall( const PreparedCase & prepared, const SweepRun & undisturbed ) {
    if ( undisturbed.calls.empty() )
        return nullptr;
    const SweepCall & last = undisturbed.calls.back();
    if ( last.isCheck && undisturbed.calls.size() > 1 ) {
        const SweepCall & checked = *std::prev( undisturbed.calls.end(), 2 );
        return checked.rc < 0 ? &checked : nullptr;
    }
    return kindOf( *prepared.recipe, last ) == CallKind::guarded && last.rc < 0 ? &last : nullptr;
}

SweepExpectation expectUndisturbed( const PreparedCase & prepared, const SweepRun & undisturbed ) {
    Builder builder( prepared, undisturbed );
    addRest( builder, { &prepared, &undisturbed }, 0 );
    return std::move( builder.expected() );
}

std::vector<std::string> judgeUndisturbed( const PreparedCase & prepared,
                                           const SweepRun & undisturbed ) {
    std::vector<std::string> differences =
        judge( expectUndisturbed( prepared, undisturbed ), undisturbed );
    for ( std::size_t i = 0; i < undisturbed.calls.size(); ++i ) {
        const SweepCall call = patternOf( undisturbed, i );
        if ( !textFits( call ) )
            differences.push_back( "call " + std::to_string( i + 1 ) + ": the text " +
                                   quoted( call.text ) + " does not say " + inWords( call ) );
    }
    if ( !prepared.isReference )
        return differences;
    if ( const SweepCall * refused = refusedCall( prepared, undisturbed ) )
        differences.push_back( "the reference chip refuses " + inWords( *refused ) + ": " +
                               errorText( refused->rc ) );
    for ( const std::string_view part : prepared.plan->with ) {
        if ( !occurs( undisturbed, part ) )
            differences.push_back( "no call and no message has " + quoted( part ) );
    }
    for ( const std::string_view part : prepared.plan->without ) {
        if ( occurs( undisturbed, part ) )
            differences.push_back( "a call or a message has " + quoted( part ) );
    }
    return differences;
}

std::vector<SweepFault> faultsOf( const SweptCase & swept, const SweptCase * otherwise ) {
    using Kind = SweepFault::Kind;
    std::vector<SweepFault> faults;
    const SweepRun & run = *swept.undisturbed;
    for ( std::size_t i = 0; i < run.calls.size(); ++i ) {
        const SweepCall & call = run.calls[i];
        if ( call.isCheck )
            continue;
        const CallKind kind = kindOf( *swept.prepared->recipe, call );
        const auto add = [&]( Kind fault ) {
            const bool needsOtherwise = kind == CallKind::lookup && answersOpposite( call, fault );
            if ( !needsOtherwise ||
                 ( otherwise != nullptr && i < otherwise->undisturbed->calls.size() ) )
                faults.push_back( { fault, i } );
        };
        add( Kind::fails );
        if ( call.rc >= 0 ) {
            add( Kind::positive );
            if ( call.operation == Interpose::SdkCall::entryAllocate )
                add( Kind::invalidHandle );
            continue;
        }
        // A refused call can be made to look successful where it is known what comes then.
        if ( kind == CallKind::guarded || kind == CallKind::checkedNext )
            continue;
        add( Kind::positive );
        if ( call.operation != Interpose::SdkCall::entryAllocate )
            add( Kind::succeeds );
    }
    return faults;
}

SweepExpectation expectFault( const SweptCase & swept, const SweptCase * otherwise,
                              const SweepFault & fault ) {
    const SweepRun & run = *swept.undisturbed;
    const Recipe & recipe = *swept.prepared->recipe;
    Builder builder( *swept.prepared, run );
    for ( std::size_t i = 0; i < fault.call; ++i ) {
        builder.addMessages( run, i );
        const SweepCall & call = run.calls[i];
        const int rc = call.isCheck ? builder.lastRc() : call.rc;
        builder.addCall( call, rc, rc >= 0, lineOf( run, i + 1 ) );
    }

    const SweepCall struck = patternOf( run, fault.call );
    const CallKind kind = kindOf( recipe, struck );
    const int code = codeOf( fault.kind );
    const bool invalid = fault.kind == SweepFault::Kind::invalidHandle;
    builder.addMessages( run, fault.call );
    builder.addCall( struck, code, code >= 0 && struck.rc >= 0 && !invalid,
                     lineOf( run, fault.call + 1 ),
                     invalid ? Builder::Handle::invalid : Builder::Handle::valid );
    builder.expected().struck = fault.call;

    const std::size_t next = fault.call + 1;
    if ( invalid )
        addRestOfInvalidHandle( builder, swept, next );
    else if ( kind == CallKind::lookup && answersOpposite( struck, fault.kind ) )
        addRestOfOtherwise( builder, *otherwise, next );
    else if ( kind == CallKind::skipsTable && code != 0 )
        addRest( builder, swept, nextAllocate( run, next ) );
    else
        addRest( builder, swept, next );

    SweepExpectation expected = std::move( builder.expected() );
    if ( kind == CallKind::ignored && code < 0 )
        dropField( expected, *swept.prepared, run, struck );
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
    compareTables( differences, run.tables, expectation.tables );
    return differences.take();
}

} // namespace Tool
