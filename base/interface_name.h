// SPDX-License-Identifier: GPL-2.0-only
// Names of wireless interfaces: the one scanner of "wlan-%d-%d", and the one place that writes such a name.
#pragma once

#include "base/atomic_word.h"
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

// cp_interface_index() of a name that is "wlan-" with one digit, '-' and one digit, and no third digit behind them;
// not_a_plain_name for any other, which scan_interface_name() may still read. Reads a character once at most, and none
// behind the name's NUL, so the name may be changed meanwhile.
[[nodiscard]] inline uint32_t plain_interface_index(const char *name)
{
	const auto is = [name](size_t index, char character) { return load_word(name[index]) == character; };
	const auto digit_at = [name](size_t index) {
		return static_cast<uint32_t>(static_cast<uint8_t>(load_word(name[index]))) - '0';
	};
	if (!is(0, 'w') || !is(1, 'l') || !is(2, 'a') || !is(3, 'n') || !is(4, '-')) {
		return not_a_plain_name;
	}
	const uint32_t radio = digit_at(5);
	if (radio > 9 || !is(6, '-')) {
		return not_a_plain_name;
	}
	const uint32_t vap = digit_at(7);
	if (vap > 9 || digit_at(8) <= 9) {
		return not_a_plain_name;
	}
	return cp_interface_index(radio, vap);
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
