// SPDX-License-Identifier: GPL-2.0-only
// What the gatekeeper hook lets through untested, whose frames it judges, and by which row.
#include <atomic>
#include <thread>

#include "tests/support/host_test.h"
#include "tests/support/packets.h"
#include "tests/unit/bridge_gatekeeper_fixture.h"

namespace captive_portal::test
{

namespace
{

constexpr Mac zero_mac = {};
constexpr Mac multicast_mac = {0x01, 0x00, 0x5e, 0x00, 0x00, 0xfb};
constexpr Mac group_bit_alone = {0x03, 0x11, 0x01, 0x01, 0x01, 0x00};

class GatekeeperFrontRow : public PacketCaseTest
{
};

const PacketCase front_rows[] = {
	{.description = "EtherType 886B passes from a zero source",
	 .frame = frame().from(client_of_wlan_1_1).to(broadcast).source_mac(zero_mac).ether_type(0x886b),
	 .device = "wlan-1-1"},
	{.description = "EtherType 886C passes from a multicast source",
	 .frame = frame().from(client_of_wlan_1_1).to(broadcast).source_mac(multicast_mac).ether_type(0x886c),
	 .device = "wlan-1-1"},
	{.description = "EtherType 886C passes on a wireless interface that does not exist",
	 .frame = frame().from(client_of_wlan_1_1).to(broadcast).ether_type(0x886c),
	 .device = "wlan-9-9"},
	{.description = "EtherType 886A is not exempt",
	 .frame = frame().from(client_of_wlan_1_1).to(broadcast).source_mac(zero_mac).ether_type(0x886a),
	 .device = "wlan-1-1",
	 .verdict = CP_DROP},
	{.description = "EtherType 886D is not exempt",
	 .frame = frame().from(client_of_wlan_1_1).to(broadcast).source_mac(zero_mac).ether_type(0x886d),
	 .device = "wlan-1-1",
	 .verdict = CP_DROP},

	{.description = "a multicast source is dropped on a wireless interface",
	 .frame = frame().from(client_of_wlan_1_1).to(upstream_server).source_mac(multicast_mac).tcp(51000, 80),
	 .device = "wlan-1-1",
	 .verdict = CP_DROP},
	{.description = "a broadcast source is dropped on the wired side",
	 .frame = frame().from(wired_host).to(upstream_server).source_mac(broadcast.mac).tcp(51000, 80),
	 .device = "eth0",
	 .verdict = CP_DROP},
	{.description = "the group bit alone makes a source bad",
	 .frame = frame().from(wired_host).to(upstream_server).source_mac(group_bit_alone).udp(5000, 53),
	 .device = "eth0",
	 .verdict = CP_DROP},
	{.description = "a zero source is dropped on the wired side",
	 .frame = frame().from(wired_host).to(upstream_server).source_mac(zero_mac).tcp(51000, 80),
	 .device = "eth0",
	 .verdict = CP_DROP},
	{.description = "a zero source is dropped whatever the EtherType",
	 .frame = frame().from(client_of_wlan_1_1).to(broadcast).source_mac(zero_mac).arp(),
	 .device = "wlan-1-1",
	 .verdict = CP_DROP},
	{.description = "one byte of a source that is not zero makes it good",
	 .frame = frame().from(wired_host).to(upstream_server).source_mac({0, 0, 0, 0, 0, 1}).tcp(51000, 80),
	 .device = "eth0"},
	{.description = "a frame that is cut in its source address is no bad one",
	 .frame = frame().from(wired_host).to(upstream_server).source_mac(zero_mac).truncate(11),
	 .device = "eth0"},
	{.description = "a frame that is cut in its EtherType is judged by its source",
	 .frame = frame().from(wired_host).to(upstream_server).source_mac(zero_mac).truncate(13),
	 .device = "eth0",
	 .verdict = CP_DROP},
	{.description = "a frame that is cut in its EtherType passes on a wireless interface",
	 .frame = frame().from(client_of_wlan_1_1).to(upstream_server).truncate(13),
	 .device = "wlan-1-1",
	 .state = portal_on(0)},
	{.description = "an empty frame passes", .frame = Frame(), .device = "wlan-1-1", .state = portal_on(0)},

	{.description = "ARP passes on a wireless interface",
	 .frame = frame().from(client_of_wlan_1_1).to(broadcast).arp(),
	 .device = "wlan-1-1",
	 .state = portal_on(0)},
	{.description = "ARP passes before the name is parsed",
	 .frame = frame().from(client_of_wlan_1_1).to(broadcast).arp(),
	 .device = "wlan-x",
	 .state = portal_on(0)},
	{.description = "ARP passes on an OWE interface that is not mapped",
	 .frame = frame().from(client_of_wlan_1_1).to(broadcast).arp(),
	 .device = "wlan-1-14"},
	{.description = "EAPOL passes on a wireless interface",
	 .frame = frame().from(client_of_wlan_1_1).to(access_point).ether_type(0x888e),
	 .device = "wlan-1-1",
	 .state = portal_on(0)},
	{.description = "a tag in the buffer hides IPv4",
	 .frame = frame().from(client_of_wlan_1_1).to(access_point).vlan(7).tcp(51000, 10082).syn(),
	 .device = "wlan-1-1",
	 .state = portal_on(0)},
	{.description = "IPv6 of an unadmitted client is marked",
	 .frame = frame().from(client_of_wlan_1_1).to(upstream_server).ipv6(58),
	 .device = "wlan-1-1",
	 .state = portal_on(0),
	 .mark = 5200},

	{.description = "a name that is not wlan belongs to the wired side",
	 .frame = web_request(wired_host),
	 .device = "eth0",
	 .mark_in = 77,
	 .state = portal_on(0),
	 .mark = 77},
	{.description = "three letters of wlan are not enough",
	 .frame = web_request(wired_host),
	 .device = "wla",
	 .state = portal_on(0)},
	{.description = "the first four letters are compared in their case",
	 .frame = web_request(wired_host),
	 .device = "Wlan-1-1",
	 .state = portal_on(0)},
	{.description = "wlan further back in a name does not count",
	 .frame = web_request(wired_host),
	 .device = "x-wlan-1-1",
	 .state = portal_on(0)},
};

INSTANTIATE_TEST_SUITE_P(Front, GatekeeperFrontRow, ::testing::ValuesIn(front_rows), packet_case_name);

TEST_P(GatekeeperFrontRow, GivesVerdictAndMark)
{
	run_packet_case(ebt_gate_keeper, GetParam());
}

// The row of a name: the one row whose portal is on gives its mark.
struct NameRow {
	const char *device;
	int32_t row;
	uint32_t mark;
};

class GatekeeperNameRow : public ::testing::TestWithParam<NameRow>
{
};

INSTANTIATE_TEST_SUITE_P(Names, GatekeeperNameRow,
			 ::testing::Values(NameRow{"wlan-1-1", 0, 5200}, NameRow{"wlan-1-8", 7, 5207},
					   NameRow{"wlan-2-1", 8, 5220}, NameRow{"wlan-2-8", 15, 5227},
					   NameRow{"wlan-3-1", 16, 5240}, NameRow{"wlan-3-8", 23, 5247},
					   // Only the combined number is checked.
					   NameRow{"wlan-1-9", 8, 5220}, NameRow{"wlan-2-0", 7, 5207},
					   NameRow{"wlan-0-9", 0, 5200}, NameRow{"wlan-1-13", 12, 5224},
					   NameRow{"wlan-1-17", 16, 5240}, NameRow{"wlan-1-24", 23, 5247},
					   NameRow{"wlan--1-25", 8, 5220}, NameRow{"wlan-4--8", 15, 5227},
					   // As the kernel scans numbers.
					   NameRow{"wlan- 1- 2", 1, 5201}, NameRow{"wlan-01-002", 1, 5201},
					   NameRow{"wlan-1-2.100", 1, 5201},
					   // Fifteen characters of a name are looked at: 12 would be row 11.
					   NameRow{"wlan-1-000000012", 0, 5200}));

TEST_P(GatekeeperNameRow, IsTheRowOfTheName)
{
	const NameRow &row = GetParam();
	run_packet_case(ebt_gate_keeper, {.description = row.device,
					  .frame = web_request(client_of_wlan_1_1),
					  .device = row.device,
					  .state = portal_on(row.row),
					  .mark = row.mark});
}

class GatekeeperNoRow : public ::testing::TestWithParam<const char *>
{
};

INSTANTIATE_TEST_SUITE_P(Names, GatekeeperNoRow,
			 ::testing::Values("wlan-1-0", "wlan-1-25", "wlan-4-1", "wlan-0-1", "wlan-3-9", "wlan-9-9",
					   "wlan", "wlan0", "wlan-", "wlan-1", "wlan-1-", "wlan-a-b", "wlan-+1-1",
					   "wlan-0x1-1", "wlan1-1", "wlan-1 -1", "wlan-1x1", "wlan-1.1",
					   // OWE companions: without a mapping, and of radios that do not exist.
					   "wlan-1-14", "wlan-2-15", "wlan-3-16", "wlan-4-14", "wlan-0-14"));

TEST_P(GatekeeperNoRow, DropsIpSilently)
{
	run_packet_case(ebt_gate_keeper, {.description = "IPv4",
					  .frame = web_request(client_of_wlan_1_1),
					  .device = GetParam(),
					  .verdict = CP_DROP});
	run_packet_case(ebt_gate_keeper, {.description = "IPv6",
					  .frame = frame().from(client_of_wlan_1_1).to(upstream_server).ipv6(58),
					  .device = GetParam(),
					  .verdict = CP_DROP});
}

class GatekeeperOweRow : public PacketCaseTest
{
};

const PacketCase owe_rows[] = {
	{.description = "a mapped OWE interface has the portal of its pair",
	 .frame = web_request(client_of_wlan_1_2),
	 .device = "wlan-2-15",
	 .state = all({mapped("wlan-2-15", "wlan-1-2"), portal_on(1)}),
	 .mark = 5201},
	{.description = "a mapped OWE interface has the clients of its pair",
	 .frame = web_request(client_of_wlan_1_2),
	 .device = "wlan-3-16",
	 .state = all({mapped("wlan-3-16", "wlan-1-2"), portal_on(1),
		       listed(ADD_LOGIN_MAC, "wlan-1-2", client_of_wlan_1_2)})},
	{.description = "a mapped OWE interface has the redirect ports of its pair",
	 .frame = frame().from(client_of_wlan_1_2).to(access_point).tcp(51000, 10082).syn(),
	 .device = "wlan-1-14",
	 .state = all({mapped("wlan-1-14", "wlan-1-2"), portal_on(1)}),
	 .mark = 5201},
	{.description = "another OWE interface stays without a row",
	 .frame = web_request(client_of_wlan_1_2),
	 .device = "wlan-2-14",
	 .state = all({mapped("wlan-2-15", "wlan-1-2"), portal_on(1)}),
	 .verdict = CP_DROP},
	{.description = "the mapping of wlan 1 17 is that of wlan 2 14",
	 .frame = web_request(client_of_wlan_1_2),
	 .device = "wlan-2-14",
	 .state = all({mapped("wlan-1-17", "wlan-1-2"), portal_on(1)}),
	 .mark = 5201},
	{.description = "a name is mapped once",
	 .frame = web_request(client_of_wlan_1_2),
	 .device = "wlan-1-14",
	 .state = all({mapped("wlan-1-14", "wlan-1-15"), mapped("wlan-1-15", "wlan-1-2"), portal_on(1), portal_on(14)}),
	 .mark = 5226},
	{.description = "a pair without a row drops",
	 .frame = web_request(client_of_wlan_1_2),
	 .device = "wlan-1-14",
	 .state = mapped("wlan-1-14", "wlan-4-1"),
	 .verdict = CP_DROP},
	{.description = "a pair that is no wireless name drops",
	 .frame = web_request(client_of_wlan_1_2),
	 .device = "wlan-1-14",
	 .state = mapped("wlan-1-14", "eth0"),
	 .verdict = CP_DROP},
	{.description = "a pair sent without NUL counts to its fifteenth character",
	 .frame = web_request(client_of_wlan_1_2),
	 .device = "wlan-1-14",
	 .state = all({mapped("wlan-1-14", "wlan-1-000000012"), portal_on(0)}),
	 .mark = 5200},
	{.description = "a cleared mapping drops",
	 .frame = web_request(client_of_wlan_1_2),
	 .device = "wlan-2-15",
	 .state = all({mapped("wlan-2-15", "wlan-1-2"),
		       [](host::Machine &machine) { change_clients(machine, FLUSH_MAPPING_OWE_VAP, ""); }}),
	 .verdict = CP_DROP},
};

INSTANTIATE_TEST_SUITE_P(Owe, GatekeeperOweRow, ::testing::ValuesIn(owe_rows), packet_case_name);

TEST_P(GatekeeperOweRow, GivesVerdictAndMark)
{
	run_packet_case(ebt_gate_keeper, GetParam());
}

class BridgeGatekeeper : public HostTest
{
protected:
	void SetUp() override
	{
		build_access_point(machine);
		load_module();
	}

