#include "tests/support/RecipeTest.h"

#include "tests/support/ChildProcess.h"

#include <ChipModel/ChipProfile.h>
#include <Kiln/TraceSink.h>
#include <Shim/Sdk.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <iterator>
#include <sstream>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace Support {

namespace {

std::string operationText( const Interpose::Event & event ) {
    using Interpose::SdkCall;
    switch ( event.call ) {
    case SdkCall::entryAllocate:
        return "allocate " + std::to_string( event.unit ) + " " + event.table;
    case SdkCall::entryAttribSet:
        return "attrib " + toText( event.attribute );
    case SdkCall::entryCommit:
        return "commit " + toText( event.opcode );
    case SdkCall::ptEntryCommit:
        return "pt_commit " + toText( event.opcode );
    case SdkCall::entryFieldAdd:
        return "add " + event.field + " = " + std::to_string( event.values.at( 0 ) );
    case SdkCall::entryFieldSymbolAdd:
        return "symbol " + event.field + " = " + event.symbol;
    case SdkCall::entryFieldGet:
        return "get " + event.field;
    case SdkCall::entryFree:
        return "free";
    case SdkCall::entryFieldArrayAdd: {
        std::string text =
            "array " + event.field + "[" + std::to_string( event.startIndex ) + "] =";
        for ( const std::uint64_t value : event.values )
            text += " " + std::to_string( value );
        return text + " count " + std::to_string( event.count );
    }
    default:
        return std::string( Interpose::name( event.call ) );
    }
}

// The steps that "; " separates.
std::vector<std::string> stepsOf( const std::string & operation ) {
    std::vector<std::string> steps;
    const std::string separator = "; ";
    for ( size_t at = 0; at < operation.size(); ) {
        const size_t end = std::min( operation.find( separator, at ), operation.size() );
        steps.push_back( operation.substr( at, end - at ) );
        at = end + separator.size();
    }
    return steps;
}

} // namespace

Script & Script::add( std::initializer_list<Step> steps ) {
    for ( const Step & step : steps ) {
        switch ( step.kind ) {
        case Step::Kind::guarded:
            addHeld( "preCallHook" );
            addCall( step );
            break;
        case Step::Kind::unchecked:
        case Step::Kind::ignored:
            addCall( step );
            break;
        case Step::Kind::held:
            addHeld( step.text );
            break;
        case Step::Kind::line:
            addHeld( "CairnLtHelper/" + std::to_string( step.number ) + " " + function_ + ": " +
                     step.text );
            break;
        }
    }
    return *this;
}

void Script::addCall( const Step & step ) {
    const bool movesInterpreterLock = interpreterHeld_ && lockDuringCall_ == "released";
    if ( movesInterpreterLock )
        addHeld( "interpreter lock released" );
    const auto operations = stepsOf( step.operation );
    for ( const std::string & each : operations )
        lines_.push_back( each + " [" + lockDuringCall_ + "]" );
    if ( movesInterpreterLock )
        addHeld( "interpreter lock taken back" );
    operations_ += operations.empty() ? 0 : 1;
    calls_.push_back( { step.text, step.kind, operations_, lines_.size() } );
    lines_.push_back( callLine( step.text, step.kind, step.number ) );
}

std::string Script::callLine( const std::string & text, Step::Kind kind, int rc ) const {
    return "ApiCairn/4 " + function_ + ": " + text +
           ( kind == Step::Kind::ignored ? " no rc check" : " (rc:" + std::to_string( rc ) + ")" ) +
           " [held]";
}

Cairn::CairnCommonSmData::Ptr
sharedState( std::initializer_list<std::pair<std::uint16_t, const char *>> modules ) {
    auto state = Nacre::make<Cairn::CairnCommonSmData>();
    for ( const auto & [module, chipName] : modules ) {
        Cairn::CairnModInfo info;
        info.chip = CairnCentral::ChipInfo( chipName, 1, 0, 0 );
        state->cairnModIds.set( module, info );
    }
    return state;
}

