#include "tools/model/BringupFile.h"

#include "text/NearestName.h"
#include "tools/model/Arguments.h"
#include "tools/model/ChipFile.h"
#include "tools/model/Errors.h"
#include "tools/model/Files.h"
#include "tools/model/Toml.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <limits>
#include <map>
#include <set>
#include <tuple>
#include <utility>

namespace Tool {

namespace {

std::string portText( int unit, uint16_t port ) {
    return fmt::format( "port {} of unit {}", port, unit );
}

class BringupFileReader {
  public:
    BringupFileReader( const std::string & file, const ChipLoader & loadChip )
        : toml_( file ), loadChip_( loadChip ) {
        bringup_.file = file;
    }

    Bringup read( const TomlFile & contents ) {
        const TomlNode & root = contents.root();
        toml_.expectKeys( root,
                          { "description", "debug_assert_stops", "chips", "modules", "cpu_ports",
                            "recirculation_ports", "hardware_ports", "steps" },
                          "a bring-up file" );
        if ( const TomlNode * description = root.find( "description" ) )
            toml_.text( *description, "description" );
        if ( const TomlNode * stops = root.find( "debug_assert_stops" ) )
            model().debugAssertStops = toml_.boolean( *stops, "debug_assert_stops" );
        for ( const TomlNode & chip : toml_.tables( root, "chips" ) )
            readChip( chip );
        if ( model().chips.empty() )
            toml_.refuse( root.line, "there is no chip", "describe at least one as [[chips]]" );
        for ( const TomlNode & module : toml_.tables( root, "modules" ) )
            readModule( module );
        for ( const TomlNode & port : toml_.tables( root, "cpu_ports" ) )
            readCpuPort( port );
        for ( const TomlNode & port : toml_.tables( root, "recirculation_ports" ) )
            readRecirculationPort( port );
        for ( const TomlNode & port : toml_.tables( root, "hardware_ports" ) )
            readHardwarePort( port );
        checkHardwarePorts();
        for ( const TomlNode & step : toml_.tables( root, "steps" ) )
            readStep( step );
        contents.forEachStreamed( [this]( const TomlNode & step ) { readStep( step ); } );
        return std::move( bringup_ );
    }

  private:
    Model & model() { return bringup_.model; }

    // --- Chips

    void readChip( const TomlNode & node ) {
        toml_.expectKeys( node, { "name", "unit", "values", "file", "profile", "blocked_stages" },
                          "[[chips]]" );
        if ( model().chips.size() == mostChips )
            toml_.refuse( node.line, fmt::format( "more than {} chips", mostChips ),
                          "describe fewer" );
        ChipDescription chip;
        const TomlNode & name = toml_.need( node, "name", "[[chips]]" );
        const std::string & nameText = toml_.text( name, "name" );
        if ( nameText.empty() )
            toml_.refuse( name.line, "the name of a chip must not be empty" );
        if ( !chipLines_.emplace( nameText, name.line ).second )
            toml_.refuse( name.line,
                          fmt::format( "there is a chip \"{}\" already (line {})", nameText,
                                       chipLines_.at( nameText ) ),
                          "give this one another name" );
        readChipValues( node, nameText, chip );

        const TomlNode & unit = toml_.need( node, "unit", fmt::format( "chip \"{}\"", nameText ) );
        chip.unit = toml_.number<uint16_t>( unit, "unit" ); // as wide as ports and modules have it
        if ( !unitLines_.emplace( chip.unit, unit.line ).second )
            toml_.refuse( unit.line,
                          fmt::format( "unit {} is another chip already (line {})", chip.unit,
                                       unitLines_.at( chip.unit ) ),
                          "give this one another unit" );
        readChipFile( node, chip );
        if ( const TomlNode * profile = node.find( "profile" ) )
            readProfile( *profile, chip );
        if ( const TomlNode * stages = node.find( "blocked_stages" ) )
            chip.blockedStages = readStages( *stages, "blocked_stages" );
        model().chips.push_back( std::move( chip ) );
    }

