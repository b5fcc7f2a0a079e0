#pragma once

#include "sim/Chip.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
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

/// What addresses the row, where there is more than one: the index of a physical row, the key of a
/// logical one.
struct PlacePart {
    std::string_view name;
    const Sim::Field * field = nullptr; ///< of a logical table
    std::uint64_t value = 0;
};
std::vector<PlacePart> placeOf( const Sim::Table & table, const Sim::RowId & id );

/// A field that is not the same, or neighbours in an array that changed alike.
struct FieldDifference {
    struct Value {
        std::uint64_t value = 0;
        bool isWritten = false; ///< somebody wrote it

        bool operator==( const Value & ) const = default;
    };
    const Sim::Field * field = nullptr;
    std::uint32_t first = 0; ///< element
    std::uint32_t last = 0;
    std::optional<Sim::Copy> copy = {}; ///< nothing: the two copies of the row are the same
    std::optional<Value> before = {};   ///< nothing: the row was added
    std::optional<Value> after = {};
};

/// All fields of a row that was added or removed, but for its key; of one that changed, those that
/// did.
std::vector<FieldDifference> fieldsOf( const RowDifference & difference );

} // namespace Tool
