#pragma once

#include <cstdint>

namespace Support {

/// How often the process has taken memory from the heap, on all threads. Programs that link the
/// object library cairn_allocations have a counting operator new.
std::uint64_t allocations() noexcept;

/// While one lives, the calling thread gets no memory from operator new: it throws. Not nested.
class NoMemory {
  public:
    NoMemory() noexcept;
    ~NoMemory();
    NoMemory( const NoMemory & ) = delete;
    NoMemory & operator=( const NoMemory & ) = delete;
};

} // namespace Support
