// SPDX-License-Identifier: GPL-2.0-only
#include "garden/dns_side.h"

#include "garden/arecord_table.h"
#include "garden/expiry_thread.h"
#include "garden/summary.h"

namespace captive_portal
{

namespace
{

constinit cp_thread *expiry_thread = nullptr;

} // namespace

void dns_parse_init()
{
	cp_log(CP_LOG_DEBUG, "%s\n", "dns_parse_init");
	// The hooks run already and may have stored entries.
	empty_cache();
	expiry_thread = cp_thread_create(schedule_check_thread, "schedule_check_thread");
	if (expiry_thread != nullptr) {
		cp_log(CP_LOG_DEFAULT, "wake_up_process schedule_check_thread\n");
		cp_thread_wake_up(expiry_thread);
	}
	// Without the file nothing is listed, and the rest works.
	static_cast<void>(cp_proc_create(&summary_file));
}

void dns_parse_exit()
{
	cp_log(CP_LOG_DEBUG, "%s\n", "dns_parse_exit");
	if (expiry_thread != nullptr) {
		cp_log(CP_LOG_DEFAULT, "kthread_stop schedule_check_thread\n");
		cp_thread_stop(expiry_thread);
		expiry_thread = nullptr;
	}
	// The count deliberately stays as it is.
	free_all_entries();
	cp_proc_remove(&summary_file);
}

} // namespace captive_portal
