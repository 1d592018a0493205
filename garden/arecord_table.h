// SPDX-License-Identifier: GPL-2.0-only
// The structures of the A-record cache, for the files of this room that walk it. Everything here, the flags included,
// is guarded by dns_list_lock.
#pragma once

#include "garden/arecord_cache.h"
#include "garden/linked_list.h"

namespace captive_portal
{

// One name that resolved to the address of the entry that owns the node.
struct fqdn_node {
	char *fqdn;      // an allocation of its own
	uint8_t is_dump; // 1 once a report has shown the name
	ListLink<fqdn_node> link;
};

using FqdnList = LinkedList<fqdn_node, &fqdn_node::link>;

// One address.
struct dns_arecord {
	uint64_t ip;          // network order, zero-extended
	int64_t timeout;      // wall-clock second after which the entry is stale
	uint32_t is_match_wg; // bit i: a name of this entry is in the walled garden of row i
	uint8_t is_dump;      // 1 once a report has shown the entry
	ListLink<dns_arecord> hash_link;
	FqdnList fqdn_list; // in the order in which the names came
};

using ArecordBucket = LinkedList<dns_arecord, &dns_arecord::hash_link>;

extern ArecordBucket dns_aRecord[ARECORD_BUCKETS];

// Unlink and free; called with dns_list_lock held. None of them touches `total_ip_count`.
void remove_fqdn_node(dns_arecord &entry, fqdn_node &node);
void remove_entry(ArecordBucket &bucket, dns_arecord &entry);
void free_all_entries();

// Room for a dotted quad and its NUL.
enum : uint32_t { IPV4_TEXT_SIZE = 20 };

// Writes the address, held in network order, as a dotted quad.
void format_ipv4(char (&out)[IPV4_TEXT_SIZE], uint64_t ip);

// The node's name as a text.
[[nodiscard]] inline Text name_of(const fqdn_node &node)
{
	return {node.fqdn, __builtin_strlen(node.fqdn)};
}

} // namespace captive_portal
