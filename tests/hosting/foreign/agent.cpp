#include <Cairn/CairnLtHelper.h>
#include <Shim/Sdk.h>
#include <agent/Chips.h>

#include <iostream>
#include <mutex>
#include <string_view>

// The agent: runs a recipe of each kind on a shim that prints what it is asked, then prints what
// the trace files hold. With the argument "fail", the SDK refuses a call.

Shim::VendorApi * Shim::sdk_ = nullptr;

namespace {

class PrintingSdk final : public Shim::VendorApi {
  public:
    bool refuses = false;

    int bcmlt_transaction_allocate( int ) override { return -1; }
    const char * ENABLEs() const override { return "ENABLE"; }
    const char * NUM_LANESs() const override { return "NUM_LANES"; }
    const char * PC_PHYS_PORT_IDs() const override { return "PC_PHYS_PORT_ID"; }
    const char * PC_PORT_PHYS_MAPs() const override { return "PC_PORT_PHYS_MAP"; }
    const char * PC_PORTs() const override { return "PC_PORT"; }
    const char * PORT_IDs() const override { return "PORT_ID"; }
    const char * SPEEDs() const override { return "SPEED"; }
    std::int32_t BCMLT_ENT_ATTR_GET_FROM_HW() const override { return 41; }
    std::int32_t BCMLT_OPCODE_DELETE() const override { return 42; }
    std::int32_t BCMLT_OPCODE_INSERT() const override { return 43; }
    std::int32_t BCMLT_OPCODE_LOOKUP() const override { return 44; }
    std::int32_t BCMLT_OPCODE_UPDATE() const override { return 45; }
    std::int32_t BCMLT_PRIORITY_NORMAL() const override { return 46; }
    std::int32_t BCMLT_PT_OPCODE_GET() const override { return 47; }
    std::int32_t BCMLT_PT_OPCODE_MODIFY() const override { return 48; }
    std::int32_t BCMLT_PT_OPCODE_SET() const override { return 49; }
    std::uint32_t BCMLT_INVALID_HDL() const override { return 0xFFFFFFFF; }
    int bcmlt_entry_allocate( int unit, const char * table, std::uint32_t * handle ) override {
        *handle = ++handles_;
        return say( "allocate ", unit, " ", table );
    }
    int bcmlt_entry_attrib_set( std::uint32_t, std::int32_t attribute ) override {
        return say( "  attribute ", attribute );
    }
    int bcmlt_entry_commit( std::uint32_t, std::int32_t opcode, std::int32_t priority ) override {
        say( "  commit ", opcode, " ", priority );
        return opcode == BCMLT_OPCODE_LOOKUP() || refuses ? -7 : 0;
    }
    int bcmlt_pt_entry_commit( std::uint32_t, std::int32_t opcode,
                               std::int32_t priority ) override {
        return say( "  pt commit ", opcode, " ", priority );
    }
    int bcmlt_entry_field_add( std::uint32_t, const char * field, std::uint64_t value ) override {
        return say( "  ", field, " = ", value );
    }
    int bcmlt_entry_field_array_add( std::uint32_t, const char * field, std::uint32_t start,
                                     const std::uint64_t * values, std::uint32_t count ) override {
        return say( "  ", field, "[", start, "..", count, "] = ", values[0] );
    }
    int bcmlt_entry_field_get( std::uint32_t, const char * field, std::uint64_t * value ) override {
        *value = 1;
        return say( "  get ", field );
    }
    int bcmlt_entry_field_symbol_add( std::uint32_t, const char * field,
                                      const char * symbol ) override {
        return say( "  ", field, " = ", symbol );
    }
    int bcmlt_entry_free( std::uint32_t ) override { return say( "  free" ); }
    void preCallHook() override { ++hooks; }
    void failureHook() override { std::cout << "failure hook" << std::endl; }
    const char * errmsg( int ) override { return "refused"; }

    int hooks = 0;

  private:
    template <class... Words>
    int say( const Words &... words ) {
        // Two recipes keep the lock.
        if ( Kiln::activityLock().held )
            std::cout << "[lock held] ";
        ( std::cout << ... << words ) << '\n';
        return 0;
    }

    std::uint32_t handles_ = 0;
};

void show( const char * name, const Fleetlog::TraceFile & file ) {
    std::cout << name << '\n';
    for ( const auto & each : file.descriptors )
        std::cout << "  site " << each << '\n';
    for ( const auto & each : file.ring.records )
        std::cout << "  record " << each << '\n';
}

} // namespace

int main( int argc, char ** argv ) {
    std::cout << "handles at load:" << Kiln::namesOfHandles() << '\n';
    PrintingSdk sdk;
    Shim::sdk_ = &sdk;
    const std::lock_guard lock( Kiln::activityLock() );
    if ( argc > 1 && std::string_view( argv[1] ) == "fail" ) {
        sdk.refuses = true;
        Cairn::setVxlanDefaultNetworkSvp( 0, 7 );
    }

    Fleetlog::TraceFile file;
    Fleetlog::TraceHandle trace;
    trace.single = &file;
    Fleetlog::defaultFleetlogHandle = &trace;

    const Cairn::CairnCommonSmData::Ptr state( new Cairn::CairnCommonSmData );
    state->cpus.put( { 1, 65 }, { "cpu" } );
    state->loops.put( { "loop one" }, { 2, 66 } );
    state->loops.put( { "loop two" }, { 2, 67 } );
    state->hardware.put( { 2, 66 }, { 8, 166 } );
    state->boards.put( 3, { 0, CairnCentral::ChipInfo( "alpha" ) } );

    Kiln::switchLevels( "CairnLtHelper", 0x3FF );
    Cairn::cpuPortInit( state );
    Cairn::lbPortInit( state );
    Kiln::switchLevels( "CairnLtHelper", 0 );
    Cairn::setMcastV6StrengthProfile( state );
    Cairn::setVlanXlateMissDrop( state );
    Cairn::setVlanXlateMissDrop( state );

    const CairnCentral::ChipInfo plain( "beta" );
    const CairnCentral::ChipInfo numbering( "numbers its ports" );
    Cairn::programL2IfIngSystemPortTable( plain, 0, 3, 5, 128, 9, true );
    Kiln::switchLevels( "ApiCairn", 1 << 4 );
    Cairn::setEgrTunnelEcnEncap( 0, 5, 2 );
    Kiln::switchLevels( "ApiCairn", 0 );
    std::cout << Cairn::verifyL2IfIngSystemPortTable( numbering, 0, 3, 5, 128, 9, false ) << '\n';
    Cairn::setVxlanDecapAdaptLookup( 0, 17, true );
    std::cout << Cairn::getVxlanDecapAdaptLookup( 0, 17 ) << '\n';
    Cairn::setLoadBalanceRandSeedMem( 0, 12345 );
    Cairn::resetIngEnEfilterBitMap( 0, 100 );
    Kiln::switchLevels( "CairnLtHelper", 1 << 2 );
    trace.threads = 1;
    Cairn::programPacketTraceForTtlError( 0 );
    Cairn::enable1BitEccRpt( 0, "MEMm", true );
    std::cout << sdk.hooks << " hooks\n";
    show( "file of the process", file );
    show( "file of the thread", *trace.mtTraceFile() );
}
