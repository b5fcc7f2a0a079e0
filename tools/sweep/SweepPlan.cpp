#include "tools/sweep/SweepPlan.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <initializer_list>
#include <iterator>
#include <optional>

namespace Tool {

namespace {

// --- Calls that are not guarded

using Interpose::SdkCall;
using enum Interpose::SdkCall;

struct NotGuarded {
    std::string_view recipe;
    SdkCall operation;
    CallKind kind;
    std::optional<SdkCall> opcode = {}; ///< nothing: any
    std::string_view field = {};        ///< empty: any
};

constexpr NotGuarded notGuarded[] = {
    { "programL2IfIngSystemPortTable", entryCommit, CallKind::lookup, opcodeLookup },
    { "programL2IfIngSystemPortTable", entryFieldAdd, CallKind::ignored, {}, "RANGE_TABLE_INDEX" },
    { "verifyL2IfIngSystemPortTable", entryCommit, CallKind::lookup, opcodeLookup },
    { "programL2EifSystemDestinationTable", entryCommit, CallKind::lookup, opcodeLookup },
    { "verifyL2EifSystemDestinationTable", entryCommit, CallKind::lookup, opcodeLookup },
    { "setT4XVxlanDefaultNetworkSvp", entryCommit, CallKind::tolerated, opcodeInsert },
    { "setLearnCacheEnabled", entryCommit, CallKind::lookup, opcodeLookup },
    { "setLearnCacheDropEnabled", entryCommit, CallKind::lookup, opcodeLookup },
    { "programPacketDropForMtuError", entryCommit, CallKind::mustMiss, opcodeLookup },
    { "setLoadBalanceRandSeedCtrl", entryAllocate, CallKind::endsRecipe },
    { "setLoadBalanceRandSeedCtrl", entryFieldAdd, CallKind::checkedNext, {}, "SEED" },
    { "setLoadBalanceRandSeedMem", entryAllocate, CallKind::endsRecipe },
    { "setLoadBalanceRandSeedMem", entryFieldArrayAdd, CallKind::checkedNext, {}, "SEED" },
    { "setEmRobustHashDisable", entryAllocate, CallKind::skipsTable },
};

// Parts of recipes' names.
constexpr std::string_view handleAsserting[] = { "VxlanDecapAdaptLookup", "OpaqueTag",
                                                 "CounterActionEnable" };

constexpr std::string_view lockKeeping[] = { "setEgrTunnelEcnEncap", "setIngTunnelEcnDecap" };

bool contains( std::span<const std::string_view> names, std::string_view name ) {
    return std::find( names.begin(), names.end(), name ) != names.end();
}

// --- What models are varied by

using Vary = std::function<void( Model & )>;

template <class Change>
Vary onEachChip( Change change ) {
    return [change]( Model & model ) {
        for ( ChipDescription & chip : model.chips )
            change( chip );
    };
}

Vary rangeTableIndex( bool has ) {
    return onEachChip( [has]( ChipDescription & chip ) {
        if ( !chip.profile )
            chip.profile.emplace();
        chip.profile->hasRangeTableIndex = has;
    } );
}

// The chip attributes, and a system-port numbering of the chip's own.
Vary ownNumbering() {
    return onEachChip( []( ChipDescription & chip ) {
        if ( !chip.profile )
            chip.profile.emplace();
        chip.profile->hasRangeTableIndex = false;
        chip.profile->systemPortBits = 10;
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
            if ( chip.schema.find( table ) != nullptr )
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
        cases.push_back( { .recipe = recipe, .name = "any", .with = with } );
}

void addPortCases( Cases & cases ) {
    add( cases, "cpuPortInit", { anyCall },
         { { .name = "one port", .vary = oneCpuPort, .with = { anyCall } },
           { .name = "one port more", .vary = anotherCpuPort, .with = { anyCall } },
           { .name = "no port", .vary = noCpuPort } } );
    constexpr std::string_view noPortId = " phyPortId: 0";
    add(
        cases, "lbPortInit", { anyCall },
        { { .name = "one port", .vary = oneRecirculationPort, .with = { anyCall } },
          { .name = "one port more", .vary = anotherRecirculationPort, .with = { anyCall } },
          { .name = "no port", .vary = noRecirculationPort },
          { .name = "no hardware port", .vary = noHardwarePort, .with = { anyCall, noPortId } } } );
}

// A case of a recipe that looks its row up.
struct LookupCase {
    std::string_view name; ///< ends with the row that is there
    Names with;
    std::string_view returns = {};
    Given given = {};
    std::optional<Given> row = {}; ///< the arguments it was programmed with; nothing: it is absent
    Vary vary = {};
    std::string_view stopsBy = {};
};

// If the lookup answers the opposite, the recipe goes on as in the case whose name ends with the
// opposite row. In a case without a row in its name, the answer makes no difference.
std::string_view fallbackOf( const std::vector<LookupCase> & table, std::string_view name ) {
    constexpr std::string_view absent = "row absent";
    const std::size_t row = name.find( "row " );
    if ( row == std::string_view::npos )
        return name;
    const auto found = std::find_if( table.begin(), table.end(), [&]( const LookupCase & each ) {
        return each.name.substr( 0, row ) == name.substr( 0, row ) &&
               each.name.substr( row ) == ( name.ends_with( absent ) ? "row present" : absent );
    } );
    return found == table.end() ? std::string_view() : found->name;
}

void addLookups( Cases & cases, std::string_view recipe, std::string_view programs,
                 const Names & telltales, const std::vector<LookupCase> & table ) {
    Cases ofRecipe;
    for ( const LookupCase & each : table ) {
        ofRecipe.push_back( { .name = each.name,
                              .arguments = each.given,
                              .vary = each.vary,
                              .returns = each.returns,
                              .stopsBy = each.stopsBy,
                              .fallback = fallbackOf( table, each.name ),
                              .with = each.with } );
        if ( each.row )
            ofRecipe.back().before = { { programs, *each.row } };
    }
    add( cases, recipe, telltales, std::move( ofRecipe ) );
}

void addSystemPortCases( Cases & cases ) {
    constexpr std::string_view program = "programL2IfIngSystemPortTable";
    constexpr std::string_view verify = "verifyL2IfIngSystemPortTable";
    constexpr std::string_view range = "RANGE_TABLE_INDEX";
    constexpr std::string_view field = "L2_IIF";
    constexpr std::string_view notFound = "Couldn't find h/w entry for system source: ";
    const Given removal{ { "op", "false" } };
    const Given same{ { "op", "true" } };
    const Given other{ { "op", "true" }, { "l2If", "78" } };
    const Vary plain = rangeTableIndex( false );
    const Vary ranged = rangeTableIndex( true );

    // The assertions come before the lookup's answer is looked at.
    addLookups( cases, program, program, { insert, update, remove, range, notFound },
                { { "row absent", { insert }, {}, {}, {}, plain },
                  { "row present", { update }, {}, {}, same, plain },
                  { "range index, row absent", { insert, range }, {}, {}, {}, ranged },
                  { "range index, row present", { update, range }, {}, {}, same, ranged },
                  { "own numbering, row absent", { insert }, {}, {}, {}, ownNumbering() },
                  { "own numbering, row present", { update }, {}, {}, same, ownNumbering() },
                  { "removal, row absent", { notFound }, {}, removal, {}, plain },
                  { "removal, row present", { remove }, {}, removal, same, plain },
                  { "no profile", {}, {}, {}, {}, noProfile(), "profile" },
                  { "no chip attributes", {}, {}, {}, {}, noChipAttributes(), "chipAttr" } } );
    addLookups( cases, verify, program, { field, notFound },
                { { "row absent", {}, "false", {}, {}, plain },
                  { "row present", { field }, "true", {}, same, plain },
                  { "row differs", { field }, "false", {}, other, plain },
                  { "removal, row absent", { notFound }, "true", removal, {}, plain },
                  { "removal, row present", {}, "false", removal, same, plain } } );
}

void addDestinationCases( Cases & cases ) {
    constexpr std::string_view program = "programL2EifSystemDestinationTable";
    constexpr std::string_view verify = "verifyL2EifSystemDestinationTable";
    constexpr std::string_view port = "\"SYSTEM_PORT\"";
    constexpr std::string_view trunk = "\"TRUNK_ID\"";
    constexpr std::string_view isTrunk = "\"IS_TRUNK\"";
    constexpr std::string_view notFound = "Couldn't find h/w entry for l2_eif_id: ";
    const Given lag{ { "lag", "true" } };
    const Given removal{ { "op", "false" } };
    const Given same{ { "op", "true" } };
    const Given other{ { "portOrLagId", "6" } };
    const Given ofPort{ { "lag", "false" } };

    addLookups( cases, program, program, { insert, update, remove, port, trunk, isTrunk, notFound },
                { { "port, row absent", { insert, port } },
                  { "port, row present", { update, port }, {}, {}, same },
                  { "trunk, row absent", { insert, trunk, isTrunk }, {}, lag },
                  { "trunk, row present", { update, trunk, isTrunk }, {}, lag, same },
                  { "removal, row absent", { notFound }, {}, removal },
                  { "removal, row present", { remove }, {}, removal, same } } );
    // An absent row verifies as present.
    addLookups( cases, verify, program, { port, trunk, isTrunk, notFound },
                { { "port, row absent", {}, "true" },
                  { "port, row present", { isTrunk, port }, "true", {}, same },
                  { "port, row differs", { isTrunk, port }, "false", {}, other },
                  { "trunk, row absent", {}, "true", lag },
                  { "trunk, row present", { isTrunk, trunk }, "true", lag, same },
                  { "trunk, row differs", { isTrunk, trunk }, "false", lag, other },
                  { "trunk, row of a port", { isTrunk, trunk }, "false", lag, ofPort },
                  { "removal, row absent", { notFound }, "true", removal },
                  { "removal, row present", {}, "false", removal, same } } );
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
           { .name = "row present", .before = { { tolerating } }, .with = { errored } } } );
    add( cases, setter, {},
         { { .name = "on", .with = { "enable ? 1 : 0", attribute, "PT_OPCODE_GET" } },
           { .name = "off", .arguments = { { "enable", "false" } } } } );
    const auto set = [&]( const char * value ) {
        return std::vector<SweepCase::Before>{ { setter, { { "enable", value } } } };
    };
    add( cases, "getVxlanDecapAdaptLookup", { attribute },
         { { .name = "on", .before = set( "true" ), .returns = "true" },
           { .name = "off", .before = set( "false" ), .returns = "false" } } );
}

void addOpaqueTagCases( Cases & cases ) {
    constexpr std::string_view type = "OPAQUE_TAG_TYPE";
    constexpr const char * size = "TAG_SIZE";
    constexpr std::string_view etherField = "ETHERTYPE";
    struct Parser {
        std::string_view setter;
        std::string_view getter;
        const char * table;
        bool hasType;
        bool hasSize;
        bool hasValid;
    };
    constexpr Parser parsers[] = {
        { "setOpaqueTagIngress", "getOpaqueTagIngress", "OPAQUE_TAG_CONFIGr", true, true, true },
        { "setOpaqueTagEgress", "getOpaqueTagEgress", "EGR_EPARS_OPAQUE_TAG_CONFIGr", false, true,
          true },
        { "setOpaqueTagEgressEfp", "getOpaqueTagEgressEfp", "EGR_EFPPARS_OPAQUE_TAG_CONFIGr", false,
          true, true },
        { "setInnerOpaqueTagIngress", "getInnerOpaqueTagIngress", "INNER_L2_OPAQUE_TAG_CONFIGr",
          false, false, true },
        { "setInnerOpaqueTagEgress", "getInnerOpaqueTagEgress",
          "EGR_EPARS_INNER_L2_OPAQUE_TAG_CONFIGr", false, false, true },
        { "setInnerOpaqueTagEgressEpmod", "getInnerOpaqueTagEgressEpmod",
          "EGR_EPMOD_L2_OPAQUE_TAG_CONFIGr", false, false, false },
    };
    const Given noType{ { "tagType", "0" } };
    for ( const Parser & parser : parsers ) {
        const std::vector<SweepCase::Before> set{ { parser.setter } };
        Names read{ etherField };
        if ( parser.hasSize )
            read.push_back( size );
        if ( parser.hasType )
            read.push_back( type );
        Cases getting{ { .name = "set up", .before = set, .returns = ethertype, .with = read } };
        if ( parser.hasType ) {
            add( cases, parser.setter, { type },
                 { { .name = "tag type", .with = { type } },
                   { .name = "no tag type", .arguments = noType } } );
            getting.push_back( { .name = "set up, no tag type",
                                 .arguments = noType,
                                 .before = set,
                                 .returns = ethertype,
                                 .with = read } );
            getting.push_back( { .name = "another tag type",
                                 .before = { { parser.setter, { { "tagType", "7" } } } },
                                 .stopsBy = "val == tagType",
                                 .with = { size, type } } );
        } else
            add( cases, { parser.setter }, { etherField } );
        const auto holdsZero = [&]( std::string_view name, const char * field, Names with ) {
            getting.push_back( { .name = name,
                                 .before = set,
                                 .holds = { { parser.table, field, 0 } },
                                 .stopsBy = "val == 1",
                                 .with = std::move( with ) } );
        };
        if ( parser.hasValid )
            holdsZero( "not valid", "VALID", {} );
        if ( parser.hasSize )
            holdsZero( "another tag size", size, { size } );
        add( cases, parser.getter, { etherField, size, type }, std::move( getting ) );
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
         { { .name = "past stage 108", .vary = blockedAt( {} ), .with = { anyCall, usual, extra } },
           { .name = "blocked at stage 108",
             .vary = blockedAt( { 108 } ),
             .with = { anyCall, usual } },
           { .name = "blocked at stage 55", .vary = blockedAt( { 55 } ), .with = { skipping } } } );
}

void addEventCases( Cases & cases ) {
    for ( const std::string_view recipe : { "setLearnCacheEnabled", "setLearnCacheDropEnabled" } )
        addLookups( cases, recipe, recipe, { insert, update },
                    { { "row absent", { insert }, {}, {}, {}, emptyLearnCacheTables() },
                      { "row present",
                        { update },
                        {},
                        {},
                        Given{ { "enable", "false" } },
                        emptyLearnCacheTables() } } );
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
               { .name = "no instance 1", .vary = lacking( second ), .with = { seed, skipped[1] } },
               { .name = "no instance", .vary = lacking( all ), .with = { skipped[0] } } } );
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
           { .name = "the first two absent", .vary = lacking( twoMemories ), .with = { hashing } },
           { .name = "no memory", .vary = lacking( memories ) } } );
    add( cases, { "setFlexctrIngressCounterActionEnable", "setFlexctrEgressCounterActionEnable" },
         {} );
    add( cases, { "enable1BitEccRpt" }, { update } );
    const SweepCase::Holds row{ "R_VLAN_XLATE_MISS_POLICY", "OPAQUE_CTRL_ID", 1 };
    add( cases, "setVlanXlateMissDrop", { anyCall, "unit: ", insert, update },
         { { .name = "blocked at stage 64", .vary = blockedAt( { 64, 106 } ) },
           { .name = "blocked at stage 106",
             .vary = blockedAt( { 106 } ),
             .with = { anyCall, "unit: ", insert } },
           { .name = "past stage 106",
             .holds = { row },
             .vary = blockedAt( {} ),
             .with = { anyCall, "unit: ", update } } } );
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
    for ( const NotGuarded & call : notGuarded ) {
        if ( call.recipe == recipe.name && call.operation == operation.call &&
             ( !call.opcode || call.opcode == operation.opcode.constant ) &&
             ( call.field.empty() || call.field == operation.field ) )
            return call.kind;
    }
    return CallKind::guarded;
}

bool assertsHandle( const Recipe & recipe ) {
    return std::any_of( std::begin( handleAsserting ), std::end( handleAsserting ),
                        [&]( std::string_view part ) {
                            return recipe.name.find( part ) != std::string_view::npos;
                        } );
}

bool keepsLock( const Recipe & recipe ) { return contains( lockKeeping, recipe.name ); }

const Recipe & outputOf( const Recipe & recipe ) {
    constexpr std::string_view oneLiners[] = { "programPacketTraceForL3DstLookupMiss",
                                               "programPacketTraceForL3HdrError",
                                               "programPacketTraceForTtlError" };
    return contains( oneLiners, recipe.name ) ? *findRecipe( "programMonTraceCpu" ) : recipe;
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
