#include "interpose/SdkCall.h"
#include "text/Escape.h"
#include "text/NearestName.h"
#include "text/Numbers.h"
#include "text/Time.h"
#include "tools/cli/Progress.h"
#include "tools/cli/TraceLines.h"
#include "tools/cli/Verbs.h"
#include "tools/model/Arguments.h"
#include "tools/model/Errors.h"
#include "tools/model/Files.h"
#include "tracereader/Recording.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <optional>
#include <sched.h>
#include <set>
#include <thread>

namespace Tool {

namespace {

using TraceReader::Finding;
using Json = nlohmann::ordered_json;

// How often a file that is followed is looked at again.
constexpr std::chrono::milliseconds pollPause( 50 );

std::int64_t parseTime( const std::string & text, const std::string & option ) {
    const auto time = Text::parseUtc( text );
    if ( !time )
        throw InputError( option + ": \"" + text +
                          "\" is not a time in UTC, as in 2026-03-01T07:30:00.25" );
    return *time;
}

// "FILE:LINE", "LINE" or "FILE".
void parseSite( const std::string & text, TraceReader::Filter & filter ) {
    const auto colon = text.rfind( ':' );
    std::string number = colon == std::string::npos ? text : text.substr( colon + 1 );
    std::uint64_t line = 0;
    if ( Text::parseNumber( number, line ) && line <= UINT32_MAX ) {
        filter.line = static_cast<std::uint32_t>( line );
        filter.file = colon == std::string::npos ? "" : text.substr( 0, colon );
    } else if ( colon == std::string::npos ) {
        filter.file = text;
    } else {
        throw InputError( "--site: \"" + text +
                          "\" is not FILE:LINE, FILE or LINE, as in Cairn/CairnLtHelper:31" );
    }
}

TraceReader::Filter filterOf( const TraceOptions & options ) {
    TraceReader::Filter filter;
    if ( !options.recipe.empty() ) {
        needRecipe( options.recipe );
        filter.recipe = options.recipe;
    }
    if ( !options.site.empty() )
        parseSite( options.site, filter );
    if ( !options.from.empty() )
        filter.from = parseTime( options.from, "--from" );
    if ( !options.to.empty() )
        filter.to = parseTime( options.to, "--to" );
    filter.thread = options.thread;
    filter.text = options.match;
    return filter;
}

// Which recorded SDK calls are wanted.
class CallFilter {
  public:
    explicit CallFilter( const TraceOptions & options, const TraceReader::Filter & filter )
        : options_( options ), filter_( filter ) {
        if ( !options.operation.empty() )
            operation_ = operationOf( options.operation );
    }

    // Whether only calls are wanted.
    bool isGiven() const {
        return operation_ || !options_.table.empty() || options_.unit || options_.code;
    }

    // Of anything but the text. A call that has not returned yet has neither a code nor the time at
    // which it did.
    bool accepts( const TraceReader::RecordedCall & call ) const {
        const auto & stamp = call.hasReturned() ? call.after : call.before;
        if ( !filter_.recipe.empty() || !filter_.file.empty() || filter_.line )
            return false;
        if ( ( filter_.from && stamp.time < *filter_.from ) ||
             ( filter_.to && stamp.time >= *filter_.to ) ||
             ( filter_.thread && call.thread != *filter_.thread ) )
            return false;
        return !( ( operation_ && call.call != *operation_ ) ||
                  ( !options_.table.empty() && call.table != options_.table ) ||
                  ( options_.unit && call.unit != options_.unit ) ||
                  ( options_.code &&
                    ( isHook( call.call ) || !call.hasReturned() || call.rc != *options_.code ) ) );
    }

  private:
    static TraceReader::SdkCall operationOf( const std::string & text ) {
        const auto operation = Interpose::operationByName( text );
        const std::string name( operation ? Interpose::name( *operation ) : text );
        if ( const auto call = TraceReader::sdkCallByName( name ) )
            return *call;
        std::vector<std::string_view> names;
        for ( const auto each : Interpose::sdkOperations() )
            names.push_back( Interpose::shortName( each ) );
        throw InputError( "--operation: there is no operation \"" + text + "\"",
                          Text::nameHint( text, names ) );
    }

    const TraceOptions & options_;
    const TraceReader::Filter & filter_;
    std::optional<TraceReader::SdkCall> operation_;
};

// The trace files of the paths that were given: files, and folders that hold some.
class Sources {
  public:
    explicit Sources( const std::vector<std::string> & paths ) : paths_( paths ) {
        for ( const auto & path : paths )
            hasFolder_ = hasFolder_ || isFolder( path );
    }

