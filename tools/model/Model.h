#pragma once

#include "sim/Schema.h"

#include <ChipModel/CairnCommonSmData.h>
#include <ChipModel/ChipInfo.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// What an agent knows, as a bring-up file describes it: chips with their profiles and stages,
// modules, ports. A plain value; applyModel() makes it the chip model that recipes ask.

namespace Sim {
class Chip;
}

namespace Tool {

/// A chip is not small. A file of these limits cannot ask for more memory than a machine has.
inline constexpr std::size_t mostChips = 1024;
inline constexpr std::size_t mostTables = 4096; ///< of one chip

/// One chip, which is one unit of the SDK.
struct ChipDescription {
    CairnCentral::ChipInfo info;
    int unit = 0;
    Sim::Schema schema;
    /// Where the schema comes from: "reference" or a chip file.
    std::string source;

    /// The chip's active profile; a chip without one has none.
    struct Profile {
        /// The system-port numbering feature: bits for the port, 1 to 16.
        std::optional<uint32_t> systemPortBits;
        /// The chip attributes.
        std::optional<bool> hasRangeTableIndex;
    };
    std::optional<Profile> profile;
    std::vector<uint32_t> blockedStages;

    std::string name() const { return std::string( info.name().view() ); }
};

/// A module: its id and its record.
struct ModuleDescription {
    uint16_t id = 0;
    Cairn::CairnModInfo info;
};

struct CpuPortDescription {
    CairnTypes::CairnPort port;
    Netbase::IntfId interface;
};

struct RecirculationDescription {
    Netbase::IntfId interface;
    CairnTypes::CairnPort port;
};

struct HardwarePortDescription {
    CairnTypes::CairnPort port;
    Hardware::Cairn::TridentPortId hardware;
};

struct Model {
    std::vector<ChipDescription> chips;
    // In the order in which recipes walk them.
    std::vector<ModuleDescription> modules;
    std::vector<CpuPortDescription> cpuPorts;
    std::vector<RecirculationDescription> recirculationPorts;
    std::vector<HardwarePortDescription> hardwarePorts;
    /// Whether a debug assertion stops the process.
    bool debugAssertStops = false;

    const ChipDescription * findChip( std::string_view name ) const;
    const ChipDescription * findUnit( uint64_t unit ) const;
};

/// One chip of the given schema as unit `unit`, called "chipUNIT", with chip attributes.
ChipDescription defaultChip( int unit, Sim::Schema schema, std::string source );

/// What `run` and `explain` use when no bring-up file describes a model: the chips given; for each
/// chip a module (its id is the unit), a CPU port and a recirculation port; all chips still blocked
/// at stage 106, before the VLAN translation miss policy is there.
Model defaultModel( std::vector<ChipDescription> chips );

/// Makes the model the one that the process's recipes ask: profiles, stages, debug assertions.
/// Returns the shared state. What an earlier model set is forgotten.
Cairn::CairnCommonSmData::Ptr applyModel( const Model & model );

/// Adds the model's chips to a simulated chip as its units.
void addUnits( Sim::Chip & chip, const Model & model );

} // namespace Tool
