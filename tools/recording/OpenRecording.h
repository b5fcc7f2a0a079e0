#pragma once

#include "tracereader/Recording.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

// Recordings for what needs one process's calls, as replay and comparison do.

namespace Tool {

/// Opens a recording: a trace file, or a folder with trace files. InputError, with this remedy, if it
/// has the calls of several processes, and none is chosen.
std::unique_ptr<TraceReader::Recording>
openRecording( const std::string & path, std::optional<std::uint32_t> process = {},
               const char * remedy = "choose one with --process" );

/// InputError, with this remedy, if a recording has the calls of several processes.
void needOneProcess( const TraceReader::Recording & recording, const std::string & path,
                     const char * remedy = "choose one with --process" );

} // namespace Tool
