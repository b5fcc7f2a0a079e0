#include "sim/ChipState.h"

namespace Sim {

namespace {

thread_local Failure lastFailureOfThread;

std::atomic<std::uint64_t> chipCount = 0;

} // namespace

ChipState::ChipState() : chipId( ++chipCount ) {}

Rc ChipState::fail( Failure failure ) const {
    failure.chip = chipId;
    lastFailureOfThread = failure;
    return failure.rc;
}

const Failure * ChipState::lastFailure() const {
    return lastFailureOfThread.chip == chipId ? &lastFailureOfThread : nullptr;
}

UnitState * ChipState::findUnit( int unit ) const {
    const auto it = units.find( unit );
    return it == units.end() ? nullptr : it->second.get();
}

TableState * ChipState::findTable( int unit, std::string_view table ) const {
    const UnitState * state = findUnit( unit );
    if ( state == nullptr )
        return nullptr;
    const auto it = state->tables.find( table );
    return it == state->tables.end() ? nullptr : it->second.get();
}

Rc ChipState::findTable( int unit, std::string_view table, TableState *& found ) const {
    found = findTable( unit, table );
    if ( found != nullptr )
        return Rc::ok;
    return fail( { .rc = findUnit( unit ) != nullptr ? Rc::unknownTable : Rc::unknownUnit,
                   .unit = unit,
                   .name = copyName( table ) } );
}

Rc ChipState::findField( const TableState & table, std::string_view field,
                         std::uint32_t & number ) const {
    const auto it = table.fieldNumbers.find( field );
    if ( it == table.fieldNumbers.end() ||
         ( it->second >= firstAddressField && !table.table.isPhysical() ) ) {
        return fail( { .rc = Rc::unknownField, .table = &table.table, .name = copyName( field ) } );
    }
    number = it->second;
    return Rc::ok;
}

Rc ChipState::checkValue( const TableState & table, std::uint32_t number,
                          std::uint64_t value ) const {
    const Field & field = *table.layout.fields()[number].field;
    if ( value > field.maximum() ) {
        return fail(
            { .rc = Rc::valueTooWide, .table = &table.table, .field = &field, .value = value } );
    }
    if ( !field.symbols.empty() && !table.symbols[number].byValue.contains( value ) ) {
        return fail(
            { .rc = Rc::valueNotAllowed, .table = &table.table, .field = &field, .value = value } );
    }
    return Rc::ok;
}

Rc ChipState::checkScalar( const TableState & table, std::uint32_t number,
                           const char * operation ) const {
    const Field * const field = table.layout.fields()[number].field;
    if ( field->length == 1 )
        return Rc::ok;
    return fail(
        { .rc = Rc::arrayField, .what = operation, .table = &table.table, .field = field } );
}

Rc ChipState::checkElements( const TableState & table, std::uint32_t number, std::uint64_t first,
                             std::uint64_t count ) const {
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

Rc ChipState::checkAddress( const TableState & table, std::uint32_t part,
                            std::uint64_t value ) const {
    static constexpr std::array outOfRange = { Rc::indexOutOfRange, Rc::instanceOutOfRange,
                                               Rc::portOutOfRange };
    const TableSize & size = table.table.size;
    const std::uint32_t limit = std::array{ size.rows, size.instances, size.ports }[part];
    if ( value < limit )
        return Rc::ok;
    return fail( { .rc = part == portPart && limit == 0 ? Rc::notPerPort : outOfRange[part],
                   .table = &table.table,
                   .value = value,
                   .limit = limit } );
}

} // namespace Sim
