#include "sim/ChipState.h"
#include "sim/Constants.h"

namespace Sim {

Rc ChipState::checkLogicalCommit( std::uint32_t handle, std::uint32_t opcode,
                                  std::uint32_t priority, Entry *& entry ) {
    if ( const Rc rc = findEntry( handle, "bcmlt_entry_commit", entry ); rc != Rc::ok )
        return rc;
    const TableState & table = *entry->table;
    const Layout & layout = table.layout;
    if ( table.table.isPhysical() ) {
        return fail(
            { .rc = Rc::wrongCommitKind, .what = "bcmlt_pt_entry_commit", .table = &table.table } );
    }
    if ( opcode < opcodeDelete || opcode > opcodeUpdate )
        return fail( { .rc = Rc::unknownOpcode, .what = "bcmlt_entry_commit", .value = opcode } );
    if ( priority != priorityNormal )
        return fail( { .rc = Rc::unknownPriority, .value = priority } );
    for ( const Layout::FieldPlace & place : layout.fields() ) {
        if ( place.field->role == FieldRole::key &&
             !Layout::isMarked( entry->row.data(), place.firstElement ) ) {
            return fail( { .rc = Rc::keyMissing, .table = &table.table, .field = place.field } );
        }
    }
    return Rc::ok;
}

Rc ChipState::judgeLogical( std::uint32_t handle, std::uint32_t opcode, std::uint32_t priority ) {
    Entry * entry = nullptr;
    if ( const Rc rc = checkLogicalCommit( handle, opcode, priority, entry ); rc != Rc::ok )
        return rc;
    TableState & table = *entry->table;
    const bool exists = table.logicalRows.find( entry->row.data() ) != nullptr;
    if ( opcode != opcodeInsert )
        return exists ? Rc::ok : fail( { .rc = Rc::entryNotFound, .table = &table.table } );
    if ( exists )
        return fail( { .rc = Rc::entryExists, .table = &table.table } );
    if ( table.logicalRows.size() < table.table.size.rows )
        return Rc::ok;
    return fail( { .rc = Rc::tableFull, .table = &table.table, .limit = table.table.size.rows } );
}

Rc ChipState::commitLogical( std::uint32_t handle, std::uint32_t opcode, std::uint32_t priority ) {
    Entry * entry = nullptr;
    if ( const Rc rc = checkLogicalCommit( handle, opcode, priority, entry ); rc != Rc::ok )
        return rc;
    TableState & table = *entry->table;
    const Layout & layout = table.layout;
    if ( opcode == opcodeInsert )
        return insert( table, entry->row.data() );
    std::uint64_t * row = table.logicalRows.find( entry->row.data() );
    if ( row == nullptr )
        return fail( { .rc = Rc::entryNotFound, .table = &table.table } );
    if ( opcode == opcodeUpdate ) {
        layout.merge( row, entry->row.data() );
        Layout::setTouched( row );
    } else if ( opcode == opcodeLookup ) {
        entry->carryRow( row );
    } else {
        table.logicalRows.erase( row );
    }
    return Rc::ok;
}

Rc ChipState::insert( TableState & table, const std::uint64_t * carried ) const {
    table.layout.fillReset( table.scratch.data() );
    table.layout.merge( table.scratch.data(), carried );
    Layout::setTouched( table.scratch.data() );
    return addRow( table, table.scratch.data() );
}

Rc ChipState::addRow( TableState & table, const std::uint64_t * row ) const {
    // An existing row is reported as such, also where the table is full.
    if ( table.logicalRows.size() >= table.table.size.rows &&
         table.logicalRows.find( row ) == nullptr ) {
        return fail(
            { .rc = Rc::tableFull, .table = &table.table, .limit = table.table.size.rows } );
    }
    if ( !table.logicalRows.insert( row ) )
        return fail( { .rc = Rc::entryExists, .table = &table.table } );
    return Rc::ok;
}

} // namespace Sim
