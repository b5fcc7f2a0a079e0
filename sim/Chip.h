#pragma once

#include "sim/Rc.h"
#include "sim/Rows.h"
#include "sim/Schema.h"

#include <Shim/Sdk.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The simulated chip: an SDK whose tables live in memory.
//
//     Sim::Chip chip;
//     chip.addUnit( 0, Sim::referenceSchema() );
//     Shim::sdk_ = &chip;
//     Cairn::setEgrTunnelEcnEncap( 0, 5, 2 );
//     chip.value( 0, "EGR_TUNNEL_ECN_ENCAPm", { .index = 5 }, "OUTER_ECN" ); // 2
//
// It is a fake, not a mock: it expects no particular calls, it keeps state, and it holds its
// callers to the rules below.
//
// Every operation
// - returns 0 or a negative Rc; a failed operation leaves the chip and the entry as they were;
// - may be called from any thread. One lock covers the chip, so each operation is atomic; two of
//   them in a row are not.
//
// Entries
// - An allocate makes an entry of one table and hands out its handle; the entry lives until it is
//   freed. Entries that are never freed are leaks; they can be counted. A handle is not reused
//   until its place has been used 65,536 times, so a stale one is told from a live one.
// - An entry carries the fields that were added to it and, after a LOOKUP or GET, those that were
//   read. Adding a field again replaces its value. Array fields are carried by the element.
// - A number must fit the field's width. A field with symbols takes only the values of its symbols,
//   by name or by number.
//
// Logical tables (bcmlt_entry_commit)
// - The entry must carry every key field of the table; a table without one has a single row.
// - INSERT makes a row of the fields carried; others take their reset value. The row must not exist
//   and there must be room.
// - UPDATE writes the fields carried into the row, which must exist; others keep theirs.
// - LOOKUP reads the row, which must exist, into the entry: the key fields stay as the caller added
//   them, every data field is replaced by what was read, and a field added later replaces that.
// - DELETE removes the row, which must exist.
//
// Physical tables (bcmlt_pt_entry_commit)
// - A row is addressed by BCMLT_PT_INDEX, BCMLT_PT_INSTANCE and BCMLT_PT_PORT, each checked against
//   the table when it is added. One may be left out exactly where the table has one row, one
//   instance, or is not per port. Rows always exist; what nobody wrote reads Field::initial().
// - Each row is kept twice: in the hardware and in the SDK's cache. They differ only after
//   pokeHardware(), which stands for a chip that changes a register by itself.
// - GET reads the cached row into the entry, or, with the attribute GET_FROM_HW on the entry, the
//   row of the hardware, which then also becomes the cached row. Every field counts as carried
//   afterwards: a SET of the same entry writes back what was read.
// - SET writes the whole row: fields carried, and the reset value in all others.
// - MODIFY reads the row as a GET of the same entry would (so without the attribute a change behind
//   the cache is lost), puts the fields carried into it and writes it.
// - SET and MODIFY write cache and hardware alike.

namespace Sim {

/// An entry that was allocated and not yet freed.
struct LiveEntry {
    std::uint32_t handle = 0;
    int unit = 0;
    std::string table;

    bool operator==( const LiveEntry & ) const = default;
};

struct ChipState;

/// A test may derive from it and answer a constant otherwise; what the operations do is fixed.
class Chip : public Shim::Sdk {
  public:
    Chip();
    virtual ~Chip();
    Chip( const Chip & ) = delete;
    Chip & operator=( const Chip & ) = delete;

    // --- Setting up

    /// Adds a unit. Throws std::invalid_argument, with the reason in its text, if `unit` is
    /// negative or exists, or if the schema does not pass check(); the chip is then as before.
    void addUnit( int unit, Schema schema );

    /// The units, in ascending order.
    std::vector<int> units() const;

    /// The schema of a unit, null if there is no such unit. It never changes and lives as long as
    /// the chip.
    const Schema * schema( int unit ) const;

    // --- What happened

    /// The calling thread's last failed operation in words, for example
    /// `EGR_TUNNEL_ECN_ENCAPm.OUTER_ECN: value 4 needs 3 bits, the field has 2`; empty if none of
    /// its operations on this chip failed. A thread that uses several chips keeps only the last
    /// failure of all, and lastError() of the others is empty. Successful operations change
    /// nothing.
    std::string lastError() const;

    /// How often each hook ran, on all threads.
    std::uint64_t preCallCount() const;
    std::uint64_t failureCount() const;

    /// Entries that are allocated, and how many there are. Once all recipes are done, these are
    /// leaks.
    std::vector<LiveEntry> liveEntries() const;
    std::size_t liveEntryCount() const;

    /// What bcmlt_entry_commit() and bcmlt_pt_entry_commit() would return now; nothing happens.
    [[nodiscard]] int judgeCommit( std::uint32_t handle, std::uint32_t opcode,
                                   std::uint32_t priority );
    [[nodiscard]] int judgePtCommit( std::uint32_t handle, std::uint32_t opcode,
                                     std::uint32_t priority );

