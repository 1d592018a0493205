// SPDX-License-Identifier: GPL-2.0-only
#include "captive_portal/gatekeeper.h"
#include "cpctl/failure.h"
#include "cpctl/findings.h"
#include "cpctl/interface_names.h"
#include "cpctl/port_names.h"

namespace cpctl
{

namespace
{

const std::string network_devices = "/sys/class/net/";
const std::string bridge_path = network_devices + std::string(portal_bridge);

[[nodiscard]] bool is_on(const std::optional<std::string> &text)
{
	return text && !text->empty() && text->front() != '0' && text->front() != '\n';
}

// The module has hooks on every bridge, and tells wireless ports by their first letters.
void check_port_name(const std::string &name, Findings &findings)
{
	if (const auto taken = taken_for(name)) {
		findings.add({"port-name", name,
			      std::string("the module takes this port for ")
				      .append(*taken)
				      .append(", with the settings and clients of that"),
			      "ip link set " + name + " name NAME, one of wlan-1-1 to wlan-3-8 that is free"});
	} else {
		findings.add(
			{"port-name", name,
			 "begins with \"wlan\" and is no interface of the module, which drops the IP frames of this "
			 "port without a word",
			 "ip link set " + name +
				 " name NAME, one of wlan-1-1 to wlan-3-8, or a name that does not begin so"});
	}
}

void check_ports(Machine &machine, Findings &findings)
{
	const std::string bridge(portal_bridge);
	for (const std::string &name : machine.list(network_devices)) {
		if (!is_wireless_to_module(name)) {
			continue;
		}
		const std::optional<std::string> master = machine.link(network_devices + name + "/master");
		if (!is_wireless_name(name)) {
			if (master && !machine.list(network_devices + *master + "/bridge").empty()) {
				check_port_name(name, findings);
			}
			continue;
		}
		const std::string remedy = std::string("ip link set ").append(name).append(" master ").append(bridge);
		if (!master) {
			findings.add(
				{"port", name, "is no port of a bridge, so its clients pass the portal by", remedy});
		} else if (*master != bridge) {
			findings.add({"port", name,
				      std::string("is a port of ")
					      .append(*master)
					      .append(", while clients are sent to the address of ")
					      .append(bridge),
				      remedy});
		}
	}
}

// The kernel's switches are for all bridges, a bridge's own for it alone; one of both is enough.
void check_pass_through(Machine &machine, Findings &findings)
{
	struct Switch {
		const char *common;
		const char *own;
		const char *rules;
	};
	for (const Switch &place : {Switch{"bridge-nf-call-iptables", "nf_call_iptables", "iptables"},
				    Switch{"bridge-nf-call-ip6tables", "nf_call_ip6tables", "ip6tables"},
				    Switch{"bridge-nf-call-arptables", "nf_call_arptables", "arptables"}}) {
		const std::string problem = std::string("bridged frames go through the rules of ") + place.rules +
					    ", which see redirected packets too";
		if (is_on(machine.read("/proc/sys/net/bridge/" + std::string(place.common)))) {
			findings.add(
				{"bridge-netfilter", place.common, problem,
				 "sysctl -w net.bridge." + std::string(place.common) + "=0, unless you want that"});
		} else if (is_on(machine.read(bridge_path + "/bridge/" + place.own))) {
			findings.add({"bridge-netfilter", std::string(portal_bridge), problem,
				      "echo 0 >" + bridge_path + "/bridge/" + place.own + ", unless you want that"});
		}
	}
}

} // namespace

bool is_wireless_name(std::string_view name)
{
	for (uint32_t row = 0; row < CP_WIRELESS_INTERFACES; ++row) {
		if (interface_of_row(row).name == name) {
			return true;
		}
	}
	for (uint32_t row = 0; row < CP_OWE_INTERFACES; ++row) {
		if (owe_interface_of_row(row).name == name) {
			return true;
		}
	}
	return false;
}

std::vector<std::string> bridge_ports(Machine &machine)
{
	return machine.list(bridge_path + "/brif");
}

std::vector<std::string> wireless_ports(Machine &machine)
{
	std::vector<std::string> ports = bridge_ports(machine);
	std::erase_if(ports, [](const std::string &port) { return !is_wireless_name(port); });
	return ports;
}

void check_bridge(Machine &machine, Findings &findings)
{
	const std::string bridge(portal_bridge);
	if (machine.list(bridge_path).empty()) {
		findings.add({"bridge", bridge, "there is no such bridge, so nobody is redirected",
			      "ip link add " + bridge + " type bridge, and give it an address and ports"});
	} else if (machine.list(bridge_path + "/bridge").empty()) {
		findings.add({"bridge", bridge, "is no bridge", "make a bridge of that name"});
	} else if (machine.addresses(bridge).empty()) {
		findings.add({"bridge-address", bridge, "has no IPv4 address, so clients are not sent to the portal",
			      "ip address add ADDRESS/LENGTH dev " + bridge});
	}
	check_ports(machine, findings);
	check_pass_through(machine, findings);
}

} // namespace cpctl
