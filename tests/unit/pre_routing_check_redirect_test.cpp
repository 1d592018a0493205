// SPDX-License-Identifier: GPL-2.0-only
// Redirects of clients whose portal is on: to which port, and what is recorded.
#include <string>

#include "tests/support/packets.h"
#include "tests/unit/portal_case.h"

namespace captive_portal::test
{

namespace
{

constexpr Host client = client_of_wlan_1_1;
constexpr uint32_t mark = 5200;
constexpr uint32_t mirel = 5302;

FrameBuilder to(const Host &server, uint16_t port, uint8_t flags = tcp_syn)
{
	return frame().from(client).to(server).tcp(51000, port).flags(flags);
}

// A row whose frame goes to port `new_port` of the access point. `recorded`: what is in the lists afterwards.
PacketCase redirect(std::string description, const FrameBuilder &frame, uint32_t mark_in, State state,
		    uint16_t new_port, std::vector<Connection> recorded, std::vector<host::LogLine> log = {},
		    uint8_t flags = tcp_syn)
{
	return {.description = std::move(description),
		.frame = frame,
		.device = "wlan-1-1",
		.mark_in = mark_in,
		.state = std::move(state),
		.verdict = CP_ACCEPT,
		.frame_out = to(access_point, new_port, flags),
		.to_host = true,
		.log = std::move(log),
		.afterwards = records(std::move(recorded))};
}

// What the client's SYN to the server leaves in a row.
Connection connection(uint32_t row, const Host &server, uint16_t port)
{
	return {row, client.address, 51000, server.address, port, server.mac};
}

// The portal's own garden switch, which is stored and deliberately asked by nobody.
State portal_garden_switch(int32_t row, uint32_t value)
{
	return [=](host::Machine &machine) { set_portal(machine, CP_WALLED_GARDEN, row, value); };
}

class PreRoutingCheckRedirect : public PacketCaseTest
{
};

TEST_P(PreRoutingCheckRedirect, GivesFrameAndConnections)
{
	run_portal_case(nf_cp_check, GetParam());
}

// On this road nothing is said, at any debug level.
const PacketCase web[] = {
	redirect("HTTP SYN", to(upstream_server, 80), mark, portal(0, 1), 10081, {connection(0, upstream_server, 80)}),
	redirect("HTTPS SYN without a walled garden", to(upstream_server, 443), mark, portal(0, 1), 10444,
		 {connection(0, upstream_server, 443)}),
	redirect("HTTPS SYN that is redirected like HTTP", to(upstream_server, 443), mark,
		 all_of({portal(0, 1), block_https(0, 2), garden(0, 1)}), 10444, {connection(0, upstream_server, 443)}),
	redirect("HTTP SYN with HTTPS not blocked", to(upstream_server, 80), mark,
		 all_of({portal(0, 1), block_https(0, 0)}), 10081, {connection(0, upstream_server, 80)}),
	redirect("HTTP SYN that the garden does not match", to(upstream_server, 80), mark,
		 all_of({portal(0, 1), garden(0, 1, {second_upstream_server.address})}), 10081,
		 {connection(0, upstream_server, 80)}),
	redirect("HTTP SYN into a garden that is off", to(upstream_server, 80), mark,
		 all_of({portal(0, 1), garden(0, 0, {upstream_server.address}), resolved(upstream_server.address, 1)}),
		 10081, {connection(0, upstream_server, 80)}),
	redirect("HTTP SYN into a garden that is on in the portal's table alone", to(upstream_server, 80), mark,
		 all_of({portal(0, 1), portal_garden_switch(0, 1), garden(0, 0, {upstream_server.address})}), 10081,
		 {connection(0, upstream_server, 80)}),
	redirect("HTTPS SYN past a garden that is on in the portal's table alone", to(upstream_server, 443), mark,
		 all_of({portal(0, 1), portal_garden_switch(0, 1), garden(0, 0)}), 10444,
		 {connection(0, upstream_server, 443)}),
	redirect("HTTP SYN with any other mode", to(upstream_server, 80), mark, portal(0, 2), 10081,
		 {connection(0, upstream_server, 80)}),
	redirect("HTTP SYN with the highest mode", to(upstream_server, 80), mark, portal(0, 0xffffffff), 10081,
		 {connection(0, upstream_server, 80)}),
	redirect("HTTP SYN to a private address", to(private_server, 80), mark, portal(0, 1), 10081,
		 {connection(0, private_server, 80)}),
	redirect("HTTP SYN to the gateway", to(router, 80), mark, all_of({portal(0, 1), gateway(router.address)}),
		 10081, {connection(0, router, 80)}),
	redirect("A later HTTP segment", to(upstream_server, 80, tcp_ack), mark, portal(0, 1), 10081, {}, {}, tcp_ack),
	redirect("A later HTTPS segment", to(upstream_server, 443, tcp_ack), mark, portal(0, 1), 10444, {}, {},
		 tcp_ack),
	redirect("A FIN", to(upstream_server, 80, tcp_fin | tcp_ack), mark, portal(0, 1), 10081, {}, {},
		 tcp_fin | tcp_ack),
	redirect("A reset", to(upstream_server, 80, tcp_rst), mark, portal(0, 1), 10081, {}, {}, tcp_rst),
	redirect("A segment without flags", to(upstream_server, 80, 0), mark, portal(0, 1), 10081, {}, {}, 0),
	redirect("SYN and ACK", to(upstream_server, 80, tcp_syn | tcp_ack), mark, portal(0, 1), 10081,
		 {connection(0, upstream_server, 80)}, {}, tcp_syn | tcp_ack),
	redirect("SYN beside every other flag", to(upstream_server, 80, 0xff), mark, portal(0, 1), 10081,
		 {connection(0, upstream_server, 80)}, {}, 0xff),
	redirect("Every flag but SYN", to(upstream_server, 80, 0xfd), mark, portal(0, 1), 10081, {}, {}, 0xfd),
};
INSTANTIATE_TEST_SUITE_P(Web, PreRoutingCheckRedirect, ::testing::ValuesIn(web), packet_case_name);

const PacketCase mirel_rows[] = {
	redirect("HTTP of a MIREL client", to(upstream_server, 80), mirel, portal(27, 1), 86,
		 {connection(27, upstream_server, 80)}),
	redirect("HTTPS of a MIREL client", to(upstream_server, 443), mirel, portal(27, 1), 87,
		 {connection(27, upstream_server, 443)}),
	redirect("HTTPS of a MIREL client, whatever its switch says", to(upstream_server, 443), mirel,
		 all_of({portal(27, 1), block_https(27, 0)}), 87, {connection(27, upstream_server, 443)}),
	redirect("HTTP of a MIREL client in mode 7", to(private_server, 80), mirel, portal(27, 7), 86,
		 {connection(27, private_server, 80)}),
	redirect("A later segment of a MIREL client", to(upstream_server, 80, tcp_ack), mirel, portal(27, 1), 86, {},
		 {}, tcp_ack),
};
INSTANTIATE_TEST_SUITE_P(Mirel, PreRoutingCheckRedirect, ::testing::ValuesIn(mirel_rows), packet_case_name);

const PacketCase mode_7[] = {
	redirect("HTTP to a private address in mode 7", to(private_server, 80), mark, portal(0, 7), 90,
		 {connection(25, private_server, 80)}),
	redirect("HTTPS to a private address in mode 7", to(private_server, 443), mark, portal(0, 7), 91,
		 {connection(25, private_server, 443)}),
	redirect("HTTP to a gateway that is not set in mode 7", to(router, 80), mark, portal(0, 7), 90,
		 {connection(25, router, 80)}),
	redirect("HTTP into the interfaces own garden in mode 7", to(private_server, 80), mark,
		 all_of({portal(0, 7), garden(0, 1, {private_server.address}), resolved(private_server.address, 1)}),
		 90, {connection(25, private_server, 80)}),
};
INSTANTIATE_TEST_SUITE_P(Mode7, PreRoutingCheckRedirect, ::testing::ValuesIn(mode_7), packet_case_name);

constexpr const char *social_http_added =
	"nf_cp_check: add to table_list, if_index=26  saddr=192.168.1.11 daddr=2.2.2.2"
	"  src port=51000 dest port=80\n";
constexpr const char *social_https_added = "nf_cp_check: add to table_list, if_index=26  saddr=192.168.1.11 "
					   "daddr=2.2.2.2  src port=51000 dest port=443\n";
// The new destination, and the port before the rewrite.
constexpr const char *social_http = "[captive portal]dest ip is 2.2.2.2,daddr=192.168.1.1,dst port=80,"
				    "saddr=192.168.1.11,src port=51000\n";
constexpr const char *social_https = "[captive portal]dest ip is 2.2.2.2,daddr=192.168.1.1,dst port=443,"
				     "saddr=192.168.1.11,src port=51000\n";

const PacketCase social[] = {
	redirect("HTTP to the social login address", to(social_login, 80), mark, portal(0, 1), 83,
		 {connection(26, social_login, 80)}, lines({social_http_added, social_http})),
	redirect("HTTPS to the social login address", to(social_login, 443), mark, portal(0, 1), 84,
		 {connection(26, social_login, 443)}, lines({social_https_added, social_https})),
	redirect("HTTPS to the social login address that is not blocked", to(social_login, 443), mark,
		 all_of({portal(0, 1), block_https(0, 0)}), 84, {connection(26, social_login, 443)},
		 lines({social_https_added, social_https})),
	redirect("HTTP to the social login address inside a garden", to(social_login, 80), mark,
		 all_of({portal(0, 1), garden(0, 1, {social_login.address}), resolved(social_login.address, 1)}), 83,
		 {connection(26, social_login, 80)}, lines({social_http_added, social_http})),
	redirect("HTTP of a MIREL client to the social login address", to(social_login, 80), mirel, portal(27, 1), 83,
		 {connection(26, social_login, 80)}, lines({social_http_added, social_http})),
	redirect("A later segment to the social login address", to(social_login, 80, tcp_ack), mark, portal(0, 1), 83,
		 {}, lines({social_http}), tcp_ack),
	redirect("A repeated SYN to the social login address", to(social_login, 80), mark,
		 all_of({portal(0, 1), recorded({connection(26, social_login, 443)})}), 83,
		 {connection(26, social_login, 80)}, lines({social_http})),
};
INSTANTIATE_TEST_SUITE_P(SocialLogin, PreRoutingCheckRedirect, ::testing::ValuesIn(social), packet_case_name);

constexpr Connection of_second_client = {
	0, second_client_of_wlan_1_1.address, 51000, upstream_server.address, 80, router_mac};
constexpr Connection of_other_port = {0, client.address, 51001, upstream_server.address, 80, router_mac};

const PacketCase known[] = {
	redirect("A repeated SYN changes the entry but not its MAC", to(second_upstream_server, 443), mark,
		 all_of({portal(0, 1),
			 recorded({of_second_client,
				   {0, client.address, 51000, upstream_server.address, 80, {2, 9, 9, 9, 9, 9}},
				   of_other_port})}),
		 10444,
		 {of_second_client,
		  {0, client.address, 51000, second_upstream_server.address, 443, {2, 9, 9, 9, 9, 9}},
		  of_other_port}),
	redirect("A new connection goes to the end of its list", to(upstream_server, 80), mark,
		 all_of({portal(0, 1), recorded({of_second_client, of_other_port})}), 10081,
		 {of_second_client, of_other_port, connection(0, upstream_server, 80)}),
	redirect("The same client and port in another row is another connection", to(upstream_server, 80), mark,
		 all_of({portal(0, 1), recorded({connection(1, second_upstream_server, 80)})}), 10081,
		 {connection(0, upstream_server, 80), connection(1, second_upstream_server, 80)}),
};
INSTANTIATE_TEST_SUITE_P(KnownClient, PreRoutingCheckRedirect, ::testing::ValuesIn(known), packet_case_name);

constexpr uint8_t ip_options[40] = {0x94, 0x04, 0x00, 0x00, 1, 1, 1, 1};

const PacketCase frames[] = {
	redirect("A SYN with TCP options", to(upstream_server, 80).tcp_options(std::array<uint8_t, 4>{2, 4, 5, 0xb4}),
		 mark, portal(0, 1), 10081, {connection(0, upstream_server, 80)}),
	redirect("A segment with a payload of odd length",
		 to(upstream_server, 80, tcp_ack).payload("GET / HTTP/1.1\r\n."), mark, portal(0, 1), 10081, {}, {},
		 tcp_ack),
	redirect("A padded SYN", to(upstream_server, 80).pad(60), mark, portal(0, 1), 10081,
		 {connection(0, upstream_server, 80)}),
	redirect("The first fragment of a SYN", to(upstream_server, 80).more_fragments(), mark, portal(0, 1), 10081,
		 {connection(0, upstream_server, 80)}),
	redirect("A SYN to a group MAC", to(upstream_server, 80).destination_mac({1, 0, 0x5e, 0, 0, 1}), mark,
		 portal(0, 1), 10081, {{0, client.address, 51000, upstream_server.address, 80, {1, 0, 0x5e, 0, 0, 1}}}),
};

// The same frame, as it leaves.
std::vector<PacketCase> with_frames_out()
{
	std::vector<PacketCase> rows(std::begin(frames), std::end(frames));
	rows[0].frame_out = to(access_point, 10081).tcp_options(std::array<uint8_t, 4>{2, 4, 5, 0xb4});
	rows[1].frame_out = to(access_point, 10081, tcp_ack).payload("GET / HTTP/1.1\r\n.");
	rows[2].frame_out = to(access_point, 10081).pad(60);
	rows[3].frame_out = to(access_point, 10081).more_fragments();
	for (size_t bytes = 4; bytes <= 40; bytes += 4) {
		const std::span<const uint8_t> options = std::span(ip_options).first(bytes);
		rows.push_back(redirect("A SYN with " + std::to_string(bytes) + " bytes of IPv4 options",
					to(upstream_server, 80).ip_options(options), mark, portal(0, 1), 10081,
					{connection(0, upstream_server, 80)}));
		rows.back().frame_out = to(access_point, 10081).ip_options(options);
	}
	return rows;
}
INSTANTIATE_TEST_SUITE_P(Frames, PreRoutingCheckRedirect, ::testing::ValuesIn(with_frames_out()), packet_case_name);

// ---- Every redirect port of every interface -------------------------------------------------------------------------

class PreRoutingCheckPorts : public HostTest
{
protected:
	void SetUp() override
	{
		build_access_point(machine);
		load_module();
	}

