// SPDX-License-Identifier: GPL-2.0-only
#include <algorithm>
#include <charconv>
#include <set>
#include <sstream>

#include "captive_portal/portal.h"
#include "captive_portal/ports.h"
#include "cpctl/findings.h"
#include "cpctl/interface_names.h"

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

struct NeededPort {
	uint32_t port;
	std::string_view reason;
};

[[nodiscard]] std::vector<NeededPort> ports_of_mode(const StatusLine &row)
{
	const int64_t mode = row.number("mode");
	if (mode == CP_MODE_OFF || mode == CP_MODE_DROP_TCP) {
		return {};
	}
	uint32_t http = static_cast<uint32_t>(row.number("http_port"));
	uint32_t https = static_cast<uint32_t>(row.number("https_port"));
	if (row.text("name") == interface_of_row(CP_ROW_MIREL).name) {
		http = CP_PORT_MIREL_HTTP;
		https = CP_PORT_MIREL_HTTPS;
	} else if (mode == CP_MODE_INTERNET_PASSES) {
		http = CP_PORT_MODE_7_HTTP;
		https = CP_PORT_MODE_7_HTTPS;
	}
	std::vector<NeededPort> needed = {{http, "web requests before login"}};
	const int64_t block_https = row.number("block_https");
	if (block_https != CP_HTTPS_PASSES && block_https != CP_HTTPS_BLOCKED) {
		needed.push_back({https, "HTTPS before login"});
	}
	if (!row.text("logout").empty()) {
		needed.push_back({CP_PORT_LOGOUT, "requests to the logout address"});
	}
	return needed;
}

} // namespace

void check_services(Machine &machine, const std::vector<StatusLine> &status, Findings &findings)
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
	for (const StatusLine &row : status) {
		// Three of the rows have no clients of their own.
		const bool has_clients = row.keyword() == "interface" &&
					 (row.has("login") || row.text("name") == interface_of_row(CP_ROW_MIREL).name);
		if (!has_clients) {
			continue;
		}
		for (const NeededPort &needed : ports_of_mode(row)) {
			if (!ports.contains(needed.port)) {
				findings.add({"service", row.text("name"),
					      "nobody listens on port " + std::to_string(needed.port) + ", to which " +
						      std::string(needed.reason) + " are sent",
					      "start the portal's web service there"});
			}
		}
	}
}

} // namespace cpctl
