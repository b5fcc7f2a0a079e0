#pragma once

#include "tools/show/Report.h"

#include <string>

// A report as one HTML page that needs nothing else: no network, no other file. The page is written in
// page/; what it shows is packed into it, deflated, and unpacked when it is opened.

namespace Tool {

std::string pageOf( const Report & report );

} // namespace Tool
