// SPDX-License-Identifier: GPL-2.0-only
// Records of the setting command, and where they have put the station.
#pragma once

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "gatekeeper/client_tables.h"
#include "gatekeeper/gatekeeper_commands.h"
#include "tests/support/control.h"
#include "tests/support/host_test.h"

namespace captive_portal::test
{

inline constexpr uint8_t station[CP_MAC_SIZE] = {0x02, 0xab, 0x00, 0x0c, 0xde, 0xf0};
inline constexpr MacAddress station_mac = {{0x02, 0xab, 0x00, 0x0c, 0xde, 0xf0}};

// Of the station.
[[nodiscard]] inline gk_cmd record_of(uint32_t number, std::string_view iface, std::string_view owe_iface = "")
{
	gk_cmd record{};
	record.cmd = number;
	set_text(record.iface, iface);
	set_text(record.owe_iface, owe_iface);
	std::copy(std::begin(station), std::end(station), record.mac);
	return record;
}

[[nodiscard]] inline std::string text(const AtomicName &name)
{
	char field[CP_INTERFACE_NAME_SIZE];
	name.load(field);
	return std::string(field, strnlen(field, sizeof(field)));
}

class GatekeeperCommands : public HostTest
{
protected:
	void SetUp() override { load_module(); }

	void run(const gk_cmd &record) { ASSERT_EQ(if_device_write_gk(record), 0); }

	// Frees what the module has lost and gives its number.
	size_t collect_lost()
	{
		const std::vector<host::Allocation> lost = machine.lost_allocations();
		for (const host::Allocation &allocation : lost) {
			cp_free(const_cast<void *>(allocation.memory));
		}
		return lost.size();
	}

	// Lists that hold the station, each as its name and, of an interface's list, its row.
	[[nodiscard]] static std::vector<std::string> lists_with_station()
	{
		std::vector<std::string> names;
		const auto look = [&names](const char *name, const iface_mac_list *table) {
			for (uint32_t row = 0; row < CP_WIRELESS_INTERFACES; ++row) {
				if (table[row].list.contains(station_mac)) {
					names.push_back(name + (' ' + std::to_string(row)));
				}
			}
		};
		look("white_list", white_list);
		look("ga_white_list", ga_white_list);
		look("mac_auth_fallback", mac_auth_fallback);
		look("login_mac_table", login_mac_table);
		look("auth_mac_table", auth_mac_table);
		if (mirel_white_list.contains(station_mac)) {
			names.emplace_back("mirel_white_list");
		}
		if (mirel_black_list.contains(station_mac)) {
			names.emplace_back("mirel_black_list");
		}
		return names;
	}

	void list_station_everywhere(std::string_view iface)
	{
		for (const uint32_t number :
		     {ADD_WHITELIST_MAC, ADD_AUTH_MAC, ADD_LOGIN_MAC, ADD_GA_WHITELIST_MAC, ADD_MAC_AUTH_FALLBACK}) {
			run(record_of(number, iface));
		}
		machine.log.clear();
	}

	[[nodiscard]] uint64_t holds() const { return machine.locks.acquisitions(CP_LOCK_GATEKEEPER); }
};

} // namespace captive_portal::test
