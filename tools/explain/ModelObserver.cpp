#include "tools/explain/ModelObserver.h"

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <utility>

namespace Tool {

namespace {

using What = ModelQuestion::What;

class ObservedAttributes final : public CairnCentral::CairnChipAttributes {
  public:
    ObservedAttributes( bool hasRangeTableIndex, std::string chip, Observer & observer )
        : CairnChipAttributes( hasRangeTableIndex ), chip_( std::move( chip ) ),
          observer_( observer ) {}

    bool hasRangeTableIndex() const noexcept override {
        const bool answer = CairnChipAttributes::hasRangeTableIndex();
        observer_.note( ModelQuestion{
            .what = What::hasRangeTableIndex, .chip = chip_, .answer = answer ? 1 : 0 } );
        return answer;
    }

  private:
    std::string chip_;
    Observer & observer_;
};

class ObservedNumbering final : public CairnCommon::CairnCommonFeatureAttributes {
  public:
    ObservedNumbering( std::uint32_t portBits, std::string chip, Observer & observer )
        : CairnCommonFeatureAttributes( portBits ), chip_( std::move( chip ) ),
          observer_( observer ) {}

    std::int32_t sysportFromModport( std::uint16_t modId, std::uint16_t port,
                                     std::uint32_t maxPorts ) const override {
        const std::int32_t answer =
            CairnCommonFeatureAttributes::sysportFromModport( modId, port, maxPorts );
        observer_.note( ModelQuestion{ .what = What::sysportFromModport,
                                       .chip = chip_,
                                       .modId = modId,
                                       .port = port,
                                       .maxPorts = maxPorts,
                                       .answer = answer } );
        return answer;
    }

  private:
    std::string chip_;
    Observer & observer_;
};

class ObservedProfile final : public Asic::ChipProfile {
  public:
    ObservedProfile( const ChipDescription & chip, Observer & observer )
        : chip_( chip.name() ), observer_( observer ) {
        if ( chip.profile->systemPortBits )
            addFeature(
                Nacre::make<ObservedNumbering>( *chip.profile->systemPortBits, chip_, observer ) );
        if ( chip.profile->hasRangeTableIndex )
            addFeature( Nacre::make<ObservedAttributes>( *chip.profile->hasRangeTableIndex, chip_,
                                                         observer ) );
    }

    Nacre::Ptr<Asic::Feature>
    kilnTypeFeature( const std::type_info & type ) const noexcept override {
        auto feature = ChipProfile::kilnTypeFeature( type );
        const bool isNumbering = type == typeid( CairnCommon::CairnCommonFeatureAttributes );
        observer_.note( ModelQuestion{ .what = What::kilnTypeFeature,
                                       .chip = chip_,
                                       .feature = isNumbering ? "CairnCommonFeatureAttributes"
                                                              : "CairnChipAttributes",
                                       .answer = feature ? 1 : 0 } );
        return feature;
    }

  private:
    std::string chip_;
    Observer & observer_;
};

std::string nameOf( const CairnCentral::ChipInfo & chip ) {
    return std::string( chip.name().view() );
}

} // namespace

ModelObserver::ModelObserver( const Model & model, Observer & observer )
    : model_( model ), observer_( observer ) {
    for ( const ChipDescription & chip : model.chips ) {
        if ( chip.profile )
            profiles_[chip.name()] = Nacre::make<ObservedProfile>( chip, observer );
    }
    CairnCentral::setBringupStageService( this );
    CairnProfile::setChipProfileService( this );
}

ModelObserver::~ModelObserver() {
    CairnProfile::setChipProfileService( nullptr );
    CairnCentral::setBringupStageService( nullptr );
}

bool ModelObserver::isBlocked( const CairnCentral::ChipInfo & chip,
                               CairnCentral::BringupStage stage ) noexcept {
    const bool answer = isBlockedInModel( chip, stage );
    observer_.note( ModelQuestion{ .what = What::isBlocked,
                                   .chip = nameOf( chip ),
                                   .stage = static_cast<std::uint32_t>( stage ),
                                   .answer = answer ? 1 : 0 } );
    return answer;
}

bool ModelObserver::isUnblocked( const CairnCentral::ChipInfo & chip,
                                 CairnCentral::BringupStage stage ) noexcept {
    const bool answer = !isBlockedInModel( chip, stage );
    observer_.note( ModelQuestion{ .what = What::isUnblocked,
                                   .chip = nameOf( chip ),
                                   .stage = static_cast<std::uint32_t>( stage ),
                                   .answer = answer ? 1 : 0 } );
    return answer;
}

Nacre::Ptr<Asic::ChipProfile>
ModelObserver::activeChipProfile( const CairnCentral::ChipInfo & chip ) noexcept {
    const auto found = profiles_.find( nameOf( chip ) );
    auto profile = found == profiles_.end() ? nullptr : found->second;
    observer_.note( ModelQuestion{
        .what = What::activeChipProfile, .chip = nameOf( chip ), .answer = profile ? 1 : 0 } );
    return profile;
}

bool ModelObserver::isBlockedInModel( const CairnCentral::ChipInfo & chip,
                                      CairnCentral::BringupStage stage ) const {
    const ChipDescription * description = model_.findChip( chip.name().view() );
    return description != nullptr &&
           std::any_of(
               description->blockedStages.begin(), description->blockedStages.end(),
               [&]( std::uint32_t each ) { return CairnCentral::BringupStage( each ) == stage; } );
}

} // namespace Tool
