// SPDX-License-Identifier: GPL-2.0-only
// One question by MAC address that answers for all client lists at once. The lists of client_tables.h are the truth about
// order and copies; the index says which of them hold an address, and is all that the packet path looks at.
// docs/client-index.md says why it is built as it is.
#pragma once

#include "base/atomic_word.h"
#include "base/mac_address.h"
#include "captive_portal/interface_index.h"
#include "platform/platform.h"

namespace captive_portal
{

// The lists that a row's clients may be on, and the two that count on every row: a bit each. Several may be or-ed.
struct ClientLists {
	enum List : uint32_t {
		login = 1 << 0,
		auth = 1 << 1,
		white = 1 << 2,
		ga_white = 1 << 3,
		fallback = 1 << 4,
		mirel_white = 1 << 5,
		mirel_black = 1 << 6,

		of_row = login | auth | white | ga_white | fallback,
		of_all_rows = mirel_white | mirel_black,
	};
	uint32_t bits;

	[[nodiscard]] constexpr bool has(uint32_t lists) const { return (bits & lists) != 0; }
};

// What the index keeps about an address. Two words hold twelve rows each, with five lists a row; the MIREL lists stand in
// both, so that a reader needs one.
struct ClientSlot {
	uint64_t mac; // 0: no address yet
	uint64_t words[2];

	static constexpr uint32_t rows_in_word = CP_WIRELESS_INTERFACES / 2;
	static constexpr uint32_t bits_of_row = 5;
	static constexpr uint32_t mirel_shift = 60;
	static_assert(ClientLists::of_row == (1 << bits_of_row) - 1 && rows_in_word * bits_of_row <= mirel_shift);
	static_assert(ClientLists::of_all_rows >> bits_of_row == 3);
};

// An array of slots, read and, but for its slots' content, never changed once it is published.
struct ClientArray {
	cp_deferred_free deferred_free; // first: the platform's own
	uint64_t capacity;              // odd, and above 64
	ClientSlot *slots;
};

// Open addressing. A slot keeps its address as long as its array lives; an address without a list has
// zero words. Growing and shrinking build another array.
//
// Writers hold the clients' mutex. Readers run in a hook, and go by the sequence count of client_tables.cpp: what they
// read while it changed does not count.
class ClientIndex
{
public:
	// Writer: the numbers that the hash is keyed with, so that nobody can choose addresses that meet. Only while the
	// index is empty.
	void set_seed(uint64_t first, uint64_t second);

	// Writer: the slot of an address, made if it has none, or null when there is no memory for it. It is good until
	// the next call of this, of tidy() or of release(). Changes nothing that a reader sees. May sleep.
	[[nodiscard]] ClientSlot *prepare(const MacAddress &mac);

	// Writer, inside a write section unless the lists are hidden: puts the address of a slot that prepare() gave on lists of
	// a row, takes an address off.
	// `row` does not matter for the MIREL lists.
	void add(ClientSlot *slot, uint32_t row, uint32_t lists);
	void remove(const MacAddress &mac, uint32_t row, uint32_t lists);

	// Writer: lists of rows that readers take for empty. Hiding takes a write section, showing takes none: the lists
	// are empty by then.
	void hide(uint32_t first_row, uint32_t rows, uint32_t lists);
	void show_all() { store_word_release(hidden_, uint64_t{0}); }

	// Writer: gives memory back when no address is on any list. Needs none itself. May sleep.
	void tidy();

	// At stop, when no hook runs any more: the index is empty, and its memory given back. May sleep.
	void release();

	// Reader, or writer: the lists of a row that an address is on. `mac` is MacAddress::word().
	[[nodiscard]] ClientLists lists_of(uint64_t mac, uint32_t row) const
	{
		// First: who sees the lists shown again then sees them empty.
		const uint64_t hidden = load_word_acquire(hidden_);
		const ClientArray &array = *load_word_acquire(array_);
		const ClientSlot &slot = find(array, mac | used);
		const bool upper = row >= ClientSlot::rows_in_word;
		const uint64_t word = load_word_acquire(slot.words[upper ? 1 : 0]);
		const uint32_t place = upper ? row - ClientSlot::rows_in_word : row;
		const auto of_row = static_cast<uint32_t>(word >> (ClientSlot::bits_of_row * place));
		const auto of_all = static_cast<uint32_t>(word >> ClientSlot::mirel_shift);
		const ClientLists lists{(of_row & ClientLists::of_row) | of_all << ClientSlot::bits_of_row};
		return hidden == 0 ? lists : without_hidden(lists, hidden, row);
	}

	// How many addresses an array holds at the most before the next one is built.
	[[nodiscard]] static constexpr uint64_t most_addresses(uint64_t capacity) { return capacity * 5 / 8; }
	// For tests.
	[[nodiscard]] uint64_t capacity() const { return array_->capacity; }

private:
	static constexpr uint64_t used = uint64_t{1} << 63;
	static constexpr uint64_t first_capacity = 81;

	[[nodiscard]] static uint64_t key_of(const MacAddress &mac) { return mac.word() | used; }

	[[nodiscard]] static uint64_t fold(uint64_t a, uint64_t b)
	{
		const auto product = static_cast<unsigned __int128>(a) * b;
		return static_cast<uint64_t>(product >> 64) ^ static_cast<uint64_t>(product);
	}
	[[nodiscard]] uint64_t hash_of(uint64_t key) const
	{
		return fold(fold(key ^ seed_[0], 0xa0761d6478bd642f) ^ seed_[1], 0xe7037ed1a0b428db);
	}

	// The slot of the key, or the free one where it would be. The hash's high bits choose the first slot, its low ones
	// how far it is to the next: 1, 4, 16 or 64 slots. A power of two and an odd capacity meet in every slot.
	[[nodiscard]] ClientSlot &find(const ClientArray &array, uint64_t key) const
	{
		const uint64_t hash = hash_of(key);
		auto index = static_cast<uint64_t>(static_cast<unsigned __int128>(hash) * array.capacity >> 64);
		for (;;) {
			ClientSlot &slot = array.slots[index];
			const uint64_t there = load_word_acquire(slot.mac);
			if (there == key || there == 0) {
				return slot;
			}
			index += uint64_t{1} << (2 * (hash & 3));
			index -= index < array.capacity ? 0 : array.capacity;
		}
	}

	[[nodiscard]] static ClientLists without_hidden(ClientLists lists, uint64_t hidden, uint32_t row);

	// The words of the lists in a slot.
	struct Marks {
		uint64_t words[2];
	};
	[[nodiscard]] static Marks marks_of(uint32_t row, uint32_t lists);

	[[nodiscard]] bool rebuild();
	void clear_first_array();
	void copy_to(const ClientArray &to) const;
	void replace(ClientArray &by);

	static ClientSlot first_slots[first_capacity];
	static ClientArray first_array;

	// Rows in bits 0..23, lists from bit 24 on.
	uint64_t hidden_ = 0;
	ClientArray *array_ = &first_array;
	uint64_t seed_[2] = {};
	// Writers' own: slots that have an address, and those of them that are on a list.
	uint64_t used_slots_ = 0;
	uint64_t listed_ = 0;
};

extern ClientIndex client_index;

} // namespace captive_portal
