#include "tools/model/ChipOptions.h"

#include "text/Numbers.h"
#include "tools/model/BringupFile.h"
#include "tools/model/ChipFile.h"
#include "tools/model/Errors.h"
#include "tools/model/State.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <utility>

namespace Tool {

namespace {

constexpr int largestUnit = 65535;

// One --chip: its unit, if it is given, and its source.
std::pair<std::optional<int>, std::string> splitChip( const std::string & text ) {
    const auto equals = text.find( '=' );
    const bool hasUnit = equals != std::string::npos && equals > 0 &&
                         text.find_first_not_of( "0123456789" ) == equals;
    if ( !hasUnit )
        return { {}, text };
    uint64_t unit = 0;
    if ( !Text::parseNumber( std::string_view( text ).substr( 0, equals ), unit ) ||
         unit > uint64_t( largestUnit ) )
        throw InputError( fmt::format( "--chip {}: the unit is too large", text ),
                          fmt::format( "write 0 to {}", largestUnit ) );
    return { static_cast<int>( unit ), text.substr( equals + 1 ) };
}

std::vector<ChipDescription> chipsOf( const ChipOptions & options ) {
    std::vector<ChipDescription> chips;
    if ( options.chips.size() > mostChips )
        throw InputError( fmt::format( "--chip: there are {} chips", options.chips.size() ),
                          fmt::format( "give at most {}", mostChips ) );
    for ( const std::string & text : options.chips ) {
        const auto [given, source] = splitChip( text );
        const int unit = given ? *given : chips.empty() ? 0 : chips.back().unit + 1;
        if ( unit > largestUnit )
            throw InputError(
                fmt::format( "--chip {}: there is no unit after {}", text, largestUnit ),
                "write UNIT=FILE" );
        if ( std::any_of( chips.begin(), chips.end(),
                          [&]( const auto & chip ) { return chip.unit == unit; } ) )
            throw InputError(
                fmt::format( "--chip {}: unit {} is another chip already", text, unit ),
                "write UNIT=FILE" );
        chips.push_back( defaultChip( unit, loadChip( source ), source ) );
    }
    if ( chips.empty() && !options.state.empty() )
        chips = savedChips( options.state );
    if ( chips.empty() )
        chips.push_back( defaultChip( 0, Sim::referenceSchema(), "reference" ) );
    return chips;
}

} // namespace

Model modelOf( const ChipOptions & options ) {
    if ( !options.model.empty() && !options.chips.empty() )
        throw InputError( "--chip and --model both say what the chips are", "give one of them" );
    if ( !options.model.empty() )
        return loadBringup( options.model ).model;
    return defaultModel( chipsOf( options ) );
}

} // namespace Tool
