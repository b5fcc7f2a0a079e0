#include "python/module/Bindings.h"
#include "tracereader/TraceReader.h"

#include <Fleetlog/TraceHandle.h>
#include <Kiln/TraceHandle.h>
#include <Kiln/TraceSink.h>

#include <pybind11/stl.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace py = pybind11;

namespace Python {

namespace {

// A record of a trace, with its values in their types.
struct TraceRecord {
    std::int64_t time = 0;
    std::uint32_t process = 0;
    std::uint32_t thread = 0;
    std::string file;
    std::uint32_t line = 0;
    std::string function;
    std::string text;
    py::tuple values;
};

py::object toPython( const TraceReader::Value & value ) {
    switch ( value.letter ) {
    case 'b':
        return py::bool_( value.number != 0 );
    case 'p':
        return py::reinterpret_steal<py::object>( PyUnicode_DecodeUTF8(
            value.text.data(), static_cast<Py_ssize_t>( value.text.size() ), "replace" ) );
    default:
        return py::int_( value.number );
    }
}

std::string valid( const std::string & text ) {
    return py::reinterpret_steal<py::str>(
        PyUnicode_DecodeUTF8( text.data(), static_cast<Py_ssize_t>( text.size() ), "replace" ) );
}

class TraceIterator {
  public:
    explicit TraceIterator( const std::vector<std::string> & paths ) {
        for ( const std::string & path : paths ) {
            if ( !std::filesystem::is_directory( path ) )
                merge_.add( std::make_unique<TraceReader::File>( path ) );
            else
                for ( const std::string & file : TraceReader::findFiles( path ) )
                    merge_.add( file );
        }
    }

    TraceIterator( const TraceIterator & ) = delete;
    TraceIterator & operator=( const TraceIterator & ) = delete;

    TraceRecord next() {
        TraceReader::Record record;
        if ( !merge_.next( record ) )
            throw py::stop_iteration();
        std::vector<TraceReader::Value> values;
        decode( record, values );
        py::tuple typed( values.size() );
        for ( std::size_t i = 0; i < values.size(); ++i )
            typed[i] = toPython( values[i] );
        std::string text;
        appendText( text, record );
        TraceRecord result;
        result.time = record.time;
        result.process = record.file->info().process;
        result.thread = record.thread;
        result.text = valid( text );
        result.values = std::move( typed );
        if ( record.site != nullptr ) {
            result.file = valid( record.site->file );
            result.line = record.site->line;
            result.function = valid( record.site->function );
        }
        return result;
    }

    std::vector<std::string> findings() const {
        std::vector<std::string> texts;
        for ( const TraceReader::Finding & finding : merge_.findings() )
            texts.push_back( finding.text() );
        for ( const auto & file : merge_.files() )
            for ( const TraceReader::Finding & finding : file->findings() )
                texts.push_back( finding.text() );
        return texts;
    }

  private:
    TraceReader::Merge merge_;
};

} // namespace

void bindTrace( py::module_ & module ) {
    py::register_exception<TraceReader::Error>( module, "TraceError", PyExc_ValueError ).doc() =
        "A trace file that cannot be read.";

    py::class_<TraceRecord>( module, "TraceRecord", "A message of the binary trace." )
        .def_readonly( "time", &TraceRecord::time, "Nanoseconds since 1970, UTC." )
        .def_readonly( "process", &TraceRecord::process )
        .def_readonly( "thread", &TraceRecord::thread, "0 in the file of a whole process." )
        .def_readonly( "file", &TraceRecord::file )
        .def_readonly( "line", &TraceRecord::line )
        .def_readonly( "function", &TraceRecord::function, "The recipe's name." )
        .def_readonly( "text", &TraceRecord::text )
        .def_readonly( "values", &TraceRecord::values,
                       "int, bool and str, as the message has them." )
        .def( "__str__", []( const TraceRecord & self ) { return self.text; } );

    py::class_<TraceIterator>( module, "TraceIterator",
                               "Reads trace files in the order of their times." )
        .def( py::init<const std::vector<std::string> &>(), py::arg( "paths" ) )
        .def( "__iter__", []( py::object self ) { return self; } )
        .def( "__next__", &TraceIterator::next )
        .def_property_readonly(
            "findings", &TraceIterator::findings,
            "What was lost or is damaged, in a line each; complete at the end." );

    module.def(
        "open_trace",
        []( const std::string & directory ) {
            std::filesystem::create_directories( directory );
            Fleetlog::OpenOptions options;
            options.directory = directory;
            Fleetlog::openDefault( options );
        },
        py::arg( "directory" ), "Records messages in the binary trace from now on." );
    module.def( "close_trace", &Fleetlog::closeDefault, "Ends the binary trace." );
    module.def(
        "trace_levels",
        []( const std::string & settings ) {
            std::string error;
            const auto parsed = Kiln::parseTraceSettings( settings, error );
            if ( !error.empty() )
                throw py::value_error( error );
            Kiln::traceSettings( parsed );
        },
        py::arg( "settings" ),
        "Enables levels of the text trace: \"ApiCairn/4,CairnLtHelper/2-9\"." );
    module.def( "trace_off", &Kiln::traceOff, "Disables all levels of the text trace." );
    module.def( "trace_to_file", &Kiln::traceToFile, py::arg( "file" ),
                "Text trace lines go to this file from now on." );
    module.def( "trace_to_standard_error", &Kiln::traceToStandardError,
                "Text trace lines go to standard error again." );
}

} // namespace Python
