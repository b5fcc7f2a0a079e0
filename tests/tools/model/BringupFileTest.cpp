#include "tools/model/BringupFile.h"

#include "tools/model/Errors.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace {

using Tool::Bringup;
using Tool::RecipeStep;

Sim::Schema anyChip( const std::string & ) { return Sim::referenceSchema(); }

Bringup parse( const std::string & contents ) {
    return Tool::parseBringup( contents, "x.toml", anyChip );
}

std::string refusalOfBringup( const std::string & contents ) {
    try {
        parse( contents );
    } catch ( const Tool::InputError & error ) {
        return error.what();
    }
    return "accepted";
}

const std::string oneChip = "[[chips]]\nname = 'leaf'\nunit = 0\n"; // three lines

TEST( BringupFileTest, DescribesChips ) {
    std::vector<std::string> sources;
    const Bringup bringup = Tool::parseBringup( R"(
description = "two chips"
debug_assert_stops = true
[[chips]]
name = "a"
unit = 3
values = [ 4000000000, 65535, 255 ]
file = "chips/small.toml"
profile = { system_port_bits = 10, has_range_table_index = true }
blocked_stages = [ 55, 106 ]
[[chips]]
name = "b"
unit = 0
profile = {}
[[chips]]
name = "c"
unit = 1
file = "/etc/chip.toml"
)",
                                                "folder/x.toml", [&]( const std::string & source ) {
                                                    sources.push_back( source );
                                                    return Sim::referenceSchema();
                                                } );
    EXPECT_EQ( sources, ( std::vector<std::string>{ "folder/chips/small.toml", "reference",
                                                    "/etc/chip.toml" } ) );
    EXPECT_TRUE( bringup.model.debugAssertStops );
    ASSERT_EQ( bringup.model.chips.size(), 3u );
    const Tool::ChipDescription & a = bringup.model.chips[0];
    EXPECT_EQ( a.name(), "a" );
    EXPECT_EQ( a.unit, 3 );
    EXPECT_EQ( a.info.first(), 4000000000u );
    EXPECT_EQ( a.info.second(), 65535u );
    EXPECT_EQ( a.info.third(), 255u );
    ASSERT_TRUE( a.profile );
    EXPECT_EQ( a.profile->systemPortBits, 10u );
    EXPECT_EQ( a.profile->hasRangeTableIndex, true );
    EXPECT_EQ( a.blockedStages, ( std::vector<uint32_t>{ 55, 106 } ) );
    const Tool::ChipDescription & b = bringup.model.chips[1];
    ASSERT_TRUE( b.profile );
    EXPECT_FALSE( b.profile->systemPortBits );
    EXPECT_FALSE( b.profile->hasRangeTableIndex );
    EXPECT_FALSE( bringup.model.chips[2].profile );
}

TEST( BringupFileTest, DescribesModulesAndPorts ) {
    const Bringup bringup = parse( oneChip + R"(
[[modules]]
id = 7
chip = "leaf"
name = "Linecard7"
values = [ 1, 2, 3, 4, 5 ]
[[modules]]
id = 0
chip = "leaf"
[[cpu_ports]]
unit = 0
port = 1
interface = 10
[[recirculation_ports]]
unit = 0
port = 66
slot = 2
lane = 1
interface = 11
[[hardware_ports]]
unit = 0
port = 66
slot = 2
lane = 1
hardware_port = 258
)" );
    const Tool::Model & model = bringup.model;
    ASSERT_EQ( model.modules.size(), 2u );
    EXPECT_EQ( model.modules[0].id, 7u );
    EXPECT_EQ( model.modules[0].info.name.view(), "Linecard7" );
    EXPECT_EQ( model.modules[0].info.chip.name().view(), "leaf" );
    EXPECT_EQ( model.modules[0].info.fifth, 5u );
    EXPECT_EQ( model.modules[1].info.third, 64u );
    ASSERT_EQ( model.cpuPorts.size(), 1u );
    EXPECT_EQ( model.cpuPorts[0].port.portId, 1u );
    EXPECT_EQ( model.cpuPorts[0].interface.number, 10u );
    ASSERT_EQ( model.recirculationPorts.size(), 1u );
    EXPECT_EQ( model.recirculationPorts[0].port,
               ( CairnTypes::CairnPort{ .slot = 2, .unit = 0, .portId = 66, .lane = 1 } ) );
    ASSERT_EQ( model.hardwarePorts.size(), 1u );
    EXPECT_EQ( model.hardwarePorts[0].port, model.recirculationPorts[0].port );
    EXPECT_EQ( model.hardwarePorts[0].hardware.phyPortId, 258u );
}

