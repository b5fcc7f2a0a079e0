#pragma once

#include <ChipModel/ChipInfo.h>
#include <Kiln/HashMap2018.h>
#include <Nacre/Ptr.h>

#include <cstdint>
#include <functional>

// The agent's shared state, as far as recipes read it. The host fills the maps; recipes only read
// them. Guarded by the activity lock.

namespace CairnTypes {

/// A port of a chip. The default stands for "no such port".
struct CairnPort {
    std::uint16_t slot = 0xDEAD; ///< not read by recipes
    std::uint16_t unit = 0xFFFF; ///< SDK unit
    std::uint16_t portId = 1023; ///< logical port
    std::uint8_t lane = 0;       ///< not read by recipes

    friend bool operator==( const CairnPort &, const CairnPort & ) noexcept = default;
};

} // namespace CairnTypes

namespace Netbase {

/// An interface of the switch, by number.
struct IntfId {
    std::uint32_t number = 0;

    friend bool operator==( const IntfId &, const IntfId & ) noexcept = default;
};

} // namespace Netbase

namespace Hardware::Cairn {

/// A physical port of a chip. The default is what a port without hardware is programmed with.
struct TridentPortId {
    std::uint16_t phyPortId = 0;
};

} // namespace Hardware::Cairn

template <>
struct std::hash<CairnTypes::CairnPort> {
    size_t operator()( const CairnTypes::CairnPort & port ) const noexcept {
        return std::hash<std::uint64_t>()( std::uint64_t( port.slot ) << 40 |
                                           std::uint64_t( port.unit ) << 24 |
                                           std::uint64_t( port.portId ) << 8 | port.lane );
    }
};

template <>
struct std::hash<Netbase::IntfId> {
    size_t operator()( const Netbase::IntfId & intf ) const noexcept {
        return std::hash<std::uint32_t>()( intf.number );
    }
};

namespace Cairn {

/// What is known of a module.
struct CairnModInfo {
    Nacre::Impl::StrB name;
    CairnCentral::ChipInfo chip;
    std::uint64_t first = 0;
    std::uint32_t second = 0;
    std::uint16_t third = 64;
    std::uint16_t fourth = 512;
    std::uint8_t fifth = 128;
};

class CairnCommonSmData : public Nacre::PtrInterface {
  public:
    using Ptr = Nacre::Ptr<CairnCommonSmData>;

    /// Modules by module id.
    struct HN_CairnModId {
        using Key = std::uint16_t;
        using Value = CairnModInfo;
    };
    /// CPU ports and their interfaces.
    struct HN_CairnCpuPortToIntf {
        using Key = CairnTypes::CairnPort;
        using Value = Netbase::IntfId;
    };
    /// Internal recirculation (loopback) interfaces and their ports.
    struct HN_CairnInternalRecircIntfToPort {
        using Key = Netbase::IntfId;
        using Value = CairnTypes::CairnPort;
    };
    /// Physical ports by port.
    struct HN_CairnPortToHwConfigPort {
        using Key = CairnTypes::CairnPort;
        using Value = Hardware::Cairn::TridentPortId;
    };

    ~CairnCommonSmData() override;

    Kiln::HashMap2018<HN_CairnModId> cairnModIds;
    Kiln::HashMap2018<HN_CairnCpuPortToIntf> cairnCpuPortToIntf;
    Kiln::HashMap2018<HN_CairnInternalRecircIntfToPort> cairnInternalRecircIntfToPort;
    Kiln::HashMap2018<HN_CairnPortToHwConfigPort> cairnPortToHwConfigPort;

    /// A copy of the record of module `modId`, or a default one. Defined in
    /// <CairnCommon/CairnCommonUtil.h>.
    inline CairnModInfo cairnModId( std::uint16_t modId ) const;
};

} // namespace Cairn
