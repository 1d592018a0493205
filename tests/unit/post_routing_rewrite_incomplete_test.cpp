// SPDX-License-Identifier: GPL-2.0-only
// Replies whose headers are cut, hidden or lie. They all leave; what counts is whether they are rewritten, and whether
// they end a connection.
#include <string>

#include "tests/unit/every_length.h"
#include "tests/unit/portal_case.h"

namespace captive_portal::test
{

namespace
{

constexpr Host client = client_of_wlan_1_1;
constexpr Connection first = {0, client.address, 51000, upstream_server.address, 80, router_mac};

FrameBuilder reply(uint8_t flags, uint16_t port = 10081)
{
	return frame().from(access_point).to(client).tcp(port, 51000).flags(flags);
}
FrameBuilder seen(uint8_t flags)
{
	return frame().from(upstream_server).to(client).tcp(80, 51000).flags(flags);
}

constexpr uint8_t end = tcp_fin | tcp_ack;

State known()
{
	return [](host::Machine &) {
		ap_addr = access_point.address;
		record(first);
	};
}

void at_every_length(const Frame &whole, const std::vector<LengthRange> &ranges, const Frame &whole_out = {})
{
	expect_at_every_length(nf_cp_change, whole, 0, known(), ranges, whole_out);
}

TEST(CutReplies, AreRewrittenOnceTheirChecksumIsThere)
{
	at_every_length(reply(tcp_ack).payload("page"),
			{{nothing, CP_ACCEPT, false, {first}}, {with_tcp_checksum, CP_ACCEPT, true, {first}}},
			seen(tcp_ack).payload("page"));
}

TEST(CutReplies, EndAConnectionOnceTheirFlagsAreThere)
{
	at_every_length(reply(end),
			{{nothing, CP_ACCEPT, false, {first}},
			 {with_tcp_flags, CP_ACCEPT, false, {}},
			 {with_tcp_checksum, CP_ACCEPT, true, {}}},
			seen(end));
}

TEST(CutReplies, FromElsewhereEndAConnectionOnceTheirFlagsAreThere)
{
	at_every_length(frame().from(upstream_server).to(client).tcp(10081, 51000).fin_ack(),
			{{nothing, CP_ACCEPT, false, {first}}, {with_tcp_flags, CP_ACCEPT, false, {}}});
}

TEST(CutReplies, OfOtherPortsAndProtocolsPass)
{
	at_every_length(reply(end, 8080), {{nothing, CP_ACCEPT, false, {first}}});
	at_every_length(frame().from(access_point).to(client).udp(53, 51000).payload("answer"),
			{{nothing, CP_ACCEPT, false, {first}}});
	at_every_length(frame().from(access_point).to(client).arp(), {{nothing, CP_ACCEPT, false, {first}}});
	at_every_length(frame().from(access_point).to(client).ipv6(6).payload("segment"),
			{{nothing, CP_ACCEPT, false, {first}}});
}

// The line about what passes needs both addresses; the port that it is about may be missing.
TEST(CutReplies, AreToldOfOnceBothAddressesAreThere)
{
	const Frame whole = reply(tcp_ack, 8080);
	for (size_t length = 0; length <= whole.size(); ++length) {
		SCOPED_TRACE(length);
		host::Machine machine;
		build_access_point(machine);
		load_module(machine);
		set_debug_level(machine, 3);
		host::PacketBuffer packet(Frame(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length)));
		packet.out_name = "wlan-1-1";
		EXPECT_EQ(host::run_hook(nf_cp_change, packet), CP_ACCEPT);
		if (length < 34) {
			EXPECT_NO_LOG();
		} else {
			EXPECT_LOG(debug_line("[nf_cp_change] in_name=(null) out_name=wlan-1-1 saddr=192.168.1.1 "
					      "daddr=192.168.1.11 pass\n"));
		}
	}
}

void run(std::string description, const Frame &in, std::vector<Connection> after, std::optional<Frame> out = {},
	 std::vector<host::LogLine> log = {})
{
	run_portal_case(nf_cp_change, {.description = std::move(description),
				       .frame = in,
				       .point = HookPoint::post_routing,
				       .device = "wlan-1-1",
				       .state = known(),
				       .verdict = CP_ACCEPT,
				       .frame_out = std::move(out),
				       .log = std::move(log),
				       .afterwards = records(std::move(after))});
}

const auto passes =
	lines({"[nf_cp_change] in_name=(null) out_name=wlan-1-1 saddr=192.168.1.1 daddr=192.168.1.11 pass\n"});

TEST(ReplyFragments, WithAnOffsetHaveNoTransportHeader)
{
	for (const uint16_t offset : {1, 0x1fff}) {
		run("a reply", reply(tcp_ack).fragment_offset(offset), {first}, {}, passes);
		run("an end", reply(end).fragment_offset(offset), {first}, {}, passes);
	}
}

// Where the ports lie for each header length is worked out in the test of the pre-routing check. The source port is then
// none of the redirect ports, but for a header length of 9, where it is the TCP checksum.
TEST(ReplyHeaderLengths, MoveThePortsInsideThePacket)
{
	for (uint8_t words = 0; words < 16; ++words) {
		SCOPED_TRACE(static_cast<int>(words));
		if (words == 5) {
			run("a true length", reply(end).ihl(words), {}, seen(end));
		} else {
			run("another length", reply(end).ihl(words).transport_checksum(0x1111), {first}, {}, passes);
		}
	}
}

// With a header length of 1, the identification is the source port and the fragment field, which is 0, the client's port.
TEST(ReplyHeaderLengths, BelowFiveEndConnectionsButAreNeverRewritten)
{
	const Connection port_zero = {0, client.address, 0, upstream_server.address, 80, router_mac};
	for (const uint8_t flags : {uint8_t{0x11}, uint8_t{0x10}}) {
		SCOPED_TRACE(static_cast<int>(flags));
		host::Machine machine;
		build_access_point(machine);
		load_module(machine);
		ap_addr = access_point.address;
		record(port_zero);
		Frame in = reply(tcp_ack).ihl(1);
		in[18] = 0x27; // identification 10081
		in[19] = 0x61;
		// Flags 13 bytes behind that lie in the destination address; the connection's client follows them.
		in[31] = flags;
		const Connection moved = {0, ipv4(192, flags, 1, 11), 0, upstream_server.address, 80, router_mac};
		record(moved);
		host::PacketBuffer packet(in);
		packet.out_name = "wlan-1-1";
		EXPECT_EQ(host::run_hook(nf_cp_change, packet), CP_ACCEPT);
		EXPECT_EQ(packet.frame(), in);
		EXPECT_EQ(connections(), flags == 0x11 ? std::vector{port_zero} : (std::vector{port_zero, moved}));
	}
}

TEST(ReplyEtherTypes, OtherThanIpv4EndConnectionsButAreNeverRewritten)
{
	for (const uint16_t type : {0x86dd, 0x8100, 0x0806, 0x0008}) {
		SCOPED_TRACE(type);
		run("a reply", reply(tcp_ack).ether_type(type), {first});
		run("an end", reply(end).ether_type(type), {});
		run("another port", reply(end, 8080).ether_type(type), {first}, {}, passes);
	}
}

TEST(ReplyTotalLengths, BoundNothing)
{
	for (const uint16_t bytes : {0, 20, 39, 65535}) {
		SCOPED_TRACE(bytes);
		host::Machine machine;
		build_access_point(machine);
		load_module(machine);
		known()(machine);
		host::PacketBuffer packet(reply(end).total_length(bytes));
		packet.out_name = "wlan-1-1";
		EXPECT_EQ(host::run_hook(nf_cp_change, packet), CP_ACCEPT);
		EXPECT_EQ(packet.frame(), Frame(seen(end).total_length(bytes)));
		EXPECT_EQ(connections(), std::vector<Connection>{});
	}
}

} // namespace

} // namespace captive_portal::test
