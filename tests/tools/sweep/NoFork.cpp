#include <cerrno>
#include <sys/types.h>

// A system that has no process left.

extern "C" pid_t __wrap_fork() {
    errno = EAGAIN;
    return -1;
}
