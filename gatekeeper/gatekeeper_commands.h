// SPDX-License-Identifier: GPL-2.0-only
// Handlers of the gatekeeper commands. Each works on the kernel's copy of the caller's record.
#pragma once

#include "captive_portal/gatekeeper.h"

namespace captive_portal
{

// Command 8: 0, also for a sub-command that was refused and logged; -1 for an unknown one. Takes the clients'
// mutex, and gatekeeper_lock inside it.
[[nodiscard]] int32_t if_device_write_gk(const gk_cmd &command);

// Command 9: fills the record in place; an unknown sub-command or an invalid interface leaves it as it is.
// Takes the clients' mutex for a list, gatekeeper_lock for the rest.
void get_gatekeeper_list(gk_list_reply &reply);

// Command 10: sets `found`. Takes the clients' mutex.
void check_gatekeeper_list(gk_check_reply &reply);

} // namespace captive_portal
