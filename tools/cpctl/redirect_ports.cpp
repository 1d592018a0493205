// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/redirect_ports.h"

#include "captive_portal/control.h"
#include "captive_portal/portal.h"
#include "captive_portal/ports.h"
#include "cpctl/interface_names.h"

namespace cpctl
{

namespace
{

struct WebPorts {
	uint32_t http;
	uint32_t https;
};

// Whether a portal that is on sends HTTPS anywhere. A garden that is on opens it or drops it where it is blocked.
[[nodiscard]] bool redirects_https(int64_t block_https, int64_t garden)
{
	return block_https != CP_HTTPS_PASSES && (block_https != CP_HTTPS_BLOCKED || garden == 0);
}

class Ports
{
public:
	void take(const StatusLine &line)
	{
		if (line.keyword() == "module") {
			take_module(line);
		} else if (line.keyword() != "interface") {
			return;
		} else if (line.text("name") == interface_of_row(CP_ROW_MIREL).name) {
			take_mirel(line);
		} else if (line.has("login")) {
			take_interface(line);
		}
	}

	std::vector<RedirectPort> all() { return std::move(ports_); }

private:
	void add(uint32_t port, std::string sender, std::string_view requests)
	{
		ports_.push_back({port, std::move(sender), requests});
	}

	// Whatever the rows have: both addresses are asked for by admitted clients too, and one of them from wired ports.
	void take_module(const StatusLine &module)
	{
		filters_ = module.number("dns_filter") != 0;
		if (filters_) {
			add(CP_PORT_DNS_FILTER_HTTP, "dns-filter", "web requests to " CP_DNS_FILTER_ADDRESS);
			add(CP_PORT_DNS_FILTER_HTTPS, "dns-filter", "HTTPS requests to " CP_DNS_FILTER_ADDRESS);
		}
		add(CP_PORT_SOCIAL_LOGIN_HTTP, "social-login", "web requests to " CP_SOCIAL_LOGIN_ADDRESS);
		add(CP_PORT_SOCIAL_LOGIN_HTTPS, "social-login", "HTTPS requests to " CP_SOCIAL_LOGIN_ADDRESS);
	}

	void take_interface(const StatusLine &row)
	{
		const int64_t mode = row.number("mode");
		const bool passes = mode == CP_MODE_INTERNET_PASSES;
		const WebPorts own = {static_cast<uint32_t>(row.number("http_port")),
				      static_cast<uint32_t>(row.number("https_port"))};
		take_portal(row, passes ? WebPorts{CP_PORT_MODE_7_HTTP, CP_PORT_MODE_7_HTTPS} : own,
			    row.number("block_https"));
		if (is_logout_address(row.text("logout"))) {
			add(CP_PORT_LOGOUT, row.text("name"), "requests to the logout address");
		}
	}

	// It has a switch for HTTPS, which the module does not read.
	void take_mirel(const StatusLine &row)
	{
		take_portal(row, {CP_PORT_MIREL_HTTP, CP_PORT_MIREL_HTTPS}, CP_HTTPS_BLOCKED);
	}

	void take_portal(const StatusLine &row, WebPorts ports, int64_t block_https)
	{
		const int64_t mode = row.number("mode");
		if (mode == CP_MODE_OFF || mode == CP_MODE_DROP_TCP) {
			return;
		}
		add(ports.http, row.text("name"), "web requests before login");
		if (redirects_https(block_https, row.number("garden"))) {
			add(ports.https, row.text("name"), "HTTPS requests before login");
		}
	}

	// Clients that are logged in have one whatever the mode. Two addresses go elsewhere before it is looked at.
	[[nodiscard]] bool is_logout_address(const std::string &address) const
	{
		return !address.empty() && address != "0.0.0.0" && address != CP_SOCIAL_LOGIN_ADDRESS &&
		       (!filters_ || address != CP_DNS_FILTER_ADDRESS);
	}

	std::vector<RedirectPort> ports_;
	bool filters_ = false;
};

} // namespace

std::vector<RedirectPort> redirect_ports(const std::vector<StatusLine> &status)
{
	Ports ports;
	for (const StatusLine &line : status) {
		ports.take(line);
	}
	return ports.all();
}

} // namespace cpctl
