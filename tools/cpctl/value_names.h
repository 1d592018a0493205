// SPDX-License-Identifier: GPL-2.0-only
// The names under which cpctl shows and takes the module's numbers.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace cpctl
{

struct NamedValue {
	std::string_view name;
	uint32_t value;
};

// Portal modes: off, on, internet-passes, drop-tcp.
[[nodiscard]] std::span<const NamedValue> mode_names();

// What happens to HTTPS: pass, block, redirect.
[[nodiscard]] std::span<const NamedValue> block_https_names();

// Disconnection behaviours: drop-all, pass-all, pass-dhcp.
[[nodiscard]] std::span<const NamedValue> behavior_names();

// Disconnection status: connected, disconnected.
[[nodiscard]] std::span<const NamedValue> status_names();

// off, on.
[[nodiscard]] std::span<const NamedValue> switch_names();

// The value of a name, or of a decimal number. `what` names the setting in the usage failure for anything else.
[[nodiscard]] uint32_t parse_value(std::span<const NamedValue> names, std::string_view word, std::string_view what);

// As parse_value(), without numbers.
[[nodiscard]] uint32_t parse_name(std::span<const NamedValue> names, std::string_view word, std::string_view what);

// The first name of the value, or its number.
[[nodiscard]] std::string name_of(std::span<const NamedValue> names, uint32_t value);

// An unsigned decimal number of 32 bits; a usage failure for anything else.
[[nodiscard]] uint32_t parse_number(std::string_view word, std::string_view what);

} // namespace cpctl
