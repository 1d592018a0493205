// SPDX-License-Identifier: GPL-2.0-only
// "%d" of the kernel's sscanf.
#pragma once

#include "base/field.h"
#include "base/text.h"

namespace captive_portal
{

// Reads a number at `position` and moves `position` behind it; missing, and `position` anywhere, when none is there.
// Blanks before it are skipped (0xA0 is one), '-' counts only before a digit, there is no '+' and no hexadecimal. The
// value is taken modulo 2^64 and cut to 32 bits.
[[nodiscard]] Field<uint32_t> scan_decimal(Text text, size_t &position);

} // namespace captive_portal
