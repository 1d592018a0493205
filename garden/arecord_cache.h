// SPDX-License-Identifier: GPL-2.0-only
// The cache of IPv4 addresses that DNS answers gave for names, with the interfaces whose walled garden permits them.
#pragma once

#include "base/byte_order.h"
#include "base/text.h"
#include "captive_portal/interface_index.h"

namespace captive_portal
{

enum : uint32_t {
	ARECORD_BUCKETS = 1024,
	ARECORD_LIMIT = 16384,
};

// Bucket of an address: the low ten bits of the word that holds it in network order.
[[nodiscard]] constexpr uint32_t arecord_bucket(Ipv4Address address)
{
	return address.raw & (ARECORD_BUCKETS - 1);
}

// Bit of a row in an entry's mask.
[[nodiscard]] constexpr uint32_t arecord_mask(uint32_t iface)
{
	constexpr uint32_t bits = 32;
	return 1U << (iface % bits);
}

// Addresses in the cache, guarded by dns_list_lock.
extern int32_t total_ip_count;

// Stores that `fqdn` resolved to `ip` for `ttl` seconds. `is_match_wg` has bit i set when row i's walled garden permits
// the name. An address that is there gains the name and, at most, a later deadline; a new name with a mask that is not
// 0 replaces the entry's mask. A full cache refuses new addresses (logged at debug level 1). The caller keeps `fqdn`.
// Takes dns_list_lock.
void add_dns_arecord(uint32_t slot, uint32_t is_match_wg, Text fqdn, Ipv4Address ip, uint32_t ttl);

// True when the cache holds `ip` with bit `iface` (modulo 32) set, however old the entry is. Takes dns_list_lock.
[[nodiscard]] bool match_dns_aRecord_garden_list(Ipv4Address ip, uint32_t iface);

// Sets or clears bit `iface` of every entry by asking the rules about each of its names. Takes dns_list_lock, and
// walledgarden_lock inside it, anew for every few entries. Process context.
void update_dns_aRecord_list(uint32_t iface);

// The same for each row, in turn where that can be seen, else for all of them at once.
void update_dns_aRecord_lists();

} // namespace captive_portal
