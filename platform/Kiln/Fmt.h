#pragma once

#include <Nacre/StrB.h>

namespace Kiln {

/// Formats `pattern`, in which "%d" stands for `value` in decimal and "%%" for "%".
Nacre::Impl::StrB _fmt( const char * pattern, int value );

} // namespace Kiln