    void readChipValues( const TomlNode & node, const std::string & name, ChipDescription & chip ) {
        uint32_t first = 0;
        uint16_t second = 0;
        uint8_t third = 0;
        if ( const TomlNode * values = node.find( "values" ) ) {
            expectItems( *values, 3, "values", "the chip's three values" );
            first = toml_.number<uint32_t>( values->items[0], "the first value of a chip" );
            second = toml_.number<uint16_t>( values->items[1], "the second value of a chip" );
            third = toml_.number<uint8_t>( values->items[2], "the third value of a chip" );
        }
        chip.info = CairnCentral::ChipInfo( std::string_view( name ), first, second, third );
    }

    void expectItems( const TomlNode & node, std::size_t count, std::string_view what,
                      const std::string & meaning ) {
        toml_.expectKind( node, TomlNode::Kind::array, what );
        if ( node.items.size() != count )
            toml_.refuse( node.line, fmt::format( "{} has {} items", what, node.items.size() ),
                          fmt::format( "write {}", meaning ) );
    }

    void readChipFile( const TomlNode & node, ChipDescription & chip ) {
        const TomlNode * file = node.find( "file" );
        chip.source = file == nullptr ? "reference" : toml_.text( *file, "file" );
        if ( chip.source != "reference" ) {
            const std::filesystem::path path( chip.source );
            if ( path.is_relative() )
                chip.source =
                    ( std::filesystem::path( toml_.file() ).parent_path() / path ).string();
        }
        try {
            chip.schema = loadChip_( chip.source );
        } catch ( const InputError & error ) {
            // A file that cannot be read is named here; one that is wrong names its own line.
            if ( error.line() != 0 )
                throw;
            throw error.within( toml_.file(), file->line );
        }
    }

    void readProfile( const TomlNode & node, ChipDescription & chip ) {
        toml_.expectKeys( node, { "system_port_bits", "has_range_table_index" }, "profile" );
        ChipDescription::Profile profile;
        if ( const TomlNode * bits = node.find( "system_port_bits" ) ) {
            profile.systemPortBits =
                static_cast<uint32_t>( toml_.number( *bits, 16, "system_port_bits" ) );
            if ( *profile.systemPortBits == 0 )
                toml_.refuse( bits->line, "system_port_bits must be 1 to 16" );
        }
        if ( const TomlNode * index = node.find( "has_range_table_index" ) )
            profile.hasRangeTableIndex = toml_.boolean( *index, "has_range_table_index" );
        chip.profile = profile;
    }

    std::vector<uint32_t> readStages( const TomlNode & node, std::string_view what ) {
        toml_.expectKind( node, TomlNode::Kind::array, what );
        std::vector<uint32_t> stages;
        for ( const TomlNode & stage : node.items )
            stages.push_back( toml_.number<uint32_t>( stage, "a stage" ) );
        return stages;
    }

    const ChipDescription & needChip( const TomlNode & node ) {
        const std::string & name = toml_.text( node, "chip" );
        if ( const ChipDescription * chip = model().findChip( name ) )
            return *chip;
        std::vector<std::string_view> names;
        for ( const ChipDescription & chip : model().chips )
            names.push_back( chip.info.name().view() );
        toml_.refuse( node.line, fmt::format( "there is no chip \"{}\"", name ),
                      Text::nameHint( name, names ) );
    }

    int needUnit( const TomlNode & node ) {
        const auto unit = toml_.number<uint16_t>( node, "unit" );
        if ( model().findUnit( unit ) == nullptr )
            toml_.refuse( node.line, fmt::format( "there is no unit {}", unit ), "no chip has it" );
        return unit;
    }

    // --- Modules and ports

