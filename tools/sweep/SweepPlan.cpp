#include "tools/sweep/SweepPlan.h"

#include <fmt/format.h>

#include <algorithm>
#include <initializer_list>

namespace Tool {

namespace {

// --- Calls that are not guarded

using Interpose::SdkCall;
using enum Interpose::SdkCall;

bool has( std::string_view text, std::string_view part ) {
    return text.find( part ) != std::string_view::npos;
}

struct NotGuarded {
    CallKind kind;
    SdkCall call;                ///< the operation, or its opcode
    std::string_view recipe;     ///< a part of its name
    std::string_view field = {}; ///< empty: any
};

constexpr NotGuarded notGuarded[] = {
    { CallKind::lookup, opcodeLookup, "L2IfIngSystemPortTable" },
    { CallKind::lookup, opcodeLookup, "L2EifSystemDestinationTable" },
    { CallKind::lookup, opcodeLookup, "setLearnCache" },
    { CallKind::ignored, entryFieldAdd, "programL2IfIngSystemPortTable", "RANGE_TABLE_INDEX" },
    { CallKind::tolerated, opcodeInsert, "setT4XVxlanDefaultNetworkSvp" },
    { CallKind::mustMiss, opcodeLookup, "programPacketDropForMtuError" },
    { CallKind::endsRecipe, entryAllocate, "setLoadBalanceRandSeed" },
    { CallKind::checkedNext, entryFieldAdd, "setLoadBalanceRandSeedCtrl", "SEED" },
    { CallKind::checkedNext, entryFieldArrayAdd, "setLoadBalanceRandSeedMem", "SEED" },
    { CallKind::skipsTable, entryAllocate, "setEmRobustHashDisable" },
};

// --- What models are varied by

using Vary = std::function<void( Model & )>;

Vary onEachChip( const std::function<void( ChipDescription & )> & change ) {
    return [change]( Model & model ) {
        for ( ChipDescription & chip : model.chips )
            change( chip );
    };
}

ChipDescription::Profile & profileOf( ChipDescription & chip ) {
    return chip.profile ? *chip.profile : chip.profile.emplace();
}

Vary rangeTableIndex( bool has ) {
    return onEachChip(
        [has]( ChipDescription & chip ) { profileOf( chip ).hasRangeTableIndex = has; } );
}

// The chip attributes, and a system-port numbering of the chip's own.
Vary ownNumbering() {
    return onEachChip( []( ChipDescription & chip ) {
        profileOf( chip ).hasRangeTableIndex = false;
        profileOf( chip ).systemPortBits = 10;
    } );
}

Vary noProfile() {
    return onEachChip( []( ChipDescription & chip ) { chip.profile.reset(); } );
}

Vary noChipAttributes() {
    return onEachChip( []( ChipDescription & chip ) { chip.profile.emplace(); } );
}

Vary blockedAt( const std::vector<std::uint32_t> & stages ) {
    return onEachChip( [stages]( ChipDescription & chip ) { chip.blockedStages = stages; } );
}

Vary lacking( const std::vector<std::string_view> & tables ) {
    return onEachChip( [tables]( ChipDescription & chip ) {
        for ( const std::string_view table : tables )
            static_cast<void>( chip.schema.remove( table ) );
    } );
}

// Preloaded rows would never be absent.
Vary emptyLearnCacheTables() {
    return onEachChip( []( ChipDescription & chip ) {
        for ( const char * name : { "LEARN_CACHE_DATA_CONTROL", "LEARN_CACHE_DROP_CONTROL" } )
            if ( Sim::Table * table = chip.schema.find( name ) )
                table->preloaded = false;
    } );
}

CairnTypes::CairnPort anotherPort( const Model & model ) {
    return { .slot = 0,
             .unit = static_cast<std::uint16_t>( model.chips.front().unit ),
             .portId = 321,
             .lane = 0 };
}

constexpr Netbase::IntfId anotherInterface{ 54321 };

void anotherCpuPort( Model & model ) {
    model.cpuPorts.push_back( { anotherPort( model ), anotherInterface } );
}

void noCpuPort( Model & model ) { model.cpuPorts.clear(); }

void oneCpuPort( Model & model ) {
    noCpuPort( model );
    anotherCpuPort( model );
}

void anotherRecirculationPort( Model & model ) {
    model.recirculationPorts.push_back( { anotherInterface, anotherPort( model ) } );
}

void noRecirculationPort( Model & model ) { model.recirculationPorts.clear(); }

void oneRecirculationPort( Model & model ) {
    noRecirculationPort( model );
    anotherRecirculationPort( model );
    model.hardwarePorts = { { anotherPort( model ), { 258 } } };
}

void noHardwarePort( Model & model ) {
    oneRecirculationPort( model );
    model.hardwarePorts.clear();
}

// --- The cases

constexpr std::string_view insert = "BCMLT_OPCODE_INSERT";
constexpr std::string_view update = "BCMLT_OPCODE_UPDATE";
constexpr std::string_view remove = "BCMLT_OPCODE_DELETE";
constexpr std::string_view ethertype = "33024"; // 0x8100
constexpr std::string_view anyCall = "bcmlt_";

using Cases = std::vector<SweepCase>;
using Names = std::vector<std::string_view>;
using Given = SweepCase::Given;

bool contains( const Names & names, std::string_view name ) {
    return std::find( names.begin(), names.end(), name ) != names.end();
}

// The cases of a recipe. Telltales are parts of its call texts and messages: those that a case
// names in `with` must occur, the others must not.
void add( Cases & cases, std::string_view recipe, const Names & telltales, Cases ofRecipe ) {
    for ( SweepCase & each : ofRecipe ) {
        each.recipe = recipe;
        for ( const std::string_view telltale : telltales )
            if ( !contains( each.with, telltale ) )
                each.without.push_back( telltale );
        cases.push_back( std::move( each ) );
    }
}

// Recipes without branches.
void add( Cases & cases, std::initializer_list<std::string_view> recipes, const Names & with ) {
    for ( const std::string_view recipe : recipes )
        cases.push_back( { .name = "any", .with = with, .recipe = recipe } );
}

void addPortCases( Cases & cases ) {
    add( cases, "cpuPortInit", { anyCall },
         { { .name = "one port", .with = { anyCall }, .vary = oneCpuPort },
           { .name = "one port more", .with = { anyCall }, .vary = anotherCpuPort },
           { .name = "no port", .vary = noCpuPort } } );
    constexpr std::string_view noPortId = " phyPortId: 0";
    add(
        cases, "lbPortInit", { anyCall },
        { { .name = "one port", .with = { anyCall }, .vary = oneRecirculationPort },
          { .name = "one port more", .with = { anyCall }, .vary = anotherRecirculationPort },
          { .name = "no port", .vary = noRecirculationPort },
          { .name = "no hardware port", .with = { anyCall, noPortId }, .vary = noHardwarePort } } );
}

// The cases of a recipe that looks its row up. Their names end with the row that is there; if
// `before` does not say otherwise, `programs` has written it with the arguments of the case. If the
// lookup answers the opposite, the recipe goes on as in the case whose name ends with the opposite
// row. In a case without a row in its name, the answer makes no difference.
void addLookups( Cases & cases, std::string_view recipe, std::string_view programs,
                 const Names & telltales, Cases ofRecipe ) {
    constexpr std::string_view absent = "row absent";
    constexpr std::string_view present = "row present";
    const Given written{ { "op", "true" }, { "enable", "false" } };
    for ( SweepCase & each : ofRecipe ) {
        const std::string_view situation = each.name.substr( 0, each.name.find( "row " ) );
        const bool isAbsent = each.name.ends_with( absent );
        if ( each.name.ends_with( present ) )
            each.before = { { programs, written } };
        const auto opposite =
            std::find_if( ofRecipe.begin(), ofRecipe.end(), [&]( const SweepCase & other ) {
                return other.name.starts_with( situation ) &&
                       other.name.substr( situation.size() ) == ( isAbsent ? present : absent );
            } );
        if ( situation == each.name )
            each.fallback = each.name;
        else if ( opposite != ofRecipe.end() )
            each.fallback = opposite->name;
    }
    add( cases, recipe, telltales, std::move( ofRecipe ) );
}

void addSystemPortCases( Cases & cases ) {
    constexpr std::string_view program = "programL2IfIngSystemPortTable";
    constexpr std::string_view range = "RANGE_TABLE_INDEX";
    constexpr std::string_view field = "L2_IIF";
    constexpr std::string_view notFound = "Couldn't find h/w entry for system source: ";
    const Given removal{ { "op", "false" } };
    const std::vector<SweepCase::Before> other{ { program, { { "l2If", "78" } } } };
    const Vary plain = rangeTableIndex( false );
    const Vary ranged = rangeTableIndex( true );
    const Vary own = ownNumbering();

    // The assertions come before the lookup's answer is looked at.
    addLookups(
        cases, program, program, { insert, update, remove, range, notFound },
        { { .name = "row absent", .with = { insert }, .vary = plain },
          { .name = "row present", .with = { update }, .vary = plain },
          { .name = "range index, row absent", .with = { insert, range }, .vary = ranged },
          { .name = "range index, row present", .with = { update, range }, .vary = ranged },
          { .name = "own numbering, row absent", .with = { insert }, .vary = own },
          { .name = "own numbering, row present", .with = { update }, .vary = own },
          { .name = "removal, row absent",
            .with = { notFound },
            .arguments = removal,
            .vary = plain },
          { .name = "removal, row present",
            .with = { remove },
            .arguments = removal,
            .vary = plain },
          { .name = "no profile", .vary = noProfile(), .stopsBy = "profile" },
          { .name = "no chip attributes", .vary = noChipAttributes(), .stopsBy = "chipAttr" } } );
    Cases verifying{ { "row absent", {}, "false" },
                     { "row present", { field }, "true" },
                     { "row differs", { field }, "false", {}, other },
                     { "removal, row absent", { notFound }, "true", removal },
                     { "removal, row present", {}, "false", removal } };
    for ( SweepCase & each : verifying )
        each.vary = plain;
    addLookups( cases, "verifyL2IfIngSystemPortTable", program, { field, notFound }, verifying );
}

void addDestinationCases( Cases & cases ) {
    constexpr std::string_view program = "programL2EifSystemDestinationTable";
    constexpr std::string_view port = "\"SYSTEM_PORT\"";
    constexpr std::string_view trunk = "\"TRUNK_ID\"";
    constexpr std::string_view isTrunk = "\"IS_TRUNK\"";
    constexpr std::string_view notFound = "Couldn't find h/w entry for l2_eif_id: ";
    const Given lag{ { "lag", "true" } };
    const Given removal{ { "op", "false" } };
    const std::vector<SweepCase::Before> other{ { program, { { "portOrLagId", "6" } } } };
    const std::vector<SweepCase::Before> ofPort{ { program, { { "lag", "false" } } } };

    addLookups( cases, program, program, { insert, update, remove, port, trunk, isTrunk, notFound },
                { { "port, row absent", { insert, port } },
                  { "port, row present", { update, port } },
                  { "trunk, row absent", { insert, trunk, isTrunk }, "", lag },
                  { "trunk, row present", { update, trunk, isTrunk }, "", lag },
                  { "removal, row absent", { notFound }, "", removal },
                  { "removal, row present", { remove }, "", removal } } );
    // An absent row verifies as present.
    addLookups( cases, "verifyL2EifSystemDestinationTable", program,
                { port, trunk, isTrunk, notFound },
                { { "port, row absent", {}, "true" },
                  { "port, row present", { isTrunk, port }, "true" },
                  { "port, row differs", { isTrunk, port }, "false", {}, other },
                  { "trunk, row absent", {}, "true", lag },
                  { "trunk, row present", { isTrunk, trunk }, "true", lag },
                  { "trunk, row differs", { isTrunk, trunk }, "false", lag, other },
                  { "trunk, row of a port", { isTrunk, trunk }, "false", lag, ofPort },
                  { "removal, row absent", { notFound }, "true", removal },
                  { "removal, row present", {}, "false", removal } } );
}

void addTunnelCases( Cases & cases ) {
    constexpr std::string_view errored = "svp entry insertion errored out rc: ";
    constexpr std::string_view tolerating = "setT4XVxlanDefaultNetworkSvp";
    constexpr std::string_view setter = "setVxlanDecapAdaptLookup";
    constexpr std::string_view attribute = "attrib_set";
    add( cases,
         { "setVxlanDefaultNetworkSvp", "setVxlanUdpSourcePortSel", "setEgrTunnelEcnEncap",
           "setIngTunnelEcnDecap" },
         {} );
    add( cases, tolerating, { errored },
         { { .name = "row absent" },
           { .name = "row present", .with = { errored }, .before = { { tolerating } } } } );
    add( cases, setter, {},
         { { .name = "on", .with = { "enable ? 1 : 0", attribute, "PT_OPCODE_GET" } },
           { .name = "off", .arguments = { { "enable", "false" } } } } );
    const auto set = [&]( const char * value ) {
        return std::vector<SweepCase::Before>{ { setter, { { "enable", value } } } };
    };
    add( cases, "getVxlanDecapAdaptLookup", { attribute },
         { { .name = "on", .returns = "true", .before = set( "true" ) },
           { .name = "off", .returns = "false", .before = set( "false" ) } } );
}

void addOpaqueTagCases( Cases & cases ) {
    constexpr std::string_view type = "OPAQUE_TAG_TYPE";
    constexpr const char * size = "TAG_SIZE";
    constexpr std::string_view etherField = "ETHERTYPE";
    struct Parser {
        std::string_view setter;
        std::string_view getter;
        const char * table;
        Names read; // by the getter
        bool hasValid = true;
    };
    const Parser parsers[] = {
        { "setOpaqueTagIngress",
          "getOpaqueTagIngress",
          "OPAQUE_TAG_CONFIGr",
          { etherField, size, type } },
        { "setOpaqueTagEgress",
          "getOpaqueTagEgress",
          "EGR_EPARS_OPAQUE_TAG_CONFIGr",
          { etherField, size } },
        { "setOpaqueTagEgressEfp",
          "getOpaqueTagEgressEfp",
          "EGR_EFPPARS_OPAQUE_TAG_CONFIGr",
          { etherField, size } },
        { "setInnerOpaqueTagIngress",
          "getInnerOpaqueTagIngress",
          "INNER_L2_OPAQUE_TAG_CONFIGr",
          { etherField } },
        { "setInnerOpaqueTagEgress",
          "getInnerOpaqueTagEgress",
          "EGR_EPARS_INNER_L2_OPAQUE_TAG_CONFIGr",
          { etherField } },
        { "setInnerOpaqueTagEgressEpmod",
          "getInnerOpaqueTagEgressEpmod",
          "EGR_EPMOD_L2_OPAQUE_TAG_CONFIGr",
          { etherField },
          false },
    };
    const Given noType{ { "tagType", "0" } };
    for ( const auto & [setter, getter, table, read, hasValid] : parsers ) {
        const std::vector<SweepCase::Before> set{ { setter } };
        Cases getting{ { "set up", read, ethertype, {}, set } };
        if ( contains( read, type ) ) {
            add( cases, setter, { type },
                 { { .name = "tag type", .with = { type } },
                   { .name = "no tag type", .arguments = noType } } );
            getting.push_back( { "set up, no tag type", read, ethertype, noType, set } );
            getting.push_back( { .name = "another tag type",
                                 .with = { size, type },
                                 .before = { { setter, { { "tagType", "7" } } } },
                                 .stopsBy = "val == tagType" } );
        } else
            add( cases, { setter }, { etherField } );
        if ( hasValid )
            getting.push_back( { .name = "not valid",
                                 .before = set,
                                 .holds = { { table, "VALID", 0 } },
                                 .stopsBy = "val == 1" } );
        if ( contains( read, size ) )
            getting.push_back( { .name = "another tag size",
                                 .with = { size },
                                 .before = set,
                                 .holds = { { table, size, 0 } },
                                 .stopsBy = "val == 1" } );
        add( cases, getter, { etherField, size, type }, std::move( getting ) );
    }
}

void addForwardingCases( Cases & cases ) {
    add( cases,
         { "setDefip128StrengthProfile", "setL3TnlOverlayEgrL3Oif1StrengthProfile",
           "setL3TnlOverlayNhStrengthProfile", "setL3TnlOverlayEgrIpTnlStrengthProfile",
           "setL3TnlUnderlayIngNhStrengthProfile" },
         { insert } );
    constexpr std::string_view skipping = "Skipping for KOVA profile";
    constexpr std::string_view usual = "RPA_ID_STRENGTH";
    constexpr std::string_view extra = "MTU_PROFILE_PTR_STRENGTH";
    add( cases, "setMcastV6StrengthProfile", { anyCall, skipping, extra, usual },
         { { .name = "past stage 108", .with = { anyCall, usual, extra }, .vary = blockedAt( {} ) },
           { .name = "blocked at stage 108",
             .with = { anyCall, usual },
             .vary = blockedAt( { 108 } ) },
           { .name = "blocked at stage 55", .with = { skipping }, .vary = blockedAt( { 55 } ) } } );
}

void addEventCases( Cases & cases ) {
    for ( const std::string_view recipe : { "setLearnCacheEnabled", "setLearnCacheDropEnabled" } )
        addLookups(
            cases, recipe, recipe, { insert, update },
            { { .name = "row absent", .with = { insert }, .vary = emptyLearnCacheTables() },
              { .name = "row present", .with = { update }, .vary = emptyLearnCacheTables() } } );
    add( cases,
         { "programMonTraceCpu", "programPacketTraceForL3DstLookupMiss",
           "programPacketTraceForL3HdrError", "programPacketTraceForTtlError",
           "programPacketDropForMtuError" },
         { insert } );
}

void addControlCases( Cases & cases ) {
    constexpr std::string_view seed = "\"SEED\"";
    const Names skipped{ "skipping register 0", "skipping register 1", "skipping register 2" };
    const Names second{ "IPOST_LAG_RAND_NUM_CTRL_1r", "IPOST_LAG_RAND_NUM_SEED_1m" };
    const Names all{ "IPOST_LAG_RAND_NUM_CTRL_0r", "IPOST_LAG_RAND_NUM_SEED_0m",
                     "IPOST_LAG_RAND_NUM_CTRL_1r", "IPOST_LAG_RAND_NUM_SEED_1m",
                     "IPOST_LAG_RAND_NUM_CTRL_2r", "IPOST_LAG_RAND_NUM_SEED_2m" };
    for ( const std::string_view recipe :
          { "setLoadBalanceRandSeedCtrl", "setLoadBalanceRandSeedMem" } )
        add( cases, recipe, { seed, skipped[0], skipped[1], skipped[2] },
             { { .name = "all instances", .with = { seed } },
               { .name = "no instance 1", .with = { seed, skipped[1] }, .vary = lacking( second ) },
               { .name = "no instance", .with = { skipped[0] }, .vary = lacking( all ) } } );
    constexpr std::string_view info = "ENABLE_THDO_INFO";
    add( cases, "mmuSpecialConfigInitPipe", { info },
         { { .name = "any", .with = { info } },
           { .name = "info not disabled", .arguments = { { "disableThdoInfo", "false" } } } } );
    add( cases, "resetIngEnEfilterBitMap", {},
         { { .name = "any" }, { .name = "no bits", .arguments = { { "bitMapBits", "0" } } } } );
    constexpr std::string_view hashing = "ROBUST_HASH_EN";
    const Names twoMemories{ "EFTA30_E2T_00_HASH_CONTROLm", "EFTA30_E2T_01_HASH_CONTROLm" };
    const Names memories{ "EFTA30_E2T_00_HASH_CONTROLm", "EFTA30_E2T_01_HASH_CONTROLm",
                          "IFTA30_E2T_00_HASH_CONTROLm", "IFTA40_E2T_00_HASH_CONTROLm",
                          "IFTA40_E2T_01_HASH_CONTROLm" };
    add( cases, "setEmRobustHashDisable", { hashing },
         { { .name = "all memories", .with = { hashing } },
           { .name = "the first two absent", .with = { hashing }, .vary = lacking( twoMemories ) },
           { .name = "no memory", .vary = lacking( memories ) } } );
    add( cases, { "setFlexctrIngressCounterActionEnable", "setFlexctrEgressCounterActionEnable" },
         {} );
    add( cases, { "enable1BitEccRpt" }, { update } );
    const SweepCase::Holds row{ "R_VLAN_XLATE_MISS_POLICY", "OPAQUE_CTRL_ID", 1 };
    add( cases, "setVlanXlateMissDrop", { anyCall, "unit: ", insert, update },
         { { .name = "blocked at stage 64", .vary = blockedAt( { 64, 106 } ) },
           { .name = "blocked at stage 106",
             .with = { anyCall, "unit: ", insert },
             .vary = blockedAt( { 106 } ) },
           { .name = "past stage 106",
             .with = { anyCall, "unit: ", update },
             .holds = { row },
             .vary = blockedAt( {} ) } } );
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
    std::stable_sort( cases.begin(), cases.end(), []( const SweepCase & a, const SweepCase & b ) {
        return findRecipe( a.recipe ) < findRecipe( b.recipe );
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
    for ( const NotGuarded & each : notGuarded ) {
        if ( ( each.call == operation.call || each.call == operation.opcode.constant ) &&
             has( recipe.name, each.recipe ) &&
             ( each.field.empty() || each.field == operation.field ) )
            return each.kind;
    }
    return CallKind::guarded;
}

bool assertsHandle( const Recipe & recipe ) {
    return has( recipe.name, "VxlanDecapAdaptLookup" ) || has( recipe.name, "OpaqueTag" ) ||
           has( recipe.name, "CounterActionEnable" );
}

bool keepsLock( const Recipe & recipe ) { return has( recipe.name, "TunnelEcn" ); }

const Recipe & outputOf( const Recipe & recipe ) {
    return recipe.name.starts_with( "programPacketTraceFor" ) ? *findRecipe( "programMonTraceCpu" )
                                                              : recipe;
}

std::string signatureOf( const Recipe & recipe ) {
    std::vector<std::string_view> types;
    if ( recipe.takesSharedState )
        types.emplace_back( "Cairn::CairnCommonSmData::Ptr" );
    for ( const Parameter & parameter : recipe.parameters() )
        types.push_back( typeText( parameter.type ) );
    return fmt::format( "{} Cairn::{}({})", spelling( recipe.result ), recipe.name,
                        fmt::join( types, ", " ) );
}

std::span<const SweepCase> sweepCases() {
    static const Cases cases = makeCases();
    return cases;
}

} // namespace Tool
