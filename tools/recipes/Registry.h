#pragma once

#include <ChipModel/CairnCommonSmData.h>
#include <ChipModel/ChipInfo.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <variant>

// All recipes of the library as values: their names, their parameters, how to call them.
//
//     const Tool::Recipe * recipe = Tool::findRecipe( "setEgrTunnelEcnEncap" );
//     const Tool::Argument arguments[] = { std::uint64_t( 0 ), std::uint64_t( 5 ), std::uint64_t( 2 ) };
//     const std::lock_guard lock( Kiln::activityLock() );
//     recipe->invoke( arguments, sharedState );

namespace Tool {

/// The type of a parameter, as the recipe's signature has it.
enum class ArgumentType : std::uint8_t { uint8, uint16, uint32, boolean, text, chip };

/// As in the signature: "uint32_t", "bool", "const char *", "ChipInfo".
std::string_view spelling( ArgumentType type );

/// The largest number that a parameter of this type takes. Numeric types only.
std::uint64_t largest( ArgumentType type );

/// One argument: a number for the integer types, else what the type says.
using Argument = std::variant<std::uint64_t, bool, std::string, CairnCentral::ChipInfo>;

/// What a recipe returned.
using Result = std::variant<std::monostate, bool, std::uint16_t>;

enum class ResultType : std::uint8_t { none, boolean, uint16 };

/// "void", "bool" or "uint16_t".
std::string_view spelling( ResultType type );

/// One parameter that a caller gives. The shared state is not among them: a recipe that takes it
/// gets the host's.
struct Parameter {
    std::string_view name;
    /// A sensible value as text. Empty: that of the first chip (its name, its unit).
    std::string_view sample;
    /// Numbers: the caller's part of the contract allows no more than this, and why.
    std::uint64_t limit = std::numeric_limits<std::uint64_t>::max();
    std::string_view limitReason = {};
    ArgumentType type = {};

    /// Whether the parameter is the SDK unit.
    constexpr bool isUnit() const { return name == "unit"; }
};

struct Recipe {
    /// Calls the recipe, which may stop the process. The activity lock must be held. `arguments`
    /// are one for each parameter, each of its type and within its range. `sharedState` is not null
    /// if `takesSharedState`.
    using Invoker = Result ( * )( std::span<const Argument> arguments,
                                  const Cairn::CairnCommonSmData::Ptr & sharedState );

    std::string_view name;
    std::string_view family;
    std::string_view summary; ///< one line
    /// A recipe that, called with the same arguments, leaves the chip as this one expects it, or
    /// empty.
    std::string_view preparedBy;
    Invoker invoke = nullptr;
    ResultType result = ResultType::none;
    bool takesSharedState = false;
    /// What the library's header calls the shared state.
    std::string_view sharedStateName;
    /// The recipe reads the first module of the shared state, so there must be one.
    bool needsModule = false;

    static constexpr std::size_t maxParameters = 8;
    std::array<Parameter, maxParameters> parameterList = {};
    std::size_t parameterCount = 0;

    std::span<const Parameter> parameters() const {
        return std::span( parameterList ).first( parameterCount );
    }
};

/// All recipes, by family, in the order of the library's header.
std::span<const Recipe> recipes();

/// Null if there is no recipe of that name.
const Recipe * findRecipe( std::string_view name );

} // namespace Tool
