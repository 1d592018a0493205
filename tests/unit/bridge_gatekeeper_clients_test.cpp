// SPDX-License-Identifier: GPL-2.0-only
// How the gatekeeper hook weighs a client in the tables, and what mark it gives.
#include "tests/support/host_test.h"
#include "tests/unit/bridge_gatekeeper_fixture.h"

namespace captive_portal::test
{

namespace
{

constexpr const char *unknown_behavior = "[gatekeeper]ebt_gate_keeper: Unknow OVRA disconnection behavior, return\n";

// IPv6 headers whose bytes look like an IPv4 header's fields: protocol at 9, destination at 16 to 19.
constexpr uint8_t ipv6_like_tcp_to_dns_filter[40] = {0x60, 0, 0, 0, 0, 0, 59, 64, 0x20, 6,
						     0,    0, 0, 0, 0, 0, 4,  4,  4,    4};
constexpr uint8_t ipv6_like_packet_to_logout[40] = {0x60, 0, 0, 0, 0, 0, 59, 64, 0x20, 1, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4};
// No words of header: the UDP ports are taken from the flow label. No next header, no hops: no fragment offset.
constexpr uint8_t ipv6_like_dhcp[40] = {0x60, 0, 0, 68, 0, 0, 0, 0, 0x20, 17};

Frame ipv6_frame(std::span<const uint8_t> header)
{
	return frame().from(client_of_wlan_1_1).to(upstream_server).ether_type(0x86dd).network_bytes(header);
}

Frame to_logout_server(const Host &client)
{
	return frame().from(client).to(logout_server).tcp(51000, 80).syn();
}

State admitted(gk_set_command add)
{
	return all({portal_on(0), logout_address(0, "1.2.3.4"), listed(add, "wlan-1-1", client_of_wlan_1_1)});
}

class GatekeeperMirelRow : public PacketCaseTest
{
};

const PacketCase mirel_rows[] = {
	{.description = "a client of the black list is marked",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = all({portal_on(0), portal_on(27), listed(ADD_MIREL_BLACK_LIST_MAC, "", client_of_wlan_1_1)}),
	 .mark = 5302},
	{.description = "the black list holds without a portal on the interface",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = all({portal_on(27), listed(ADD_MIREL_BLACK_LIST_MAC, "", client_of_wlan_1_1)}),
	 .mark = 5302},
	{.description = "the black list holds on every interface",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-3-8",
	 .state = all({portal_on(27), listed(ADD_MIREL_BLACK_LIST_MAC, "wlan-1-1", client_of_wlan_1_1)}),
	 .mark = 5302},
	{.description = "a client of the white list passes unmarked",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .mark_in = 77,
	 .state = all({portal_on(0), portal_on(27), listed(ADD_MIREL_WHITE_LIST_MAC, "", client_of_wlan_1_1)}),
	 .mark = 77},
	{.description = "the white list is looked at first",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = all({portal_on(0), portal_on(27), listed(ADD_MIREL_WHITE_LIST_MAC, "", client_of_wlan_1_1),
		       listed(ADD_MIREL_BLACK_LIST_MAC, "", client_of_wlan_1_1)})},
	{.description = "a client of neither list goes on",
	 .frame = web_request(second_client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = all({portal_on(0), portal_on(27), listed(ADD_MIREL_BLACK_LIST_MAC, "", client_of_wlan_1_1)}),
	 .mark = 5200},
	{.description = "without the MIREL portal the black list does not count",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = all({portal_on(0), listed(ADD_MIREL_BLACK_LIST_MAC, "", client_of_wlan_1_1)}),
	 .mark = 5200},
	{.description = "without the MIREL portal the white list does not count",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = all({portal_on(0), listed(ADD_MIREL_WHITE_LIST_MAC, "", client_of_wlan_1_1)}),
	 .mark = 5200},
	{.description = "the MIREL command switches the MIREL portal",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = all({listed(ADD_MIREL_BLACK_LIST_MAC, "", client_of_wlan_1_1),
		       [](host::Machine &machine) { set_portal(machine, CAPTIVE_PORTAL_MIREL, 0, 3); }}),
	 .mark = 5302},
	{.description = "the black list comes before the DNS filter",
	 .frame = frame().from(client_of_wlan_1_1).to(dns_filter).tcp(51000, 853).syn(),
	 .device = "wlan-1-1",
	 .state = all({portal_on(27), dns_filter_on(), listed(ADD_MIREL_BLACK_LIST_MAC, "", client_of_wlan_1_1)}),
	 .mark = 5302},
	{.description = "the black list comes before a login",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = all({portal_on(27), listed(ADD_MIREL_BLACK_LIST_MAC, "", client_of_wlan_1_1),
		       listed(ADD_LOGIN_MAC, "wlan-1-1", client_of_wlan_1_1)}),
	 .mark = 5302},
	{.description = "the white list comes before the disconnection behaviour",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = all({portal_on(27), behavior("wlan-1-1", 3, 2),
		       listed(ADD_MIREL_WHITE_LIST_MAC, "", client_of_wlan_1_1)})},
};

INSTANTIATE_TEST_SUITE_P(Mirel, GatekeeperMirelRow, ::testing::ValuesIn(mirel_rows), packet_case_name);

TEST_P(GatekeeperMirelRow, GivesVerdictAndMark)
{
	run_packet_case(ebt_gate_keeper, GetParam());
}

class GatekeeperDnsFilterRow : public PacketCaseTest
{
};

const PacketCase dns_filter_rows[] = {
	{.description = "TCP to the filter is marked",
	 .frame = frame().from(client_of_wlan_1_1).to(dns_filter).tcp(51000, 853).syn(),
	 .device = "wlan-1-1",
	 .state = dns_filter_on(),
	 .mark = 5324},
	{.description = "any value but zero switches the filter on",
	 .frame = frame().from(client_of_wlan_1_1).to(dns_filter).tcp(51000, 80).ack(),
	 .device = "wlan-1-1",
	 .state = dns_filter_on(0x80000000),
	 .mark = 5324},
	{.description = "a logged in client meets the filter too",
	 .frame = frame().from(client_of_wlan_1_1).to(dns_filter).tcp(51000, 80).syn(),
	 .device = "wlan-1-1",
	 .state = all({dns_filter_on(), listed(ADD_LOGIN_MAC, "wlan-1-1", client_of_wlan_1_1)}),
	 .mark = 5324},
	{.description = "with the filter off the portal decides",
	 .frame = frame().from(client_of_wlan_1_1).to(dns_filter).tcp(51000, 80).syn(),
	 .device = "wlan-1-1",
	 .state = all({portal_on(0), dns_filter_on(), dns_filter_on(0)}),
	 .mark = 5200},
	{.description = "UDP to the filter is not its business",
	 .frame = frame().from(client_of_wlan_1_1).to(dns_filter).udp(51000, 53),
	 .device = "wlan-1-1",
	 .state = all({portal_on(0), dns_filter_on()}),
	 .mark = 5200},
	{.description = "TCP to another address is not its business",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = all({portal_on(0), dns_filter_on()}),
	 .mark = 5200},
	{.description = "a later fragment is marked by its address",
	 .frame = frame().from(client_of_wlan_1_1).to(dns_filter).fragment_offset(2).tcp(51000, 80),
	 .device = "wlan-1-1",
	 .state = dns_filter_on(),
	 .mark = 5324},
	{.description = "an address that is cut is not the filters",
	 .frame = frame().from(client_of_wlan_1_1).to(dns_filter).tcp(51000, 80).truncate_network(19),
	 .device = "wlan-1-1",
	 .state = dns_filter_on()},
	{.description = "no byte behind the address is needed",
	 .frame = frame().from(client_of_wlan_1_1).to(dns_filter).tcp(51000, 80).truncate_network(20),
	 .device = "wlan-1-1",
	 .state = dns_filter_on(),
	 .mark = 5324},
	{.description = "IPv6 is tested at the places of an IPv4 header",
	 .frame = ipv6_frame(ipv6_like_tcp_to_dns_filter),
	 .device = "wlan-1-1",
	 .state = dns_filter_on(),
	 .mark = 5324},
};

INSTANTIATE_TEST_SUITE_P(DnsFilter, GatekeeperDnsFilterRow, ::testing::ValuesIn(dns_filter_rows), packet_case_name);

TEST_P(GatekeeperDnsFilterRow, GivesVerdictAndMark)
{
	run_packet_case(ebt_gate_keeper, GetParam());
}

class GatekeeperAdmittedRow : public PacketCaseTest
{
};

const PacketCase admitted_rows[] = {
	{.description = "a logged in client leaves unmarked",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .mark_in = 77,
	 .state = admitted(ADD_LOGIN_MAC),
	 .mark = 77},
	{.description = "an authorised client leaves unmarked",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = admitted(ADD_AUTH_MAC)},
	{.description = "a logged in client is marked towards the logout address",
	 .frame = to_logout_server(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = admitted(ADD_LOGIN_MAC),
	 .mark = 5304},
	{.description = "an authorised client is marked towards the logout address",
	 .frame = to_logout_server(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = admitted(ADD_AUTH_MAC),
	 .mark = 5304},
	{.description = "any protocol to the logout address is marked",
	 .frame = frame().from(client_of_wlan_1_1).to(logout_server).icmp(8),
	 .device = "wlan-1-1",
	 .state = admitted(ADD_LOGIN_MAC),
	 .mark = 5304},
	{.description = "the logout address of another interface does not count",
	 .frame = to_logout_server(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = all({logout_address(1, "1.2.3.4"), listed(ADD_LOGIN_MAC, "wlan-1-1", client_of_wlan_1_1)})},
	{.description = "a login on another interface does not count",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = all({portal_on(0), listed(ADD_LOGIN_MAC, "wlan-1-2", client_of_wlan_1_1),
		       listed(ADD_AUTH_MAC, "wlan-1-2", client_of_wlan_1_1)}),
	 .mark = 5200},
	{.description = "another client of the interface is not admitted",
	 .frame = web_request(second_client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = admitted(ADD_LOGIN_MAC),
	 .mark = 5200},
	{.description = "a client that is not admitted gets the interfaces mark towards the logout address",
	 .frame = to_logout_server(second_client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = admitted(ADD_LOGIN_MAC),
	 .mark = 5200},
	{.description = "an unset logout address is 0 0 0 0",
	 .frame = frame().from(client_of_wlan_1_1).to(upstream_server).destination(ipv4(0, 0, 0, 0)).tcp(51000, 80),
	 .device = "wlan-1-1",
	 .state = listed(ADD_LOGIN_MAC, "wlan-1-1", client_of_wlan_1_1),
	 .mark = 5304},
	{.description = "the logout address is read as the kernel reads addresses",
	 .frame = to_logout_server(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = all({logout_address(0, "1.2.3.4\nx"), listed(ADD_LOGIN_MAC, "wlan-1-1", client_of_wlan_1_1)}),
	 .mark = 5304},
	{.description = "a number of the logout address above 255 carries into the one before it",
	 .frame = frame().from(client_of_wlan_1_1).to(logout_server).destination(ipv4(1, 2, 5, 44)).tcp(51000, 80),
	 .device = "wlan-1-1",
	 .state = all({logout_address(0, "1.2.4.300"), listed(ADD_LOGIN_MAC, "wlan-1-1", client_of_wlan_1_1)}),
	 .mark = 5304},
	{.description = "missing numbers of the logout address are 0",
	 .frame = frame().from(client_of_wlan_1_1).to(logout_server).destination(ipv4(10, 1, 0, 0)).tcp(51000, 80),
	 .device = "wlan-1-1",
	 .state = all({logout_address(0, "10.1"), listed(ADD_LOGIN_MAC, "wlan-1-1", client_of_wlan_1_1)}),
	 .mark = 5304},
	{.description = "a character behind 9 in the logout address counts on",
	 .frame = frame().from(client_of_wlan_1_1).to(logout_server).destination(ipv4(1, 2, 3, 10)).tcp(51000, 80),
	 .device = "wlan-1-1",
	 .state = all({logout_address(0, "1.2.3.:"), listed(ADD_LOGIN_MAC, "wlan-1-1", client_of_wlan_1_1)}),
	 .mark = 5304},
	{.description = "a character above 127 in the logout address is positive",
	 .frame = frame().from(client_of_wlan_1_1).to(logout_server).destination(ipv4(1, 2, 3, 129)).tcp(51000, 80),
	 .device = "wlan-1-1",
	 .state = all({logout_address(0, "1.2.3.\xb1"), listed(ADD_LOGIN_MAC, "wlan-1-1", client_of_wlan_1_1)}),
	 .mark = 5304},
	{.description = "an address that is cut is no logout address",
	 .frame = frame().from(client_of_wlan_1_1).to(logout_server).tcp(51000, 80).truncate_network(19),
	 .device = "wlan-1-1",
	 .state = admitted(ADD_LOGIN_MAC)},
	{.description = "a login comes before the white list",
	 .frame = to_logout_server(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = all({admitted(ADD_LOGIN_MAC), listed(ADD_WHITELIST_MAC, "wlan-1-1", client_of_wlan_1_1)}),
	 .mark = 5304},
	{.description = "a login comes before the disconnection behaviour",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = all({admitted(ADD_LOGIN_MAC), behavior("wlan-1-1", 3, 2)})},
	{.description = "a client of the white list leaves unmarked even to the logout address",
	 .frame = to_logout_server(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .mark_in = 77,
	 .state = admitted(ADD_WHITELIST_MAC),
	 .mark = 77},
	{.description = "a client of the ga white list leaves unmarked even to the logout address",
	 .frame = to_logout_server(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = admitted(ADD_GA_WHITELIST_MAC)},
	{.description = "a client of the fallback list leaves unmarked even to the logout address",
	 .frame = to_logout_server(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = admitted(ADD_MAC_AUTH_FALLBACK)},
	{.description = "white lists of another interface do not count",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = all({portal_on(0), listed(ADD_WHITELIST_MAC, "wlan-1-2", client_of_wlan_1_1),
		       listed(ADD_GA_WHITELIST_MAC, "wlan-1-2", client_of_wlan_1_1),
		       listed(ADD_MAC_AUTH_FALLBACK, "wlan-1-2", client_of_wlan_1_1)}),
	 .mark = 5200},
	{.description = "the white list comes before the disconnection behaviour",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = all({admitted(ADD_WHITELIST_MAC), behavior("wlan-1-1", 3, 2)})},
	{.description = "a logged out client is marked again",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = all({admitted(ADD_LOGIN_MAC), listed(DEL_LOGIN_MAC, "wlan-1-1", client_of_wlan_1_1)}),
	 .mark = 5200},
	{.description = "IPv6 of a logged in client is tested at the place of an IPv4 destination",
	 .frame = ipv6_frame(ipv6_like_packet_to_logout),
	 .device = "wlan-1-1",
	 .state = admitted(ADD_LOGIN_MAC),
	 .mark = 5304},
};

INSTANTIATE_TEST_SUITE_P(Admitted, GatekeeperAdmittedRow, ::testing::ValuesIn(admitted_rows), packet_case_name);

TEST_P(GatekeeperAdmittedRow, GivesVerdictAndMark)
{
	run_packet_case(ebt_gate_keeper, GetParam());
}

class GatekeeperOtherRow : public PacketCaseTest
{
};

const State dhcp_only = all({portal_on(0), behavior("wlan-1-1", 2, 2)});

const PacketCase other_rows[] = {
	{.description = "behaviour 1 passes everything unmarked",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .mark_in = 77,
	 .state = all({portal_on(0), behavior("wlan-1-1", 1, 2)}),
	 .mark = 77},
	{.description = "behaviour 2 passes a DHCP request",
	 .frame = frame().from(client_of_wlan_1_1).to(broadcast).udp(68, 67),
	 .device = "wlan-1-1",
	 .state = dhcp_only},
	{.description = "behaviour 2 passes UDP to port 68",
	 .frame = frame().from(client_of_wlan_1_1).to(broadcast).udp(67, 68),
	 .device = "wlan-1-1",
	 .state = dhcp_only},
	{.description = "behaviour 2 drops UDP from 67 to 67",
	 .frame = frame().from(client_of_wlan_1_1).to(broadcast).udp(67, 67),
	 .device = "wlan-1-1",
	 .state = dhcp_only,
	 .verdict = CP_DROP},
	{.description = "behaviour 2 drops a DNS query",
	 .frame = frame().from(client_of_wlan_1_1).to(upstream_dns).udp(51000, 53),
	 .device = "wlan-1-1",
	 .state = dhcp_only,
	 .verdict = CP_DROP},
	{.description = "behaviour 2 drops TCP of port 68",
	 .frame = frame().from(client_of_wlan_1_1).to(upstream_server).tcp(68, 68).syn(),
	 .device = "wlan-1-1",
	 .state = dhcp_only,
	 .verdict = CP_DROP},
	{.description = "behaviour 2 drops ICMP",
	 .frame = frame().from(client_of_wlan_1_1).to(upstream_server).icmp(8),
	 .device = "wlan-1-1",
	 .state = dhcp_only,
	 .verdict = CP_DROP},
	{.description = "behaviour 2 drops a later fragment",
	 .frame = frame().from(client_of_wlan_1_1).to(broadcast).fragment_offset(1).udp(68, 67),
	 .device = "wlan-1-1",
	 .state = dhcp_only,
	 .verdict = CP_DROP},
	{.description = "behaviour 2 passes a source port that is all there is",
	 .frame = frame().from(client_of_wlan_1_1).to(broadcast).udp(68, 67).truncate_network(22),
	 .device = "wlan-1-1",
	 .state = dhcp_only},
	{.description = "behaviour 2 drops what is cut before the destination port",
	 .frame = frame().from(client_of_wlan_1_1).to(broadcast).udp(67, 68).truncate_network(22),
	 .device = "wlan-1-1",
	 .state = dhcp_only,
	 .verdict = CP_DROP},
	{.description = "behaviour 2 drops nothing behind the EtherType",
	 .frame = frame().from(client_of_wlan_1_1).to(broadcast).truncate_network(0),
	 .device = "wlan-1-1",
	 .state = dhcp_only,
	 .verdict = CP_DROP},
	{.description = "behaviour 2 passes ARP",
	 .frame = frame().from(client_of_wlan_1_1).to(broadcast).arp(),
	 .device = "wlan-1-1",
	 .state = dhcp_only},
	{.description = "behaviour 2 drops IPv6",
	 .frame = frame().from(client_of_wlan_1_1).to(broadcast).ipv6(17).payload("\x02\x22\x02\x23"),
	 .device = "wlan-1-1",
	 .state = dhcp_only,
	 .verdict = CP_DROP},
	{.description = "behaviour 2 tests IPv6 at the places of an IPv4 header",
	 .frame = ipv6_frame(ipv6_like_dhcp),
	 .device = "wlan-1-1",
	 .state = dhcp_only},
	{.description = "behaviour 3 drops and says so at debug level 1",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = all({portal_on(0), behavior("wlan-1-1", 3, 2)}),
	 .verdict = CP_DROP,
	 .log = {debug_line(unknown_behavior)}},
	{.description = "behaviour 3 says so at debug level 3",
	 .frame = frame().from(client_of_wlan_1_1).to(broadcast).udp(68, 67),
	 .device = "wlan-1-1",
	 .state = all({behavior("wlan-1-1", 3, 2), logging_at(3)}),
	 .verdict = CP_DROP,
	 .log = {debug_line(unknown_behavior)}},
	{.description = "behaviour 3 drops silently at debug level 0",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = all({behavior("wlan-1-1", 3, 2), logging_at(0)}),
	 .verdict = CP_DROP},
	{.description = "behaviour 3 drops silently at a negative debug level",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = all({behavior("wlan-1-1", 3, 2), logging_at(-1)}),
	 .verdict = CP_DROP},
	{.description = "behaviour 0 is unknown too",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = behavior("wlan-1-1", 0, 2),
	 .verdict = CP_DROP,
	 .log = {debug_line(unknown_behavior)}},
	{.description = "in status 1 the portal decides",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = all({portal_on(0), behavior("wlan-1-1", 3, 1)}),
	 .mark = 5200},
	{.description = "in status 3 the portal decides",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = behavior("wlan-1-1", 2, 3)},
	{.description = "the behaviour of another interface does not count",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .state = all({portal_on(0), behavior("wlan-1-2", 3, 2)}),
	 .mark = 5200},

	{.description = "a client in no table passes unmarked where the portal is off",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .mark_in = 77,
	 .state = portal_on(1),
	 .mark = 77},
	{.description = "a client in no table gets the mark where the portal is on",
	 .frame = web_request(client_of_wlan_1_1),
	 .device = "wlan-1-1",
	 .mark_in = 77,
	 .state = portal_on(0),
	 .mark = 5200},
	{.description = "mode 7 is on",
	 .frame = web_request(client_of_wlan_2_1),
	 .device = "wlan-2-1",
	 .state = portal_on(8, 7),
	 .mark = 5220},
	{.description = "mode 8 is on",
	 .frame = web_request(client_of_wlan_3_8),
	 .device = "wlan-3-8",
	 .state = portal_on(23, 8),
	 .mark = 5247},
	{.description = "a SYN straight to the clients own redirect port is marked",
	 .frame = frame().from(client_of_wlan_1_1).to(access_point).tcp(51000, 10081).syn(),
	 .device = "wlan-1-1",
	 .state = portal_on(0),
	 .mark = 5200},
	{.description = "nothing behind the EtherType is marked",
	 .frame = frame().from(client_of_wlan_1_1).to(upstream_server).truncate_network(0),
	 .device = "wlan-1-1",
	 .state = all({portal_on(0), portal_on(27), dns_filter_on()}),
	 .mark = 5200},
	{.description = "nothing behind the EtherType of a logged in client is not marked",
	 .frame = frame().from(client_of_wlan_1_1).to(upstream_server).truncate_network(0),
	 .device = "wlan-1-1",
	 .state = all({portal_on(0), listed(ADD_LOGIN_MAC, "wlan-1-1", client_of_wlan_1_1)})},
};

INSTANTIATE_TEST_SUITE_P(Others, GatekeeperOtherRow, ::testing::ValuesIn(other_rows), packet_case_name);

TEST_P(GatekeeperOtherRow, GivesVerdictAndMark)
{
	run_packet_case(ebt_gate_keeper, GetParam());
}

} // namespace

} // namespace captive_portal::test
