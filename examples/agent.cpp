// sample: includes
#include <Cairn/CairnLtHelper.h>
#include <Kiln/ActivityLock.h>
#include <Shim/Sdk.h>

#include <cstdint>
#include <mutex>
// end of sample

#include "interpose/TraceRecorder.h"
#include "sim/Chip.h"

#include <Fleetlog/TraceHandle.h>

#include <string>

// The least that an agent does to call a recipe. A simulated chip stands where the agent's own shim does.

// sample: definition
Shim::Sdk * Shim::sdk_ = nullptr; // in one source file of the agent
// end of sample

namespace {

// sample: install
void start( Shim::Sdk & agentsShim ) {
    // Once, before the first recipe; the shim lives until the process ends.
    Shim::sdk_ = &agentsShim;
}
// end of sample

// sample: trace
void startTracing( const std::string & folder ) {
    Fleetlog::openDefault( { .directory = folder, .files = Fleetlog::Files::perThread } );
}
// end of sample

// sample: record
void startRecording( Shim::Sdk & agentsShim, const std::string & folder ) {
    static auto & recorder = *new Interpose::TraceRecorder(
        agentsShim, { .directory = folder, .isLockHeld = Kiln::holdsActivityLock } );
    Shim::sdk_ = &recorder;
}
// end of sample

// sample: call
void markTunnel( std::uint32_t unit, std::uint32_t index, std::uint32_t ecn ) {
    const std::lock_guard lock( Kiln::activityLock() );
    Cairn::setEgrTunnelEcnEncap( unit, index, ecn );
}
// end of sample

} // namespace

int main( int argc, char ** argv ) {
    if ( argc > 1 )
        startTracing( argv[1] );
    const std::string recordingFolder = argc > 2 ? argv[2] : "";
    Sim::Chip chip;
    chip.addUnit( 0, Sim::referenceSchema() );
    start( chip );
    if ( !recordingFolder.empty() )
        startRecording( chip, recordingFolder );
    markTunnel( 0, 5, 2 );
    return chip.value( 0, "EGR_TUNNEL_ECN_ENCAPm", { .index = 5 }, "OUTER_ECN" ) == 2u ? 0 : 1;
}
