#include "tests/Fleetlog/TraceFiles.h"

#include <Fleetlog/MsgDesc.h>
#include <Fleetlog/TraceHandle.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

// The reader: rendering, filters, merging, following, and files that are not as they should be.

namespace {

namespace Layout = Fleetlog::Format;
using Fleetlog::TraceFile;
using TraceReader::Record;

// A trace with two sites: "setSeed" with a number at line 31, "monitor" with a text at line 77.
class Writer {
  public:
    explicit Writer( const std::string & directory, std::size_t ringBytes = 4 * 4096,
                     int thread = 0,
                     Fleetlog::Timestamps timestamps = Fleetlog::Timestamps::counter )
        : file_( { .directory = directory,
                   .ringBytes = ringBytes,
                   .descriptorBytes = 4096,
                   .timestamps = timestamps },
                 thread ) {
        registerSite( seedId_, 31, "i", { "setSeed", " seed: ", "%s" } );
        registerSite( monitorId_, 77, "p", { "monitor", " event: ", "%s", "." } );
    }

    const std::string & path() const { return file_.path(); }

    void seed( std::uint32_t seed ) {
        file_.ringBuf()->startMsg( &file_, seedId_ );
        file_.ringBuf()->put4( seed );
        file_.ringBuf()->endMsg();
    }

    void monitor( const char * event ) {
        file_.ringBuf()->startMsg( &file_, monitorId_ );
        Fleetlog::put( file_.ringBuf(), event );
        file_.ringBuf()->endMsg();
    }

    void registerSite( int & msgId, int line, const char * letters,
                       std::initializer_list<const char *> pieces ) {
        Fleetlog::MsgDesc descriptor( &file_, &msgId, "Cairn/CairnLtHelper", line );
        descriptor.formatString().put( letters );
        for ( const char * const piece : pieces )
            descriptor << piece;
        descriptor.finish();
    }

    TraceFile & file() { return file_; }
    int seedId() const { return seedId_; }

  private:
    TraceFile file_;
    int seedId_ = 0;
    int monitorId_ = 0;
};

// The offsets of what stands in a file of Writer.
constexpr std::size_t descriptorsAt = Layout::pageBytes;
constexpr std::size_t blocksAt = 2 * Layout::pageBytes;
constexpr std::size_t blockAt( std::size_t index ) { return blocksAt + index * Layout::pageBytes; }
constexpr std::size_t firstRecordAt = blocksAt + sizeof( Layout::BlockHeader );

class TraceReaderTest : public testing::Test {
  protected:
    // What was written, as bytes.
    std::vector<std::byte> written( const std::function<void( Writer & )> & write,
                                    std::size_t ringBytes = 4 * Layout::pageBytes ) {
        const Support::Directory directory;
        Writer writer( directory.path(), ringBytes );
        write( writer );
        return Support::contentOf( writer.path() );
    }

    // Six blocks in a ring of four, which begins in the middle.
    std::vector<std::byte> wrapped() {
        return written( []( Writer & writer ) {
            for ( std::uint32_t i = 0; i < 900; ++i )
                writer.seed( i );
        } );
    }

