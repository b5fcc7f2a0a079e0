#include "tools/model/Arguments.h"

#include "text/NearestName.h"
#include "text/Numbers.h"
#include "tools/model/Errors.h"
#include "tools/model/Model.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <utility>

namespace Tool {

namespace {

bool parseBoolean( std::string_view text, bool & value ) {
    value = text == "true" || text == "1" || text == "on";
    return value || text == "false" || text == "0" || text == "off";
}

// "setEgrTunnelEcnEncap takes 3 arguments: unit, index, outerEcn"
std::string takes( const Recipe & recipe ) {
    const auto parameters = recipe.parameters();
    if ( parameters.empty() )
        return fmt::format( "{} takes no arguments", recipe.name );
    std::vector<std::string_view> names;
    for ( const Parameter & parameter : parameters )
        names.push_back( parameter.name );
    return fmt::format( "{} takes {}: {}", recipe.name, Text::counted( names.size(), "argument" ),
                        fmt::join( names, ", " ) );
}

[[noreturn]] void refuse( const Recipe & recipe, const Parameter & parameter,
                          std::string_view problem, std::string remedy ) {
    throw InputError( fmt::format( "{}: {}: {}", recipe.name, parameter.name, problem ),
                      std::move( remedy ) );
}

uint64_t parseInteger( const Recipe & recipe, const Parameter & parameter, std::string_view text ) {
    const uint64_t top = std::min( largest( parameter.type ), parameter.limit );
    const std::string range = fmt::format( "write 0 to {}", top );
    uint64_t number = 0;
    if ( !Text::parseNumber( text, number ) ) {
        const bool digits =
            !text.empty() && text.find_first_not_of( "0123456789" ) == std::string_view::npos;
        if ( !digits )
            refuse( recipe, parameter,
                    fmt::format( "\"{}\" is not a {}", text, spelling( parameter.type ) ),
                    range + ", in decimal or in hexadecimal after 0x" );
        number = std::numeric_limits<uint64_t>::max(); // more than 64 bits
    }
    if ( number > largest( parameter.type ) )
        refuse( recipe, parameter,
                fmt::format( "{} is too large for a {}", text, spelling( parameter.type ) ),
                range );
    if ( number > parameter.limit )
        refuse( recipe, parameter,
                fmt::format( "{} is too large: {}", text, parameter.limitReason ), range );
    return number;
}

void checkUnit( const Recipe & recipe, const Parameter & parameter, uint64_t unit,
                const Model & model ) {
    if ( model.findUnit( unit ) != nullptr )
        return;
    std::vector<int> units;
    for ( const ChipDescription & chip : model.chips )
        units.push_back( chip.unit );
    refuse( recipe, parameter, fmt::format( "there is no unit {}", unit ),
            units.empty() ? ""
                          : fmt::format( "the chips are units {}", fmt::join( units, ", " ) ) );
}

CairnCentral::ChipInfo findChip( const Recipe & recipe, const Parameter & parameter,
                                 std::string_view name, const Model & model ) {
    const ChipDescription * chip = model.findChip( name );
    if ( chip != nullptr )
        return chip->info;
    std::vector<std::string_view> names;
    for ( const ChipDescription & each : model.chips )
        names.push_back( each.info.name().view() );
    refuse( recipe, parameter, fmt::format( "there is no chip \"{}\"", name ),
            Text::nameHint( name, names ) );
}

} // namespace

Argument parseArgument( const Recipe & recipe, const Parameter & parameter, std::string_view text,
                        const Model & model ) {
    switch ( parameter.type ) {
    case ArgumentType::boolean: {
        bool value = false;
        if ( !parseBoolean( text, value ) )
            refuse( recipe, parameter, fmt::format( "\"{}\" is not a bool", text ),
                    "write true, false, 1, 0, on or off" );
        return value;
    }
    case ArgumentType::text:
        return std::string( text );
    case ArgumentType::chip:
        return findChip( recipe, parameter, text, model );
    default: {
        const uint64_t number = parseInteger( recipe, parameter, text );
        if ( parameter.isUnit() )
            checkUnit( recipe, parameter, number, model );
        return number;
    }
    }
}

std::vector<Argument> parseArguments( const Recipe & recipe, std::span<const std::string> texts,
                                      const Model & model ) {
    const auto parameters = recipe.parameters();
    if ( texts.size() != parameters.size() )
        throw InputError( takes( recipe ), fmt::format( "{} {} given", texts.size(),
                                                        texts.size() == 1 ? "is" : "are" ) );
    std::vector<Argument> arguments;
    for ( std::size_t i = 0; i < texts.size(); ++i )
        arguments.push_back( parseArgument( recipe, parameters[i], texts[i], model ) );
    checkModelFor( recipe, model );
    return arguments;
}

void checkModelFor( const Recipe & recipe, const Model & model ) {
    if ( recipe.needsModule && model.modules.empty() )
        throw InputError(
            fmt::format( "{}: it works on the first module, and there is none", recipe.name ),
            "describe it as [[modules]]" );
}

std::vector<std::string> sampleArguments( const Recipe & recipe, const Model & model ) {
    std::vector<std::string> texts;
    for ( const Parameter & parameter : recipe.parameters() ) {
        if ( !parameter.sample.empty() || model.chips.empty() )
            texts.emplace_back( parameter.sample );
        else if ( parameter.type == ArgumentType::chip )
            texts.push_back( model.chips.front().name() );
        else
            texts.push_back( fmt::to_string( model.chips.front().unit ) );
    }
    return texts;
}

const Recipe & needRecipe( std::string_view name ) {
    const Recipe * recipe = findRecipe( name );
    if ( recipe != nullptr )
        return *recipe;
    std::vector<std::string_view> names;
    for ( const Recipe & each : recipes() )
        names.push_back( each.name );
    const std::string hint = Text::nameHint( name, names );
    throw InputError(
        fmt::format( "there is no recipe \"{}\"", name ),
        fmt::format( "{}{}\"cairn-lt list\" shows all", hint, hint.empty() ? "" : "; " ) );
}

std::string toText( const Argument & argument ) {
    if ( const auto * number = std::get_if<uint64_t>( &argument ) )
        return fmt::to_string( *number );
    if ( const auto * flag = std::get_if<bool>( &argument ) )
        return *flag ? "true" : "false";
    if ( const auto * text = std::get_if<std::string>( &argument ) )
        return *text;
    return std::string( std::get<CairnCentral::ChipInfo>( argument ).name().view() );
}

std::string callText( const Recipe & recipe, std::span<const Argument> arguments ) {
    std::vector<std::string> texts;
    for ( std::size_t i = 0; i < arguments.size(); ++i )
        texts.push_back(
            fmt::format( "{}={}", recipe.parameters()[i].name, toText( arguments[i] ) ) );
    return texts.empty() ? fmt::format( "{}()", recipe.name )
                         : fmt::format( "{}( {} )", recipe.name, fmt::join( texts, ", " ) );
}

std::string toText( const Result & result ) {
    if ( const auto * flag = std::get_if<bool>( &result ) )
        return *flag ? "true" : "false";
    if ( const auto * number = std::get_if<uint16_t>( &result ) )
        return fmt::to_string( *number );
    return {};
}

Result parseResult( const Recipe & recipe, std::string_view text ) {
    const auto refuseText = [&]( const char * type, const char * remedy ) {
        throw InputError( fmt::format( "{}: expect: \"{}\" is not a {}", recipe.name, text, type ),
                          remedy );
    };
    switch ( recipe.result ) {
    case ResultType::boolean: {
        bool value = false;
        if ( !parseBoolean( text, value ) )
            refuseText( "bool", "write true or false" );
        return value;
    }
    case ResultType::uint16: {
        uint64_t number = 0;
        if ( !Text::parseNumber( text, number ) || number > std::numeric_limits<uint16_t>::max() )
            refuseText( "uint16_t", "write 0 to 65535" );
        return static_cast<uint16_t>( number );
    }
    case ResultType::none:
        break;
    }
    throw InputError(
        fmt::format( "{} returns nothing, so nothing can be expected of it", recipe.name ),
        "leave \"expect\" out" );
}

} // namespace Tool
