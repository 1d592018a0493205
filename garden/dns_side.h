// SPDX-License-Identifier: GPL-2.0-only
// Start and stop of all that learns from DNS answers: the address cache, its expiry thread, its proc file.
#pragma once

namespace captive_portal
{

// Called last at start, while the hooks run. A thread or a proc file that cannot be had is done without: nothing then
// expires, or nothing is listed. Takes dns_list_lock.
void dns_parse_init();

// Called at stop, when no hook runs any more: stops the thread, frees every entry, removes the proc file. Takes
// dns_list_lock.
void dns_parse_exit();

} // namespace captive_portal
