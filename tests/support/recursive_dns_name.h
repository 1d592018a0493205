// SPDX-License-Identifier: GPL-2.0-only
// The decoder of domain names as it is described: a function that calls itself. What the module's loop is measured by.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/host/kernel_log.h"

namespace captive_portal::test
{

struct DecodedName {
	// First byte behind the name, as an offset in the message; none after a failure.
	std::optional<size_t> behind;
	std::vector<char> text; // the whole of the room
	uint16_t length = 0;
	std::vector<host::LogLine> lines; // at debug level 3

	friend bool operator==(const DecodedName &, const DecodedName &) = default;
};

// Decodes the name at offset `name` of the message, which has a byte at least. `room` is 1 or more.
[[nodiscard]] DecodedName decode_recursively(const std::vector<uint8_t> &message, size_t name, int16_t room);

} // namespace captive_portal::test
