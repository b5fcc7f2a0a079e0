#include <Kiln/TraceHandle.h>

#include <CairnPlatform/internal/Write.h>

#include <charconv>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <unistd.h>

namespace Kiln {

// Every facility and every setting of the process. Made on first use and never destroyed, because
// other static objects trace while the process ends.
class FacilityTable {
  public:
    static FacilityTable & instance() {
        static auto & table = *new FacilityTable;
        return table;
    }

    TraceFacility & get( std::string_view name, bool onByDefault ) {
        const std::lock_guard lock( mutex_ );
        for ( const auto & facility : facilities_ ) {
            if ( facility->name() == name )
                return *facility;
        }
        facilities_.emplace_back( new TraceFacility( name ) );
        auto & facility = *facilities_.back();
        facility.setMask( maskFor( name, onByDefault ? 1u : 0u ) );
        return facility;
    }

    void apply( const std::vector<TraceSetting> & settings ) {
        const std::lock_guard lock( mutex_ );
        for ( const auto & setting : settings ) {
            settings_.push_back( setting );
            for ( const auto & facility : facilities_ ) {
                if ( matches( setting, facility->name() ) )
                    facility->setMask( facility->mask() | setting.mask );
            }
        }
    }

    void clear() {
        const std::lock_guard lock( mutex_ );
        settings_.clear();
        for ( const auto & facility : facilities_ )
            facility->setMask( 0 );
    }

  private:
    FacilityTable() {
        const char * text = std::getenv( "KILN_TRACE" );
        if ( text == nullptr )
            return;
        std::string error;
        settings_ = parseTraceSettings( text, error );
        if ( !error.empty() )
            CairnPlatform::writeWhole( STDERR_FILENO, "KILN_TRACE: " + error + "\n" );
    }

    static bool matches( const TraceSetting & setting, std::string_view name ) {
        const std::string_view pattern = setting.name;
        if ( pattern.ends_with( '*' ) )
            return name.starts_with( pattern.substr( 0, pattern.size() - 1 ) );
        return name == pattern;
    }

    std::uint32_t maskFor( std::string_view name, std::uint32_t otherwise ) const {
        std::uint32_t mask = 0;
        bool found = false;
        for ( const auto & setting : settings_ ) {
            if ( matches( setting, name ) ) {
                mask |= setting.mask;
                found = true;
            }
        }
        return found ? mask : otherwise;
    }

    std::mutex mutex_;
    std::vector<std::unique_ptr<TraceFacility>> facilities_;
    std::vector<TraceSetting> settings_;
};

TraceFacility & TraceFacility::get( std::string_view name ) {
    return FacilityTable::instance().get( name, false );
}

TraceHandle::TraceHandle( const char * name, bool onByDefault )
    : facility_( &FacilityTable::instance().get( name, onByDefault ) ) {}

namespace {

bool parseLevel( std::string_view text, std::uint32_t & level ) {
    const auto result = std::from_chars( text.data(), text.data() + text.size(), level );
    return result.ec == std::errc() && result.ptr == text.data() + text.size() &&
           level < TraceFacility::levelCount;
}

// The levels that "4", "2-9" or "*" stand for; 0 when the text is none of these.
std::uint32_t parseLevels( std::string_view text ) {
    constexpr std::uint32_t all = ( 1u << TraceFacility::levelCount ) - 1;
    if ( text == "*" )
        return all;
    const auto dash = text.find( '-' );
    std::uint32_t low = 0;
    if ( !parseLevel( text.substr( 0, dash ), low ) )
        return 0;
    std::uint32_t high = low;
    if ( dash != std::string_view::npos && !parseLevel( text.substr( dash + 1 ), high ) )
        return 0;
    if ( high < low )
        return 0;
    return all & ( ~0u << low ) & ( ( 2u << high ) - 1 );
}

} // namespace

std::vector<TraceSetting> parseTraceSettings( std::string_view text, std::string & error ) {
    error.clear();
    std::vector<TraceSetting> settings;
    while ( !text.empty() ) {
        const auto comma = text.find( ',' );
        const auto item = text.substr( 0, comma );
        text = comma == std::string_view::npos ? std::string_view() : text.substr( comma + 1 );
        const auto slash = item.rfind( '/' );
        const auto name = item.substr( 0, slash );
        const std::uint32_t mask =
            slash == std::string_view::npos ? 0 : parseLevels( item.substr( slash + 1 ) );
        if ( name.empty() || mask == 0 ) {
            error = "\"" + std::string( item ) +
                    "\" is not FACILITY/LEVEL, FACILITY/LOW-HIGH or FACILITY/* "
                    "with levels 0 to 9, as in ApiCairn/4";
            break;
        }
        settings.push_back( { std::string( name ), mask } );
    }
    return settings;
}

void traceSettings( const std::vector<TraceSetting> & settings ) {
    FacilityTable::instance().apply( settings );
}

void traceOff() { FacilityTable::instance().clear(); }

} // namespace Kiln
