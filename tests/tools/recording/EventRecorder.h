#pragma once

#include "interpose/Interposer.h"
#include "tracereader/Recording.h"

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

// A recording in memory: what the reader of recordings gives, without the files.

namespace ToolTest {

class EventRecorder final : public Interpose::Interposer {
  public:
    explicit EventRecorder( Shim::Sdk & inner );

    /// What the calls that follow are of.
    void setThread( std::uint32_t thread ) { thread_ = thread; }
    void setLockHeld( std::optional<bool> isHeld ) { isLockHeld_ = isHeld; }
    /// Asked at each call, in place of that.
    void askLock( bool ( *isLockHeld )() ) { askLock_ = isLockHeld; }

    /// The next call is begun and never returns: it does not reach the SDK.
    void loseNext() { isNextLost_ = true; }

    /// Hands all events to `taker.take()`, from the one of a place on.
    template <class Taker>
    void giveTo( Taker & taker, std::size_t first = 0 ) const {
        for ( std::size_t i = first; i < events_.size(); ++i )
            taker.take( eventAt( i ) );
    }

    std::size_t eventCount() const { return events_.size(); }
    TraceReader::Event eventAt( std::size_t i ) const;

    /// Swaps two events: what other threads do lies between the two moments of a call.
    void swap( std::size_t i, std::size_t k ) { std::swap( events_[i], events_[k] ); }
    TraceReader::RecordedCall & callAt( std::size_t i ) { return events_[i].second; }

    void preCallHook() noexcept override;
    void failureHook() noexcept override;

  private:
    using Moment = TraceReader::Event::Moment;

    int operate( const Interpose::Operation & operation ) noexcept override;
    void hook( TraceReader::SdkCall call );
    TraceReader::RecordedCall newCall( TraceReader::SdkCall call );
    TraceReader::SdkConstant constantOf( std::uint32_t number );

    std::vector<std::pair<Moment, TraceReader::RecordedCall>> events_;
    std::unordered_map<std::uint32_t, std::pair<std::int32_t, std::string>> entries_;
    std::uint64_t calls_ = 0;
    std::uint32_t thread_ = 1;
    std::optional<bool> isLockHeld_ = false;
    bool ( *askLock_ )() = nullptr;
    bool isNextLost_ = false;
};

} // namespace ToolTest
