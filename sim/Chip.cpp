#include "sim/Chip.h"

#include "sim/Failure.h"
#include "sim/TableState.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <map>
#include <mutex>
#include <new>
#include <stdexcept>
#include <utility>

namespace Sim {

namespace {

// A handle is the entry's slot + 1 in the low half and the slot's generation in the high half.
constexpr uint32_t slotBits = 16;
constexpr uint32_t maxEntries = ( 1u << slotBits ) - 1;

struct Entry {
    bool live = false;
    bool getFromHw = false;
    uint16_t generation = 0;
    int unit = 0;
    TableState * table = nullptr;
    Address address = {};
    std::array<bool, addressParts> addressCarried = {};
    // A row image; its mask tells the elements that the entry carries.
    std::vector<uint64_t> row;
};

thread_local Failure lastFailure;

std::atomic<uint64_t> chipCount = 0;

} // namespace

struct Chip::State {
    const uint64_t chipId = ++chipCount;

    // Guards everything below but the counters.
    mutable std::mutex mutex;
    std::map<int, std::unique_ptr<UnitState>> units;
    std::vector<Entry> entries;
    std::vector<uint32_t> freeSlots;

    std::atomic<uint64_t> preCalls = 0;
    std::atomic<uint64_t> failures = 0;

    Rc fail( Failure failure ) const {
        failure.chip = chipId;
        lastFailure = failure;
        return failure.rc;
    }

    // Does one operation of the SDK under the lock.
    template <typename Operation>
    int operate( Operation && operation ) noexcept {
        const std::lock_guard lock( mutex );
        try {
            return toInt( operation() );
        } catch ( const std::bad_alloc & ) {
            return toInt( fail( { .rc = Rc::outOfMemory } ) );
        }
    }

    // --- Finding things

    UnitState * findUnit( int unit ) const {
        const auto it = units.find( unit );
        return it == units.end() ? nullptr : it->second.get();
    }

    TableState * findTable( int unit, std::string_view table ) const {
        const UnitState * state = findUnit( unit );
        if ( !state ) {
            return nullptr;
        }
        const auto it = state->tables.find( table );
        return it == state->tables.end() ? nullptr : it->second.get();
    }

    Rc findTable( int unit, std::string_view table, TableState *& found ) const {
        found = findTable( unit, table );
        if ( found ) {
            return Rc::ok;
        }
        return fail( { .rc = findUnit( unit ) ? Rc::unknownTable : Rc::unknownUnit,
                       .unit = unit,
                       .name = copyName( table ) } );
    }

    Rc findEntry( uint32_t handle, const char * what, Entry *& entry,
                  Rc stale = Rc::useAfterFree ) {
        const uint32_t slot = ( handle & maxEntries ) - 1; // wraps for invalidHandle
        const uint16_t generation = static_cast<uint16_t>( handle >> slotBits );
        if ( slot >= entries.size() ) {
            return fail( { .rc = Rc::unknownHandle, .what = what, .handle = handle } );
        }
        entry = &entries[slot];
        if ( entry->live && entry->generation == generation ) {
            return Rc::ok;
        }
        const uint16_t age = static_cast<uint16_t>( entry->generation - generation );
        const bool wasGiven = age != 0 && age < 0x8000;
        return fail(
            { .rc = wasGiven ? stale : Rc::unknownHandle, .what = what, .handle = handle } );
    }

    Rc findField( const TableState & table, std::string_view field, uint32_t & number ) const {
        const auto it = table.fieldNumbers.find( field );
        if ( it == table.fieldNumbers.end() ||
             ( it->second >= firstAddressField && !table.table.isPhysical() ) ) {
            return fail(
                { .rc = Rc::unknownField, .table = &table.table, .name = copyName( field ) } );
        }
        number = it->second;
        return Rc::ok;
    }

    // --- Rules for values

    Rc checkValue( const TableState & table, uint32_t number, uint64_t value ) const {
        const Field & field = *table.layout.fields()[number].field;
        if ( value > field.maximum() ) {
            return fail( { .rc = Rc::valueTooWide,
                           .table = &table.table,
                           .field = &field,
                           .value = value } );
        }
        if ( !field.symbols.empty() && !table.symbols[number].byValue.contains( value ) ) {
            return fail( { .rc = Rc::valueNotAllowed,
                           .table = &table.table,
                           .field = &field,
                           .value = value } );
        }
        return Rc::ok;
    }

