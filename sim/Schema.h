#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// What a simulated chip looks like: its tables, their fields, the symbols of the fields.
//
//     Sim::Schema schema = Sim::referenceSchema();
//     std::string problem = schema.resize( "EGR_TUNNEL_ECN_ENCAPm", { .rows = 64 } );
//     if ( problem.empty() )
//         chip.addUnit( 0, schema );
//
// A schema is a plain value: copy it, change it, check it, hand it to a chip. Nothing in here is
// safe against a change by another thread.

namespace Sim {

/// A name for one value of a field.
struct Symbol {
    std::string name;
    std::uint64_t value = 0;

    bool operator==( const Symbol & ) const = default;
};

enum class FieldRole {
    data,
    key, ///< part of what addresses a row of a logical table
};

/// One field of a table.
struct Field {
    std::string name;
    /// Bits of one element, 1 to 64.
    std::uint32_t width = 1;
    FieldRole role = FieldRole::data;
    /// Elements. 1 is a scalar field; 2 and more is an array field, which is written with
    /// bcmlt_entry_field_array_add and cannot be a key.
    std::uint32_t length = 1;
    /// If there are any, the field holds only their values, given by name or by number.
    std::vector<Symbol> symbols = {};
    /// What a write of the whole row (a SET, an INSERT) puts into the field when the entry does not
    /// carry it.
    std::uint64_t reset = 0;
    /// What the field holds before anybody wrote it. Without a value here it is `unwrittenPattern`
    /// cut to the width, or `reset` if the field has symbols.
    std::optional<std::uint64_t> powerOn = {};

    /// The largest value that fits one element.
    std::uint64_t maximum() const {
        return width >= 64 ? ~std::uint64_t( 0 ) : ( std::uint64_t( 1 ) << width ) - 1;
    }
    /// What one element holds before anybody wrote it.
    std::uint64_t initial() const;

    const Symbol * findSymbol( std::string_view symbol ) const;
    const Symbol * findSymbol( std::uint64_t value ) const;
    std::vector<std::string_view> symbolNames() const;

    bool operator==( const Field & ) const = default;
};

/// What fields hold that nobody wrote: easily told from any value that a program writes, and with
/// the lowest bit set, so that it differs from a reset value of 0 at every width.
inline constexpr std::uint64_t unwrittenPattern = 0xA5A5'A5A5'A5A5'A5A5;

enum class TableKind {
    logical,          ///< rows addressed by key fields, or one row if it has no key field
    physicalRegister, ///< addressed by index, instance and port; name ends in "r"
    physicalMemory,   ///< addressed by index, instance and port; name ends in "m"
};

/// "logical table", "register" or "memory".
const char * kindName( TableKind kind );

/// How many rows a table has.
struct TableSize {
    /// Logical table: how many rows it takes at most. Physical table: rows of each instance and
    /// port; an entry may leave the index out exactly where this is 1.
    std::uint32_t rows = 1;
    /// Physical table: instances; an entry may leave the instance out exactly where this is 1.
    std::uint32_t instances = 1;
    /// Physical table: ports 0 to ports - 1 have a copy each, and an entry must name its port.
    /// 0: the table is not per port, and an entry must not name one.
    std::uint32_t ports = 0;

    bool operator==( const TableSize & ) const = default;
};

/// One table.
struct Table {
    std::string name;
    TableKind kind = TableKind::logical;
    TableSize size = {};
    /// In the order in which they are listed and dumped.
    std::vector<Field> fields = {};
    /// Logical table: rows exist from the start and are UPDATEd without an INSERT. A table without
    /// a key then has its one row, a table whose only key is a field with symbols one row for each
    /// symbol; no other table can be preloaded. Their data fields hold Field::initial().
    bool preloaded = false;

    bool isPhysical() const { return kind != TableKind::logical; }
    bool isKeyless() const;
    const Field * find( std::string_view field ) const;
    std::vector<std::string_view> fieldNames() const;
    /// The elements of all fields together.
    std::uint32_t elementCount() const;

    bool operator==( const Table & ) const = default;
};

/// The fields that address a row of a physical table. No table has fields of these names.
inline constexpr std::string_view indexField = "BCMLT_PT_INDEX";
inline constexpr std::string_view instanceField = "BCMLT_PT_INSTANCE";
inline constexpr std::string_view portField = "BCMLT_PT_PORT";

/// Limits that check() holds a table to.
inline constexpr std::uint32_t maxTableRows = 1u << 24; ///< rows x instances x ports; logical: rows
inline constexpr std::uint32_t maxTableElements = 4096; ///< elements of all fields together

/// One thing that is wrong with a table.
struct Problem {
    std::string field; ///< empty if it is about the table as a whole
    std::string text;  ///< one line that names the table, the field where it is one, and the remedy
};

/// What is wrong with a table; empty if a chip can be built of it.
std::vector<Problem> problemsOf( const Table & table );
/// The same as texts.
std::vector<std::string> check( const Table & table );

/// All tables of a chip. Table names are unique.
class Schema {
  public:
    /// In the order in which they were added.
    const std::vector<Table> & tables() const { return tables_; }
    std::vector<std::string_view> tableNames() const;

    /// Null if there is no such table. The pointer lives until the schema is changed. A table that
    /// is changed through it must keep its name.
    const Table * find( std::string_view table ) const;
    Table * find( std::string_view table );

    /// The three below return an empty text when done; otherwise one line that says what is wrong
    /// and what to do, and the schema is as before.
    ///
    /// Adds a table at the end. A table of that name must not exist; its contents are not looked at
    /// (see check).
    [[nodiscard]] std::string add( Table table );
    /// Removes a table.
    [[nodiscard]] std::string remove( std::string_view table );
    /// Gives a table another size, which must pass check().
    [[nodiscard]] std::string resize( std::string_view table, TableSize size );

    /// The problems of all tables, as check( const Table & ) words them.
    std::vector<std::string> check() const;

    bool operator==( const Schema & ) const = default;

  private:
    std::vector<Table> tables_;
};

/// The reference chip: every table, field and symbol that the library's recipes use, and around
/// them what such a chip also has. A fresh one lets every recipe succeed.
Schema referenceSchema();

} // namespace Sim
