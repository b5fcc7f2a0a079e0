#include "tools/cli/Tables.h"
#include "tools/cli/Verbs.h"
#include "tools/model/Errors.h"
#include "tools/model/Files.h"
#include "tools/model/State.h"

#include <nlohmann/json.hpp>

namespace Tool {

int dump( const DumpOptions & options ) {
    const std::vector<SavedUnit> kept = parseState( readFile( options.state ), options.state );
    Sim::Chip chip;
    for ( const SavedUnit & unit : kept )
        chip.addUnit( unit.unit, unit.schema );
    restore( chip, kept, options.state );

    const TableSelection selection{ .unit = options.unit,
                                    .tables = options.tables,
                                    .rows = options.all ? Sim::Rows::stored : Sim::Rows::touched };
    checkSelection( chip, selection );
    print( options.format == Format::json ? documentText( tablesJson( chip, selection ) )
                                          : tablesText( chip, selection ) );
    return 0;
}

} // namespace Tool
