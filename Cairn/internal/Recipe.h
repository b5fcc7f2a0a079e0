#pragma once

#include "Cairn/internal/TraceHandles.h"

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

/// Whether `pretty` is the signature that the compiler spells as `spelled`, but for what compilers spell
/// differently: blanks before "*", and the qualification of names of this namespace in the arguments.
consteval bool spellsSignature( std::string_view pretty, std::string_view spelled ) {
    constexpr std::string_view qualifier = "Cairn::";
    const auto skip = [qualifier]( std::string_view & text ) {
        while ( !text.empty() ) {
            if ( text.starts_with( qualifier ) )
                text.remove_prefix( qualifier.size() );
            else if ( text.starts_with( " *" ) )
                text.remove_prefix( 1 );
            else
                return;
        }
    };
    for ( ;; ) {
        skip( pretty );
        skip( spelled );
        if ( pretty.empty() || spelled.empty() )
            return pretty.empty() && spelled.empty();
        if ( pretty.front() != spelled.front() )
            return false;
        pretty.remove_prefix( 1 );
        spelled.remove_prefix( 1 );
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
