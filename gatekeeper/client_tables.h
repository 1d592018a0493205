// SPDX-License-Identifier: GPL-2.0-only
// Client MAC tables: which stations pass, per wireless interface, and the two MIREL lists for all interfaces.
#pragma once

#include "base/atomic_word.h"
#include "base/lock.h"
#include "base/mac_address.h"
#include "base/mutex.h"
#include "base/sequence_count.h"
#include "captive_portal/gatekeeper.h"
#include "gatekeeper/client_index.h"

namespace captive_portal
{

// One node of a MAC list.
struct mac_entry {
	mac_entry *next;
	MacAddress mac;
};

// A list of MAC addresses in the order of adding. It may hold an address twice and has no limit. Guarded by the clients'
// mutex: the packet path looks at client_index alone. What changes a list of the tables below tells the index.
class MacList
{
public:
	// Appends a node; the list owns it from here on.
	void append(mac_entry *node);
	// Unlinks and frees the first node with this address; a missing address is no error.
	void delete_first_match(const MacAddress &mac);
	// Frees every node, the first one first, each after `before(address)`.
	template <typename Before = decltype([](const MacAddress &) {})> void flush(Before before = {})
	{
		while (head_ != nullptr) {
			mac_entry *const node = head_;
			head_ = node->next;
			before(node->mac);
			cp_free(node);
		}
		tail_ = nullptr;
		size_ = 0;
	}
	[[nodiscard]] bool contains(const MacAddress &mac) const;
	// Writes the addresses into consecutive slots, at most `slots`, and gives their number.
	[[nodiscard]] uint32_t copy_out(gk_list_slot *slot, uint32_t slots) const;
	[[nodiscard]] uint32_t size() const { return size_; }
	// Calls `visit(address)` for each address, the first one first.
	template <typename Visit> void for_each(Visit visit) const
	{
		for (const mac_entry *node = head_; node != nullptr; node = node->next) {
			visit(node->mac);
		}
	}

private:
	mac_entry *head_ = nullptr;
	mac_entry *tail_ = nullptr; // null when the list is empty
	uint32_t size_ = 0;
};

struct iface_mac_list {
	char iface[CP_INTERFACE_NAME_SIZE];
	MacList list;
};

// Disconnection behaviour of one interface. Written in a write section, read on the packet path as words.
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

extern iface_mac_list auth_mac_table[CP_WIRELESS_INTERFACES];
extern iface_mac_list login_mac_table[CP_WIRELESS_INTERFACES];
extern iface_mac_list white_list[CP_WIRELESS_INTERFACES];
extern iface_mac_list ga_white_list[CP_WIRELESS_INTERFACES];
extern iface_mac_list mac_auth_fallback[CP_WIRELESS_INTERFACES];
extern MacList mirel_white_list;
extern MacList mirel_black_list;
extern ovra_behavior_row ovra_behavior[CP_WIRELESS_INTERFACES];

extern owe_mapping_row owe_mapping_table[CP_OWE_INTERFACES];

// All that a writer changes while it lives appears at once to the packet path. Holds gatekeeper_lock, so at most a few
// words may be changed; the caller holds the clients' mutex.
class [[nodiscard]] ClientWriteSection
{
public:
	ClientWriteSection();
	~ClientWriteSection();
	ClientWriteSection(const ClientWriteSection &) = delete;
	ClientWriteSection &operator=(const ClientWriteSection &) = delete;

	// The packet path takes lists (bits of ClientLists) of rows for empty until empty_hidden_lists() has emptied them.
	void hide(uint32_t first_row, uint32_t rows, uint32_t lists) const;

private:
	LockGuard guard_;
};

// What the packet path asks about a client of a row, as it was at one moment. One word, so that it stays in a register.
class ClientStanding
{
public:
	// A client on one of the row's lists is judged by that, whatever the row's status.
	constexpr explicit ClientStanding(ClientLists lists) : word_(lists.bits) {}
	// Of a client on none of them.
	constexpr ClientStanding(ClientLists lists, uint32_t status, uint32_t behavior)
	    : word_(lists.bits | uint64_t{status == OVRA_DISCONNECTED} << disconnected_place |
		    uint64_t{behavior} << behavior_place)
	{
	}

	[[nodiscard]] constexpr ClientLists lists() const
	{
		return {static_cast<uint32_t>(word_) & (ClientLists::of_row | ClientLists::of_all_rows)};
	}
	// On none of the row's lists, and the row passes only what its behaviour says.
	[[nodiscard]] constexpr bool is_disconnected() const { return (word_ >> disconnected_place & 1) != 0; }
	[[nodiscard]] constexpr uint32_t behavior() const { return static_cast<uint32_t>(word_ >> behavior_place); }

private:
	static constexpr uint32_t disconnected_place = 16;
	static constexpr uint32_t behavior_place = 32;

	uint64_t word_;
};

// Says whether the index, the behaviours and what is hidden were read as they were at one moment.
extern SequenceCount client_sequence;

// The standing of a client that is on these lists.
[[nodiscard, gnu::always_inline]] inline ClientStanding standing_by_lists(ClientLists lists, uint32_t row)
{
	if (lists.has(ClientLists::of_row)) {
		return ClientStanding(lists);
	}
	return {lists, load_word_acquire(ovra_behavior[row].status), load_word_acquire(ovra_behavior[row].behavior)};
}

// For hooks. `mac` is MacAddress::word(). Takes no lock, but gatekeeper_lock where it meets writers twice. Longer than what
// ebt_gate_keeper() does itself while no command is at work.
[[nodiscard]] ClientStanding standing_of(uint64_t mac, uint32_t row);

// Writers' steps; the caller holds the clients' mutex.

// Which of a row's lists `table` keeps.
[[nodiscard]] ClientLists::List list_of_table(const iface_mac_list *table);

// Takes the first node with the address from a list, and says which list the address has left by it: `list`, or none when
// it was not there or is there once more. The index is told by the caller.
[[nodiscard]] uint32_t take_from_list(MacList &list, ClientLists::List name, const MacAddress &mac);

// Empties lists (bits of ClientLists) of rows, after a write section has hidden them, and shows them again. May sleep.
void empty_hidden_lists(uint32_t first_row, uint32_t rows, uint32_t lists);

// Start, before the hooks: keys the index.
void init_client_index();
// Start: names of all rows, empty lists, behaviours 0, OWE interface names. The hooks run already; takes the clients'
// mutex and gatekeeper_lock. Nodes left in the lists at stop are deliberately not freed.
void init_client_tables();
// Start: empties both MIREL lists. Takes the clients' mutex and gatekeeper_lock.
void clear_mirel_lists();
// Stop, after hooks and device are gone: gives the index's memory back. Takes the clients' mutex.
void free_client_index();

} // namespace captive_portal
