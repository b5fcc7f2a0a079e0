#include "sim/Schema.h"

#include "python/module/Bindings.h"
#include "tools/model/ChipFile.h"

#include <pybind11/stl.h>

namespace py = pybind11;

namespace Python {

namespace {

void orValueError( const std::string & problem ) {
    if ( !problem.empty() )
        throw py::value_error( problem );
}

const Sim::Table & table( const Sim::Schema & schema, const std::string & name ) {
    const Sim::Table * const found = schema.find( name );
    if ( found == nullptr )
        throw py::key_error( name );
    return *found;
}

} // namespace

void bindSchema( py::module_ & module ) {
    py::class_<Sim::Field>( module, "Field", "A field of a table." )
        .def( py::init( []( std::string name, std::uint32_t width, bool key, std::uint32_t length,
                            const std::map<std::string, std::uint64_t> & symbols,
                            std::uint64_t reset, std::optional<std::uint64_t> powerOn ) {
                  Sim::Field field{ .name = std::move( name ),
                                    .width = width,
                                    .role = key ? Sim::FieldRole::key : Sim::FieldRole::data,
                                    .length = length,
                                    .reset = reset,
                                    .powerOn = powerOn };
                  for ( const auto & [symbol, value] : symbols )
                      field.symbols.push_back( { symbol, value } );
                  return field;
              } ),
              py::arg( "name" ), py::kw_only(), py::arg( "width" ), py::arg( "key" ) = false,
              py::arg( "length" ) = 1,
              py::arg( "symbols" ) = std::map<std::string, std::uint64_t>(), py::arg( "reset" ) = 0,
              py::arg( "power_on" ) = py::none() )
        .def_readonly( "name", &Sim::Field::name )
        .def_readonly( "width", &Sim::Field::width, "Bits of one element." )
        .def_property_readonly(
            "key", []( const Sim::Field & field ) { return field.role == Sim::FieldRole::key; },
            "Whether it is part of what addresses a row of a logical table." )
        .def_readonly( "length", &Sim::Field::length, "Elements; more than 1 in an array field." )
        .def_property_readonly(
            "symbols",
            []( const Sim::Field & field ) {
                std::map<std::string, std::uint64_t> symbols;
                for ( const Sim::Symbol & symbol : field.symbols )
                    symbols.emplace( symbol.name, symbol.value );
                return symbols;
            },
            "Its symbols and their values; empty if it holds numbers." )
        .def_readonly( "reset", &Sim::Field::reset, "What a write of the whole row puts into it." )
        .def_property_readonly( "initial", &Sim::Field::initial,
                                "What it holds before anybody wrote it." );

    py::class_<Sim::Table>( module, "TableSchema", "A table of a chip, without its rows." )
        .def( py::init( []( std::string name, const std::string & kind,
                            std::vector<Sim::Field> fields, std::uint32_t rows,
                            std::uint32_t instances, std::uint32_t ports, bool preloaded ) {
                  Sim::Table table{
                      .name = std::move( name ),
                      .size = { .rows = rows, .instances = instances, .ports = ports },
                      .fields = std::move( fields ),
                      .preloaded = preloaded };
                  if ( kind == "register" )
                      table.kind = Sim::TableKind::physicalRegister;
                  else if ( kind == "memory" )
                      table.kind = Sim::TableKind::physicalMemory;
                  else if ( kind != "logical" )
                      throw py::value_error( "kind \"" + kind +
                                             "\" is none; there are logical, register and memory" );
                  return table;
              } ),
              py::arg( "name" ), py::kw_only(), py::arg( "kind" ), py::arg( "fields" ),
              py::arg( "rows" ) = 1, py::arg( "instances" ) = 1, py::arg( "ports" ) = 0,
              py::arg( "preloaded" ) = false )
        .def_readonly( "name", &Sim::Table::name )
        .def_property_readonly(
            "kind",
            []( const Sim::Table & self ) {
                switch ( self.kind ) {
                case Sim::TableKind::physicalRegister:
                    return "register";
                case Sim::TableKind::physicalMemory:
                    return "memory";
                default:
                    return "logical";
                }
            },
            "\"logical\", \"register\" or \"memory\"." )
        .def_readonly( "fields", &Sim::Table::fields )
        .def_property_readonly( "rows", []( const Sim::Table & self ) { return self.size.rows; } )
        .def_property_readonly( "instances",
                                []( const Sim::Table & self ) { return self.size.instances; } )
        .def_property_readonly( "ports", []( const Sim::Table & self ) { return self.size.ports; } )
        .def_readonly( "preloaded", &Sim::Table::preloaded );

    py::class_<Sim::Schema>(
        module, "Schema", "What a chip looks like: its tables and their fields. Empty at first." )
        .def( py::init<>() )
        .def_static( "reference", &Sim::referenceSchema,
                     "The reference chip: every table that recipes use." )
        .def_static(
            "load",
            []( const py::object & file ) {
                return Tool::loadChip(
                    py::module_::import( "os" ).attr( "fspath" )( file ).cast<std::string>() );
            },
            py::arg( "file" ), "The chip of a chip file." )
        .def_static(
            "parse", &Tool::parseChipFile, py::arg( "text" ), py::arg( "name" ) = "text",
            "The chip that the text of a chip file describes; `name` is what errors call it." )
        .def_property_readonly( "table_names",
                                []( const Sim::Schema & self ) {
                                    const auto names = self.tableNames();
                                    return std::vector<std::string>( names.begin(), names.end() );
                                } )
        .def( "__getitem__", &table, py::arg( "table" ), py::return_value_policy::copy )
        .def(
            "__contains__",
            []( const Sim::Schema & self, const std::string & name ) {
                return self.find( name ) != nullptr;
            },
            py::arg( "table" ) )
        .def( "__len__", []( const Sim::Schema & self ) { return self.tables().size(); } )
        .def(
            "add",
            []( Sim::Schema & self, Sim::Table added ) {
                const std::vector<std::string> problems = Sim::check( added );
                orValueError( problems.empty() ? "" : problems.front() );
                orValueError( self.add( std::move( added ) ) );
            },
            py::arg( "table" ), "Adds a table." )
        .def(
            "remove",
            []( Sim::Schema & self, const std::string & name ) {
                orValueError( self.remove( name ) );
            },
            py::arg( "table" ), "Removes a table." )
        .def(
            "resize",
            []( Sim::Schema & self, const std::string & name, std::optional<std::uint32_t> rows,
                std::optional<std::uint32_t> instances, std::optional<std::uint32_t> ports ) {
                const Sim::Table * const found = self.find( name );
                const Sim::TableSize old = found == nullptr ? Sim::TableSize() : found->size;
                orValueError( self.resize( name, { .rows = rows.value_or( old.rows ),
                                                   .instances = instances.value_or( old.instances ),
                                                   .ports = ports.value_or( old.ports ) } ) );
            },
            py::arg( "table" ), py::kw_only(), py::arg( "rows" ) = py::none(),
            py::arg( "instances" ) = py::none(), py::arg( "ports" ) = py::none(),
            "Gives a table another size; what is not said stays." );
}

} // namespace Python
