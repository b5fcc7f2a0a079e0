#pragma once

#include "sim/Chip.h"
#include "tools/model/Model.h"

#include <string>
#include <string_view>
#include <vector>

// State files: simulated chips kept between two commands. JSON, with the chips' schemas, so that a
// file is complete in itself. docs/state-file.md describes the format.

namespace Tool {

/// The version that is written, and the only one that is read.
inline constexpr int stateVersion = 1;

/// One unit as it was kept.
struct KeptUnit {
    struct Contents {
        std::string table;
        std::vector<Sim::RowImage> rows;
    };
    int unit = 0;
    Sim::Schema schema;
    std::vector<Contents> tables;
};

/// Reads `contents`; `file` is what messages (InputError) call it. What is returned can be restored.
std::vector<KeptUnit> parseState( std::string_view contents, const std::string & file );

/// The chips of a state file; none if there is no such file yet.
std::vector<KeptUnit> loadState( const std::string & file );

/// The chips that a state file keeps, as chips of a model ("chipUNIT").
std::vector<ChipDescription> keptChips( const std::string & stateFile );

/// Fills a chip that has the kept units with what was kept. Throws InputError if a row does not fit.
void restore( Sim::Chip & chip, const std::vector<KeptUnit> & units, const std::string & file );

/// Writes all units of a chip. The file is replaced as a whole: another process sees the old or the
/// new one. Trouble, and the old file is kept, if that fails.
void saveState( const Sim::Chip & chip, const std::string & file );

} // namespace Tool
