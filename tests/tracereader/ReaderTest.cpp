#include "tests/support/TraceFiles.h"
#include "tracereader/Bytes.h"

#include <Fleetlog/MsgDesc.h>
#include <Fleetlog/TraceHandle.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <utility>
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

// The number of the block that lies in the first place of a file of Writer.
std::uint64_t sequenceOfFirstBlock( const std::string & path ) {
    const auto content = Support::contentOf( path );
    std::uint64_t sequence = 0;
    std::memcpy( &sequence, content.data() + blocksAt, sizeof sequence );
    return sequence;
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

// --- Rendering

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
        for ( std::size_t at = 0; ( at = line.find( what, at ) ) != std::string::npos;
              at += with.size() )
            line.replace( at, what.size(), with );
    };
    replace( std::to_string( info.process ), "PROCESS" );
    const std::size_t date = line.find( "20" );
    if ( date != std::string::npos && line.size() > date + 30 && line[date + 29] == 'Z' )
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
    header.checksum = 0;
    header.checksum = Layout::checksum( &header, sizeof header );
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

// --- Filters

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

// --- Merging

// A file whose records, of "setSeed", have these numbers and these counters, from the process's base
// on. `base` takes the place of the base, if it is given.
std::unique_ptr<TraceReader::File>
withCounters( const std::string & name,
              const std::vector<std::pair<std::uint32_t, std::uint64_t>> & records,
              std::optional<std::uint64_t> base = {} ) {
    const Support::Directory directory;
    Writer writer( directory.path(), 4 * 4096, 1 );
    for ( const auto & [number, counter] : records )
        writer.seed( number );
    auto content = Support::contentOf( writer.path() );
    Layout::FileHeader header;
    std::memcpy( &header, content.data(), sizeof header );
    header.baseCounter = base.value_or( header.baseCounter );
    header.counterRate = 2'600'000'000;
    header.checksum = Layout::checksum( &header, offsetof( Layout::FileHeader, checksum ) );
    poke( content, 0, header );
    std::size_t at = firstRecordAt;
    for ( const auto & [number, counter] : records ) {
        poke<std::uint64_t>( content, at + offsetof( Layout::RecordHeader, time ),
                             header.baseCounter + counter );
        at += 24;
    }
    return std::make_unique<TraceReader::File>( name, std::move( content ) );
}

std::vector<std::string> texts( TraceReader::Merge & merge ) {
    std::vector<std::string> all;
    Record record;
    while ( merge.next( record ) ) {
        all.emplace_back();
        TraceReader::appendText( all.back(), record );
    }
    return all;
}

std::vector<std::string> seeds( std::initializer_list<int> numbers ) {
    std::vector<std::string> all;
    for ( const int number : numbers )
        all.push_back( "setSeed seed: " + std::to_string( number ) );
    return all;
}

TEST_F( TraceReaderTest, MergeOrdersRecordsOfAProcessByCounterAlsoWithinANanosecond ) {
    // As of a counter that moves in steps, with single counts inside a step.
    for ( const bool isSwapped : { false, true } ) {
        auto one = withCounters( "one", { { 1, 26 }, { 3, 52 }, { 6, 104 } } );
        auto other = withCounters( "other", { { 0, 25 }, { 2, 27 }, { 4, 53 }, { 5, 54 } } );
        if ( isSwapped )
            one.swap( other );
        TraceReader::Merge merge;
        merge.add( std::move( one ) );
        merge.add( std::move( other ) );
        EXPECT_EQ( texts( merge ), seeds( { 0, 1, 2, 3, 4, 5, 6 } ) );
    }
}

TEST_F( TraceReaderTest, MergeOrdersRecordsWithTheSameCounterByFile ) {
    TraceReader::Merge merge;
    merge.add( withCounters( "one", { { 0, 26 }, { 2, 52 }, { 4, 78 } } ) );
    merge.add( withCounters( "other", { { 1, 26 }, { 3, 52 }, { 5, 78 } } ) );
    EXPECT_EQ( texts( merge ), seeds( { 0, 1, 2, 3, 4, 5 } ) );
}

