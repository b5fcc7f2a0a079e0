#include "tracereader/Recording.h"

#include "python/module/Bindings.h"
#include "python/module/Chip.h"
#include "python/module/TraceRecord.h"
#include "tools/recording/OpenRecording.h"
#include "tools/recording/RecordingDiff.h"
#include "tools/recording/Replay.h"

#include <pybind11/stl.h>

#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace py = pybind11;

namespace Python {

namespace {

constexpr const char * remedy = "choose one with process=";

// --- The calls of a recording

py::str nameOf( const TraceReader::SdkConstant & constant ) { return validText( constant.text() ); }

// The members of the class RecordedCall in Python.
py::dict membersOf( const TraceReader::RecordedCall & call ) {
    using TraceReader::SdkCall;
    using namespace pybind11::literals;
    const bool isCommit = call.call == SdkCall::entryCommit || call.call == SdkCall::ptEntryCommit;
    const bool hasRead = call.call == SdkCall::entryFieldGet && call.hasReturned() && call.rc >= 0;
    std::string text;
    appendText( text, call );
    return py::dict(
        "call"_a = validText( name( call.call ) ), "handle"_a = call.handle,
        "unit"_a = call.unit.value_or( -1 ), "table"_a = validText( call.table ),
        "field"_a = validText( call.field ), "symbol"_a = validText( call.symbol ),
        "values"_a = py::tuple( py::cast( hasRead ? std::vector{ call.value } : call.values ) ),
        "start_index"_a = call.startIndex, "count"_a = call.count,
        "opcode"_a = isCommit ? nameOf( call.opcode ) : py::str(),
        "priority"_a = isCommit ? nameOf( call.priority ) : py::str(),
        "attribute"_a = call.call == SdkCall::entryAttribSet ? nameOf( call.attribute ) : py::str(),
        "rc"_a = call.rc, "returned"_a = call.hasReturned(), "text"_a = validText( text ),
        "number"_a = call.number, "process"_a = call.process, "thread"_a = call.thread,
        "time"_a = call.hasInputs() ? std::optional( call.before.time ) : std::nullopt,
        "end_time"_a = call.hasReturned() ? std::optional( call.after.time ) : std::nullopt,
        "lock_held"_a = call.isLockHeld, "whole"_a = call.hasInputs() && call.isWhole );
}

// A change of the hardware, with texts of its own.
struct HardwareChange {
    int unit;
    std::string table;
    std::uint32_t index;
    std::uint32_t instance;
    std::uint32_t port;
    std::string field;
    std::uint32_t element;
    std::uint64_t value;
};

HardwareChange toPython( const TraceReader::HardwareChange & change ) {
    return { change.unit, validText( change.table ), change.index,   change.instance,
             change.port, validText( change.field ), change.element, change.value };
}

class RecordingIterator {
  public:
    RecordingIterator( const std::vector<std::string> & paths, std::optional<std::uint32_t> process,
                       bool wantsMessages )
        : recording_( checked( paths ), { .wantsMessages = true, .process = process } ),
          wantsMessages_( wantsMessages ) {}

    // A dict of members for a call, once it has returned or will not any more.
    py::object next() {
        using Moment = TraceReader::Event::Moment;
        TraceReader::Event event;
        while ( recording_.next( event ) ) {
            if ( event.moment == Moment::after || event.moment == Moment::neverReturned )
                return membersOf( *event.call );
            if ( event.moment == Moment::before )
                continue;
            if ( const auto change = hardwareChangeOf( event.record ) )
                return py::cast( toPython( *change ) );
            if ( wantsMessages_ )
                return py::cast( Python::toPython( event.record ) );
        }
        throw py::stop_iteration();
    }

    std::vector<std::string> findings() const { return textsOf( recording_.findings() ); }
    bool hasLostBeginning() const { return recording_.hasLostBeginning(); }
    std::vector<std::uint32_t> processes() const {
        std::vector<std::uint32_t> numbers;
        for ( const auto & each : recording_.processes() )
            numbers.push_back( each.process );
        return numbers;
    }

  private:
    static const std::vector<std::string> & checked( const std::vector<std::string> & paths ) {
        if ( paths.empty() )
            throw py::value_error( "name a folder or a file to read" );
        return paths;
    }

