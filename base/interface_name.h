// SPDX-License-Identifier: GPL-2.0-only
// Names of wireless interfaces: the one scanner of "wlan-%d-%d", and the one place that writes such a name.
#pragma once

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

// Row 0..23 that the name selects, missing when there is none. Only the combined index is checked.
[[nodiscard]] Field<uint32_t> interface_index_of_name(Text name);

// Row 0..8 of the OWE companion interface that the name selects, missing when there is none.
[[nodiscard]] Field<uint32_t> owe_index_of_name(Text name);

// Writes "wlan-radio-vap" and NULs up to the end of the field; both numbers are below 100.
void format_interface_name(char (&field)[CP_INTERFACE_NAME_SIZE], uint32_t radio, uint32_t vap);

// Writes the name of wireless interface `index`, 0..23.
void format_interface_name_of_index(char (&field)[CP_INTERFACE_NAME_SIZE], uint32_t index);

} // namespace captive_portal
