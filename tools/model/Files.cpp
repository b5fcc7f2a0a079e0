#include "tools/model/Files.h"

#include "tools/model/Errors.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <unistd.h>

namespace Tool {

std::string readFile( const std::string & path ) {
    const auto refuse = [&]( int error ) -> InputError {
        return InputError( path, 0, fmt::format( "cannot be read: {}", std::strerror( error ) ) );
    };
    const std::unique_ptr<std::FILE, int ( * )( std::FILE * )> file(
        std::fopen( path.c_str(), "rbe" ), &std::fclose );
    if ( !file )
        throw refuse( errno );
    std::string contents;
    char buffer[65536];
    while ( const std::size_t read = std::fread( buffer, 1, sizeof buffer, file.get() ) )
        contents.append( buffer, read );
    if ( std::ferror( file.get() ) )
        throw refuse( errno );
    return contents;
}

bool writeAll( int descriptor, std::string_view text ) noexcept {
    while ( !text.empty() ) {
        const ssize_t written = ::write( descriptor, text.data(), text.size() );
        if ( written < 0 && errno == EINTR )
            continue;
        if ( written < 0 )
            return false;
        text.remove_prefix( static_cast<std::size_t>( written ) );
    }
    return true;
}

} // namespace Tool
