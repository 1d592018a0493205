// SPDX-License-Identifier: GPL-2.0-only
// Packets that should be redirected and cannot be made writable: each is dropped as it came, after what comes before the
// rewrite is done and without what comes behind it.
#include "tests/unit/portal_case.h"

namespace captive_portal::test
{

namespace
{

constexpr Host client = client_of_wlan_1_1;

PacketCase row(std::string description, const Host &server, uint16_t port, uint32_t mark, State state,
	       std::vector<Connection> recorded, std::vector<host::LogLine> log = {}, uint8_t flags = tcp_syn)
{
	return {.description = std::move(description),
		.frame = frame().from(client).to(server).tcp(51000, port).flags(flags),
		.device = "wlan-1-1",
		.mark_in = mark,
		.state = std::move(state),
		.fail_make_writable = true,
		.verdict = CP_DROP,
		.log = std::move(log),
		.afterwards = records(std::move(recorded))};
}

Connection connection(uint32_t row, const Host &server, uint16_t port)
{
	return {row, client.address, 51000, server.address, port, server.mac};
}

class PreRoutingCheckUnwritable : public PacketCaseTest
{
};

TEST_P(PreRoutingCheckUnwritable, DropsAndKeepsTheConnection)
{
	run_portal_case(nf_cp_check, GetParam());
}

const PacketCase portals[] = {
	row("HTTP SYN", upstream_server, 80, 5200, portal(0, 1), {connection(0, upstream_server, 80)}),
	row("HTTPS SYN", upstream_server, 443, 5200, portal(0, 1), {connection(0, upstream_server, 443)}),
	row("HTTP SYN in mode 7", private_server, 80, 5200, portal(0, 7), {connection(25, private_server, 80)}),
	row("HTTP SYN of a MIREL client", upstream_server, 80, 5302, portal(27, 1),
	    {connection(27, upstream_server, 80)}),
	row("A repeated SYN", upstream_server, 443, 5200,
	    all_of({portal(0, 1), recorded({connection(0, second_upstream_server, 80)})}),
	    {connection(0, upstream_server, 443)}),
	row("A later segment", upstream_server, 80, 5200, portal(0, 1), {}, {}, tcp_ack),
};
INSTANTIATE_TEST_SUITE_P(Portals, PreRoutingCheckUnwritable, ::testing::ValuesIn(portals), packet_case_name);

// The connection is told before the rewrite, the redirect after it.
const PacketCase social_login_rows[] = {
	row("HTTP SYN to the social login address", social_login, 80, 5200, portal(0, 1),
	    {connection(26, social_login, 80)},
	    lines({"nf_cp_check: add to table_list, if_index=26  saddr=192.168.1.11 daddr=2.2.2.2"
		   "  src port=51000 dest port=80\n"})),
	row("A later segment to the social login address", social_login, 443, 5200, portal(0, 1), {}, {}, tcp_ack),
};
INSTANTIATE_TEST_SUITE_P(SocialLogin, PreRoutingCheckUnwritable, ::testing::ValuesIn(social_login_rows),
			 packet_case_name);

constexpr const char *identity = "init ap_addr 1308 nf_cp_check\n";

// Special marks say everything before the rewrite.
const PacketCase special_marks[] = {
	row("SYN with the logout mark", logout_server, 80, 5304, {}, {connection(24, logout_server, 80)},
	    lines({"nf_cp_check: add to table_list, if_index=24  saddr=192.168.1.11 daddr=1.2.3.4"
		   "  src port=14535 dest port=20480\n",
		   identity, "[captive portal]dest ip match logout ip addr\n"})),
	row("SYN with the DNS filter mark", dns_filter, 443, 5324, {}, {connection(24, dns_filter, 443)},
	    lines({"nf_cp_check: add to table_list, if_index=24  saddr=192.168.1.11 daddr=4.4.4.4"
		   "  src port=14535 dest port=47873\n",
		   identity, "[captive portal]https port, dest ip is 4.4.4.4\n"})),
	row("SYN with a reputation mark", upstream_server, 80, 5323, {}, {connection(24, upstream_server, 80)},
	    lines({"nf_cp_check: add to table_list, if_index=24  saddr=192.168.1.11 daddr=203.0.113.10"
		   "  src port=14535 dest port=20480\n",
		   identity, "[captive portal]dest ip hit ip raputation rule !!!\n"})),
	row("Unmarked SYN to the social login address", social_login, 80, 0, {}, {connection(26, social_login, 80)},
	    lines({"nf_cp_check: add to table_list, if_index=26  saddr=192.168.1.11 daddr=2.2.2.2"
		   "  src port=14535 dest port=20480\n",
		   identity,
		   "[captive portal]dest ip is 2.2.2.2,daddr=2.2.2.2,dst port=21248,saddr=192.168.1.11,"
		   "src port=51000\n"})),
};
INSTANTIATE_TEST_SUITE_P(SpecialMarks, PreRoutingCheckUnwritable, ::testing::ValuesIn(special_marks), packet_case_name);

} // namespace

} // namespace captive_portal::test
