#include "tests/support/TemporaryFolder.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace Support {

TemporaryFolder::TemporaryFolder()
    : path_( ( std::filesystem::temp_directory_path() / "cairn-test-XXXXXX" ).string() ) {
    if ( ::mkdtemp( path_.data() ) == nullptr )
        throw std::system_error( errno, std::generic_category(), path_ );
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all( path_, ignored );
}

std::string TemporaryFolder::path( const std::string & name ) const { return path_ + "/" + name; }

std::string TemporaryFolder::write( const std::string & name, const std::string & contents ) const {
    std::ofstream( path( name ), std::ios::binary ) << contents;
    return path( name );
}

std::string contents( const std::string & path ) {
    std::ifstream file( path, std::ios::binary );
    return { std::istreambuf_iterator<char>( file ), {} };
}

} // namespace Support
