// SPDX-License-Identifier: GPL-2.0-only
// The kernel's dotted-quad arithmetic.
#pragma once

#include "base/byte_order.h"
#include "base/text.h"

namespace captive_portal
{

// Reads four numbers, each ended by '.' or newline; the text's end ends the last. Nothing is refused: other characters
// count as digits by their distance to '0', numbers are not limited to 255, missing ones are 0, so the empty text is
// 0.0.0.0. Characters are unsigned.
[[nodiscard]] constexpr Ipv4Address in_aton(Text text)
{
	uint32_t address = 0;
	size_t position = 0;
	for (int i = 0; i < 4; ++i) {
		address <<= 8;
		if (text.at(position) == '\0') {
			continue;
		}
		uint32_t number = 0;
		while (text.at(position) != '\0' && text.at(position) != '.' && text.at(position) != '\n') {
			number = number * 10 + static_cast<uint8_t>(text.at(position)) - '0';
			++position;
		}
		address |= number;
		if (text.at(position) != '\0') {
			++position;
		}
	}
	return be32::from_host(address);
}

} // namespace captive_portal
