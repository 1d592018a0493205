// SPDX-License-Identifier: GPL-2.0-only
// The decoder of one encoded domain name in a DNS message.
#pragma once

#include "captive_portal/fixed_width.h"

namespace captive_portal
{

enum : int32_t {
	// A decoded name and its NUL.
	DNS_NAME_SIZE = 128,
	// Compression pointers that are followed in one name, whichever way they point.
	DNS_POINTERS_PER_NAME = 32,
};

// Decodes the name that starts at `name`, inside the message or just behind its last byte, and gives the address of
// the first byte behind it: behind its zero byte, or behind the two bytes of the compression pointer that ends it. Null
// when the name cannot be decoded. `message` is the start of the DNS message, from which pointers count, `end` its last
// byte; no byte outside the two is read.
//
// `out` has room for `max_length` bytes; it is cleared, and gets the dotted name and a NUL. With a `max_length` below 1
// nothing is written to it. A name that does not fit is cut before the first label that does not; the rest is still
// walked. `out_length` gets the name's length before the cut, deliberately max_length - 1 when already the first label
// did not fit and `out` is empty. The text may be shorter, as a label may hold zero bytes. After a failure both hold
// what was there by then.
//
// Takes no lock, allocates nothing, writes nothing but `out`, `out_length` and log lines at debug levels 2 and 3. A
// name that decodes visits no length byte and no pointer twice, though one may be a letter of another label; one that
// does not visits each at most 33 times.
[[nodiscard]] const uint8_t *parse_dns_domain(const uint8_t *message, const uint8_t *name, const uint8_t *end,
					      char *out, uint16_t *out_length, int16_t max_length);

} // namespace captive_portal
