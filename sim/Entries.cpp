#include "sim/ChipState.h"
#include "sim/Constants.h"

#include <algorithm>

namespace Sim {

namespace {

// Carries one element.
void carry( Entry & entry, const Layout::FieldPlace & place, std::uint32_t element,
            std::uint64_t value ) {
    entry.table->layout.put( entry.row.data(), place.firstElement + element, value );
    Layout::mark( entry.row.data(), place.firstElement + element );
}

} // namespace

void Entry::carryRow( const std::uint64_t * image ) {
    const Layout & layout = table->layout;
    std::copy( image + layout.maskWords(), image + layout.words(),
               row.data() + layout.maskWords() );
    layout.markAll( row.data() );
}

Rc ChipState::findEntry( std::uint32_t handle, const char * what, Entry *& entry, Rc stale ) {
    const std::uint32_t slot = ( handle & maxEntries ) - 1; // wraps for invalidHandle
    const std::uint16_t generation = static_cast<std::uint16_t>( handle >> slotBits );
    if ( slot >= entries.size() )
        return fail( { .rc = Rc::unknownHandle, .what = what, .handle = handle } );
    entry = &entries[slot];
    if ( entry->live && entry->generation == generation )
        return Rc::ok;
    const std::uint16_t age = static_cast<std::uint16_t>( entry->generation - generation );
    const bool wasGiven = age != 0 && age < 0x8000;
    return fail( { .rc = wasGiven ? stale : Rc::unknownHandle, .what = what, .handle = handle } );
}

Rc ChipState::allocate( int unit, const char * tableName, std::uint32_t * handle ) {
    if ( tableName == nullptr || handle == nullptr ) {
        return fail( { .rc = Rc::nullArgument,
                       .what = tableName != nullptr
                                   ? "the place for the handle of bcmlt_entry_allocate"
                                   : "the table name of bcmlt_entry_allocate" } );
    }
    TableState * table = nullptr;
    if ( const Rc rc = findTable( unit, tableName, table ); rc != Rc::ok )
        return rc;
    if ( freeSlots.empty() ) {
        if ( entries.size() == maxEntries ) {
            return fail( { .rc = Rc::tooManyEntries, .limit = maxEntries } );
        }
        // Room to free them all again, so that a free cannot run out of memory.
        if ( freeSlots.capacity() <= entries.size() )
            freeSlots.reserve( 2 * entries.size() + 1 );
        entries.emplace_back();
        freeSlots.push_back( static_cast<std::uint32_t>( entries.size() - 1 ) );
    }
    const std::uint32_t slot = freeSlots.back();
    Entry & entry = entries[slot];
    entry.row.assign( table->layout.words(), 0 );
    entry.live = true;
    entry.getFromHw = false;
    entry.unit = unit;
    entry.table = table;
    entry.addressCarried = {};
    entry.address = {};
    freeSlots.pop_back();
    *handle = ( std::uint32_t( entry.generation ) << slotBits ) | ( slot + 1 );
    return Rc::ok;
}

Rc ChipState::free( std::uint32_t handle ) {
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

Rc ChipState::setAttribute( std::uint32_t handle, std::uint32_t attribute ) {
    Entry * entry = nullptr;
    if ( const Rc rc = findEntry( handle, "bcmlt_entry_attrib_set", entry ); rc != Rc::ok )
        return rc;
    const Table & table = entry->table->table;
    if ( attribute != attrGetFromHw || !table.isPhysical() )
        return fail( { .rc = Rc::unknownAttribute, .table = &table, .value = attribute } );
    entry->getFromHw = true;
    return Rc::ok;
}

Rc ChipState::findEntryField( std::uint32_t handle, const char * field, const char * what,
                              Entry *& entry, std::uint32_t & number ) {
    if ( const Rc rc = findEntry( handle, what, entry ); rc != Rc::ok )
        return rc;
    if ( field == nullptr )
        return fail( { .rc = Rc::nullArgument, .what = "the field name" } );
    return findField( *entry->table, field, number );
}

Rc ChipState::addField( std::uint32_t handle, const char * fieldName, std::uint64_t value ) {
    Entry * entry = nullptr;
    std::uint32_t number = 0;
    if ( const Rc rc = findEntryField( handle, fieldName, "bcmlt_entry_field_add", entry, number );
         rc != Rc::ok ) {
        return rc;
    }
    if ( number >= firstAddressField ) {
        const std::uint32_t part = number - firstAddressField;
        if ( const Rc rc = checkAddress( *entry->table, part, value ); rc != Rc::ok )
            return rc;
        entry->address[part] = static_cast<std::uint32_t>( value );
        entry->addressCarried[part] = true;
        return Rc::ok;
    }
    if ( const Rc rc = checkScalar( *entry->table, number, "bcmlt_entry_field_array_add" );
         rc != Rc::ok )
        return rc;
    if ( const Rc rc = checkValue( *entry->table, number, value ); rc != Rc::ok )
        return rc;
    carry( *entry, entry->table->layout.fields()[number], 0, value );
    return Rc::ok;
}

Rc ChipState::addSymbol( std::uint32_t handle, const char * fieldName, const char * symbol ) {
    Entry * entry = nullptr;
    std::uint32_t number = 0;
    if ( const Rc rc =
             findEntryField( handle, fieldName, "bcmlt_entry_field_symbol_add", entry, number );
         rc != Rc::ok ) {
        return rc;
    }
    const Table & table = entry->table->table;
    if ( symbol == nullptr )
        return fail( { .rc = Rc::nullArgument, .what = "the symbol" } );
    if ( number >= firstAddressField )
        return fail( { .rc = Rc::symbolOnNumber, .table = &table, .name = copyName( fieldName ) } );
    if ( const Rc rc = checkScalar( *entry->table, number, "bcmlt_entry_field_array_add" );
         rc != Rc::ok )
        return rc;
    const Layout::FieldPlace & place = entry->table->layout.fields()[number];
    if ( place.field->symbols.empty() )
        return fail( { .rc = Rc::symbolOnNumber, .table = &table, .name = copyName( fieldName ) } );
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

Rc ChipState::addArray( std::uint32_t handle, const char * fieldName, std::uint32_t start,
                        const std::uint64_t * values, std::uint32_t count ) {
    Entry * entry = nullptr;
    std::uint32_t number = 0;
    if ( const Rc rc =
             findEntryField( handle, fieldName, "bcmlt_entry_field_array_add", entry, number );
         rc != Rc::ok ) {
        return rc;
    }
    const Table & table = entry->table->table;
    if ( number >= firstAddressField || entry->table->layout.fields()[number].field->length == 1 )
        return fail( { .rc = Rc::scalarField, .table = &table, .name = copyName( fieldName ) } );
    if ( const Rc rc = checkElements( *entry->table, number, start, count ); rc != Rc::ok )
        return rc;
    if ( values == nullptr && count > 0 )
        return fail( { .rc = Rc::nullArgument, .what = "the array of values" } );
    for ( std::uint32_t i = 0; i < count; ++i ) {
        if ( const Rc rc = checkValue( *entry->table, number, values[i] ); rc != Rc::ok )
            return rc;
    }
    const Layout::FieldPlace & place = entry->table->layout.fields()[number];
    for ( std::uint32_t i = 0; i < count; ++i )
        carry( *entry, place, start + i, values[i] );
    return Rc::ok;
}

Rc ChipState::getField( std::uint32_t handle, const char * fieldName, std::uint64_t * value ) {
    Entry * entry = nullptr;
    std::uint32_t number = 0;
    if ( const Rc rc = findEntryField( handle, fieldName, "bcmlt_entry_field_get", entry, number );
         rc != Rc::ok ) {
        return rc;
    }
    const Table & table = entry->table->table;
    if ( value == nullptr )
        return fail( { .rc = Rc::nullArgument, .what = "the place for the value" } );
    if ( number >= firstAddressField ) {
        const std::uint32_t part = number - firstAddressField;
        if ( !entry->addressCarried[part] ) {
            return fail(
                { .rc = Rc::fieldNotCarried, .table = &table, .name = copyName( fieldName ) } );
        }
        *value = entry->address[part];
        return Rc::ok;
    }
    if ( const Rc rc = checkScalar( *entry->table, number, "an operation for arrays" );
         rc != Rc::ok )
        return rc;
    const Layout::FieldPlace & place = entry->table->layout.fields()[number];
    if ( !Layout::isMarked( entry->row.data(), place.firstElement ) ) {
        return fail(
            { .rc = Rc::fieldNotCarried, .table = &table, .name = copyName( fieldName ) } );
    }
    *value = entry->table->layout.get( entry->row.data(), place.firstElement );
    return Rc::ok;
}

} // namespace Sim
