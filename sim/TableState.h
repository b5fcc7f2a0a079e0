#pragma once

#include "sim/RowStore.h"
#include "sim/Rows.h"
#include "sim/Schema.h"

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

// One table of a simulated chip: its rows, and its names in a form that is quick to look up.
// Internal to the chip, which guards it with its lock.

namespace Sim {

/// The address of a physical row, in the order of its parts.
enum AddressPart : std::uint32_t { indexPart, instancePart, portPart, addressParts };
using Address = std::array<std::uint32_t, addressParts>;
inline constexpr std::array<std::string_view, addressParts> addressNames = {
    indexField, instanceField, portField };
/// Numbers of fields from here on are parts of the address.
inline constexpr std::uint32_t firstAddressField = 1u << 31;

struct SymbolIndex {
    std::unordered_map<std::string_view, std::uint64_t> byName;
    std::unordered_map<std::uint64_t, std::string_view> byValue;
};

struct TableState {
    /// `table` must outlive this. Makes the rows that a preloaded table has from the start.
    explicit TableState( const Table & table );
    TableState( const TableState & ) = delete;
    TableState & operator=( const TableState & ) = delete;

    /// Whether a physical row of this address exists; a table that is not per port has port 0 only.
    bool has( const Address & address ) const;
    /// The number of the physical row at an address that exists.
    std::uint64_t rowNumber( const Address & address ) const;

    /// What Chip::rows() and Chip::row() return.
    std::vector<RowImage> images( Rows which ) const;
    std::optional<RowImage> image( const RowId & id );

    const Table & table;
    const Layout layout;
    /// From the names of fields, the parts of the address included, to their numbers.
    std::unordered_map<std::string_view, std::uint32_t> fieldNumbers;
    std::vector<SymbolIndex> symbols; ///< by field number
    HashedRows logicalRows;
    PagedRows physicalRows;
    std::vector<std::uint64_t> scratch; ///< a row image under construction

  private:
    void preload();
    RowImage imageOf( const std::uint64_t * row ) const;
    RowImage physicalImage( std::uint64_t number ) const;
};

struct UnitState {
    explicit UnitState( Schema schema );
    UnitState( const UnitState & ) = delete;
    UnitState & operator=( const UnitState & ) = delete;

    const Schema schema;
    std::unordered_map<std::string_view, std::unique_ptr<TableState>> tables;
};

inline Address addressOf( const RowId & id ) { return { id.index, id.instance, id.port }; }

} // namespace Sim
