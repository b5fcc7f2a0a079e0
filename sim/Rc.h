#pragma once

// The return codes of the simulated SDK.

namespace Sim {

/// Chip::errmsg() has the text of each.
enum class Rc : int {
    ok = 0,
    nullArgument = -1,       ///< a null pointer where a name, a value or a place for one belongs
    unknownUnit = -2,        ///< no such unit
    unknownTable = -3,       ///< the unit has no such table
    unknownField = -4,       ///< the table has no such field
    unknownSymbol = -5,      ///< the field has no such symbol
    unknownHandle = -6,      ///< never handed out
    useAfterFree = -7,       ///< an operation on an entry that was freed
    doubleFree = -8,         ///< a free of an entry that was freed
    tooManyEntries = -9,     ///< 65,535 entries are allocated
    wrongCommitKind = -10,   ///< a logical commit of a physical table or the other way round
    unknownOpcode = -11,     ///< not an opcode of this commit
    unknownPriority = -12,   ///< not a priority
    unknownAttribute = -13,  ///< not an attribute, or not one of this kind of table
    valueTooWide = -14,      ///< the value has more bits than the field
    valueNotAllowed = -15,   ///< a number that is none of the field's symbols
    symbolOnNumber = -16,    ///< a symbol for a field that has none
    arrayField = -17,        ///< a scalar operation on an array field
    scalarField = -18,       ///< an array operation on a scalar field
    elementOutOfRange = -19, ///< array elements beyond the end of the field
    indexOutOfRange = -20,   ///< row index beyond the end of the table
    instanceOutOfRange = -21,
    portOutOfRange = -22,
    notPerPort = -23,      ///< a port for a table that has none
    addressMissing = -24,  ///< a physical row without an index, instance or port that is needed
    keyMissing = -25,      ///< a logical row without one of its key fields
    entryExists = -26,     ///< INSERT of a row that exists
    entryNotFound = -27,   ///< LOOKUP, UPDATE or DELETE of a row that does not
    tableFull = -28,       ///< INSERT into a table that is full
    fieldNotCarried = -29, ///< a read of a field that the entry does not hold
    outOfMemory = -30,     ///< the host has no memory left
};

constexpr int toInt( Rc rc ) { return static_cast<int>( rc ); }

} // namespace Sim
