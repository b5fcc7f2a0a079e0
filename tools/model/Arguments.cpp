#include "tools/model/Arguments.h"

#include "text/NearestName.h"
#include "text/Numbers.h"
#include "tools/model/Errors.h"
#include "tools/model/Model.h"

#include <algorithm>
#include <cstddef>

namespace Tool {

namespace {

std::string quoted( std::string_view text ) { return "\"" + std::string( text ) + "\""; }

bool parseBoolean( std::string_view text, bool & value ) {
    value = text == "true" || text == "1" || text == "on";
    return value || text == "false" || text == "0" || text == "off";
}

// "setEgrTunnelEcnEncap takes 3 arguments: unit, index, outerEcn"
std::string takes( const Recipe & recipe ) {
    const auto parameters = recipe.parameters();
    std::string text( recipe.name );
    if ( parameters.empty() )
        return text + " takes no arguments";
    text += " takes " + std::to_string( parameters.size() );
    text += parameters.size() == 1 ? " argument: " : " arguments: ";
    for ( std::size_t i = 0; i < parameters.size(); ++i ) {
        text += i == 0 ? "" : ", ";
        text += parameters[i].name;
    }
    return text;
}

[[noreturn]] void refuse( const Recipe & recipe, const Parameter & parameter,
                          const std::string & message ) {
    throw InputError( std::string( recipe.name ) + ": " + std::string( parameter.name ) + ": " +
                      message );
}

uint64_t parseInteger( const Recipe & recipe, const Parameter & parameter, std::string_view text ) {
    const uint64_t top = std::min( largest( parameter.type ), parameter.limit );
    const std::string range = "write 0 to " + std::to_string( top );
    uint64_t number = 0;
    if ( !Text::parseNumber( text, number ) ) {
        const bool digits =
            !text.empty() && text.find_first_not_of( "0123456789" ) == std::string_view::npos;
        if ( !digits )
            refuse( recipe, parameter,
                    quoted( text ) + " is not a " + std::string( spelling( parameter.type ) ) +
                        "; " + range + ", in decimal or in hexadecimal after 0x" );
        number = std::numeric_limits<uint64_t>::max(); // more than 64 bits
    }
    if ( number > largest( parameter.type ) )
        refuse( recipe, parameter,
                std::string( text ) + " is too large for a " +
                    std::string( spelling( parameter.type ) ) + "; " + range );
    if ( number > parameter.limit )
        refuse( recipe, parameter,
                std::string( text ) + " is too large: " + std::string( parameter.limitReason ) +
                    "; " + range );
    return number;
}

void checkUnit( const Recipe & recipe, const Parameter & parameter, uint64_t unit,
                const Model & model ) {
    if ( model.findUnit( unit ) )
        return;
    std::string units;
    for ( const ChipDescription & chip : model.chips )
        units += ( units.empty() ? "" : ", " ) + std::to_string( chip.unit );
    refuse( recipe, parameter,
            "there is no unit " + std::to_string( unit ) +
                ( units.empty() ? "" : "; the chips are units " + units ) );
}

CairnCentral::ChipInfo findChip( const Recipe & recipe, const Parameter & parameter,
                                 std::string_view name, const Model & model ) {
    const ChipDescription * chip = model.findChip( name );
    if ( chip != nullptr )
        return chip->info;
    std::vector<std::string_view> names;
    for ( const ChipDescription & each : model.chips )
        names.push_back( each.info.name().view() );
    refuse( recipe, parameter,
            "there is no chip " + quoted( name ) + Text::nameHint( name, names ) );
}

} // namespace

Argument parseArgument( const Recipe & recipe, const Parameter & parameter, std::string_view text,
                        const Model & model ) {
    switch ( parameter.type ) {
    case ArgumentType::boolean: {
        bool value = false;
        if ( !parseBoolean( text, value ) )
            refuse( recipe, parameter,
                    quoted( text ) + " is not a bool; write true, false, 1, 0, on or off" );
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
        throw InputError( takes( recipe ) + "; " + std::to_string( texts.size() ) +
                          ( texts.size() == 1 ? " is" : " are" ) + " given" );
    std::vector<Argument> arguments;
    for ( std::size_t i = 0; i < texts.size(); ++i )
        arguments.push_back( parseArgument( recipe, parameters[i], texts[i], model ) );
    checkModelFor( recipe, model );
    return arguments;
}

void checkModelFor( const Recipe & recipe, const Model & model ) {
    if ( recipe.needsModule && model.modules.empty() )
        throw InputError( std::string( recipe.name ) +
                          ": it works on the first module, and there is none; describe it as "
                          "[[modules]]" );
}

std::vector<std::string> sampleArguments( const Recipe & recipe, const Model & model ) {
    std::vector<std::string> texts;
    for ( const Parameter & parameter : recipe.parameters() ) {
        if ( !parameter.sample.empty() || model.chips.empty() )
            texts.emplace_back( parameter.sample );
        else if ( parameter.type == ArgumentType::chip )
            texts.push_back( model.chips.front().name() );
        else
            texts.push_back( std::to_string( model.chips.front().unit ) );
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
    throw InputError( "there is no recipe " + quoted( name ) + Text::nameHint( name, names ) +
                      "; \"cairn-lt list\" shows all" );
}

std::string toText( const Argument & argument ) {
    if ( const auto * number = std::get_if<uint64_t>( &argument ) )
        return std::to_string( *number );
    if ( const auto * flag = std::get_if<bool>( &argument ) )
        return *flag ? "true" : "false";
    if ( const auto * text = std::get_if<std::string>( &argument ) )
        return *text;
    return std::string( std::get<CairnCentral::ChipInfo>( argument ).name().view() );
}

std::string callText( const Recipe & recipe, std::span<const Argument> arguments ) {
    std::string text( recipe.name );
    text += "(";
    const auto parameters = recipe.parameters();
    for ( std::size_t i = 0; i < arguments.size(); ++i ) {
        text += i == 0 ? " " : ", ";
        text += parameters[i].name;
        text += "=";
        text += toText( arguments[i] );
    }
    return text + ( arguments.empty() ? ")" : " )" );
}

std::string toText( const Result & result ) {
    if ( const auto * flag = std::get_if<bool>( &result ) )
        return *flag ? "true" : "false";
    if ( const auto * number = std::get_if<uint16_t>( &result ) )
        return std::to_string( *number );
    return {};
}

Result parseResult( const Recipe & recipe, std::string_view text ) {
    const std::string what = std::string( recipe.name ) + ": expect: ";
    switch ( recipe.result ) {
    case ResultType::boolean: {
        bool value = false;
        if ( !parseBoolean( text, value ) )
            throw InputError( what + quoted( text ) + " is not a bool; write true or false" );
        return value;
    }
    case ResultType::uint16: {
        uint64_t number = 0;
        if ( !Text::parseNumber( text, number ) || number > std::numeric_limits<uint16_t>::max() )
            throw InputError( what + quoted( text ) + " is not a uint16_t; write 0 to 65535" );
        return static_cast<uint16_t>( number );
    }
    case ResultType::none:
        break;
    }
    throw InputError( std::string( recipe.name ) +
                      " returns nothing, so nothing can be expected of it; leave \"expect\" out" );
}

} // namespace Tool
