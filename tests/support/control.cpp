// SPDX-License-Identifier: GPL-2.0-only
#include "tests/support/control.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace captive_portal::test
{

namespace
{

void expect_zero(long result, const char *what)
{
	if (result != 0) {
		throw std::runtime_error(std::string(what) + " gave " + std::to_string(result));
	}
}

} // namespace

void load_module(host::Machine &machine)
{
	expect_zero(machine.load(), "start");
	machine.log.clear();
}

void set_debug_level(host::Machine &machine, int32_t level)
{
	expect_zero(machine.ioctl(ENV_SET_DEBUG_LEVEL, static_cast<uint32_t>(level)), "debug level");
	machine.log.clear();
}

void set_portal(host::Machine &machine, cp_set_command sub_command, int32_t row, uint32_t value)
{
	expect_zero(command(machine, CAPTIVE_PORTAL_IOCTL_SET,
			    cp_cmd{.cmd = sub_command, .iface = row, .enable_value = value, .value = ""}),
		    "portal command");
	machine.log.clear();
}

void set_logout_address(host::Machine &machine, int32_t row, std::string_view dotted_quad)
{
	cp_cmd record{.cmd = LOGOUT_IP_NOTIFY, .iface = row, .enable_value = 0, .value = ""};
	set_text(record.value, dotted_quad);
	expect_zero(command(machine, CAPTIVE_PORTAL_IOCTL_SET, record), "logout address");
	machine.log.clear();
}

void set_gateway_address(host::Machine &machine, Ipv4Address address)
{
	expect_zero(command(machine, GATEWAY_IOCTL_SET, address), "gateway");
	machine.log.clear();
}

void change_clients(host::Machine &machine, gk_set_command sub_command, std::string_view interface,
		    const std::array<uint8_t, CP_MAC_SIZE> &mac)
{
	gk_cmd record{};
	record.cmd = sub_command;
	set_text(record.iface, interface);
	std::copy(mac.begin(), mac.end(), record.mac);
	expect_zero(command(machine, GATEKEEPER_IOCTL_SET, record), "gatekeeper command");
	machine.log.clear();
}

void set_behavior(host::Machine &machine, std::string_view interface, uint32_t behavior, uint32_t status)
{
	gk_cmd record{};
	record.cmd = SET_OVRA_BEHAVIOR;
	record.behavior = behavior;
	record.status = status;
	set_text(record.iface, interface);
	expect_zero(command(machine, GATEKEEPER_IOCTL_SET, record), "disconnection behaviour");
	machine.log.clear();
}

void map_owe_interface(host::Machine &machine, std::string_view owe_interface, std::string_view interface)
{
	gk_cmd record{};
	record.cmd = ADD_MAPPING_OWE_VAP;
	set_text(record.iface, interface);
	set_text(record.owe_iface, owe_interface);
	expect_zero(command(machine, GATEKEEPER_IOCTL_SET, record), "OWE mapping");
	machine.log.clear();
}

wg_rule domain_rule(std::string_view pattern)
{
	wg_rule rule{};
	rule.rule_type = WG_RULE_DOMAIN;
	set_text(rule.domain_name, pattern);
	return rule;
}

wg_rule address_rule(Ipv4Address address, Ipv4Address netmask)
{
	wg_rule rule{};
	rule.rule_type = WG_RULE_ADDRESS;
	rule.ip_addr = address.raw;
	rule.netmask = netmask.raw;
	return rule;
}

void set_garden(host::Machine &machine, wg_set_command sub_command, int32_t row, uint32_t enable,
		std::initializer_list<wg_rule> rules)
{
	wg_cmd record{};
	record.cmd = sub_command;
	record.iface = row;
	record.enable_value = enable;
	record.rule_number = static_cast<int32_t>(rules.size());
	std::copy(rules.begin(), rules.end(), record.rules);
	expect_zero(command(machine, WALLED_GARDEN_IOCTL_SET, record), "walled-garden command");
	machine.log.clear();
}

} // namespace captive_portal::test
