// SPDX-License-Identifier: GPL-2.0-only
// What the check passes and drops while a portal is on. Redirects, special marks and incomplete packets have files of
// their own beside this one.
#include "platform/platform.h"

#include "portal/interface_table.h"
#include "tests/unit/portal_case.h"

namespace captive_portal::test
{

namespace
{

constexpr Host client = client_of_wlan_1_1;
constexpr uint32_t mark = 5200;
constexpr uint32_t mirel = 5302;

FrameBuilder to(const Host &server)
{
	return frame().from(client).to(server);
}

// A SYN of the client.
FrameBuilder syn(const Host &server, uint16_t port)
{
	return to(server).tcp(51000, port).syn();
}

// A row that changes nothing in the frame.
PacketCase row(std::string description, const Frame &frame, uint32_t mark_in, State state, cp_verdict verdict,
	       std::vector<host::LogLine> log = {})
{
	return {.description = std::move(description),
		.frame = frame,
		.device = "wlan-1-1",
		.mark_in = mark_in,
		.state = std::move(state),
		.verdict = verdict,
		.log = std::move(log)};
}

State every_portal_on()
{
	return [](host::Machine &machine) {
		for (int32_t i = 0; i < CP_ROWS; ++i) {
			set_portal(machine, CAPTIVE_PORTAL, i, 1);
		}
	};
}

class PreRoutingCheck : public PacketCaseTest
{
};

TEST_P(PreRoutingCheck, GivesVerdictAndLeavesTheFrame)
{
	run_portal_case(nf_cp_check, GetParam());
}

const PacketCase portal_off[] = {
	row("Unmarked web SYN passes with every portal on", syn(upstream_server, 80), 0, every_portal_on(), CP_ACCEPT),
	row("Marked web SYN passes with its portal off", syn(upstream_server, 80), mark, {}, CP_ACCEPT),
	row("Only the marks own portal counts", syn(upstream_server, 80), mark, portal(1, 1), CP_ACCEPT),
	row("A mark between the interfaces passes", syn(upstream_server, 80), 5208, every_portal_on(), CP_ACCEPT),
	row("A mark behind the interfaces passes", syn(upstream_server, 80), 5248, every_portal_on(), CP_ACCEPT),
	row("The MIREL mark passes with row 27 off", syn(upstream_server, 80), mirel, portal(0, 1), CP_ACCEPT),
	row("IPv6 passes with the portal off", to(upstream_server).ipv6(6), mark, {}, CP_ACCEPT),
	row("ICMP passes with the portal off", to(upstream_server).icmp(8), mark, {}, CP_ACCEPT),
};
INSTANTIATE_TEST_SUITE_P(PortalOff, PreRoutingCheck, ::testing::ValuesIn(portal_off), packet_case_name);

const PacketCase protocols[] = {
	row("IPv6 is dropped", to(upstream_server).ipv6(6), mark, portal(0, 1), CP_DROP),
	row("IPv6 is dropped in mode 7", to(upstream_server).ipv6(17), mark, portal(0, 7), CP_DROP),
	row("IPv6 is dropped in mode 8", to(upstream_server).ipv6(58), mark, portal(0, 8), CP_DROP),
	row("IPv6 is dropped for the MIREL mark", to(upstream_server).ipv6(6), mirel, portal(27, 1), CP_DROP),
	row("IPv6 by EtherType alone", syn(upstream_server, 80).ether_type(0x86dd), mark, portal(0, 1), CP_DROP),
	row("ICMP is dropped", to(upstream_server).icmp(8), mark, portal(0, 1), CP_DROP),
	row("ICMP to the access point is dropped", to(access_point).icmp(8), mark, portal(0, 1), CP_DROP),
	row("DHCP request passes", to(broadcast).udp(68, 67), mark, portal(0, 1), CP_ACCEPT),
	row("UDP to port 68 passes", to(access_point).udp(67, 68), mark, portal(0, 1), CP_ACCEPT),
	row("DNS query passes", to(upstream_dns).udp(40000, 53), mark, portal(0, 1), CP_ACCEPT),
	row("UDP from port 53 passes", to(upstream_dns).udp(53, 40000), mark, portal(0, 1), CP_ACCEPT),
	row("UDP to port 123 is dropped", to(upstream_server).udp(40000, 123), mark, portal(0, 1), CP_DROP),
	row("UDP between ports 67 is dropped", to(upstream_server).udp(67, 67), mark, portal(0, 1), CP_DROP),
	row("UDP beside 68 is dropped", to(upstream_server).udp(69, 69), mark, portal(0, 1), CP_DROP),
	row("UDP beside 53 is dropped", to(upstream_server).udp(52, 54), mark, portal(0, 1), CP_DROP),
	row("UDP to port 443 is dropped", to(upstream_server).udp(40000, 443), mark, portal(0, 1), CP_DROP),
	row("UDP with 53 in the wrong byte is dropped", to(upstream_server).udp(40000, 53 << 8), mark, portal(0, 1),
	    CP_DROP),
	row("GRE passes", to(upstream_server).protocol(47), mark, portal(0, 1), CP_ACCEPT),
	row("GRE to the social login address passes", to(social_login).protocol(47), mark, portal(0, 1), CP_ACCEPT),
	row("IGMP passes in mode 8", to(upstream_server).protocol(2), mark, portal(0, 8), CP_ACCEPT),
	row("Protocol 0 passes", to(upstream_server).protocol(0), mark, portal(0, 1), CP_ACCEPT),
	// An ARP message has the sender's MAC where IPv4 has the protocol: 0x11 is UDP, and its ports are no DNS.
	row("ARP whose bytes look like UDP is dropped", to(router).arp(), mark, portal(0, 1), CP_DROP),
	row("ARP whose bytes look like nothing passes", frame().from(wired_host).to(router).arp(), mark, portal(0, 1),
	    CP_ACCEPT),
	// Four bytes further on there is ICMP; at IPv4's place lies the low byte of the identification.
	row("Tagged ICMP passes for what its bytes look like", to(upstream_server).icmp(8).vlan(7), mark, portal(0, 1),
	    CP_ACCEPT),
};
INSTANTIATE_TEST_SUITE_P(Protocols, PreRoutingCheck, ::testing::ValuesIn(protocols), packet_case_name);

constexpr Host just_private = {router_mac, ipv4(172, 31, 255, 255)};
constexpr Host just_internet = {router_mac, ipv4(172, 32, 0, 1)};

const PacketCase mode_7[] = {
	row("Mode 7 passes TCP to the internet", syn(upstream_server, 80), mark, portal(0, 7), CP_ACCEPT),
	row("Mode 7 passes HTTPS to the internet", syn(upstream_server, 443), mark, portal(0, 7), CP_ACCEPT),
	row("Mode 7 passes UDP to the internet", to(upstream_server).udp(40000, 123), mark, portal(0, 7), CP_ACCEPT),
	row("Mode 7 passes ICMP to the internet", to(upstream_server).icmp(8), mark, portal(0, 7), CP_ACCEPT),
	row("Mode 7 passes GRE to the internet", to(upstream_server).protocol(47), mark, portal(0, 7), CP_ACCEPT),
	row("Mode 7 passes TCP to the social login address", syn(social_login, 80), mark, portal(0, 7), CP_ACCEPT),
	row("Mode 7 passes port 8080 of the social login address", syn(social_login, 8080), mark, portal(0, 7),
	    CP_ACCEPT),
	row("Mode 7 passes 172.32.0.1", syn(just_internet, 22), mark, portal(0, 7), CP_ACCEPT),
	row("Mode 7 does not pass 172.31.255.255", syn(just_private, 22), mark, portal(0, 7), CP_DROP),
	row("Mode 7 passes everything to the gateway", syn(router, 80), mark,
	    all_of({portal(0, 7), gateway(router.address)}), CP_ACCEPT),
	row("Mode 7 passes ICMP to the gateway", to(router).icmp(8), mark,
	    all_of({portal(0, 7), gateway(router.address)}), CP_ACCEPT),
	row("Mode 7 knows no gateway that is not set", to(router).udp(40000, 123), mark, portal(0, 7), CP_DROP),
	row("Mode 7 passes ICMP to the access point", to(access_point).icmp(8), mark, portal(0, 7), CP_ACCEPT),
	row("Mode 7 drops UDP to the access point", to(access_point).udp(40000, 123), mark, portal(0, 7), CP_DROP),
	row("Mode 7 drops SSH to the access point", syn(access_point, 22), mark, portal(0, 7), CP_DROP),
	row("Mode 7 drops ICMP to a private address", to(private_server).icmp(8), mark, portal(0, 7), CP_DROP),
	row("Mode 7 passes DNS to a private address", to(private_server).udp(40000, 53), mark, portal(0, 7), CP_ACCEPT),
	row("Mode 7 drops ICMP to an access point without br0", to(access_point).icmp(8), mark,
	    all_of({portal(0, 7), no_device("br0")}), CP_DROP),
	row("Mode 7 of the MIREL row counts for its mark", syn(upstream_server, 80), mirel, portal(27, 7), CP_ACCEPT),
	row("Only mode 7 passes the gateway", syn(router, 22), mark, all_of({portal(0, 1), gateway(router.address)}),
	    CP_DROP),
};
INSTANTIATE_TEST_SUITE_P(Mode7, PreRoutingCheck, ::testing::ValuesIn(mode_7), packet_case_name);

const PacketCase mode_8[] = {
	row("Mode 8 drops HTTP", syn(upstream_server, 80), mark, portal(0, 8), CP_DROP),
	row("Mode 8 drops HTTP to the access point", syn(access_point, 80), mark, portal(0, 8), CP_DROP),
	row("Mode 8 drops HTTP to the social login address", syn(social_login, 80), mark, portal(0, 8), CP_DROP),
	row("Mode 8 drops HTTPS that is not blocked", syn(upstream_server, 443), mark,
	    all_of({portal(0, 8), block_https(0, 0)}), CP_DROP),
	row("Mode 8 drops TCP into the walled garden", syn(upstream_server, 80), mark,
	    all_of({portal(0, 8), garden(0, 1, {upstream_server.address})}), CP_DROP),
	row("Mode 8 passes DHCP", to(broadcast).udp(68, 67), mark, portal(0, 8), CP_ACCEPT),
	row("Mode 8 passes DNS", to(upstream_dns).udp(40000, 53), mark, portal(0, 8), CP_ACCEPT),
	row("Mode 8 drops other UDP", to(upstream_server).udp(40000, 123), mark, portal(0, 8), CP_DROP),
	row("Mode 8 drops ICMP", to(upstream_server).icmp(8), mark, portal(0, 8), CP_DROP),
	row("Mode 8 of the MIREL row drops TCP", syn(upstream_server, 80), mirel, portal(27, 8), CP_DROP),
};
INSTANTIATE_TEST_SUITE_P(Mode8, PreRoutingCheck, ::testing::ValuesIn(mode_8), packet_case_name);

const PacketCase ports[] = {
	row("HTTP to the access point passes", syn(access_point, 80), mark, portal(0, 1), CP_ACCEPT),
	row("HTTPS to the access point passes", syn(access_point, 443), mark, portal(0, 1), CP_ACCEPT),
	row("HTTPS to the access point passes for the MIREL mark", syn(access_point, 443), mirel, portal(27, 1),
	    CP_ACCEPT),
	row("Another port of the access point is dropped", syn(access_point, 8080), mark, portal(0, 1), CP_DROP),
	row("The clients own portal port is dropped", syn(access_point, 10081), mark, portal(0, 1), CP_DROP),
	row("Another port is dropped", syn(upstream_server, 22), mark, portal(0, 1), CP_DROP),
	row("A later segment to another port is dropped", to(upstream_server).tcp(51000, 8080).ack(), mark,
	    portal(0, 1), CP_DROP),
	row("Port 80 as source does not count", to(upstream_server).tcp(80, 8080).syn(), mark, portal(0, 1), CP_DROP),
	row("Another port is dropped for the MIREL mark", syn(upstream_server, 22), mirel, portal(27, 1), CP_DROP),
	row("Another port is dropped in mode 7", syn(private_server, 8080), mark, portal(0, 7), CP_DROP),
	row("Another port of the social login address is dropped", syn(social_login, 8080), mark, portal(0, 1),
	    CP_DROP),
	row("A later segment to another port of the social login address is dropped",
	    to(social_login).tcp(51000, 22).ack(), mark, portal(0, 1), CP_DROP),
};
INSTANTIATE_TEST_SUITE_P(Ports, PreRoutingCheck, ::testing::ValuesIn(ports), packet_case_name);

const auto not_blocked = lines({"[captive portal]block disable, ACCEPT it\n"});
const auto garden_drops = lines({"nf_cp_check: not match walled garden and drop https, if_index=0 saddr=192.168.1.11 "
				 "daddr=203.0.113.10\n"});

const PacketCase https[] = {
	row("HTTPS that is not blocked passes", syn(upstream_server, 443), mark,
	    all_of({portal(0, 1), block_https(0, 0)}), CP_ACCEPT, not_blocked),
	row("A later HTTPS segment that is not blocked passes", to(upstream_server).tcp(51000, 443).ack(), mark,
	    all_of({portal(0, 1), block_https(0, 0)}), CP_ACCEPT, not_blocked),
	row("HTTPS that is not blocked passes in mode 7", syn(private_server, 443), mark,
	    all_of({portal(0, 7), block_https(0, 0)}), CP_ACCEPT, not_blocked),
	row("HTTPS that the garden does not match is dropped", syn(upstream_server, 443), mark,
	    all_of({portal(0, 1), garden(0, 1)}), CP_DROP, garden_drops),
	row("A later HTTPS segment that the garden does not match is dropped",
	    to(upstream_server).tcp(51000, 443).ack(), mark, all_of({portal(0, 1), garden(0, 1)}), CP_DROP,
	    garden_drops),
	row("HTTPS of a MIREL client is dropped while its garden is on, whatever its switch says",
	    syn(upstream_server, 443), mirel, all_of({portal(27, 1), garden(27, 1), block_https(27, 0)}), CP_DROP,
	    lines({"nf_cp_check: not match walled garden and drop https, if_index=27 saddr=192.168.1.11 "
		   "daddr=203.0.113.10\n"})),
	row("HTTPS in mode 7 that row 25 does not match is dropped", syn(private_server, 443), mark,
	    all_of({portal(0, 7), garden(0, 1, {private_server.address})}), CP_DROP,
	    lines({"nf_cp_check: not match walled garden and drop https, if_index=25 saddr=192.168.1.11 "
		   "daddr=10.9.8.7\n"})),
};
INSTANTIATE_TEST_SUITE_P(Https, PreRoutingCheck, ::testing::ValuesIn(https), packet_case_name);

const auto garden_matches = lines({"nf_cp_check: match walled garden, if_index=0 daddr=203.0.113.10\n"});

const PacketCase gardens[] = {
	row("HTTP into the walled garden passes", syn(upstream_server, 80), mark,
	    all_of({portal(0, 1), garden(0, 1, {upstream_server.address})}), CP_ACCEPT, garden_matches),
	row("HTTPS into the walled garden passes", syn(upstream_server, 443), mark,
	    all_of({portal(0, 1), garden(0, 1, {upstream_server.address})}), CP_ACCEPT, garden_matches),
	row("Any port of an address in the walled garden passes", syn(upstream_server, 22), mark,
	    all_of({portal(0, 1), garden(0, 1, {upstream_server.address})}), CP_ACCEPT, garden_matches),
	row("An address of a permitted name passes", syn(upstream_server, 80), mark,
	    all_of({portal(0, 1), garden(0, 1), resolved(upstream_server.address, 1)}), CP_ACCEPT, garden_matches),
	row("A port that is no web port and not in the garden is dropped", syn(upstream_server, 22), mark,
	    all_of({portal(0, 1), garden(0, 1)}), CP_DROP),
	row("A garden that is off permits nothing", syn(upstream_server, 22), mark,
	    all_of({portal(0, 1), garden(0, 0, {upstream_server.address}), resolved(upstream_server.address, 1)}),
	    CP_DROP),
	row("Another rows garden permits nothing", syn(upstream_server, 22), mark,
	    all_of({portal(0, 1), garden(0, 1), garden(1, 1, {upstream_server.address}),
		    resolved(upstream_server.address, ~1u)}),
	    CP_DROP),
	row("UDP into the walled garden is dropped", to(upstream_server).udp(40000, 443), mark,
	    all_of({portal(0, 1), garden(0, 1, {upstream_server.address})}), CP_DROP),
	row("The MIREL garden is that of row 27", syn(upstream_server, 80), mirel,
	    all_of({portal(27, 1), garden(27, 1, {upstream_server.address})}), CP_ACCEPT,
	    lines({"nf_cp_check: match walled garden, if_index=27 daddr=203.0.113.10\n"})),
	row("Names of the MIREL garden are those of row 27", syn(upstream_server, 8443), mirel,
	    all_of({portal(27, 1), garden(27, 1), resolved(upstream_server.address, 1u << 27)}), CP_ACCEPT,
	    lines({"nf_cp_check: match walled garden, if_index=27 daddr=203.0.113.10\n"})),
	// The switch is that of the interface, the rules are those of row 25.
	row("In mode 7 the garden is that of row 25", syn(private_server, 80), mark,
	    all_of({portal(0, 7), garden(0, 1), garden(25, 0, {private_server.address})}), CP_ACCEPT,
	    lines({"nf_cp_check: match walled garden, if_index=25 daddr=10.9.8.7\n"})),
	row("In mode 7 the garden of row 25 needs the interfaces switch", syn(private_server, 22), mark,
	    all_of({portal(0, 7), garden(25, 1, {private_server.address})}), CP_DROP),
};
INSTANTIATE_TEST_SUITE_P(WalledGarden, PreRoutingCheck, ::testing::ValuesIn(gardens), packet_case_name);

// The access point's own web service before HTTPS that is not blocked, that before the garden: the first that decides
// says its line, or none.
const PacketCase order[] = {
	row("HTTPS to the access point passes while its garden drops HTTPS", syn(access_point, 443), mark,
	    all_of({portal(0, 1), block_https(0, 1), garden(0, 1)}), CP_ACCEPT),
	row("HTTPS to the access point passes silently while HTTPS is not blocked", syn(access_point, 443), mark,
	    all_of({portal(0, 1), block_https(0, 0)}), CP_ACCEPT),
	row("HTTP to the access point passes silently while the garden has its address", syn(access_point, 80), mark,
	    all_of({portal(0, 1), garden(0, 1, {access_point.address}), resolved(access_point.address, 1)}), CP_ACCEPT),
	row("HTTPS to the access point passes silently while the garden has its address", syn(access_point, 443), mark,
	    all_of({portal(0, 1), block_https(0, 0), garden(0, 1, {access_point.address})}), CP_ACCEPT),
	row("Another port of the access point passes by the garden", syn(access_point, 8080), mark,
	    all_of({portal(0, 1), garden(0, 1, {access_point.address})}), CP_ACCEPT,
	    lines({"nf_cp_check: match walled garden, if_index=0 daddr=192.168.1.1\n"})),
	row("HTTPS that is not blocked is not looked for in the garden", syn(upstream_server, 443), mark,
	    all_of({portal(0, 1), block_https(0, 0), garden(0, 1, {upstream_server.address})}), CP_ACCEPT, not_blocked),
	row("HTTPS that is not blocked passes though the garden does not have it", syn(upstream_server, 443), mark,
	    all_of({portal(0, 1), block_https(0, 0), garden(0, 1)}), CP_ACCEPT, not_blocked),
};
INSTANTIATE_TEST_SUITE_P(Order, PreRoutingCheck, ::testing::ValuesIn(order), packet_case_name);

const PacketCase nobody[] = {
	row("HTTP passes without br0", syn(upstream_server, 80), mark, all_of({portal(0, 1), no_device("br0")}),
	    CP_ACCEPT),
	row("Any TCP passes without br0", syn(upstream_server, 22), mark, all_of({portal(0, 1), no_device("br0")}),
	    CP_ACCEPT),
	row("HTTP passes without an IPv4 configuration", syn(upstream_server, 80), mark,
	    all_of({portal(0, 1), device("br0", {.mac = access_point.mac})}), CP_ACCEPT),
	row("HTTP passes when the ports bridge is gone", syn(upstream_server, 80), mark,
	    all_of({portal(0, 1), device("wlan-1-1", {.bridge = "br9"})}), CP_ACCEPT),
	row("The social login address passes without br0", syn(social_login, 80), mark,
	    all_of({portal(0, 1), no_device("br0")}), CP_ACCEPT),
	row("ICMP is dropped without br0 all the same", to(upstream_server).icmp(8), mark,
	    all_of({portal(0, 1), no_device("br0")}), CP_DROP),
	row("Mode 8 drops without br0 all the same", syn(upstream_server, 80), mark,
	    all_of({portal(0, 8), no_device("br0")}), CP_DROP),
};
INSTANTIATE_TEST_SUITE_P(UnknownAccessPoint, PreRoutingCheck, ::testing::ValuesIn(nobody), packet_case_name);

const PacketCase ingress[] = {
	{.description = "An ingress device that is gone is told",
	 .frame = to(upstream_server).icmp(8),
	 .device = "wlan-9-9",
	 .mark_in = mark,
	 .state = portal(0, 1),
	 .verdict = CP_DROP,
	 .log = lines({"get_bridge_name_by_iface: Could not find wlan-9-9\n"})},
	{.description = "An ingress device that is no port is told even when the portal is off",
	 .frame = to(upstream_server).icmp(8),
	 .device = "dummy0",
	 .mark_in = 0,
	 .state = device("dummy0", {}),
	 .verdict = CP_ACCEPT,
	 .log = lines({"get_bridge_name_by_iface: dummy0 is not attached to any bridge\n"})},
};
INSTANTIATE_TEST_SUITE_P(Ingress, PreRoutingCheck, ::testing::ValuesIn(ingress), packet_case_name);

class PreRoutingCheckMachine : public HostTest
{
protected:
	void SetUp() override
	{
		build_access_point(machine);
		load_module();
	}
};

// The matcher refuses the address 0.0.0.0 and says so at debug level 1; the packet goes on as if nothing matched.
// A command may be there before start has filled the rows: the first of them then has the mark 0.
TEST(PreRoutingCheckBeforeStart, AFrameWithoutAMarkBelongsToTheFirstRow)
{
	host::Machine machine;
	captive_portal_table[0].cp_mode = CP_MODE_DROP_TCP;
	host::PacketBuffer packet(syn(upstream_server, 443));
	packet.in_name = "wlan-1-1";
	EXPECT_EQ(host::run_hook(nf_cp_check, packet), CP_DROP);
}

TEST_F(PreRoutingCheckMachine, AsksTheGardenForAddressZeroAndGetsALine)
{
	set_portal(machine, CAPTIVE_PORTAL, 0, 1);
	set_garden(machine, WALLED_GARDEN, 0, 1);
	PacketCase zero = row("", to({router_mac, ipv4(0, 0, 0, 0)}).tcp(51000, 443).syn(), mark, {}, CP_DROP);
	for (const int32_t level : {0, 1, 2}) {
		set_debug_level(machine, level);
		host::PacketBuffer packet(zero.frame);
		packet.mark = mark;
		packet.in_name = "wlan-1-1";
		EXPECT_EQ(host::run_hook(nf_cp_check, packet), CP_DROP);
		EXPECT_EQ(machine.log.take(), level == 0 ? lines({}) : lines({"Wrong type(0) and input\n"}));
	}
}

TEST_F(PreRoutingCheckMachine, TakesNoConnectionLockForWhatItDoesNotRedirect)
{
	set_portal(machine, CAPTIVE_PORTAL, 0, 1);
	const uint64_t holds = machine.locks.acquisitions(CP_LOCK_CHANGE_IP_PORT);
	for (const Frame &frame : {Frame(syn(upstream_server, 22)), Frame(syn(access_point, 80)),
				   Frame(to(upstream_dns).udp(40000, 53)), Frame(to(upstream_server).icmp(8))}) {
		host::PacketBuffer packet(frame);
		packet.mark = mark;
		packet.in_name = "wlan-1-1";
		(void)host::run_hook(nf_cp_check, packet);
	}
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_CHANGE_IP_PORT), holds);
}

TEST_F(PreRoutingCheckMachine, LooksForDevicesOnlyWhenAStepNeedsThem)
{
	set_portal(machine, CAPTIVE_PORTAL, 0, 1);
	const auto lookups_for = [&](const Frame &frame, uint32_t mark_in) {
		const uint64_t before = machine.devices.lookups();
		host::PacketBuffer packet(frame);
		packet.mark = mark_in;
		packet.in_name = "wlan-1-1";
		(void)host::run_hook(nf_cp_check, packet);
		return machine.devices.lookups() - before;
	};
	EXPECT_EQ(lookups_for(syn(upstream_server, 80), 0), 0u);
	EXPECT_EQ(lookups_for(to(upstream_dns).udp(40000, 53), mark), 0u);
	EXPECT_EQ(lookups_for(to(upstream_server).icmp(8), mark), 0u);
	EXPECT_EQ(lookups_for(syn(upstream_server, 80), mark), 3u) << "bridge, its MAC address, br0's address";
	// At debug level 3 the search for the bridge has lines of its own, so it is made for every frame.
	set_debug_level(machine, 3);
	EXPECT_EQ(lookups_for(syn(upstream_server, 80), 0), 1u);
}

} // namespace

} // namespace captive_portal::test