	struct Outcome {
		cp_verdict verdict;
		uint32_t mark;
		friend bool operator==(const Outcome &, const Outcome &) = default;
	};

	[[nodiscard]] static Outcome pass(const Frame &frame, std::optional<std::string> device)
	{
		host::PacketBuffer packet = packet_of(frame);
		packet.in_name = std::move(device);
		const cp_verdict verdict = host::run_hook(ebt_gate_keeper, packet);
		return {verdict, packet.mark};
	}
};

TEST_F(BridgeGatekeeper, APacketWithoutIngressDeviceIsOfTheWiredSide)
{
	set_portal(machine, CAPTIVE_PORTAL, 0, 1);
	EXPECT_EQ(pass(web_request(client_of_wlan_1_1), std::nullopt), (Outcome{CP_ACCEPT, 0}));
	EXPECT_EQ(pass(frame().from(client_of_wlan_1_1).to(access_point).tcp(51000, 86).syn(), std::nullopt),
		  (Outcome{CP_DROP, 0}));
}

TEST_F(BridgeGatekeeper, TakesNoLockForTheWiredSide)
{
	const uint64_t gatekeeper = machine.locks.acquisitions(CP_LOCK_GATEKEEPER);
	const uint64_t portal = machine.locks.acquisitions(CP_LOCK_CP);
	EXPECT_EQ(pass(frame().from(wired_host).to(access_point).tcp(51000, 80).syn(), "eth0").verdict, CP_ACCEPT);
	EXPECT_EQ(pass(frame().from(wired_host).to(access_point).tcp(51000, 30451).syn(), "eth0").verdict, CP_DROP);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_GATEKEEPER), gatekeeper);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_CP), portal);
}

