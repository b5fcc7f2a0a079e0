#include "sim/ChipState.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace Sim {

Rc ChipState::checkRowId( const TableState & table, const RowId & id ) const {
    Rc rc = Rc::ok;
    for ( std::uint32_t part = 0; rc == Rc::ok && !table.has( addressOf( id ) ); ++part )
        rc = checkAddress( table, part, addressOf( id )[part] );
    return rc;
}

Rc ChipState::pokeHardware( TableState & table, const RowId & id, std::string_view fieldName,
                            std::uint64_t value, std::uint32_t element ) {
    if ( !table.table.isPhysical() )
        return fail( { .rc = Rc::wrongCommitKind, .table = &table.table } );
    if ( const Rc rc = checkRowId( table, id ); rc != Rc::ok )
        return rc;
    const std::uint64_t rowNumber = table.rowNumber( addressOf( id ) );
    std::uint32_t number = 0;
    if ( const Rc rc = findField( table, fieldName, number ); rc != Rc::ok )
        return rc;
    if ( number >= firstAddressField ) {
        return fail(
            { .rc = Rc::unknownField, .table = &table.table, .name = copyName( fieldName ) } );
    }
    if ( const Rc rc = checkElements( table, number, element, 1 ); rc != Rc::ok )
        return rc;
    if ( const Rc rc = checkValue( table, number, value ); rc != Rc::ok )
        return rc;
    const std::uint32_t place = table.layout.fields()[number].firstElement + element;
    PagedRows & rows = table.physicalRows;
    std::uint64_t * cached = rows.findOrMake( rowNumber );
    Layout::mark( cached, place );
    const std::uint64_t * current = rows.hardware( rowNumber );
    std::vector<std::uint64_t> hardware( current != nullptr ? current : cached,
                                         ( current != nullptr ? current : cached ) +
                                             table.layout.words() );
    table.layout.put( hardware.data(), place, value );
    rows.setHardware( rowNumber, hardware.data() );
    return Rc::ok;
}

Rc ChipState::restoreRow( TableState & table, const RowImage & image ) {
    const Layout & layout = table.layout;
    const std::size_t count = layout.elementCount();
    for ( const std::size_t size : { image.values.size(), image.written.size(),
                                     image.hardware.empty() ? count : image.hardware.size() } ) {
        if ( size != count ) {
            return fail( { .rc = Rc::elementOutOfRange,
                           .table = &table.table,
                           .value = size,
                           .limit = count } );
        }
    }
    if ( !table.table.isPhysical() && !image.hardware.empty() )
        return fail( { .rc = Rc::wrongCommitKind, .table = &table.table } );
    std::vector<std::uint64_t> row( layout.words() );
    std::vector<std::uint64_t> hardware( layout.words() );
    for ( std::uint32_t number = 0; number < layout.fields().size(); ++number ) {
        const Layout::FieldPlace & place = layout.fields()[number];
        for ( std::uint32_t i = place.firstElement; i < place.firstElement + place.field->length;
              ++i ) {
            if ( const Rc rc = checkValue( table, number, image.values[i] ); rc != Rc::ok )
                return rc;
            layout.put( row.data(), i, image.values[i] );
            if ( image.written[i] )
                Layout::mark( row.data(), i );
            if ( !image.hardware.empty() ) {
                if ( const Rc rc = checkValue( table, number, image.hardware[i] ); rc != Rc::ok )
                    return rc;
                layout.put( hardware.data(), i, image.hardware[i] );
            }
        }
    }
    Layout::setPresent( row.data() );
    if ( image.touched || table.table.isPhysical() )
        Layout::setTouched( row.data() );

    if ( table.table.isPhysical() ) {
        if ( const Rc rc = checkRowId( table, image.id ); rc != Rc::ok )
            return rc;
        const std::uint64_t number = table.rowNumber( addressOf( image.id ) );
        std::copy( row.begin(), row.end(), table.physicalRows.findOrMake( number ) );
        if ( image.hardware.empty() ) {
            table.physicalRows.dropHardware( number );
        } else {
            table.physicalRows.setHardware( number, hardware.data() );
        }
        return Rc::ok;
    }
    if ( std::uint64_t * there = table.logicalRows.find( row.data() ) ) {
        std::copy( row.begin(), row.end(), there );
        return Rc::ok;
    }
    return addRow( table, row.data() );
}

std::vector<RowImage> Chip::rows( int unit, std::string_view table, Rows which ) const {
    const std::lock_guard lock( state_->mutex );
    const TableState * found = state_->findTable( unit, table );
    return found != nullptr ? found->images( which ) : std::vector<RowImage>();
}

std::size_t Chip::rowCount( int unit, std::string_view table ) const {
    const std::lock_guard lock( state_->mutex );
    const TableState * found = state_->findTable( unit, table );
    if ( found == nullptr )
        return 0;
    return found->table.isPhysical() ? found->physicalRows.size() : found->logicalRows.size();
}

std::optional<RowImage> Chip::row( int unit, std::string_view table, const RowId & id ) const {
    const std::lock_guard lock( state_->mutex );
    TableState * found = state_->findTable( unit, table );
    return found != nullptr ? found->image( id ) : std::nullopt;
}

std::optional<std::uint64_t> Chip::value( int unit, std::string_view table, const RowId & id,
                                          std::string_view field, std::uint32_t element,
                                          Copy copy ) const {
    const std::lock_guard lock( state_->mutex );
    TableState * found = state_->findTable( unit, table );
    if ( found == nullptr )
        return {};
    const auto number = found->fieldNumbers.find( field );
    if ( number == found->fieldNumbers.end() || number->second >= firstAddressField )
        return {};
    const Layout::FieldPlace & place = found->layout.fields()[number->second];
    const std::optional<RowImage> image = found->image( id );
    if ( !image || element >= place.field->length )
        return {};
    const bool hardware = copy == Copy::hardware && !image->hardware.empty();
    return ( hardware ? image->hardware : image->values )[place.firstElement + element];
}

Rc Chip::pokeHardware( int unit, std::string_view table, const RowId & id, std::string_view field,
                       std::uint64_t value, std::uint32_t element ) {
    const std::lock_guard lock( state_->mutex );
    TableState * found = nullptr;
    const Rc rc = state_->findTable( unit, table, found );
    return rc == Rc::ok ? state_->pokeHardware( *found, id, field, value, element ) : rc;
}

Rc Chip::clear( int unit ) {
    const std::lock_guard lock( state_->mutex );
    UnitState * found = state_->findUnit( unit );
    if ( found == nullptr )
        return state_->fail( { .rc = Rc::unknownUnit, .unit = unit } );
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

} // namespace Sim