    Rc checkElements( const TableState & table, uint32_t number, uint64_t first,
                      uint64_t count ) const {
        const Field & field = *table.layout.fields()[number].field;
        if ( first + count > field.length ) {
            return fail( { .rc = Rc::elementOutOfRange,
                           .table = &table.table,
                           .field = &field,
                           .value = first + count - 1,
                           .limit = field.length } );
        }
        return Rc::ok;
    }

    Rc checkAddress( const TableState & table, uint32_t part, uint64_t value ) const {
        static constexpr std::array outOfRange = { Rc::indexOutOfRange, Rc::instanceOutOfRange,
                                                   Rc::portOutOfRange };
        const TableSize & size = table.table.size;
        const uint32_t limit = std::array{ size.rows, size.instances, size.ports }[part];
        if ( value < limit ) {
            return Rc::ok;
        }
        return fail( { .rc = part == portPart && limit == 0 ? Rc::notPerPort : outOfRange[part],
                       .table = &table.table,
                       .value = value,
                       .limit = limit } );
    }

    // --- Operations on entries

    Rc allocate( int unit, const char * tableName, uint32_t * handle ) {
        if ( !tableName || !handle ) {
            return fail( { .rc = Rc::nullArgument,
                           .what = tableName ? "the place for the handle of bcmlt_entry_allocate"
                                             : "the table name of bcmlt_entry_allocate" } );
        }
        TableState * table = nullptr;
        if ( const Rc rc = findTable( unit, tableName, table ); rc != Rc::ok ) {
            return rc;
        }
        if ( freeSlots.empty() ) {
            if ( entries.size() == maxEntries ) {
                return fail( { .rc = Rc::tooManyEntries, .limit = maxEntries } );
            }
            // Room to free them all again, so that a free can not run out of memory.
            if ( freeSlots.capacity() <= entries.size() ) {
                freeSlots.reserve( 2 * entries.size() + 1 );
            }
            entries.emplace_back();
            freeSlots.push_back( static_cast<uint32_t>( entries.size() - 1 ) );
        }
        const uint32_t slot = freeSlots.back();
        Entry & entry = entries[slot];
        entry.row.assign( table->layout.words(), 0 );
        entry.live = true;
        entry.getFromHw = false;
        entry.unit = unit;
        entry.table = table;
        entry.addressCarried = {};
        entry.address = {};
        freeSlots.pop_back();
        *handle = ( uint32_t( entry.generation ) << slotBits ) | ( slot + 1 );
        return Rc::ok;
    }

    Rc free( uint32_t handle ) {
        Entry * entry = nullptr;
        if ( const Rc rc = findEntry( handle, "bcmlt_entry_free", entry, Rc::doubleFree );
             rc != Rc::ok ) {
            return rc;
        }
        entry->live = false;
        ++entry->generation;
        freeSlots.push_back( ( handle & maxEntries ) - 1 );
        return Rc::ok;
    }

    Rc setAttribute( uint32_t handle, uint32_t attribute ) {
        Entry * entry = nullptr;
        if ( const Rc rc = findEntry( handle, "bcmlt_entry_attrib_set", entry ); rc != Rc::ok ) {
            return rc;
        }
        const Table & table = entry->table->table;
        if ( attribute != attrGetFromHw || !table.isPhysical() ) {
            return fail( { .rc = Rc::unknownAttribute, .table = &table, .value = attribute } );
        }
        entry->getFromHw = true;
        return Rc::ok;
    }

    // The common start of the field operations: the entry and the number of its field.
    Rc findEntryField( uint32_t handle, const char * field, const char * what, Entry *& entry,
                       uint32_t & number ) {
        if ( const Rc rc = findEntry( handle, what, entry ); rc != Rc::ok ) {
            return rc;
        }
        if ( !field ) {
            return fail( { .rc = Rc::nullArgument, .what = "the field name" } );
        }
        return findField( *entry->table, field, number );
    }

