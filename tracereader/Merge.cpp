#include "tracereader/TraceReader.h"

#include <algorithm>
#include <filesystem>

namespace TraceReader {

// Heaps have the greatest in front, so the later record is the lesser one.
bool Merge::isLater( const Head & one, const Head & other ) noexcept {
    return one.record.time != other.record.time ? one.record.time > other.record.time
                                                : one.file > other.file;
}

void Merge::add( std::unique_ptr<File> file ) {
    toRefill_.push_back( files_.size() );
    files_.push_back( std::move( file ) );
}

// The files of a process were stamped by one clock. They get one rate, too, that which was measured
// over the longest time: two threads' records must not change places because their files measured
// differently.
void Merge::shareClocks() {
    const auto isShared = []( const Clock & one, const Clock & other ) {
        return one.baseCounter == other.baseCounter && one.baseTime == other.baseTime;
    };
    for ( const auto & file : files_ ) {
        const File * best = file.get();
        for ( const auto & other : files_ )
            if ( isShared( other->clock(), file->clock() ) &&
                 other->clockSpan() > best->clockSpan() )
                best = other.get();
        file->setClock( best->clock() );
    }
}

bool Merge::next( Record & record ) {
    if ( !isStarted_ )
        shareClocks();
    isStarted_ = true;
    for ( const std::size_t index : toRefill_ ) {
        Head head{ {}, index };
        if ( files_[index]->next( head.record ) ) {
            heads_.push_back( head );
            std::push_heap( heads_.begin(), heads_.end(), isLater );
        }
    }
    toRefill_.clear();
    if ( heads_.empty() )
        return false;
    std::pop_heap( heads_.begin(), heads_.end(), isLater );
    record = heads_.back().record;
    toRefill_.push_back( heads_.back().file ); // only now is the record's memory the caller's
    heads_.pop_back();
    return true;
}

bool Merge::poll() {
    bool isWorth = false;
    for ( std::size_t index = 0; index < files_.size(); ++index ) {
        if ( files_[index]->poll() ) {
            toRefill_.push_back( index );
            isWorth = true;
        }
    }
    return isWorth;
}

std::vector<std::string> findFiles( const std::string & path ) {
    std::error_code error;
    if ( !std::filesystem::is_directory( path, error ) )
        return { path };
    std::vector<std::string> found;
    for ( const auto & entry : std::filesystem::directory_iterator( path, error ) )
        if ( entry.path().extension() == ".fleetlog" )
            found.push_back( entry.path().string() );
    if ( error )
        throw Error( path + ": cannot be read: " + error.message() );
    if ( found.empty() )
        throw Error( path + ": no trace files (*.fleetlog) in this directory" );
    std::sort( found.begin(), found.end() );
    return found;
}

} // namespace TraceReader
