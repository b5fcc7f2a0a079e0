#pragma once

#include "interpose/Event.h"
#include "sim/Chip.h"
#include "tools/model/Model.h"

#include <compare>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

// What the tables of a chip hold, for the sweep to compare.

namespace Tool {

struct TableId {
    int unit = 0;
    std::string table;

    // NOLINTNEXTLINE( modernize-use-nullptr ): of the code that the compiler makes
    auto operator<=>( const TableId & ) const = default;
};

/// A row: where it is, and its values, an item for each element of each field.
struct TableRow {
    Sim::RowId id;
    std::vector<std::uint64_t> values;

    bool operator==( const TableRow & ) const = default;
};

using TableRows = std::vector<TableRow>;

/// The rows of the tables that have some.
using SweepTables = std::map<TableId, TableRows>;

/// The table of an operation.
TableId tableOf( const Interpose::Event & operation );

TableRows rowsOf( const Sim::Chip & chip, const TableId & id );
SweepTables tablesOf( const Sim::Chip & chip );

/// The rows of one of the tables; none if it has none.
const TableRows & rowsIn( const SweepTables & tables, const TableId & id );

/// The table of the model's chip, null if there is none.
const Sim::Table * findTable( const Model & model, const TableId & id );

/// "unit 0 MAPm"
std::string toText( const TableId & id );

/// "[index=5 instance=0 port=0] CLASS=1 TAG=2", "[PORT_ID=0] SPEED=1".
std::string toText( const Sim::Table & table, const TableRow & row );

/// Changes tables to what is left if this add did not reach the chip: the field keeps its value in
/// rows that were there before, and has its reset value in new ones.
void dropField( SweepTables & tables, const SweepTables & before, const Model & model,
                const Interpose::Event & add );

} // namespace Tool
