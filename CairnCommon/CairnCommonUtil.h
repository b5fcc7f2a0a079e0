#pragma once

#include <CairnPlatform/Adapter.h>

// The pieces of the agent's chip model that every user compiles in.

inline Cairn::CairnModInfo Cairn::CairnCommonSmData::cairnModId( uint16_t modId ) const {
    const CairnModInfo * const found =
        CairnPlatform::find( CairnPlatform::modules( *this ), modId );
    return found != nullptr ? *found : CairnModInfo();
}

namespace CairnCentral {

namespace Impl {

// Positions under which the two debug reports of the numbering are known.
inline constexpr char sysportFile[] = "CairnCommon/CairnCommonUtil";
inline constexpr char sysportFunction[] = "SYSPORT_FROM_MODPORT";
inline constexpr int noChipLine = 213;
inline constexpr int maxPortsLine = 225;

} // namespace Impl

/// A profile's feature of type `T`, looked up by its type and cast down with a check; kept alive while this
/// lives. Tests as false if the profile has none, or has something else under that type.
template <class T>
class FeatureOf {
  public:
    explicit FeatureOf( const Asic::ChipProfile & profile )
        : found_( CairnPlatform::kilnTypeFeature<T>( profile ) ),
          feature_( found_ ? dynamic_cast<T *>( &*found_ ) : nullptr ) {}

    explicit operator bool() const noexcept { return feature_ != nullptr; }
    T & operator*() const noexcept { return *feature_; }

  private:
    Nacre::Ptr<Asic::Feature> found_;
    T * feature_;
};

/// The system port number of port `port` on module `modId`, of a chip whose modules have `maxPorts`
/// ports.
///
/// A chip whose profile has a CairnCommonFeatureAttributes feature numbers its ports itself. All
/// others use modId x 256 plus the low 8 bits of the port; port 0 is numbered by `maxPorts`, so
/// `maxPorts` should be below 256.
///
/// Debug assertions, which stop the process only where the host wants that: "chipInfo NULL" for a
/// default-constructed `chipInfo`, and "maxPorts: Ninvalid" for more than 255 ports on a chip
/// without the feature.
inline int32_t SYSPORT_FROM_MODPORT( ChipInfo chipInfo, uint16_t modId, uint16_t port,
                                     uint32_t maxPorts ) {
    const ChipInfo noChip;
    if ( ChipInfo::isEq( &chipInfo, &noChip ) ) {
        Nacre::Platform::DebugStream message;
        message << "chipInfo NULL";
        Nacre::debugAndAssert( message, Impl::sysportFile, Impl::sysportFunction,
                               Impl::noChipLine );
    }
    if ( const auto profile = CairnProfile::activeChipProfile( chipInfo ) ) {
        if ( const FeatureOf<CairnCommon::CairnCommonFeatureAttributes> feature( *profile );
             feature )
            return CairnPlatform::sysport( *feature, modId, port, maxPorts );
    }
    if ( maxPorts > 255 ) {
        Nacre::Platform::DebugStream message;
        message << "maxPorts: " << maxPorts << "invalid";
        Nacre::debugAndAssert( message, Impl::sysportFile, Impl::sysportFunction,
                               Impl::maxPortsLine );
    }
    // Port 0 is numbered by maxPorts, whole; every other port by its low 8 bits.
    const uint32_t number = uint32_t( modId ) << 8 | ( port == 0 ? maxPorts : port & 0xFFu );
    return static_cast<int32_t>( number );
}

} // namespace CairnCentral
