// SPDX-License-Identifier: GPL-2.0-only
#include <algorithm>
#include <charconv>
#include <set>
#include <sstream>

#include "captive_portal/ports.h"
#include "cpctl/findings.h"
#include "cpctl/nft_ruleset.h"
#include "cpctl/redirect_ports.h"

namespace cpctl
{

namespace
{

constexpr std::string_view listening = "0A";
// An address of the network byte order as these files print it, on the processors that the module runs on.
constexpr std::string_view loopback_ending = "7F";
constexpr std::string_view loopback_of_ipv6 = "00000000000000000000000001000000";
constexpr size_t ipv4_digits = 8;

[[nodiscard]] bool is_loopback(std::string_view address)
{
	return address.size() == ipv4_digits ? address.ends_with(loopback_ending) : address == loopback_of_ipv6;
}

// Ports on which somebody listens who can be reached from outside.
void add_listening_ports(const std::optional<std::string> &table, std::set<uint32_t> &ports)
{
	std::istringstream lines(table.value_or(""));
	for (std::string line; std::getline(lines, line);) {
		std::istringstream words(line);
		std::string number;
		std::string local;
		std::string remote;
		std::string state;
		if (!(words >> number >> local >> remote >> state) || state != listening) {
			continue;
		}
		const size_t colon = std::min(local.find(':'), local.size() - 1);
		uint32_t port = 0;
		const auto [end, error] =
			std::from_chars(local.data() + colon + 1, local.data() + local.size(), port, 16);
		if (error == std::errc() && !is_loopback(std::string_view(local).substr(0, colon))) {
			ports.insert(port);
		}
	}
}

// A rule of the bridge that sets a reputation mark sends to the mark's two ports what it matches.
void add_reputation_ports(const std::string &nft_ruleset, std::vector<RedirectPort> &ports)
{
	for (const MarkRule &rule : mark_rules(nft_ruleset)) {
		if (rule.mark >= MARK_REPUTATION_FIRST && rule.mark <= MARK_REPUTATION_LAST &&
		    rule.chain.starts_with("bridge ")) {
			const uint32_t number = rule.mark - MARK_REPUTATION_FIRST;
			ports.push_back({CP_PORT_REPUTATION_HTTP_FIRST + number, "nft " + rule.chain,
					 "web requests with its reputation mark"});
			ports.push_back({CP_PORT_REPUTATION_HTTPS_FIRST + number, "nft " + rule.chain,
					 "HTTPS requests with its reputation mark"});
		}
	}
}

} // namespace

void check_services(Machine &machine, const std::vector<StatusLine> &status, const std::string &nft_ruleset,
		    Findings &findings)
{
	const auto ipv4 = machine.read("/proc/net/tcp");
	if (!ipv4) {
		findings.omit({"services on redirect ports", "/proc/net/tcp cannot be read"});
		return;
	}
	std::set<uint32_t> ports;
	add_listening_ports(ipv4, ports);
	// A service that listens on all addresses of IPv6 takes connections of IPv4 too.
	add_listening_ports(machine.read("/proc/net/tcp6"), ports);
	std::vector<RedirectPort> all_needed = redirect_ports(status);
	add_reputation_ports(nft_ruleset, all_needed);
	// Who serves neither of its ports has no social login, and does not miss it.
	if (!ports.contains(CP_PORT_SOCIAL_LOGIN_HTTP) && !ports.contains(CP_PORT_SOCIAL_LOGIN_HTTPS)) {
		std::erase_if(all_needed, [](const RedirectPort &needed) {
			return needed.port == CP_PORT_SOCIAL_LOGIN_HTTP || needed.port == CP_PORT_SOCIAL_LOGIN_HTTPS;
		});
	}
	std::set<std::pair<std::string, uint32_t>> told;
	for (const RedirectPort &needed : all_needed) {
		if (!ports.contains(needed.port) && told.emplace(needed.sender, needed.port).second) {
			findings.add({"service", needed.sender,
				      "nobody listens on port " + std::to_string(needed.port) + ", to which " +
					      std::string(needed.requests) + " are sent",
				      "start the portal's web service there"});
		}
	}
}

} // namespace cpctl
