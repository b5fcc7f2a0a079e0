#include "tools/diagnose/LastRecords.h"

#include "tools/model/Errors.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>

namespace Tool {

namespace {

// The bytes of a record that came last, until it is known that it is one of the last.
struct Kept {
    TraceReader::Record record;
    std::vector<std::byte> payload;
};

struct Ring {
    std::array<Kept, LastRecords::perThread> kept;
    std::size_t count = 0;

    void add( const TraceReader::Record & record ) {
        Kept & slot = kept[count++ % kept.size()];
        slot.record = record;
        slot.payload.assign( record.payload.begin(), record.payload.end() );
    }
};

ThreadRecords::Line lineOf( Kept & kept ) {
    kept.record.payload = kept.payload;
    ThreadRecords::Line line{ .time = kept.record.time };
    if ( kept.record.site != nullptr )
        line.function = kept.record.site->function;
    TraceReader::appendText( line.text, kept.record );
    return line;
}

} // namespace

LastRecords::LastRecords( const std::string & path ) {
    std::error_code error;
    const bool isFolder = std::filesystem::is_directory( path, error );
    TraceReader::Merge merge;
    std::size_t added = 0;
    try {
        std::vector<std::string> files;
        if ( isFolder )
            files = TraceReader::findFiles( path );
        else
            files.push_back( path );
        for ( const std::string & file : files )
            added += merge.add( file );
    } catch ( const TraceReader::Error & failure ) {
        throw InputError( failure.what() );
    }
    if ( added == 0 && merge.findings().empty() )
        throw InputError( path, 0, "no trace files (*.fleetlog) in this directory" );
    if ( added == 0 && !isFolder )
        throw InputError( merge.findings().front().text() );

    std::map<std::pair<std::uint32_t, std::uint32_t>, Ring> rings;
    TraceReader::Record record;
    while ( merge.next( record ) )
        rings[{ record.file->info().process, record.thread }].add( record );

    for ( auto & [id, ring] : rings ) {
        ThreadRecords thread{ .process = id.first, .thread = id.second };
        for ( std::size_t i = 0; i < std::min( ring.count, ring.kept.size() ); ++i ) {
            Kept & kept = ring.kept[( ring.count - 1 - i ) % ring.kept.size()];
            thread.program = kept.record.file->info().program;
            thread.lines.push_back( lineOf( kept ) );
        }
        threads_.push_back( std::move( thread ) );
    }
    for ( const auto & finding : merge.findings() )
        findings_.push_back( finding.text() );
    for ( const auto & file : merge.files() ) {
        for ( const auto & finding : file->findings() )
            findings_.push_back( finding.text() );
    }
}

const ThreadRecords * LastRecords::find( std::string_view function, const std::uint32_t * process,
                                         std::size_t & others ) const {
    const ThreadRecords * found = nullptr;
    bool isOfRecipe = false;
    others = 0;
    for ( const ThreadRecords & thread : threads_ ) {
        if ( process != nullptr && thread.process != *process )
            continue;
        const bool fits = !function.empty() && thread.lines.front().function == function;
        if ( !fits && ( process == nullptr || isOfRecipe ) )
            continue;
        if ( fits && !isOfRecipe ) {
            found = nullptr;
            others = 0;
        }
        isOfRecipe = fits;
        others += found != nullptr;
        if ( found == nullptr || found->lines.front().time < thread.lines.front().time )
            found = &thread;
    }
    return found;
}

} // namespace Tool
