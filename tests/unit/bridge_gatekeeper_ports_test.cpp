// SPDX-License-Identifier: GPL-2.0-only
// Which of the access point's own ports the gatekeeper hook keeps closed, and to whom.
#include "tests/support/host_test.h"
#include "tests/support/packets.h"
#include "tests/unit/bridge_gatekeeper_fixture.h"

namespace captive_portal::test
{

namespace
{

constexpr uint16_t redirect_ports[] = {
	10081, 10082, 10083, 10084, 10085, 10086, 10087, 10088, 10444, 10445, 10446, 10447, 10448, 10449, 10450, 10451,
	20081, 20082, 20083, 20084, 20085, 20086, 20087, 20088, 20444, 20445, 20446, 20447, 20448, 20449, 20450, 20451,
	30081, 30082, 30083, 30084, 30085, 30086, 30087, 30088, 30444, 30445, 30446, 30447, 30448, 30449, 30450, 30451,
};

// Beside the closed ones on either side, and those of the web service that nobody guards. Port 0 is what the table's
// rows behind the wireless ones hold; those are no interfaces.
constexpr uint16_t open_ports[] = {0,     53,    80,    81,    85,    88,    89,    92,    443,   1025, 1058,
				   10080, 10089, 10443, 10452, 20080, 20089, 30080, 30452, 40081, 65535};

Frame to_port(const Host &from, uint16_t port)
{
	return frame().from(from).to(access_point).tcp(51000, port).syn();
}

void expect_verdicts(const char *device, const Host &from, std::initializer_list<uint16_t> ports, cp_verdict verdict,
		     uint32_t mark, const State &state)
{
	for (const uint16_t port : ports) {
		run_packet_case(ebt_gate_keeper, {.description = "port " + std::to_string(port),
						  .frame = to_port(from, port),
						  .device = device,
						  .state = state,
						  .verdict = verdict,
						  .mark = mark});
	}
}

TEST(BridgeGatekeeperPorts, FixedPortsAreClosedToTheWiredSide)
{
	expect_verdicts("eth0", wired_host, {82, 83, 84, 86, 87, 90, 91}, CP_DROP, 0, {});
}

TEST(BridgeGatekeeperPorts, EveryRedirectPortIsClosedToTheWiredSide)
{
	for (const uint16_t port : redirect_ports) {
		expect_verdicts("eth0", wired_host, {port}, CP_DROP, 0, {});
	}
}

TEST(BridgeGatekeeperPorts, OtherPortsAreOpenToTheWiredSide)
{
	for (const uint16_t port : open_ports) {
		expect_verdicts("eth0", wired_host, {port}, CP_ACCEPT, 0, {});
	}
}

TEST(BridgeGatekeeperPorts, SomeFixedPortsAreClosedToClientsOfAnInterfaceWithoutPortal)
{
	expect_verdicts("wlan-1-1", client_of_wlan_1_1, {82, 83, 84, 90, 91}, CP_DROP, 0, {});
	expect_verdicts("wlan-1-1", client_of_wlan_1_1, {82, 83, 84, 90, 91}, CP_DROP, 0, portal_on(1));
}

// The list for the wired side has 86 and 87; this one deliberately has not.
TEST(BridgeGatekeeperPorts, TheMirelPortsAreOpenToClientsOfAnInterfaceWithoutPortal)
{
	expect_verdicts("wlan-1-1", client_of_wlan_1_1, {86, 87}, CP_ACCEPT, 0, {});
}

TEST(BridgeGatekeeperPorts, FixedPortsAreOpenToClientsOfAnInterfaceWithPortal)
{
	for (const uint32_t mode : {1U, 7U, 8U, 0x80000000U}) {
		expect_verdicts("wlan-1-1", client_of_wlan_1_1, {82, 83, 84, 86, 87, 90, 91}, CP_ACCEPT, 5200,
				portal_on(0, mode));
	}
}

TEST(BridgeGatekeeperPorts, ItsOwnRedirectPortsAreOpenToAClient)
{
	expect_verdicts("wlan-1-1", client_of_wlan_1_1, {10081, 10444}, CP_ACCEPT, 5200, portal_on(0));
	expect_verdicts("wlan-1-1", client_of_wlan_1_1, {10081, 10444}, CP_ACCEPT, 0, {});
	expect_verdicts("wlan-3-8", client_of_wlan_3_8, {30088, 30451}, CP_ACCEPT, 5247, portal_on(23));
}

TEST(BridgeGatekeeperPorts, RedirectPortsOfEveryOtherInterfaceAreClosedToAClient)
{
	for (const uint16_t port : redirect_ports) {
		if (port != 10083 && port != 10446) {
			expect_verdicts("wlan-1-3", client_of_wlan_1_1, {port}, CP_DROP, 0, portal_on(2));
		}
	}
}

TEST(BridgeGatekeeperPorts, OtherPortsAreOpenToClients)
{
	for (const uint16_t port : open_ports) {
		expect_verdicts("wlan-1-1", client_of_wlan_1_1, {port}, CP_ACCEPT, 5200, portal_on(0));
		expect_verdicts("wlan-1-1", client_of_wlan_1_1, {port}, CP_ACCEPT, 0, {});
	}
}

TEST(BridgeGatekeeperPorts, TheGuardComesBeforeTheTables)
{
	const State admitted = all({portal_on(0), portal_on(27), listed(ADD_LOGIN_MAC, "wlan-1-1", client_of_wlan_1_1),
				    listed(ADD_WHITELIST_MAC, "wlan-1-1", client_of_wlan_1_1),
				    listed(ADD_MIREL_WHITE_LIST_MAC, "", client_of_wlan_1_1)});
	expect_verdicts("wlan-1-1", client_of_wlan_1_1, {10082, 20081, 30451}, CP_DROP, 0, admitted);
}

// Until start has filled the rows, every redirect port is 0, and the usual ones are none.
TEST(BridgeGatekeeperPorts, BeforeTheRowsAreFilledPort0IsEveryInterfaces)
{
	host::Machine machine;
	build_access_point(machine);
	int frames = 0;
	machine.after(host::Event::hooks_registered, [&frames] {
		const auto expect = [&frames](const char *device, uint16_t port, cp_verdict verdict) {
			host::PacketBuffer packet = packet_of(to_port(wired_host, port));
			packet.in_name = device;
			EXPECT_EQ(host::run_hook(ebt_gate_keeper, packet), verdict) << device << ' ' << port;
			++frames;
		};
		expect("eth0", 0, CP_DROP);
		expect("wlan-1-1", 0, CP_DROP);
		expect("eth0", 10082, CP_ACCEPT);
		expect("wlan-1-1", 10082, CP_ACCEPT);
		expect("eth0", 82, CP_DROP);
	});
	load_module(machine);
	EXPECT_EQ(frames, 5);
}

// The guard reads modes, ports and the names of OWE pairs without a lock; the client tables come after it.
class BridgeGatekeeperGuard : public HostTest
{
protected:
	void SetUp() override
	{
		build_access_point(machine);
		load_module();
		map_owe_interface(machine, "wlan-1-14", "wlan-1-1");
		set_portal(machine, CAPTIVE_PORTAL, 0, 1);
	}