    // --- Inspection, and changes behind the SDK's back
    //
    // In what follows a unit, table or row that does not exist gives "nothing" (nullopt, an empty
    // vector) or its Rc; none of it shows in lastError() unless it returns an Rc.

    /// The rows of a table: physical tables in the order of instance, port and index, logical
    /// tables in the order of their keys.
    std::vector<RowImage> rows( int unit, std::string_view table,
                                Rows which = Rows::touched ) const;

    /// How many rows a table holds: a logical table its rows, a physical table the rows written.
    std::size_t rowCount( int unit, std::string_view table ) const;

    /// One row. Physical rows exist throughout their table, written or not.
    std::optional<RowImage> row( int unit, std::string_view table, const RowId & id ) const;

    /// One element of a field. Logical tables have no second copy and ignore `copy`.
    std::optional<std::uint64_t> value( int unit, std::string_view table, const RowId & id,
                                        std::string_view field, std::uint32_t element = 0,
                                        Copy copy = Copy::cache ) const;

    /// Changes one element of a physical row in the hardware and leaves the cached row alone, as a
    /// chip does that changes a register by itself. Refused like a field of an entry would be, and
    /// for a logical table with wrongCommitKind.
    [[nodiscard]] Rc pokeHardware( int unit, std::string_view table, const RowId & id,
                                   std::string_view field, std::uint64_t value,
                                   std::uint32_t element = 0 );

    // --- Keeping a chip between two processes
    //
    // For each unit and each table of its schema, keep rows( unit, table, Rows::stored ). Later, on a chip
    // with the same units, clear( unit ) each of them, then restoreRow() for each row that was kept.

    /// Empties all tables of a unit: logical tables have no rows afterwards, preloaded ones too,
    /// and no physical row is written. Entries stay.
    [[nodiscard]] Rc clear( int unit );

    /// Puts a row back as rows() gave it, in place of what is there. Physical: `id` addresses it.
    /// Logical: the key fields in `values` do, and `id.key` is not looked at. Refused: a wrong
    /// number of values (elementOutOfRange), a value that does not fit its field, an address
    /// outside the table, a full table.
    [[nodiscard]] Rc restoreRow( int unit, std::string_view table, const RowImage & image );

    // --- The SDK

    const char * errmsg( int rc ) noexcept override;

    // No two constants share a number, so that a trace tells what each is.
    std::uint32_t BCMLT_ENT_ATTR_GET_FROM_HW() noexcept override;
    std::uint32_t BCMLT_OPCODE_DELETE() noexcept override;
    std::uint32_t BCMLT_OPCODE_INSERT() noexcept override;
    std::uint32_t BCMLT_OPCODE_LOOKUP() noexcept override;
    std::uint32_t BCMLT_OPCODE_UPDATE() noexcept override;
    std::uint32_t BCMLT_PRIORITY_NORMAL() noexcept override;
    std::uint32_t BCMLT_PT_OPCODE_GET() noexcept override;
    std::uint32_t BCMLT_PT_OPCODE_MODIFY() noexcept override;
    std::uint32_t BCMLT_PT_OPCODE_SET() noexcept override;

    int bcmlt_entry_allocate( int unit, const char * table, std::uint32_t * handle ) noexcept final;
    int bcmlt_entry_attrib_set( std::uint32_t handle, std::uint32_t attribute ) noexcept final;
    int bcmlt_entry_commit( std::uint32_t handle, std::uint32_t opcode,
                            std::uint32_t priority ) noexcept final;
    int bcmlt_entry_field_add( std::uint32_t handle, const char * field,
                               std::uint64_t value ) noexcept final;
    /// A `count` of 0 adds nothing and succeeds, whatever `values` is.
    int bcmlt_entry_field_array_add( std::uint32_t handle, const char * field,
                                     std::uint32_t startIndex, const std::uint64_t * values,
                                     std::uint32_t count ) noexcept final;
    int bcmlt_entry_field_get( std::uint32_t handle, const char * field,
                               std::uint64_t * value ) noexcept final;
    int bcmlt_entry_field_symbol_add( std::uint32_t handle, const char * field,
                                      const char * symbol ) noexcept final;
    int bcmlt_entry_free( std::uint32_t handle ) noexcept final;
    int bcmlt_pt_entry_commit( std::uint32_t handle, std::uint32_t opcode,
                               std::uint32_t priority ) noexcept final;

    std::uint32_t BCMLT_INVALID_HDL() noexcept override;

    const char * ENABLEs() noexcept override;
    const char * NUM_LANESs() noexcept override;
    const char * PC_PHYS_PORT_IDs() noexcept override;
    const char * PC_PORT_PHYS_MAPs() noexcept override;
    const char * PC_PORTs() noexcept override;
    const char * PORT_IDs() noexcept override;
    const char * SPEEDs() noexcept override;

    /// The hooks count, nothing else.
    void preCallHook() noexcept override;
    void failureHook() noexcept override;

  private:
    std::unique_ptr<ChipState> state_;
};

} // namespace Sim
