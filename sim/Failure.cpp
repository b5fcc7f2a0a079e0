#include "sim/Failure.h"

#include "sim/Constants.h"
#include "sim/TableState.h"
#include "text/NearestName.h"

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
    const std::string field = f.field != nullptr ? table + "." + f.field->name : table + "." + name;
    const std::string value = std::to_string( f.value );
    const auto range = [&]( const char * what, const char * whats ) {
        return table + ": " + what + " " + value + " is out of range; the table has " +
               std::to_string( f.limit ) + " " + whats + ", counted from 0";
    };

    switch ( f.rc ) {
    case Rc::ok:
        return {};
    case Rc::nullArgument:
        return std::string( f.what ) + " is a null pointer";
    case Rc::unknownUnit: {
        std::string text = "there is no unit " + std::to_string( f.unit ) + "; the chip has ";
        if ( units.empty() )
            return text + "none";
        text += "units";
        for ( const auto & [number, unit] : units )
            text += " " + std::to_string( number );
        return text;
    }
    case Rc::unknownTable:
        return "unit " + std::to_string( f.unit ) + " has no table " + name +
               Text::nearestHint( name, units.at( f.unit )->tableNames() );
    case Rc::unknownField:
        if ( std::find( addressNames.begin(), addressNames.end(), name ) != addressNames.end() ) {
            return table + " has no field " + name +
                   ( f.table->isPhysical() ? "; that is the address of a row"
                                           : "; only physical tables have" );
        }
        return table + " has no field " + name + Text::nearestHint( name, f.table->fieldNames() );
    case Rc::unknownSymbol:
        return field + " has no symbol " + name + Text::nearestHint( name, f.field->symbolNames() );
    case Rc::unknownHandle:
        return std::string( f.what ) + ": there never was an entry " + std::to_string( f.handle ) +
               ( f.handle == invalidHandle ? ", that is BCMLT_INVALID_HDL" : "" );
    case Rc::useAfterFree:
        return std::string( f.what ) + ": entry " + std::to_string( f.handle ) +
               " was freed before";
    case Rc::doubleFree:
        return "entry " + std::to_string( f.handle ) +
               " was freed before and cannot be freed again";
    case Rc::tooManyEntries:
        return std::to_string( f.limit ) + " entries are allocated; free some first";
    case Rc::wrongCommitKind:
        return table + " is a " + kindName( f.table->kind ) +
               ( *f.what ? std::string( "; commit it with " ) + f.what
                         : std::string( " and has no rows in the hardware" ) );
    case Rc::unknownOpcode:
        return value + " is not an opcode of " + f.what + constantHint( f.value );
    case Rc::unknownPriority:
        return value + " is not a commit priority" + constantHint( f.value );
    case Rc::unknownAttribute:
        return f.value == attrGetFromHw
                   ? table + " is a logical table; only entries of "
                             "physical tables are read from the hardware"
                   : value + " is not an entry attribute" + constantHint( f.value );
    case Rc::valueTooWide:
        return field + ": value " + value + " needs " + std::to_string( bitsOf( f.value ) ) +
               " bits, the field has " + std::to_string( f.field->width );
    case Rc::valueNotAllowed:
        return field + ": value " + value + " is none of the field's symbols";
    case Rc::symbolOnNumber:
        return field + " holds numbers and has no symbols";
    case Rc::arrayField:
        return field + " is an array field of " + std::to_string( f.field->length ) +
               " elements; use " + f.what;
    case Rc::scalarField:
        return field + " is not an array field; use bcmlt_entry_field_add";
    case Rc::elementOutOfRange:
        return f.field != nullptr
                   ? field + ": element " + value + " is out of range; the field has " +
                         std::to_string( f.limit ) + " elements, counted from 0"
                   : table + ": a row has " + std::to_string( f.limit ) + " values, not " + value;
    case Rc::indexOutOfRange:
        return range( "index", "rows" );
    case Rc::instanceOutOfRange:
        return range( "instance", "instances" );
    case Rc::portOutOfRange:
        return range( "port", "ports" );
    case Rc::notPerPort:
        return table + " is not per port; leave " + std::string( portField ) + " out";
    case Rc::addressMissing:
        return table + ": the entry lacks " + name;
    case Rc::keyMissing:
        return table + ": the entry lacks the key field " + f.field->name;
    case Rc::entryExists:
        return table + ": a row with this key exists already; UPDATE it";
    case Rc::entryNotFound:
        return table + ": there is no row with this key";
    case Rc::tableFull:
        return table + " is full; it takes " + std::to_string( f.limit ) + " rows";
    case Rc::fieldNotCarried:
        return field + ": the entry does not hold it; add it, or LOOKUP or GET the row first";
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
