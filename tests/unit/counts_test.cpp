// SPDX-License-Identifier: GPL-2.0-only
// What is counted, and in whose name. Every reason of the table comes from a frame or an answer here.
#include "base/counters.h"

#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "garden/expiry_thread.h"
#include "platform/host/context.h"
#include "portal/connections.h"
#include "portal/interface_table.h"
#include "tests/support/control.h"
#include "tests/support/host_test.h"
#include "tests/support/packets.h"
#include "tests/unit/bridge_gatekeeper_fixture.h"
#include "tests/unit/dns_messages.h"
#include "tests/unit/garden_cache.h"

namespace captive_portal::test
{

namespace
{

using Counts = std::map<std::string, uint64_t>;

// "interface reason" of what was counted, from the file that says it.
Counts counts_of(host::Machine &machine)
{
	std::istringstream text(machine.status_text("counters"));
	Counts counts;
	std::string word;
	std::string interface;
	std::string reason;
	while (text >> word) {
		const size_t at = word.find('=');
		if (word.starts_with("interface=")) {
			interface = word.substr(at + 1);
		} else if (word.starts_with("reason=")) {
			reason = word.substr(at + 1);
		} else if (word.starts_with("value=")) {
			counts[interface + " " + reason] = std::stoull(word.substr(at + 1));
		}
	}
	return counts;
}

struct Row {
	std::string description;
	State state;
	FrameBuilder frame;
	std::string device;
	Counts counts;
	// Both pre-routing hooks see it one after the other, or the post-routing one alone.
	bool leaves = false;
	bool fail_make_writable = false;
	uint32_t mark = 0;
};

FrameBuilder from_client()
{
	return frame().from(client_of_wlan_1_1).to(upstream_server);
}

FrameBuilder syn_to(uint16_t port)
{
	return from_client().tcp(51000, port).syn();
}

State on()
{
	return portal_on(0);
}

State garden_on(std::initializer_list<wg_rule> rules)
{
	return [rules = std::vector(rules)](host::Machine &machine) {
		wg_cmd update{};
		update.cmd = UPDATE_RULE;
		update.iface = 0;
		update.enable_value = 1;
		for (const wg_rule &rule : rules) {
			update.rules[update.rule_number++] = rule;
		}
		ASSERT_EQ(command(machine, WALLED_GARDEN_IOCTL_SET, update), 0);
	};
}

// The client's redirected SYN, and with it the connection.
State redirected()
{
	return [](host::Machine &machine) {
		on()(machine);
		host::PacketBuffer packet = packet_of(syn_to(80));
		ASSERT_EQ(machine.pre_routing(packet, "wlan-1-1"), CP_ACCEPT);
	};
}

FrameBuilder reply()
{
	return frame().from(access_point).to(client_of_wlan_1_1).tcp(10081, 51000);
}

State listed_by(gk_set_command add)
{
	return all({on(), listed(add, "wlan-1-1", client_of_wlan_1_1)});
}

const std::string here = "wlan-1-1 ";

std::vector<Row> rows()
{
	const Counts marked = {{here + "marked-portal", 1}};
	const auto after_mark = [&](const std::string &reason, Counts more = {}) {
		more.merge(Counts(marked));
		more[here + reason] = 1;
		return more;
	};
	const auto redirected_counts = [&](Counts more) {
		more.merge(Counts{
			{here + "marked-portal", 1}, {here + "redirect-portal", 1}, {here + "connection-recorded", 1}});
		return more;
	};
	const Host mirel_client = client_of_wlan_1_1;
	return {
		// Clients that a table admits: the first one that lists them, in the order in which they are asked.
		{"login", listed_by(ADD_LOGIN_MAC), syn_to(80), "wlan-1-1", {{here + "login", 1}}},
		{"auth", listed_by(ADD_AUTH_MAC), syn_to(80), "wlan-1-1", {{here + "auth", 1}}},
		{"white", listed_by(ADD_WHITELIST_MAC), syn_to(80), "wlan-1-1", {{here + "white", 1}}},
		{"ga white", listed_by(ADD_GA_WHITELIST_MAC), syn_to(80), "wlan-1-1", {{here + "ga-white", 1}}},
		{"fallback",
		 listed_by(ADD_MAC_AUTH_FALLBACK),
		 syn_to(80),
		 "wlan-1-1",
		 {{here + "mac-auth-fallback", 1}}},
		{"MIREL white",
		 all({portal_on(27), listed(ADD_MIREL_WHITE_LIST_MAC, "", mirel_client)}),
		 syn_to(80),
		 "wlan-1-1",
		 {{here + "mirel-white", 1}}},
		{"login and auth",
		 all({listed_by(ADD_AUTH_MAC), listed_by(ADD_LOGIN_MAC)}),
		 syn_to(80),
		 "wlan-1-1",
		 {{here + "login", 1}}},
		{"auth and white",
		 all({listed_by(ADD_WHITELIST_MAC), listed_by(ADD_AUTH_MAC)}),
		 syn_to(80),
		 "wlan-1-1",
		 {{here + "auth", 1}}},
		{"white and ga white",
		 all({listed_by(ADD_GA_WHITELIST_MAC), listed_by(ADD_WHITELIST_MAC)}),
		 syn_to(80),
		 "wlan-1-1",
		 {{here + "white", 1}}},
		{"ga white and fallback",
		 all({listed_by(ADD_MAC_AUTH_FALLBACK), listed_by(ADD_GA_WHITELIST_MAC)}),
		 syn_to(80),
		 "wlan-1-1",
		 {{here + "ga-white", 1}}},
		{"MIREL white and login",
		 all({portal_on(27), listed(ADD_MIREL_WHITE_LIST_MAC, "", mirel_client), listed_by(ADD_LOGIN_MAC)}),
		 syn_to(80),
		 "wlan-1-1",
		 {{here + "mirel-white", 1}}},
		{"login, of the last interface",
		 all({portal_on(23), listed(ADD_LOGIN_MAC, "wlan-3-8", client_of_wlan_1_1)}),
		 syn_to(80),
		 "wlan-3-8",
		 {{"wlan-3-8 login", 1}}},
		{"MIREL black",
		 all({portal_on(27), listed(ADD_MIREL_BLACK_LIST_MAC, "", mirel_client)}),
		 syn_to(80),
		 "wlan-1-1",
		 {{here + "marked-mirel-black", 1}, {"mirel redirect-mirel", 1}, {"mirel connection-recorded", 1}}},
		{"DNS filter",
		 dns_filter_on(),
		 frame().from(client_of_wlan_1_1).to(dns_filter).tcp(51000, 80).syn(),
		 "wlan-1-1",
		 {{here + "marked-dns-filter", 1},
		  {"special-mark redirect-dns-filter", 1},
		  {"special-mark connection-recorded", 1}}},
		{"logout",
		 all({listed_by(ADD_LOGIN_MAC), logout_address(0, "1.2.3.4")}),
		 frame().from(client_of_wlan_1_1).to(logout_server).tcp(51000, 80).syn(),
		 "wlan-1-1",
		 {{here + "marked-logout", 1},
		  {"special-mark redirect-logout", 1},
		  {"special-mark connection-recorded", 1}}},
		{"disconnected, all pass",
		 behavior("wlan-1-1", 1, 2),
		 syn_to(80),
		 "wlan-1-1",
		 {{here + "pass-disconnected", 1}}},
		{"disconnected, DHCP passes",
		 behavior("wlan-1-1", 2, 2),
		 from_client().udp(68, 67),
		 "wlan-1-1",
		 {{here + "pass-disconnected", 1}}},
		{"disconnected, else drops",
		 behavior("wlan-1-1", 2, 2),
		 syn_to(80),
		 "wlan-1-1",
		 {{here + "drop-disconnected", 1}}},
		{"unknown behaviour",
		 behavior("wlan-1-1", 7, 2),
		 syn_to(80),
		 "wlan-1-1",
		 {{here + "drop-disconnected", 1}}},
		{"bad sender", on(), syn_to(80).source_mac({1, 0, 0, 0, 0, 1}), "wlan-1-1", {{"other bad-sender", 1}}},
		{"wired to a portal port",
		 {},
		 frame().from(wired_host).to(access_point).tcp(51000, 10081).syn(),
		 "eth0",
		 {{"other portal-port-wired", 1}}},
		{"to another interface's port",
		 on(),
		 frame().from(client_of_wlan_1_1).to(access_point).tcp(51000, 10082).syn(),
		 "wlan-1-1",
		 {{here + "portal-port-wireless", 1}}},
		{"no row", on(), syn_to(80), "wlan-9-9", {{"other unknown-interface", 1}}},
		{"portal off", {}, syn_to(80), "wlan-1-1", {{here + "no-portal", 1}}},
		// What no client is asked for counts nothing.
		{"wired", {}, frame().from(wired_host).to(client_of_wlan_1_1).tcp(80, 51000), "eth0", {}},
		{"ARP", on(), frame().from(client_of_wlan_1_1).to(broadcast).arp(), "wlan-1-1", {}},
		// The portal check.
		{"DNS", on(), from_client().udp(51000, 53), "wlan-1-1", after_mark("dhcp-dns")},
		{"mode 7", portal_on(0, 7), syn_to(80), "wlan-1-1", after_mark("internet-passes")},
		{"mode 7, private", portal_on(0, 7),
		 frame().from(client_of_wlan_1_1).to(private_server).tcp(51000, 80).syn(), "wlan-1-1",
		 after_mark("redirect-internet-passes", {{"mode-7 connection-recorded", 1}})},
		{"the access point's web port", on(),
		 frame().from(client_of_wlan_1_1).to(access_point).tcp(51000, 80).syn(), "wlan-1-1",
		 after_mark("access-point-web")},
		{"HTTPS passes", all({on(), [](host::Machine &machine) { set_portal(machine, BLOCK_HTTPS, 0, 0); }}),
		 syn_to(443), "wlan-1-1", after_mark("https-passes")},
		{"walled garden",
		 all({on(), garden_on({address_rule(upstream_server.address, ipv4(255, 255, 255, 255))})}), syn_to(80),
		 "wlan-1-1", after_mark("walled-garden")},
		{"HTTPS that no garden has", all({on(), garden_on({})}), syn_to(443), "wlan-1-1",
		 after_mark("https-blocked")},
		{"no bridge", all({on(), [](host::Machine &machine) { machine.devices.remove("br0"); }}), syn_to(80),
		 "wlan-1-1", after_mark("no-bridge-address")},
		{"other protocol", on(), from_client().protocol(47).payload("x"), "wlan-1-1",
		 after_mark("other-protocol")},
		{"IPv6", on(), from_client().ipv6(59), "wlan-1-1", after_mark("ipv6")},
		{"ICMP", on(), from_client().icmp(8), "wlan-1-1", after_mark("icmp")},
		{"UDP", on(), from_client().udp(51000, 443), "wlan-1-1", after_mark("udp")},
		{"mode 8", portal_on(0, 8), syn_to(80), "wlan-1-1", after_mark("drop-tcp")},
		{"other port", on(), syn_to(22), "wlan-1-1", after_mark("tcp-port")},
		{"other port of the social login", on(),
		 frame().from(client_of_wlan_1_1).to(social_login).tcp(51000, 22).syn(), "wlan-1-1",
		 after_mark("tcp-port")},
		{"no protocol", on(), syn_to(80).truncate_network(9), "wlan-1-1", after_mark("cut-short")},
		{"no ports", on(), syn_to(80).truncate_network(22), "wlan-1-1", after_mark("cut-short")},
		{"no UDP ports", on(), from_client().udp(51000, 53).truncate_network(22), "wlan-1-1",
		 after_mark("cut-short")},
		{"redirected", on(), syn_to(80), "wlan-1-1", redirected_counts({})},
		{"cannot be rewritten", on(), syn_to(80), "wlan-1-1",
		 after_mark("not-rewritable", {{here + "connection-recorded", 1}}), false, true},
		{"too short to be rewritten", on(), syn_to(80).truncate_network(34), "wlan-1-1",
		 after_mark("not-rewritable")},
		{"social login", on(), frame().from(client_of_wlan_1_1).to(social_login).tcp(51000, 80).syn(),
		 "wlan-1-1", after_mark("redirect-social-login", {{"social-login connection-recorded", 1}})},
		{"social login of an admitted client",
		 listed_by(ADD_LOGIN_MAC),
		 frame().from(client_of_wlan_1_1).to(social_login).tcp(51000, 80).syn(),
		 "wlan-1-1",
		 {{here + "login", 1},
		  {"social-login redirect-social-login", 1},
		  {"social-login connection-recorded", 1}}},
		{"reputation rule",
		 {},
		 syn_to(80),
		 "wlan-1-1",
		 {{here + "no-portal", 1},
		  {"special-mark redirect-reputation", 1},
		  {"special-mark connection-recorded", 1}},
		 false,
		 false,
		 MARK_REPUTATION_LAST},
		{"special mark, other port",
		 {},
		 syn_to(22),
		 "wlan-1-1",
		 {{here + "no-portal", 1}, {"special-mark tcp-port", 1}},
		 false,
		 false,
		 MARK_DNS_FILTER},
		{"special mark, no bridge",
		 [](host::Machine &machine) { machine.devices.remove("br0"); },
		 syn_to(80),
		 "wlan-1-1",
		 {{here + "no-portal", 1},
		  {"special-mark no-bridge-address", 1},
		  {"special-mark connection-recorded", 1}},
		 false,
		 false,
		 MARK_DNS_FILTER},
		{"special mark, cannot be rewritten",
		 {},
		 syn_to(80),
		 "wlan-1-1",
		 {{here + "no-portal", 1}, {"special-mark not-rewritable", 1}, {"special-mark connection-recorded", 1}},
		 false,
		 true,
		 MARK_DNS_FILTER},
		// Replies.
		{"reply", redirected(), reply(), "wlan-1-1", redirected_counts({{here + "reply-rewritten", 1}}), true},
		{"last reply", redirected(), reply().fin_ack(), "wlan-1-1",
		 redirected_counts({{here + "reply-rewritten", 1}, {here + "connection-ended", 1}}), true},
		{"reply that cannot be rewritten", redirected(), reply(), "wlan-1-1", redirected_counts({}), true,
		 true},
		{"unknown reply", on(), reply(), "wlan-1-1", {{here + "reply-unknown", 1}}, true},
	};
}

class CounterRow : public ::testing::TestWithParam<size_t>
{
};

TEST_P(CounterRow, CountsOnce)
{
	const Row row = rows().at(GetParam());
	SCOPED_TRACE(row.description);
	host::Machine machine;
	build_access_point(machine);
	load_module(machine);
	if (row.state) {
		row.state(machine);
	}
	// Learned from any segment of an unadmitted client.
	store_word(ap_addr, access_point.address);
	host::PacketBuffer packet = packet_of(row.frame.bytes());
	packet.mark = row.mark;
	packet.fail_make_writable = row.fail_make_writable;
	static_cast<void>(row.leaves ? machine.post_routing(packet, row.device) :
				       machine.pre_routing(packet, row.device));
	EXPECT_EQ(counts_of(machine), row.counts);
}

// The sum is the test of the table: a reason that no row here brings about is one that nobody has seen.
TEST(CounterRows, BringEveryReasonAboutButThoseOfAnswersAndOfLostConnections)
{
	std::set<std::string> seen;
	for (const Row &row : rows()) {
		for (const auto &[name, value] : row.counts) {
			seen.insert(name.substr(name.find(' ') + 1));
		}
	}
	EXPECT_EQ(seen.size(), size_t{CP_REASON_COUNT} - 8);
}

INSTANTIATE_TEST_SUITE_P(Counters, CounterRow, ::testing::Range<size_t>(0, rows().size()));

class Counters : public HostTest
{
protected:
	void SetUp() override
	{
		build_access_point(machine);
		load_module();
	}

