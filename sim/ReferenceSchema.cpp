#include "sim/Schema.h"

#include <cassert>
#include <utility>

// The reference chip, subsystem by subsystem. Widths and sizes are those of a large chip of its
// time; every field that a recipe fills takes every value that the recipe can give it, except where
// the chip is meant to refuse one (an ECN has two bits).

namespace Sim {

namespace {

Field data( std::string name, std::uint32_t width ) {
    return { .name = std::move( name ), .width = width };
}

Field data( std::string name, std::uint32_t width, std::uint64_t powerOn ) {
    return { .name = std::move( name ), .width = width, .powerOn = powerOn };
}

Field array( std::string name, std::uint32_t width, std::uint32_t length ) {
    return { .name = std::move( name ), .width = width, .length = length };
}

Field key( std::string name, std::uint32_t width ) {
    return { .name = std::move( name ), .width = width, .role = FieldRole::key };
}

// Symbols are numbered from 0 in the order given.
Field symbolic( std::string name, std::uint32_t width, FieldRole role,
                const std::vector<std::string> & symbols ) {
    Field field{ .name = std::move( name ), .width = width, .role = role };
    for ( const std::string & symbol : symbols )
        field.symbols.push_back( { symbol, field.symbols.size() } );
    return field;
}

class Builder {
  public:
    void logical( std::string name, std::uint32_t rows, std::vector<Field> fields ) {
        add( { .name = std::move( name ),
               .size = { .rows = rows },
               .fields = std::move( fields ) } );
    }

    // A table whose rows exist from the start.
    void preloaded( std::string name, std::uint32_t rows, std::vector<Field> fields ) {
        add( { .name = std::move( name ),
               .size = { .rows = rows },
               .fields = std::move( fields ),
               .preloaded = true } );
    }

    void registers( std::string name, TableSize size, std::vector<Field> fields ) {
        add( { .name = std::move( name ),
               .kind = TableKind::physicalRegister,
               .size = size,
               .fields = std::move( fields ) } );
    }

    void memory( std::string name, TableSize size, std::vector<Field> fields ) {
        add( { .name = std::move( name ),
               .kind = TableKind::physicalMemory,
               .size = size,
               .fields = std::move( fields ) } );
    }

    const Schema & schema() const { return schema_; }

  private:
    void add( Table table ) {
        [[maybe_unused]] const std::string problem = schema_.add( std::move( table ) );
        assert( problem.empty() );
    }

