// SPDX-License-Identifier: GPL-2.0-only
#include "platform/platform.h"

#include <array>
#include <string>

#include "tests/support/checksum_validator.h"
#include "tests/support/packets.h"
#include "tests/unit/portal_case.h"

namespace captive_portal::test
{

namespace
{

constexpr Host client = client_of_wlan_1_1;
constexpr Host second_client = second_client_of_wlan_1_1;

// A reply of the access point's web service, and what the client shall see.
FrameBuilder reply(uint16_t port, uint8_t flags = tcp_ack)
{
	return frame().from(access_point).to(client).tcp(port, 51000).flags(flags);
}
FrameBuilder seen(const Host &server, uint16_t port, uint8_t flags = tcp_ack)
{
	return frame().from(server).to(client).tcp(port, 51000).flags(flags);
}

Connection connection(uint32_t row, const Host &server = upstream_server, uint16_t port = 80)
{
	return {row, client.address, 51000, server.address, port, server.mac};
}

// The access point's address is known, and these connections are recorded.
State known(std::vector<Connection> connections)
{
	return [=](host::Machine &) {
		ap_addr = access_point.address;
		for (const Connection &connection : connections) {
			record(connection);
		}
	};
}

PacketCase rewritten(std::string description, const FrameBuilder &frame, std::vector<Connection> before,
		     const FrameBuilder &frame_out, std::vector<Connection> after)
{
	return {.description = std::move(description),
		.frame = frame,
		.point = HookPoint::post_routing,
		.device = "wlan-1-1",
		.state = known(std::move(before)),
		.verdict = CP_ACCEPT,
		.frame_out = frame_out,
		.afterwards = records(std::move(after))};
}

PacketCase untouched(std::string description, const Frame &frame, std::vector<Connection> before,
		     std::vector<Connection> after, std::vector<host::LogLine> log = {})
{
	return {.description = std::move(description),
		.frame = frame,
		.point = HookPoint::post_routing,
		.device = "wlan-1-1",
		.state = known(std::move(before)),
		.verdict = CP_ACCEPT,
		.log = std::move(log),
		.afterwards = records(std::move(after))};
}

PacketCase leaving_by(PacketCase row, std::string device)
{
	row.device = std::move(device);
	return row;
}

PacketCase not_writable(PacketCase row)
{
	row.fail_make_writable = true;
	return row;
}

class PostRoutingRewrite : public PacketCaseTest
{
};

TEST_P(PostRoutingRewrite, GivesFrameAndConnections)
{
	run_portal_case(nf_cp_change, GetParam());
}

constexpr Connection first = {0, client.address, 51000, upstream_server.address, 80, router_mac};
constexpr Connection of_second_client = {0,         second_client.address, 51000, second_upstream_server.address, 80,
					 router_mac};
constexpr Connection of_other_port = {0, client.address, 51001, second_upstream_server.address, 80, router_mac};

constexpr std::array<uint8_t, 4> segment_size = {2, 4, 5, 0xb4};
constexpr std::array<uint8_t, 8> ip_options = {0x94, 4, 0, 0, 1, 1, 1, 1};

const PacketCase replies[] = {
	rewritten("A SYN and ACK", reply(10081, tcp_syn | tcp_ack).tcp_options(segment_size), {first},
		  seen(upstream_server, 80, tcp_syn | tcp_ack).tcp_options(segment_size), {first}),
	rewritten("A page", reply(10081).payload("HTTP/1.1 302 Found\r\n"), {first},
		  seen(upstream_server, 80).payload("HTTP/1.1 302 Found\r\n"), {first}),
	rewritten("A payload of odd length", reply(10081).payload("odd"), {first},
		  seen(upstream_server, 80).payload("odd"), {first}),
	rewritten("HTTPS", reply(10444), {connection(0, upstream_server, 443)}, seen(upstream_server, 443),
		  {connection(0, upstream_server, 443)}),
	rewritten("A reset", reply(10081, tcp_rst), {first}, seen(upstream_server, 80, tcp_rst), {first}),
	rewritten("A FIN without ACK", reply(10081, tcp_fin), {first}, seen(upstream_server, 80, tcp_fin), {first}),
	rewritten("All flags but FIN", reply(10081, 0xfe), {first}, seen(upstream_server, 80, 0xfe), {first}),
	rewritten("All flags but ACK", reply(10081, 0xef), {first}, seen(upstream_server, 80, 0xef), {first}),
	rewritten("The recorded MAC, not the servers of today", reply(10081),
		  {{0, client.address, 51000, upstream_server.address, 80, {2, 9, 8, 7, 6, 5}}},
		  seen(upstream_server, 80).source_mac({2, 9, 8, 7, 6, 5}),
		  {{0, client.address, 51000, upstream_server.address, 80, {2, 9, 8, 7, 6, 5}}}),
	rewritten("The clients first entry", reply(10081),
		  {of_second_client, of_other_port, first, connection(0, dns_filter)}, seen(upstream_server, 80),
		  {of_second_client, of_other_port, first, connection(0, dns_filter)}),
	rewritten("IPv4 options", reply(10081).ip_options(ip_options), {first},
		  seen(upstream_server, 80).ip_options(ip_options), {first}),
	rewritten("A padded frame", reply(10081).pad(60), {first}, seen(upstream_server, 80).pad(60), {first}),
	rewritten("A first fragment", reply(10081).more_fragments().payload("begin"), {first},
		  seen(upstream_server, 80).more_fragments().payload("begin"), {first}),
	leaving_by(rewritten("Any egress port", reply(10081), {first}, seen(upstream_server, 80), {first}), "eth0"),
	leaving_by(rewritten("A device whose name only begins as the loopbacks", reply(10081), {first},
			     seen(upstream_server, 80), {first}),
		   "lo0"),
	leaving_by(untouched("The loopback device", reply(10081), {first}, {first}), "lo"),
	leaving_by(untouched("An end on the loopback device", reply(10081, tcp_fin | tcp_ack), {first}, {first}), "lo"),
};
INSTANTIATE_TEST_SUITE_P(Replies, PostRoutingRewrite, ::testing::ValuesIn(replies), packet_case_name);

const PacketCase ends[] = {
	rewritten("FIN and ACK", reply(10081, tcp_fin | tcp_ack), {first}, seen(upstream_server, 80, tcp_fin | tcp_ack),
		  {}),
	rewritten("FIN and ACK beside every other flag", reply(10081, 0xff), {first}, seen(upstream_server, 80, 0xff),
		  {}),
	rewritten("The end of the lists first", reply(10081, tcp_fin | tcp_ack),
		  {first, of_second_client, of_other_port}, seen(upstream_server, 80, tcp_fin | tcp_ack),
		  {of_second_client, of_other_port}),
	rewritten("The end in the middle", reply(10081, tcp_fin | tcp_ack), {of_second_client, first, of_other_port},
		  seen(upstream_server, 80, tcp_fin | tcp_ack), {of_second_client, of_other_port}),
	rewritten("The end of the lists last", reply(10081, tcp_fin | tcp_ack),
		  {of_second_client, of_other_port, first}, seen(upstream_server, 80, tcp_fin | tcp_ack),
		  {of_second_client, of_other_port}),
	rewritten("One of two entries of a client", reply(10081, tcp_fin | tcp_ack), {first, connection(0, dns_filter)},
		  seen(upstream_server, 80, tcp_fin | tcp_ack), {connection(0, dns_filter)}),
	untouched("A later segment of an ended connection", reply(10081), {of_second_client}, {of_second_client}),
	untouched("The end from another source frees and does not rewrite",
		  frame().from(upstream_server).to(client).tcp(10081, 51000).fin_ack(), {first}, {}),
	untouched("The end from another source to another client",
		  frame().from(upstream_server).to(second_client).tcp(10081, 51000).fin_ack(), {first}, {first}),
	untouched("Another segment from another source",
		  frame().from(upstream_server).to(client).tcp(10081, 51000).ack(), {first}, {first}),
	untouched("A FIN without ACK from another source",
		  frame().from(upstream_server).to(client).tcp(10081, 51000).flags(tcp_fin), {first}, {first}),
};
INSTANTIATE_TEST_SUITE_P(Ends, PostRoutingRewrite, ::testing::ValuesIn(ends), packet_case_name);

constexpr const char *pass_line =
	"[nf_cp_change] in_name=(null) out_name=wlan-1-1 saddr=192.168.1.1 daddr=192.168.1.11 pass\n";

const PacketCase strangers[] = {
	untouched("A client without an entry", reply(10081), {of_second_client, of_other_port},
		  {of_second_client, of_other_port}),
	untouched("The end of a client without an entry", reply(10081, tcp_fin | tcp_ack), {of_second_client},
		  {of_second_client}),
	untouched("An entry of another row", reply(10081), {connection(1), connection(24), connection(27)},
		  {connection(1), connection(24), connection(27)}),
	untouched("A port that is no redirect port", reply(8080), {first}, {first}, lines({pass_line})),
	untouched("The end on a port that is no redirect port", reply(8080, tcp_fin | tcp_ack), {first}, {first},
		  lines({pass_line})),
	untouched("A redirect port as destination", frame().from(access_point).to(client).tcp(51000, 10081).ack(),
		  {first}, {first}, lines({pass_line})),
	leaving_by(untouched("A stranger through another port",
			     frame().from(upstream_server).to(wired_host).tcp(443, 5).ack(), {first}, {first},
			     lines({"[nf_cp_change] in_name=(null) out_name=eth0 saddr=203.0.113.10 "
				    "daddr=192.168.1.77 pass\n"})),
		   "eth0"),
	untouched("UDP from a redirect port", frame().from(access_point).to(client).udp(10081, 51000), {first},
		  {first}),
	untouched("A DNS answer", frame().from(upstream_dns).to(client).udp(53, 51000).payload("answer"), {first},
		  {first}),
	untouched("ICMP", frame().from(access_point).to(client).icmp(0), {first}, {first}),
	untouched("ARP", frame().from(access_point).to(client).arp(), {first}, {first}),
	untouched("IPv6", frame().from(access_point).to(client).ipv6(58), {first}, {first}),
};
INSTANTIATE_TEST_SUITE_P(Strangers, PostRoutingRewrite, ::testing::ValuesIn(strangers), packet_case_name);

const PacketCase no_memory[] = {
	not_writable(untouched("A reply that cannot be made writable", reply(10081), {first}, {first})),
	not_writable(untouched("An end that cannot be made writable frees all the same",
			       reply(10081, tcp_fin | tcp_ack), {first}, {})),
};
INSTANTIATE_TEST_SUITE_P(NoMemory, PostRoutingRewrite, ::testing::ValuesIn(no_memory), packet_case_name);

// ---- Every redirect port --------------------------------------------------------------------------------------------

class ReplyPorts : public HostTest
{
protected:
	void SetUp() override
	{
		build_access_point(machine);
		load_module();
		ap_addr = access_point.address;
		// In every row another server, so that the reply tells which row was asked.
		for (uint8_t row = 0; row < CP_ROWS; ++row) {
			record(connection(row, server_of(row)));
		}
	}

