// SPDX-License-Identifier: GPL-2.0-only
#include "garden/expiry_thread.h"

#include "base/counters.h"
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
	       address, static_cast<long>(entry.timeout), static_cast<int32_t>(entry.is_match_wg),
	       uint8_t{entry.is_dump}, expired ? " (delete)" : "");
	if (entry.is_match_wg != 0) {
		char interfaces[MATCHED_INTERFACES_SIZE];
		format_matched_interfaces(interfaces, entry.is_match_wg);
		cp_log(CP_LOG_DEBUG, "  match walled garden:%s\n", interfaces);
	}
}

// Entries that are looked at in one hold of the lock: as many as a bucket of a full cache has on average. Whoever chooses
// the addresses of an answer can file them all in one bucket.
constexpr uint32_t entries_per_hold = 16;

// Names whose lines are written in one hold: an entry may have any number.
constexpr uint32_t names_per_hold = 64;

// Where the pass over a bucket goes on in its next hold. It stays in its place without the lock: while this thread runs
// nobody else takes an entry away.
struct Place {
	dns_arecord *entry; // null: the bucket's end
	fqdn_node *name;    // the next one to log, null: the entry has not been looked at
	bool expired;       // what the entry's first line says, when it has been
};

// Writes the lines of names that are left. False when that takes another hold.
[[nodiscard]] bool log_names(Place &place, uint32_t &left)
{
	for (; place.name != nullptr; place.name = place.name->link.next) {
		if (left == 0) {
			return false;
		}
		--left;
		cp_log(CP_LOG_DEBUG, "  fqdn = %s\n", place.name->fqdn);
	}
	return true;
}

// Called with dns_list_lock held.
void check_entries(uint32_t index, Place &place, int64_t now, TakenEntries &stale)
{
	uint32_t names_left = names_per_hold;
	for (uint32_t looked_at = 0; place.entry != nullptr && looked_at < entries_per_hold; ++looked_at) {
		dns_arecord &entry = *place.entry;
		if (place.name == nullptr) {
			// An entry whose deadline is now survives this pass.
			place.expired = now > entry.timeout;
			if (debug_level_reaches(3)) {
				log_entry(index, entry, place.expired);
				place.name = entry.fqdn_list.first();
			}
		}
		if (!log_names(place, names_left)) {
			return;
		}
		place.entry = entry.hash_link.next;
		if (place.expired) {
			--total_ip_count;
			stale.take(entry);
			count(CP_COUNTER_ROW_OTHER, CP_REASON_ADDRESS_EXPIRED);
		}
	}
}

void check_bucket(uint32_t index, int64_t now)
{
	Place place = {};
	bool goes_on = false;
	do {
		// Lives longer than the hold.
		TakenEntries stale;
		{
			const LockGuard guard(Lock::dns_list);
			if (!goes_on) {
				place.entry = dns_aRecord[index].first();
			}
			check_entries(index, place, now, stale);
		}
		goes_on = place.entry != nullptr;
		// The network goes on between two holds.
		cp_yield_processor();
	} while (goes_on);
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
