#include "tests/support/Allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::uint64_t> count{ 0 };
thread_local bool outOfMemory = false;

} // namespace

std::uint64_t Support::allocations() noexcept { return count.load( std::memory_order_relaxed ); }

Support::NoMemory::NoMemory() noexcept { outOfMemory = true; }
Support::NoMemory::~NoMemory() { outOfMemory = false; }

// Not inlined: the compiler would take malloc() and delete for a mismatch.
[[gnu::noinline]] void * operator new( std::size_t size ) {
    count.fetch_add( 1, std::memory_order_relaxed );
    if ( !outOfMemory )
        if ( void * const memory = std::malloc( size != 0 ? size : 1 ) )
            return memory;
    throw std::bad_alloc();
}

// By themselves, these call the one above; not so where a sanitizer brings its own.
void * operator new[]( std::size_t size ) { return ::operator new( size ); }
[[gnu::noinline]] void * operator new( std::size_t size, const std::nothrow_t & ) noexcept {
    count.fetch_add( 1, std::memory_order_relaxed );
    return outOfMemory ? nullptr : std::malloc( size != 0 ? size : 1 );
}
void * operator new[]( std::size_t size, const std::nothrow_t & nothrow ) noexcept {
    return ::operator new( size, nothrow );
}

[[gnu::noinline]] void operator delete( void * memory ) noexcept { std::free( memory ); }
void operator delete( void * memory, const std::nothrow_t & ) noexcept {
    ::operator delete( memory );
}
void operator delete[]( void * memory, const std::nothrow_t & ) noexcept {
    ::operator delete( memory );
}
void operator delete[]( void * memory ) noexcept { ::operator delete( memory ); }
void operator delete[]( void * memory, std::size_t ) noexcept { ::operator delete( memory ); }
[[gnu::noinline]] void operator delete( void * memory, std::size_t ) noexcept {
    std::free( memory );
}
