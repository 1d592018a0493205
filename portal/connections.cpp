// SPDX-License-Identifier: GPL-2.0-only
#include "portal/connections.h"

#include "base/counters.h"
#include "base/keyed_hash.h"
#include "base/lock.h"
#include "base/memory.h"
#include "portal/interface_table.h"

namespace captive_portal
{

namespace
{

struct ByClient {
	using Entry = table_list_entry;
	// The client's address, its port, the row and the generation, in this order from the lowest bit.
	using Key = uint64_t;

	static constexpr Key key_of(uint32_t row, const Client &client, uint8_t generation)
	{
		return Key{generation} << 56 | Key{row} << 48 | Key{client.port.raw} << 32 | client.address.raw;
	}

	static HashLinks<Entry> &links(Entry &entry) { return entry.links; }
	static uint32_t hash(const Entry &entry) { return entry.hash; }
	static Key key(const Entry &entry)
	{
		return key_of(entry.row, {entry.client_addr, entry.client_port}, entry.generation);
	}
};

// A million buckets, one for each connection as long as there are no more. An access point's memory ends about there: a
// million connections are 72 MB.
constexpr uint32_t index_segments = 2048;
using Index = GrowingHash<ByClient, index_segments>;
static_assert(Index::most_buckets == 1u << 20);

// Entries in a hold while lists are emptied: each may bring a few of its bucket with it.
constexpr uint32_t freed_in_a_hold = 32;

// All guarded by change_ip_port_lock, but for the seed, which is written before the first hook can run.
constinit Index connection_index = {};
constinit HashSeed connection_seed = {};
// Of the entries that are in the lists of captive_portal_table.
constinit uint8_t connection_generation = 0;

uint32_t hash_of(ByClient::Key key)
{
	return keyed_hash(connection_seed, static_cast<uint32_t>(key), static_cast<uint32_t>(key >> 32));
}

} // namespace

void seed_connection_index()
{
	connection_seed = draw_hash_seed();
}

table_list_entry *find_connection(uint32_t row, const Client &client)
{
	const ByClient::Key key = ByClient::key_of(row, client, connection_generation);
	return connection_index.find(key, hash_of(key));
}

bool update_connection(uint32_t row, const Client &client, const Destination &destination)
{
	const LockGuard guard(Lock::change_ip_port);
	table_list_entry *const entry = find_connection(row, client);
	if (entry == nullptr) {
		return false;
	}
	entry->orig_daddr = destination.address;
	entry->orig_dport = destination.port;
	return true;
}

void add_connection(uint32_t row, const Client &client, const Destination &destination, const MacAddress &mac)
{
	auto *const entry = allocate_zeroed<table_list_entry>();
	if (entry == nullptr) {
		count(row, CP_REASON_CONNECTION_LOST);
		return;
	}
	// Outlives the guard: what is not used is freed without the lock.
	Index::Room room = connection_index.make_room();
	if (!room) {
		cp_free(entry);
		count(row, CP_REASON_CONNECTION_LOST);
		return;
	}
	entry->client_addr = client.address;
	entry->client_port = client.port;
	entry->row = static_cast<uint8_t>(row);
	entry->orig_daddr = destination.address;
	entry->orig_dport = destination.port;
	entry->orig_dmac = mac;

	const LockGuard guard(Lock::change_ip_port);
	entry->generation = connection_generation;
	entry->hash = hash_of(ByClient::key(*entry));
	connection_index.insert(*entry, room);
	cp_row &list = captive_portal_table[row];
	entry->previous = list.table_list_tail;
	(entry->previous != nullptr ? entry->previous->next : list.table_list) = entry;
	list.table_list_tail = entry;
	store_word(list.connections, list.connections + 1);
	count(row, CP_REASON_CONNECTION_RECORDED);
}

void remove_connection(table_list_entry &entry)
{
	cp_row &list = captive_portal_table[entry.row];
	(entry.previous != nullptr ? entry.previous->next : list.table_list) = entry.next;
	(entry.next != nullptr ? entry.next->previous : list.table_list_tail) = entry.previous;
	store_word(list.connections, list.connections - 1);
	connection_index.remove(entry);
	cp_free(&entry);
}

void free_connections()
{
	table_list_entry *lists[CP_ROWS];
	uint8_t generation = 0;
	{
		// With a new generation nobody finds the old entries any more, though the index still holds them.
		const LockGuard guard(Lock::change_ip_port);
		generation = connection_generation++;
		for (uint32_t row = 0; row < CP_ROWS; ++row) {
			lists[row] = captive_portal_table[row].table_list;
			captive_portal_table[row].table_list = nullptr;
			captive_portal_table[row].table_list_tail = nullptr;
			store_word(captive_portal_table[row].connections, 0U);
		}
	}
	for (table_list_entry *list : lists) {
		while (list != nullptr) {
			const LockGuard guard(Lock::change_ip_port);
			for (uint32_t freed = 0; list != nullptr && freed < freed_in_a_hold; ++freed) {
				table_list_entry *const entry = list;
				list = entry->next;
				// What an earlier stop has left in the list is in no index.
				if (entry->generation == generation) {
					connection_index.remove(*entry);
				}
				cp_free(entry);
			}
		}
	}
}

void free_connection_index()
{
	connection_index.release();
	++connection_generation;
}

} // namespace captive_portal
