#include <Kiln/TraceHelper.h>

#include <CairnPlatform/internal/Write.h>
#include <Kiln/TraceSink.h>

#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Kiln {

namespace {

// Where in the text the next control character is, and how many bytes it has: one, or the two that
// UTF-8 has for those above the ASCII ones. No byte: there is none.
std::pair<std::size_t, std::size_t> findControl( std::string_view text, std::size_t from ) {
    for ( std::size_t at = from; at < text.size(); ++at ) {
        const auto byte = static_cast<unsigned char>( text[at] );
        if ( byte < 0x20 || byte == 0x7F )
            return { at, 1 };
        if ( byte == 0xC2 && at + 1 < text.size() &&
             ( static_cast<unsigned char>( text[at + 1] ) & 0xE0 ) == 0x80 )
            return { at, 2 };
    }
    return { text.size(), 0 };
}

} // namespace

void TraceStream::append( std::string_view text ) {
    constexpr char digits[] = "0123456789abcdef";
    for ( std::size_t from = 0; from < text.size(); ) {
        const auto [at, length] = findControl( text, from );
        text_ += text.substr( from, at - from );
        for ( const char c : text.substr( at, length ) ) {
            const auto byte = static_cast<unsigned char>( c );
            text_ += '\\';
            if ( c == '\n' )
                text_ += 'n';
            else if ( c == '\t' )
                text_ += 't';
            else
                text_ += { 'x', digits[byte >> 4], digits[byte & 0xF] };
        }
        from = at + length;
    }
}

TraceStream & TraceStream::operator<<( const char * text ) {
    append( text == nullptr ? "(null)" : text );
    return *this;
}

TraceStream & TraceStream::operator<<( const std::string & text ) {
    append( text );
    return *this;
}

TraceStream & TraceStream::operator<<( bool value ) {
    return *this << ( value ? "true" : "false" );
}

TraceStream & TraceStream::operator<<( int value ) { return *this << std::to_string( value ); }

TraceStream & TraceStream::operator<<( unsigned int value ) {
    return *this << std::to_string( value );
}

TraceStream & TraceStream::operator<<( unsigned long value ) {
    return *this << std::to_string( value );
}

TraceStream & TraceStream::operator<<( unsigned short value ) {
    return *this << std::to_string( value );
}

namespace {

// The sink in force. Never destroyed: static objects of the host trace while the process ends.
class Sink {
  public:
    static Sink & instance() {
        static auto & sink = *new Sink;
        return sink;
    }

    void redirect( int descriptor, std::function<void( const TraceLine & )> callback ) {
        const std::lock_guard lock( mutex_ );
        if ( descriptor_ != STDERR_FILENO )
            ::close( descriptor_ );
        descriptor_ = descriptor;
        callback_ = std::move( callback );
        isInLine_ = false;
    }

    // A sink that cannot take the line (a closed pipe, a full disk) does not stop the agent. The next
    // line that is taken comes after one that says how many were not.
    void emit( const TraceLine & line ) noexcept {
        const std::lock_guard lock( mutex_ );
        if ( lost_ != 0 ) {
            const std::string text = std::to_string( lost_ ) + " trace lines could not be written";
            if ( put( { line.time, line.thread, "Kiln", TraceFacility::level0, "Kiln/TraceHelper",
                        __LINE__, __func__, text } ) )
                lost_ = 0;
        }
        if ( lost_ != 0 || !put( line ) )
            ++lost_;
    }

  private:
    bool put( const TraceLine & line ) noexcept {
        if ( callback_ ) {
            callback_( line );
            return true;
        }
        // Of the line before, a part may have been taken.
        const std::string text = ( isInLine_ ? "\n" : "" ) + formatTraceLine( line ) + '\n';
        const std::size_t taken = CairnPlatform::writeWhole( descriptor_, text );
        if ( taken != 0 )
            isInLine_ = text[taken - 1] != '\n';
        return taken == text.size();
    }

    std::mutex mutex_;
    int descriptor_ = STDERR_FILENO;
    std::function<void( const TraceLine & )> callback_;
    std::uint64_t lost_ = 0; // lines since the last that was taken
    bool isInLine_ = false;
};

} // namespace

std::string formatTraceLine( const TraceLine & line ) {
    using namespace std::chrono;
    const auto sinceEpoch = line.time.time_since_epoch();
    const std::time_t wholeSeconds = duration_cast<seconds>( sinceEpoch ).count();
    const long microseconds_ =
        static_cast<long>( ( duration_cast<microseconds>( sinceEpoch ) % seconds( 1 ) ).count() );
    std::tm utc{};
    gmtime_r( &wholeSeconds, &utc );
    char time[32];
    const size_t length = std::strftime( time, sizeof time, "%Y-%m-%dT%H:%M:%S", &utc );
    std::snprintf( time + length, sizeof time - length, ".%06ldZ", microseconds_ );

    std::string out;
    out.reserve( 96 + line.text.size() );
    out += time;
    out += ' ';
    out += std::to_string( line.thread );
    out += ' ';
    out += line.facility;
    out += '/';
    out += std::to_string( static_cast<std::uint32_t>( line.level ) );
    out += ' ';
    out += line.file;
    out += ':';
    out += std::to_string( line.line );
    out += ' ';
    out += line.function;
    out += ": ";
    out += line.text;
    return out;
}

void traceToStandardError() { Sink::instance().redirect( STDERR_FILENO, nullptr ); }

void traceToFile( const std::string & path ) {
    const int descriptor = ::open( path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644 );
    if ( descriptor < 0 )
        throw std::system_error( errno, std::generic_category(), "trace file " + path );
    Sink::instance().redirect( descriptor, nullptr );
}

void traceToCallback( std::function<void( const TraceLine & )> callback ) {
    Sink::instance().redirect( STDERR_FILENO, std::move( callback ) );
}

TraceHelper::TraceHelper( TraceHandle & handle, TraceFacility::FacilityLevel level,
                          const char * file, int line, const char * function )
    : handle_( handle ), level_( level ), file_( file ), line_( line ), function_( function ) {}

TraceHelper::~TraceHelper() {
    const TraceLine line{ std::chrono::system_clock::now(),
                          ::gettid(),
                          handle_.facility().name(),
                          level_,
                          file_,
                          line_,
                          function_,
                          stream_.text() };
    Sink::instance().emit( line );
}

} // namespace Kiln
