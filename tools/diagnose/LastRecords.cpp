#include "tools/diagnose/LastRecords.h"

#include "tools/model/Errors.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>
#include <memory>
#include <system_error>
#include <utility>

namespace Tool {

namespace {

using Moment = TraceReader::Event::Moment;
using TraceReader::RecordedCall;
using TraceReader::SdkCall;

// A process stops at its first failure: so many are more than a folder holds.
constexpr std::size_t maxFailures = 10000;

// What came last, until it is known that it is one of the last.
struct Kept {
    bool isCall = false;
    TraceReader::Record record;
    std::vector<std::byte> payload;
    RecordedCall call;
};

class Thread {
  public:
    std::array<Kept, LastRecords::perThread> kept;
    std::size_t count = 0;
    const TraceReader::File * file = nullptr;
    const TraceReader::Site * message = nullptr; ///< the last
    Kept * callSlot = nullptr;                   ///< of the last operation, as long as it is kept
    RecordedCall olderCall;                      ///< the last operation, when it is not

    Kept & next() { return kept[count++ % kept.size()]; }

    const RecordedCall * lastCall() const {
        return callSlot != nullptr ? &callSlot->call : hasCall ? &olderCall : nullptr;
    }

    void add( const TraceReader::Record & record ) {
        Kept & slot = next();
        if ( &slot == callSlot ) {
            olderCall = slot.call;
            callSlot = nullptr;
        }
        slot.isCall = false;
        slot.record = record;
        slot.payload.assign( record.payload.begin(), record.payload.end() );
        if ( record.site != nullptr )
            message = record.site;
    }

    void add( const RecordedCall & call ) {
        Kept & slot = next();
        slot.isCall = true;
        slot.call = call;
        callSlot = &slot;
        hasCall = true;
    }