TEST( BringupFileTest, StepsAreToldByNameOrInOrder ) {
    const Bringup bringup = parse( oneChip + R"(
[[steps]]
recipe = "setEgrTunnelEcnEncap"
arguments = { outerEcn = 2, unit = 0, index = 0x10 }

[[steps]]
recipe = "verifyL2IfIngSystemPortTable"
arguments = [ "leaf", 0, 1, 5, 128, 77, true ]
expect = false

[[steps]]
recipe = "cpuPortInit"

[[steps]]
chip = "leaf"
block = [ 55 ]
unblock = [ 106, 108 ]

[[steps]]
poke = { unit = 0, table = "EGR_VLAN_CONTROL_1r", port = 5, field = "VT_ENABLE", value = 1 }

[[steps]]
recipe = "getOpaqueTagEgress"
arguments = [ 0 ]
expect = 0x8100
)" );
    ASSERT_EQ( bringup.steps.size(), 6u );
    EXPECT_EQ( bringup.steps[0].line, 6 );
    EXPECT_EQ( toText( bringup.steps[0] ), "setEgrTunnelEcnEncap( unit=0, index=16, outerEcn=2 )" );
    const auto & verify = std::get<RecipeStep>( bringup.steps[1].what );
    EXPECT_EQ( verify.expected, Tool::Result( false ) );
    EXPECT_EQ( toText( bringup.steps[2] ), "cpuPortInit()" );
    EXPECT_EQ( toText( bringup.steps[3] ),
               "block leaf at stage 55, unblock leaf at stages 106, 108" );
    EXPECT_EQ( toText( bringup.steps[4] ),
               "the hardware of unit 0 changes EGR_VLAN_CONTROL_1r.VT_ENABLE to 1" );
    EXPECT_EQ( std::get<RecipeStep>( bringup.steps[5].what ).expected,
               Tool::Result( uint16_t( 0x8100 ) ) );
}

TEST( BringupFileTest, AChipFileThatCanNotBeReadIsNamedWithTheLineThatNamesIt ) {
    try {
        Tool::parseBringup( "[[chips]]\nname = 'leaf'\nunit = 0\nfile = 'gone.toml'\n", "x.toml",
                            []( const std::string & source ) -> Sim::Schema {
                                throw Tool::InputError( source, 0, "cannot be read: gone" );
                            } );
        FAIL();
    } catch ( const Tool::InputError & error ) {
        EXPECT_STREQ( error.what(), "x.toml:4: gone.toml: cannot be read: gone" );
    }
}

TEST( BringupFileTest, AChipFileThatIsWrongNamesItsOwnLine ) {
    try {
        Tool::parseBringup( "[[chips]]\nname = 'leaf'\nunit = 0\nfile = 'chip.toml'\n", "x.toml",
                            []( const std::string & source ) -> Sim::Schema {
                                throw Tool::InputError( source, 9, "wrong" );
                            } );
        FAIL();
    } catch ( const Tool::InputError & error ) {
        EXPECT_STREQ( error.what(), "chip.toml:9: wrong" );
    }
}

struct BadBringup {
    const char * name;
    std::string contents;
    std::string message;
};

void PrintTo( const BadBringup & each, std::ostream * out ) { *out << each.name; }

class BringupFileRefusalTest : public ::testing::TestWithParam<BadBringup> {};

TEST_P( BringupFileRefusalTest, NamesFileLineAndRemedy ) {
    EXPECT_EQ( refusalOfBringup( GetParam().contents ), "x.toml:" + GetParam().message );
}

// A step on the one chip; its first line is line 4.
std::string step( const std::string & lines ) { return oneChip + "[[steps]]\n" + lines; }

