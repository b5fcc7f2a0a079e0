#pragma once

#include <Kiln/ActivityLock.h>

#include <pybind11/pybind11.h>

// The interpreter's lock and the activity lock, in this order on every thread: the activity lock
// first, then the interpreter's. A thread that waits for the activity lock does not hold the
// interpreter's, so no two threads wait for each other.

namespace Python {

/// Holds the interpreter's lock for its lifetime, on any thread, whether it held it before or not.
class InterpreterScope {
  public:
    InterpreterScope();
    ~InterpreterScope();
    InterpreterScope( const InterpreterScope & ) = delete;
    InterpreterScope & operator=( const InterpreterScope & ) = delete;

  private:
    PyGILState_STATE state_;
};

/// Holds the activity lock for its lifetime, unless the thread held it before. Made and ended on a
/// thread that holds the interpreter's lock, which it gives up while it waits.
class ActivityScope {
  public:
    ActivityScope();
    ~ActivityScope();
    ActivityScope( const ActivityScope & ) = delete;
    ActivityScope & operator=( const ActivityScope & ) = delete;

  private:
    bool taken_;
};

} // namespace Python
