#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"
#include "tracereader/TraceReader.h"

#include <Fleetlog/MsgDesc.h>
#include <Fleetlog/TraceHandle.h>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <new>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

// Processes as agents are, killed at any moment, also while they make their files: threads that come
// and go, sites that are registered while others write, each kind of timestamps, forks. Whatever a
// process knew to be written is in its folder afterwards, or was overwritten in its turn; nothing is
// torn, and no file is damaged.

namespace {

using namespace Fleetlog;

// What one writer, a thread of a process, writes in turn: 0, 1, 2, ...
constexpr std::size_t maxStreams = 4096;
constexpr std::size_t sites = 24;

// Shared with the processes that are killed.
struct Progress {
    std::atomic<std::uint32_t> streams{ 0 };             ///< that were begun
    std::atomic<std::uint32_t> written[maxStreams] = {}; ///< records that were finished
};

class SharedProgress {
  public:
    SharedProgress()
        : memory_( ::mmap( nullptr, sizeof( Progress ), PROT_READ | PROT_WRITE,
                           MAP_SHARED | MAP_ANONYMOUS, -1, 0 ) ) {
        if ( memory_ == MAP_FAILED )
            throw std::bad_alloc();
        new ( memory_ ) Progress;
    }
    ~SharedProgress() { ::munmap( memory_, sizeof( Progress ) ); }
    SharedProgress( const SharedProgress & ) = delete;
    SharedProgress & operator=( const SharedProgress & ) = delete;

    Progress & operator*() const { return *static_cast<Progress *>( memory_ ); }

