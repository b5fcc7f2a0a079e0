#include "tools/cli/RecordingInput.h"

#include "tools/cli/Output.h"
#include "tools/model/Errors.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace Tool {

std::unique_ptr<TraceReader::Recording> openRecording( const std::string & path,
                                                       std::optional<std::uint32_t> process,
                                                       const char * remedy ) {
    auto recording = std::make_unique<TraceReader::Recording>(
        std::vector{ path },
        TraceReader::Recording::Options{ .wantsMessages = true, .process = process } );
    const auto & processes = recording->processes();
    std::string all;
    for ( const auto & each : processes )
        all += fmt::format( "{}{} ({})", all.empty() ? "" : ", ", each.process, each.program );
    if ( processes.size() > 1 )
        throw InputError( path, 0,
                          "it holds the calls of " + std::to_string( processes.size() ) +
                              " processes: " + all,
                          remedy );
    return recording;
}

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
