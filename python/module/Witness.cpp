#include "python/module/Witness.h"

#include "interpose/Recorder.h"
#include "python/module/Bindings.h"
#include "python/module/Events.h"
#include "python/module/Sdk.h"
#include "tools/model/Files.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace Python {

namespace {

int descriptor = -1;
std::mutex writing;

void tell( const nlohmann::ordered_json & what ) {
    const std::lock_guard lock( writing );
    Tool::writeAll( descriptor, toLine( what ) + "\n" );
}

// Operations of one thread do not overlap.
thread_local std::uint64_t operationNumber = 0;
std::atomic<std::uint64_t> numbers{ 0 };

void tellOperation( Interpose::Recorder::Moment moment, const Interpose::Event & event ) {
    if ( kind( event.call ) != Interpose::SdkCallKind::operation )
        return;
    if ( moment == Interpose::Recorder::Moment::before )
        operationNumber = ++numbers;
    tell( { { "number", operationNumber }, { "operation", toJson( event ) } } );
}

} // namespace

bool isWitnessing() { return descriptor >= 0; }

Shim::Sdk & witness( Shim::Sdk & sdk ) {
    static auto & recorders = *new std::vector<std::unique_ptr<Interpose::Recorder>>;
    Interpose::Recorder & recorder =
        *recorders.emplace_back( std::make_unique<Interpose::Recorder>( sdk ) );
    recorder.keepConstants( false );
    recorder.observe( tellOperation );
    return recorder;
}

void tellRecipe( std::string_view name ) {
    if ( isWitnessing() )
        tell( { { "recipe", name } } );
}

void tellReturn() {
    if ( isWitnessing() )
        tell( { { "recipe", nullptr } } );
}

void bindWitness( pybind11::module_ & module ) {
    module.def(
        "witness",
        []( int to ) {
            descriptor = to;
            installInChild();
        },
        pybind11::arg( "descriptor" ),
        "In a child of the process: tells of recipes and SDK operations to a file descriptor from now on." );
}

} // namespace Python
