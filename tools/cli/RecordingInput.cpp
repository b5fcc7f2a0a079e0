#include "tools/cli/RecordingInput.h"

#include "tools/cli/Output.h"
#include "tools/model/Errors.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace Tool {

bool isRecording( const std::string & path ) {
    std::error_code error;
    if ( std::filesystem::is_directory( path, error ) )
        return true;
    std::ifstream file( path, std::ios::binary );
    if ( !file )
        throw InputError( path, 0, std::string( "cannot be read: " ) + std::strerror( errno ) );
    file >> std::ws;
    if ( file.peek() == '{' )
        return false;
    try {
        TraceReader::File trace( path );
        return true;
    } catch ( const TraceReader::Error & ) {
        throw InputError( path, 0, "neither a state file nor a recording",
                          "name a file that --state has written, or what --record-to has" );
    }
}

bool tellLosses( const TraceReader::Recording & recording ) {
    bool isDamaged = false;
    for ( const TraceReader::Finding & finding : recording.findings() ) {
        complain( finding.text() );
        isDamaged = isDamaged || finding.kind == TraceReader::Finding::Kind::damage;
    }
    return isDamaged;
}

} // namespace Tool
