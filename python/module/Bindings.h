#pragma once

#include <pybind11/pybind11.h>

// The pieces of the extension module: each binds one group of names. Compiled apart from each
// other, because a source that includes pybind11 takes long.

namespace Python {

void bindBringup( pybind11::module_ & module );
void bindChip( pybind11::module_ & module );
void bindDiff( pybind11::module_ & module );
void bindInterposers( pybind11::module_ & module );
void bindLocks( pybind11::module_ & module );
void bindRecipes( pybind11::module_ & module );
void bindRecording( pybind11::module_ & module );
void bindSchema( pybind11::module_ & module );
void bindSdk( pybind11::module_ & module );
void bindTrace( pybind11::module_ & module );
void bindWitness( pybind11::module_ & module );

} // namespace Python