    void readModule( const TomlNode & node ) {
        toml_.expectKeys( node, { "id", "chip", "name", "values" }, "[[modules]]" );
        const TomlNode & id = toml_.need( node, "id", "[[modules]]" );
        ModuleDescription module;
        module.id = toml_.number<uint16_t>( id, "id" );
        if ( !moduleLines_.emplace( module.id, id.line ).second )
            toml_.refuse( id.line,
                          fmt::format( "there is a module {} already (line {})", module.id,
                                       moduleLines_.at( module.id ) ),
                          "give this one another id" );
        module.info.chip = needChip( toml_.need( node, "chip", "[[modules]]" ) ).info;
        if ( const TomlNode * name = node.find( "name" ) )
            module.info.name = std::string_view( toml_.text( *name, "name" ) );
        if ( const TomlNode * values = node.find( "values" ) ) {
            expectItems( *values, 5, "values", "the module record's five values" );
            const auto & items = values->items;
            module.info.first = toml_.number<uint64_t>( items[0], "the first value of a module" );
            module.info.second = toml_.number<uint32_t>( items[1], "the second value of a module" );
            module.info.third = toml_.number<uint16_t>( items[2], "the third value of a module" );
            module.info.fourth = toml_.number<uint16_t>( items[3], "the fourth value of a module" );
            module.info.fifth = toml_.number<uint8_t>( items[4], "the fifth value of a module" );
        }
        model().modules.push_back( std::move( module ) );
    }

    CairnTypes::CairnPort readPort( const TomlNode & node, std::string_view what ) {
        CairnTypes::CairnPort port;
        port.slot = toml_.number<uint16_t>( node, "slot", 0 );
        port.unit = static_cast<uint16_t>( needUnit( toml_.need( node, "unit", what ) ) );
        port.portId = toml_.number<uint16_t>( toml_.need( node, "port", what ), "port" );
        port.lane = toml_.number<uint8_t>( node, "lane", 0 );
        return port;
    }

    Netbase::IntfId readInterface( const TomlNode & node, std::string_view what ) {
        const TomlNode & interface = toml_.need( node, "interface", what );
        const Netbase::IntfId id{ toml_.number<uint32_t>( interface, "interface" ) };
        if ( !interfaceLines_.emplace( id.number, interface.line ).second )
            toml_.refuse( interface.line,
                          fmt::format( "interface {} has a port already (line {})", id.number,
                                       interfaceLines_.at( id.number ) ),
                          "give this port another interface" );
        return id;
    }

    // Each logical port of a unit is inserted once, by whichever recipe.
    void claimPort( const CairnTypes::CairnPort & port, const std::string & what, int line ) {
        const auto [place, added] =
            portLines_.emplace( std::pair( port.unit, port.portId ), std::pair( what, line ) );
        if ( !added )
            toml_.refuse( line,
                          fmt::format( "{} is a {} already (line {})",
                                       portText( port.unit, port.portId ), place->second.first,
                                       place->second.second ),
                          "give this one another port" );
    }

    void readCpuPort( const TomlNode & node ) {
        const std::string_view what = "[[cpu_ports]]";
        toml_.expectKeys( node, { "unit", "port", "slot", "lane", "interface" }, what );
        const CairnTypes::CairnPort port = readPort( node, what );
        claimPort( port, "CPU port", node.find( "port" )->line );
        model().cpuPorts.push_back( { port, readInterface( node, what ) } );
        // A CPU port's physical port has the same number.
        hardwareLines_.emplace(
            std::pair( port.unit, port.portId ),
            std::pair( fmt::format( "CPU {}", portText( port.unit, port.portId ) ),
                       node.find( "port" )->line ) );
    }

    void readRecirculationPort( const TomlNode & node ) {
        const std::string_view what = "[[recirculation_ports]]";
        toml_.expectKeys( node, { "interface", "unit", "port", "slot", "lane" }, what );
        const CairnTypes::CairnPort port = readPort( node, what );
        claimPort( port, "recirculation port", node.find( "port" )->line );
        model().recirculationPorts.push_back( { readInterface( node, what ), port } );
    }

