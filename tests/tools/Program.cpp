#include "tests/tools/Program.h"

#include "tests/support/ChildProcess.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <pty.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace ToolTest {

namespace {

void redirect( int descriptor, const std::string & path ) {
    const int file = ::open( path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600 );
    ::dup2( file, descriptor );
    ::close( file );
}

// The child process becomes cairn-lt.
void become( const std::vector<std::string> & arguments ) {
    std::vector<char *> argv{ const_cast<char *>( "cairn-lt" ) };
    for ( const std::string & argument : arguments )
        argv.push_back( const_cast<char *>( argument.c_str() ) );
    argv.push_back( nullptr );
    ::unsetenv( "KILN_TRACE" );
    // What the caller of the tests has open is none of the tool's.
    ::close_range( STDERR_FILENO + 1, ~0u, 0 );
    if ( ::chdir( SOURCE_TREE ) == 0 )
        ::execv( CAIRN_LT, argv.data() );
}

} // namespace

Outcome cairnLt( const std::vector<std::string> & arguments, const std::string & out,
                 const std::function<void()> & prepare ) {
    return StartedProgram( arguments,
                           [&] {
                               if ( !out.empty() )
                                   redirect( STDOUT_FILENO, out );
                               if ( prepare )
                                   prepare();
                           } )
        .wait();
}

StartedProgram::StartedProgram( const std::vector<std::string> & arguments,
                                const std::function<void()> & prepare )
    : process_( Support::startChild( [&] {
          redirect( STDOUT_FILENO, folder_.path( "out" ) );
          redirect( STDERR_FILENO, folder_.path( "err" ) );
          if ( prepare )
              prepare();
          become( arguments );
          return false;
      } ) ) {}

StartedProgram::~StartedProgram() {
    if ( process_ > 0 ) {
        ::kill( process_, SIGKILL );
        Support::statusOf( process_ );
    }
}

bool StartedProgram::hasEnded() const {
    siginfo_t info{};
    return ::waitid( P_PID, static_cast<id_t>( process_ ), &info, WEXITED | WNOHANG | WNOWAIT ) !=
               0 ||
           info.si_pid == process_;
}

bool StartedProgram::says( const std::string & text ) const {
    for ( ;; ) {
        const bool isLast = hasEnded();
        if ( Support::contents( folder_.path( "err" ) ).find( text ) != std::string::npos )
            return true;
        if ( isLast )
            return false;
        ::usleep( 1000 );
    }
}

Outcome StartedProgram::wait() {
    const int status = Support::statusOf( std::exchange( process_, -1 ) );
    Outcome outcome;
    if ( WIFEXITED( status ) )
        outcome.exitCode = WEXITSTATUS( status );
    if ( WIFSIGNALED( status ) )
        outcome.signal = WTERMSIG( status );
    outcome.out = Support::contents( folder_.path( "out" ) );
    outcome.err = Support::contents( folder_.path( "err" ) );
    return outcome;
}

std::string cairnLtOnTerminal( const std::vector<std::string> & arguments, const char * noColor ) {
    int terminal = -1;
    const pid_t child = ::forkpty( &terminal, nullptr, nullptr, nullptr );
    if ( child == 0 ) {
        ::setenv( "NO_COLOR", noColor, 1 );
        become( arguments );
        ::_exit( 1 );
    }
    std::string shown;
    char buffer[4096];
    for ( ;; ) {
        const ssize_t read = ::read( terminal, buffer, sizeof buffer );
        if ( read <= 0 ) // a terminal that its last process left reads as an error
            break;
        shown.append( buffer, static_cast<std::size_t>( read ) );
    }
    ::close( terminal );
    Support::statusOf( child );
    return shown;
}

std::vector<std::string> lines( const std::string & text ) {
    std::vector<std::string> all;
    std::istringstream stream( text );
    for ( std::string line; std::getline( stream, line ); )
        all.push_back( line );
    return all;
}

std::vector<std::string> linesWith( const std::string & text, const std::string & part ) {
    std::vector<std::string> found = lines( text );
    std::erase_if(
        found, [&]( const std::string & line ) { return line.find( part ) == std::string::npos; } );
    return found;
}

} // namespace ToolTest
