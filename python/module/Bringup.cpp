#include "tools/model/BringupFile.h"

#include "python/module/Bindings.h"
#include "python/module/Locks.h"
#include "python/module/Model.h"
#include "python/module/Recipes.h"
#include "tools/model/Arguments.h"

#include <ChipModel/BringupStage.h>
#include <ChipModel/ChipProfile.h>

#include <pybind11/stl.h>

namespace py = pybind11;

namespace Python {

namespace {

CairnTypes::CairnPort port( std::uint16_t unit, std::uint16_t number ) {
    return { .slot = 0, .unit = unit, .portId = number, .lane = 0 };
}

void setProfile( const CairnCentral::ChipInfo & chip, std::optional<std::uint32_t> systemPortBits,
                 std::optional<bool> hasRangeTableIndex ) {
    if ( systemPortBits && ( *systemPortBits < 1 || *systemPortBits > 16 ) )
        throw py::value_error( "system_port_bits is 1 to 16, not " +
                               std::to_string( *systemPortBits ) );
    const auto profile = Nacre::make<Asic::ChipProfile>();
    if ( systemPortBits )
        profile->addFeature(
            Nacre::make<CairnCommon::CairnCommonFeatureAttributes>( *systemPortBits ) );
    if ( hasRangeTableIndex )
        profile->addFeature(
            Nacre::make<CairnCentral::CairnChipAttributes>( *hasRangeTableIndex ) );
    const ActivityScope activity;
    CairnProfile::setActiveChipProfile( chip, profile );
}

void changeStages( const Tool::StageStep & step ) {
    const ActivityScope activity;
    for ( const std::uint32_t stage : step.block )
        CairnCentral::setStageBlocked( step.chip, CairnCentral::BringupStage( stage ), true );
    for ( const std::uint32_t stage : step.unblock )
        CairnCentral::setStageBlocked( step.chip, CairnCentral::BringupStage( stage ), false );
}

py::object expected( const Tool::Step & step ) {
    const auto * const recipe = std::get_if<Tool::RecipeStep>( &step.what );
    if ( recipe == nullptr || !recipe->expected )
        return py::none();
    if ( const auto * flag = std::get_if<bool>( &*recipe->expected ) )
        return py::bool_( *flag );
    return py::int_( std::get<std::uint16_t>( *recipe->expected ) );
}

// A step of a bring-up on a chip. What the chip changes by itself is returned to be done there.
py::object perform( const Tool::Step & step, const SharedState & state, const py::object & chip ) {
    if ( const auto * recipe = std::get_if<Tool::RecipeStep>( &step.what ) )
        return invoke( *recipe->recipe, recipe->arguments, state.data );
    if ( const auto * stages = std::get_if<Tool::StageStep>( &step.what ) ) {
        changeStages( *stages );
        return py::none();
    }
    const auto & poke = std::get<Tool::PokeStep>( step.what );
    using namespace pybind11::literals;
    return chip.attr( "poke_hardware" )( poke.table, poke.field, poke.value, "unit"_a = poke.unit,
                                         "index"_a = poke.index, "instance"_a = poke.instance,
                                         "port"_a = poke.port );
}

} // namespace

SharedState apply( const Tool::Model & model ) {
    const ActivityScope activity;
    SharedState state{ .data = Tool::applyModel( model ), .chips = {} };
    for ( const Tool::ChipDescription & chip : model.chips )
        state.chips.emplace( chip.unit, chip.info );
    return state;
}

void bindBringup( py::module_ & module ) {
    py::class_<CairnCentral::ChipInfo>( module, "ChipInfo",
                                        "Which chip is meant: a name and three numbers." )
        .def( py::init( []( const std::string & name, std::uint32_t first, std::uint16_t second,
                            std::uint8_t third ) {
                  return CairnCentral::ChipInfo( name, first, second, third );
              } ),
              py::arg( "name" ), py::arg( "first" ) = 0, py::arg( "second" ) = 0,
              py::arg( "third" ) = 0 )
        .def_property_readonly( "name",
                                []( const CairnCentral::ChipInfo & self ) {
                                    return std::string( self.name().view() );
                                } )
        .def(
            "__eq__",
            []( const CairnCentral::ChipInfo & self, const CairnCentral::ChipInfo & other ) {
                return CairnCentral::ChipInfo::isEq( &self, &other );
            },
            py::is_operator() )
        .def( "__hash__",
              []( const CairnCentral::ChipInfo & self ) {
                  return py::hash( py::str( std::string( self.name().view() ) ) );
              } )
        .def( "__str__", &CairnCentral::ChipInfo::toString );

    py::class_<SharedState>( module, "SharedState",
                             "What the agent knows of its modules and ports. Empty at first." )
        .def( py::init( [] {
            return SharedState{ .data = Nacre::make<Cairn::CairnCommonSmData>(), .chips = {} };
        } ) )
        .def(
            "chip_info",
            []( const SharedState & self, int unit ) {
                const auto found = self.chips.find( unit );
                if ( found == self.chips.end() )
                    throw py::key_error( "no chip of the state is unit " + std::to_string( unit ) );
                return found->second;
            },
            py::arg( "unit" ) = 0, "The chip that is a unit." )
        .def(
            "set_module",
            []( SharedState & self, std::uint16_t id, const CairnCentral::ChipInfo & chip,
                const std::string & name ) {
                Cairn::CairnModInfo info;
                info.name = std::string_view( name );
                info.chip = chip;
                const ActivityScope activity;
                self.data->cairnModIds.set( id, std::move( info ) );
            },
            py::arg( "id" ), py::arg( "chip" ), py::arg( "name" ) = "" )
        .def(
            "set_cpu_port",
            []( SharedState & self, std::uint16_t unit, std::uint16_t number,
                std::uint32_t interface ) {
                const ActivityScope activity;
                self.data->cairnCpuPortToIntf.set( port( unit, number ), { interface } );
            },
            py::arg( "unit" ), py::arg( "port" ), py::arg( "interface" ) )
        .def(
            "set_recirculation_port",
            []( SharedState & self, std::uint32_t interface, std::uint16_t unit,
                std::uint16_t number ) {
                const ActivityScope activity;
                self.data->cairnInternalRecircIntfToPort.set( { interface }, port( unit, number ) );
            },
            py::arg( "interface" ), py::arg( "unit" ), py::arg( "port" ) )
        .def(
            "set_hardware_port",
            []( SharedState & self, std::uint16_t unit, std::uint16_t number,
                std::uint16_t hardware ) {
                const ActivityScope activity;
                self.data->cairnPortToHwConfigPort.set( port( unit, number ), { hardware } );
            },
            py::arg( "unit" ), py::arg( "port" ), py::arg( "hardware_port" ) );

    module.def(
        "default_state",
        []( const std::vector<int> & units ) {
            std::vector<Tool::ChipDescription> chips;
            for ( const int unit : units )
                chips.push_back( Tool::defaultChip( unit, {}, {} ) );
            return apply( Tool::defaultModel( std::move( chips ) ) );
        },
        py::arg( "units" ) = std::vector<int>{ 0 },
        "Makes the default model the one that recipes ask: a module, a CPU port and a recirculation port for each unit." );
    module.def( "set_profile", &setProfile, py::arg( "chip" ), py::kw_only(),
                py::arg( "system_port_bits" ) = py::none(),
                py::arg( "has_range_table_index" ) = py::none(),
                "Gives a chip its active profile." );
    module.def(
        "clear_profiles",
        [] {
            const ActivityScope activity;
            CairnProfile::clearActiveChipProfiles();
        },
        "Takes all chips their profiles." );
    module.def(
        "set_stage_blocked",
        []( const CairnCentral::ChipInfo & chip, std::uint32_t stage, bool blocked ) {
            const ActivityScope activity;
            CairnCentral::setStageBlocked( chip, CairnCentral::BringupStage( stage ), blocked );
        },
        py::arg( "chip" ), py::arg( "stage" ), py::arg( "blocked" ) = true,
        "Blocks a chip at a bring-up stage, or unblocks it." );

    py::class_<Tool::Step>( module, "BringupStep", "A step of a bring-up file." )
        .def_readonly( "line", &Tool::Step::line )
        .def_property_readonly(
            "recipe",
            []( const Tool::Step & self ) -> std::optional<std::string> {
                const auto * const recipe = std::get_if<Tool::RecipeStep>( &self.what );
                return recipe == nullptr ? std::nullopt
                                         : std::optional( std::string( recipe->recipe->name ) );
            },
            "The recipe's name; None for another step." )
        .def_property_readonly( "expected", &expected,
                                "What the recipe must return; None if the file does not say." )
        .def( "__str__", []( const Tool::Step & self ) { return Tool::toText( self ); } );

    py::class_<Tool::Bringup>( module, "BringupFile", "A bring-up file, read and checked." )
        .def( py::init( []( const std::string & file ) { return Tool::loadBringup( file ); } ),
              py::arg( "file" ) )
        .def_readonly( "file", &Tool::Bringup::file )
        .def_readonly( "steps", &Tool::Bringup::steps )
        .def_property_readonly( "units",
                                []( const Tool::Bringup & self ) {
                                    std::vector<std::pair<int, Sim::Schema>> units;
                                    for ( const Tool::ChipDescription & chip : self.model.chips )
                                        units.emplace_back( chip.unit, chip.schema );
                                    return units;
                                } )
        .def( "apply", []( const Tool::Bringup & self ) { return apply( self.model ); } );
    module.def( "perform", &perform, py::arg( "step" ), py::arg( "state" ), py::arg( "chip" ) );
}

} // namespace Python
