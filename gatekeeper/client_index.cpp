// SPDX-License-Identifier: GPL-2.0-only
#include "gatekeeper/client_index.h"

#include "gatekeeper/client_tables.h"

namespace captive_portal
{

namespace
{

constexpr uint64_t page_bytes = 4096;
constexpr uint32_t hidden_lists_shift = 24;
static_assert(CP_WIRELESS_INTERFACES <= hidden_lists_shift);

// Slots that are visited before others may run.
constexpr uint64_t slots_at_a_time = 1024;

// An array for so many addresses: a little below twice as many slots, so that a node of its list and its part of the
// index stay below 64 bytes when every address is on one list alone; then what is left of the last page.
constexpr uint64_t bytes_of_array(uint64_t addresses)
{
	const uint64_t bytes = sizeof(ClientArray) + addresses * 31 / 16 * sizeof(ClientSlot);
	return (bytes + page_bytes - 1) / page_bytes * page_bytes;
}

// Most slots of the array belong to addresses that are on no list any more.
constexpr bool is_mostly_dead(uint64_t used_slots, uint64_t listed)
{
	return used_slots / 4 > listed;
}

} // namespace

constinit ClientSlot ClientIndex::first_slots[first_capacity] = {};
constinit ClientArray ClientIndex::first_array = {{}, first_capacity, first_slots, first_slots + first_capacity};
constinit ClientIndex client_index;

ClientLists ClientIndex::lists_of(uint64_t mac, uint32_t row) const
{
	// First: who sees the lists shown again then sees them empty.
	const uint64_t hidden = load_word_acquire(hidden_);
	const ClientLists lists = lists_when_shown(mac, row);
	if ((hidden >> row & 1) == 0) {
		return lists;
	}
	return {lists.bits & ~static_cast<uint32_t>(hidden >> hidden_lists_shift)};
}

ClientIndex::Marks ClientIndex::marks_of(uint32_t row, uint32_t lists)
{
	const uint64_t of_all = uint64_t{lists >> ClientSlot::bits_of_row} << ClientSlot::mirel_shift;
	Marks marks = {{of_all, of_all}};
	marks.words[ClientSlot::word_of(row)] |= uint64_t{lists & ClientLists::of_row} << ClientSlot::place_of(row);
	return marks;
}

ClientSlot *ClientIndex::prepare(const MacAddress &mac)
{
	const uint64_t key = key_of(mac);
	ClientSlot *slot = &find(*array_, key);
	if (slot->mac == key) {
		return slot;
	}
	const bool is_full = used_slots_ >= most_addresses(array_->capacity);
	if (is_full || (array_ != &first_array && is_mostly_dead(used_slots_, listed_))) {
		// A smaller array is only to save memory.
		if (!rebuild() && is_full) {
			return nullptr;
		}
		slot = &find(*array_, key);
	}
	// Its words are zero: the address is on no list yet.
	store_word_release(slot->mac, key);
	++used_slots_;
	return slot;
}

void ClientIndex::add(ClientSlot *slot, uint32_t row, uint32_t lists)
{
	const Marks marks = marks_of(row, lists);
	if ((slot->words[0] | slot->words[1]) == 0) {
		++listed_;
	}
	for (uint32_t i = 0; i < 2; ++i) {
		store_word_release(slot->words[i], slot->words[i] | marks.words[i]);
	}
}

void ClientIndex::remove(const MacAddress &mac, uint32_t row, uint32_t lists)
{
	ClientSlot &slot = find(*array_, key_of(mac));
	if ((slot.words[0] | slot.words[1]) == 0) {
		return;
	}
	const Marks marks = marks_of(row, lists);
	for (uint32_t i = 0; i < 2; ++i) {
		store_word_release(slot.words[i], slot.words[i] & ~marks.words[i]);
	}
	if ((slot.words[0] | slot.words[1]) == 0) {
		--listed_;
	}
}

void ClientIndex::hide(uint32_t first_row, uint32_t rows, uint32_t lists)
{
	const uint64_t row_mask = ((uint64_t{1} << rows) - 1) << first_row;
	store_word_release(hidden_, row_mask | uint64_t{lists} << hidden_lists_shift);
}

// With room for one more address than are on lists; false when there is no memory.
bool ClientIndex::rebuild()
{
	const uint64_t addresses = listed_ + 1;
	if (array_ != &first_array && addresses <= most_addresses(first_capacity)) {
		clear_first_array();
		copy_to(first_array);
		replace(first_array);
		return true;
	}
	const uint64_t bytes = bytes_of_array(addresses);
	auto *const array = static_cast<ClientArray *>(cp_zalloc_large(bytes));
	if (array == nullptr) {
		return false;
	}
	const uint64_t slots = (bytes - sizeof(ClientArray)) / sizeof(ClientSlot);
	array->capacity = slots - (slots % 2 == 0 ? 1 : 0);
	array->slots = reinterpret_cast<ClientSlot *>(array + 1);
	array->end = array->slots + array->capacity;
	copy_to(*array);
	replace(*array);
	return true;
}

// A reader may still look at the first array, since before another took its place. It must not take an address for
// missing, so the sequence count changes first: what such a reader finds does not count.
void ClientIndex::clear_first_array()
{
	{
		const ClientWriteSection section;
	}
	for (ClientSlot &slot : first_slots) {
		store_word_release(slot.mac, uint64_t{0});
		store_word_release(slot.words[0], uint64_t{0});
		store_word_release(slot.words[1], uint64_t{0});
	}
}

// The addresses that are on a list. No reader has to look at `to` yet.
void ClientIndex::copy_to(const ClientArray &to) const
{
	for (uint64_t i = 0; i < array_->capacity; ++i) {
		const ClientSlot &from = array_->slots[i];
		if ((from.words[0] | from.words[1]) != 0) {
			ClientSlot &slot = find(to, from.mac);
			store_word_release(slot.words[0], from.words[0]);
			store_word_release(slot.words[1], from.words[1]);
			store_word_release(slot.mac, from.mac);
		}
		if (i % slots_at_a_time == slots_at_a_time - 1) {
			cp_yield_processor();
		}
	}
}

// Both arrays say the same, so a reader may find either.
void ClientIndex::replace(ClientArray &by)
{
	ClientArray *const old = array_;
	store_word_release(array_, &by);
	used_slots_ = listed_;
	if (old != &first_array) {
		cp_free_large_after_readers(&old->deferred_free);
	}
}

void ClientIndex::tidy()
{
	if (listed_ != 0 || used_slots_ == 0) {
		return;
	}
	if (array_ != &first_array) {
		clear_first_array();
		replace(first_array);
		return;
	}
	// All words are zero, so a reader finds nothing in any case.
	for (ClientSlot &slot : first_slots) {
		store_word_release(slot.mac, uint64_t{0});
	}
	used_slots_ = 0;
}

void ClientIndex::release()
{
	for (ClientSlot &slot : first_slots) {
		slot = {};
	}
	listed_ = 0;
	replace(first_array);
}

} // namespace captive_portal