    static void carry( Entry & entry, const Layout::FieldPlace & place, uint32_t element,
                       uint64_t value ) {
        entry.table->layout.put( entry.row.data(), place.firstElement + element, value );
        Layout::mark( entry.row.data(), place.firstElement + element );
    }

    Rc addField( uint32_t handle, const char * fieldName, uint64_t value ) {
        Entry * entry = nullptr;
        uint32_t number = 0;
        if ( const Rc rc =
                 findEntryField( handle, fieldName, "bcmlt_entry_field_add", entry, number );
             rc != Rc::ok ) {
            return rc;
        }
        if ( number >= firstAddressField ) {
            const uint32_t part = number - firstAddressField;
            if ( const Rc rc = checkAddress( *entry->table, part, value ); rc != Rc::ok ) {
                return rc;
            }
            entry->address[part] = static_cast<uint32_t>( value );
            entry->addressCarried[part] = true;
            return Rc::ok;
        }
        const Layout::FieldPlace & place = entry->table->layout.fields()[number];
        if ( place.field->length > 1 ) {
            return fail( { .rc = Rc::arrayField,
                           .what = "bcmlt_entry_field_array_add",
                           .table = &entry->table->table,
                           .field = place.field } );
        }
        if ( const Rc rc = checkValue( *entry->table, number, value ); rc != Rc::ok ) {
            return rc;
        }
        carry( *entry, place, 0, value );
        return Rc::ok;
    }

    Rc addSymbol( uint32_t handle, const char * fieldName, const char * symbol ) {
        Entry * entry = nullptr;
        uint32_t number = 0;
        if ( const Rc rc =
                 findEntryField( handle, fieldName, "bcmlt_entry_field_symbol_add", entry, number );
             rc != Rc::ok ) {
            return rc;
        }
        const Table & table = entry->table->table;
        if ( !symbol ) {
            return fail( { .rc = Rc::nullArgument, .what = "the symbol" } );
        }
        if ( number >= firstAddressField ) {
            return fail(
                { .rc = Rc::symbolOnNumber, .table = &table, .name = copyName( fieldName ) } );
        }
        const Layout::FieldPlace & place = entry->table->layout.fields()[number];
        if ( place.field->length > 1 ) {
            return fail( { .rc = Rc::arrayField,
                           .what = "bcmlt_entry_field_array_add",
                           .table = &table,
                           .field = place.field } );
        }
        if ( place.field->symbols.empty() ) {
            return fail(
                { .rc = Rc::symbolOnNumber, .table = &table, .name = copyName( fieldName ) } );
        }
        const auto & byName = entry->table->symbols[number].byName;
        const auto it = byName.find( symbol );
        if ( it == byName.end() ) {
            return fail( { .rc = Rc::unknownSymbol,
                           .table = &table,
                           .field = place.field,
                           .name = copyName( symbol ) } );
        }
        carry( *entry, place, 0, it->second );
        return Rc::ok;
    }

    Rc addArray( uint32_t handle, const char * fieldName, uint32_t start, const uint64_t * values,
                 uint32_t count ) {
        Entry * entry = nullptr;
        uint32_t number = 0;
        if ( const Rc rc =
                 findEntryField( handle, fieldName, "bcmlt_entry_field_array_add", entry, number );
             rc != Rc::ok ) {
            return rc;
        }
        const Table & table = entry->table->table;
        if ( number >= firstAddressField ||
             entry->table->layout.fields()[number].field->length == 1 ) {
            return fail(
                { .rc = Rc::scalarField, .table = &table, .name = copyName( fieldName ) } );
        }
        if ( const Rc rc = checkElements( *entry->table, number, start, count ); rc != Rc::ok ) {
            return rc;
        }
        if ( !values && count > 0 ) {
            return fail( { .rc = Rc::nullArgument, .what = "the array of values" } );
        }
        for ( uint32_t i = 0; i < count; ++i ) {
            if ( const Rc rc = checkValue( *entry->table, number, values[i] ); rc != Rc::ok ) {
                return rc;
            }
        }
        const Layout::FieldPlace & place = entry->table->layout.fields()[number];
        for ( uint32_t i = 0; i < count; ++i ) {
            carry( *entry, place, start + i, values[i] );
        }
        return Rc::ok;
    }

