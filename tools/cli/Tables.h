#pragma once

#include "sim/Chip.h"

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>
#include <vector>

// The tables of simulated chips, for people and for programs.

namespace Tool {

struct TableSelection {
    /// Nothing: all units.
    std::optional<int> unit = {};
    /// Empty: all tables that have rows to show.
    std::vector<std::string> tables = {};
    Sim::Rows rows = Sim::Rows::touched;
};

/// Refuses a unit or a table that no chip has (InputError, with the nearest name).
void checkSelection( const Sim::Chip & chip, const TableSelection & selection );

/// Each table under a heading, its rows below each other; rows that are too wide for a line are
/// written as a field a line. Values that nobody wrote stand in parentheses, symbols are written by
/// name, and an array's equal neighbours together ("0 x64").
std::string tablesText( const Sim::Chip & chip, const TableSelection & selection );

/// { "units": [ { "unit", "tables": [ { "table", "kind", "rows": [ { index, instance, port,
///   "fields": { NAME: number, symbol or array }, "written": [ NAME ], "hardware": { NAME: value }
///   } ] } ] } ] }
/// "index", "instance" and "port" are there where the table has more than one; "written" names the
/// fields of which somebody wrote an element; "hardware" is there where the hardware differs from
/// the cache.
nlohmann::ordered_json tablesJson( const Sim::Chip & chip, const TableSelection & selection );

} // namespace Tool