RecipeTest::RecipeTest() {
    Kiln::activityLock().lock();
    install( Sim::referenceSchema() );
    std::string error;
    Kiln::traceSettings( Kiln::parseTraceSettings( "ApiCairn/*,CairnLtHelper/*", error ) );
    Kiln::traceToCallback( [this]( const Kiln::TraceLine & line ) {
        const std::string position =
            std::string( line.file ) + ":" + std::to_string( line.line ) + " ";
        std::string text( line.text );
        EXPECT_EQ( line.file, "Cairn/CairnLtHelper" );
        if ( line.facility == "ApiCairn" ) {
            // A call trace line spells its position in the text as well.
            EXPECT_TRUE( text.starts_with( position ) ) << text;
            text.erase( 0, position.size() );
        }
        sourceLines_.push_back( line.line );
        note( std::string( line.facility ) + "/" + std::to_string( line.level ) + " " +
                  std::string( line.function ) + ": " + withoutHandle( text ),
              line.line );
    } );
    CairnCentral::setBringupStageService( this );
}

RecipeTest::~RecipeTest() {
    CairnCentral::setBringupStageService( nullptr );
    CairnProfile::clearActiveChipProfiles();
    Kiln::setInterpreterLock( nullptr );
    Kiln::traceToStandardError();
    Kiln::traceOff();
    Shim::sdk_ = nullptr;
    Kiln::activityLock().unlock();
}

void RecipeTest::install( const Sim::Schema & schema ) {
    chip_ = std::make_unique<Sim::Chip>();
    chip_->addUnit( 0, schema );
    chip_->addUnit( 3, schema );
    faults_ = std::make_unique<Interpose::FaultInjector>( *chip_ );
    recorder_ = std::make_unique<Interpose::Recorder>( *faults_ );
    recorder_->observe(
        [this]( Interpose::Recorder::Moment moment, const Interpose::Event & event ) {
            if ( moment == Interpose::Recorder::Moment::before )
                note( operationText( event ) );
            else if ( event.call == Interpose::SdkCall::entryAllocate )
                handles_.push_back( event.handle );
        } );
    Shim::sdk_ = recorder_.get();
}

void RecipeTest::inject( const std::string & fault ) {
    const auto parsed = Interpose::parseFault( fault );
    ASSERT_TRUE( parsed.fault ) << parsed.error;
    faults_->add( *parsed.fault );
}

void RecipeTest::useSchema( const Sim::Schema & schema ) {
    install( schema );
    clearLog();
}

void RecipeTest::putRow( int unit, const std::string & table,
                         std::initializer_list<std::pair<const char *, std::uint64_t>> fields ) {
    Sim::RowImage row;
    size_t found = 0;
    for ( const auto & field : chip().schema( unit )->find( table )->fields ) {
        row.values.push_back( field.initial() );
        for ( const auto & [name, value] : fields ) {
            if ( field.name == name ) {
                row.values.back() = value;
                ++found;
            }
        }
    }
    ASSERT_EQ( found, fields.size() );
    row.written.resize( row.values.size(), true );
    row.touched = true;
    ASSERT_EQ( chip().restoreRow( unit, table, row ), Sim::Rc::ok );
}

void RecipeTest::note( const std::string & what, int sourceLine ) {
    log_.push_back( what +
                    ( Kiln::activityLock().heldByThisThread() ? " [held]" : " [released]" ) );
    if ( logPipe_ >= 0 )
        ::dprintf( logPipe_, "%d %s\n", sourceLine, log_.back().c_str() );
    if ( onEntry )
        onEntry( log_.back() );
}

std::string RecipeTest::withoutHandle( std::string text ) const {
    if ( handles_.empty() )
        return text;
    const std::string shown = " entry handle: " + std::to_string( handles_.back() );
    const size_t at = text.find( shown );
    const bool isWhole = at != std::string::npos &&
                         ( at + shown.size() == text.size() || text[at + shown.size()] == ' ' );
    return isWhole ? text.replace( at, shown.size(), " entry handle: HANDLE" ) : text;
}

void RecipeTest::holdInterpreterLock() {
    interpreterHeld_ = true;
    Kiln::setInterpreterLock( this );
}

void RecipeTest::release() noexcept {
    interpreterHeld_ = false;
    note( "interpreter lock released" );
}

void RecipeTest::acquire() noexcept {
    interpreterHeld_ = true;
    note( "interpreter lock taken back" );
}

long Stop::count( const std::string & prefix ) const {
    return std::count_if( log.begin(), log.end(),
                          [&]( const std::string & line ) { return line.starts_with( prefix ); } );
}

std::string report( const std::string & text, const std::string & errorText, int rc,
                    const std::string & pretty ) {
    return "Cairn/CairnLtHelper:LINE " + text + " API ERROR:" + errorText + " (" +
           std::to_string( rc ) + ")\n" + assertion( "0", pretty );
}

std::string assertion( const std::string & expression, const std::string & pretty ) {
    return "Cairn/CairnLtHelper:LINE: " + pretty + ": Assertion `" + expression + "' failed.\n";
}

