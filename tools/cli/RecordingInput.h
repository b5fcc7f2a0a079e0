#pragma once

#include "tracereader/Recording.h"

#include <string>

// Recordings as the arguments of a verb.

namespace Tool {

/// Whether a path is that of a recording rather than of a state file. InputError if it is neither.
bool isRecording( const std::string & path );

/// Says on standard error what a recording that was read to its end does not have. True if that is
/// damage.
bool tellLosses( const TraceReader::Recording & recording );

} // namespace Tool