    void readHardwarePort( const TomlNode & node ) {
        const std::string_view what = "[[hardware_ports]]";
        toml_.expectKeys( node, { "unit", "port", "slot", "lane", "hardware_port" }, what );
        HardwarePortDescription entry;
        entry.port = readPort( node, what );
        const int line = node.find( "port" )->line;
        const TomlNode & hardware = toml_.need( node, "hardware_port", what );
        entry.hardware.phyPortId = toml_.number<uint16_t>( hardware, "hardware_port" );
        const CairnTypes::CairnPort & port = entry.port;
        const auto [known, isNew] = hardwarePortLines_.emplace(
            std::tuple( port.unit, port.portId, port.slot, port.lane ), line );
        if ( !isNew )
            toml_.refuse( line,
                          fmt::format( "{} has a hardware port already (line {})",
                                       portText( port.unit, port.portId ), known->second ),
                          "remove one of the two" );
        const auto [place, added] = hardwareLines_.emplace(
            std::pair( entry.port.unit, entry.hardware.phyPortId ),
            std::pair( portText( entry.port.unit, entry.port.portId ), hardware.line ) );
        if ( !added )
            toml_.refuse(
                hardware.line,
                fmt::format( "hardware port {} of unit {} belongs to {} already (line {})",
                             entry.hardware.phyPortId, entry.port.unit, place->second.first,
                             place->second.second ),
                "give this one another hardware port" );
        model().hardwarePorts.push_back( entry );
    }

    // A recirculation port and its hardware port are one port only if slot and lane agree, too.
    void checkHardwarePorts() {
        std::map<std::pair<uint16_t, uint16_t>, CairnTypes::CairnPort> loops;
        for ( const RecirculationDescription & loop : model().recirculationPorts )
            loops.emplace( std::pair( loop.port.unit, loop.port.portId ), loop.port );
        for ( const HardwarePortDescription & hardware : model().hardwarePorts ) {
            const CairnTypes::CairnPort & port = hardware.port;
            const auto loop = loops.find( std::pair( port.unit, port.portId ) );
            if ( loop != loops.end() && !( loop->second == port ) )
                toml_.refuse(
                    hardwarePortLines_.at( { port.unit, port.portId, port.slot, port.lane } ),
                    fmt::format( "{} has another slot or lane as a recirculation port",
                                 portText( port.unit, port.portId ) ),
                    "give both the same" );
        }
    }

    // --- Steps

    void readStep( const TomlNode & node ) {
        toml_.expectKeys( node,
                          { "recipe", "arguments", "expect", "chip", "block", "unblock", "poke" },
                          "[[steps]]" );
        const TomlNode * recipe = node.find( "recipe" );
        const TomlNode * poke = node.find( "poke" );
        const TomlNode * stages = node.find( "block" );
        if ( stages == nullptr )
            stages = node.find( "unblock" );
        const std::array things = { recipe, poke, stages };
        if ( std::count( things.begin(), things.end(), nullptr ) != 2 )
            toml_.refuse(
                node.line, "a step does one thing",
                "write \"recipe\", \"poke\", or \"block\" and \"unblock\" with a \"chip\"" );
        if ( recipe != nullptr ) {
            allow( node, { "recipe", "arguments", "expect" }, "recipe" );
            addStep( recipe->line, readRecipeStep( node, *recipe ) );
        } else if ( poke != nullptr ) {
            allow( node, { "poke" }, "poke" );
            addStep( poke->line, readPoke( *poke ) );
        } else {
            allow( node, { "chip", "block", "unblock" }, "block or unblock" );
            addStep( stages->line, readStageStep( node ) );
        }
    }

    template <class What>
    void addStep( int line, What what ) {
        bringup_.steps.push_back( { line, std::move( what ) } );
    }

    void allow( const TomlNode & node, std::initializer_list<std::string_view> keys,
                const std::string & with ) {
        for ( const auto & [key, value] : node.members ) {
            if ( std::find( keys.begin(), keys.end(), key ) == keys.end() )
                toml_.refuse(
                    value.line,
                    fmt::format( "\"{}\" does not go with \"{}\" in one step", key, with ),
                    "make it a step of its own" );
        }
    }

    RecipeStep readRecipeStep( const TomlNode & node, const TomlNode & name ) {
        RecipeStep step;
        try {
            step.recipe = &needRecipe( toml_.text( name, "recipe" ) );
            checkModelFor( *step.recipe, model() );
        } catch ( const InputError & error ) {
            throw located( name.line, error );
        }
        const TomlNode * arguments = node.find( "arguments" );
        if ( arguments != nullptr && arguments->kind == TomlNode::Kind::table )
            readNamedArguments( *arguments, step );
        else if ( arguments != nullptr )
            readListedArguments( *arguments, step );
        else if ( !step.recipe->parameters().empty() )
            refuseMissing( name.line, *step.recipe, 0 );
        if ( const TomlNode * expected = node.find( "expect" ) ) {
            try {
                step.expected = parseResult( *step.recipe, scalarText( *expected, "expect" ) );
            } catch ( const InputError & error ) {
                throw located( expected->line, error );
            }
        }
        return step;
    }

