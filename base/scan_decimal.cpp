// SPDX-License-Identifier: GPL-2.0-only
#include "base/scan_decimal.h"

namespace captive_portal
{

namespace
{

constexpr bool is_digit(char character)
{
	return character >= '0' && character <= '9';
}

// The kernel's isspace(): its character table counts the no-break space 0xA0.
constexpr bool is_space(char character)
{
	return character == ' ' || (character >= '\t' && character <= '\r') || character == '\xa0';
}

} // namespace

Field<uint32_t> scan_decimal(Text text, size_t &position)
{
	while (is_space(text.at(position))) {
		++position;
	}
	const bool negative = text.at(position) == '-';
	if (negative) {
		++position;
	}
	if (!is_digit(text.at(position))) {
		return {};
	}
	uint64_t value = 0;
	for (; is_digit(text.at(position)); ++position) {
		value = value * 10 + static_cast<uint64_t>(text.at(position) - '0');
	}
	return static_cast<uint32_t>(negative ? 0 - value : value);
}

} // namespace captive_portal
