// SPDX-License-Identifier: GPL-2.0-only
// Finds addresses and names in the A-record cache without walking its lists, which stay the truth: what is listed, in
// which order, and what comes first is theirs alone. The index lies in the entries and needs no memory of its own, so
// there is nothing that could be missing. docs/arecord-index.md says why it is made so.
//
// Everything here is called with dns_list_lock held.
#pragma once

#include "garden/arecord_table.h"

namespace captive_portal
{

// The entry for `ip` in the bucket, or null.
[[nodiscard]] dns_arecord *find_entry(uint32_t bucket, Ipv4Address ip);

// The entry's address must have no other entry in the bucket; it must not change until the entry is taken out.
void index_entry(dns_arecord &entry);
void unindex_entry(dns_arecord &entry);

// True when no entry is in the index, and so none in any bucket.
[[nodiscard]] bool arecord_index_is_empty();

// Draws new random numbers for the hashes. Only while the index is empty.
void seed_arecord_index();

// Where a name is among the names of an entry, or would be.
struct NamePlace {
	fqdn_node *node;  // null: the entry does not have the name
	fqdn_node **link; // then: what will point to it
	uint32_t hash;
};

// The entry must have a first name.
[[nodiscard]] NamePlace find_name(dns_arecord &entry, Text fqdn);

// Adds a node that is in no list as the entry's last name. `place` is what find_name() has said about its name since
// the entry was changed last.
void append_name(dns_arecord &entry, fqdn_node &node, const NamePlace &place);

} // namespace captive_portal