TEST_F(BridgeGatekeeper, TakesNoLockForAClient)
{
	change_clients(machine, ADD_LOGIN_MAC, "wlan-1-1", client_of_wlan_1_1.mac);
	const uint64_t gatekeeper = machine.locks.acquisitions(CP_LOCK_GATEKEEPER);
	const uint64_t portal = machine.locks.acquisitions(CP_LOCK_CP);
	EXPECT_EQ(pass(web_request(client_of_wlan_1_1), "wlan-1-1"), (Outcome{CP_ACCEPT, 0}));
	EXPECT_EQ(pass(web_request(second_client_of_wlan_1_1), "wlan-1-1"), (Outcome{CP_ACCEPT, 0}));
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_GATEKEEPER), gatekeeper);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_CP), portal);
}

// The hooks run before start fills the tables: an OWE interface has no pair yet, every other row is all zero.
TEST(BridgeGatekeeperDuringStart, JudgesByZeroRows)
{
	host::Machine machine;
	build_access_point(machine);
	int frames = 0;
	machine.after(host::Event::hooks_registered, [&frames] {
		const auto expect = [&frames](const char *device, cp_verdict verdict) {
			host::PacketBuffer packet = packet_of(web_request(client_of_wlan_1_1));
			packet.in_name = device;
			EXPECT_EQ(host::run_hook(ebt_gate_keeper, packet), verdict) << device;
			EXPECT_EQ(packet.mark, 0U) << device;
			++frames;
		};
		expect("wlan-1-14", CP_DROP);
		expect("wlan-1-1", CP_ACCEPT);
	});
	load_module(machine);
	EXPECT_EQ(frames, 2);
}

