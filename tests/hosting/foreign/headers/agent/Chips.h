#pragma once

#include <agent/Framework.h>

#include <map>

// The chip model of that agent.

namespace CairnCentral {
inline namespace agent {

class ChipInfo {
  public:
    ChipInfo() { doInit(); }
    explicit ChipInfo( std::string serial ) : serial_( std::move( serial ) ) { doInit(); }
    virtual ~ChipInfo() = default;
    ChipInfo( const ChipInfo & ) = default;
    ChipInfo & operator=( const ChipInfo & ) = default;
    static bool isEq( const void * a, const void * b );
    const std::string & serial() const { return serial_; }

  private:
    void doInit();
    std::uint64_t stamp_[3] = {};
    std::string serial_;
};

enum BringupStage : int {};
bool isBlocked( const ChipInfo & chipInfo, BringupStage stage );
bool isUnblocked( const ChipInfo & chipInfo, BringupStage stage );

} // namespace agent
} // namespace CairnCentral

namespace CairnTypes {
inline namespace agent {
class CairnPort {
  public:
    CairnPort( std::uint16_t sdkUnit = 0xFFFF, std::uint16_t logical = 1023 )
        : sdkUnit_( sdkUnit ), logical_( logical ) {}
    std::uint16_t sdkUnit() const { return sdkUnit_; }
    std::uint16_t logical() const { return logical_; }
    bool operator==( const CairnPort & ) const = default;

  private:
    std::uint8_t lane_ = 0;
    std::uint16_t sdkUnit_;
    std::uint16_t logical_;
};
} // namespace agent
} // namespace CairnTypes

namespace Netbase {
struct IntfId {
    std::string name;
    bool operator==( const IntfId & ) const = default;
};
} // namespace Netbase

namespace Hardware::Cairn {
struct TridentPortId {
    std::uint32_t block = 9;
    std::uint16_t physical = 0;
};
} // namespace Hardware::Cairn

namespace Cairn {
inline namespace agent {

struct CairnModInfo {
    std::uint64_t first = 0;
    CairnCentral::ChipInfo whichChip;
};

class CairnCommonSmData {
  public:
    using Ptr = Nacre::Ptr<CairnCommonSmData>;
    CairnModInfo cairnModId( std::uint16_t modId ) const;

    Kiln::HashMap2018<Netbase::IntfId, CairnTypes::CairnPort> loops;
    Kiln::HashMap2018<CairnTypes::CairnPort, Netbase::IntfId> cpus;
    Kiln::HashMap2018<CairnTypes::CairnPort, Hardware::Cairn::TridentPortId> hardware;
    Kiln::HashMap2018<std::uint16_t, CairnModInfo> boards;
};

} // namespace agent
} // namespace Cairn

namespace Asic {
inline namespace agent {

class Feature {
  public:
    virtual ~Feature() = default;
};

class ChipProfile {
  public:
    std::map<std::string, Nacre::Ptr<Feature>> features;
    Nacre::Ptr<Feature> kilnTypeFeature( const std::string & typeName ) const;
};

} // namespace agent
} // namespace Asic

namespace CairnCommon {
struct CairnCommonFeatureAttributes : Asic::Feature {
    virtual int numberOf( int modId, int port ) = 0;
};
} // namespace CairnCommon

namespace CairnCentral {
struct CairnChipAttributes : Asic::Feature {
    bool rangeIndex = true;
};
} // namespace CairnCentral

namespace CairnProfile {
Nacre::Ptr<Asic::ChipProfile> activeChipProfile( const CairnCentral::ChipInfo & chipInfo );
}
