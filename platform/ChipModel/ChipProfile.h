#pragma once

#include <ChipModel/ChipInfo.h>
#include <Nacre/Ptr.h>

#include <typeindex>
#include <unordered_map>

// Chip profiles: what kind of chip a chip is, as a set of features found by their type.

namespace Asic {

/// Base of everything a profile can hold.
class Feature : public Nacre::PtrInterface {
  public:
    ~Feature() override;
};

/// A set of features, at most one of each type.
class ChipProfile : public Nacre::PtrInterface {
  public:
    ~ChipProfile() override;

    /// Adds a feature under its dynamic type, in place of one of that type.
    void addFeature( const Nacre::Ptr<Feature> & feature );

    /// The feature of this type, or null.
    Nacre::Ptr<Feature> kilnTypeFeature( const std::type_info & type ) const noexcept;

    /// The same, cast to its type with a check.
    template <class T>
    Nacre::Ptr<T> feature() const noexcept {
        return Nacre::dynamicCast<T>( kilnTypeFeature( typeid( T ) ) );
    }

  private:
    std::unordered_map<std::type_index, Nacre::Ptr<Feature>> features_;
};

} // namespace Asic

namespace CairnCommon {

/// Chips that number their system ports in a way of their own: module and port side by side, with
/// `portBits` bits for the port.
class CairnCommonFeatureAttributes : public Asic::Feature {
  public:
    /// `portBits`: 1 to 16.
    explicit CairnCommonFeatureAttributes( uint32_t portBits ) : portBits_( portBits ) {}
    ~CairnCommonFeatureAttributes() override;

    /// The number of `port` on module `modId`. `maxPorts` is the number of ports a module has;
    /// chips of this kind do not need it.
    virtual int32_t sysportFromModport( uint16_t modId, uint16_t port, uint32_t maxPorts ) const;

  private:
    uint32_t portBits_;
};

} // namespace CairnCommon

namespace CairnCentral {

/// Properties of a chip that recipes ask for.
class CairnChipAttributes : public Asic::Feature {
  public:
    explicit CairnChipAttributes( bool hasRangeTableIndex )
        : hasRangeTableIndex_( hasRangeTableIndex ) {}
    ~CairnChipAttributes() override;

    /// Whether the ingress system-port table of this chip has a range-table index.
    bool hasRangeTableIndex() const noexcept { return hasRangeTableIndex_; }

  private:
    bool hasRangeTableIndex_;
};

} // namespace CairnCentral

namespace CairnProfile {

/// The profile of a chip, or null if it has none.
Nacre::Ptr<Asic::ChipProfile> activeChipProfile( const CairnCentral::ChipInfo & chipInfo );

/// Gives a chip its profile; null takes it away.
void setActiveChipProfile( const CairnCentral::ChipInfo & chipInfo,
                           Nacre::Ptr<Asic::ChipProfile> profile );

/// Takes the profiles of all chips away.
void clearActiveChipProfiles();

} // namespace CairnProfile
