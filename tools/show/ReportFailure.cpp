#include "tools/show/ReportFailure.h"

#include "tools/model/Errors.h"
#include "tracereader/Recording.h"

#include <fmt/format.h>

#include <string_view>

namespace Tool {

namespace {

// More of them would tell nothing.
constexpr std::size_t mostSources = 3;

// Whether an argument of the source may have this value: a text must be it, a variable may be.
bool mayBe( const std::string & argument, std::string_view value ) {
    return !argument.starts_with( '"' ) || argument == fmt::format( "\"{}\"", value );
}

bool mayBe( const SiteTable & table, const Site & site, const Report & report,
            const ReportCall & call ) {
    using TraceReader::SdkCall;
    const auto operation = static_cast<SdkCall>( call.operation );
    if ( !site.canFail() || !site.text.starts_with( fmt::format( "{}(", name( operation ) ) ) )
        return false;
    const std::vector<std::string> arguments = argumentsOf( site.text );
    const std::string & tableName = report.texts[call.table];
    if ( operation == SdkCall::entryAllocate )
        return arguments.size() > 1 && mayBe( arguments[1], tableName );
    if ( const Site * allocate = table.allocateOf( site ) ) {
        const auto those = argumentsOf( allocate->text );
        if ( those.size() > 1 && !mayBe( those[1], tableName ) )
            return false;
    }
    if ( arguments.size() < 2 )
        return true;
    if ( isCommit( operation ) )
        return report.texts[call.arguments].starts_with( arguments[1] + " " );
    return mayBe( arguments[1], report.texts[call.field] );
}

} // namespace

std::vector<Site> sourcesOf( const Report & report, const ReportCall & call,
                             const std::string & recipe ) {
    std::vector<Site> sources;
    try {
        const SiteTable table = SiteTable::own();
        for ( const Site & site : table.sites() ) {
            if ( ( recipe.empty() || site.recipe == recipe ) && mayBe( table, site, report, call ) )
                sources.push_back( site );
        }
    } catch ( const InputError & ) {
        return {}; // a library without a table of its sites
    }
    if ( sources.size() > mostSources )
        sources.clear();
    return sources;
}

} // namespace Tool