TEST_F( TraceReaderTest, MergeOrdersRecordsOfDifferentProcessesByTime ) {
    // The second process was started later, on another machine: its counters are small.
    TraceReader::Merge merge;
    merge.add( withCounters( "one", { { 0, 2'600 }, { 2, 7'800 } }, 1'000'000'000'000 ) );
    merge.add( withCounters( "other", { { 1, 5'200 }, { 3, 10'400 } }, 1'000 ) );
    EXPECT_EQ( texts( merge ), seeds( { 0, 1, 2, 3 } ) );
}

TEST_F( TraceReaderTest, MergePutsTheRecordsOfAllThreadsInOrderOfTime ) {
    constexpr std::uint32_t rounds = 3000;
    std::vector<std::pair<std::uint32_t, std::uint64_t>> one;
    std::vector<std::pair<std::uint32_t, std::uint64_t>> other;
    std::uint64_t counter = 0;
    for ( std::uint32_t i = 0; i < 150; ++i ) {
        counter += std::array<std::uint64_t, 3>{ 26, 52, 1 }[i % 3];
        ( i % 7 < 3 ? one : other ).emplace_back( i, counter );
    }
    TraceReader::Merge made;
    made.add( withCounters( "one", one ) );
    made.add( withCounters( "other", other ) );
    std::uint32_t next = 0;
    for ( const auto & text : texts( made ) )
        EXPECT_EQ( text, "setSeed seed: " + std::to_string( next++ ) );
    EXPECT_EQ( next, 150u );

    // And with the processor's own counter, as it is.
    Writer first( directory_.path(), 1 << 18, 1 );
    Writer second( directory_.path(), 1 << 18, 1 );
    for ( std::uint32_t i = 0; i < rounds; ++i )
        ( i % 3 == 0 ? first : second ).seed( i );
    TraceReader::Merge merge;
    for ( const auto & path : TraceReader::findFiles( directory_.path() ) )
        EXPECT_TRUE( merge.add( path ) );
    ASSERT_EQ( merge.files().size(), 2u );
    Record record;
    next = 0;
    std::int64_t last = INT64_MIN;
    while ( merge.next( record ) ) {
        ASSERT_GE( record.counter, last );
        last = record.counter;
        ++next;
    }
    EXPECT_EQ( next, rounds );
}

TEST_F( TraceReaderTest, FileThatIsAddedLaterComesInItsTurnAmongWhatIsLeft ) {
    TraceReader::Merge merge;
    merge.add( withCounters( "one", { { 0, 10 }, { 1, 30 } } ) );
    EXPECT_EQ( texts( merge ), seeds( { 0, 1 } ) );
    merge.add( withCounters( "other", { { 2, 20 }, { 3, 40 } } ) );
    EXPECT_TRUE( merge.poll() );
    EXPECT_EQ( texts( merge ), seeds( { 2, 3 } ) );
    EXPECT_FALSE( merge.poll() );
}

// --- Folders

TEST_F( TraceReaderTest, FilesOfADirectoryAreThoseWithTheEndingOfATrace ) {
    EXPECT_EQ( TraceReader::findFiles( directory_.path() ), std::vector<std::string>{} );
    EXPECT_THROW( TraceReader::findFiles( directory_.path() + "/missing" ), TraceReader::Error );
    directory_.write( "b.fleetlog", "" );
    directory_.write( "a.fleetlog", "" );
    directory_.write( "notes.txt", "" );
    EXPECT_EQ( TraceReader::findFiles( directory_.path() ),
               ( std::vector<std::string>{ directory_.path() + "/a.fleetlog",
                                           directory_.path() + "/b.fleetlog" } ) );
}

TEST_F( TraceReaderTest, FilesThatCannotBeReadAreFindingsAndHideNoOther ) {
    Writer writer( directory_.path() );
    writer.seed( 7 );
    const auto path = [&]( const char * name ) { return directory_.path() + "/" + name; };
    directory_.write( "a-empty.fleetlog", "" );
    directory_.write( "b-zeros.fleetlog", std::string( 100'000, '\0' ) );
    directory_.write( "c-notes.fleetlog", "notes" );
    ASSERT_EQ( ::mkfifo( path( "d-fifo.fleetlog" ).c_str(), 0600 ), 0 );
    std::filesystem::create_symlink( path( "missing" ), path( "e-dangling.fleetlog" ) );
    std::filesystem::create_directory( path( "f-directory.fleetlog" ) );
    directory_.write( "z-cut.fleetlog", "FLEETLOG" );

    TraceReader::Merge merge;
    for ( const auto & file : TraceReader::findFiles( directory_.path() ) )
        merge.add( file );
    EXPECT_EQ( texts( merge ), seeds( { 7 } ) );
    std::vector<std::string> findings;
    for ( const auto & finding : merge.findings() )
        findings.push_back( finding.text() );
    EXPECT_EQ(
        findings,
        ( std::vector<std::string>{
            path( "a-empty.fleetlog: is empty: its writer was stopped before it had made it" ),
            path( "b-zeros.fleetlog: begins with zeros: its writer was stopped before it had "
                  "written the header" ),
            path( "c-notes.fleetlog: not a trace file: it does not begin with \"FLEETLOG\"" ),
            path( "d-fifo.fleetlog: not a trace file: not a regular file" ),
            path( "e-dangling.fleetlog: cannot be read: No such file or directory" ),
            path( "f-directory.fleetlog: not a trace file: not a regular file" ),
            path( "z-cut.fleetlog: ends within its header, after 8 bytes; nothing can be read" ),
        } ) );
    for ( const auto & finding : merge.findings() )
        EXPECT_EQ( finding.kind, finding.file == path( "e-dangling.fleetlog" )
                                     ? TraceReader::Finding::Kind::removed
                                     : TraceReader::Finding::Kind::damage );
}

TEST_F( TraceReaderTest, FileWithoutReadPermissionIsAFindingAndHidesNoOther ) {
    std::vector<std::string> paths;
    for ( std::uint32_t i = 0; i < 2; ++i ) {
        Writer writer( directory_.path() );
        writer.seed( i );
        paths.push_back( writer.path() );
        ::chmod( writer.path().c_str(), i == 0 ? 0000 : 0644 );
    }
    ::chmod( directory_.path().c_str(), 0755 );
    EXPECT_EQ( Support::runInChild( [&] {
                   // No permission keeps the superuser out.
                   if ( ::geteuid() == 0 && ::seteuid( 65534 ) != 0 )
                       return false;
                   TraceReader::Merge merge;
                   for ( const auto & path : paths )
                       merge.add( path );
                   return texts( merge ) == seeds( { 1 } ) && merge.findings().size() == 1 &&
                          merge.findings()[0].text() ==
                              paths[0] + ": cannot be read: Permission denied";
               } ),
               0 );
}

TEST_F( TraceReaderTest, FolderWithMoreFilesThanMayBeOpenIsReadInFull ) {
    constexpr std::uint32_t files = 260;
    for ( std::uint32_t i = 0; i < files; ++i ) {
        Writer writer( directory_.path(), 2 * 4096 );
        writer.seed( i );
    }
    {
        // Sanitizers need descriptors of their own when they meet a class for the first time.
        TraceReader::Merge merge;
        merge.add( directory_.files().front() );
        texts( merge );
    }
    for ( const rlim_t limit : { rlim_t( 5 ), rlim_t( 64 ) } )
        EXPECT_EQ( Support::runInChild( [&] {
                       for ( int descriptor = 3; descriptor < 64; ++descriptor )
                           ::close( descriptor );
                       const rlimit few{ limit, limit };
                       ::setrlimit( RLIMIT_NOFILE, &few );
                       TraceReader::Merge merge;
                       for ( const auto & path : TraceReader::findFiles( directory_.path() ) )
                           if ( !merge.add( path ) )
                               return false;
                       const auto all = texts( merge );
                       for ( std::uint32_t i = 0; i < files; ++i )
                           if ( all.at( i ) != "setSeed seed: " + std::to_string( i ) )
                               return false;
                       // There is a descriptor left to look for new files.
                       return TraceReader::findFiles( directory_.path() ).size() == files &&
                              merge.findings().empty() && all.size() == files;
                   } ),
                   0 );
}

TEST_F( TraceReaderTest, FileThatIsReplacedWhileItIsReadIsSaid ) {
    constexpr std::uint32_t files = 201; // one more than stay open
    std::vector<std::string> paths;
    for ( std::uint32_t i = 0; i < files; ++i ) {
        Writer writer( directory_.path(), 2 * 4096 );
        writer.seed( i );
        paths.push_back( writer.path() );
    }
    TraceReader::Merge merge;
    for ( const auto & path : paths )
        ASSERT_TRUE( merge.add( path ) );
    std::filesystem::copy_file( paths[1], paths[0] + "-copy" );
    std::filesystem::rename( paths[0] + "-copy", paths[0] );
    EXPECT_EQ( texts( merge ).size(), files - 1 );
    ASSERT_EQ( merge.findings().size(), 1u );
    EXPECT_EQ( merge.findings()[0].text(),
               paths[0] + ": was replaced by another file while it was read; it is not read "
                          "further" );
}

// --- Earlier versions

TEST_F( TraceReaderTest, FilesOfVersion1AreRead ) {
    const struct {
        const char * timestamps;
        std::uint32_t first;
        std::uint32_t end;
        bool isClosed;
    } kept[] = {
        { "none", 0, 300, true }, { "tick", 0, 300, false }, { "counter", 302, 500, true } };
    for ( const auto & each : kept ) {
        const std::string path =
            std::string( TEST_DATA "/version1-" ) + each.timestamps + ".fleetlog";
        const auto reading = Support::read( path );
        EXPECT_TRUE( reading.findings.empty() ) << path;
        EXPECT_EQ( reading.info.version, 1u );
        EXPECT_EQ( reading.info.timestamps, each.timestamps );
        EXPECT_EQ( reading.info.program, "agent" );
        EXPECT_EQ( reading.info.isClosed, each.isClosed );
        EXPECT_EQ( TraceReader::File( path ).writer(),
                   each.isClosed ? TraceReader::Writer::ended : TraceReader::Writer::unknown );
        ASSERT_EQ( reading.texts.size(), each.end - each.first ) << path;
        for ( std::uint32_t i = each.first; i < each.end; ++i )
            EXPECT_EQ( reading.texts[i - each.first],
                       i % 10 == 0 ? "monitor event: L3_HDR_ERROR."
                                   : "setSeed seed: " + std::to_string( i ) + " l2If: " +
                                         std::to_string( static_cast<std::uint16_t>( i * 7 ) ) +
                                         " op: " + ( i % 2 != 0 ? "true" : "false" ) );
        TraceReader::File file( path );
        Record record;
        ASSERT_TRUE( file.next( record ) );
        EXPECT_EQ( record.thread, each.timestamps == std::string( "counter" ) ? 6144u : 0u );
        EXPECT_EQ( record.time / 1'000'000'000, 1795270092 + ( each.first != 0 ? 1 : 0 ) );
    }
}

TEST_F( TraceReaderTest, Version2StaysReadable ) {
    struct Kept {
        const char * timestamps;
        std::uint32_t first;
        std::uint32_t end;
        bool isClosed;
    } kept[] = {
        { "none", 0, 200, true }, { "tick", 302, 500, false }, { "counter", 30, 160, true } };
    for ( const auto & each : kept ) {
        const std::string path =
            std::string( TEST_DATA "/version2-" ) + each.timestamps + ".fleetlog";
        const auto reading = Support::read( path );
        EXPECT_TRUE( reading.findings.empty() ) << path;
        EXPECT_EQ( reading.info.version, 2u );
        EXPECT_EQ( reading.info.segment, 0u );
        EXPECT_EQ( reading.info.timestamps, each.timestamps );
        EXPECT_EQ( reading.info.program, "agent" );
        EXPECT_EQ( reading.info.isClosed, each.isClosed );
        EXPECT_EQ( TraceReader::File( path ).writer(), TraceReader::Writer::ended );
        ASSERT_EQ( reading.texts.size(), each.end - each.first ) << path;
        for ( std::uint32_t i = each.first; i < each.end; ++i )
            EXPECT_EQ( reading.texts[i - each.first],
                       i % 10 == 0 ? "monitor event: L3_HDR_ERROR."
                                   : "setSeed seed: " + std::to_string( i ) + " l2If: " +
                                         std::to_string( static_cast<std::uint16_t>( i * 7 ) ) +
                                         " op: " + ( i % 2 != 0 ? "true" : "false" ) );
        TraceReader::File file( path );
        Record record;
        std::set<std::uint32_t> threads;
        while ( file.next( record ) ) {
            threads.insert( record.thread );
            EXPECT_EQ( record.time / 1'000'000'000, 1795282028 );
        }
        EXPECT_EQ( threads, each.timestamps == std::string( "counter" )
                                ? std::set<std::uint32_t>( { 5332, 5333 } )
                                : std::set<std::uint32_t>( { 0 } ) );
    }
}

// --- Following

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

// The interleaving step by step: the reader is in the middle of the newest block when the writer
// comes round to it, and no other block is lost.
TEST_F( TraceReaderTest, RestOfABlockThatIsOverwrittenWhileItIsFollowedIsCounted ) {
    Writer writer( directory_.path(), 4 * 4096 );
    writer.seed( 0 );
    TraceReader::File file( writer.path() );
    Record record;
    ASSERT_TRUE( file.next( record ) );
    ASSERT_FALSE( file.next( record ) );
    EXPECT_EQ( file.counts().overwrittenBytes, 0u );
    // Up to the first record that goes into the first block's place again.
    std::uint32_t written = 1;
    for ( ; sequenceOfFirstBlock( writer.path() ) == 1; ++written )
        writer.seed( written );
    ASSERT_EQ( sequenceOfFirstBlock( writer.path() ), 5u );

    EXPECT_TRUE( file.poll() );
    const auto reading = Support::read( file );
    const std::uint64_t lost = written - 1 - reading.texts.size();
    EXPECT_EQ( reading.texts.back(), "setSeed seed: " + std::to_string( written - 1 ) );
    ASSERT_GT( lost, 100u );
    EXPECT_EQ( reading.counts.overwrittenBlocks, 0u );
    ASSERT_TRUE( reading.counts.overwrittenRecords() );
    EXPECT_NEAR( static_cast<double>( *reading.counts.overwrittenRecords() ),
                 static_cast<double>( lost ), 20 );
    ASSERT_EQ( reading.findings.size(), 1u );
    EXPECT_NE( reading.findings[0].find( "overwritten before they could be read: 0 blocks before "
                                         "this one, and the rest of the one before" ),
               std::string::npos )
        << reading.findings[0];
}

// The same between two blocks: the writer comes round while the reader is about to go from a block to
// the next, and is just making that one anew.
TEST_F( TraceReaderTest, BlockThatIsMadeAnewWhileItIsLookedForIsOverwrittenAndNotMissing ) {
    constexpr std::uint32_t recordsOfBlock = 156;
    for ( const bool hasComeRound : { true, false } ) {
        auto content = wrapped(); // the blocks 5, 6, 3, 4
        poke<std::uint64_t>( content, blockAt( 3 ), 0 );
        const std::string path = directory_.path() + "/stepped";
        std::ofstream( path, std::ios::binary )
            .write( reinterpret_cast<const char *>( content.data() ),
                    static_cast<std::streamsize>( content.size() ) );
        TraceReader::File file( path );
        Record record;
        for ( std::uint32_t i = 0; i < recordsOfBlock; ++i )
            ASSERT_TRUE( file.next( record ) );
        if ( hasComeRound ) { // block 7 lies in the place of 3, and 8 is begun in that of 4
            Layout::BlockHeader header;
            std::memcpy( &header, content.data() + blockAt( 2 ), sizeof header );
            ASSERT_EQ( header.sequence, 3u );
            header.sequence = 7;
            header.checksum = 0;
            header.checksum = Layout::checksum( &header, sizeof header );
            std::fstream stepped( path, std::ios::binary | std::ios::in | std::ios::out );
            stepped.seekp( blockAt( 2 ) );
            stepped.write( reinterpret_cast<const char *>( &header ), sizeof header );
        }
        const auto reading = Support::read( file );
        EXPECT_EQ( reading.counts.overwrittenBlocks, hasComeRound ? 3u : 2u );
        EXPECT_EQ( reading.counts.missingBlocks, hasComeRound ? 0u : 1u );
        ASSERT_EQ( file.findings().size(), 1u );
        EXPECT_EQ( file.findings()[0].kind, hasComeRound ? TraceReader::Finding::Kind::overwritten
                                                         : TraceReader::Finding::Kind::damage );
    }
}

TEST_F( TraceReaderTest, FileThatIsCutWhileItIsFollowedIsSaidAndHasNoWriterAnyMore ) {
    Writer writer( directory_.path() );
    writer.seed( 0 );
    const std::string copy = directory_.path() + "/copy";
    std::filesystem::copy_file( writer.path(), copy );
    TraceReader::File file( copy );
    EXPECT_EQ( Support::read( file ).texts.size(), 1u );
    std::filesystem::resize_file( copy, blocksAt );
    file.poll();
    EXPECT_EQ( file.writer(), TraceReader::Writer::ended );
    ASSERT_EQ( file.findings().size(), 1u );
    EXPECT_EQ( file.findings()[0].kind, TraceReader::Finding::Kind::damage );
    EXPECT_NE( file.findings()[0].what.find( "the file was cut here, from 24576 bytes" ),
               std::string::npos )
        << file.findings()[0].what;
}

// Whether nothing more is expected of a file that nobody writes, when it was read.
bool comesToAnEnd( std::vector<std::byte> content ) {
    TraceReader::File file( "memory", std::move( content ) );
    Record record;
    for ( int poll = 0; poll < 5; ++poll ) {
        while ( file.next( record ) )
            ;
        if ( !file.poll() )
            return true;
    }
    return false;
}

TEST_F( TraceReaderTest, FollowingAFileThatIsNotWrittenComesToAnEndWhateverItsLastBytesAre ) {
    const auto whole = wrapped();
    for ( std::size_t length = blocksAt; length <= whole.size(); ++length )
        ASSERT_TRUE( comesToAnEnd( { whole.data(), whole.data() + length } ) ) << length;
    // Its writer was killed as it left the rest of the last block unused.
    auto left = written( []( Writer & writer ) { writer.seed( 7 ); } );
    poke<std::uint32_t>( left, firstRecordAt + offsetof( Layout::RecordHeader, id ),
                         Layout::restUnusedId );
    EXPECT_TRUE( comesToAnEnd( left ) );
    // A record up to the end of its block.
    auto full = written( []( Writer & writer ) { writer.seed( 7 ); } );
    poke<std::uint32_t>( full, firstRecordAt,
                         Layout::pageBytes - sizeof( Layout::BlockHeader ) - 8 );
    EXPECT_TRUE( comesToAnEnd( full ) );
}

// A file that changes between one read and the next, as a writer changes it. What is copied in one go
// is copied in an order of its own, as processors do it: a part of it is from before the change.
class ChangingBytes : public TraceReader::Bytes {
  public:
    struct State {
        std::vector<std::byte> content;
        std::size_t oldFrom; ///< from here on, a copy that spans it still has what was before
    };

    explicit ChangingBytes( std::vector<State> states ) : states_( std::move( states ) ) {}

    std::size_t read( std::uint64_t offset, void * to, std::size_t size ) const override {
        const auto & now = states_[current_];
        std::memcpy( to, now.content.data() + offset, size );
        if ( size < Layout::pageBytes || current_ + 1 == states_.size() )
            return size;
        const auto & next = states_[++current_];
        if ( offset < next.oldFrom && next.oldFrom < offset + size )
            std::memcpy( to, next.content.data() + offset, next.oldFrom - offset );
        return size;
    }

    std::uint64_t size() const override { return states_[0].content.size(); }
    std::uint64_t nextData( std::uint64_t offset ) const override { return offset; }
    std::uint64_t nextHole( std::uint64_t ) const override { return size(); }
    std::optional<bool> isLocked() const override { return true; }

  private:
    std::vector<State> states_;
    mutable std::size_t current_ = 0;
};

// The newest block while records are written to it, one during each copy: the copy has the record,
// and behind it, instead of the end that was written first, what the block held a round before.
TEST_F( TraceReaderTest, WhatABlockHeldARoundBeforeIsNotTakenForRecords ) {
    Writer writer( directory_.path(), 4 * 4096 );
    std::uint32_t written = 0;
    while ( sequenceOfFirstBlock( writer.path() ) != 5 )
        writer.seed( written++ );
    for ( int i = 0; i < 20; ++i )
        writer.seed( written++ );
    std::vector<ChangingBytes::State> states;
    for ( std::size_t i = 0; i < 12; ++i ) {
        const std::size_t end = firstRecordAt + ( 21 + i ) * 24;
        states.push_back( { Support::contentOf( writer.path() ), end } );
        writer.seed( written++ );
    }
    TraceReader::File file( "changing", std::make_unique<ChangingBytes>( states ) );
    Record record;
    std::vector<TraceReader::Value> values;
    std::optional<std::uint32_t> last;
    for ( int poll = 0; poll < 12; ++poll, file.poll() ) {
        while ( file.next( record ) ) {
            decode( record, values );
            ASSERT_EQ( values.size(), 1u );
            ASSERT_TRUE( !last || values[0].number == *last + 1 )
                << values[0].number << " after " << *last;
            last = values[0].number;
        }
    }
    EXPECT_EQ( last, written - 2 );
    EXPECT_TRUE( file.findings().empty() );
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
            ASSERT_TRUE( values[0].number == next || file.counts().overwrittenBytes > overwritten )
                << "record " << values[0].number << " where " << next << " is due, at byte "
                << record.offset << ( file.findings().empty() ? "" : file.findings().back().what );
            overwritten = file.counts().overwrittenBytes;
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

// --- Damage

TEST_F( TraceReaderTest, FileThatIsNoTraceIsRefusedByName ) {
    EXPECT_EQ( refusal( std::vector<std::byte>( 3, std::byte{ 'x' } ) ),
               "bad.fleetlog: not a trace file: it does not begin with \"FLEETLOG\"" );
    EXPECT_EQ( refusal( std::vector<std::byte>( 100'000, std::byte{ 'x' } ) ),
               "bad.fleetlog: not a trace file: it does not begin with \"FLEETLOG\"" );
    EXPECT_THROW( TraceReader::File( directory_.path() + "/missing" ), TraceReader::Error );
    EXPECT_THROW( TraceReader::File{ directory_.path() }, TraceReader::Error );
}

TEST_F( TraceReaderTest, UnknownVersionIsRefusedByName ) {
    auto content = wrapped();
    poke<std::uint32_t>( content, offsetof( Layout::FileHeader, version ), 4 );
    EXPECT_EQ( refusal( content ),
               "bad.fleetlog: has format version 4; this reader knows versions 1 to 3: use "
               "the reader that belongs to the program that wrote it" );
    poke<std::uint32_t>( content, offsetof( Layout::FileHeader, version ), 0 );
    EXPECT_NE( refusal( content ).find( "has format version 0" ), std::string::npos );
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
    EXPECT_TRUE( isRefused( offsetof( Layout::FileHeader, blockBytes ), std::uint32_t( 48 ) ) );
    EXPECT_TRUE( isRefused( offsetof( Layout::FileHeader, blockBytes ), std::uint32_t( 8192 ) ) );
    EXPECT_TRUE( isRefused( offsetof( Layout::FileHeader, blockCount ), std::uint64_t( 1 ) ) );
    EXPECT_TRUE( isRefused( offsetof( Layout::FileHeader, descriptorBytes ), std::uint64_t( 0 ) ) );
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

TEST_F( TraceReaderTest, BlockSizeThatNoWriterMakesIsRefusedByName ) {
    auto content = wrapped();
    poke<std::uint32_t>( content, offsetof( Layout::FileHeader, blockBytes ), 48 );
    EXPECT_EQ( refusal( content ),
               "bad.fleetlog: has a damaged header: header of 4096 bytes, 4096 bytes of "
               "descriptors, 4 blocks of 48 bytes; no writer makes such a file, and nothing can be "
               "found in it" );
}

// A ring of a terabyte with a block each so many places, each the block of its place, and with nothing
// on disk between them; false if there is no room for a file of that length.
bool makeSparse( const std::string & path, std::vector<std::byte> content, std::uint64_t apart ) {
    constexpr std::uint64_t ringBytes = std::uint64_t( 1 ) << 40;
    constexpr std::uint64_t blockCount = ringBytes / Layout::pageBytes;
    Layout::FileHeader header;
    std::memcpy( &header, content.data(), sizeof header );
    header.blockCount = blockCount;
    header.checksum = Layout::checksum( &header, offsetof( Layout::FileHeader, checksum ) );
    poke( content, 0, header );
    std::fstream file( path, std::ios::binary | std::ios::in | std::ios::out | std::ios::trunc );
    file.write( reinterpret_cast<const char *>( content.data() ), blocksAt + Layout::pageBytes );
    for ( std::uint64_t place = apart; place < blockCount; place += apart ) {
        Layout::BlockHeader block;
        std::memcpy( &block, content.data() + blocksAt, sizeof block );
        block.sequence = place + 1;
        block.checksum = 0;
        block.checksum = Layout::checksum( &block, sizeof block );
        poke( content, blocksAt, block );
        file.seekp( static_cast<std::streamoff>( blocksAt + place * Layout::pageBytes ) );
        file.write( reinterpret_cast<const char *>( content.data() + blocksAt ),
                    Layout::pageBytes );
    }
    file.close();
    std::error_code error;
    std::filesystem::resize_file( path, blocksAt + ringBytes, error );
    return file && !error;
}

// Of the 268 million block headers, a second of the processor would not do for a hundredth.
void allowOneSecond() {
    const rlimit second{ 1, 1 };
    ::setrlimit( RLIMIT_CPU, &second );
}

TEST_F( TraceReaderTest, FileOfATerabyteWithLittleOnDiskIsReadByWhatIsOnDisk ) {
    const auto content = written( []( Writer & writer ) { writer.seed( 7 ); } );
    const std::string path = directory_.path() + "/sparse.fleetlog";
    if ( !makeSparse( path, content, UINT64_MAX ) )
        GTEST_SKIP() << "no file of a terabyte can be made here";
    EXPECT_EQ( Support::runInChild( [&] {
                   allowOneSecond();
                   const auto reading = Support::read( path );
                   return reading.texts == seeds( { 7 } ) && reading.findings.empty();
               } ),
               0 );
}

TEST_F( TraceReaderTest, BlocksInOrderOverATerabyteAreReadByWhatIsOnDisk ) {
    const auto content = written( []( Writer & writer ) { writer.seed( 7 ); } );
    const std::string path = directory_.path() + "/sparse.fleetlog";
    constexpr std::uint64_t apart = std::uint64_t( 1 ) << 25;
    if ( !makeSparse( path, content, apart ) )
        GTEST_SKIP() << "no file of a terabyte can be made here";
    for ( const bool isNarrowed : { false, true } )
        EXPECT_EQ( Support::runInChild( [&] {
                       allowOneSecond();
                       TraceReader::File file( path );
                       if ( isNarrowed )
                           file.narrow( 0, INT64_MAX );
                       const auto reading = Support::read( file );
                       return reading.texts == seeds( { 7, 7, 7, 7, 7, 7, 7, 7 } ) &&
                              reading.counts.missingBlocks == 7 * ( apart - 1 );
                   } ),
                   0 );
}

TEST_F( TraceReaderTest, DescriptorWithMoreLettersThanAWriterTakesIsDamage ) {
    for ( const std::size_t letters : { 64u, 65u } ) {
        const auto content = written( [&]( Writer & writer ) {
            int msgId = 0;
            writer.registerSite( msgId, 5, "i", { "f" } );
        } );
        auto made = content;
        const std::string text( letters, 'b' );
        // In the place of the last descriptor: one that a writer would not make.
        Layout::DescriptorHeader header{};
        header.id = 9;
        header.pieceCount = 1;
        std::vector<std::byte> bytes( sizeof header );
        const auto append = [&]( std::string_view piece ) {
            const auto length = static_cast<std::uint16_t>( piece.size() );
            const auto * const at = reinterpret_cast<const std::byte *>( &length );
            bytes.insert( bytes.end(), at, at + sizeof length );
            const auto * const from = reinterpret_cast<const std::byte *>( piece.data() );
            bytes.insert( bytes.end(), from, from + piece.size() );
        };
        append( "source" );
        append( text );
        append( "f" );
        bytes.resize( ( bytes.size() + 7 ) / 8 * 8 );
        header.size = static_cast<std::uint32_t>( bytes.size() );
        std::memcpy( bytes.data(), &header, sizeof header );
        constexpr std::size_t unsummed = offsetof( Layout::DescriptorHeader, id );
        header.checksum = Layout::checksum( bytes.data() + unsummed, bytes.size() - unsummed );
        std::memcpy( bytes.data(), &header, sizeof header );
        std::fill( made.begin() + descriptorsAt, made.begin() + blocksAt, std::byte{ 0 } );
        std::copy( bytes.begin(), bytes.end(), made.begin() + descriptorsAt );
        const auto reading = Support::read( made );
        EXPECT_EQ( reading.sites.size(), letters == 64 ? 1u : 0u );
        EXPECT_EQ( isMentioned( reading, "a descriptor is damaged" ), letters != 64 );
    }
}

TEST_F( TraceReaderTest, OverwrittenRecordsAreEstimatedFromASingleBlockThatCanBeRead ) {
    auto content = wrapped(); // the blocks 5, 6, 3, 4
    for ( const std::size_t index : { 0u, 2u, 3u } )
        poke<std::uint64_t>( content, blockAt( index ) + offsetof( Layout::BlockHeader, time ),
                             12 );
    const auto reading = Support::read( content );
    EXPECT_EQ( reading.counts.blocks, 1u );
    EXPECT_EQ( reading.counts.overwrittenBlocks, 2u );
    ASSERT_TRUE( reading.counts.overwrittenRecords() );
    EXPECT_NEAR( static_cast<double>( *reading.counts.overwrittenRecords() ), 2 * 157.0, 40 );
}

TEST_F( TraceReaderTest, OverwrittenRecordsAreUnknownIfNoneCanBeRead ) {
    auto content = wrapped();
    for ( std::size_t index = 0; index < 4; ++index ) // the first record of each block
        poke<std::uint32_t>( content, blockAt( index ) + sizeof( Layout::BlockHeader ), 8 );
    const auto reading = Support::read( content );
    EXPECT_EQ( reading.counts.records, 0u );
    EXPECT_EQ( reading.counts.overwrittenBlocks, 2u );
    EXPECT_FALSE( reading.counts.overwrittenRecords() );
}

TEST_F( TraceReaderTest, FindingsAreFitToBePrinted ) {
    const TraceReader::Finding finding{ TraceReader::Finding::Kind::damage, "a\nfile\x1b[2J", 5,
                                        "w\xc2\x9bhat \xff" };
    EXPECT_EQ( finding.text(), "a\\nfile\\x1b[2J: at byte 5: w\\xc2\\x9bhat \\xff" );
    EXPECT_STREQ( TraceReader::Error( "a\x1b", "b" ).what(), "a\\x1b: b" );
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
