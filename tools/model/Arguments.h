#pragma once

#include "tools/recipes/Registry.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

// From what a user writes to the arguments of a recipe.

namespace Tool {

struct Model;

/// How arguments are given: one text for each parameter, in the order of the signature.
///
/// Integers in decimal or after 0x; bool as true, false, 1, 0, on or off; texts as they are; a
/// ChipInfo by the name of a chip of the model. Refused with a line that names the parameter
/// (InputError): too few or too many, a wrong type, a number beyond the type or beyond the caller's
/// contract, a chip or a unit that the model does not have, and a recipe for which the model lacks
/// a module.
std::vector<Argument> parseArguments( const Recipe & recipe, std::span<const std::string> texts,
                                      const Model & model );

/// One argument of those.
Argument parseArgument( const Recipe & recipe, const Parameter & parameter, std::string_view text,
                        const Model & model );

/// Refuses a recipe that needs something of the shared state that the model does not have.
void checkModelFor( const Recipe & recipe, const Model & model );

/// The sample of each parameter, as texts for parseArguments.
std::vector<std::string> sampleArguments( const Recipe & recipe, const Model & model );

/// The recipe of this name; InputError, with the nearest name, if there is none.
const Recipe & needRecipe( std::string_view name );

/// "setEgrTunnelEcnEncap( unit=0, index=5, outerEcn=2 )"
std::string callText( const Recipe & recipe, std::span<const Argument> arguments );

/// "5", "true", "L3_TTL_ERROR", the chip's name.
std::string toText( const Argument & argument );

/// "true", "33024"; empty for a recipe that returns nothing.
std::string toText( const Result & result );

/// Reads a result of the recipe's type: a bool or a number. `text` as for arguments.
Result parseResult( const Recipe & recipe, std::string_view text );

} // namespace Tool
