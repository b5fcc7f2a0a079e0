#pragma once

#include <string_view>

namespace Tool {

/// The page of page/ with its style and its script, and "@DATA@" where the data goes. The build
/// makes its source with page/Embed.cmake.
std::string_view reportTemplate();

} // namespace Tool