    Support::Directory directory_;
};

template <class Value>
void poke( std::vector<std::byte> & content, std::size_t at, Value value ) {
    std::memcpy( content.data() + at, &value, sizeof value );
}

bool isMentioned( const Support::Reading & reading, const std::string & text ) {
    return std::any_of(
        reading.findings.begin(), reading.findings.end(),
        [&]( const auto & finding ) { return finding.find( text ) != finding.npos; } );
}

std::string refusal( std::vector<std::byte> content ) {
    try {
        TraceReader::File file( "bad.fleetlog", std::move( content ) );
    } catch ( const TraceReader::Error & error ) {
        return error.what();
    }
    return "accepted";
}

// Rendering -------------------------------------------------------------------------------------

std::string render( const std::string & path, TraceReader::Format format ) {
    TraceReader::File file( path );
    TraceReader::Renderer renderer( format );
    Record record;
    std::string lines;
    while ( file.next( record ) )
        renderer.append( lines, record );
    return lines;
}

// A line with what differs from run to run replaced.
std::string normalised( std::string line, const TraceReader::Info & info ) {
    const auto replace = [&]( const std::string & what, const std::string & with ) {
        for ( std::size_t at = 0; ( at = line.find( what, at ) ) != line.npos; at += with.size() )
            line.replace( at, what.size(), with );
    };
    replace( std::to_string( info.process ), "PROCESS" );
    const std::size_t date = line.find( "20" );
    if ( date != line.npos && line.size() > date + 30 && line[date + 29] == 'Z' )
        line.replace( date, 30, "TIME" );
    return line;
}

TEST_F( TraceReaderTest, TextLineHasTimeProcessPositionAndText ) {
    Writer writer( directory_.path() );
    writer.seed( 12345 );
    const auto info = Support::read( writer.path() ).info;
    EXPECT_EQ( normalised( render( writer.path(), TraceReader::Format::text ), info ),
               "TIME PROCESS Cairn/CairnLtHelper:31 setSeed seed: 12345\n" );
    EXPECT_EQ( normalised( render( writer.path(), TraceReader::Format::brief ), info ),
               "TIME setSeed seed: 12345\n" );
}

TEST_F( TraceReaderTest, JsonLineHasAllMembers ) {
    Writer writer( directory_.path() );
    writer.monitor( "a \"quoted\" \\ text\n" );
    const auto info = Support::read( writer.path() ).info;
    EXPECT_EQ( normalised( render( writer.path(), TraceReader::Format::json ), info ),
               R"({"time":"TIME","process":PROCESS,"file":"Cairn/CairnLtHelper","line":77,)"
               R"("function":"monitor","text":"monitor event: a \"quoted\" \\ text\u000a.",)"
               R"("values":["a \"quoted\" \\ text\u000a"]})"
               "\n" );
}

TEST_F( TraceReaderTest, TimeIsShownToTheNanosecondAndMarkedIfItIsThatOfTheBlock ) {
    Writer writer( directory_.path(), 4 * 4096, 0, Fleetlog::Timestamps::none );
    writer.seed( 1 );
    auto content = Support::contentOf( writer.path() );
    Layout::BlockHeader header;
    std::memcpy( &header, content.data() + blocksAt, sizeof header );
    header.time = 1'772'350'200'000'000'007;
    header.checksum = Layout::checksum( &header, offsetof( Layout::BlockHeader, checksum ) );
    poke( content, blocksAt, header );

    TraceReader::File file( "memory", content );
    TraceReader::Renderer brief( TraceReader::Format::brief );
    TraceReader::Renderer json( TraceReader::Format::json );
    Record record;
    std::string lines;
    ASSERT_TRUE( file.next( record ) );
    brief.append( lines, record );
    EXPECT_EQ( lines, "~2026-03-01T07:30:00.000000007Z setSeed seed: 1\n" );
    lines.clear();
    json.append( lines, record );
    EXPECT_TRUE(
        lines.starts_with( R"({"time":"2026-03-01T07:30:00.000000007Z","timeOfBlock":true,)" ) )
        << lines;
}

TEST_F( TraceReaderTest, ThreadIsShownIfTheFileHasOne ) {
    Writer writer( directory_.path(), 4 * 4096, 1 );
    writer.seed( 1 );
    const auto info = Support::read( writer.path() ).info;
    ASSERT_NE( info.thread, 0u );
    const std::string both = std::to_string( info.process ) + "/" + std::to_string( info.thread );
    EXPECT_NE( render( writer.path(), TraceReader::Format::text ).find( " " + both + " " ),
               std::string::npos );
    EXPECT_NE( render( writer.path(), TraceReader::Format::json )
                   .find( ",\"thread\":" + std::to_string( info.thread ) + "," ),
               std::string::npos );
}