    TraceReader::Recording recording_;
    const bool wantsMessages_;
};

// --- Replay

py::dict replay( ChipObject & chip, const std::string & path, std::optional<std::uint32_t> process,
                 std::optional<std::uint64_t> until, bool ignoresCodes, bool ignoresValues,
                 bool keepsGoing ) {
    struct Found {
        TraceReader::RecordedCall call;
        int rc;
        std::optional<std::uint64_t> value;
        std::string reason;
        std::string recipe;
    };
    std::vector<Found> divergences;
    std::unique_ptr<TraceReader::Recording> recording;
    Tool::ReplayCounts counts;
    {
        const py::gil_scoped_release released;
        recording = Tool::openRecording( path, process, remedy );
        Tool::Replay performed( chip.chip,
                                { .hasLostBeginning = [&] { return recording->hasLostBeginning(); },
                                  .ignoresCodes = ignoresCodes,
                                  .ignoresValues = ignoresValues },
                                path, [&]( const Tool::Divergence & each ) {
                                    divergences.push_back( { each.call, each.rc, each.value,
                                                             each.chipSays,
                                                             std::string( each.recipe ) } );
                                } );
        TraceReader::Event event;
        while ( ( keepsGoing || divergences.empty() ) && recording->next( event ) &&
                !( until && event.call != nullptr && event.call->number > *until ) )
            performed.take( event );
        counts = performed.counts();
    }
    using namespace pybind11::literals;
    py::list found;
    for ( const Found & each : divergences )
        found.append( py::dict( "call"_a = membersOf( each.call ), "rc"_a = each.rc,
                                "value"_a = each.value, "reason"_a = validText( each.reason ),
                                "recipe"_a = each.recipe.empty() ? py::object( py::none() )
                                                                 : validText( each.recipe ) ) );
    return py::dict( "operations"_a = counts.operations, "divergences"_a = found,
                     "failures_from_outside"_a = counts.failuresFromOutside,
                     "left_out"_a = counts.withoutInputs + counts.ofOlderEntries +
                                    counts.ofLostEntries + counts.neverReturned,
                     "not_compared"_a = counts.onUnknownRows,
                     "lost_beginning"_a = recording->hasLostBeginning(),
                     "findings"_a = textsOf( recording->findings() ) );
}

// --- Comparison

py::object toPython( const std::optional<Tool::EntryStep> & step ) {
    if ( !step )
        return py::none();
    std::vector<std::pair<std::uint64_t, py::str>> operations;
    for ( const Tool::EntryStep::Operation & each : step->operations )
        operations.emplace_back( each.number, validText( each.text ) );
    using namespace pybind11::literals;
    return py::dict( "unit"_a = step->unit, "table"_a = validText( step->table ),
                     "recipe"_a = step->recipe.empty() ? py::object( py::none() )
                                                       : validText( step->recipe ),
                     "thread"_a = step->thread, "operations"_a = operations );
}

py::dict diffRecordings( const std::string & before, const std::string & after ) {
    std::shared_ptr<TraceReader::Recording> last[2];
    const auto opener = []( const std::string & path,
                            std::shared_ptr<TraceReader::Recording> & reading ) {
        return [&path, &reading]() -> Tool::EntrySteps::Source {
            reading =
                Tool::openRecording( path, {}, "give the files of each a folder of their own" );
            return [reading]( TraceReader::Event & event ) { return reading->next( event ); };
        };
    };
    std::vector<Tool::StepDifference> differences;
    Tool::RecordingDiffCounts counts;
    std::vector<std::string> findings;
    {
        const py::gil_scoped_release released;
        counts =
            Tool::RecordingDiff( opener( before, last[0] ), opener( after, last[1] ) )
                .run( [&]( const Tool::StepDifference & each ) { differences.push_back( each ); } );
        for ( const auto & reading : last )
            for ( std::string & text : textsOf( reading->findings() ) )
                findings.push_back( std::move( text ) );
    }
    using namespace pybind11::literals;
    py::list found;
    for ( const Tool::StepDifference & each : differences )
        found.append( py::make_tuple( toPython( each.before ), toPython( each.after ) ) );
    return py::dict( "differences"_a = found, "same"_a = counts.steps,
                     "reordered"_a = counts.reordered, "findings"_a = findings );
}

} // namespace

void bindRecording( py::module_ & module ) {
    py::class_<HardwareChange>( module, "HardwareChange",
                                "An element of a row that the hardware changed by itself, as a "
                                "simulated chip was told to." )
        .def_readonly( "unit", &HardwareChange::unit )
        .def_readonly( "table", &HardwareChange::table )
        .def_readonly( "index", &HardwareChange::index )
        .def_readonly( "instance", &HardwareChange::instance )
        .def_readonly( "port", &HardwareChange::port )
        .def_readonly( "field", &HardwareChange::field )
        .def_readonly( "element", &HardwareChange::element )
        .def_readonly( "value", &HardwareChange::value );

    py::class_<RecordingIterator>( module, "RecordingIterator",
                                   "Reads the calls of trace files in the order of their returns." )
        .def( py::init<const std::vector<std::string> &, std::optional<std::uint32_t>, bool>(),
              py::arg( "paths" ), py::arg( "process" ), py::arg( "messages" ) )
        .def( "__iter__", []( py::object self ) { return self; } )
        .def( "__next__", &RecordingIterator::next )
        .def_property_readonly(
            "findings", &RecordingIterator::findings,
            "What was lost or is damaged, in a line each; complete at the end." )
        .def_property_readonly( "lost_beginning", &RecordingIterator::hasLostBeginning,
                                "Whether what came first is lost, as far as it was read." )
        .def_property_readonly( "processes", &RecordingIterator::processes,
                                "The processes whose calls are here." );

    module.def( "replay", &replay, py::arg( "chip" ), py::arg( "path" ), py::arg( "process" ),
                py::arg( "until" ), py::arg( "ignore_codes" ), py::arg( "ignore_values" ),
                py::arg( "keep_going" ), "Performs a recording on a chip." );
    module.def( "diff_recordings", &diffRecordings, py::arg( "before" ), py::arg( "after" ),
                "What differs between two recordings: steps before and after." );
}

} // namespace Python
