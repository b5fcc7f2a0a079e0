#pragma once

#include <atomic>
#include <mutex>

// The agent's locks. One activity runs at a time: a thread does the agent's work only while it
// holds the activity lock. A thread that runs interpreted code holds the interpreter lock as well,
// if the host has one. Whoever waits for something slow gives both up and takes them back
// afterwards:
//
//     {
//         // Gives up the interpreter lock, then the activity lock.
//         const Kiln::ActivityUnlockAnchor unlocked;
//         talkToTheChip();
//         // Takes back the activity lock, then the interpreter lock.
//     }
//
// State of a thread          | lock()    | unlock() / an anchor
// ---------------------------|-----------|-----------------------
// does not hold the lock     | holds it  | misuse, process stops
// holds the lock             | misuse,   | does not hold it
//                            | process   |
//                            | stops     |
//
// Misuse writes one line to standard error, "Kiln activity lock: ...", and aborts.
//
// In a child made by fork() the process's lock is free, unless the forking thread held it; then it
// holds it in the child as well. A child made by clone() or _Fork(), which run no handlers, inherits
// the lock as it is.

namespace Kiln {

/// A lock that knows its owner. Not recursive.
class ActivityLock {
  public:
    ActivityLock() = default;
    ActivityLock( const ActivityLock & ) = delete;
    ActivityLock & operator=( const ActivityLock & ) = delete;

    /// Waits for the lock and takes it. Stops the process if this thread holds it already.
    void lock() noexcept;
    /// Gives the lock up. Stops the process if this thread does not hold it.
    void unlock() noexcept;
    /// Whether the calling thread holds the lock.
    bool heldByThisThread() const noexcept;

    /// In a child after fork(), of whose threads only the forking one is left: frees the lock, unless
    /// that thread holds it. The process's lock is freed so by itself.
    void freeInChild() noexcept;

  private:
    friend bool holdsActivityLock() noexcept;

    std::mutex mutex_;
    std::atomic<const void *> owner_{ nullptr };
};

/// The process's one activity lock. Usable from static initialisation to the very end.
ActivityLock & activityLock() noexcept;

/// Whether the calling thread holds it.
bool holdsActivityLock() noexcept;

/// The lock of an interpreter that the host embeds. The host implements it; the anchors use it.
class InterpreterLock {
  public:
    /// Whether the calling thread holds the lock.
    virtual bool heldByThisThread() const noexcept = 0;
    /// Gives the lock up; called only on a thread that holds it.
    virtual void release() noexcept = 0;
    /// Waits for the lock and takes it; called only on the thread that released it.
    virtual void acquire() noexcept = 0;

  protected:
    ~InterpreterLock() = default;
};

/// Makes `lock` the interpreter lock of the process; null means there is none (the start value).
/// The object stays the host's and must outlive every anchor. Returns the one that was set before.
InterpreterLock * setInterpreterLock( InterpreterLock * lock ) noexcept;

/// Releases the interpreter lock for its lifetime, if there is one and this thread holds it.
class MaybeGilUnlockAnchor {
  public:
    MaybeGilUnlockAnchor() noexcept;
    ~MaybeGilUnlockAnchor();
    MaybeGilUnlockAnchor( const MaybeGilUnlockAnchor & ) = delete;
    MaybeGilUnlockAnchor & operator=( const MaybeGilUnlockAnchor & ) = delete;

  private:
    InterpreterLock * released_;
};

/// Releases an activity lock for its lifetime.
class UnlockAnchor {
  public:
    explicit UnlockAnchor( ActivityLock & lock ) noexcept : lock_( lock ) { lock_.unlock(); }
    ~UnlockAnchor() { lock_.lock(); }
    UnlockAnchor( const UnlockAnchor & ) = delete;
    UnlockAnchor & operator=( const UnlockAnchor & ) = delete;

  private:
    ActivityLock & lock_;
};

/// Releases the interpreter lock, if held, and then the activity lock; takes them back in reverse
/// order.
class ActivityUnlockAnchor {
  public:
    ActivityUnlockAnchor() noexcept;
    ~ActivityUnlockAnchor();
    ActivityUnlockAnchor( const ActivityUnlockAnchor & ) = delete;
    ActivityUnlockAnchor & operator=( const ActivityUnlockAnchor & ) = delete;

  private:
    MaybeGilUnlockAnchor interpreter_;
    UnlockAnchor activity_;
};

} // namespace Kiln
