#include "text/Escape.h"
#include "tools/cli/StateDifferences.h"
#include "tools/cli/Verbs.h"
#include "tools/model/Errors.h"
#include "tools/model/Files.h"
#include "tools/model/State.h"

#include <nlohmann/json.hpp>

#include <vector>

namespace Tool {

namespace {

void load( Sim::Chip & chip, const std::string & file ) {
    const std::vector<SavedUnit> kept = parseState( readFile( file ), file );
    for ( const SavedUnit & unit : kept )
        chip.addUnit( unit.unit, unit.schema );
    restore( chip, kept, file );
}

int diffStates( const DiffOptions & options ) {
    Sim::Chip before;
    Sim::Chip after;
    load( before, options.before );
    load( after, options.after );
    const std::string trouble = incomparable( before, after );
    if ( !trouble.empty() )
        throw InputError( options.before + " and " + options.after +
                          " are states of different chips: " + trouble +
                          "; compare states of the same chips" );
    const std::vector<RowDifference> differences = differencesOf( before, after );
    if ( options.format == Format::json ) {
        print( documentText( differencesJson( differences ) ) );
    } else if ( !differences.empty() ) {
        print( "--- " + Text::printable( options.before ) + "\n+++ " +
               Text::printable( options.after ) + "\n" + differencesText( differences ) );
    }
    return differences.empty() ? 0 : 1;
}

} // namespace

int diff( const DiffOptions & options ) { return diffStates( options ); }

} // namespace Tool
