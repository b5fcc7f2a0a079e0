#pragma once

#include <cstdint>
#include <optional>

namespace Support {

/// How many instructions `work` executes, counted by single-stepping a child process through it;
/// the call and the return are in the count. Nothing where a process cannot be stepped.
std::optional<std::uint64_t> countInstructions( void ( *work )() );

} // namespace Support
