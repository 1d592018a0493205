// SPDX-License-Identifier: GPL-2.0-only
// Names of wireless interfaces, their rows, and the name fields of records.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "captive_portal/interface_index.h"

namespace cpctl
{

// An interface that the command line named, in the one spelling that has no second meaning. The module itself takes
// "wlan-1-9" for "wlan-2-1"; cpctl does not.
struct Interface {
	std::string name;
	// 0..23 for a wireless interface, 0..8 for an OWE companion.
	uint32_t row = 0;
};

// "wlan-1-1" to "wlan-3-8"; anything else is a usage failure.
[[nodiscard]] Interface parse_interface(std::string_view name);

// "wlan-1-14" to "wlan-3-16"; anything else is a usage failure.
[[nodiscard]] Interface parse_owe_interface(std::string_view name);

// The wireless interface of a row, 0..23.
[[nodiscard]] Interface interface_of_row(uint32_t row);

// The OWE companion of a row, 0..8.
[[nodiscard]] Interface owe_interface_of_row(uint32_t row);

// Fills a record's field with the text and NULs; the text is shorter than the field.
template <size_t size> void store_name(char (&field)[size], std::string_view text)
{
	for (size_t i = 0; i < size; i++) {
		field[i] = i < text.size() ? text[i] : '\0';
	}
}

// The text of a record's field: up to its NUL, or the whole field.
template <size_t size> [[nodiscard]] std::string_view text_of(const char (&field)[size])
{
	const std::string_view whole(field, size);
	return whole.substr(0, whole.find('\0'));
}

} // namespace cpctl
