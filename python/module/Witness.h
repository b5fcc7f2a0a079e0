#pragma once

#include <Shim/Sdk.h>

#include <string_view>

// What a process tells another one of itself while it runs recipes, so that it is known when the
// process has been stopped. One line of JSON for each thing that happens, written at once:
//
//     { "recipe": "setX" }                   a recipe begins
//     { "recipe": null }                     it has returned
//     { "number": 3, "operation": { ... } }  an SDK operation begins; the same again when it has returned

namespace Python {

/// Whether somebody listens.
bool isWitnessing();

/// An SDK in front of `sdk` that tells of its operations; it lives as long as the process.
Shim::Sdk & witness( Shim::Sdk & sdk );

/// Tells of a recipe, if somebody listens.
void tellRecipe( std::string_view name );
void tellReturn();

} // namespace Python
