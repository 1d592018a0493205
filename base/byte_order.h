// SPDX-License-Identifier: GPL-2.0-only
// Byte order in the type: numbers as they lie in a packet, and unaligned reads and writes of them.
#pragma once

#include "captive_portal/fixed_width.h"

namespace captive_portal
{

static_assert(sizeof(void *) == sizeof(uint64_t), "a word that is read without a lock may have 64 bits");
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "control records and the A-record buckets are little-endian");

// A 16-bit number in network order. `raw` is the field's bytes read as a native number.
struct be16 {
	uint16_t raw;

	[[nodiscard]] static constexpr be16 from_host(uint16_t host) { return {__builtin_bswap16(host)}; }
	[[nodiscard]] constexpr uint16_t host() const { return __builtin_bswap16(raw); }
	friend constexpr bool operator==(be16, be16) = default;
};

// A 32-bit number in network order.
struct be32 {
	uint32_t raw;

	[[nodiscard]] static constexpr be32 from_host(uint32_t host) { return {__builtin_bswap32(host)}; }
	[[nodiscard]] constexpr uint32_t host() const { return __builtin_bswap32(raw); }
	friend constexpr bool operator==(be32, be32) = default;
};

using Ipv4Address = be32;

template <typename T> [[nodiscard]] inline T read_unaligned(const uint8_t *bytes)
{
	T value;
	__builtin_memcpy(&value, bytes, sizeof(value));
	return value;
}

template <typename T> inline void write_unaligned(uint8_t *bytes, T value)
{
	__builtin_memcpy(bytes, &value, sizeof(value));
}

} // namespace captive_portal
