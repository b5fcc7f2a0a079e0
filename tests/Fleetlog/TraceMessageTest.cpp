#include "Cairn/internal/TraceMessage.h"

#include "tests/support/TraceFiles.h"

#include <Fleetlog/MsgDesc.h>
#include <Kiln/ActivityLock.h>
#include <Kiln/TraceSink.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <latch>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

// The dual trace message and the plain line, in small recipes of this file.

namespace MessageTest {

using namespace Cairn;

void setSeed( uint32_t unit, uint32_t seed ) noexcept {
    CAIRN_RECIPE( "void MessageTest::setSeed(uint32_t, uint32_t)" );
    CAIRN_MESSAGE( "ii", ( " unit: ", "%s", " seed: ", "%s" ), unit, seed );
}

void twoSites( uint32_t unit, bool second ) noexcept {
    CAIRN_RECIPE( "void MessageTest::twoSites(uint32_t, bool)" );
    CAIRN_MESSAGE( "i", ( " unit: ", "%s" ), unit );
    if ( second )
        CAIRN_MESSAGE( "i", ( " second time for unit: ", "%s" ), unit );
}

// A placeholder and the text after it in one piece, and all types.
void allTypes( uint32_t unit, int index, uint16_t l2If, bool lag, const char * mem ) noexcept {
    CAIRN_RECIPE( "void MessageTest::allTypes(uint32_t, int, uint16_t, bool, const char*)" );
    CAIRN_MESSAGE( "iisbp", ( " unit: ", "%s", " index: ", "%s l2If: ", "%s", " lag: ", "%s", " mem: ", "%s" ), unit, index, l2If, lag, mem );
}

void twoTexts( const char * first, const char * second ) noexcept {
    CAIRN_RECIPE( "void MessageTest::twoTexts(const char*, const char*)" );
    CAIRN_MESSAGE( "pp", ( " first: ", "%s", " second: ", "%s" ), first, second );
}

void noValues() noexcept {
    CAIRN_RECIPE( "void MessageTest::noValues()" );
    CAIRN_MESSAGE( "", ( " did nothing" ) );
}

uint32_t evaluations = 0;

void counting( bool isSet ) noexcept {
    CAIRN_RECIPE( "void MessageTest::counting(bool)" );
    if ( isSet )
        CAIRN_MESSAGE( "i", ( " evaluated: ", "%s" ), ++evaluations );
    else
        CAIRN_LINE( 8, "counting" << " evaluated: " << ++evaluations );
}

void skip( uint16_t unit ) noexcept {
    CAIRN_RECIPE( "void MessageTest::skip(uint16_t)" );
    CAIRN_LINE( 2, "skip" << " unit: " << unit << " Skipping" );
}

// What the macro checks at compile time.
static_assert( MessageArguments<uint32_t, int, uint16_t, bool, const char *>::match( "iisbp" ) );
static_assert( !MessageArguments<uint32_t>::match( "s" ) );
static_assert( !MessageArguments<uint16_t>::match( "i" ) );
static_assert( !MessageArguments<bool>::match( "i" ) );
static_assert( !MessageArguments<uint32_t, uint32_t>::match( "i" ) );
static_assert( !MessageArguments<uint32_t>::match( "ii" ) );
static_assert( !MessageArguments<uint64_t>::match( "i" ) );
static_assert( !MessageArguments<uint64_t>::match( "?" ) );
static_assert( MessageArguments<>::match( "" ) );
static_assert( MessageArguments<const char *, const char *, uint32_t>::fit() );
static_assert( !MessageArguments<const char *, const char *, const char *>::fit() );
constexpr const char * threePlaces[] = { " a: ", "%s", " b: ", "%s c: ", "%s", "100%" };
static_assert( countPlaceholders( threePlaces ) == 3 );

class TraceMessageTest : public testing::Test {
  protected:
    TraceMessageTest() {
        Kiln::traceToCallback( [this]( const Kiln::TraceLine & line ) {
            lines_.push_back( std::string( line.facility ) + "/" +
                              std::to_string( static_cast<unsigned>( line.level ) ) + " " +
                              std::string( line.file ) + " " + std::string( line.function ) + ": " +
                              std::string( line.text ) );
            positions_.push_back( line.line );
        } );
    }

