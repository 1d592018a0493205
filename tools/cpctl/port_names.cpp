// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/port_names.h"

#include "base/scan_decimal.h"
#include "cpctl/interface_names.h"

namespace cpctl
{

namespace
{

constexpr std::string_view wireless = "wlan";
constexpr std::string_view numbered = "wlan-";

struct Numbers {
	uint32_t radio;
	uint32_t vap;
};

// As the module scans "wlan-%d-%d": what follows the second number is ignored.
[[nodiscard]] std::optional<Numbers> scan(std::string_view name)
{
	if (!name.starts_with(numbered)) {
		return std::nullopt;
	}
	const captive_portal::Text text{name.data(), name.size()};
	size_t position = numbered.size();
	const auto radio = captive_portal::scan_decimal(text, position);
	if (!radio.has_value() || text.at(position) != '-') {
		return std::nullopt;
	}
	++position;
	const auto vap = captive_portal::scan_decimal(text, position);
	return vap.has_value() ? std::optional(Numbers{radio.value(), vap.value()}) : std::nullopt;
}

} // namespace

bool is_wireless_to_module(std::string_view name)
{
	return name.starts_with(wireless);
}

std::optional<std::string> taken_for(std::string_view name)
{
	const auto numbers = scan(name);
	if (!numbers) {
		return std::nullopt;
	}
	if (numbers->vap >= CP_OWE_FIRST_VAP && numbers->vap <= CP_OWE_LAST_VAP) {
		const uint32_t row = cp_owe_index(numbers->radio, numbers->vap);
		return row < CP_OWE_INTERFACES ? std::optional(owe_interface_of_row(row).name) : std::nullopt;
	}
	const uint32_t row = cp_interface_index(numbers->radio, numbers->vap);
	return row < CP_WIRELESS_INTERFACES ? std::optional(interface_of_row(row).name) : std::nullopt;
}

} // namespace cpctl
