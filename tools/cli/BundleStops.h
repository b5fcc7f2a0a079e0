#pragma once

#include "tools/cli/Case.h"
#include "tools/cli/DiagnoseOutput.h"
#include "tools/cli/Investigation.h"
#include "tools/diagnose/Diagnosis.h"
#include "tools/show/Report.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace Tool {

/// What the page of a bundle says of its stops: of the last one all, as the verb diagnose does; of the
/// others, if there are any, a line each.
class BundleStops {
  public:
    /// The case is not copied. If a process is chosen, the last stop is that of this process.
    BundleStops( const Case & given, std::optional<std::uint32_t> process );

    /// The process whose stop is shown, or the one that was chosen; nothing if neither is known.
    std::optional<std::uint32_t> process() const { return process_; }

    bool areThereAny() const { return shown_.has_value(); }

    /// `stop`: the place of the call that stopped the process, as far as its trace tells.
    void addTo( Report & report, std::optional<std::size_t> stop ) const;

  private:
    struct Shown {
        Diagnosis diagnosis;
        Context context;
    };

    void look( const Stop & stop, std::optional<std::uint32_t> wanted );
    Report::Failure failureOf( const Report & report, std::optional<std::size_t> stop ) const;

    const Case & given_;
    Investigation investigation_;
    std::optional<std::uint32_t> process_;
    std::optional<Shown> shown_;
    ReportGrid all_;
};

} // namespace Tool
