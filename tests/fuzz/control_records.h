// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <vector>

#include "tests/fuzz/input.h"

namespace captive_portal::test
{

// A record of the command, 1 to 10, that makes sense more often than not. Of another number: four bytes.
[[nodiscard]] std::vector<uint8_t> make_record(Input &input, int32_t command);

} // namespace captive_portal::test
