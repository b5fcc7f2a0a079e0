#pragma once

#include "tools/recipes/Registry.h"

/// The recipes compiled bare, in the order of Tool::recipes().
__attribute__( ( visibility( "default" ) ) ) std::span<const Tool::Recipe> bareRecipes();
