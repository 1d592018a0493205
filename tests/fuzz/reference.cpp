// SPDX-License-Identifier: GPL-2.0-only
#include "tests/fuzz/reference.h"

#include <cstring>
#include <vector>

namespace captive_portal::test
{

std::string text_in_field(const char *field, size_t size)
{
	return {field, strnlen(field, size)};
}

std::optional<std::pair<uint32_t, std::string_view>> reference_decimal(std::string_view text)
{
	const size_t start = text.find_first_not_of("\t\n\v\f\r \xa0");
	if (start == std::string_view::npos) {
		return {};
	}
	text.remove_prefix(start);
	const bool negative = text.substr(0, 1) == "-";
	if (negative) {
		text.remove_prefix(1);
	}
	const std::string_view digits = text.substr(0, text.find_first_not_of("0123456789"));
	if (digits.empty()) {
		return {};
	}
	// From the last digit to the first, each times its power of ten; the low 32 bits do not need more than 32.
	uint32_t value = 0;
	uint32_t power = 1;
	for (auto digit = digits.rbegin(); digit != digits.rend(); ++digit, power *= 10) {
		value += power * static_cast<uint32_t>(*digit - '0');
	}
	return std::pair{negative ? ~value + 1 : value, text.substr(digits.size())};
}

std::optional<std::pair<uint32_t, uint32_t>> reference_interface_numbers(std::string_view name)
{
	if (name.substr(0, 5) != "wlan-") {
		return {};
	}
	const auto radio = reference_decimal(name.substr(5));
	if (!radio.has_value() || radio->second.substr(0, 1) != "-") {
		return {};
	}
	const auto vap = reference_decimal(radio->second.substr(1));
	if (!vap.has_value()) {
		return {};
	}
	return std::pair{radio->first, vap->first};
}

namespace
{

// (radio - 1) * per_radio + (vap - first), a 32-bit number, if it is below `rows`.
std::optional<uint32_t> row_of(std::string_view name, int64_t per_radio, int64_t first, uint32_t rows)
{
	const auto numbers = reference_interface_numbers(name);
	if (!numbers.has_value()) {
		return {};
	}
	const int64_t row = (int64_t{numbers->first} - 1) * per_radio + (int64_t{numbers->second} - first);
	const auto cut = static_cast<uint32_t>(row & 0xffffffff);
	return cut < rows ? std::optional(cut) : std::nullopt;
}

} // namespace

std::optional<uint32_t> reference_interface_row(std::string_view name)
{
	return row_of(name, 8, 1, 24);
}

std::optional<uint32_t> reference_owe_row(std::string_view name)
{
	return row_of(name, 3, 14, 9);
}

std::optional<ReferenceAddress> reference_address(std::string_view text)
{
	ReferenceAddress address{};
	for (int i = 0; i < 4; ++i) {
		const auto number = reference_decimal(text);
		if (!number.has_value() || (i < 3 && number->second.substr(0, 1) != ".")) {
			return {};
		}
		address.numbers[i] = number->first;
		if (i < 3) {
			text = number->second.substr(1);
		}
	}
	return address;
}

bool reference_pattern_matches(const std::string &pattern, const std::string &name)
{
	constexpr std::string_view wildcards = "*?";
	if (pattern.find_first_of(wildcards) == std::string::npos) {
		return pattern == name;
	}
	// The pieces between the wildcards, empty ones included: one more than there are wildcards.
	std::vector<std::string> pieces{""};
	for (const char character : pattern) {
		if (wildcards.find(character) != std::string_view::npos) {
			pieces.emplace_back();
		} else {
			pieces.back() += character;
		}
	}
	std::string rest = name;
	for (size_t i = 0; i < pieces.size(); ++i) {
		const size_t place = rest.find(pieces[i]);
		if (place == std::string::npos || (i == 0 && place != 0)) {
			return false;
		}
		rest.erase(0, place + pieces[i].size());
	}
	return pieces.back().empty() || rest.empty();
}

} // namespace captive_portal::test