TEST_F( TraceReaderTest, RecordIsOneLineWhateverItsTextContains ) {
    Writer writer( directory_.path() );
    writer.monitor( "two\nlines\tand \x1b[31m \xc3\xa9 \xff \xc3 \xed\xa0\x80 end" );
    EXPECT_TRUE(
        render( writer.path(), TraceReader::Format::brief )
            .ends_with(
                "two\\nlines\\tand \\x1b[31m \xc3\xa9 \\xff \\xc3 \\xed\\xa0\\x80 end.\n" ) );
    EXPECT_NE( render( writer.path(), TraceReader::Format::json )
                   .find( "two\\u000alines\\u0009and \\u001b[31m \xc3\xa9 \\ufffd \\ufffd "
                          "\\ufffd\\ufffd\\ufffd end" ),
               std::string::npos );
}

TEST_F( TraceReaderTest, CutTextIsShownAsCut ) {
    Writer writer( directory_.path() );
    writer.monitor( std::string( 500, 'x' ).c_str() );
    const std::string cut = std::string( Fleetlog::maxTextBytes, 'x' ) + "...";
    EXPECT_NE( render( writer.path(), TraceReader::Format::brief ).find( "event: " + cut + ".\n" ),
               std::string::npos );
    EXPECT_NE(
        render( writer.path(), TraceReader::Format::json ).find( "\"values\":[\"" + cut + "\"]" ),
        std::string::npos );
}

// Filters ---------------------------------------------------------------------------------------

TEST_F( TraceReaderTest, FiltersChooseByRecipeSiteThreadTimeAndText ) {
    Writer writer( directory_.path() );
    writer.seed( 1 );
    writer.monitor( "one" );
    writer.seed( 2 );
    const auto info = Support::read( writer.path() ).info;
    std::vector<std::int64_t> times;
    const auto chosen = [&]( const TraceReader::Filter & filter ) {
        TraceReader::File file( writer.path() );
        Record record;
        std::string found;
        times.clear();
        while ( file.next( record ) ) {
            times.push_back( record.time );
            if ( filter.accepts( record ) )
                found += std::to_string( times.size() - 1 );
        }
        return found;
    };
    EXPECT_EQ( chosen( {} ), "012" );
    EXPECT_EQ( chosen( { .recipe = "setSeed" } ), "02" );
    EXPECT_EQ( chosen( { .recipe = "set" } ), "" );
    EXPECT_EQ( chosen( { .file = "Cairn/CairnLtHelper" } ), "012" );
    EXPECT_EQ( chosen( { .file = "elsewhere" } ), "" );
    EXPECT_EQ( chosen( { .line = 77 } ), "1" );
    EXPECT_EQ( chosen( { .text = "seed: 2" } ), "2" );
    EXPECT_EQ( chosen( { .thread = info.process } ), "012" );
    EXPECT_EQ( chosen( { .thread = 1 } ), "" );
    const auto middle = times[1];
    EXPECT_EQ( chosen( { .from = middle } ), "12" );
    EXPECT_EQ( chosen( { .to = middle } ), "0" );
    EXPECT_EQ( chosen( { .recipe = "setSeed", .from = middle } ), "2" );
}

// Merging ---------------------------------------------------------------------------------------

TEST_F( TraceReaderTest, MergePutsTheRecordsOfAllThreadsInOrderOfTime ) {
    constexpr std::uint32_t rounds = 3000;
    Writer one( directory_.path(), 1 << 18, 1 );
    Writer other( directory_.path(), 1 << 18, 1 );
    for ( std::uint32_t i = 0; i < rounds; ++i )
        ( i % 3 == 0 ? one : other ).seed( i );
    TraceReader::Merge merge;
    for ( const auto & path : TraceReader::findFiles( directory_.path() ) )
        merge.add( std::make_unique<TraceReader::File>( path ) );
    ASSERT_EQ( merge.files().size(), 2u );
    Record record;
    std::uint32_t next = 0;
    while ( merge.next( record ) ) {
        std::string text;
        TraceReader::appendText( text, record );
        ASSERT_EQ( text, "setSeed seed: " + std::to_string( next ) );
        ++next;
    }
    EXPECT_EQ( next, rounds );
}