namespace {

std::string readAll( int descriptor ) {
    std::string text;
    char buffer[4096];
    ssize_t length;
    while ( ( length = ::read( descriptor, buffer, sizeof buffer ) ) > 0 )
        text.append( buffer, static_cast<size_t>( length ) );
    ::close( descriptor );
    return text;
}

// Replaces source lines by LINE and drops the program's name, which the C library puts in front.
void normalise( Stop & stop ) {
    const std::string program = std::string( program_invocation_short_name ) + ": ";
    const std::string file = "Cairn/CairnLtHelper:";
    std::string & text = stop.standardError;
    for ( size_t at = text.find( program ); at != std::string::npos; at = text.find( program, at ) )
        text.erase( at, program.size() );
    for ( size_t at = text.find( file ); at != std::string::npos; at = text.find( file, at ) ) {
        at += file.size();
        const size_t end = text.find_first_not_of( "0123456789", at );
        stop.lines.push_back( std::stoi( text.substr( at, end - at ) ) );
        text.replace( at, end - at, "LINE" );
    }
}

} // namespace

Stop RecipeTest::stopOf( const std::function<void()> & recipe ) {
    int errorPipe[2];
    int logPipe[2];
    if ( ::pipe( errorPipe ) != 0 || ::pipe( logPipe ) != 0 )
        throw std::system_error( errno, std::generic_category(), "pipe" );
    const pid_t child = startChild( [&] {
        ::dup2( errorPipe[1], STDERR_FILENO );
        logPipe_ = logPipe[1];
        recipe();
        return true;
    } );
    ::close( errorPipe[1] );
    ::close( logPipe[1] );
    Stop stop;
    stop.standardError = readAll( errorPipe[0] );
    std::istringstream lines( readAll( logPipe[0] ) );
    int sourceLine = 0;
    for ( std::string line; lines >> sourceLine && std::getline( lines.ignore(), line ); ) {
        stop.log.push_back( line );
        if ( sourceLine != 0 )
            stop.loggedLines.push_back( sourceLine );
    }
    const int status = statusOf( child );
    stop.signal = WIFSIGNALED( status ) ? WTERMSIG( status ) : 0;
    normalise( stop );
    return stop;
}

std::vector<std::string> RecipeTest::logOf( const std::string & prefix ) const {
    std::vector<std::string> lines;
    std::copy_if( log_.begin(), log_.end(), std::back_inserter( lines ),
                  [&]( const std::string & line ) { return line.starts_with( prefix ); } );
    return lines;
}

namespace {

void expectSameLog( const std::vector<std::string> & expected,
                    const std::vector<std::string> & happened ) {
    const auto [wanted, found] =
        std::mismatch( expected.begin(), expected.end(), happened.begin(), happened.end() );
    if ( wanted == expected.end() && found == happened.end() )
        return;
    ADD_FAILURE() << "the logs differ at entry " << wanted - expected.begin()
                  << "\n  expected: " << ( wanted == expected.end() ? "(nothing more)" : *wanted )
                  << "\n  happened: " << ( found == happened.end() ? "(nothing more)" : *found );
}

} // namespace

void RecipeTest::expectLog( const Script & script ) const { expectSameLog( script.lines(), log_ ); }

namespace {

// A call that fails and is reported: nothing after the report and the hook.
void expectReport( const Stop & stop, std::vector<std::string> expected,
                   const std::string & report ) {
    expected.insert( expected.end(), { "errmsg [held]", "failureHook [held]" } );
    expectSameLog( expected, stop.log );
    EXPECT_EQ( stop.signal, SIGABRT );
    EXPECT_EQ( stop.standardError, report );
    ASSERT_EQ( stop.lines.size(), 2u );
    EXPECT_GT( stop.lines[0], 0 );
    EXPECT_EQ( stop.lines[0], stop.lines[1] );
}

// A call that fails without being reported: the recipe goes on.
void expectNoReport( const Stop & stop, const std::vector<std::string> & expected,
                     const std::string & text ) {
    ASSERT_GE( stop.log.size(), expected.size() );
    expectSameLog( expected, { stop.log.begin(), stop.log.begin() + std::ssize( expected ) } );
    EXPECT_EQ( stop.standardError.find( text ), std::string::npos ) << stop.standardError;
}

} // namespace

