#include "python/module/Recipes.h"

#include "python/module/Bindings.h"
#include "python/module/Locks.h"
#include "python/module/Model.h"
#include "python/module/Sdk.h"
#include "python/module/Witness.h"

#include <Shim/Sdk.h>

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

namespace py = pybind11;

namespace Python {

namespace {

std::string place( const Tool::Recipe & recipe, const Tool::Parameter & parameter ) {
    return fmt::format( "{}: {}", recipe.name, parameter.name );
}

[[noreturn]] void refuseType( const Tool::Recipe & recipe, const Tool::Parameter & parameter,
                              const char * wanted, const py::handle & given ) {
    throw py::type_error( fmt::format( "{} is {}, not {}", place( recipe, parameter ), wanted,
                                       Py_TYPE( given.ptr() )->tp_name ) );
}

uint64_t number( const Tool::Recipe & recipe, const Tool::Parameter & parameter,
                 const py::handle & given ) {
    if ( PyIndex_Check( given.ptr() ) == 0 || PyBool_Check( given.ptr() ) )
        refuseType( recipe, parameter, "an integer", given );
    const auto value = py::reinterpret_steal<py::object>( PyNumber_Index( given.ptr() ) );
    if ( !value )
        throw py::error_already_set();
    const uint64_t most = std::min( Tool::largest( parameter.type ), parameter.limit );
    int overflow = 0;
    const long long small = PyLong_AsLongLongAndOverflow( value.ptr(), &overflow );
    if ( overflow != 0 || small < 0 || static_cast<uint64_t>( small ) > most )
        throw py::value_error( fmt::format( "{} is 0 to {}{}{}, not {}", place( recipe, parameter ),
                                            most, most == parameter.limit ? ", because " : "",
                                            most == parameter.limit ? parameter.limitReason : "",
                                            std::string( py::str( value ) ) ) );
    return static_cast<uint64_t>( small );
}

Tool::Argument argument( const Tool::Recipe & recipe, const Tool::Parameter & parameter,
                         const py::handle & given ) {
    switch ( parameter.type ) {
    case Tool::ArgumentType::boolean:
        if ( !PyBool_Check( given.ptr() ) )
            refuseType( recipe, parameter, "a bool", given );
        return given.cast<bool>();
    case Tool::ArgumentType::text: {
        if ( !py::isinstance<py::str>( given ) )
            refuseType( recipe, parameter, "a text", given );
        Py_ssize_t length = 0;
        const char * const utf8 = PyUnicode_AsUTF8AndSize( given.ptr(), &length );
        if ( utf8 == nullptr )
            throw py::error_already_set();
        std::string text( utf8, static_cast<std::size_t>( length ) );
        if ( text.find( '\0' ) != std::string::npos )
            throw py::value_error( place( recipe, parameter ) + " has a NUL character" );
        return text;
    }
    case Tool::ArgumentType::chip:
        if ( !py::isinstance<CairnCentral::ChipInfo>( given ) )
            refuseType( recipe, parameter, "a ChipInfo", given );
        return given.cast<CairnCentral::ChipInfo>();
    default:
        return number( recipe, parameter, given );
    }
}

Cairn::CairnCommonSmData::Ptr sharedState( const Tool::Recipe & recipe, const py::handle & given ) {
    if ( !py::isinstance<SharedState>( given ) )
        throw py::type_error( fmt::format( "{}: {} is a SharedState, not {}", recipe.name,
                                           recipe.sharedStateName,
                                           Py_TYPE( given.ptr() )->tp_name ) );
    const auto & state = given.cast<const SharedState &>();
    if ( recipe.needsModule && state.data->cairnModIds.empty() )
        throw py::value_error(
            fmt::format( "{}: {} has no module, and the recipe reads the first one; add one",
                         recipe.name, recipe.sharedStateName ) );
    return state.data;
}

// `given` is one for each parameter, the shared state in front.
py::object call( const std::string & name, const py::args & given ) {
    const Tool::Recipe * const recipe = Tool::findRecipe( name );
    if ( recipe == nullptr )
        throw py::value_error( "there is no recipe " + name );
    const std::size_t before = recipe->takesSharedState ? 1 : 0;
    const auto parameters = recipe->parameters();
    if ( given.size() != before + parameters.size() )
        throw py::type_error( fmt::format( "{} takes {} arguments, not {}", name,
                                           before + parameters.size(), given.size() ) );
    Cairn::CairnCommonSmData::Ptr state;
    if ( recipe->takesSharedState )
        state = sharedState( *recipe, given[0] );
    std::vector<Tool::Argument> arguments;
    for ( std::size_t i = 0; i < parameters.size(); ++i )
        arguments.push_back( argument( *recipe, parameters[i], given[before + i] ) );
    return invoke( *recipe, arguments, state );
}

py::dict description( const Tool::Recipe & recipe ) {
    py::list parameters;
    if ( recipe.takesSharedState )
        parameters.append(
            py::make_tuple( recipe.sharedStateName, "CairnCommonSmData::Ptr", py::none(), "" ) );
    for ( const Tool::Parameter & parameter : recipe.parameters() ) {
        py::object most = py::none();
        if ( parameter.type <= Tool::ArgumentType::uint32 )
            most = py::int_( std::min( Tool::largest( parameter.type ), parameter.limit ) );
        parameters.append( py::make_tuple( parameter.name, spelling( parameter.type ), most,
                                           parameter.limitReason ) );
    }
    py::dict dict;
    dict["name"] = recipe.name;
    dict["family"] = recipe.family;
    dict["summary"] = recipe.summary;
    dict["parameters"] = parameters;
    dict["result"] = spelling( recipe.result );
    return dict;
}

} // namespace

py::object invoke( const Tool::Recipe & recipe, std::span<const Tool::Argument> arguments,
                   const Cairn::CairnCommonSmData::Ptr & state ) {
    // As an agent's thread: with the activity lock, and with the interpreter's, which the library
    // gives up around each SDK operation.
    const ActivityScope activity;
    if ( Shim::sdk_ == nullptr )
        throw std::runtime_error(
            std::string( recipe.name ) +
            ": there is no SDK; install one, cairn_lt.install( cairn_lt.Chip() )" );
    const RecipeScope running;
    tellRecipe( recipe.name );
    const Tool::Result result = recipe.invoke( arguments, state );
    tellReturn();
    if ( const auto * flag = std::get_if<bool>( &result ) )
        return py::bool_( *flag );
    if ( const auto * value = std::get_if<uint16_t>( &result ) )
        return py::int_( *value );
    return py::none();
}

void bindRecipes( py::module_ & module ) {
    module.def( "call", &call, py::arg( "recipe" ),
                "Calls a recipe, with one argument for each of its parameters." );
    module.def(
        "recipes",
        [] {
            py::list list;
            for ( const Tool::Recipe & recipe : Tool::recipes() )
                list.append( description( recipe ) );
            return list;
        },
        "The registry: name, family, summary, parameters (name, type, largest number, reason) and result." );
}

} // namespace Python
