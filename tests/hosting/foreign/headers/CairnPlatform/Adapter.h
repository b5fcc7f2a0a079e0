#pragma once

#include <agent/Chips.h>

// The one file that this agent writes for the library: what each of the library's names means in
// its framework.

namespace CairnPlatform {

inline constexpr void ( *counterpart )() noexcept = nullptr;

inline constexpr int levelCount = 12;

constexpr Kiln::TraceFacility::FacilityLevel level( int number ) noexcept {
    return Kiln::TraceFacility::FacilityLevel( number );
}

using LevelMask = std::atomic<std::uint64_t>;
inline const LevelMask & levelMask( const Kiln::TraceHandle & handle ) noexcept {
    return handle.levels;
}
inline std::uint32_t read( const LevelMask & mask ) noexcept {
    return static_cast<std::uint32_t>( mask.load( std::memory_order_relaxed ) );
}

inline Kiln::TraceStream & stream( Kiln::TraceHelper & line ) noexcept { return line.body; }

inline bool isMultiThread( const Fleetlog::TraceHandle & handle ) noexcept {
    return handle.threads != 0;
}
inline Fleetlog::TraceFile * traceFile( const Fleetlog::TraceHandle & handle ) noexcept {
    return handle.single;
}
// Nothing is remembered: each message asks.
inline Fleetlog::TraceFile * rememberedFile( const Fleetlog::TraceHandle & ) { return nullptr; }
inline void rememberFile( Fleetlog::TraceHandle &, Fleetlog::TraceFile & ) {}
inline const unsigned char * initialisedSites( const Fleetlog::TraceFile & file ) noexcept {
    return file.known.data();
}
inline std::size_t highestSite( const Fleetlog::TraceFile & file ) noexcept {
    return file.known.empty() ? 0 : file.known.size() - 1;
}
inline Fleetlog::MsgFormatString & formatString( Fleetlog::MsgDesc & descriptor ) noexcept {
    return descriptor.format;
}

inline constexpr std::size_t maxTextBytes = 200;
inline constexpr std::size_t maxPayloadBytes = 1000;
struct Record {
    Fleetlog::RingBuf * ring = nullptr;
};
inline bool startMsg( Record & record, Fleetlog::TraceFile & file, int msgId ) {
    record.ring = &file.ring;
    file.ring.startMsg( &file, msgId );
    return true;
}
// Every other record takes the rare way.
inline bool startMsgInBlock( Record & record, Fleetlog::TraceFile & file, int msgId ) {
    return file.ring.records.size() % 2 == 0 && startMsg( record, file, msgId );
}
inline void put4( Record & record, std::uint32_t value ) { record.ring->number( value, 4 ); }
inline void put2( Record & record, std::uint16_t value ) { record.ring->number( value, 2 ); }
inline void put1( Record & record, std::uint8_t value ) { record.ring->number( value, 1 ); }
inline void putText( Record & record, const char * value ) { Fleetlog::put( record.ring, value ); }
inline void endMsg( Record & record ) { record.ring->endMsg(); }

inline std::string text( const Twinlog::FleetlogConverter & converter ) {
    return converter.merged();
}

inline std::uint16_t unit( const CairnTypes::CairnPort & port ) { return port.sdkUnit(); }
inline std::uint16_t portId( const CairnTypes::CairnPort & port ) { return port.logical(); }
inline std::uint16_t phyPortId( const Hardware::Cairn::TridentPortId & port ) {
    return port.physical;
}
inline const CairnCentral::ChipInfo & chip( const Cairn::CairnModInfo & module ) {
    return module.whichChip;
}

inline const auto & modules( const Cairn::CairnCommonSmData & state ) { return state.boards; }
inline const auto & cpuPorts( const Cairn::CairnCommonSmData & state ) { return state.cpus; }
inline const auto & recircPorts( const Cairn::CairnCommonSmData & state ) { return state.loops; }
inline const auto & hwPorts( const Cairn::CairnCommonSmData & state ) { return state.hardware; }

inline const auto & elements( const auto & map ) { return map.items; }
inline const auto & key( const auto & element ) { return element.first; }
inline const auto & firstKey( const auto & map ) { return map.items.front().first; }
template <class Key, class Value>
const Value * find( const Kiln::HashMap2018<Key, Value> & map, const Key & key ) {
    for ( const auto & item : map.items )
        if ( item.first == key )
            return &item.second;
    return nullptr;
}

template <class T>
Nacre::Ptr<Asic::Feature> kilnTypeFeature( const Asic::ChipProfile & profile ) {
    return profile.kilnTypeFeature( typeid( T ).name() );
}
inline std::int32_t sysport( CairnCommon::CairnCommonFeatureAttributes & feature,
                             std::uint16_t modId, std::uint16_t port, std::uint32_t ) {
    return feature.numberOf( modId, port );
}
inline bool hasRangeTableIndex( const CairnCentral::CairnChipAttributes & attributes ) {
    return attributes.rangeIndex;
}

constexpr CairnCentral::BringupStage stage( std::uint32_t number ) noexcept {
    return CairnCentral::BringupStage( number );
}

} // namespace CairnPlatform
