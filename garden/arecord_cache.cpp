// SPDX-License-Identifier: GPL-2.0-only
#include "garden/arecord_cache.h"

#include "base/debug_level.h"
#include "base/lock.h"
#include "base/memory.h"
#include "garden/arecord_table.h"
#include "garden/walled_garden.h"

namespace captive_portal
{

constinit ArecordBucket dns_aRecord[ARECORD_BUCKETS] = {};
constinit int32_t total_ip_count = 0;

namespace
{

constexpr uint32_t bits_per_mask = 32;

constexpr uint32_t mask_of_row(uint32_t iface)
{
	return 1U << (iface % bits_per_mask);
}

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
	return node;
}

[[nodiscard]] dns_arecord *find_entry(const ArecordBucket &bucket, Ipv4Address ip)
{
	for (dns_arecord &entry : bucket) {
		if (entry.ip == ip.raw) {
			return &entry;
		}
	}
	return nullptr;
}

[[nodiscard]] bool has_name(const dns_arecord &entry, Text fqdn)
{
	for (const fqdn_node &node : entry.fqdn_list) {
		if (name_of(node) == fqdn) {
			return true;
		}
	}
	return false;
}

// The entry's own `is_dump` deliberately stays: an entry that a report has shown stays hidden although it gained a name.
// Names are deliberately not limited.
void refresh_entry(dns_arecord &entry, uint32_t is_match_wg, Text fqdn, int64_t deadline)
{
	if (!has_name(entry, fqdn)) {
		// Without memory for the name the mask stays too: it describes the names that are there.
		if (fqdn_node *const node = make_fqdn_node(fqdn)) {
			entry.fqdn_list.append(*node);
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
[[nodiscard]] dns_arecord *make_entry(uint32_t is_match_wg, Text fqdn, Ipv4Address ip, int64_t deadline)
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
	entry->is_match_wg = is_match_wg;
	entry->timeout = deadline;
	entry->fqdn_list.append(*node);
	return entry;
}

void log_full_cache(uint32_t is_match_wg, Text fqdn, Ipv4Address ip)
{
	cp_log(CP_LOG_DEBUG, "Exceed maximum (total_ip_count=%d), not add \"A record\" (is_match_wg=%d, %.*s, %pI4)\n",
	       total_ip_count, static_cast<int32_t>(is_match_wg), static_cast<int32_t>(fqdn.length), fqdn.characters,
	       &ip);
}

[[nodiscard]] bool any_name_is_in_garden(const dns_arecord &entry, uint32_t iface)
{
	for (const fqdn_node &node : entry.fqdn_list) {
		const Text name = name_of(node);
		if (match_garden_list(GardenQuery::domain, {}, &name, iface)) {
			return true;
		}
	}
	return false;
}

// One hold per bucket, so that a full cache does not stop the network. An entry is still judged and marked in one hold: of
// two refreshes at once, the later one to reach it sees the rules of both.
void refresh_bucket(ArecordBucket &bucket, uint32_t iface)
{
	const LockGuard guard(Lock::dns_list);
	for (dns_arecord &entry : bucket) {
		if (any_name_is_in_garden(entry, iface)) {
			entry.is_match_wg |= mask_of_row(iface);
		} else {
			entry.is_match_wg &= ~mask_of_row(iface);
		}
	}
}

} // namespace

void format_ipv4(char (&out)[IPV4_TEXT_SIZE], uint64_t ip)
{
	const Ipv4Address address = {static_cast<uint32_t>(ip)};
	cp_format(out, sizeof(out), "%pI4", &address);
}

void remove_fqdn_node(dns_arecord &entry, fqdn_node &node)
{
	entry.fqdn_list.remove(node);
	cp_free(node.fqdn);
	cp_free(&node);
}

void remove_entry(ArecordBucket &bucket, dns_arecord &entry)
{
	while (fqdn_node *const node = entry.fqdn_list.first()) {
		remove_fqdn_node(entry, *node);
	}
	bucket.remove(entry);
	cp_free(&entry);
}

void free_all_entries()
{
	for (ArecordBucket &bucket : dns_aRecord) {
		while (dns_arecord *const entry = bucket.first()) {
			remove_entry(bucket, *entry);
		}
	}
}

void add_dns_arecord(uint32_t slot, uint32_t is_match_wg, Text fqdn, Ipv4Address ip, uint32_t ttl)
{
	const int64_t deadline = cp_wall_clock_seconds() + ttl;
	const LockGuard guard(Lock::dns_list);
	ArecordBucket &bucket = dns_aRecord[slot];
	if (dns_arecord *const entry = find_entry(bucket, ip)) {
		refresh_entry(*entry, is_match_wg, fqdn, deadline);
		return;
	}
	if (total_ip_count >= static_cast<int32_t>(ARECORD_LIMIT)) {
		if (debug_level_reaches(1)) {
			log_full_cache(is_match_wg, fqdn, ip);
		}
		return;
	}
	dns_arecord *const entry = make_entry(is_match_wg, fqdn, ip, deadline);
	if (entry == nullptr) {
		return;
	}
	bucket.append(*entry);
	++total_ip_count;
	if (debug_level_reaches(3)) {
		cp_log(CP_LOG_DEBUG, "total_ip_count=%d\n", total_ip_count);
	}
}

bool match_dns_aRecord_garden_list(Ipv4Address ip, uint32_t iface)
{
	const LockGuard guard(Lock::dns_list);
	// Deliberately deaf to the deadline: an entry counts until it is removed.
	for (const dns_arecord &entry : dns_aRecord[arecord_bucket(ip)]) {
		if (entry.ip == ip.raw && (entry.is_match_wg & mask_of_row(iface)) != 0) {
			return true;
		}
	}
	return false;
}

void update_dns_aRecord_list(uint32_t iface)
{
	for (ArecordBucket &bucket : dns_aRecord) {
		refresh_bucket(bucket, iface);
		// The network goes on between two holds.
		cp_yield_processor();
	}
}

} // namespace captive_portal
