#include "tracereader/Recording.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <tuple>
#include <utility>

namespace TraceReader {

namespace {

// The files of the paths, each once.
std::vector<std::string> filesOf( const std::vector<std::string> & paths ) {
    std::vector<std::string> files;
    std::set<std::string> seen;
    for ( const auto & path : paths ) {
        std::error_code error;
        const bool isFolder = std::filesystem::is_directory( path, error );
        for ( auto & file : isFolder ? findFiles( path ) : std::vector{ path } ) {
            const auto place = std::filesystem::canonical( file, error );
            if ( seen.insert( error ? file : place.string() ).second )
                files.push_back( std::move( file ) );
        }
    }
    return files;
}

Merge open( const std::vector<std::string> & paths, const Recording::Options & options ) {
    const auto files = filesOf( paths );
    if ( files.empty() )
        throw Error( paths.front(), "no trace files (*.fleetlog) in this directory" );
    Merge merge;
    std::size_t others = 0;
    std::set<std::uint32_t> processes;
    for ( const auto & path : files ) {
        std::unique_ptr<File> file;
        try {
            file = std::make_unique<File>( path );
        } catch ( const Error & ) {
            merge.add( path ); // is refused again, and a finding
            continue;
        }
        const std::uint32_t process = file->info().process;
        if ( hasCalls( *file ) )
            processes.insert( process );
        if ( options.process && *options.process != process )
            ++others;
        else
            merge.add( std::move( file ) );
    }
    if ( options.process && !processes.contains( *options.process ) && !processes.empty() ) {
        throw Error( paths.front(),
                     fmt::format( "has no SDK calls of process {}; it has those of: {}",
                                  *options.process, fmt::join( processes, ", " ) ) );
    }
    if ( merge.files().empty() && others == 0 )
        throw Error( merge.findings().front().file, merge.findings().front().what );
    if ( processes.empty() )
        throw Error( paths.front(),
                     "holds no SDK calls; record them with \"--record-to\", or in an agent with "
                     "Interpose::TraceRecorder" );
    return merge;
}

} // namespace

bool hasCalls( const File & file ) {
    return std::any_of( file.sites().begin(), file.sites().end(), CallAssembler::isOfRecorder );
}

Recording::Recording( const std::vector<std::string> & paths ) : Recording( paths, Options{} ) {}

Recording::Recording( const std::vector<std::string> & paths, const Options & options )
    : Recording( open( paths, options ), options ) {}

Recording::Recording( Merge merge, const Options & options )
    : merge_( std::move( merge ) ), options_( options ),
      assembler_( std::make_unique<CallAssembler>() ) {
    for ( const auto & file : merge_.files() ) {
        const Info & info = file->info();
        const auto isSame = [&]( const Process & each ) { return each.process == info.process; };
        if ( hasCalls( *file ) && std::none_of( processes_.begin(), processes_.end(), isSame ) )
            processes_.push_back( { info.process, info.program, info.openTime } );
    }
    std::stable_sort( processes_.begin(), processes_.end(),
                      []( const Process & one, const Process & other ) {
                          return one.openTime < other.openTime;
                      } );
}

bool Recording::next( Event & event ) {
    Record record;
    while ( !isAtEnd_ ) {
        if ( !merge_.next( record ) )
            isAtEnd_ = true;
        else if ( assembler_->take( record, event ) &&
                  ( event.moment != Event::Moment::message || options_.wantsMessages ) )
            return true;
    }
    return assembler_->takeUnreturned( event );
}

std::vector<Finding> Recording::findings() const {
    std::vector<Finding> all = merge_.findings();
    for ( const auto & file : merge_.files() )
        all.insert( all.end(), file->findings().begin(), file->findings().end() );
    all.insert( all.end(), assembler_->findings().begin(), assembler_->findings().end() );
    return all;
}

// A file that another one goes on from has the number before it. Those of a thread that made the
// first of them have that thread in their headers.
bool Recording::hasLostSegments() const {
    using Chain = std::tuple<std::int64_t, std::uint32_t, std::uint32_t>;
    std::map<Chain, std::set<std::uint32_t>> chains;
    for ( const auto & file : merge_.files() ) {
        const Info & info = file->info();
        if ( info.segment != 0 )
            chains[{ info.openTime, info.process, info.thread }].insert( info.segment );
    }
    return std::any_of( chains.begin(), chains.end(), []( const auto & chain ) {
        return chain.second.size() != *chain.second.rbegin();
    } );
}

bool Recording::hasLostBeginning() const {
    return assembler_->callsWithoutBefore() != 0 || hasLostSegments() ||
           std::any_of( merge_.files().begin(), merge_.files().end(), []( const auto & file ) {
               return hasCalls( *file ) && file->counts().overwrittenBytes != 0;
           } );
}

} // namespace TraceReader
