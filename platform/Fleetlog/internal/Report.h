#pragma once

#include <string_view>

namespace Fleetlog {

/// Says on standard error, in one line, that messages are not recorded, and why. Internal: for
/// where there is no caller who could be told.
void reportLoss( std::string_view why ) noexcept;

} // namespace Fleetlog
