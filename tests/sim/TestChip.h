#pragma once

#include "sim/Chip.h"

#include <cstdint>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

// A small chip with a table of every kind, and an entry that is easy to write tests with.

namespace SimTest {

/// What a field of `width` bits holds before anybody wrote it, typed out for the widths used below.
inline constexpr std::uint64_t unwritten4 = 0x5;
inline constexpr std::uint64_t unwritten8 = 0xA5;
inline constexpr std::uint64_t unwritten12 = 0x5A5;
inline constexpr std::uint64_t unwritten64 = 0xA5A5A5A5A5A5A5A5;

inline Sim::Schema smallSchema() {
    using namespace Sim;
    const Field mode{ .name = "MODE",
                      .width = 3,
                      .symbols = { { "OFF", 0 }, { "ON", 1 }, { "AUTO", 5 } },
                      .reset = 1 };
    const std::vector<Table> tables = {
        // Logical: two keys, room for three rows.
        { .name = "ROUTE",
          .size = { .rows = 3 },
          .fields = { { .name = "VRF", .width = 4, .role = FieldRole::key },
                      { .name = "HOP", .width = 16 },
                      { .name = "PREFIX", .width = 64, .role = FieldRole::key },
                      { .name = "COST", .width = 12, .reset = 100 },
                      mode,
                      { .name = "LABELS", .width = 20, .length = 4 } } },
        // Logical without a key, absent until it is inserted.
        { .name = "POLICY", .fields = { { .name = "LIMIT", .width = 16 } } },
        // Logical without a key, there from the start.
        { .name = "CONTROL",
          .fields = { { .name = "LEVEL", .width = 8 },
                      { .name = "STEP", .width = 8, .reset = 9, .powerOn = 7 },
                      mode },
          .preloaded = true },
        // Logical keyed by a symbol, there from the start.
        { .name = "EVENT",
          .size = { .rows = 4 },
          .fields = { { .name = "ID",
                        .width = 8,
                        .role = FieldRole::key,
                        .symbols = { { "MISS", 3 }, { "HIT", 1 } } },
                      { .name = "CPU", .width = 1, .powerOn = 0 } },
          .preloaded = true },
        { .name = "MAPm",
          .kind = TableKind::physicalMemory,
          .size = { .rows = 8 },
          .fields = { { .name = "CLASS", .width = 4 },
                      { .name = "TAG", .width = 12, .reset = 3 },
                      mode,
                      { .name = "COUNT", .width = 64, .powerOn = 11 },
                      { .name = "WORDS", .width = 40, .length = 3, .reset = 6 } } },
        { .name = "ONEr",
          .kind = TableKind::physicalRegister,
          .fields = { { .name = "VALUE", .width = 8 } } },
        { .name = "PIPEr",
          .kind = TableKind::physicalRegister,
          .size = { .instances = 2 },
          .fields = { { .name = "VALUE", .width = 8 } } },
        { .name = "PORTr",
          .kind = TableKind::physicalRegister,
          .size = { .ports = 3 },
          .fields = { { .name = "VALUE", .width = 8 }, { .name = "OTHER", .width = 8 } } },
        { .name = "GRIDm",
          .kind = TableKind::physicalMemory,
          .size = { .rows = 5, .instances = 2, .ports = 3 },
          .fields = { { .name = "VALUE", .width = 8 } } },
    };
    Schema schema;
    for ( const Table & table : tables ) {
        if ( const std::string problem = schema.add( table ); !problem.empty() )
            throw std::logic_error( problem );
    }
    return schema;
}

/// One entry; every call returns the Rc of the SDK. The entry is freed at the end of its scope
/// unless its allocate failed.
class Entry {
  public:
    Entry( Sim::Chip & chip, const char * table, int unit = 0 )
        : chip_( chip ), allocated_( rc( chip.bcmlt_entry_allocate( unit, table, &handle_ ) ) ) {}
    ~Entry() {
        if ( allocated_ == Sim::Rc::ok )
            chip_.bcmlt_entry_free( handle_ );
    }
    Entry( const Entry & ) = delete;
    Entry & operator=( const Entry & ) = delete;

    std::uint32_t handle() const { return handle_; }
    Sim::Rc allocated() const { return allocated_; }

    Sim::Rc add( const char * field, std::uint64_t value ) {
        return rc( chip_.bcmlt_entry_field_add( handle_, field, value ) );
    }
    Sim::Rc symbol( const char * field, const char * symbol ) {
        return rc( chip_.bcmlt_entry_field_symbol_add( handle_, field, symbol ) );
    }
    Sim::Rc array( const char * field, std::uint32_t start,
                   const std::vector<std::uint64_t> & values ) {
        return rc( chip_.bcmlt_entry_field_array_add(
            handle_, field, start, values.data(), static_cast<std::uint32_t>( values.size() ) ) );
    }
    Sim::Rc fromHardware() {
        return rc( chip_.bcmlt_entry_attrib_set( handle_, chip_.BCMLT_ENT_ATTR_GET_FROM_HW() ) );
    }
    /// The value, or nothing if reading it failed.
    std::optional<std::uint64_t> get( const char * field ) {
        std::uint64_t value = 0;
        if ( rc( chip_.bcmlt_entry_field_get( handle_, field, &value ) ) != Sim::Rc::ok )
            return {};
        return value;
    }

    Sim::Rc insert() { return commit( chip_.BCMLT_OPCODE_INSERT() ); }
    Sim::Rc update() { return commit( chip_.BCMLT_OPCODE_UPDATE() ); }
    Sim::Rc lookup() { return commit( chip_.BCMLT_OPCODE_LOOKUP() ); }
    Sim::Rc remove() { return commit( chip_.BCMLT_OPCODE_DELETE() ); }
    Sim::Rc ptGet() { return ptCommit( chip_.BCMLT_PT_OPCODE_GET() ); }
    Sim::Rc ptSet() { return ptCommit( chip_.BCMLT_PT_OPCODE_SET() ); }
    Sim::Rc ptModify() { return ptCommit( chip_.BCMLT_PT_OPCODE_MODIFY() ); }

    Sim::Rc commit( std::uint32_t opcode ) {
        return rc( chip_.bcmlt_entry_commit( handle_, opcode, chip_.BCMLT_PRIORITY_NORMAL() ) );
    }
    Sim::Rc ptCommit( std::uint32_t opcode ) {
        return rc( chip_.bcmlt_pt_entry_commit( handle_, opcode, chip_.BCMLT_PRIORITY_NORMAL() ) );
    }

  private:
    static Sim::Rc rc( int code ) { return static_cast<Sim::Rc>( code ); }

    Sim::Chip & chip_;
    std::uint32_t handle_ = 0;
    Sim::Rc allocated_;
};

} // namespace SimTest

namespace Sim {

// For the messages of failed tests.
inline void PrintTo( Rc rc, std::ostream * out ) {
    *out << toInt( rc ) << " (" << Chip().errmsg( toInt( rc ) ) << ")";
}

} // namespace Sim
