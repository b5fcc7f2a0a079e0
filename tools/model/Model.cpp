#include "tools/model/Model.h"

#include "sim/Chip.h"

#include <ChipModel/BringupStage.h>
#include <ChipModel/ChipProfile.h>
#include <Nacre/DebugAssert.h>

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace Tool {

namespace {

CairnTypes::CairnPort portOf( int unit, uint16_t portId ) {
    return { .slot = 0, .unit = static_cast<uint16_t>( unit ), .portId = portId, .lane = 0 };
}

} // namespace

const ChipDescription * Model::findChip( std::string_view name ) const {
    const auto found = std::find_if( chips.begin(), chips.end(), [&]( const auto & chip ) {
        return chip.info.name().view() == name;
    } );
    return found == chips.end() ? nullptr : &*found;
}

const ChipDescription * Model::findUnit( uint64_t unit ) const {
    const auto found = std::find_if( chips.begin(), chips.end(), [&]( const auto & chip ) {
        return static_cast<uint64_t>( chip.unit ) == unit;
    } );
    return found == chips.end() ? nullptr : &*found;
}

ChipDescription defaultChip( int unit, Sim::Schema schema, std::string source ) {
    ChipDescription chip;
    chip.info = CairnCentral::ChipInfo( std::string_view( fmt::format( "chip{}", unit ) ),
                                        static_cast<uint32_t>( unit ), 0, 0 );
    chip.unit = unit;
    chip.schema = std::move( schema );
    chip.source = std::move( source );
    chip.profile = ChipDescription::Profile{ .systemPortBits = {}, .hasRangeTableIndex = false };
    return chip;
}

Model defaultModel( std::vector<ChipDescription> chips ) {
    constexpr uint32_t vlanPolicyStage = 106;
    constexpr uint16_t cpuPort = 0;
    constexpr uint16_t recirculationPort = 66;
    constexpr uint16_t recirculationHardwarePort = 258;

    Model model;
    for ( ChipDescription & chip : chips ) {
        const auto unit = static_cast<uint32_t>( chip.unit );
        chip.blockedStages.push_back( vlanPolicyStage );
        Cairn::CairnModInfo info;
        info.name = std::string_view( fmt::format( "module{}", unit ) );
        info.chip = chip.info;
        model.modules.push_back( { static_cast<uint16_t>( unit ), std::move( info ) } );
        model.cpuPorts.push_back( { portOf( chip.unit, cpuPort ), { 1 + 2 * unit } } );
        const CairnTypes::CairnPort loopback = portOf( chip.unit, recirculationPort );
        model.recirculationPorts.push_back( { { 2 + 2 * unit }, loopback } );
        model.hardwarePorts.push_back( { loopback, { recirculationHardwarePort } } );
    }
    model.chips = std::move( chips );
    return model;
}

Cairn::CairnCommonSmData::Ptr applyModel( const Model & model ) {
    CairnProfile::clearActiveChipProfiles();
    CairnCentral::clearBlockedStages();
    Nacre::setDebugAssertStops( model.debugAssertStops );
    for ( const ChipDescription & chip : model.chips ) {
        for ( const uint32_t stage : chip.blockedStages )
            CairnCentral::setStageBlocked( chip.info, CairnCentral::BringupStage( stage ), true );
        if ( !chip.profile )
            continue;
        const auto profile = Nacre::make<Asic::ChipProfile>();
        if ( chip.profile->systemPortBits )
            profile->addFeature( Nacre::make<CairnCommon::CairnCommonFeatureAttributes>(
                *chip.profile->systemPortBits ) );
        if ( chip.profile->hasRangeTableIndex )
            profile->addFeature( Nacre::make<CairnCentral::CairnChipAttributes>(
                *chip.profile->hasRangeTableIndex ) );
        CairnProfile::setActiveChipProfile( chip.info, profile );
    }

    auto state = Nacre::make<Cairn::CairnCommonSmData>();
    for ( const ModuleDescription & module : model.modules )
        state->cairnModIds.set( module.id, module.info );
    for ( const CpuPortDescription & cpu : model.cpuPorts )
        state->cairnCpuPortToIntf.set( cpu.port, cpu.interface );
    for ( const RecirculationDescription & loop : model.recirculationPorts )
        state->cairnInternalRecircIntfToPort.set( loop.interface, loop.port );
    for ( const HardwarePortDescription & hardware : model.hardwarePorts )
        state->cairnPortToHwConfigPort.set( hardware.port, hardware.hardware );
    return state;
}

void addUnits( Sim::Chip & chip, const Model & model ) {
    for ( const ChipDescription & description : model.chips )
        chip.addUnit( description.unit, description.schema );
}

} // namespace Tool
