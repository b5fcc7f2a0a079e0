#include "tools/show/Chrome.h"

#include "text/Escape.h"
#include "text/Time.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace Tool {

using Moment = TraceReader::Event::Moment;

namespace {

// The document is written in pieces of about this size.
constexpr std::size_t chunk = 1 << 16;

// How much of a span is kept until it is known which recipe it is.
constexpr std::size_t mostPending = 1 << 16;

std::string_view nameOf( const RecipeSpan & span ) {
    if ( !span.recipe.empty() )
        return span.recipe;
    return span.table.empty() ? "SDK calls" : std::string_view( span.table );
}

} // namespace

Chrome::Chrome( Write write )
    : write_( std::move( write ) ), out_( "{\"displayTimeUnit\":\"ns\",\"traceEvents\":[" ) {}

void Chrome::take( const TraceReader::Event & event, bool isWanted ) {
    const auto ended = spans_.take( event );
    if ( !firstTime_ )
        firstTime_ = event.record.time;
    if ( event.moment == Moment::message ) {
        if ( ended )
            end( *ended );
        if ( isWanted )
            takeMessage( event.record );
    } else {
        if ( isWanted && event.moment != Moment::before )
            takeCall( *event.call, event.moment == Moment::after );
        if ( ended )
            end( *ended );
    }
    flush( chunk );
}

void Chrome::takeMessage( const TraceReader::Record & record ) {
    const TraceReader::Info & info = record.file->info();
    appendNames( out_, *record.file, info.process, record.thread );
    appendStart( out_, 'i', record.time, info.process, record.thread );
    out_ += record.thread == 0 ? ",\"s\":\"p\"" : ",\"s\":\"t\"";
    out_ += ",\"cat\":\"message\",\"name\":\"";
    if ( record.site != nullptr )
        Text::appendJson( out_, record.site->function );
    else
        fmt::format_to( std::back_inserter( out_ ), "message {}", record.id );
    out_ += "\",\"args\":{";
    if ( record.site != nullptr ) {
        out_ += "\"site\":\"";
        Text::appendJson( out_, record.site->file );
        fmt::format_to( std::back_inserter( out_ ), ":{}\",", record.site->line );
    }
    if ( info.isTimeOfBlock )
        out_ += "\"timeOfBlock\":true,";
    std::string text;
    appendText( text, record );
    out_ += "\"text\":\"";
    Text::appendJson( out_, text );
    out_ += "\"}}";
}

void Chrome::takeCall( const TraceReader::RecordedCall & call, bool isReturned ) {
    const RecipeSpan * const span = spans_.of( call.process, call.thread );
    const auto & stamp = isReturned ? call.after : call.before;
    // One that has not returned lasts as long as anything is known of its thread. Where a ring has lost
    // the beginning, there is nothing but the end.
    const std::int64_t end = isReturned ? stamp.time : span != nullptr ? span->end : stamp.time;
    const std::int64_t begin = call.hasInputs() ? call.before.time : end;
    appendNames( out_, *stamp.file, call.process, call.thread );

    Pending * const pending = span != nullptr ? &pending_[span->number] : nullptr;
    std::string & out = pending != nullptr ? pending->calls : out_;
    appendStart( out, 'X', begin, call.process, call.thread );
    appendTime( out, "dur", elapsed( begin, end ) );
    out += ",\"cat\":\"sdk\",\"name\":\"";
    out += name( call.call );
    out += "\",\"args\":{";
    appendJson( out, call );
    out += !isReturned         ? ",\"returned\":false}}"
           : !call.hasInputs() ? ",\"beginning\":\"lost\"}}"
                               : "}}";
    if ( isReturned && call.hasInputs() && !isHook( call.call ) ) {
        appendStart( out, 'C', end, call.process, call.thread );
        fmt::format_to( std::back_inserter( out ),
                        R"(,"cat":"latency","name":"latency of {}","args":{{"ns":{}}}}})",
                        name( call.call ), elapsed( begin, end ) );
    }
    if ( pending != nullptr && pending->calls.size() > mostPending ) {
        this->begin( *span, *pending );
        out_ += pending->calls;
        pending->calls.clear();
    }
}

void Chrome::begin( const RecipeSpan & span, Pending & pending ) {
    if ( !pending.name.empty() )
        return;
    pending.name =
        span.recipe.empty() ? R"(,"cat":"entry","name":")" : R"(,"cat":"recipe","name":")";
    Text::appendJson( pending.name, nameOf( span ) );
    pending.name += '"';
    appendStart( out_, 'B', span.begin, span.process, span.thread );
    out_ += pending.name + "}";
}

void Chrome::end( const RecipeSpan & span ) {
    const auto found = pending_.find( span.number );
    if ( found == pending_.end() )
        return;
    begin( span, found->second );
    out_ += found->second.calls;
    // The format asks for no name here; viewers match it with that of the begin.
    appendStart( out_, 'E', span.end, span.process, span.thread );
    out_ += found->second.name + "}";
    pending_.erase( found );
}

void Chrome::finish() {
    while ( const auto span = spans_.takeOpen() ) {
        end( *span );
        flush( chunk );
    }
    out_ +=
        "\n],\"otherData\":{\"firstTime\":\"" + Text::utc( firstTime_.value_or( 0 ) ) + "\"}}\n";
    flush( 0 );
}

void Chrome::appendNames( std::string & out, const TraceReader::File & file, std::uint32_t process,
                          std::uint32_t thread ) {
    const auto append = [&]( const char * what, std::string_view name ) {
        fmt::format_to( std::back_inserter( out ),
                        R"({}{{"ph":"M","pid":{},"tid":{},"name":"{}","args":{{"name":")",
                        isFirst_ ? "\n" : ",\n", process, thread, what );
        isFirst_ = false;
        Text::appendJson( out, name );
        out += "\"}}";
    };
    if ( namedProcesses_.insert( process ).second )
        append( "process_name", file.info().program );
    if ( namedThreads_.insert( { process, thread } ).second )
        append( "thread_name",
                thread == 0 ? std::string( "any thread" ) : fmt::format( "thread {}", thread ) );
}

// The members that all events have, without the closing brace. The names of its thread stand before an
// event, so it is never the first.
void Chrome::appendStart( std::string & out, char phase, std::int64_t time, std::uint32_t process,
                          std::uint32_t thread ) {
    fmt::format_to( std::back_inserter( out ), R"(,{}{{"ph":"{}","pid":{},"tid":{})", '\n', phase,
                    process, thread );
    std::int64_t sinceFirst = 0;
    if ( __builtin_sub_overflow( time, firstTime_.value_or( 0 ), &sinceFirst ) )
        sinceFirst = time < 0 ? INT64_MIN : INT64_MAX;
    appendTime( out, "ts", sinceFirst );
}

void Chrome::appendTime( std::string & out, std::string_view member,
                         std::int64_t nanoseconds ) const {
    // Microseconds, in which a nanosecond is the third decimal.
    const std::uint64_t size = nanoseconds < 0 ? 0 - static_cast<std::uint64_t>( nanoseconds )
                                               : static_cast<std::uint64_t>( nanoseconds );
    fmt::format_to( std::back_inserter( out ), R"(,"{}":{}{}.{:03})", member,
                    nanoseconds < 0 ? "-" : "", size / 1000, size % 1000 );
}

void Chrome::flush( std::size_t least ) {
    if ( out_.size() < least )
        return;
    write_( out_ );
    out_.clear();
}

} // namespace Tool