    bool hasFolder() const { return hasFolder_; }

    // Whether the path itself was given, and not a folder that holds it.
    bool isNamed( const std::string & path ) const {
        return std::find( paths_.begin(), paths_.end(), path ) != paths_.end();
    }

    // The files that were not there at the last call. One that is reached by two paths is given once.
    std::vector<std::string> newFiles() {
        std::vector<std::string> files;
        for ( const auto & path : paths_ ) {
            for ( auto & file :
                  isFolder( path ) ? TraceReader::findFiles( path ) : std::vector{ path } ) {
                std::error_code error;
                const auto place = std::filesystem::canonical( file, error );
                if ( seen_.insert( error ? file : place.string() ).second )
                    files.push_back( std::move( file ) );
            }
        }
        return files;
    }

  private:
    static bool isFolder( const std::string & path ) {
        std::error_code error;
        return std::filesystem::is_directory( path, error );
    }

    std::vector<std::string> paths_;
    std::set<std::string> seen_;
    bool hasFolder_ = false;
};

std::string noFilesIn( const std::vector<std::string> & paths ) {
    return paths.front() + ": no trace files (*.fleetlog) in this directory";
}

bool isDamaged( const std::vector<Finding> & findings ) {
    return std::any_of( findings.begin(), findings.end(), []( const Finding & finding ) {
        return finding.kind == Finding::Kind::damage;
    } );
}

// What the ring had no room for any more.
std::string overwrittenText( const TraceReader::Counts & counts ) {
    const auto records = counts.overwrittenRecords();
    const std::string blocks = Text::counted( counts.overwrittenBlocks, "block" );
    return records ? "about " + Text::counted( *records, "record" ) + ", " + blocks
                   : blocks + " with an unknown number of records";
}

// Says on standard error what a file does not have: damage, and what its writer had no room for.
void tellLosses( const TraceReader::File & file ) {
    const std::string path = Text::printable( file.info().path );
    for ( const Finding & finding : file.findings() )
        complain( finding.text() );
    if ( file.counts().overwrittenBytes != 0 )
        complain( path + ": the oldest were overwritten: " + overwrittenText( file.counts() ) +
                  "; a larger ring keeps more" );
    if ( file.info().unregistered != 0 )
        complain( path + ": " + Text::counted( file.info().unregistered, "message site" ) +
                  " found no room for a description; their records are shown as bytes" );
    if ( file.info().interrupting != 0 )
        complain( path + ": " + Text::counted( file.info().interrupting, "message" ) +
                  " of signal handlers interrupted another message and were dropped" );
}

// The exit code for what was found. A file that was named and cannot be read is trouble if there is
// nothing else to show.
int exitCode( const TraceReader::Merge & merge, const Sources & sources ) {
    const bool isRefused = std::any_of(
        merge.findings().begin(), merge.findings().end(), [&]( const Finding & finding ) {
            return finding.kind == Finding::Kind::damage || sources.isNamed( finding.file );
        } );
    if ( isRefused )
        return merge.files().empty() && !sources.hasFolder() ? 2 : 1;
    return std::any_of( merge.files().begin(), merge.files().end(),
                        []( const auto & file ) { return isDamaged( file->findings() ); } )
               ? 1
               : 0;
}

volatile std::sig_atomic_t interrupted = 0;

// Waits for what is still to come: records, files, and, in a folder, processes that are started
// anew.
class Follower {
  public:
    Follower( TraceReader::Merge & merge, Sources & sources, std::chrono::milliseconds wait )
        : merge_( merge ), sources_( sources ), wait_( wait ) {
        std::signal( SIGINT, []( int ) { interrupted = 1; } );
    }

    // True if there is more to read; false if nothing more will come.
    bool waitForMore() {
        while ( interrupted == 0 ) {
            // Asked before the files are looked at: what was written up to here is read then.
            const bool mayCome = merge_.mayBeWritten();
            const bool hasNew = ( !mayCome || ++polls_ % pollsBetweenLists == 0 ) && addNew();
            if ( merge_.poll() || hasNew ) {
                idle_ = {};
                return true;
            }
            if ( mayCome )
                idle_ = {};
            else if ( !sources_.hasFolder() || idle_ >= wait_ )
                return false;
            std::this_thread::sleep_for( pollPause );
            idle_ += pollPause;
        }
        return false;
    }

  private:
    static constexpr std::uint64_t pollsBetweenLists = 5;

    bool addNew() {
        bool isNew = false;
        for ( const auto & path : sources_.newFiles() )
            isNew = merge_.add( path ) || isNew;
        return isNew;
    }

