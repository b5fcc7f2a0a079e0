#include "text/Numbers.h"
#include "text/Time.h"
#include "tools/cli/Verbs.h"
#include "tools/model/Arguments.h"
#include "tools/model/Errors.h"
#include "tracereader/TraceReader.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <thread>

namespace Tool {

namespace {

using TraceReader::Finding;
using Json = nlohmann::ordered_json;

// Lines are collected up to about this much before they are written.
constexpr std::size_t outputChunk = 1 << 16;

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

// The files of all paths, each once.
TraceReader::Merge openAll( const std::vector<std::string> & paths ) {
    std::vector<std::string> files;
    for ( const auto & path : paths ) {
        for ( auto & file : TraceReader::findFiles( path ) ) {
            if ( std::find( files.begin(), files.end(), file ) == files.end() )
                files.push_back( std::move( file ) );
        }
    }
    TraceReader::Merge merge;
    for ( const auto & file : files )
        merge.add( std::make_unique<TraceReader::File>( file ) );
    return merge;
}

bool isDamaged( const TraceReader::Merge & merge ) {
    for ( const auto & file : merge.files() ) {
        for ( const Finding & finding : file->findings() ) {
            if ( finding.kind == Finding::Kind::damage )
                return true;
        }
    }
    return false;
}

// Says on standard error what is not there: damage, and what the rings had no room for any more.
void tellLosses( const TraceReader::Merge & merge ) {
    for ( const auto & file : merge.files() ) {
        for ( const Finding & finding : file->findings() )
            complain( finding.text() );
        const std::uint64_t overwritten = file->counts().overwrittenRecords();
        if ( overwritten != 0 )
            complain( file->info().path + ": the oldest records, about " +
                      std::to_string( overwritten ) +
                      ", were overwritten; a larger ring keeps more" );
        if ( file->info().unregistered != 0 )
            complain( file->info().path + ": " + std::to_string( file->info().unregistered ) +
                      " message sites found no room for their description; their records are "
                      "shown as bytes" );
    }
}

volatile std::sig_atomic_t interrupted = 0;

bool allClosed( const TraceReader::Merge & merge ) {
    return std::all_of( merge.files().begin(), merge.files().end(),
                        []( const auto & file ) { return file->info().isClosed; } );
}

int showRecords( const TraceOptions & options ) {
    const TraceReader::Filter filter = filterOf( options );
    TraceReader::Merge merge = openAll( options.paths );
    TraceReader::Renderer renderer( options.format == TraceFormat::json ? TraceReader::Format::json
                                    : options.format == TraceFormat::brief
                                        ? TraceReader::Format::brief
                                        : TraceReader::Format::text );
    if ( options.follow )
        std::signal( SIGINT, []( int ) { interrupted = 1; } );
    TraceReader::Record record;
    std::string lines;
    for ( ;; ) {
        while ( merge.next( record ) ) {
            if ( filter.accepts( record ) )
                renderer.append( lines, record );
            if ( lines.size() >= outputChunk ) {
                print( lines );
                lines.clear();
            }
        }
        print( lines );
        lines.clear();
        if ( !options.follow || interrupted != 0 )
            break;
        // A closed file may have got its last records just before it was closed.
        const bool last = allClosed( merge );
        if ( merge.poll() )
            continue;
        if ( last )
            break;
        std::this_thread::sleep_for( pollPause );
    }
    tellLosses( merge );
    return isDamaged( merge ) ? 1 : 0;
}

Json infoJson( const TraceReader::File & file ) {
    const auto & info = file.info();
    const auto & counts = file.counts();
    Json findings = Json::array();
    for ( const Finding & finding : file.findings() )
        findings.push_back( { { "damage", finding.kind == Finding::Kind::damage },
                              { "offset", finding.offset },
                              { "what", finding.what } } );
    Json sites = Json::array();
    for ( const auto & site : file.sites() ) {
        std::string text = site.function;
        for ( std::size_t i = 0; i < site.texts.size(); ++i )
            text = i == 0 ? site.texts[i] : text + "%s" + site.texts[i];
        sites.push_back( { { "id", site.id },
                           { "file", site.file },
                           { "line", site.line },
                           { "function", site.function },
                           { "letters", site.letters },
                           { "text", text } } );
    }
    return { { "path", info.path },
             { "version", info.version },
             { "program", info.program },
             { "process", info.process },
             { "thread", info.thread },
             { "opened", Text::utc( info.openTime ) },
             { "closed", info.isClosed },
             { "timestamps", info.timestamps },
             { "counterRate", info.counterRate },
             { "ringBlocks", info.blockCount },
             { "blockBytes", info.blockBytes },
             { "descriptorBytes", info.descriptorBytes },
             { "sitesWithoutRoom", info.unregistered },
             { "records", counts.records },
             { "blocks", counts.blocks },
             { "overwrittenBlocks", counts.overwrittenBlocks },
             { "overwrittenRecords", counts.overwrittenRecords() },
             { "missingBlocks", counts.missingBlocks },
             { "sites", sites },
             { "findings", findings } };
}

std::string infoText( const Json & info ) {
    const auto row = []( const char * name, const std::string & value ) {
        std::string text = std::string( "  " ) + name;
        text.resize( 22, ' ' );
        return text + value + "\n";
    };
    const auto number = [&]( const char * name ) { return info[name].dump(); };
    std::string text = heading( info["path"].get<std::string>() ) + "\n";
    text += row( "format version", number( "version" ) );
    text += row( "program",
                 info["program"].get<std::string>() + ", process " + number( "process" ) +
                     ( info["thread"] == 0 ? std::string() : ", thread " + number( "thread" ) ) );
    text += row( "opened", info["opened"] );
    text +=
        row( "closed", info["closed"].get<bool>()
                           ? "yes"
                           : "no: it is being written, or its process ended without closing it" );
    text += row( "timestamps", info["timestamps"].get<std::string>() +
                                   ( info["timestamps"] == "counter"
                                         ? ", " + number( "counterRate" ) + " a second"
                                         : std::string() ) );
    text +=
        row( "ring", number( "ringBlocks" ) + " blocks of " + number( "blockBytes" ) + " bytes" );
    text += row( "records", number( "records" ) + " in " + number( "blocks" ) + " blocks" );
    text += row( "overwritten", "about " + number( "overwrittenRecords" ) + " records, " +
                                    number( "overwrittenBlocks" ) + " blocks" );
    text += row( "lost to damage", number( "missingBlocks" ) + " blocks" );
    text += row( "message sites", std::to_string( info["sites"].size() ) + ", " +
                                      number( "sitesWithoutRoom" ) + " without room" );
    for ( const Json & site : info["sites"] )
        text += "    " + site["file"].get<std::string>() + ":" + site["line"].dump() + " " +
                site["letters"].get<std::string>() + "  " + site["text"].get<std::string>() + "\n";
    return text;
}

// Reads every file to its end, so that the counts and findings are complete.
int showFiles( const TraceOptions & options ) {
    bool damaged = false;
    Json all = Json::array();
    std::string text;
    TraceReader::Merge merge = openAll( options.paths );
    for ( const auto & file : merge.files() ) {
        TraceReader::Record record;
        while ( file->next( record ) ) {
        }
        const Json info = infoJson( *file );
        all.push_back( info );
        if ( options.check ) {
            bool whole = true;
            for ( const Finding & finding : file->findings() ) {
                text += finding.text() + "\n";
                whole = whole && finding.kind != Finding::Kind::damage;
            }
            text += file->info().path + ": " + ( whole ? "whole" : "damaged" ) + ", " +
                    std::to_string( file->counts().records ) + " records read\n";
        } else {
            text += infoText( info );
        }
    }
    damaged = isDamaged( merge );
    print( options.format == TraceFormat::json ? all.dump( 2 ) + "\n" : text );
    return damaged ? 1 : 0;
}

} // namespace

int trace( const TraceOptions & options ) {
    return options.info || options.check ? showFiles( options ) : showRecords( options );
}

} // namespace Tool
