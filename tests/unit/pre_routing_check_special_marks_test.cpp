// SPDX-License-Identifier: GPL-2.0-only
// Packets without a portal of their own: the special marks, and the social-login address from any port of the bridge.
#include <string>

#include "tests/support/packets.h"
#include "tests/unit/portal_case.h"

namespace captive_portal::test
{

namespace
{

constexpr Host client = client_of_wlan_1_1;
constexpr uint32_t logout = 5304;
constexpr uint32_t reputation = 5307;
constexpr uint32_t filter = 5324;

FrameBuilder to(const Host &server, uint16_t port, uint8_t flags = tcp_syn)
{
	return frame().from(client).to(server).tcp(51000, port).flags(flags);
}

Connection connection(uint32_t row, const Host &server, uint16_t port)
{
	return {row, client.address, 51000, server.address, port, server.mac};
}

PacketCase redirect(std::string description, const FrameBuilder &frame, uint32_t mark_in, uint16_t new_port,
		    std::vector<Connection> recorded, std::vector<host::LogLine> log, uint8_t flags = tcp_syn)
{
	return {.description = std::move(description),
		.frame = frame,
		.device = "wlan-1-1",
		.mark_in = mark_in,
		.verdict = CP_ACCEPT,
		.frame_out = to(access_point, new_port, flags),
		.to_host = true,
		.log = std::move(log),
		.afterwards = records(std::move(recorded))};
}

PacketCase untouched(std::string description, const Frame &frame, uint32_t mark_in, cp_verdict verdict,
		     std::vector<host::LogLine> log = {})
{
	return {.description = std::move(description),
		.frame = frame,
		.device = "wlan-1-1",
		.mark_in = mark_in,
		.verdict = verdict,
		.log = std::move(log)};
}

PacketCase with_state(PacketCase row, State state)
{
	row.state = std::move(state);
	return row;
}

class SpecialMarks : public PacketCaseTest
{
};

TEST_P(SpecialMarks, GiveVerdictFrameAndConnections)
{
	run_portal_case(nf_cp_check, GetParam());
}

constexpr const char *identity = "init ap_addr 1308 nf_cp_check\n";

// Both ports as the numbers that their raw bytes make: 51000 is 14535, 80 is 20480, 443 is 47873.
std::string added(uint32_t row, const char *server, const char *raw_port)
{
	return "nf_cp_check: add to table_list, if_index=" + std::to_string(row) +
	       "  saddr=192.168.1.11 daddr=" + server + "  src port=14535 dest port=" + raw_port + "\n";
}

constexpr const char *logout_line = "[captive portal]dest ip match logout ip addr\n";

const PacketCase logout_rows[] = {
	redirect("HTTP SYN to the logout address", to(logout_server, 80), logout, 82,
		 {connection(24, logout_server, 80)},
		 lines({added(24, "1.2.3.4", "20480").c_str(), identity, logout_line})),
	redirect("HTTPS SYN to the logout address", to(logout_server, 443), logout, 82,
		 {connection(24, logout_server, 443)},
		 lines({added(24, "1.2.3.4", "47873").c_str(), identity, logout_line})),
	redirect("SSH to the logout address", to(logout_server, 22), logout, 82, {}, lines({identity, logout_line})),
	redirect("Port 0 of the logout address", to(logout_server, 0), logout, 82, {}, lines({identity, logout_line})),
	redirect("A later segment to the logout address", to(logout_server, 80, tcp_ack), logout, 82, {},
		 lines({identity, logout_line}), tcp_ack),
	untouched("UDP to the logout address", frame().from(client).to(logout_server).udp(40000, 53), logout,
		  CP_ACCEPT),
	untouched("ICMP to the logout address", frame().from(client).to(logout_server).icmp(8), logout, CP_ACCEPT),
	untouched("IPv6 with the logout mark", frame().from(client).to(logout_server).ipv6(6), logout, CP_ACCEPT),
};
INSTANTIATE_TEST_SUITE_P(Logout, SpecialMarks, ::testing::ValuesIn(logout_rows), packet_case_name);

constexpr const char *filter_http = "[captive portal]http port, dest ip is 4.4.4.4\n";
constexpr const char *filter_https = "[captive portal]https port, dest ip is 4.4.4.4\n";

const PacketCase filter_rows[] = {
	redirect("HTTP SYN to the DNS filter address", to(dns_filter, 80), filter, 88, {connection(24, dns_filter, 80)},
		 lines({added(24, "4.4.4.4", "20480").c_str(), identity, filter_http})),
	redirect("HTTPS SYN to the DNS filter address", to(dns_filter, 443), filter, 89,
		 {connection(24, dns_filter, 443)},
		 lines({added(24, "4.4.4.4", "47873").c_str(), identity, filter_https})),
	redirect("A later HTTPS segment to the DNS filter address", to(dns_filter, 443, tcp_ack), filter, 89, {},
		 lines({identity, filter_https}), tcp_ack),
	untouched("Another port of the DNS filter address", to(dns_filter, 853), filter, CP_DROP, lines({identity})),
	untouched("A later segment to another port of the DNS filter address", to(dns_filter, 22, tcp_ack), filter,
		  CP_DROP, lines({identity})),
	untouched("A DNS query to the DNS filter address", frame().from(client).to(dns_filter).udp(40000, 53), filter,
		  CP_ACCEPT),
	// The mark counts, not the address.
	redirect("The DNS filter mark at another address", to(upstream_server, 80), filter, 88,
		 {connection(24, upstream_server, 80)},
		 lines({added(24, "203.0.113.10", "20480").c_str(), identity, filter_http})),
	untouched("The DNS filter address without its mark", to(dns_filter, 80), 0, CP_ACCEPT),
};
INSTANTIATE_TEST_SUITE_P(DnsFilter, SpecialMarks, ::testing::ValuesIn(filter_rows), packet_case_name);

constexpr const char *reputation_http = "[captive portal]dest ip hit ip raputation rule !!!\n";
constexpr const char *reputation_https = "[captive portal]dest ip hit https ip raputation rule !!!\n";
constexpr const char *reputation_other = "[captive portal] dest ip hit ip raputation rule !!!\n";

std::vector<PacketCase> reputation_rows()
{
	std::vector<PacketCase> rows;
	for (uint16_t rule = 0; rule < 17; ++rule) {
		const std::string name = " hits reputation rule " + std::to_string(rule);
		rows.push_back(
			redirect("HTTP" + name, to(upstream_server, 80), 5307u + rule,
				 static_cast<uint16_t>(1025 + rule), {connection(24, upstream_server, 80)},
				 lines({added(24, "203.0.113.10", "20480").c_str(), identity, reputation_http})));
		rows.push_back(
			redirect("HTTPS" + name, to(upstream_server, 443), 5307u + rule,
				 static_cast<uint16_t>(1042 + rule), {connection(24, upstream_server, 443)},
				 lines({added(24, "203.0.113.10", "47873").c_str(), identity, reputation_https})));
		rows.push_back(untouched("Another port" + name, to(upstream_server, 25), 5307u + rule, CP_DROP,
					 lines({identity, reputation_other})));
	}
	return rows;
}
INSTANTIATE_TEST_SUITE_P(Reputation, SpecialMarks, ::testing::ValuesIn(reputation_rows()), packet_case_name);

const PacketCase other_marks[] = {
	untouched("Mark 5301 is not special", to(upstream_server, 80), 5301, CP_ACCEPT),
	untouched("Mark 5302 is not special", to(upstream_server, 80), 5302, CP_ACCEPT),
	untouched("Mark 5303 is not special", to(upstream_server, 80), 5303, CP_ACCEPT),
	untouched("Mark 5305 is not special", to(upstream_server, 80), 5305, CP_ACCEPT),
	untouched("Mark 5306 is not special", to(upstream_server, 80), 5306, CP_ACCEPT),
	untouched("Mark 5325 is not special", to(upstream_server, 80), 5325, CP_ACCEPT),
	untouched("Mark 0 is not special", to(upstream_server, 80), 0, CP_ACCEPT),
	untouched("UDP with a reputation mark", frame().from(client).to(upstream_server).udp(40000, 53), reputation,
		  CP_ACCEPT),
};
INSTANTIATE_TEST_SUITE_P(OtherMarks, SpecialMarks, ::testing::ValuesIn(other_marks), packet_case_name);

// The old destination, and the new port's raw bytes as a number: 21248 is 83, 21504 is 84.
constexpr const char *social_http = "[captive portal]dest ip is 2.2.2.2,daddr=2.2.2.2,dst port=21248,"
				    "saddr=192.168.1.11,src port=51000\n";
constexpr const char *social_https = "[captive portal]dest ip is 2.2.2.2,daddr=2.2.2.2,dst port=21504,"
				     "saddr=192.168.1.11,src port=51000\n";

PacketCase from_port(PacketCase row, std::string device)
{
	row.device = std::move(device);
	return row;
}

const PacketCase social_rows[] = {
	redirect("Unmarked HTTP SYN to the social login address", to(social_login, 80), 0, 83,
		 {connection(26, social_login, 80)},
		 lines({added(26, "2.2.2.2", "20480").c_str(), identity, social_http})),
	redirect("Unmarked HTTPS SYN to the social login address", to(social_login, 443), 0, 84,
		 {connection(26, social_login, 443)},
		 lines({added(26, "2.2.2.2", "47873").c_str(), identity, social_https})),
	redirect("An unmarked later segment to the social login address", to(social_login, 80, tcp_ack), 0, 83, {},
		 lines({identity, social_http}), tcp_ack),
	untouched("Another port of the social login address", to(social_login, 22), 0, CP_DROP, lines({identity})),
	untouched("UDP to the social login address", frame().from(client).to(social_login).udp(40000, 80), 0,
		  CP_ACCEPT),
	untouched("ICMP to the social login address", frame().from(client).to(social_login).icmp(8), 0, CP_ACCEPT),
	from_port(redirect("From the wired side as well", to(social_login, 80), 0, 83,
			   {connection(26, social_login, 80)},
			   lines({added(26, "2.2.2.2", "20480").c_str(), identity, social_http})),
		  "eth0"),
	redirect("The social login address with the mark of a portal that is off", to(social_login, 80), 5200, 83,
		 {connection(26, social_login, 80)},
		 lines({added(26, "2.2.2.2", "20480").c_str(), identity, social_http})),
	redirect("The social login address before the logout mark", to(social_login, 80), logout, 83,
		 {connection(26, social_login, 80)},
		 lines({added(26, "2.2.2.2", "20480").c_str(), identity, social_http})),
	untouched("Another port of the social login address with the logout mark", to(social_login, 22), logout,
		  CP_DROP, lines({identity})),
	redirect("The social login address before the DNS filter mark", to(social_login, 443), filter, 84,
		 {connection(26, social_login, 443)},
		 lines({added(26, "2.2.2.2", "47873").c_str(), identity, social_https})),
	redirect("The social login address before a reputation mark", to(social_login, 80), reputation, 83,
		 {connection(26, social_login, 80)},
		 lines({added(26, "2.2.2.2", "20480").c_str(), identity, social_http})),
};
INSTANTIATE_TEST_SUITE_P(SocialLogin, SpecialMarks, ::testing::ValuesIn(social_rows), packet_case_name);

const PacketCase known_rows[] = {
	with_state(redirect("A repeated SYN changes the entry and is not told as new", to(logout_server, 443), logout,
			    82, {{24, client.address, 51000, logout_server.address, 443, {2, 9, 9, 9, 9, 9}}},
			    lines({identity, logout_line})),
		   recorded({{24, client.address, 51000, upstream_server.address, 80, {2, 9, 9, 9, 9, 9}}})),
	with_state(redirect("A SYN with the same client in row 26 is new in row 24", to(logout_server, 80), logout, 82,
			    {connection(24, logout_server, 80), connection(26, social_login, 80)},
			    lines({added(24, "1.2.3.4", "20480").c_str(), identity, logout_line})),
		   recorded({connection(26, social_login, 80)})),
};
INSTANTIATE_TEST_SUITE_P(KnownClient, SpecialMarks, ::testing::ValuesIn(known_rows), packet_case_name);

PacketCase records_only(std::string description, const Frame &frame, State state, std::vector<Connection> recorded,
			std::vector<host::LogLine> log)
{
	PacketCase row = untouched(std::move(description), frame, logout, CP_ACCEPT, std::move(log));
	row.state = std::move(state);
	row.afterwards = records(std::move(recorded));
	return row;
}

// The connection is recorded before the access point is looked for.
const PacketCase nobody_rows[] = {
	records_only("Passes without br0", to(logout_server, 80), no_device("br0"), {connection(24, logout_server, 80)},
		     lines({added(24, "1.2.3.4", "20480").c_str()})),
	records_only("Passes without an IPv4 configuration", to(logout_server, 80),
		     device("br0", {.mac = access_point.mac}), {connection(24, logout_server, 80)},
		     lines({added(24, "1.2.3.4", "20480").c_str()})),
	records_only("Passes when the ports bridge is gone", to(logout_server, 22),
		     device("wlan-1-1", {.bridge = "br9"}), {}, {}),
	with_state(
		untouched("A port without a redirect port passes without br0", to(dns_filter, 22), filter, CP_ACCEPT),
		no_device("br0")),
};
INSTANTIATE_TEST_SUITE_P(UnknownAccessPoint, SpecialMarks, ::testing::ValuesIn(nobody_rows), packet_case_name);

// Without an address the old one counts, and nothing is said of it.
std::vector<PacketCase> old_identity_rows()
{
	const State no_address = device("br0", {.mac = {2, 0xaa, 0, 0, 0, 7}, .ipv4 = std::vector<uint32_t>{}});
	PacketCase never_learned = redirect("To 0.0.0.0 when no address was ever learned", to(logout_server, 22),
					    logout, 82, {}, lines({logout_line}));
	never_learned.frame_out = to({{}, ipv4(0, 0, 0, 0)}, 82);
	never_learned.state = no_address;
	PacketCase learned = redirect("To the address that was learned before", to(logout_server, 22), logout, 82, {},
				      lines({logout_line}));
	learned.state = all_of({[](host::Machine &) {
					host::PacketBuffer packet = packet_of(to(logout_server, 22));
					packet.mark = logout;
					packet.in_name = "wlan-1-1";
					ASSERT_EQ(host::run_hook(nf_cp_check, packet), CP_ACCEPT);
				},
				no_address});
	return {never_learned, learned};
}
INSTANTIATE_TEST_SUITE_P(OldIdentity, SpecialMarks, ::testing::ValuesIn(old_identity_rows()), packet_case_name);

class SpecialMarksMachine : public HostTest
{
protected:
	void SetUp() override
	{
		build_access_point(machine);
		load_module();
	}

