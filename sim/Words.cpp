#include "sim/Words.h"

#include <new>
#include <sys/mman.h>

namespace Sim {

namespace {

std::size_t roundedUp( std::size_t bytes, std::size_t unit ) {
    return ( bytes + unit - 1 ) / unit * unit;
}

// A large page begins at a multiple of its size. So more is mapped than is needed, and both ends
// are given back.
std::uint64_t * mapInLargePages( std::size_t bytes ) {
    const std::size_t room = bytes + Words::largePage;
    void * const mapping =
        ::mmap( nullptr, room, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0 );
    if ( mapping == MAP_FAILED )
        throw std::bad_alloc();
    auto * const begin = static_cast<std::byte *>( mapping );
    const auto address = reinterpret_cast<std::uintptr_t>( mapping );
    const std::size_t before = roundedUp( address, Words::largePage ) - address;
    if ( before != 0 )
        ::munmap( begin, before );
    ::munmap( begin + before + bytes, room - before - bytes );
    ::madvise( begin + before, bytes, MADV_HUGEPAGE ); // refused: it stays in small pages
    return reinterpret_cast<std::uint64_t *>( begin + before );
}

} // namespace

Words::Words( std::size_t count ) {
    const std::size_t bytes = count * sizeof( std::uint64_t );
    if ( bytes < largePage ) {
        words_ = { new std::uint64_t[count](), Free{ 0 } };
        return;
    }
    constexpr std::size_t anySmallPage = std::size_t( 64 ) << 10; // a multiple of each system's
    const std::size_t mapped = roundedUp( bytes, anySmallPage );
    words_ = { mapInLargePages( mapped ), Free{ mapped } };
}

void Words::Free::operator()( std::uint64_t * words ) const {
    if ( mapped == 0 )
        delete[] words;
    else
        ::munmap( words, mapped );
}

} // namespace Sim
