#pragma once

#include "tools/recipes/Registry.h"

#include <pybind11/pybind11.h>

#include <span>

namespace Python {

/// Calls a recipe with arguments that fit it, on a thread that holds the interpreter's lock.
pybind11::object invoke( const Tool::Recipe & recipe, std::span<const Tool::Argument> arguments,
                         const Cairn::CairnCommonSmData::Ptr & sharedState );

} // namespace Python