TEST_F( TraceReaderTest, DirectoryWithoutTraceFilesIsAnError ) {
    EXPECT_THROW( TraceReader::findFiles( directory_.path() ), TraceReader::Error );
    EXPECT_EQ( TraceReader::findFiles( "a-file" ), std::vector<std::string>{ "a-file" } );
}

// Following -------------------------------------------------------------------------------------

TEST_F( TraceReaderTest, FollowingShowsNewRecordsOfOldAndNewSites ) {
    Writer writer( directory_.path() );
    writer.seed( 0 );
    TraceReader::File file( writer.path() );
    Record record;
    std::string text;
    ASSERT_TRUE( file.next( record ) );
    ASSERT_FALSE( file.next( record ) );
    file.poll();
    EXPECT_FALSE( file.next( record ) );

    for ( std::uint32_t i = 1; i < 400; ++i ) { // over two block changes
        writer.seed( i );
        if ( i % 7 != 0 )
            continue;
        EXPECT_TRUE( file.poll() );
        for ( std::uint32_t expected = i - 6; expected <= i; ++expected ) {
            ASSERT_TRUE( file.next( record ) ) << i;
            text.clear();
            TraceReader::appendText( text, record );
            EXPECT_EQ( text, "setSeed seed: " + std::to_string( expected ) );
        }
        ASSERT_FALSE( file.next( record ) );
    }
    int lateId = 0;
    writer.registerSite( lateId, 99, "", { "late" } );
    writer.file().ringBuf()->startMsg( &writer.file(), lateId );
    writer.file().ringBuf()->endMsg();
    file.poll();
    while ( file.next( record ) ) {
        text.clear();
        TraceReader::appendText( text, record );
    }
    EXPECT_EQ( text, "late" );
    EXPECT_TRUE( file.findings().empty() );
}

TEST_F( TraceReaderTest, FollowerThatIsOvertakenSaysHowManyRecordsItMissed ) {
    Writer writer( directory_.path() );
    writer.seed( 0 );
    TraceReader::File file( writer.path() );
    auto before = Support::read( file );
    EXPECT_EQ( before.texts.size(), 1u );
    constexpr std::uint32_t total = 5000;
    for ( std::uint32_t i = 1; i < total; ++i )
        writer.seed( i );
    EXPECT_TRUE( file.poll() );
    const auto after = Support::read( file );
    ASSERT_FALSE( after.texts.empty() );
    EXPECT_EQ( after.texts.back(), "setSeed seed: " + std::to_string( total - 1 ) );
    EXPECT_GT( after.counts.overwrittenBlocks, 20u );
    ASSERT_EQ( file.findings().size(), 1u );
    EXPECT_EQ( file.findings()[0].kind, TraceReader::Finding::Kind::overwritten );
    EXPECT_NE( after.findings[0].find( "overwritten before they could be read: " +
                                       std::to_string( after.counts.overwrittenBlocks ) +
                                       " blocks" ),
               std::string::npos )
        << after.findings[0];
}

TEST_F( TraceReaderTest, FollowingAWriterAtFullSpeedShowsNoTornRecord ) {
    constexpr std::uint32_t total = 300'000;
    std::unique_ptr<Writer> writer( new Writer( directory_.path(), 16 * 4096 ) );
    TraceReader::File file( writer->path() );
    std::thread writing( [&] {
        for ( std::uint32_t i = 0; i < total; ++i )
            writer->seed( i );
        writer.reset();
    } );
    Record record;
    std::vector<TraceReader::Value> values;
    std::uint64_t read = 0;
    std::uint32_t next = 0;
    std::uint64_t overwritten = 0;
    bool isClosed = false;
    do {
        isClosed = file.info().isClosed; // what was written before it was closed is read after
        file.poll();
        while ( file.next( record ) ) {
            decode( record, values );
            ASSERT_EQ( values.size(), 1u );
            // What is passed over was overwritten, and that is counted.
            ASSERT_TRUE( values[0].number == next ||
                         file.counts().overwrittenBlocks > overwritten );
            overwritten = file.counts().overwrittenBlocks;
            ASSERT_GE( values[0].number, next );
            next = values[0].number + 1;
            ++read;
        }
    } while ( !isClosed );
    writing.join();
    EXPECT_EQ( read, file.counts().records );
    EXPECT_EQ( next, total );
    for ( const auto & finding : file.findings() )
        EXPECT_EQ( finding.kind, TraceReader::Finding::Kind::overwritten ) << finding.text();
}

