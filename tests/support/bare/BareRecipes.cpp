#include "tests/support/bare/BareRecipes.h"

std::span<const Tool::Recipe> bareRecipes() { return Tool::recipes(); }
