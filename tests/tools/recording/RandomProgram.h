#pragma once

#include "sim/Chip.h"
#include "sim/Schema.h"

#include <Shim/Sdk.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

// Random chips, and random programs for them: sequences of SDK operations, right and wrong ones. All
// follows from a seed.

namespace ToolTest {

class Random {
  public:
    explicit Random( std::uint64_t seed ) : engine_( seed ) {}

    std::uint64_t bits() { return engine_(); }
    std::uint64_t below( std::uint64_t end ) { return engine_() % end; }
    bool oneIn( std::uint64_t chances ) { return below( chances ) == 0; }
    template <class T>
    const T & of( const std::vector<T> & items ) {
        return items[below( items.size() )];
    }

  private:
    std::mt19937_64 engine_;
};

/// The number that an environment variable holds, by which a test is made longer or repeated.
std::uint64_t numberOfEnvironment( const char * variable, std::uint64_t fallback );

/// A chip of a few small tables of all kinds. It passes check().
Sim::Schema randomSchema( Random & random );

/// Makes random operations on an SDK.
class RandomProgram {
  public:
    /// The SDK has units 0 to `units` - 1, all of this schema.
    RandomProgram( Random & random, const Sim::Schema & schema, int units )
        : random_( random ), schema_( schema ), units_( units ) {}

    /// So many operations; what is allocated stays for the next time.
    void run( Shim::Sdk & sdk, std::size_t operations );

    /// Frees what is still allocated.
    void freeAll( Shim::Sdk & sdk );

    /// A row that a chip changes by itself, if it has a physical table.
    void poke( Sim::Chip & chip );

  private:
    struct Entry {
        std::uint32_t handle = 0;
        const Sim::Table * table = nullptr;
    };

    void step( Shim::Sdk & sdk );
    void allocate( Shim::Sdk & sdk );
    void addPlace( Shim::Sdk & sdk, const Entry & entry );
    void addField( Shim::Sdk & sdk, const Entry & entry );
    void addScalar( Shim::Sdk & sdk, const Entry & entry, const Sim::Field & field );
    void addArray( Shim::Sdk & sdk, const Entry & entry, const Sim::Field & field );
    void get( Shim::Sdk & sdk, const Entry & entry );
    void commit( Shim::Sdk & sdk, const Entry & entry );
    void free( Shim::Sdk & sdk );
    Entry anyEntry();
    std::uint64_t valueFor( const Sim::Field & field );

    Random & random_;
    const Sim::Schema & schema_;
    int units_;
    std::vector<Entry> live_;
    std::vector<Entry> freed_;
};

} // namespace ToolTest
