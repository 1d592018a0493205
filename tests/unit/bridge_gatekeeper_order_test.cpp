// SPDX-License-Identifier: GPL-2.0-only
// In which order the gatekeeper hook asks: whatever decides about a client comes before the disconnection behaviour of
// its interface. A behaviour that is not known drops with a line, so nothing decides like it by chance.
#include "tests/unit/bridge_gatekeeper_fixture.h"

namespace captive_portal::test
{

namespace
{

class GatekeeperOrderRow : public PacketCaseTest
{
};

const State unknown_behavior_and_portal = all({portal_on(0), behavior("wlan-1-1", 3, 2)});

PacketCase row(std::string description, State state, uint32_t mark, const Host &server = upstream_server)
{
	return {.description = std::move(description),
		.frame = frame().from(client_of_wlan_1_1).to(server).tcp(51000, 80).syn(),
		.device = "wlan-1-1",
		.mark_in = 77,
		.state = all({unknown_behavior_and_portal, std::move(state)}),
		.mark = mark};
}

const PacketCase rows[] = {
	row("a login comes before the behaviour", listed(ADD_LOGIN_MAC, "wlan-1-1", client_of_wlan_1_1), 77),
	row("an authorisation comes before the behaviour", listed(ADD_AUTH_MAC, "wlan-1-1", client_of_wlan_1_1), 77),
	row("an authorised client is marked towards the logout address before the behaviour",
	    all({listed(ADD_AUTH_MAC, "wlan-1-1", client_of_wlan_1_1), logout_address(0, "1.2.3.4")}), 5304,
	    logout_server),
	row("the white list comes before the behaviour", listed(ADD_WHITELIST_MAC, "wlan-1-1", client_of_wlan_1_1), 77),
	row("the ga white list comes before the behaviour",
	    listed(ADD_GA_WHITELIST_MAC, "wlan-1-1", client_of_wlan_1_1), 77),
	row("the fallback list comes before the behaviour",
	    listed(ADD_MAC_AUTH_FALLBACK, "wlan-1-1", client_of_wlan_1_1), 77),
	row("the MIREL white list comes before the behaviour",
	    all({portal_on(27), listed(ADD_MIREL_WHITE_LIST_MAC, "", client_of_wlan_1_1)}), 77),
	row("the MIREL black list comes before the behaviour",
	    all({portal_on(27), listed(ADD_MIREL_BLACK_LIST_MAC, "", client_of_wlan_1_1)}), 5302),
	row("the DNS filter comes before the behaviour", dns_filter_on(), 5324, dns_filter),
};

INSTANTIATE_TEST_SUITE_P(Order, GatekeeperOrderRow, ::testing::ValuesIn(rows), packet_case_name);

TEST_P(GatekeeperOrderRow, GivesVerdictAndMark)
{
	run_packet_case(ebt_gate_keeper, GetParam());
}

} // namespace

} // namespace captive_portal::test
