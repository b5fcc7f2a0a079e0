#include "sim/Chip.h"
#include "sim/Words.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>

#include <malloc.h>
#include <unistd.h>

// The cost of a visit to a row of the simulated chip, from 1,000 to 1,000,000 rows. One iteration
// is one entry from allocate to free: five SDK operations.
//
// In order, rows are visited as agents do: one after the other. At random, every visit to the large
// table misses the near caches; `bareArray` shows what that alone costs: one read of an array of the
// same size, in pages of the same kind.

namespace {

constexpr const char * logicalTable = "ING_SYSTEM_PORT_TABLE";
constexpr const char * memory = "EGR_TUNNEL_ECN_ENCAPm";

class InOrder {
  public:
    explicit InOrder( std::uint64_t rows ) : rows_( rows ) {}
    std::uint64_t next() { return last_ = last_ + 1 < rows_ ? last_ + 1 : 0; }

  private:
    std::uint64_t rows_;
    std::uint64_t last_ = 0;
};

class AtRandom {
  public:
    explicit AtRandom( std::uint64_t rows ) : rows_( rows ) {}
    std::uint64_t next() {
        state_ = state_ * 6364136223846793005u + 1442695040888963407u;
        return ( state_ >> 32 ) * rows_ >> 32;
    }

  private:
    std::uint64_t rows_;
    std::uint64_t state_ = 1;
};

void need( int rc ) {
    if ( rc < 0 ) {
        std::fprintf( stderr, "unexpected code %d\n", rc );
        std::abort();
    }
}

class Bench {
  public:
    // One row more than is filled: an insert needs a place.
    explicit Bench( std::uint32_t rows ) {
        Sim::Schema schema = Sim::referenceSchema();
        const std::string trouble = schema.resize( logicalTable, { .rows = rows + 1 } ) +
                                    schema.resize( memory, { .rows = rows + 1 } );
        if ( !trouble.empty() ) {
            std::fprintf( stderr, "%s\n", trouble.c_str() );
            std::abort();
        }
        chip_.addUnit( 0, schema );
    }

    void logical( std::uint32_t opcode, std::uint64_t key, std::uint64_t value ) {
        std::uint32_t entry = chip_.BCMLT_INVALID_HDL();
        need( chip_.bcmlt_entry_allocate( 0, logicalTable, &entry ) );
        need( chip_.bcmlt_entry_field_add( entry, "SYSTEM_SOURCE", key ) );
        need( chip_.bcmlt_entry_field_add( entry, "L2_IIF", value & 0xFFFF ) );
        need( chip_.bcmlt_entry_commit( entry, opcode, chip_.BCMLT_PRIORITY_NORMAL() ) );
        need( chip_.bcmlt_entry_free( entry ) );
    }

    void modify( std::uint64_t index, std::uint64_t value ) {
        std::uint32_t entry = chip_.BCMLT_INVALID_HDL();
        need( chip_.bcmlt_entry_allocate( 0, memory, &entry ) );
        need( chip_.bcmlt_entry_field_add( entry, "BCMLT_PT_INDEX", index ) );
        need( chip_.bcmlt_entry_field_add( entry, "OUTER_ECN", value & 3 ) );
        need( chip_.bcmlt_pt_entry_commit( entry, chip_.BCMLT_PT_OPCODE_MODIFY(),
                                           chip_.BCMLT_PRIORITY_NORMAL() ) );
        need( chip_.bcmlt_entry_free( entry ) );
    }

    void fillLogical( std::uint64_t rows ) {
        for ( std::uint64_t row = 0; row < rows; ++row )
            logical( chip_.BCMLT_OPCODE_INSERT(), row, row );
    }

    void fillMemory( std::uint64_t rows ) {
        for ( std::uint64_t row = 0; row < rows; ++row )
            modify( row, row );
    }

    Sim::Chip & chip() { return chip_; }

