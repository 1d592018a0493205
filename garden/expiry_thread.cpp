// SPDX-License-Identifier: GPL-2.0-only
#include "garden/expiry_thread.h"

#include "base/debug_level.h"
#include "base/lock.h"
#include "garden/arecord_table.h"
#include "garden/matched_interfaces.h"

namespace captive_portal
{

namespace
{

void log_entry(uint32_t bucket, const dns_arecord &entry, bool expired)
{
	char address[IPV4_TEXT_SIZE];
	format_ipv4(address, entry.ip);
	cp_log(CP_LOG_DEBUG, "[%d]IP=%s, timeout=%ld, is_match_wg=%d, is_dump=%d%s\n", static_cast<int32_t>(bucket),
	       address, static_cast<long>(entry.timeout), static_cast<int32_t>(entry.is_match_wg), entry.is_dump,
	       expired ? " (delete)" : "");
	if (entry.is_match_wg != 0) {
		char interfaces[MATCHED_INTERFACES_SIZE];
		format_matched_interfaces(interfaces, entry.is_match_wg);
		cp_log(CP_LOG_DEBUG, "  match walled garden:%s\n", interfaces);
	}
	for (const fqdn_node &node : entry.fqdn_list) {
		cp_log(CP_LOG_DEBUG, "  fqdn = %s\n", node.fqdn);
	}
}

void check_bucket(uint32_t index, int64_t now)
{
	const LockGuard guard(Lock::dns_list);
	ArecordBucket &bucket = dns_aRecord[index];
	dns_arecord *next = nullptr;
	for (dns_arecord *entry = bucket.first(); entry != nullptr; entry = next) {
		next = entry->hash_link.next;
		// An entry whose deadline is now survives this pass.
		const bool expired = now > entry->timeout;
		if (debug_level_reaches(3)) {
			log_entry(index, *entry, expired);
		}
		if (expired) {
			--total_ip_count;
			remove_entry(bucket, *entry);
		}
	}
}

void log_pass(int64_t now)
{
	const LockGuard guard(Lock::dns_list);
	cp_log(CP_LOG_DEBUG, "[schedule_check]in while loop, now=%ld, total_ip_count=%d\n", static_cast<long>(now),
	       total_ip_count);
}

} // namespace

int schedule_check_thread()
{
	while (cp_thread_should_stop() == 0) {
		const int64_t now = cp_wall_clock_seconds();
		if (debug_level_reaches(3)) {
			log_pass(now);
		}
		for (uint32_t index = 0; index < ARECORD_BUCKETS; ++index) {
			// A lock hold per bucket: the network goes on between two of them.
			check_bucket(index, now);
			cp_yield_processor();
		}
		cp_thread_sleep(EXPIRY_PERIOD_TICKS);
	}
	cp_log(CP_LOG_DEFAULT, "[schedule_check]out of loop\n");
	return 0;
}

} // namespace captive_portal
