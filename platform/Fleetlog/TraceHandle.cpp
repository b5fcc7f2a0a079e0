#include <Fleetlog/TraceHandle.h>

#include <Fleetlog/internal/Registry.h>
#include <Fleetlog/internal/Report.h>

#include <atomic>
#include <exception>
#include <pthread.h>
#include <system_error>
#include <unistd.h>

namespace Fleetlog {

TraceHandle * defaultFleetlogHandle = nullptr;

constinit thread_local KnownFile knownFile;

namespace {

// The calling thread's file, and the handle that it belongs to: the last that the thread has asked
// for its file. A thread that has met a handle has its generation here also when no file could be
// made.
[[gnu::tls_model( "initial-exec" )]] constinit thread_local KnownFile slot;

std::atomic<unsigned> lastGeneration{ 0 };

void leaveFilesOfEndedThread( void * ) noexcept {
    // First: a signal handler must not write to a file that another thread may have taken over.
    // What it asks first is forgotten last, so that it remembers nothing in between.
    slot.file = nullptr;
    std::atomic_signal_fence( std::memory_order_seq_cst );
    knownFile.set( 0, nullptr );
    std::atomic_signal_fence( std::memory_order_seq_cst );
    Registry::instance().leaveThreadFiles();
}

// A key with a destructor rather than a thread_local object with one: it runs after those of all
// thread_local objects, which may write messages, and it does not run when the process exits.
void watchThreadEnd() {
    static const pthread_key_t key = [] {
        pthread_key_t made;
        const int error = pthread_key_create( &made, leaveFilesOfEndedThread );
        if ( error != 0 )
            throw std::system_error( error, std::generic_category(),
                                     "Fleetlog: pthread_key_create" );
        return made;
    }();
    const int error = pthread_setspecific( key, &slot );
    if ( error != 0 )
        throw std::system_error( error, std::generic_category(), "Fleetlog: pthread_setspecific" );
}

std::atomic_ref<TraceHandle *> defaultHandle() noexcept {
    return std::atomic_ref( defaultFleetlogHandle );
}

} // namespace

TraceHandle::TraceHandle( const OpenOptions & options )
    : multiThread_( options.files == Files::perThread ? 1 : 0 ), generation_( ++lastGeneration ),
      options_( options ) {
    TraceFile::removeOldFiles( options );
    if ( multiThread_ )
        makeThreadFile();
    else
        file_ = std::make_unique<TraceFile>( options, 0 );
}

TraceHandle::~TraceHandle() {
    if ( multiThread_ )
        Registry::instance().closeThreadFiles( generation_ );
}

TraceFile * TraceHandle::mtTraceFile() noexcept {
    if ( slot.generation == generation_ ) [[likely]]
        return slot.file;
    return openThreadFile();
}

void TraceHandle::makeThreadFile() {
    watchThreadEnd();
    if ( TraceFile * const had = Registry::instance().threadFile( generation_ ) ) {
        slot.set( generation_, had );
        return;
    }
    auto file = std::make_unique<TraceFile>( options_, ::gettid() );
    TraceFile * const made = file.get();
    Registry::instance().addThreadFile( std::move( file ), generation_ );
    slot.set( generation_, made );
}

TraceFile * TraceHandle::openThreadFile() noexcept {
    try {
        makeThreadFile();
    } catch ( const std::exception & error ) {
        slot.set( generation_, nullptr );
        reportLoss( error.what() );
    }
    return slot.file;
}

void openDefault( const OpenOptions & options ) {
    auto opened = std::make_unique<TraceHandle>( options );
    delete defaultHandle().exchange( opened.release() );
}

void closeDefault() noexcept { delete defaultHandle().exchange( nullptr ); }

void refreshTick() noexcept {
    TraceHandle * const handle = defaultHandle().load( std::memory_order_acquire );
    if ( handle == nullptr )
        return;
    TraceFile * const file = handle->multiThread() ? handle->mtTraceFile() : handle->traceFile();
    if ( file != nullptr )
        file->refreshTick();
}

} // namespace Fleetlog
