#include <Kiln/TraceHelper.h>

#include <Kiln/TraceSink.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <system_error>
#include <unistd.h>

namespace Kiln {

TraceStream & TraceStream::operator<<( const char * text ) {
    text_ += text == nullptr ? "(null)" : text;
    return *this;
}

TraceStream & TraceStream::operator<<( const std::string & text ) {
    text_ += text;
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
struct SinkState {
    std::mutex mutex;
    int descriptor = STDERR_FILENO;
    std::function<void( const TraceLine & )> callback;

    static SinkState & instance() {
        static auto & state = *new SinkState;
        return state;
    }

    void redirect( int newDescriptor, std::function<void( const TraceLine & )> newCallback ) {
        const std::lock_guard lock( mutex );
        if ( descriptor != STDERR_FILENO )
            ::close( descriptor );
        descriptor = newDescriptor;
        callback = std::move( newCallback );
    }
};

// A sink that cannot take the line (a closed pipe, a full disk) must not stop the agent: what is
// left of the line is dropped.
void writeWhole( int descriptor, std::string_view text ) noexcept {
    while ( !text.empty() ) {
        const auto written = ::write( descriptor, text.data(), text.size() );
        if ( written < 0 && errno == EINTR )
            continue;
        if ( written <= 0 )
            return;
        text.remove_prefix( static_cast<size_t>( written ) );
    }
}

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
    out += std::to_string( static_cast<uint32_t>( line.level ) );
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

void traceToStandardError() { SinkState::instance().redirect( STDERR_FILENO, nullptr ); }

void traceToFile( const std::string & path ) {
    const int descriptor = ::open( path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644 );
    if ( descriptor < 0 )
        throw std::system_error( errno, std::generic_category(), "trace file " + path );
    SinkState::instance().redirect( descriptor, nullptr );
}

void traceToCallback( std::function<void( const TraceLine & )> callback ) {
    SinkState::instance().redirect( STDERR_FILENO, std::move( callback ) );
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
    auto & sink = SinkState::instance();
    const std::lock_guard lock( sink.mutex );
    if ( sink.callback )
        sink.callback( line );
    else
        writeWhole( sink.descriptor, formatTraceLine( line ) + '\n' );
}

} // namespace Kiln
