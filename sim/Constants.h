#pragma once

#include <cstdint>

// The numbers of the simulated SDK's constants. The first digit tells the kind.

namespace Sim {

constexpr std::uint32_t invalidHandle = 0;
constexpr std::uint32_t opcodeDelete = 1001;
constexpr std::uint32_t opcodeInsert = 1002;
constexpr std::uint32_t opcodeLookup = 1003;
constexpr std::uint32_t opcodeUpdate = 1004;
constexpr std::uint32_t ptOpcodeGet = 2001;
constexpr std::uint32_t ptOpcodeModify = 2002;
constexpr std::uint32_t ptOpcodeSet = 2003;
constexpr std::uint32_t priorityNormal = 3001;
constexpr std::uint32_t attrGetFromHw = 4001;

} // namespace Sim