	struct Holds {
		cp_verdict verdict;
		uint64_t gatekeeper;
		uint64_t all;
		friend bool operator==(const Holds &, const Holds &) = default;
	};

	// How often the hook takes gatekeeper_lock, and any lock, for the frame.
	[[nodiscard]] Holds pass(const Frame &frame, const char *device)
	{
		const uint64_t gatekeeper = machine.locks.acquisitions(CP_LOCK_GATEKEEPER);
		const uint64_t all = all_acquisitions();
		host::PacketBuffer packet = packet_of(frame);
		packet.in_name = device;
		const cp_verdict verdict = host::run_hook(ebt_gate_keeper, packet);
		return {verdict, machine.locks.acquisitions(CP_LOCK_GATEKEEPER) - gatekeeper, all_acquisitions() - all};
	}

private:
	[[nodiscard]] uint64_t all_acquisitions() const
	{
		uint64_t sum = 0;
		for (int lock = 0; lock < CP_LOCKS; ++lock) {
			sum += machine.locks.acquisitions(static_cast<cp_lock_id>(lock));
		}
		return sum;
	}
};

TEST_F(BridgeGatekeeperGuard, TakesNoLockForWhatItDrops)
{
	EXPECT_EQ(pass(to_port(client_of_wlan_1_1, 10082), "wlan-1-1"), (Holds{CP_DROP, 0, 0}));
	EXPECT_EQ(pass(to_port(client_of_wlan_1_1, 82), "wlan-1-2"), (Holds{CP_DROP, 0, 0}));
	EXPECT_EQ(pass(to_port(client_of_wlan_1_1, 82), "wlan-9-9"), (Holds{CP_DROP, 0, 0}));
}

TEST_F(BridgeGatekeeperGuard, TakesNoLockForTheNameOfAnOwePair)
{
	EXPECT_EQ(pass(to_port(client_of_wlan_1_1, 10082), "wlan-1-14"), (Holds{CP_DROP, 0, 0}));
	EXPECT_EQ(pass(to_port(client_of_wlan_1_1, 10082), "wlan-1-15"), (Holds{CP_DROP, 0, 0})) << "without a pair";
	EXPECT_EQ(pass(to_port(client_of_wlan_1_1, 10081), "wlan-1-14"), (Holds{CP_ACCEPT, 0, 0}));
}

class GatekeeperGuardRow : public PacketCaseTest
{
};

// Two words of header, TCP, and a destination port of 82 in what would be the header checksum; no destination address.
constexpr uint8_t port_before_the_destination[] = {0x42, 0, 0, 12, 0, 0, 0, 0, 64, 6, 0, 82};

const PacketCase guard_rows[] = {
	{.description = "port 82 of another host is open to the wired side",
	 .frame = frame().from(wired_host).to(upstream_server).tcp(51000, 82).syn(),
	 .device = "eth0"},
	{.description = "a redirect port of another host is open to a client",
	 .frame = frame().from(client_of_wlan_1_1).to(upstream_server).tcp(51000, 10082).syn(),
	 .device = "wlan-1-1"},
	{.description = "UDP to port 82 is open to the wired side",
	 .frame = frame().from(wired_host).to(access_point).udp(51000, 82),
	 .device = "eth0"},
	{.description = "UDP to a redirect port is open to a client",
	 .frame = frame().from(client_of_wlan_1_1).to(access_point).udp(51000, 10082),
	 .device = "wlan-1-1"},
	{.description = "a closed source port does not matter",
	 .frame = frame().from(wired_host).to(access_point).tcp(82, 8080).syn(),
	 .device = "eth0"},
	{.description = "the guard needs no SYN",
	 .frame = frame().from(wired_host).to(access_point).tcp(51000, 82).fin_ack(),
	 .device = "eth0",
	 .verdict = CP_DROP},
	{.description = "a port behind IPv4 options is found",
	 .frame = frame().from(wired_host).to(access_point).ip_options(std::vector<uint8_t>{1, 1, 1, 0}).tcp(51000, 82),
	 .device = "eth0",
	 .verdict = CP_DROP},
	{.description = "a header length below five is taken as it is",
	 // Four words: the ports are taken from the destination address, whose last two bytes are 1 and 1.
	 .frame = frame().from(wired_host).to(access_point).ihl(4).tcp(51000, 82),
	 .device = "eth0"},
	{.description = "a header length below five may find a closed port in the destination address",
	 .frame = frame().from(wired_host).to(access_point).destination(ipv4(192, 168, 0, 82)).ihl(4).tcp(51000, 80),
	 .device = "eth0",
	 .state =
		 [](host::Machine &machine) {
			 machine.devices.put("br0", {.mac = access_point.mac, .ipv4 = {{ipv4(192, 168, 0, 82).raw}}});
		 },
	 .verdict = CP_DROP},
	{.description = "a packet that ends before its destination address is open to the wired side",
	 .frame = frame().from(wired_host).network_bytes(port_before_the_destination),
	 .device = "eth0"},
	{.description = "a packet that ends before its destination address is open to a client",
	 .frame = frame().from(client_of_wlan_1_1).network_bytes(port_before_the_destination),
	 .device = "wlan-1-1"},
	{.description = "the first fragment has ports",
	 .frame = frame().from(wired_host).to(access_point).more_fragments().tcp(51000, 82),
	 .device = "eth0",
	 .verdict = CP_DROP},
	{.description = "a later fragment has no ports on the wired side",
	 .frame = frame().from(wired_host).to(access_point).fragment_offset(1).tcp(51000, 82),
	 .device = "eth0"},
	{.description = "a later fragment has no ports on a wireless interface",
	 .frame = frame().from(client_of_wlan_1_1).to(access_point).fragment_offset(185).tcp(51000, 10082),
	 .device = "wlan-1-1"},
	{.description = "an IPv6 frame is not guarded on the wired side",
	 .frame = frame().from(wired_host).to(access_point).ether_type(0x86dd).tcp(51000, 82),
	 .device = "eth0"},
	{.description = "an IPv6 frame is not guarded on a wireless interface",
	 .frame = frame().from(client_of_wlan_1_1).to(access_point).ether_type(0x86dd).tcp(51000, 10082),
	 .device = "wlan-1-1"},
	{.description = "ARP passes the wired side",
	 .frame = frame().from(wired_host).to(broadcast).arp(),
	 .device = "eth0"},
	{.description = "a port that is there whole is enough",
	 .frame = frame().from(wired_host).to(access_point).tcp(51000, 82).truncate_network(24),
	 .device = "eth0",
	 .verdict = CP_DROP},
	{.description = "half a port equals none on the wired side",
	 .frame = frame().from(wired_host).to(access_point).tcp(51000, 82).truncate_network(23),
	 .device = "eth0"},
	{.description = "half a port equals none on a wireless interface",
	 .frame = frame().from(client_of_wlan_1_1).to(access_point).tcp(51000, 10082).truncate_network(23),
	 .device = "wlan-1-1"},
	{.description = "an address that is cut is not the access points",
	 .frame = frame().from(wired_host).to(access_point).tcp(51000, 82).truncate_network(19),
	 .device = "eth0"},
	{.description = "nothing behind the EtherType passes the wired side",
	 .frame = frame().from(wired_host).to(access_point).truncate_network(0),
	 .device = "eth0"},
	{.description = "lengths that headers claim are not believed",
	 .frame = frame().from(wired_host).to(access_point).total_length(20).tcp(51000, 82),
	 .device = "eth0",
	 .verdict = CP_DROP},
	{.description = "without a bridge no address is the access points",
	 .frame = to_port(wired_host, 82),
	 .device = "eth0",
	 .state = [](host::Machine &machine) { machine.devices.remove("br0"); }},
	{.description = "without an address on the bridge nothing is guarded",
	 .frame = to_port(client_of_wlan_1_1, 10082),
	 .device = "wlan-1-1",
	 .state =
		 [](host::Machine &machine) {
			 machine.devices.put("br0", {.mac = access_point.mac, .ipv4 = {std::vector<uint32_t>()}});
		 }},
};

INSTANTIATE_TEST_SUITE_P(Guard, GatekeeperGuardRow, ::testing::ValuesIn(guard_rows), packet_case_name);

TEST_P(GatekeeperGuardRow, GivesVerdictAndMark)
{
	run_packet_case(ebt_gate_keeper, GetParam());
}

} // namespace

} // namespace captive_portal::test
