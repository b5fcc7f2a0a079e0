#pragma once

#include <ChipModel/ChipInfo.h>
#include <Nacre/Ptr.h>

#include <typeindex>
#include <typeinfo>
#include <unordered_map>

// Chip profiles: what kind of chip a chip is, as a set of features found by their type.

namespace Asic {

/// Base of everything a profile can hold.
class Feature : public Nacre::PtrInterface {
  public:
    ~Feature() override;

    /// The type under which a profile keeps this and recipes look it up. Of a class of its own it is
    /// that class; a feature that hosts may derive from names itself, and its subclasses inherit that.
    virtual const std::type_info & kilnType() const noexcept { return typeid( *this ); }
};

/// A set of features, at most one of each type. Open to a host's subclasses.
class ChipProfile : public Nacre::PtrInterface {
  public:
    ~ChipProfile() override;

    /// Adds a feature under its kilnType(), in place of one of that type.
    void addFeature( const Nacre::Ptr<Feature> & feature );

    /// The feature of this type, or null. CairnCentral::FeatureOf (<CairnCommon/CairnCommonUtil.h>)
    /// casts it down.
    virtual Nacre::Ptr<Feature> kilnTypeFeature( const std::type_info & type ) const noexcept;

  private:
    std::unordered_map<std::type_index, Nacre::Ptr<Feature>> features_;
};

} // namespace Asic

namespace CairnCommon {

/// Chips that number their system ports in a way of their own: module and port side by side, with
/// `portBits` bits for the port. A host with another numbering overrides sysportFromModport().
class CairnCommonFeatureAttributes : public Asic::Feature {
  public:
    /// `portBits`: 1 to 16.
    explicit CairnCommonFeatureAttributes( std::uint32_t portBits ) : portBits_( portBits ) {}
    ~CairnCommonFeatureAttributes() override;

    const std::type_info & kilnType() const noexcept override {
        return typeid( CairnCommonFeatureAttributes );
    }

    /// The number of `port` on module `modId`. `maxPorts` is the number of ports a module has;
    /// chips of this kind do not need it.
    virtual std::int32_t sysportFromModport( std::uint16_t modId, std::uint16_t port,
                                             std::uint32_t maxPorts ) const;

  private:
    std::uint32_t portBits_;
};

} // namespace CairnCommon

namespace CairnCentral {

/// Properties of a chip that recipes ask for. Open to a host's subclasses.
class CairnChipAttributes : public Asic::Feature {
  public:
    explicit CairnChipAttributes( bool hasRangeTableIndex )
        : hasRangeTableIndex_( hasRangeTableIndex ) {}
    ~CairnChipAttributes() override;

    const std::type_info & kilnType() const noexcept override {
        return typeid( CairnChipAttributes );
    }

    /// Whether the ingress system-port table of this chip has a range-table index.
    virtual bool hasRangeTableIndex() const noexcept { return hasRangeTableIndex_; }

  private:
    bool hasRangeTableIndex_;
};

} // namespace CairnCentral

namespace CairnProfile {

/// The profile of a chip, or null if it has none.
Nacre::Ptr<Asic::ChipProfile> activeChipProfile( const CairnCentral::ChipInfo & chipInfo );

/// Who answers the question. Called on the asking thread, with the activity lock held.
class ChipProfileService {
  public:
    virtual Nacre::Ptr<Asic::ChipProfile>
    activeChipProfile( const CairnCentral::ChipInfo & chipInfo ) noexcept = 0;

  protected:
    ~ChipProfileService() = default;
};

/// Makes `service` answer from now on; null brings back the table of setActiveChipProfile(). The
/// object stays the host's. Returns the one that was set before, or null.
ChipProfileService * setChipProfileService( ChipProfileService * service ) noexcept;

/// The start service is a table: gives a chip its profile there; null takes it away.
void setActiveChipProfile( const CairnCentral::ChipInfo & chipInfo,
                           Nacre::Ptr<Asic::ChipProfile> profile );

/// Empties the table.
void clearActiveChipProfiles();

} // namespace CairnProfile
