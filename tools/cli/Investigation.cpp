#include "tools/cli/Investigation.h"

#include "tools/diagnose/Fleet.h"

namespace Tool {

Investigation::Investigation( const Case & given ) : given_( given ) {
    if ( given.trace )
        records_.emplace( given.trace );
}

std::pair<Diagnosis, Context> Investigation::look( const Stop & stop ) {
    const Sim::Schema & schema = given_.model.chips.front().schema;
    Diagnosis diagnosis = diagnose( stop, given_.table, schema );
    Context context;
    if ( records_ )
        context.found = records_->find( diagnosis, given_.table );
    const ThreadRecords * const thread = context.found.thread;
    const bool isTheThread = thread != nullptr && context.found.others == 0 &&
                             context.found.how != ThreadFound::How::byProcess;
    if ( isTheThread && thread->lastCall )
        diagnosis = diagnose( stop, given_.table, schema, &*thread->lastCall );
    if ( isTheThread )
        context.scene =
            thread->lastCall ? rebuildFor( *thread, diagnosis ) : sceneOf( *thread, diagnosis );
    if ( isTheThread && thread->lastCall )
        lookForOthers( *thread->lastCall, context );
    const auto [known, isNew] = stops_.try_emplace( signatureOf( diagnosis ) );
    if ( isNew )
        known->second.firstLine = stop.reportLine;
    context.stopsLikeIt = known->second.count++;
    context.firstLikeIt = known->second.firstLine;
    return { std::move( diagnosis ), std::move( context ) };
}

const std::vector<std::string> & Investigation::findings() const {
    static const std::vector<std::string> none;
    return records_ ? records_->findings() : none;
}

// A report that holds the same twice is about one stop of the thread.
CrashScene Investigation::rebuildFor( const ThreadRecords & thread, const Diagnosis & diagnosis ) {
    const auto known = scenes_.find( { &thread, diagnosis.function } );
    if ( known != scenes_.end() )
        return known->second;
    auto chip = std::make_unique<Sim::Chip>();
    given_.setUp( *chip );
    CrashScene scene = rebuild( given_.trace, thread, diagnosis, given_.table, *chip );
    chip_ = std::move( chip );
    return scenes_[{ &thread, diagnosis.function }] = std::move( scene );
}

void Investigation::lookForOthers( const TraceReader::RecordedCall & call,
                                   Context & context ) const {
    const auto alike = records_->failuresLike( call );
    context.failuresLikeIt = alike.size();
    if ( !alike.empty() )
        context.lastLikeIt = *alike.front();
}

} // namespace Tool
