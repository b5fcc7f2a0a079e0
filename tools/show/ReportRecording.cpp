#include "tools/show/ReportRecording.h"

#include "text/Numbers.h"
#include "text/Time.h"
#include "tools/recipes/Registry.h"
#include "tools/recording/StateDiff.h"

#include <fmt/format.h>

#include <algorithm>

namespace Tool {

namespace {

using Moment = TraceReader::Event::Moment;
using TraceReader::SdkCall;

// Of so many fields it is remembered who wrote them, and rows with so many elements are shown.
constexpr std::size_t mostWriters = std::size_t( 1 ) << 23;
constexpr std::size_t mostElements = std::size_t( 1 ) << 20;
constexpr std::size_t mostArrayValues = 64;

// What an operation was given beside its entry, its field and one value.
std::string argumentsText( const TraceReader::RecordedCall & call ) {
    switch ( call.call ) {
    case SdkCall::entryAttribSet:
        return call.attribute.text();
    case SdkCall::entryCommit:
    case SdkCall::ptEntryCommit:
        return call.opcode.text() + " " + call.priority.text();
    case SdkCall::entryFieldSymbolAdd:
        return call.symbol;
    case SdkCall::entryFieldArrayAdd: {
        const std::size_t shown = std::min( call.values.size(), mostArrayValues );
        std::string text = fmt::format( "from {} count {} =", call.startIndex, call.count );
        for ( std::size_t i = 0; i < shown; ++i )
            text += fmt::format( " {}", call.values[i] );
        return text + ( shown < call.count ? " ..." : "" );
    }
    default:
        return {};
    }
}

std::string durationText( std::int64_t nanoseconds ) {
    const auto number = static_cast<double>( nanoseconds );
    if ( nanoseconds < 1'000'000 )
        return fmt::format( "{:.1f} \u00b5s", number / 1e3 );
    if ( nanoseconds < 1'000'000'000 )
        return fmt::format( "{:.1f} ms", number / 1e6 );
    return fmt::format( "{:.1f} s", number / 1e9 );
}

// --- Cells

std::string elementText( const Sim::Field & field, std::uint64_t value ) {
    const Sim::Symbol * symbol = field.findSymbol( value );
    return symbol != nullptr ? symbol->name : Text::numberForTable( value );
}

// The elements of a field, equal neighbours together: "0 x64".
std::string fieldText( const Sim::Field & field, const std::vector<std::uint64_t> & values,
                       std::size_t first ) {
    std::string text;
    for ( std::size_t i = 0; i < field.length; ) {
        std::size_t run = 1;
        while ( i + run < field.length && values[first + i + run] == values[first + i] )
            ++run;
        text += ( i == 0 ? "" : ", " ) + elementText( field, values[first + i] );
        if ( run > 1 )
            text += fmt::format( " x{}", run );
        i += run;
    }
    return text;
}

bool isSame( const std::vector<std::uint64_t> & one, const std::vector<std::uint64_t> & other,
             std::size_t first, std::size_t count ) {
    return std::equal( one.begin() + static_cast<std::ptrdiff_t>( first ),
                       one.begin() + static_cast<std::ptrdiff_t>( first + count ),
                       other.begin() + static_cast<std::ptrdiff_t>( first ) );
}

} // namespace

ReportRecording::ReportRecording( Report & report, const Sim::Chip & chip,
                                  std::vector<ReportStep> steps )
    : report_( report ), chip_( chip ), steps_( std::move( steps ) ) {}

void ReportRecording::nameThread( std::uint32_t process, std::uint32_t thread ) {
    threadOfProcess_[process] = thread;
}

ReportRecording::Thread & ReportRecording::threadOf( std::uint32_t process, std::uint32_t thread ) {
    const auto [found, isNew] = threads_.try_emplace( { process, thread } );
    if ( isNew ) {
        found->second.number = static_cast<std::uint32_t>( report_.threads.size() );
        report_.threads.push_back( thread == 0 ? fmt::format( "process {}", process )
                                   : thread == process
                                       ? fmt::format( "thread {}", thread )
                                       : fmt::format( "thread {}/{}", process, thread ) );
    }
    return found->second;
}

void ReportRecording::take( const TraceReader::Event & event ) {
    if ( event.moment == Moment::message ) {
        addMessage( event );
        return;
    }
    if ( steps_.empty() )
        spans_.take( event );
    const Call & call = *event.call;
    if ( TraceReader::isHook( call.call ) ) {
        Thread & thread = threadOf( call.process, call.thread );
        if ( call.call == SdkCall::failureHook && event.moment == Moment::before && thread.last &&
             !stop_ ) {
            stop_ = thread.last;
            lastRecipe_ = thread.recipe;
            if ( ReportCall * failed = report_.calls.find( *stop_ ) )
                failed->flags |= ReportCall::stopped;
            if ( ReportSpan * span = spanOf( *stop_ ) )
                span->isBad = true;
        }
        return;
    }
    switch ( event.moment ) {
    case Moment::before:
        begin( call );
        break;
    case Moment::after:
        end( call );
        break;
    default:
        break;
    }
}

void ReportRecording::addMessage( const TraceReader::Event & event ) {
    TraceReader::Event here = event;
    TraceReader::Record & record = here.record;
    const std::uint32_t process = record.file->info().process;
    if ( record.thread == 0 ) {
        const auto only = threadOfProcess_.find( process );
        if ( only != threadOfProcess_.end() )
            record.thread = only->second;
    }
    if ( steps_.empty() )
        spans_.take( here );
    Thread & thread = threadOf( process, record.thread );
    std::string text;
    appendText( text, record );
    std::string_view function;
    if ( record.site != nullptr )
        function = record.site->function;
    if ( const Recipe * recipe = findRecipe( function ) ) {
        recipes_.insert( recipe->name );
        thread.recipe = recipe->name;
    }
    report_.messages.add( { .time = record.time,
                            .thread = thread.number,
                            .recipe = report_.texts.add( function ),
                            .text = report_.texts.add( text ) } );
    lastTime_ = std::max( lastTime_, record.time );
}

// --- Calls

std::size_t ReportRecording::addCall( const Call & call ) {
    Thread & thread = threadOf( call.process, call.thread );
    const std::int64_t time = call.hasInputs() ? call.before.time : call.after.time;
    if ( !steps_.empty() )
        enterStep( thread, time );
    else if ( const RecipeSpan * span = spans_.of( call.process, call.thread ) )
        enterSpan( thread, *span );
    ReportCall row{ .number = call.number,
                    .begin = time,
                    .end = time,
                    .thread = thread.number,
                    .handle = call.handle,
                    .unit = call.unit.value_or( -1 ),
                    .table = report_.texts.add( call.table ),
                    .field = report_.texts.add( call.field ),
                    .arguments = report_.texts.add( argumentsText( call ) ),
                    .span = thread.span ? static_cast<std::uint32_t>( *thread.span + 1 ) : 0,
                    .operation = static_cast<std::uint8_t>( call.call ),
                    .flags = ReportCall::neverReturned };
    if ( call.call == SdkCall::entryFieldAdd && !call.values.empty() ) {
        row.value = call.values.front();
        row.flags |= ReportCall::hasValue;
    }
    if ( !call.hasInputs() )
        row.flags |= ReportCall::inputsLost;
    lastTime_ = std::max( lastTime_, time );
    return report_.calls.add( row );
}

void ReportRecording::begin( const Call & call ) { underWay_[call.number] = addCall( call ); }

void ReportRecording::end( const Call & call ) {
    std::size_t place = 0;
    if ( const auto known = underWay_.find( call.number ); known != underWay_.end() ) {
        place = known->second;
        underWay_.erase( known );
    } else {
        place = addCall( call );
    }
    Thread & thread = threadOf( call.process, call.thread );
    thread.last = place;
    lastTime_ = std::max( lastTime_, call.after.time );
    failed_ += call.rc < 0 ? 1 : 0;
    if ( ReportCall * row = report_.calls.find( place ) ) {
        row->end = std::max( row->begin, call.after.time );
        row->rc = call.rc;
        row->handle = call.handle;
        row->flags &= static_cast<std::uint8_t>( ~ReportCall::neverReturned );
        if ( call.call == SdkCall::entryFieldGet && call.rc >= 0 ) {
            row->value = call.value;
            row->flags |= ReportCall::hasValue;
        }
    }
    if ( ReportSpan * span = thread.span ? report_.spans.find( *thread.span ) : nullptr )
        span->end = std::max( span->end, call.after.time );
    if ( const RecipeSpan * span = spans_.of( call.process, call.thread );
         span != nullptr && span->number == thread.spanNumber )
        renewSpan( thread, *span );
    follow( call, place );
}

// --- What calls belong to

void ReportRecording::openSpan( Thread & thread, ReportSpan span ) {
    span.thread = thread.number;
    span.end = span.begin;
    thread.span = report_.spans.add( span );
}

void ReportRecording::enterSpan( Thread & thread, const RecipeSpan & span ) {
    if ( !thread.span || thread.spanNumber != span.number ) {
        thread.spanNumber = span.number;
        openSpan( thread, { .begin = span.begin } );
    }
    renewSpan( thread, span );
}

// What a span is may be known late.
void ReportRecording::renewSpan( const Thread & thread, const RecipeSpan & span ) {
    ReportSpan * const renewed = report_.spans.find( *thread.span );
    if ( renewed == nullptr )
        return;
    renewed->kind = span.recipe.empty() ? ReportSpan::Kind::entry : ReportSpan::Kind::recipe;
    renewed->name =
        report_.texts.add( span.recipe.empty() ? std::string_view( span.table ) : span.recipe );
}

// Opens the spans of all steps up to the one that makes an operation now.
void ReportRecording::enterStep( Thread & thread, std::int64_t time ) {
    while ( operationsOfStep_ == 0 && nextStep_ < steps_.size() ) {
        const ReportStep & step = steps_[nextStep_++];
        openSpan( thread, { .kind = ReportSpan::Kind::recipe,
                            .isBad = step.isBad,
                            .name = report_.texts.add( step.recipe ),
                            .detail = report_.texts.add( step.text ),
                            .begin = time } );
        operationsOfStep_ = step.operations;
    }
    if ( operationsOfStep_ != 0 )
        --operationsOfStep_;
}

std::string ReportRecording::recipeOf( std::size_t call ) {
    const ReportSpan * const span = spanOf( call );
    return span == nullptr || span->kind != ReportSpan::Kind::recipe ? ""
                                                                     : report_.texts[span->name];
}

ReportSpan * ReportRecording::spanOf( std::size_t call ) {
    const ReportCall * const row = report_.calls.find( call );
    return row == nullptr || row->span == 0 ? nullptr : report_.spans.find( row->span - 1 );
}

void ReportRecording::finish() {
    // Steps after the last operation.
    if ( !steps_.empty() && !threads_.empty() )
        enterStep( threads_.begin()->second, lastTime_ );
    for ( const auto & [number, place] : underWay_ ) {
        if ( ReportCall * row = report_.calls.find( place ) )
            row->end = std::max( row->begin, lastTime_ );
    }
    const auto add = [this]( const char * name, std::uint64_t number ) {
        report_.facts.emplace_back( name, fmt::to_string( number ) );
    };
    if ( !steps_.empty() )
        add( "Steps", steps_.size() );
    else if ( !recipes_.empty() )
        add( "Recipes with messages", recipes_.size() );
    add( "SDK calls", report_.calls.count() );
    if ( report_.calls.count() != 0 ) {
        add( "Commits", commits_ );
        add( "Calls that failed", failed_ );
    }
    add( "Messages", report_.messages.count() );
    add( "Threads", report_.threads.size() );
    std::optional<std::int64_t> first;
    if ( !report_.calls.items().empty() )
        first = report_.calls.items().front().begin;
    if ( !report_.messages.items().empty() )
        first = std::min( first.value_or( INT64_MAX ), report_.messages.items().front().time );
    if ( first ) {
        report_.facts.emplace_back( "Begins", Text::utc( *first ) );
        if ( *first >= 0 && lastTime_ >= *first )
            report_.facts.emplace_back( "Lasts", durationText( lastTime_ - *first ) );
    }
    const auto note = [this]( std::size_t dropped, std::size_t count, const char * what ) {
        if ( dropped != 0 )
            report_.notes.push_back(
                fmt::format( "Of {} {} the last {} are shown.", count, what, count - dropped ) );
    };
    note( report_.calls.dropped(), report_.calls.count(), "calls" );
    note( report_.messages.dropped(), report_.messages.count(), "messages" );
    if ( report_.texts.isFull() )
        report_.notes.emplace_back( "There are too many different texts; some are left out." );
    if ( !underWay_.empty() )
        report_.notes.push_back( fmt::format( "{} {} never returned.", underWay_.size(),
                                              underWay_.size() == 1 ? "call" : "calls" ) );
}

// --- Who wrote what

std::string ReportRecording::keyOf( int unit, const Sim::Table & table, const Sim::RowId & id ) {
    return fmt::format( "{} {} {} {} {} {}", unit, table.name, id.index, id.instance, id.port,
                        fmt::join( id.key, " " ) );
}

void ReportRecording::follow( const Call & call, std::size_t place ) {
    if ( isCommit( call.call ) )
        ++commits_;
    if ( call.rc < 0 || !call.hasInputs() )
        return;
    if ( call.call == SdkCall::entryAllocate ) {
        const Sim::Schema * schema = call.unit ? chip_.schema( *call.unit ) : nullptr;
        const Sim::Table * table = schema != nullptr ? schema->find( call.table ) : nullptr;
        if ( table == nullptr )
            return;
        Entry entry{ .unit = *call.unit, .table = table, .id = {}, .fields = {} };
        for ( const Sim::Field & field : table->fields ) {
            if ( field.role == Sim::FieldRole::key )
                entry.id.key.push_back( 0 );
        }
        entries_[call.handle] = std::move( entry );
        return;
    }
    const auto entry = entries_.find( call.handle );
    if ( entry == entries_.end() )
        return;
    if ( call.call == SdkCall::entryFree )
        entries_.erase( entry );
    else if ( isCommit( call.call ) )
        commit( entry->second, call, place );
    else
        carry( entry->second, call );
}

void ReportRecording::carry( Entry & entry, const Call & call ) const {
    if ( call.call == SdkCall::entryFieldGet || call.call == SdkCall::entryAttribSet )
        return;
    const std::uint64_t value = call.values.empty() ? 0 : call.values.front();
    if ( call.field == Sim::indexField )
        entry.id.index = static_cast<std::uint32_t>( value );
    else if ( call.field == Sim::instanceField )
        entry.id.instance = static_cast<std::uint32_t>( value );
    else if ( call.field == Sim::portField )
        entry.id.port = static_cast<std::uint32_t>( value );
    std::size_t key = 0;
    for ( std::size_t i = 0; i < entry.table->fields.size(); ++i ) {
        const Sim::Field & field = entry.table->fields[i];
        const bool isKey = field.role == Sim::FieldRole::key;
        if ( field.name == call.field ) {
            const Sim::Symbol * symbol = call.call == SdkCall::entryFieldSymbolAdd
                                             ? field.findSymbol( std::string_view( call.symbol ) )
                                             : nullptr;
            if ( isKey )
                entry.id.key[key] = symbol != nullptr ? symbol->value : value;
            else if ( std::find( entry.fields.begin(), entry.fields.end(), i ) ==
                      entry.fields.end() )
                entry.fields.push_back( i );
            return;
        }
        key += isKey ? 1 : 0;
    }
}

void ReportRecording::commit( const Entry & entry, const Call & call, std::size_t place ) {
    const std::string_view opcode = call.opcode.name;
    const std::string key = keyOf( entry.unit, *entry.table, entry.id );
    if ( opcode == "BCMLT_OPCODE_DELETE" ) {
        if ( writers_.erase( key ) != 0 )
            writerCount_ -= entry.table->fields.size();
        return;
    }
    const bool isWhole = opcode == "BCMLT_OPCODE_INSERT" || opcode == "BCMLT_PT_OPCODE_SET";
    if ( !isWhole && opcode != "BCMLT_OPCODE_UPDATE" && opcode != "BCMLT_PT_OPCODE_MODIFY" )
        return;
    auto row = writers_.find( key );
    if ( row == writers_.end() ) {
        if ( writerCount_ + entry.table->fields.size() > mostWriters )
            return;
        writerCount_ += entry.table->fields.size();
        row = writers_.emplace( key, std::vector<std::size_t>( entry.table->fields.size() ) ).first;
    }
    if ( isWhole )
        std::fill( row->second.begin(), row->second.end(), place + 1 );
    for ( const std::size_t field : entry.fields )
        row->second[field] = place + 1;
}

// --- The chip

void ReportRecording::addTables( const Sim::Chip & before, const Sim::Chip & after ) {
    std::size_t shown = 0;
    std::size_t elements = 0;
    std::size_t written = 0;
    for ( const int unit : after.units() ) {
        for ( const Sim::Table & table : after.schema( unit )->tables() ) {
            const auto images = after.rows( unit, table.name );
            if ( images.empty() )
                continue;
            written += images.size();
            ReportTable to{ .unit = unit,
                            .name = table.name,
                            .kind = Sim::kindName( table.kind ),
                            .placeNames = {},
                            .fields = {},
                            .rows = {} };
            for ( const PlacePart & part : placeOf( table, images.front().id ) )
                to.placeNames.emplace_back( part.name );
            for ( const Sim::Field & field : table.fields ) {
                if ( field.role == Sim::FieldRole::data )
                    to.fields.push_back( field.name );
            }
            for ( const Sim::RowImage & image : images ) {
                if ( elements + table.elementCount() > mostElements ) {
                    ++to.rowsLeftOut;
                    continue;
                }
                elements += table.elementCount();
                ++shown;
                const auto old = before.row( unit, table.name, image.id );
                const auto writers = writers_.find( keyOf( unit, table, image.id ) );
                ReportRow row{ .place = {}, .cells = {}, .isNew = !old };
                for ( const PlacePart & part : placeOf( table, image.id ) )
                    row.place.push_back( part.field != nullptr
                                             ? elementText( *part.field, part.value )
                                             : fmt::to_string( part.value ) );
                std::size_t element = 0;
                for ( std::size_t i = 0; i < table.fields.size(); ++i ) {
                    const Sim::Field & field = table.fields[i];
                    const std::size_t first = element;
                    element += field.length;
                    if ( field.role == Sim::FieldRole::key )
                        continue;
                    ReportCell cell{ .text = fieldText( field, image.values, first ) };
                    for ( std::size_t j = first; j < element; ++j )
                        cell.isWritten = cell.isWritten || image.written[j];
                    if ( old && !isSame( old->values, image.values, first, field.length ) )
                        cell.before = fieldText( field, old->values, first );
                    if ( !image.hardware.empty() &&
                         !isSame( image.hardware, image.values, first, field.length ) )
                        cell.hardware = fieldText( field, image.hardware, first );
                    if ( writers != writers_.end() && writers->second[i] != 0 )
                        cell.writer = writers->second[i] - 1;
                    row.cells.push_back( std::move( cell ) );
                }
                to.rows.push_back( std::move( row ) );
            }
            report_.tables.push_back( std::move( to ) );
        }
    }
    report_.facts.emplace_back( "Rows written", fmt::to_string( written ) );
    if ( written > shown )
        report_.notes.push_back( fmt::format( "Of {} rows {} are shown.", written, shown ) );
}

} // namespace Tool
