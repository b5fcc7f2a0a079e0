#include "tests/support/TraceFiles.h"
#include "tracereader/Bytes.h"

#include <Fleetlog/MsgDesc.h>
#include <Fleetlog/TraceFile.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

// How the reader finds the blocks of a ring: what it does not look at, and that nothing is hidden
// from it.

namespace {

namespace Layout = Fleetlog::Format;
using Bytes = std::vector<std::byte>;
using TraceReader::Record;

constexpr std::size_t blocksAt = 2 * Layout::pageBytes;
constexpr std::size_t blockAt( std::size_t index ) { return blocksAt + index * Layout::pageBytes; }
constexpr std::size_t recordsOfBlock = 156;

// A file whose records are numbered from 0.
class Numbers {
  public:
    explicit Numbers( std::size_t blocks,
                      Fleetlog::Timestamps timestamps = Fleetlog::Timestamps::counter )
        : file_( { .directory = directory_.path(),
                   .ringBytes = blocks * Layout::pageBytes,
                   .descriptorBytes = Layout::pageBytes,
                   .timestamps = timestamps },
                 0 ) {
        Fleetlog::MsgDesc descriptor( &file_, &site_, "Cairn/CairnLtHelper", 31 );
        descriptor.formatString().put( "i" );
        descriptor << "number"
                   << ": "
                   << "%s";
        descriptor.finish();
    }

    void registerSite( const char * file, int line, const char * letters ) {
        int site = 0;
        Fleetlog::MsgDesc descriptor( &file_, &site, file, line );
        descriptor.formatString().put( letters );
        descriptor << "preCallHook";
        descriptor.finish();
    }

    void write( std::size_t records ) {
        for ( ; records != 0; --records ) {
            file_.ringBuf()->startMsg( &file_, site_ );
            file_.ringBuf()->put4( next_++ );
            file_.ringBuf()->endMsg();
        }
    }

    void writeBlocks( std::size_t blocks ) { write( blocks * recordsOfBlock ); }

    const std::string & path() const { return file_.path(); }
    Bytes content() const { return Support::contentOf( path() ); }

  private:
    Support::Directory directory_;
    Fleetlog::TraceFile file_;
    int site_ = 0;
    std::uint32_t next_ = 0;
};

Bytes numbers( std::size_t ringBlocks, std::size_t blocks,
               Fleetlog::Timestamps timestamps = Fleetlog::Timestamps::counter ) {
    Numbers made( ringBlocks, timestamps );
    made.writeBlocks( blocks );
    return made.content();
}

std::uint32_t numberOf( const Record & record ) {
    std::vector<TraceReader::Value> values;
    decode( record, values );
    return values.at( 0 ).number;
}

std::vector<std::uint32_t> read( TraceReader::File & file ) {
    std::vector<std::uint32_t> all;
    Record record;
    while ( file.next( record ) )
        all.push_back( numberOf( record ) );
    return all;
}

// Notes which blocks of the ring are looked at.
class NotingBytes : public TraceReader::Bytes {
  public:
    NotingBytes( ::Bytes content, std::set<std::size_t> & blocks )
        : content_( std::move( content ) ), blocks_( blocks ) {}

    std::size_t read( std::uint64_t offset, void * to, std::size_t size ) const override {
        if ( offset >= content_.size() )
            return 0;
        size = std::min<std::size_t>( size, content_.size() - offset );
        std::memcpy( to, content_.data() + offset, size );
        for ( std::size_t at = std::max<std::size_t>( offset, blocksAt ); at < offset + size;
              at = at / Layout::pageBytes * Layout::pageBytes + Layout::pageBytes )
            blocks_.insert( ( at - blocksAt ) / Layout::pageBytes );
        return size;
    }

    std::uint64_t size() const override { return content_.size(); }
    std::uint64_t nextData( std::uint64_t offset ) const override { return offset; }
    std::uint64_t nextHole( std::uint64_t ) const override { return size(); }
    std::optional<bool> isLocked() const override { return std::nullopt; }

