#include "tools/diagnose/Meaning.h"

#include "sim/Rc.h"

#include <array>

namespace Tool {

namespace {

using Sim::Rc;

struct Code {
    Rc rc;
    std::string_view meaning;
};

constexpr std::array codes{
    Code{ Rc::nullArgument, "The call was given no name, or no place for a value." },
    Code{ Rc::unknownUnit, "The SDK has no such unit: it was not attached, or the agent named "
                           "another one." },
    Code{ Rc::unknownTable, "The unit has no such table: the chip is of another kind, or its "
                            "profile leaves the table out." },
    Code{ Rc::unknownField, "The table has no such field on this chip." },
    Code{ Rc::unknownSymbol, "The field has no symbol of that name." },
    Code{ Rc::unknownHandle, "The handle was never handed out: the allocate failed, or another "
                             "variable was used." },
    Code{ Rc::useAfterFree, "The entry had been freed before." },
    Code{ Rc::doubleFree, "The entry had been freed before." },
    Code{ Rc::tooManyEntries, "All handles are in use: entries were allocated and never freed." },
    Code{ Rc::wrongCommitKind,
          "A logical commit of a register or memory, or a physical commit of a "
          "logical table." },
    Code{ Rc::unknownOpcode, "The number is no opcode of this kind of commit: the shim's constants "
                             "are not those of the SDK." },
    Code{ Rc::unknownPriority, "The number is no priority: the shim's constants are not those of "
                               "the SDK." },
    Code{ Rc::unknownAttribute, "The number is no attribute of this kind of table." },
    Code{ Rc::valueTooWide, "The value has more bits than the field: an argument of the recipe is "
                            "out of range for this chip." },
    Code{ Rc::valueNotAllowed, "The field takes only the values of its symbols." },
    Code{ Rc::symbolOnNumber, "The field holds numbers and has no symbols." },
    Code{ Rc::arrayField, "The field is an array, and is written as one." },
    Code{ Rc::scalarField, "The field is no array." },
    Code{ Rc::elementOutOfRange, "The array is shorter on this chip." },
    Code{ Rc::indexOutOfRange, "The table has fewer rows on this chip." },
    Code{ Rc::instanceOutOfRange, "The table has fewer instances on this chip." },
    Code{ Rc::portOutOfRange, "The table has no copy for that port." },
    Code{ Rc::notPerPort, "The table is not per port." },
    Code{ Rc::addressMissing,
          "The row needs an index, an instance or a port, and the entry carries "
          "none." },
    Code{ Rc::keyMissing, "A key field was not added before the commit." },
    Code{ Rc::entryExists,
          "The row is there already: the agent has been here before, or two agents "
          "program the same chip." },
    Code{ Rc::entryNotFound, "There is no such row: it was never inserted, or was deleted since." },
    Code{ Rc::tableFull, "The table has no room for another row." },
    Code{ Rc::fieldNotCarried, "The entry does not hold the field that was read." },
    Code{ Rc::outOfMemory, "The host had no memory left." },
};

struct Assertion {
    std::string_view expression;
    std::string_view meaning;
};

constexpr std::array assertions{
    Assertion{ "profile", "The chip has no active profile: the recipe ran before the profile was "
                          "set, or with the wrong chip." },
    Assertion{ "chipAttr", "The chip's profile has no chip attributes." },
    Assertion{ "ent_hdl != BCMLT_INVALID_HDL",
               "The SDK said that the allocate succeeded, and left the handle invalid." },
    Assertion{ "val == 1",
               "The register holds another value than the one that the set recipe of the "
               "same kind writes: that recipe did not run, or the hardware has changed." },
    Assertion{ "val == tagType",
               "The register holds another tag type than the one that was asked for." },
    Assertion{ "rc < 0", "A lookup without its key succeeded, which it must not: the SDK is not as "
                         "the recipe expects it." },
};

} // namespace

std::string_view meaningOfCode( int rc ) {
    for ( const Code & code : codes ) {
        if ( toInt( code.rc ) == rc )
            return code.meaning;
    }
    return {};
}

std::string_view meaningOfAssertion( std::string_view expression ) {
    for ( const Assertion & assertion : assertions ) {
        if ( assertion.expression == expression )
            return assertion.meaning;
    }
    return {};
}

} // namespace Tool
