#pragma once

#include <ChipModel/CairnCommonSmData.h>
#include <ChipModel/ChipProfile.h>
#include <Fleetlog/MsgDesc.h>
#include <Fleetlog/TraceHandle.h>
#include <Kiln/ActivityLock.h>
#include <Kiln/TraceHelper.h>
#include <Nacre/DebugAssert.h>
#include <Twinlog/FleetlogConverter.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>

// The pair of library and platform. The library compiles in what these headers have inline: sizes of
// classes, places of members. A platform library that was built from other headers has the same name
// and the same functions, and would corrupt memory. So the library needs one more symbol of the
// platform, whose name holds a sum of all that; a wrong pair does not load.

namespace CairnPlatform {

/// What the library compiles in of the platform.
struct Layout {
    /// To be raised when something changes that the sum does not see: the order of virtual functions,
    /// the meaning of a member that keeps its place.
    static constexpr std::uint64_t revision = 3;

    template <class... Types>
    static constexpr std::uint64_t sumOfTypes( std::uint64_t sum ) noexcept {
        ( ( sum = add( add( sum, sizeof( Types ) ), alignof( Types ) ) ), ... );
        return sum;
    }

    static constexpr std::uint64_t sum() noexcept {
        std::uint64_t sum =
            sumOfTypes<Kiln::TraceFacility, Kiln::TraceHandle, Kiln::TraceHelper, Kiln::TraceStream,
                       Kiln::ActivityUnlockAnchor, Nacre::PtrInterface, Nacre::Ptr<Asic::Feature>,
                       Nacre::Impl::StrB, Nacre::Platform::DebugStream, CairnCentral::ChipInfo,
                       CairnCentral::CairnChipAttributes, CairnCommon::CairnCommonFeatureAttributes,
                       CairnTypes::CairnPort, Hardware::Cairn::TridentPortId, Netbase::IntfId,
                       Cairn::CairnModInfo, Cairn::CairnCommonSmData, Asic::ChipProfile,
                       Fleetlog::TraceHandle, Fleetlog::KnownFile, Fleetlog::TraceFile,
                       Fleetlog::RingBuf, Fleetlog::Format::RecordHeader, Fleetlog::MsgDesc,
                       Fleetlog::MsgFormatString, Twinlog::FleetlogConverter, Twinlog::FixedStream>(
                revision );
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
        for ( const std::size_t offset :
              { offsetof( Kiln::TraceFacility, mask_ ),
                offsetof( Kiln::TraceHelper, stream_ ),
                offsetof( Cairn::CairnModInfo, chip ),
                offsetof( Cairn::CairnCommonSmData, cairnModIds ),
                offsetof( Cairn::CairnCommonSmData, cairnCpuPortToIntf ),
                offsetof( Cairn::CairnCommonSmData, cairnInternalRecircIntfToPort ),
                offsetof( Cairn::CairnCommonSmData, cairnPortToHwConfigPort ),
                offsetof( CairnTypes::CairnPort, unit ),
                offsetof( CairnTypes::CairnPort, portId ),
                offsetof( Fleetlog::TraceHandle, multiThread_ ),
                offsetof( Fleetlog::TraceHandle, file_ ),
                offsetof( Fleetlog::TraceHandle, generation_ ),
                offsetof( Fleetlog::TraceFile, ring_ ),
                offsetof( Fleetlog::TraceFile, lastInitialised_ ),
                offsetof( Fleetlog::TraceFile, initialised_ ),
                offsetof( Fleetlog::RingBuf, place_ ),
                offsetof( Fleetlog::RingBuf, limit_ ),
                offsetof( Fleetlog::RingBuf, counterLimit_ ),
                offsetof( Fleetlog::RingBuf, tick_ ),
                offsetof( Fleetlog::Format::RecordHeader, size ),
                offsetof( Fleetlog::Format::RecordHeader, id ),
                offsetof( Fleetlog::Format::RecordHeader, time ),
                offsetof( Fleetlog::MsgDesc, format_ ) } )
            sum = add( sum, offset );
#pragma GCC diagnostic pop
        return sum;
    }

  private:
    /// FNV-1a, with a number in place of a byte.
    static constexpr std::uint64_t add( std::uint64_t sum, std::uint64_t number ) noexcept {
        return ( sum ^ number ) * 0x100000001b3;
    }
};

/// Does nothing. Its name is what the loader prints when the pair is wrong.
template <std::uint64_t layout>
void libraryAndPlatformMustBeBuiltFromTheSameHeaders() noexcept;

} // namespace CairnPlatform

/// A platform library has this line in one of its sources.
#define CAIRN_PLATFORM_LAYOUT                                                                      \
    template <>                                                                                    \
    void CairnPlatform::libraryAndPlatformMustBeBuiltFromTheSameHeaders<                           \
        CairnPlatform::Layout::sum()>() noexcept {}
