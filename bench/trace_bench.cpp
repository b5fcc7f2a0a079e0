#include "bench/trace_bench_lttng.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TraceOperations.h"

#include <CairnPlatform/internal/Write.h>
#include <Kiln/TraceSink.h>

#include <benchmark/benchmark.h>

#if defined( TRACE_BENCH_SPDLOG )
#include <spdlog/async.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>
#endif

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

// What a record and a message cost, against the same stores into a mapped ring written by hand (the
// floor), and against other tracers. All in one run, interleaved at random. The counter is the
// instructions of one operation, counted exactly.

namespace {

using namespace Fleetlog;

// The floor: a mapped ring with no descriptors, no blocks, no reader while it is written.
class HandRing {
  public:
    explicit HandRing( std::size_t bytes ) {
        void * const memory = ::mmap( nullptr, bytes, PROT_READ | PROT_WRITE,
                                      MAP_SHARED | MAP_ANONYMOUS | MAP_POPULATE, -1, 0 );
        if ( memory == MAP_FAILED )
            std::abort();
        begin_ = cursor_ = static_cast<std::byte *>( memory );
        limit_ = begin_ + bytes - 512;
    }

    template <bool isCounted>
    void twoValues( std::uint32_t id, std::uint32_t one, std::uint32_t two ) {
        std::byte * const at = begin<isCounted>( id );
        store( at + 16, one );
        store( at + 20, two );
        end( at, 24 );
    }

    template <bool isCounted>
    void text( std::uint32_t id, std::uint32_t one, const char * text ) {
        std::byte * const at = begin<isCounted>( id );
        store( at + 16, one );
        const std::size_t length = std::min<std::size_t>( std::strlen( text ), maxTextBytes );
        store( at + 20, static_cast<std::uint16_t>( length ) );
        // The C library's function: the code that compilers make for a small bound is slower.
        std::size_t hidden = length;
        benchmark::DoNotOptimize( hidden );
        std::memcpy( at + 22, text, hidden );
        end( at, ( 22 + length + 7 ) & ~std::size_t( 7 ) );
    }

  private:
    template <bool isCounted>
    std::byte * begin( std::uint32_t id ) {
        std::byte * at = cursor_;
        if ( at > limit_ ) [[unlikely]]
            at = begin_;
        store( at + 8, isCounted ? readCounter() : time_ );
        store( at + 4, id );
        return at;
    }

    void end( std::byte * at, std::size_t size ) {
        store( at + size, std::uint32_t( 0 ) );
        cursor_ = at + size;
        std::atomic_ref( *reinterpret_cast<std::uint32_t *>( at ) )
            .store( static_cast<std::uint32_t>( size ), std::memory_order_release );
    }

    template <class Value>
    static void store( std::byte * at, Value value ) {
        typedef Value Unaligned __attribute__( ( aligned( 1 ) ) );
        *reinterpret_cast<Unaligned *>( at ) = value;
    }

    std::byte * begin_;
    std::byte * cursor_;
    std::byte * limit_;
    std::uint64_t time_ = 0;
};

// What the operations use. They read it from memory, as a recipe would.
struct Bench {
    Bench( const OpenOptions & options, std::string lines )
        : targets( options ), linesPath( std::move( lines ) ) {}

