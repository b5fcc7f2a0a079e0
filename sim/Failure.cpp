#include "sim/Failure.h"

#include "sim/Constants.h"
#include "sim/TableState.h"
#include "text/NearestName.h"

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <vector>

namespace Sim {

namespace {

std::uint32_t bitsOf( std::uint64_t value ) {
    return static_cast<std::uint32_t>( std::bit_width( value ) );
}

// The name of an opcode, priority or attribute number, where it was passed in the wrong place.
std::string constantHint( std::uint64_t number ) {
    switch ( number ) {
    case opcodeDelete:
    case opcodeInsert:
    case opcodeLookup:
    case opcodeUpdate:
        return ", it is one of logical tables";
    case ptOpcodeGet:
    case ptOpcodeModify:
    case ptOpcodeSet:
        return ", it is one of physical tables";
    case priorityNormal:
        return ", it is the number of a priority";
    case attrGetFromHw:
        return ", it is the number of an attribute";
    default:
        return "";
    }
}

struct ErrorText {
    Rc rc;
    const char * text;
};

constexpr std::array errorTexts = {
    ErrorText{ Rc::ok, "no error" },
    ErrorText{ Rc::nullArgument, "null pointer" },
    ErrorText{ Rc::unknownUnit, "no such unit" },
    ErrorText{ Rc::unknownTable, "no such table" },
    ErrorText{ Rc::unknownField, "no such field in the table" },
    ErrorText{ Rc::unknownSymbol, "no such symbol of the field" },
    ErrorText{ Rc::unknownHandle, "no such entry" },
    ErrorText{ Rc::useAfterFree, "entry was freed before" },
    ErrorText{ Rc::doubleFree, "entry is freed twice" },
    ErrorText{ Rc::tooManyEntries, "too many entries allocated" },
    ErrorText{ Rc::wrongCommitKind, "commit does not suit the kind of table" },
    ErrorText{ Rc::unknownOpcode, "not an opcode of this commit" },
    ErrorText{ Rc::unknownPriority, "not a commit priority" },
    ErrorText{ Rc::unknownAttribute, "not an attribute of this entry" },
    ErrorText{ Rc::valueTooWide, "value is too wide for the field" },
    ErrorText{ Rc::valueNotAllowed, "value is none of the field's symbols" },
    ErrorText{ Rc::symbolOnNumber, "symbol for a field of numbers" },
    ErrorText{ Rc::arrayField, "scalar operation on an array field" },
    ErrorText{ Rc::scalarField, "array operation on a scalar field" },
    ErrorText{ Rc::elementOutOfRange, "element beyond the end of the array field" },
    ErrorText{ Rc::indexOutOfRange, "index beyond the end of the table" },
    ErrorText{ Rc::instanceOutOfRange, "no such instance of the table" },
    ErrorText{ Rc::portOutOfRange, "no such port of the table" },
    ErrorText{ Rc::notPerPort, "table is not per port" },
    ErrorText{ Rc::addressMissing, "entry lacks the index, instance or port of its row" },
    ErrorText{ Rc::keyMissing, "entry lacks a key field" },
    ErrorText{ Rc::entryExists, "row exists already" },
    ErrorText{ Rc::entryNotFound, "row does not exist" },
    ErrorText{ Rc::tableFull, "table is full" },
    ErrorText{ Rc::fieldNotCarried, "entry does not hold the field" },
    ErrorText{ Rc::outOfMemory, "out of memory" },
};

// errmsg() finds a text by its code.
constexpr bool textsInOrder() {
    for ( std::size_t i = 0; i < errorTexts.size(); ++i ) {
        if ( toInt( errorTexts[i].rc ) != -static_cast<int>( i ) )
            return false;
    }
    return true;
}
static_assert( textsInOrder() );

} // namespace

NameCopy copyName( std::string_view name ) {
    NameCopy copy = {};
    name.copy( copy.data(), copy.size() - 1 );
    return copy;
}

std::string describe( const Failure & f, const std::map<int, const Schema *> & units ) {
    const std::string name = f.name.data();
    const std::string table = f.table != nullptr ? f.table->name : "";
    const std::string field =
        fmt::format( "{}.{}", table, f.field != nullptr ? f.field->name : name );
    const auto range = [&]( const char * what, const char * whats ) {
        return fmt::format( "{}: {} {} is out of range; the table has {} {}, counted from 0", table,
                            what, f.value, f.limit, whats );
    };

    switch ( f.rc ) {
    case Rc::ok:
        return {};
    case Rc::nullArgument:
        return fmt::format( "{} is a null pointer", f.what );
    case Rc::unknownUnit: {
        std::vector<int> numbers;
        for ( const auto & [number, unit] : units )
            numbers.push_back( number );
        return fmt::format( "there is no unit {}; the chip has {}{}", f.unit,
                            units.empty() ? "none" : "units ", fmt::join( numbers, " " ) );
    }
    case Rc::unknownTable:
        return fmt::format( "unit {} has no table {}{}", f.unit, name,
                            Text::nearestHint( name, units.at( f.unit )->tableNames() ) );
    case Rc::unknownField:
        if ( std::find( addressNames.begin(), addressNames.end(), name ) != addressNames.end() )
            return fmt::format( "{} has no field {}{}", table, name,
                                f.table->isPhysical() ? "; that is the address of a row"
                                                      : "; only physical tables have" );
        return fmt::format( "{} has no field {}{}", table, name,
                            Text::nearestHint( name, f.table->fieldNames() ) );
    case Rc::unknownSymbol:
        return fmt::format( "{} has no symbol {}{}", field, name,
                            Text::nearestHint( name, f.field->symbolNames() ) );
    case Rc::unknownHandle:
        return fmt::format( "{}: there never was an entry {}{}", f.what, f.handle,
                            f.handle == invalidHandle ? ", that is BCMLT_INVALID_HDL" : "" );
    case Rc::useAfterFree:
        return fmt::format( "{}: entry {} was freed before", f.what, f.handle );
    case Rc::doubleFree:
        return fmt::format( "entry {} was freed before and cannot be freed again", f.handle );
    case Rc::tooManyEntries:
        return fmt::format( "{} entries are allocated; free some first", f.limit );
    case Rc::wrongCommitKind:
        return fmt::format( "{} is a {}{}{}", table, kindName( f.table->kind ),
                            *f.what ? "; commit it with " : " and has no rows in the hardware",
                            f.what );
    case Rc::unknownOpcode:
        return fmt::format( "{} is not an opcode of {}{}", f.value, f.what,
                            constantHint( f.value ) );
    case Rc::unknownPriority:
        return fmt::format( "{} is not a commit priority{}", f.value, constantHint( f.value ) );
    case Rc::unknownAttribute:
        if ( f.value == attrGetFromHw )
            return fmt::format( "{} is a logical table; only entries of physical tables are read "
                                "from the hardware",
                                table );
        return fmt::format( "{} is not an entry attribute{}", f.value, constantHint( f.value ) );
    case Rc::valueTooWide:
        return fmt::format( "{}: value {} needs {} bits, the field has {}", field, f.value,
                            bitsOf( f.value ), f.field->width );
    case Rc::valueNotAllowed:
        return fmt::format( "{}: value {} is none of the field's symbols", field, f.value );
    case Rc::symbolOnNumber:
        return fmt::format( "{} holds numbers and has no symbols", field );
    case Rc::arrayField:
        return fmt::format( "{} is an array field of {} elements; use {}", field, f.field->length,
                            f.what );
    case Rc::scalarField:
        return fmt::format( "{} is not an array field; use bcmlt_entry_field_add", field );
    case Rc::elementOutOfRange:
        if ( f.field == nullptr )
            return fmt::format( "{}: a row has {} values, not {}", table, f.limit, f.value );
        return fmt::format( "{}: element {} is out of range; the field has {} elements, counted "
                            "from 0",
                            field, f.value, f.limit );
    case Rc::indexOutOfRange:
        return range( "index", "rows" );
    case Rc::instanceOutOfRange:
        return range( "instance", "instances" );
    case Rc::portOutOfRange:
        return range( "port", "ports" );
    case Rc::notPerPort:
        return fmt::format( "{} is not per port; leave {} out", table, portField );
    case Rc::addressMissing:
        return fmt::format( "{}: the entry lacks {}", table, name );
    case Rc::keyMissing:
        return fmt::format( "{}: the entry lacks the key field {}", table, f.field->name );
    case Rc::entryExists:
        return fmt::format( "{}: a row with this key exists already; UPDATE it", table );
    case Rc::entryNotFound:
        return fmt::format( "{}: there is no row with this key", table );
    case Rc::tableFull:
        return fmt::format( "{} is full; it takes {} rows", table, f.limit );
    case Rc::fieldNotCarried:
        return fmt::format(
            "{}: the entry does not hold it; add it, or LOOKUP or GET the row first", field );
    case Rc::outOfMemory:
        return "the host has no memory left";
    }
    return {};
}

const char * textOf( int rc ) {
    if ( rc > 0 )
        return "no error";
    const std::size_t code = static_cast<std::size_t>( -static_cast<std::int64_t>( rc ) );
    return code < errorTexts.size() ? errorTexts[code].text : "unknown error code";
}

} // namespace Sim
