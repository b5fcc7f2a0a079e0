#include "text/NearestName.h"
#include "tools/cli/DiagnoseOutput.h"
#include "tools/cli/Output.h"
#include "tools/cli/Verbs.h"
#include "tools/diagnose/ErrorPages.h"
#include "tools/model/Errors.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <string>
#include <string_view>
#include <vector>

// The knowledge pages, as the verb shows them.

namespace Tool {

namespace {

using Json = nlohmann::ordered_json;

Json pageJson( const ErrorPage & page ) {
    return { { "name", page.name },
             { "source", toText( page.source ) },
             { "code", page.code ? Json( *page.code ) : Json() },
             { "meaning", page.meaning },
             { "causes", page.causes },
             { "remedy", page.remedy },
             { "texts", page.texts } };
}

std::string pageText( const ErrorPage & page ) {
    std::string text =
        heading( fmt::format( "{}: {}{}", page.name, toText( page.source ),
                              page.code ? fmt::format( ", {}", *page.code ) : "" ) ) +
        "\n";
    Sheet sheet;
    sheet.add( "meaning", page.meaning );
    sheet.add( "causes", page.causes );
    sheet.add( "to do", page.remedy );
    for ( std::size_t i = 0; i < page.texts.size(); ++i )
        sheet.add( i == 0 ? "printed" : "", page.texts[i] );
    return text + sheet.text();
}

std::string pagesMarkdown() {
    std::string text =
        "# Errors\n\nEach error that the library, its platform and `cairn-lt` print: what it means, "
        "usual causes, and what to\ndo. `{}` stands for a value. `cairn-lt diagnose --error NAME` "
        "shows one of them; NAME may also be a code, or the\nprinted line. Written by `cairn-lt "
        "diagnose --error all --format markdown`. Do not edit.\n";
    const auto * before = static_cast<const ErrorPage *>( nullptr );
    for ( const ErrorPage & page : errorPages() ) {
        if ( before == nullptr || before->source != page.source )
            text += fmt::format( "\n# {}\n", pluralOf( page.source ) );
        text += fmt::format( "\n## {}{}\n\n", page.name,
                             page.code ? fmt::format( " ({})", *page.code ) : "" );
        for ( const std::string_view each : page.texts )
            text += fmt::format( "    {}\n", each );
        text += fmt::format( "\n{} {}\n\n**To do:** {}\n", page.meaning, page.causes, page.remedy );
        before = &page;
    }
    return text;
}

} // namespace

int showErrorPage( const std::string & wanted, DiagnoseFormat format ) {
    if ( format == DiagnoseFormat::ndjson )
        throw InputError( "--format: a page is no stop", "write text, json or markdown" );
    if ( wanted == "all" && format == DiagnoseFormat::markdown ) {
        print( pagesMarkdown() );
        return 0;
    }
    if ( format == DiagnoseFormat::markdown )
        throw InputError( "--format: markdown is for all pages", "write --error all" );
    if ( wanted == "all" ) {
        Json all = Json::array();
        std::string text;
        for ( const ErrorPage & page : errorPages() ) {
            all.push_back( pageJson( page ) );
            text += ( text.empty() ? "" : "\n" ) + pageText( page );
        }
        print( format == DiagnoseFormat::json ? documentText( all ) : text );
        return 0;
    }
    const ErrorPage * const page = findErrorPage( wanted );
    if ( page == nullptr ) {
        std::vector<std::string_view> names;
        for ( const ErrorPage & each : errorPages() )
            names.push_back( each.name );
        throw InputError( fmt::format( "--error: there is no page of \"{}\"{}", wanted,
                                       Text::nearestHint( wanted, names ) ),
                          "\"cairn-lt diagnose --error all\" shows all" );
    }
    print( format == DiagnoseFormat::json ? documentText( pageJson( *page ) ) : pageText( *page ) );
    return 0;
}

} // namespace Tool
