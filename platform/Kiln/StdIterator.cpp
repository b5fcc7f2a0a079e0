#include <Kiln/StdIterator.h>

#undef NDEBUG
#include <cassert>

namespace Kiln {

void stopForEmptyIterator( int line, const char * function ) noexcept {
    __assert_fail( "iter_", "Kiln/StdIterator", static_cast<unsigned>( line ), function );
}

} // namespace Kiln
