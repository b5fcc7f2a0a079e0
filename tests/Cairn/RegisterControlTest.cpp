#include "tests/support/RecipeTest.h"

#include "Cairn/CairnLtHelper.h"

#include <csignal>

namespace {

using namespace Support;

constexpr char mmuPretty[] = "void Cairn::mmuSpecialConfigInitPipe(uint32_t, uint32_t, bool)";
constexpr char bitmapPretty[] = "void Cairn::resetIngEnEfilterBitMap(uint32_t, uint32_t)";
constexpr char hashPretty[] = "void Cairn::setEmRobustHashDisable(uint32_t)";
constexpr char ingressPretty[] = "void Cairn::setFlexctrIngressCounterActionEnable(uint32_t)";
constexpr char egressPretty[] = "void Cairn::setFlexctrEgressCounterActionEnable(uint32_t)";
constexpr char eccPretty[] = "void Cairn::enable1BitEccRpt(uint32_t, const char*, bool)";

const Sim::RowId onlyRow;

class RegisterControlTest : public RecipeTest {
  protected:
    void useChipWithout( std::initializer_list<const char *> tables ) {
        auto schema = Sim::referenceSchema();
        for ( const char * table : tables )
            ASSERT_EQ( schema.remove( table ), "" );
        useSchema( schema );
    }
    std::optional<uint64_t> value( const char * table, const char * field,
                                   const Sim::RowId & row = onlyRow, uint32_t element = 0 ) {
        return chip().value( 0, table, row, field, element );
    }
};
using RegisterControlDeathTest = RegisterControlTest;

// --- Queue scheduler

const Script mmuScript(
    "mmuSpecialConfigInitPipe",
    {
        guarded( R"(bcmlt_entry_allocate( unit, "MMU_QSCH_SPECIAL_CONFIGr", &entryHdl ))",
                 "allocate 0 MMU_QSCH_SPECIAL_CONFIGr" ),
        guarded( R"(bcmlt_entry_field_add( entryHdl, "DISABLE_CMIC_COSMASK", 1 ))",
                 "add DISABLE_CMIC_COSMASK = 1" ),
        guarded( R"(bcmlt_entry_field_add( entryHdl, "BCMLT_PT_INDEX", 0x0 ))",
                 "add BCMLT_PT_INDEX = 0" ),
        guarded( R"(bcmlt_entry_field_add( entryHdl, "BCMLT_PT_INSTANCE", data_pipe ))",
                 "add BCMLT_PT_INSTANCE = 5" ),
        guarded(
            R"(bcmlt_pt_entry_commit( entryHdl, BCMLT_PT_OPCODE_MODIFY, BCMLT_PRIORITY_NORMAL ))",
            "BCMLT_PRIORITY_NORMAL; BCMLT_PT_OPCODE_MODIFY; pt_commit BCMLT_PT_OPCODE_MODIFY" ),
        guarded( R"(bcmlt_entry_free( entryHdl ))", "free" ),
    } );

const Script mmuThdoScript(
    "mmuSpecialConfigInitPipe",
    {
        guarded( R"(bcmlt_entry_allocate( unit, "MMU_QSCH_SPECIAL_CONFIGr", &entryHdl ))",
                 "allocate 0 MMU_QSCH_SPECIAL_CONFIGr" ),
        guarded( R"(bcmlt_entry_field_add( entryHdl, "DISABLE_CMIC_COSMASK", 1 ))",
                 "add DISABLE_CMIC_COSMASK = 1" ),
        guarded( R"(bcmlt_entry_field_add( entryHdl, "ENABLE_THDO_INFO", 0 ))",
                 "add ENABLE_THDO_INFO = 0" ),
        guarded( R"(bcmlt_entry_field_add( entryHdl, "BCMLT_PT_INDEX", 0x0 ))",
                 "add BCMLT_PT_INDEX = 0" ),
        guarded( R"(bcmlt_entry_field_add( entryHdl, "BCMLT_PT_INSTANCE", data_pipe ))",
                 "add BCMLT_PT_INSTANCE = 5" ),
        guarded(
            R"(bcmlt_pt_entry_commit( entryHdl, BCMLT_PT_OPCODE_MODIFY, BCMLT_PRIORITY_NORMAL ))",
            "BCMLT_PRIORITY_NORMAL; BCMLT_PT_OPCODE_MODIFY; pt_commit BCMLT_PT_OPCODE_MODIFY" ),
        guarded( R"(bcmlt_entry_free( entryHdl ))", "free" ),
    } );

Sim::RowId pipe( uint32_t instance ) {
    Sim::RowId row;
    row.instance = instance;
    return row;
}

constexpr char mmuTable[] = "MMU_QSCH_SPECIAL_CONFIGr";

TEST_F( RegisterControlTest, MmuConfigWithoutTheFlagIsSixCallsThatNeverNameThdoInfo ) {
    Cairn::mmuSpecialConfigInitPipe( 0, 5, false );
    expectLog( mmuScript );
    EXPECT_EQ( logOf( "preCallHook" ).size(), 6u );
    EXPECT_EQ( value( mmuTable, "DISABLE_CMIC_COSMASK", pipe( 5 ) ), 1u );
    EXPECT_EQ( value( mmuTable, "ENABLE_THDO_INFO", pipe( 5 ) ), 1u ); // as before
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( RegisterControlTest, MmuConfigWithTheFlagIsSevenCallsAndClearsThdoInfo ) {
    Cairn::mmuSpecialConfigInitPipe( 0, 5, true );
    expectLog( mmuThdoScript );
    EXPECT_EQ( logOf( "preCallHook" ).size(), 7u );
    EXPECT_EQ( value( mmuTable, "ENABLE_THDO_INFO", pipe( 5 ) ), 0u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( RegisterControlTest, MmuConfigKeepsOtherFieldsAndOtherPipes ) {
    Cairn::mmuSpecialConfigInitPipe( 0, 5, true );
    EXPECT_EQ( value( mmuTable, "REFRESH_TIMER", pipe( 5 ) ), 0xA5u );
    EXPECT_EQ( value( mmuTable, "ENABLE_THDO_INFO", pipe( 4 ) ), 1u );
    EXPECT_EQ( chip().rowCount( 0, mmuTable ), 1u );
}

TEST_F( RegisterControlTest, MmuConfigIsNeverSwitchedBackOn ) {
    Cairn::mmuSpecialConfigInitPipe( 0, 5, true );
    Cairn::mmuSpecialConfigInitPipe( 0, 5, false );
    EXPECT_EQ( value( mmuTable, "ENABLE_THDO_INFO", pipe( 5 ) ), 0u );
}

// --- Egress-filter bitmap

const Script bitmapScript(
    "resetIngEnEfilterBitMap",
    {
        guarded(
            R"(bcmlt_entry_allocate( unit, "ING_EN_EFILTER_BITMAPm", &IngEnEfilterBitmapEntry ))",
            "allocate 0 ING_EN_EFILTER_BITMAPm" ),
        guarded( R"(bcmlt_entry_field_add( IngEnEfilterBitmapEntry, "BCMLT_PT_INDEX", 0x0 ))",
                 "add BCMLT_PT_INDEX = 0" ),
        guarded(
            R"(bcmlt_entry_field_array_add( IngEnEfilterBitmapEntry, "BITMAP", 0, memfld_64, bitMapSize ))",
            "array BITMAP[0] = 0 0 count 2" ),
        guarded(
            R"(bcmlt_pt_entry_commit( IngEnEfilterBitmapEntry, BCMLT_PT_OPCODE_MODIFY, BCMLT_PRIORITY_NORMAL ))",
            "BCMLT_PRIORITY_NORMAL; BCMLT_PT_OPCODE_MODIFY; pt_commit BCMLT_PT_OPCODE_MODIFY" ),
        guarded( R"(bcmlt_entry_free( IngEnEfilterBitmapEntry ))", "free" ),
    } );

TEST_F( RegisterControlTest, BitmapWordsAreClearedInRowZeroAndTheOthersStay ) {
    Cairn::resetIngEnEfilterBitMap( 0, 128 );
    expectLog( bitmapScript );
    for ( uint32_t word = 0; word < 64; ++word )
        EXPECT_EQ( value( "ING_EN_EFILTER_BITMAPm", "BITMAP", onlyRow, word ),
                   word < 2 ? 0 : 0xA5A5'A5A5'A5A5'A5A5u )
            << word;
    EXPECT_EQ( chip().rowCount( 0, "ING_EN_EFILTER_BITMAPm" ), 1u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( RegisterControlTest, BitmapBitsBecomeWholeWordsOf64Bits ) {
    const struct {
        uint32_t bits;
        const char * operation;
    } table[] = {
        { 0, "array BITMAP[0] = count 0 [released]" },
        { 1, "array BITMAP[0] = 0 count 1 [released]" },
        { 63, "array BITMAP[0] = 0 count 1 [released]" },
        { 64, "array BITMAP[0] = 0 count 1 [released]" },
        { 65, "array BITMAP[0] = 0 0 count 2 [released]" },
        { 192, "array BITMAP[0] = 0 0 0 count 3 [released]" },
        { 193, "array BITMAP[0] = 0 0 0 0 count 4 [released]" },
    };
    for ( const auto & row : table ) {
        clearLog();
        Cairn::resetIngEnEfilterBitMap( 0, row.bits );
        EXPECT_EQ( logOf( "array" ), std::vector<std::string>{ row.operation } ) << row.bits;
    }
}

TEST_F( RegisterControlTest, LargestBitmapIsCleared ) {
    Cairn::resetIngEnEfilterBitMap( 0, 4096 );
    const auto arrays = logOf( "array BITMAP[0] = 0 0 0 " );
    ASSERT_EQ( arrays.size(), 1u );
    EXPECT_TRUE( arrays[0].ends_with( " 0 count 64 [released]" ) ) << arrays[0];
    for ( uint32_t word = 0; word < 64; ++word )
        EXPECT_EQ( value( "ING_EN_EFILTER_BITMAPm", "BITMAP", onlyRow, word ), 0u ) << word;
}

TEST_F( RegisterControlTest, WordsOfTheBitmapAreCountedIn32Bits ) {
    // The sum wraps to 62 bits, which are no word.
    Cairn::resetIngEnEfilterBitMap( 0, 4294967295u );
    EXPECT_EQ( logOf( "array" ),
               std::vector<std::string>{ "array BITMAP[0] = count 0 [released]" } );
}

// --- Robust hashing

void scriptHashMemory( Script & script, const char * table ) {
    script.add( {
        held( "BCMLT_INVALID_HDL" ),
        unchecked( R"(bcmlt_entry_allocate( unit, hashControl[ i ].c_str(), &entryHdl ))",
                   std::string( "allocate 0 " ) + table ),
        guarded( R"(bcmlt_entry_field_add( entryHdl, "ROBUST_HASH_EN", 0 ))",
                 "add ROBUST_HASH_EN = 0" ),
        guarded(
            R"(bcmlt_pt_entry_commit( entryHdl, BCMLT_PT_OPCODE_MODIFY, BCMLT_PRIORITY_NORMAL ))",
            "BCMLT_PRIORITY_NORMAL; BCMLT_PT_OPCODE_MODIFY; pt_commit BCMLT_PT_OPCODE_MODIFY" ),
        guarded( R"(bcmlt_entry_free( entryHdl ))", "free" ),
    } );
}

void scriptMissingHashMemory( Script & script, const char * table, int rc = -3 ) {
    script.add( {
        held( "BCMLT_INVALID_HDL" ),
        unchecked( R"(bcmlt_entry_allocate( unit, hashControl[ i ].c_str(), &entryHdl ))",
                   std::string( "allocate 0 " ) + table, rc ),
    } );
}

Script hashStart() {
    return Script( "setEmRobustHashDisable", {
                                                 line( 2, "setEmRobustHashDisable unit: 0" ),
                                                 held( "BCMLT_INVALID_HDL" ),
                                             } );
}

Script hashScript() {
    Script script = hashStart();
    scriptHashMemory( script, "EFTA30_E2T_00_HASH_CONTROLm" );
    scriptHashMemory( script, "EFTA30_E2T_01_HASH_CONTROLm" );
    scriptHashMemory( script, "IFTA30_E2T_00_HASH_CONTROLm" );
    scriptHashMemory( script, "IFTA40_E2T_00_HASH_CONTROLm" );
    scriptHashMemory( script, "IFTA40_E2T_01_HASH_CONTROLm" );
    return script;
}

TEST_F( RegisterControlTest, RobustHashIsSwitchedOffInAllFiveMemories ) {
    Cairn::setEmRobustHashDisable( 0 );
    expectLog( hashScript() );
    for ( const char * table : { "EFTA30_E2T_00_HASH_CONTROLm", "EFTA30_E2T_01_HASH_CONTROLm",
                                 "IFTA30_E2T_00_HASH_CONTROLm", "IFTA40_E2T_00_HASH_CONTROLm",
                                 "IFTA40_E2T_01_HASH_CONTROLm" } ) {
        EXPECT_EQ( value( table, "ROBUST_HASH_EN" ), 0u ) << table;
        EXPECT_EQ( value( table, "HASH_TABLE_BANK_CONFIG" ), 0xA5u ) << table;
    }
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( RegisterControlTest, ChipWithoutTheFirstTwoHashMemoriesGetsTheLastThreeSilently ) {
    useChipWithout( { "EFTA30_E2T_00_HASH_CONTROLm", "EFTA30_E2T_01_HASH_CONTROLm" } );
    Cairn::setEmRobustHashDisable( 0 );
    Script script = hashStart();
    scriptMissingHashMemory( script, "EFTA30_E2T_00_HASH_CONTROLm" );
    scriptMissingHashMemory( script, "EFTA30_E2T_01_HASH_CONTROLm" );
    scriptHashMemory( script, "IFTA30_E2T_00_HASH_CONTROLm" );
    scriptHashMemory( script, "IFTA40_E2T_00_HASH_CONTROLm" );
    scriptHashMemory( script, "IFTA40_E2T_01_HASH_CONTROLm" );
    expectLog( script );
    EXPECT_EQ( logOf( "CairnLtHelper" ).size(), 1u );
    EXPECT_EQ( chip().failureCount(), 0u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( RegisterControlTest, MissingMiddleAndLastHashMemoriesAreSkipped ) {
    useChipWithout( { "IFTA30_E2T_00_HASH_CONTROLm", "IFTA40_E2T_01_HASH_CONTROLm" } );
    Cairn::setEmRobustHashDisable( 0 );
    Script script = hashStart();
    scriptHashMemory( script, "EFTA30_E2T_00_HASH_CONTROLm" );
    scriptHashMemory( script, "EFTA30_E2T_01_HASH_CONTROLm" );
    scriptMissingHashMemory( script, "IFTA30_E2T_00_HASH_CONTROLm" );
    scriptHashMemory( script, "IFTA40_E2T_00_HASH_CONTROLm" );
    scriptMissingHashMemory( script, "IFTA40_E2T_01_HASH_CONTROLm" );
    expectLog( script );
}

TEST_F( RegisterControlTest, ChipWithoutHashMemoriesLeavesTheEntryMessageOnly ) {
    inject( "op=allocate,rc=-3,always" );
    Cairn::setEmRobustHashDisable( 0 );
    Script script = hashStart();
    scriptMissingHashMemory( script, "EFTA30_E2T_00_HASH_CONTROLm" );
    scriptMissingHashMemory( script, "EFTA30_E2T_01_HASH_CONTROLm" );
    scriptMissingHashMemory( script, "IFTA30_E2T_00_HASH_CONTROLm" );
    scriptMissingHashMemory( script, "IFTA40_E2T_00_HASH_CONTROLm" );
    scriptMissingHashMemory( script, "IFTA40_E2T_01_HASH_CONTROLm" );
    expectLog( script );
}

TEST_F( RegisterControlTest, PositiveAllocateCodeSkipsAHashMemoryToo ) {
    inject( "op=allocate,rc=2,at=4" );
    Cairn::setEmRobustHashDisable( 0 );
    Script script = hashStart();
    scriptHashMemory( script, "EFTA30_E2T_00_HASH_CONTROLm" );
    scriptHashMemory( script, "EFTA30_E2T_01_HASH_CONTROLm" );
    scriptHashMemory( script, "IFTA30_E2T_00_HASH_CONTROLm" );
    scriptMissingHashMemory( script, "IFTA40_E2T_00_HASH_CONTROLm", 2 );
    scriptHashMemory( script, "IFTA40_E2T_01_HASH_CONTROLm" );
    expectLog( script );
}

// --- Flex counters

const Script ingressScript(
    "setFlexctrIngressCounterActionEnable",
    {
        line( 2, "setFlexctrIngressCounterActionEnable unit: 0" ),
        held( "BCMLT_INVALID_HDL" ),
        guarded( R"(bcmlt_entry_allocate( unit, "FLEX_CTR_ING_COUNTER_ACTION_ENABLEr", &ent_hdl ))",
                 "allocate 0 FLEX_CTR_ING_COUNTER_ACTION_ENABLEr" ),
        held( "BCMLT_INVALID_HDL" ),
        guarded( R"(bcmlt_entry_field_add( ent_hdl, "BITMAP", 0xfffffffe ))",
                 "add BITMAP = 4294967294" ),
        guarded( R"(bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_SET, BCMLT_PRIORITY_NORMAL ))",
                 "BCMLT_PRIORITY_NORMAL; BCMLT_PT_OPCODE_SET; pt_commit BCMLT_PT_OPCODE_SET" ),
        guarded( R"(bcmlt_entry_free( ent_hdl ))", "free" ),
    } );

const Script egressScript(
    "setFlexctrEgressCounterActionEnable",
    {
        line( 2, "setFlexctrEgressCounterActionEnable unit: 0" ),
        held( "BCMLT_INVALID_HDL" ),
        guarded( R"(bcmlt_entry_allocate( unit, "FLEX_CTR_EGR_COUNTER_ACTION_ENABLEr", &ent_hdl ))",
                 "allocate 0 FLEX_CTR_EGR_COUNTER_ACTION_ENABLEr" ),
        held( "BCMLT_INVALID_HDL" ),
        guarded( R"(bcmlt_entry_field_add( ent_hdl, "BITMAP", 0xfffe ))", "add BITMAP = 65534" ),
        guarded( R"(bcmlt_pt_entry_commit( ent_hdl, BCMLT_PT_OPCODE_SET, BCMLT_PRIORITY_NORMAL ))",
                 "BCMLT_PRIORITY_NORMAL; BCMLT_PT_OPCODE_SET; pt_commit BCMLT_PT_OPCODE_SET" ),
        guarded( R"(bcmlt_entry_free( ent_hdl ))", "free" ),
    } );

TEST_F( RegisterControlTest, IngressFlexCountersEnableAllActionsOf32BitsButTheFirst ) {
    Cairn::setFlexctrIngressCounterActionEnable( 0 );
    expectLog( ingressScript );
    EXPECT_EQ( value( "FLEX_CTR_ING_COUNTER_ACTION_ENABLEr", "BITMAP" ), 0xFFFFFFFEu );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( RegisterControlTest, EgressFlexCountersEnableAllActionsOf16BitsButTheFirst ) {
    Cairn::setFlexctrEgressCounterActionEnable( 0 );
    expectLog( egressScript );
    EXPECT_EQ( value( "FLEX_CTR_EGR_COUNTER_ACTION_ENABLEr", "BITMAP" ), 0xFFFEu );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( RegisterControlTest, FlexCounterRegistersAreReplacedWhole ) {
    auto schema = Sim::referenceSchema();
    for ( const char * table :
          { "FLEX_CTR_ING_COUNTER_ACTION_ENABLEr", "FLEX_CTR_EGR_COUNTER_ACTION_ENABLEr" } ) {
        auto & fields = schema.find( table )->fields;
        fields.front().powerOn = 0x0001;
        fields.push_back( { .name = "OTHER", .width = 8, .symbols = {}, .powerOn = {} } );
    }
    useSchema( schema );
    Cairn::setFlexctrIngressCounterActionEnable( 0 );
    Cairn::setFlexctrEgressCounterActionEnable( 0 );
    EXPECT_EQ( value( "FLEX_CTR_ING_COUNTER_ACTION_ENABLEr", "BITMAP" ), 0xFFFFFFFEu );
    EXPECT_EQ( value( "FLEX_CTR_ING_COUNTER_ACTION_ENABLEr", "OTHER" ), 0u );
    EXPECT_EQ( value( "FLEX_CTR_EGR_COUNTER_ACTION_ENABLEr", "BITMAP" ), 0xFFFEu );
    EXPECT_EQ( value( "FLEX_CTR_EGR_COUNTER_ACTION_ENABLEr", "OTHER" ), 0u );
}

// --- Single-bit ECC errors

Script eccScript( const char * enable, const char * operation ) {
    const std::string message = std::string( "enable1BitEccRpt unit: 0 entry handle: HANDLE"
                                             " mem: ING_TUNNEL_ECN_DECAPm enable: " ) +
                                enable;
    return Script(
        "enable1BitEccRpt",
        {
            held( "BCMLT_INVALID_HDL" ),
            guarded( R"(bcmlt_entry_allocate( unit, "SER_PT_CONTROL", &serPtCtrEntry ))",
                     "allocate 0 SER_PT_CONTROL" ),
            line( 2, message ),
            guarded( R"(bcmlt_entry_field_symbol_add( serPtCtrEntry, "PT_ID", mem ))",
                     "symbol PT_ID = ING_TUNNEL_ECN_DECAPm" ),
            guarded( R"(bcmlt_entry_field_add( serPtCtrEntry, "REPORT_SINGLE_BIT_ECC", val ))",
                     operation ),
            guarded(
                R"(bcmlt_entry_commit( serPtCtrEntry, BCMLT_OPCODE_UPDATE, BCMLT_PRIORITY_NORMAL ))",
                "BCMLT_PRIORITY_NORMAL; BCMLT_OPCODE_UPDATE; commit BCMLT_OPCODE_UPDATE" ),
            guarded( R"(bcmlt_entry_free( serPtCtrEntry ))", "free" ),
        } );
}

class EccReportTest : public RegisterControlTest {
  protected:
    std::optional<uint64_t> report( const char * memory, const char * field ) {
        Sim::RowId row;
        row.key = { chip()
                        .schema( 0 )
                        ->find( "SER_PT_CONTROL" )
                        ->find( "PT_ID" )
                        ->findSymbol( memory )
                        ->value };
        return value( "SER_PT_CONTROL", field, row );
    }
};

TEST_F( EccReportTest, ReportIsSwitchedOnForTheNamedMemoryOnly ) {
    Cairn::enable1BitEccRpt( 0, "ING_TUNNEL_ECN_DECAPm", true );
    expectLog( eccScript( "true", "add REPORT_SINGLE_BIT_ECC = 1" ) );
    EXPECT_EQ( report( "ING_TUNNEL_ECN_DECAPm", "REPORT_SINGLE_BIT_ECC" ), 1u );
    EXPECT_EQ( report( "ING_TUNNEL_ECN_DECAPm", "SCAN_MODE" ), 0x5u ); // as before
    EXPECT_EQ( report( "EGR_TUNNEL_ECN_ENCAPm", "REPORT_SINGLE_BIT_ECC" ), 0u );
    EXPECT_EQ( chip().liveEntryCount(), 0u );
}

TEST_F( EccReportTest, ReportIsSwitchedOffWithAnUpdateToZero ) {
    Cairn::enable1BitEccRpt( 0, "ING_TUNNEL_ECN_DECAPm", true );
    clearLog();
    Cairn::enable1BitEccRpt( 0, "ING_TUNNEL_ECN_DECAPm", false );
    expectLog( eccScript( "false", "add REPORT_SINGLE_BIT_ECC = 0" ) );
    EXPECT_EQ( report( "ING_TUNNEL_ECN_DECAPm", "REPORT_SINGLE_BIT_ECC" ), 0u );
}

// --- Messages

TEST_F( RegisterControlTest, MessagesComeAtLevelTwo ) {
    expectMessagesAtTheirLevels( hashScript(), [] { Cairn::setEmRobustHashDisable( 0 ); } );
    expectMessagesAtTheirLevels( ingressScript,
                                 [] { Cairn::setFlexctrIngressCounterActionEnable( 0 ); } );
    expectMessagesAtTheirLevels( egressScript,
                                 [] { Cairn::setFlexctrEgressCounterActionEnable( 0 ); } );
    expectMessagesAtTheirLevels( eccScript( "true", "" ), [] {
        Cairn::enable1BitEccRpt( 0, "ING_TUNNEL_ECN_DECAPm", true );
    } );
    expectMessagesAtTheirLevels( mmuScript,
                                 [] { Cairn::mmuSpecialConfigInitPipe( 0, 5, false ); } );
    expectMessagesAtTheirLevels( bitmapScript, [] { Cairn::resetIngEnEfilterBitMap( 0, 128 ); } );
}

// --- Stops

TEST_F( RegisterControlDeathTest, EachCallOfTheMmuConfigAndTheBitmapStopsTheProcess ) {
    expectEachFailureToStop( mmuScript, mmuPretty,
                             [] { Cairn::mmuSpecialConfigInitPipe( 0, 5, false ); } );
    expectEachFailureToStop( mmuThdoScript, mmuPretty,
                             [] { Cairn::mmuSpecialConfigInitPipe( 0, 5, true ); } );
    expectEachFailureToStop( bitmapScript, bitmapPretty,
                             [] { Cairn::resetIngEnEfilterBitMap( 0, 128 ); } );
}

TEST_F( RegisterControlDeathTest, EachCallOfTheRobustHashButTheAllocatesStopsTheProcess ) {
    expectEachFailureToStop( hashScript(), hashPretty, [] { Cairn::setEmRobustHashDisable( 0 ); } );
}

TEST_F( RegisterControlDeathTest, EachCallOfTheFlexCountersAndTheEccReportStopsTheProcess ) {
    expectEachFailureToStop( ingressScript, ingressPretty,
                             [] { Cairn::setFlexctrIngressCounterActionEnable( 0 ); } );
    expectEachFailureToStop( egressScript, egressPretty,
                             [] { Cairn::setFlexctrEgressCounterActionEnable( 0 ); } );
    expectEachFailureToStop( eccScript( "true", "add REPORT_SINGLE_BIT_ECC = 1" ), eccPretty,
                             [] { Cairn::enable1BitEccRpt( 0, "ING_TUNNEL_ECN_DECAPm", true ); } );
}

TEST_F( RegisterControlDeathTest, FlexCountersStopWhenTheAllocateLeavesTheHandleInvalid ) {
    expectHandleAssertion( ingressPretty,
                           [] { Cairn::setFlexctrIngressCounterActionEnable( 0 ); } );
    expectHandleAssertion( egressPretty, [] { Cairn::setFlexctrEgressCounterActionEnable( 0 ); } );
}

TEST_F( RegisterControlDeathTest, PipeThatTheChipDoesNotHaveReachesTheSdkUnchanged ) {
    const auto stop = stopOf( [] { Cairn::mmuSpecialConfigInitPipe( 0, 4294967295u, true ); } );
    EXPECT_EQ( stop.signal, SIGABRT );
    EXPECT_EQ( stop.count( "add BCMLT_PT_INSTANCE = 4294967295 " ), 1 );
}

TEST_F( RegisterControlDeathTest, EccReportOfAMemoryThatTheSdkDoesNotKnowStopsAtTheSymbol ) {
    const auto stop = stopOf( [] { Cairn::enable1BitEccRpt( 0, "NO_SUCH_%s_MEMm", true ); } );
    EXPECT_EQ( stop.standardError,
               Support::report( R"(bcmlt_entry_field_symbol_add( serPtCtrEntry, "PT_ID", mem ))",
                                chip().errmsg( -5 ), -5, eccPretty ) );
    EXPECT_EQ( stop.count( "CairnLtHelper/2 enable1BitEccRpt: enable1BitEccRpt unit: 0"
                           " entry handle: HANDLE mem: NO_SUCH_%s_MEMm enable: true [held]" ),
               1 );
}

TEST_F( RegisterControlDeathTest, EccReportOfAMemoryWithoutARowStopsAtTheUpdate ) {
    ASSERT_EQ( chip().clear( 0 ), Sim::Rc::ok );
    const auto stop = stopOf( [] { Cairn::enable1BitEccRpt( 0, "ING_TUNNEL_ECN_DECAPm", true ); } );
    EXPECT_EQ(
        stop.standardError,
        Support::report(
            R"(bcmlt_entry_commit( serPtCtrEntry, BCMLT_OPCODE_UPDATE, BCMLT_PRIORITY_NORMAL ))",
            chip().errmsg( -27 ), -27, eccPretty ) );
    EXPECT_EQ( stop.count( "commit BCMLT_OPCODE_LOOKUP" ), 0 );
    EXPECT_EQ( stop.count( "commit BCMLT_OPCODE_INSERT" ), 0 );
}

} // namespace
