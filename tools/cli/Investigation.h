#pragma once

#include "sim/Chip.h"
#include "tools/cli/Case.h"
#include "tools/cli/DiagnoseOutput.h"
#include "tools/diagnose/CrashScene.h"
#include "tools/diagnose/Diagnosis.h"
#include "tools/diagnose/LastRecords.h"

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Tool {

/// The stops of a report, one after the other, with what a trace tells of them.
class Investigation {
  public:
    /// The case is not copied.
    explicit Investigation( const Case & given );

    std::pair<Diagnosis, Context> look( const Stop & stop );

    /// As it was when the last process stopped whose recording is there; null if none is.
    const Sim::Chip * chip() const { return chip_.get(); }

    const std::vector<std::string> & findings() const;

  private:
    struct Alike {
        std::size_t count = 0;
        std::size_t firstLine = 0;
    };

    CrashScene rebuildFor( const ThreadRecords & thread, const Diagnosis & diagnosis );
    void lookForOthers( const TraceReader::RecordedCall & call, Context & context ) const;

    const Case & given_;
    std::optional<LastRecords> records_;
    std::map<std::pair<const ThreadRecords *, std::string>, CrashScene> scenes_;
    std::map<std::string, Alike> stops_;
    std::unique_ptr<Sim::Chip> chip_;
};

} // namespace Tool
