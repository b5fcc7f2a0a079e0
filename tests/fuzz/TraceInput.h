#pragma once

#include <Fleetlog/Format.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

// Any bytes as a trace file.
//
// A writer's files consist of pages, most of them empty. The inputs are files with short regions,
// which are laid out in pages before they are read, so that what is tried lies close together.

namespace FuzzTrace {

namespace Layout = Fleetlog::Format;
using Content = std::vector<std::byte>;

// Writes the checksum of the bytes from `begin` to `end`, if they are there.
inline void repair( Content & content, std::size_t checksumAt, std::size_t begin,
                    std::size_t end ) {
    if ( begin > end || end > content.size() ||
         checksumAt > content.size() - sizeof( std::uint32_t ) )
        return;
    const std::uint32_t sum = Layout::checksum( content.data() + begin, end - begin );
    std::memcpy( content.data() + checksumAt, &sum, sizeof sum );
}

// Writes all checksums anew: otherwise hardly anything that is tried would get beyond them.
inline Content repaired( Content content ) {
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

    const std::uint64_t blocks = header.headerBytes + header.descriptorBytes;
    for ( std::uint64_t block = blocks; header.blockBytes > 0 && block < content.size() &&
                                        content.size() - block >= sizeof( Layout::BlockHeader );
          block += header.blockBytes ) {
        if ( header.version == 1 ) {
            repair( content, block + offsetof( Layout::BlockHeader, checksum ), block,
                    block + offsetof( Layout::BlockHeader, checksum ) );
            continue;
        }
        Layout::BlockHeader made;
        std::memcpy( &made, content.data() + block, sizeof made );
        made.checksum = 0;
        made.checksum = Layout::checksum( &made, sizeof made );
        std::memcpy( content.data() + block, &made, sizeof made );
    }
    return content;
}

// The file that an input stands for: its header, descriptors and blocks each on pages of their own.
inline Content laidOut( const Content & input ) {
    Layout::FileHeader header{};
    if ( input.size() < sizeof header )
        return input;
    std::memcpy( &header, input.data(), sizeof header );
    const std::uint64_t most = 16 * Layout::pageBytes;
    if ( header.headerBytes > input.size() || header.descriptorBytes > most ||
         header.blockBytes < 8 || header.blockBytes > Layout::pageBytes || header.blockCount < 1 ||
         header.blockCount > 16 )
        return input;
    const std::uint64_t descriptorPages = std::max<std::uint64_t>(
        ( header.descriptorBytes + Layout::pageBytes - 1 ) / Layout::pageBytes, 1 );
    const std::uint64_t blocks = std::max<std::uint64_t>( header.blockCount, 2 );
    Content content( ( 1 + descriptorPages + blocks ) * Layout::pageBytes );
    const auto copy = [&]( std::uint64_t from, std::uint64_t size, std::uint64_t to ) {
        if ( from < input.size() )
            std::copy_n( input.data() + from, std::min( size, input.size() - from ),
                         content.data() + to );
    };
    const std::uint64_t descriptorsAt = header.headerBytes;
    const std::uint64_t blocksAt = descriptorsAt + header.descriptorBytes;
    copy( 0, sizeof header, 0 );
    copy( descriptorsAt, header.descriptorBytes, Layout::pageBytes );
    for ( std::uint64_t block = 0; block < header.blockCount; ++block )
        copy( blocksAt + block * header.blockBytes, header.blockBytes,
              ( 1 + descriptorPages + block ) * Layout::pageBytes );
    header.headerBytes = Layout::pageBytes;
    header.descriptorBytes = descriptorPages * Layout::pageBytes;
    header.blockBytes = Layout::pageBytes;
    header.blockCount = blocks;
    std::memcpy( content.data(), &header, sizeof header );
    return content;
}

inline void require( bool holds ) {
    if ( !holds )
        std::abort();
}

inline void requireOneLine( const std::string & line ) {
    require( !line.empty() && line.find( '\n' ) == line.size() - 1 );
}

} // namespace FuzzTrace
