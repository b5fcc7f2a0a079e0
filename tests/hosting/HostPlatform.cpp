#include <CairnPlatform/Layout.h>
#include <ChipModel/BringupStage.h>
#include <ChipModel/CairnCommonSmData.h>
#include <ChipModel/ChipProfile.h>
#include <Fleetlog/MsgDesc.h>
#include <Fleetlog/TraceHandle.h>
#include <Kiln/ActivityLock.h>
#include <Kiln/Fmt.h>
#include <Kiln/StdIterator.h>
#include <Kiln/TraceHelper.h>
#include <Nacre/DebugAssert.h>
#include <Twinlog/FleetlogConverter.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

// The smallest platform that a host can bring: what the library imports, and no more. Trace lines
// are printed, the activity lock is nobody's, there is no trace file and no chip has a profile.

CAIRN_PLATFORM_LAYOUT

namespace Kiln {

TraceHandle::TraceHandle( const char * name, bool ) : facility_( &TraceFacility::get( name ) ) {}

TraceFacility & TraceFacility::get( std::string_view name ) {
    auto & facility = *new TraceFacility( name );
    facility.setMask( 1u << level2 );
    return facility;
}

TraceHelper::TraceHelper( TraceHandle & handle, TraceFacility::FacilityLevel level,
                          const char * file, int line, const char * function )
    : handle_( handle ), level_( level ), file_( file ), line_( line ), function_( function ) {}
TraceHelper::~TraceHelper() {
    std::printf( "host's line: %s\n", std::string( stream_.text() ).c_str() );
}

TraceStream & TraceStream::operator<<( const char * text ) {
    text_.append( std::string_view( text ) );
    return *this;
}
TraceStream & TraceStream::operator<<( const std::string & text ) { return *this << text.c_str(); }
TraceStream & TraceStream::operator<<( bool value ) { return *this << int( value ); }
TraceStream & TraceStream::operator<<( int value ) { return *this << std::to_string( value ); }
TraceStream & TraceStream::operator<<( unsigned value ) { return *this << std::to_string( value ); }
TraceStream & TraceStream::operator<<( unsigned long value ) {
    return *this << std::to_string( value );
}
TraceStream & TraceStream::operator<<( unsigned short value ) { return *this << unsigned( value ); }

void ActivityLock::lock() noexcept { mutex_.lock(); }
void ActivityLock::unlock() noexcept { mutex_.unlock(); }
ActivityLock & activityLock() noexcept {
    static ActivityLock lock;
    return lock;
}
MaybeGilUnlockAnchor::MaybeGilUnlockAnchor() noexcept : released_( nullptr ) {}
MaybeGilUnlockAnchor::~MaybeGilUnlockAnchor() = default;
ActivityUnlockAnchor::ActivityUnlockAnchor() noexcept : activity_( activityLock() ) {}
ActivityUnlockAnchor::~ActivityUnlockAnchor() = default;

Nacre::Impl::StrB _fmt( const char * pattern, int value ) {
    char text[128];
    std::snprintf( text, sizeof text, pattern, value );
    return text;
}
void stopForEmptyIterator( int, const char * ) noexcept { std::abort(); }

} // namespace Kiln

namespace Nacre {

namespace Platform {
DebugStream & DebugStream::operator<<( const char * ) { return *this; }
DebugStream & DebugStream::operator<<( unsigned ) { return *this; }
} // namespace Platform
void debugAndAssert( const Platform::DebugStream &, const char *, const char *, int ) {}

} // namespace Nacre

namespace CairnCentral {

void ChipInfo::doInit() {}
bool ChipInfo::isEq( const void *, const void * ) noexcept { return false; }
std::string ChipInfo::toString() const { return {}; }
bool isBlocked( const ChipInfo &, BringupStage ) noexcept { return false; }
bool isUnblocked( const ChipInfo &, BringupStage ) noexcept { return true; }
CairnChipAttributes::~CairnChipAttributes() = default;

} // namespace CairnCentral

namespace CairnCommon {
CairnCommonFeatureAttributes::~CairnCommonFeatureAttributes() = default;
int32_t CairnCommonFeatureAttributes::sysportFromModport( uint16_t, uint16_t, uint32_t ) const {
    return 0;
}
} // namespace CairnCommon

namespace Asic {
Feature::~Feature() = default;
ChipProfile::~ChipProfile() = default;
Nacre::Ptr<Feature> ChipProfile::kilnTypeFeature( const std::type_info & ) const noexcept {
    return nullptr;
}
} // namespace Asic

namespace CairnProfile {
Nacre::Ptr<Asic::ChipProfile> activeChipProfile( const CairnCentral::ChipInfo & ) {
    return nullptr;
}
} // namespace CairnProfile

namespace Cairn {
CairnCommonSmData::~CairnCommonSmData() = default;
} // namespace Cairn

namespace Fleetlog {

TraceHandle * defaultFleetlogHandle = nullptr;
constinit thread_local KnownFile knownFile;

TraceFile * TraceHandle::mtTraceFile() noexcept { return nullptr; }
MsgDesc::MsgDesc( TraceFile *, int *, const char *, int ) noexcept {}
MsgDesc & MsgDesc::operator<<( const char * ) noexcept { return *this; }
void MsgDesc::finish() noexcept {}
void MsgFormatString::put( const char * ) noexcept {}
std::byte * RingBuf::claimSlowly( TraceFile & ) noexcept { return nullptr; }
std::byte * RecordWriter::putShortOrLongText( std::byte * cursor, const char *,
                                              std::size_t ) noexcept {
    return cursor;
}

} // namespace Fleetlog

namespace Twinlog {

FixedStream twinlogFixed_;

FixedStream & FixedStream::operator<<( const char * piece ) noexcept {
    while ( *piece != '\0' && length_ < capacity )
        text_[length_++] = *piece++;
    return *this;
}
FleetlogConverter::FleetlogConverter() { twinlogFixed_.clear(); }
FleetlogConverter & FleetlogConverter::operator<<( const char * value ) {
    text_.append( ' ' );
    text_.append( std::string_view( value ) );
    return *this;
}
FleetlogConverter & FleetlogConverter::operator<<( bool value ) { return *this << int( value ); }
FleetlogConverter & FleetlogConverter::operator<<( int value ) {
    return *this << std::to_string( value ).c_str();
}
FleetlogConverter & FleetlogConverter::operator<<( unsigned value ) {
    return *this << std::to_string( value ).c_str();
}
FleetlogConverter & FleetlogConverter::operator<<( unsigned short value ) {
    return *this << unsigned( value );
}
const char * FleetlogConverter::finish() {
    static std::string text;
    text = std::string( twinlogFixed_.text() ) + " with" + std::string( text_.text() );
    return text.c_str();
}

} // namespace Twinlog