    Rc getField( uint32_t handle, const char * fieldName, uint64_t * value ) {
        Entry * entry = nullptr;
        uint32_t number = 0;
        if ( const Rc rc =
                 findEntryField( handle, fieldName, "bcmlt_entry_field_get", entry, number );
             rc != Rc::ok ) {
            return rc;
        }
        const Table & table = entry->table->table;
        if ( !value ) {
            return fail( { .rc = Rc::nullArgument, .what = "the place for the value" } );
        }
        if ( number >= firstAddressField ) {
            const uint32_t part = number - firstAddressField;
            if ( !entry->addressCarried[part] ) {
                return fail(
                    { .rc = Rc::fieldNotCarried, .table = &table, .name = copyName( fieldName ) } );
            }
            *value = entry->address[part];
            return Rc::ok;
        }
        const Layout::FieldPlace & place = entry->table->layout.fields()[number];
        if ( place.field->length > 1 ) {
            return fail( { .rc = Rc::arrayField,
                           .what = "an operation for arrays",
                           .table = &table,
                           .field = place.field } );
        }
        if ( !Layout::isMarked( entry->row.data(), place.firstElement ) ) {
            return fail(
                { .rc = Rc::fieldNotCarried, .table = &table, .name = copyName( fieldName ) } );
        }
        *value = entry->table->layout.get( entry->row.data(), place.firstElement );
        return Rc::ok;
    }

    // --- Commits

    Rc commitLogical( uint32_t handle, uint32_t opcode, uint32_t priority ) {
        Entry * entry = nullptr;
        if ( const Rc rc = findEntry( handle, "bcmlt_entry_commit", entry ); rc != Rc::ok ) {
            return rc;
        }
        TableState & table = *entry->table;
        const Layout & layout = table.layout;
        if ( table.table.isPhysical() ) {
            return fail( { .rc = Rc::wrongCommitKind,
                           .what = "bcmlt_pt_entry_commit",
                           .table = &table.table } );
        }
        if ( opcode < opcodeDelete || opcode > opcodeUpdate ) {
            return fail(
                { .rc = Rc::unknownOpcode, .what = "bcmlt_entry_commit", .value = opcode } );
        }
        if ( priority != priorityNormal ) {
            return fail( { .rc = Rc::unknownPriority, .value = priority } );
        }
        for ( const Layout::FieldPlace & place : layout.fields() ) {
            if ( place.field->role == FieldRole::key &&
                 !Layout::isMarked( entry->row.data(), place.firstElement ) ) {
                return fail(
                    { .rc = Rc::keyMissing, .table = &table.table, .field = place.field } );
            }
        }

        if ( opcode == opcodeInsert ) {
            return insert( table, entry->row.data() );
        }
        uint64_t * row = table.logicalRows.find( entry->row.data() );
        if ( !row ) {
            return fail( { .rc = Rc::entryNotFound, .table = &table.table } );
        }
        if ( opcode == opcodeUpdate ) {
            layout.merge( row, entry->row.data() );
            Layout::setTouched( row );
        } else if ( opcode == opcodeLookup ) {
            readInto( *entry, row );
        } else {
            table.logicalRows.erase( row );
        }
        return Rc::ok;
    }

    Rc insert( TableState & table, const uint64_t * carried ) {
        table.layout.fillReset( table.scratch.data() );
        table.layout.merge( table.scratch.data(), carried );
        Layout::setTouched( table.scratch.data() );
        return addRow( table, table.scratch.data() );
    }

    // Adds a row to a logical table, as it is.
    Rc addRow( TableState & table, const uint64_t * row ) {
        // A row that exists is the better thing to hear about a full table.
        if ( table.logicalRows.size() >= table.table.size.rows && !table.logicalRows.find( row ) ) {
            return fail(
                { .rc = Rc::tableFull, .table = &table.table, .limit = table.table.size.rows } );
        }
        if ( !table.logicalRows.insert( row ) ) {
            return fail( { .rc = Rc::entryExists, .table = &table.table } );
        }
        return Rc::ok;
    }

