#include <agent/Chips.h>

#include <cstdio>
#include <iomanip>
#include <iostream>
#include <set>
#include <string_view>

// The agent's framework: lines go to standard output, trace files live in memory.

namespace Kiln {
inline namespace agent {

namespace {
std::map<std::string, std::uint64_t> & switched() {
    static std::map<std::string, std::uint64_t> levels;
    return levels;
}
std::set<TraceHandle *> & handles() {
    static std::set<TraceHandle *> all;
    return all;
}
} // namespace

std::string namesOfHandles() {
    std::string names;
    for ( const TraceHandle * const handle : handles() )
        names += " " + handle->name + ( handle->flag ? "(on)" : "" );
    return names;
}

TraceHandle::TraceHandle( const char * itsName, bool itsFlag ) : name( itsName ), flag( itsFlag ) {
    handles().insert( this );
    levels = switched()[name];
}

void switchLevels( const std::string & name, std::uint64_t levels ) {
    switched()[name] = levels;
    for ( TraceHandle * const handle : handles() )
        if ( handle->name == name )
            handle->levels = levels;
}

TraceHelper::TraceHelper( TraceHandle & handle, TraceFacility::FacilityLevel level,
                          const char * file, int line, const char * function )
    : head( handle.name + "/" + std::to_string( static_cast<int>( level ) ) + " " + file +
            ( line > 0 ? ":LINE " : ":? " ) + function ) {}
TraceHelper::~TraceHelper() {
    // Lines of code move; that the text names the same line as the head is for the reader.
    std::string text = body.out.str();
    for ( std::size_t at = 0; ( at = text.find( "CairnLtHelper:", at ) ) != text.npos; ) {
        at += std::string_view( "CairnLtHelper:" ).size();
        text.replace( at, text.find( ' ', at ) - at, "LINE" );
    }
    std::cout << head << ": " << text << '\n';
}

void ActivityLock::lock() {
    mutex.lock();
    held = true;
}
void ActivityLock::unlock() {
    held = false;
    mutex.unlock();
}
ActivityLock & activityLock() {
    static ActivityLock lock;
    return lock;
}

} // namespace agent
} // namespace Kiln

namespace Nacre {
inline namespace agent {
void debugAndAssert( const Platform::DebugStream & message, const char * file,
                     const char * function, int line ) {
    std::cout << file << ":" << line << " " << function << ": " << message.out.str() << '\n';
}
} // namespace agent
} // namespace Nacre

namespace Fleetlog {
inline namespace agent {

TraceHandle * defaultFleetlogHandle = nullptr;

TraceFile * TraceHandle::mtTraceFile() {
    static thread_local TraceFile file;
    return &file;
}

void RingBuf::startMsg( TraceFile *, int msgId ) {
    line.str( "" );
    line << std::dec << msgId << std::hex << std::setfill( '0' );
    active = true;
}

void RingBuf::number( std::uint64_t value, int bytes ) {
    if ( active )
        line << ' ' << std::setw( 2 * bytes ) << value;
}

void RingBuf::endMsg() {
    records.push_back( line.str() );
    active = false;
}

void put( RingBuf * ring, const char * text ) {
    if ( ring->active )
        ring->line << " \"" << text << '"';
}

MsgDesc::MsgDesc( TraceFile * file, int * msgId, const char * source, int line )
    : file_( file ), msgId_( msgId ), source_( source ), line_( line ) {}

void MsgDesc::finish() {
    static int last = 0;
    if ( *msgId_ == 0 )
        *msgId_ = ++last;
    const auto id = static_cast<std::size_t>( *msgId_ );
    file_->descriptors.push_back( std::to_string( id ) + " " + source_ + " " + format.letters +
                                  " " + text );
    if ( id >= TraceFile::mostKnown )
        return;
    if ( id >= file_->known.size() )
        file_->known.resize( id + 1 );
    file_->known[id] = 1;
}

} // namespace agent
} // namespace Fleetlog

namespace Twinlog {
inline namespace agent {

Pieces twinlogFixed_;

std::string FleetlogConverter::merged() const {
    std::string text = twinlogFixed_.all;
    for ( const auto & value : values )
        text.replace( text.find( "%s" ), 2, value );
    return text;
}

} // namespace agent
} // namespace Twinlog

namespace CairnCentral {
inline namespace agent {

void ChipInfo::doInit() { stamp_[0] = 1; }
bool ChipInfo::isEq( const void * a, const void * b ) {
    return static_cast<const ChipInfo *>( a )->serial_ ==
           static_cast<const ChipInfo *>( b )->serial_;
}
bool isBlocked( const ChipInfo & chipInfo, BringupStage stage ) {
    std::cout << "isBlocked " << chipInfo.serial() << " " << stage << '\n';
    return stage == 106;
}
bool isUnblocked( const ChipInfo & chipInfo, BringupStage stage ) {
    std::cout << "isUnblocked " << chipInfo.serial() << " " << stage << '\n';
    return stage == 108;
}

} // namespace agent
} // namespace CairnCentral

namespace Asic {
inline namespace agent {
Nacre::Ptr<Feature> ChipProfile::kilnTypeFeature( const std::string & typeName ) const {
    const auto found = features.find( typeName );
    return found == features.end() ? nullptr : found->second;
}
} // namespace agent
} // namespace Asic

namespace CairnProfile {

struct OwnNumbers : CairnCommon::CairnCommonFeatureAttributes {
    int numberOf( int modId, int port ) override { return 100 * modId + port; }
};

Nacre::Ptr<Asic::ChipProfile> activeChipProfile( const CairnCentral::ChipInfo & chipInfo ) {
    const Nacre::Ptr<Asic::ChipProfile> profile( new Asic::ChipProfile );
    profile->features[typeid( CairnCentral::CairnChipAttributes ).name()] =
        Nacre::Ptr<Asic::Feature>( new CairnCentral::CairnChipAttributes );
    if ( chipInfo.serial() == "numbers its ports" )
        profile->features[typeid( CairnCommon::CairnCommonFeatureAttributes ).name()] =
            Nacre::Ptr<Asic::Feature>( new OwnNumbers );
    return profile;
}

} // namespace CairnProfile
