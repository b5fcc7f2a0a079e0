#include "tools/recording/OpenRecording.h"

#include "tools/model/Errors.h"

#include <fmt/format.h>

#include <vector>

namespace Tool {

std::unique_ptr<TraceReader::Recording> openRecording( const std::string & path,
                                                       std::optional<std::uint32_t> process,
                                                       const char * remedy ) {
    auto recording = std::make_unique<TraceReader::Recording>(
        std::vector{ path },
        TraceReader::Recording::Options{ .wantsMessages = true, .process = process } );
    needOneProcess( *recording, path, remedy );
    return recording;
}

void needOneProcess( const TraceReader::Recording & recording, const std::string & path,
                     const char * remedy ) {
    const auto & processes = recording.processes();
    std::string all;
    for ( const auto & each : processes )
        all += fmt::format( "{}{} ({})", all.empty() ? "" : ", ", each.process, each.program );
    if ( processes.size() > 1 )
        throw InputError(
            path, 0, fmt::format( "it holds the calls of {} processes: {}", processes.size(), all ),
            remedy );
}

} // namespace Tool
