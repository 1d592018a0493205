// SPDX-License-Identifier: GPL-2.0-only
// All that commands can set, as the status files tell it or as a file of commands wants it.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "captive_portal/captive_portal.h"
#include "cpctl/addresses.h"
#include "cpctl/portal.h"
#include "cpctl/status_files.h"

namespace cpctl
{

struct RowSettings {
	uint32_t mode = CP_MODE_OFF;
	// The sub-command CP_WALLED_GARDEN's: nothing in the module reads it.
	uint32_t walled_garden = 0;
	uint32_t block_https = CP_HTTPS_PASSES;
	std::string logout;
	Garden garden;
	// Of wireless interfaces.
	Disconnection disconnection;
};

// The list of one table, and of one interface where the table has a list for each.
struct ConfiguredList {
	const ClientTable *table;
	// Empty for the tables that are one for all interfaces.
	std::string interface;
	// In the module's order, each address once.
	std::vector<MacAddress> clients;
};

// As the module is after its start.
struct Configuration {
	Configuration();

	uint32_t debug_level = CP_DEFAULT_DEBUG_LEVEL;
	uint32_t dns_filter = 0;
	Ipv4Address gateway;
	std::array<RowSettings, CP_ROWS> rows;
	// Interfaces that companions are paired with; empty where there is none.
	std::array<std::string, CP_OWE_INTERFACES> owe;
	std::vector<std::string> default_names;
	// Table by table of each interface, then those that are one for all.
	std::vector<ConfiguredList> lists;

	// The list of that name; throws Failure(unavailable) when there is none.
	[[nodiscard]] const ConfiguredList &list(std::string_view table, std::string_view interface) const;
	[[nodiscard]] ConfiguredList &list(std::string_view table, std::string_view interface);
	[[nodiscard]] size_t clients() const;
};

struct ReadConfiguration {
	Configuration configuration;
	// What is stored and no command of cpctl would store, each as a sentence.
	std::vector<std::string> without_command;
};

// Throws Failure(unavailable) when a file cannot be read or understood.
[[nodiscard]] ReadConfiguration read_configuration(const ReadStatusFile &read_status_file);

// Settings, rules and default names as read_configuration() has them, without reading the lists of clients, which can be
// long.
[[nodiscard]] Configuration read_gardens(const ReadStatusFile &read_status_file);

// The configuration without what no command of cpctl would store.
[[nodiscard]] Configuration with_commands(Configuration configuration);

// Whether the two rules are the same to the module.
[[nodiscard]] bool same_rules(const std::vector<wg_rule> &left, const std::vector<wg_rule> &right);

} // namespace cpctl
