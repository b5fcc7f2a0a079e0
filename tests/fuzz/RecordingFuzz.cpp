#include "tests/fuzz/TraceInput.h"
#include "tracereader/Recording.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

// Any bytes as a recording: read to the end, whatever is in it, with each call in one line, and with a
// finding for what is not understood. It is read twice over, as two files of one process, so that
// calls lie within each other and results come without their calls.

namespace {

using namespace FuzzTrace;
using TraceReader::Event;
using TraceReader::RecordedCall;
using TraceReader::Recording;

void requireSound( const RecordedCall & call ) {
    require( call.hasInputs() || call.hasReturned() );
    require( call.values.size() <= call.count || call.values.size() == 1 );
    require( !call.table.empty() || !call.unit || call.hasInputs() );
    std::string line;
    appendText( line, call );
    line += '\n';
    requireOneLine( line );
    std::string json = "{";
    appendJson( json, call );
    json += '}';
    require( nlohmann::json::accept( json ) );
}

void readAll( const Content & content ) {
    TraceReader::Merge merge;
    try {
        merge.add( std::make_unique<TraceReader::File>( "x.fleetlog", content ) );
        merge.add( std::make_unique<TraceReader::File>( "y.fleetlog", content ) );
    } catch ( const TraceReader::Error & ) {
        return;
    }
    Recording recording( std::move( merge ), { .wantsMessages = true } );
    Event event;
    std::uint64_t records = 0;
    std::uint64_t before = 0;
    std::uint64_t unreturned = 0;
    std::uint64_t last = 0;
    while ( recording.next( event ) ) {
        if ( event.moment == Event::Moment::neverReturned ) {
            require( event.call->number > last );
            last = event.call->number;
            ++unreturned;
        } else {
            ++records;
        }
        before += event.moment == Event::Moment::before ? 1 : 0;
        if ( event.moment != Event::Moment::message )
            requireSound( *event.call );
    }
    require( unreturned <= before );
    std::uint64_t read = 0;
    for ( const auto & file : recording.merge().files() )
        read += file->counts().records;
    require( records <= read );
    recording.hasLostBeginning();
    for ( const auto & finding : recording.findings() )
        require( finding.text().find( '\n' ) == std::string::npos );
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput( const std::uint8_t * data, std::size_t size ) {
    const auto * bytes = reinterpret_cast<const std::byte *>( data );
    const Content content( bytes, bytes + size );
    readAll( repaired( laidOut( content ) ) );
    readAll( laidOut( content ) );
    return 0;
}
