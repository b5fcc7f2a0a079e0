#include "tests/tools/Program.h"

#include "tests/support/ChildProcess.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <pty.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

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
    if ( ::chdir( SOURCE_TREE ) == 0 )
        ::execv( CAIRN_LT, argv.data() );
}

} // namespace

Outcome cairnLt( const std::vector<std::string> & arguments, const std::string & outFile,
                 const std::function<void()> & prepare ) {
    const Support::TemporaryFolder folder;
    const std::string out = outFile.empty() ? folder.path( "out" ) : outFile;
    const std::string err = folder.path( "err" );
    const int status = Support::runInChild( [&] {
        redirect( STDOUT_FILENO, out );
        redirect( STDERR_FILENO, err );
        if ( prepare )
            prepare();
        become( arguments );
        return false;
    } );
    Outcome outcome;
    if ( WIFEXITED( status ) )
        outcome.exitCode = WEXITSTATUS( status );
    if ( WIFSIGNALED( status ) )
        outcome.signal = WTERMSIG( status );
    outcome.out = outFile.empty() ? Support::contents( out ) : "";
    outcome.err = Support::contents( err );
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