  private:
    Sim::Chip chip_;
};

std::uint64_t rowsOf( const benchmark::State & state ) {
    return static_cast<std::uint64_t>( state.range( 0 ) );
}

// What is taken from the heap, and what is mapped beside it.
std::size_t allocatedBytes() {
    std::ifstream statistics( "/proc/self/statm" );
    std::size_t size = 0, resident = 0, shared = 0, code = 0, unused = 0, data = 0;
    statistics >> size >> resident >> shared >> code >> unused >> data;
    if ( !statistics ) {
        std::fprintf( stderr, "/proc/self/statm cannot be read\n" );
        std::abort();
    }
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + data * static_cast<std::size_t>( sysconf( _SC_PAGESIZE ) ) - info.arena;
}

// Fills an empty table, growth included; the time is that of one row.
template <class Fill>
void fill( benchmark::State & state, Fill && fillTable ) {
    double bytes = 0;
    for ( auto _ : state ) {
        state.PauseTiming();
        auto bench = std::make_unique<Bench>( static_cast<std::uint32_t>( rowsOf( state ) ) );
        const std::size_t before = allocatedBytes();
        state.ResumeTiming();
        fillTable( *bench );
        state.PauseTiming();
        bytes = static_cast<double>( allocatedBytes() - before );
        bench.reset();
        state.ResumeTiming();
    }
    const double rows = static_cast<double>( rowsOf( state ) );
    state.counters["bytes/row"] = bytes / rows;
    state.counters["time/row"] = benchmark::Counter(
        rows, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert );
}

void fillLogical( benchmark::State & state ) {
    fill( state, [&]( Bench & bench ) { bench.fillLogical( rowsOf( state ) ); } );
}

void fillMemory( benchmark::State & state ) {
    fill( state, [&]( Bench & bench ) { bench.fillMemory( rowsOf( state ) ); } );
}

// Two visits: takes a row out and puts it back, so that the table keeps its size.
template <class Order>
void deleteInsert( benchmark::State & state ) {
    Bench bench( static_cast<std::uint32_t>( rowsOf( state ) ) );
    bench.fillLogical( rowsOf( state ) );
    Order rows( rowsOf( state ) );
    for ( auto _ : state ) {
        const std::uint64_t row = rows.next();
        bench.logical( bench.chip().BCMLT_OPCODE_DELETE(), row, row );
        bench.logical( bench.chip().BCMLT_OPCODE_INSERT(), row, row );
    }
}

template <class Order>
void lookup( benchmark::State & state ) {
    Bench bench( static_cast<std::uint32_t>( rowsOf( state ) ) );
    bench.fillLogical( rowsOf( state ) );
    Order rows( rowsOf( state ) );
    for ( auto _ : state )
        bench.logical( bench.chip().BCMLT_OPCODE_LOOKUP(), rows.next(), 0 );
}

template <class Order>
void update( benchmark::State & state ) {
    Bench bench( static_cast<std::uint32_t>( rowsOf( state ) ) );
    bench.fillLogical( rowsOf( state ) );
    Order rows( rowsOf( state ) );
    for ( auto _ : state ) {
        const std::uint64_t row = rows.next();
        bench.logical( bench.chip().BCMLT_OPCODE_UPDATE(), row, row + 1 );
    }
}

template <class Order>
void modify( benchmark::State & state ) {
    Bench bench( static_cast<std::uint32_t>( rowsOf( state ) ) );
    bench.fillMemory( rowsOf( state ) );
    Order rows( rowsOf( state ) );
    for ( auto _ : state ) {
        const std::uint64_t row = rows.next();
        bench.modify( row, row );
    }
}

// One read, which has to be finished before the next one begins.
void bareArray( benchmark::State & state ) {
    constexpr std::size_t wordsPerRow = 4; // as in a half-full table of two words a row
    const Sim::Words words( rowsOf( state ) * wordsPerRow );
    std::fill_n( words.get(), rowsOf( state ) * wordsPerRow, 0 ); // so that its pages are there
    AtRandom rows( rowsOf( state ) );
    std::uint64_t word = 0;
    for ( auto _ : state ) {
        word = words.get()[( rows.next() + word ) * wordsPerRow];
        benchmark::DoNotOptimize( word );
    }
}

} // namespace

#define ALL_SIZES( function ) BENCHMARK( function )->RangeMultiplier( 10 )->Range( 1000, 1000000 )

ALL_SIZES( fillLogical );
ALL_SIZES( fillMemory );
ALL_SIZES( deleteInsert<InOrder> );
ALL_SIZES( deleteInsert<AtRandom> );
ALL_SIZES( lookup<InOrder> );
ALL_SIZES( lookup<AtRandom> );
ALL_SIZES( update<InOrder> );
ALL_SIZES( update<AtRandom> );
ALL_SIZES( modify<InOrder> );
ALL_SIZES( modify<AtRandom> );
ALL_SIZES( bareArray );

BENCHMARK_MAIN();
