// SPDX-License-Identifier: GPL-2.0-only
// Client MAC tables: which stations pass, per wireless interface, and the two MIREL lists for all interfaces.
#pragma once

#include "base/atomic_word.h"
#include "base/mac_address.h"
#include "captive_portal/gatekeeper.h"

namespace captive_portal
{

// One node of a MAC list.
struct mac_entry {
	mac_entry *next;
	MacAddress mac;
};

// A list of MAC addresses in the order of adding. It may hold an address twice and has no limit. Guarded by
// gatekeeper_lock.
class MacList
{
public:
	// Appends a node; the list owns it from here on.
	void append(mac_entry *node);
	// Unlinks and frees the first node with this address; a missing address is no error.
	void delete_first_match(const MacAddress &mac);
	void flush();
	[[nodiscard]] bool contains(const MacAddress &mac) const;
	// Writes the addresses into consecutive slots, at most `slots`, and gives their number.
	[[nodiscard]] uint32_t copy_out(gk_list_slot *slot, uint32_t slots) const;

private:
	mac_entry *head_ = nullptr;
};

struct iface_mac_list {
	char iface[CP_INTERFACE_NAME_SIZE];
	MacList list;
};

// Disconnection behaviour of one interface, guarded by gatekeeper_lock.
struct ovra_behavior_row {
	char iface[CP_INTERFACE_NAME_SIZE];
	uint32_t behavior;
	uint32_t status;
};

// Pairs an OWE companion interface with the interface that it is judged as. Deliberately written without a lock, and
// read without one on the packet path.
struct owe_mapping_row {
	AtomicName iface;     // empty until mapped
	AtomicName owe_iface; // "wlan-R-14" to "wlan-R-16" after start
};

// All guarded by gatekeeper_lock.
extern iface_mac_list auth_mac_table[CP_WIRELESS_INTERFACES];
extern iface_mac_list login_mac_table[CP_WIRELESS_INTERFACES];
extern iface_mac_list white_list[CP_WIRELESS_INTERFACES];
extern iface_mac_list ga_white_list[CP_WIRELESS_INTERFACES];
extern iface_mac_list mac_auth_fallback[CP_WIRELESS_INTERFACES];
extern MacList mirel_white_list;
extern MacList mirel_black_list;
extern ovra_behavior_row ovra_behavior[CP_WIRELESS_INTERFACES];

extern owe_mapping_row owe_mapping_table[CP_OWE_INTERFACES];

// Start: names of all rows, empty lists, behaviours 0, OWE interface names. The hooks run already; takes
// gatekeeper_lock. Nodes left in the lists at stop are deliberately not freed.
void init_client_tables();
// Start: empties both MIREL lists. Takes gatekeeper_lock.
void clear_mirel_lists();

} // namespace captive_portal
