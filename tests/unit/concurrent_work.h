// SPDX-License-Identifier: GPL-2.0-only
// What threads do at once in the tests of concurrency: a turn of each kind of traffic, and of each kind of command, with
// what must come of it whatever the others do.
#pragma once

#include <algorithm>
#include <array>
#include <random>
#include <string>

#include "base/debug_level.h"
#include "tests/support/checksum_validator.h"
#include "tests/support/packets.h"
#include "tests/unit/dns_messages.h"
#include "tests/unit/portal_case.h"

namespace captive_portal::test
{

// The bridge has two addresses and two MACs that change while hooks run.
inline constexpr Host moved_access_point = {{0x02, 0xaa, 0, 0, 0, 0x02}, ipv4(192, 168, 1, 2)};

inline constexpr std::array<const char *, 5> devices = {"wlan-1-1", "wlan-1-2", "wlan-3-8", "wlan-1-15", "eth0"};
inline constexpr std::array<Host, 4> clients = {client_of_wlan_1_1, second_client_of_wlan_1_1, client_of_wlan_1_2,
						client_of_wlan_3_8};
inline constexpr std::array<Host, 7> servers = {upstream_server, second_upstream_server, private_server, social_login,
						dns_filter,      logout_server,          access_point};
inline constexpr std::array<uint16_t, 4> web_ports = {80, 443, 8080, 22};
inline constexpr std::array<uint16_t, 9> reply_ports = {10081, 10082, 30451, 82, 83, 86, 88, 90, 1030};
inline constexpr std::array<uint8_t, 4> flags = {tcp_syn, tcp_ack, tcp_fin | tcp_ack, tcp_rst};

class Dice
{
public:
	explicit Dice(unsigned seed) : engine_(seed) {}

