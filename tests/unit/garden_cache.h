// SPDX-License-Identifier: GPL-2.0-only
// What is in the address cache, for the tests of the files that walk it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "garden/arecord_table.h"
#include "tests/unit/garden_records.h"

namespace captive_portal::test
{

using Names = std::vector<std::string>;

// Stores the address as a DNS answer would.
inline void add(Ipv4Address ip, std::string_view name, uint32_t mask = 0, uint32_t ttl = 60)
{
	const ExactText exact(name);
	add_dns_arecord(arecord_bucket(ip), mask, exact.text(), ip, ttl);
}

// The cache's entry for the address, null when there is none.
[[nodiscard]] inline dns_arecord *entry_of(Ipv4Address ip)
{
	for (dns_arecord &entry : dns_aRecord[arecord_bucket(ip)]) {
		if (entry.ip == ip.raw) {
			return &entry;
		}
	}
	return nullptr;
}

[[nodiscard]] inline Names names_of(Ipv4Address ip)
{
	Names names;
	if (const dns_arecord *const entry = entry_of(ip)) {
		for (const fqdn_node &node : entry->fqdn_list) {
			names.emplace_back(node.fqdn);
		}
	}
	return names;
}

[[nodiscard]] inline std::vector<uint64_t> addresses_in(uint32_t bucket)
{
	std::vector<uint64_t> addresses;
	for (const dns_arecord &entry : dns_aRecord[bucket]) {
		addresses.push_back(entry.ip);
	}
	return addresses;
}

// The `number`-th of 16384 addresses that lie 16 to a bucket.
[[nodiscard]] inline Ipv4Address filler(uint32_t number)
{
	return ipv4(static_cast<uint8_t>(number), static_cast<uint8_t>(number >> 8), 1, 1);
}

// Fills the cache to its limit.
inline void fill_cache(uint32_t mask = 0, uint32_t ttl = 60)
{
	for (uint32_t number = 0; number < 16384; ++number) {
		add(filler(number), "full.example", mask, ttl);
	}
}

} // namespace captive_portal::test
