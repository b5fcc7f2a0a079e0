#pragma once

#include "sim/Rc.h"
#include "sim/Schema.h"

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

// A failed operation of the simulated chip, and how it is put into words. Internal to the chip.

namespace Sim {

/// The beginning of a name, kept without an allocation.
using NameCopy = std::array<char, 128>;
NameCopy copyName( std::string_view name );

// Everything known about a failed operation. The text is built on request only: lookups of missing
// rows are common and must stay cheap.
struct Failure {
    std::uint64_t chip = 0;
    Rc rc = Rc::ok;
    const char * what = ""; // an operation, or what was null
    int unit = 0;
    std::uint32_t handle = 0;
    const Table * table = nullptr;
    const Field * field = nullptr;
    std::uint64_t value = 0;
    std::uint64_t limit = 0;
    NameCopy name = {}; // a name that the caller gave and nothing has
};

/// The failure in words. `units` are those of the chip, with the names of their tables at hand.
std::string describe( const Failure & failure, const std::map<int, const Schema *> & units );

/// The short text of a return code, as errmsg() gives it.
const char * textOf( int rc );

} // namespace Sim
