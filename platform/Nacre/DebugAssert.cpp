#include <Nacre/DebugAssert.h>

#include <CairnPlatform/internal/Write.h>

#include <atomic>
#include <cstdlib>
#include <unistd.h>

namespace Nacre {

namespace {

std::atomic<bool> stopsProcess{ false };

} // namespace

namespace Platform {

DebugStream & DebugStream::operator<<( const char * text ) {
    text_ += text;
    return *this;
}

DebugStream & DebugStream::operator<<( unsigned int value ) {
    text_ += std::to_string( value );
    return *this;
}

} // namespace Platform

void debugAndAssert( const Platform::DebugStream & message, const char * file,
                     const char * function, int line ) {
    const std::string report = std::string( file ) + ":" + std::to_string( line ) + " " + function +
                               ": " + message.text() + "\n";
    CairnPlatform::writeWhole( STDERR_FILENO, report );
    if ( debugAssertStops() )
        std::abort();
}

bool debugAssertStops() noexcept { return stopsProcess.load( std::memory_order_relaxed ); }

void setDebugAssertStops( bool stops ) noexcept {
    stopsProcess.store( stops, std::memory_order_relaxed );
}

} // namespace Nacre
