// SPDX-License-Identifier: GPL-2.0-only
#include "garden/cache_status.h"

#include "base/status_text.h"
#include "garden/bucket_walk.h"

namespace captive_portal
{

namespace
{

// Lines in one hold of the lock, so that a full cache does not stop the network.
constexpr uint32_t lines_per_hold = 64;

[[nodiscard]] Ipv4Address address_of(const dns_arecord &entry)
{
	return {static_cast<uint32_t>(entry.ip)};
}

void print_entry(const dns_arecord &entry, cp_status_text *out)
{
	cp_status_print(out, "cached");
	print_address(out, "address", address_of(entry));
	cp_status_print(out, " bucket=%u timeout=%lld gardens=0x%x shown=%u\n", static_cast<uint32_t>(entry.bucket),
			static_cast<long long>(entry.timeout), entry.is_match_wg, uint32_t{uint8_t{entry.is_dump}});
}

void print_name(const dns_arecord &entry, const fqdn_node &node, cp_status_text *out)
{
	cp_status_print(out, "cached-name");
	print_address(out, "address", address_of(entry));
	print_text(out, "name", name_of(node));
	cp_status_print(out, " shown=%u\n", uint32_t{uint8_t{node.is_dump}});
}

// The lines of one hold, from where the walk stands. An entry that goes between two holds takes its other lines with it:
// the walk then stands at the next one, untouched.
void print_entries(BucketWalk &walk, cp_status_text *out)
{
	enum : uint32_t { untouched, begun };
	uint32_t left = lines_per_hold;
	while (walk.entry != nullptr) {
		if (walk.found == untouched) {
			if (left == 0) {
				return;
			}
			--left;
			print_entry(*walk.entry, out);
			walk.found = begun;
			walk.name = walk.entry->fqdn_list.first();
		}
		for (; walk.name != nullptr; walk.name = walk.name->link.next) {
			if (left == 0) {
				return;
			}
			--left;
			print_name(*walk.entry, *walk.name, out);
		}
		walk.stand_at(walk.entry->hash_link.next);
	}
}

} // namespace

void write_cached_addresses(uint32_t bucket, cp_status_text *out)
{
	walk_buckets(bucket, bucket + 1, [out](BucketWalk &walk) {
		print_entries(walk, out);
		return true;
	});
}

} // namespace captive_portal
