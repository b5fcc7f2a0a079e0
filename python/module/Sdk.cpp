#include "python/module/Sdk.h"

#include "python/module/Bindings.h"
#include "python/module/Locks.h"
#include "python/module/Witness.h"
#include "sim/Chip.h"
#include "tools/model/Files.h"

#include <fmt/format.h>
#include <pybind11/stl.h>

#include <cstdlib>
#include <stdexcept>
#include <utility>
#include <vector>

namespace py = pybind11;

namespace Python {

namespace {

// The traceback of what was raised, as Python prints it.
std::string traceback( const py::error_already_set & error ) {
    const py::object format = py::module_::import( "traceback" ).attr( "format_exception" );
    // There is none of what C++ has raised outside of any function in Python.
    const py::object trace = error.trace() ? py::object( error.trace() ) : py::none();
    return py::str( "" )
        .attr( "join" )( format( error.type(), error.value(), trace ) )
        .cast<std::string>();
}

// Python's standard error may be somewhere else than the process's, and be lost with it.
[[noreturn]] void stopForError( const char * method, const std::string & what ) noexcept {
    Tool::writeAll(
        2, fmt::format( "cairn_lt: {} of the SDK raised an error, which cannot leave it:\n{}",
                        method, what ) );
    std::abort();
}

// What constants and names are where a class in Python does not say: as on the simulated chip.
Shim::Sdk & defaults() {
    static Sim::Chip chip;
    return chip;
}

// Calls a constant, a name or an error text of an SDK.
template <auto member, class... Arguments>
auto answer( SdkObject & self, Arguments... arguments ) {
    Shim::Sdk & sdk = self.isScripted() ? defaults() : self.sdk();
    const py::gil_scoped_release released;
    return ( sdk.*member )( arguments... );
}

[[noreturn]] void notWritten( const char * method ) {
    PyErr_Format( PyExc_NotImplementedError, "the SDK has no %s", method );
    throw py::error_already_set();
}

// Does an operation on an SDK that is not written in Python.
template <class Operation>
auto operate( SdkObject & self, const char * method, const Operation & operation ) {
    if ( self.isScripted() )
        notWritten( method );
    Shim::Sdk & sdk = self.sdk();
    const py::gil_scoped_release released;
    return operation( sdk );
}

py::object & installed() {
    static auto * const object = new py::object( py::none() );
    return *object;
}

unsigned runningRecipes = 0; // guarded by the interpreter's lock
thread_local unsigned ownRecipes = 0;

} // namespace

// --- From the library to Python

template <class Use, class... Arguments>
void ScriptedSdk::ask( const char * method, const Use & use,
                       const Arguments &... arguments ) noexcept {
    const InterpreterScope interpreter;
    try {
        const py::object self =
            py::cast( static_cast<SdkObject *>( this ), py::return_value_policy::reference );
        use( self.attr( method )( arguments... ) );
    } catch ( const py::error_already_set & error ) {
        stopForError( method, traceback( error ) );
    } catch ( const std::exception & error ) {
        stopForError( method,
                      std::string( "its result is of a wrong type: " ) + error.what() + "\n" );
    }
}

template <class Result, class... Arguments>
Result ScriptedSdk::get( const char * method, const Arguments &... arguments ) noexcept {
    Result result{};
    ask(
        method, [&]( const py::object & returned ) { result = returned.cast<Result>(); },
        arguments... );
    return result;
}

template <class... Arguments>
const char * ScriptedSdk::text( const char * method, const Arguments &... arguments ) noexcept {
    const char * result = "";
    ask(
        method,
        [&]( const py::object & returned ) {
            result = texts_.insert( returned.cast<std::string>() ).first->c_str();
        },
        arguments... );
    return result;
}

const char * ScriptedSdk::errmsg( int rc ) noexcept { return text( "errmsg", rc ); }

// The constants, the names and the hooks have no arguments.
#define CAIRN_NUMBER( name )                                                                       \
    std::uint32_t ScriptedSdk::name() noexcept { return get<std::uint32_t>( #name ); }
#define CAIRN_TEXT( name )                                                                         \
    const char * ScriptedSdk::name() noexcept { return text( #name ); }
CAIRN_NUMBER( BCMLT_ENT_ATTR_GET_FROM_HW )
CAIRN_NUMBER( BCMLT_OPCODE_DELETE )
CAIRN_NUMBER( BCMLT_OPCODE_INSERT )
CAIRN_NUMBER( BCMLT_OPCODE_LOOKUP )
CAIRN_NUMBER( BCMLT_OPCODE_UPDATE )
CAIRN_NUMBER( BCMLT_PRIORITY_NORMAL )
CAIRN_NUMBER( BCMLT_PT_OPCODE_GET )
CAIRN_NUMBER( BCMLT_PT_OPCODE_MODIFY )
CAIRN_NUMBER( BCMLT_PT_OPCODE_SET )
CAIRN_NUMBER( BCMLT_INVALID_HDL )
CAIRN_TEXT( ENABLEs )
CAIRN_TEXT( NUM_LANESs )
CAIRN_TEXT( PC_PHYS_PORT_IDs )
CAIRN_TEXT( PC_PORT_PHYS_MAPs )
CAIRN_TEXT( PC_PORTs )
CAIRN_TEXT( PORT_IDs )
CAIRN_TEXT( SPEEDs )
#undef CAIRN_NUMBER
#undef CAIRN_TEXT

int ScriptedSdk::bcmlt_entry_allocate( int unit, const char * table,
                                       std::uint32_t * handle ) noexcept {
    const auto [rc, allocated] =
        get<std::pair<int, std::uint32_t>>( "bcmlt_entry_allocate", unit, table );
    if ( rc >= 0 )
        *handle = allocated;
    return rc;
}

int ScriptedSdk::bcmlt_entry_attrib_set( std::uint32_t handle, std::uint32_t attribute ) noexcept {
    return get<int>( "bcmlt_entry_attrib_set", handle, attribute );
}

int ScriptedSdk::bcmlt_entry_commit( std::uint32_t handle, std::uint32_t opcode,
                                     std::uint32_t priority ) noexcept {
    return get<int>( "bcmlt_entry_commit", handle, opcode, priority );
}

int ScriptedSdk::bcmlt_entry_field_add( std::uint32_t handle, const char * field,
                                        std::uint64_t value ) noexcept {
    return get<int>( "bcmlt_entry_field_add", handle, field, value );
}

int ScriptedSdk::bcmlt_entry_field_array_add( std::uint32_t handle, const char * field,
                                              std::uint32_t startIndex,
                                              const std::uint64_t * values,
                                              std::uint32_t count ) noexcept {
    return get<int>( "bcmlt_entry_field_array_add", handle, field, startIndex,
                     std::vector<std::uint64_t>( values, values + count ) );
}

int ScriptedSdk::bcmlt_entry_field_get( std::uint32_t handle, const char * field,
                                        std::uint64_t * value ) noexcept {
    const auto [rc, read] =
        get<std::pair<int, std::uint64_t>>( "bcmlt_entry_field_get", handle, field );
    if ( rc >= 0 )
        *value = read;
    return rc;
}

int ScriptedSdk::bcmlt_entry_field_symbol_add( std::uint32_t handle, const char * field,
                                               const char * symbol ) noexcept {
    return get<int>( "bcmlt_entry_field_symbol_add", handle, field, symbol );
}

int ScriptedSdk::bcmlt_entry_free( std::uint32_t handle ) noexcept {
    return get<int>( "bcmlt_entry_free", handle );
}

int ScriptedSdk::bcmlt_pt_entry_commit( std::uint32_t handle, std::uint32_t opcode,
                                        std::uint32_t priority ) noexcept {
    return get<int>( "bcmlt_pt_entry_commit", handle, opcode, priority );
}

void ScriptedSdk::preCallHook() noexcept {
    ask( "pre_call_hook", []( const py::object & ) {} );
}

void ScriptedSdk::failureHook() noexcept {
    ask( "failure_hook", []( const py::object & ) {} );
}

// --- The SDK in force

RecipeScope::RecipeScope() {
    ++runningRecipes;
    ++ownRecipes;
}

RecipeScope::~RecipeScope() {
    --runningRecipes;
    --ownRecipes;
}

bool recipesRunElsewhere() { return runningRecipes != ownRecipes; }

py::object install( py::object object ) {
    if ( runningRecipes != 0 )
        throw std::runtime_error( "a recipe runs; its SDK cannot be changed" );
    Shim::Sdk * sdk = object.is_none() ? nullptr : &object.cast<SdkObject &>().sdk();
    if ( sdk != nullptr && isWitnessing() )
        sdk = &witness( *sdk );
    Shim::sdk_ = sdk;
    return std::exchange( installed(), std::move( object ) );
}

void installInChild() {
    runningRecipes = 0;
    ownRecipes = 0;
    install( installed() );
}

void bindSdk( py::module_ & module ) {
    py::class_<SdkObject, ScriptedSdk, std::shared_ptr<SdkObject>> sdk(
        module, "Sdk",
        "An SDK: what recipes call. Derive from it to write one in Python.\n\n"
        "Operations return their code; bcmlt_entry_allocate and bcmlt_entry_field_get return the code\n"
        "and the handle or the value. Constants, names, error texts and hooks need not be written." );
    sdk.def( py::init_alias<>() );

    sdk.def( "errmsg", &answer<&Shim::Sdk::errmsg, int>, py::arg( "rc" ) );
    sdk.def( "BCMLT_ENT_ATTR_GET_FROM_HW", &answer<&Shim::Sdk::BCMLT_ENT_ATTR_GET_FROM_HW> );
    sdk.def( "BCMLT_OPCODE_DELETE", &answer<&Shim::Sdk::BCMLT_OPCODE_DELETE> );
    sdk.def( "BCMLT_OPCODE_INSERT", &answer<&Shim::Sdk::BCMLT_OPCODE_INSERT> );
    sdk.def( "BCMLT_OPCODE_LOOKUP", &answer<&Shim::Sdk::BCMLT_OPCODE_LOOKUP> );
    sdk.def( "BCMLT_OPCODE_UPDATE", &answer<&Shim::Sdk::BCMLT_OPCODE_UPDATE> );
    sdk.def( "BCMLT_PRIORITY_NORMAL", &answer<&Shim::Sdk::BCMLT_PRIORITY_NORMAL> );
    sdk.def( "BCMLT_PT_OPCODE_GET", &answer<&Shim::Sdk::BCMLT_PT_OPCODE_GET> );
    sdk.def( "BCMLT_PT_OPCODE_MODIFY", &answer<&Shim::Sdk::BCMLT_PT_OPCODE_MODIFY> );
    sdk.def( "BCMLT_PT_OPCODE_SET", &answer<&Shim::Sdk::BCMLT_PT_OPCODE_SET> );
    sdk.def( "BCMLT_INVALID_HDL", &answer<&Shim::Sdk::BCMLT_INVALID_HDL> );
    sdk.def( "ENABLEs", &answer<&Shim::Sdk::ENABLEs> );
    sdk.def( "NUM_LANESs", &answer<&Shim::Sdk::NUM_LANESs> );
    sdk.def( "PC_PHYS_PORT_IDs", &answer<&Shim::Sdk::PC_PHYS_PORT_IDs> );
    sdk.def( "PC_PORT_PHYS_MAPs", &answer<&Shim::Sdk::PC_PORT_PHYS_MAPs> );
    sdk.def( "PC_PORTs", &answer<&Shim::Sdk::PC_PORTs> );
    sdk.def( "PORT_IDs", &answer<&Shim::Sdk::PORT_IDs> );
    sdk.def( "SPEEDs", &answer<&Shim::Sdk::SPEEDs> );

    sdk.def(
        "bcmlt_entry_allocate",
        []( SdkObject & self, int unit, const std::string & table ) {
            return operate( self, "bcmlt_entry_allocate", [&]( Shim::Sdk & inner ) {
                std::uint32_t handle = inner.BCMLT_INVALID_HDL();
                const int rc = inner.bcmlt_entry_allocate( unit, table.c_str(), &handle );
                return std::pair( rc, handle );
            } );
        },
        py::arg( "unit" ), py::arg( "table" ) );
    sdk.def(
        "bcmlt_entry_attrib_set",
        []( SdkObject & self, std::uint32_t handle, std::uint32_t attribute ) {
            return operate( self, "bcmlt_entry_attrib_set", [&]( Shim::Sdk & inner ) {
                return inner.bcmlt_entry_attrib_set( handle, attribute );
            } );
        },
        py::arg( "handle" ), py::arg( "attribute" ) );
    sdk.def(
        "bcmlt_entry_commit",
        []( SdkObject & self, std::uint32_t handle, std::uint32_t opcode, std::uint32_t priority ) {
            return operate( self, "bcmlt_entry_commit", [&]( Shim::Sdk & inner ) {
                return inner.bcmlt_entry_commit( handle, opcode, priority );
            } );
        },
        py::arg( "handle" ), py::arg( "opcode" ), py::arg( "priority" ) );
    sdk.def(
        "bcmlt_entry_field_add",
        []( SdkObject & self, std::uint32_t handle, const std::string & field,
            std::uint64_t value ) {
            return operate( self, "bcmlt_entry_field_add", [&]( Shim::Sdk & inner ) {
                return inner.bcmlt_entry_field_add( handle, field.c_str(), value );
            } );
        },
        py::arg( "handle" ), py::arg( "field" ), py::arg( "value" ) );
    sdk.def(
        "bcmlt_entry_field_array_add",
        []( SdkObject & self, std::uint32_t handle, const std::string & field,
            std::uint32_t startIndex, const std::vector<std::uint64_t> & values ) {
            return operate( self, "bcmlt_entry_field_array_add", [&]( Shim::Sdk & inner ) {
                return inner.bcmlt_entry_field_array_add(
                    handle, field.c_str(), startIndex, values.data(),
                    static_cast<std::uint32_t>( values.size() ) );
            } );
        },
        py::arg( "handle" ), py::arg( "field" ), py::arg( "start_index" ), py::arg( "values" ) );
    sdk.def(
        "bcmlt_entry_field_get",
        []( SdkObject & self, std::uint32_t handle, const std::string & field ) {
            return operate( self, "bcmlt_entry_field_get", [&]( Shim::Sdk & inner ) {
                std::uint64_t value = 0;
                const int rc = inner.bcmlt_entry_field_get( handle, field.c_str(), &value );
                return std::pair( rc, value );
            } );
        },
        py::arg( "handle" ), py::arg( "field" ) );
    sdk.def(
        "bcmlt_entry_field_symbol_add",
        []( SdkObject & self, std::uint32_t handle, const std::string & field,
            const std::string & symbol ) {
            return operate( self, "bcmlt_entry_field_symbol_add", [&]( Shim::Sdk & inner ) {
                return inner.bcmlt_entry_field_symbol_add( handle, field.c_str(), symbol.c_str() );
            } );
        },
        py::arg( "handle" ), py::arg( "field" ), py::arg( "symbol" ) );
    sdk.def(
        "bcmlt_entry_free",
        []( SdkObject & self, std::uint32_t handle ) {
            return operate( self, "bcmlt_entry_free",
                            [&]( Shim::Sdk & inner ) { return inner.bcmlt_entry_free( handle ); } );
        },
        py::arg( "handle" ) );
    sdk.def(
        "bcmlt_pt_entry_commit",
        []( SdkObject & self, std::uint32_t handle, std::uint32_t opcode, std::uint32_t priority ) {
            return operate( self, "bcmlt_pt_entry_commit", [&]( Shim::Sdk & inner ) {
                return inner.bcmlt_pt_entry_commit( handle, opcode, priority );
            } );
        },
        py::arg( "handle" ), py::arg( "opcode" ), py::arg( "priority" ) );

    sdk.def( "pre_call_hook", []( SdkObject & self ) {
        if ( !self.isScripted() )
            self.sdk().preCallHook();
    } );
    sdk.def( "failure_hook", []( SdkObject & self ) {
        if ( !self.isScripted() )
            self.sdk().failureHook();
    } );

    module.def(
        "install", &install, py::arg( "sdk" ).none( true ),
        "Makes this SDK the one that recipes use, None for none, and returns the one before." );
    module.def( "recipes_run_elsewhere", &recipesRunElsewhere,
                "Whether a thread other than the calling one runs a recipe." );
    module.def(
        "installed_sdk", [] { return installed(); }, "The SDK that recipes use, or None." );
}

} // namespace Python
