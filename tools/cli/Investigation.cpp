#include "tools/cli/Investigation.h"

#include "tools/diagnose/Fleet.h"
#include "tools/model/Errors.h"

#include <fmt/format.h>

namespace Tool {

Investigation::Investigation( const SiteTable & table, const Model & model, TraceSource source )
    : table_( table ), model_( model ), source_( std::move( source ) ) {
    if ( source_ )
        records_.emplace( source_ );
}

void Investigation::beginWith( std::vector<SavedUnit> saved, const std::string & file ) {
    saved_ = std::move( saved );
    from_ = file;
}

std::pair<Diagnosis, Context> Investigation::look( const Stop & stop ) {
    const Sim::Schema & schema = model_.chips.front().schema;
    Diagnosis diagnosis = diagnose( stop, table_, schema );
    Context context;
    if ( records_ )
        context.found = records_->find( diagnosis, table_ );
    const ThreadRecords * const thread = context.found.thread;
    const bool isTheThread = thread != nullptr && context.found.others == 0 &&
                             context.found.how != ThreadFound::How::byProcess;
    if ( isTheThread && thread->lastCall )
        diagnosis = diagnose( stop, table_, schema, &*thread->lastCall );
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
    addUnits( *chip, model_ );
    restoreSaved( *chip );
    CrashScene scene = rebuild( source_, thread, diagnosis, table_, *chip );
    chip_ = std::move( chip );
    return scenes_[{ &thread, diagnosis.function }] = std::move( scene );
}

void Investigation::restoreSaved( Sim::Chip & chip ) const {
    for ( const SavedUnit & unit : saved_ ) {
        const Sim::Schema * const schema = chip.schema( unit.unit );
        if ( schema == nullptr || !( *schema == unit.schema ) )
            throw InputError(
                from_, 0,
                fmt::format( "unit {} is another chip than the one described", unit.unit ),
                "leave --chip and --model out, or name another state file" );
    }
    restore( chip, saved_, from_ );
}

void Investigation::lookForOthers( const TraceReader::RecordedCall & call,
                                   Context & context ) const {
    const auto alike = records_->failuresLike( call );
    context.failuresLikeIt = alike.size();
    if ( !alike.empty() )
        context.lastLikeIt = *alike.front();
}

} // namespace Tool
