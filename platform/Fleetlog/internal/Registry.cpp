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
                            // Other threads are not here, and one that starts may get their name.
                            for ( ThreadFile & each : instance().threadFiles_ )
                                if ( each.thread != std::this_thread::get_id() )
                                    each.thread = {};
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
    threadFiles_.push_back( { .file = std::move( file ), .generation = generation } );
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

void Registry::leaveThreadFiles() noexcept {
    const std::lock_guard lock( mutex_ );
    for ( ThreadFile & each : threadFiles_ ) {
        if ( each.hasThread && each.thread == std::this_thread::get_id() ) {
            each.hasThread = false;
            each.file->leaveToThread();
        }
    }
}

TraceFile * Registry::threadFile( unsigned generation ) noexcept {
    const std::lock_guard lock( mutex_ );
    ThreadFile * left = nullptr;
    for ( ThreadFile & each : threadFiles_ ) {
        if ( each.generation != generation )
            continue;
        if ( !each.hasThread )
            left = &each;
        else if ( each.thread == std::this_thread::get_id() )
            return each.file.get();
    }
    if ( left == nullptr )
        return nullptr;
    left->hasThread = true;
    left->thread = std::this_thread::get_id();
    left->file->takeOver( ::gettid() );
    return left->file.get();
}

void Registry::closeThreadFiles( unsigned generation ) noexcept {
    const auto isOfHandle = [=]( const ThreadFile & each ) {
        return each.generation == generation;
    };
    while ( takeThreadFile( isOfHandle ) )
        ;
}

} // namespace Fleetlog
