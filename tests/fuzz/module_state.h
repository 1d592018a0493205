// SPDX-License-Identifier: GPL-2.0-only
// All that the module knows, as values that can be compared, and all that a caller may see of it.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "base/mac_address.h"
#include "captive_portal/captive_portal.h"
#include "tests/support/cast.h"

namespace captive_portal::test
{

struct ModuleState {
	using MacAddresses = std::vector<Mac>;
	using Rows = std::array<MacAddresses, CP_WIRELESS_INTERFACES>;

	struct Owe {
		std::string iface;
		std::string owe_iface;
		friend bool operator==(const Owe &, const Owe &) = default;
	};
	struct Connection {
		uint32_t client_address;
		uint16_t client_port;
		uint32_t destination_address;
		uint16_t destination_port;
		Mac destination_mac;
		friend bool operator==(const Connection &, const Connection &) = default;
	};
	struct Portal {
		uint32_t mark;
		uint16_t http_port;
		uint16_t https_port;
		uint32_t mode;
		uint32_t stored_walled_garden;
		uint32_t block_https;
		std::array<char, CP_DOTTED_QUAD_SIZE> logout_address;
		std::vector<Connection> connections;
		friend bool operator==(const Portal &, const Portal &) = default;
	};
	struct Rule {
		uint32_t type;
		uint32_t address;
		uint32_t netmask;
		std::string domain;
		friend bool operator==(const Rule &, const Rule &) = default;
	};
	struct Garden {
		uint32_t mark;
		uint32_t enabled;
		std::vector<Rule> rules;
		friend bool operator==(const Garden &, const Garden &) = default;
	};
	struct CachedName {
		std::string name;
		bool listed;
		friend bool operator==(const CachedName &, const CachedName &) = default;
	};
	struct CachedAddress {
		uint32_t bucket;
		uint64_t address;
		int64_t deadline;
		uint32_t mask;
		bool listed;
		std::vector<CachedName> names;
		friend bool operator==(const CachedAddress &, const CachedAddress &) = default;
	};

	Rows auth;
	Rows login;
	Rows white_list;
	Rows ga_white_list;
	Rows mac_auth_fallback;
	MacAddresses mirel_white;
	MacAddresses mirel_black;
	std::array<std::array<uint32_t, 2>, CP_WIRELESS_INTERFACES> behaviors; // behaviour and status
	std::array<Owe, CP_OWE_INTERFACES> owe_mapping;
	std::array<Portal, CP_ROWS> portals;
	std::array<Garden, CP_ROWS> gardens;
	std::array<std::string, WG_DEFAULT_RULES> default_rules;
	std::vector<CachedAddress> cache; // bucket after bucket
	int32_t cached_addresses;
	uint32_t gateway;
	uint32_t ap_address;
	uint64_t ap_mac;
	uint32_t dns_filter;
	std::string summary_target;

	friend bool operator==(const ModuleState &, const ModuleState &) = default;
};

// Taken while nothing of the module runs.
[[nodiscard]] ModuleState module_state();

} // namespace captive_portal::test
