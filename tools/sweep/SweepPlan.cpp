#include "tools/sweep/SweepPlan.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <iterator>
#include <optional>

namespace Tool {

namespace {

// --- Calls that are not guarded

using Interpose::SdkCall;

struct NotGuarded {
    std::string_view recipe;
    SdkCall operation;
    CallKind kind;
    std::optional<SdkCall> opcode = {}; ///< nothing: any
    std::string_view field = {};        ///< empty: any
};

constexpr NotGuarded notGuarded[] = {
    { "programL2IfIngSystemPortTable", SdkCall::entryCommit, CallKind::lookup,
      SdkCall::opcodeLookup },
    { "programL2IfIngSystemPortTable",
      SdkCall::entryFieldAdd,
      CallKind::ignored,
      {},
      "RANGE_TABLE_INDEX" },
    { "verifyL2IfIngSystemPortTable", SdkCall::entryCommit, CallKind::lookup,
      SdkCall::opcodeLookup },
    { "programL2EifSystemDestinationTable", SdkCall::entryCommit, CallKind::lookup,
      SdkCall::opcodeLookup },
    { "verifyL2EifSystemDestinationTable", SdkCall::entryCommit, CallKind::lookup,
      SdkCall::opcodeLookup },
    { "setT4XVxlanDefaultNetworkSvp", SdkCall::entryCommit, CallKind::tolerated,
      SdkCall::opcodeInsert },
    { "setLearnCacheEnabled", SdkCall::entryCommit, CallKind::lookup, SdkCall::opcodeLookup },
    { "setLearnCacheDropEnabled", SdkCall::entryCommit, CallKind::lookup, SdkCall::opcodeLookup },
    { "programPacketDropForMtuError", SdkCall::entryCommit, CallKind::mustMiss,
      SdkCall::opcodeLookup },
    { "setLoadBalanceRandSeedCtrl", SdkCall::entryAllocate, CallKind::endsRecipe },
    { "setLoadBalanceRandSeedCtrl", SdkCall::entryFieldAdd, CallKind::checkedNext, {}, "SEED" },
    { "setLoadBalanceRandSeedMem", SdkCall::entryAllocate, CallKind::endsRecipe },
    { "setLoadBalanceRandSeedMem", SdkCall::entryFieldArrayAdd, CallKind::checkedNext, {}, "SEED" },
    { "setEmRobustHashDisable", SdkCall::entryAllocate, CallKind::skipsTable },
};

constexpr std::string_view handleAsserting[] = {
    "setVxlanDecapAdaptLookup",
    "getVxlanDecapAdaptLookup",
    "setOpaqueTagIngress",
    "getOpaqueTagIngress",
    "setOpaqueTagEgress",
    "getOpaqueTagEgress",
    "setOpaqueTagEgressEfp",
    "getOpaqueTagEgressEfp",
    "setInnerOpaqueTagIngress",
    "getInnerOpaqueTagIngress",
    "setInnerOpaqueTagEgress",
    "getInnerOpaqueTagEgress",
    "setInnerOpaqueTagEgressEpmod",
    "getInnerOpaqueTagEgressEpmod",
    "setFlexctrIngressCounterActionEnable",
    "setFlexctrEgressCounterActionEnable",
};

constexpr std::string_view lockKeeping[] = { "setEgrTunnelEcnEncap", "setIngTunnelEcnDecap" };

bool contains( std::span<const std::string_view> names, std::string_view name ) {
    return std::find( names.begin(), names.end(), name ) != names.end();
}

// --- What models are varied by

using Vary = std::function<void( Model & )>;

Vary chipAttributes( bool hasRangeTableIndex ) {
    return [=]( Model & model ) {
        for ( ChipDescription & chip : model.chips ) {
            if ( !chip.profile )
                chip.profile.emplace();
            chip.profile->hasRangeTableIndex = hasRangeTableIndex;
        }
    };
}

void takeProfiles( Model & model ) {
    for ( ChipDescription & chip : model.chips )
        chip.profile.reset();
}

void takeChipAttributes( Model & model ) {
    for ( ChipDescription & chip : model.chips )
        chip.profile.emplace();
}

// The chip attributes, and a system-port numbering of the chip's own.
void giveNumbering( Model & model ) {
    chipAttributes( false )( model );
    constexpr uint32_t portBits = 10;
    for ( ChipDescription & chip : model.chips )
        chip.profile->systemPortBits = portBits;
}

Vary blockedAt( std::vector<uint32_t> stages ) {
    return [stages = std::move( stages )]( Model & model ) {
        for ( ChipDescription & chip : model.chips )
            chip.blockedStages = stages;
    };
}

Vary lacking( std::vector<std::string_view> tables ) {
    return [tables = std::move( tables )]( Model & model ) {
        for ( ChipDescription & chip : model.chips ) {
            for ( const std::string_view table : tables ) {
                if ( chip.schema.find( table ) != nullptr )
                    static_cast<void>( chip.schema.remove( table ) );
            }
        }
    };
}

// A row that is there from the start would never be absent.
void emptyLearnCacheTables( Model & model ) {
    for ( ChipDescription & chip : model.chips ) {
        for ( const char * name : { "LEARN_CACHE_DATA_CONTROL", "LEARN_CACHE_DROP_CONTROL" } ) {
            if ( Sim::Table * table = chip.schema.find( name ) )
                table->preloaded = false;
        }
    }
}

CairnTypes::CairnPort anotherPort( const Model & model ) {
    constexpr uint16_t portId = 321;
    return { .slot = 0,
             .unit = static_cast<uint16_t>( model.chips.front().unit ),
             .portId = portId,
             .lane = 0 };
}

constexpr Netbase::IntfId anotherInterface{ 54321 };

void oneCpuPort( Model & model ) {
    model.cpuPorts = { { anotherPort( model ), anotherInterface } };
}

void anotherCpuPort( Model & model ) {
    model.cpuPorts.push_back( { anotherPort( model ), anotherInterface } );
}

void noCpuPort( Model & model ) { model.cpuPorts.clear(); }

void oneRecirculationPort( Model & model ) {
    const CairnTypes::CairnPort port = anotherPort( model );
    constexpr uint16_t hardwarePort = 258;
    model.recirculationPorts = { { anotherInterface, port } };
    model.hardwarePorts = { { port, { hardwarePort } } };
}

void anotherRecirculationPort( Model & model ) {
    model.recirculationPorts.push_back( { anotherInterface, anotherPort( model ) } );
}

void noRecirculationPort( Model & model ) { model.recirculationPorts.clear(); }

void noHardwarePort( Model & model ) {
    oneRecirculationPort( model );
    model.hardwarePorts.clear();
}

// --- The cases

constexpr std::string_view insert = "BCMLT_OPCODE_INSERT";
constexpr std::string_view update = "BCMLT_OPCODE_UPDATE";
constexpr std::string_view remove = "BCMLT_OPCODE_DELETE";
constexpr std::string_view ethertype = "33024"; // 0x8100

using Cases = std::vector<SweepCase>;

void addPortCases( Cases & cases ) {
    cases.push_back( { .recipe = "cpuPortInit", .name = "one port", .vary = oneCpuPort } );
    cases.push_back( { .recipe = "cpuPortInit", .name = "one port more", .vary = anotherCpuPort } );
    cases.push_back( { .recipe = "cpuPortInit",
                       .name = "no port",
                       .vary = noCpuPort,
                       .without = { "bcmlt_" } } );
    cases.push_back( { .recipe = "lbPortInit", .name = "one port", .vary = oneRecirculationPort } );
    cases.push_back(
        { .recipe = "lbPortInit", .name = "one port more", .vary = anotherRecirculationPort } );
    cases.push_back( { .recipe = "lbPortInit",
                       .name = "no port",
                       .vary = noRecirculationPort,
                       .without = { "bcmlt_" } } );
    cases.push_back( { .recipe = "lbPortInit",
                       .name = "no hardware port",
                       .vary = noHardwarePort,
                       .with = { " phyPortId: 0" } } );
}

void addSystemPortCases( Cases & cases ) {
    constexpr std::string_view program = "programL2IfIngSystemPortTable";
    constexpr std::string_view verify = "verifyL2IfIngSystemPortTable";
    constexpr std::string_view range = "RANGE_TABLE_INDEX";
    constexpr std::string_view notFound = "Couldn't find h/w entry for system source: ";
    const Vary plain = chipAttributes( false );
    const Vary ranged = chipAttributes( true );
    const SweepCase::Before present{ program };
    const SweepCase::Before presentForDelete{ program, { { "op", "true" } } };
    const SweepCase::Before presentDifferently{ program, { { "op", "true" }, { "l2If", "78" } } };

    cases.push_back( { .recipe = program,
                       .name = "row absent",
                       .vary = plain,
                       .fallback = "row present",
                       .with = { insert },
                       .without = { update, remove, range } } );
    cases.push_back( { .recipe = program,
                       .name = "row present",
                       .before = { present },
                       .vary = plain,
                       .fallback = "row absent",
                       .with = { update },
                       .without = { insert, remove, range } } );
    cases.push_back( { .recipe = program,
                       .name = "range index, row absent",
                       .vary = ranged,
                       .fallback = "range index, row present",
                       .with = { insert, range },
                       .without = { update, remove } } );
    cases.push_back( { .recipe = program,
                       .name = "range index, row present",
                       .before = { present },
                       .vary = ranged,
                       .fallback = "range index, row absent",
                       .with = { update, range },
                       .without = { insert, remove } } );
    cases.push_back( { .recipe = program,
                       .name = "own numbering, row absent",
                       .vary = giveNumbering,
                       .fallback = "own numbering, row present",
                       .with = { insert },
                       .without = { update, remove, range } } );
    cases.push_back( { .recipe = program,
                       .name = "own numbering, row present",
                       .before = { present },
                       .vary = giveNumbering,
                       .fallback = "own numbering, row absent",
                       .with = { update },
                       .without = { insert, remove, range } } );
    cases.push_back( { .recipe = program,
                       .name = "removal, row absent",
                       .arguments = { { "op", "false" } },
                       .vary = plain,
                       .fallback = "removal, row present",
                       .with = { notFound },
                       .without = { insert, update, remove } } );
    cases.push_back( { .recipe = program,
                       .name = "removal, row present",
                       .arguments = { { "op", "false" } },
                       .before = { presentForDelete },
                       .vary = plain,
                       .fallback = "removal, row absent",
                       .with = { remove },
                       .without = { insert, update, notFound } } );
    // The assertions come before the lookup's answer is looked at.
    cases.push_back( { .recipe = program,
                       .name = "no profile",
                       .vary = takeProfiles,
                       .stopsBy = "profile",
                       .fallback = "no profile",
                       .without = { insert, update, remove, range } } );
    cases.push_back( { .recipe = program,
                       .name = "no chip attributes",
                       .vary = takeChipAttributes,
                       .stopsBy = "chipAttr",
                       .fallback = "no chip attributes",
                       .without = { insert, update, remove, range } } );

    cases.push_back( { .recipe = verify,
                       .name = "row absent",
                       .vary = plain,
                       .returns = "false",
                       .fallback = "row present",
                       .without = { "L2_IIF" } } );
    cases.push_back( { .recipe = verify,
                       .name = "row present",
                       .before = { present },
                       .vary = plain,
                       .returns = "true",
                       .fallback = "row absent",
                       .with = { "L2_IIF" } } );
    cases.push_back( { .recipe = verify,
                       .name = "row differs",
                       .before = { presentDifferently },
                       .vary = plain,
                       .returns = "false",
                       .fallback = "row absent",
                       .with = { "L2_IIF" } } );
    cases.push_back( { .recipe = verify,
                       .name = "removal, row absent",
                       .arguments = { { "op", "false" } },
                       .vary = plain,
                       .returns = "true",
                       .fallback = "removal, row present",
                       .with = { notFound },
                       .without = { "L2_IIF" } } );
    cases.push_back( { .recipe = verify,
                       .name = "removal, row present",
                       .arguments = { { "op", "false" } },
                       .before = { presentForDelete },
                       .vary = plain,
                       .returns = "false",
                       .fallback = "removal, row absent",
                       .without = { "L2_IIF", notFound } } );
}

void addDestinationCases( Cases & cases ) {
    constexpr std::string_view program = "programL2EifSystemDestinationTable";
    constexpr std::string_view verify = "verifyL2EifSystemDestinationTable";
    constexpr std::string_view port = "\"SYSTEM_PORT\"";
    constexpr std::string_view trunk = "\"TRUNK_ID\"";
    constexpr std::string_view isTrunk = "\"IS_TRUNK\"";
    constexpr std::string_view notFound = "Couldn't find h/w entry for l2_eif_id: ";
    const SweepCase::Before present{ program };
    const SweepCase::Before presentForDelete{ program, { { "op", "true" } } };
    const SweepCase::Given lag{ "lag", "true" };
    const SweepCase::Given removal{ "op", "false" };

    cases.push_back( { .recipe = program,
                       .name = "port, row absent",
                       .fallback = "port, row present",
                       .with = { insert, port },
                       .without = { update, remove, trunk, isTrunk } } );
    cases.push_back( { .recipe = program,
                       .name = "port, row present",
                       .before = { present },
                       .fallback = "port, row absent",
                       .with = { update, port },
                       .without = { insert, remove, trunk, isTrunk } } );
    cases.push_back( { .recipe = program,
                       .name = "trunk, row absent",
                       .arguments = { lag },
                       .fallback = "trunk, row present",
                       .with = { insert, trunk, isTrunk },
                       .without = { update, remove, port } } );
    cases.push_back( { .recipe = program,
                       .name = "trunk, row present",
                       .arguments = { lag },
                       .before = { present },
                       .fallback = "trunk, row absent",
                       .with = { update, trunk, isTrunk },
                       .without = { insert, remove, port } } );
    cases.push_back( { .recipe = program,
                       .name = "removal, row absent",
                       .arguments = { removal },
                       .fallback = "removal, row present",
                       .with = { notFound },
                       .without = { insert, update, remove, port, trunk, isTrunk } } );
    cases.push_back( { .recipe = program,
                       .name = "removal, row present",
                       .arguments = { removal },
                       .before = { presentForDelete },
                       .fallback = "removal, row absent",
                       .with = { remove },
                       .without = { insert, update, port, trunk, isTrunk, notFound } } );

    // An absent row verifies as present.
    cases.push_back( { .recipe = verify,
                       .name = "port, row absent",
                       .returns = "true",
                       .fallback = "port, row present",
                       .without = { port, trunk, isTrunk } } );
    cases.push_back( { .recipe = verify,
                       .name = "port, row present",
                       .before = { present },
                       .returns = "true",
                       .fallback = "port, row absent",
                       .with = { isTrunk, port },
                       .without = { trunk } } );
    cases.push_back( { .recipe = verify,
                       .name = "port, row differs",
                       .before = { { program, { { "portOrLagId", "6" } } } },
                       .returns = "false",
                       .fallback = "port, row absent",
                       .with = { isTrunk, port },
                       .without = { trunk } } );
    cases.push_back( { .recipe = verify,
                       .name = "trunk, row absent",
                       .arguments = { lag },
                       .returns = "true",
                       .fallback = "trunk, row present",
                       .without = { port, trunk, isTrunk } } );
    cases.push_back( { .recipe = verify,
                       .name = "trunk, row present",
                       .arguments = { lag },
                       .before = { present },
                       .returns = "true",
                       .fallback = "trunk, row absent",
                       .with = { isTrunk, trunk },
                       .without = { port } } );
    cases.push_back( { .recipe = verify,
                       .name = "trunk, row differs",
                       .arguments = { lag },
                       .before = { { program, { { "portOrLagId", "6" } } } },
                       .returns = "false",
                       .fallback = "trunk, row absent",
                       .with = { isTrunk, trunk },
                       .without = { port } } );
    cases.push_back( { .recipe = verify,
                       .name = "trunk, row of a port",
                       .arguments = { lag },
                       .before = { { program, { { "lag", "false" } } } },
                       .returns = "false",
                       .fallback = "trunk, row absent",
                       .with = { isTrunk, trunk },
                       .without = { port } } );
    cases.push_back( { .recipe = verify,
                       .name = "removal, row absent",
                       .arguments = { removal },
                       .returns = "true",
                       .fallback = "removal, row present",
                       .with = { notFound },
                       .without = { port, trunk, isTrunk } } );
    cases.push_back( { .recipe = verify,
                       .name = "removal, row present",
                       .arguments = { removal },
                       .before = { presentForDelete },
                       .returns = "false",
                       .fallback = "removal, row absent",
                       .without = { port, trunk, isTrunk, notFound } } );
}

void addTunnelCases( Cases & cases ) {
    constexpr std::string_view toleratedMessage = "svp entry insertion errored out rc: ";
    cases.push_back( { .recipe = "setVxlanDefaultNetworkSvp", .name = "any" } );
    cases.push_back( { .recipe = "setT4XVxlanDefaultNetworkSvp",
                       .name = "row absent",
                       .without = { toleratedMessage } } );
    cases.push_back( { .recipe = "setT4XVxlanDefaultNetworkSvp",
                       .name = "row present",
                       .before = { { "setT4XVxlanDefaultNetworkSvp" } },
                       .with = { toleratedMessage } } );
    cases.push_back( { .recipe = "setVxlanUdpSourcePortSel", .name = "any" } );
    cases.push_back( { .recipe = "setVxlanDecapAdaptLookup",
                       .name = "on",
                       .with = { "enable ? 1 : 0", "attrib_set", "PT_OPCODE_GET" } } );
    cases.push_back( { .recipe = "setVxlanDecapAdaptLookup",
                       .name = "off",
                       .arguments = { { "enable", "false" } } } );
    cases.push_back( { .recipe = "getVxlanDecapAdaptLookup",
                       .name = "on",
                       .before = { { "setVxlanDecapAdaptLookup", { { "enable", "true" } } } },
                       .returns = "true",
                       .without = { "attrib_set" } } );
    cases.push_back( { .recipe = "getVxlanDecapAdaptLookup",
                       .name = "off",
                       .before = { { "setVxlanDecapAdaptLookup", { { "enable", "false" } } } },
                       .returns = "false",
                       .without = { "attrib_set" } } );
    cases.push_back( { .recipe = "setEgrTunnelEcnEncap", .name = "any" } );
    cases.push_back( { .recipe = "setIngTunnelEcnDecap", .name = "any" } );
}

void addOpaqueTagCases( Cases & cases ) {
    constexpr std::string_view valueAssertion = "val == 1";
    constexpr std::string_view type = "OPAQUE_TAG_TYPE";
    constexpr std::string_view etherField = "ETHERTYPE";
    cases.push_back( { .recipe = "setOpaqueTagIngress", .name = "tag type", .with = { type } } );
    cases.push_back( { .recipe = "setOpaqueTagIngress",
                       .name = "no tag type",
                       .arguments = { { "tagType", "0" } },
                       .without = { type } } );
    cases.push_back( { .recipe = "getOpaqueTagIngress",
                       .name = "set up",
                       .before = { { "setOpaqueTagIngress" } },
                       .returns = ethertype,
                       .with = { type } } );
    cases.push_back( { .recipe = "getOpaqueTagIngress",
                       .name = "set up, no tag type",
                       .arguments = { { "tagType", "0" } },
                       .before = { { "setOpaqueTagIngress" } },
                       .returns = ethertype,
                       .with = { type } } );
    cases.push_back( { .recipe = "getOpaqueTagIngress",
                       .name = "another tag type",
                       .before = { { "setOpaqueTagIngress", { { "tagType", "7" } } } },
                       .stopsBy = "val == tagType",
                       .with = { type },
                       .without = { etherField } } );

    struct Parser {
        std::string_view setter;
        std::string_view getter;
        std::string_view table;
        bool hasSize;
        bool hasValid;
    };
    constexpr Parser parsers[] = {
        { "setOpaqueTagIngress", "getOpaqueTagIngress", "OPAQUE_TAG_CONFIGr", true, true },
        { "setOpaqueTagEgress", "getOpaqueTagEgress", "EGR_EPARS_OPAQUE_TAG_CONFIGr", true, true },
        { "setOpaqueTagEgressEfp", "getOpaqueTagEgressEfp", "EGR_EFPPARS_OPAQUE_TAG_CONFIGr", true,
          true },
        { "setInnerOpaqueTagIngress", "getInnerOpaqueTagIngress", "INNER_L2_OPAQUE_TAG_CONFIGr",
          false, true },
        { "setInnerOpaqueTagEgress", "getInnerOpaqueTagEgress",
          "EGR_EPARS_INNER_L2_OPAQUE_TAG_CONFIGr", false, true },
        { "setInnerOpaqueTagEgressEpmod", "getInnerOpaqueTagEgressEpmod",
          "EGR_EPMOD_L2_OPAQUE_TAG_CONFIGr", false, false },
    };
    for ( const Parser & parser : parsers ) {
        if ( parser.setter != "setOpaqueTagIngress" ) {
            cases.push_back( { .recipe = parser.setter, .name = "any", .with = { etherField } } );
            cases.push_back( { .recipe = parser.getter,
                               .name = "set up",
                               .before = { { parser.setter } },
                               .returns = ethertype,
                               .without = { type } } );
        }
        if ( parser.hasValid )
            cases.push_back( { .recipe = parser.getter,
                               .name = "not valid",
                               .before = { { parser.setter } },
                               .holds = { { parser.table, "VALID", 0 } },
                               .stopsBy = valueAssertion,
                               .without = { "TAG_SIZE", etherField } } );
        if ( parser.hasSize )
            cases.push_back( { .recipe = parser.getter,
                               .name = "another tag size",
                               .before = { { parser.setter } },
                               .holds = { { parser.table, "TAG_SIZE", 0 } },
                               .stopsBy = valueAssertion,
                               .with = { "TAG_SIZE" },
                               .without = { type, etherField } } );
    }
}

void addForwardingCases( Cases & cases ) {
    for ( const std::string_view recipe :
          { "setDefip128StrengthProfile", "setL3TnlOverlayEgrL3Oif1StrengthProfile",
            "setL3TnlOverlayNhStrengthProfile", "setL3TnlOverlayEgrIpTnlStrengthProfile",
            "setL3TnlUnderlayIngNhStrengthProfile" } )
        cases.push_back( { .recipe = recipe, .name = "any", .with = { insert } } );

    constexpr std::string_view mcast = "setMcastV6StrengthProfile";
    constexpr std::string_view skipping = "Skipping for KOVA profile";
    constexpr std::string_view extra = "MTU_PROFILE_PTR_STRENGTH";
    cases.push_back( { .recipe = mcast,
                       .name = "past stage 108",
                       .vary = blockedAt( {} ),
                       .with = { extra },
                       .without = { skipping } } );
    cases.push_back( { .recipe = mcast,
                       .name = "blocked at stage 108",
                       .vary = blockedAt( { 108 } ),
                       .with = { "RPA_ID_STRENGTH" },
                       .without = { skipping, extra } } );
    cases.push_back( { .recipe = mcast,
                       .name = "blocked at stage 55",
                       .vary = blockedAt( { 55 } ),
                       .with = { skipping },
                       .without = { "bcmlt_" } } );
}

void addEventCases( Cases & cases ) {
    for ( const std::string_view recipe : { "setLearnCacheEnabled", "setLearnCacheDropEnabled" } ) {
        cases.push_back( { .recipe = recipe,
                           .name = "row absent",
                           .vary = emptyLearnCacheTables,
                           .fallback = "row present",
                           .with = { insert },
                           .without = { update } } );
        cases.push_back( { .recipe = recipe,
                           .name = "row present",
                           .before = { { recipe, { { "enable", "false" } } } },
                           .vary = emptyLearnCacheTables,
                           .fallback = "row absent",
                           .with = { update },
                           .without = { insert } } );
    }
    for ( const std::string_view recipe :
          { "programMonTraceCpu", "programPacketTraceForL3DstLookupMiss",
            "programPacketTraceForL3HdrError", "programPacketTraceForTtlError",
            "programPacketDropForMtuError" } )
        cases.push_back( { .recipe = recipe, .name = "any", .with = { insert } } );
}

void addControlCases( Cases & cases ) {
    for ( const std::string_view recipe :
          { "setLoadBalanceRandSeedCtrl", "setLoadBalanceRandSeedMem" } ) {
        const Vary noSecond =
            lacking( { "IPOST_LAG_RAND_NUM_CTRL_1r", "IPOST_LAG_RAND_NUM_SEED_1m" } );
        const Vary none = lacking( { "IPOST_LAG_RAND_NUM_CTRL_0r", "IPOST_LAG_RAND_NUM_SEED_0m",
                                     "IPOST_LAG_RAND_NUM_CTRL_1r", "IPOST_LAG_RAND_NUM_SEED_1m",
                                     "IPOST_LAG_RAND_NUM_CTRL_2r", "IPOST_LAG_RAND_NUM_SEED_2m" } );
        cases.push_back(
            { .recipe = recipe, .name = "all instances", .without = { "skipping register" } } );
        cases.push_back( { .recipe = recipe,
                           .name = "no instance 1",
                           .vary = noSecond,
                           .with = { "\"SEED\"", "skipping register 1" },
                           .without = { "skipping register 2" } } );
        cases.push_back( { .recipe = recipe,
                           .name = "no instance",
                           .vary = none,
                           .with = { "skipping register 0" },
                           .without = { "\"SEED\"", "skipping register 1" } } );
    }
    constexpr std::string_view info = "ENABLE_THDO_INFO";
    cases.push_back( { .recipe = "mmuSpecialConfigInitPipe", .name = "any", .with = { info } } );
    cases.push_back( { .recipe = "mmuSpecialConfigInitPipe",
                       .name = "info not disabled",
                       .arguments = { { "disableThdoInfo", "false" } },
                       .without = { info } } );
    cases.push_back( { .recipe = "resetIngEnEfilterBitMap", .name = "any" } );
    cases.push_back( { .recipe = "resetIngEnEfilterBitMap",
                       .name = "no bits",
                       .arguments = { { "bitMapBits", "0" } } } );
    constexpr std::string_view hash = "setEmRobustHashDisable";
    cases.push_back( { .recipe = hash, .name = "all memories", .with = { "ROBUST_HASH_EN" } } );
    cases.push_back(
        { .recipe = hash,
          .name = "the first two absent",
          .vary = lacking( { "EFTA30_E2T_00_HASH_CONTROLm", "EFTA30_E2T_01_HASH_CONTROLm" } ),
          .with = { "ROBUST_HASH_EN" } } );
    cases.push_back(
        { .recipe = hash,
          .name = "no memory",
          .vary = lacking( { "EFTA30_E2T_00_HASH_CONTROLm", "EFTA30_E2T_01_HASH_CONTROLm",
                             "IFTA30_E2T_00_HASH_CONTROLm", "IFTA40_E2T_00_HASH_CONTROLm",
                             "IFTA40_E2T_01_HASH_CONTROLm" } ),
          .without = { "ROBUST_HASH_EN" } } );
    cases.push_back( { .recipe = "setFlexctrIngressCounterActionEnable", .name = "any" } );
    cases.push_back( { .recipe = "setFlexctrEgressCounterActionEnable", .name = "any" } );
    cases.push_back( { .recipe = "enable1BitEccRpt", .name = "any", .with = { update } } );

    constexpr std::string_view vlan = "setVlanXlateMissDrop";
    cases.push_back( { .recipe = vlan,
                       .name = "blocked at stage 64",
                       .vary = blockedAt( { 64, 106 } ),
                       .without = { "bcmlt_", "unit: " } } );
    cases.push_back( { .recipe = vlan,
                       .name = "blocked at stage 106",
                       .vary = blockedAt( { 106 } ),
                       .with = { insert },
                       .without = { update } } );
    cases.push_back( { .recipe = vlan,
                       .name = "past stage 106",
                       .holds = { { "R_VLAN_XLATE_MISS_POLICY", "OPAQUE_CTRL_ID", 1 } },
                       .vary = blockedAt( {} ),
                       .with = { update },
                       .without = { insert } } );
}

Cases makeCases() {
    Cases cases;
    addPortCases( cases );
    addSystemPortCases( cases );
    addDestinationCases( cases );
    addTunnelCases( cases );
    addOpaqueTagCases( cases );
    addForwardingCases( cases );
    addEventCases( cases );
    addControlCases( cases );
    const auto place = []( const SweepCase & each ) {
        return std::distance( recipes().data(), findRecipe( each.recipe ) );
    };
    std::stable_sort( cases.begin(), cases.end(), [&]( const SweepCase & a, const SweepCase & b ) {
        return place( a ) < place( b );
    } );
    return cases;
}

std::string_view typeText( ArgumentType type ) {
    switch ( type ) {
    case ArgumentType::text:
        return "const char*";
    case ArgumentType::chip:
        return "CairnCentral::ChipInfo";
    default:
        return spelling( type );
    }
}

} // namespace

CallKind kindOf( const Recipe & recipe, const Interpose::Event & operation ) {
    for ( const NotGuarded & call : notGuarded ) {
        if ( call.recipe == recipe.name && call.operation == operation.call &&
             ( !call.opcode || call.opcode == operation.opcode.constant ) &&
             ( call.field.empty() || call.field == operation.field ) )
            return call.kind;
    }
    return CallKind::guarded;
}

bool assertsHandle( const Recipe & recipe ) { return contains( handleAsserting, recipe.name ); }

bool keepsLock( const Recipe & recipe ) { return contains( lockKeeping, recipe.name ); }

const Recipe & outputOf( const Recipe & recipe ) {
    constexpr std::string_view oneLiners[] = { "programPacketTraceForL3DstLookupMiss",
                                               "programPacketTraceForL3HdrError",
                                               "programPacketTraceForTtlError" };
    return contains( oneLiners, recipe.name ) ? *findRecipe( "programMonTraceCpu" ) : recipe;
}

std::string signatureOf( const Recipe & recipe ) {
    std::string text( spelling( recipe.result ) );
    text += " Cairn::" + std::string( recipe.name ) + "(";
    if ( recipe.takesSharedState )
        text += "Cairn::CairnCommonSmData::Ptr";
    for ( const Parameter & parameter : recipe.parameters() ) {
        if ( &parameter != recipe.parameters().data() )
            text += ", ";
        text += typeText( parameter.type );
    }
    return text + ")";
}

std::span<const SweepCase> sweepCases() {
    static const Cases cases = makeCases();
    return cases;
}

} // namespace Tool
