// SPDX-License-Identifier: GPL-2.0-only
// Packet rows of the portal's two hooks, the states that they meet, and what the hooks have recorded afterwards.
#pragma once

#include <functional>
#include <initializer_list>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/lock.h"
#include "base/text.h"
#include "garden/arecord_cache.h"
#include "platform/platform.h"
#include "portal/connections.h"
#include "portal/interface_table.h"
#include "tests/support/cast.h"
#include "tests/support/control.h"
#include "tests/support/frame_builder.h"
#include "tests/support/host_test.h"
#include "tests/support/packet_case.h"

namespace captive_portal::test
{

// One recorded connection; ports in host order.
struct Connection {
	uint32_t row;
	Ipv4Address client;
	uint16_t client_port;
	Ipv4Address server;
	uint16_t server_port;
	Mac mac;

	friend bool operator==(const Connection &, const Connection &) = default;
};

inline std::ostream &operator<<(std::ostream &stream, const Connection &connection)
{
	stream << "row " << connection.row << std::hex << ", client " << connection.client.host() << std::dec << ':'
	       << connection.client_port << std::hex << ", server " << connection.server.host() << std::dec << ':'
	       << connection.server_port << ", MAC" << std::hex;
	for (const uint8_t byte : connection.mac) {
		stream << ' ' << static_cast<unsigned>(byte);
	}
	return stream << std::dec;
}

// Every recorded connection, by row, then in the list's order.
[[nodiscard]] inline std::vector<Connection> connections()
{
	const LockGuard guard(Lock::change_ip_port);
	std::vector<Connection> all;
	for (uint32_t row = 0; row < CP_ROWS; ++row) {
		for (const table_list_entry *entry = captive_portal_table[row].table_list; entry != nullptr;
		     entry = entry->next) {
			const uint8_t(&mac)[CP_MAC_SIZE] = entry->orig_dmac.bytes;
			all.push_back({row,
				       entry->client_addr,
				       entry->client_port.host(),
				       entry->orig_daddr,
				       entry->orig_dport.host(),
				       {mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]}});
		}
	}
	return all;
}

inline void record(const Connection &connection)
{
	add_connection(connection.row, {connection.client, be16::from_host(connection.client_port)},
		       {connection.server, be16::from_host(connection.server_port)},
		       MacAddress::from(connection.mac.data()));
}

// ---- States, for a row's `state` ------------------------------------------------------------------------------------

using State = std::function<void(host::Machine &)>;

[[nodiscard]] inline State all_of(std::vector<State> states)
{
	return [states = std::move(states)](host::Machine &machine) {
		for (const State &state : states) {
			state(machine);
		}
	};
}

[[nodiscard]] inline State portal(int32_t row, uint32_t mode)
{
	return [=](host::Machine &machine) { set_portal(machine, CAPTIVE_PORTAL, row, mode); };
}

[[nodiscard]] inline State block_https(int32_t row, uint32_t value)
{
	return [=](host::Machine &machine) { set_portal(machine, BLOCK_HTTPS, row, value); };
}

[[nodiscard]] inline State gateway(Ipv4Address address)
{
	return [=](host::Machine &machine) { set_gateway_address(machine, address); };
}

// The row's switch, and address rules with a mask of 255.255.255.255.
[[nodiscard]] inline State garden(int32_t row, uint32_t enable, std::vector<Ipv4Address> permitted = {})
{
	return [=](host::Machine &machine) {
		wg_cmd update{};
		update.cmd = UPDATE_RULE;
		update.iface = row;
		update.enable_value = enable;
		for (const Ipv4Address address : permitted) {
			update.rules[update.rule_number++] = address_rule(address, ipv4(255, 255, 255, 255));
		}
		ASSERT_EQ(command(machine, WALLED_GARDEN_IOCTL_SET, update), 0);
	};
}

// A DNS answer gave this address for a name that the rows of the mask permit.
[[nodiscard]] inline State resolved(Ipv4Address address, uint32_t mask)
{
	return [=](host::Machine &) {
		static constexpr char name[] = "www.example.com";
		add_dns_arecord(arecord_bucket(address), mask, text_of_field(name), address, 300);
	};
}

[[nodiscard]] inline State device(std::string name, host::Device description)
{
	return [=](host::Machine &machine) { machine.devices.put(name, description); };
}

[[nodiscard]] inline State no_device(std::string name)
{
	return [=](host::Machine &machine) { machine.devices.remove(name); };
}

[[nodiscard]] inline State recorded(std::vector<Connection> before)
{
	return [=](host::Machine &) {
		for (const Connection &connection : before) {
			record(connection);
		}
	};
}

// ---- Afterwards -----------------------------------------------------------------------------------------------------

[[nodiscard]] inline State records(std::vector<Connection> expected)
{
	return [=](host::Machine &) { EXPECT_EQ(connections(), expected); };
}

// ---- Rows -----------------------------------------------------------------------------------------------------------

// Runs the row at debug level 3 with its lines, and at 2 without any. The portal's hooks leave the mark alone. A row
// that says nothing of connections expects that none is recorded.
inline void run_portal_case(host::HookFunction hook, PacketCase row)
{
	row.mark = row.mark_in;
	if (!row.afterwards) {
		row.afterwards = records({});
	}
	const State state = row.state ? row.state : [](host::Machine &) {};
	row.state = [&](host::Machine &machine) {
		state(machine);
		set_debug_level(machine, 3);
	};
	run_packet_case(hook, row);

	row.log.clear();
	row.state = [&](host::Machine &machine) {
		state(machine);
		set_debug_level(machine, 2);
	};
	run_packet_case(hook, row);
}

// The same for rows that a loop makes.
inline void run_portal_cases(host::HookFunction hook, const std::vector<PacketCase> &rows)
{
	for (const PacketCase &row : rows) {
		run_portal_case(hook, row);
	}
}

// ---- Lines ----------------------------------------------------------------------------------------------------------

[[nodiscard]] inline std::vector<host::LogLine> lines(std::initializer_list<const char *> texts)
{
	std::vector<host::LogLine> result;
	for (const char *const text : texts) {
		result.push_back(debug_line(text));
	}
	return result;
}

} // namespace captive_portal::test
