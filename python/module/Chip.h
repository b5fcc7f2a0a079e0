#pragma once

#include "python/module/Sdk.h"
#include "sim/Chip.h"

namespace Python {

/// The simulated chip as a Python object.
class ChipObject final : public SdkObject {
  public:
    Shim::Sdk & sdk() override { return chip; }

    Sim::Chip chip;
};

} // namespace Python
