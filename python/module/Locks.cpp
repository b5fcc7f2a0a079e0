#include "python/module/Locks.h"

#include "python/module/Bindings.h"

#include <stdexcept>
#include <unistd.h>

namespace py = pybind11;

namespace Python {

namespace {

// Takes the interpreter's lock. An interpreter that is ending unwinds a thread that asks for its
// lock. Between here and the thread's start lie functions that let nothing through, and the process
// would end there: the thread stays here instead, until the process ends.
template <class Take>
auto takeOrStay( const Take & take ) {
    try {
        return take();
    } catch ( ... ) {
        for ( ;; )
            ::pause();
    }
}

void takeActivity() {
    PyThreadState * const thread = PyEval_SaveThread();
    Kiln::activityLock().lock();
    takeOrStay( [&] { PyEval_RestoreThread( thread ); } );
}

// Python's lock, as the platform's anchors need it.
class Lock final : public Kiln::InterpreterLock {
  public:
    bool heldByThisThread() const noexcept override { return PyGILState_Check() == 1; }
    void release() noexcept override { released = PyEval_SaveThread(); }
    void acquire() noexcept override {
        takeOrStay( [] { PyEval_RestoreThread( released ); } );
    }

  private:
    // A thread has one state, however often its releases are nested.
    static thread_local PyThreadState * released;
};

thread_local PyThreadState * Lock::released = nullptr;

// `with activity_lock:`
struct ActivityLockManager {
    static bool held() { return Kiln::activityLock().heldByThisThread(); }

    static void enter() {
        if ( held() )
            throw std::runtime_error( "this thread holds the activity lock already" );
        takeActivity();
    }

    static void exit() {
        if ( !held() )
            throw std::runtime_error( "this thread does not hold the activity lock" );
        Kiln::activityLock().unlock();
    }
};

} // namespace

InterpreterScope::InterpreterScope() : state_( takeOrStay( [] { return PyGILState_Ensure(); } ) ) {}

InterpreterScope::~InterpreterScope() { PyGILState_Release( state_ ); }

ActivityScope::ActivityScope() : taken_( !Kiln::activityLock().heldByThisThread() ) {
    if ( taken_ )
        takeActivity();
}

ActivityScope::~ActivityScope() {
    if ( taken_ )
        Kiln::activityLock().unlock();
}

void bindLocks( py::module_ & module ) {
    static Lock lock;
    Kiln::setInterpreterLock( &lock );

    py::class_<ActivityLockManager>( module, "ActivityLock",
                                     "The agent's activity lock, to be held by `with`." )
        .def( "__enter__", []( const ActivityLockManager & ) { ActivityLockManager::enter(); } )
        .def( "__exit__",
              []( const ActivityLockManager &, const py::args & ) { ActivityLockManager::exit(); } )
        .def_property_readonly(
            "held", []( const ActivityLockManager & ) { return ActivityLockManager::held(); },
            "Whether the calling thread holds the lock." );
    module.attr( "activity_lock" ) = ActivityLockManager();
}

} // namespace Python
