// SPDX-License-Identifier: GPL-2.0-only
#include "gatekeeper/client_tables.h"

#include "base/interface_name.h"
#include "base/lock.h"

namespace captive_portal
{

constinit iface_mac_list auth_mac_table[CP_WIRELESS_INTERFACES] = {};
constinit iface_mac_list login_mac_table[CP_WIRELESS_INTERFACES] = {};
constinit iface_mac_list white_list[CP_WIRELESS_INTERFACES] = {};
constinit iface_mac_list ga_white_list[CP_WIRELESS_INTERFACES] = {};
constinit iface_mac_list mac_auth_fallback[CP_WIRELESS_INTERFACES] = {};
constinit MacList mirel_white_list;
constinit MacList mirel_black_list;
constinit ovra_behavior_row ovra_behavior[CP_WIRELESS_INTERFACES] = {};

constinit owe_mapping_row owe_mapping_table[CP_OWE_INTERFACES] = {};

void MacList::append(mac_entry *node)
{
	mac_entry **link = &head_;
	while (*link != nullptr) {
		link = &(*link)->next;
	}
	node->next = nullptr;
	*link = node;
}

void MacList::delete_first_match(const MacAddress &mac)
{
	for (mac_entry **link = &head_; *link != nullptr; link = &(*link)->next) {
		mac_entry *const node = *link;
		if (node->mac == mac) {
			*link = node->next;
			cp_free(node);
			return;
		}
	}
}

void MacList::flush()
{
	while (head_ != nullptr) {
		mac_entry *const node = head_;
		head_ = node->next;
		cp_free(node);
	}
}

bool MacList::contains(const MacAddress &mac) const
{
	for (const mac_entry *node = head_; node != nullptr; node = node->next) {
		if (node->mac == mac) {
			return true;
		}
	}
	return false;
}

uint32_t MacList::copy_out(gk_list_slot *slot, uint32_t slots) const
{
	uint32_t count = 0;
	for (const mac_entry *node = head_; node != nullptr && count < slots; node = node->next) {
		__builtin_memcpy(slot[count].mac, node->mac.bytes, sizeof(node->mac.bytes));
		++count;
	}
	return count;
}

namespace
{

void init_mac_table(iface_mac_list (&table)[CP_WIRELESS_INTERFACES])
{
	for (uint32_t index = 0; index < CP_WIRELESS_INTERFACES; ++index) {
		format_interface_name_of_index(table[index].iface, index);
		// A command may have been here since the device was registered.
		table[index].list.flush();
	}
}

void init_ovra_behavior()
{
	for (uint32_t index = 0; index < CP_WIRELESS_INTERFACES; ++index) {
		format_interface_name_of_index(ovra_behavior[index].iface, index);
		ovra_behavior[index].behavior = 0;
		ovra_behavior[index].status = 0;
	}
}

// The names of the paired interfaces are not written: they stay empty until the first mapping.
void init_owe_mapping()
{
	for (uint32_t radio = 1; radio <= CP_RADIOS; ++radio) {
		for (uint32_t vap = CP_OWE_FIRST_VAP; vap <= CP_OWE_LAST_VAP; ++vap) {
			char name[CP_INTERFACE_NAME_SIZE];
			format_interface_name(name, radio, vap);
			owe_mapping_table[cp_owe_index(radio, vap)].owe_iface.store(name);
		}
	}
}

} // namespace

void init_client_tables()
{
	const LockGuard guard(Lock::gatekeeper);
	init_mac_table(auth_mac_table);
	init_mac_table(login_mac_table);
	init_mac_table(white_list);
	init_mac_table(ga_white_list);
	init_mac_table(mac_auth_fallback);
	init_ovra_behavior();
	init_owe_mapping();
}

void clear_mirel_lists()
{
	const LockGuard guard(Lock::gatekeeper);
	mirel_white_list.flush();
	mirel_black_list.flush();
}

} // namespace captive_portal
