// SPDX-License-Identifier: GPL-2.0-only
// The thread that takes stale addresses out of the cache.
#pragma once

#include "platform/platform.h"

namespace captive_portal
{

// Scheduler ticks between two passes: 60 seconds at 100 ticks a second.
enum : uint32_t { EXPIRY_PERIOD_TICKS = 6000 };

// The thread's body: a pass over the cache, a sleep, until it is asked to stop; 0. An entry is removed with its names
// once the wall clock is later than its deadline; at debug level 3 each pass writes the whole cache into the log.
// Takes dns_list_lock for a few entries at a time.
int schedule_check_thread();

} // namespace captive_portal
