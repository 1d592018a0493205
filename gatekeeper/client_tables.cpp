// SPDX-License-Identifier: GPL-2.0-only
#include "gatekeeper/client_tables.h"

#include "base/interface_name.h"

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

constinit SequenceCount client_sequence;

void MacList::append(mac_entry *node)
{
	node->next = nullptr;
	if (tail_ == nullptr) {
		head_ = node;
	} else {
		tail_->next = node;
	}
	tail_ = node;
	++size_;
}

void MacList::delete_first_match(const MacAddress &mac)
{
	mac_entry *previous = nullptr;
	for (mac_entry **link = &head_; *link != nullptr; link = &(*link)->next) {
		mac_entry *const node = *link;
		if (node->mac == mac) {
			*link = node->next;
			if (node == tail_) {
				tail_ = previous;
			}
			cp_free(node);
			--size_;
			return;
		}
		previous = node;
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

ClientWriteSection::ClientWriteSection() : guard_(Lock::gatekeeper)
{
	client_sequence.begin_writing();
}

ClientWriteSection::~ClientWriteSection()
{
	client_sequence.end_writing();
}

void ClientWriteSection::hide(uint32_t first_row, uint32_t rows, uint32_t lists) const
{
	client_index.hide(first_row, rows, lists);
	client_sequence.begin_exception();
}

namespace
{

// Addresses that are taken out of the index before others may run.
constexpr uint32_t clients_at_a_time = 256;

// The order of a flush.
struct FlushedTable {
	iface_mac_list *table;
	ClientLists::List list;
};
constexpr FlushedTable tables_in_order_of_flush[] = {
	{white_list, ClientLists::white},           {ga_white_list, ClientLists::ga_white},
	{mac_auth_fallback, ClientLists::fallback}, {login_mac_table, ClientLists::login},
	{auth_mac_table, ClientLists::auth},
};

void empty_list(MacList &list, uint32_t row, ClientLists::List name)
{
	uint32_t number = 0;
	list.flush([&](const MacAddress &mac) {
		client_index.remove(mac, row, name);
		if (++number % clients_at_a_time == 0) {
			cp_yield_processor();
		}
	});
}

void name_rows(iface_mac_list (&table)[CP_WIRELESS_INTERFACES])
{
	for (uint32_t index = 0; index < CP_WIRELESS_INTERFACES; ++index) {
		format_interface_name_of_index(table[index].iface, index);
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

ClientStanding standing_of(uint64_t mac, uint32_t row)
{
	for (int tries = 0; tries < 2; ++tries) {
		const uint64_t count = client_sequence.begin_reading();
		const ClientStanding standing = standing_by_lists(client_index.lists_of(mac, row), row);
		if (client_sequence.was_quiet_since(count)) {
			return standing;
		}
	}
	const LockGuard guard(Lock::gatekeeper);
	return standing_by_lists(client_index.lists_of(mac, row), row);
}

ClientLists::List list_of_table(const iface_mac_list *table)
{
	if (table == login_mac_table) {
		return ClientLists::login;
	}
	if (table == white_list) {
		return ClientLists::white;
	}
	if (table == ga_white_list) {
		return ClientLists::ga_white;
	}
	return table == mac_auth_fallback ? ClientLists::fallback : ClientLists::auth;
}

uint32_t take_from_list(MacList &list, ClientLists::List name, const MacAddress &mac)
{
	list.delete_first_match(mac);
	return list.contains(mac) ? 0 : static_cast<uint32_t>(name);
}

void empty_hidden_lists(uint32_t first_row, uint32_t rows, uint32_t lists)
{
	for (uint32_t row = first_row; row < first_row + rows; ++row) {
		for (const FlushedTable &table : tables_in_order_of_flush) {
			if ((lists & table.list) != 0) {
				empty_list(table.table[row].list, row, table.list);
			}
		}
	}
	if ((lists & ClientLists::mirel_white) != 0) {
		empty_list(mirel_white_list, first_row, ClientLists::mirel_white);
	}
	if ((lists & ClientLists::mirel_black) != 0) {
		empty_list(mirel_black_list, first_row, ClientLists::mirel_black);
	}
	client_index.show_all();
	client_sequence.end_exception();
	client_index.tidy();
}

void init_client_index()
{
	client_index.set_seed(draw_hash_seed());
}

void init_client_tables()
{
	const MutexGuard alone(Mutex::clients);
	name_rows(auth_mac_table);
	name_rows(login_mac_table);
	name_rows(white_list);
	name_rows(ga_white_list);
	name_rows(mac_auth_fallback);
	for (uint32_t index = 0; index < CP_WIRELESS_INTERFACES; ++index) {
		format_interface_name_of_index(ovra_behavior[index].iface, index);
	}
	init_owe_mapping();
	{
		// A command may have been here since the device was registered.
		const ClientWriteSection section;
		section.hide(0, CP_WIRELESS_INTERFACES, ClientLists::of_row);
		for (ovra_behavior_row &row : ovra_behavior) {
			store_word_release(row.behavior, 0U);
			store_word_release(row.status, 0U);
		}
	}
	empty_hidden_lists(0, CP_WIRELESS_INTERFACES, ClientLists::of_row);
}

void clear_mirel_lists()
{
	const MutexGuard alone(Mutex::clients);
	{
		const ClientWriteSection section;
		section.hide(0, CP_WIRELESS_INTERFACES, ClientLists::of_all_rows);
	}
	empty_hidden_lists(0, CP_WIRELESS_INTERFACES, ClientLists::of_all_rows);
}

void free_client_index()
{
	const MutexGuard alone(Mutex::clients);
	client_index.release();
}

} // namespace captive_portal
