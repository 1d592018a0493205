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

// Entries that are looked at in one hold of the lock: as many as a bucket of a full cache has on average. Whoever chooses
// the addresses of an answer can file them all in one bucket.
constexpr uint32_t entries_per_hold = 16;

// Goes on at `entry`, null for the bucket's first, and returns where to go on next, null when that was all. The entry
// that is returned stays in its place without the lock: while this thread runs nobody else takes an entry away.
[[nodiscard]] dns_arecord *check_entries(uint32_t index, dns_arecord *entry, int64_t now)
{
	const LockGuard guard(Lock::dns_list);
	ArecordBucket &bucket = dns_aRecord[index];
	if (entry == nullptr) {
		entry = bucket.first();
	}
	for (uint32_t looked_at = 0; entry != nullptr && looked_at < entries_per_hold; ++looked_at) {
		dns_arecord *const next = entry->hash_link.next;
		// An entry whose deadline is now survives this pass.
		const bool expired = now > entry->timeout;
		if (debug_level_reaches(3)) {
			log_entry(index, *entry, expired);
		}
		if (expired) {
			--total_ip_count;
			remove_entry(bucket, *entry);
		}
		entry = next;
	}
	return entry;
}

void check_bucket(uint32_t index, int64_t now)
{
	dns_arecord *next = nullptr;
	do {
		next = check_entries(index, next, now);
		// The network goes on between two holds.
		cp_yield_processor();
	} while (next != nullptr);
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
			check_bucket(index, now);
		}
		cp_thread_sleep(EXPIRY_PERIOD_TICKS);
	}
	cp_log(CP_LOG_DEFAULT, "[schedule_check]out of loop\n");
	return 0;
}

} // namespace captive_portal
