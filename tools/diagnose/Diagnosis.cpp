#include "tools/diagnose/Diagnosis.h"

#include "sim/Chip.h"
#include "text/Numbers.h"
#include "tools/diagnose/ErrorPages.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <utility>

namespace Tool {

namespace {

// "NAME" of "void Cairn::NAME(uint32_t)": of a signature that no recipe of this release has.
std::string nameIn( std::string_view signature ) {
    constexpr std::string_view scope = " Cairn::";
    const std::size_t begin = signature.find( scope );
    const std::size_t end = signature.find( '(' );
    if ( begin == std::string_view::npos || end == std::string_view::npos ||
         end < begin + scope.size() )
        return {};
    return std::string( signature.substr( begin + scope.size(), end - begin - scope.size() ) );
}

void keepOnly( std::vector<Site> & sites, const auto & isWanted ) {
    std::vector<Site> kept;
    std::copy_if( sites.begin(), sites.end(), std::back_inserter( kept ), isWanted );
    if ( !kept.empty() )
        sites = std::move( kept );
}

void findSites( Diagnosis & diagnosis, const SiteTable & table,
                const TraceReader::RecordedCall * lastCall ) {
    const Stop & stop = diagnosis.stop;
    if ( stop.kind == Stop::Kind::lockMisuse ) {
        diagnosis.found = Diagnosis::Found::notAsked;
        return;
    }
    const bool isAssertion = stop.kind == Stop::Kind::assertion;
    // The second line of a failed call, without its first: any call of this line.
    const bool isFailedCall = isAssertion && stop.text == "0";
    diagnosis.function = table.recipeOf( stop.signature );
    if ( diagnosis.function.empty() )
        diagnosis.function = nameIn( stop.signature );
    for ( const Site & site : table.sites() ) {
        const bool fits = isFailedCall ? site.canFail() && site.line == stop.line
                          : isAssertion
                              ? site.kind == Site::Kind::assertion && site.text == stop.text
                              : site.canFail() && site.text == stop.text;
        if ( fits && ( diagnosis.function.empty() || site.recipe == diagnosis.function ) )
            diagnosis.sites.push_back( site );
    }
    if ( lastCall != nullptr )
        keepOnly( diagnosis.sites, [&]( const Site & site ) {
            const Site * const operation = table.operationAt( site );
            return operation != nullptr && table.patternOf( *operation ).fits( *lastCall );
        } );
    const bool hasLine = std::any_of( diagnosis.sites.begin(), diagnosis.sites.end(),
                                      [&]( const Site & site ) { return site.line == stop.line; } );
    keepOnly( diagnosis.sites, [&]( const Site & site ) { return site.line == stop.line; } );
    diagnosis.found = diagnosis.sites.empty()      ? Diagnosis::Found::nowhere
                      : diagnosis.sites.size() > 1 ? Diagnosis::Found::ambiguous
                      : hasLine                    ? Diagnosis::Found::exactly
                                                   : Diagnosis::Found::byText;
    if ( diagnosis.sites.empty() )
        return;
    const std::string & recipe = diagnosis.sites.front().recipe;
    if ( std::all_of( diagnosis.sites.begin(), diagnosis.sites.end(),
                      [&]( const Site & site ) { return site.recipe == recipe; } ) )
        diagnosis.function = recipe;
}

// A name as the call spells it: in quotes, or one that the SDK or the recipe gives.
std::string plain( std::string_view argument ) {
    return literalOf( argument ).value_or( std::string( argument ) );
}

std::string tableOf( const Site & call, const SiteTable & table ) {
    const Site * const allocate =
        call.text.starts_with( "bcmlt_entry_allocate(" ) ? &call : table.allocateOf( call );
    if ( allocate == nullptr )
        return {};
    const auto arguments = argumentsOf( allocate->text );
    // A name that is no text and no name of the SDK is one that the recipe builds.
    return arguments.size() == 3 && !arguments[1].ends_with( ')' ) ? plain( arguments[1] )
                                                                   : std::string();
}

std::string entryOf( const Site & call, const SiteTable & table ) {
    const std::string name = tableOf( call, table );
    return name.empty() ? "the entry" : "the entry of " + name;
}

// The field of a call on one; empty if it is on none.
std::string fieldOf( const Site & call ) {
    const auto arguments = argumentsOf( call.text );
    return call.text.starts_with( "bcmlt_entry_field_" ) && arguments.size() >= 2
               ? plain( arguments[1] )
               : std::string();
}

std::string targetOf( const Site & call, const SiteTable & table, const Sim::Schema & schema ) {
    const std::string name = tableOf( call, table );
    const Sim::Table * const known = schema.find( name );
    if ( name.empty() || known == nullptr )
        return {};
    std::string text = fmt::format( "{} is a {} with {}", name, Sim::kindName( known->kind ),
                                    Text::counted( known->size.rows, "row" ) );
    const std::string fieldName = fieldOf( call );
    if ( const Sim::Field * const field = known->find( fieldName ) ) {
        text += fmt::format( "; {} has {}", fieldName, Text::counted( field->width, "bit" ) );
        if ( field->length > 1 )
            text += fmt::format( " in each of {} elements", field->length );
        if ( !field->symbols.empty() )
            text += fmt::format( " and takes {}", fmt::join( field->symbolNames(), ", " ) );
    }
    return text;
}

// The call before a site that reads a field: what an assertion about a value is about.
const Site * readBefore( const Site & assertion, const SiteTable & table ) {
    const Site * nearest = nullptr;
    for ( const Site & site : table.sites() ) {
        if ( site.recipe == assertion.recipe && site.line < assertion.line &&
             site.text.starts_with( "bcmlt_entry_field_get(" ) )
            nearest = &site;
    }
    return nearest;
}

// As the source stands: branches that were not taken are not told from those that were.
void tellWhatIsLeft( Diagnosis & diagnosis, const SiteTable & table ) {
    const Site & at = diagnosis.sites.front();
    std::vector<std::string> commits;
    std::vector<std::string> open;
    for ( const Site & site : table.sites() ) {
        if ( site.recipe != at.recipe || !site.isCall() || site.line >= at.line )
            continue;
        const auto arguments = argumentsOf( site.text );
        if ( arguments.size() < 2 ) {
            if ( site.text.starts_with( "bcmlt_entry_free(" ) && !arguments.empty() )
                std::erase( open, arguments.front() );
        } else if ( site.text.starts_with( "bcmlt_entry_allocate(" ) ) {
            open.push_back( arguments.back().substr( 1 ) );
        } else if ( site.text.find( "entry_commit(" ) != std::string::npos &&
                    arguments[1].find( "LOOKUP" ) == std::string::npos &&
                    arguments[1].find( "_GET" ) == std::string::npos ) {
            commits.push_back( fmt::format( "{}, {}", site.call, entryOf( site, table ) ) );
        }
    }
    if ( !open.empty() )
        diagnosis.leftBehind.push_back(
            fmt::format( "The entry \"{}\" was not freed.", fmt::join( open, "\" and \"" ) ) );
    diagnosis.leftBehind.push_back(
        commits.empty()
            ? "No call before this one writes; a recipe that repeats its calls may have "
              "written in an earlier round."
            : fmt::format( "Calls before this one that write, where the recipe went "
                           "that way: {}.",
                           fmt::join( commits, "; " ) ) );
}

std::string meaningOf( const Stop & stop, const Site * site, const SiteTable & table ) {
    if ( stop.kind == Stop::Kind::lockMisuse )
        return "The agent used the activity lock against its rules: recipes are called by a thread "
               "that holds it, once.";
    if ( stop.kind == Stop::Kind::assertion && stop.text != "0" ) {
        std::string text = meaningOfAssertion( stop.text );
        const Site * const read = site != nullptr && stop.text.starts_with( "val " )
                                      ? readBefore( *site, table )
                                      : nullptr;
        if ( read != nullptr )
            text = fmt::format( "{} of {} was read. {}", fieldOf( *read ), tableOf( *read, table ),
                                text );
        return text;
    }
    std::string meaning = stop.rc == 0 ? std::string() : meaningOfCode( stop.rc );
    if ( meaning.empty() )
        return stop.rc == 0 ? "The report has no line with the SDK's code."
                            : "The simulated SDK has no such code; the SDK's manual says what it "
                              "means.";
    if ( stop.words == Sim::Chip().errmsg( stop.rc ) )
        return meaning;
    return fmt::format(
        "The words are those of another SDK. On the simulated chip {} is \"{}\": {}", stop.rc,
        Sim::Chip().errmsg( stop.rc ), meaning );
}

void tellNextActions( Diagnosis & diagnosis ) {
    auto & actions = diagnosis.nextActions;
    if ( diagnosis.found == Diagnosis::Found::notAsked ) {
        actions.emplace_back( "Find in a core's backtrace who took or released the lock; hold it "
                              "with one guard around the recipes." );
        return;
    }
    if ( !diagnosis.stop.fault.empty() )
        actions.emplace_back( "The fault was injected: run it again without." );
    if ( diagnosis.found == Diagnosis::Found::nowhere )
        actions.emplace_back( "Give the library file of the release that wrote the report with "
                              "--library." );
    if ( diagnosis.recipe != nullptr )
        actions.push_back(
            fmt::format( "\"cairn-lt explain {}\" shows all its steps.", diagnosis.recipe->name ) );
    if ( diagnosis.sites.size() != 1 || diagnosis.recipe == nullptr )
        return;
    const Site & site = diagnosis.sites.front();
    if ( !diagnosis.target.empty() )
        actions.push_back(
            fmt::format( "\"cairn-lt tables {}\" shows the table.",
                         diagnosis.target.substr( 0, diagnosis.target.find( " is a " ) ) ) );
    if ( site.isCall() )
        actions.push_back( fmt::format( "\"cairn-lt run {} ... --record\", with the arguments of "
                                        "the agent, tries it on the simulated chip.",
                                        diagnosis.recipe->name ) );
}

} // namespace

std::string inWords( const Site & call, const SiteTable & table ) {
    const auto arguments = argumentsOf( call.text );
    const std::string operation = call.text.substr( 0, call.text.find( '(' ) );
    const std::string entry = entryOf( call, table );
    const auto is = [&]( std::string_view name, std::size_t count ) {
        return operation == name && arguments.size() == count;
    };
    if ( is( "bcmlt_entry_allocate", 3 ) )
        return entry == "the entry"
                   ? "allocates an entry of a table whose name the recipe builds"
                   : fmt::format( "allocates an entry of {}", plain( arguments[1] ) );
    if ( is( "bcmlt_entry_attrib_set", 2 ) )
        return fmt::format( "sets {} of {}", arguments[1], entry );
    if ( is( "bcmlt_entry_field_add", 3 ) )
        return fmt::format( "adds {} = {} to {}", plain( arguments[1] ), arguments[2], entry );
    if ( is( "bcmlt_entry_field_symbol_add", 3 ) )
        return fmt::format( "adds {} = symbol {} to {}", plain( arguments[1] ),
                            plain( arguments[2] ), entry );
    if ( is( "bcmlt_entry_field_array_add", 5 ) )
        return fmt::format( "adds {} elements of {}, from {} on, to {}", arguments[4],
                            plain( arguments[1] ), arguments[2], entry );
    if ( is( "bcmlt_entry_field_get", 3 ) )
        return fmt::format( "reads {} of {}", plain( arguments[1] ), entry );
    if ( is( "bcmlt_entry_commit", 3 ) || is( "bcmlt_pt_entry_commit", 3 ) )
        return fmt::format( "commits {}, {}", entry, arguments[1] );
    if ( is( "bcmlt_entry_free", 1 ) )
        return fmt::format( "frees {}", entry );
    if ( call.text == "rc" )
        return "checks the code of the call before it";
    return {};
}

Diagnosis diagnose( const Stop & stop, const SiteTable & table, const Sim::Schema & schema,
                    const TraceReader::RecordedCall * lastCall ) {
    Diagnosis diagnosis{ .stop = stop };
    findSites( diagnosis, table, lastCall );
    diagnosis.recipe = findRecipe( diagnosis.function );
    diagnosis.calls = table.callsOf( diagnosis.function );
    const Site * const site = diagnosis.sites.size() == 1 ? &diagnosis.sites.front() : nullptr;
    if ( site != nullptr && site->isCall() ) {
        diagnosis.inWords = inWords( *site, table );
        diagnosis.target = targetOf( *site, table, schema );
    }
    if ( site != nullptr )
        tellWhatIsLeft( diagnosis, table );
    diagnosis.meaning = meaningOf( stop, site, table );
    tellNextActions( diagnosis );
    return diagnosis;
}

} // namespace Tool
