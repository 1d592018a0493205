// SPDX-License-Identifier: GPL-2.0-only
// What the status files say of the cached addresses. Marks of the proc file are shown and stay as they are.
#pragma once

#include "platform/platform.h"

namespace captive_portal
{

// One line for each address of bucket 0..1023, and behind it one for each of its names, in their order. Takes
// dns_list_lock anew for every few lines: what comes or goes meanwhile may be told or not. Process context.
void write_cached_addresses(uint32_t bucket, cp_status_text *out);

} // namespace captive_portal
