#pragma once

#include "tools/cli/Verbs.h"
#include "tools/diagnose/CrashScene.h"
#include "tools/diagnose/Diagnosis.h"
#include "tools/diagnose/LastRecords.h"
#include "tools/diagnose/Sites.h"

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// A diagnosis as the verb prints it.

namespace Tool {

/// What the trace and the rest of the report say of one stop.
struct Context {
    ThreadFound found = {};
    std::optional<CrashScene> scene = {};
    /// Nothing: the trace has no SDK operations, which alone would tell.
    std::optional<std::size_t> failuresLikeIt = {};
    std::optional<TraceReader::RecordedCall> lastLikeIt = {};
    /// In the report: how many like it stand before it, and the line of the first.
    std::size_t stopsLikeIt = 0;
    std::size_t firstLikeIt = 0;
};

/// "an SDK call failed"
const char * endText( const Stop & stop );

/// Lines of a label and what it says, under each other. A line without a label goes on with what the
/// one before it says.
class Sheet {
  public:
    using Line = std::pair<std::string, std::string>;

    /// Nothing for an empty text.
    void add( std::string_view label, std::string_view text );
    const std::vector<Line> & lines() const { return lines_; }
    std::string text() const;

  private:
    std::vector<Line> lines_;
};

/// "line 1: an SDK call failed"
std::string stopTitle( const Stop & stop );
/// All that is known of one stop.
Sheet stopSheet( const Diagnosis & diagnosis, const SiteTable & table, const Context & context );
nlohmann::ordered_json stopJson( const Diagnosis & diagnosis, const Context & context );

/// The words of JSON documents: "api_error", "exactly".
const char * nameOf( Stop::Kind kind );
const char * nameOf( Diagnosis::Found found );

/// Prints the page of an error, or all pages. Returns the exit code.
int showErrorPage( const std::string & wanted, DiagnoseFormat format );

} // namespace Tool
