#pragma once

#include <string>
#include <string_view>

// Files, read and written as a whole.

namespace Tool {

/// The contents of a file; InputError, naming the file and the reason, if it cannot be read.
std::string readFile( const std::string & path );

/// Writes all of `text`; false, with errno set, if that fails.
bool writeAll( int descriptor, std::string_view text ) noexcept;

} // namespace Tool