    HandRing hand{ 1 << 20 };
    Support::TraceTargets targets;
    Kiln::TraceHandle handle{ "CairnLtHelper", false };
    std::string linesPath;
#if defined( TRACE_BENCH_SPDLOG )
    std::shared_ptr<spdlog::logger> spdlog = std::make_shared<spdlog::logger>(
        "bench", std::make_shared<spdlog::sinks::null_sink_st>() );
    // What its thread does not fetch in time is overwritten, as in a ring.
    std::shared_ptr<spdlog::details::thread_pool> pool =
        std::make_shared<spdlog::details::thread_pool>( 8192, 1 );
    std::shared_ptr<spdlog::logger> asynchronous = std::make_shared<spdlog::async_logger>(
        "bench", std::make_shared<spdlog::sinks::null_sink_mt>(), pool,
        spdlog::async_overflow_policy::overrun_oldest );
#endif
};
Bench * bench = nullptr;

// --- The operations
//
// The trace's own operations are in tests/support/; these are the ones to compare them with.

template <bool isCounted>
struct HandTwoValues {
    HandRing & ring = bench->hand;
    [[gnu::always_inline]] void run( std::uint32_t i, std::uint32_t j ) const {
        ring.twoValues<isCounted>( 7, i, j );
    }
};

template <bool isCounted>
struct HandText {
    HandRing & ring = bench->hand;
    const char * text = bench->targets.text;
    [[gnu::always_inline]] void run( std::uint32_t i, std::uint32_t ) const {
        ring.text<isCounted>( 7, i, text );
    }
};

struct CounterRead {
    [[gnu::always_inline]] void run( std::uint32_t, std::uint32_t ) const {
        benchmark::DoNotOptimize( readCounter() );
    }
};

#if defined( TRACE_BENCH_SPDLOG )
template <std::shared_ptr<spdlog::logger> Bench::*logger>
struct SpdlogTwoValues {
    [[gnu::always_inline]] void run( std::uint32_t i, std::uint32_t j ) const {
        ( bench->*logger )->info( "unit: {} seed: {}", i, j );
    }
};
template <std::shared_ptr<spdlog::logger> Bench::*logger>
struct SpdlogText {
    [[gnu::always_inline]] void run( std::uint32_t i, std::uint32_t ) const {
        ( bench->*logger )->info( "unit: {} text: {}", i, bench->targets.text );
    }
};
#endif

// A line of text as a recipe writes it, and the sinks that it goes to.
struct TextLine {
    [[gnu::always_inline]] void run( std::uint32_t i, std::uint32_t j ) const {
        Kiln::TraceHelper line( bench->handle, Kiln::TraceFacility::level2, "Cairn/CairnLtHelper",
                                42, "setSeed" );
        line.stream() << "setSeed";
        line.stream() << " unit: ";
        line.stream() << i;
        line.stream() << " seed: ";
        line.stream() << j;
    }
};
struct LinesDropped {
    LinesDropped() {
        Kiln::traceToCallback(
            []( const Kiln::TraceLine & line ) { benchmark::DoNotOptimize( line.text.data() ); } );
    }
};
struct LinesFormatted {
    LinesFormatted() {
        Kiln::traceToCallback( []( const Kiln::TraceLine & line ) {
            benchmark::DoNotOptimize( Kiln::formatTraceLine( line ) );
        } );
    }
};
struct LinesToFile {
    LinesToFile() { Kiln::traceToFile( bench->linesPath ); }
};
template <class Sink>
struct LineTo : Sink, TextLine {};

// The text of a message: level 2 is on while the operation runs.
template <class Sink>
struct MessageTextTo : Sink, Support::MessageTwoValues {
    MessageTextTo() { Kiln::traceSettings( { { "CairnLtHelper", 1u << 2 } } ); }
    ~MessageTextTo() { Kiln::traceOff(); }
    MessageTextTo( const MessageTextTo & ) = delete;
    MessageTextTo & operator=( const MessageTextTo & ) = delete;
};

// What a line to a file has at least: one write of as many bytes.
struct BareWrite {
    BareWrite() : file( std::fopen( bench->linesPath.c_str(), "ae" ) ) {}
    ~BareWrite() { std::fclose( file ); }
    BareWrite( const BareWrite & ) = delete;
    BareWrite & operator=( const BareWrite & ) = delete;
    [[gnu::always_inline]] void run( std::uint32_t, std::uint32_t ) const {
        benchmark::DoNotOptimize( ::write( ::fileno( file ), bytes.data(), bytes.size() ) );
    }
    std::FILE * file;
    const std::string bytes =
        "2026-03-01T07:30:00.123456Z 123456 CairnLtHelper/2 Cairn/CairnLtHelper:42 setSeed: setSeed "
        "unit: 12345 seed: 12346\n";
};

// The same with what keeps the signals of a write that fails from the thread.
struct GuardedWrite : BareWrite {
    [[gnu::always_inline]] void run( std::uint32_t, std::uint32_t ) const {
        benchmark::DoNotOptimize( CairnPlatform::writeWhole( ::fileno( file ), bytes ) );
    }
};

// One call of the kernel that does next to nothing.
struct LimitRead {
    [[gnu::always_inline]] void run( std::uint32_t, std::uint32_t ) const {
        rlimit limit;
        benchmark::DoNotOptimize( ::getrlimit( RLIMIT_FSIZE, &limit ) );
    }
};

struct LttngTwoValues {
    [[gnu::always_inline]] void run( std::uint32_t i, std::uint32_t j ) const {
        TraceBenchLttng::twoValues( i, j );
    }
};
struct LttngText {
    [[gnu::always_inline]] void run( std::uint32_t i, std::uint32_t ) const {
        TraceBenchLttng::text( i, bench->targets.text );
    }
};

// --- Running them

// The default handle is `handle` while the operation runs. The label names what it is compared
// with.
template <class Operation>
void add( const std::string & name, const std::string & floor = "",
          TraceHandle * handle = nullptr ) {
    defaultFleetlogHandle = handle;
    const auto instructions = Support::instructionsOf<Operation>();
    benchmark::RegisterBenchmark( name.c_str(), [=]( benchmark::State & state ) {
        defaultFleetlogHandle = handle;
        const Operation operation;
        std::uint32_t i = 0;
        std::uint32_t j = 1;
        for ( auto _ : state ) {
            ++i;
            ++j;
            operation.run( i, j );
            benchmark::ClobberMemory();
        }
        state.SetLabel( floor );
        if ( instructions )
            state.counters["instructions"] = static_cast<double>( *instructions );
    } );
}

// The first message of a thread: its file is made, or taken over of a thread that has ended, and the
// site is registered.
void firstMessage( benchmark::State & state, bool isTakenOver ) {
    const auto message = [] { Support::MessageTwoValues().run( 1, 2 ); };
    defaultFleetlogHandle = nullptr; // it may be that of another benchmark, and would be deleted
    for ( auto _ : state ) {
        const Support::TemporaryFolder folder;
        openDefault( { .directory = folder.path(), .files = Files::perThread } );
        if ( isTakenOver )
            std::thread( message ).join();
        double took = 0;
        std::thread( [&] {
            const auto start = std::chrono::steady_clock::now();
            message();
            took =
                std::chrono::duration<double>( std::chrono::steady_clock::now() - start ).count();
        } ).join();
        closeDefault();
        state.SetIterationTime( took );
    }
}

} // namespace

