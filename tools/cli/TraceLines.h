#pragma once

#include "tools/cli/Verbs.h"
#include "tools/cli/Workers.h"
#include "tracereader/Recording.h"

#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <string>

namespace Tool {

/// Whether a text occurs in that of a call.
bool hasText( const TraceReader::RecordedCall & call, const std::string & text );

/// Prints records of a trace as lines, in the order in which they come. If there are many, the lines are
/// made on several processors: batch by batch, each with a copy of its records. The first ones are
/// printed before that, so that a first screen is there at once.
class TraceLines {
  public:
    /// Only those whose text holds `match` are printed. `jobs`: on how many processors, this one among
    /// them.
    TraceLines( TraceFormat format, const std::string & match, unsigned jobs );
    ~TraceLines();

    void add( const TraceReader::Record & record );
    void add( const TraceReader::RecordedCall & call );

    /// Prints what is not printed yet.
    void flush();

  private:
    class Maker;
    class Batch;

    template <class One>
    void addOne( const One & one );
    void printLines();
    std::unique_ptr<Batch> newBatch() const;
    void beginNext();
    std::unique_ptr<Batch> printOldest();

    const TraceFormat format_;
    const std::string match_;
    const unsigned jobs_;
    std::unique_ptr<Maker> alone_; ///< makes lines_, as long as there are no workers
    std::string lines_;
    std::size_t addedAlone_ = 0;
    std::deque<std::unique_ptr<Batch>> begun_; ///< the oldest in front
    std::unique_ptr<Batch> next_;              ///< is being filled, if there are workers
    std::optional<Workers> workers_; ///< the last member: it ends first, and uses the others
};

} // namespace Tool
