// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/value_names.h"

#include <array>
#include <charconv>
#include <optional>

#include "captive_portal/gatekeeper.h"
#include "captive_portal/portal.h"
#include "cpctl/failure.h"
#include "cpctl/quoted.h"

namespace cpctl
{

namespace
{

constexpr std::array modes = {
	NamedValue{"off", CP_MODE_OFF},
	NamedValue{"on", CP_MODE_ON},
	NamedValue{"internet-passes", CP_MODE_INTERNET_PASSES},
	NamedValue{"drop-tcp", CP_MODE_DROP_TCP},
};

// Every value above CP_HTTPS_BLOCKED redirects; this is the one that cpctl sends.
constexpr uint32_t https_redirected = CP_HTTPS_BLOCKED + 1;

constexpr std::array block_https = {
	NamedValue{"pass", CP_HTTPS_PASSES},
	NamedValue{"block", CP_HTTPS_BLOCKED},
	NamedValue{"redirect", https_redirected},
};

// Every value but the module's two drops every frame; 0 is what the module starts with.
constexpr std::array behaviors = {
	NamedValue{"drop-all", 0},
	NamedValue{"pass-all", OVRA_PASS_ALL},
	NamedValue{"pass-dhcp", OVRA_PASS_DHCP},
};

// Every status but OVRA_DISCONNECTED is connected: cpctl sends 1, the module starts with 0.
constexpr std::array statuses = {
	NamedValue{"connected", OVRA_DISCONNECTED - 1},
	NamedValue{"connected", 0},
	NamedValue{"disconnected", OVRA_DISCONNECTED},
};

constexpr std::array switches = {
	NamedValue{"off", 0},
	NamedValue{"on", 1},
};

std::optional<uint32_t> value_of_name(std::span<const NamedValue> names, std::string_view word)
{
	for (const NamedValue &entry : names) {
		if (entry.name == word) {
			return entry.value;
		}
	}
	return std::nullopt;
}

std::optional<uint32_t> scan_number(std::string_view word)
{
	uint32_t value = 0;
	const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
	if (error != std::errc() || end != word.data() + word.size()) {
		return std::nullopt;
	}
	return value;
}

std::string choice(std::span<const NamedValue> names)
{
	std::string text;
	std::string_view previous;
	for (const NamedValue &entry : names) {
		if (entry.name != previous) {
			text += text.empty() ? "" : ", ";
			text += entry.name;
			previous = entry.name;
		}
	}
	return text;
}

} // namespace

std::span<const NamedValue> mode_names()
{
	return modes;
}

std::span<const NamedValue> block_https_names()
{
	return block_https;
}

std::span<const NamedValue> behavior_names()
{
	return behaviors;
}

std::span<const NamedValue> status_names()
{
	return statuses;
}

std::span<const NamedValue> switch_names()
{
	return switches;
}

uint32_t parse_value(std::span<const NamedValue> names, std::string_view word, std::string_view what)
{
	if (const auto value = value_of_name(names, word)) {
		return *value;
	}
	if (const auto value = scan_number(word)) {
		return *value;
	}
	throw usage_failure(quoted(word) + " is no " + std::string(what) + ": choose one of " + choice(names) +
			    ", or a number");
}

uint32_t parse_name(std::span<const NamedValue> names, std::string_view word, std::string_view what)
{
	if (const auto value = value_of_name(names, word)) {
		return *value;
	}
	throw usage_failure(quoted(word) + " is no " + std::string(what) + ": choose one of " + choice(names));
}

std::string name_of(std::span<const NamedValue> names, uint32_t value)
{
	for (const NamedValue &entry : names) {
		if (entry.value == value) {
			return std::string(entry.name);
		}
	}
	return std::to_string(value);
}

uint32_t parse_number(std::string_view word, std::string_view what)
{
	const auto value = scan_number(word);
	if (!value) {
		throw usage_failure(quoted(word) + " is no " + std::string(what) + ": write a decimal number");
	}
	return *value;
}

} // namespace cpctl
