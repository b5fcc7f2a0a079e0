#include <Fleetlog/internal/Registry.h>

#include <algorithm>
#include <pthread.h>
#include <system_error>
#include <unistd.h>

namespace Fleetlog {

Registry & Registry::instance() {
    static Registry & registry = *new Registry;
    return registry;
}

Registry::Registry() {
    const int error =
        pthread_atfork( [] { instance().mutex_.lock(); }, [] { instance().mutex_.unlock(); },
                        [] {
                            for ( TraceFile * file : instance().files_ )
                                file->leaveToParent();
                            instance().mutex_.unlock();
                        } );
    if ( error != 0 )
        throw std::system_error( error, std::generic_category(), "Fleetlog: pthread_atfork" );
}

void Registry::add( TraceFile & file ) {
    const std::lock_guard lock( mutex_ );
    files_.push_back( &file );
}

void Registry::remove( TraceFile & file ) noexcept {
    const std::lock_guard lock( mutex_ );
    std::erase( files_, &file );
}

void Registry::addThreadFile( std::unique_ptr<TraceFile> file, unsigned generation ) {
    const std::lock_guard lock( mutex_ );
    threadFiles_.push_back( { std::move( file ), generation } );
}

// Takes a file out of the list. The caller destroys it, without the lock, which remove() takes
// again.
template <class Predicate>
std::unique_ptr<TraceFile> Registry::takeThreadFile( Predicate isWanted ) noexcept {
    const std::lock_guard lock( mutex_ );
    const auto found = std::find_if( threadFiles_.begin(), threadFiles_.end(), isWanted );
    if ( found == threadFiles_.end() )
        return nullptr;
    auto file = std::move( found->file );
    threadFiles_.erase( found );
    return file;
}

void Registry::leaveThreadFile( TraceFile * file, unsigned generation ) noexcept {
    const std::lock_guard lock( mutex_ );
    for ( ThreadFile & each : threadFiles_ ) {
        if ( each.file.get() == file && each.generation == generation ) {
            each.hasThread = false;
            file->leaveToThread();
        }
    }
}

TraceFile * Registry::takeOverThreadFile( unsigned generation ) noexcept {
    const std::lock_guard lock( mutex_ );
    for ( ThreadFile & each : threadFiles_ ) {
        if ( !each.hasThread && each.generation == generation ) {
            each.hasThread = true;
            each.file->takeOver( ::gettid() );
            return each.file.get();
        }
    }
    return nullptr;
}

void Registry::closeThreadFiles( unsigned generation ) noexcept {
    const auto isOfHandle = [=]( const ThreadFile & each ) {
        return each.generation == generation;
    };
    while ( takeThreadFile( isOfHandle ) )
        ;
}

} // namespace Fleetlog
