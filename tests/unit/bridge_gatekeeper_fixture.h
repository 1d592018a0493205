// SPDX-License-Identifier: GPL-2.0-only
// Rows for the gatekeeper hook, and the state that a client meets, written as a sentence.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/platform.h"
#include "tests/support/control.h"
#include "tests/support/frame_builder.h"
#include "tests/support/packet_case.h"

namespace captive_portal::test
{

using State = std::function<void(host::Machine &)>;

[[nodiscard]] inline State all(std::vector<State> states)
{
	return [states = std::move(states)](host::Machine &machine) {
		for (const State &state : states) {
			state(machine);
		}
	};
}

// The portal of a row; 27 is that of the MIREL lists.
[[nodiscard]] inline State portal_on(int32_t row, uint32_t mode = 1)
{
	return [row, mode](host::Machine &machine) { set_portal(machine, CAPTIVE_PORTAL, row, mode); };
}

[[nodiscard]] inline State dns_filter_on(uint32_t value = 1)
{
	return [value](host::Machine &machine) { set_portal(machine, DNS_FILTER_ENABLE, 0, value); };
}

[[nodiscard]] inline State listed(gk_set_command add, std::string interface, const Host &client)
{
	return [add, interface, mac = client.mac](host::Machine &machine) {
		change_clients(machine, add, interface, mac);
	};
}

[[nodiscard]] inline State logout_address(int32_t row, std::string address)
{
	return [row, address](host::Machine &machine) { set_logout_address(machine, row, address); };
}

[[nodiscard]] inline State behavior(std::string interface, uint32_t behavior, uint32_t status)
{
	return [interface, behavior, status](host::Machine &machine) {
		set_behavior(machine, interface, behavior, status);
	};
}

[[nodiscard]] inline State mapped(std::string owe_interface, std::string interface)
{
	return [owe_interface, interface](host::Machine &machine) {
		map_owe_interface(machine, owe_interface, interface);
	};
}

[[nodiscard]] inline State logging_at(int32_t level)
{
	return [level](host::Machine &machine) { set_debug_level(machine, level); };
}

// A client's first web request.
[[nodiscard]] inline Frame web_request(const Host &client)
{
	return frame().from(client).to(upstream_server).tcp(51000, 80).syn();
}

} // namespace captive_portal::test
