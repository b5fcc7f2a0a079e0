#include "tools/cli/TraceLines.h"

#include "text/Time.h"
#include "tools/cli/Output.h"

#include <fmt/format.h>

#include <cstddef>
#include <span>
#include <utility>

namespace Tool {

namespace {

// So many records are worth threads.
constexpr std::size_t fewRecords = 16384;

// A batch is work for some tenths of a millisecond, and bounded memory whatever the records are.
constexpr std::size_t recordsOfBatch = 4096;
constexpr std::size_t bytesOfBatch = 1 << 20;

TraceReader::Format readerFormat( TraceFormat format ) {
    switch ( format ) {
    case TraceFormat::json:
        return TraceReader::Format::json;
    case TraceFormat::brief:
        return TraceReader::Format::brief;
    default:
        return TraceReader::Format::text;
    }
}

void appendLine( std::string & out, TraceFormat format, const TraceReader::RecordedCall & call ) {
    const std::int64_t time = ( call.hasReturned() ? call.after : call.before ).time;
    if ( format == TraceFormat::json ) {
        out += "{\"time\":\"";
        Text::appendUtc( out, time );
        out += fmt::format( "\",\"process\":{},\"thread\":{},", call.process, call.thread );
        appendJson( out, call );
        out += call.hasReturned() ? "}\n" : ",\"returned\":false}\n";
        return;
    }
    Text::appendUtc( out, time );
    if ( format == TraceFormat::text )
        out += fmt::format( " {}/{}", call.process, call.thread );
    out += " ";
    appendText( out, call );
    out += call.hasReturned() ? "\n" : " (never returned)\n";
}

} // namespace

bool hasText( const TraceReader::RecordedCall & call, const std::string & text ) {
    if ( text.empty() )
        return true;
    std::string all;
    appendText( all, call );
    return all.find( text ) != std::string::npos;
}

// Makes lines, on one thread at a time.
class TraceLines::Maker {
  public:
    Maker( TraceFormat format, const std::string & match )
        : format_( format ), renderer_( readerFormat( format ) ) {
        match_.text = match;
    }

    void append( std::string & lines, const TraceReader::Record & record ) {
        if ( match_.text.empty() || match_.accepts( record ) )
            renderer_.append( lines, record );
    }

    void append( std::string & lines, const TraceReader::RecordedCall & call ) const {
        if ( hasText( call, match_.text ) )
            appendLine( lines, format_, call );
    }

  private:
    TraceFormat format_;
    TraceReader::Filter match_;
    TraceReader::Renderer renderer_;
};

// Records and calls one after the other, as copies that nobody else has, and their lines.
class TraceLines::Batch : public Workers::Task {
  public:
    Batch( TraceFormat format, const std::string & match ) : maker_( format, match ) {}

    void add( const TraceReader::Record & record ) {
        items_.push_back( record );
        payloads_.insert( payloads_.end(), record.payload.begin(), record.payload.end() );
    }

    void add( const TraceReader::RecordedCall & call ) {
        items_.emplace_back(); // without a file
        if ( callCount_ == calls_.size() )
            calls_.emplace_back();
        calls_[callCount_++] = call;
        callBytes_ += call.field.size() + call.symbol.size() +
                      call.values.size() * sizeof call.values.front();
    }

    bool isFull() const noexcept { return items_.size() >= recordsOfBatch || isLarge(); }

    /// Whether it takes more memory than most.
    bool isLarge() const noexcept { return payloads_.size() + callBytes_ >= bytesOfBatch; }

    /// When it is done.
    const std::string & lines() const noexcept { return lines_; }

    /// Makes it as if it were new, but for its memory.
    void clear() {
        items_.clear();
        payloads_.clear();
        callCount_ = 0;
        callBytes_ = 0;
        lines_.clear();
    }

  private:
    void run() override {
        std::size_t payload = 0;
        std::size_t call = 0;
        for ( TraceReader::Record & item : items_ )
            if ( item.file == nullptr )
                maker_.append( lines_, calls_[call++] );
            else {
                item.payload = std::span( payloads_ ).subspan( payload, item.payload.size() );
                payload += item.payload.size();
                maker_.append( lines_, item );
            }
    }

    Maker maker_;
    std::vector<TraceReader::Record> items_; ///< one without a file: the next of the calls
    std::vector<std::byte> payloads_;        ///< of the records, one behind the other
    std::vector<TraceReader::RecordedCall> calls_;
    std::size_t callCount_ = 0; ///< that are in use
    std::size_t callBytes_ = 0; ///< of their longer members
    std::string lines_;
};

TraceLines::TraceLines( TraceFormat format, const std::string & match, unsigned jobs )
    : format_( format ), match_( match ), jobs_( jobs ),
      alone_( std::make_unique<Maker>( format, match ) ) {}

TraceLines::~TraceLines() = default;

void TraceLines::add( const TraceReader::Record & record ) { addOne( record ); }
void TraceLines::add( const TraceReader::RecordedCall & call ) { addOne( call ); }

template <class One>
void TraceLines::addOne( const One & one ) {
    if ( workers_ ) {
        next_->add( one );
        if ( next_->isFull() )
            beginNext();
        return;
    }
    alone_->append( lines_, one );
    if ( lines_.size() >= outputChunk )
        printLines();
    if ( jobs_ > 1 && ++addedAlone_ == fewRecords ) {
        printLines();
        workers_.emplace( jobs_ - 1 );
        next_ = newBatch();
    }
}

void TraceLines::flush() {
    printLines();
    if ( next_ )
        beginNext();
    while ( !begun_.empty() )
        printOldest();
}

void TraceLines::printLines() {
    print( lines_ );
    lines_.clear();
}

std::unique_ptr<TraceLines::Batch> TraceLines::newBatch() const {
    return std::make_unique<Batch>( format_, match_ );
}

// Two batches for each thread: the next one is there when it has made one.
void TraceLines::beginNext() {
    workers_->begin( *next_ );
    begun_.push_back( std::move( next_ ) );
    next_ = begun_.size() < 2 * std::size_t( jobs_ ) ? newBatch() : printOldest();
}

// Returns it, to be filled again.
std::unique_ptr<TraceLines::Batch> TraceLines::printOldest() {
    workers_->finish( *begun_.front() );
    std::unique_ptr<Batch> oldest = std::move( begun_.front() );
    begun_.pop_front();
    print( oldest->lines() );
    if ( oldest->isLarge() )
        return newBatch();
    oldest->clear();
    return oldest;
}

} // namespace Tool
