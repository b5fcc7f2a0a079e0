#include "tests/support/RecipeTest.h"

#include "tests/support/TraceFiles.h"

#include "Cairn/CairnLtHelper.h"

#include <ChipModel/ChipProfile.h>
#include <Fleetlog/Format.h>
#include <Fleetlog/TraceHandle.h>
#include <Kiln/TraceSink.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <map>

// The recipes' messages in the ring: each descriptor as it stands in the file, and each value.

namespace {

using namespace Support;

/// One message: the format letters, the pieces with the recipe's name in front, and the values. A
/// value of HANDLE is the handle that was allocated just before.
struct Message {
    std::string letters;
    std::vector<std::string> pieces;
    std::vector<std::string> values;

    bool operator==( const Message & ) const = default;
};

void PrintTo( const Message & message, std::ostream * out ) {
    *out << message.letters << ":";
    for ( const auto & piece : message.pieces )
        *out << " \"" << piece << "\"";
    for ( const auto & value : message.values )
        *out << " " << value;
}

/// The pieces of each site of a trace file, by the site's identifier.
std::map<uint32_t, std::vector<std::string>> piecesOf( const std::string & path ) {
    const auto bytes = contentOf( path );
    const auto take = [&]( auto & value, size_t at ) {
        std::memcpy( &value, bytes.data() + at, sizeof value );
    };
    Fleetlog::Format::FileHeader file;
    take( file, 0 );
    std::map<uint32_t, std::vector<std::string>> sites;
    for ( size_t at = file.headerBytes; at < file.headerBytes + file.descriptorBytes; ) {
        Fleetlog::Format::DescriptorHeader descriptor;
        take( descriptor, at );
        if ( descriptor.size == 0 )
            break;
        std::vector<std::string> texts; // the source file, the letters, the pieces
        for ( size_t text = at + sizeof descriptor; texts.size() < descriptor.pieceCount + 2; ) {
            uint16_t length;
            take( length, text );
            text += sizeof length;
            texts.emplace_back( reinterpret_cast<const char *>( bytes.data() ) + text, length );
            text += length;
        }
        sites[descriptor.id] = { texts.begin() + 2, texts.end() };
        at += descriptor.size;
    }
    return sites;
}

class RingRecordTest : public RecipeTest {
  protected:
    RingRecordTest() {
        Fleetlog::openDefault( { .directory = directory_.path(),
                                 .ringBytes = 1 << 16,
                                 .descriptorBytes = 1 << 14,
                                 .timestamps = Fleetlog::Timestamps::none } );
        file_ = std::make_unique<TraceReader::File>( directory_.file() );
        auto profile = Nacre::make<Asic::ChipProfile>();
        profile->addFeature( Nacre::make<CairnCentral::CairnChipAttributes>( false ) );
        CairnProfile::setActiveChipProfile( chipInfo, profile );
    }
    ~RingRecordTest() override { Fleetlog::closeDefault(); }

    /// What was written to the ring since the last call.
    std::vector<Message> newMessages() {
        std::vector<Message> messages;
        file_->poll();
        const auto pieces = piecesOf( directory_.file() );
        TraceReader::Record record;
        while ( file_->next( record ) ) {
            EXPECT_NE( record.site, nullptr );
            if ( record.site == nullptr )
                continue;
            EXPECT_EQ( record.site->file, "Cairn/CairnLtHelper" );
            EXPECT_GT( record.site->line, 0u );
            Message message{ record.site->letters, pieces.at( record.id ), {} };
            std::vector<TraceReader::Value> values;
            TraceReader::decode( record, values );
            for ( const auto & value : values )
                message.values.push_back( value.letter == 'p' ? std::string( value.text )
                                                              : std::to_string( value.number ) );
            messages.push_back( message );
        }
        EXPECT_TRUE( file_->findings().empty() );
        return messages;
    }

    /// Runs `recipe` and wants just these messages in the ring.
    void expectMessages( const std::function<void()> & recipe, std::vector<Message> expected ) {
        size_t allocated = handles().size();
        recipe();
        for ( auto & message : expected )
            for ( auto & value : message.values )
                if ( value == "HANDLE" && allocated < handles().size() )
                    value = std::to_string( handles()[allocated++] );
        EXPECT_EQ( newMessages(), expected );
    }

