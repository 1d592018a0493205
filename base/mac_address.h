// SPDX-License-Identifier: GPL-2.0-only
// A station's MAC address, six bytes in transmission order.
#pragma once

#include "captive_portal/gatekeeper.h"

namespace captive_portal
{

struct MacAddress {
	uint8_t bytes[CP_MAC_SIZE];

	[[nodiscard]] static MacAddress from(const uint8_t *bytes)
	{
		MacAddress mac;
		__builtin_memcpy(mac.bytes, bytes, sizeof(mac.bytes));
		return mac;
	}

	// The six bytes as one number, for comparing and hashing. Its last 16 bits are 0: so a packet's address is one read
	// with the two bytes behind it, and a shift.
	[[nodiscard]] uint64_t word() const
	{
		uint64_t word = 0;
		__builtin_memcpy(&word, bytes, sizeof(bytes));
		return word << unused_bits;
	}
	static constexpr uint32_t unused_bits = 16;

	// Of an address that word() has given. Broadcast addresses are group addresses too.
	[[nodiscard]] static constexpr bool is_group(uint64_t word) { return (word >> unused_bits & 1) != 0; }

	friend constexpr bool operator==(const MacAddress &a, const MacAddress &b)
	{
		return __builtin_memcmp(a.bytes, b.bytes, CP_MAC_SIZE) == 0;
	}
};

} // namespace captive_portal

// How a MAC address is printed, and the arguments for it.
#define CP_MAC_FORMAT "%02X:%02X:%02X:%02X:%02X:%02X"
#define CP_MAC_ARGUMENTS(mac) (mac)[0], (mac)[1], (mac)[2], (mac)[3], (mac)[4], (mac)[5]
