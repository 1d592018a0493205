// SPDX-License-Identifier: GPL-2.0-only
// The rules by which a name is gone through are those of dns_name.cpp, and the fuzzers hold the two together.
//
// Why notes behind the first pointer are enough: up to there two names that meet end at the same byte, and records that
// have the same end of name lead to the same next record. So each byte is gone over a few times at most.
#include "garden/dns_name_ends.h"

#include "base/byte_order.h"
#include "garden/dns_name.h"

namespace captive_portal
{

namespace
{

constexpr uint8_t pointer_bits = 0xc0;
constexpr uint16_t pointer_offset_bits = 0x3fff;
constexpr uint32_t pointer_bytes = 2;

// An ordinary answer takes less than one step for each of its bytes.
constexpr uint32_t steps_per_byte_without_notes = 4;

} // namespace

DnsNameEnds::Place DnsNameEnds::place_at(uint32_t position) const
{
	if (position >= length_) {
		return {Place::broken, 0};
	}
	const uint8_t count = message_[position];
	if (count == 0) {
		return {Place::zero, 0};
	}
	const uint32_t present = length_ - position;
	if ((count & pointer_bits) != pointer_bits) {
		// A byte must follow the label.
		return {present < count + 2U ? Place::broken : Place::label, position + 1 + count};
	}
	if (present < pointer_bytes) {
		return {Place::broken, 0};
	}
	const uint32_t target = read_unaligned<be16>(message_ + position).host() & pointer_offset_bits;
	return {target >= length_ ? Place::broken : Place::pointer, target};
}

// Follows the name's first pointer, which leads to `target`, and all that come behind it.
bool DnsNameEnds::pointer_leads_to_end(uint32_t target)
{
	uint32_t position = target;
	uint32_t pointers = 1;
	while (pointers <= DNS_POINTERS_PER_NAME) {
		if (const uint32_t noted = noted_at(position); noted != 0) {
			pointers += noted - 1;
			break;
		}
		++steps_;
		const Place place = place_at(position);
		if (place.kind == Place::broken) {
			return false;
		}
		if (place.kind == Place::zero) {
			break;
		}
		if (place.kind == Place::pointer) {
			++pointers;
		}
		position = place.next;
	}
	if (pointers > DNS_POINTERS_PER_NAME) {
		return false;
	}
	note(target, pointers - 1);
	return true;
}

// `pointers` follow from `target` on.
void DnsNameEnds::note(uint32_t target, uint32_t pointers)
{
	if (steps_ / steps_per_byte_without_notes < length_) {
		return;
	}
	if (wants_notes_) {
		wants_notes_ = false;
		notes_ = static_cast<uint8_t *>(cp_zalloc_atomic(length_));
	}
	if (notes_ == nullptr) {
		return;
	}
	for (uint32_t position = target; notes_[position] == 0;) {
		notes_[position] = static_cast<uint8_t>(pointers + 1);
		const Place place = place_at(position);
		if (place.kind == Place::zero) {
			return;
		}
		if (place.kind == Place::pointer) {
			--pointers;
		}
		position = place.next;
	}
}

const uint8_t *DnsNameEnds::behind(const uint8_t *name)
{
	auto position = static_cast<uint32_t>(name - message_);
	while (true) {
		const Place place = place_at(position);
		switch (place.kind) {
		case Place::broken:
			return nullptr;
		case Place::zero:
			return message_ + position + 1;
		case Place::pointer:
			return pointer_leads_to_end(place.next) ? message_ + position + pointer_bytes : nullptr;
		case Place::label:
			position = place.next;
			break;
		}
	}
}

} // namespace captive_portal
