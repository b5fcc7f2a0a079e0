#include <csignal>

// Part of the library in coverage builds only: a process that a recipe stops has run code that
// must be counted, so its counters are written at the abort.

extern "C" void __gcov_dump();

namespace {

extern "C" void dumpAndReturn( int ) {
    // abort() goes on when the handler returns.
    __gcov_dump();
}

[[maybe_unused]] const auto previous = std::signal( SIGABRT, dumpAndReturn );

} // namespace