void RecipeTest::expectEachFailureToStop( const Script & script, const std::string & pretty,
                                          const std::function<void()> & recipe ) {
    ASSERT_FALSE( script.calls().empty() );
    for ( size_t i = 0; i < script.calls().size(); ++i ) {
        const auto & call = script.calls()[i];
        if ( call.text == "rc" )
            continue; // makes no operation; fails with the call before it
        SCOPED_TRACE( "operation " + std::to_string( call.operation ) + ": " + call.text );
        const int rc = -1 - static_cast<int>( i % 30 );
        const Stop stop = stopOf( [&] {
            inject( "rc=" + std::to_string( rc ) + ",at=" + std::to_string( call.operation ) );
            recipe();
        } );
        const char * errorText = chip().errmsg( rc );
        auto expected = script.lines();
        expected.resize( call.traceLine );
        if ( call.kind == Step::Kind::guarded ) {
            expectReport( stop, expected, report( call.text, errorText, rc, pretty ) );
            continue;
        }
        expected.push_back( script.callLine( call.text, call.kind, rc ) );
        if ( i + 1 < script.calls().size() && script.calls()[i + 1].text == "rc" ) {
            expected.emplace_back( "preCallHook [held]" );
            expectReport( stop, expected, report( "rc", errorText, rc, pretty ) );
        } else {
            expectNoReport( stop, expected, call.text );
        }
    }
}

void RecipeTest::expectAssertion( const Stop & stop, const std::string & expression,
                                  const std::string & pretty ) {
    EXPECT_EQ( stop.signal, SIGABRT );
    EXPECT_EQ( stop.standardError, assertion( expression, pretty ) );
    EXPECT_EQ( stop.count( "errmsg" ), 0 );
    EXPECT_EQ( stop.count( "failureHook" ), 0 );
    EXPECT_EQ( stop.count( "free" ), 0 );
    ASSERT_EQ( stop.lines.size(), 1u );
    ASSERT_FALSE( stop.loggedLines.empty() );
    EXPECT_GT( stop.lines[0], stop.loggedLines.back() );
}

void RecipeTest::expectHandleAssertion( const std::string & pretty,
                                        const std::function<void()> & recipe ) {
    const auto stop = stopOf( [&] {
        inject( "handle=invalid" );
        recipe();
    } );
    expectAssertion( stop, "ent_hdl != BCMLT_INVALID_HDL", pretty );
    ASSERT_FALSE( stop.lines.empty() || stop.loggedLines.empty() );
    EXPECT_EQ( stop.lines[0], stop.loggedLines.back() + 1 );
    EXPECT_EQ( stop.count( "preCallHook" ), 1 );
    EXPECT_EQ( stop.count( "allocate" ), 1 );
    ASSERT_FALSE( stop.log.empty() );
    EXPECT_EQ( stop.log.back(), "BCMLT_INVALID_HDL [held]" );
}

void RecipeTest::expectMessagesAtTheirLevels( const Script & script,
                                              const std::function<void()> & recipe ) {
    for ( std::uint32_t level = 0; level < Kiln::TraceFacility::levelCount; ++level ) {
        SCOPED_TRACE( "level " + std::to_string( level ) );
        useSchema( Sim::referenceSchema() );
        Kiln::traceOff();
        Kiln::traceSettings( { { "CairnLtHelper", 1u << level } } );
        recipe();
        const std::string prefix = "CairnLtHelper/" + std::to_string( level );
        std::vector<std::string> expected;
        for ( const auto & line : script.lines() )
            if ( line.starts_with( prefix ) )
                expected.push_back( line );
        EXPECT_EQ( logOf( "CairnLtHelper" ), expected );
        EXPECT_TRUE( logOf( "ApiCairn" ).empty() );
    }
}

bool RecipeTest::isBlocked( const CairnCentral::ChipInfo & chipInfo,
                            CairnCentral::BringupStage stage ) noexcept {
    const auto number = static_cast<std::uint32_t>( stage );
    note( "isBlocked " + std::string( chipInfo.name().view() ) + " " + std::to_string( number ) );
    return std::count( blockedStages.begin(), blockedStages.end(), number ) != 0;
}

bool RecipeTest::isUnblocked( const CairnCentral::ChipInfo & chipInfo,
                              CairnCentral::BringupStage stage ) noexcept {
    const auto number = static_cast<std::uint32_t>( stage );
    note( "isUnblocked " + std::string( chipInfo.name().view() ) + " " + std::to_string( number ) );
    return std::count( blockedStages.begin(), blockedStages.end(), number ) == 0 &&
           std::count( neitherStages.begin(), neitherStages.end(), number ) == 0;
}

} // namespace Support
