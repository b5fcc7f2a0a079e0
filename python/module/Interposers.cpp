#include "interpose/FaultInjector.h"
#include "interpose/Recorder.h"
#include "interpose/TraceRecorder.h"
#include "python/module/Bindings.h"
#include "python/module/Events.h"
#include "python/module/Sdk.h"

#include <Kiln/ActivityLock.h>

#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <filesystem>

namespace py = pybind11;

namespace Python {

namespace {

class RecorderObject final : public SdkObject {
  public:
    explicit RecorderObject( SdkObject & inner ) : recorder( inner.sdk() ) {
        recorder.keepConstants( false );
    }
    Shim::Sdk & sdk() override { return recorder; }

    Interpose::Recorder recorder;
};

class TraceRecorderObject final : public SdkObject {
  public:
    TraceRecorderObject( SdkObject & inner, const Interpose::TraceRecorder::Options & options )
        : recorder( inner.sdk(), options ) {}
    Shim::Sdk & sdk() override { return recorder; }

    Interpose::TraceRecorder recorder;
};

std::shared_ptr<TraceRecorderObject>
makeTraceRecorder( SdkObject & inner, const std::filesystem::path & directory, bool everything,
                   std::size_t fileBytes, std::size_t keepFullFiles, std::size_t keepFiles,
                   std::uint64_t keepBytes ) {
    using Keep = Interpose::TraceRecorder::Keep;
    std::filesystem::create_directories( directory );
    return std::make_shared<TraceRecorderObject>(
        inner,
        Interpose::TraceRecorder::Options{ .directory = directory.string(),
                                           .keep = everything ? Keep::everything : Keep::newest,
                                           .fileBytes = fileBytes,
                                           .keepFullFiles = keepFullFiles,
                                           .keepFiles = keepFiles,
                                           .keepBytes = keepBytes,
                                           .isLockHeld = Kiln::holdsActivityLock } );
}

class FaultObject final : public SdkObject {
  public:
    explicit FaultObject( SdkObject & inner ) : injector( inner.sdk() ) {}
    Shim::Sdk & sdk() override { return injector; }

    Interpose::FaultInjector injector;
};

Interpose::Fault parse( const std::string & text ) {
    Interpose::ParsedFault parsed = Interpose::parseFault( text );
    if ( !parsed.fault )
        throw py::value_error( "fault \"" + text + "\": " + parsed.error );
    return *std::move( parsed.fault );
}

} // namespace

void bindInterposers( py::module_ & module ) {
    py::class_<RecorderObject, SdkObject, std::shared_ptr<RecorderObject>>(
        module, "RecorderBase", "An SDK that writes down the calls on their way to another SDK." )
        .def( py::init<SdkObject &>(), py::arg( "inner" ), py::keep_alive<1, 2>() )
        .def( "events_json",
              []( const RecorderObject & self ) {
                  nlohmann::ordered_json events = nlohmann::ordered_json::array();
                  for ( const Interpose::Event & event : self.recorder.events() )
                      events.push_back( toJson( event ) );
                  return toLine( events );
              } )
        .def( "__len__", []( const RecorderObject & self ) { return self.recorder.eventCount(); } )
        .def(
            "clear", []( RecorderObject & self ) { self.recorder.clear(); },
            "Forgets what was written down." );

    py::class_<TraceRecorderObject, SdkObject, std::shared_ptr<TraceRecorderObject>>(
        module, "TraceRecorder",
        "An SDK that writes the calls on their way to another SDK into the trace files of a folder.\n\n"
        "With everything=False it keeps the newest calls of each thread." )
        .def( py::init( &makeTraceRecorder ), py::arg( "inner" ), py::arg( "directory" ),
              py::kw_only(), py::arg( "everything" ) = true, py::arg( "file_bytes" ) = 0,
              py::arg( "keep_full_files" ) = 0, py::arg( "keep_files" ) = 0,
              py::arg( "keep_bytes" ) = 0, py::keep_alive<1, 2>() )
        .def(
            "note_hardware_change",
            []( TraceRecorderObject & self, const std::string & table, const std::string & field,
                std::uint64_t value, int unit, std::uint32_t index, std::uint32_t instance,
                std::uint32_t port, std::uint32_t element ) {
                self.recorder.noteHardwareChange( { .unit = unit,
                                                    .table = table.c_str(),
                                                    .index = index,
                                                    .instance = instance,
                                                    .port = port,
                                                    .field = field.c_str(),
                                                    .element = element,
                                                    .value = value } );
            },
            py::arg( "table" ), py::arg( "field" ), py::arg( "value" ), py::kw_only(),
            py::arg( "unit" ) = 0, py::arg( "index" ) = 0, py::arg( "instance" ) = 0,
            py::arg( "port" ) = 0, py::arg( "element" ) = 0,
            "Records what Chip.poke_hardware was told, so that a replay does it, too." );

    py::class_<Interpose::Fault>( module, "Fault", "What fails, when, and how." )
        .def_static( "parse", &parse, py::arg( "text" ),
                     "Reads \"op=commit,table=PC_PORT,rc=-26,at=2,always\"." )
        .def( "__str__", []( const Interpose::Fault & self ) { return Interpose::toText( self ); } )
        .def( "__repr__", []( const Interpose::Fault & self ) {
            return "Fault.parse( \"" + Interpose::toText( self ) + "\" )";
        } );

    py::class_<FaultObject, SdkObject, std::shared_ptr<FaultObject>>(
        module, "FaultInjectorBase",
        "An SDK that passes calls on to another SDK but for those that a fault strikes." )
        .def( py::init<SdkObject &>(), py::arg( "inner" ), py::keep_alive<1, 2>() )
        .def(
            "add_fault",
            []( FaultObject & self, const Interpose::Fault & fault ) {
                self.injector.add( fault );
            },
            py::arg( "fault" ) )
        .def_property_readonly(
            "reports",
            []( const FaultObject & self ) {
                std::vector<std::tuple<Interpose::Fault, std::uint64_t, std::uint64_t>> reports;
                for ( const Interpose::FaultReport & report : self.injector.reports() )
                    reports.emplace_back( report.fault, report.matches, report.strikes );
                return reports;
            },
            "Each fault, how often it matched, and how often it struck." );
}

} // namespace Python
