#pragma once

#include <string>
#include <string_view>

namespace Fleetlog {

/// Throws a std::system_error of this library.
[[noreturn]] void fail( int error, const std::string & what );

/// Says on standard error, in one line, "WHY; WHAT of process NUMBER CONSEQUENCE": for where there is
/// no caller who could be told.
void reportLoss( std::string_view why, std::string_view what = "messages",
                 std::string_view consequence = "are not recorded" ) noexcept;

} // namespace Fleetlog
