// SPDX-License-Identifier: GPL-2.0-only
// Redirected TCP connections: where a client wanted to go, by the client's address and port, one list per row of
// captive_portal_table. Lists have no limit and no age; only a FIN+ACK from a redirect port removes an entry. Entries that are
// left at stop are deliberately not freed.
//
// The lists are what is true: their order, their duplicates. An index over all rows finds a client's oldest entry in a row
// without walking (docs/connection-index.md). Lists and index are guarded by change_ip_port_lock.
#pragma once

#include "base/byte_order.h"
#include "base/growing_hash.h"
#include "base/mac_address.h"

namespace captive_portal
{

// Who opened a connection, as it lies in the packet.
struct Client {
	Ipv4Address address;
	be16 port;
};

// Where it wanted to go, as it lay in the packet before the redirect.
struct Destination {
	Ipv4Address address;
	be16 port;
};

// Exactly one of the allocator's blocks; the next larger has 96 bytes. What says whose connection it is comes first: a
// leak detector shows no more than 32 bytes.
struct table_list_entry {
	table_list_entry *next;
	Ipv4Address client_addr;
	be16 client_port;
	uint8_t row;
	uint8_t generation; // see free_connections()
	Ipv4Address orig_daddr;
	be16 orig_dport;
	MacAddress orig_dmac;
	uint32_t hash;
	table_list_entry *previous; // null at the head
	HashLinks<table_list_entry> links;
};
static_assert(sizeof(table_list_entry) == 64);

// Start, before the first hook can run: seeds the index. No lock.
void seed_connection_index();

// Sets the destination of the client's first entry in the row's list; its MAC address stays. False when there is none.
// Takes change_ip_port_lock.
[[nodiscard]] bool update_connection(uint32_t row, const Client &client, const Destination &destination);

// Appends an entry; when it or the index's memory for it cannot be had, nothing changes. Takes change_ip_port_lock after the
// allocations.
void add_connection(uint32_t row, const Client &client, const Destination &destination, const MacAddress &mac);

// The client's first entry in the row's list, or null. Called with change_ip_port_lock held; the entry is good as long as
// it is.
[[nodiscard]] table_list_entry *find_connection(uint32_t row, const Client &client);

// Unlinks and frees an entry. Called with change_ip_port_lock held.
void remove_connection(table_list_entry &entry);

// Empties every list, at one moment; entries that hooks record from then on stay. Process context. Takes
// change_ip_port_lock, for a few entries at a time.
void free_connections();

// Stop: frees the index and leaves the lists. No hook runs any more. No lock.
void free_connection_index();

} // namespace captive_portal
