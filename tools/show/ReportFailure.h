#pragma once

#include "tools/diagnose/Sites.h"
#include "tools/show/Report.h"

#include <string>
#include <vector>

// Where in the library's source a call stands, as far as a recording tells.

namespace Tool {

/// The calls of the library that the call may be, if they are few. `recipe` may be empty: not known.
std::vector<Site> sourcesOf( const Report & report, const ReportCall & call,
                             const std::string & recipe );

} // namespace Tool
