#include "tests/fuzz/TraceInput.h"
#include "tracereader/TraceReader.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

// Any bytes as a trace file: refused with a message that names it, or read to the end, with each
// record rendered as one line, and with a finding for whatever could not be read.

namespace {

using namespace FuzzTrace;

void readAll( Content content ) {
    const std::size_t size = content.size();
    std::unique_ptr<TraceReader::File> file;
    try {
        file = std::make_unique<TraceReader::File>( "x.fleetlog", std::move( content ) );
    } catch ( const TraceReader::Error & error ) {
        require( std::string_view( error.what() ).starts_with( "x.fleetlog: " ) );
        return;
    }
    TraceReader::Renderer text( TraceReader::Format::text );
    TraceReader::Renderer json( TraceReader::Format::json );
    const TraceReader::Filter filter{ .text = "seed" };
    TraceReader::Record record;
    std::string line;
    std::uint64_t records = 0;
    for ( int pass = 0; pass < 2; ++pass ) { // once as a whole, once as if it were being written
        while ( file->next( record ) ) {
            ++records;
            require( record.offset + record.payload.size() <= size );
            filter.accepts( record );
            line.clear();
            text.append( line, record );
            requireOneLine( line );
            line.clear();
            json.append( line, record );
            requireOneLine( line );
            require( nlohmann::json::accept( line ) );
        }
        file->poll();
    }
    require( records == file->counts().records );
    require( records <= size / sizeof( Layout::RecordHeader ) );
    require( file->findings().size() <= TraceReader::File::maxFindings );
    for ( const auto & finding : file->findings() )
        require( finding.text().starts_with( "x.fleetlog: at byte " ) );
    // What is missing is never passed over in silence.
    const auto & counts = file->counts();
    require( counts.missingBlocks == 0 || !file->findings().empty() );
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput( const std::uint8_t * data, std::size_t size ) {
    const auto * bytes = reinterpret_cast<const std::byte *>( data );
    Content content( bytes, bytes + size );
    readAll( repaired( laidOut( content ) ) );
    readAll( laidOut( content ) );
    readAll( std::move( content ) );
    return 0;
}
