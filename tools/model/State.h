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

/// One unit as it was saved.
struct SavedUnit {
    struct Contents {
        std::string table;
        std::vector<Sim::RowImage> rows;
    };
    int unit = 0;
    Sim::Schema schema;
    std::vector<Contents> tables;
};

/// Reads `contents`; `file` is what messages (InputError) call it. What is returned can be restored.
std::vector<SavedUnit> parseState( std::string_view contents, const std::string & file );

/// The chips of a state file; none if there is no such file yet. InputError if it is no regular file.
std::vector<SavedUnit> loadState( const std::string & file );

/// The chips of a state file, as chips of a model ("chipUNIT").
std::vector<ChipDescription> savedChips( const std::string & stateFile );

/// Fills a chip that has the saved units with what was saved. Throws InputError if a row does not fit.
void restore( Sim::Chip & chip, const std::vector<SavedUnit> & units, const std::string & file );

/// The same, where something else told what the chips are. InputError, too, if one is another than the
/// chip that was saved.
void restoreDescribed( Sim::Chip & chip, const std::vector<SavedUnit> & units,
                       const std::string & file );

/// The contents of a state file of all units of a chip.
std::string stateText( const Sim::Chip & chip );

} // namespace Tool
