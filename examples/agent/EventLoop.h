#pragma once

#include <chrono>
#include <functional>

/// A file descriptor that is closed at the end.
class Descriptor {
  public:
    /// Takes what a system call has returned. Throws std::system_error, with the call's name, if that is -1.
    Descriptor( int descriptor, const char * call );
    ~Descriptor();
    Descriptor( const Descriptor & ) = delete;
    Descriptor & operator=( const Descriptor & ) = delete;

    int get() const { return descriptor_; }

  private:
    int descriptor_;
};

/// A thread of the agent: calls `work` at each tick of a timer until `stop` can be read. The activity lock is held
/// all the time, but given up while there is nothing to do and, by the recipes, during each SDK call. So what `work`
/// does between two SDK calls is not disturbed by the other threads.
///
/// Also gives the thread's trace the time, once a tick.
///
/// Throws std::system_error if the kernel refuses a timer.
void runUntil( const Descriptor & stop, std::chrono::milliseconds period,
               const std::function<void()> & work );