    TraceReader::Merge & merge_;
    Sources & sources_;
    std::chrono::milliseconds wait_;
    std::chrono::milliseconds idle_{}; ///< since any process was seen to write
    std::uint64_t polls_ = 0;
};

// Opens all files; InputError if there are none.
void openFiles( TraceReader::Merge & merge, Sources & sources, const TraceOptions & options ) {
    for ( const auto & path : sources.newFiles() )
        merge.add( path );
    if ( merge.files().empty() && merge.findings().empty() && !options.follow )
        throw InputError( noFilesIn( options.paths ) );
}

// Says what was found, when all was read. Returns the exit code.
int tellFindings( const TraceReader::Merge & merge, const std::vector<Finding> & ofCalls,
                  const Sources & sources, bool isFollowed ) {
    for ( const Finding & finding : merge.findings() )
        complain( finding.text() );
    for ( const Finding & finding : ofCalls )
        complain( finding.text() );
    for ( const auto & file : merge.files() ) {
        tellLosses( *file );
        if ( isFollowed && !file->info().isClosed && file->info().hasLock &&
             file->writer() == TraceReader::Writer::ended )
            complain( Text::printable( file->info().path ) +
                      ": its process ended without closing it" );
    }
    return std::max( exitCode( merge, sources ), ofCalls.empty() ? 0 : 1 );
}

// The processors that this process may run on.
unsigned processors() {
    cpu_set_t allowed;
    return ::sched_getaffinity( 0, sizeof allowed, &allowed ) == 0
               ? static_cast<unsigned>( CPU_COUNT( &allowed ) )
               : std::thread::hardware_concurrency();
}

// On how many processors lines are made. Where records are waited for, none comes late.
unsigned jobsOf( const TraceOptions & options ) {
    constexpr unsigned enough = 4; // reading takes longer then
    if ( options.follow )
        return 1;
    return options.jobs.value_or( std::clamp( processors(), 1u, enough ) );
}

// Whether no record has an earlier time than one before it. A wall clock may be set back, a counter
// not.
bool isInOrderOfTime( const TraceReader::Merge & merge ) {
    return std::all_of( merge.files().begin(), merge.files().end(),
                        []( const auto & file ) { return file->info().timestamps == "counter"; } );
}

int showRecords( const TraceOptions & options ) {
    TraceReader::Filter filter = filterOf( options );
    const CallFilter callFilter( options, filter );
    Sources sources( options.paths );
    TraceReader::Merge merge;
    openFiles( merge, sources, options );
    // What comes after --to is read where it is waited for.
    merge.narrow( filter.from, options.follow ? std::nullopt : filter.to );
    std::optional<Follower> follower;
    if ( options.follow )
        follower.emplace( merge, sources, std::chrono::seconds( options.wait ) );
    TraceLines lines( options.format, filter.text, jobsOf( options ) );
    // The text is looked for where lines are made.
    filter.text.clear();
    const bool hasEnd = filter.to && !options.follow && isInOrderOfTime( merge );
    std::size_t underWay = 0; // calls
    TraceReader::CallAssembler assembler;
    TraceReader::Event event;
    TraceReader::Record record;
    do {
        while ( merge.next( record ) ) {
            // A call that was made before the end and returns after it is not one that never returned.
            if ( hasEnd && underWay == 0 && record.time >= *filter.to )
                break;
            if ( record.site == nullptr ||
                 !TraceReader::CallAssembler::isOfRecorder( *record.site ) ) {
                if ( !callFilter.isGiven() && filter.accepts( record ) )
                    lines.add( record );
            } else if ( !assembler.take( record, event ) )
                continue;
            else if ( event.moment == TraceReader::Event::Moment::before )
                ++underWay;
            else {
                underWay -= event.call->hasInputs() ? 1 : 0;
                if ( callFilter.accepts( *event.call ) )
                    lines.add( *event.call ); // it is shown when it has returned
            }
        }
        lines.flush();
    } while ( follower && follower->waitForMore() );
    while ( assembler.takeUnreturned( event ) )
        if ( callFilter.accepts( *event.call ) )
            lines.add( *event.call );
    lines.flush();
    return tellFindings( merge, assembler.findings(), sources, options.follow );
}

// What is ignored, as by nohup, stays ignored.
void catchInterrupts() {
    for ( const int signal : { SIGINT, SIGTERM, SIGHUP } )
        if ( std::signal( signal, []( int ) { interrupted = 1; } ) == SIG_IGN )
            std::signal( signal, SIG_IGN );
}

int exportRecords( const TraceOptions & options ) {
    const TraceReader::Filter filter = filterOf( options );
    const CallFilter callFilter( options, filter );
    Sources sources( options.paths );
    TraceReader::Merge merge;
    openFiles( merge, sources, options );
    if ( merge.files().empty() )
        return tellFindings( merge, {}, sources, false );
    for ( const auto & file : merge.files() )
        needOtherFile( options.output, file->info().path );
    const auto out = startExport( *options.exportAs, options.output );
    // Into a pipe, an interrupt ends the process at once, also where it waits for a reader.
    if ( out->hasLeftovers() )
        catchInterrupts();
    const auto isWanted = [&]( const TraceReader::RecordedCall & call ) {
        return callFilter.accepts( call ) && hasText( call, filter.text );
    };
    std::optional<Progress> progress( "export" );
    TraceReader::CallAssembler assembler;
    TraceReader::Record record;
    TraceReader::Event event;
    while ( merge.next( record ) ) {
        if ( interrupted != 0 )
            throw Trouble( "interrupted; nothing was exported" );
        if ( !assembler.take( record, event ) )
            continue;
        progress->tell( event );
        out->take( event, event.call != nullptr
                              ? isWanted( *event.call )
                              : !callFilter.isGiven() && filter.accepts( record ) );
    }
    while ( assembler.takeUnreturned( event ) )
        out->take( event, isWanted( *event.call ) );
    progress.reset();
    out->finish();
    return tellFindings( merge, assembler.findings(), sources, false );
}

std::string writerName( TraceReader::Writer writer ) {
    switch ( writer ) {
    case TraceReader::Writer::lives:
        return "lives";
    case TraceReader::Writer::ended:
        return "ended";
    default:
        return "unknown";
    }
}

Json findingJson( const Finding & finding ) {
    return { { "damage", finding.kind == Finding::Kind::damage },
             { "offset", finding.offset ? Json( *finding.offset ) : Json() },
             { "what", finding.what } };
}

Json infoJson( const TraceReader::File & file ) {
    const auto & info = file.info();
    const auto & counts = file.counts();
    return { { "path", info.path },
             { "version", info.version },
             { "program", info.program },
             { "process", info.process },
             { "thread", info.thread },
             { "segment", info.segment },
             { "opened", Text::utc( info.openTime ) },
             { "closed", info.isClosed },
             { "writer", writerName( file.writer() ) },
             { "timestamps", info.timestamps },
             { "counterRate", info.counterRate },
             { "ringBlocks", info.blockCount },
             { "blockBytes", info.blockBytes },
             { "descriptorBytes", info.descriptorBytes },
             { "sitesWithoutRoom", info.unregistered },
             { "droppedOfSignalHandlers", info.interrupting },
             { "records", counts.records },
             { "blocks", counts.blocks },
             { "overwrittenBlocks", counts.overwrittenBlocks },
             { "overwrittenBytes", counts.overwrittenBytes },
             { "overwrittenRecords",
               counts.overwrittenRecords() ? Json( *counts.overwrittenRecords() ) : Json() },
             { "missingBlocks", counts.missingBlocks } };
}

std::string textOf( const TraceReader::Site & site ) {
    return site.texts.empty() ? site.function : fmt::format( "{}", fmt::join( site.texts, "%s" ) );
}

Json siteJson( const TraceReader::Site & site ) {
    return { { "id", site.id },           { "file", site.file },
             { "line", site.line },       { "function", site.function },
             { "letters", site.letters }, { "text", textOf( site ) } };
}

std::string closedText( const Json & info ) {
    if ( info["closed"] )
        return "yes";
    if ( info["writer"] == "lives" )
        return "no: it is being written";
    return info["writer"] == "ended"
               ? "no: its process ended without closing it"
               : "no: it is being written, or its process ended without closing it";
}

std::string infoText( const TraceReader::File & file, const Json & info ) {
    const auto row = []( const char * name, const std::string & value ) {
        std::string text = std::string( "  " ) + name;
        text.resize( 22, ' ' );
        return text + Text::printable( value ) + "\n";
    };
    const auto number = [&]( const char * name ) { return info[name].dump(); };
    std::string text = heading( Text::printable( info["path"].get<std::string>() ) ) + "\n";
    text += row( "format version", number( "version" ) );
    text += row( "program",
                 info["program"].get<std::string>() + ", process " + number( "process" ) +
                     ( info["thread"] == 0 ? std::string() : ", thread " + number( "thread" ) ) );
    text += row( "opened", info["opened"] );
    text += row( "closed", closedText( info ) );
    text += row( "timestamps", info["timestamps"].get<std::string>() +
                                   ( info["timestamps"] == "counter"
                                         ? ", " + number( "counterRate" ) + " a second"
                                         : std::string() ) );
    text +=
        row( "ring", number( "ringBlocks" ) + " blocks of " + number( "blockBytes" ) + " bytes" );
    text += row( "records", number( "records" ) + " in " + number( "blocks" ) + " blocks" );
    text += row( "overwritten", overwrittenText( file.counts() ) );
    text += row( "lost to damage", number( "missingBlocks" ) + " blocks" );
    text += row( "dropped", number( "droppedOfSignalHandlers" ) + " of signal handlers" );
    text += row( "message sites", std::to_string( file.sites().size() ) + ", " +
                                      number( "sitesWithoutRoom" ) + " without room" );
    for ( const auto & site : file.sites() )
        text += Text::printable( "    " + site.file + ":" + std::to_string( site.line ) + " " +
                                 site.letters + "  " + textOf( site ) ) +
                "\n";
    return text;
}

std::string checkText( const TraceReader::File & file ) {
    std::string text;
    for ( const Finding & finding : file.findings() )
        text += finding.text() + "\n";
    return text + Text::printable( file.info().path ) + ": " +
           ( isDamaged( file.findings() ) ? "damaged" : "no damage found" ) + ", " +
           Text::counted( file.counts().records, "record" ) + " read\n";
}

std::string indentedDump( const Json & json, const std::string & indent ) {
    std::string text;
    for ( const char each : json.dump( 2, ' ', true, Json::error_handler_t::replace ) ) {
        text += each;
        if ( each == '\n' )
            text += indent;
    }
    return text;
}

// A document of many files, printed as it is made: as values, their sites would take several times as
// much memory.
class FilesJson {
  public:
    void add( const TraceReader::File & file ) {
        begin( infoJson( file ) );
        addList( "sites", file.sites(), siteJson );
        addList( "findings", file.findings(), findingJson );
        print( text_ + "\n  }" );
        text_.clear();
    }