	static cp_verdict check(host::PacketBuffer &packet, uint32_t mark)
	{
		packet.mark = mark;
		packet.in_name = "wlan-1-1";
		return host::run_hook(nf_cp_check, packet);
	}
};

TEST_F(SpecialMarksMachine, DropWhatCannotBeMadeWritable)
{
	for (const auto &[server, mark] : {std::pair{logout_server, logout},
					   {dns_filter, filter},
					   {upstream_server, reputation},
					   {social_login, uint32_t{0}}}) {
		const Frame syn = to(server, 80);
		host::PacketBuffer packet = packet_of(syn);
		packet.fail_make_writable = true;
		EXPECT_EQ(check(packet, mark), CP_DROP) << mark;
		EXPECT_EQ(packet.frame(), syn);
		EXPECT_EQ(packet.type, host::PacketType::other_host);
	}
}

TEST_F(SpecialMarksMachine, RedirectWithoutMemoryForTheConnection)
{
	machine.memory.fail_all_allocations(true);
	host::PacketBuffer packet = packet_of(to(logout_server, 80));
	EXPECT_EQ(check(packet, logout), CP_ACCEPT);
	EXPECT_EQ(packet.frame(), Frame(to(access_point, 82)));
	EXPECT_EQ(connections(), std::vector<Connection>{});
}

// A packet of another client's unadmitted traffic that is redirected once does not meet the special marks again: its
// destination is the access point now.
TEST_F(SpecialMarksMachine, LeaveARedirectedPacketAlone)
{
	set_portal(machine, CAPTIVE_PORTAL, 0, 1);
	set_debug_level(machine, 3);
	host::PacketBuffer packet = packet_of(to(upstream_server, 80));
	EXPECT_EQ(check(packet, 5200), CP_ACCEPT);
	EXPECT_EQ(packet.make_writable_calls, 1u);
	EXPECT_NO_LOG();
}

} // namespace

} // namespace captive_portal::test
