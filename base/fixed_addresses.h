// SPDX-License-Identifier: GPL-2.0-only
// The two addresses that hold for every access point: both the portal and the walled garden single them out.
#pragma once

#include "base/byte_order.h"

namespace captive_portal
{

// 0.0.0.0 until they are set at start, and never changed again. The hooks run already at that moment, so a reader on the
// packet path takes them as words.
extern Ipv4Address socialogin_addr;
extern Ipv4Address dns_filter_addr;

// Start: each sets its address. No lock.
void init_social_login_address();
void init_dns_filter_address();

} // namespace captive_portal