    // Adds file and line to an error that has none yet.
    InputError located( int line, const InputError & error ) {
        return error.line() != 0 ? error : error.within( toml_.file(), line );
    }

    void readNamedArguments( const TomlNode & node, RecipeStep & step ) {
        const auto parameters = step.recipe->parameters();
        for ( const auto & [key, value] : node.members ) {
            const std::string & wanted = key;
            const auto known =
                std::find_if( parameters.begin(), parameters.end(),
                              [&]( const Parameter & each ) { return each.name == wanted; } );
            if ( known == parameters.end() ) {
                std::vector<std::string_view> names;
                for ( const Parameter & each : parameters )
                    names.push_back( each.name );
                toml_.refuse( value.line,
                              fmt::format( "{} has no parameter \"{}\"", step.recipe->name, key ),
                              Text::nameHint( key, names ) );
            }
        }
        for ( std::size_t i = 0; i < parameters.size(); ++i ) {
            const TomlNode * value = node.find( parameters[i].name );
            if ( value == nullptr )
                refuseMissing( node.line, *step.recipe, i );
            step.arguments.push_back( readArgument( *value, *step.recipe, parameters[i] ) );
        }
    }

    void readListedArguments( const TomlNode & node, RecipeStep & step ) {
        toml_.expectKind( node, TomlNode::Kind::array, "arguments" );
        const auto parameters = step.recipe->parameters();
        if ( node.items.size() < parameters.size() )
            refuseMissing( node.line, *step.recipe, node.items.size() );
        if ( node.items.size() > parameters.size() )
            toml_.refuse( node.items[parameters.size()].line,
                          fmt::format( "{} takes {} arguments, not {}", step.recipe->name,
                                       parameters.size(), node.items.size() ),
                          "remove the rest" );
        for ( std::size_t i = 0; i < parameters.size(); ++i )
            step.arguments.push_back( readArgument( node.items[i], *step.recipe, parameters[i] ) );
    }

    [[noreturn]] void refuseMissing( int line, const Recipe & recipe, std::size_t from ) {
        const auto parameters = recipe.parameters();
        toml_.refuse( line,
                      fmt::format( "{} needs an argument \"{}\" ({})", recipe.name,
                                   parameters[from].name, spelling( parameters[from].type ) ) );
    }

    Argument readArgument( const TomlNode & node, const Recipe & recipe,
                           const Parameter & parameter ) {
        const std::string what = fmt::format( "{}: {}", recipe.name, parameter.name );
        switch ( parameter.type ) {
        case ArgumentType::boolean:
            toml_.expectKind( node, TomlNode::Kind::boolean, what );
            break;
        case ArgumentType::text:
        case ArgumentType::chip:
            toml_.expectKind( node, TomlNode::Kind::text, what );
            break;
        default:
            toml_.expectKind( node, TomlNode::Kind::integer, what );
            break;
        }
        try {
            return parseArgument( recipe, parameter, scalarText( node, what ), model() );
        } catch ( const InputError & error ) {
            throw located( node.line, error );
        }
    }

    // A text, an integer or a bool as arguments are written on a command line.
    std::string scalarText( const TomlNode & node, std::string_view what ) {
        switch ( node.kind ) {
        case TomlNode::Kind::text:
            return node.text;
        case TomlNode::Kind::integer:
            return fmt::to_string( node.integer );
        case TomlNode::Kind::boolean:
            return node.boolean ? "true" : "false";
        default:
            toml_.refuse( node.line,
                          fmt::format( "{} must not be {}", what, kindName( node.kind ) ) );
        }
    }

    StageStep readStageStep( const TomlNode & node ) {
        StageStep step;
        step.chip =
            needChip( toml_.need( node, "chip", "a step with \"block\" or \"unblock\"" ) ).info;
        if ( const TomlNode * block = node.find( "block" ) )
            step.block = readStages( *block, "block" );
        if ( const TomlNode * unblock = node.find( "unblock" ) )
            step.unblock = readStages( *unblock, "unblock" );
        return step;
    }

