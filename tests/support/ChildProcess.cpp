#include "tests/support/ChildProcess.h"

#include <cerrno>
#include <cstdio>
#include <sys/resource.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace Support {

pid_t startChild( const std::function<bool()> & work ) {
    std::fflush( nullptr ); // or the child writes what is buffered a second time
    const pid_t child = ::fork();
    if ( child < 0 )
        throw std::system_error( errno, std::generic_category(), "fork" );
    if ( child == 0 ) {
        const rlimit noCore{ 0, 0 };
        ::setrlimit( RLIMIT_CORE, &noCore );
        ::_exit( work() ? 0 : 1 );
    }
    return child;
}

int statusOf( pid_t child ) {
    int status = 0;
    if ( ::waitpid( child, &status, 0 ) != child )
        throw std::system_error( errno, std::generic_category(), "waitpid" );
    return status;
}

int runInChild( const std::function<bool()> & work ) { return statusOf( startChild( work ) ); }

} // namespace Support
