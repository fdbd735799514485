#pragma once

// The simulator reads and writes bytes as hexadecimal text like every host.

#include "automation/Hex.h"

namespace vx::sim {

using vx::HexDigitValue;
using vx::ParseHex;
using vx::ToHex;

}  // namespace vx::sim
