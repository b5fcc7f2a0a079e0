#include "tests/support/InstructionCount.h"

#include "tests/support/ChildProcess.h"

#include <cerrno>
#include <csignal>
#include <sys/ptrace.h>
#include <sys/user.h>
#include <sys/wait.h>

namespace Support {

#if defined( __x86_64__ )

namespace {

bool runStepped( void ( *work )() ) {
    work(); // what happens once is not counted: symbols are bound, pages are touched
    if ( ::ptrace( PTRACE_TRACEME, 0, nullptr, nullptr ) != 0 )
        return false;
    asm volatile( "int3" );
    work();
    asm volatile( "int3" );
    return true;
}

// Whether the child has stopped behind a breakpoint, and not after a single step. Under some
// hypervisors the signal does not tell the two apart, so the instruction is checked as well.
bool isAtBreakpoint( pid_t child ) {
    siginfo_t info{};
    if ( ::ptrace( PTRACE_GETSIGINFO, child, nullptr, &info ) != 0 || info.si_code == TRAP_TRACE )
        return false;
    user_regs_struct registers{};
    if ( ::ptrace( PTRACE_GETREGS, child, nullptr, &registers ) != 0 )
        return false;
    constexpr long breakpoint = 0xCC;
    errno = 0;
    const long code = ::ptrace( PTRACE_PEEKTEXT, child, registers.rip - 1, nullptr );
    return errno == 0 && ( code & 0xFF ) == breakpoint;
}

} // namespace

std::optional<std::uint64_t> countInstructions( void ( *work )() ) {
    const pid_t child = startChild( [work] { return runStepped( work ); } );
    std::optional<std::uint64_t> count;
    std::uint64_t steps = 0;
    int status = 0;
    bool counting = false;
    while ( ::waitpid( child, &status, 0 ) == child && WIFSTOPPED( status ) ) {
        if ( WSTOPSIG( status ) != SIGTRAP )
            break;
        if ( isAtBreakpoint( child ) ) {
            if ( counting ) {
                count = steps - 1; // the breakpoint itself
                break;
            }
            counting = true;
        } else
            ++steps;
        if ( ::ptrace( PTRACE_SINGLESTEP, child, nullptr, nullptr ) != 0 )
            break;
    }
    ::kill( child, SIGKILL );
    ::waitpid( child, &status, 0 ); // it may have ended before
    return count;
}

#else

std::optional<std::uint64_t> countInstructions( void ( * )() ) { return std::nullopt; }

#endif

} // namespace Support
