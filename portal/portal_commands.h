// SPDX-License-Identifier: GPL-2.0-only
// Handlers of the portal commands. Records are the kernel's copies of the caller's.
#pragma once

#include "base/byte_order.h"
#include "captive_portal/portal.h"

namespace captive_portal
{

// Command 1: 0, or -1 for an unknown sub-command or a row outside 0..27. Takes cp_lock.
[[nodiscard]] int32_t if_device_write_cp(const cp_cmd &command);

// Command 2: fills the record in place; another sub-command or a row above 24 leaves it as it is. 0 always.
// Takes cp_lock.
int32_t get_captive_portal_status(cp_status &record);

// Commands 6 and 7. Take gateway_lock.
void set_gateway(Ipv4Address address);
int32_t get_gateway(Ipv4Address &out);

} // namespace captive_portal
