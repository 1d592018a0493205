// SPDX-License-Identifier: GPL-2.0-only
// The interfaces of a mask as people read them.
#pragma once

#include "captive_portal/interface_index.h"

namespace captive_portal
{

// Room for " R-V" of every wireless interface, " MIREL" and a NUL.
enum : uint32_t { MATCHED_INTERFACES_SIZE = 4 * CP_WIRELESS_INTERFACES + 6 + 1 };

// Writes " R-V" for each set bit 0..23 in order, then " MIREL" for bit 27, and a NUL. Bits 24 to 26 are never shown.
void format_matched_interfaces(char (&out)[MATCHED_INTERFACES_SIZE], uint32_t is_match_wg);

} // namespace captive_portal
