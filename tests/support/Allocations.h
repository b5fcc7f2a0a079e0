#pragma once

#include <cstdint>

namespace Support {

/// How often the process has taken memory from the heap, on all threads. Programs that link the object
/// library cairn_allocations have a counting operator new.
uint64_t allocations() noexcept;

} // namespace Support
