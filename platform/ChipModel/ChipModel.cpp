#include <ChipModel/BringupStage.h>
#include <ChipModel/CairnCommonSmData.h>
#include <ChipModel/ChipProfile.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <utility>
#include <vector>

namespace {

// What is kept for each chip. A handful of chips at most, so a list searched from the front; never
// destroyed, because agents may still ask while the process ends.
template <class Value>
class PerChip {
  public:
    /// What `ask` answers about the value of the chip, or a default answer.
    template <class Ask>
    auto ask( const CairnCentral::ChipInfo & chipInfo, const Ask & ask ) {
        const std::lock_guard lock( mutex_ );
        const auto found = find( chipInfo );
        return found == entries_.end() ? decltype( ask( found->second ) )() : ask( found->second );
    }

    template <class Change>
    void change( const CairnCentral::ChipInfo & chipInfo, const Change & change ) {
        const std::lock_guard lock( mutex_ );
        auto found = find( chipInfo );
        if ( found == entries_.end() )
            found = entries_.emplace( found, chipInfo, Value() );
        change( found->second );
    }

    void clear() {
        const std::lock_guard lock( mutex_ );
        entries_.clear();
    }

  private:
    auto find( const CairnCentral::ChipInfo & chipInfo ) {
        return std::find_if( entries_.begin(), entries_.end(), [&]( const auto & entry ) {
            return CairnCentral::ChipInfo::isEq( &entry.first, &chipInfo );
        } );
    }

    std::mutex mutex_;
    std::vector<std::pair<CairnCentral::ChipInfo, Value>> entries_;
};

using Profiles = PerChip<Nacre::Ptr<Asic::ChipProfile>>;
using BlockedStages = PerChip<std::vector<CairnCentral::BringupStage>>;

Profiles & profiles() {
    static auto & table = *new Profiles;
    return table;
}

BlockedStages & blockedStages() {
    static auto & table = *new BlockedStages;
    return table;
}

class StageTable final : public CairnCentral::BringupStageService {
  public:
    bool isBlocked( const CairnCentral::ChipInfo & chipInfo,
                    CairnCentral::BringupStage stage ) noexcept override {
        return blockedStages().ask( chipInfo, [stage]( const auto & stages ) {
            return std::find( stages.begin(), stages.end(), stage ) != stages.end();
        } );
    }
    bool isUnblocked( const CairnCentral::ChipInfo & chipInfo,
                      CairnCentral::BringupStage stage ) noexcept override {
        return !isBlocked( chipInfo, stage );
    }
};

class ProfileTable final : public CairnProfile::ChipProfileService {
  public:
    Nacre::Ptr<Asic::ChipProfile>
    activeChipProfile( const CairnCentral::ChipInfo & chipInfo ) noexcept override {
        return profiles().ask( chipInfo, []( const auto & profile ) { return profile; } );
    }
};

StageTable stageTable;
ProfileTable profileTable;
std::atomic<CairnProfile::ChipProfileService *> profileService{ nullptr };
std::atomic<CairnCentral::BringupStageService *> stageService{ nullptr };

CairnCentral::BringupStageService & currentStageService() noexcept {
    auto * const service = stageService.load( std::memory_order_acquire );
    return service != nullptr ? *service : stageTable;
}

} // namespace

namespace CairnCentral {

std::string ChipInfo::toString() const {
    return std::string( name_.view() ) + "(" + std::to_string( first_ ) + "," +
           std::to_string( second_ ) + "," + std::to_string( third_ ) + ")";
}

bool ChipInfo::isEq( const void * a, const void * b ) noexcept {
    const auto & one = *static_cast<const ChipInfo *>( a );
    const auto & other = *static_cast<const ChipInfo *>( b );
    return one.name_ == other.name_ && one.first_ == other.first_ && one.second_ == other.second_ &&
           one.third_ == other.third_;
}

// The local model has nothing to add to what construction set.
void ChipInfo::doInit() {}

bool isBlocked( const ChipInfo & chipInfo, BringupStage stage ) noexcept {
    return currentStageService().isBlocked( chipInfo, stage );
}

bool isUnblocked( const ChipInfo & chipInfo, BringupStage stage ) noexcept {
    return currentStageService().isUnblocked( chipInfo, stage );
}

BringupStageService * setBringupStageService( BringupStageService * service ) noexcept {
    return stageService.exchange( service, std::memory_order_acq_rel );
}

void setStageBlocked( const ChipInfo & chipInfo, BringupStage stage, bool blocked ) {
    blockedStages().change( chipInfo, [&]( std::vector<BringupStage> & stages ) {
        std::erase( stages, stage );
        if ( blocked )
            stages.push_back( stage );
    } );
}

void clearBlockedStages() { blockedStages().clear(); }

CairnChipAttributes::~CairnChipAttributes() = default;

} // namespace CairnCentral

namespace Asic {

Feature::~Feature() = default;
ChipProfile::~ChipProfile() = default;

void ChipProfile::addFeature( const Nacre::Ptr<Feature> & feature ) {
    features_[feature->kilnType()] = feature;
}

Nacre::Ptr<Feature> ChipProfile::kilnTypeFeature( const std::type_info & type ) const noexcept {
    const auto found = features_.find( type );
    return found == features_.end() ? nullptr : found->second;
}

} // namespace Asic

namespace CairnCommon {

CairnCommonFeatureAttributes::~CairnCommonFeatureAttributes() = default;

std::int32_t CairnCommonFeatureAttributes::sysportFromModport( std::uint16_t modId,
                                                               std::uint16_t port,
                                                               std::uint32_t /*maxPorts*/ ) const {
    const std::uint32_t portMask = ( 1u << portBits_ ) - 1;
    return static_cast<std::int32_t>( std::uint32_t( modId ) << portBits_ | ( port & portMask ) );
}

} // namespace CairnCommon

namespace CairnProfile {

Nacre::Ptr<Asic::ChipProfile> activeChipProfile( const CairnCentral::ChipInfo & chipInfo ) {
    auto * const service = profileService.load( std::memory_order_acquire );
    return service != nullptr ? service->activeChipProfile( chipInfo )
                              : profileTable.activeChipProfile( chipInfo );
}

ChipProfileService * setChipProfileService( ChipProfileService * service ) noexcept {
    return profileService.exchange( service, std::memory_order_acq_rel );
}

void setActiveChipProfile( const CairnCentral::ChipInfo & chipInfo,
                           Nacre::Ptr<Asic::ChipProfile> profile ) {
    profiles().change( chipInfo, [&]( auto & slot ) { slot = std::move( profile ); } );
}

void clearActiveChipProfiles() { profiles().clear(); }

} // namespace CairnProfile

namespace Cairn {

CairnCommonSmData::~CairnCommonSmData() = default;

} // namespace Cairn
