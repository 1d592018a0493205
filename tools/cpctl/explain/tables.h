// SPDX-License-Identifier: GPL-2.0-only
// What the running module has stored and learned, for a copy of it.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "cpctl/cached_addresses.h"
#include "cpctl/configuration.h"
#include "cpctl/explain/module_copy.h"

namespace cpctl
{

struct ModuleTables {
	Configuration configuration;
	// What the module has learned of itself, 0 until then.
	Ipv4Address ap_address;
	MacAddress ap_mac = {};
	std::vector<CachedAddress> cached = {};
	// How many there are of each row: the status files do not say which.
	std::array<int64_t, CP_ROWS> connections = {};

	// The names of the tables that list the client for the row, those for all interfaces included.
	[[nodiscard]] std::vector<std::string> tables_with(const MacAddress &client, uint32_t row) const;
	// Null when the address is not cached.
	[[nodiscard]] const CachedAddress *cached_at(const std::string &address) const;
	// The first rule of the row that the address itself meets; null when there is none.
	[[nodiscard]] const wg_rule *rule_with(Ipv4Address address, uint32_t row) const;
};

// Throws Failure(unavailable) when a file cannot be read or understood.
[[nodiscard]] ModuleTables read_module_tables(const ReadStatusFile &read_status_file);

// Gives a fresh copy all of that, by the module's commands.
void fill_module_copy(ModuleCopy &copy, const ModuleTables &tables);

} // namespace cpctl
