// SPDX-License-Identifier: GPL-2.0-only
#include "base/interface_name.h"

#include "base/scan_decimal.h"

namespace captive_portal
{

namespace
{

constexpr Text prefix{"wlan-", 5};

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
