// SPDX-License-Identifier: GPL-2.0-only
#include "platform/host/checksum.h"

namespace captive_portal::host
{

namespace
{

uint32_t halves(uint32_t word)
{
	return (word >> 16) + (word & 0xffff);
}

} // namespace

uint16_t fold(uint32_t sum)
{
	while (sum > 0xffff) {
		sum = halves(sum);
	}
	return static_cast<uint16_t>(sum);
}

uint16_t ones_complement_sum(std::span<const uint8_t> bytes, uint32_t start)
{
	uint32_t sum = start;
	for (size_t i = 0; i < bytes.size(); ++i) {
		sum += i % 2 == 0 ? static_cast<uint32_t>(bytes[i]) << 8 : bytes[i];
		sum = halves(sum);
	}
	return fold(sum);
}

uint16_t sum_after_change(uint16_t sum, uint32_t from, uint32_t to)
{
	return fold(sum + halves(~from) + halves(to));
}

uint16_t checksum_after_change(uint16_t checksum, uint32_t from, uint32_t to)
{
	return static_cast<uint16_t>(~sum_after_change(static_cast<uint16_t>(~checksum), from, to));
}

} // namespace captive_portal::host