  private:
    bool hasCall = false;
};

ThreadRecords::Line lineOf( Kept & kept ) {
    ThreadRecords::Line line;
    if ( kept.isCall ) {
        line.time = kept.call.before.file != nullptr ? kept.call.before.time : kept.call.after.time;
        TraceReader::appendText( line.text, kept.call );
        return line;
    }
    kept.record.payload = kept.payload;
    line.time = kept.record.time;
    if ( kept.record.site != nullptr )
        line.function = kept.record.site->function;
    TraceReader::appendText( line.text, kept.record );
    line.values = valuesOf( kept.record );
    return line;
}

bool isAlike( const RecordedCall & one, const RecordedCall & other ) {
    return one.call == other.call && one.rc == other.rc && one.table == other.table &&
           one.field == other.field && one.opcode.name == other.opcode.name;
}

} // namespace

TraceSource traceAt( const std::string & path ) {
    // Once all files were read, it is known which are of a process.
    auto filesOfProcess = std::make_shared<std::map<std::uint32_t, std::vector<std::string>>>();
    return [path, filesOfProcess]( std::optional<std::uint32_t> process ) {
        TraceReader::Merge merge;
        if ( process && filesOfProcess->contains( *process ) ) {
            for ( const std::string & file : filesOfProcess->at( *process ) )
                merge.add( file );
            return merge;
        }
        std::error_code error;
        const bool isFolder = std::filesystem::is_directory( path, error );
        std::size_t added = 0;
        try {
            std::vector<std::string> files;
            if ( isFolder )
                files = TraceReader::findFiles( path );
            else
                files.push_back( path );
            for ( const std::string & file : files )
                added += merge.add( file ) ? 1 : 0;
        } catch ( const TraceReader::Error & failure ) {
            throw InputError( failure.what() );
        }
        for ( const auto & file : merge.files() )
            ( *filesOfProcess )[file->info().process].push_back( file->info().path );
        if ( added == 0 && merge.findings().empty() )
            throw InputError( path, 0, "no trace files (*.fleetlog) in this directory" );
        if ( added == 0 && !isFolder )
            throw InputError( merge.findings().front().text() );
        return merge;
    };
}

std::vector<std::pair<std::string, std::string>> valuesOf( const TraceReader::Record & message ) {
    std::vector<std::pair<std::string, std::string>> named;
    std::vector<TraceReader::Value> values;
    TraceReader::decode( message, values );
    for ( std::size_t i = 0; i < values.size(); ++i ) {
        const std::string_view before = message.site->texts[i];
        const std::size_t first = before.find_first_not_of( ' ' );
        if ( first == std::string_view::npos || !before.ends_with( ": " ) || values[i].isCut )
            continue;
        const std::string name( before.substr( first, before.size() - 2 - first ) );
        const TraceReader::Value & value = values[i];
        switch ( value.letter ) {
        case 'i':
        case 's':
        case 'b':
            named.emplace_back( name, fmt::to_string( value.number ) );
            break;
        case 'l':
            named.emplace_back( name, fmt::to_string( value.wide ) );
            break;
        case 'p':
            named.emplace_back( name, value.text );
            break;
        default:
            break;
        }
    }
    return named;
}

LastRecords::LastRecords( const TraceSource & source ) : merge_( source( {} ) ) { read(); }

void LastRecords::read() {
    std::map<std::pair<std::uint32_t, std::uint32_t>, std::unique_ptr<Thread>> threads;
    const auto threadOf = [&]( std::uint32_t process, std::uint32_t id ) -> Thread & {
        auto & thread = threads[{ process, id }];
        if ( !thread )
            thread = std::make_unique<Thread>();
        return *thread;
    };
    const auto keep = [&]( const RecordedCall & call, const TraceReader::File * file ) {
        if ( TraceReader::isHook( call.call ) )
            return;
        isRecording_ = true;
        Thread & thread = threadOf( call.process, call.thread );
        if ( file != nullptr )
            thread.file = file;
        thread.add( call );
    };

    TraceReader::CallAssembler calls;
    TraceReader::Record record;
    TraceReader::Event event;
    while ( merge_.next( record ) ) {
        if ( !calls.take( record, event ) )
            continue;
        if ( event.moment == Moment::message ) {
            Thread & thread = threadOf( record.file->info().process, record.thread );
            thread.file = record.file;
            thread.add( record );
        } else if ( event.moment == Moment::after ) {
            keep( *event.call, record.file );
        } else if ( event.call->call == SdkCall::failureHook && failures_.size() < maxFailures ) {
            const Thread & thread = threadOf( event.call->process, event.call->thread );
            const RecordedCall * const last = thread.lastCall();
            if ( last != nullptr && last->rc < 0 )
                failures_.push_back( *last );
        }
    }
    while ( calls.takeUnreturned( event ) )
        keep( *event.call, event.call->before.file );

    for ( auto & [id, kept] : threads ) {
        if ( kept->count == 0 )
            continue;
        ThreadRecords thread{ .process = id.first, .thread = id.second };
        thread.program = kept->file->info().program;
        if ( kept->message != nullptr )
            thread.function = kept->message->function;
        if ( const RecordedCall * const last = kept->lastCall() )
            thread.lastCall = *last;
        for ( std::size_t i = 0; i < std::min( kept->count, perThread ); ++i )
            thread.lines.push_back( lineOf( kept->kept[( kept->count - 1 - i ) % perThread] ) );
        threads_.push_back( std::move( thread ) );
    }
    addMessagesOfProcesses();
    for ( const auto & finding : merge_.findings() )
        findings_.push_back( finding.text() );
    for ( const auto & finding : calls.findings() )
        findings_.push_back( finding.text() );
    for ( const auto & file : merge_.files() ) {
        for ( const auto & finding : file->findings() )
            findings_.push_back( finding.text() );
    }
}

// A process may write the messages of all its threads into one file.
void LastRecords::addMessagesOfProcesses() {
    for ( const ThreadRecords & all : threads_ ) {
        if ( all.thread != 0 )
            continue;
        for ( ThreadRecords & one : threads_ ) {
            if ( one.process != all.process || !one.lastCall )
                continue;
            one.lines.insert( one.lines.end(), all.lines.begin(), all.lines.end() );
            std::stable_sort(
                one.lines.begin(), one.lines.end(),
                []( const ThreadRecords::Line & left, const ThreadRecords::Line & right ) {
                    return left.time > right.time;
                } );
            one.lines.resize( std::min( one.lines.size(), perThread ) );
        }
    }
}

ThreadFound LastRecords::find( const Diagnosis & diagnosis, const SiteTable & table ) const {
    const Stop & stop = diagnosis.stop;
    const auto process = stop.process();
    std::vector<CallPattern> patterns;
    for ( const Site & site : diagnosis.sites ) {
        if ( const Site * const operation = table.operationAt( site ) )
            patterns.push_back( table.patternOf( *operation ) );
    }
    const auto isTheCall = [&]( const RecordedCall & call ) {
        if ( stop.kind == Stop::Kind::apiError && call.rc != stop.rc )
            return false;
        return std::any_of( patterns.begin(), patterns.end(),
                            [&]( const CallPattern & pattern ) { return pattern.fits( call ); } );
    };
    const auto isOfRecipe = [&]( const std::string & function ) {
        return !function.empty() &&
               ( function == diagnosis.function ||
                 std::any_of( diagnosis.sites.begin(), diagnosis.sites.end(),
                              [&]( const Site & site ) { return site.recipe == function; } ) );
    };
    ThreadFound found;
    for ( const ThreadRecords & thread : threads_ ) {
        if ( process && thread.process != *process )
            continue;
        auto how = ThreadFound::How::byProcess;
        if ( thread.lastCall && isTheCall( *thread.lastCall ) )
            how = ThreadFound::How::byCall;
        else if ( !thread.lastCall && isOfRecipe( thread.function ) )
            how = ThreadFound::How::byMessage;
        else if ( !process )
            continue;
        if ( found.thread == nullptr || how < found.how ) {
            found = { .thread = &thread, .how = how };
        } else if ( how == found.how ) {
            ++found.others;
            if ( found.thread->lines.front().time < thread.lines.front().time )
                found.thread = &thread;
        }
    }
    return found;
}

std::vector<const RecordedCall *> LastRecords::failuresLike( const RecordedCall & call ) const {
    std::vector<const RecordedCall *> alike;
    for ( const RecordedCall & failure : failures_ ) {
        const bool isItself = failure.process == call.process && failure.thread == call.thread;
        if ( !isItself && isAlike( failure, call ) )
            alike.push_back( &failure );
    }
    std::sort( alike.begin(), alike.end(),
               []( const RecordedCall * one, const RecordedCall * other ) {
                   return one->after.time > other->after.time;
               } );
    return alike;
}

} // namespace Tool
