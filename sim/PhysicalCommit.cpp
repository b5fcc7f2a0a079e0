#include "sim/ChipState.h"
#include "sim/Constants.h"

#include <algorithm>
#include <array>

namespace Sim {

Rc ChipState::checkPhysicalCommit( std::uint32_t handle, std::uint32_t opcode,
                                   std::uint32_t priority, Entry *& entry ) {
    if ( const Rc rc = findEntry( handle, "bcmlt_pt_entry_commit", entry ); rc != Rc::ok )
        return rc;
    const TableState & table = *entry->table;
    if ( !table.table.isPhysical() ) {
        return fail(
            { .rc = Rc::wrongCommitKind, .what = "bcmlt_entry_commit", .table = &table.table } );
    }
    if ( opcode < ptOpcodeGet || opcode > ptOpcodeSet ) {
        return fail(
            { .rc = Rc::unknownOpcode, .what = "bcmlt_pt_entry_commit", .value = opcode } );
    }
    if ( priority != priorityNormal )
        return fail( { .rc = Rc::unknownPriority, .value = priority } );
    const TableSize & size = table.table.size;
    const std::array needed = { size.rows > 1, size.instances > 1, size.ports > 0 };
    for ( std::uint32_t part = 0; part < addressParts; ++part ) {
        if ( needed[part] && !entry->addressCarried[part] ) {
            return fail( { .rc = Rc::addressMissing,
                           .table = &table.table,
                           .name = copyName( addressNames[part] ) } );
        }
    }
    return Rc::ok;
}

Rc ChipState::judgePhysical( std::uint32_t handle, std::uint32_t opcode, std::uint32_t priority ) {
    Entry * entry = nullptr;
    return checkPhysicalCommit( handle, opcode, priority, entry );
}

Rc ChipState::commitPhysical( std::uint32_t handle, std::uint32_t opcode, std::uint32_t priority ) {
    Entry * entry = nullptr;
    if ( const Rc rc = checkPhysicalCommit( handle, opcode, priority, entry ); rc != Rc::ok )
        return rc;
    TableState & table = *entry->table;
    const Layout & layout = table.layout;
    PagedRows & rows = table.physicalRows;
    const std::uint64_t number = table.rowNumber( entry->address );
    if ( opcode == ptOpcodeSet ) {
        std::uint64_t * row = rows.findOrMake( number );
        layout.fillReset( row );
        Layout::setPresent( row );
        Layout::setTouched( row );
        layout.merge( row, entry->row.data() );
        rows.dropHardware( number );
        return Rc::ok;
    }

    // The hardware's row becomes the cached one before it is read.
    if ( entry->getFromHw ) {
        if ( const std::uint64_t * hardware = rows.hardware( number ) ) {
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
    const std::uint64_t * row = rows.find( number );
    if ( row == nullptr ) {
        layout.fillInitial( table.scratch.data() );
        row = table.scratch.data();
    }
    entry->carryRow( row );
    return Rc::ok;
}

} // namespace Sim
