// SPDX-License-Identifier: GPL-2.0-only
// What the status files say of the client tables.
#pragma once

#include "captive_portal/interface_index.h"
#include "platform/platform.h"

namespace captive_portal
{

// Five lists for each wireless interface, and two for all of them.
inline constexpr uint32_t CLIENT_LISTS = 5 * CP_WIRELESS_INTERFACES + 2;

// One line for each client of list `list`, 0 to CLIENT_LISTS - 1, in the list's order. Takes the clients' mutex.
void write_client_list(uint32_t list, cp_status_text *out);

// " table=count" of each of an interface's tables, 0..23, and " disconnection_..." with its behaviour. Takes the clients'
// mutex.
void write_client_counts(uint32_t row, cp_status_text *out);
// The same of the two lists for all interfaces.
void write_mirel_counts(cp_status_text *out);

// The line of an OWE companion, 0 to CP_OWE_INTERFACES - 1. No lock.
void write_owe_mapping(uint32_t companion, cp_status_text *out);

} // namespace captive_portal