// Damage ----------------------------------------------------------------------------------------

TEST_F( TraceReaderTest, FileThatIsNoTraceIsRefusedByName ) {
    EXPECT_EQ( refusal( {} ),
               "bad.fleetlog: not a trace file: it does not begin with \"FLEETLOG\"" );
    EXPECT_EQ( refusal( std::vector<std::byte>( 100'000, std::byte{ 'x' } ) ),
               "bad.fleetlog: not a trace file: it does not begin with \"FLEETLOG\"" );
    EXPECT_THROW( TraceReader::File( directory_.path() + "/missing" ), TraceReader::Error );
    EXPECT_THROW( TraceReader::File{ directory_.path() }, TraceReader::Error );
}

TEST_F( TraceReaderTest, UnknownVersionIsRefusedByName ) {
    auto content = wrapped();
    poke<std::uint32_t>( content, offsetof( Layout::FileHeader, version ), 2 );
    EXPECT_EQ( refusal( content ),
               "bad.fleetlog: has format version 2; this reader knows version 1: use "
               "the reader that belongs to the program that wrote it" );
}

TEST_F( TraceReaderTest, OtherByteOrderIsRefusedByName ) {
    auto content = wrapped();
    poke<std::uint32_t>( content, offsetof( Layout::FileHeader, byteOrder ), 0x04030201 );
    EXPECT_NE( refusal( content ).find( "other byte order" ), std::string::npos );
}

TEST_F( TraceReaderTest, HeaderWithWhichNothingCanBeFoundIsRefused ) {
    const auto whole = wrapped();
    const auto isRefused = [&]( std::size_t at, auto value ) {
        auto content = whole;
        poke( content, at, value );
        return refusal( content ).find( "damaged header" ) != std::string::npos;
    };
    EXPECT_TRUE( isRefused( offsetof( Layout::FileHeader, headerBytes ), std::uint32_t( 8 ) ) );
    EXPECT_TRUE( isRefused( offsetof( Layout::FileHeader, blockBytes ), std::uint32_t( 0 ) ) );
    EXPECT_TRUE( isRefused( offsetof( Layout::FileHeader, blockBytes ), std::uint32_t( 4097 ) ) );
    EXPECT_TRUE( isRefused( offsetof( Layout::FileHeader, blockCount ), std::uint64_t( 0 ) ) );
    EXPECT_TRUE( isRefused( offsetof( Layout::FileHeader, blockCount ), UINT64_MAX ) );
    EXPECT_TRUE( isRefused( offsetof( Layout::FileHeader, descriptorBytes ), UINT64_MAX ) );
}

TEST_F( TraceReaderTest, DamagedHeaderIsSaidAndTheRecordsAreRead ) {
    auto content = wrapped();
    poke( content, offsetof( Layout::FileHeader, program ), 'X' );
    const auto reading = Support::read( content );
    EXPECT_TRUE( isMentioned( reading, "at byte 0: the header is damaged" ) );
    EXPECT_EQ( reading.texts.size(), Support::read( wrapped() ).texts.size() );
}

TEST_F( TraceReaderTest, EveryTruncationIsReadAsFarAsItHoldsAndSaid ) {
    const auto whole = written(
        []( Writer & writer ) {
            for ( std::uint32_t i = 0; i < 500; ++i )
                i % 10 == 0 ? writer.monitor( "L3_HDR_ERROR" ) : writer.seed( i );
        },
        2 * Layout::pageBytes );
    const std::size_t all = Support::read( whole ).counts.records;
    ASSERT_GT( all, 100u );
    std::uint64_t most = 0;
    for ( std::size_t length = 0; length < whole.size(); ++length ) {
        std::vector<std::byte> content( whole.data(), whole.data() + length );
        if ( length < sizeof( Layout::FileHeader ) ) {
            ASSERT_NE( refusal( std::move( content ) ), "accepted" ) << length;
            continue;
        }
        TraceReader::File file( "memory", std::move( content ) );
        Record record;
        while ( file.next( record ) )
            ;
        ASSERT_FALSE( file.findings().empty() ) << length;
        ASSERT_NE( file.findings()[0].what.find( "the file ends here" ), std::string::npos )
            << length;
        ASSERT_GE( file.counts().records, length < blocksAt ? 0 : most ) << length;
        most = file.counts().records;
    }
    EXPECT_EQ( most, all );
}

TEST_F( TraceReaderTest, BytesAfterTheEndAreSaid ) {
    auto content = wrapped();
    content.resize( content.size() + 5 );
    EXPECT_TRUE( isMentioned( Support::read( content ), "5 bytes after the end" ) );
}

TEST_F( TraceReaderTest, DamagedDescriptorIsSaidAndItsRecordsAreShownAsBytes ) {
    auto content = written( []( Writer & writer ) {
        writer.seed( 0x01020304 );
        writer.monitor( "x" );
    } );
    poke( content, descriptorsAt + sizeof( Layout::DescriptorHeader ) + 5, 'X' );
    const auto reading = Support::read( content );
    EXPECT_TRUE( isMentioned( reading, "at byte 4096: a descriptor is damaged" ) );
    EXPECT_TRUE( isMentioned( reading, "has no descriptor that can be read" ) );
    ASSERT_EQ( reading.texts.size(), 2u );
    EXPECT_TRUE( reading.texts[0].ends_with( " with bytes 0403020100000000" ) ) << reading.texts[0];
    EXPECT_EQ( reading.texts[1], "monitor event: x." );
}

TEST_F( TraceReaderTest, DescriptorOfImpossibleSizeEndsTheDescriptorsNotTheRecords ) {
    for ( const std::uint32_t size : { 8u, 27u, 5000u, UINT32_MAX } ) {
        auto content = written( []( Writer & writer ) { writer.monitor( "x" ); } );
        poke( content, descriptorsAt, size );
        const auto reading = Support::read( content );
        EXPECT_TRUE( isMentioned( reading, "impossible size " + std::to_string( size ) ) );
        EXPECT_TRUE( reading.sites.empty() );
        EXPECT_EQ( reading.texts.size(), 1u );
    }
}

TEST_F( TraceReaderTest, DamagedBlockHeaderLosesItsBlockOnlyAndTheLossIsCounted ) {
    const auto whole = wrapped();
    const auto wholeReading = Support::read( whole );
    ASSERT_EQ( wholeReading.counts.overwrittenBlocks, 2u );
    // The ring holds the blocks 5, 6, 3, 4.
    for ( std::size_t index = 0; index < 4; ++index ) {
        auto content = whole;
        poke<std::uint64_t>( content, blockAt( index ) + offsetof( Layout::BlockHeader, time ),
                             12 );
        const auto reading = Support::read( content );
        EXPECT_TRUE( isMentioned( reading, "at byte " + std::to_string( blockAt( index ) ) +
                                               ": the header of a block is damaged" ) );
        EXPECT_EQ( reading.counts.blocks, 3u );
        // After the newest, nothing tells that there was one.
        EXPECT_EQ( reading.counts.missingBlocks, index == 1 ? 0u : 1u );
        EXPECT_LT( reading.texts.size(), wholeReading.texts.size() );
    }
}

TEST_F( TraceReaderTest, RecordOfImpossibleSizeLosesTheRestOfItsBlockOnly ) {
    const auto whole = wrapped();
    const auto wholeReading = Support::read( whole );
    for ( const std::uint32_t size : { 1u, 8u, 25u, 4096u, UINT32_MAX } ) {
        auto content = whole;
        const std::size_t at =
            blockAt( 2 ) + sizeof( Layout::BlockHeader ) + std::size_t( 10 ) * 24;
        poke( content, at, size );
        const auto reading = Support::read( content );
        EXPECT_TRUE( isMentioned( reading, "at byte " + std::to_string( at ) +
                                               ": a record has the impossible size " +
                                               std::to_string( size ) ) );
        EXPECT_EQ( reading.counts.blocks, 4u );
        EXPECT_GT( reading.texts.size(), wholeReading.texts.size() * 2 / 3 );
        EXPECT_LT( reading.texts.size(), wholeReading.texts.size() );
    }
}

TEST_F( TraceReaderTest, RecordsThatEndEarlyInAFullBlockAreSaid ) {
    auto content = wrapped();
    const std::size_t at = blockAt( 2 ) + sizeof( Layout::BlockHeader ) + std::size_t( 10 ) * 24;
    poke<std::uint32_t>( content, at, 0 );
    const auto reading = Support::read( content );
    EXPECT_EQ( reading.findings,
               std::vector<std::string>{
                   "memory: at byte " + std::to_string( at ) +
                   ": the records of a block end early; what followed in it is lost" } );
}

TEST_F( TraceReaderTest, RecordThatDoesNotFitItsDescriptorIsSaidAndShownAsBytes ) {
    auto content = written( []( Writer & writer ) {
        writer.monitor( "x" );
        writer.monitor( "y" );
    } );
    poke<std::uint16_t>( content, firstRecordAt + sizeof( Layout::RecordHeader ), 500 );
    const auto reading = Support::read( content );
    EXPECT_TRUE( isMentioned( reading, "does not fit its descriptor, Cairn/CairnLtHelper:77" ) );
    ASSERT_EQ( reading.texts.size(), 2u );
    EXPECT_NE( reading.texts[0].find( " with bytes f401" ), std::string::npos );
    EXPECT_EQ( reading.texts[1], "monitor event: y." );
}

TEST_F( TraceReaderTest, BlockThatWasBeingMadeAnewIsNoDamage ) {
    auto content = wrapped();
    poke<std::uint64_t>( content, blockAt( 2 ), 0 ); // the oldest: next in turn
    const auto reading = Support::read( content );
    EXPECT_EQ( reading.findings, std::vector<std::string>{} );
    EXPECT_EQ( reading.counts.blocks, 3u );
    EXPECT_EQ( reading.counts.overwrittenBlocks, 3u );
}

TEST_F( TraceReaderTest, EverySingleDamagedByteIsSurvived ) {
    const auto whole = written( []( Writer & writer ) {
        for ( std::uint32_t i = 0; i < 300; ++i )
            i % 10 == 0 ? writer.monitor( "event" ) : writer.seed( i );
    } );
    // The header, the descriptors, and the first block, in all of which something is told from each
    // bit.
    for ( const auto & [begin, end] : { std::pair{ std::size_t( 8 ), sizeof( Layout::FileHeader ) },
                                        std::pair{ descriptorsAt, descriptorsAt + 200 },
                                        std::pair{ blocksAt, blocksAt + 200 } } )
        for ( std::size_t at = begin; at < end; ++at )
            for ( const unsigned flip : { 0x01u, 0x80u, 0xffu } ) {
                auto content = whole;
                content[at] ^= static_cast<std::byte>( flip );
                try {
                    const auto reading = Support::read( std::move( content ) );
                    EXPECT_LE( reading.texts.size(), 301u );
                } catch ( const TraceReader::Error & error ) {
                    EXPECT_LT( at, sizeof( Layout::FileHeader ) ) << error.what();
                }
            }
}

} // namespace
