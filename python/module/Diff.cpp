#include "tools/recording/StateDiff.h"
#include "tools/recording/StateDifferences.h"

#include "python/module/Bindings.h"
#include "python/module/Chip.h"

#include <pybind11/stl.h>

#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace py = pybind11;

namespace Python {

namespace {

using Difference = std::tuple<std::string, int, std::string, std::optional<Sim::RowImage>,
                              std::optional<Sim::RowImage>>;

const char * kindName( Tool::RowDifference::Kind kind ) {
    switch ( kind ) {
    case Tool::RowDifference::Kind::added:
        return "added";
    case Tool::RowDifference::Kind::removed:
        return "removed";
    default:
        return "changed";
    }
}

std::vector<Tool::RowDifference> compare( const ChipObject & before, const ChipObject & after ) {
    const std::string why = Tool::incomparable( before.chip, after.chip );
    if ( !why.empty() )
        throw py::value_error( why );
    return Tool::differencesOf( before.chip, after.chip );
}

} // namespace

void bindDiff( py::module_ & module ) {
    module.def(
        "differences",
        []( const ChipObject & before, const ChipObject & after ) {
            std::vector<Difference> found;
            for ( const Tool::RowDifference & each : compare( before, after ) )
                found.emplace_back( kindName( each.kind ), each.unit, each.table->name, each.before,
                                    each.after );
            return found;
        },
        py::arg( "before" ), py::arg( "after" ),
        "The rows that differ: kind, unit, table, row before and row after." );
    module.def(
        "differences_text",
        []( const ChipObject & before, const ChipObject & after ) {
            return Tool::differencesText( compare( before, after ) );
        },
        py::arg( "before" ), py::arg( "after" ), "The same for people." );
}

} // namespace Python