    // The entry carries all of the row afterwards.
    static void readInto( Entry & entry, const uint64_t * row ) {
        const Layout & layout = entry.table->layout;
        std::copy( row + layout.maskWords(), row + layout.words(),
                   entry.row.data() + layout.maskWords() );
        layout.markAll( entry.row.data() );
    }

    Rc commitPhysical( uint32_t handle, uint32_t opcode, uint32_t priority ) {
        Entry * entry = nullptr;
        if ( const Rc rc = findEntry( handle, "bcmlt_pt_entry_commit", entry ); rc != Rc::ok ) {
            return rc;
        }
        TableState & table = *entry->table;
        const Layout & layout = table.layout;
        PagedRows & rows = table.physicalRows;
        if ( !table.table.isPhysical() ) {
            return fail( { .rc = Rc::wrongCommitKind,
                           .what = "bcmlt_entry_commit",
                           .table = &table.table } );
        }
        if ( opcode < ptOpcodeGet || opcode > ptOpcodeSet ) {
            return fail(
                { .rc = Rc::unknownOpcode, .what = "bcmlt_pt_entry_commit", .value = opcode } );
        }
        if ( priority != priorityNormal ) {
            return fail( { .rc = Rc::unknownPriority, .value = priority } );
        }
        const TableSize & size = table.table.size;
        const std::array needed = { size.rows > 1, size.instances > 1, size.ports > 0 };
        for ( uint32_t part = 0; part < addressParts; ++part ) {
            if ( needed[part] && !entry->addressCarried[part] ) {
                return fail( { .rc = Rc::addressMissing,
                               .table = &table.table,
                               .name = copyName( addressNames[part] ) } );
            }
        }

        const uint64_t number = table.rowNumber( entry->address );
        if ( opcode == ptOpcodeSet ) {
            uint64_t * row = rows.findOrMake( number );
            layout.fillReset( row );
            Layout::setPresent( row );
            Layout::setTouched( row );
            layout.merge( row, entry->row.data() );
            rows.dropHardware( number );
            return Rc::ok;
        }

        // The hardware's row becomes the cached one before it is read.
        if ( entry->getFromHw ) {
            if ( const uint64_t * hardware = rows.hardware( number ) ) {
                std::copy( hardware + layout.maskWords(), hardware + layout.words(),
                           rows.find( number ) + layout.maskWords() );
                rows.dropHardware( number );
            }
        }
        if ( opcode == ptOpcodeModify ) {
            layout.merge( rows.findOrMake( number ), entry->row.data() );
            rows.dropHardware( number );
            return Rc::ok;
        }
        const uint64_t * row = rows.find( number );
        if ( !row ) {
            layout.fillInitial( table.scratch.data() );
            row = table.scratch.data();
        }
        readInto( *entry, row );
        return Rc::ok;
    }

    // --- Looking at the tables, and behind the SDK's back

    Rc checkRowId( const TableState & table, const RowId & id ) const {
        Rc rc = Rc::ok;
        for ( uint32_t part = 0; rc == Rc::ok && !table.has( addressOf( id ) ); ++part ) {
            rc = checkAddress( table, part, addressOf( id )[part] );
        }
        return rc;
    }

    Rc pokeHardware( TableState & table, const RowId & id, std::string_view fieldName,
                     uint64_t value, uint32_t element ) {
        if ( !table.table.isPhysical() ) {
            return fail( { .rc = Rc::wrongCommitKind, .table = &table.table } );
        }
        if ( const Rc rc = checkRowId( table, id ); rc != Rc::ok ) {
            return rc;
        }
        const uint64_t rowNumber = table.rowNumber( addressOf( id ) );
        uint32_t number = 0;
        if ( const Rc rc = findField( table, fieldName, number ); rc != Rc::ok ) {
            return rc;
        }
        if ( number >= firstAddressField ) {
            return fail(
                { .rc = Rc::unknownField, .table = &table.table, .name = copyName( fieldName ) } );
        }
        if ( const Rc rc = checkElements( table, number, element, 1 ); rc != Rc::ok ) {
            return rc;
        }
        if ( const Rc rc = checkValue( table, number, value ); rc != Rc::ok ) {
            return rc;
        }
        const uint32_t place = table.layout.fields()[number].firstElement + element;
        PagedRows & rows = table.physicalRows;
        uint64_t * cached = rows.findOrMake( rowNumber );
        Layout::mark( cached, place );
        const uint64_t * current = rows.hardware( rowNumber );
        std::vector<uint64_t> hardware( current ? current : cached,
                                        ( current ? current : cached ) + table.layout.words() );
        table.layout.put( hardware.data(), place, value );
        rows.setHardware( rowNumber, hardware.data() );
        return Rc::ok;
    }

