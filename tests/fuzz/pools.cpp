// SPDX-License-Identifier: GPL-2.0-only
#include "tests/fuzz/pools.h"

#include "captive_portal/captive_portal.h"

namespace captive_portal::test
{

namespace
{

constexpr const char *interfaces[] = {
	"wlan-1-1",
	"wlan-1-2",
	"wlan-1-8",
	"wlan-2-1",
	"wlan-3-8",
	"wlan-1-14",
	"wlan-2-15",
	"wlan-3-16",
	"wlan-1-17",
	"wlan-4-1",
	"wlan-2-0",
	"wlan-1-9",
	"wlan-0-9",
	"wlan-1-24",
	"wlan-1",
	"wlan",
	"wlan- 1-2",
	"wlan--1-17",
	"wlan-1--1",
	"wlan-1-1.50",
	"wlan-01-01",
	"eth0",
	"eth1",
	"br0",
	"lo",
	"all",
	"mirel",
	"",
	"wlan-4294967297-1",
};

constexpr Mac macs[] = {
	client_of_wlan_1_1.mac,
	second_client_of_wlan_1_1.mac,
	client_of_wlan_1_2.mac,
	client_of_wlan_2_1.mac,
	client_of_wlan_3_8.mac,
	wired_host.mac,
	router_mac,
	access_point.mac,
	broadcast.mac,
	Mac{},
	Mac{0x01, 0, 0x5e},
};

constexpr Ipv4Address addresses[] = {
	client_of_wlan_1_1.address, client_of_wlan_1_2.address,
	access_point.address,       router.address,
	upstream_server.address,    second_upstream_server.address,
	upstream_dns.address,       private_server.address,
	social_login.address,       dns_filter.address,
	logout_server.address,      broadcast.address,
	ipv4(0, 0, 0, 0),           ipv4(127, 0, 0, 1),
	ipv4(172, 31, 255, 255),    ipv4(203, 4, 113, 10),
	ipv4(224, 0, 0, 251),
};

constexpr uint16_t ports[] = {
	CP_PORT_HTTP,
	CP_PORT_HTTPS,
	CP_PORT_DNS,
	CP_PORT_DHCP_CLIENT,
	67,
	CP_PORT_LOGOUT,
	CP_PORT_SOCIAL_LOGIN_HTTP,
	CP_PORT_SOCIAL_LOGIN_HTTPS,
	85,
	CP_PORT_MIREL_HTTP,
	CP_PORT_MIREL_HTTPS,
	CP_PORT_DNS_FILTER_HTTP,
	CP_PORT_DNS_FILTER_HTTPS,
	CP_PORT_MODE_7_HTTP,
	CP_PORT_MODE_7_HTTPS,
	CP_PORT_REPUTATION_HTTP_FIRST,
	CP_PORT_REPUTATION_HTTPS_FIRST,
	CP_PORT_REPUTATION_LAST,
	CP_PORT_REPUTATION_LAST + 1,
	cp_http_port(0),
	cp_https_port(0),
	cp_http_port(1),
	cp_http_port(8),
	cp_http_port(23),
	cp_https_port(23),
	51000,
	51001,
};

constexpr uint32_t marks[] = {
	0,
	cp_interface_mark(0),
	cp_interface_mark(1),
	cp_interface_mark(8),
	cp_interface_mark(23),
	cp_interface_mark(7) + 1,
	MARK_MIREL_BLACK,
	MARK_LOGOUT,
	MARK_REPUTATION_FIRST - 1,
	MARK_REPUTATION_FIRST,
	MARK_REPUTATION_FIRST + 8,
	MARK_REPUTATION_LAST,
	MARK_DNS_FILTER,
};

constexpr const char *domains[] = {
	"www.example",       "example",    "a.example.example", CP_SOCIAL_LOGIN_HOST, "",
	"login.portal.test", "aaaaaaaaaa", "aaaaaaaaab.test",   "WWW.EXAMPLE",        "cdn.www.example.net",
};

constexpr const char *patterns[] = {
	"*.example",      "*",      "?",           "www.example",    "", "*.example*", "www*", "a?b*c",
	"*a*a*a*a*a*a*b", "**?**x", "login.*test", "*social-login*",
};

// Three of four bytes choose from the pool; the others ask for something else.
template <typename T, size_t size> const T *from_pool(const T (&pool)[size], uint8_t choice)
{
	return choice < 0xc0 ? &pool[choice % size] : nullptr;
}

} // namespace

std::string pick_interface(Input &input)
{
	const uint8_t choice = input.byte();
	const char *const *const known = from_pool(interfaces, choice);
	return known != nullptr ? *known : input.text(choice % 21);
}

std::string pick_wireless_interface(Input &input)
{
	const uint32_t row = input.below(CP_WIRELESS_INTERFACES);
	return "wlan-" + std::to_string(row / 8 + 1) + "-" + std::to_string(row % 8 + 1);
}

Mac pick_mac(Input &input)
{
	if (const Mac *const known = from_pool(macs, input.byte())) {
		return *known;
	}
	return input.number<Mac>();
}

Ipv4Address pick_address(Input &input)
{
	if (const Ipv4Address *const known = from_pool(addresses, input.byte())) {
		return *known;
	}
	return input.number<Ipv4Address>();
}

uint16_t pick_port(Input &input)
{
	if (const uint16_t *const known = from_pool(ports, input.byte())) {
		return *known;
	}
	return input.number<uint16_t>();
}

uint32_t pick_mark(Input &input)
{
	if (const uint32_t *const known = from_pool(marks, input.byte())) {
		return *known;
	}
	return input.number<uint32_t>();
}

std::string pick_domain(Input &input)
{
	const uint8_t choice = input.byte();
	const char *const *const known = from_pool(domains, choice);
	return known != nullptr ? *known : input.text(choice % 128);
}

std::string pick_pattern(Input &input)
{
	const uint8_t choice = input.byte();
	const char *const *const known = from_pool(patterns, choice);
	return known != nullptr ? *known : input.text(choice % 129);
}

} // namespace captive_portal::test