int main( int argc, char ** argv ) {
    const Support::TemporaryFolder folder;
    OpenOptions options{ .directory = folder.path() };
    Bench made( options, folder.path() + "/lines" );
    bench = &made;
    Support::traceTargets = &made.targets;
    TraceHandle perProcess( options );
    options.files = Files::perThread;
    TraceHandle perThread( options );

    const std::string plainFloor = "two values, by hand, no time";
    const std::string floor = "two values, by hand, counter";
    const std::string plainTextFloor = "value and text, by hand, no time";
    const std::string textFloor = "value and text, by hand, counter";
    add<CounterRead>( "counter read" );
    add<HandTwoValues<false>>( plainFloor );
    add<Support::RecordTwoValues<Timestamps::none>>( "two values, record, no time", plainFloor );
    add<Support::RecordTwoValues<Timestamps::tick>>( "two values, record, tick", plainFloor );
    add<HandTwoValues<true>>( floor );
    add<Support::RecordTwoValues<Timestamps::counter>>( "two values, record, counter", floor );
    add<Support::MessageTwoValues>( "two values, message, counter, file of the process", floor,
                                    &perProcess );
    add<Support::MessageTwoValues>( "two values, message, counter, file of the thread", floor,
                                    &perThread );
    add<Support::MessageTwoValues>( "two values, message, no file" );
    add<Support::MessageSixValues>( "six values, message, counter, file of the process", "",
                                    &perProcess );
    add<Support::MessageSixValues>( "six values, message, no file" );
    add<HandText<false>>( plainTextFloor );
    add<Support::RecordText<Timestamps::none>>( "value and text, record, no time", plainTextFloor );
    add<Support::RecordText<Timestamps::tick>>( "value and text, record, tick", plainTextFloor );
    add<Support::RecordText<Timestamps::none, &Support::TraceTargets::shortText>>(
        "value and text of 12, record, no time" );
    add<HandText<true>>( textFloor );
    add<Support::RecordText<Timestamps::counter>>( "value and text, record, counter", textFloor );
#if defined( TRACE_BENCH_SPDLOG )
    add<SpdlogTwoValues<&Bench::spdlog>>( "two values, spdlog, null sink", floor );
    add<SpdlogText<&Bench::spdlog>>( "value and text, spdlog, null sink", textFloor );
    add<SpdlogTwoValues<&Bench::asynchronous>>( "two values, spdlog, asynchronous", floor );
    add<SpdlogText<&Bench::asynchronous>>( "value and text, spdlog, asynchronous", textFloor );
#endif
    for ( const bool isTakenOver : { false, true } )
        benchmark::RegisterBenchmark( isTakenOver ? "first message of a thread, file taken over"
                                                  : "first message of a thread, file made",
                                      firstMessage, isTakenOver )
            ->UseManualTime()
            ->Iterations( 4 );
    const std::string textLine = "two values, spdlog, null sink";
    add<LineTo<LinesDropped>>( "two values, text line, dropped", textLine );
    add<LineTo<LinesFormatted>>( "two values, text line, formatted by a callback", textLine );
    add<MessageTextTo<LinesDropped>>( "two values, text of a message, dropped", textLine );
    const std::string write = "bytes of a text line, one write to a file";
    add<BareWrite>( write );
    add<GuardedWrite>( "bytes of a text line, one write, signals kept away", write );
    add<LimitRead>( "limit on the size of files read" );
    add<LineTo<LinesToFile>>( "two values, text line, to a file", write );
    if ( TraceBenchLttng::isTraced() ) {
        add<LttngTwoValues>( "two values, lttng-ust", floor );
        add<LttngText>( "value and text, lttng-ust", textFloor );
    } else
        std::fprintf( stderr,
                      "trace_bench: no lttng session traces this program, so it is not compared; "
                      "bench/trace_bench.sh starts one\n" );

    // Defaults; what the command line says wins.
    std::vector<char *> arguments{ argv[0] };
    char repetitions[] = "--benchmark_repetitions=15";
    char interleaving[] = "--benchmark_enable_random_interleaving=true";
    char minimum[] = "--benchmark_min_time=0.02";
    arguments.insert( arguments.end(), { repetitions, interleaving, minimum } );
    arguments.insert( arguments.end(), argv + 1, argv + argc );
    int count = static_cast<int>( arguments.size() );
    benchmark::Initialize( &count, arguments.data() );
    if ( benchmark::ReportUnrecognizedArguments( count, arguments.data() ) )
        return 2;
    benchmark::RunSpecifiedBenchmarks();

    defaultFleetlogHandle = nullptr;
    return 0;
}
