#pragma once

#include "sim/Chip.h"
#include "tools/cli/Verbs.h"
#include "tools/diagnose/Bundle.h"
#include "tools/diagnose/LastRecords.h"
#include "tools/diagnose/Report.h"
#include "tools/diagnose/Sites.h"
#include "tools/model/Model.h"
#include "tools/model/State.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

// What is given to a diagnosis.

namespace Tool {

/// A report as messages call it.
std::string nameOf( const std::string & report );

/// A bundle is small enough to be kept; so is a report that goes into one.
ReportReader readText( std::string_view text );

/// A report, a file or "-". `whole`, if it is not null, gets the text. InputError if it cannot be
/// read.
ReportReader readReport( const std::string & path, std::string * whole = nullptr );

/// The sites and the chips that the options name.
SiteTable tableOf( const DiagnoseOptions & options );
Model modelFor( const DiagnoseOptions & options );

/// All that is given of one report, by itself or as a bundle.
struct Case {
    std::string name;
    std::string text = {}; ///< if it is to be kept
    ReportReader report = {};
    SiteTable table = {};
    Model model = {};
    TraceSource trace = {};
    std::shared_ptr<const Bundle::Traces> traces = {};
    std::vector<SavedUnit> saved = {};
    std::string savedFile = {};

    /// Adds the chips, as they were when recording began; those of which nothing says so are new.
    void setUp( Sim::Chip & chip ) const;
};

/// InputError if something of it cannot be read.
Case caseOf( const std::string & file, const DiagnoseOptions & options );

} // namespace Tool
