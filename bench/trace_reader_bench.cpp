#include "bench/trace_bench_lttng.h"

#include "tests/support/TemporaryFolder.h"
#include "tracereader/TraceReader.h"

#include <Fleetlog/MsgDesc.h>
#include <Fleetlog/TraceFile.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <deque>
#include <string>

// How fast trace files are read: the records decoded, and rendered as text and as JSON to nowhere.
//
//     trace_reader_bench RECORDS         writes a trace of so many records, half of them with a
//                                        text, and reads it
//     trace_reader_bench RECORDS lttng   writes the same events to lttng-ust, for its own reader
//     trace_reader_bench RECORDS FOLDER FILES
//                                        writes a trace of so many records there, into so many files
//                                        in turn, for cairn-lt
//
// Prints a line for each way of reading, with tabs between its name, the bytes, the records and the
// seconds. Times are of the processor, the shortest of several runs. trace_reader_bench.sh
// compares.

namespace {

const char * const texts[] = { "L3_DST_LOOKUP_MISS", "L3_HDR_ERROR", "L3_TTL_ERROR", "MTU_ERROR" };

double processorSeconds() {
    timespec now{};
    ::clock_gettime( CLOCK_PROCESS_CPUTIME_ID, &now );
    return static_cast<double>( now.tv_sec ) + static_cast<double>( now.tv_nsec ) / 1e9;
}

void writeLttng( std::uint32_t records ) {
    for ( std::uint32_t i = 0; i < records; ++i ) {
        if ( i % 2 == 0 )
            TraceBenchLttng::twoValues( i, ~i );
        else
            TraceBenchLttng::text( i, texts[i / 2 % 4] );
    }
}

// A trace file, and what it is written with.
class Writer {
  public:
    Writer( const std::string & directory, std::uint64_t records )
        : file_( { .directory = directory, .ringBytes = records * 64 + 8192 }, 0 ) {
        registerSite( twoValues_, "ii", " seed: " );
        registerSite( text_, "ip", " event: " );
    }

    void write( std::uint32_t i ) {
        using Fleetlog::put;
        Fleetlog::RingBuf & ring = *file_.ringBuf();
        if ( i % 2 == 0 ) {
            ring.startMsg( &file_, twoValues_ );
            ring.put4( i );
            ring.put4( ~i );
        } else {
            ring.startMsg( &file_, text_ );
            ring.put4( i );
            put( &ring, texts[i / 2 % 4] );
        }
        ring.endMsg();
    }

    const std::string & path() const { return file_.path(); }

  private:
    void registerSite( int & msgId, const char * letters, const char * last ) {
        Fleetlog::MsgDesc descriptor( &file_, &msgId, "bench/trace_reader_bench", __LINE__ );
        descriptor.formatString().put( letters );
        descriptor << "record"
                   << " unit: "
                   << "%s" << last << "%s";
        descriptor.finish();
    }

    Fleetlog::TraceFile file_;
    int twoValues_ = 0;
    int text_ = 0;
};

std::string writeTrace( const std::string & directory, std::uint32_t records ) {
    Writer writer( directory, records );
    for ( std::uint32_t i = 0; i < records; ++i )
        writer.write( i );
    return writer.path();
}

// As threads would that take turns: some records to each file, and on to the next.
void writeFiles( const std::string & directory, std::uint32_t records, std::uint32_t files ) {
    constexpr std::uint32_t turn = 32;
    std::deque<Writer> writers;
    for ( std::uint32_t i = 0; i < files; ++i )
        writers.emplace_back( directory, records / files + turn );
    for ( std::uint32_t i = 0; i < records; ++i )
        writers[i / turn % files].write( i );
}

// Reads the whole file once; `handle` is called for each record.
template <class Handle>
void measure( const char * what, const std::string & path, std::uint32_t records, Handle handle ) {
    constexpr int runs = 5;
    double shortest = 0;
    std::uint64_t blocks = 0;
    for ( int run = 0; run < runs; ++run ) {
        const double start = processorSeconds();
        TraceReader::File file( path );
        TraceReader::Record record;
        while ( file.next( record ) )
            handle( record );
        const double took = processorSeconds() - start;
        if ( run == 0 || took < shortest )
            shortest = took;
        blocks = file.counts().blocks;
        if ( file.counts().records != records || !file.findings().empty() )
            std::abort();
    }
    std::printf( "%s\t%llu\t%u\t%.6f\n", what, static_cast<unsigned long long>( blocks ) * 4096,
                 records, shortest );
}

} // namespace

int main( int argc, char ** argv ) {
    const unsigned long records = argc >= 2 ? std::strtoul( argv[1], nullptr, 10 ) : 0;
    const unsigned long files = argc == 4 ? std::strtoul( argv[3], nullptr, 10 ) : 1;
    if ( records == 0 || records > 1'000'000'000 || files == 0 || files > 1000 || argc > 4 ||
         ( argc == 3 && std::string( argv[2] ) != "lttng" ) ) {
        std::fprintf( stderr, "usage: trace_reader_bench RECORDS [lttng | FOLDER FILES]\n" );
        return 2;
    }
    const auto count = static_cast<std::uint32_t>( records );
    if ( argc == 4 ) {
        writeFiles( argv[2], count, static_cast<std::uint32_t>( files ) );
        return 0;
    }
    if ( argc == 3 ) {
        if ( !TraceBenchLttng::isTraced() ) {
            std::fprintf( stderr, "trace_reader_bench: no lttng session traces this program\n" );
            return 2;
        }
        writeLttng( count );
        return 0;
    }

    const Support::TemporaryFolder folder;
    const std::string path = writeTrace( folder.path(), count );
    measure( "decoded", path, count, []( const TraceReader::Record & ) {} );
    std::string lines;
    const auto render = [&]( TraceReader::Format format ) {
        return [&lines, renderer = TraceReader::Renderer( format )](
                   const TraceReader::Record & record ) mutable {
            renderer.append( lines, record );
            if ( lines.size() > 65536 )
                lines.clear();
        };
    };
    measure( "text", path, count, render( TraceReader::Format::text ) );
    measure( "JSON", path, count, render( TraceReader::Format::json ) );
    return 0;
}
