// SPDX-License-Identifier: GPL-2.0-only
#include "base/interface_name.h"

namespace captive_portal
{

namespace
{

constexpr Text prefix{"wlan-", 5};

constexpr bool is_digit(char character)
{
	return character >= '0' && character <= '9';
}

// The kernel's isspace(): its character table counts the no-break space 0xA0.
constexpr bool is_space(char character)
{
	return character == ' ' || (character >= '\t' && character <= '\r') || character == '\xa0';
}

// Reads "%d" at `position` and moves `position` behind it; missing, and `position` anywhere, when no number is there.
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

} // namespace

Field<InterfaceNumbers> scan_interface_name(Text name)
{
	if (!starts_with(name, prefix)) {
		return {};
	}
	size_t position = prefix.length;
	const Field<uint32_t> radio = scan_decimal(name, position);
	if (!radio.has_value() || name.at(position) != '-') {
		return {};
	}
	++position;
	const Field<uint32_t> vap = scan_decimal(name, position);
	if (!vap.has_value()) {
		return {};
	}
	return InterfaceNumbers{radio.value(), vap.value()};
}

Field<uint32_t> interface_index_of_name(Text name)
{
	const Field<InterfaceNumbers> numbers = scan_interface_name(name);
	if (!numbers.has_value()) {
		return {};
	}
	const uint32_t index = cp_interface_index(numbers.value().radio, numbers.value().vap);
	return index < CP_WIRELESS_INTERFACES ? Field<uint32_t>(index) : Field<uint32_t>();
}

Field<uint32_t> owe_index_of_name(Text name)
{
	const Field<InterfaceNumbers> numbers = scan_interface_name(name);
	if (!numbers.has_value()) {
		return {};
	}
	const uint32_t index = cp_owe_index(numbers.value().radio, numbers.value().vap);
	return index < CP_OWE_INTERFACES ? Field<uint32_t>(index) : Field<uint32_t>();
}

void format_interface_name(char (&field)[CP_INTERFACE_NAME_SIZE], uint32_t radio, uint32_t vap)
{
	size_t position = 0;
	const auto append = [&](char character) { field[position++] = character; };
	const auto append_number = [&](uint32_t number) {
		if (number >= 10) {
			append(static_cast<char>('0' + number / 10 % 10));
		}
		append(static_cast<char>('0' + number % 10));
	};
	for (size_t i = 0; i < prefix.length; ++i) {
		append(prefix.characters[i]);
	}
	append_number(radio);
	append('-');
	append_number(vap);
	while (position < sizeof(field)) {
		append('\0');
	}
}

void format_interface_name_of_index(char (&field)[CP_INTERFACE_NAME_SIZE], uint32_t index)
{
	format_interface_name(field, index / CP_VAPS_PER_RADIO + 1, index % CP_VAPS_PER_RADIO + 1);
}

} // namespace captive_portal
