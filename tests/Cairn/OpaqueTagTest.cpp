#include "tests/support/RecipeTest.h"

#include "Cairn/CairnLtHelper.h"

#include <csignal>

namespace {

using namespace Support;

const Sim::RowId onlyRow;

class OpaqueTagTest : public RecipeTest {
  protected:
    std::optional<uint64_t> value( const char * table, const char * field ) {
        return chip().value( 0, table, onlyRow, field );
    }

    /// Gives a field of a register another width and the value it reads, from the next useSchema()
    /// on.
    void setField( const char * table, const char * name, uint32_t width, uint64_t powerOn ) {
        for ( auto & field : schema.find( table )->fields ) {
            if ( field.name == name ) {
                field.width = width;
                field.powerOn = powerOn;
            }
        }
    }

    Sim::Schema schema = Sim::referenceSchema();
};
using OpaqueTagDeathTest = OpaqueTagTest;

// The pairs whose recipes take nothing but the unit.

struct Pair {
    const char * table;
    void ( *set )( uint32_t );
    uint16_t ( *get )( uint32_t );
    const char * setPretty;
    const char * getPretty;
    Script setScript;
    Script getScript;
};

const Pair egress{
    "EGR_EPARS_OPAQUE_TAG_CONFIGr",
    Cairn::setOpaqueTagEgress,
    Cairn::getOpaqueTagEgress,
    "void Cairn::setOpaqueTagEgress(uint32_t)",
    "uint16_t Cairn::getOpaqueTagEgress(uint32_t)",
    Script(
        "setOpaqueTagEgress",
        {
            held( "BCMLT_INVALID_HDL" ),
            guarded( R"(bcmlt_entry_allocate( unit, "EGR_EPARS_OPAQUE_TAG_CONFIGr", &ent_hdl ))",
                     "allocate 0 EGR_EPARS_OPAQUE_TAG_CONFIGr" ),
            held( "BCMLT_INVALID_HDL" ),
            guarded( R"(bcmlt_entry_field_add( ent_hdl, "TAG_SIZE", 1 ))", "add TAG_SIZE = 1" ),
            guarded( R"(bcmlt_entry_field_add( ent_hdl, "VALID", 1 ))", "add VALID = 1" ),
            guarded( R"(bcmlt_entry_field_add( ent_hdl, "ETHERTYPE", 0x8100 ))",
                     "add ETHERTYPE = 33024" ),
            guarded(
                R"(bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_SET, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_PT_OPCODE_SET; pt_commit BCMLT_PT_OPCODE_SET" ),
            guarded( R"(bcmlt_entry_free( ent_hdl ))", "free" ),
        } ),
    Script(
        "getOpaqueTagEgress",
        {
            held( "BCMLT_INVALID_HDL" ),
            guarded( R"(bcmlt_entry_allocate( unit, "EGR_EPARS_OPAQUE_TAG_CONFIGr", &ent_hdl ))",
                     "allocate 0 EGR_EPARS_OPAQUE_TAG_CONFIGr" ),
            held( "BCMLT_INVALID_HDL" ),
            guarded(
                R"(bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_GET, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_PT_OPCODE_GET; pt_commit BCMLT_PT_OPCODE_GET" ),
            guarded( R"(bcmlt_entry_field_get( ent_hdl, "VALID", &val ))", "get VALID" ),
            guarded( R"(bcmlt_entry_field_get( ent_hdl, "TAG_SIZE", &val ))", "get TAG_SIZE" ),
            guarded( R"(bcmlt_entry_field_get( ent_hdl, "ETHERTYPE", &val ))", "get ETHERTYPE" ),
            guarded( R"(bcmlt_entry_free( ent_hdl ))", "free" ),
        } ) };

const Pair egressEfp{
    "EGR_EFPPARS_OPAQUE_TAG_CONFIGr",
    Cairn::setOpaqueTagEgressEfp,
    Cairn::getOpaqueTagEgressEfp,
    "void Cairn::setOpaqueTagEgressEfp(uint32_t)",
    "uint16_t Cairn::getOpaqueTagEgressEfp(uint32_t)",
    Script(
        "setOpaqueTagEgressEfp",
        {
            held( "BCMLT_INVALID_HDL" ),
            guarded( R"(bcmlt_entry_allocate( unit, "EGR_EFPPARS_OPAQUE_TAG_CONFIGr", &ent_hdl ))",
                     "allocate 0 EGR_EFPPARS_OPAQUE_TAG_CONFIGr" ),
            held( "BCMLT_INVALID_HDL" ),
            guarded( R"(bcmlt_entry_field_add( ent_hdl, "TAG_SIZE", 1 ))", "add TAG_SIZE = 1" ),
            guarded( R"(bcmlt_entry_field_add( ent_hdl, "VALID", 1 ))", "add VALID = 1" ),
            guarded( R"(bcmlt_entry_field_add( ent_hdl, "ETHERTYPE", 0x8100 ))",
                     "add ETHERTYPE = 33024" ),
            guarded(
                R"(bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_SET, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_PT_OPCODE_SET; pt_commit BCMLT_PT_OPCODE_SET" ),
            guarded( R"(bcmlt_entry_free( ent_hdl ))", "free" ),
        } ),
    Script(
        "getOpaqueTagEgressEfp",
        {
            held( "BCMLT_INVALID_HDL" ),
            guarded( R"(bcmlt_entry_allocate( unit, "EGR_EFPPARS_OPAQUE_TAG_CONFIGr", &ent_hdl ))",
                     "allocate 0 EGR_EFPPARS_OPAQUE_TAG_CONFIGr" ),
            held( "BCMLT_INVALID_HDL" ),
            guarded(
                R"(bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_GET, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_PT_OPCODE_GET; pt_commit BCMLT_PT_OPCODE_GET" ),
            guarded( R"(bcmlt_entry_field_get( ent_hdl, "VALID", &val ))", "get VALID" ),
            guarded( R"(bcmlt_entry_field_get( ent_hdl, "TAG_SIZE", &val ))", "get TAG_SIZE" ),
            guarded( R"(bcmlt_entry_field_get( ent_hdl, "ETHERTYPE", &val ))", "get ETHERTYPE" ),
            guarded( R"(bcmlt_entry_free( ent_hdl ))", "free" ),
        } ) };

const Pair innerIngress{
    "INNER_L2_OPAQUE_TAG_CONFIGr",
    Cairn::setInnerOpaqueTagIngress,
    Cairn::getInnerOpaqueTagIngress,
    "void Cairn::setInnerOpaqueTagIngress(uint32_t)",
    "uint16_t Cairn::getInnerOpaqueTagIngress(uint32_t)",
    Script(
        "setInnerOpaqueTagIngress",
        {
            held( "BCMLT_INVALID_HDL" ),
            guarded( R"(bcmlt_entry_allocate( unit, "INNER_L2_OPAQUE_TAG_CONFIGr", &ent_hdl ))",
                     "allocate 0 INNER_L2_OPAQUE_TAG_CONFIGr" ),
            held( "BCMLT_INVALID_HDL" ),
            guarded( R"(bcmlt_entry_field_add( ent_hdl, "VALID", 1 ))", "add VALID = 1" ),
            guarded( R"(bcmlt_entry_field_add( ent_hdl, "ETHERTYPE", 0x8100 ))",
                     "add ETHERTYPE = 33024" ),
            guarded(
                R"(bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_SET, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_PT_OPCODE_SET; pt_commit BCMLT_PT_OPCODE_SET" ),
            guarded( R"(bcmlt_entry_free( ent_hdl ))", "free" ),
        } ),
    Script(
        "getInnerOpaqueTagIngress",
        {
            held( "BCMLT_INVALID_HDL" ),
            guarded( R"(bcmlt_entry_allocate( unit, "INNER_L2_OPAQUE_TAG_CONFIGr", &ent_hdl ))",
                     "allocate 0 INNER_L2_OPAQUE_TAG_CONFIGr" ),
            held( "BCMLT_INVALID_HDL" ),
            guarded(
                R"(bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_GET, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_PT_OPCODE_GET; pt_commit BCMLT_PT_OPCODE_GET" ),
            guarded( R"(bcmlt_entry_field_get( ent_hdl, "VALID", &val ))", "get VALID" ),
            guarded( R"(bcmlt_entry_field_get( ent_hdl, "ETHERTYPE", &val ))", "get ETHERTYPE" ),
            guarded( R"(bcmlt_entry_free( ent_hdl ))", "free" ),
        } ) };

const Pair innerEgress{
    "EGR_EPARS_INNER_L2_OPAQUE_TAG_CONFIGr",
    Cairn::setInnerOpaqueTagEgress,
    Cairn::getInnerOpaqueTagEgress,
    "void Cairn::setInnerOpaqueTagEgress(uint32_t)",
    "uint16_t Cairn::getInnerOpaqueTagEgress(uint32_t)",
    Script(
        "setInnerOpaqueTagEgress",
        {
            held( "BCMLT_INVALID_HDL" ),
            guarded(
                R"(bcmlt_entry_allocate( unit, "EGR_EPARS_INNER_L2_OPAQUE_TAG_CONFIGr", &ent_hdl ))",
                "allocate 0 EGR_EPARS_INNER_L2_OPAQUE_TAG_CONFIGr" ),
            held( "BCMLT_INVALID_HDL" ),
            guarded( R"(bcmlt_entry_field_add( ent_hdl, "VALID", 1 ))", "add VALID = 1" ),
            guarded( R"(bcmlt_entry_field_add( ent_hdl, "ETHERTYPE", 0x8100 ))",
                     "add ETHERTYPE = 33024" ),
            guarded(
                R"(bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_SET, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_PT_OPCODE_SET; pt_commit BCMLT_PT_OPCODE_SET" ),
            guarded( R"(bcmlt_entry_free( ent_hdl ))", "free" ),
        } ),
    Script(
        "getInnerOpaqueTagEgress",
        {
            held( "BCMLT_INVALID_HDL" ),
            guarded(
                R"(bcmlt_entry_allocate( unit, "EGR_EPARS_INNER_L2_OPAQUE_TAG_CONFIGr", &ent_hdl ))",
                "allocate 0 EGR_EPARS_INNER_L2_OPAQUE_TAG_CONFIGr" ),
            held( "BCMLT_INVALID_HDL" ),
            guarded(
                R"(bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_GET, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_PT_OPCODE_GET; pt_commit BCMLT_PT_OPCODE_GET" ),
            guarded( R"(bcmlt_entry_field_get( ent_hdl, "VALID", &val ))", "get VALID" ),
            guarded( R"(bcmlt_entry_field_get( ent_hdl, "ETHERTYPE", &val ))", "get ETHERTYPE" ),
            guarded( R"(bcmlt_entry_free( ent_hdl ))", "free" ),
        } ) };

const Pair epmod{
    "EGR_EPMOD_L2_OPAQUE_TAG_CONFIGr",
    Cairn::setInnerOpaqueTagEgressEpmod,
    Cairn::getInnerOpaqueTagEgressEpmod,
    "void Cairn::setInnerOpaqueTagEgressEpmod(uint32_t)",
    "uint16_t Cairn::getInnerOpaqueTagEgressEpmod(uint32_t)",
    Script(
        "setInnerOpaqueTagEgressEpmod",
        {
            held( "BCMLT_INVALID_HDL" ),
            guarded( R"(bcmlt_entry_allocate( unit, "EGR_EPMOD_L2_OPAQUE_TAG_CONFIGr", &ent_hdl ))",
                     "allocate 0 EGR_EPMOD_L2_OPAQUE_TAG_CONFIGr" ),
            held( "BCMLT_INVALID_HDL" ),
            guarded( R"(bcmlt_entry_field_add( ent_hdl, "ETHERTYPE", 0x8100 ))",
                     "add ETHERTYPE = 33024" ),
            guarded(
                R"(bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_SET, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_PT_OPCODE_SET; pt_commit BCMLT_PT_OPCODE_SET" ),
            guarded( R"(bcmlt_entry_free( ent_hdl ))", "free" ),
        } ),
    Script(
        "getInnerOpaqueTagEgressEpmod",
        {
            held( "BCMLT_INVALID_HDL" ),
            guarded( R"(bcmlt_entry_allocate( unit, "EGR_EPMOD_L2_OPAQUE_TAG_CONFIGr", &ent_hdl ))",
                     "allocate 0 EGR_EPMOD_L2_OPAQUE_TAG_CONFIGr" ),
            held( "BCMLT_INVALID_HDL" ),
            guarded(
                R"(bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_GET, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_PT_OPCODE_GET; pt_commit BCMLT_PT_OPCODE_GET" ),
            guarded( R"(bcmlt_entry_field_get( ent_hdl, "ETHERTYPE", &val ))", "get ETHERTYPE" ),
            guarded( R"(bcmlt_entry_free( ent_hdl ))", "free" ),
        } ) };

const Pair * const pairs[] = { &egress, &egressEfp, &innerIngress, &innerEgress, &epmod };

// The pair with a tag type.

constexpr char taggedTable[] = "OPAQUE_TAG_CONFIGr";
constexpr char setTaggedPretty[] = "void Cairn::setOpaqueTagIngress(uint32_t, uint8_t)";
constexpr char getTaggedPretty[] = "uint16_t Cairn::getOpaqueTagIngress(uint32_t, uint8_t)";

const Script setTaggedScript(
    "setOpaqueTagIngress",
    {
        held( "BCMLT_INVALID_HDL" ),
        guarded( R"(bcmlt_entry_allocate( unit, "OPAQUE_TAG_CONFIGr", &ent_hdl ))",
                 "allocate 0 OPAQUE_TAG_CONFIGr" ),
        held( "BCMLT_INVALID_HDL" ),
        guarded( R"(bcmlt_entry_field_add( ent_hdl, "TAG_SIZE", 1 ))", "add TAG_SIZE = 1" ),
        guarded( R"(bcmlt_entry_field_add( ent_hdl, "OPAQUE_TAG_TYPE", tagType ))",
                 "add OPAQUE_TAG_TYPE = 255" ),
        guarded( R"(bcmlt_entry_field_add( ent_hdl, "VALID", 1 ))", "add VALID = 1" ),
        guarded( R"(bcmlt_entry_field_add( ent_hdl, "ETHERTYPE", 0x8100 ))",
                 "add ETHERTYPE = 33024" ),
        guarded( R"(bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_SET, BCMLT_PRIORITY_NORMAL ))",
                 "BCMLT_PRIORITY_NORMAL; BCMLT_PT_OPCODE_SET; pt_commit BCMLT_PT_OPCODE_SET" ),
        guarded( R"(bcmlt_entry_free( ent_hdl ))", "free" ),
    } );

const Script setUntaggedScript(
    "setOpaqueTagIngress",
    {
        held( "BCMLT_INVALID_HDL" ),
        guarded( R"(bcmlt_entry_allocate( unit, "OPAQUE_TAG_CONFIGr", &ent_hdl ))",
                 "allocate 3 OPAQUE_TAG_CONFIGr" ),
        held( "BCMLT_INVALID_HDL" ),
        guarded( R"(bcmlt_entry_field_add( ent_hdl, "TAG_SIZE", 1 ))", "add TAG_SIZE = 1" ),
        guarded( R"(bcmlt_entry_field_add( ent_hdl, "VALID", 1 ))", "add VALID = 1" ),
        guarded( R"(bcmlt_entry_field_add( ent_hdl, "ETHERTYPE", 0x8100 ))",
                 "add ETHERTYPE = 33024" ),
        guarded( R"(bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_SET, BCMLT_PRIORITY_NORMAL ))",
                 "BCMLT_PRIORITY_NORMAL; BCMLT_PT_OPCODE_SET; pt_commit BCMLT_PT_OPCODE_SET" ),
        guarded( R"(bcmlt_entry_free( ent_hdl ))", "free" ),
    } );

const Script getTaggedScript(
    "getOpaqueTagIngress",
    {
        held( "BCMLT_INVALID_HDL" ),
        guarded( R"(bcmlt_entry_allocate( unit, "OPAQUE_TAG_CONFIGr", &ent_hdl ))",
                 "allocate 0 OPAQUE_TAG_CONFIGr" ),
        held( "BCMLT_INVALID_HDL" ),
        guarded( R"(bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_GET, BCMLT_PRIORITY_NORMAL ))",
                 "BCMLT_PRIORITY_NORMAL; BCMLT_PT_OPCODE_GET; pt_commit BCMLT_PT_OPCODE_GET" ),
        guarded( R"(bcmlt_entry_field_get( ent_hdl, "VALID", &val ))", "get VALID" ),
        guarded( R"(bcmlt_entry_field_get( ent_hdl, "TAG_SIZE", &val ))", "get TAG_SIZE" ),
        guarded( R"(bcmlt_entry_field_get( ent_hdl, "OPAQUE_TAG_TYPE", &val ))",
                 "get OPAQUE_TAG_TYPE" ),
        guarded( R"(bcmlt_entry_field_get( ent_hdl, "ETHERTYPE", &val ))", "get ETHERTYPE" ),
        guarded( R"(bcmlt_entry_free( ent_hdl ))", "free" ),
    } );

TEST_F( OpaqueTagTest, SettersWriteTheFieldsOfTheirRegisterAndNothingElse ) {
    for ( const auto * pair : pairs ) {
        SCOPED_TRACE( pair->table );
        clearLog();
        pair->set( 0 );
        expectLog( pair->setScript );
    }
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( OpaqueTagTest, GettersReadTheFieldsOfTheirRegisterValidFirst ) {
    for ( const auto * pair : pairs ) {
        SCOPED_TRACE( pair->table );
        pair->set( 0 );
        clearLog();
        pair->get( 0 );
        expectLog( pair->getScript );
    }
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( OpaqueTagTest, GetterAfterItsSetterReturns0x8100 ) {
    for ( const auto * pair : pairs ) {
        SCOPED_TRACE( pair->table );
        pair->set( 3 );
        EXPECT_EQ( pair->get( 3 ), 0x8100 );
    }
    Cairn::setOpaqueTagIngress( 3, 9 );
    EXPECT_EQ( Cairn::getOpaqueTagIngress( 3, 9 ), 33024 );
}

TEST_F( OpaqueTagTest, TagTypeThatIsNotZeroIsTheSecondOfSevenGuardedCalls ) {
    Cairn::setOpaqueTagIngress( 0, 255 );
    expectLog( setTaggedScript );
    EXPECT_EQ( logOf( "preCallHook" ).size(), 7u );
    EXPECT_EQ( logOf( "ApiCairn/4" ).size(), 7u );
    EXPECT_EQ( value( taggedTable, "TAG_SIZE" ), 1u );
    EXPECT_EQ( value( taggedTable, "OPAQUE_TAG_TYPE" ), 255u );
    EXPECT_EQ( value( taggedTable, "VALID" ), 1u );
    EXPECT_EQ( value( taggedTable, "ETHERTYPE" ), 0x8100u );
}

TEST_F( OpaqueTagTest, TagTypeOfOneIsWritten ) {
    Cairn::setOpaqueTagIngress( 0, 1 );
    EXPECT_EQ( value( taggedTable, "OPAQUE_TAG_TYPE" ), 1u );
    EXPECT_EQ( Cairn::getOpaqueTagIngress( 0, 1 ), 0x8100 );
}

TEST_F( OpaqueTagTest, TagTypeOfZeroIsNotWrittenAndLeavesSixGuardedCalls ) {
    Cairn::setOpaqueTagIngress( 3, 0 );
    expectLog( setUntaggedScript );
    EXPECT_EQ( logOf( "preCallHook" ).size(), 6u );
    EXPECT_EQ( logOf( "ApiCairn/4" ).size(), 6u );
}

TEST_F( OpaqueTagTest, TagTypeIsReadAndComparedAfterTheTagSize ) {
    Cairn::setOpaqueTagIngress( 0, 255 );
    clearLog();
    EXPECT_EQ( Cairn::getOpaqueTagIngress( 0, 255 ), 0x8100 );
    expectLog( getTaggedScript );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( OpaqueTagTest, TagTypeOfZeroIsReadToo ) {
    Cairn::setOpaqueTagIngress( 0, 0 );
    clearLog();
    EXPECT_EQ( Cairn::getOpaqueTagIngress( 0, 0 ), 0x8100 );
    expectLog( getTaggedScript );
}

TEST_F( OpaqueTagTest, OnlyTheLowSixteenBitsOfAWiderEthertypeAreReturned ) {
    setField( "EGR_EPMOD_L2_OPAQUE_TAG_CONFIGr", "ETHERTYPE", 64, 0xFFFF'0001'0000'88A8 );
    setField( "INNER_L2_OPAQUE_TAG_CONFIGr", "ETHERTYPE", 32, 0xABCD'1234 );
    setField( "INNER_L2_OPAQUE_TAG_CONFIGr", "VALID", 1, 1 );
    useSchema( schema );
    EXPECT_EQ( Cairn::getInnerOpaqueTagEgressEpmod( 0 ), 0x88A8 );
    EXPECT_EQ( Cairn::getInnerOpaqueTagIngress( 0 ), 0x1234 );
}

TEST_F( OpaqueTagTest, EgressModifierGetterNeverStopsOnAValue ) {
    EXPECT_EQ( Cairn::getInnerOpaqueTagEgressEpmod( 0 ), 0xA5A5 );
    expectLog( epmod.getScript );
}

TEST_F( OpaqueTagTest, NoRecipeWritesAMessage ) {
    for ( const auto * pair : pairs ) {
        pair->set( 0 );
        pair->get( 0 );
    }
    Cairn::setOpaqueTagIngress( 0, 7 );
    Cairn::getOpaqueTagIngress( 0, 7 );
    EXPECT_TRUE( logOf( "CairnLtHelper" ).empty() );
}

TEST_F( OpaqueTagDeathTest, EachCallOfASetterStopsTheProcess ) {
    for ( const auto * pair : pairs )
        expectEachFailureToStop( pair->setScript, pair->setPretty, [&] { pair->set( 0 ); } );
    expectEachFailureToStop( setTaggedScript, setTaggedPretty,
                             [] { Cairn::setOpaqueTagIngress( 0, 255 ); } );
    expectEachFailureToStop( setUntaggedScript, setTaggedPretty,
                             [] { Cairn::setOpaqueTagIngress( 3, 0 ); } );
}

TEST_F( OpaqueTagDeathTest, EachCallOfAGetterStopsTheProcess ) {
    for ( const auto * pair : pairs ) {
        pair->set( 0 );
        expectEachFailureToStop( pair->getScript, pair->getPretty, [&] { pair->get( 0 ); } );
    }
    Cairn::setOpaqueTagIngress( 0, 255 );
    expectEachFailureToStop( getTaggedScript, getTaggedPretty,
                             [] { Cairn::getOpaqueTagIngress( 0, 255 ); } );
}

TEST_F( OpaqueTagDeathTest, EveryRecipeStopsWhenTheAllocateLeavesTheHandleInvalid ) {
    for ( const auto * pair : pairs ) {
        expectHandleAssertion( pair->setPretty, [&] { pair->set( 0 ); } );
        expectHandleAssertion( pair->getPretty, [&] { pair->get( 0 ); } );
    }
    expectHandleAssertion( setTaggedPretty, [] { Cairn::setOpaqueTagIngress( 0, 255 ); } );
    expectHandleAssertion( getTaggedPretty, [] { Cairn::getOpaqueTagIngress( 0, 255 ); } );
}

TEST_F( OpaqueTagDeathTest, GetterOfARegisterThatWasNeverSetStopsRightAfterReadingValid ) {
    const auto expectStop = [this]( const char * pretty, const std::function<void()> & get ) {
        const auto stop = stopOf( get );
        expectAssertion( stop, "val == 1", pretty );
        EXPECT_EQ( stop.count( "get VALID" ), 1 );
        EXPECT_EQ( stop.count( "get " ), 1 );
    };
    for ( const auto * pair : { &egress, &egressEfp, &innerIngress, &innerEgress } )
        expectStop( pair->getPretty, [&] { pair->get( 0 ); } );
    expectStop( getTaggedPretty, [] { Cairn::getOpaqueTagIngress( 0, 0 ); } );
}

TEST_F( OpaqueTagDeathTest, ValidMustBeExactlyOne ) {
    setField( "INNER_L2_OPAQUE_TAG_CONFIGr", "VALID", 64, 0x1'0000'0001 );
    useSchema( schema );
    const auto stop = stopOf( [] { Cairn::getInnerOpaqueTagIngress( 0 ); } );
    expectAssertion( stop, "val == 1", innerIngress.getPretty );
}

TEST_F( OpaqueTagDeathTest, TagSizeOtherThanOneStopsAfterItsRead ) {
    for ( const char * table : { taggedTable, egress.table, egressEfp.table } ) {
        setField( table, "VALID", 1, 1 );
        setField( table, "TAG_SIZE", 2, 2 );
    }
    useSchema( schema );
    const auto expectStop = [this]( const char * pretty, const std::function<void()> & get ) {
        const auto stop = stopOf( get );
        expectAssertion( stop, "val == 1", pretty );
        EXPECT_EQ( stop.count( "get TAG_SIZE" ), 1 );
        EXPECT_EQ( stop.count( "get " ), 2 );
    };
    for ( const auto * pair : { &egress, &egressEfp } )
        expectStop( pair->getPretty, [&] { pair->get( 0 ); } );
    expectStop( getTaggedPretty, [] { Cairn::getOpaqueTagIngress( 0, 0 ); } );
}

TEST_F( OpaqueTagDeathTest, DifferentTagTypeStopsBeforeTheEthertypeIsRead ) {
    Cairn::setOpaqueTagIngress( 0, 7 );
    const auto stop = stopOf( [] { Cairn::getOpaqueTagIngress( 0, 5 ); } );
    expectAssertion( stop, "val == tagType", getTaggedPretty );
    EXPECT_EQ( stop.count( "get OPAQUE_TAG_TYPE" ), 1 );
    EXPECT_EQ( stop.count( "get ETHERTYPE" ), 0 );
}

TEST_F( OpaqueTagDeathTest, TagTypeOfZeroMustBeReadBackAsZero ) {
    Cairn::setOpaqueTagIngress( 0, 7 );
    const auto stop = stopOf( [] { Cairn::getOpaqueTagIngress( 0, 0 ); } );
    expectAssertion( stop, "val == tagType", getTaggedPretty );
}

TEST_F( OpaqueTagDeathTest, TagTypeIsComparedOverAllBits ) {
    setField( taggedTable, "VALID", 1, 1 );
    setField( taggedTable, "TAG_SIZE", 2, 1 );
    setField( taggedTable, "OPAQUE_TAG_TYPE", 64, 0x1'0000'0005 );
    useSchema( schema );
    const auto stop = stopOf( [] { Cairn::getOpaqueTagIngress( 0, 5 ); } );
    expectAssertion( stop, "val == tagType", getTaggedPretty );
}

} // namespace
