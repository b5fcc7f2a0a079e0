#pragma once

#include <CairnPlatform/Layout.h>
#include <ChipModel/BringupStage.h>
#include <ChipModel/CairnCommonSmData.h>
#include <ChipModel/ChipProfile.h>
#include <Fleetlog/MsgDesc.h>
#include <Fleetlog/TraceHandle.h>
#include <Kiln/ActivityLock.h>
#include <Kiln/Fmt.h>
#include <Kiln/TraceHelper.h>
#include <Nacre/DebugAssert.h>
#include <Twinlog/FleetlogConverter.h>

#include <cstddef>
#include <cstdint>

// The library's view of the platform. Types and operations that every platform has under one name
// (docs/hosting.md lists them) the library uses directly. Everything else it asks for here: what is
// a member of a class, how a map is walked, how wide a record may be. This is the adapter of the
// platform that comes with the library. A host whose headers say it otherwise writes this one file
// anew, with the same names in it, and puts it first on the include path.
//
// All of it is inline and costs nothing: a guarded call and a message are counted with it.

namespace CairnPlatform {

// --- The pair

/// A symbol that the library needs of the platform, so that another one does not load; null if the
/// two cannot be parted.
inline constexpr void ( *counterpart )() noexcept =
    libraryAndPlatformMustBeBuiltFromTheSameHeaders<Layout::sum()>;

// --- Kiln: levels and masks

/// How many levels a facility has, from 0.
inline constexpr int levelCount = Kiln::TraceFacility::levelCount;

constexpr Kiln::TraceFacility::FacilityLevel level( int number ) noexcept {
    return static_cast<Kiln::TraceFacility::FacilityLevel>( number );
}

/// Where a handle keeps which of its levels are enabled. Made from 32 bits at compile time.
using LevelMask = Kiln::TraceFacility::Mask;

/// The one mask of the handle, valid as long as the handle lives.
inline const LevelMask & levelMask( const Kiln::TraceHandle & handle ) noexcept {
    return handle.mask();
}

/// The mask at this moment: bit n for level n.
inline std::uint32_t read( const LevelMask & mask ) noexcept {
    return mask.load( std::memory_order_relaxed );
}

// --- Kiln: lines

/// What the text of an open line is written to.
inline Kiln::TraceStream & stream( Kiln::TraceHelper & line ) noexcept { return line.stream(); }

// --- Fleetlog: files and their sites

/// The handle's first field: whether each thread has a file of its own.
inline bool isMultiThread( const Fleetlog::TraceHandle & handle ) noexcept {
    return handle.multiThread() != 0;
}

/// The file of a handle whose threads share one; null if there is none.
inline Fleetlog::TraceFile * traceFile( const Fleetlog::TraceHandle & handle ) noexcept {
    return handle.traceFile();
}

/// The calling thread's file of the handle, be it the thread's own or that of the process, if that can
/// be told without a call. Null if not: then the file is asked for by its name, and remembered. May
/// always be null.
inline Fleetlog::TraceFile * rememberedFile( const Fleetlog::TraceHandle & handle ) noexcept {
    return handle.rememberedFile();
}
inline void rememberFile( Fleetlog::TraceHandle & handle, Fleetlog::TraceFile & file ) noexcept {
    handle.rememberFile( file );
}

/// The table of initialised identifiers: at an identifier, a byte that is not zero.
inline const unsigned char * initialisedSites( const Fleetlog::TraceFile & file ) noexcept {
    return file.initialised();
}

/// The highest identifier that the table has a byte for; 0 if it has none.
inline std::size_t highestSite( const Fleetlog::TraceFile & file ) noexcept {
    return file.initialisedLength() - 1; // its length is at least 1
}

/// What the format letters of a site are put into.
inline Fleetlog::MsgFormatString & formatString( Fleetlog::MsgDesc & descriptor ) noexcept {
    return descriptor.formatString();
}

// --- Fleetlog: records

/// The longest text of a record, and what the values of a record may take up: 4, 2 or 1 byte for a
/// number, 2 bytes and the text for a text. Compile-time limits of the messages.
inline constexpr std::size_t maxTextBytes = Fleetlog::maxTextBytes;
inline constexpr std::size_t maxPayloadBytes = Fleetlog::maxPayloadBytes;

/// One record while it is written, made on the stack: startMsg(), the value writers, endMsg().
using Record = Fleetlog::RecordWriter;

/// Begins a record in the file's ring. False if none can be begun; then nothing is written.
[[gnu::always_inline]] inline bool startMsg( Record & record, Fleetlog::TraceFile & file,
                                             int msgId ) noexcept {
    return record.start( *file.ringBuf(), file, msgId );
}

/// The same, if it can be done without leaving the block that is being written; false if not. May
/// do the same as startMsg(): it only separates the usual way, inline, from the rare one.
[[gnu::always_inline]] inline bool startMsgInBlock( Record & record, Fleetlog::TraceFile & file,
                                                    int msgId ) noexcept {
    return record.startInBlock( *file.ringBuf(), msgId );
}

/// The value writers.
inline void put4( Record & record, std::uint32_t value ) noexcept { record.put4( value ); }
inline void put2( Record & record, std::uint16_t value ) noexcept { record.put2( value ); }
inline void put1( Record & record, std::uint8_t value ) noexcept { record.put1( value ); }
[[gnu::always_inline]] inline void putText( Record & record, const char * value ) noexcept {
    record.putText( value );
}

[[gnu::always_inline]] inline void endMsg( Record & record ) noexcept { record.end(); }

// --- Twinlog

/// The finished text, as a line's stream takes it: the pieces with the values in their places.
inline const char * text( Twinlog::FleetlogConverter & converter ) { return converter.finish(); }

// --- The chip model: ports and modules

inline std::uint16_t unit( const CairnTypes::CairnPort & port ) noexcept { return port.unit; }
inline std::uint16_t portId( const CairnTypes::CairnPort & port ) noexcept { return port.portId; }
inline std::uint16_t phyPortId( const Hardware::Cairn::TridentPortId & port ) noexcept {
    return port.phyPortId;
}
inline const CairnCentral::ChipInfo & chip( const Cairn::CairnModInfo & module ) noexcept {
    return module.chip;
}

/// The maps of the agent's state that recipes read.
inline const auto & modules( const Cairn::CairnCommonSmData & state ) noexcept {
    return state.cairnModIds;
}
inline const auto & cpuPorts( const Cairn::CairnCommonSmData & state ) noexcept {
    return state.cairnCpuPortToIntf;
}
inline const auto & recircPorts( const Cairn::CairnCommonSmData & state ) noexcept {
    return state.cairnInternalRecircIntfToPort;
}
inline const auto & hwPorts( const Cairn::CairnCommonSmData & state ) noexcept {
    return state.cairnPortToHwConfigPort;
}

/// The elements of a map in its order, for a range-based for.
inline const auto & elements( const auto & map ) noexcept { return map; }
inline const auto & key( const auto & element ) noexcept { return element.key; }

/// The key of the first element. The map is not empty, or the collection stops the process.
inline const auto & firstKey( const auto & map ) noexcept { return map.begin()->key; }

/// The value of a key, or null.
template <class Map>
const typename Map::Value * find( const Map & map, const typename Map::Key & key ) noexcept {
    const auto found = map.find( key );
    return found == map.end() ? nullptr : &found->value;
}

// --- The chip model: profiles and stages

/// The profile's feature of this type as the profile keeps it, or null.
template <class T>
Nacre::Ptr<Asic::Feature> kilnTypeFeature( const Asic::ChipProfile & profile ) {
    return profile.kilnTypeFeature( typeid( T ) );
}

/// The feature's own numbering of system ports.
inline std::int32_t sysport( const CairnCommon::CairnCommonFeatureAttributes & feature,
                             std::uint16_t modId, std::uint16_t port, std::uint32_t maxPorts ) {
    return feature.sysportFromModport( modId, port, maxPorts );
}

/// Whether the ingress system-port table of the chip has a range-table index.
inline bool hasRangeTableIndex( const CairnCentral::CairnChipAttributes & attributes ) {
    return attributes.hasRangeTableIndex();
}

/// A bring-up stage by its number, as isBlocked() and isUnblocked() take it.
constexpr CairnCentral::BringupStage stage( std::uint32_t number ) noexcept {
    return CairnCentral::BringupStage( number );
}

} // namespace CairnPlatform
