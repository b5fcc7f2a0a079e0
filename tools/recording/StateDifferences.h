#pragma once

#include "tools/recording/StateDiff.h"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

// The differences of two states, for people and for programs.

namespace Tool {

/// The place of a row: "index 5, port 2", "PORT_ID 1", "the only row".
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
