#include "Cairn/internal/TraceMessage.h"

#include <Fleetlog/MsgDesc.h>

#include <string>

namespace Cairn {

namespace {

/// By itself, so that the way to a file is the shorter one.
[[gnu::noinline]] Fleetlog::TraceFile * withoutHandle() noexcept {
    return messagesMayBeEnabled( Kiln::TraceFacility::level2 ) ? nullptr : nowhere();
}

} // namespace

Fleetlog::TraceFile * messageFile() noexcept {
    Fleetlog::TraceHandle * const handle =
        std::atomic_ref( Fleetlog::defaultFleetlogHandle ).load( std::memory_order_acquire );
    if ( handle == nullptr ) [[unlikely]]
        return withoutHandle();
    return handle->multiThread() != 0 ? handle->mtTraceFile() : handle->traceFile();
}

unsigned registerMessage( Fleetlog::TraceFile & file, const MessageSite & site,
                          int & msgId ) noexcept {
    Fleetlog::MsgDesc descriptor( &file, &msgId, sourceFile, site.line );
    for ( const char letter : site.letters ) {
        const char text[] = { letter, '\0' };
        descriptor.formatString().put( text );
    }
    descriptor << site.recipe->function;
    for ( const char * const piece : site.pieces )
        descriptor << piece;
    descriptor.finish();
    return identifierOf( msgId );
}

void writePieces( const MessageSite & site ) noexcept {
    Twinlog::twinlogFixed_ << site.recipe->function;
    for ( const char * const piece : site.pieces )
        Twinlog::twinlogFixed_ << piece;
}

void writeMessageLine( const MessageSite & site,
                       const Twinlog::FleetlogConverter & text ) noexcept {
    // Asked anew: building the text took a while.
    if ( !_defaultTraceHandle().enabled( Kiln::TraceFacility::level2 ) )
        return;
    Kiln::TraceHelper line( _defaultTraceHandle(), Kiln::TraceFacility::level2, sourceFile,
                            site.line, site.recipe->function );
    const std::string copy = text.text();
    line.stream() << copy;
}

TraceLine::TraceLine( Kiln::TraceFacility::FacilityLevel level, int line,
                      const Recipe & recipe ) noexcept
    : line_( _defaultTraceHandle(), level, sourceFile, line, recipe.function ) {}

TraceLine::~TraceLine() = default;

} // namespace Cairn