    std::vector<std::string> files() const { return directory_.files(); }

    const CairnCentral::ChipInfo chipInfo{ "alpha", 1, 0, 0 };

  private:
    Directory directory_;
    std::unique_ptr<TraceReader::File> file_;
};

TEST_F( RingRecordTest, SystemPortMessages ) {
    expectMessages(
        [&] { Cairn::programL2IfIngSystemPortTable( chipInfo, 3, 65539, 5, 128, 65535, true ); },
        { { "iiiisb",
            { "programL2IfIngSystemPortTable", " system source: ", "%s", " unit: ", "%s",
              " modId: ", "%s", " port: ", "%s", " l2If: ", "%s", " op: ", "%s" },
            { "773", "3", "65539", "5", "65535", "1" } } } );
    expectMessages(
        [&] {
            (void)Cairn::verifyL2IfIngSystemPortTable( chipInfo, 3, 65539, 5, 128, 65535, true );
        },
        { { "iiiisb",
            { "verifyL2IfIngSystemPortTable", " system source: ", "%s", " unit: ", "%s",
              " modId: ", "%s", " port: ", "%s", " l2If: ", "%s", " op: ", "%s" },
            { "773", "3", "65539", "5", "65535", "1" } } } );
}

TEST_F( RingRecordTest, SystemPortMessagesOfAnAbsentMapping ) {
    expectMessages(
        [&] { Cairn::programL2IfIngSystemPortTable( chipInfo, 3, 4, 65542, 128, 7, false ); },
        { { "iiiisb",
            { "programL2IfIngSystemPortTable", " system source: ", "%s", " unit: ", "%s",
              " modId: ", "%s", " port: ", "%s", " l2If: ", "%s", " op: ", "%s" },
            { "1030", "3", "4", "65542", "7", "0" } },
          { "iii",
            { "programL2IfIngSystemPortTable", " Couldn't find h/w entry for system source: ", "%s",
              " unit: ", "%s", " port: ", "%s" },
            { "1030", "3", "65542" } } } );
    expectMessages(
        [&] { (void)Cairn::verifyL2IfIngSystemPortTable( chipInfo, 3, 4, 65542, 128, 7, false ); },
        { { "iiiisb",
            { "verifyL2IfIngSystemPortTable", " system source: ", "%s", " unit: ", "%s",
              " modId: ", "%s", " port: ", "%s", " l2If: ", "%s", " op: ", "%s" },
            { "1030", "3", "4", "65542", "7", "0" } },
          { "iii",
            { "verifyL2IfIngSystemPortTable", " Couldn't find h/w entry for system source: ", "%s",
              " unit: ", "%s", " port: ", "%s" },
            { "1030", "3", "65542" } } } );
}

TEST_F( RingRecordTest, SystemDestinationMessages ) {
    expectMessages(
        [&] {
            Cairn::programL2EifSystemDestinationTable( chipInfo, 3, 4, 5, 128, 65535, false, true );
        },
        { { "iiisbb",
            { "programL2EifSystemDestinationTable", " unit: ", "%s", " modId: ", "%s",
              " portOrLagId: ", "%s l2If: ", "%s", " lag: ", "%s", " op: ", "%s" },
            { "3", "4", "5", "65535", "0", "1" } },
          { "i",
            { "programL2EifSystemDestinationTable", " system source: ", "%s" },
            { "1029" } } } );
    expectMessages(
        [&] {
            Cairn::programL2EifSystemDestinationTable( chipInfo, 3, 4, 6, 128, 100, true, true );
        },
        { { "iiisbb",
            { "programL2EifSystemDestinationTable", " unit: ", "%s", " modId: ", "%s",
              " portOrLagId: ", "%s l2If: ", "%s", " lag: ", "%s", " op: ", "%s" },
            { "3", "4", "6", "100", "1", "1" } } } );
    expectMessages(
        [&] {
            (void)Cairn::verifyL2EifSystemDestinationTable( chipInfo, 3, 4, 6, 128, 100, true,
                                                            true );
        },
        { { "iiisbb",
            { "verifyL2EifSystemDestinationTable", " unit: ", "%s", " portOrLagId: ", "%s",
              " modId: ", "%s", " l2If: ", "%s", " lag: ", "%s", " op: ", "%s" },
            { "3", "6", "4", "100", "1", "1" } } } );
}

TEST_F( RingRecordTest, SystemDestinationMessagesOfAnAbsentDestination ) {
    expectMessages(
        [&] {
            Cairn::programL2EifSystemDestinationTable( chipInfo, 0, 4, 5, 128, 101, true, false );
        },
        { { "iiisbb",
            { "programL2EifSystemDestinationTable", " unit: ", "%s", " modId: ", "%s",
              " portOrLagId: ", "%s l2If: ", "%s", " lag: ", "%s", " op: ", "%s" },
            { "0", "4", "5", "101", "1", "0" } },
          { "s",
            { "programL2EifSystemDestinationTable",
              " Couldn't find h/w entry for l2_eif_id: ", "%s" },
            { "101" } } } );
    expectMessages(
        [&] {
            (void)Cairn::verifyL2EifSystemDestinationTable( chipInfo, 0, 4, 5, 128, 65535, false,
                                                            false );
        },
        { { "iiisbb",
            { "verifyL2EifSystemDestinationTable", " unit: ", "%s", " portOrLagId: ", "%s",
              " modId: ", "%s", " l2If: ", "%s", " lag: ", "%s", " op: ", "%s" },
            { "0", "5", "4", "65535", "0", "0" } },
          { "s",
            { "verifyL2EifSystemDestinationTable",
              " Couldn't find h/w entry for l2_eif_id: ", "%s" },
            { "65535" } } } );
}

TEST_F( RingRecordTest, StrengthProfileMessages ) {
    const struct {
        const char * name;
        void ( *set )( uint32_t );
    } profiles[] = {
        { "setDefip128StrengthProfile", Cairn::setDefip128StrengthProfile },
        { "setL3TnlOverlayEgrL3Oif1StrengthProfile",
          Cairn::setL3TnlOverlayEgrL3Oif1StrengthProfile },
        { "setL3TnlOverlayNhStrengthProfile", Cairn::setL3TnlOverlayNhStrengthProfile },
        { "setL3TnlOverlayEgrIpTnlStrengthProfile", Cairn::setL3TnlOverlayEgrIpTnlStrengthProfile },
        { "setL3TnlUnderlayIngNhStrengthProfile", Cairn::setL3TnlUnderlayIngNhStrengthProfile },
    };
    for ( const auto & profile : profiles )
        expectMessages( [&] { profile.set( 3 ); },
                        { { "ii",
                            { profile.name, " unit: ", "%s", " entry handle: ", "%s" },
                            { "3", "HANDLE" } } } );
}

TEST_F( RingRecordTest, MulticastStrengthMessages ) {
    expectMessages(
        [&] {
            Cairn::setMcastV6StrengthProfile( sharedState( { { 3, "alpha" } } ) );
        },
        { { "si",
            { "setMcastV6StrengthProfile", " unit: ", "%s", " entry handle: ", "%s" },
            { "3", "HANDLE" } },
          { "si",
            { "setMcastV6StrengthProfile", " unit: ", "%s", " entry handle: ", "%s" },
            { "3", "HANDLE" } } } );
}

TEST_F( RingRecordTest, MulticastStrengthMessagesOfTheHighestUnit ) {
    // The unit is 16 bits in the message, and all of them are ones.
    chip().addUnit( 65535, Sim::referenceSchema() );
    clearLog();
    const Message message{
        "si",
        { "setMcastV6StrengthProfile", " unit: ", "%s", " entry handle: ", "%s" },
        { "65535", "HANDLE" } };
    expectMessages(
        [&] {
            Cairn::setMcastV6StrengthProfile( sharedState( { { 65535, "alpha" } } ) );
        },
        { message, message } );
    const std::string text = "CairnLtHelper/2 setMcastV6StrengthProfile: "
                             "setMcastV6StrengthProfile unit: 65535 entry handle: HANDLE [held]";
    EXPECT_EQ( logOf( "CairnLtHelper" ), ( std::vector<std::string>{ text, text } ) );
    EXPECT_EQ( logOf( "allocate 65535 " ).size(), 2u );
}

TEST_F( RingRecordTest, MessagesAreInTheFileOfAProcessWhoseFirstCallFails ) {
    const struct {
        void ( *run )();
        const char * text;
    } recipes[] = {
        { [] { Cairn::programMonTraceCpu( 3, "L3_URPF_FAIL" ); },
          "programMonTraceCpu unit: 3 errorType: L3_URPF_FAIL" },
        { [] { Cairn::programPacketDropForMtuError( 3 ); },
          "programPacketDropForMtuError unit: 3" },
    };
    for ( const auto & recipe : recipes ) {
        const auto before = files();
        const auto stop = stopOf( [&] {
            inject( "op=allocate,rc=-3" );
            recipe.run();
        } );
        EXPECT_EQ( stop.signal, SIGABRT );
        EXPECT_EQ( stop.count( "allocate" ), 1 );
        EXPECT_EQ( stop.count( "failureHook" ), 1 );
        // The process that stopped has a file of its own.
        std::vector<std::string> found;
        for ( const auto & file : files() )
            if ( std::count( before.begin(), before.end(), file ) == 0 )
                found.push_back( file );
        ASSERT_EQ( found.size(), 1u );
        EXPECT_EQ( read( found.front() ).texts, std::vector<std::string>{ recipe.text } );
    }
}

TEST_F( RingRecordTest, MonitorEventMessages ) {
    expectMessages( [] { Cairn::programMonTraceCpu( 3, "L3_URPF_FAIL" ); },
                    { { "ip",
                        { "programMonTraceCpu", " unit: ", "%s", " errorType: ", "%s" },
                        { "3", "L3_URPF_FAIL" } } } );
    expectMessages( [] { Cairn::programPacketTraceForTtlError( 0 ); },
                    { { "ip",
                        { "programMonTraceCpu", " unit: ", "%s", " errorType: ", "%s" },
                        { "0", "L3_TTL_ERROR" } } } );
    expectMessages( [] { Cairn::programPacketDropForMtuError( 3 ); },
                    { { "i", { "programPacketDropForMtuError", " unit: ", "%s" }, { "3" } } } );
}

TEST_F( RingRecordTest, LoadBalanceSeedMessages ) {
    expectMessages( [] { Cairn::setLoadBalanceRandSeedCtrl( 0, 4294967295u ); },
                    { { "ii",
                        { "setLoadBalanceRandSeedCtrl", " unit: ", "%s", " seed: ", "%s" },
                        { "0", "4294967295" } } } );
    inject( "op=allocate,table=IPOST_LAG_RAND_NUM_CTRL_2r,rc=-3" );
    expectMessages(
        [] { Cairn::setLoadBalanceRandSeedCtrl( 0, 12345 ); },
        { { "ii",
            { "setLoadBalanceRandSeedCtrl", " unit: ", "%s", " seed: ", "%s" },
            { "0", "12345" } },
          { "i", { "setLoadBalanceRandSeedCtrl", " skipping register ", "%s" }, { "2" } } } );
    inject( "op=allocate,table=IPOST_LAG_RAND_NUM_SEED_1m,rc=-3" );
    expectMessages(
        [] { Cairn::setLoadBalanceRandSeedMem( 0, 12345 ); },
        { { "ii",
            { "setLoadBalanceRandSeedMem", " unit: ", "%s", " seed: ", "%s" },
            { "0", "12345" } },
          { "i", { "setLoadBalanceRandSeedMem", " skipping register ", "%s" }, { "1" } } } );
}

TEST_F( RingRecordTest, RegisterControlMessages ) {
    expectMessages( [] { Cairn::setEmRobustHashDisable( 3 ); },
                    { { "i", { "setEmRobustHashDisable", " unit: ", "%s" }, { "3" } } } );
    expectMessages(
        [] { Cairn::setFlexctrIngressCounterActionEnable( 3 ); },
        { { "i", { "setFlexctrIngressCounterActionEnable", " unit: ", "%s" }, { "3" } } } );
    expectMessages(
        [] { Cairn::setFlexctrEgressCounterActionEnable( 3 ); },
        { { "i", { "setFlexctrEgressCounterActionEnable", " unit: ", "%s" }, { "3" } } } );
    expectMessages( [] { Cairn::enable1BitEccRpt( 3, "ING_TUNNEL_ECN_DECAPm", true ); },
                    { { "iipb",
                        { "enable1BitEccRpt", " unit: ", "%s", " entry handle: ", "%s",
                          " mem: ", "%s", " enable: ", "%s" },
                        { "3", "HANDLE", "ING_TUNNEL_ECN_DECAPm", "1" } } } );
}

TEST_F( RingRecordTest, VlanXlateMissMessage ) {
    blockedStages = { 106 };
    expectMessages(
        [&] {
            Cairn::setVlanXlateMissDrop( sharedState( { { 3, "alpha" } } ) );
        },
        { { "s", { "setVlanXlateMissDrop", " unit: ", "%s" }, { "3" } } } );
}

TEST_F( RingRecordTest, RecordsAreWrittenWithAllLevelsOff ) {
    Kiln::traceOff();
    clearLog();
    expectMessages( [] { Cairn::setEmRobustHashDisable( 3 ); },
                    { { "i", { "setEmRobustHashDisable", " unit: ", "%s" }, { "3" } } } );
    EXPECT_TRUE( logOf( "CairnLtHelper" ).empty() );
}

TEST_F( RingRecordTest, PlainLinesHaveNoRecord ) {
    blockedStages = { 55 };
    auto loopback = sharedState( {} );
    loopback->cairnInternalRecircIntfToPort.set( Netbase::IntfId{ 7 },
                                                 CairnTypes::CairnPort{ 1, 0, 6, 0 } );
    expectMessages(
        [&] {
            Cairn::setMcastV6StrengthProfile( sharedState( { { 3, "alpha" } } ) );
            Cairn::setVxlanDecapAdaptLookup( 0, 17, true );
            (void)Cairn::getVxlanDecapAdaptLookup( 0, 17 );
            Cairn::setT4XVxlanDefaultNetworkSvp( 0 );
            Cairn::setT4XVxlanDefaultNetworkSvp( 0 );
            Cairn::lbPortInit( loopback );
        },
        {} );
    EXPECT_EQ( logOf( "CairnLtHelper/2" ).size(), 3u );
    EXPECT_EQ( logOf( "CairnLtHelper/3" ).size(), 2u );
    EXPECT_EQ( logOf( "CairnLtHelper/4" ).size(), 1u );
    EXPECT_EQ( logOf( "CairnLtHelper/8" ).size(), 1u );
    EXPECT_EQ( logOf( "CairnLtHelper/9" ).size(), 1u );
}

TEST_F( RingRecordTest, RecipesWithoutMessagesLeaveNoRecord ) {
    auto cpu = sharedState( {} );
    cpu->cairnCpuPortToIntf.set( CairnTypes::CairnPort{ 1, 0, 5, 0 }, Netbase::IntfId{ 7 } );
    expectMessages(
        [&] {
            Cairn::cpuPortInit( cpu );
            Cairn::setVxlanDefaultNetworkSvp( 0, 7 );
            Cairn::setVxlanUdpSourcePortSel( 0, 7 );
            Cairn::setEgrTunnelEcnEncap( 0, 5, 2 );
            Cairn::setIngTunnelEcnDecap( 0, 5, 2, true );
            Cairn::setOpaqueTagIngress( 0, 7 );
            (void)Cairn::getOpaqueTagIngress( 0, 7 );
            Cairn::setLearnCacheEnabled( 0, true );
            Cairn::setLearnCacheDropEnabled( 0, true );
            Cairn::mmuSpecialConfigInitPipe( 0, 5, true );
            Cairn::resetIngEnEfilterBitMap( 0, 128 );
        },
        {} );
}

TEST_F( RingRecordTest, RecordIsInTheRingBeforeTheLineIsWritten ) {
    std::vector<size_t> recordsAtLine;
    size_t records = 0;
    Kiln::traceToCallback( [&]( const Kiln::TraceLine & line ) {
        if ( line.facility != "CairnLtHelper" )
            return;
        records += newMessages().size();
        recordsAtLine.push_back( records );
    } );
    inject( "op=allocate,table=IPOST_LAG_RAND_NUM_CTRL_0r,rc=-3" );
    Cairn::setLoadBalanceRandSeedCtrl( 0, 12345 );  // two messages
    Cairn::setVxlanDecapAdaptLookup( 0, 17, true ); // a plain line
    Cairn::setDefip128StrengthProfile( 0 );
    EXPECT_EQ( recordsAtLine, ( std::vector<size_t>{ 1, 2, 2, 3 } ) );
}

} // namespace