    ~TraceMessageTest() override {
        Fleetlog::closeDefault();
        Kiln::traceOff();
        Kiln::traceToStandardError();
    }

    void enable( uint32_t level ) { Kiln::traceSettings( { { "CairnLtHelper", 1u << level } } ); }

    void openTrace( Fleetlog::Files files = Fleetlog::Files::perProcess ) {
        Fleetlog::openDefault(
            { .directory = directory_.path(), .ringBytes = 1 << 16, .files = files } );
    }

    std::vector<std::string> recorded() const { return Support::read( directory_.file() ).texts; }

    Support::Directory directory_;
    std::vector<std::string> lines_;
    std::vector<int> positions_;
};

using TraceMessageDeathTest = TraceMessageTest;

TEST_F( TraceMessageTest, FirstMessageOfASiteRegistersItsDescriptorTheSecondWritesOnlyTheRecord ) {
    openTrace();
    EXPECT_TRUE( Support::read( directory_.file() ).sites.empty() );
    setSeed( 0, 12345 );
    auto reading = Support::read( directory_.file() );
    ASSERT_EQ( reading.sites.size(), 1u );
    EXPECT_EQ( reading.sites[0].file, "Cairn/CairnLtHelper" );
    EXPECT_GT( reading.sites[0].line, 0u );
    EXPECT_EQ( reading.sites[0].letters, "ii" );
    EXPECT_EQ( reading.sites[0].function, "setSeed" );
    EXPECT_EQ( reading.texts, std::vector<std::string>{ "setSeed unit: 0 seed: 12345" } );

    setSeed( 1, 2 );
    reading = Support::read( directory_.file() );
    EXPECT_EQ( reading.sites.size(), 1u );
    EXPECT_EQ( reading.texts, ( std::vector<std::string>{ "setSeed unit: 0 seed: 12345",
                                                          "setSeed unit: 1 seed: 2" } ) );
}

TEST_F( TraceMessageTest, SiteOnFileInOneTraceRegistersAgainInTheNext ) {
    openTrace();
    setSeed( 1, 1 );
    const std::string first = directory_.file();
    openTrace();
    setSeed( 2, 2 );
    setSeed( 3, 3 );
    ASSERT_EQ( directory_.files().size(), 2u );
    for ( const auto & path : directory_.files() ) {
        const auto reading = Support::read( path );
        EXPECT_EQ( reading.sites.size(), 1u );
        EXPECT_EQ( reading.texts.size(), path == first ? 1u : 2u );
    }
}

TEST_F( TraceMessageTest,
        IdentifierThatIsZeroOrBeyondTheTableIsTreatedAsNotInitialisedAndRegisters ) {
    openTrace();
    Fleetlog::TraceFile & file = *Fleetlog::defaultFleetlogHandle->traceFile();
    static constexpr Recipe recipe{ "recipe", "void recipe()" };
    static constexpr const char * pieces[] = { " unit: ", "%s" };
    static constexpr MessageSite site{ &recipe, 5, "i", pieces };
    std::set<int> given;
    std::size_t descriptors = 0;
    for ( const int start :
          { 0, 1'000'000, static_cast<int>( file.initialisedLength() ) + 10'000, -7 } ) {
        int msgId = start;
        ASSERT_FALSE( msgIdInitialized( file, static_cast<unsigned>( msgId ) ) );
        writeMessage( site, msgId, uint32_t( 9 ) );
        EXPECT_TRUE( msgIdInitialized( file, static_cast<unsigned>( msgId ) ) );
        EXPECT_NE( msgId, start );
        given.insert( msgId );
        EXPECT_EQ( Support::read( directory_.file() ).sites.size(), ++descriptors );
        writeMessage( site, msgId, uint32_t( 10 ) );
        EXPECT_EQ( Support::read( directory_.file() ).sites.size(), descriptors );
    }
    EXPECT_EQ( given.size(), 4u );
    EXPECT_EQ( recorded().size(), 8u );
}

TEST_F( TraceMessageTest, IdentifierZeroIsNeverInitialisedWhateverTheFirstByteOfTheTableHolds ) {
    openTrace();
    Fleetlog::TraceFile & file = *Fleetlog::defaultFleetlogHandle->traceFile();
    setSeed( 1, 1 );
    const_cast<unsigned char &>( file.initialised()[0] ) = 1;
    EXPECT_FALSE( msgIdInitialized( file, 0 ) );
    static constexpr Recipe recipe{ "recipe", "void recipe()" };
    static constexpr const char * pieces[] = { " unit: ", "%s" };
    static constexpr MessageSite site{ &recipe, 5, "i", pieces };
    int msgId = 0;
    writeMessage( site, msgId, uint32_t( 9 ) );
    EXPECT_NE( msgId, 0 );
    EXPECT_EQ( recorded(),
               ( std::vector<std::string>{ "setSeed unit: 1 seed: 1", "recipe unit: 9" } ) );
}

TEST_F( TraceMessageTest, SiteBeyondTheTableIsRegisteredOnceAFileAndEachOfItsMessagesRecorded ) {
    const Fleetlog::OpenOptions options{
        .directory = directory_.path(), .ringBytes = 1 << 16, .descriptorBytes = 2 << 20 };
    Fleetlog::openDefault( options );
    Fleetlog::TraceFile & file = *Fleetlog::defaultFleetlogHandle->traceFile();
    for ( std::size_t i = 0; i < Fleetlog::TraceFile::maxSites; ++i ) {
        int msgId = 0;
        Fleetlog::MsgDesc( &file, &msgId, "file", 1 ).finish();
    }
    const std::size_t sites = Support::read( directory_.file() ).sites.size();
    EXPECT_EQ( sites, Fleetlog::TraceFile::maxSites );

    static constexpr Recipe recipe{ "recipe", "void recipe()" };
    static constexpr const char * pieces[] = { " unit: ", "%s" };
    static constexpr MessageSite site{ &recipe, 5, "i", pieces };
    int msgId = 0;
    std::vector<std::string> expected;
    for ( uint32_t unit = 0; unit < 40; ++unit ) {
        writeMessage( site, msgId, unit );
        EXPECT_FALSE( msgIdInitialized( file, static_cast<unsigned>( msgId ) ) );
        expected.push_back( "recipe unit: " + std::to_string( unit ) );
    }
    const auto reading = Support::read( directory_.file() );
    EXPECT_EQ( reading.sites.size(), sites + 1 );
    EXPECT_EQ( reading.texts, expected );
    EXPECT_EQ( reading.info.unregistered, 0u );

    // A child has a file of its own, in which the site is new.
    EXPECT_EQ( Support::runInChild( [&] {
                   writeMessage( site, msgId, uint32_t( 41 ) );
                   const auto own =
                       Support::read( Fleetlog::defaultFleetlogHandle->traceFile()->path() );
                   return own.sites.size() == 1 && own.texts.front() == "recipe unit: 41";
               } ),
               0 );
}

TEST_F( TraceMessageTest, SiteBeyondTheTableThatFindsNoRoomIsCountedOnce ) {
    Fleetlog::openDefault( { .directory = directory_.path(), .descriptorBytes = 1 } );
    Fleetlog::TraceFile & file = *Fleetlog::defaultFleetlogHandle->traceFile();
    for ( std::size_t i = 0; i < Fleetlog::TraceFile::maxSites; ++i ) {
        int msgId = 0;
        Fleetlog::MsgDesc( &file, &msgId, "file", 1 ).finish();
    }
    const auto countOf = [&] { return Support::read( directory_.file() ).info.unregistered; };
    const auto before = countOf();
    static constexpr Recipe recipe{ "recipe", "void recipe()" };
    static constexpr MessageSite site{ &recipe, 5, "", {} };
    int msgId = 0;
    for ( int i = 0; i < 3; ++i )
        writeMessage( site, msgId );
    EXPECT_EQ( countOf(), before + 1 );
}

TEST_F( TraceMessageTest, WithNoTraceFileAndLevelTwoDisabledAMessageHasNoEffect ) {
    setSeed( 1, 2 );
    allTypes( 1, 2, 3, true, "x" );
    EXPECT_TRUE( lines_.empty() );
    EXPECT_TRUE( directory_.files().empty() );
    EXPECT_EQ( Twinlog::twinlogFixed_.text(), "" );

    Fleetlog::TraceHandle withoutFile;
    Fleetlog::defaultFleetlogHandle = &withoutFile;
    setSeed( 1, 2 );
    Fleetlog::defaultFleetlogHandle = nullptr;
    EXPECT_TRUE( lines_.empty() );
}

TEST_F( TraceMessageTest, WithLevelTwoEnabledAndNoTraceFileTheLineIsWrittenAloneWithTheSameText ) {
    enable( 2 );
    setSeed( 0, 12345 );
    ASSERT_EQ( lines_,
               std::vector<std::string>{
                   "CairnLtHelper/2 Cairn/CairnLtHelper setSeed: setSeed unit: 0 seed: 12345" } );
    const auto withoutFile = lines_;
    lines_.clear();
    openTrace();
    setSeed( 0, 12345 );
    EXPECT_EQ( lines_, withoutFile );
    EXPECT_EQ( recorded(), std::vector<std::string>{ "setSeed unit: 0 seed: 12345" } );
}

TEST_F( TraceMessageTest, LineAndRecordTellTheSamePosition ) {
    enable( 2 );
    openTrace();
    twoSites( 1, true );
    const auto sites = Support::read( directory_.file() ).sites;
    ASSERT_EQ( sites.size(), 2u );
    ASSERT_EQ( positions_.size(), 2u );
    EXPECT_EQ( sites[0].line, static_cast<uint32_t>( positions_[0] ) );
    EXPECT_EQ( sites[1].line, static_cast<uint32_t>( positions_[1] ) );
    EXPECT_LT( positions_[0], positions_[1] );
    EXPECT_NE( sites[0].id, sites[1].id );
}

TEST_F( TraceMessageTest, PlaceholdersAreReplacedByTheValuesOfAllTypesInBothOutputs ) {
    enable( 2 );
    openTrace();
    allTypes( 4294967295u, 7, 65535, true, "mem" );
    const std::string expected =
        "allTypes unit: 4294967295 index: 7 l2If: 65535 lag: true mem: mem";
    EXPECT_EQ( recorded(), std::vector<std::string>{ expected } );
    EXPECT_EQ( lines_, std::vector<std::string>{ "CairnLtHelper/2 Cairn/CairnLtHelper allTypes: " +
                                                 expected } );
    const auto sites = Support::read( directory_.file() ).sites;
    ASSERT_EQ( sites.size(), 1u );
    EXPECT_EQ( sites[0].letters, "iisbp" );
    EXPECT_EQ( sites[0].letters.size() + 1, sites[0].texts.size() );

    lines_.clear();
    allTypes( 0, -1, 0, false, nullptr );
    EXPECT_EQ( lines_, std::vector<std::string>{
                           "CairnLtHelper/2 Cairn/CairnLtHelper allTypes: "
                           "allTypes unit: 0 index: -1 l2If: 0 lag: false mem: (null)" } );
}

TEST_F( TraceMessageTest, ValueThatContainsThePlaceholderIsAValueInBothOutputs ) {
    enable( 2 );
    openTrace();
    twoTexts( "%s and 100%", "%d%s" );
    const std::string expected = "twoTexts first: %s and 100% second: %d%s";
    EXPECT_EQ( recorded(), std::vector<std::string>{ expected } );
    EXPECT_EQ( lines_, std::vector<std::string>{ "CairnLtHelper/2 Cairn/CairnLtHelper twoTexts: " +
                                                 expected } );
}

TEST_F( TraceMessageTest, MessageWithoutValues ) {
    enable( 2 );
    openTrace();
    noValues();
    EXPECT_EQ( recorded(), std::vector<std::string>{ "noValues did nothing" } );
    EXPECT_EQ( lines_.size(), 1u );
}

TEST_F( TraceMessageTest, LevelTwoDisabledFormatsNothing ) {
    openTrace();
    Twinlog::twinlogFixed_.clear();
    setSeed( 1, 2 );
    EXPECT_EQ( Twinlog::twinlogFixed_.text(), "" );
    EXPECT_TRUE( lines_.empty() );
    EXPECT_EQ( recorded().size(), 1u );
    for ( uint32_t level = 0; level < Kiln::TraceFacility::levelCount; ++level )
        if ( level != 2 )
            enable( level );
    setSeed( 1, 2 );
    EXPECT_TRUE( lines_.empty() );
}

TEST_F( TraceMessageTest, SecondLevelTestDiscardsTheText ) {
    static constexpr Recipe recipe{ "recipe", "void recipe()" };
    static constexpr const char * pieces[] = { " unit: ", "%s" };
    static constexpr MessageSite site{ &recipe, 5, "i", pieces };
    Twinlog::FleetlogConverter text;
    writePieces( site );
    text << 5u;
    EXPECT_STREQ( text.finish(), "recipe unit: 5" );
    writeMessageLine( site, text ); // level 2 was disabled meanwhile
    EXPECT_TRUE( lines_.empty() );
    enable( 2 );
    writeMessageLine( site, text );
    EXPECT_EQ( lines_.size(), 1u );
}

TEST_F( TraceMessageTest, ArgumentsAreEvaluatedOnceAndThoseOfAPlainLineOnlyIfItIsWritten ) {
    evaluations = 0;
    counting( true );
    EXPECT_EQ( evaluations, 1u );
    counting( false );
    EXPECT_EQ( evaluations, 1u );
    enable( 8 );
    enable( 2 );
    openTrace();
    counting( true );
    EXPECT_EQ( evaluations, 2u );
    counting( false );
    EXPECT_EQ( evaluations, 3u );
    EXPECT_EQ( lines_,
               ( std::vector<std::string>{
                   "CairnLtHelper/2 Cairn/CairnLtHelper counting: counting evaluated: 2",
                   "CairnLtHelper/8 Cairn/CairnLtHelper counting: counting evaluated: 3" } ) );
    EXPECT_EQ( recorded(), std::vector<std::string>{ "counting evaluated: 2" } );
}

TEST_F( TraceMessageTest, PlainLineLeavesNoRecord ) {
    enable( 2 );
    openTrace();
    skip( 3 );
    EXPECT_EQ( lines_, std::vector<std::string>{
                           "CairnLtHelper/2 Cairn/CairnLtHelper skip: skip unit: 3 Skipping" } );
    const auto reading = Support::read( directory_.file() );
    EXPECT_TRUE( reading.texts.empty() );
    EXPECT_TRUE( reading.sites.empty() );
}

// --- Threads

TEST_F( TraceMessageTest, ThreadsWithFilesOfTheirOwnShareTheIdentifierOfASite ) {
    constexpr uint32_t threads = 4;
    constexpr uint32_t messages = 3000;
    openTrace( Fleetlog::Files::perThread );
    std::vector<std::thread> running;
    std::latch atEnd( threads ); // a thread that ended would leave its file to another
    for ( uint32_t thread = 0; thread < threads; ++thread )
        running.emplace_back( [thread, &atEnd] {
            for ( uint32_t i = 0; i < messages; ++i ) {
                setSeed( thread, i );
                twoSites( i, false );
            }
            atEnd.arrive_and_wait();
        } );
    for ( auto & thread : running )
        thread.join();

    std::set<uint32_t> ids;
    std::set<std::string> writers;
    for ( const auto & path : directory_.files() ) {
        const auto reading = Support::read( path );
        EXPECT_TRUE( reading.findings.empty() );
        if ( reading.sites.empty() )
            continue; // of this thread, which has opened the trace and written nothing
        ASSERT_EQ( reading.sites.size(), 2u );
        for ( const auto & site : reading.sites )
            ids.insert( site.id );
        ASSERT_EQ( reading.texts.back(), "twoSites unit: " + std::to_string( messages - 1 ) );
        writers.insert( reading.texts[reading.texts.size() - 2] );
    }
    EXPECT_EQ( ids.size(), 2u );
    EXPECT_EQ( writers.size(), threads );
}

TEST_F( TraceMessageTest, ThreadWhoseFileCannotBeMadeStillWritesItsLine ) {
    openTrace( Fleetlog::Files::perThread );
    enable( 2 );
    std::filesystem::remove_all( directory_.path() );
    testing::internal::CaptureStderr();
    std::thread( [] {
        EXPECT_EQ( Fleetlog::defaultFleetlogHandle->mtTraceFile(), nullptr );
        setSeed( 1, 2 );
        setSeed( 3, 4 );
    } ).join();
    EXPECT_NE( testing::internal::GetCapturedStderr().find( "are not recorded" ),
               std::string::npos );
    EXPECT_EQ( lines_,
               ( std::vector<std::string>{
                   "CairnLtHelper/2 Cairn/CairnLtHelper setSeed: setSeed unit: 1 seed: 2",
                   "CairnLtHelper/2 Cairn/CairnLtHelper setSeed: setSeed unit: 3 seed: 4" } ) );
}

TEST_F( TraceMessageTest, ThreadsThatShareAFileWriteWithTheActivityLockHeld ) {
    constexpr uint32_t threads = 4;
    constexpr uint32_t messages = 500;
    enable( 2 );
    openTrace();
    std::vector<std::thread> running;
    for ( uint32_t thread = 0; thread < threads; ++thread )
        running.emplace_back( [=] {
            for ( uint32_t i = 0; i < messages; ++i ) {
                Kiln::activityLock().lock();
                setSeed( thread, i );
                Kiln::activityLock().unlock();
            }
        } );
    for ( auto & thread : running )
        thread.join();
    EXPECT_EQ( lines_.size(), threads * messages );
    const auto reading = Support::read( directory_.file() );
    EXPECT_EQ( reading.sites.size(), 1u );
    EXPECT_EQ( reading.texts.size(), threads * messages );
    const std::set<std::string> different( reading.texts.begin(), reading.texts.end() );
    EXPECT_EQ( different.size(), threads * messages );
}

// --- Exceptions

// In a process of its own, where nothing has traced yet.
TEST( FirstUseDeathTest, LineAndMessageOfALevelThatIsOffAreNotWritten ) {
    GTEST_FLAG_SET( death_test_style, "threadsafe" );
    EXPECT_EXIT(
        {
            MessageTest::skip( 1 );
            MessageTest::setSeed( 1, 2 );
            std::_Exit( 0 );
        },
        testing::ExitedWithCode( 0 ), "^$" );
}

TEST_F( TraceMessageDeathTest, ExceptionOfTheTraceLibrariesEndsTheProcess ) {
    enable( 2 );
    enable( 8 );
    openTrace();
    Kiln::traceToCallback(
        []( const Kiln::TraceLine & ) { throw std::runtime_error( "the sink is broken" ); } );
    EXPECT_DEATH( setSeed( 1, 2 ), "the sink is broken" );
    EXPECT_DEATH( counting( false ), "the sink is broken" );
}

// --- Twinlog

TEST( TwinlogTest, ValuesTakeTheirPlacesInOrder ) {
    Twinlog::FleetlogConverter converter;
    Twinlog::twinlogFixed_ << "f"
                           << " a: "
                           << "%s"
                           << " b: "
                           << "%s c: "
                           << "%s"
                           << " d: "
                           << "%s"
                           << " e: "
                           << "%s"
                           << "!";
    converter << "text" << true << -5 << 7u << static_cast<unsigned short>( 8 );
    EXPECT_STREQ( converter.finish(), "f a: text b: true c: -5 d: 7 e: 8!" );
}

TEST( TwinlogTest, ConverterBeginsAfresh ) {
    Twinlog::twinlogFixed_ << "left over %s";
    Twinlog::FleetlogConverter converter;
    Twinlog::twinlogFixed_ << "new: %s";
    converter << 1;
    EXPECT_STREQ( converter.finish(), "new: 1" );
}

TEST( TwinlogTest, PlaceWithoutAValueStaysAndValueWithoutAPlaceComesLast ) {
    Twinlog::FleetlogConverter missing;
    Twinlog::twinlogFixed_ << "a: %s b: %s";
    missing << 1;
    EXPECT_STREQ( missing.finish(), "a: 1 b: %s" );
    Twinlog::FleetlogConverter surplus;
    Twinlog::twinlogFixed_ << "a: %s.";
    surplus << 1 << 2 << 3;
    EXPECT_STREQ( surplus.finish(), "a: 1. 2 3" );
}

TEST( TwinlogTest, PiecesBeyondTheCapacityAreCutVisibly ) {
    Twinlog::FleetlogConverter converter;
    const std::string piece( 1000, 'x' );
    for ( int i = 0; i < 6; ++i )
        Twinlog::twinlogFixed_ << piece.c_str();
    const std::string_view text = converter.finish();
    EXPECT_EQ( text.size(), Twinlog::FixedStream::capacity );
    EXPECT_TRUE( text.ends_with( "x..." ) );
}

// What a message is made of, and the same by searching the whole text for each value's place.
std::string converted( const std::vector<std::string> & pieces,
                       const std::vector<std::string> & values ) {
    Twinlog::FleetlogConverter converter;
    for ( const std::string & piece : pieces )
        Twinlog::twinlogFixed_ << piece.c_str();
    for ( const std::string & value : values )
        converter << value.c_str();
    return converter.finish();
}
std::string searched( const std::vector<std::string> & pieces,
                      const std::vector<std::string> & values ) {
    std::string rest;
    for ( const std::string & piece : pieces )
        rest += piece;
    if ( rest.size() > Twinlog::FixedStream::capacity )
        rest = rest.substr( 0, Twinlog::FixedStream::capacity - 3 ) + "...";
    std::string text;
    for ( const std::string & value : values ) {
        const std::size_t at = rest.find( "%s" );
        text += rest.substr( 0, at ) + ( at == std::string::npos ? " " : "" ) + value;
        rest.erase( 0, at == std::string::npos ? at : at + 2 );
    }
    return text + rest;
}

TEST( TwinlogTest, PlaceIsFoundHoweverThePiecesAreDivided ) {
    const std::vector<std::string> values{ "1", "%s", "",
                                           "a text of more than sixteen characters" };
    const std::string alphabet[] = { "%s", "%s",  "%",         "s",
                                     "$s", "%%s", " unit: ",   "a longer piece ",
                                     "x",  "",    "%s and %s", "16 characters %s" };
    std::minstd_rand random( 1 ); // the same numbers each time
    for ( int i = 0; i < 20'000; ++i ) {
        std::vector<std::string> pieces( random() % 8 );
        for ( std::string & piece : pieces )
            piece = alphabet[random() % std::size( alphabet )];
        EXPECT_EQ( converted( pieces, values ), searched( pieces, values ) )
            << testing::PrintToString( pieces );
    }
}

TEST( TwinlogTest, PlacesAreFoundInTextsOfAnyLength ) {
    const std::vector<std::string> values( 40, "value" );
    for ( const std::size_t places : { 1u, 31u, 32u, 33u, 39u, 40u, 41u, 2047u, 2048u, 2049u } )
        EXPECT_EQ( converted( std::vector<std::string>( places, "%s" ), values ),
                   searched( std::vector<std::string>( places, "%s" ), values ) )
            << places;
    for ( std::size_t length = 4085; length <= 4098; ++length ) {
        const std::vector<std::string> pieces{ std::string( length, 'x' ), "%s", "!", "%s", "end" };
        EXPECT_EQ( converted( pieces, values ), searched( pieces, values ) ) << length;
    }
}

TEST( TwinlogTest, PieceBehindAValueIsFilledByTheNextValue ) {
    Twinlog::FleetlogConverter converter;
    Twinlog::twinlogFixed_ << "a: "
                           << "%s";
    converter << 1 << 2;
    Twinlog::twinlogFixed_ << " b: "
                           << "%s"
                           << "%s";
    converter << 3;
    EXPECT_STREQ( converter.finish(), "a: 1 2 b: 3%s" );
}

} // namespace MessageTest
