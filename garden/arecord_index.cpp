// SPDX-License-Identifier: GPL-2.0-only
#include "garden/arecord_index.h"

#include "base/keyed_hash.h"

namespace captive_portal
{

namespace
{

// A full cache has four entries to a chain.
constexpr uint32_t chains = 4096;
constexpr uint32_t hash_bits = 32;
constexpr uint32_t chain_bits = 12;
static_assert(1U << chain_bits == chains);

constinit dns_arecord *chain_of_hash[chains] = {};
constinit uint32_t indexed_entries = 0;
// Anything but zero will do for the moments before the first start.
constinit HashSeed seed = {0x9e3779b97f4a7c15, 0xbf58476d1ce4e5b9, 0x94d049bb133111eb};

[[nodiscard]] dns_arecord *&chain_of(uint32_t bucket, uint32_t ip)
{
	return chain_of_hash[keyed_hash(seed, ip, bucket) >> (hash_bits - chain_bits)];
}

[[nodiscard]] dns_arecord *&chain_of(const dns_arecord &entry)
{
	return chain_of(static_cast<uint32_t>(entry.bucket), static_cast<uint32_t>(entry.ip));
}

[[nodiscard]] uint32_t hash_of_name(Text name)
{
	uint32_t hash = static_cast<uint32_t>(name.length);
	size_t done = 0;
	for (uint32_t word = 0; done + sizeof(word) <= name.length; done += sizeof(word)) {
		__builtin_memcpy(&word, name.characters + done, sizeof(word));
		hash = keyed_hash(seed, hash, word);
	}
	uint32_t last = 0;
	while (done < name.length) {
		last = last << 8 | static_cast<uint8_t>(name.characters[done++]);
	}
	return keyed_hash(seed, hash, last);
}

} // namespace

dns_arecord *find_entry(uint32_t bucket, Ipv4Address ip)
{
	dns_arecord *entry = chain_of(bucket, ip.raw);
	while (entry != nullptr && (entry->ip != ip.raw || entry->bucket != bucket)) {
		entry = entry->next_of_hash;
	}
	return entry;
}

void index_entry(dns_arecord &entry)
{
	dns_arecord *&chain = chain_of(entry);
	entry.next_of_hash = chain;
	chain = &entry;
	++indexed_entries;
}

void unindex_entry(dns_arecord &entry)
{
	dns_arecord **link = &chain_of(entry);
	while (*link != &entry) {
		link = &(*link)->next_of_hash;
	}
	*link = entry.next_of_hash;
	--indexed_entries;
}

bool arecord_index_is_empty()
{
	return indexed_entries == 0;
}

void seed_arecord_index()
{
	seed = draw_hash_seed();
}

// The names of an entry are a tree too, whose root is the first of them. The bits of a name's hash lead down it until
// the name is met, or the place where it belongs: n names are some log2(n) steps deep, whoever chooses them. Names only
// come; they go all at once, with their entry.
NamePlace find_name(dns_arecord &entry, Text fqdn)
{
	fqdn_node *node = entry.fqdn_list.first();
	// Nearly always the answer to the same question.
	if (name_of(*node) == fqdn) {
		return {.node = node, .link = nullptr, .hash = 0};
	}
	const uint32_t hash = hash_of_name(fqdn);
	// Names whose hashes are equal hang one below the other, where the bits end.
	for (uint32_t bits = hash;; bits >>= 1) {
		fqdn_node **const link = &node->below[bits & 1];
		node = *link;
		if (node == nullptr || (node->hash == hash && name_of(*node) == fqdn)) {
			return {.node = node, .link = link, .hash = hash};
		}
	}
}

void append_name(dns_arecord &entry, fqdn_node &node, const NamePlace &place)
{
	node.hash = place.hash;
	*place.link = &node;
	entry.fqdn_list.append(node);
}

} // namespace captive_portal
