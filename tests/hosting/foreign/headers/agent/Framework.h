#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

// The framework of an agent that has nothing in common with this project but the documented names.
// Everything lies in inline namespaces, so that it mangles otherwise; handles cannot be copied and
// hold their masks themselves; what is put into a stream or a descriptor returns nothing.

namespace Nacre {
inline namespace agent {

template <class T>
class Ptr : public std::shared_ptr<T> {
  public:
    using std::shared_ptr<T>::shared_ptr;
};

namespace Impl {
class StrB {
  public:
    StrB( std::string text = {} ) : text_( std::move( text ) ) {}
    const char * charPtr() const { return text_.c_str(); }

  private:
    std::string text_;
};
} // namespace Impl

namespace Platform {
class DebugStream {
  public:
    template <class Value>
    DebugStream & operator<<( const Value & value ) {
        out << value;
        return *this;
    }
    std::ostringstream out;
};
} // namespace Platform

void debugAndAssert( const Platform::DebugStream & message, const char * file,
                     const char * function, int line );

} // namespace agent
} // namespace Nacre

namespace Kiln {
inline namespace agent {

namespace TraceFacility {
enum class FacilityLevel : short {};
}

class TraceHandle {
  public:
    TraceHandle( const char * name, bool flag );
    TraceHandle( const TraceHandle & ) = delete;
    TraceHandle & operator=( const TraceHandle & ) = delete;

    std::string name;
    bool flag;
    std::atomic<std::uint64_t> levels{ 0 };
};

/// The names of the handles that there are, each after a blank.
std::string namesOfHandles();

/// Switches the levels of all handles of this name, those to come included.
void switchLevels( const std::string & name, std::uint64_t levels );

class TraceStream {
  public:
    void operator<<( const char * text ) { out << text; }
    void operator<<( const std::string & text ) { out << text; }
    void operator<<( bool value ) { out << ( value ? "yes" : "no" ); }
    void operator<<( int value ) { out << value; }
    void operator<<( unsigned value ) { out << value; }
    void operator<<( unsigned long value ) { out << value; }
    void operator<<( unsigned short value ) { out << value; }
    std::ostringstream out;
};

class TraceHelper {
  public:
    TraceHelper( TraceHandle & handle, TraceFacility::FacilityLevel level, const char * file,
                 int line, const char * function );
    ~TraceHelper();
    TraceHelper( const TraceHelper & ) = delete;
    TraceHelper & operator=( const TraceHelper & ) = delete;

    std::string head;
    TraceStream body;
};

struct ActivityLock {
    void lock();
    void unlock();
    bool held = false;
    std::mutex mutex;
};
ActivityLock & activityLock();

struct MaybeGilUnlockAnchor {};
class UnlockAnchor {
  public:
    explicit UnlockAnchor( ActivityLock & lock ) : lock_( lock ) { lock_.unlock(); }
    ~UnlockAnchor() { lock_.lock(); }

  private:
    ActivityLock & lock_;
};
class ActivityUnlockAnchor : MaybeGilUnlockAnchor, UnlockAnchor {
  public:
    ActivityUnlockAnchor() : UnlockAnchor( activityLock() ) {}
};

/// Keeps its elements in a row, and has no iterators.
template <class Key, class Value>
class HashMap2018 {
  public:
    void put( Key key, Value value ) { items.emplace_back( std::move( key ), std::move( value ) ); }
    std::vector<std::pair<Key, Value>> items;
};

template <class Value>
Nacre::Impl::StrB _fmt( std::string pattern, Value value ) {
    return pattern.replace( pattern.find( "%d" ), 2, std::to_string( value ) );
}

} // namespace agent
} // namespace Kiln

namespace Fleetlog {
inline namespace agent {

struct TraceFile;

/// A record is a line of hexadecimal digits.
struct RingBuf {
    void startMsg( TraceFile * file, int msgId );
    void endMsg();
    void number( std::uint64_t value, int bytes );

    bool active = false;
    std::ostringstream line;
    std::vector<std::string> records;
};
void put( RingBuf * ring, const char * text );

struct MsgFormatString {
    void put( const char * letter ) { letters += letter; }
    std::string letters;
};

class MsgDesc {
  public:
    MsgDesc( TraceFile * file, int * msgId, const char * source, int line );
    void operator<<( const char * piece ) { text += piece; }
    void finish();

    MsgFormatString format;
    std::string text;

  private:
    TraceFile * file_;
    int * msgId_;
    std::string source_;
    int line_;
};

struct TraceFile {
    std::vector<std::string> descriptors;
    RingBuf ring;
    /// Room for a few sites only; what byte 0 holds means nothing.
    std::vector<std::uint8_t> known = std::vector<std::uint8_t>( 1, 0xFF );
    static constexpr std::size_t mostKnown = 5;
};

class TraceHandle {
  public:
    int threads = 0;
    TraceFile * single = nullptr;
    TraceFile * mtTraceFile();
};
extern TraceHandle * defaultFleetlogHandle;

} // namespace agent
} // namespace Fleetlog

namespace Twinlog {
inline namespace agent {

struct Pieces {
    void operator<<( const char * piece ) { all += piece; }
    std::string all;
};
extern Pieces twinlogFixed_;

class FleetlogConverter {
  public:
    FleetlogConverter() { twinlogFixed_.all.clear(); }
    void operator<<( const char * value ) { values.emplace_back( value ); }
    void operator<<( bool value ) { values.emplace_back( value ? "yes" : "no" ); }
    void operator<<( int value ) { values.push_back( std::to_string( value ) ); }
    void operator<<( unsigned value ) { values.push_back( std::to_string( value ) ); }
    void operator<<( unsigned short value ) { values.push_back( std::to_string( value ) ); }
    std::string merged() const;
    std::deque<std::string> values;
};

} // namespace agent
} // namespace Twinlog
