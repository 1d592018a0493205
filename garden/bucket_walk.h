// SPDX-License-Identifier: GPL-2.0-only
// Walks over buckets of the A-record cache that take many holds of dns_list_lock, so that the network goes on in
// between.
#pragma once

#include "base/lock.h"
#include "garden/arecord_table.h"

namespace captive_portal
{

// Where a walk goes on in its next hold. Whoever takes entries out moves the walks that stand at one of them.
struct BucketWalk {
	dns_arecord *entry; // null: a bucket's end
	fqdn_node *name;    // of the entry, null: its first
	uint32_t found;     // about the entry's names so far
	uint32_t rules;     // version of the rules that were asked so far
	ListLink<BucketWalk> link;

	// The walk is at the entry, and nothing is known about it.
	void stand_at(dns_arecord *next)
	{
		entry = next;
		name = nullptr;
		found = 0;
	}
};

// Those under way. Guarded by dns_list_lock.
using BucketWalks = LinkedList<BucketWalk, &BucketWalk::link>;
extern BucketWalks bucket_walks;

// Goes through the buckets from `first` to the one before `end`. In each hold of dns_list_lock that finds an entry there
// `visit(walk)` goes on from where the walk stands, in that bucket alone, and says whether it wants more. It bounds the
// hold. Process context.
template <typename Visit> void walk_buckets(uint32_t first, uint32_t end, Visit visit)
{
	// Empty ones that are passed by in one hold.
	constexpr uint32_t buckets_per_hold = 64;
	BucketWalk walk = {};
	uint32_t next = first;
	bool begins = true;
	bool goes_on = false;
	do {
		{
			const LockGuard guard(Lock::dns_list);
			if (begins) {
				bucket_walks.append(walk);
				begins = false;
			}
			for (uint32_t left = buckets_per_hold; walk.entry == nullptr && next < end && left != 0;
			     --left) {
				walk.stand_at(dns_aRecord[next++].first());
			}
			goes_on = (walk.entry == nullptr || visit(walk)) && (walk.entry != nullptr || next < end);
			if (!goes_on) {
				bucket_walks.remove(walk);
			}
		}
		cp_yield_processor();
	} while (goes_on);
}

} // namespace captive_portal
