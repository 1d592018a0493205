// SPDX-License-Identifier: GPL-2.0-only
// Names of wireless interfaces: the one scanner of "wlan-%d-%d", and the one place that writes such a name.
#pragma once

#include "base/atomic_word.h"
#include "base/byte_order.h"
#include "base/field.h"
#include "base/text.h"
#include "captive_portal/interface_index.h"

namespace captive_portal
{

// The two numbers of "wlan-%d-%d", as 32-bit patterns.
struct InterfaceNumbers {
	uint32_t radio;
	uint32_t vap;
};

// Scans "wlan-%d-%d" as the kernel's sscanf does: blanks before a number are skipped (0xA0 is one), '-' counts only
// before a digit, there is no '+' and no hexadecimal, a number is taken modulo 2^64 and cut to 32 bits, what follows
// the second number is ignored. Missing when fewer than two numbers are there.
[[nodiscard]] Field<InterfaceNumbers> scan_interface_name(Text name);

inline constexpr uint32_t not_a_plain_name = 1u << 31;

// cp_interface_index() of a name that is "wlan-", a digit from 0 to 3, '-', one digit, and nothing else; not_a_plain_name
// for any other, which scan_interface_name() may still read. `name` is a field of CP_INTERFACE_NAME_SIZE bytes with its
// NUL. It may be changed meanwhile: then the index is that of the old name, of the new one, or of a mixture of both.
[[nodiscard]] inline uint32_t plain_interface_index(const char *name)
{
	constexpr uint64_t pattern = [] {
		uint64_t word = 0;
		for (size_t i = 0; i < sizeof(word); ++i) {
			word |= uint64_t{static_cast<uint8_t>("wlan-0-0"[i])} << 8 * i;
		}
		return word;
	}();
	constexpr uint32_t radio_place = 8 * 5;
	constexpr uint32_t vap_place = 8 * 7;
	constexpr uint64_t digits = uint64_t{3} << radio_place | uint64_t{15} << vap_place;
	// The digits become their values, a character behind the last one more than 9, and the other characters 0.
	const uint64_t differences = load_unaligned_word(name) ^ pattern;
	const auto vap = static_cast<uint32_t>(differences >> vap_place);
	if ((differences & ~digits) != 0 || vap > 9 || load_word(name[8]) != '\0') {
		return not_a_plain_name;
	}
	return cp_interface_index(static_cast<uint32_t>(differences >> radio_place & 3), vap);
}

// Row 0..23 that the name selects, missing when there is none. Only the combined index is checked.
[[nodiscard]] Field<uint32_t> interface_index_of_name(Text name);

// Row 0..8 of the OWE companion interface that the name selects, missing when there is none.
[[nodiscard]] Field<uint32_t> owe_index_of_name(Text name);

// Writes "wlan-radio-vap" and NULs up to the end of the field; both numbers are below 100.
void format_interface_name(char (&field)[CP_INTERFACE_NAME_SIZE], uint32_t radio, uint32_t vap);

// Writes the name of wireless interface `index`, 0..23.
void format_interface_name_of_index(char (&field)[CP_INTERFACE_NAME_SIZE], uint32_t index);

} // namespace captive_portal
