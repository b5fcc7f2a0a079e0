#pragma once

#include "tracereader/Recording.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

// Recordings as the arguments of a verb.

namespace Tool {

/// Opens a recording: a trace file, or a folder with trace files. InputError, with this remedy, if it
/// has the calls of several processes, and none is chosen.
std::unique_ptr<TraceReader::Recording>
openRecording( const std::string & path, std::optional<std::uint32_t> process = {},
               const char * remedy = "choose one with --process" );

/// Whether a path is that of a recording rather than of a state file. InputError if it is neither.
bool isRecording( const std::string & path );

/// Says on standard error what a recording that was read to its end does not have. True if that is
/// damage.
bool tellLosses( const TraceReader::Recording & recording );

} // namespace Tool