    PokeStep readPoke( const TomlNode & node ) {
        toml_.expectKeys( node, { "unit", "table", "index", "instance", "port", "field", "value" },
                          "poke" );
        PokeStep step;
        step.unit = needUnit( toml_.need( node, "unit", "poke" ) );
        const Sim::Schema & schema = model().findUnit( static_cast<uint64_t>( step.unit ) )->schema;
        const TomlNode & tableNode = toml_.need( node, "table", "poke" );
        step.table = toml_.text( tableNode, "table" );
        const Sim::Table * table = schema.find( step.table );
        if ( table == nullptr )
            toml_.refuse( tableNode.line, fmt::format( "there is no table \"{}\"", step.table ),
                          Text::nameHint( step.table, schema.tableNames() ) );
        if ( !table->isPhysical() )
            toml_.refuse( tableNode.line, fmt::format( "{} is a logical table", step.table ),
                          "only registers and memories change behind the SDK" );
        const TomlNode & fieldNode = toml_.need( node, "field", "poke" );
        step.field = toml_.text( fieldNode, "field" );
        const Sim::Field * field = table->find( step.field );
        if ( field == nullptr )
            toml_.refuse( fieldNode.line,
                          fmt::format( "{} has no field \"{}\"", step.table, step.field ),
                          Text::nameHint( step.field, table->fieldNames() ) );
        step.value = toml_.number( toml_.need( node, "value", "poke" ), field->maximum(),
                                   step.table + "." + step.field );
        step.index = readPlace( node, "index", table->size.rows );
        step.instance = readPlace( node, "instance", table->size.instances );
        step.port = readPlace( node, "port", std::max( table->size.ports, 1u ) );
        return step;
    }

    uint32_t readPlace( const TomlNode & node, std::string_view key, uint32_t count ) {
        const TomlNode * place = node.find( key );
        return place == nullptr ? 0
                                : static_cast<uint32_t>( toml_.number( *place, count - 1, key ) );
    }

    TomlReader toml_;
    const ChipLoader & loadChip_;
    Bringup bringup_;
    // Where things were first named.
    std::map<std::string, int> chipLines_;
    std::map<int, int> unitLines_;
    std::map<uint16_t, int> moduleLines_;
    std::map<uint32_t, int> interfaceLines_;
    std::map<std::pair<uint16_t, uint16_t>, std::pair<std::string, int>> portLines_;
    std::map<std::pair<uint16_t, uint16_t>, std::pair<std::string, int>> hardwareLines_;
    std::map<std::tuple<uint16_t, uint16_t, uint16_t, uint8_t>, int> hardwarePortLines_;
};

std::string stagesText( const char * verb, const StageStep & step,
                        const std::vector<uint32_t> & stages ) {
    return fmt::format( "{} {} at stage{} {}", verb, step.chip.name().view(),
                        stages.size() == 1 ? "" : "s", fmt::join( stages, ", " ) );
}

} // namespace

std::string toText( const Step & step ) {
    if ( const auto * recipe = std::get_if<RecipeStep>( &step.what ) )
        return callText( *recipe->recipe, recipe->arguments );
    if ( const auto * stages = std::get_if<StageStep>( &step.what ) ) {
        std::string text;
        if ( !stages->block.empty() )
            text = stagesText( "block", *stages, stages->block );
        if ( !stages->unblock.empty() )
            text +=
                ( text.empty() ? "" : ", " ) + stagesText( "unblock", *stages, stages->unblock );
        return text;
    }
    const auto & poke = std::get<PokeStep>( step.what );
    return fmt::format( "the hardware of unit {} changes {}.{} to {}", poke.unit, poke.table,
                        poke.field, poke.value );
}

Bringup parseBringup( std::string_view contents, const std::string & file,
                      const ChipLoader & loadChip ) {
    return BringupFileReader( file, loadChip ).read( TomlFile( contents, file, "steps" ) );
}

Bringup loadBringup( const std::string & file ) {
    return parseBringup( readFile( file ), file, &loadChip );
}

} // namespace Tool