  private:
    ::Bytes content_;
    std::set<std::size_t> & blocks_;
};

TEST( RingTest, FirstRecordOfALargeRingTakesAFewBlocks ) {
    constexpr std::size_t blocks = 8192;
    for ( const std::size_t written : { blocks / 3, blocks, 2 * blocks + 1000 } ) {
        std::set<std::size_t> seen;
        TraceReader::File file( "numbers",
                                std::make_unique<NotingBytes>( numbers( blocks, written ), seen ) );
        file.setReadAhead( 16 );
        Record record;
        ASSERT_TRUE( file.next( record ) );
        const std::size_t first = written > blocks ? written - blocks : 0;
        EXPECT_EQ( numberOf( record ), first * recordsOfBlock );
        // A search takes one for each time that the ring is halved, and what is read ahead comes on
        // top.
        EXPECT_LE( seen.size(), 13u + 16u + 4u ) << written;
    }
}

TEST( RingTest, WholeRingIsReadInOrderWhereverItBegins ) {
    for ( const std::size_t ring : { 2u, 3u, 16u } )
        for ( std::size_t written = 1; written <= 2 * ring + 1; ++written ) {
            TraceReader::File file( "numbers", numbers( ring, written ) );
            const auto all = read( file );
            const std::size_t first = written > ring ? written - ring : 0;
            ASSERT_EQ( all.size(), ( written - first ) * recordsOfBlock );
            for ( std::size_t i = 0; i < all.size(); ++i )
                ASSERT_EQ( all[i], first * recordsOfBlock + i );
            EXPECT_EQ( file.counts().overwrittenBlocks, first );
            EXPECT_TRUE( file.findings().empty() );
        }
}

// --- Times

std::vector<std::int64_t> timesOf( const Bytes & content ) {
    TraceReader::File file( "numbers", content );
    std::vector<std::int64_t> times;
    Record record;
    while ( file.next( record ) )
        times.push_back( record.time );
    return times;
}

TEST( RingTest, BlocksBeforeAndAfterTheTimesThatAreWantedAreNotRead ) {
    constexpr std::size_t blocks = 4096;
    const Bytes content = numbers( blocks, 2 * blocks + 1000 );
    const auto times = timesOf( content );
    const auto isOf = [&]( std::size_t from, std::size_t to ) {
        std::set<std::size_t> seen;
        TraceReader::Merge merge;
        merge.add( std::make_unique<TraceReader::File>(
            "numbers", std::make_unique<NotingBytes>( content, seen ) ) );
        merge.narrow( from == 0 ? std::nullopt : std::optional( times[from] ),
                      to == times.size() ? std::nullopt : std::optional( times[to] ) );
        const TraceReader::Filter filter{ .from = times[from],
                                          .to = to == times.size() ? INT64_MAX : times[to] };
        std::vector<std::int64_t> got;
        Record record;
        while ( merge.next( record ) )
            if ( filter.accepts( record ) )
                got.push_back( record.time );
        const auto at = [&]( std::size_t index ) {
            return times.begin() + static_cast<std::ptrdiff_t>( index );
        };
        EXPECT_EQ( got, std::vector<std::int64_t>(
                            std::lower_bound( at( 0 ), at( from ), times[from] ), at( to ) ) )
            << from << " to " << to;
        EXPECT_TRUE( merge.files()[0]->findings().empty() );
        EXPECT_EQ( merge.files()[0]->counts().overwrittenBlocks, blocks + 1000 );
        return seen.size();
    };
    // Three searches, what is listed at first, and the clock, which is read for each 16th block, before
    // and behind.
    constexpr std::size_t most = 3 * 12 + 64 + 3 * 16;
    const std::size_t half = times.size() / 2;
    EXPECT_LE( isOf( half, half + 1 ), most );
    EXPECT_LE( isOf( half + 70, half + 700 ), most + 6 );
    EXPECT_LE( isOf( 0, 100 ), most );
    EXPECT_LE( isOf( times.size() - 100, times.size() ), most );
    EXPECT_GT( isOf( 0, times.size() ), blocks - 1 );
}

TEST( RingTest, TimesBeforeAndAfterAllRecordsAreReadAsFew ) {
    const Bytes content = numbers( 64, 100 );
    const auto times = timesOf( content );
    for ( const auto & [from, to] :
          { std::pair( times.back() + 1, INT64_MAX ), std::pair( INT64_MIN, times.front() ),
            std::pair( times.back(), times.front() ) } ) {
        TraceReader::File file( "numbers", content );
        file.narrow( from, to );
        Record record;
        std::size_t wanted = 0;
        std::size_t all = 0;
        for ( ; file.next( record ); ++all )
            wanted += record.time >= from && record.time < to ? 1 : 0;
        EXPECT_EQ( wanted, 0u );
        EXPECT_LE( all, 17 * recordsOfBlock );
        EXPECT_TRUE( file.findings().empty() );
    }
}

// Their times are those of a wall clock, which may have been set back.
TEST( RingTest, WithoutTheCounterNothingIsPassedOver ) {
    for ( const auto timestamps : { Fleetlog::Timestamps::none, Fleetlog::Timestamps::tick } ) {
        TraceReader::File file( "numbers", numbers( 16, 30, timestamps ) );
        file.narrow( INT64_MAX, INT64_MIN );
        EXPECT_EQ( read( file ).size(), 16 * recordsOfBlock );
    }
}

// What is told of a call takes the allocate of its entry, whenever that was.
TEST( RingTest, FilesWithRecordedCallsAreReadWhole ) {
    for ( const char * const source : { "Shim::Sdk", "Cairn/CairnLtHelper" } ) {
        Numbers made( 64 );
        made.registerSite( source, 1, "s" );
        made.writeBlocks( 100 );
        TraceReader::Merge merge;
        merge.add( made.path() );
        merge.narrow( INT64_MAX, {} );
        Record record;
        std::size_t records = 0;
        while ( merge.next( record ) )
            ++records;
        const bool isRecording = source == std::string( "Shim::Sdk" );
        EXPECT_EQ( records == 64 * recordsOfBlock, isRecording ) << records;
    }
}

TEST( RingTest, DamagedBlockHeadersDoNotHideRecordsOfTheTimesThatAreWanted ) {
    const Bytes whole = numbers( 64, 150 );
    const auto times = timesOf( whole );
    const std::int64_t from = times[times.size() / 2];
    const std::int64_t to = times[times.size() / 2 + 3 * recordsOfBlock];
    const auto wanted = [&]( TraceReader::File & file ) {
        std::map<std::size_t, std::set<std::uint32_t>> found; // by the block
        Record record;
        while ( file.next( record ) )
            if ( record.time >= from && record.time < to )
                found[( record.offset - blocksAt ) / Layout::pageBytes].insert(
                    numberOf( record ) );
        return found;
    };
    TraceReader::File undamaged( "numbers", whole );
    const auto all = wanted( undamaged );
    ASSERT_GE( all.size(), 3u );
    for ( std::size_t index = 0; index < 64; ++index ) {
        auto content = whole;
        content[blockAt( index ) + offsetof( Layout::BlockHeader, time )] ^= std::byte{ 1 };
        auto expected = all;
        expected.erase( index );
        TraceReader::File file( "numbers", content );
        file.narrow( from, to );
        EXPECT_TRUE( wanted( file ) == expected ) << index;
    }
}

// --- Damage

// What a ring holds is that of several moments, as after the machine went down: some blocks are not in
// use, damaged, or still of an earlier round. What the others hold is read, whatever the search meets.
TEST( RingTest, NoDamageOfSomeBlocksHidesTheOthers ) {
    constexpr std::size_t ring = 24;
    std::mt19937 random( 7 );
    for ( const std::size_t written : { ring - 7, ring, 2 * ring + 5, 4 * ring - 1 } ) {
        Numbers made( ring );
        std::vector<Bytes> rounds;
        for ( std::size_t left = written; left != 0; ) {
            const std::size_t blocks = std::min( left, ring );
            made.writeBlocks( blocks );
            rounds.push_back( made.content() );
            left -= blocks;
        }
        // What each place holds in each round.
        std::vector<std::map<std::size_t, std::set<std::uint32_t>>> held;
        for ( const Bytes & round : rounds ) {
            TraceReader::File file( "numbers", round );
            held.emplace_back();
            Record record;
            while ( file.next( record ) )
                held.back()[( record.offset - blocksAt ) / Layout::pageBytes].insert(
                    numberOf( record ) );
        }
        for ( int run = 0; run < 200; ++run ) {
            Bytes content = rounds.back();
            auto expected = held.back();
            for ( std::size_t hits = 1 + random() % 6; hits != 0; --hits ) {
                const std::size_t index = random() % ring;
                const std::size_t round = random() % rounds.size();
                const auto block = [&]( auto & of ) {
                    return of.begin() + static_cast<std::ptrdiff_t>( blockAt( index ) );
                };
                expected.erase( index );
                switch ( random() % 3 ) {
                case 0:
                    std::fill_n( block( content ), Layout::pageBytes, std::byte{ 0 } );
                    break;
                case 1:
                    std::fill_n( block( content ) + offsetof( Layout::BlockHeader, checksum ), 4,
                                 std::byte{ 0 } );
                    break;
                default:
                    std::copy_n( block( rounds[round] ), Layout::pageBytes, block( content ) );
                    if ( held[round].contains( index ) )
                        expected[index] = held[round][index];
                }
            }
            TraceReader::File file( "numbers", content );
            std::map<std::size_t, std::set<std::uint32_t>> found;
            std::size_t records = 0;
            Record record;
            for ( ; file.next( record ); ++records )
                found[( record.offset - blocksAt ) / Layout::pageBytes].insert(
                    numberOf( record ) );
            ASSERT_TRUE( found == expected ) << written << ", run " << run;
            ASSERT_EQ( records, file.counts().records );
            std::size_t once = 0;
            for ( const auto & [index, all] : found )
                once += all.size();
            ASSERT_EQ( records, once );
            EXPECT_FALSE( file.poll() );
        }
    }
}

TEST( RingTest, BlocksBehindPlacesThatAreNotInUseAreReadAndTheLossIsSaid ) {
    Bytes content = numbers( 64, 50 );
    // The search looks at the block 32 first, and takes what follows for not in use.
    std::fill_n( content.begin() + blockAt( 30 ), 5 * Layout::pageBytes, std::byte{ 0 } );
    TraceReader::File file( "numbers", content );
    EXPECT_EQ( read( file ).size(), 45 * recordsOfBlock );
    EXPECT_EQ( file.counts().missingBlocks, 5u );
    ASSERT_EQ( file.findings().size(), 1u );
    EXPECT_EQ( file.findings()[0].what, "missing before this block: 5 blocks" );
}

TEST( RingTest, BlockOfAnEarlierRoundIsReadAndSaid ) {
    Numbers made( 64 );
    made.writeBlocks( 64 );
    const Bytes before = made.content();
    made.writeBlocks( 50 );
    Bytes content = made.content();
    constexpr std::size_t index = 21; // none that the search looks at
    std::copy_n( before.begin() + blockAt( index ), Layout::pageBytes,
                 content.begin() + blockAt( index ) );
    TraceReader::File file( "numbers", content );
    const auto all = read( file );
    EXPECT_EQ( all.size(), 64 * recordsOfBlock );
    EXPECT_EQ( all.back(), ( index + 1 ) * recordsOfBlock - 1 );
    ASSERT_EQ( file.findings().size(), 2u );
    EXPECT_EQ( file.findings()[0].what, "missing before this block: 1 block" );
    EXPECT_EQ( file.findings()[1].text(),
               "numbers: at byte " + std::to_string( blockAt( index ) ) +
                   ": this block is older than those before it; its records come late" );
    EXPECT_FALSE( file.poll() ); // what comes after the newest, not after this one
}

// --- A writer that goes on meanwhile

TEST( RingTest, WhatIsWrittenToARingWhileItIsReadIsNoDamage ) {
    Numbers made( 64 );
    made.write( 10 * recordsOfBlock + 5 );
    TraceReader::File file( made.path() );
    Record record;
    std::uint32_t next = 0;
    for ( ; next < 3 * recordsOfBlock; ++next ) {
        ASSERT_TRUE( file.next( record ) );
        ASSERT_EQ( numberOf( record ), next );
    }
    // The newest block is filled, and others follow.
    made.write( 20 * recordsOfBlock );
    do {
        while ( file.next( record ) )
            ASSERT_EQ( numberOf( record ), next++ );
    } while ( file.poll() );
    EXPECT_EQ( next, 30 * recordsOfBlock + 5 );
    EXPECT_TRUE( file.findings().empty() );
    EXPECT_EQ( file.counts().missingBlocks, 0u );
}

TEST( RingTest, WriterThatComesRoundWhileTheRingIsReadIsSaidToHaveOverwritten ) {
    for ( const std::size_t more : { 20u, 64u, 200u } ) {
        Numbers made( 64 );
        made.writeBlocks( 100 );
        TraceReader::File file( made.path() );
        file.setReadAhead( 4 );
        Record record;
        std::uint64_t read = 0;
        for ( ; read < recordsOfBlock; ++read )
            ASSERT_TRUE( file.next( record ) );
        made.writeBlocks( more );
        do {
            for ( std::uint32_t last = numberOf( record ); file.next( record ); ++read ) {
                ASSERT_GT( numberOf( record ), last );
                last = numberOf( record );
            }
        } while ( file.poll() );
        EXPECT_EQ( numberOf( record ), ( 100 + more ) * recordsOfBlock - 1 );
        // All that was ever written was read, or is counted as overwritten.
        EXPECT_EQ( read + file.counts().overwrittenBlocks * recordsOfBlock,
                   ( 100 + more ) * recordsOfBlock );
        ASSERT_EQ( file.findings().size(), 1u ) << more;
        EXPECT_EQ( file.findings()[0].kind, TraceReader::Finding::Kind::overwritten );
    }
}

} // namespace
