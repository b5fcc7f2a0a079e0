#include <Cairn/CairnLtHelper.h>
#include <Kiln/ActivityLock.h>
#include <Shim/Sdk.h>
#include <interpose/FaultInjector.h>
#include <interpose/TraceRecorder.h>
#include <sim/Chip.h>
#include <tracereader/Recording.h>

#include <iostream>
#include <mutex>
#include <string>

// What an agent's team has of the kit: the simulated chip behind a fault injector and a recorder, and the
// reader of what was recorded.

Shim::Sdk * Shim::sdk_ = nullptr;

int main( int, char ** argv ) {
    const std::string folder = argv[1];
    Sim::Chip chip;
    chip.addUnit( 0, Sim::referenceSchema() );
    Interpose::FaultInjector faults( chip );
    faults.add( *Interpose::parseFault( "op=entry_free,rc=7" ).fault );
    {
        Interpose::TraceRecorder recorder( faults, { .directory = folder } );
        Shim::sdk_ = &recorder;
        const std::lock_guard lock( Kiln::activityLock() );
        Cairn::setEgrTunnelEcnEncap( 0, 5, 2 );
        Shim::sdk_ = nullptr;
    }
    std::cout << "OUTER_ECN " << *chip.value( 0, "EGR_TUNNEL_ECN_ENCAPm", { .index = 5 }, "OUTER_ECN" )
              << '\n';
    TraceReader::Recording recording( { folder } );
    TraceReader::Event event;
    while ( recording.next( event ) )
        if ( event.moment == TraceReader::Event::Moment::after && !isHook( event.call->call ) )
            std::cout << name( event.call->call ) << ' ' << event.call->rc << '\n';
}
