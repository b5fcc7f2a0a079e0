#include "Cairn/internal/TraceMessage.h"

namespace Cairn {

Fleetlog::TraceFile * messageFile( Fleetlog::TraceHandle & handle ) noexcept {
    Fleetlog::TraceFile * const file = CairnPlatform::isMultiThread( handle )
                                           ? handle.mtTraceFile()
                                           : CairnPlatform::traceFile( handle );
    if ( file != nullptr )
        CairnPlatform::rememberFile( handle, *file );
    return file;
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
