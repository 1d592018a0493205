// SPDX-License-Identifier: GPL-2.0-only
// Redirected TCP connections: where a client wanted to go, by the client's address and port, one list per row of
// captive_portal_table. Lists have no limit and no age; only a FIN+ACK from a redirect port removes an entry. Entries that are
// left at stop are deliberately not freed. All lists are guarded by change_ip_port_lock.
#pragma once

#include "base/byte_order.h"
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

struct table_list_entry {
	table_list_entry *next;
	Ipv4Address client_addr;
	be16 client_port;
	Ipv4Address orig_daddr;
	be16 orig_dport;
	MacAddress orig_dmac;
};

// Sets the destination of the client's first entry in the row's list; its MAC address stays. False when there is none.
// Takes change_ip_port_lock.
[[nodiscard]] bool update_connection(uint32_t row, const Client &client, const Destination &destination);

// Appends an entry; when it cannot be allocated, nothing changes. Takes change_ip_port_lock after the allocation.
void add_connection(uint32_t row, const Client &client, const Destination &destination, const MacAddress &mac);

// The link that points to the client's first entry in the row's list, or null. Called with change_ip_port_lock held;
// the link is good as long as it is.
[[nodiscard]] table_list_entry **find_connection(uint32_t row, const Client &client);

// Unlinks and frees the entry that `link` points to. Called with change_ip_port_lock held.
void remove_connection(table_list_entry **link);

} // namespace captive_portal