    void addUnread( const std::string & path, const std::vector<Finding> & findings ) {
        begin( { { "path", path } } );
        addList( "findings", findings, findingJson );
        print( text_ + "\n  }" );
        text_.clear();
    }

    void end() const { print( "\n]\n" ); }

  private:
    // The members of an object, and not yet its end.
    void begin( const Json & members ) {
        constexpr std::size_t lengthOfEnd = sizeof "\n  }" - 1;
        const std::string object = indentedDump( members, "  " );
        text_ = isFirst_ ? "[\n  " : ",\n  ";
        text_ += object.substr( 0, object.size() - lengthOfEnd );
        isFirst_ = false;
    }

    template <class List, class ToJson>
    void addList( const char * name, const List & list, ToJson toJson ) {
        text_ += fmt::format( ",\n    \"{}\": [", name );
        bool isFirst = true;
        for ( const auto & each : list ) {
            text_ +=
                ( isFirst ? "\n      " : ",\n      " ) + indentedDump( toJson( each ), "      " );
            isFirst = false;
            if ( text_.size() >= outputChunk ) {
                print( text_ );
                text_.clear();
            }
        }
        text_ += isFirst ? "]" : "\n    ]";
    }

    bool isFirst_ = true;
    std::string text_; ///< not printed yet
};

// Reads every file to its end, so that the counts and findings are complete.
int showFiles( const TraceOptions & options ) {
    Sources sources( options.paths );
    const bool isJson = options.format == TraceFormat::json;
    FilesJson document;
    int worst = 0;
    bool isAnyRead = false;
    bool isAnyFound = false;
    for ( const auto & path : sources.newFiles() ) {
        TraceReader::Merge merge;
        merge.add( path );
        TraceReader::Record record;
        while ( merge.next( record ) ) {
        }
        worst = std::max( worst, exitCode( merge, sources ) );
        isAnyFound = true;
        isAnyRead = isAnyRead || !merge.files().empty();
        for ( const Finding & finding : merge.findings() )
            complain( finding.text() );
        for ( const auto & file : merge.files() ) {
            if ( isJson )
                document.add( *file );
            else
                print( options.check ? checkText( *file ) : infoText( *file, infoJson( *file ) ) );
        }
        if ( isJson && merge.files().empty() )
            document.addUnread( path, merge.findings() );
    }
    if ( !isAnyFound )
        throw InputError( noFilesIn( options.paths ) );
    if ( isJson )
        document.end();
    return isAnyRead ? std::min( worst, 1 ) : worst;
}

} // namespace

int trace( const TraceOptions & options ) {
    if ( options.exportAs )
        return exportRecords( options );
    return options.info || options.check ? showFiles( options ) : showRecords( options );
}

} // namespace Tool