	// Runs the check; the frame that leaves, or none when it was dropped.
	std::optional<Frame> check(const Frame &frame, uint32_t packet_mark, std::optional<std::string> device)
	{
		packet = packet_of(frame);
		packet.mark = packet_mark;
		packet.in_name = device;
		return host::run_hook(nf_cp_check, packet) == CP_ACCEPT ? std::optional(packet.frame()) : std::nullopt;
	}

	host::PacketBuffer packet{Frame()};
};

struct InterfaceRow {
	uint32_t mark;
	const char *device;
	uint16_t http_port;
	uint16_t https_port;
};

constexpr InterfaceRow interfaces[24] = {
	{5200, "wlan-1-1", 10081, 10444}, {5201, "wlan-1-2", 10082, 10445}, {5202, "wlan-1-3", 10083, 10446},
	{5203, "wlan-1-4", 10084, 10447}, {5204, "wlan-1-5", 10085, 10448}, {5205, "wlan-1-6", 10086, 10449},
	{5206, "wlan-1-7", 10087, 10450}, {5207, "wlan-1-8", 10088, 10451}, {5220, "wlan-2-1", 20081, 20444},
	{5221, "wlan-2-2", 20082, 20445}, {5222, "wlan-2-3", 20083, 20446}, {5223, "wlan-2-4", 20084, 20447},
	{5224, "wlan-2-5", 20085, 20448}, {5225, "wlan-2-6", 20086, 20449}, {5226, "wlan-2-7", 20087, 20450},
	{5227, "wlan-2-8", 20088, 20451}, {5240, "wlan-3-1", 30081, 30444}, {5241, "wlan-3-2", 30082, 30445},
	{5242, "wlan-3-3", 30083, 30446}, {5243, "wlan-3-4", 30084, 30447}, {5244, "wlan-3-5", 30085, 30448},
	{5245, "wlan-3-6", 30086, 30449}, {5246, "wlan-3-7", 30087, 30450}, {5247, "wlan-3-8", 30088, 30451},
};

TEST_F(PreRoutingCheckPorts, AreTheInterfacesOwn)
{
	std::vector<Connection> expected;
	for (uint32_t i = 0; i < 24; ++i) {
		SCOPED_TRACE(interfaces[i].device);
		set_portal(machine, CAPTIVE_PORTAL, static_cast<int32_t>(i), 1);
		EXPECT_EQ(check(to(upstream_server, 80), interfaces[i].mark, interfaces[i].device),
			  Frame(to(access_point, interfaces[i].http_port)));
		EXPECT_EQ(check(to(upstream_server, 443).tcp(51001, 443), interfaces[i].mark, interfaces[i].device),
			  Frame(to(access_point, interfaces[i].https_port).tcp(51001, interfaces[i].https_port)));
		expected.push_back(connection(i, upstream_server, 80));
		expected.push_back({i, client.address, 51001, upstream_server.address, 443, router_mac});
	}
	EXPECT_EQ(connections(), expected);
}

TEST_F(PreRoutingCheckPorts, AreTheSameForEveryInterfaceInMode7)
{
	for (uint32_t i = 0; i < 24; ++i) {
		SCOPED_TRACE(interfaces[i].device);
		set_portal(machine, CAPTIVE_PORTAL, static_cast<int32_t>(i), 7);
		EXPECT_EQ(check(to(private_server, 80), interfaces[i].mark, interfaces[i].device),
			  Frame(to(access_point, 90)));
		EXPECT_EQ(check(to(private_server, 443), interfaces[i].mark, interfaces[i].device),
			  Frame(to(access_point, 91)));
	}
	// Each SYN came from the same client and port, so each changed the one entry of row 25.
	EXPECT_EQ(connections(), std::vector{connection(25, private_server, 443)});
}

TEST_F(PreRoutingCheckPorts, OfAnyNumberButTwoAreDropped)
{
	set_portal(machine, CAPTIVE_PORTAL, 0, 1);
	set_portal(machine, CAPTIVE_PORTAL, 1, 7);
	set_portal(machine, CAPTIVE_PORTAL, 27, 1);
	for (uint32_t port = 0; port < 65536; port += port < 1100 ? 1 : 97) {
		if (port == 80 || port == 443) {
			continue;
		}
		const Frame syn = to(private_server, static_cast<uint16_t>(port));
		for (const uint32_t packet_mark : {5200u, 5201u, 5302u}) {
			ASSERT_EQ(check(syn, packet_mark, "wlan-1-1"), std::nullopt) << port;
			ASSERT_EQ(packet.frame(), syn);
		}
	}
	EXPECT_EQ(connections(), std::vector<Connection>{});
}

// ---- Who the access point is ----------------------------------------------------------------------------------------

TEST_F(PreRoutingCheckPorts, LieOnBr0sAddressAndTheIngressBridgesMac)
{
	set_portal(machine, CAPTIVE_PORTAL, 0, 1);
	machine.devices.put("br1", {.mac = {2, 0xaa, 0, 0, 0, 9}, .ipv4 = {{ipv4(192, 168, 9, 1).raw}}});
	machine.devices.put("wlan-1-1", {.bridge = "br1"});
	EXPECT_EQ(check(to(upstream_server, 80), 5200, "wlan-1-1"),
		  Frame(to(access_point, 10081).destination_mac({2, 0xaa, 0, 0, 0, 9})));
	EXPECT_EQ(ap_addr, access_point.address);
}

TEST_F(PreRoutingCheckPorts, FollowANewAddressAndMac)
{
	set_portal(machine, CAPTIVE_PORTAL, 0, 1);
	EXPECT_EQ(check(to(upstream_server, 80), 5200, "wlan-1-1"), Frame(to(access_point, 10081)));
	const Host moved = {{2, 0xaa, 0, 0, 0, 7}, ipv4(192, 168, 77, 1)};
	machine.devices.put("br0", {.mac = moved.mac, .ipv4 = {{moved.address.raw}}});
	EXPECT_EQ(check(to(upstream_server, 80), 5200, "wlan-1-1"), Frame(to(moved, 10081)));
	// Another web server at the old address is redirected, the access point at its new one passes.
	EXPECT_EQ(check(to(access_point, 80), 5200, "wlan-1-1"), Frame(to(moved, 10081)));
	EXPECT_EQ(check(to(moved, 80), 5200, "wlan-1-1"), Frame(to(moved, 80)));
}

TEST_F(PreRoutingCheckPorts, StayAtTheOldAddressAndMacWhenBr0LosesItsAddress)
{
	set_portal(machine, CAPTIVE_PORTAL, 0, 1);
	EXPECT_EQ(check(to(upstream_server, 80), 5200, "wlan-1-1"), Frame(to(access_point, 10081)));
	machine.devices.put("br0", {.mac = {2, 0xaa, 0, 0, 0, 7}, .ipv4 = std::vector<uint32_t>{}});
	EXPECT_EQ(check(to(upstream_server, 80), 5200, "wlan-1-1"), Frame(to(access_point, 10081)));
}

TEST_F(PreRoutingCheckPorts, LieOnBr0ForAnIngressThatIsNoPort)
{
	set_portal(machine, CAPTIVE_PORTAL, 0, 1);
	machine.devices.put("wlan-1-1", {});
	EXPECT_EQ(check(to(upstream_server, 80), 5200, "wlan-1-1"), Frame(to(access_point, 10081)));
}

TEST_F(PreRoutingCheckPorts, AreNotReachedFromAnIngressThatIsGone)
{
	// No bridge of the empty name: who the access point is cannot be told.
	set_portal(machine, CAPTIVE_PORTAL, 0, 1);
	EXPECT_EQ(check(to(upstream_server, 80), 5200, "wlan-9-9"), Frame(to(upstream_server, 80)));
	EXPECT_EQ(connections(), std::vector<Connection>{});
}

TEST_F(PreRoutingCheckPorts, AreNotReachedWithoutAnIngress)
{
	set_portal(machine, CAPTIVE_PORTAL, 0, 1);
	EXPECT_EQ(check(to(upstream_server, 80), 5200, std::nullopt), Frame(to(upstream_server, 80)));
	EXPECT_EQ(connections(), std::vector<Connection>{});
}

// The rewritten packet is looked at for special marks and addresses once more: its destination is the social login's
// address then, and its port none of the two that are sent on from there.
TEST_F(PreRoutingCheckPorts, AreNotReachedOnAnAccessPointWithTheSocialLoginAddress)
{
	machine.devices.put("br0", {.mac = access_point.mac, .ipv4 = {{social_login.address.raw}}});
	set_portal(machine, CAPTIVE_PORTAL, 0, 1);
	EXPECT_EQ(check(to(upstream_server, 80), 5200, "wlan-1-1"), std::nullopt);
	EXPECT_EQ(check(to(upstream_server, 443), 5200, "wlan-1-1"), std::nullopt);
}

// ---- Memory that cannot be had --------------------------------------------------------------------------------------

TEST_F(PreRoutingCheckPorts, AreReachedWithoutMemoryForTheConnection)
{
	set_portal(machine, CAPTIVE_PORTAL, 0, 1);
	machine.memory.fail_all_allocations(true);
	EXPECT_EQ(check(to(upstream_server, 80), 5200, "wlan-1-1"), Frame(to(access_point, 10081)));
	EXPECT_EQ(check(to(social_login, 80), 5200, "wlan-1-1"), Frame(to(access_point, 83)));
	machine.memory.fail_all_allocations(false);
	EXPECT_EQ(connections(), std::vector<Connection>{});
}

TEST_F(PreRoutingCheckPorts, SaysThatItAddsEvenWhenItThenCannot)
{
	set_portal(machine, CAPTIVE_PORTAL, 0, 1);
	set_debug_level(machine, 3);
	machine.memory.fail_allocation(1);
	EXPECT_EQ(check(to(social_login, 80), 5200, "wlan-1-1"), Frame(to(access_point, 83)));
	EXPECT_EQ(machine.log.take(), lines({social_http_added, social_http}));
	EXPECT_EQ(connections(), std::vector<Connection>{});
}

TEST_F(PreRoutingCheckPorts, AreNotReachedByAPacketThatCannotBeMadeWritable)
{
	set_portal(machine, CAPTIVE_PORTAL, 0, 1);
	set_portal(machine, CAPTIVE_PORTAL, 27, 1);
	for (const auto &[server, packet_mark] :
	     {std::pair{upstream_server, mark}, {social_login, mark}, {upstream_server, mirel}}) {
		const Frame syn = to(server, 80);
		packet = packet_of(syn);
		packet.mark = packet_mark;
		packet.in_name = "wlan-1-1";
		packet.fail_make_writable = true;
		EXPECT_EQ(host::run_hook(nf_cp_check, packet), CP_DROP);
		EXPECT_EQ(packet.frame(), syn);
		EXPECT_EQ(packet.type, host::PacketType::other_host);
		EXPECT_EQ(packet.make_writable_calls, 1u);
	}
}

} // namespace

} // namespace captive_portal::test
