#include "tools/recipes/Registry.h"

#include "Cairn/CairnLtHelper.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <initializer_list>
#include <type_traits>
#include <utility>

namespace Tool {

namespace {

using SharedState = Cairn::CairnCommonSmData::Ptr;

template <class T>
consteval ArgumentType argumentType() {
    if constexpr ( std::is_same_v<T, std::uint8_t> )
        return ArgumentType::uint8;
    else if constexpr ( std::is_same_v<T, std::uint16_t> )
        return ArgumentType::uint16;
    else if constexpr ( std::is_same_v<T, std::uint32_t> )
        return ArgumentType::uint32;
    else if constexpr ( std::is_same_v<T, bool> )
        return ArgumentType::boolean;
    else if constexpr ( std::is_same_v<T, const char *> )
        return ArgumentType::text;
    else {
        static_assert( std::is_same_v<T, CairnCentral::ChipInfo>, "a type without a spelling" );
        return ArgumentType::chip;
    }
}

template <class T>
consteval ResultType resultType() {
    if constexpr ( std::is_void_v<T> )
        return ResultType::none;
    else if constexpr ( std::is_same_v<T, bool> )
        return ResultType::boolean;
    else {
        static_assert( std::is_same_v<T, std::uint16_t>, "a result without a spelling" );
        return ResultType::uint16;
    }
}

// An argument as the recipe's parameter takes it.
template <class T>
T as( const Argument & argument ) {
    if constexpr ( std::is_same_v<T, bool> )
        return std::get<bool>( argument );
    else if constexpr ( std::is_same_v<T, const char *> )
        return std::get<std::string>( argument ).c_str();
    else if constexpr ( std::is_same_v<T, CairnCentral::ChipInfo> )
        return std::get<CairnCentral::ChipInfo>( argument );
    else
        return static_cast<T>( std::get<std::uint64_t>( argument ) );
}

// The properties of a recipe that follow from its type.
template <class Function, Function function>
struct Signature;

template <class R, class... Parameters, R ( *function )( Parameters... ) noexcept>
struct Signature<R ( * )( Parameters... ) noexcept, function> {
    static constexpr std::size_t count = sizeof...( Parameters );
    static constexpr ResultType result = resultType<R>();
    static constexpr bool takesSharedState = false;
    static constexpr std::array<ArgumentType, count> types{ argumentType<Parameters>()... };

    static Result invoke( std::span<const Argument> arguments, const SharedState & ) {
        return call( arguments, std::index_sequence_for<Parameters...>() );
    }

  private:
    template <std::size_t... i>
    static Result call( std::span<const Argument> arguments, std::index_sequence<i...> ) {
        if constexpr ( std::is_void_v<R> ) {
            function( as<Parameters>( arguments[i] )... );
            return {};
        } else {
            return function( as<Parameters>( arguments[i] )... );
        }
    }
};

template <void ( *function )( SharedState ) noexcept>
struct Signature<void ( * )( SharedState ) noexcept, function> {
    static constexpr std::size_t count = 0;
    static constexpr ResultType result = ResultType::none;
    static constexpr bool takesSharedState = true;
    static constexpr std::array<ArgumentType, 0> types{};

