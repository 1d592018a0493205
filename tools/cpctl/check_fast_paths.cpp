// SPDX-License-Identifier: GPL-2.0-only
#include <algorithm>
#include <iterator>
#include <sstream>

#include "cpctl/findings.h"
#include "cpctl/nft_ruleset.h"

namespace cpctl
{

namespace
{

using Names = std::vector<std::string>;

[[nodiscard]] bool contains(const Names &names, const std::string &name)
{
	return std::ranges::find(names, name) != names.end();
}

[[nodiscard]] bool has(const std::string &text, std::string_view part)
{
	return text.find(part) != std::string::npos;
}

void check_rules(const Names &ports, const std::string &ruleset, Findings &findings)
{
	for (const FlowTable &table : flow_tables(ruleset)) {
		for (const std::string &device : table.devices) {
			if (contains(ports, device) || is_wireless_name(device)) {
				findings.add({"flow-table", device,
					      "the flow table '" + table.name +
						      "' carries its connections past the portal, also after a logout",
					      "name br0 among the flow table's devices, and not the port"});
			} else if (table.offload && device == portal_bridge) {
				findings.add({"flow-table", device,
					      "the flow table '" + table.name +
						      "' has hardware carry connections past the portal",
					      "leave 'flags offload' out"});
			}
		}
	}
	for (const ForwardingChain &chain : forwarding_chains(ruleset)) {
		for (const std::string &device : chain.devices) {
			if (contains(ports, device)) {
				findings.add(
					{"ingress", device,
					 "the chain '" + chain.chain + "' forwards frames before the bridge has them",
					 "delete that rule, or except clients that are not logged in"});
			}
		}
	}
}

void check_hardware(Machine &machine, const Names &ports, Findings &findings)
{
	for (const std::string &port : ports) {
		const auto features =
			ask_program(machine, {"ethtool", "-k", port}, "hardware offload of ports", findings);
		if (features && has(*features, "hw-tc-offload: on")) {
			findings.add({"hardware-offload", port,
				      "its hardware may forward frames that the portal never sees",
				      "ethtool -K " + port + " hw-tc-offload off"});
		}
	}
	const auto stations = ask_program(machine, {"bridge", "fdb", "show", "br", std::string(portal_bridge)},
					  "what a switch chip forwards", findings);
	std::istringstream lines(stations.value_or(""));
	Names told;
	for (std::string line; std::getline(lines, line);) {
		std::istringstream words(line);
		const Names found{std::istream_iterator<std::string>(words), {}};
		const auto device = std::ranges::find(found, "dev");
		if (device == found.end() || device + 1 == found.end() || !contains(found, "offload") ||
		    !contains(ports, device[1]) || contains(told, device[1])) {
			continue;
		}
		told.push_back(device[1]);
		findings.add({"switch-offload", device[1], "a switch chip forwards frames to and from it",
			      "switch bridge offload off for this port, as its vendor says"});
	}
}

void check_ingress(Machine &machine, const Names &ports, Findings &findings)
{
	for (const std::string &port : ports) {
		const auto filters = ask_program(machine, {"tc", "filter", "show", "dev", port, "ingress"},
						 "traffic control at ports", findings);
		if (filters && has(*filters, "mirred") && (has(*filters, "Redirect") || has(*filters, "redirect"))) {
			findings.add({"ingress", port, "traffic control redirects frames before the bridge has them",
				      "tc filter del dev " + port + " ingress"});
		}
		const auto link = ask_program(machine, {"ip", "-o", "link", "show", "dev", port},
					      "XDP programs at ports", findings);
		if (link && (has(*link, " xdp ") || has(*link, " xdpgeneric ") || has(*link, " xdpoffload "))) {
			findings.add({"ingress", port, "an XDP program gets frames before the bridge has them",
				      "ip link set dev " + port + " xdp off"});
		}
	}
}

} // namespace

std::optional<std::string> ask_program(Machine &machine, const std::vector<std::string> &words, const std::string &what,
				       Findings &findings)
{
	ProgramAnswer answer = machine.run(words);
	if (answer.installed && answer.status == 0) {
		return std::move(answer.text);
	}
	findings.omit({what, words.front() + (answer.installed ? " failed" : " is not installed")});
	return std::nullopt;
}

void check_fast_paths(Machine &machine, const std::string &nft_ruleset, Findings &findings)
{
	const Names ports = bridge_ports(machine);
	check_rules(ports, nft_ruleset, findings);
	check_hardware(machine, ports, findings);
	check_ingress(machine, wireless_ports(machine), findings);
}

} // namespace cpctl
