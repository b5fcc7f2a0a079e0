#include "tracereader/Recording.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

namespace TraceReader {

namespace {

// What the files together may read ahead.
constexpr std::size_t readAheadBlocks = 16384;
constexpr std::size_t mostReadAhead = 64;

} // namespace

// Heaps have the greatest in front, so the later record is the lesser one. Within a group a greater
// counter never has an earlier time, so that this is one order for all.
bool Merge::isLater( const Head & one, const Head & other ) noexcept {
    if ( one.record.time != other.record.time )
        return one.record.time > other.record.time;
    if ( one.group != other.group )
        return one.group > other.group;
    if ( one.record.counter != other.record.counter )
        return one.record.counter > other.record.counter;
    return one.file > other.file;
}

bool Merge::add( const std::string & path ) {
    try {
        add( std::make_unique<File>( path ) );
        return true;
    } catch ( const Error & error ) {
        find( error, path, "" );
        return false;
    }
}

bool Merge::add( const std::string & path, std::vector<std::byte> content ) {
    try {
        add( std::make_unique<File>( path, std::move( content ) ) );
        return true;
    } catch ( const Error & error ) {
        find( error, path, "" );
        return false;
    }
}

void Merge::add( std::unique_ptr<File> file ) {
    toRefill_.push_back( files_.size() );
    groupOfFile_.push_back( groupOf( *file ) );
    isLost_.push_back( false );
    if ( isStarted_ )
        file->setClock( groups_[groupOfFile_.back()].clock );
    files_.push_back( std::move( file ) );
}

// Two writers in one process have bases of their own, but one counter. Whether it is one process, and
// not one of another day with the same number, is told by their clocks: each has the other's base at
// the other's time, as well as they measured their rates.
bool Merge::isOneClock( const Group & group, const File & file ) noexcept {
    constexpr std::int64_t leastTolerance = 1'000'000;
    constexpr std::int64_t toleranceOfSpan = 1000; // a part of it
    const Clock & clock = file.clock();
    std::int64_t span = 0;
    std::int64_t error = 0;
    return group.process == file.info().process && file.info().timestamps == "counter" &&
           !__builtin_sub_overflow( clock.baseTime, group.baseTime, &span ) &&
           !__builtin_sub_overflow( group.clock.time( clock.baseCounter ), clock.baseTime,
                                    &error ) &&
           error / 2 <= leastTolerance / 2 + std::abs( span / toleranceOfSpan ) &&
           -( error / 2 ) <= leastTolerance / 2 + std::abs( span / toleranceOfSpan );
}

// The files of a process were stamped by one clock. They get one rate, too, that which was measured
// over the longest time: two threads' records must not change places because their files measured
// differently. It stays the same from the first record on.
std::size_t Merge::groupOf( const File & file ) {
    const auto & clock = file.clock();
    const auto [entry, isNew] =
        groupByBase_.try_emplace( { clock.baseCounter, clock.baseTime }, groups_.size() );
    if ( isNew ) {
        const auto same = std::find_if( groups_.begin(), groups_.end(), [&]( const Group & group ) {
            return isOneClock( group, file );
        } );
        entry->second = static_cast<std::size_t>( same - groups_.begin() );
        if ( same == groups_.end() )
            groups_.push_back( { file.info().process, clock.baseTime, clock, file.clockSpan() } );
    }
    Group & group = groups_[entry->second];
    if ( !isStarted_ && file.clockSpan() > group.clockSpan ) {
        group.clock = clock;
        group.clockSpan = file.clockSpan();
    }
    return entry->second;
}

void Merge::start() {
    const std::size_t readAhead = std::clamp<std::size_t>(
        readAheadBlocks / std::max<std::size_t>( files_.size(), 1 ), 1, mostReadAhead );
    for ( std::size_t index = 0; index < files_.size(); ++index ) {
        files_[index]->setClock( groups_[groupOfFile_[index]].clock );
        files_[index]->setReadAhead( readAhead );
        if ( from_ || to_ )
            tryRead( index, [&]( File & file ) {
                if ( !hasCalls( file ) )
                    file.narrow( from_, to_ );
                return true;
            } );
    }
    isStarted_ = true;
}

// Reads a file, unless it can no longer be read, which is told once.
template <class Read>
bool Merge::tryRead( std::size_t file, Read read ) {
    if ( isLost_[file] )
        return false;
    try {
        return read( *files_[file] );
    } catch ( const Error & error ) {
        find( error, files_[file]->info().path, "; it is not read further" );
        isLost_[file] = true;
        return false;
    }
}

void Merge::find( const Error & error, const std::string & path, const std::string & consequence ) {
    findings_.push_back( { error.isMissing() ? Finding::Kind::removed : Finding::Kind::damage, path,
                           std::nullopt, error.cause() + consequence } );
}

bool Merge::next( Record & record ) {
    if ( !isStarted_ )
        start();
    for ( const std::size_t index : toRefill_ ) {
        Head head{ {}, index, groupOfFile_[index] };
        if ( tryRead( index, [&]( File & file ) { return file.next( head.record ); } ) ) {
            // Mostly the next record is of the same file as the last one.
            if ( toRefill_.size() == 1 && ( heads_.empty() || !isLater( head, heads_.front() ) ) ) {
                record = head.record;
                return true;
            }
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
    bool isWorth = !toRefill_.empty(); // files that were added
    const std::vector<std::size_t> added = toRefill_;
    for ( std::size_t index = 0; index < files_.size(); ++index ) {
        if ( std::find( added.begin(), added.end(), index ) == added.end() &&
             tryRead( index, []( File & file ) { return file.poll(); } ) ) {
            toRefill_.push_back( index );
            isWorth = true;
        }
    }
    return isWorth;
}

bool Merge::mayBeWritten() {
    for ( std::size_t index = 0; index < files_.size(); ++index ) {
        if ( tryRead( index, []( File & file ) { return file.writer() != Writer::ended; } ) )
            return true;
    }
    return false;
}

std::vector<std::string> findFiles( const std::string & directory ) {
    std::error_code error;
    std::vector<std::string> found;
    std::filesystem::directory_iterator entry( directory, error );
    for ( ; !error && entry != std::filesystem::directory_iterator(); entry.increment( error ) ) {
        if ( entry->path().extension() == ".fleetlog" )
            found.push_back( entry->path().string() );
    }
    if ( error )
        throw Error( directory, "cannot be read: " + error.message() );
    std::sort( found.begin(), found.end() );
    return found;
}

} // namespace TraceReader
