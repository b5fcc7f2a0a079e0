#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Kiln tracing: named facilities, each with a mask of enabled levels that is read without a call.
//
//     static Kiln::TraceHandle handle( "CairnLtHelper", false );
//     if ( handle.enabled( Kiln::TraceFacility::level2 ) ) {
//         ... // make a Kiln::TraceHelper and write to its stream
//     }
//
// Levels are set for a process by the environment variable KILN_TRACE, read when the first facility
// is made, and at run time by traceSettings(). Both remember names that nobody has made a handle of
// yet: a handle created later obeys what was set before.
//
// The text of a setting is a list of items separated by commas. An item is NAME/LEVEL,
// NAME/LOW-HIGH or NAME/*; a NAME that ends in "*" stands for every facility that begins with what
// precedes it:
//
//     ApiCairn/4,CairnLtHelper/2-9
//     Cairn*/*
//
// Threads: everything here may be used from any thread. A mask is one relaxed atomic word; a change
// reaches other threads soon, not at once.

namespace CairnPlatform {
struct Layout;
}

namespace Kiln {

/// A named source of trace lines. Facilities are never destroyed: one that is on file stays valid
/// until the process ends.
class TraceFacility {
  public:
    enum FacilityLevel : std::uint32_t {
        level0,
        level1,
        level2,
        level3,
        level4,
        level5,
        level6,
        level7,
        level8,
        level9,
    };
    static constexpr std::uint32_t levelCount = 10;

    /// Bit n is set when level n is enabled. To be read with memory_order_relaxed, each time anew.
    using Mask = std::atomic<std::uint32_t>;

    /// The facility of this name, made if there is none yet.
    static TraceFacility & get( std::string_view name );

    TraceFacility( const TraceFacility & ) = delete;
    TraceFacility & operator=( const TraceFacility & ) = delete;

    const std::string & name() const noexcept { return name_; }

    const Mask & mask() const noexcept { return mask_; }
    void setMask( std::uint32_t mask ) noexcept { mask_.store( mask, std::memory_order_relaxed ); }

  private:
    friend class FacilityTable;
    friend struct CairnPlatform::Layout;
    explicit TraceFacility( std::string_view name ) : name_( name ) {}

    Mask mask_{ 0 };
    std::string name_;
};

/// What code holds to trace on a facility. Handles of one name share one facility. A handle has no
/// destructor to run, so lines written while the process ends are still safe.
class TraceHandle {
  public:
    /// `name` names the facility. `onByDefault` enables level 0 of a facility about which nothing
    /// has been set; false leaves it silent.
    TraceHandle( const char * name, bool onByDefault );

    const TraceFacility::Mask & mask() const noexcept { return facility_->mask(); }
    bool enabled( TraceFacility::FacilityLevel level ) const noexcept {
        return ( mask().load( std::memory_order_relaxed ) & ( 1u << level ) ) != 0;
    }
    TraceFacility & facility() const noexcept { return *facility_; }

  private:
    TraceFacility * facility_;
};

/// One item of a setting, as parsed.
struct TraceSetting {
    std::string name;   ///< facility name; a trailing "*" matches any ending
    std::uint32_t mask; ///< levels to enable
};

/// Parses the text of a setting. On success `error` is empty. On failure it says which item is
/// wrong and what is expected, and the items before it are returned.
std::vector<TraceSetting> parseTraceSettings( std::string_view text, std::string & error );

/// Enables the levels of `settings`, in existing facilities at once and in later ones when they are
/// made. Levels that were on stay on.
void traceSettings( const std::vector<TraceSetting> & settings );

/// Forgets all settings and switches off all levels of all facilities.
void traceOff();

} // namespace Kiln
