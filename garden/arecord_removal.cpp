// SPDX-License-Identifier: GPL-2.0-only
// How entries leave the cache: unlinked under the lock, freed without it.
#include "base/lock.h"
#include "base/mutex.h"
#include "garden/arecord_index.h"
#include "garden/bucket_walk.h"

namespace captive_portal
{

constinit BucketWalks bucket_walks = {};

namespace
{

// Entries that are taken out in one hold of the lock.
constexpr uint32_t entries_per_hold = 32;

// Nodes that are freed before others may run.
constexpr uint32_t nodes_per_turn = 1024;

// Frees what is in no list any more, and lets others run now and then: one entry may have any number of names.
class Release
{
public:
	void free_entry(dns_arecord &entry)
	{
		while (fqdn_node *const node = entry.fqdn_list.first()) {
			entry.fqdn_list.remove(*node);
			cp_free(node->fqdn);
			cp_free(node);
			count_node();
		}
		cp_free(&entry);
	}

private:
	void count_node()
	{
		if (++freed_ % nodes_per_turn == 0) {
			cp_yield_processor();
		}
	}

	uint32_t freed_ = 0;
};

// Takes all entries out and frees them, in several holds of dns_list_lock. Calls `last` in the one that leaves none.
template <typename Last> void take_all_out(Last last)
{
	uint32_t bucket = 0;
	while (true) {
		// Lives longer than the hold.
		TakenEntries taken;
		const LockGuard guard(Lock::dns_list);
		for (uint32_t left = entries_per_hold; left != 0 && bucket < ARECORD_BUCKETS;) {
			if (dns_arecord *const entry = dns_aRecord[bucket].first()) {
				taken.take(*entry);
				--left;
			} else {
				++bucket;
			}
		}
		if (arecord_index_is_empty()) {
			last();
			return;
		}
		bucket %= ARECORD_BUCKETS;
	}
}

} // namespace

TakenEntries::~TakenEntries()
{
	Release release;
	while (dns_arecord *const entry = first_) {
		first_ = entry->hash_link.next;
		release.free_entry(*entry);
	}
}

void TakenEntries::take(dns_arecord &entry)
{
	for (BucketWalk &walk : bucket_walks) {
		if (walk.entry == &entry) {
			walk.stand_at(entry.hash_link.next);
		}
	}
	dns_aRecord[entry.bucket].remove(entry);
	unindex_entry(entry);
	entry.hash_link.next = first_;
	first_ = &entry;
}

void empty_cache()
{
	take_all_out([] {
		seed_arecord_index();
		total_ip_count = 0;
	});
}

void free_all_entries()
{
	const MutexGuard no_report(Mutex::reports);
	take_all_out([] {});
}

} // namespace captive_portal
