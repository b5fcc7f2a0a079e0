#pragma once

#include "tools/show/Report.h"

#include <string>
#include <string_view>

// Makes a report of what `cairn-lt sweep --format json` and `cairn-lt diff --format json` print.

namespace Tool {

/// `file` is what messages call it. InputError if it is no such document.
void addDocument( Report & report, std::string_view contents, const std::string & file );

} // namespace Tool
