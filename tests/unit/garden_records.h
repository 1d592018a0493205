// SPDX-License-Identifier: GPL-2.0-only
// Walled-garden records, as a daemon would fill them, for the tests of the garden's files.
#pragma once

#include <string_view>
#include <vector>

#include "base/byte_order.h"
#include "base/text.h"
#include "garden/walled_garden.h"
#include "tests/support/cast.h"
#include "tests/support/control.h"

namespace captive_portal::test
{

// The text in memory of exactly its size, so that the address sanitizer sees a read behind it.
class ExactText
{
public:
	explicit ExactText(std::string_view text) : characters_(text.begin(), text.end())
	{
		characters_.shrink_to_fit();
	}
	[[nodiscard]] Text text() const { return {characters_.data(), characters_.size()}; }

private:
	std::vector<char> characters_;
};

// A record of command 3 or 4.
class WgRecord
{
public:
	WgRecord(uint32_t command, int32_t iface, uint32_t enable_value = 0)
	{
		record.cmd = command;
		record.iface = iface;
		record.enable_value = enable_value;
	}

	// Adds a domain rule; a pattern of 128 characters has no NUL.
	WgRecord &domain(std::string_view pattern) { return add(domain_rule(pattern)); }
	WgRecord &address(Ipv4Address ip, Ipv4Address netmask) { return add(address_rule(ip, netmask)); }
	WgRecord &rule_number(int32_t number)
	{
		record.rule_number = number;
		return *this;
	}

	// Runs command 3.
	[[nodiscard]] int32_t write() const { return if_device_write_wg(&record, sizeof(record)); }

	wg_cmd record{};

private:
	WgRecord &add(const wg_rule &rule)
	{
		record.rules[record.rule_number++] = rule;
		return *this;
	}
};

// Whether the name, and the address, is in the walled garden of row `iface`.
[[nodiscard]] inline bool domain_matches(std::string_view name, uint32_t iface)
{
	const ExactText exact(name);
	const Text text = exact.text();
	return match_garden_list(GardenQuery::domain, {}, &text, iface);
}

[[nodiscard]] inline bool address_matches(Ipv4Address address, uint32_t iface)
{
	return match_garden_list(GardenQuery::address, address, nullptr, iface);
}

} // namespace captive_portal::test
