#pragma once

#include "Cairn/internal/TraceHandles.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

// What every output of a recipe names: the source file, the function, the signature.

namespace Cairn {

/// The file that every message, report and assertion prints. All recipes stand in this one file, so a
/// printed "file:line" is unique in the library.
inline constexpr char sourceFile[] = "Cairn/CairnLtHelper";

/// The names of one recipe as its output spells them.
struct Recipe {
    const char * function; ///< short name, "setEgrTunnelEcnEncap"
    /// Signature, "void Cairn::setEgrTunnelEcnEncap(uint32_t, uint32_t, uint32_t)".
    const char * pretty;
};

/// Takes the next piece of a signature off its text: a name, a qualifier with its "::", or a character that is
/// neither. Blanks before "*" and qualifiers "Cairn::" are passed over: compilers differ in both.
consteval std::string_view nextPiece( std::string_view & text ) {
    constexpr std::string_view ownQualifier = "Cairn::";
    constexpr std::string_view inNames =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_";
    while ( text.starts_with( ownQualifier ) || text.starts_with( " *" ) )
        text.remove_prefix( text.starts_with( " *" ) ? 1 : ownQualifier.size() );
    std::size_t length = std::min( text.find_first_not_of( inNames ), text.size() );
    if ( length == 0 && !text.empty() )
        length = 1;
    else if ( text.substr( length ).starts_with( "::" ) )
        length += 2;
    const std::string_view piece = text.substr( 0, length );
    text.remove_prefix( length );
    return piece;
}

/// Whether `pretty` is the signature that the compiler spells as `spelled`, but for what compilers spell
/// differently. A qualifier that only the compiler has is that of an inline namespace, in which a host keeps its
/// types.
consteval bool spellsSignature( std::string_view pretty, std::string_view spelled ) {
    for ( ;; ) {
        const std::string_view expected = nextPiece( pretty );
        std::string_view found = nextPiece( spelled );
        while ( found != expected && found.ends_with( "::" ) )
            found = nextPiece( spelled );
        if ( found != expected )
            return false;
        if ( expected.empty() )
            return true;
    }
}

} // namespace Cairn

/// First statement of every recipe: states its signature as the assertion stop prints it. Compilers spell
/// __PRETTY_FUNCTION__ each in its own way, so the text is written out; that it is the signature of the
/// function it stands in is checked at compile time. The level mask of "ApiCairn" is
/// looked up once, as a reference that the compiler can keep in a register, and read at each call.
#define CAIRN_RECIPE( pretty )                                                                     \
    static_assert( ::Cairn::spellsSignature( pretty, __PRETTY_FUNCTION__ ),                        \
                   "CAIRN_RECIPE: write the signature of this function" );                         \
    static constexpr ::Cairn::Recipe cairnRecipe_{ __func__, pretty };                             \
    [[maybe_unused]] const ::CairnPlatform::LevelMask & cairnApi_ =                                \
        ::CairnPlatform::levelMask( ::Cairn::apiCairn )
