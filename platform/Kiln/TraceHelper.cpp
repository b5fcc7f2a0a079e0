#include <Kiln/TraceHelper.h>

#include <CairnPlatform/internal/CopyText.h>
#include <CairnPlatform/internal/Write.h>
#include <Kiln/TraceSink.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <mutex>
#include <pthread.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Kiln {

namespace {

using CairnPlatform::TextBuffer;

// Copies the text, and returns whether each byte is one of the printable ASCII characters.
bool copyIfPrintable( char * to, std::string_view text ) noexcept {
    return !CairnPlatform::copyText( to, text, []<class Word>( Word word ) {
        using CairnPlatform::inEachByte;
        // The highest bit of a byte: it has one, it is below a blank, it is the last of ASCII.
        return ( word | ( word - inEachByte<Word>( ' ' ) ) | ( word + inEachByte<Word>( 1 ) ) ) &
               inEachByte<Word>( 0x80 );
    } );
}

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

void appendEscaped( TextBuffer & out, std::string_view text ) {
    constexpr char digits[] = "0123456789abcdef";
    if ( out.appendIf( text.size(), [=]( char * to ) { return copyIfPrintable( to, text ); } ) )
        return;
    for ( std::size_t from = 0; from < text.size(); ) {
        const auto [at, length] = findControl( text, from );
        out.append( text.substr( from, at - from ) );
        for ( const char c : text.substr( at, length ) ) {
            const auto byte = static_cast<unsigned char>( c );
            out.append( '\\' );
            if ( c == '\n' ) {
                out.append( 'n' );
            } else if ( c == '\t' ) {
                out.append( 't' );
            } else {
                out.append( 'x' );
                out.append( digits[byte >> 4] );
                out.append( digits[byte & 0xF] );
            }
        }
        from = at + length;
    }
}

} // namespace

TraceStream & TraceStream::operator<<( const char * text ) {
    appendEscaped( text_, text == nullptr ? "(null)" : text );
    return *this;
}

TraceStream & TraceStream::operator<<( const std::string & text ) {
    appendEscaped( text_, text );
    return *this;
}

TraceStream & TraceStream::operator<<( bool value ) {
    return *this << ( value ? "true" : "false" );
}

TraceStream & TraceStream::operator<<( int value ) {
    text_.append( value );
    return *this;
}

TraceStream & TraceStream::operator<<( unsigned int value ) {
    text_.append( value );
    return *this;
}

TraceStream & TraceStream::operator<<( unsigned long value ) {
    text_.append( value );
    return *this;
}

TraceStream & TraceStream::operator<<( unsigned short value ) {
    text_.append( value );
    return *this;
}

namespace {

// Writes times in UTC. Lines come many a second, so each thread keeps the text of the second.
class TimeWriter {
  public:
    void append( TextBuffer & out, std::chrono::system_clock::time_point time ) {
        using namespace std::chrono;
        const sys_seconds second = floor<seconds>( time );
        if ( second != second_ || length_ == 0 ) {
            const std::time_t sinceEpoch = second.time_since_epoch().count();
            std::tm utc{};
            gmtime_r( &sinceEpoch, &utc );
            length_ = std::strftime( text_, sizeof text_, "%Y-%m-%dT%H:%M:%S.", &utc );
            second_ = second;
        }
        out.append( std::string_view( text_, length_ ) );
        char fraction[] = "000000Z";
        auto microseconds_ = duration_cast<microseconds>( time - second ).count();
        for ( int digit = 5; digit >= 0; --digit, microseconds_ /= 10 )
            fraction[digit] = static_cast<char>( '0' + microseconds_ % 10 );
        out.append( std::string_view( fraction ) );
    }

  private:
    std::chrono::sys_seconds second_;
    std::size_t length_ = 0;
    char text_[32] = {};
};

// What a thread keeps of its lines.
struct ThreadState {
    int number = 0;          // asked of the kernel once, and anew in a child of the process
    bool isEmitting = false; // a line is being handed to the sink
    TimeWriter times;
};
[[gnu::tls_model( "initial-exec" )]] constinit thread_local ThreadState thisThread;

void appendLine( TextBuffer & out, const TraceLine & line ) {
    thisThread.times.append( out, line.time );
    out.append( ' ' );
    out.append( line.thread );
    out.append( ' ' );
    out.append( line.facility );
    out.append( '/' );
    out.append( static_cast<std::uint32_t>( line.level ) );
    out.append( ' ' );
    out.append( line.file );
    out.append( ':' );
    out.append( line.line );
    out.append( ' ' );
    out.append( line.function );
    out.append( std::string_view( ": " ) );
    out.append( line.text );
}

int currentThread() noexcept {
    if ( thisThread.number == 0 ) [[unlikely]]
        thisThread.number = ::gettid();
    return thisThread.number;
}

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
        thisThread.isEmitting = true;
        if ( lost_ != 0 ) {
            const std::string text = std::to_string( lost_ ) + " trace lines could not be written";
            if ( put( { line.time, line.thread, "Kiln", TraceFacility::level0, "Kiln/TraceHelper",
                        __LINE__, __func__, text } ) )
                lost_ = 0;
        }
        if ( lost_ != 0 || !put( line ) )
            ++lost_;
        thisThread.isEmitting = false;
    }

  private:
    // A child begins between two lines, and with a lock that it can take. A callback that forks has
    // the lock, and the child's thread gives it up as the parent's does.
    Sink() {
        ::pthread_atfork(
            [] {
                if ( !thisThread.isEmitting )
                    instance().mutex_.lock();
            },
            [] { instance().afterFork(); },
            [] {
                thisThread.number = 0;
                instance().afterFork();
            } );
    }

    void afterFork() noexcept {
        if ( !thisThread.isEmitting )
            mutex_.unlock();
    }

    bool put( const TraceLine & line ) noexcept {
        if ( callback_ ) {
            callback_( line );
            return true;
        }
        // Of the line before, a part may have been taken.
        TextBuffer buffer;
        if ( isInLine_ )
            buffer.append( '\n' );
        appendLine( buffer, line );
        buffer.append( '\n' );
        const std::string_view text = buffer.text();
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
    TextBuffer text;
    appendLine( text, line );
    return std::string( text.text() );
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
                          currentThread(),
                          handle_.facility().name(),
                          level_,
                          file_,
                          line_,
                          function_,
                          stream_.text() };
    Sink::instance().emit( line );
}

} // namespace Kiln
