#pragma once

#include "sim/Chip.h"

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

// What differs between the tables of two simulated chips.
//
// What counts is what software reads and what the hardware holds: the rows of logical tables, and
// both copies of physical rows. Who wrote a value does not count; a physical row that nobody wrote
// holds its initial values.

namespace Tool {

/// A row that is not the same on both chips.
struct RowDifference {
    enum class Kind {
        added,   ///< physical: written on the second chip alone
        removed, ///< physical: written on the first chip alone
        changed,
    };

    Kind kind = Kind::changed;
    int unit = 0;
    const Sim::Table * table = nullptr; ///< of the first chip, which must live on
    /// Logical tables: absent where there is no such row. Physical rows are always there.
    std::optional<Sim::RowImage> before = {};
    std::optional<Sim::RowImage> after = {};

    const Sim::RowId & id() const { return before ? before->id : after->id; }
};

/// What the hardware holds of a row.
const std::vector<std::uint64_t> & hardwareOf( const Sim::RowImage & row );

/// Why two chips cannot be compared, in one line: they do not have the same units and tables. Empty
/// if they can.
std::string incomparable( const Sim::Chip & before, const Sim::Chip & after );

/// All rows that differ, in the order of units, tables and rows. The chips must be comparable.
std::vector<RowDifference> differencesOf( const Sim::Chip & before, const Sim::Chip & after );

/// The place of a row in words: "index 5, port 2", "PORT_ID 1", "the only row".
std::string placeText( const Sim::Table & table, const Sim::RowId & id );

/// Lines that begin with "-", "+" or, for context, a blank; and a last line that counts the rows.
/// Values that nobody wrote stand in parentheses.
std::string differencesText( const std::vector<RowDifference> & differences );

/// { "different", "added", "removed", "changed", "rows": [ { "unit", "table", "place": { NAME: number
///   or symbol }, "change": "added", "removed" or "changed", "fields": [ { "field", "element",
///   "copy", "before", "after" } ] } ] }
/// "element" is there for array fields, "copy" ("cache" or "hardware") where the two copies of the row
/// differ, "before" and "after" where there is a row.
nlohmann::ordered_json differencesJson( const std::vector<RowDifference> & differences );

} // namespace Tool
