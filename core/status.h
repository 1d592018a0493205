// SPDX-License-Identifier: GPL-2.0-only
// The status files: what the module has stored, for whoever wants to know it without the control device. Reading them
// changes nothing, and takes nothing from a reader of the cache's listing.
//
// "status": a line "module", one "interface" for each row of the tables, one "owe" for each companion.
// "clients": a line for each client of each list. "garden": a line for each rule. "counters": a line for each
// count that is not 0. "cache": a line for each cached address, and for each of its names.
#pragma once

#include "platform/platform.h"

namespace captive_portal
{

// First pair of the first line of "status". It grows when a key gets another meaning or goes; new keys may come.
inline constexpr uint32_t STATUS_FORMAT = 1;

extern const cp_status_directory status_directory;

} // namespace captive_portal