    Schema schema_;
};

void addPorts( Builder & chip ) {
    chip.logical( "PC_PORT_PHYS_MAP", 1024,
                  { key( "PORT_ID", 16 ), data( "PC_PHYS_PORT_ID", 16 ) } );
    chip.logical( "PC_PORT", 1024,
                  { key( "PORT_ID", 16 ), data( "ENABLE", 1 ), data( "NUM_LANES", 4 ),
                    data( "SPEED", 20 ), data( "AUTONEG", 1 ), data( "MAX_FRAME_SIZE", 14 ),
                    symbolic( "LOOPBACK_MODE", 2, FieldRole::data,
                              { "PC_LPBK_NONE", "PC_LPBK_MAC", "PC_LPBK_PHY" } ),
                    symbolic( "FEC_MODE", 2, FieldRole::data,
                              { "PC_FEC_NONE", "PC_FEC_BASE_R", "PC_FEC_RS" } ) } );
}

void addSystemPorts( Builder & chip ) {
    // A system source is as wide as its numbering; the range table behind it has 16-bit indexes.
    chip.logical(
        "ING_SYSTEM_PORT_TABLE", 65536,
        { key( "SYSTEM_SOURCE", 32 ), data( "L2_IIF", 16 ), data( "RANGE_TABLE_INDEX", 16 ) } );
    chip.logical( "L2_EIF_SYSTEM_DESTINATION", 65536,
                  { key( "L2_EIF_ID", 16 ), data( "IS_TRUNK", 1 ), data( "TRUNK_ID", 15 ),
                    data( "SYSTEM_PORT", 32 ) } );
}

void addTunnels( Builder & chip ) {
    chip.preloaded( "TNL_L2_VXLAN_CONTROL", 1,
                    { data( "DEFAULT_NETWORK_SVP", 16 ),
                      symbolic( "SRC_L4_PORT_SELECT", 2, FieldRole::data,
                                { "FIXED", "HASH_ENTROPY", "INNER_L4_SRC_PORT" } ),
                      data( "SRC_L4_PORT", 16 ), data( "DST_L4_PORT", 16, 4789 ),
                      data( "VXLAN_FLAGS", 8, 0x08 ) } );
    chip.logical( "R_L2_TUNNEL_DEFAULT_NETWORK_SVP", 1,
                  { data( "SVP", 16 ), data( "SVP_STRENGTH", 3 ) } );
    chip.registers( "EGR_VLAN_CONTROL_1r", { .ports = 1024 },
                    { data( "VXLAN_DECAP_ADAPT_LOOKUP_ENABLE", 1, 0 ), data( "VT_ENABLE", 1 ),
                      data( "REMARK_OUTER_DOT1P", 1 ), data( "OUTER_TPID_INDEX", 2 ),
                      data( "VT_KEY_TYPE", 4 ), data( "VLAN_PORT_GROUP_ID", 8 ) } );
    chip.memory( "EGR_TUNNEL_ECN_ENCAPm", { .rows = 256 },
                 { data( "OUTER_ECN", 2 ), data( "INT_CN_MAP", 2 ), data( "ECN_PROFILE", 8 ) } );
    chip.memory( "ING_TUNNEL_ECN_DECAPm", { .rows = 256 },
                 { data( "INNER_ECN", 2 ), data( "CHANGE_INNER_ECN", 1 ), data( "DROP", 1 ),
                   data( "INT_CN", 2 ), data( "ECN_PROFILE", 8 ) } );
}

void addTagParsers( Builder & chip ) {
    // The parsers differ in their fields; a parser that was not set up has no valid tag.
    const Field tagSize = data( "TAG_SIZE", 2 );
    const Field valid = data( "VALID", 1, 0 );
    const Field ethertype = data( "ETHERTYPE", 16 );
    chip.registers( "OPAQUE_TAG_CONFIGr", {},
                    { tagSize, data( "OPAQUE_TAG_TYPE", 8 ), valid, ethertype } );
    chip.registers( "EGR_EPARS_OPAQUE_TAG_CONFIGr", {}, { tagSize, valid, ethertype } );
    chip.registers( "EGR_EFPPARS_OPAQUE_TAG_CONFIGr", {}, { tagSize, valid, ethertype } );
    chip.registers( "INNER_L2_OPAQUE_TAG_CONFIGr", {}, { valid, ethertype } );
    chip.registers( "EGR_EPARS_INNER_L2_OPAQUE_TAG_CONFIGr", {}, { valid, ethertype } );
    chip.registers( "EGR_EPMOD_L2_OPAQUE_TAG_CONFIGr", {}, { ethertype } );
}

void addStrengthProfiles( Builder & chip ) {
    const auto strengths = []( std::initializer_list<const char *> names ) {
        std::vector<Field> fields;
        for ( const char * name : names )
            fields.push_back( data( name, 3 ) );
        return fields;
    };
    const auto profile = [&]( const char * keyName, std::initializer_list<const char *> names ) {
        std::vector<Field> fields = strengths( names );
        fields.insert( fields.begin(), key( keyName, 5 ) );
        return fields;
    };

    chip.logical( "L3_IPV6_UNICAST_DEFIP_128_STRENGTH_PROFILE", 1,
                  strengths( { "NHOP_2_OR_ECMP_GROUP_INDEX_1_STRENGTH",
                               "ECMP_AND_PROT_SWT_SFC_PROFILE_INDEX_STRENGTH",
                               "L3_DST_MISC_CTRL_1_STRENGTH", "L3_DST_MISC_CTRL_0_STRENGTH",
                               "L3_DST_CLASS_ID_STRENGTH", "L3_DST_DESTINATION_TYPE_STRENGTH",
                               "L3_DST_DESTINATION_STRENGTH", "L3_DST_VRF_STRENGTH" } ) );
    chip.logical( "EGR_L3_OIF_1_STR_PROFILE", 32,
                  profile( "EGR_L3_OIF_1_STR_PROFILE_INDEX",
                           { "TUNNEL_IDX_STR", "OBJ_TABLE_SEL_1", "CTRL_ID_STR", "MTU_STR" } ) );
    chip.logical( "ING_L3_NEXT_HOP_1_STRENGTH_PROFILE", 32,
                  profile( "ING_L3_NEXT_HOP_1_STRENGTH_PROFILE_INDEX",
                           { "L2MC_L3MC_L2_OIF_SYS_DST_VALID_STRENGTH", "L3_OIF_1_STRENGTH" } ) );
    chip.logical( "EGR_L3_TNL_STR_PROFILE", 32,
                  profile( "EGR_L3_TNL_STR_PROFILE_INDEX",
                           { "IP_DIP_STR", "IP_SIP_STR", "SEQ_NUM_STR", "TTL_STR" } ) );
    chip.logical( "ING_L3_NEXT_HOP_2_STRENGTH_PROFILE", 32,
                  profile( "ING_L3_NEXT_HOP_2_STRENGTH_PROFILE_INDEX",
                           { "L2MC_L3MC_L2_OIF_SYS_DST_VALID_STRENGTH", "DESTINATION_STRENGTH",
                             "L3_OIF_2_STRENGTH" } ) );
    for ( const char * table :
          { "L3_IPV6_MULTICAST_1_STRENGTH_PROFILE", "L3_IPV6_MULTICAST_2_STRENGTH_PROFILE" } ) {
        chip.logical(
            table, 1,
            strengths( { "RPA_ID_STRENGTH", "EXPECTED_L3_IIF_STRENGTH", "MTU_PROFILE_PTR_STRENGTH",
                         "OPAQUE_OBJECT_STRENGTH", "L3_DST_MISC_CTRL_1_STRENGTH",
                         "L3_DST_MISC_CTRL_0_STRENGTH", "L3_DST_CLASS_ID_STRENGTH",
                         "L3_DST_DESTINATION_TYPE_STRENGTH", "L3_DST_DESTINATION_STRENGTH" } ) );
    }
}

void addEvents( Builder & chip ) {
    chip.logical( "LEARN_CACHE_DATA_CONTROL", 8,
                  { symbolic( "LEARN_CACHE_DATA_INFO_ID", 4, FieldRole::key,
                              { "LEARN_L2_VIEW", "LEARN_L2_DST_VIEW", "LEARN_VXLAN_VIEW",
                                "LEARN_L2GRE_VIEW", "LEARN_MPLS_VIEW" } ),
                    data( "LEARN_CACHE", 1 ), data( "KEY_MASK", 16 ) } );
    chip.logical( "LEARN_CACHE_DROP_CONTROL", 16,
                  { symbolic( "EVENT_ID", 6, FieldRole::key,
                              { "L2_DST_DISCARD", "L2_SRC_DISCARD", "L2_DST_LOOKUP_MISS",
                                "L3_DST_DISCARD", "L3_SRC_DISCARD", "VLAN_FILTER", "STG_BLOCK",
                                "PROTOCOL_PKT", "PARITY_ERROR" } ),
                    data( "LEARN_CACHE", 1 ), data( "PRIORITY", 4 ) } );

    const std::vector<Field> actions = { data( "CPU", 1 ), data( "LOOPBACK", 1 ),
                                         data( "MIRROR", 1 ), data( "SAMPLE_RATE", 16 ) };
    std::vector<Field> trace = actions;
    trace.insert( trace.begin(),
                  symbolic( "MON_ING_TRACE_EVENT_ID", 6, FieldRole::key,
                            { "L3_DST_LOOKUP_MISS", "L3_HDR_ERROR",        "L3_TTL_ERROR",
                              "L3_SRC_LOOKUP_MISS", "L3_URPF_FAIL",        "L3_DST_LOOKUP_HIT",
                              "L3_SRC_MOVE",        "L3_MTU_CHECK_FAILED", "L2_DST_LOOKUP_MISS",
                              "L2_DST_LOOKUP_HIT",  "L2_SRC_LOOKUP_MISS",  "L2_SRC_STATIC_MOVE",
                              "L2_SRC_MOVE",        "L2MC_LOOKUP_MISS",    "L3MC_LOOKUP_MISS",
                              "IP_OPTIONS_PKT",     "IP_MARTIAN_ADDR",     "ICMP_REDIRECT",
                              "UNKNOWN_VLAN",       "VLAN_XLATE_MISS",     "TUNNEL_ERROR",
                              "MPLS_LABEL_MISS",    "MPLS_TTL_ERROR",      "PROTOCOL_PKT",
                              "BPDU_PKT",           "SAMPLED_PKT",         "PARITY_ERROR" } ) );
    chip.logical( "MON_ING_TRACE_EVENT", 64, std::move( trace ) );
    std::vector<Field> drop = actions;
    drop.insert( drop.begin(),
                 symbolic( "MON_ING_DROP_EVENT_ID", 6, FieldRole::key,
                           { "L3_MTU_CHECK_FAILED", "L3_HDR_ERROR", "L3_TTL_ERROR",
                             "L3_DST_DISCARD", "L3_SRC_DISCARD", "L2_DST_DISCARD", "L2_SRC_DISCARD",
                             "VLAN_FILTER", "UNKNOWN_VLAN", "STG_BLOCK", "ING_FP_DROP",
                             "TUNNEL_ERROR", "STORM_CONTROL_DROP", "PARITY_ERROR" } ) );
    chip.logical( "MON_ING_DROP_EVENT", 64, std::move( drop ) );
}

void addControls( Builder & chip ) {
    for ( const char * number : { "0", "1", "2" } ) {
        chip.registers( std::string( "IPOST_LAG_RAND_NUM_CTRL_" ) + number + "r", {},
                        { data( "SEED", 32 ), data( "ENABLE", 1 ), data( "POLYNOMIAL", 4 ) } );
    }
    for ( const char * number : { "0", "1", "2" } ) {
        chip.memory( std::string( "IPOST_LAG_RAND_NUM_SEED_" ) + number + "m", {},
                     { array( "SEED", 64, 2 ) } );
    }
    chip.registers( "MMU_QSCH_SPECIAL_CONFIGr", { .instances = 8 },
                    { data( "DISABLE_CMIC_COSMASK", 1 ), data( "ENABLE_THDO_INFO", 1 ),
                      data( "REFRESH_TIMER", 8 ) } );
    chip.memory( "ING_EN_EFILTER_BITMAPm", { .rows = 8 }, { array( "BITMAP", 64, 64 ) } );
    for ( const char * name : { "EFTA30_E2T_00_HASH_CONTROLm", "EFTA30_E2T_01_HASH_CONTROLm",
                                "IFTA30_E2T_00_HASH_CONTROLm", "IFTA40_E2T_00_HASH_CONTROLm",
                                "IFTA40_E2T_01_HASH_CONTROLm" } ) {
        chip.memory( name, {},
                     { data( "ROBUST_HASH_EN", 1 ), data( "HASH_TABLE_BANK_CONFIG", 8 ),
                       data( "KEY_TYPE", 4 ) } );
    }
    chip.registers( "FLEX_CTR_ING_COUNTER_ACTION_ENABLEr", {}, { data( "BITMAP", 32 ) } );
    chip.registers( "FLEX_CTR_EGR_COUNTER_ACTION_ENABLEr", {}, { data( "BITMAP", 16 ) } );
    chip.logical( "R_VLAN_XLATE_MISS_POLICY", 1,
                  { data( "OPAQUE_CTRL_ID", 4 ), data( "POLICY_STRENGTH", 3 ) } );
}

// Error control has a row for each memory of the chip.
void addErrorControl( Builder & chip ) {
    std::vector<std::string> memories;
    for ( const Table & table : chip.schema().tables() ) {
        if ( table.kind == TableKind::physicalMemory )
            memories.push_back( table.name );
    }
    chip.preloaded( "SER_PT_CONTROL", 64,
                    { symbolic( "PT_ID", 8, FieldRole::key, memories ),
                      data( "REPORT_SINGLE_BIT_ECC", 1, 0 ), data( "SCAN_MODE", 4 ),
                      data( "INTERVAL", 16 ) } );
}

} // namespace

Schema referenceSchema() {
    Builder chip;
    addPorts( chip );
    addSystemPorts( chip );
    addTunnels( chip );
    addTagParsers( chip );
    addStrengthProfiles( chip );
    addEvents( chip );
    addControls( chip );
    addErrorControl( chip );
    return chip.schema();
}

} // namespace Sim
