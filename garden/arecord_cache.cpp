// SPDX-License-Identifier: GPL-2.0-only
#include "garden/arecord_cache.h"

#include "base/counters.h"
#include "base/debug_level.h"
#include "base/lock.h"
#include "base/memory.h"
#include "garden/arecord_index.h"
#include "garden/arecord_table.h"

namespace captive_portal
{

constinit ArecordBucket dns_aRecord[ARECORD_BUCKETS] = {};
constinit int32_t total_ip_count = 0;
constinit uint32_t DumpMark::shown_ = 1;
constinit uint32_t DumpMark::listing_ = 0;

namespace
{

// A node in no list with a copy of the name, or null.
[[nodiscard]] fqdn_node *make_fqdn_node(Text fqdn)
{
	fqdn_node *const node = allocate_zeroed<fqdn_node>();
	if (node == nullptr) {
		return nullptr;
	}
	const size_t size = fqdn.length + 1;
	node->fqdn = static_cast<char *>(cp_zalloc_atomic(size));
	if (node->fqdn == nullptr) {
		cp_free(node);
		return nullptr;
	}
	store_text(node->fqdn, size, fqdn);
	node->length = static_cast<uint16_t>(fqdn.length);
	node->is_dump = 0;
	return node;
}

// The entry's own `is_dump` deliberately stays: an entry that a report has shown stays hidden although it gained a name.
// Names are deliberately not limited.
void refresh_entry(dns_arecord &entry, uint32_t is_match_wg, Text fqdn, int64_t deadline)
{
	const NamePlace place = find_name(entry, fqdn);
	if (place.node == nullptr) {
		// Without memory for the name the mask stays too: it describes the names that are there.
		if (fqdn_node *const node = make_fqdn_node(fqdn)) {
			append_name(entry, *node, place);
			// Deliberately replaces the mask: bits of earlier names may be lost.
			if (is_match_wg != 0) {
				entry.is_match_wg = is_match_wg;
			}
		}
	}
	if (deadline > entry.timeout) {
		entry.timeout = deadline;
	}
}

// An entry in no bucket with its first name, or null.
[[nodiscard]] dns_arecord *make_entry(uint32_t slot, uint32_t is_match_wg, Text fqdn, Ipv4Address ip, int64_t deadline)
{
	dns_arecord *const entry = allocate_zeroed<dns_arecord>();
	if (entry == nullptr) {
		return nullptr;
	}
	fqdn_node *const node = make_fqdn_node(fqdn);
	if (node == nullptr) {
		cp_free(entry);
		return nullptr;
	}
	entry->ip = ip.raw;
	entry->bucket = slot;
	entry->is_match_wg = is_match_wg;
	entry->timeout = deadline;
	entry->is_dump = 0;
	entry->fqdn_list.append(*node);
	return entry;
}

void log_full_cache(uint32_t is_match_wg, Text fqdn, Ipv4Address ip)
{
	cp_log(CP_LOG_DEBUG, "Exceed maximum (total_ip_count=%d), not add \"A record\" (is_match_wg=%d, %.*s, %pI4)\n",
	       total_ip_count, static_cast<int32_t>(is_match_wg), static_cast<int32_t>(fqdn.length), fqdn.characters,
	       &ip);
}

} // namespace

void format_ipv4(char (&out)[IPV4_TEXT_SIZE], uint64_t ip)
{
	const Ipv4Address address = {static_cast<uint32_t>(ip)};
	cp_format(out, sizeof(out), "%pI4", &address);
}

void add_dns_arecord(uint32_t slot, uint32_t is_match_wg, Text fqdn, Ipv4Address ip, uint32_t ttl)
{
	const int64_t deadline = cp_wall_clock_seconds() + ttl;
	const LockGuard guard(Lock::dns_list);
	if (dns_arecord *const entry = find_entry(slot, ip)) {
		refresh_entry(*entry, is_match_wg, fqdn, deadline);
		count(CP_COUNTER_ROW_OTHER, CP_REASON_ADDRESS_REFRESHED);
		return;
	}
	if (total_ip_count >= static_cast<int32_t>(ARECORD_LIMIT)) {
		count(CP_COUNTER_ROW_OTHER, CP_REASON_ADDRESS_REFUSED);
		if (debug_level_reaches(1)) {
			log_full_cache(is_match_wg, fqdn, ip);
		}
		return;
	}
	dns_arecord *const entry = make_entry(slot, is_match_wg, fqdn, ip, deadline);
	if (entry == nullptr) {
		count(CP_COUNTER_ROW_OTHER, CP_REASON_ADDRESS_LOST);
		return;
	}
	dns_aRecord[slot].append(*entry);
	index_entry(*entry);
	++total_ip_count;
	count(CP_COUNTER_ROW_OTHER, CP_REASON_ADDRESS_STORED);
	if (debug_level_reaches(3)) {
		cp_log(CP_LOG_DEBUG, "total_ip_count=%d\n", total_ip_count);
	}
}

bool match_dns_aRecord_garden_list(Ipv4Address ip, uint32_t iface)
{
	const LockGuard guard(Lock::dns_list);
	// Deliberately deaf to the deadline: an entry counts until it is removed.
	const dns_arecord *const entry = find_entry(arecord_bucket(ip), ip);
	return entry != nullptr && (entry->is_match_wg & arecord_mask(iface)) != 0;
}

} // namespace captive_portal
