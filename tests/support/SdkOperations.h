#pragma once

#include <Shim/Sdk.h>

#include <cstdint>

// One call of each SDK operation, for benchmarks and for counting instructions.

namespace Support {

/// What the operations are made on.
inline Shim::Sdk * operationSdk = nullptr;

/// Texts as recipes have them: not across the end of a page, where strlen() takes a longer way.
alignas( 64 ) inline char table[32] = "EGR_TUNNEL_ECN_ENCAPm";
alignas( 64 ) inline char field[32] = "BCMLT_PT_INDEX";
alignas( 64 ) inline char symbol[32] = "L3_DST_LOOKUP_MISS";

struct Allocate {
    Shim::Sdk & to = *operationSdk;
    std::uint32_t * handle = &place;
    static inline std::uint32_t place = 0;
    void run( std::uint32_t, std::uint32_t ) const { to.bcmlt_entry_allocate( 0, table, handle ); }
};
struct AttribSet {
    Shim::Sdk & to = *operationSdk;
    void run( std::uint32_t i, std::uint32_t ) const { to.bcmlt_entry_attrib_set( i, 1 ); }
};
struct Commit {
    Shim::Sdk & to = *operationSdk;
    void run( std::uint32_t i, std::uint32_t ) const { to.bcmlt_entry_commit( i, 5, 6 ); }
};
struct FieldAdd {
    Shim::Sdk & to = *operationSdk;
    void run( std::uint32_t i, std::uint32_t j ) const { to.bcmlt_entry_field_add( i, field, j ); }
};
struct FieldArrayAdd {
    Shim::Sdk & to = *operationSdk;
    static constexpr std::uint64_t values[2] = { 1, 2 };
    void run( std::uint32_t i, std::uint32_t ) const {
        to.bcmlt_entry_field_array_add( i, field, 0, values, 2 );
    }
};
struct FieldGet {
    Shim::Sdk & to = *operationSdk;
    static inline std::uint64_t value = 0;
    void run( std::uint32_t i, std::uint32_t ) const {
        to.bcmlt_entry_field_get( i, field, &value );
    }
};
struct FieldSymbolAdd {
    Shim::Sdk & to = *operationSdk;
    void run( std::uint32_t i, std::uint32_t ) const {
        to.bcmlt_entry_field_symbol_add( i, field, symbol );
    }
};
struct Free {
    Shim::Sdk & to = *operationSdk;
    void run( std::uint32_t i, std::uint32_t ) const { to.bcmlt_entry_free( i ); }
};
struct PtCommit {
    Shim::Sdk & to = *operationSdk;
    void run( std::uint32_t i, std::uint32_t ) const { to.bcmlt_pt_entry_commit( i, 8, 6 ); }
};

} // namespace Support
