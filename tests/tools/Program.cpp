#include "tests/tools/Program.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <pty.h>
#include <sstream>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ToolTest {

namespace {

void redirect( int descriptor, const std::string & path ) {
    const int file = ::open( path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600 );
    ::dup2( file, descriptor );
    ::close( file );
}

// The child of a fork becomes cairn-lt.
[[noreturn]] void become( const std::vector<std::string> & arguments ) {
    std::vector<char *> argv{ const_cast<char *>( "cairn-lt" ) };
    for ( const std::string & argument : arguments )
        argv.push_back( const_cast<char *>( argument.c_str() ) );
    argv.push_back( nullptr );
    const rlimit noCore{ 0, 0 };
    ::setrlimit( RLIMIT_CORE, &noCore );
    ::unsetenv( "KILN_TRACE" );
    if ( ::chdir( SOURCE_TREE ) == 0 )
        ::execv( CAIRN_LT, argv.data() );
    ::_exit( 127 );
}

} // namespace

Outcome cairnLt( const std::vector<std::string> & arguments, const std::string & outFile ) {
    const TemporaryFolder folder;
    const std::string out = outFile.empty() ? folder.path( "out" ) : outFile;
    const std::string err = folder.path( "err" );
    const pid_t child = ::fork();
    if ( child == 0 ) {
        redirect( STDOUT_FILENO, out );
        redirect( STDERR_FILENO, err );
        become( arguments );
    }
    int status = 0;
    ::waitpid( child, &status, 0 );
    Outcome outcome;
    if ( WIFEXITED( status ) )
        outcome.exitCode = WEXITSTATUS( status );
    if ( WIFSIGNALED( status ) )
        outcome.signal = WTERMSIG( status );
    outcome.out = outFile.empty() ? contents( out ) : "";
    outcome.err = contents( err );
    return outcome;
}

std::string cairnLtOnTerminal( const std::vector<std::string> & arguments, const char * noColor ) {
    int terminal = -1;
    const pid_t child = ::forkpty( &terminal, nullptr, nullptr, nullptr );
    if ( child == 0 ) {
        ::setenv( "NO_COLOR", noColor, 1 );
        become( arguments );
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
    ::waitpid( child, nullptr, 0 );
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

TemporaryFolder::TemporaryFolder()
    : path_( ( std::filesystem::temp_directory_path() / "cairn-lt-test-XXXXXX" ).string() ) {
    if ( ::mkdtemp( path_.data() ) == nullptr )
        throw std::runtime_error( "no temporary folder" );
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all( path_, ignored );
}

std::string TemporaryFolder::write( const std::string & name, const std::string & text ) const {
    std::ofstream( path( name ), std::ios::binary ) << text;
    return path( name );
}

std::string contents( const std::string & path ) {
    std::ifstream file( path, std::ios::binary );
    return { std::istreambuf_iterator<char>( file ), {} };
}

} // namespace ToolTest