    static Result invoke( std::span<const Argument>, const SharedState & sharedState ) {
        function( sharedState );
        return {};
    }
};

// The name of a recipe as the compiler spells it: "... function = &Cairn::NAME]", with or without
// "&", and with more behind a ";" in some compilers.
template <auto function>
consteval std::string_view nameOf() {
    constexpr std::string_view scope = "Cairn::";
    std::string_view text = __PRETTY_FUNCTION__;
    text.remove_prefix( text.rfind( "function = " ) );
    text.remove_prefix( text.find( scope ) + scope.size() );
    return text.substr( 0, text.find_first_of( "];(" ) );
}

// The properties of a recipe that do not follow from its signature.
struct Words {
    std::string_view summary;
    std::string_view preparedBy = {};
    bool needsModule = false;
    std::string_view sharedStateName = "smData";
};

// One row of the table. `given` names the parameters in the order of the signature and gives their
// samples; a row that has too few or too many does not compile.
template <auto function>
consteval Recipe recipe( std::string_view family, const Words & words,
                         std::initializer_list<Parameter> given = {} ) {
    using S = Signature<decltype( function ), function>;
    static_assert( S::count <= Recipe::maxParameters );
    if ( given.size() != S::count )
        throw "name each parameter of the signature";
    Recipe row;
    row.name = nameOf<function>();
    row.family = family;
    row.summary = words.summary;
    row.preparedBy = words.preparedBy;
    row.invoke = S::invoke;
    row.result = S::result;
    row.takesSharedState = S::takesSharedState;
    row.sharedStateName = words.sharedStateName;
    row.needsModule = words.needsModule;
    for ( const Parameter & parameter : given ) {
        row.parameterList[row.parameterCount] = parameter;
        row.parameterList[row.parameterCount].type = S::types[row.parameterCount];
        ++row.parameterCount;
    }
    return row;
}

constexpr std::string_view portBringUp = "Port bring-up";
constexpr std::string_view systemPorts = "System ports and destinations";
constexpr std::string_view vxlan = "VXLAN controls";
constexpr std::string_view tunnelEcn = "Tunnel ECN maps";
constexpr std::string_view opaqueTags = "Opaque tags";
constexpr std::string_view strengths = "Forwarding strength profiles";
constexpr std::string_view learnCache = "Learn cache";
constexpr std::string_view monitor = "Monitor trace and drop events";
constexpr std::string_view seeds = "Load-balance random seeds";
constexpr std::string_view controls = "Register and memory controls";
constexpr std::string_view vlanMiss = "VLAN translation miss policy";

constexpr Parameter unit{ .name = "unit", .sample = "" };

constexpr std::array table = {
    recipe<&Cairn::cpuPortInit>( portBringUp, { "Inserts the CPU ports into the port tables." } ),
    recipe<&Cairn::lbPortInit>(
        portBringUp, { "Inserts the internal recirculation ports into the port tables." } ),

    recipe<&Cairn::programL2IfIngSystemPortTable>(
        systemPorts,
        { "Maps a system port to the L2 ingress interface on which its "
          "packets arrive (op true), or removes the mapping (op false)." },
        { { "chipInfo", "" },
          unit,
          { "modId", "1" },
          { "port", "5" },
          { "maxPorts", "128" },
          { "l2If", "77" },
          { "op", "true" } } ),
    recipe<&Cairn::verifyL2IfIngSystemPortTable>( systemPorts,
                                                  { "Says whether a system port is mapped to this "
                                                    "L2 ingress interface (op true), or not mapped "
                                                    "at all (op false).",
                                                    "programL2IfIngSystemPortTable" },
                                                  { { "chipInfo", "" },
                                                    unit,
                                                    { "modId", "1" },
                                                    { "port", "5" },
                                                    { "maxPorts", "128" },
                                                    { "l2If", "77" },
                                                    { "op", "true" } } ),
    recipe<&Cairn::programL2EifSystemDestinationTable>(
        systemPorts,
        { "Maps an L2 egress interface to the trunk (lag true) or the system port (lag false) its "
          "packets go to (op true), or removes the mapping (op false)." },
        { { "chipInfo", "" },
          unit,
          { "modId", "1" },
          { "portOrLagId", "5" },
          { "maxPorts", "128" },
          { "l2If", "77" },
          { "lag", "false" },
          { "op", "true" } } ),
    recipe<&Cairn::verifyL2EifSystemDestinationTable>(
        systemPorts,
        { "Says whether an L2 egress interface is mapped to this trunk "
          "or system port (op true), or not mapped at all (op false).",
          "programL2EifSystemDestinationTable" },
        { { "chipInfo", "" },
          unit,
          { "modId", "1" },
          { "portOrLagId", "5" },
          { "maxPorts", "128" },
          { "l2If", "77" },
          { "lag", "false" },
          { "op", "true" } } ),

    recipe<&Cairn::setVxlanDefaultNetworkSvp>(
        vxlan, { "Sets the default network source virtual port." }, { unit, { "svp", "100" } } ),
    recipe<&Cairn::setT4XVxlanDefaultNetworkSvp>(
        vxlan, { "Sets the default network source virtual port of T4X chips to 1." }, { unit } ),
    recipe<&Cairn::setVxlanUdpSourcePortSel>(
        vxlan, { "Makes the hash entropy the UDP source port of VXLAN packets." },
        { unit, { "ignored", "0" } } ),
    recipe<&Cairn::setVxlanDecapAdaptLookup>(
        vxlan, { "Switches the adapt look-up of VXLAN decapsulation on or off for one port." },
        { unit, { "port", "5" }, { "enable", "true" } } ),
    recipe<&Cairn::getVxlanDecapAdaptLookup>(
        vxlan, { "Says whether the adapt look-up of VXLAN decapsulation is on for a port." },
        { unit, { "port", "5" } } ),

    recipe<&Cairn::setEgrTunnelEcnEncap>(
        tunnelEcn, { "Sets the outer-header ECN of a row of the egress encapsulation map." },
        { unit, { "index", "5" }, { "outerEcn", "2" } } ),
    recipe<&Cairn::setIngTunnelEcnDecap>(
        tunnelEcn,
        { "Sets the inner-header ECN of a row of the ingress "
          "decapsulation map, and whether the inner header is changed." },
        { unit, { "index", "5" }, { "innerEcn", "1" }, { "changeEcn", "true" } } ),

    recipe<&Cairn::setOpaqueTagIngress>( opaqueTags,
                                         { "Sets up the ingress parser of the outer opaque tag." },
                                         { unit, { "tagType", "3" } } ),
    recipe<&Cairn::getOpaqueTagIngress>(
        opaqueTags,
        { "Checks the ingress parser of the outer opaque tag and reads its ethertype.",
          "setOpaqueTagIngress" },
        { unit, { "tagType", "3" } } ),
    recipe<&Cairn::setOpaqueTagEgress>(
        opaqueTags, { "Sets up the egress parser of the outer opaque tag." }, { unit } ),
    recipe<&Cairn::getOpaqueTagEgress>(
        opaqueTags,
        { "Checks the egress parser of the outer opaque tag and reads its ethertype.",
          "setOpaqueTagEgress" },
        { unit } ),
    recipe<&Cairn::setOpaqueTagEgressEfp>(
        opaqueTags, { "Sets up the egress field processor's parser of the outer opaque tag." },
        { unit } ),
    recipe<&Cairn::getOpaqueTagEgressEfp>( opaqueTags,
                                           { "Checks the egress field processor's parser of the "
                                             "outer opaque tag and reads its ethertype.",
                                             "setOpaqueTagEgressEfp" },
                                           { unit } ),
    recipe<&Cairn::setInnerOpaqueTagIngress>(
        opaqueTags, { "Sets up the ingress parser of the inner opaque tag." }, { unit } ),
    recipe<&Cairn::getInnerOpaqueTagIngress>(
        opaqueTags,
        { "Checks the ingress parser of the inner opaque tag and reads its ethertype.",
          "setInnerOpaqueTagIngress" },
        { unit } ),
    recipe<&Cairn::setInnerOpaqueTagEgress>(
        opaqueTags, { "Sets up the egress parser of the inner opaque tag." }, { unit } ),
    recipe<&Cairn::getInnerOpaqueTagEgress>(
        opaqueTags,
        { "Checks the egress parser of the inner opaque tag and reads its ethertype.",
          "setInnerOpaqueTagEgress" },
        { unit } ),
    recipe<&Cairn::setInnerOpaqueTagEgressEpmod>(
        opaqueTags, { "Sets the ethertype of the egress packet modifier's opaque tag." },
        { unit } ),
    recipe<&Cairn::getInnerOpaqueTagEgressEpmod>(
        opaqueTags,
        { "Reads the ethertype of the egress packet modifier's opaque tag.",
          "setInnerOpaqueTagEgressEpmod" },
        { unit } ),

    recipe<&Cairn::setDefip128StrengthProfile>(
        strengths, { "Inserts the strength profile of IPv6 /128 routes." }, { unit } ),
    recipe<&Cairn::setL3TnlOverlayEgrL3Oif1StrengthProfile>(
        strengths, { "Inserts the overlay tunnels' strength profile of the egress L3 interface." },
        { unit } ),
    recipe<&Cairn::setL3TnlOverlayNhStrengthProfile>(
        strengths, { "Inserts the overlay tunnels' strength profile of the ingress next hop." },
        { unit } ),
    recipe<&Cairn::setL3TnlOverlayEgrIpTnlStrengthProfile>(
        strengths, { "Inserts the overlay tunnels' strength profile of the egress IP tunnel." },
        { unit } ),
    recipe<&Cairn::setL3TnlUnderlayIngNhStrengthProfile>(
        strengths, { "Inserts the underlay tunnels' strength profile of the ingress next hop." },
        { unit } ),
    recipe<&Cairn::setMcastV6StrengthProfile>(
        strengths,
        { .summary =
              "Inserts the two strength profiles of IPv6 multicast, unless the chip runs the "
              "KOVA profile.",
          .needsModule = true,
          .sharedStateName = "sm" } ),

    recipe<&Cairn::setLearnCacheEnabled>( learnCache,
                                          { "Switches the learn cache on or off for L2 learning." },
                                          { unit, { "enable", "true" } } ),
    recipe<&Cairn::setLearnCacheDropEnabled>(
        learnCache, { "Switches the learn cache on or off for dropped L2 destinations." },
        { unit, { "enable", "true" } } ),

    recipe<&Cairn::programMonTraceCpu>(
        monitor, { "Sends packets that raise an ingress trace event to the CPU." },
        { unit, { "errorType", "L3_URPF_FAIL" } } ),
    recipe<&Cairn::programPacketTraceForL3DstLookupMiss>(
        monitor, { "Sends packets whose L3 destination is not found to the CPU." }, { unit } ),
    recipe<&Cairn::programPacketTraceForL3HdrError>(
        monitor, { "Sends packets with a bad L3 header to the CPU." }, { unit } ),
    recipe<&Cairn::programPacketTraceForTtlError>(
        monitor, { "Sends packets whose time to live ran out to the CPU." }, { unit } ),
    recipe<&Cairn::programPacketDropForMtuError>(
        monitor, { "Sends packets that fail the MTU check to the CPU, not to loopback." },
        { unit } ),

    recipe<&Cairn::setLoadBalanceRandSeedCtrl>(
        seeds, { "Writes the LAG random seed into the three control registers." },
        { unit, { "seed", "12345" } } ),
    recipe<&Cairn::setLoadBalanceRandSeedMem>(
        seeds, { "Writes the LAG random seed into the three seed memories." },
        { unit, { "seed", "12345" } } ),

    recipe<&Cairn::mmuSpecialConfigInitPipe>(
        controls, { "Sets the queue scheduler's special configuration of one data pipe." },
        { unit, { "data_pipe", "0" }, { "disableThdoInfo", "true" } } ),
    recipe<&Cairn::resetIngEnEfilterBitMap>(
        controls, { "Clears the first bits of the ingress egress-filter enable bitmap." },
        { unit,
          { .name = "bitMapBits",
            .sample = "256",
            .limit = 4096,
            .limitReason = "the recipe has that many zeros to hand over" } } ),
    recipe<&Cairn::setEmRobustHashDisable>(
        controls, { "Switches robust hashing off in the exact-match memories the chip has." },
        { unit } ),
    recipe<&Cairn::setFlexctrIngressCounterActionEnable>(
        controls, { "Enables all ingress flex-counter actions but action 0." }, { unit } ),
    recipe<&Cairn::setFlexctrEgressCounterActionEnable>(
        controls, { "Enables all egress flex-counter actions but action 0." }, { unit } ),
    recipe<&Cairn::enable1BitEccRpt>(
        controls, { "Switches the reporting of single-bit ECC errors on or off for one table." },
        { unit, { "mem", "EGR_TUNNEL_ECN_ENCAPm" }, { "enable", "true" } } ),

    recipe<&Cairn::setVlanXlateMissDrop>(
        vlanMiss, { .summary = "Sets the policy for packets whose VLAN translation misses.",
                    .needsModule = true,
                    .sharedStateName = "sm" } ),
};

} // namespace

std::string_view spelling( ArgumentType type ) {
    switch ( type ) {
    case ArgumentType::uint8:
        return "uint8_t";
    case ArgumentType::uint16:
        return "uint16_t";
    case ArgumentType::uint32:
        return "uint32_t";
    case ArgumentType::boolean:
        return "bool";
    case ArgumentType::text:
        return "const char *";
    case ArgumentType::chip:
        return "ChipInfo";
    }
    return "";
}

std::uint64_t largest( ArgumentType type ) {
    switch ( type ) {
    case ArgumentType::uint8:
        return std::numeric_limits<std::uint8_t>::max();
    case ArgumentType::uint16:
        return std::numeric_limits<std::uint16_t>::max();
    default:
        return std::numeric_limits<std::uint32_t>::max();
    }
}

std::string_view spelling( ResultType type ) {
    switch ( type ) {
    case ResultType::none:
        return "void";
    case ResultType::boolean:
        return "bool";
    case ResultType::uint16:
        return "uint16_t";
    }
    return "";
}

std::span<const Recipe> recipes() { return table; }

const Recipe * findRecipe( std::string_view name ) {
    const auto found = std::find_if( table.begin(), table.end(),
                                     [&]( const Recipe & row ) { return row.name == name; } );
    return found == table.end() ? nullptr : &*found;
}

} // namespace Tool
