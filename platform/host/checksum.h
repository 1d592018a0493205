// SPDX-License-Identifier: GPL-2.0-only
// The Internet checksum's arithmetic, as a kernel does it on sums that are kept in 32 bits.
#pragma once

#include <span>

#include "platform/platform.h"

namespace captive_portal::host
{

// What is known of a packet's transport checksum.
enum class ChecksumState {
	finished, // in the packet, not verified
	verified, // in the packet, verified by hardware
	complete, // in the packet; the packet also carries the sum over all bytes behind the Ethernet header
	partial,  // the field holds the pseudo header's sum; hardware or the stack completes it later
};

// Ones' complement sum of the bytes taken as network-order words, a missing last byte as zero, folded to 16 bits.
[[nodiscard]] uint16_t ones_complement_sum(std::span<const uint8_t> bytes, uint32_t start = 0);
[[nodiscard]] uint16_t fold(uint32_t sum);

// The new value of a checksum field (host order) when a 32-bit word that it covers changes.
[[nodiscard]] uint16_t checksum_after_change(uint16_t checksum, uint32_t from, uint32_t to);
// The new value of a plain sum when a 32-bit word in it changes.
[[nodiscard]] uint16_t sum_after_change(uint16_t sum, uint32_t from, uint32_t to);

} // namespace captive_portal::host
