#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

// Nacre::Ptr: reference-counted ownership of objects that carry their own count.
//
//     struct Box : Nacre::PtrInterface { ... };
//     Nacre::Ptr< Box > box = Nacre::make< Box >( ... );
//
// The object is deleted when its last Ptr goes. Counts are atomic: Ptrs to one object may be copied
// and dropped on several threads at once; one Ptr object belongs to one thread at a time.

namespace Nacre {

template <class T>
class Ptr;

/// Base of objects that Ptr owns. Starts at count zero; the first Ptr makes it one.
class PtrInterface {
  public:
    PtrInterface() noexcept = default;
    PtrInterface( const PtrInterface & ) noexcept {}
    PtrInterface & operator=( const PtrInterface & ) noexcept { return *this; }

  protected:
    virtual ~PtrInterface() = default;

  private:
    template <class T>
    friend class Ptr;

    void retain() const noexcept { count_.fetch_add( 1, std::memory_order_relaxed ); }
    void release() const noexcept {
        if ( count_.fetch_sub( 1, std::memory_order_acq_rel ) == 1 )
            delete this;
    }

    mutable std::atomic<std::uint32_t> count_{ 0 };
};

template <class T>
class Ptr {
  public:
    Ptr() noexcept = default;
    Ptr( std::nullptr_t ) noexcept {}
    /// Takes a share of `object`, which may be null and must have been made with new.
    explicit Ptr( T * object ) noexcept : object_( object ) { retain(); }
    Ptr( const Ptr & other ) noexcept : object_( other.object_ ) { retain(); }
    Ptr( Ptr && other ) noexcept : object_( std::exchange( other.object_, nullptr ) ) {}
    /// From a Ptr to a derived class.
    template <class Derived>
    requires( std::is_convertible_v<Derived *, T *> ) Ptr( const Ptr<Derived> & other )
    noexcept : Ptr( static_cast<T *>( other.get() ) ) {}
    ~Ptr() {
        if ( object_ != nullptr )
            static_cast<const PtrInterface *>( object_ )->release();
    }

    Ptr & operator=( Ptr other ) noexcept {
        std::swap( object_, other.object_ );
        return *this;
    }

    T * get() const noexcept { return object_; }
    T & operator*() const noexcept { return *object_; }
    T * operator->() const noexcept { return object_; }
    explicit operator bool() const noexcept { return object_ != nullptr; }

  private:
    void retain() const noexcept {
        if ( object_ != nullptr )
            static_cast<const PtrInterface *>( object_ )->retain();
    }

    T * object_ = nullptr;
};

/// Makes an object and its first Ptr.
template <class T, class... Args>
Ptr<T> make( Args &&... args ) {
    return Ptr<T>( new T( std::forward<Args>( args )... ) );
}

} // namespace Nacre
