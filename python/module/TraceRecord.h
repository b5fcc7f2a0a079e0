#pragma once

#include "tracereader/TraceReader.h"

#include <pybind11/pybind11.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Python {

/// A record of a trace, with its values in their types.
struct TraceRecord {
    std::int64_t time = 0;
    std::uint32_t process = 0;
    std::uint32_t thread = 0;
    std::string file;
    std::uint32_t line = 0;
    std::string function;
    std::string text;
    pybind11::tuple values;
};

TraceRecord toPython( const TraceReader::Record & record );

/// A text out of a file, which may be no UTF-8.
pybind11::str validText( std::string_view text );

std::vector<std::string> textsOf( const std::vector<TraceReader::Finding> & findings );

} // namespace Python
