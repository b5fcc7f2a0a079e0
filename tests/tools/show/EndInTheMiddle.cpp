#include <atomic>
#include <csignal>
#include <cstdlib>
#include <sys/types.h>

// A cairn-lt that gets a signal, END_WITH, in the middle of what it writes: at the call number END_AT
// of those below, counted from 1. A file is then written by half, or has not its name yet.

// The linker takes these for what the libraries of sanitizers call, too: they must not be hidden.
#pragma GCC visibility push( default )
extern "C" {

ssize_t __real_write( int descriptor, const void * data, std::size_t size );
int __real_fsync( int descriptor );
int __real_rename( const char * from, const char * to );

static int numberIn( const char * variable ) {
    const char * const text = std::getenv( variable );
    return text == nullptr ? 0 : std::atoi( text );
}

static bool isTheCall() {
    static std::atomic<int> calls = 0;
    static const int wanted = numberIn( "END_AT" );
    return ++calls == wanted;
}

ssize_t __wrap_write( int descriptor, const void * data, std::size_t size ) {
    if ( !isTheCall() )
        return __real_write( descriptor, data, size );
    const ssize_t written = __real_write( descriptor, data, ( size + 1 ) / 2 );
    std::raise( numberIn( "END_WITH" ) );
    return written;
}

int __wrap_fsync( int descriptor ) {
    if ( isTheCall() )
        std::raise( numberIn( "END_WITH" ) );
    return __real_fsync( descriptor );
}

int __wrap_rename( const char * from, const char * to ) {
    if ( isTheCall() )
        std::raise( numberIn( "END_WITH" ) );
    return __real_rename( from, to );
}
}
#pragma GCC visibility pop