const BadBringup badBringups[] = {
    // The file.
    { "Empty", "", "1: there is no chip; describe at least one as [[chips]]" },
    { "UnknownKey", oneChip + "[[step]]\n",
      "4: a bring-up file has no key \"step\"; the nearest is steps" },
    { "NotATable", "chips = 3", "1: [[chips]] must be an array, not an integer" },
    { "ItemIsNoTable", "chips = [ 3 ]", "1: [[chips]] must be a table, not an integer" },
    { "DebugAssert", "debug_assert_stops = 1",
      "1: debug_assert_stops must be true or false, not an integer" },
    // Chips.
    { "ChipWithoutName", "[[chips]]\nunit = 0", "1: [[chips]] needs a key \"name\"" },
    { "ChipWithoutUnit", "[[chips]]\nname = 'leaf'", "1: chip \"leaf\" needs a key \"unit\"" },
    { "ChipWithEmptyName", "[[chips]]\nname = ''\nunit = 0",
      "2: the name of a chip must not be empty" },
    { "ChipKey", oneChip + "stages = [ 1 ]",
      "4: [[chips]] has no key \"stages\"; there are name, unit, values, file, profile and "
      "blocked_stages" },
    { "ChipNameTwice", oneChip + "[[chips]]\nname = 'leaf'\nunit = 1",
      "5: there is a chip \"leaf\" already (line 2); give this one another name" },
    { "UnitTwice", oneChip + "[[chips]]\nname = 'leaf2'\nunit = 0",
      "6: unit 0 is another chip already (line 3); give this one another unit" },
    { "UnitTooLarge", "[[chips]]\nname = 'leaf'\nunit = 65536",
      "3: unit: 65536 is too large; write 0 to 65535" },
    { "ChipValues", oneChip + "values = [ 1, 2 ]",
      "4: values has 2 items; write the chip's three values" },
    { "ChipValueTooLarge", oneChip + "values = [ 1, 65536, 0 ]",
      "4: the second value of a chip: 65536 is too large; write 0 to 65535" },
    { "ProfileKey", oneChip + "profile = { range_table_index = true }",
      "4: profile has no key \"range_table_index\"; the nearest is has_range_table_index" },
    { "PortBits", oneChip + "profile = { system_port_bits = 0 }",
      "4: system_port_bits must be 1 to 16" },
    { "PortBitsTooMany", oneChip + "profile = { system_port_bits = 17 }",
      "4: system_port_bits: 17 is too large; write 0 to 16" },
    { "Stages", oneChip + "blocked_stages = 55",
      "4: blocked_stages must be an array, not an integer" },
    { "Stage", oneChip + "blocked_stages = [ 'KOVA' ]",
      "4: a stage: \"KOVA\" is not an unsigned number; "
      "write it in decimal, or in hexadecimal after 0x" },
    // Modules and ports.
    { "ModuleWithoutChip", oneChip + "[[modules]]\nid = 0", "4: [[modules]] needs a key \"chip\"" },
    { "ModuleOfUnknownChip", oneChip + "[[modules]]\nid = 0\nchip = 'lead'",
      "6: there is no chip \"lead\"; the nearest is leaf" },
    { "ModuleTwice",
      oneChip + "[[modules]]\nid = 2\nchip = 'leaf'\n[[modules]]\nid = 2\nchip = 'leaf'",
      "8: there is a module 2 already (line 5); give this one another id" },
    { "ModuleIdTooLarge", oneChip + "[[modules]]\nid = 65536\nchip = 'leaf'",
      "5: id: 65536 is too large; write 0 to 65535" },
    { "ModuleValues", oneChip + "[[modules]]\nid = 0\nchip = 'leaf'\nvalues = []",
      "7: values has 0 items; write the module record's five values" },
    { "CpuPortOfUnknownUnit", oneChip + "[[cpu_ports]]\nunit = 1\nport = 0\ninterface = 1",
      "5: there is no unit 1; no chip has it" },
    { "CpuPortTwice",
      oneChip + "[[cpu_ports]]\nunit = 0\nport = 0\ninterface = 1\n"
                "[[cpu_ports]]\nunit = 0\nport = 0\ninterface = 2",
      "10: port 0 of unit 0 is a CPU port already (line 6); give this one another port" },
    { "CpuPortIsRecirculationPort",
      oneChip + "[[cpu_ports]]\nunit = 0\nport = 3\ninterface = 1\n"
                "[[recirculation_ports]]\nunit = 0\nport = 3\ninterface = 2",
      "10: port 3 of unit 0 is a CPU port already (line 6); give this one another port" },
    { "InterfaceTwice",
      oneChip + "[[recirculation_ports]]\nunit = 0\nport = 3\ninterface = 1\n"
                "[[recirculation_ports]]\nunit = 0\nport = 4\ninterface = 1",
      "11: interface 1 has a port already (line 7); give this port another interface" },
    { "HardwarePortTwice",
      oneChip + "[[recirculation_ports]]\nunit = 0\nport = 3\ninterface = 1\n"
                "[[recirculation_ports]]\nunit = 0\nport = 4\ninterface = 2\n"
                "[[hardware_ports]]\nunit = 0\nport = 3\nhardware_port = 258\n"
                "[[hardware_ports]]\nunit = 0\nport = 4\nhardware_port = 258",
      "19: hardware port 258 of unit 0 belongs to port 3 of unit "
      "0 already (line 15); give this one another hardware port" },
    { "PortWithTwoHardwarePorts",
      oneChip + "[[hardware_ports]]\nunit = 0\nport = 3\nhardware_port = 258\n"
                "[[hardware_ports]]\nunit = 0\nport = 3\nhardware_port = 259",
      "10: port 3 of unit 0 has a hardware port already (line 6); remove one of the two" },
    { "HardwarePortOfTheCpuPort",
      oneChip + "[[cpu_ports]]\nunit = 0\nport = 8\ninterface = 1\n"
                "[[hardware_ports]]\nunit = 0\nport = 3\nhardware_port = 8",
      "11: hardware port 8 of unit 0 belongs to CPU port 8 of unit 0 already (line 6); give this "
      "one another hardware port" },
    { "HardwarePortOfAnotherLane",
      oneChip + "[[recirculation_ports]]\nunit = 0\nport = 3\nlane = 1\ninterface = 1\n"
                "[[hardware_ports]]\nunit = 0\nport = 3\nhardware_port = 258",
      "11: port 3 of unit 0 has another slot or lane as a recirculation port; give both the same" },
    // Steps.
    { "StepWithoutAnything", step( "" ),
      "4: a step does one thing; write \"recipe\", \"poke\", "
      "or \"block\" and \"unblock\" with a \"chip\"" },
    { "StepWithTwoThings", step( "recipe = 'cpuPortInit'\nchip = 'leaf'\nblock = [ 1 ]" ),
      "4: a step does one thing; write \"recipe\", \"poke\", "
      "or \"block\" and \"unblock\" with a \"chip\"" },
    { "ExpectOfAStageStep", step( "chip = 'leaf'\nblock = [ 1 ]\nexpect = true" ),
      "7: \"expect\" does not go with \"block or unblock\" in one "
      "step; make it a step of its own" },
    { "UnknownRecipe", step( "recipe = 'setEgrTunelEcnEncap'" ),
      "5: there is no recipe \"setEgrTunelEcnEncap\"; the nearest is setEgrTunnelEcnEncap; "
      "\"cairn-lt list\" shows all" },
    { "RecipeIsNoText", step( "recipe = 1" ), "5: recipe must be a text, not an integer" },
    { "NoArguments", step( "recipe = 'setEgrTunnelEcnEncap'" ),
      "5: setEgrTunnelEcnEncap needs an argument \"unit\" (uint32_t)" },
    { "MissingArgument",
      step( "recipe = 'setEgrTunnelEcnEncap'\narguments = { unit = 0, index = 5 }" ),
      "6: setEgrTunnelEcnEncap needs an argument \"outerEcn\" (uint32_t)" },
    { "TooFewArguments", step( "recipe = 'setEgrTunnelEcnEncap'\narguments = [ 0 ]" ),
      "6: setEgrTunnelEcnEncap needs an argument \"index\" (uint32_t)" },
    { "TooManyArguments", step( "recipe = 'setOpaqueTagEgress'\narguments = [\n0,\n1 ]" ),
      "8: setOpaqueTagEgress takes 1 arguments, not 2; remove the rest" },
    { "UnknownArgument",
      step( "recipe = 'setEgrTunnelEcnEncap'\narguments = { unit = 0, index = 5, outerECM = 1 }" ),
      "6: setEgrTunnelEcnEncap has no parameter \"outerECM\"; the nearest is outerEcn" },
    { "ArgumentsAreNoArguments", step( "recipe = 'setEgrTunnelEcnEncap'\narguments = 3" ),
      "6: arguments must be an array, not an integer" },
    { "TextForANumber", step( "recipe = 'setEgrTunnelEcnEncap'\narguments = [ 0, '5', 2 ]" ),
      "6: setEgrTunnelEcnEncap: index must be an integer, not a text" },
    { "NumberForABool", step( "recipe = 'setLearnCacheEnabled'\narguments = [ 0, 1 ]" ),
      "6: setLearnCacheEnabled: enable must be true or false, not an integer" },
    { "NumberForAText", step( "recipe = 'programMonTraceCpu'\narguments = [ 0, 1 ]" ),
      "6: programMonTraceCpu: errorType must be a text, not an integer" },
    { "RealForANumber", step( "recipe = 'setEgrTunnelEcnEncap'\narguments = [ 0, 5.0, 2 ]" ),
      "6: setEgrTunnelEcnEncap: index must be an integer, not a floating-point number" },
    { "NegativeNumber", step( "recipe = 'setEgrTunnelEcnEncap'\narguments = [ 0, -5, 2 ]" ),
      "6: setEgrTunnelEcnEncap: index: \"-5\" is not a uint32_t; write 0 to 4294967295, in decimal "
      "or in hexadecimal after 0x" },
    { "NumberOutOfRange",
      step( "recipe = 'setOpaqueTagIngress'\narguments = { unit = 0, tagType = 256 }" ),
      "6: setOpaqueTagIngress: tagType: 256 is too large for a uint8_t; write 0 to 255" },
    { "BitmapTooLarge", step( "recipe = 'resetIngEnEfilterBitMap'\narguments = [ 0, 4097 ]" ),
      "6: resetIngEnEfilterBitMap: bitMapBits: 4097 is too large: "
      "the recipe has that many zeros to hand over; write 0 to 4096" },
    { "ArgumentOfUnknownUnit", step( "recipe = 'setOpaqueTagEgress'\narguments = [ 9 ]" ),
      "6: setOpaqueTagEgress: unit: there is no unit 9; the chips are units 0" },
    { "ArgumentOfUnknownChip",
      step( "recipe = 'verifyL2IfIngSystemPortTable'\n"
            "arguments = [ 'lead', 0, 1, 5, 128, 77, true ]" ),
      "6: verifyL2IfIngSystemPortTable: chipInfo: there is no chip \"lead\"; the nearest is leaf" },
    { "NoModule", step( "recipe = 'setVlanXlateMissDrop'" ),
      "5: setVlanXlateMissDrop: it works on the first module, and there is none; describe it as "
      "[[modules]]" },
    { "ExpectOfNothing", step( "recipe = 'cpuPortInit'\nexpect = true" ),
      "6: cpuPortInit returns nothing, so nothing can be expected of it; leave \"expect\" out" },
    { "ExpectOfAnotherType",
      step( "recipe = 'getOpaqueTagEgress'\narguments = [ 0 ]\nexpect = true" ),
      "7: getOpaqueTagEgress: expect: \"true\" is not a uint16_t; write 0 to 65535" },
    { "ExpectOutOfRange",
      step( "recipe = 'getOpaqueTagEgress'\narguments = [ 0 ]\nexpect = 65536" ),
      "7: getOpaqueTagEgress: expect: \"65536\" is not a uint16_t; write 0 to 65535" },
    { "ExpectIsNoValue", step( "recipe = 'getOpaqueTagEgress'\narguments = [ 0 ]\nexpect = [ 1 ]" ),
      "7: expect must not be an array" },
    { "StagesWithoutChip", step( "block = [ 55 ]" ),
      "4: a step with \"block\" or \"unblock\" needs a key \"chip\"" },
    { "StagesOfUnknownChip", step( "chip = 'x'\nblock = [ 55 ]" ),
      "5: there is no chip \"x\"; there is leaf" },
    { "PokeOfUnknownTable",
      step( "poke = { unit = 0, table = 'EGR_VLAN_CONTROL_2r', field = 'X', value = 1 }" ),
      "5: there is no table \"EGR_VLAN_CONTROL_2r\"; the nearest is EGR_VLAN_CONTROL_1r" },
    { "PokeOfALogicalTable",
      step( "poke = { unit = 0, table = 'PC_PORT', field = 'ENABLE', value = 1 }" ),
      "5: PC_PORT is a logical table; only registers and memories change behind the SDK" },
    { "PokeOfUnknownField",
      step( "poke = { unit = 0, table = 'EGR_VLAN_CONTROL_1r', field = 'VT_ENABEL', value = 1 }" ),
      "5: EGR_VLAN_CONTROL_1r has no field \"VT_ENABEL\"; the nearest is VT_ENABLE" },
    { "PokeOfATooLargeValue",
      step( "poke = { unit = 0, table = 'EGR_VLAN_CONTROL_1r', field = 'VT_ENABLE', value = 2 }" ),
      "5: EGR_VLAN_CONTROL_1r.VT_ENABLE: 2 is too large; write 0 to 1" },
    { "PokeOfATooLargePort",
      step( "poke = { unit = 0, table = 'EGR_VLAN_CONTROL_1r', port = 1024, field = 'VT_ENABLE', "
            "value = 1 }" ),
      "5: port: 1024 is too large; write 0 to 1023" },
};

INSTANTIATE_TEST_SUITE_P( All, BringupFileRefusalTest, ::testing::ValuesIn( badBringups ),
                          []( const auto & each ) { return std::string( each.param.name ); } );

TEST( BringupFileTest, TomlErrorsHaveTheirLine ) {
    const std::string message = refusalOfBringup( oneChip + "[[steps]]\nrecipe = cpuPortInit\n" );
    EXPECT_TRUE( message.starts_with( "x.toml:5: not TOML: " ) ) << message;
    EXPECT_EQ( message.find( '\n' ), std::string::npos );
}

} // namespace