  private:
    void * memory_;
};

std::array<int, sites> siteIds{};

// Writes record `i` of a stream at one of the sites: with a text of a length of its own, and the
// complement, so that a torn one shows.
void writeRecord( TraceFile & file, std::uint32_t stream, std::uint32_t i ) {
    static const std::string letters( 200, 'x' );
    int & msgId = siteIds[( stream + i / 7 ) % sites];
    const unsigned known = std::atomic_ref( reinterpret_cast<unsigned &>( msgId ) ).load();
    if ( known == 0 || known >= file.initialisedLength() || file.initialised()[known] == 0 ) {
        MsgDesc descriptor( &file, &msgId, "KillRun", static_cast<int>( stream % sites ) );
        for ( const char * const letter : { "i", "i", "p", "i" } )
            descriptor.formatString().put( letter );
        descriptor << "write"
                   << " %s"
                   << " %s"
                   << " %s"
                   << " %s";
        descriptor.finish();
    }
    RecordWriter record;
    if ( !record.start( *file.ringBuf(), file, std::atomic_ref( msgId ).load() ) )
        return;
    record.put4( stream );
    record.put4( i );
    record.putText( letters.c_str() + ( letters.size() - i % 40 ) );
    record.put4( ~i );
    record.end();
}

void writeStream( Progress & progress, std::uint32_t records ) {
    const std::uint32_t stream = progress.streams.fetch_add( 1 );
    if ( stream >= maxStreams )
        return;
    TraceFile * const file = defaultFleetlogHandle->multiThread() != 0
                                 ? defaultFleetlogHandle->mtTraceFile()
                                 : defaultFleetlogHandle->traceFile();
    if ( file == nullptr )
        return;
    for ( std::uint32_t i = 0; i < records; ++i ) {
        writeRecord( *file, stream, i );
        progress.written[stream].store( i + 1, std::memory_order_release );
    }
}

// A process until it is killed.
[[noreturn]] void beAnAgent( const OpenOptions & options, Progress & progress,
                             std::uint32_t seed ) {
    openDefault( options );
    std::mt19937 random( seed );
    const bool isPerThread = options.files == Files::perThread;
    for ( bool isChild = false;; ) {
        if ( !isChild && random() % 4 == 0 && ::fork() == 0 ) {
            isChild = true;
            random.seed( seed + static_cast<std::uint32_t>( ::getpid() ) );
        }
        std::vector<std::thread> threads;
        for ( std::uint32_t i = 0; isPerThread && i < random() % 4; ++i )
            threads.emplace_back( [&progress, records = random() % 3000] {
                writeStream( progress, static_cast<std::uint32_t>( records ) );
            } );
        writeStream( progress, static_cast<std::uint32_t>( random() % 3000 ) );
        for ( auto & thread : threads )
            thread.join();
    }
}

struct Counts {
    std::uint64_t kills = 0;
    std::uint64_t empty = 0; ///< folders, of processes that were killed before they had a file
    std::uint64_t files = 0;
    std::uint64_t records = 0;
    std::uint64_t streams = 0;
    std::uint64_t overwritten = 0; ///< blocks
};

[[noreturn]] void fail( std::uint64_t kill, const std::string & what ) {
    throw std::runtime_error( fmt::format( "after kill {}: {}", kill, what ) );
}

void checkFile( TraceReader::File & file, const Progress & progress, Counts & counts,
                std::set<std::uint32_t> & found ) {
    TraceReader::Record record;
    std::vector<TraceReader::Value> values;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> streams; // and how far each was read
    while ( file.next( record ) ) {
        ++counts.records;
        decode( record, values );
        if ( values.size() != 4 || values[1].number != ~values[3].number ||
             values[2].text != std::string( values[1].number % 40, 'x' ) )
            fail( counts.kills, file.info().path + " has a torn record" );
        const std::uint32_t stream = values[0].number;
        const std::uint32_t i = values[1].number;
        if ( streams.empty() || streams.back().first != stream )
            streams.emplace_back( stream, i );
        if ( streams.back().second != i )
            fail( counts.kills, fmt::format( "{} has record {} of stream {} where {} is due",
                                             file.info().path, i, stream, streams.back().second ) );
        ++streams.back().second;
    }
    if ( !file.findings().empty() )
        fail( counts.kills, file.findings().front().text() );
    for ( const auto & [stream, end] : streams ) {
        const std::uint32_t written = progress.written[stream].load();
        // The last one may have been finished and not yet counted.
        if ( end != written && end != written + 1 )
            fail( counts.kills, fmt::format( "{} ends stream {} before {}, but {} were written",
                                             file.info().path, stream, end, written ) );
        found.insert( stream );
    }
    counts.overwritten += file.counts().overwrittenBlocks;
}

void checkFolder( const std::string & folder, const Progress & progress, Counts & counts ) {
    const auto paths = TraceReader::findFiles( folder );
    counts.empty += paths.empty() ? 1 : 0;
    std::set<std::uint32_t> found;
    const std::uint64_t before = counts.overwritten;
    for ( const auto & path : paths ) {
        ++counts.files;
        TraceReader::File file( path );
        if ( file.writer() != TraceReader::Writer::ended )
            fail( counts.kills, path + " has a writer that lives" );
        checkFile( file, progress, counts, found );
    }
    const std::uint32_t streams = std::min<std::uint32_t>( progress.streams.load(), maxStreams );
    for ( std::uint32_t stream = 0; stream < streams; ++stream ) {
        counts.streams += found.count( stream );
        if ( progress.written[stream].load() != 0 && !found.contains( stream ) &&
             counts.overwritten == before )
            fail( counts.kills,
                  fmt::format( "stream {} is in no file, and nothing was overwritten", stream ) );
    }
}

Counts run( std::uint64_t kills, std::uint32_t seed ) {
    Counts counts;
    std::mt19937 random( seed );
    for ( ; counts.kills < kills; ++counts.kills ) {
        const Support::TemporaryFolder folder;
        const SharedProgress progress;
        OpenOptions options;
        options.directory = folder.path();
        options.ringBytes = ( 2 + random() % 30 ) * 4096;
        options.descriptorBytes = 8192;
        options.timestamps = static_cast<Timestamps>( counts.kills % 3 );
        options.files = random() % 4 == 0 ? Files::perProcess : Files::perThread;
        const pid_t child = Support::startChild( [&] {
            ::setpgid( 0, 0 );
            beAnAgent( options, *progress, static_cast<std::uint32_t>( random() ) );
            return false;
        } );
        ::setpgid( child, child );
        // Half of them before they are well under way.
        const long longest = random() % 2 == 0 ? 8'000'000 : 40'000'000;
        const timespec pause{ 0, static_cast<long>( random() % static_cast<unsigned>( longest ) ) };
        ::nanosleep( &pause, nullptr );
        // All of its processes; those that it was just making come as orphans.
        ::kill( -child, SIGKILL );
        ::kill( child, SIGKILL );
        while ( ::waitpid( -child, nullptr, 0 ) > 0 || errno == EINTR )
            ::kill( -child, SIGKILL );
        checkFolder( folder.path(), *progress, counts );
    }
    return counts;
}

} // namespace

int main( int argc, char ** argv ) {
    std::uint64_t kills = 300;
    std::uint32_t seed = 1;
    try {
        CLI::App app( "Kills processes that trace, and reads what they left" );
        app.add_option( "--kills", kills, "How many" );
        app.add_option( "--seed", seed, "Of what is random" );
        CLI11_PARSE( app, argc, argv );
        ::prctl( PR_SET_CHILD_SUBREAPER, 1 );
        const Counts counts = run( kills, seed );
        fmt::print( "{} kills, {} before the first file, {} files, {} records of {} streams read, "
                    "{} blocks overwritten, nothing torn, nothing lost, nothing damaged\n",
                    counts.kills, counts.empty, counts.files, counts.records, counts.streams,
                    counts.overwritten );
        return 0;
    } catch ( const std::exception & error ) {
        std::fprintf( stderr, "trace_kill_run: %s (--seed %u)\n", error.what(), seed );
        return 1;
    }
}
