#include "tracereader/TraceReader.h"

#include "text/Escape.h"
#include "tracereader/Clock.h"
#include "tracereader/Header.h"
#include "tracereader/Ring.h"
#include "tracereader/Sites.h"
#include "tracereader/Source.h"

#include <fmt/format.h>

#include <string>
#include <utility>

namespace TraceReader {

Error::Error( const std::string & path, const std::string & cause, bool isMissing )
    : std::runtime_error( Text::printable( path + ": " + cause ) ), cause_( cause ),
      isMissing_( isMissing ) {}

std::string Finding::text() const {
    return Text::printable( fmt::format(
        "{}: {}{}", file, offset ? fmt::format( "at byte {}: ", *offset ) : "", what ) );
}

class File::Impl {
  public:
    Impl( const File & self, std::unique_ptr<Bytes> bytes, std::string path );

    bool next( Record & record );
    bool poll();

    Source source;
    Header header;
    Sites sites;
    Ring ring;
    Clock clock;
    std::int64_t clockSpan = 0;

  private:
    const File & self_;
};

File::Impl::Impl( const File & self, std::unique_ptr<Bytes> bytes, std::string path )
    : source( std::move( bytes ), std::move( path ) ), header( source ), sites( source, header ),
      ring( source, header ), clock( header.clock() ), self_( self ) {
    if ( header.timestamps() == Fleetlog::Timestamps::counter && ring.newest().sequence != 0 )
        clockSpan = measure( clock, ring.newest() );
}

bool File::Impl::next( Record & record ) {
    Ring::Entry entry;
    if ( !ring.next( entry ) )
        return false;
    record.file = &self_;
    record.id = entry.header.id;
    record.thread = ring.block().thread;
    record.offset = entry.offset;
    record.counter = 0;
    record.payload = entry.payload;
    switch ( header.timestamps() ) {
    case Fleetlog::Timestamps::counter:
        record.time = clock.time( entry.header.time );
        record.counter = static_cast<std::int64_t>( entry.header.time - clock.baseCounter );
        break;
    case Fleetlog::Timestamps::tick:
        record.time = static_cast<std::int64_t>( entry.header.time );
        break;
    case Fleetlog::Timestamps::none:
        record.time = ring.block().time;
        break;
    }
    record.site = sites.match( record.id, record.payload, record.offset );
    return true;
}

bool File::Impl::poll() {
    header.checkNotCut();
    header.readAgain();
    sites.read();
    return ring.poll();
}

File::File( const std::string & path )
    : impl_( std::make_unique<Impl>( *this, openBytes( path ), path ) ) {}

File::File( std::string path, std::vector<std::byte> content )
    : impl_(
          std::make_unique<Impl>( *this, holdBytes( std::move( content ) ), std::move( path ) ) ) {}

File::File( std::string path, std::unique_ptr<Bytes> bytes )
    : impl_( std::make_unique<Impl>( *this, std::move( bytes ), std::move( path ) ) ) {}

File::~File() = default;

const Info & File::info() const noexcept { return impl_->source.info; }
const std::deque<Site> & File::sites() const noexcept { return impl_->sites.all(); }
bool File::next( Record & record ) { return impl_->next( record ); }
bool File::poll() { return impl_->poll(); }
const std::vector<Finding> & File::findings() const noexcept { return impl_->source.findings; }
const Counts & File::counts() const noexcept { return impl_->ring.counts(); }
const Clock & File::clock() const noexcept { return impl_->clock; }
std::int64_t File::clockSpan() const noexcept { return impl_->clockSpan; }
void File::setClock( const Clock & clock ) noexcept { impl_->clock = clock; }
void File::setReadAhead( std::size_t blocks ) noexcept { impl_->ring.setReadAhead( blocks ); }
void File::narrow( std::optional<std::int64_t> from, std::optional<std::int64_t> to ) {
    if ( impl_->header.timestamps() != Fleetlog::Timestamps::counter )
        return;
    const auto time = [this]( const Ring::Block & block ) {
        return impl_->clock.time( block.counter );
    };
    // A block's counter is not later than its records.
    impl_->ring.narrow( [&]( const Ring::Block & block ) { return from && time( block ) < *from; },
                        [&]( const Ring::Block & block ) { return to && time( block ) >= *to; } );
}
Writer File::writer() const { return impl_->header.writer(); }

} // namespace TraceReader
