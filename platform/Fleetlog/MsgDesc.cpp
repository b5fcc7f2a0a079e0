#include <Fleetlog/MsgDesc.h>

#include <Fleetlog/TraceFile.h>

#include <algorithm>
#include <atomic>
#include <cstring>

namespace Fleetlog {

namespace {

std::atomic<int> lastId{ 0 };

// The identifier of a site: as it is, if it was given here, otherwise a new one. Of two threads
// that meet a new site at once, one gives the identifier and the other takes it; the number that is
// left over stays unused.
int identify( int & msgId ) noexcept {
    const std::atomic_ref id( msgId );
    int seen = id.load( std::memory_order_acquire );
    if ( seen >= 1 && seen <= lastId.load( std::memory_order_relaxed ) )
        return seen;
    const int fresh = lastId.fetch_add( 1, std::memory_order_relaxed ) + 1;
    return id.compare_exchange_strong( seen, fresh, std::memory_order_acq_rel ) ? fresh : seen;
}

} // namespace

void MsgFormatString::put( const char * letter ) noexcept {
    const std::size_t length = std::min( std::strlen( letter ), maxLetters - length_ );
    std::memcpy( letters_ + length_, letter, length );
    length_ += length;
}

MsgDesc::MsgDesc( TraceFile * file, int * msgId, const char * sourceFile, int line ) noexcept
    : file_( file ) {
    header_.id = static_cast<std::uint32_t>( identify( *msgId ) );
    header_.line = static_cast<std::uint32_t>( line );
    append( sourceFile, std::strlen( sourceFile ) );
}

MsgDesc & MsgDesc::operator<<( const char * piece ) noexcept {
    beginPieces();
    append( piece, std::strlen( piece ) );
    ++header_.pieceCount;
    return *this;
}

void MsgDesc::finish() noexcept {
    // A signal handler that interrupted another registration: the site's next message comes again.
    if ( std::atomic_ref( file_->isRegistering_ ).exchange( true, std::memory_order_relaxed ) )
        return;
    // Sites beyond the table come here with each message, and a handler may have been faster.
    if ( !file_->isRegistered( header_.id ) ) {
        beginPieces();
        if ( !write() && file_->memory_ != nullptr )
            ++file_->header().unregistered;
        // Without its descriptor, too: it is counted once.
        file_->setRegistered( header_.id );
    }
    std::atomic_ref( file_->isRegistering_ ).store( false, std::memory_order_release );
}

// The letters are complete when the first piece comes.
void MsgDesc::beginPieces() noexcept {
    if ( !piecesBegun_ )
        append( format_.letters_, format_.length_ );
    piecesBegun_ = true;
}

void MsgDesc::append( const char * text, std::size_t length ) noexcept {
    const auto prefix = static_cast<std::uint16_t>( length );
    if ( length > maxBytes || length_ + sizeof prefix + length > maxBytes ) {
        fits_ = false;
        return;
    }
    std::memcpy( bytes_ + length_, &prefix, sizeof prefix );
    std::memcpy( bytes_ + length_ + sizeof prefix, text, length );
    length_ += sizeof prefix + length;
}

bool MsgDesc::write() noexcept {
    const std::size_t size = ( length_ + 7 ) / 8 * 8; // maxBytes is a multiple of 8, too
    if ( !file_->makeInChild() || !fits_ ||
         size > file_->options_.descriptorBytes - file_->descriptorsUsed_ )
        return false;
    std::memset( bytes_ + length_, 0, size - length_ );
    std::memcpy( bytes_, &header_, sizeof header_ );
    constexpr std::size_t unsummed = offsetof( Format::DescriptorHeader, id );
    header_.checksum = Format::checksum( bytes_ + unsummed, size - unsummed );
    std::memcpy( bytes_, &header_, sizeof header_ );

    std::byte * const place = file_->memory_ + Format::pageBytes + file_->descriptorsUsed_;
    constexpr std::size_t afterSize = offsetof( Format::DescriptorHeader, checksum );
    std::memcpy( place + afterSize, bytes_ + afterSize, size - afterSize );
    std::atomic_ref( reinterpret_cast<Format::DescriptorHeader *>( place )->size )
        .store( static_cast<std::uint32_t>( size ), std::memory_order_release );
    file_->descriptorsUsed_ += size;
    return true;
}

} // namespace Fleetlog