	uint32_t below(uint32_t end) { return static_cast<uint32_t>(engine_()) % end; }
	template <typename T, size_t size> const T &one_of(const std::array<T, size> &all) { return all[below(size)]; }

private:
	std::minstd_rand engine_;
};

// The 16-bit number at `offset`.
inline uint16_t port_at(const Frame &frame, size_t offset)
{
	return static_cast<uint16_t>(frame.at(offset) * 256 + frame.at(offset + 1));
}

inline bool starts_at(const Frame &frame, size_t offset, const Host &host)
{
	const uint32_t address = static_cast<uint32_t>(port_at(frame, offset)) << 16 | port_at(frame, offset + 2);
	return address == host.address.host();
}

inline bool has_mac(const Frame &frame, size_t offset, const Mac &mac)
{
	return std::equal(mac.begin(), mac.end(), frame.begin() + static_cast<ptrdiff_t>(offset));
}

// ---- Traffic --------------------------------------------------------------------------------------------------------

// A client's segment through both pre-routing hooks: it leaves as it came, or whole on its way to the access point.
inline void send_request_of(const Host &client, host::Machine &machine, Dice &dice)
{
	const Frame before = frame().from(client)
				     .to(dice.one_of(servers))
				     .tcp(static_cast<uint16_t>(50000 + dice.below(8)), dice.one_of(web_ports))
				     .flags(dice.one_of(flags))
				     .payload("request");
	host::PacketBuffer packet = packet_of(before);
	const host::PacketBuffer capture = packet.clone();
	const cp_verdict verdict = machine.pre_routing(packet, dice.one_of(devices));
	const Frame after = packet.frame();
	if (after != before) {
		EXPECT_EQ(verdict, CP_ACCEPT);
		EXPECT_EQ(packet.type, host::PacketType::host);
		EXPECT_TRUE(checksums_are_right(packet));
		// A reader may meet the two addresses' change, but never half an address. Before the first one is
		// learned, and while the tables are filled, both are zero.
		EXPECT_TRUE(starts_at(after, 30, access_point) || starts_at(after, 30, moved_access_point) ||
			    starts_at(after, 30, {{}, ipv4(0, 0, 0, 0)}));
		EXPECT_TRUE(has_mac(after, 0, access_point.mac) || has_mac(after, 0, moved_access_point.mac) ||
			    has_mac(after, 0, Mac{}));
	}
	EXPECT_EQ(capture.frame(), before);
}

inline void send_request(host::Machine &machine, Dice &dice)
{
	send_request_of(dice.one_of(clients), machine, dice);
}

// One of many clients, who come and go by crowd_commands().
inline Mac mac_in_crowd(uint32_t number)
{
	return {0x02, 0x41, 0, 0, static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
}
inline constexpr uint32_t crowd = 600;

inline void send_request_of_crowd(host::Machine &machine, Dice &dice)
{
	const uint32_t number = dice.below(crowd);
	const Ipv4Address address =
		ipv4(192, 168, static_cast<uint8_t>(2 + number / 200), static_cast<uint8_t>(10 + number % 200));
	send_request_of({mac_in_crowd(number), address}, machine, dice);
}

inline void send_reply(host::Machine &machine, Dice &dice)
{
	const Frame before = frame().from(dice.below(2) == 0 ? access_point : moved_access_point)
				     .to(dice.one_of(clients))
				     .tcp(dice.one_of(reply_ports), static_cast<uint16_t>(50000 + dice.below(8)))
				     .flags(dice.one_of(flags))
				     .payload("reply");
	host::PacketBuffer packet = packet_of(before, host::ChecksumState::partial);
	const host::PacketBuffer capture = packet.clone();
	const Frame unfinished = packet.frame();
	EXPECT_EQ(machine.post_routing(packet, dice.one_of(devices)), CP_ACCEPT);
	if (packet.frame() != unfinished) {
		EXPECT_TRUE(checksums_are_right(packet));
		const Frame after = frame_on_wire(packet);
		// The port, the address and the MAC come from one entry.
		const uint16_t port = port_at(after, 34);
		EXPECT_TRUE(std::find(web_ports.begin(), web_ports.end(), port) != web_ports.end()) << port;
		EXPECT_TRUE(has_mac(after, 6, router_mac) || has_mac(after, 6, access_point.mac));
	}
	EXPECT_EQ(capture.frame(), unfinished);
}

inline void send_other(host::Machine &machine, Dice &dice)
{
	const Host client = dice.one_of(clients);
	const FrameBuilder others[] = {
		frame().from(client).to(upstream_dns).udp(40000, 53), frame().from(client).to(broadcast).udp(68, 67),
		frame().from(client).to(access_point).icmp(8), frame().from(client).to(upstream_server).ipv6(6),
		frame().from(client).to(router).arp()};
	const Frame before = others[dice.below(5)];
	host::PacketBuffer packet(before);
	(void)machine.pre_routing(packet, dice.one_of(devices));
	EXPECT_EQ(packet.frame(), before);
}

// An answer of the name service on its way to a client: addresses that live for a few seconds, of names that the rules
// of garden_commands() permit or not.
inline void send_answer(host::Machine &machine, Dice &dice)
{
	constexpr std::array<const char *, 3> names = {"www.example.com", "www.example.org", "www.example.net"};
	constexpr uint16_t records = 3;
	DnsMessage message = answer_for(dice.one_of(names), records);
	for (uint16_t i = 0; i < records; ++i) {
		message.pointer(12).a_record(dice.below(6), 203, 0, static_cast<uint8_t>(dice.below(40)),
					     static_cast<uint8_t>(dice.below(100)));
	}
	const Frame before =
		frame().from(upstream_dns).to(dice.one_of(clients)).udp(53, 40000).payload(message.bytes());
	host::PacketBuffer packet(before);
	EXPECT_EQ(machine.post_routing(packet, dice.one_of(devices)), CP_ACCEPT);
	EXPECT_EQ(packet.frame(), before);
}

// ---- Commands -------------------------------------------------------------------------------------------------------

inline void portal_commands(host::Machine &machine, Dice &dice)
{
	constexpr std::array<uint32_t, 6> settings = {CP_WALLED_GARDEN,     CAPTIVE_PORTAL,   BLOCK_HTTPS,
						      CAPTIVE_PORTAL_MIREL, LOGOUT_IP_NOTIFY, DNS_FILTER_ENABLE};
	constexpr std::array<uint32_t, 5> values = {0, 1, 2, 7, 8};
	constexpr std::array<const char *, 3> addresses = {"", "1.2.3.4", "203.0.113.10"};
	cp_cmd setting{.cmd = dice.one_of(settings),
		       .iface = static_cast<int32_t>(dice.below(28)),
		       .enable_value = dice.one_of(values),
		       .value = ""};
	if (dice.below(2) == 0) {
		setting.iface = static_cast<int32_t>(dice.below(2));
	}
	set_text(setting.value, dice.one_of(addresses));
	EXPECT_EQ(command(machine, CAPTIVE_PORTAL_IOCTL_SET, setting), 0);

	cp_status status{};
	status.cmd = CP_GET_STATUS;
	status.iface = dice.below(25);
	EXPECT_EQ(command(machine, CAPTIVE_PORTAL_IOCTL_GET, status), 0);

	const Ipv4Address address = dice.below(2) == 0 ? router.address : private_server.address;
	EXPECT_EQ(command(machine, GATEWAY_IOCTL_SET, address), 0);
	uint32_t back = 0;
	EXPECT_EQ(command(machine, GATEWAY_IOCTL_GET, back), 0);
	// Start may still be filling the tables, and then takes the address back to none; half an address never comes.
	EXPECT_TRUE(back == router.address.raw || back == private_server.address.raw || back == 0) << back;
}

inline void garden_commands(host::Machine &machine, Dice &dice)
{
	constexpr std::array<uint32_t, 4> updates = {WALLED_GARDEN, UPDATE_DEFAULT_RULE, UPDATE_RULE,
						     UPDATE_MIREL_RULE};
	wg_cmd update{};
	update.cmd = dice.one_of(updates);
	update.iface = static_cast<int32_t>(dice.below(28));
	update.enable_value = dice.below(2);
	update.rule_number = static_cast<int32_t>(dice.below(4));
	update.rules[0] = address_rule(upstream_server.address, ipv4(255, 255, 255, 0));
	update.rules[1] = domain_rule("*.example.com");
	update.rules[2] = domain_rule("www.example.org");
	EXPECT_EQ(command(machine, WALLED_GARDEN_IOCTL_SET, update), 0);

	wg_cmd list{};
	list.cmd = dice.below(2) == 0 ? GET_WALLED_GARDEN_RULE : GET_DEFAULT_RULE;
	list.iface = static_cast<int32_t>(dice.below(24));
	EXPECT_EQ(command(machine, WALLED_GARDEN_IOCTL_GET, list), 0);
	EXPECT_LE(list.rule_number, 3) << "a list is replaced in one hold";
}

inline void gatekeeper_commands(host::Machine &machine, Dice &dice)
{
	constexpr std::array<uint32_t, 21> changes = {ADD_WHITELIST_MAC,
						      DEL_WHITELIST_MAC,
						      ADD_AUTH_MAC,
						      DEL_AUTH_MAC,
						      ADD_LOGIN_MAC,
						      DEL_LOGIN_MAC,
						      FLUSH_CAPTIVE_PORTAL_TABLE,
						      SET_OVRA_BEHAVIOR,
						      ADD_MAPPING_OWE_VAP,
						      FLUSH_MAPPING_OWE_VAP,
						      ADD_MIREL_BLACK_LIST_MAC,
						      DEL_MIREL_BLACK_LIST_MAC,
						      ADD_MIREL_WHITE_LIST_MAC,
						      DEL_MIREL_WHITE_LIST_MAC,
						      ADD_GA_WHITELIST_MAC,
						      DEL_GA_WHITELIST_MAC,
						      FLUSH_GA_WHITELIST_TABLE,
						      ADD_MAC_AUTH_FALLBACK,
						      DEL_MAC_AUTH_FALLBACK,
						      FLUSH_MAC_AUTH_FALLBACK,
						      DEL_LOGIN_MAC};
	constexpr std::array<const char *, 3> interfaces = {"wlan-1-1", "wlan-1-2", "wlan-3-8"};
	gk_cmd change{};
	change.cmd = dice.one_of(changes);
	change.behavior = dice.below(4);
	change.status = dice.below(3);
	set_text(change.iface, dice.one_of(interfaces));
	set_text(change.owe_iface, "wlan-1-15");
	const Mac mac = dice.one_of(clients).mac;
	std::copy(mac.begin(), mac.end(), change.mac);
	EXPECT_EQ(command(machine, GATEKEEPER_IOCTL_SET, change), 0);

	constexpr std::array<uint32_t, 9> lists = {
		GET_WHITELIST_MAC,        GET_AUTH_MAC,         GET_LOGIN_MAC,
		GET_OVRA_BEHAVIOR,        GET_MAPPING_OWE_VAP,  GET_MIREL_BLACK_LIST_MAC,
		GET_MIREL_WHITE_LIST_MAC, GET_GA_WHITELIST_MAC, GET_MAC_AUTH_FALLBACK};
	gk_list_reply list{};
	list.cmd = dice.one_of(lists);
	set_text(list.iface, dice.one_of(interfaces));
	set_text(list.owe_iface, "wlan-1-15");
	EXPECT_EQ(command(machine, GATEKEEPER_IOCTL_GET, list), 0);

	constexpr std::array<uint32_t, 4> checks = {CHECK_WHITELIST_MAC, CHECK_LOGIN_MAC, CHECK_GA_WHITELIST_MAC,
						    CHECK_MAC_AUTH_FALLBACK};
	gk_check_reply check{};
	check.cmd = dice.one_of(checks);
	set_text(check.iface, dice.one_of(interfaces));
	std::copy(mac.begin(), mac.end(), check.mac);
	EXPECT_EQ(command(machine, GATEKEEPER_IOCTL_CHECK, check), 0);
	EXPECT_LE(check.found, 1u);
}

// Clients come, and as many go, on two interfaces and on the MIREL white list.
inline void crowd_commands(host::Machine &machine, Dice &dice)
{
	constexpr std::array<gk_set_command, 5> additions = {ADD_LOGIN_MAC, ADD_AUTH_MAC, ADD_WHITELIST_MAC,
							     ADD_GA_WHITELIST_MAC, ADD_MIREL_WHITE_LIST_MAC};
	constexpr std::array<const char *, 2> interfaces = {"wlan-1-1", "wlan-3-8"};
	const gk_set_command addition = dice.one_of(additions);
	const char *const interface = dice.one_of(interfaces);
	change_clients(machine, addition, interface, mac_in_crowd(dice.below(crowd)));
	change_clients(machine, static_cast<gk_set_command>(addition + 1), interface, mac_in_crowd(dice.below(crowd)));
	if (dice.below(400) == 0) {
		change_clients(machine, FLUSH_CAPTIVE_PORTAL_TABLE, "all");
	}
}

inline void environment_commands(host::Machine &machine, Dice &dice)
{
	EXPECT_EQ(machine.ioctl(ENV_SET_DEBUG_LEVEL, dice.below(4)), 0);
	EXPECT_EQ(machine.compat_ioctl(ENV_SET_DEBUG_LEVEL, dice.below(4)), 0);
	EXPECT_EQ(machine.ioctl(5, 0), -1);
	EXPECT_EQ(machine.ioctl(CAPTIVE_PORTAL_IOCTL_SET, unmapped_address), -1);
	add_dns_arecord(arecord_bucket(upstream_server.address), dice.below(16), text_of_field("www.example.com"),
			upstream_server.address, 1 + dice.below(100));
}

} // namespace captive_portal::test
