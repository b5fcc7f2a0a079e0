#include "tools/cli/Workers.h"

#include <utility>

namespace Tool {

Workers::Workers( unsigned threads ) {
    threads_.reserve( threads );
    try {
        while ( threads_.size() < threads )
            threads_.emplace_back( [this] { work(); } );
    } catch ( const std::exception & ) {
        // No memory, or no more threads allowed: the owner does what is left.
    }
}

Workers::~Workers() {
    {
        const std::lock_guard lock( mutex_ );
        isEnding_ = true;
        waiting_.clear();
    }
    hasWork_.notify_all();
    for ( std::thread & thread : threads_ )
        thread.join();
}

void Workers::begin( Task & task ) {
    {
        const std::lock_guard lock( mutex_ );
        task.isDone_ = false;
        waiting_.push_back( &task );
    }
    hasWork_.notify_one();
}

void Workers::finish( Task & task ) {
    std::unique_lock lock( mutex_ );
    while ( !task.isDone_ )
        if ( !runNext( lock ) )
            isDone_.wait( lock );
    if ( task.error_ )
        std::rethrow_exception( std::exchange( task.error_, nullptr ) );
}

// False if there is nothing to do.
bool Workers::runNext( std::unique_lock<std::mutex> & lock ) {
    if ( waiting_.empty() )
        return false;
    Task & task = *waiting_.front();
    waiting_.pop_front();
    lock.unlock();
    std::exception_ptr error;
    try {
        task.run();
    } catch ( ... ) {
        error = std::current_exception();
    }
    lock.lock();
    task.error_ = std::move( error );
    task.isDone_ = true;
    isDone_.notify_one();
    return true;
}

void Workers::work() {
    std::unique_lock lock( mutex_ );
    while ( !isEnding_ )
        if ( !runNext( lock ) )
            hasWork_.wait( lock );
}

} // namespace Tool
