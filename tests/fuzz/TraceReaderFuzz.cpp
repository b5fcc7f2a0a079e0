#include "tracereader/TraceReader.h"

#include <Fleetlog/Format.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

// Any bytes as a trace file: refused with a message that names it, or read to the end, with each
// record rendered as one line, and with a finding for whatever could not be read.

namespace {

namespace Layout = Fleetlog::Format;
using Content = std::vector<std::byte>;

// Writes the checksum of the bytes from `begin` to `end`, if they are there.
void repair( Content & content, std::size_t checksumAt, std::size_t begin, std::size_t end ) {
    if ( begin > end || end > content.size() ||
         checksumAt > content.size() - sizeof( std::uint32_t ) )
        return;
    const std::uint32_t sum = Layout::checksum( content.data() + begin, end - begin );
    std::memcpy( content.data() + checksumAt, &sum, sizeof sum );
}

// Writes all checksums anew: otherwise hardly anything that is tried would get beyond them.
Content repaired( Content content ) {
    Layout::FileHeader header;
    if ( content.size() < sizeof header )
        return content;
    repair( content, offsetof( Layout::FileHeader, checksum ), 0,
            offsetof( Layout::FileHeader, checksum ) );
    std::memcpy( &header, content.data(), sizeof header );

    std::size_t at = header.headerBytes;
    Layout::DescriptorHeader descriptor;
    while ( at < content.size() && content.size() - at >= sizeof descriptor ) {
        std::memcpy( &descriptor, content.data() + at, sizeof descriptor );
        if ( descriptor.size < sizeof descriptor || descriptor.size > content.size() - at )
            break;
        repair( content, at + offsetof( Layout::DescriptorHeader, checksum ),
                at + offsetof( Layout::DescriptorHeader, id ), at + descriptor.size );
        at += descriptor.size;
    }

    constexpr std::size_t summed = offsetof( Layout::BlockHeader, checksum );
    const std::uint64_t blocks = header.headerBytes + header.descriptorBytes;
    for ( std::uint64_t block = blocks; header.blockBytes > 0 && block < content.size() &&
                                        content.size() - block >= sizeof( Layout::BlockHeader );
          block += header.blockBytes )
        repair( content, block + summed, block, block + summed );
    return content;
}

void require( bool holds ) {
    if ( !holds )
        std::abort();
}

void requireOneLine( const std::string & line ) {
    require( !line.empty() && line.find( '\n' ) == line.size() - 1 );
}

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
    readAll( repaired( content ) );
    readAll( std::move( content ) );
    return 0;
}
