#pragma once

#include <cstdint>

// The numbers of the simulated SDK's constants. The first digit tells the kind.

namespace Sim {

constexpr uint32_t invalidHandle = 0;
constexpr uint32_t opcodeDelete = 1001;
constexpr uint32_t opcodeInsert = 1002;
constexpr uint32_t opcodeLookup = 1003;
constexpr uint32_t opcodeUpdate = 1004;
constexpr uint32_t ptOpcodeGet = 2001;
constexpr uint32_t ptOpcodeModify = 2002;
constexpr uint32_t ptOpcodeSet = 2003;
constexpr uint32_t priorityNormal = 3001;
constexpr uint32_t attrGetFromHw = 4001;

} // namespace Sim
