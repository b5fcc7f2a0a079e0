#pragma once

#include <cstdint>
#include <vector>

// Rows of tables as plain values.

namespace Sim {

/// Which row of a table.
struct RowId {
    /// Physical tables.
    std::uint32_t index = 0;
    std::uint32_t instance = 0;
    std::uint32_t port = 0;
    /// Logical tables: the values of the key fields, in the order of the schema.
    std::vector<std::uint64_t> key = {};

    bool operator==( const RowId & ) const = default;
};

/// The contents of one row as plain values. The vectors hold one item for each element of each
/// field, in the order of the schema (a scalar field is one element).
struct RowImage {
    RowId id;
    /// Logical tables: the row. Physical tables: the cached row.
    std::vector<std::uint64_t> values = {};
    /// Which elements somebody wrote: a commit that carried them, or pokeHardware(). The others
    /// hold their initial or their reset value.
    std::vector<bool> written = {};
    /// Somebody wrote the row. False only for rows that a preloaded table has from the start.
    bool touched = false;
    /// Physical tables: the row in the hardware if it differs from the cached one, else empty.
    std::vector<std::uint64_t> hardware = {};

    bool operator==( const RowImage & ) const = default;
};

/// Which of the two copies of a physical row.
enum class Copy {
    cache,
    hardware,
};

/// Which rows of a table.
enum class Rows {
    touched, ///< those that somebody wrote
    stored,  ///< these, and the rows that a preloaded table has from the start
};

} // namespace Sim
