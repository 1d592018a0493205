// SPDX-License-Identifier: GPL-2.0-only
// Where the names of a DNS message end, for a reader who does not need their texts.
#pragma once

#include "platform/platform.h"

namespace captive_portal
{

// Looks for the ends of the names of one message. Each name alone may lead over the whole message, so all of them would
// cost the square of its length. Once names have cost more than those of an ordinary answer ever do, it is noted where
// they went, and no byte is gone over again: the cost of all names together is then a small multiple of the length.
// Without memory for the notes the ends are the same, and found at the full cost. Any context.
class DnsNameEnds
{
public:
	// `end` is the message's last byte.
	DnsNameEnds(const uint8_t *message, const uint8_t *end)
	    : message_(message), length_(static_cast<uint32_t>(end - message) + 1)
	{
	}
	~DnsNameEnds() { cp_free(notes_); }
	DnsNameEnds(const DnsNameEnds &) = delete;
	DnsNameEnds &operator=(const DnsNameEnds &) = delete;

	// The first byte behind the name at `name`, or null: exactly what parse_dns_domain() gives. Says nothing.
	[[nodiscard]] const uint8_t *behind(const uint8_t *name);

private:
	// What stands at a place where a label may start.
	struct Place {
		enum Kind { broken, zero, label, pointer } kind;
		// Place behind the label, or the one that the pointer leads to.
		uint32_t next;
	};
	[[nodiscard]] Place place_at(uint32_t position) const;
	[[nodiscard]] bool pointer_leads_to_end(uint32_t target);
	[[nodiscard]] uint32_t noted_at(uint32_t position) const { return notes_ != nullptr ? notes_[position] : 0; }
	void note(uint32_t target, uint32_t pointers);

	const uint8_t *const message_;
	const uint32_t length_;
	uint32_t steps_ = 0;
	bool wants_notes_ = true;
	// For each byte: 0, or one more than the number of pointers from there to a name's end.
	uint8_t *notes_ = nullptr;
};

} // namespace captive_portal
