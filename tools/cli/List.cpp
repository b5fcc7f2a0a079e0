#include "tools/cli/Verbs.h"
#include "tools/recipes/Registry.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <string>

namespace Tool {

namespace {

using Json = nlohmann::ordered_json;

Json recipeJson( const Recipe & recipe ) {
    Json parameters = Json::array();
    for ( const Parameter & parameter : recipe.parameters() )
        parameters.push_back(
            { { "name", parameter.name }, { "type", spelling( parameter.type ) } } );
    return { { "name", recipe.name },
             { "family", recipe.family },
             { "summary", recipe.summary },
             { "parameters", std::move( parameters ) },
             { "result", spelling( recipe.result ) },
             { "takes_shared_state", recipe.takesSharedState } };
}

// The summary in lines of at most `width` characters, each indented.
std::string wrapped( std::string_view text, std::size_t width, const std::string & indent ) {
    std::string lines;
    while ( !text.empty() ) {
        std::size_t end = text.size();
        if ( end > width ) {
            end = text.rfind( ' ', width );
            if ( end == std::string_view::npos )
                end = text.size();
        }
        lines += indent + std::string( text.substr( 0, end ) ) + "\n";
        text.remove_prefix( std::min( text.size(), end + 1 ) );
    }
    return lines;
}

std::string recipeText( const Recipe & recipe ) {
    std::string text( recipe.name );
    for ( const Parameter & parameter : recipe.parameters() )
        text +=
            " " + std::string( parameter.name ) + ":" + std::string( spelling( parameter.type ) );
    if ( recipe.result != ResultType::none )
        text += " -> " + std::string( spelling( recipe.result ) );
    return text;
}

} // namespace

int list( const ListOptions & options ) {
    if ( options.format == Format::json ) {
        Json all = Json::array();
        for ( const Recipe & recipe : recipes() )
            all.push_back( recipeJson( recipe ) );
        print( documentText( { { "recipes", std::move( all ) } } ) );
        return 0;
    }
    std::string text;
    std::string_view family;
    for ( const Recipe & recipe : recipes() ) {
        if ( recipe.family != family ) {
            text += ( text.empty() ? "" : "\n" ) + heading( recipe.family ) + "\n";
            family = recipe.family;
        }
        text += "  " + recipeText( recipe ) + "\n";
        constexpr std::size_t width = 90;
        text += wrapped( recipe.summary, width, "      " );
    }
    print( text );
    return 0;
}

} // namespace Tool
