#include "python/module/Bindings.h"
#include "python/module/TraceRecord.h"

#include <Fleetlog/TraceHandle.h>
#include <Kiln/TraceHandle.h>
#include <Kiln/TraceSink.h>

#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace py = pybind11;

namespace Python {

namespace {

py::object typedValue( const TraceReader::Value & value ) {
    switch ( value.letter ) {
    case 'a': {
        py::tuple elements( value.elementCount() );
        for ( std::size_t i = 0; i < value.elementCount(); ++i )
            elements[i] = value.element( i );
        return elements;
    }
    case 'b':
        return py::bool_( value.number != 0 );
    case 'l':
        return py::int_( value.wide );
    case 'n':
        return py::int_( static_cast<std::int32_t>( value.number ) );
    case 'p':
        return validText( value.text );
    default:
        return py::int_( value.number );
    }
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
        return toPython( record );
    }

    std::vector<std::string> findings() const {
        std::vector<std::string> texts = textsOf( merge_.findings() );
        for ( const auto & file : merge_.files() )
            for ( std::string & text : textsOf( file->findings() ) )
                texts.push_back( std::move( text ) );
        return texts;
    }

  private:
    TraceReader::Merge merge_;
};

} // namespace

py::str validText( std::string_view text ) {
    return py::reinterpret_steal<py::str>(
        PyUnicode_DecodeUTF8( text.data(), static_cast<Py_ssize_t>( text.size() ), "replace" ) );
}

TraceRecord toPython( const TraceReader::Record & record ) {
    std::vector<TraceReader::Value> values;
    decode( record, values );
    py::tuple typed( values.size() );
    for ( std::size_t i = 0; i < values.size(); ++i )
        typed[i] = typedValue( values[i] );
    std::string text;
    appendText( text, record );
    TraceRecord result;
    result.time = record.time;
    result.process = record.file->info().process;
    result.thread = record.thread;
    result.text = validText( text );
    result.values = std::move( typed );
    if ( record.site != nullptr ) {
        result.file = validText( record.site->file );
        result.line = record.site->line;
        result.function = validText( record.site->function );
    }
    return result;
}

std::vector<std::string> textsOf( const std::vector<TraceReader::Finding> & findings ) {
    std::vector<std::string> texts;
    texts.reserve( findings.size() );
    for ( const TraceReader::Finding & finding : findings )
        texts.push_back( finding.text() );
    return texts;
}

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
                       "int, bool, str and tuples of int, as the message has them." )
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
        []( const std::filesystem::path & directory ) {
            std::filesystem::create_directories( directory );
            Fleetlog::OpenOptions options;
            options.directory = directory.string();
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
    module.def(
        "trace_to_file",
        []( const std::filesystem::path & file ) { Kiln::traceToFile( file.string() ); },
        py::arg( "file" ), "Text trace lines go to this file from now on." );
    module.def( "trace_to_standard_error", &Kiln::traceToStandardError,
                "Text trace lines go to standard error again." );
}

} // namespace Python
