// SPDX-License-Identifier: GPL-2.0-only
// The structures of the A-record cache, for the files of this room that walk it. Everything here, the flags included,
// is guarded by dns_list_lock.
#pragma once

#include "garden/arecord_cache.h"
#include "garden/linked_list.h"

namespace captive_portal
{

// Whether a report has shown an entry or a name since marks were cleared last: 1 or 0; and whether it came since the last
// listing began. Clearing all marks, or making all of them old, is one step, however many there are.
//
// A number is met again after 2^31 listings, or clearings: what came so long ago and was never shown is left out of one
// listing, and what was shown so long ago and never since counts as shown.
class DumpMark
{
public:
	DumpMark() = default;
	// NOLINTNEXTLINE(google-explicit-constructor): it is a flag.
	operator uint8_t() const { return number_ == shown_ ? 1 : 0; }
	// 0: as of what comes now.
	DumpMark &operator=(uint8_t value)
	{
		number_ = value != 0 ? shown_ : listing_;
		return *this;
	}

	// Whether the listing that began last has yet to show it: what came since then is left out, as if it had come behind
	// the listing's end.
	[[nodiscard]] bool is_due() const { return number_ != shown_ && number_ != listing_; }

	static void begin_listing() { listing_ += 2; }
	static void clear_all() { shown_ += 2; }

private:
	static uint32_t shown_;   // odd
	static uint32_t listing_; // even

	// shown_ when the mark was set, else listing_ when it came.
	uint32_t number_;
};

// One name that resolved to the address of the entry that owns the node.
struct fqdn_node {
	char *fqdn; // an allocation of its own
	ListLink<fqdn_node> link;
	fqdn_node *below[2]; // further names of the entry, by a bit of their hashes; see arecord_index.cpp
	uint32_t hash;       // unused in an entry's first name
	DumpMark is_dump;    // 1 once a report has shown the name
	uint16_t length;     // of the name
};

using FqdnList = LinkedList<fqdn_node, &fqdn_node::link>;

// One address.
struct dns_arecord {
	uint64_t ip : 54;     // network order, zero-extended
	uint64_t bucket : 10; // that it is in
	int64_t timeout;      // wall-clock second after which the entry is stale
	uint32_t is_match_wg; // bit i: a name of this entry is in the walled garden of row i
	DumpMark is_dump;     // 1 once a report has shown the entry
	ListLink<dns_arecord> hash_link;
	dns_arecord *next_of_hash; // the next one that arecord_index.cpp finds in the same place
	FqdnList fqdn_list;        // in the order in which the names came
};

static_assert(ARECORD_BUCKETS == 1U << 10);

using ArecordBucket = LinkedList<dns_arecord, &dns_arecord::hash_link>;

extern ArecordBucket dns_aRecord[ARECORD_BUCKETS];

// Entries that are in no bucket any more and belong to whoever took them out. One entry may have any number of names, so
// they are freed without the lock.
class TakenEntries
{
public:
	TakenEntries() = default;
	~TakenEntries();
	TakenEntries(const TakenEntries &) = delete;
	TakenEntries &operator=(const TakenEntries &) = delete;

	// Takes the entry out of its bucket. Called with dns_list_lock held; the object itself must live longer than the
	// hold. Does not touch `total_ip_count`.
	void take(dns_arecord &entry);

private:
	dns_arecord *first_ = nullptr;
};

// Empties the cache, in several holds of dns_list_lock: hooks may run, and the last one finds it empty. Sets
// `total_ip_count` to 0 in that hold. Process context.
void empty_cache();

// Empties the cache as empty_cache() does, for the stop: takes the mutex of reports, so that a report shows all of the
// cache or nothing. `total_ip_count` stays. Process context.
void free_all_entries();

// Room for a dotted quad and its NUL.
enum : uint32_t { IPV4_TEXT_SIZE = 20 };

// Writes the address, held in network order, as a dotted quad.
void format_ipv4(char (&out)[IPV4_TEXT_SIZE], uint64_t ip);

// The node's name as a text.
[[nodiscard]] inline Text name_of(const fqdn_node &node)
{
	return {node.fqdn, node.length};
}

} // namespace captive_portal
