#include "tools/diagnose/Sites.h"

#include "text/Escape.h"
#include "text/Numbers.h"
#include "tools/model/Errors.h"
#include "tools/model/Files.h"

#include <Cairn/CairnLtHelper.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <dlfcn.h>
#include <elf.h>
#include <optional>
#include <utility>

namespace Tool {

namespace {

constexpr std::string_view sectionName = ".cairn.sites";
constexpr std::string_view formatName = "cairn-lt sites ";
constexpr std::string_view formatVersion = "1";

constexpr std::array kindNames{
    std::pair{ std::string_view( "recipe" ), Site::Kind::recipe },
    std::pair{ std::string_view( "guarded" ), Site::Kind::guarded },
    std::pair{ std::string_view( "guarded, lock kept" ), Site::Kind::lockKept },
    std::pair{ std::string_view( "unchecked" ), Site::Kind::unchecked },
    std::pair{ std::string_view( "ignored" ), Site::Kind::ignored },
    std::pair{ std::string_view( "assertion" ), Site::Kind::assertion },
};

std::optional<Site::Kind> kindOf( std::string_view name ) {
    const auto found = std::find_if( kindNames.begin(), kindNames.end(),
                                     [&]( const auto & each ) { return each.first == name; } );
    return found == kindNames.end() ? std::nullopt : std::optional( found->second );
}

// Takes what stands before the next `end` off the front of a text.
std::string_view takeUntil( std::string_view & text, char end ) {
    const std::size_t at = std::min( text.find( end ), text.size() );
    const std::string_view taken = text.substr( 0, at );
    text.remove_prefix( std::min( at + 1, text.size() ) );
    return taken;
}

std::optional<Site> parseSite( std::string_view line ) {
    std::uint64_t number = 0;
    std::uint64_t call = 0;
    constexpr std::uint64_t limit = 1u << 30;
    if ( !Text::parseNumber( takeUntil( line, '\t' ), number ) || number > limit )
        return {};
    const std::string_view recipe = takeUntil( line, '\t' );
    if ( !Text::parseNumber( takeUntil( line, '\t' ), call ) || call > limit )
        return {};
    const auto kind = kindOf( takeUntil( line, '\t' ) );
    const auto isPrintable = []( char c ) { return c >= ' ' && c <= '~'; };
    if ( recipe.empty() || !kind || line.empty() ||
         !std::all_of( recipe.begin(), recipe.end(), isPrintable ) ||
         !std::all_of( line.begin(), line.end(), isPrintable ) )
        return {};
    return Site{ .kind = *kind,
                 .line = static_cast<int>( number ),
                 .recipe = std::string( recipe ),
                 .call = static_cast<int>( call ),
                 .text = std::string( line ) };
}

// A structure at a place in a file; nothing if it does not lie in it.
template <class Structure>
std::optional<Structure> structureAt( std::string_view file, std::uint64_t offset ) {
    if ( offset > file.size() || file.size() - offset < sizeof( Structure ) )
        return {};
    Structure structure;
    std::memcpy( &structure, file.data() + offset, sizeof structure );
    return structure;
}

std::optional<std::string_view> partOf( std::string_view file, const Elf64_Shdr & section ) {
    if ( section.sh_offset > file.size() || file.size() - section.sh_offset < section.sh_size )
        return {};
    return file.substr( section.sh_offset, section.sh_size );
}

// The contents of the section with the table, in a library for any processor of this byte order
// with 64 bits.
std::optional<std::string_view> findSection( std::string_view file ) {
    const auto header = structureAt<Elf64_Ehdr>( file, 0 );
    constexpr unsigned char byteOrder =
        __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? ELFDATA2LSB : ELFDATA2MSB;
    if ( !header || std::memcmp( header->e_ident, ELFMAG, SELFMAG ) != 0 ||
         header->e_ident[EI_CLASS] != ELFCLASS64 || header->e_ident[EI_DATA] != byteOrder ||
         header->e_shentsize < sizeof( Elf64_Shdr ) )
        return {};
    const auto sectionAt = [&]( std::uint64_t index ) -> std::optional<Elf64_Shdr> {
        if ( header->e_shoff > file.size() )
            return {};
        return structureAt<Elf64_Shdr>( file, header->e_shoff + index * header->e_shentsize );
    };
    const auto names = sectionAt( header->e_shstrndx );
    const auto nameTexts = names ? partOf( file, *names ) : std::nullopt;
    if ( !nameTexts )
        return {};
    for ( std::uint64_t index = 0; index < header->e_shnum; ++index ) {
        const auto section = sectionAt( index );
        if ( !section || section->sh_name >= nameTexts->size() )
            continue;
        std::string_view name = nameTexts->substr( section->sh_name );
        if ( takeUntil( name, '\0' ) == sectionName && section->sh_type == SHT_PROGBITS )
            return partOf( file, *section );
    }
    return {};
}

} // namespace

SiteTable SiteTable::parse( std::string_view contents, const std::string & file ) {
    const auto refuse = [&]( int line, const char * what ) {
        return InputError( file, 0, fmt::format( "{} (line {})", what, line ),
                           "give the library file of the release that wrote the report" );
    };
    SiteTable table;
    table.text_ = contents;
    std::string_view head = takeUntil( contents, '\n' );
    if ( !head.starts_with( formatName ) )
        throw refuse( 1, "its table of sites is damaged" );
    head.remove_prefix( formatName.size() );
    if ( takeUntil( head, '\t' ) != formatVersion )
        throw InputError( file, 0, "its table of sites has a format that this version cannot read",
                          "use the cairn-lt of that release" );
    table.version_ = Text::printable( head );
    for ( int line = 2; !contents.empty(); ++line ) {
        const auto site = parseSite( takeUntil( contents, '\n' ) );
        if ( !site )
            throw refuse( line, "its table of sites is damaged" );
        table.sites_.push_back( *site );
    }
    return table;
}

SiteTable SiteTable::fromLibrary( const std::string & file ) {
    const std::string contents = readFile( file );
    const auto section = findSection( contents );
    if ( !section )
        throw InputError( file, 0, "is no libCairnLtHelper.so with a table of sites",
                          "leave --library out: reports are then read by their texts" );
    return parse( *section, file );
}

SiteTable SiteTable::own() {
    Dl_info place{};
    if ( ::dladdr( reinterpret_cast<const void *>( &Cairn::cpuPortInit ), &place ) == 0 ||
         place.dli_fname == nullptr )
        throw Trouble( "the library that this program runs with cannot be found" );
    return fromLibrary( place.dli_fname );
}

std::string SiteTable::recipeOf( std::string_view signature ) const {
    for ( const Site & site : sites_ ) {
        if ( site.kind == Site::Kind::recipe && site.text == signature )
            return site.recipe;
    }
    return {};
}

int SiteTable::callsOf( std::string_view recipe ) const {
    return static_cast<int>( std::count_if( sites_.begin(), sites_.end(), [&]( const Site & site ) {
        return site.recipe == recipe && site.isCall();
    } ) );
}

const Site * SiteTable::allocateOf( const Site & call ) const {
    const std::vector<std::string> arguments = argumentsOf( call.text );
    if ( arguments.empty() )
        return nullptr;
    const Site * nearest = nullptr;
    for ( const Site & site : sites_ ) {
        if ( site.recipe != call.recipe || !site.isCall() || site.line >= call.line ||
             !site.text.starts_with( "bcmlt_entry_allocate(" ) )
            continue;
        if ( argumentsOf( site.text ).back() == "&" + arguments.front() )
            nearest = &site;
    }
    return nearest;
}

const Site * SiteTable::operationAt( const Site & site ) const {
    if ( site.isCall() && site.text.find( '(' ) != std::string::npos )
        return &site;
    const Site * nearest = nullptr;
    for ( const Site & each : sites_ ) {
        if ( each.recipe == site.recipe && each.line < site.line && each.isCall() &&
             each.text.find( '(' ) != std::string::npos )
            nearest = &each;
    }
    return nearest;
}

CallPattern SiteTable::patternOf( const Site & call ) const {
    using TraceReader::SdkCall;
    CallPattern pattern;
    if ( !call.isCall() )
        return pattern;
    pattern.call = TraceReader::sdkCallByName( call.text.substr( 0, call.text.find( '(' ) ) );
    const auto arguments = argumentsOf( call.text );
    if ( !pattern.call || arguments.empty() )
        return pattern;
    const auto literalAt = [&]( std::size_t argument ) {
        return argument < arguments.size() ? literalOf( arguments[argument] ) : std::nullopt;
    };
    switch ( *pattern.call ) {
    case SdkCall::entryAllocate:
        pattern.table = literalAt( 1 );
        return pattern;
    case SdkCall::entryCommit:
    case SdkCall::ptEntryCommit:
        pattern.opcode = arguments.size() > 1 ? arguments[1] : std::string();
        break;
    case SdkCall::entryFieldSymbolAdd:
        pattern.symbol = literalAt( 2 );
        [[fallthrough]];
    case SdkCall::entryFieldAdd:
    case SdkCall::entryFieldArrayAdd:
    case SdkCall::entryFieldGet:
        pattern.field = literalAt( 1 );
        break;
    default:
        break;
    }
    if ( const Site * const allocate = allocateOf( call ) )
        pattern.table = patternOf( *allocate ).table;
    return pattern;
}

bool CallPattern::fits( const TraceReader::RecordedCall & recorded ) const {
    const auto agree = []( const std::optional<std::string> & expected, const std::string & text ) {
        return !expected || text.empty() || *expected == text;
    };
    return call == recorded.call && agree( table, recorded.table ) &&
           agree( field, recorded.field ) && agree( symbol, recorded.symbol ) &&
           ( opcode.empty() || recorded.opcode.name.empty() || opcode == recorded.opcode.name );
}

std::optional<std::string> literalOf( std::string_view argument ) {
    if ( argument.size() >= 2 && argument.front() == '"' && argument.back() == '"' )
        return std::string( argument.substr( 1, argument.size() - 2 ) );
    // The shim's constants with names: PC_PORTs is the text "PC_PORT".
    constexpr std::string_view letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_";
    if ( argument.size() >= 2 && argument.back() == 's' &&
         argument.find_first_not_of( letters ) == argument.size() - 1 )
        return std::string( argument.substr( 0, argument.size() - 1 ) );
    return {};
}

std::vector<std::string> argumentsOf( std::string_view callText ) {
    std::vector<std::string> arguments;
    const std::size_t open = callText.find( '(' );
    const std::size_t close = callText.rfind( ')' );
    if ( open == std::string_view::npos || close == std::string_view::npos || close < open )
        return arguments;
    int depth = 0;
    std::string argument;
    const auto finish = [&] {
        const std::size_t first = argument.find_first_not_of( ' ' );
        if ( first != std::string::npos )
            arguments.push_back(
                argument.substr( first, argument.find_last_not_of( ' ' ) - first + 1 ) );
        argument.clear();
    };
    for ( const char c : callText.substr( open + 1, close - open - 1 ) ) {
        depth += c == '(' ? 1 : c == ')' ? -1 : 0;
        if ( c == ',' && depth == 0 )
            finish();
        else
            argument += c;
    }
    finish();
    return arguments;
}

} // namespace Tool
