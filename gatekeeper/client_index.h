// SPDX-License-Identifier: GPL-2.0-only
// One question by MAC address that answers for all client lists at once. The lists of client_tables.h are the truth about
// order and copies; the index says which of them hold an address, and is all that the packet path looks at.
// docs/client-index.md says why it is built as it is.
#pragma once

#include "base/atomic_word.h"
#include "base/keyed_hash.h"
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

	// Even rows in the first word, odd ones in the second: no question which half a row is of.
	static constexpr uint32_t rows_in_word = CP_WIRELESS_INTERFACES / 2;
	[[nodiscard]] static constexpr uint32_t word_of(uint32_t row) { return row % 2; }
	[[nodiscard]] static constexpr uint32_t place_of(uint32_t row) { return bits_of_row * (row / 2); }
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
	ClientSlot *end;
};

// Open addressing. A slot keeps its address as long as its array lives; an address without a list has
// zero words. Growing and shrinking build another array.
//
// Writers hold the clients' mutex. Readers run in a hook, and go by the sequence count of client_tables.cpp: what they
// read while it changed does not count.
class ClientIndex
{
public:
	// Writer: what the hash is keyed with, so that nobody can choose addresses that meet. Only while the index is empty.
	void set_seed(const HashSeed &seed) { seed_ = seed; }

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
	[[nodiscard]] ClientLists lists_of(uint64_t mac, uint32_t row) const;
	// The same for a reader who knows that no lists are hidden.
	[[nodiscard, gnu::always_inline]] ClientLists lists_when_shown(uint64_t mac, uint32_t row) const
	{
		const ClientArray &array = *load_word_acquire(array_);
		const ClientSlot &slot = find(array, mac | used);
		const uint64_t word = load_word_acquire(slot.words[ClientSlot::word_of(row)]);
		const auto of_row = static_cast<uint32_t>(word >> ClientSlot::place_of(row));
		const auto of_all = static_cast<uint32_t>(word >> ClientSlot::mirel_shift);
		return {(of_row & ClientLists::of_row) | of_all << ClientSlot::bits_of_row};
	}

	// How many addresses an array holds at the most before the next one is built.
	[[nodiscard]] static constexpr uint64_t most_addresses(uint64_t capacity) { return capacity * 5 / 8; }
	// For tests.
	[[nodiscard]] uint64_t capacity() const { return array_->capacity; }

private:
	static constexpr uint64_t used = 1; // no bit of MacAddress::word()
	static constexpr uint64_t first_capacity = 81;

	[[nodiscard]] static uint64_t key_of(const MacAddress &mac) { return mac.word() | used; }

	// The slot of the key, or the free one where it would be. The hash's high bits choose the first slot; the second is
	// its neighbour, and two of the hash's bits choose how far it is to each further one: 1, 4, 16 or 64 slots. A power
	// of two and an odd capacity meet in every slot.
	[[nodiscard]] ClientSlot &find(const ClientArray &array, uint64_t key) const
	{
		const uint32_t hash = keyed_hash(seed_, static_cast<uint32_t>(key), static_cast<uint32_t>(key >> 32));
		ClientSlot *slot = array.slots + (hash * array.capacity >> 32);
		if (is_place_of(*slot, key)) [[likely]] {
			return *slot;
		}
		slot = slot_behind(array, slot, 1);
		if (is_place_of(*slot, key)) [[likely]] {
			return *slot;
		}
		const uint64_t distance = uint64_t{1} << (hash & 6);
		do {
			slot = slot_behind(array, slot, distance);
		} while (!is_place_of(*slot, key));
		return *slot;
	}
	// The array is read as if others wrote to it: then it takes fewer registers, which every frame would have to save.
	[[nodiscard, gnu::always_inline]] static ClientSlot *slot_behind(const ClientArray &array, ClientSlot *slot,
									 uint64_t distance)
	{
		slot += distance;
		if (slot >= load_word(array.end)) [[unlikely]] {
			slot -= load_word(array.capacity);
		}
		return slot;
	}
	[[nodiscard]] static bool is_place_of(const ClientSlot &slot, uint64_t key)
	{
		const uint64_t there = load_word_acquire(slot.mac);
		return there == key || there == 0;
	}

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
	HashSeed seed_ = {};
	// Writers' own: slots that have an address, and those of them that are on a list.
	uint64_t used_slots_ = 0;
	uint64_t listed_ = 0;
};

extern ClientIndex client_index;

} // namespace captive_portal
