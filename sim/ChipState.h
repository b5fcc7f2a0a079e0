#pragma once

#include "sim/Chip.h"
#include "sim/Failure.h"
#include "sim/TableState.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string_view>
#include <vector>

// The inside of a simulated chip: units, entries, and the operations on them. Entries.cpp,
// LogicalCommit.cpp, PhysicalCommit.cpp and Inspection.cpp each hold one group of the operations.
//
// The caller holds the mutex during every operation.

namespace Sim {

// A handle is the entry's slot + 1 in the low half and the slot's generation in the high half.
constexpr std::uint32_t slotBits = 16;
constexpr std::uint32_t maxEntries = ( 1u << slotBits ) - 1;

struct Entry {
    bool live = false;
    bool getFromHw = false;
    std::uint16_t generation = 0;
    int unit = 0;
    TableState * table = nullptr;
    Address address = {};
    std::array<bool, addressParts> addressCarried = {};
    // A row image; its mask tells the elements that the entry carries.
    std::vector<std::uint64_t> row;

    /// The entry carries all of the row afterwards.
    void carryRow( const std::uint64_t * image );
};

struct ChipState {
    ChipState();
    ChipState( const ChipState & ) = delete;
    ChipState & operator=( const ChipState & ) = delete;

    const std::uint64_t chipId;

    // Guards everything below but the counters.
    mutable std::mutex mutex;
    std::map<int, std::unique_ptr<UnitState>> units;
    std::vector<Entry> entries;
    std::vector<std::uint32_t> freeSlots;

    std::atomic<std::uint64_t> preCalls = 0;
    std::atomic<std::uint64_t> failures = 0;

    /// Keeps the failure as the calling thread's last one, and returns its code.
    Rc fail( Failure failure ) const;
    /// The calling thread's last failure, if it is one of this chip; else null.
    const Failure * lastFailure() const;

    /// Does one operation of the SDK under the lock.
    template <class Operation>
    int operate( Operation && operation ) noexcept {
        const std::lock_guard lock( mutex );
        try {
            return toInt( operation() );
        } catch ( const std::bad_alloc & ) {
            return toInt( fail( { .rc = Rc::outOfMemory } ) );
        }
    }

    // --- Finding things

    UnitState * findUnit( int unit ) const;
    TableState * findTable( int unit, std::string_view table ) const;
    Rc findTable( int unit, std::string_view table, TableState *& found ) const;
    Rc findEntry( std::uint32_t handle, const char * what, Entry *& entry,
                  Rc stale = Rc::useAfterFree );
    Rc findField( const TableState & table, std::string_view field, std::uint32_t & number ) const;

    // --- Rules for values

    Rc checkValue( const TableState & table, std::uint32_t number, std::uint64_t value ) const;
    /// `operation` is the one for arrays.
    Rc checkScalar( const TableState & table, std::uint32_t number, const char * operation ) const;
    Rc checkElements( const TableState & table, std::uint32_t number, std::uint64_t first,
                      std::uint64_t count ) const;
    Rc checkAddress( const TableState & table, std::uint32_t part, std::uint64_t value ) const;

    // --- Operations on entries

    Rc allocate( int unit, const char * tableName, std::uint32_t * handle );
    Rc free( std::uint32_t handle );
    Rc setAttribute( std::uint32_t handle, std::uint32_t attribute );
    Rc addField( std::uint32_t handle, const char * fieldName, std::uint64_t value );
    Rc addSymbol( std::uint32_t handle, const char * fieldName, const char * symbol );
    Rc addArray( std::uint32_t handle, const char * fieldName, std::uint32_t start,
                 const std::uint64_t * values, std::uint32_t count );
    Rc getField( std::uint32_t handle, const char * fieldName, std::uint64_t * value );

    // --- Commits

    Rc commitLogical( std::uint32_t handle, std::uint32_t opcode, std::uint32_t priority );
    Rc commitPhysical( std::uint32_t handle, std::uint32_t opcode, std::uint32_t priority );
    // What the two would return; nothing happens.
    Rc judgeLogical( std::uint32_t handle, std::uint32_t opcode, std::uint32_t priority );
    Rc judgePhysical( std::uint32_t handle, std::uint32_t opcode, std::uint32_t priority );
    // Adds a copy of the row to a logical table.
    Rc addRow( TableState & table, const std::uint64_t * row ) const;

    // --- Inspection, and changes behind the SDK's back

    Rc pokeHardware( TableState & table, const RowId & id, std::string_view fieldName,
                     std::uint64_t value, std::uint32_t element );
    Rc restoreRow( TableState & table, const RowImage & image );

  private:
    // The common start of the field operations: the entry and the number of its field.
    Rc findEntryField( std::uint32_t handle, const char * field, const char * what, Entry *& entry,
                       std::uint32_t & number );
    // What must be right of a commit, whatever rows there are.
    Rc checkLogicalCommit( std::uint32_t handle, std::uint32_t opcode, std::uint32_t priority,
                           Entry *& entry );
    Rc checkPhysicalCommit( std::uint32_t handle, std::uint32_t opcode, std::uint32_t priority,
                            Entry *& entry );
    Rc insert( TableState & table, const std::uint64_t * carried ) const;
    Rc checkRowId( const TableState & table, const RowId & id ) const;
};

} // namespace Sim
