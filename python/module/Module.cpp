#include "python/module/Bindings.h"
#include "tools/model/Errors.h"

#include <exception>
#include <system_error>
#include <utility>

namespace {

// InputError with its parts as attributes; Trouble and errors of the system as OSError.
void translate( std::exception_ptr thrown ) {
    if ( !thrown )
        return;
    try {
        std::rethrow_exception( std::move( thrown ) );
    } catch ( const Tool::InputError & error ) {
        const pybind11::object type =
            pybind11::module_::import( "cairn_lt._cairn_lt" ).attr( "InputError" );
        const pybind11::object value = type( error.what() );
        value.attr( "file" ) = error.file();
        value.attr( "line" ) = error.line();
        value.attr( "problem" ) = error.problem();
        value.attr( "remedy" ) = error.remedy();
        PyErr_SetObject( type.ptr(), value.ptr() );
    } catch ( const Tool::Trouble & error ) {
        PyErr_SetString( PyExc_OSError, error.what() );
    } catch ( const std::system_error & error ) {
        const pybind11::tuple arguments =
            pybind11::make_tuple( error.code().value(), error.what() );
        PyErr_SetObject( PyExc_OSError, arguments.ptr() );
    }
}

} // namespace

PYBIND11_MODULE( _cairn_lt, module ) {
    module.doc() = "The recipes and the simulated chip, as cairn_lt needs them; use cairn_lt.";
    pybind11::register_exception_translator( translate );
    pybind11::exception<Tool::InputError>( module, "InputError", PyExc_ValueError ).doc() =
        "Something in a file or an argument is wrong: file, line, problem and remedy.";
    Python::bindLocks( module );
    Python::bindSchema( module );
    Python::bindSdk( module );
    Python::bindChip( module );
    Python::bindDiff( module );
    Python::bindInterposers( module );
    Python::bindWitness( module );
    Python::bindBringup( module );
    Python::bindRecipes( module );
    Python::bindTrace( module );
    Python::bindRecording( module );
}
