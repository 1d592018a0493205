// SPDX-License-Identifier: GPL-2.0-only
#include "portal/connections.h"

#include "base/lock.h"
#include "base/memory.h"
#include "portal/interface_table.h"

namespace captive_portal
{

table_list_entry **find_connection(uint32_t row, const Client &client)
{
	for (table_list_entry **link = &captive_portal_table[row].table_list; *link != nullptr; link = &(*link)->next) {
		if ((*link)->client_addr == client.address && (*link)->client_port == client.port) {
			return link;
		}
	}
	return nullptr;
}

bool update_connection(uint32_t row, const Client &client, const Destination &destination)
{
	const LockGuard guard(Lock::change_ip_port);
	table_list_entry **const link = find_connection(row, client);
	if (link == nullptr) {
		return false;
	}
	(*link)->orig_daddr = destination.address;
	(*link)->orig_dport = destination.port;
	return true;
}

void add_connection(uint32_t row, const Client &client, const Destination &destination, const MacAddress &mac)
{
	auto *const entry = allocate_zeroed<table_list_entry>();
	if (entry == nullptr) {
		return;
	}
	*entry = {nullptr, client.address, client.port, destination.address, destination.port, mac};

	const LockGuard guard(Lock::change_ip_port);
	table_list_entry **link = &captive_portal_table[row].table_list;
	while (*link != nullptr) {
		link = &(*link)->next;
	}
	*link = entry;
}

void remove_connection(table_list_entry **link)
{
	table_list_entry *const entry = *link;
	*link = entry->next;
	cp_free(entry);
}

} // namespace captive_portal