    Rc restoreRow( TableState & table, const RowImage & image ) {
        const Layout & layout = table.layout;
        const std::size_t count = layout.elementCount();
        for ( const std::size_t size :
              { image.values.size(), image.written.size(),
                image.hardware.empty() ? count : image.hardware.size() } ) {
            if ( size != count ) {
                return fail( { .rc = Rc::elementOutOfRange,
                               .table = &table.table,
                               .value = size,
                               .limit = count } );
            }
        }
        if ( !table.table.isPhysical() && !image.hardware.empty() ) {
            return fail( { .rc = Rc::wrongCommitKind, .table = &table.table } );
        }
        std::vector<uint64_t> row( layout.words() );
        std::vector<uint64_t> hardware( layout.words() );
        for ( uint32_t number = 0; number < layout.fields().size(); ++number ) {
            const Layout::FieldPlace & place = layout.fields()[number];
            for ( uint32_t i = place.firstElement; i < place.firstElement + place.field->length;
                  ++i ) {
                if ( const Rc rc = checkValue( table, number, image.values[i] ); rc != Rc::ok ) {
                    return rc;
                }
                layout.put( row.data(), i, image.values[i] );
                if ( image.written[i] ) {
                    Layout::mark( row.data(), i );
                }
                if ( !image.hardware.empty() ) {
                    if ( const Rc rc = checkValue( table, number, image.hardware[i] );
                         rc != Rc::ok ) {
                        return rc;
                    }
                    layout.put( hardware.data(), i, image.hardware[i] );
                }
            }
        }
        Layout::setPresent( row.data() );
        if ( image.touched || table.table.isPhysical() ) {
            Layout::setTouched( row.data() );
        }

        if ( table.table.isPhysical() ) {
            if ( const Rc rc = checkRowId( table, image.id ); rc != Rc::ok ) {
                return rc;
            }
            const uint64_t number = table.rowNumber( addressOf( image.id ) );
            std::copy( row.begin(), row.end(), table.physicalRows.findOrMake( number ) );
            if ( image.hardware.empty() ) {
                table.physicalRows.dropHardware( number );
            } else {
                table.physicalRows.setHardware( number, hardware.data() );
            }
            return Rc::ok;
        }
        if ( uint64_t * there = table.logicalRows.find( row.data() ) ) {
            std::copy( row.begin(), row.end(), there );
            return Rc::ok;
        }
        return addRow( table, row.data() );
    }
};

Chip::Chip() : state_( std::make_unique<State>() ) {}

Chip::~Chip() = default;

void Chip::addUnit( int unit, Schema schema ) {
    const std::string name = "unit " + std::to_string( unit );
    if ( unit < 0 ) {
        throw std::invalid_argument( name + " is not possible; units are numbered from 0" );
    }
    const std::vector<std::string> problems = schema.check();
    if ( !problems.empty() ) {
        throw std::invalid_argument( name + ": " + problems.front() );
    }
    auto added = std::make_unique<UnitState>( std::move( schema ) );
    const std::lock_guard lock( state_->mutex );
    if ( !state_->units.try_emplace( unit, std::move( added ) ).second ) {
        throw std::invalid_argument( name + " exists already; give the new one another number" );
    }
}

std::vector<int> Chip::units() const {
    const std::lock_guard lock( state_->mutex );
    std::vector<int> numbers;
    for ( const auto & [number, unit] : state_->units ) {
        numbers.push_back( number );
    }
    return numbers;
}

const Schema * Chip::schema( int unit ) const {
    const std::lock_guard lock( state_->mutex );
    const UnitState * found = state_->findUnit( unit );
    return found ? &found->schema : nullptr;
}

std::string Chip::lastError() const {
    if ( lastFailure.chip != state_->chipId ) {
        return {};
    }
    const std::lock_guard lock( state_->mutex );
    std::map<int, const Schema *> schemas;
    for ( const auto & [number, unit] : state_->units ) {
        schemas.emplace( number, &unit->schema );
    }
    return describe( lastFailure, schemas );
}

uint64_t Chip::preCallCount() const { return state_->preCalls.load( std::memory_order_relaxed ); }

uint64_t Chip::failureCount() const { return state_->failures.load( std::memory_order_relaxed ); }

std::vector<LiveEntry> Chip::liveEntries() const {
    const std::lock_guard lock( state_->mutex );
    std::vector<LiveEntry> live;
    for ( uint32_t slot = 0; slot < state_->entries.size(); ++slot ) {
        const Entry & entry = state_->entries[slot];
        if ( entry.live ) {
            live.push_back( { ( uint32_t( entry.generation ) << slotBits ) | ( slot + 1 ),
                              entry.unit, entry.table->table.name } );
        }
    }
    return live;
}

std::size_t Chip::liveEntryCount() const {
    const std::lock_guard lock( state_->mutex );
    return state_->entries.size() - state_->freeSlots.size();
}

std::vector<RowImage> Chip::rows( int unit, std::string_view table, Rows which ) const {
    const std::lock_guard lock( state_->mutex );
    const TableState * found = state_->findTable( unit, table );
    return found ? found->images( which ) : std::vector<RowImage>();
}

std::size_t Chip::rowCount( int unit, std::string_view table ) const {
    const std::lock_guard lock( state_->mutex );
    const TableState * found = state_->findTable( unit, table );
    if ( !found ) {
        return 0;
    }
    return found->table.isPhysical() ? found->physicalRows.size() : found->logicalRows.size();
}

std::optional<RowImage> Chip::row( int unit, std::string_view table, const RowId & id ) const {
    const std::lock_guard lock( state_->mutex );
    TableState * found = state_->findTable( unit, table );
    return found ? found->image( id ) : std::nullopt;
}

std::optional<uint64_t> Chip::value( int unit, std::string_view table, const RowId & id,
                                     std::string_view field, uint32_t element, Copy copy ) const {
    const std::lock_guard lock( state_->mutex );
    TableState * found = state_->findTable( unit, table );
    if ( !found ) {
        return {};
    }
    const auto number = found->fieldNumbers.find( field );
    if ( number == found->fieldNumbers.end() || number->second >= firstAddressField ) {
        return {};
    }
    const Layout::FieldPlace & place = found->layout.fields()[number->second];
    const std::optional<RowImage> image = found->image( id );
    if ( !image || element >= place.field->length ) {
        return {};
    }
    const bool hardware = copy == Copy::hardware && !image->hardware.empty();
    return ( hardware ? image->hardware : image->values )[place.firstElement + element];
}

Rc Chip::pokeHardware( int unit, std::string_view table, const RowId & id, std::string_view field,
                       uint64_t value, uint32_t element ) {
    const std::lock_guard lock( state_->mutex );
    TableState * found = nullptr;
    const Rc rc = state_->findTable( unit, table, found );
    return rc == Rc::ok ? state_->pokeHardware( *found, id, field, value, element ) : rc;
}

Rc Chip::clear( int unit ) {
    const std::lock_guard lock( state_->mutex );
    UnitState * found = state_->findUnit( unit );
    if ( !found ) {
        return state_->fail( { .rc = Rc::unknownUnit, .unit = unit } );
    }
    for ( const auto & [name, table] : found->tables ) {
        table->logicalRows.clear();
        table->physicalRows.clear();
    }
    return Rc::ok;
}

Rc Chip::restoreRow( int unit, std::string_view table, const RowImage & image ) {
    const std::lock_guard lock( state_->mutex );
    TableState * found = nullptr;
    const Rc rc = state_->findTable( unit, table, found );
    return rc == Rc::ok ? state_->restoreRow( *found, image ) : rc;
}

const char * Chip::errmsg( int rc ) noexcept { return textOf( rc ); }

uint32_t Chip::BCMLT_ENT_ATTR_GET_FROM_HW() noexcept { return attrGetFromHw; }
uint32_t Chip::BCMLT_OPCODE_DELETE() noexcept { return opcodeDelete; }
uint32_t Chip::BCMLT_OPCODE_INSERT() noexcept { return opcodeInsert; }
uint32_t Chip::BCMLT_OPCODE_LOOKUP() noexcept { return opcodeLookup; }
uint32_t Chip::BCMLT_OPCODE_UPDATE() noexcept { return opcodeUpdate; }
uint32_t Chip::BCMLT_PRIORITY_NORMAL() noexcept { return priorityNormal; }
uint32_t Chip::BCMLT_PT_OPCODE_GET() noexcept { return ptOpcodeGet; }
uint32_t Chip::BCMLT_PT_OPCODE_MODIFY() noexcept { return ptOpcodeModify; }
uint32_t Chip::BCMLT_PT_OPCODE_SET() noexcept { return ptOpcodeSet; }
uint32_t Chip::BCMLT_INVALID_HDL() noexcept { return invalidHandle; }

int Chip::bcmlt_entry_allocate( int unit, const char * table, uint32_t * handle ) noexcept {
    return state_->operate( [&] { return state_->allocate( unit, table, handle ); } );
}

int Chip::bcmlt_entry_attrib_set( uint32_t handle, uint32_t attribute ) noexcept {
    return state_->operate( [&] { return state_->setAttribute( handle, attribute ); } );
}

int Chip::bcmlt_entry_commit( uint32_t handle, uint32_t opcode, uint32_t priority ) noexcept {
    return state_->operate( [&] { return state_->commitLogical( handle, opcode, priority ); } );
}

int Chip::bcmlt_entry_field_add( uint32_t handle, const char * field, uint64_t value ) noexcept {
    return state_->operate( [&] { return state_->addField( handle, field, value ); } );
}

int Chip::bcmlt_entry_field_array_add( uint32_t handle, const char * field, uint32_t startIndex,
                                       const uint64_t * values, uint32_t count ) noexcept {
    return state_->operate(
        [&] { return state_->addArray( handle, field, startIndex, values, count ); } );
}

int Chip::bcmlt_entry_field_get( uint32_t handle, const char * field, uint64_t * value ) noexcept {
    return state_->operate( [&] { return state_->getField( handle, field, value ); } );
}

int Chip::bcmlt_entry_field_symbol_add( uint32_t handle, const char * field,
                                        const char * symbol ) noexcept {
    return state_->operate( [&] { return state_->addSymbol( handle, field, symbol ); } );
}

int Chip::bcmlt_entry_free( uint32_t handle ) noexcept {
    return state_->operate( [&] { return state_->free( handle ); } );
}

int Chip::bcmlt_pt_entry_commit( uint32_t handle, uint32_t opcode, uint32_t priority ) noexcept {
    return state_->operate( [&] { return state_->commitPhysical( handle, opcode, priority ); } );
}

const char * Chip::ENABLEs() noexcept { return "ENABLE"; }
const char * Chip::NUM_LANESs() noexcept { return "NUM_LANES"; }
const char * Chip::PC_PHYS_PORT_IDs() noexcept { return "PC_PHYS_PORT_ID"; }
const char * Chip::PC_PORT_PHYS_MAPs() noexcept { return "PC_PORT_PHYS_MAP"; }
const char * Chip::PC_PORTs() noexcept { return "PC_PORT"; }
const char * Chip::PORT_IDs() noexcept { return "PORT_ID"; }
const char * Chip::SPEEDs() noexcept { return "SPEED"; }

void Chip::preCallHook() noexcept { state_->preCalls.fetch_add( 1, std::memory_order_relaxed ); }

void Chip::failureHook() noexcept { state_->failures.fetch_add( 1, std::memory_order_relaxed ); }

} // namespace Sim
