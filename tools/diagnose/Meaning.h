#pragma once

#include <string_view>

// What return codes and assertions mean, and their usual causes.

namespace Tool {

/// One or two sentences about a code of the simulated SDK; empty if it has no such code.
std::string_view meaningOfCode( int rc );

/// The same about the expression of an assertion of the library.
std::string_view meaningOfAssertion( std::string_view expression );

} // namespace Tool