	void answer(uint16_t count)
	{
		DnsMessage message = answer_for("www.example", count);
		for (uint32_t i = 0; i < count; ++i) {
			message.pointer(12).record(dns_a, 60, 4).u32(0x0a000000 + i);
		}
		host::PacketBuffer packet = packet_of(
			frame().from(upstream_dns).to(client_of_wlan_1_1).udp(53, 40000).payload(message.bytes()),
			host::ChecksumState::finished, host::Layout::headers_only);
		EXPECT_EQ(machine.post_routing(packet, "wlan-1-1"), CP_ACCEPT);
	}
};

TEST_F(Counters, CountAnswersAndTheirAddresses)
{
	answer(3);
	EXPECT_EQ(counts_of(machine), (Counts{{"other dns-answer", 1}, {"other address-stored", 3}}));
	answer(4);
	EXPECT_EQ(counts_of(machine),
		  (Counts{{"other dns-answer", 2}, {"other address-stored", 4}, {"other address-refreshed", 3}}));
	machine.clock.advance(61);
	machine.threads.advance(EXPIRY_PERIOD_TICKS);
	EXPECT_EQ(counts_of(machine)["other address-expired"], 4u);
	for (uint32_t i = 0; i < ARECORD_LIMIT; ++i) {
		add({i << 8}, "a.example");
	}
	answer(1);
	EXPECT_EQ(counts_of(machine)["other address-refused"], 1u);
}

TEST_F(Counters, CountWhatIsLostForWantOfMemory)
{
	const auto connect = [](uint16_t port) {
		add_connection(3, {client_of_wlan_1_1.address, be16::from_host(port)},
			       {upstream_server.address, be16::from_host(80)}, {{2, 0, 0, 0, 0, 1}});
	};
	machine.memory.fail_all_allocations(true);
	// Four addresses are more than is always linear, so a copy is needed.
	answer(4);
	add(ipv4(192, 0, 2, 1), "a.example");
	connect(1);
	machine.memory.fail_all_allocations(false);
	EXPECT_EQ(counts_of(machine), (Counts{{"other dns-unreadable", 1},
					      {"other address-no-memory", 1},
					      {"wlan-1-4 connection-no-memory", 1}}));
	// Sooner or later the index needs memory too, behind the entry's.
	uint16_t port = 1;
	for (; counts_of(machine)["wlan-1-4 connection-no-memory"] == 1; ++port) {
		ASSERT_LT(port, 2000);
		machine.memory.fail_allocation(2);
		connect(port);
	}
	EXPECT_EQ(counts_of(machine)["wlan-1-4 connection-recorded"], port - 2u);
}

TEST_F(Counters, StartAtZeroWithEachLoad)
{
	answer(1);
	EXPECT_EQ(machine.unload(), 0);
	EXPECT_EQ(machine.load(), 0);
	EXPECT_EQ(counts_of(machine), Counts());
}

TEST_F(Counters, AreDoneWithoutWhereThereIsNoMemory)
{
	EXPECT_EQ(machine.unload(), 0);
	machine.counters.fail_next_creation(-12);
	EXPECT_EQ(machine.load(), 0);
	answer(1);
	EXPECT_EQ(counts_of(machine), Counts());
	EXPECT_EQ(machine.unload(), 0);
}

} // namespace

} // namespace captive_portal::test
