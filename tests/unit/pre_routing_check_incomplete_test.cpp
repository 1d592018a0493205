// SPDX-License-Identifier: GPL-2.0-only
// Packets whose headers are cut, hidden or lie: every frame at every length, fragments, header lengths, EtherTypes.
#include <array>
#include <string>

#include "tests/unit/every_length.h"
#include "tests/unit/portal_case.h"

namespace captive_portal::test
{

namespace
{

constexpr Host client = client_of_wlan_1_1;
constexpr uint32_t mark = 5200;
constexpr uint32_t mirel = 5302;
constexpr uint32_t logout = 5304;
constexpr uint32_t reputation = 5307;
constexpr uint32_t filter = 5324;

FrameBuilder from_client(const Host &server)
{
	return frame().from(client).to(server);
}

FrameBuilder to(const Host &server, uint16_t port, uint8_t flags = tcp_syn)
{
	return from_client(server).tcp(51000, port).flags(flags);
}

Connection connection(uint32_t row, const Host &server, uint16_t port)
{
	return {row, client.address, 51000, server.address, port, server.mac};
}

void at_every_length(const Frame &whole, uint32_t packet_mark, const State &state,
		     const std::vector<LengthRange> &ranges, const Frame &whole_out = {})
{
	expect_at_every_length(nf_cp_check, whole, packet_mark, state, ranges, whole_out);
}

// ---- Portal on ------------------------------------------------------------------------------------------------------

TEST(CutPackets, HttpSynIsRedirectedOnceItsChecksumIsThere)
{
	at_every_length(
		to(upstream_server, 80), mark, portal(0, 1),
		{{nothing, CP_DROP}, {with_tcp_checksum, CP_ACCEPT, true, {connection(0, upstream_server, 80)}}},
		to(access_point, 10081));
}

TEST(CutPackets, LaterSegmentIsRedirectedOnceItsChecksumIsThere)
{
	at_every_length(to(upstream_server, 443, tcp_ack).payload("hello"), mark, portal(0, 1),
			{{nothing, CP_DROP}, {with_tcp_checksum, CP_ACCEPT, true}},
			to(access_point, 10444, tcp_ack).payload("hello"));
}

TEST(CutPackets, SynOfAMirelClientIsRedirectedOnceItsChecksumIsThere)
{
	at_every_length(
		to(upstream_server, 80), mirel, portal(27, 1),
		{{nothing, CP_DROP}, {with_tcp_checksum, CP_ACCEPT, true, {connection(27, upstream_server, 80)}}},
		to(access_point, 86));
}

TEST(CutPackets, SynToTheSocialLoginAddressIsRedirectedOnceItsChecksumIsThere)
{
	at_every_length(to(social_login, 80), mark, portal(0, 1),
			{{nothing, CP_DROP}, {with_tcp_checksum, CP_ACCEPT, true, {connection(26, social_login, 80)}}},
			to(access_point, 83));
}

TEST(CutPackets, SynToAPortThatIsNotRedirectedIsDropped)
{
	at_every_length(to(upstream_server, 22), mark, portal(0, 1), {{nothing, CP_DROP}});
}

TEST(CutPackets, HttpToTheAccessPointNeedsItsPort)
{
	at_every_length(to(access_point, 80), mark, portal(0, 1),
			{{nothing, CP_DROP}, {with_destination_port, CP_ACCEPT}});
}

TEST(CutPackets, HttpsThatIsNotBlockedNeedsItsPort)
{
	at_every_length(to(upstream_server, 443), mark, all_of({portal(0, 1), block_https(0, 0)}),
			{{nothing, CP_DROP}, {with_destination_port, CP_ACCEPT}});
}

TEST(CutPackets, TcpIntoTheWalledGardenNeedsItsPort)
{
	at_every_length(to(upstream_server, 22), mark, all_of({portal(0, 1), garden(0, 1, {upstream_server.address})}),
			{{nothing, CP_DROP}, {with_destination_port, CP_ACCEPT}});
}

TEST(CutPackets, HttpsThatTheGardenDoesNotMatchIsDropped)
{
	at_every_length(to(upstream_server, 443), mark, all_of({portal(0, 1), garden(0, 1)}), {{nothing, CP_DROP}});
}

TEST(CutPackets, TcpOfAnUnknownAccessPointNeedsItsProtocol)
{
	at_every_length(to(upstream_server, 80), mark, all_of({portal(0, 1), no_device("br0")}),
			{{nothing, CP_DROP}, {with_protocol, CP_ACCEPT}});
}

TEST(CutPackets, DhcpAndDnsNeedBothPorts)
{
	for (const FrameBuilder &datagram :
	     {from_client(broadcast).udp(68, 67), from_client(upstream_dns).udp(40000, 53),
	      from_client(upstream_dns).udp(53, 40000).payload("answer")}) {
		at_every_length(datagram, mark, portal(0, 1), {{nothing, CP_DROP}, {with_destination_port, CP_ACCEPT}});
	}
}

TEST(CutPackets, OtherUdpAndIcmpAreDropped)
{
	at_every_length(from_client(upstream_server).udp(40000, 123), mark, portal(0, 1), {{nothing, CP_DROP}});
	at_every_length(from_client(upstream_server).icmp(8), mark, portal(0, 1), {{nothing, CP_DROP}});
}

TEST(CutPackets, OtherProtocolsNeedTheirProtocol)
{
	at_every_length(from_client(upstream_server).protocol(47).payload("tunnel"), mark, portal(0, 1),
			{{nothing, CP_DROP}, {with_protocol, CP_ACCEPT}});
}

TEST(CutPackets, Ipv6IsDropped)
{
	at_every_length(from_client(upstream_server).ipv6(6).payload("segment"), mark, portal(0, 1),
			{{nothing, CP_DROP}});
}

TEST(CutPackets, Mode7NeedsTheDestination)
{
	const std::vector<LengthRange> needs_destination = {{nothing, CP_DROP}, {with_destination_address, CP_ACCEPT}};
	at_every_length(to(upstream_server, 80), mark, portal(0, 7), needs_destination);
	at_every_length(from_client(access_point).icmp(8), mark, portal(0, 7), needs_destination);
	at_every_length(from_client(private_server).protocol(47), mark, portal(0, 7), needs_destination);
	at_every_length(to(router, 22), mark, all_of({portal(0, 7), gateway(router.address)}), needs_destination);
}

TEST(CutPackets, Mode8DropsTcpAtEveryLength)
{
	at_every_length(to(upstream_server, 80), mark, portal(0, 8), {{nothing, CP_DROP}});
}

// ---- Portal off -----------------------------------------------------------------------------------------------------

TEST(CutPackets, OrdinaryTrafficPasses)
{
	at_every_length(to(upstream_server, 80), 0, {}, {{nothing, CP_ACCEPT}});
	at_every_length(to(upstream_server, 80), mark, {}, {{nothing, CP_ACCEPT}});
	at_every_length(from_client(upstream_dns).udp(40000, 53), logout, {}, {{nothing, CP_ACCEPT}});
}

TEST(CutPackets, SpecialMarksRedirectOnceTheChecksumIsThere)
{
	const struct {
		uint32_t packet_mark;
		Host server;
		uint16_t port;
		uint16_t new_port;
		uint32_t row;
	} rows[] = {{logout, logout_server, 80, 82, 24},
		    {filter, dns_filter, 443, 89, 24},
		    {reputation + 16, upstream_server, 80, 1041, 24},
		    {0, social_login, 80, 83, 26}};
	for (const auto &row : rows) {
		SCOPED_TRACE(row.packet_mark);
		at_every_length(to(row.server, row.port), row.packet_mark, {},
				{{nothing, CP_ACCEPT},
				 {with_tcp_checksum, CP_ACCEPT, true, {connection(row.row, row.server, row.port)}}},
				to(access_point, row.new_port));
	}
	at_every_length(to(logout_server, 22), logout, {}, {{nothing, CP_ACCEPT}, {with_tcp_checksum, CP_ACCEPT, true}},
			to(access_point, 82));
}

// Recording the connection asks for the flags; only behind that is the port's turn.
TEST(CutPackets, SpecialMarksDropOtherPortsOnceTheFlagsAreThere)
{
	const std::vector<LengthRange> needs_flags = {{nothing, CP_ACCEPT}, {with_tcp_flags, CP_DROP}};
	at_every_length(to(dns_filter, 22), filter, {}, needs_flags);
	at_every_length(to(upstream_server, 22), reputation, {}, needs_flags);
	at_every_length(to(social_login, 22), 0, {}, needs_flags);
}

// ---- Fragments ------------------------------------------------------------------------------------------------------

struct Judgement {
	std::string description;
	Frame frame;
	uint32_t mark;
	State state;
	cp_verdict verdict;
	std::vector<host::LogLine> log = {};
};

void expect_untouched(std::vector<Judgement> judgements)
{
	for (Judgement &judgement : judgements) {
		run_portal_case(nf_cp_check, {.description = judgement.description,
					      .frame = judgement.frame,
					      .device = "wlan-1-1",
					      .mark_in = judgement.mark,
					      .state = judgement.state,
					      .verdict = judgement.verdict,
					      .log = judgement.log});
	}
}

TEST(Fragments, WithAnOffsetHaveNoTransportHeader)
{
	for (const uint16_t offset : {1, 2, 0x1fff}) {
		SCOPED_TRACE(offset);
		const Frame web = to(upstream_server, 80).fragment_offset(offset);
		expect_untouched({
			{"web", web, mark, portal(0, 1), CP_DROP},
			{"more to come", to(upstream_server, 80).fragment_offset(offset).more_fragments(), mark,
			 portal(0, 1), CP_DROP},
			{"into the garden", web, mark, all_of({portal(0, 1), garden(0, 1, {upstream_server.address})}),
			 CP_ACCEPT},
			{"https", to(upstream_server, 443).fragment_offset(offset), mark,
			 all_of({portal(0, 1), block_https(0, 0)}), CP_DROP},
			{"to the access point", to(access_point, 80).fragment_offset(offset), mark, portal(0, 1),
			 CP_DROP},
			{"social login", to(social_login, 80).fragment_offset(offset), mark, portal(0, 1), CP_DROP},
			{"DNS", from_client(upstream_dns).udp(53, 53).fragment_offset(offset), mark, portal(0, 1),
			 CP_DROP},
			{"DHCP", from_client(broadcast).udp(68, 67).fragment_offset(offset), mark, portal(0, 1),
			 CP_DROP},
			{"GRE", from_client(upstream_server).protocol(47).fragment_offset(offset), mark, portal(0, 1),
			 CP_ACCEPT},
			{"internet in mode 7", web, mark, portal(0, 7), CP_ACCEPT},
			{"portal off", web, mark, {}, CP_ACCEPT},
			{"logout", to(logout_server, 80).fragment_offset(offset), logout, {}, CP_ACCEPT},
			{"DNS filter", to(dns_filter, 22).fragment_offset(offset), filter, {}, CP_DROP},
			{"reputation", to(upstream_server, 22).fragment_offset(offset), reputation, {}, CP_DROP},
			{"social login, off", to(social_login, 22).fragment_offset(offset), 0, {}, CP_DROP},
		});
	}
}

TEST(Fragments, AreNotWhatTheFlagBitsSay)
{
	// Bytes 20 and 21 of the frame: "don't fragment" and the reserved bit are not part of the offset.
	for (const uint8_t flags : {0x40, 0x80, 0xc0, 0xe0}) {
		host::Machine machine;
		build_access_point(machine);
		load_module(machine);
		set_portal(machine, CAPTIVE_PORTAL, 0, 1);
		Frame syn = to(upstream_server, 80);
		syn[20] = flags;
		host::PacketBuffer packet(syn);
		packet.mark = mark;
		packet.in_name = "wlan-1-1";
		EXPECT_EQ(host::run_hook(nf_cp_check, packet), CP_ACCEPT);
		const Frame out = packet.frame();
		EXPECT_EQ(out[36] * 256 + out[37], 10081) << static_cast<int>(flags);
		EXPECT_EQ(connections().size(), 1u);
	}
}

// ---- Header lengths -------------------------------------------------------------------------------------------------

// A frame of 20 bytes of header and 20 of TCP whose header length says something else. Where the ports then lie:
//   0 version, total length (40)      4 destination address (28938 from its low half)     8 TCP flags, window (64240)
//   1 identification, fragment (0)    5 the true ports                                    9 TCP checksum, urgent (0)
//   2 time to live, header checksum   6 sequence number (1000 from its low half)         10 and more: behind the end
//   3 source address (267)            7 acknowledgement number (0)
TEST(HeaderLengths, MoveThePortsInsideThePacket)
{
	for (uint8_t words = 0; words < 16; ++words) {
		if (words == 5) {
			continue;
		}
		SCOPED_TRACE(static_cast<int>(words));
		// From 7 words on the flags lie behind the packet's end.
		const bool flags_are_there = words < 7;
		const cp_verdict other_port = flags_are_there ? CP_DROP : CP_ACCEPT;
		const auto identity = lines({"init ap_addr 1308 nf_cp_check\n"});
		expect_untouched({
			{"portal on", to(upstream_server, 80).ihl(words), mark, portal(0, 1), CP_DROP},
			{"portal off", to(upstream_server, 80).ihl(words), mark, {}, CP_ACCEPT},
			{"logout takes any port, but nothing can be rewritten",
			 to(logout_server, 80).ihl(words),
			 logout,
			 {},
			 CP_ACCEPT,
			 flags_are_there ? lines({"init ap_addr 1308 nf_cp_check\n",
						  "[captive portal]dest ip match logout ip addr\n"}) :
					   lines({})},
			{"DNS filter drops other ports",
			 to(upstream_server, 80).ihl(words),
			 filter,
			 {},
			 other_port,
			 flags_are_there ? identity : lines({})},
		});
	}
}

// With no header length the ports are the first four bytes: a total length of 80 is a web port, and a 2 in the source
// address stands where the SYN bit is.
TEST(HeaderLengths, BelowFiveAreNeverRewritten)
{
	const Frame web = to(upstream_server, 22).source(ipv4(192, 2, 1, 11)).ihl(0).total_length(80);
	expect_untouched({
		{"portal on", web, mark, portal(0, 1), CP_DROP},
		{"HTTPS not blocked", to(upstream_server, 22).ihl(0).total_length(443), mark,
		 all_of({portal(0, 1), block_https(0, 0)}), CP_ACCEPT,
		 lines({"[captive portal]block disable, ACCEPT it\n"})},
		{"portal off",
		 web,
		 filter,
		 {},
		 CP_ACCEPT,
		 lines({"init ap_addr 1308 nf_cp_check\n", "[captive portal]http port, dest ip is 4.4.4.4\n"})},
	});
}

TEST(HeaderLengths, DoNotBelieveTheVersion)
{
	for (const uint8_t version : {0, 5, 6, 15}) {
		run_portal_case(nf_cp_check, {.description = "version " + std::to_string(version),
					      .frame = to(upstream_server, 80).version(version),
					      .device = "wlan-1-1",
					      .mark_in = mark,
					      .state = portal(0, 1),
					      .verdict = CP_ACCEPT,
					      .frame_out = to(access_point, 10081).version(version),
					      .to_host = true,
					      .afterwards = records({connection(0, upstream_server, 80)})});
	}
}

TEST(TotalLengths, BoundNothing)
{
	for (const uint16_t bytes : {0, 19, 20, 27, 41, 65535}) {
		SCOPED_TRACE(bytes);
		host::Machine machine;
		build_access_point(machine);
		load_module(machine);
		set_portal(machine, CAPTIVE_PORTAL, 0, 1);
		host::PacketBuffer packet(to(upstream_server, 80).total_length(bytes));
		packet.mark = mark;
		packet.in_name = "wlan-1-1";
		EXPECT_EQ(host::run_hook(nf_cp_check, packet), CP_ACCEPT);
		EXPECT_EQ(packet.frame(), Frame(to(access_point, 10081).total_length(bytes)));
		EXPECT_EQ(connections(), std::vector{connection(0, upstream_server, 80)});
	}
}

// ---- EtherTypes -----------------------------------------------------------------------------------------------------

// The steps judge by the bytes at IPv4's places, but nothing is rewritten or recorded.
TEST(EtherTypes, OtherThanIpv4AreJudgedButNeverRewritten)
{
	const auto identity = "init ap_addr 1308 nf_cp_check\n";
	for (const uint16_t type : {0x0806, 0x8100, 0x8864, 0x0008}) {
		SCOPED_TRACE(type);
		const auto syn = [type](const Host &server, uint16_t port) {
			return to(server, port).ether_type(type);
		};
		expect_untouched({
			{"HTTP", syn(upstream_server, 80), mark, portal(0, 1), CP_DROP},
			{"HTTPS", syn(upstream_server, 443), mark, portal(0, 1), CP_DROP},
			{"HTTP in mode 7", syn(private_server, 80), mark, portal(0, 7), CP_DROP},
			{"HTTP of MIREL", syn(upstream_server, 80), mirel, portal(27, 1), CP_DROP},
			{"social login", syn(social_login, 80), mark, portal(0, 1), CP_DROP},
			{"HTTPS not blocked", syn(upstream_server, 443), mark,
			 all_of({portal(0, 1), block_https(0, 0)}), CP_ACCEPT,
			 lines({"[captive portal]block disable, ACCEPT it\n"})},
			{"garden", syn(upstream_server, 80), mark,
			 all_of({portal(0, 1), garden(0, 1, {upstream_server.address})}), CP_ACCEPT,
			 lines({"nf_cp_check: match walled garden, if_index=0 daddr=203.0.113.10\n"})},
			{"access point", syn(access_point, 80), mark, portal(0, 1), CP_ACCEPT},
			{"DNS", from_client(upstream_dns).udp(40000, 53).ether_type(type), mark, portal(0, 1),
			 CP_ACCEPT},
			{"logout",
			 syn(logout_server, 80),
			 logout,
			 {},
			 CP_ACCEPT,
			 lines({identity, "[captive portal]dest ip match logout ip addr\n"})},
			{"DNS filter",
			 syn(dns_filter, 443),
			 filter,
			 {},
			 CP_ACCEPT,
			 lines({identity, "[captive portal]https port, dest ip is 4.4.4.4\n"})},
			{"social login, off",
			 syn(social_login, 80),
			 0,
			 {},
			 CP_ACCEPT,
			 lines({identity, "[captive portal]dest ip is 2.2.2.2,daddr=2.2.2.2,dst port=21248,"
					  "saddr=192.168.1.11,src port=51000\n"})},
			{"DNS filter, another port", syn(dns_filter, 22), filter, {}, CP_DROP, lines({identity})},
			{"reputation, another port",
			 syn(upstream_server, 22),
			 reputation,
			 {},
			 CP_DROP,
			 lines({identity, "[captive portal] dest ip hit ip raputation rule !!!\n"})},
		});
	}
}

TEST(EtherTypes, OfIpv6WithoutAPortalMeetTheSpecialMarks)
{
	const auto identity = "init ap_addr 1308 nf_cp_check\n";
	expect_untouched({
		{"IPv4 inside",
		 to(logout_server, 80).ether_type(0x86dd),
		 logout,
		 {},
		 CP_ACCEPT,
		 lines({identity, "[captive portal]dest ip match logout ip addr\n"})},
		{"another port", to(dns_filter, 22).ether_type(0x86dd), filter, {}, CP_DROP, lines({identity})},
	});
}

} // namespace

} // namespace captive_portal::test
