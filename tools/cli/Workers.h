#pragma once

#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

namespace Tool {

/// Threads that do work beside the one that they belong to, which gives it to them and takes it back.
/// All functions are called by that thread.
class Workers {
  public:
    class Task {
      public:
        virtual ~Task() = default;

      private:
        friend class Workers;
        virtual void run() = 0; ///< on any thread

        std::exception_ptr error_;
        bool isDone_ = false;
    };

    /// Where the system has no room for so many threads, there are fewer.
    explicit Workers( unsigned threads );
    /// What nobody has begun is not done; what somebody has begun is waited for.
    ~Workers();
    Workers( const Workers & ) = delete;
    Workers & operator=( const Workers & ) = delete;

    /// The task must be there until it is finished, or this object is gone.
    void begin( Task & task );

    /// Returns when a task that was begun is done; throws what it threw. As long as there is work that
    /// nobody does, this thread does it. A task can then be begun again.
    void finish( Task & task );

  private:
    void work();
    bool runNext( std::unique_lock<std::mutex> & lock );

    std::mutex mutex_;
    std::condition_variable hasWork_; ///< or is at its end
    std::condition_variable isDone_;  ///< a task is
    std::deque<Task *> waiting_;
    bool isEnding_ = false;
    std::vector<std::thread> threads_;
};

} // namespace Tool