// Each address is moved from the black to the white list in one hold: on one of them it is at any moment.
TEST_F(BridgeGatekeeper, NeverSeesAClientBetweenTheMirelLists)
{
	constexpr uint8_t clients = 32;
	const auto client = [](uint8_t number) { return Mac{0x02, 0x77, 0, 0, 0, number}; };
	set_portal(machine, CAPTIVE_PORTAL, 0, 1);
	set_portal(machine, CAPTIVE_PORTAL_MIREL, 0, 1);
	for (uint8_t number = 0; number < clients; ++number) {
		change_clients(machine, ADD_MIREL_BLACK_LIST_MAC, "", client(number));
	}

	std::atomic<bool> moved = false;
	std::atomic<uint32_t> wrong = 0;
	std::thread bridge([&] {
		bool last_round = false;
		while (!last_round) {
			last_round = moved.load();
			for (uint8_t number = 0; number < clients; ++number) {
				const Outcome outcome = pass(frame().from(client_of_wlan_1_1)
								     .to(upstream_server)
								     .source_mac(client(number))
								     .tcp(1, 80),
							     "wlan-1-1");
				const bool black = outcome == Outcome{CP_ACCEPT, 5302};
				const bool white = outcome == Outcome{CP_ACCEPT, 0};
				if (last_round ? !white : !black && !white) {
					++wrong;
				}
			}
		}
	});
	for (uint8_t number = 0; number < clients; ++number) {
		change_clients(machine, ADD_MIREL_WHITE_LIST_MAC, "", client(number));
		std::this_thread::yield();
	}
	moved = true;
	bridge.join();
	EXPECT_EQ(wrong, 0U);
}

// Names are written without a lock: a frame meets an old or a new pair, or half of each, and never anything else.
TEST_F(BridgeGatekeeper, SurvivesMappingsThatChangeUnderIt)
{
	set_portal(machine, CAPTIVE_PORTAL, 0, 1);
	set_portal(machine, CAPTIVE_PORTAL, 23, 1);
	map_owe_interface(machine, "wlan-1-14", "wlan-1-1");

	std::atomic<bool> done = false;
	std::atomic<uint32_t> wrong = 0;
	std::thread bridge([&] {
		while (!done) {
			const Outcome outcome = pass(web_request(client_of_wlan_1_1), "wlan-1-14");
			if (!(outcome == Outcome{CP_ACCEPT, 5200}) && !(outcome == Outcome{CP_ACCEPT, 5247})) {
				++wrong;
			}
		}
	});
	for (int i = 0; i < 200; ++i) {
		// Both names have eight characters: they differ in the first word alone.
		map_owe_interface(machine, "wlan-1-14", i % 2 == 0 ? "wlan-3-8" : "wlan-1-1");
	}
	done = true;
	bridge.join();
	EXPECT_EQ(wrong, 0U);
}

} // namespace

} // namespace captive_portal::test
