#pragma once

#include "sim/Schema.h"

#include <string>
#include <string_view>

// Chip files: what a simulated chip looks like, told as changes to the reference chip or from
// nothing.
//
//     base = "reference"                           # or "nothing"
//     remove = [ "IPOST_LAG_RAND_NUM_CTRL_1r" ]    # tables that this chip lacks
//
//     [[resize]]
//     table = "EGR_TUNNEL_ECN_ENCAPm"
//     rows = 64                                    # also: instances, ports
//
//     [[tables]]
//     name = "MY_CONTROLm"
//     kind = "memory"                              # "logical", "register" or "memory"
//     rows = 16                                    # also: instances, ports, preloaded
//     fields = [
//         { name = "ENABLE", width = 1 },          # also: key, length, reset, power_on, symbols
//         { name = "MODE", width = 2, symbols = [ "OFF", "SLOW", "FAST" ] },
//         { name = "LEVEL", width = 4, symbols = { LOW = 1, HIGH = 8 } },
//     ]
//
// Tables are first removed, then resized, then added, so a table is replaced by removing and adding
// it.

namespace Tool {

/// The schema that `contents` describe. Refused (InputError) with `file` and the line.
Sim::Schema parseChipFile( std::string_view contents, const std::string & file );

/// The schema of a chip by its source: "reference", or a chip file to be read.
Sim::Schema loadChip( const std::string & source );

} // namespace Tool
