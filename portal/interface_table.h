// SPDX-License-Identifier: GPL-2.0-only
// The captive-portal table: what each wireless interface's portal is set to, the connections that were redirected, and
// the addresses of the whole access point.
#pragma once

#include "base/atomic_word.h"
#include "base/byte_order.h"
#include "base/mac_address.h"
#include "captive_portal/marks.h"
#include "captive_portal/portal.h"
#include "captive_portal/ports.h"

namespace captive_portal
{

struct table_list_entry;

// One row of captive_portal_table. Writers of `cp_mode`, `cp_walled_garden`, `block_https`, `logout_ip` and
// `logout_address` hold cp_lock; all but the text are also read without it, as words. `table_list`, its tail and its length
// belong to change_ip_port_lock. Mark and ports are written once, at start, when the hooks run already, and read as words
// without a lock.
struct cp_row {
	uint32_t mark;
	uint16_t http_port;  // host order
	uint16_t https_port; // host order
	uint32_t cp_mode;
	uint32_t cp_walled_garden; // stored for the daemon; nothing reads it
	uint32_t block_https;
	char logout_ip[CP_DOTTED_QUAD_SIZE];
	Ipv4Address logout_address; // what in_aton() reads in logout_ip
	table_list_entry *table_list;
	table_list_entry *table_list_tail; // null when the list is empty
	uint32_t connections;              // in the list; written with the lock held, read without it, as a word
};

// Rows 0..23 are the wireless interfaces, 24..27 the special rows of interface_index.h.
extern cp_row captive_portal_table[CP_ROWS];

// False until start has filled the rows: the last one is filled last. No lock.
[[nodiscard]] inline bool are_rows_filled()
{
	return load_word(captive_portal_table[CP_WIRELESS_INTERFACES - 1].https_port) != 0;
}

// Writers hold gateway_lock; the packet path reads it without, as a word.
extern Ipv4Address ap_gateway;
// Learned on the packet path; written and read as one word, without a lock.
extern Ipv4Address ap_addr;
// Written under cp_lock, read without it by the gatekeeper hook, as a word.
extern uint32_t dns_filter_activate;

// The access point's own MAC address, learned on the packet path. Its six bytes live in one word, so that a reader
// never meets half of it. No lock.
extern uint64_t ap_mac;
void store_ap_mac(const MacAddress &mac);
[[nodiscard]] MacAddress load_ap_mac();

// Start: the rows' defaults. Takes cp_lock, and change_ip_port_lock after it.
void init_captive_portal_table();
// Start: clears `ap_mac`, `ap_gateway` and `ap_addr`. Takes gateway_lock.
void clear_access_point_addresses();

} // namespace captive_portal