	static Host server_of(uint8_t row) { return {{2, 0x22, 0, 0, 1, row}, ipv4(203, 0, 113, row)}; }

	// The frame that leaves when the access point answers from this port.
	static Frame leaves(const Frame &frame)
	{
		host::PacketBuffer packet = packet_of(frame);
		packet.out_name = "wlan-1-1";
		EXPECT_EQ(host::run_hook(nf_cp_change, packet), CP_ACCEPT);
		return packet.frame();
	}

	static void expect_row(uint16_t port, uint8_t row)
	{
		EXPECT_EQ(leaves(reply(port)), Frame(seen(server_of(row), 80))) << "port " << port << ", row " << +row;
	}
};

TEST_F(ReplyPorts, OfSpecialMarksAskRow24)
{
	for (const uint16_t port : {82, 88, 89}) {
		expect_row(port, 24);
	}
	for (uint16_t port = 1025; port <= 1058; ++port) {
		expect_row(port, 24);
	}
}

TEST_F(ReplyPorts, OfSocialLoginMirelAndMode7AskTheirRows)
{
	for (const auto &[port, row] :
	     {std::pair<uint16_t, uint8_t>{83, 26}, {84, 26}, {86, 27}, {87, 27}, {90, 25}, {91, 25}}) {
		expect_row(port, row);
	}
}

TEST_F(ReplyPorts, OfAnInterfaceAskItsRow)
{
	for (uint8_t radio = 0; radio < 3; ++radio) {
		for (uint8_t vap = 0; vap < 8; ++vap) {
			const int first_port = 10000 * (radio + 1) + 81 + vap;
			expect_row(static_cast<uint16_t>(first_port), static_cast<uint8_t>(8 * radio + vap));
			expect_row(static_cast<uint16_t>(first_port + 363), static_cast<uint8_t>(8 * radio + vap));
		}
	}
}

TEST_F(ReplyPorts, BesideThoseAskNoRow)
{
	for (const uint16_t port : {0, 80, 81, 85, 92, 443, 1024, 1059, 10080, 10089, 10443, 10452, 20080, 20089, 30089,
				    30443, 30452, 40081, 65535}) {
		const Frame frame = reply(port);
		EXPECT_EQ(leaves(frame), frame) << port;
	}
}

TEST_F(ReplyPorts, TakeTheLockOnceAndOnlyForWhatConcernsThem)
{
	const auto holds = [&](const Frame &frame) {
		const uint64_t before = machine.locks.acquisitions(CP_LOCK_CHANGE_IP_PORT);
		(void)leaves(frame);
		return machine.locks.acquisitions(CP_LOCK_CHANGE_IP_PORT) - before;
	};
	EXPECT_EQ(holds(reply(10081)), 1u);
	EXPECT_EQ(holds(reply(8080)), 0u);
	EXPECT_EQ(holds(frame().from(upstream_server).to(client).tcp(10081, 51000).ack()), 0u);
	EXPECT_EQ(holds(frame().from(upstream_server).to(client).tcp(10081, 51000).fin_ack()), 1u);
	EXPECT_EQ(holds(frame().from(access_point).to(client).udp(10081, 51000)), 0u);
}

TEST_F(ReplyPorts, DoNotMakeAPacketWritableForNothing)
{
	for (const Frame &frame : {Frame(reply(8080)), Frame(FrameBuilder(reply(10081)).to(wired_host)),
				   Frame(frame().from(upstream_server).to(client).tcp(10081, 51000).fin_ack())}) {
		host::PacketBuffer packet = packet_of(frame);
		packet.out_name = "wlan-1-1";
		EXPECT_EQ(host::run_hook(nf_cp_change, packet), CP_ACCEPT);
		EXPECT_EQ(packet.make_writable_calls, 0u);
	}
}

// ---- Checksums ------------------------------------------------------------------------------------------------------

// A large packet of the web service, whose checksum and segments the hardware makes.
TEST_F(ReplyPorts, OfALargePacketGiveRightSegments)
{
	std::string page;
	for (int i = 0; i < 6000; ++i) {
		page += static_cast<char>('a' + i % 26);
	}
	for (const host::Layout layout : {host::Layout::linear, host::Layout::headers_only}) {
		host::PacketBuffer packet = packet_of(reply(10081).payload(page), host::ChecksumState::partial, layout);
		const host::PacketBuffer capture = packet.clone();
		const Frame before = capture.frame();
		packet.out_name = "wlan-1-1";
		EXPECT_EQ(host::run_hook(nf_cp_change, packet), CP_ACCEPT);
		EXPECT_EQ(packet.checksum_state(), host::ChecksumState::partial);
		const std::vector<Frame> segments = segments_on_wire(packet, 1460);
		ASSERT_EQ(segments.size(), 5u);
		std::string received;
		for (const Frame &segment : segments) {
			EXPECT_TRUE(ipv4_header_checksum_is_right(segment));
			EXPECT_TRUE(transport_checksum_is_right(segment));
			// Destination MAC stays; source MAC, source address and source port are the server's.
			EXPECT_EQ(Frame(segment.begin(), segment.begin() + 12),
				  Frame({0x02, 0x11, 1, 1, 1, 0, 2, 0x22, 0, 0, 1, 0}));
			EXPECT_EQ(Frame(segment.begin() + 26, segment.begin() + 38),
				  Frame({203, 0, 113, 0, 192, 168, 1, 11, 0, 80, 0xc7, 0x38}));
			received.append(segment.begin() + 54, segment.end());
		}
		EXPECT_EQ(received, page);
		EXPECT_EQ(capture.frame(), before);
	}
}

// A reply of 192.168.1.1:10081, worked out by hand: the checksums before and after.
TEST_F(ReplyPorts, ChangeTheFrameByteForByte)
{
	const Frame before = {
		0x02, 0x11, 0x01, 0x01, 0x01, 0x00, 0x02, 0xaa, 0x00, 0x00, 0x00, 0x01, 0x08, 0x00, // Ethernet
		0x45, 0x00, 0x00, 0x28, 0x12, 0x34, 0x00, 0x00, 0x40, 0x06, 0xe5, 0x3f, 0xc0, 0xa8, 0x01, 0x01, // IPv4
		0xc0, 0xa8, 0x01, 0x0b,                                                                         //
		0x27, 0x61, 0xc7, 0x38, 0x00, 0x00, 0x03, 0xe8, 0x00, 0x00, 0x07, 0xd0, 0x50, 0x12, 0xfa, 0xf0, // TCP
		0x37, 0x33, 0x00, 0x00,
	};
	const Frame after = {
		0x02, 0x11, 0x01, 0x01, 0x01, 0x00, 0x02, 0x22, 0x00, 0x00, 0x01, 0x00, 0x08, 0x00, // Ethernet
		0x45, 0x00, 0x00, 0x28, 0x12, 0x34, 0x00, 0x00, 0x40, 0x06, 0x6a, 0xe8, 0xcb, 0x00, 0x71, 0x00, // IPv4
		0xc0, 0xa8, 0x01, 0x0b,                                                                         //
		0x00, 0x50, 0xc7, 0x38, 0x00, 0x00, 0x03, 0xe8, 0x00, 0x00, 0x07, 0xd0, 0x50, 0x12, 0xfa, 0xf0, // TCP
		0xe3, 0xec, 0x00, 0x00,
	};
	EXPECT_EQ(leaves(before), after);
}

TEST_F(ReplyPorts, MendTheIpv4HeaderChecksumButNotTheTcpOne)
{
	EXPECT_EQ(leaves(reply(10081).header_checksum(0xdead)), Frame(seen(server_of(0), 80)));
	const Frame damaged = leaves(reply(10081).transport_checksum(0x1234));
	EXPECT_TRUE(ipv4_header_checksum_is_right(damaged));
	EXPECT_FALSE(transport_checksum_is_right(damaged));
}

// The hooks run before start has filled the rows, whose ports are 0 until then.
TEST(ReplyPortsBeforeStart, ZeroAsksTheFirstRow)
{
	host::Machine machine;
	build_access_point(machine);
	ap_addr = access_point.address;
	record(connection(0, upstream_server));
	host::PacketBuffer packet = packet_of(reply(0));
	packet.out_name = "wlan-1-1";
	EXPECT_EQ(host::run_hook(nf_cp_change, packet), CP_ACCEPT);
	EXPECT_EQ(packet.frame(), Frame(seen(upstream_server, 80)));
}

} // namespace

} // namespace captive_portal::test
