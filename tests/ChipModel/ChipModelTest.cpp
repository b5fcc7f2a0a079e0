#include "CairnCommon/CairnCommonUtil.h"

#include <ChipModel/BringupStage.h>
#include <Kiln/Fmt.h>
#include <Kiln/HashMap2018.h>

#include <gtest/gtest.h>

#include <csignal>
#include <thread>
#include <vector>

namespace {

using Cairn::CairnCommonSmData;
using Cairn::CairnModInfo;
using CairnCentral::BringupStage;
using CairnCentral::ChipInfo;
using CairnCentral::FeatureOf;
using CairnTypes::CairnPort;

// --- ChipInfo

TEST( ChipInfoTest, DefaultMeansNoChip ) {
    const ChipInfo one;
    const ChipInfo other;
    EXPECT_TRUE( ChipInfo::isEq( &one, &other ) );
    EXPECT_EQ( one.name().view(), "" );
    EXPECT_EQ( one.first(), 0u );
    EXPECT_EQ( one.second(), 0u );
    EXPECT_EQ( one.third(), 0u );
}

TEST( ChipInfoTest, CopiesAreEqualAndEachMemberCounts ) {
    const ChipInfo chip( "chip", 1, 2, 3 );
    const ChipInfo copy = chip;
    EXPECT_TRUE( ChipInfo::isEq( &chip, &copy ) );
    for ( const ChipInfo & different :
          { ChipInfo( "chip2", 1, 2, 3 ), ChipInfo( "chip", 9, 2, 3 ), ChipInfo( "chip", 1, 9, 3 ),
            ChipInfo( "chip", 1, 2, 9 ) } )
        EXPECT_FALSE( ChipInfo::isEq( &chip, &different ) ) << different.toString();
    EXPECT_EQ( chip.toString(), "chip(1,2,3)" );
}

// --- HashMap2018

struct HN_Test {
    using Key = std::uint16_t;
    using Value = std::string;
};
using Map = Kiln::HashMap2018<HN_Test>;

std::vector<std::string> contents( const Map & map ) {
    std::vector<std::string> out;
    for ( auto element = map.begin(); element != map.end(); ++element )
        out.push_back( std::to_string( element->key ) + element->value );
    return out;
}

TEST( HashMapTest, FindsWhatWasSetAndNothingElse ) {
    Map map;
    EXPECT_TRUE( map.empty() );
    EXPECT_EQ( map.find( 5 ), map.end() );
    map.set( 5, "five" );
    map.set( 7, "seven" );
    EXPECT_EQ( map.size(), 2u );
    ASSERT_NE( map.find( 5 ), map.end() );
    EXPECT_EQ( map.find( 5 )->value, "five" );
    EXPECT_EQ( map.find( 6 ), map.end() );
}

TEST( HashMapTest, IteratesInTheOrderInWhichKeysWereFirstSet ) {
    Map map;
    for ( const int key : { 9, 1, 5, 3 } )
        map.set( static_cast<std::uint16_t>( key ), "a" );
    map.set( 1, "b" );
    EXPECT_EQ( contents( map ), ( std::vector<std::string>{ "9a", "1b", "5a", "3a" } ) );
}

TEST( HashMapTest, ErasesAtBothEndsAndInTheMiddle ) {
    Map map;
    for ( const int key : { 1, 2, 3, 4 } )
        map.set( static_cast<std::uint16_t>( key ), "" );
    EXPECT_TRUE( map.erase( 2 ) );
    EXPECT_FALSE( map.erase( 2 ) );
    EXPECT_EQ( contents( map ), ( std::vector<std::string>{ "1", "3", "4" } ) );
    EXPECT_TRUE( map.erase( 1 ) );
    EXPECT_TRUE( map.erase( 4 ) );
    EXPECT_EQ( contents( map ), ( std::vector<std::string>{ "3" } ) );
    EXPECT_TRUE( map.erase( 3 ) );
    EXPECT_EQ( map.begin(), map.end() );
    map.set( 8, "" );
    EXPECT_EQ( contents( map ), ( std::vector<std::string>{ "8" } ) );
}

TEST( HashMapTest, IteratorsSurviveChangesElsewhere ) {
    Map map;
    map.set( 1, "" );
    map.set( 2, "" );
    auto element = map.begin();
    map.erase( 2 );
    for ( int key = 3; key < 1000; ++key )
        map.set( static_cast<std::uint16_t>( key ), "" );
    EXPECT_EQ( element->key, 1 );
    EXPECT_EQ( ( ++element )->key, 3 );
}

TEST( HashMapDeathTest, DereferencingAnEmptyIteratorIsFatal ) {
    const Map map;
    EXPECT_EXIT( (void)*map.begin(), testing::KilledBySignal( SIGABRT ),
                 "Kiln/StdIterator:[0-9]+: .*: Assertion `iter_' failed\\.\n$" );
    EXPECT_EXIT( (void)++map.begin(), testing::KilledBySignal( SIGABRT ),
                 "Assertion `iter_' failed" );
}

// --- Fmt, Ptr

TEST( FmtTest, PutsTheNumberInPlace ) {
    EXPECT_STREQ( Kiln::_fmt( "IPOST_LAG_RAND_NUM_CTRL_%dr", 2 ).charPtr(),
                  "IPOST_LAG_RAND_NUM_CTRL_2r" );
    EXPECT_STREQ( Kiln::_fmt( "%d%%%d%s", -1 ).charPtr(), "-1%-1%s" );
    EXPECT_STREQ( Kiln::_fmt( "", 1 ).charPtr(), "" );
}

struct Counted : Nacre::PtrInterface {
    explicit Counted( int & alive ) : alive_( alive ) { ++alive_; }
    ~Counted() override { --alive_; }
    int & alive_;
};

TEST( PtrTest, ObjectLivesAsLongAsItsLastShare ) {
    int alive = 0;
    auto one = Nacre::make<Counted>( alive );
    {
        auto other = one;
        const Nacre::Ptr<Counted> moved = std::move( other );
        EXPECT_FALSE( other ); // NOLINT(bugprone-use-after-move): a share that was moved is empty
        one = nullptr;
        EXPECT_EQ( alive, 1 );
        EXPECT_EQ( moved.get(), moved.operator->() );
    }
    EXPECT_EQ( alive, 0 );
}

TEST( PtrTest, SharesMayBeCopiedOnSeveralThreads ) {
    int alive = 0;
    {
        const auto shared = Nacre::make<Counted>( alive );
        std::vector<std::thread> threads;
        for ( int i = 0; i < 4; ++i )
            threads.emplace_back( [shared] {
                for ( int k = 0; k < 1000; ++k )
                    const auto copy = shared; // NOLINT(performance-unnecessary-copy-initialization)
            } );
        for ( auto & thread : threads )
            thread.join();
    }
    EXPECT_EQ( alive, 0 );
}

// --- The shared state

TEST( SmDataTest, UnknownModuleIsTheDefaultRecord ) {
    const auto sm = Nacre::make<CairnCommonSmData>();
    const CairnModInfo info = sm->cairnModId( 9 );
    const ChipInfo noChip;
    EXPECT_EQ( info.name.view(), "" );
    EXPECT_TRUE( ChipInfo::isEq( &info.chip, &noChip ) );
    EXPECT_EQ( info.first, 0u );
    EXPECT_EQ( info.second, 0u );
    EXPECT_EQ( info.third, 64u );
    EXPECT_EQ( info.fourth, 512u );
    EXPECT_EQ( info.fifth, 128u );
}

TEST( SmDataTest, KnownModuleIsACopyOfAllMembers ) {
    const auto sm = Nacre::make<CairnCommonSmData>();
    sm->cairnModIds.set( 9, { "module", ChipInfo( "chip", 1, 2, 3 ), 4, 5, 6, 7, 8 } );
    const CairnModInfo info = sm->cairnModId( 9 );
    EXPECT_EQ( info.name.view(), "module" );
    EXPECT_EQ( info.chip.toString(), "chip(1,2,3)" );
    EXPECT_EQ( info.first, 4u );
    EXPECT_EQ( info.second, 5u );
    EXPECT_EQ( info.third, 6u );
    EXPECT_EQ( info.fourth, 7u );
    EXPECT_EQ( info.fifth, 8u );
}

TEST( SmDataTest, DefaultPortIsTheDocumentedOne ) {
    const CairnPort port;
    EXPECT_EQ( port.slot, 0xDEAD );
    EXPECT_EQ( port.unit, 0xFFFF );
    EXPECT_EQ( port.portId, 1023 );
    EXPECT_EQ( port.lane, 0 );
    EXPECT_EQ( Hardware::Cairn::TridentPortId().phyPortId, 0 );
}

// --- Profiles and stages

class ChipModelTest : public ::testing::Test {
  protected:
    ~ChipModelTest() override {
        CairnProfile::clearActiveChipProfiles();
        CairnCentral::clearBlockedStages();
        Nacre::setDebugAssertStops( false );
    }
    const ChipInfo chip{ "chip", 1, 2, 3 };
};

TEST_F( ChipModelTest, FeaturesAreFoundByTheirType ) {
    EXPECT_FALSE( CairnProfile::activeChipProfile( chip ) );
    const auto profile = Nacre::make<Asic::ChipProfile>();
    CairnProfile::setActiveChipProfile( chip, profile );
    EXPECT_EQ( CairnProfile::activeChipProfile( chip ).get(), profile.get() );
    EXPECT_FALSE( CairnProfile::activeChipProfile( ChipInfo( "other", 1, 2, 3 ) ) );
    EXPECT_FALSE( FeatureOf<CairnCentral::CairnChipAttributes>( *profile ) );
    profile->addFeature( Nacre::make<CairnCentral::CairnChipAttributes>( true ) );
    const FeatureOf<CairnCentral::CairnChipAttributes> attributes( *profile );
    ASSERT_TRUE( attributes );
    EXPECT_TRUE( ( *attributes ).hasRangeTableIndex() );
    EXPECT_FALSE( FeatureOf<CairnCommon::CairnCommonFeatureAttributes>( *profile ) );
}

// What hosts derive.
class OwnNumbering final : public CairnCommon::CairnCommonFeatureAttributes {
  public:
    OwnNumbering() : CairnCommonFeatureAttributes( 8 ) {}
    std::int32_t sysportFromModport( std::uint16_t modId, std::uint16_t port,
                                     std::uint32_t maxPorts ) const override {
        return static_cast<std::int32_t>( 1000u * modId + 10u * port + maxPorts );
    }
};
class OwnAttributes final : public CairnCentral::CairnChipAttributes {
  public:
    OwnAttributes() : CairnChipAttributes( true ) {}
};
class OwnFeature final : public Asic::Feature {};
class WrongFeature final : public Asic::Feature {
  public:
    const std::type_info & kilnType() const noexcept override {
        return typeid( CairnCommon::CairnCommonFeatureAttributes );
    }
};

TEST_F( ChipModelTest, SubclassOfAFeatureIsFoundAsThatFeature ) {
    const auto profile = Nacre::make<Asic::ChipProfile>();
    const auto attributes = Nacre::make<OwnAttributes>();
    const auto own = Nacre::make<OwnFeature>();
    profile->addFeature( attributes );
    profile->addFeature( own );
    EXPECT_EQ( profile->kilnTypeFeature( typeid( CairnCentral::CairnChipAttributes ) ).get(),
               attributes.get() );
    EXPECT_EQ( profile->kilnTypeFeature( typeid( OwnFeature ) ).get(), own.get() );
    EXPECT_FALSE( profile->kilnTypeFeature( typeid( OwnAttributes ) ) );
    EXPECT_TRUE( FeatureOf<CairnCentral::CairnChipAttributes>( *profile ) );
}

TEST_F( ChipModelTest, WhatIsNoSuchFeatureIsNotTakenForIt ) {
    const auto profile = Nacre::make<Asic::ChipProfile>();
    profile->addFeature( Nacre::make<WrongFeature>() );
    EXPECT_FALSE( FeatureOf<CairnCommon::CairnCommonFeatureAttributes>( *profile ) );
    CairnProfile::setActiveChipProfile( chip, profile );
    EXPECT_EQ( CairnCentral::SYSPORT_FROM_MODPORT( chip, 3, 5, 128 ), 773 );
}

// A host that keeps profiles elsewhere, and looks a feature up when it is asked.
class LateProfile final : public Asic::ChipProfile {
  public:
    Nacre::Ptr<Asic::Feature>
    kilnTypeFeature( const std::type_info & type ) const noexcept override {
        if ( type != typeid( CairnCentral::CairnChipAttributes ) )
            return nullptr;
        return Nacre::make<OwnAttributes>();
    }
};
class OwnProfiles final : public CairnProfile::ChipProfileService {
  public:
    Nacre::Ptr<Asic::ChipProfile> activeChipProfile( const ChipInfo & chipInfo ) noexcept override {
        asked = chipInfo.name().view();
        return Nacre::make<LateProfile>();
    }
    std::string asked;
};

TEST_F( ChipModelTest, HostsOwnServiceAnswersForTheProfiles ) {
    OwnProfiles service;
    CairnProfile::setActiveChipProfile( chip, Nacre::make<Asic::ChipProfile>() );
    EXPECT_EQ( CairnProfile::setChipProfileService( &service ), nullptr );
    const auto profile = CairnProfile::activeChipProfile( chip );
    EXPECT_EQ( service.asked, "chip" );
    EXPECT_TRUE( FeatureOf<CairnCentral::CairnChipAttributes>( *profile ) );
    EXPECT_FALSE( FeatureOf<CairnCommon::CairnCommonFeatureAttributes>( *profile ) );

    EXPECT_EQ( CairnProfile::setChipProfileService( nullptr ), &service );
    EXPECT_FALSE(
        FeatureOf<CairnCentral::CairnChipAttributes>( *CairnProfile::activeChipProfile( chip ) ) );
}

TEST_F( ChipModelTest, FeatureLivesWhileItIsLookedAt ) {
    auto profile = Nacre::make<Asic::ChipProfile>();
    profile->addFeature( Nacre::make<CairnCentral::CairnChipAttributes>( true ) );
    const FeatureOf<CairnCentral::CairnChipAttributes> attributes( *profile );
    profile = nullptr;
    EXPECT_TRUE( ( *attributes ).hasRangeTableIndex() );
}

TEST_F( ChipModelTest, StagesAreBlockedPerChipAndUnblockedOtherwise ) {
    constexpr BringupStage stage{ 55 };
    EXPECT_FALSE( isBlocked( chip, stage ) );
    EXPECT_TRUE( isUnblocked( chip, stage ) );
    CairnCentral::setStageBlocked( chip, stage, true );
    EXPECT_TRUE( isBlocked( chip, stage ) );
    EXPECT_FALSE( isUnblocked( chip, stage ) );
    EXPECT_FALSE( isBlocked( chip, BringupStage{ 56 } ) );
    EXPECT_FALSE( isBlocked( ChipInfo( "other", 1, 2, 3 ), stage ) );
    CairnCentral::setStageBlocked( chip, stage, false );
    EXPECT_FALSE( isBlocked( chip, stage ) );
}

// --- Numbering of system ports

using SysportTest = ChipModelTest;
using SysportDeathTest = ChipModelTest;
using CairnCentral::SYSPORT_FROM_MODPORT;

std::string reportsOf( const ChipInfo & chip, std::uint16_t modId, std::uint16_t port,
                       std::uint32_t maxPorts, std::int32_t expected ) {
    testing::internal::CaptureStderr();
    EXPECT_EQ( SYSPORT_FROM_MODPORT( chip, modId, port, maxPorts ), expected );
    return testing::internal::GetCapturedStderr();
}

TEST_F( SysportTest, WithoutProfileModuleThreePortFiveIs773 ) {
    EXPECT_EQ( reportsOf( chip, 3, 5, 128, 773 ), "" );
}

TEST_F( SysportTest, WithoutProfilePortZeroIsNumberedByMaxPorts ) {
    EXPECT_EQ( reportsOf( chip, 3, 0, 128, 896 ), "" );
}

TEST_F( SysportTest, WithoutProfileOnlyTheLowEightBitsOfThePortCount ) {
    EXPECT_EQ( reportsOf( chip, 3, 0x1FF, 128, 3 * 256 + 0xFF ), "" );
    EXPECT_EQ( reportsOf( chip, 3, 0x100, 128, 3 * 256 ), "" );
}

TEST_F( SysportTest, MoreThan255PortsAreReportedAndNumberedAllTheSame ) {
    EXPECT_EQ( reportsOf( chip, 3, 5, 256, 773 ),
               "CairnCommon/CairnCommonUtil:225 SYSPORT_FROM_MODPORT: maxPorts: 256invalid\n" );
    EXPECT_EQ( reportsOf( chip, 3, 0, 256, 3 * 256 | 256 ),
               "CairnCommon/CairnCommonUtil:225 SYSPORT_FROM_MODPORT: maxPorts: 256invalid\n" );
    EXPECT_EQ( reportsOf( chip, 3, 5, 255, 773 ), "" );
}

TEST_F( SysportTest, NoChipIsReportedAndNumberedAllTheSame ) {
    EXPECT_EQ( reportsOf( ChipInfo(), 3, 5, 128, 773 ),
               "CairnCommon/CairnCommonUtil:213 SYSPORT_FROM_MODPORT: chipInfo NULL\n" );
}

TEST_F( SysportTest, FeatureNumbersThePortsItself ) {
    const auto profile = Nacre::make<Asic::ChipProfile>();
    CairnProfile::setActiveChipProfile( chip, profile );
    // A profile without the feature numbers as no profile does, and checks as it does.
    EXPECT_NE( reportsOf( chip, 3, 5, 256, 773 ), "" );
    profile->addFeature( Nacre::make<CairnCommon::CairnCommonFeatureAttributes>( 10u ) );
    EXPECT_EQ( reportsOf( chip, 3, 5, 1024, 3 * 1024 + 5 ), "" );
    EXPECT_EQ( reportsOf( chip, 3, 0, 1024, 3 * 1024 ), "" );
}

TEST_F( SysportTest, SubclassOfTheFeatureNumbersThePortsItsWay ) {
    const auto profile = Nacre::make<Asic::ChipProfile>();
    CairnProfile::setActiveChipProfile( chip, profile );
    profile->addFeature( Nacre::make<OwnNumbering>() );
    EXPECT_EQ( reportsOf( chip, 3, 5, 1024, 3 * 1000 + 5 * 10 + 1024 ), "" );
}

TEST_F( SysportTest, HighestModuleKeepsItsBits ) {
    EXPECT_EQ( reportsOf( chip, 0xFFFF, 0xFF, 128, 0xFFFFFF ), "" );
    EXPECT_EQ( static_cast<std::uint32_t>( SYSPORT_FROM_MODPORT( chip, 0, 0, 0xFFFFFFFFu ) ),
               0xFFFFFFFFu );
}

TEST_F( SysportDeathTest, DebugAssertionStopsWhereTheHostWantsIt ) {
    Nacre::setDebugAssertStops( true );
    EXPECT_EXIT( SYSPORT_FROM_MODPORT( ChipInfo(), 3, 5, 128 ), testing::KilledBySignal( SIGABRT ),
                 "^CairnCommon/CairnCommonUtil:213 SYSPORT_FROM_MODPORT: chipInfo NULL\n$" );
    EXPECT_EXIT( SYSPORT_FROM_MODPORT( chip, 3, 5, 300 ), testing::KilledBySignal( SIGABRT ),
                 "^CairnCommon/CairnCommonUtil:225 SYSPORT_FROM_MODPORT: maxPorts: 300invalid\n$" );
}

} // namespace
