// SPDX-License-Identifier: GPL-2.0-only
// Slow and obvious second opinions about texts, written without a look at how the module does it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace captive_portal::test
{

// "%d" at the front of `text`: the low 32 bits of the number, and what follows it.
[[nodiscard]] std::optional<std::pair<uint32_t, std::string_view>> reference_decimal(std::string_view text);

// The two numbers of "wlan-%d-%d".
[[nodiscard]] std::optional<std::pair<uint32_t, uint32_t>> reference_interface_numbers(std::string_view name);
// Row 0..23 of a wireless interface, row 0..8 of an OWE companion.
[[nodiscard]] std::optional<uint32_t> reference_interface_row(std::string_view name);
[[nodiscard]] std::optional<uint32_t> reference_owe_row(std::string_view name);

// "%d.%d.%d.%d" at the front of `text`: the four numbers, none of them checked.
struct ReferenceAddress {
	uint32_t numbers[4];
};
[[nodiscard]] std::optional<ReferenceAddress> reference_address(std::string_view text);

// Whether a walled-garden pattern matches a name.
[[nodiscard]] bool reference_pattern_matches(const std::string &pattern, const std::string &name);

// What a field of fixed size holds: up to its NUL.
[[nodiscard]] std::string text_in_field(const char *field, size_t size);
template <size_t size> [[nodiscard]] std::string text_in_field(const char (&field)[size])
{
	return text_in_field(field, size);
}

} // namespace captive_portal::test
