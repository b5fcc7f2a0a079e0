#include "Cairn/internal/TraceMessage.h"

namespace Cairn {

namespace {

/// A function of its own, which keeps the path to a file short.
[[gnu::noinline]] Fleetlog::TraceFile * withoutHandle() noexcept {
    return messagesMayBeEnabled( messageLevel ) ? nullptr : nowhere();
}

} // namespace

Fleetlog::TraceFile * messageFile() noexcept {
    Fleetlog::TraceHandle * const handle =
        std::atomic_ref( Fleetlog::defaultFleetlogHandle ).load( std::memory_order_acquire );
    if ( handle == nullptr ) [[unlikely]]
        return withoutHandle();
    return CairnPlatform::isMultiThread( *handle ) ? handle->mtTraceFile()
                                                   : CairnPlatform::traceFile( *handle );
}

unsigned registerMessage( Fleetlog::TraceFile & file, const MessageSite & site,
                          int & msgId ) noexcept {
    Fleetlog::MsgDesc descriptor( &file, &msgId, sourceFile, site.line );
    for ( const char letter : site.letters ) {
        const char text[] = { letter, '\0' };
        CairnPlatform::formatString( descriptor ).put( text );
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

void writeMessageLine( const MessageSite & site, Twinlog::FleetlogConverter & text ) noexcept {
    // Asked anew: building the text took a while.
    if ( !messagesEnabled( messageLevel ) )
        return;
    Kiln::TraceHelper line( _defaultTraceHandle(), CairnPlatform::level( messageLevel ), sourceFile,
                            site.line, site.recipe->function );
    const auto & finished = CairnPlatform::text( text );
    CairnPlatform::stream( line ) << finished;
}

TraceLine::TraceLine( int level, int line, const Recipe & recipe ) noexcept
    : line_( _defaultTraceHandle(), CairnPlatform::level( level ), sourceFile, line,
             recipe.function ) {}

TraceLine::~TraceLine() = default;

} // namespace Cairn
