#include "python/module/Chip.h"

#include "python/module/Bindings.h"
#include "tools/model/Files.h"
#include "tools/model/StateFile.h"

#include <pybind11/stl.h>

#include <stdexcept>

namespace py = pybind11;

namespace Python {

namespace {

const Sim::Schema & schema( const ChipObject & self, int unit ) {
    const Sim::Schema * const found = self.chip.schema( unit );
    if ( found == nullptr )
        throw py::key_error( "the chip has no unit " + std::to_string( unit ) );
    return *found;
}

// Makes of a chip without units one as `original` is.
void copy( ChipObject & self, const ChipObject & original ) {
    for ( const int unit : original.chip.units() ) {
        self.chip.addUnit( unit, *original.chip.schema( unit ) );
        bool isDone = self.chip.clear( unit ) == Sim::Rc::ok;
        for ( const Sim::Table & table : original.chip.schema( unit )->tables() )
            for ( const Sim::RowImage & row :
                  original.chip.rows( unit, table.name, Sim::Rows::stored ) )
                isDone = isDone && self.chip.restoreRow( unit, table.name, row ) == Sim::Rc::ok;
        if ( !isDone )
            throw std::runtime_error( "the chip cannot be copied: " + self.chip.lastError() );
    }
}

} // namespace

void bindChip( py::module_ & module ) {
    py::class_<Sim::RowImage>( module, "RowImage",
                               "The contents of a row, an item for each element of each field." )
        .def_property_readonly( "index",
                                []( const Sim::RowImage & self ) { return self.id.index; } )
        .def_property_readonly( "instance",
                                []( const Sim::RowImage & self ) { return self.id.instance; } )
        .def_property_readonly( "port", []( const Sim::RowImage & self ) { return self.id.port; } )
        .def_readonly( "values", &Sim::RowImage::values )
        .def_readonly( "written", &Sim::RowImage::written )
        .def_readonly( "touched", &Sim::RowImage::touched )
        .def_readonly( "hardware", &Sim::RowImage::hardware );

    py::class_<ChipObject, SdkObject, std::shared_ptr<ChipObject>>( module, "ChipBase",
                                                                    "The simulated chip." )
        .def( py::init<>() )
        .def(
            "add_unit",
            []( ChipObject & self, int unit, Sim::Schema added ) {
                self.chip.addUnit( unit, std::move( added ) );
            },
            py::arg( "unit" ), py::arg( "schema" ), "Adds a unit." )
        .def_property_readonly( "units",
                                []( const ChipObject & self ) { return self.chip.units(); } )
        .def( "schema", &schema, py::arg( "unit" ) = 0, py::return_value_policy::copy,
              "What a unit looks like." )
        .def(
            "table_schema",
            []( const ChipObject & self, int unit, const std::string & table ) {
                const Sim::Table * const found = schema( self, unit ).find( table );
                if ( found == nullptr )
                    throw py::key_error( "unit " + std::to_string( unit ) + " has no table " +
                                         table );
                return *found;
            },
            py::arg( "unit" ), py::arg( "table" ), "What a table of a unit looks like." )
        .def_property_readonly(
            "last_error", []( const ChipObject & self ) { return self.chip.lastError(); },
            "The calling thread's last failed operation in words." )
        .def_property_readonly( "pre_call_count",
                                []( const ChipObject & self ) { return self.chip.preCallCount(); } )
        .def_property_readonly( "failure_count",
                                []( const ChipObject & self ) { return self.chip.failureCount(); } )
        .def_property_readonly(
            "live_entries",
            []( const ChipObject & self ) {
                std::vector<std::tuple<std::uint32_t, int, std::string>> entries;
                for ( const Sim::LiveEntry & entry : self.chip.liveEntries() )
                    entries.emplace_back( entry.handle, entry.unit, entry.table );
                return entries;
            },
            "The entries that are allocated: handle, unit, table." )
        .def(
            "row_images",
            []( const ChipObject & self, int unit, const std::string & table, bool stored ) {
                return self.chip.rows( unit, table,
                                       stored ? Sim::Rows::stored : Sim::Rows::touched );
            },
            py::arg( "unit" ), py::arg( "table" ), py::arg( "stored" ) = false )
        .def(
            "row_image",
            []( const ChipObject & self, int unit, const std::string & table, std::uint32_t index,
                std::uint32_t instance, std::uint32_t port, std::vector<std::uint64_t> key ) {
                return self.chip.row( unit, table,
                                      { .index = index,
                                        .instance = instance,
                                        .port = port,
                                        .key = std::move( key ) } );
            },
            py::arg( "unit" ), py::arg( "table" ), py::arg( "index" ) = 0,
            py::arg( "instance" ) = 0, py::arg( "port" ) = 0,
            py::arg( "key" ) = std::vector<std::uint64_t>() )
        .def(
            "poke_hardware",
            []( ChipObject & self, const std::string & table, const std::string & field,
                std::uint64_t value, int unit, std::uint32_t index, std::uint32_t instance,
                std::uint32_t port, std::uint32_t element ) {
                const Sim::RowId row{ .index = index, .instance = instance, .port = port };
                if ( self.chip.pokeHardware( unit, table, row, field, value, element ) !=
                     Sim::Rc::ok )
                    throw py::value_error( self.chip.lastError() );
            },
            py::arg( "table" ), py::arg( "field" ), py::arg( "value" ), py::kw_only(),
            py::arg( "unit" ) = 0, py::arg( "index" ) = 0, py::arg( "instance" ) = 0,
            py::arg( "port" ) = 0, py::arg( "element" ) = 0,
            "Changes a field in the hardware behind the SDK's cache, as a chip does by itself." )
        .def(
            "clear",
            []( ChipObject & self, int unit ) {
                if ( self.chip.clear( unit ) != Sim::Rc::ok )
                    throw py::value_error( self.chip.lastError() );
            },
            py::arg( "unit" ) = 0, "Empties all tables of a unit." )
        .def( "copy_from", &copy, py::arg( "original" ) )
        .def(
            "save_state",
            []( const ChipObject & self, const std::string & file ) {
                Tool::StateFile( file, [] {} ).save( self.chip );
            },
            py::arg( "file" ) )
        .def(
            "load_state",
            []( ChipObject & self, const std::string & file ) {
                const std::vector<Tool::SavedUnit> units =
                    Tool::parseState( Tool::readFile( file ), file );
                for ( const Tool::SavedUnit & unit : units )
                    self.chip.addUnit( unit.unit, unit.schema );
                Tool::restore( self.chip, units, file );
            },
            py::arg( "file" ) );
}

} // namespace Python
