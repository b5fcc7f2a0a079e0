#include "tests/sim/TestChip.h"

#include <gtest/gtest.h>

using namespace Sim;
using SimTest::Entry;

namespace {

TEST( ReferenceSchemaTest, IsValid ) {
    EXPECT_EQ( referenceSchema().check(), std::vector<std::string>{} );
}

// --- What the recipes name, typed by hand from their descriptions

struct TableNames {
    const char * table;
    TableKind kind;
    std::vector<const char *> keys;
    std::vector<const char *> data;
};

const std::vector<TableNames> recipeTables = {
    { "PC_PORT_PHYS_MAP", TableKind::logical, { "PORT_ID" }, { "PC_PHYS_PORT_ID" } },
    { "PC_PORT", TableKind::logical, { "PORT_ID" }, { "ENABLE", "NUM_LANES", "SPEED" } },
    { "ING_SYSTEM_PORT_TABLE",
      TableKind::logical,
      { "SYSTEM_SOURCE" },
      { "L2_IIF", "RANGE_TABLE_INDEX" } },
    { "L2_EIF_SYSTEM_DESTINATION",
      TableKind::logical,
      { "L2_EIF_ID" },
      { "IS_TRUNK", "TRUNK_ID", "SYSTEM_PORT" } },
    { "TNL_L2_VXLAN_CONTROL",
      TableKind::logical,
      {},
      { "DEFAULT_NETWORK_SVP", "SRC_L4_PORT_SELECT" } },
    { "R_L2_TUNNEL_DEFAULT_NETWORK_SVP", TableKind::logical, {}, { "SVP" } },
    { "EGR_VLAN_CONTROL_1r",
      TableKind::physicalRegister,
      {},
      { "VXLAN_DECAP_ADAPT_LOOKUP_ENABLE" } },
    { "EGR_TUNNEL_ECN_ENCAPm", TableKind::physicalMemory, {}, { "OUTER_ECN" } },
    { "ING_TUNNEL_ECN_DECAPm", TableKind::physicalMemory, {}, { "INNER_ECN", "CHANGE_INNER_ECN" } },
    { "OPAQUE_TAG_CONFIGr",
      TableKind::physicalRegister,
      {},
      { "TAG_SIZE", "OPAQUE_TAG_TYPE", "VALID", "ETHERTYPE" } },
    { "EGR_EPARS_OPAQUE_TAG_CONFIGr",
      TableKind::physicalRegister,
      {},
      { "TAG_SIZE", "VALID", "ETHERTYPE" } },
    { "EGR_EFPPARS_OPAQUE_TAG_CONFIGr",
      TableKind::physicalRegister,
      {},
      { "TAG_SIZE", "VALID", "ETHERTYPE" } },
    { "INNER_L2_OPAQUE_TAG_CONFIGr", TableKind::physicalRegister, {}, { "VALID", "ETHERTYPE" } },
    { "EGR_EPARS_INNER_L2_OPAQUE_TAG_CONFIGr",
      TableKind::physicalRegister,
      {},
      { "VALID", "ETHERTYPE" } },
    { "EGR_EPMOD_L2_OPAQUE_TAG_CONFIGr", TableKind::physicalRegister, {}, { "ETHERTYPE" } },
    { "L3_IPV6_UNICAST_DEFIP_128_STRENGTH_PROFILE",
      TableKind::logical,
      {},
      { "NHOP_2_OR_ECMP_GROUP_INDEX_1_STRENGTH", "ECMP_AND_PROT_SWT_SFC_PROFILE_INDEX_STRENGTH",
        "L3_DST_MISC_CTRL_1_STRENGTH", "L3_DST_MISC_CTRL_0_STRENGTH", "L3_DST_CLASS_ID_STRENGTH",
        "L3_DST_DESTINATION_TYPE_STRENGTH", "L3_DST_DESTINATION_STRENGTH" } },
    { "EGR_L3_OIF_1_STR_PROFILE",
      TableKind::logical,
      { "EGR_L3_OIF_1_STR_PROFILE_INDEX" },
      { "TUNNEL_IDX_STR", "OBJ_TABLE_SEL_1" } },
    { "ING_L3_NEXT_HOP_1_STRENGTH_PROFILE",
      TableKind::logical,
      { "ING_L3_NEXT_HOP_1_STRENGTH_PROFILE_INDEX" },
      { "L2MC_L3MC_L2_OIF_SYS_DST_VALID_STRENGTH" } },
    { "EGR_L3_TNL_STR_PROFILE",
      TableKind::logical,
      { "EGR_L3_TNL_STR_PROFILE_INDEX" },
      { "IP_DIP_STR", "SEQ_NUM_STR" } },
    { "ING_L3_NEXT_HOP_2_STRENGTH_PROFILE",
      TableKind::logical,
      { "ING_L3_NEXT_HOP_2_STRENGTH_PROFILE_INDEX" },
      { "L2MC_L3MC_L2_OIF_SYS_DST_VALID_STRENGTH", "DESTINATION_STRENGTH" } },
    { "L3_IPV6_MULTICAST_2_STRENGTH_PROFILE",
      TableKind::logical,
      {},
      { "RPA_ID_STRENGTH", "EXPECTED_L3_IIF_STRENGTH", "MTU_PROFILE_PTR_STRENGTH",
        "OPAQUE_OBJECT_STRENGTH", "L3_DST_MISC_CTRL_1_STRENGTH", "L3_DST_MISC_CTRL_0_STRENGTH",
        "L3_DST_CLASS_ID_STRENGTH", "L3_DST_DESTINATION_TYPE_STRENGTH",
        "L3_DST_DESTINATION_STRENGTH" } },
    { "L3_IPV6_MULTICAST_1_STRENGTH_PROFILE",
      TableKind::logical,
      {},
      { "RPA_ID_STRENGTH", "EXPECTED_L3_IIF_STRENGTH", "MTU_PROFILE_PTR_STRENGTH",
        "OPAQUE_OBJECT_STRENGTH", "L3_DST_MISC_CTRL_1_STRENGTH", "L3_DST_MISC_CTRL_0_STRENGTH",
        "L3_DST_CLASS_ID_STRENGTH", "L3_DST_DESTINATION_TYPE_STRENGTH",
        "L3_DST_DESTINATION_STRENGTH" } },
    { "LEARN_CACHE_DATA_CONTROL",
      TableKind::logical,
      { "LEARN_CACHE_DATA_INFO_ID" },
      { "LEARN_CACHE" } },
    { "LEARN_CACHE_DROP_CONTROL", TableKind::logical, { "EVENT_ID" }, { "LEARN_CACHE" } },
    { "MON_ING_TRACE_EVENT", TableKind::logical, { "MON_ING_TRACE_EVENT_ID" }, { "CPU" } },
    { "MON_ING_DROP_EVENT",
      TableKind::logical,
      { "MON_ING_DROP_EVENT_ID" },
      { "CPU", "LOOPBACK" } },
    { "IPOST_LAG_RAND_NUM_CTRL_0r", TableKind::physicalRegister, {}, { "SEED" } },
    { "IPOST_LAG_RAND_NUM_CTRL_1r", TableKind::physicalRegister, {}, { "SEED" } },
    { "IPOST_LAG_RAND_NUM_CTRL_2r", TableKind::physicalRegister, {}, { "SEED" } },
    { "IPOST_LAG_RAND_NUM_SEED_0m", TableKind::physicalMemory, {}, { "SEED" } },
    { "IPOST_LAG_RAND_NUM_SEED_1m", TableKind::physicalMemory, {}, { "SEED" } },
    { "IPOST_LAG_RAND_NUM_SEED_2m", TableKind::physicalMemory, {}, { "SEED" } },
    { "MMU_QSCH_SPECIAL_CONFIGr",
      TableKind::physicalRegister,
      {},
      { "DISABLE_CMIC_COSMASK", "ENABLE_THDO_INFO" } },
    { "ING_EN_EFILTER_BITMAPm", TableKind::physicalMemory, {}, { "BITMAP" } },
    { "EFTA30_E2T_00_HASH_CONTROLm", TableKind::physicalMemory, {}, { "ROBUST_HASH_EN" } },
    { "EFTA30_E2T_01_HASH_CONTROLm", TableKind::physicalMemory, {}, { "ROBUST_HASH_EN" } },
    { "IFTA30_E2T_00_HASH_CONTROLm", TableKind::physicalMemory, {}, { "ROBUST_HASH_EN" } },
    { "IFTA40_E2T_00_HASH_CONTROLm", TableKind::physicalMemory, {}, { "ROBUST_HASH_EN" } },
    { "IFTA40_E2T_01_HASH_CONTROLm", TableKind::physicalMemory, {}, { "ROBUST_HASH_EN" } },
    { "FLEX_CTR_ING_COUNTER_ACTION_ENABLEr", TableKind::physicalRegister, {}, { "BITMAP" } },
    { "FLEX_CTR_EGR_COUNTER_ACTION_ENABLEr", TableKind::physicalRegister, {}, { "BITMAP" } },
    { "SER_PT_CONTROL", TableKind::logical, { "PT_ID" }, { "REPORT_SINGLE_BIT_ECC" } },
    { "R_VLAN_XLATE_MISS_POLICY", TableKind::logical, {}, { "OPAQUE_CTRL_ID" } },
};

TEST( ReferenceSchemaTest, HasEveryTableAndFieldOfTheRecipes ) {
    const Schema schema = referenceSchema();
    for ( const TableNames & wanted : recipeTables ) {
        const Table * table = schema.find( wanted.table );
        ASSERT_NE( table, nullptr ) << wanted.table;
        EXPECT_EQ( table->kind, wanted.kind ) << wanted.table;
        for ( const FieldRole role : { FieldRole::key, FieldRole::data } ) {
            for ( const char * name : role == FieldRole::key ? wanted.keys : wanted.data ) {
                const Field * field = table->find( name );
                ASSERT_NE( field, nullptr ) << wanted.table << " " << name;
                EXPECT_EQ( field->role, role ) << wanted.table << " " << name;
            }
        }
        std::size_t keys = 0;
        for ( const Field & field : table->fields )
            keys += field.role == FieldRole::key ? 1 : 0;
        EXPECT_EQ( keys, wanted.keys.size() ) << wanted.table << ": no other key";
    }
    EXPECT_EQ( schema.tables().size(), recipeTables.size() );
}

// --- What the recipes write, on a fresh chip

enum class Commit { insert, update, lookup, remove, missedLookup, get, set, modify };

struct FieldStep {
    const char * field;
    std::uint64_t value = 0;
    const char * symbol = nullptr;
    std::uint32_t elements = 0; // an array add of that many
};

struct Write {
    const char * table;
    Commit commit;
    std::vector<FieldStep> fields;
};

Rc add( Entry & entry, const FieldStep & step ) {
    if ( step.symbol != nullptr )
        return entry.symbol( step.field, step.symbol );
    if ( step.elements )
        return entry.array( step.field, 0,
                            std::vector<std::uint64_t>( step.elements, step.value ) );
    return entry.add( step.field, step.value );
}

Rc commit( Entry & entry, Commit commit ) {
    switch ( commit ) {
    case Commit::insert:
        return entry.insert();
    case Commit::update:
        return entry.update();
    case Commit::lookup:
    case Commit::missedLookup:
        return entry.lookup();
    case Commit::remove:
        return entry.remove();
    case Commit::get:
        return entry.ptGet();
    case Commit::set:
        return entry.ptSet();
    case Commit::modify:
        return entry.ptModify();
    }
    return Rc::unknownOpcode;
}

std::vector<FieldStep> strengths( std::initializer_list<const char *> fields,
                                  std::uint64_t value ) {
    std::vector<FieldStep> steps;
    for ( const char * field : fields )
        steps.push_back( { field, value } );
    return steps;
}

const std::uint64_t max32 = 0xFFFF'FFFF;

// With the largest arguments that make sense.
const std::vector<Write> writes = {
    // cpuPortInit, lbPortInit
    { "PC_PORT_PHYS_MAP", Commit::insert, { { "PORT_ID", 1023 }, { "PC_PHYS_PORT_ID", 65535 } } },
    { "PC_PORT",
      Commit::insert,
      { { "PORT_ID", 1023 }, { "ENABLE", 1 }, { "NUM_LANES", 1 }, { "SPEED", 10000 } } },
    // programL2IfIngSystemPortTable
    { "ING_SYSTEM_PORT_TABLE", Commit::missedLookup, { { "SYSTEM_SOURCE", max32 } } },
    { "ING_SYSTEM_PORT_TABLE",
      Commit::insert,
      { { "SYSTEM_SOURCE", max32 }, { "L2_IIF", 65535 }, { "RANGE_TABLE_INDEX", 773 } } },
    { "ING_SYSTEM_PORT_TABLE", Commit::lookup, { { "SYSTEM_SOURCE", max32 } } },
    { "ING_SYSTEM_PORT_TABLE", Commit::update, { { "SYSTEM_SOURCE", max32 }, { "L2_IIF", 1 } } },
    { "ING_SYSTEM_PORT_TABLE", Commit::remove, { { "SYSTEM_SOURCE", max32 } } },
    // programL2EifSystemDestinationTable
    { "L2_EIF_SYSTEM_DESTINATION",
      Commit::insert,
      { { "L2_EIF_ID", 65535 }, { "IS_TRUNK", 1 }, { "TRUNK_ID", 32767 } } },
    { "L2_EIF_SYSTEM_DESTINATION",
      Commit::update,
      { { "L2_EIF_ID", 65535 }, { "SYSTEM_PORT", max32 } } },
    // setVxlanDefaultNetworkSvp, setVxlanUdpSourcePortSel
    { "TNL_L2_VXLAN_CONTROL", Commit::update, { { "DEFAULT_NETWORK_SVP", 65535 } } },
    { "TNL_L2_VXLAN_CONTROL",
      Commit::update,
      { { .field = "SRC_L4_PORT_SELECT", .symbol = "HASH_ENTROPY" } } },
    // setT4XVxlanDefaultNetworkSvp
    { "R_L2_TUNNEL_DEFAULT_NETWORK_SVP", Commit::insert, { { "SVP", 1 } } },
    // setVxlanDecapAdaptLookup
    { "EGR_VLAN_CONTROL_1r", Commit::get, { { "BCMLT_PT_PORT", 1023 } } },
    { "EGR_VLAN_CONTROL_1r",
      Commit::set,
      { { "BCMLT_PT_PORT", 1023 }, { "VXLAN_DECAP_ADAPT_LOOKUP_ENABLE", 1 } } },
    // setEgrTunnelEcnEncap, setIngTunnelEcnDecap
    { "EGR_TUNNEL_ECN_ENCAPm", Commit::modify, { { "BCMLT_PT_INDEX", 255 }, { "OUTER_ECN", 3 } } },
    { "ING_TUNNEL_ECN_DECAPm",
      Commit::modify,
      { { "BCMLT_PT_INDEX", 255 }, { "INNER_ECN", 3 }, { "CHANGE_INNER_ECN", 1 } } },
    // set...OpaqueTag...
    { "OPAQUE_TAG_CONFIGr",
      Commit::set,
      { { "TAG_SIZE", 1 }, { "OPAQUE_TAG_TYPE", 255 }, { "VALID", 1 }, { "ETHERTYPE", 0x8100 } } },
    { "EGR_EPARS_OPAQUE_TAG_CONFIGr",
      Commit::set,
      { { "TAG_SIZE", 1 }, { "VALID", 1 }, { "ETHERTYPE", 0x8100 } } },
    { "EGR_EFPPARS_OPAQUE_TAG_CONFIGr",
      Commit::set,
      { { "TAG_SIZE", 1 }, { "VALID", 1 }, { "ETHERTYPE", 0x8100 } } },
    { "INNER_L2_OPAQUE_TAG_CONFIGr", Commit::set, { { "VALID", 1 }, { "ETHERTYPE", 0x8100 } } },
    { "EGR_EPARS_INNER_L2_OPAQUE_TAG_CONFIGr",
      Commit::set,
      { { "VALID", 1 }, { "ETHERTYPE", 0x8100 } } },
    { "EGR_EPMOD_L2_OPAQUE_TAG_CONFIGr", Commit::set, { { "ETHERTYPE", 0x8100 } } },
    // the strength profiles
    { "L3_IPV6_UNICAST_DEFIP_128_STRENGTH_PROFILE", Commit::insert,
      strengths( { "NHOP_2_OR_ECMP_GROUP_INDEX_1_STRENGTH",
                   "ECMP_AND_PROT_SWT_SFC_PROFILE_INDEX_STRENGTH", "L3_DST_MISC_CTRL_1_STRENGTH",
                   "L3_DST_MISC_CTRL_0_STRENGTH", "L3_DST_CLASS_ID_STRENGTH",
                   "L3_DST_DESTINATION_TYPE_STRENGTH", "L3_DST_DESTINATION_STRENGTH" },
                 4 ) },
    { "EGR_L3_OIF_1_STR_PROFILE",
      Commit::insert,
      { { "EGR_L3_OIF_1_STR_PROFILE_INDEX", 18 },
        { "TUNNEL_IDX_STR", 5 },
        { "OBJ_TABLE_SEL_1", 2 } } },
    { "ING_L3_NEXT_HOP_1_STRENGTH_PROFILE",
      Commit::insert,
      { { "ING_L3_NEXT_HOP_1_STRENGTH_PROFILE_INDEX", 30 },
        { "L2MC_L3MC_L2_OIF_SYS_DST_VALID_STRENGTH", 6 } } },
    { "EGR_L3_TNL_STR_PROFILE",
      Commit::insert,
      { { "EGR_L3_TNL_STR_PROFILE_INDEX", 17 }, { "IP_DIP_STR", 6 }, { "SEQ_NUM_STR", 5 } } },
    { "ING_L3_NEXT_HOP_2_STRENGTH_PROFILE",
      Commit::insert,
      { { "ING_L3_NEXT_HOP_2_STRENGTH_PROFILE_INDEX", 9 },
        { "L2MC_L3MC_L2_OIF_SYS_DST_VALID_STRENGTH", 7 },
        { "DESTINATION_STRENGTH", 7 } } },
    { "L3_IPV6_MULTICAST_2_STRENGTH_PROFILE", Commit::insert,
      strengths( { "RPA_ID_STRENGTH", "EXPECTED_L3_IIF_STRENGTH", "MTU_PROFILE_PTR_STRENGTH",
                   "OPAQUE_OBJECT_STRENGTH", "L3_DST_MISC_CTRL_1_STRENGTH",
                   "L3_DST_MISC_CTRL_0_STRENGTH", "L3_DST_CLASS_ID_STRENGTH",
                   "L3_DST_DESTINATION_TYPE_STRENGTH", "L3_DST_DESTINATION_STRENGTH" },
                 6 ) },
    { "L3_IPV6_MULTICAST_1_STRENGTH_PROFILE", Commit::insert,
      strengths( { "RPA_ID_STRENGTH", "EXPECTED_L3_IIF_STRENGTH", "MTU_PROFILE_PTR_STRENGTH",
                   "OPAQUE_OBJECT_STRENGTH", "L3_DST_MISC_CTRL_1_STRENGTH",
                   "L3_DST_MISC_CTRL_0_STRENGTH", "L3_DST_CLASS_ID_STRENGTH",
                   "L3_DST_DESTINATION_TYPE_STRENGTH", "L3_DST_DESTINATION_STRENGTH" },
                 5 ) },
    // setLearnCacheEnabled, setLearnCacheDropEnabled
    { "LEARN_CACHE_DATA_CONTROL",
      Commit::missedLookup,
      { { .field = "LEARN_CACHE_DATA_INFO_ID", .symbol = "LEARN_L2_VIEW" } } },
    { "LEARN_CACHE_DATA_CONTROL",
      Commit::insert,
      { { .field = "LEARN_CACHE_DATA_INFO_ID", .symbol = "LEARN_L2_VIEW" },
        { "LEARN_CACHE", 1 } } },
    { "LEARN_CACHE_DROP_CONTROL",
      Commit::missedLookup,
      { { .field = "EVENT_ID", .symbol = "L2_DST_DISCARD" } } },
    { "LEARN_CACHE_DROP_CONTROL",
      Commit::insert,
      { { .field = "EVENT_ID", .symbol = "L2_DST_DISCARD" }, { "LEARN_CACHE", 1 } } },
    // programMonTraceCpu, programPacketDropForMtuError
    { "MON_ING_TRACE_EVENT",
      Commit::insert,
      { { .field = "MON_ING_TRACE_EVENT_ID", .symbol = "L3_DST_LOOKUP_MISS" }, { "CPU", 1 } } },
    { "MON_ING_TRACE_EVENT",
      Commit::insert,
      { { .field = "MON_ING_TRACE_EVENT_ID", .symbol = "L3_HDR_ERROR" }, { "CPU", 1 } } },
    { "MON_ING_TRACE_EVENT",
      Commit::insert,
      { { .field = "MON_ING_TRACE_EVENT_ID", .symbol = "L3_TTL_ERROR" }, { "CPU", 1 } } },
    { "MON_ING_DROP_EVENT", Commit::missedLookup, {} },
    { "MON_ING_DROP_EVENT",
      Commit::insert,
      { { .field = "MON_ING_DROP_EVENT_ID", .symbol = "L3_MTU_CHECK_FAILED" },
        { "CPU", 1 },
        { "LOOPBACK", 0 } } },
    // setLoadBalanceRandSeedCtrl, setLoadBalanceRandSeedMem
    { "IPOST_LAG_RAND_NUM_CTRL_0r", Commit::modify, { { "SEED", max32 } } },
    { "IPOST_LAG_RAND_NUM_CTRL_1r", Commit::modify, { { "SEED", max32 } } },
    { "IPOST_LAG_RAND_NUM_CTRL_2r", Commit::modify, { { "SEED", max32 } } },
    { "IPOST_LAG_RAND_NUM_SEED_0m",
      Commit::modify,
      { { .field = "SEED", .value = max32, .elements = 1 } } },
    { "IPOST_LAG_RAND_NUM_SEED_1m",
      Commit::modify,
      { { .field = "SEED", .value = max32, .elements = 1 } } },
    { "IPOST_LAG_RAND_NUM_SEED_2m",
      Commit::modify,
      { { .field = "SEED", .value = max32, .elements = 1 } } },
    // mmuSpecialConfigInitPipe
    { "MMU_QSCH_SPECIAL_CONFIGr",
      Commit::modify,
      { { "DISABLE_CMIC_COSMASK", 1 },
        { "ENABLE_THDO_INFO", 0 },
        { "BCMLT_PT_INDEX", 0 },
        { "BCMLT_PT_INSTANCE", 7 } } },
    // resetIngEnEfilterBitMap
    { "ING_EN_EFILTER_BITMAPm",
      Commit::modify,
      { { "BCMLT_PT_INDEX", 0 }, { .field = "BITMAP", .value = 0, .elements = 64 } } },
    // setEmRobustHashDisable
    { "EFTA30_E2T_00_HASH_CONTROLm", Commit::modify, { { "ROBUST_HASH_EN", 0 } } },
    { "EFTA30_E2T_01_HASH_CONTROLm", Commit::modify, { { "ROBUST_HASH_EN", 0 } } },
    { "IFTA30_E2T_00_HASH_CONTROLm", Commit::modify, { { "ROBUST_HASH_EN", 0 } } },
    { "IFTA40_E2T_00_HASH_CONTROLm", Commit::modify, { { "ROBUST_HASH_EN", 0 } } },
    { "IFTA40_E2T_01_HASH_CONTROLm", Commit::modify, { { "ROBUST_HASH_EN", 0 } } },
    // setFlexctr...CounterActionEnable
    { "FLEX_CTR_ING_COUNTER_ACTION_ENABLEr", Commit::set, { { "BITMAP", 0xfffffffe } } },
    { "FLEX_CTR_EGR_COUNTER_ACTION_ENABLEr", Commit::set, { { "BITMAP", 0xfffe } } },
    // enable1BitEccRpt
    { "SER_PT_CONTROL",
      Commit::update,
      { { .field = "PT_ID", .symbol = "EGR_TUNNEL_ECN_ENCAPm" }, { "REPORT_SINGLE_BIT_ECC", 1 } } },
    // setVlanXlateMissDrop
    { "R_VLAN_XLATE_MISS_POLICY", Commit::insert, { { "OPAQUE_CTRL_ID", 4 } } },
    { "R_VLAN_XLATE_MISS_POLICY", Commit::update, { { "OPAQUE_CTRL_ID", 4 } } },
};

TEST( ReferenceSchemaTest, TakesWhatTheRecipesWrite ) {
    Chip chip;
    chip.addUnit( 0, referenceSchema() );
    for ( const Write & write : writes ) {
        Entry entry( chip, write.table );
        ASSERT_EQ( entry.allocated(), Rc::ok ) << write.table;
        for ( const FieldStep & step : write.fields )
            EXPECT_EQ( add( entry, step ), Rc::ok ) << chip.lastError();
        if ( write.commit != Commit::missedLookup ) {
            EXPECT_EQ( commit( entry, write.commit ), Rc::ok ) << chip.lastError();
        } else {
            EXPECT_LT( toInt( commit( entry, write.commit ) ), 0 ) << write.table;
        }
    }
}

// --- Rules that tests and users of the reference chip rely on

TEST( ReferenceSchemaTest, AnEcnHasTwoBits ) {
    Chip chip;
    chip.addUnit( 0, referenceSchema() );
    Entry egress( chip, "EGR_TUNNEL_ECN_ENCAPm" );
    EXPECT_EQ( egress.add( "OUTER_ECN", 4 ), Rc::valueTooWide );
    EXPECT_EQ( chip.lastError(),
               "EGR_TUNNEL_ECN_ENCAPm.OUTER_ECN: value 4 needs 3 bits, the field has 2" );
    Entry ingress( chip, "ING_TUNNEL_ECN_DECAPm" );
    EXPECT_EQ( ingress.add( "INNER_ECN", 4 ), Rc::valueTooWide );
    EXPECT_EQ( egress.add( "BCMLT_PT_INDEX", 256 ), Rc::indexOutOfRange );
}

TEST( ReferenceSchemaTest, ATagParserThatNobodySetUpHasNoValidTag ) {
    Chip chip;
    chip.addUnit( 0, referenceSchema() );
    for ( const char * table :
          { "OPAQUE_TAG_CONFIGr", "EGR_EPARS_OPAQUE_TAG_CONFIGr", "EGR_EFPPARS_OPAQUE_TAG_CONFIGr",
            "INNER_L2_OPAQUE_TAG_CONFIGr", "EGR_EPARS_INNER_L2_OPAQUE_TAG_CONFIGr" } ) {
        Entry entry( chip, table );
        ASSERT_EQ( entry.ptGet(), Rc::ok );
        EXPECT_EQ( entry.get( "VALID" ), 0u ) << table;
    }
}

TEST( ReferenceSchemaTest, AProfileIsInsertedOnce ) {
    Chip chip;
    chip.addUnit( 0, referenceSchema() );
    for ( const char * table :
          { "L3_IPV6_UNICAST_DEFIP_128_STRENGTH_PROFILE", "L3_IPV6_MULTICAST_2_STRENGTH_PROFILE",
            "L3_IPV6_MULTICAST_1_STRENGTH_PROFILE", "R_L2_TUNNEL_DEFAULT_NETWORK_SVP",
            "R_VLAN_XLATE_MISS_POLICY" } ) {
        Entry entry( chip, table );
        EXPECT_EQ( entry.update(), Rc::entryNotFound ) << table;
        EXPECT_EQ( entry.insert(), Rc::ok ) << table;
        EXPECT_EQ( entry.insert(), Rc::entryExists ) << table;
    }
}

TEST( ReferenceSchemaTest, TheLookupOfADropEventWithoutItsKeyFails ) {
    Chip chip;
    chip.addUnit( 0, referenceSchema() );
    Entry entry( chip, "MON_ING_DROP_EVENT" );
    EXPECT_EQ( entry.lookup(), Rc::keyMissing );
}

TEST( ReferenceSchemaTest, ErrorControlHasARowForEachMemory ) {
    const Schema schema = referenceSchema();
    Chip chip;
    chip.addUnit( 0, schema );
    for ( const Table & table : schema.tables() ) {
        Entry entry( chip, "SER_PT_CONTROL" );
        const bool isMemory = table.kind == TableKind::physicalMemory;
        EXPECT_EQ( entry.symbol( "PT_ID", table.name.c_str() ),
                   isMemory ? Rc::ok : Rc::unknownSymbol );
        EXPECT_EQ( entry.lookup(), isMemory ? Rc::ok : Rc::keyMissing ) << table.name;
    }
}

TEST( ReferenceSchemaTest, TablesHaveFieldsThatARecipeDoesNotWrite ) {
    Chip chip;
    chip.addUnit( 0, referenceSchema() );
    Entry entry( chip, "ING_TUNNEL_ECN_DECAPm" );
    entry.add( "BCMLT_PT_INDEX", 3 );
    entry.add( "INNER_ECN", 2 );
    ASSERT_EQ( entry.ptModify(), Rc::ok );
    EXPECT_EQ( chip.value( 0, "ING_TUNNEL_ECN_DECAPm", { .index = 3 }, "ECN_PROFILE" ), 0xA5u );
    ASSERT_EQ( entry.ptSet(), Rc::ok );
    EXPECT_EQ( chip.value( 0, "ING_TUNNEL_ECN_DECAPm", { .index = 3 }, "ECN_PROFILE" ), 0u );
}

} // namespace
