// SPDX-License-Identifier: GPL-2.0-only
// Every number of the binary interface as a literal: a daemon that was built once must go on to work.
#include <gtest/gtest.h>

#include <cstddef>
#include <string_view>

#include "captive_portal/captive_portal.h"
#include "tests/unit/public_headers.h"

namespace captive_portal::test
{

TEST(PublicHeaders, RecordsHaveTheirSizes)
{
	EXPECT_EQ(sizeof(cp_cmd), 28u);
	EXPECT_EQ(sizeof(cp_status), 320u);
	EXPECT_EQ(sizeof(wg_rule), 140u);
	EXPECT_EQ(sizeof(wg_cmd), 3376u);
	EXPECT_EQ(sizeof(gk_cmd), 52u);
	EXPECT_EQ(sizeof(gk_list_slot), 16u);
	EXPECT_EQ(sizeof(gk_list_reply), 16592u);
	EXPECT_EQ(sizeof(gk_check_reply), 32u);
}

TEST(PublicHeaders, RecordsHaveTheirFieldsInPlace)
{
	EXPECT_EQ(offsetof(cp_cmd, cmd), 0u);
	EXPECT_EQ(offsetof(cp_cmd, iface), 4u);
	EXPECT_EQ(offsetof(cp_cmd, enable_value), 8u);
	EXPECT_EQ(offsetof(cp_cmd, value), 12u);
	EXPECT_EQ(offsetof(cp_status, mark), 8u);
	EXPECT_EQ(offsetof(cp_status, cp_mode), 12u);
	EXPECT_EQ(offsetof(cp_status, walled_garden), 16u);
	EXPECT_EQ(offsetof(cp_status, block_https), 20u);
	EXPECT_EQ(offsetof(cp_status, ap_addr), 24u);
	EXPECT_EQ(offsetof(wg_rule, ip_addr), 4u);
	EXPECT_EQ(offsetof(wg_rule, netmask), 8u);
	EXPECT_EQ(offsetof(wg_rule, domain_name), 12u);
	EXPECT_EQ(offsetof(wg_cmd, rule_number), 12u);
	EXPECT_EQ(offsetof(wg_cmd, rules), 16u);
	EXPECT_EQ(offsetof(gk_cmd, iface), 12u);
	EXPECT_EQ(offsetof(gk_cmd, owe_iface), 28u);
	EXPECT_EQ(offsetof(gk_cmd, mac), 44u);
	EXPECT_EQ(offsetof(gk_list_reply, count), 44u);
	EXPECT_EQ(offsetof(gk_list_reply, entries), 48u);
	EXPECT_EQ(offsetof(gk_list_slot, mac), 8u);
	EXPECT_EQ(offsetof(gk_check_reply, iface), 4u);
	EXPECT_EQ(offsetof(gk_check_reply, mac), 20u);
	EXPECT_EQ(offsetof(gk_check_reply, found), 28u);
}

TEST(PublicHeaders, CAndCxxAgree)
{
	EXPECT_EQ(seen_by_c.cp_cmd, 28u);
	EXPECT_EQ(seen_by_c.cp_status, 320u);
	EXPECT_EQ(seen_by_c.wg_rule, 140u);
	EXPECT_EQ(seen_by_c.wg_cmd, 3376u);
	EXPECT_EQ(seen_by_c.gk_cmd, 52u);
	EXPECT_EQ(seen_by_c.gk_list_reply, 16592u);
	EXPECT_EQ(seen_by_c.gk_check_reply, 32u);
	EXPECT_EQ(seen_by_c.last_reputation_mark, 5323u);
	EXPECT_STREQ(seen_by_c.device_path, "/dev/CP_dev");
	EXPECT_EQ(c_interface_mark(23), 5247u);
	EXPECT_EQ(c_https_port(23), 30451u);
	EXPECT_EQ(c_owe_index(3, 16), 8u);
}

TEST(PublicHeaders, CommandsHaveTheirNumbers)
{
	EXPECT_EQ(CAPTIVE_PORTAL_IOCTL_SET, 1);
	EXPECT_EQ(CAPTIVE_PORTAL_IOCTL_GET, 2);
	EXPECT_EQ(WALLED_GARDEN_IOCTL_SET, 3);
	EXPECT_EQ(WALLED_GARDEN_IOCTL_GET, 4);
	EXPECT_EQ(GATEWAY_IOCTL_SET, 6);
	EXPECT_EQ(GATEWAY_IOCTL_GET, 7);
	EXPECT_EQ(GATEKEEPER_IOCTL_SET, 8);
	EXPECT_EQ(GATEKEEPER_IOCTL_GET, 9);
	EXPECT_EQ(GATEKEEPER_IOCTL_CHECK, 10);
	EXPECT_EQ(ENV_SET_DEBUG_LEVEL, 11);
}

TEST(PublicHeaders, PortalSubCommandsHaveTheirNumbers)
{
	EXPECT_EQ(CP_WALLED_GARDEN, 0);
	EXPECT_EQ(CAPTIVE_PORTAL, 1);
	EXPECT_EQ(BLOCK_HTTPS, 5);
	EXPECT_EQ(CAPTIVE_PORTAL_MIREL, 7);
	EXPECT_EQ(LOGOUT_IP_NOTIFY, 8);
	EXPECT_EQ(DNS_FILTER_ENABLE, 9);
	EXPECT_EQ(CP_GET_STATUS, 2);
}

TEST(PublicHeaders, WalledGardenSubCommandsHaveTheirNumbers)
{
	EXPECT_EQ(WALLED_GARDEN, 0);
	EXPECT_EQ(UPDATE_DEFAULT_RULE, 1);
	EXPECT_EQ(UPDATE_RULE, 2);
	EXPECT_EQ(UPDATE_MIREL_RULE, 3);
	EXPECT_EQ(GET_WALLED_GARDEN_RULE, 4);
	EXPECT_EQ(GET_DEFAULT_RULE, 5);
	EXPECT_EQ(WG_RULES_PER_RECORD, 24);
	EXPECT_EQ(WG_DEFAULT_RULES, 36);
	EXPECT_EQ(WG_DOMAIN_NAME_SIZE, 128);
}

TEST(PublicHeaders, GatekeeperSubCommandsHaveTheirNumbers)
{
	EXPECT_EQ(ADD_WHITELIST_MAC, 0);
	EXPECT_EQ(DEL_WHITELIST_MAC, 1);
	EXPECT_EQ(ADD_AUTH_MAC, 2);
	EXPECT_EQ(DEL_AUTH_MAC, 3);
	EXPECT_EQ(ADD_LOGIN_MAC, 4);
	EXPECT_EQ(DEL_LOGIN_MAC, 5);
	EXPECT_EQ(GET_WHITELIST_MAC, 6);
	EXPECT_EQ(GET_AUTH_MAC, 7);
	EXPECT_EQ(GET_LOGIN_MAC, 8);
	EXPECT_EQ(FLUSH_CAPTIVE_PORTAL_TABLE, 9);
	EXPECT_EQ(SET_OVRA_BEHAVIOR, 10);
	EXPECT_EQ(GET_OVRA_BEHAVIOR, 11);
	EXPECT_EQ(ADD_MAPPING_OWE_VAP, 12);
	EXPECT_EQ(GET_MAPPING_OWE_VAP, 14);
	EXPECT_EQ(FLUSH_MAPPING_OWE_VAP, 16);
	EXPECT_EQ(CHECK_WHITELIST_MAC, 18);
	EXPECT_EQ(CHECK_LOGIN_MAC, 19);
	EXPECT_EQ(GET_MIREL_BLACK_LIST_MAC, 20);
	EXPECT_EQ(GET_MIREL_WHITE_LIST_MAC, 21);
	EXPECT_EQ(ADD_MIREL_BLACK_LIST_MAC, 22);
	EXPECT_EQ(DEL_MIREL_BLACK_LIST_MAC, 23);
	EXPECT_EQ(ADD_MIREL_WHITE_LIST_MAC, 24);
	EXPECT_EQ(DEL_MIREL_WHITE_LIST_MAC, 25);
	EXPECT_EQ(ADD_GA_WHITELIST_MAC, 26);
	EXPECT_EQ(DEL_GA_WHITELIST_MAC, 27);
	EXPECT_EQ(GET_GA_WHITELIST_MAC, 28);
	EXPECT_EQ(CHECK_GA_WHITELIST_MAC, 29);
	EXPECT_EQ(FLUSH_GA_WHITELIST_TABLE, 30);
	EXPECT_EQ(ADD_MAC_AUTH_FALLBACK, 31);
	EXPECT_EQ(DEL_MAC_AUTH_FALLBACK, 32);
	EXPECT_EQ(GET_MAC_AUTH_FALLBACK, 33);
	EXPECT_EQ(FLUSH_MAC_AUTH_FALLBACK, 34);
	EXPECT_EQ(CHECK_MAC_AUTH_FALLBACK, 35);
	EXPECT_EQ(GK_LIST_SLOTS, 1034);
}

TEST(PublicHeaders, InterfacesHaveTheirIndices)
{
	EXPECT_EQ(cp_interface_index(1, 1), 0u);
	EXPECT_EQ(cp_interface_index(1, 8), 7u);
	EXPECT_EQ(cp_interface_index(2, 1), 8u);
	EXPECT_EQ(cp_interface_index(3, 8), 23u);
	// Only the combined index counts.
	EXPECT_EQ(cp_interface_index(2, 0), 7u);
	EXPECT_EQ(cp_interface_index(1, 9), 8u);
	EXPECT_EQ(cp_interface_index(1, 0), 0xffffffffu);
	EXPECT_EQ(cp_interface_index(0, 0), 0xfffffff7u);
	EXPECT_EQ(CP_ROW_SPECIAL_MARK, 24);
	EXPECT_EQ(CP_ROW_MODE_7, 25);
	EXPECT_EQ(CP_ROW_SOCIAL_LOGIN, 26);
	EXPECT_EQ(CP_ROW_MIREL, 27);
	EXPECT_EQ(CP_ROWS, 28);
	EXPECT_EQ(CP_WIRELESS_INTERFACES, 24);
}

TEST(PublicHeaders, OweInterfacesHaveTheirRows)
{
	EXPECT_EQ(cp_owe_index(1, 14), 0u);
	EXPECT_EQ(cp_owe_index(1, 16), 2u);
	EXPECT_EQ(cp_owe_index(2, 15), 4u);
	EXPECT_EQ(cp_owe_index(3, 16), 8u);
	EXPECT_EQ(cp_owe_index(1, 17), 3u);
	EXPECT_EQ(cp_owe_index(4, 14), 9u);
	EXPECT_EQ(cp_owe_index(1, 13), 0xffffffffu);
	EXPECT_EQ(CP_OWE_INTERFACES, 9);
}

TEST(PublicHeaders, MarksHaveTheirValues)
{
	EXPECT_EQ(cp_interface_mark(0), 5200u);
	EXPECT_EQ(cp_interface_mark(7), 5207u);
	EXPECT_EQ(cp_interface_mark(8), 5220u);
	EXPECT_EQ(cp_interface_mark(15), 5227u);
	EXPECT_EQ(cp_interface_mark(16), 5240u);
	EXPECT_EQ(cp_interface_mark(23), 5247u);
	EXPECT_EQ(MARK_MIREL_BLACK, 5302);
	EXPECT_EQ(MARK_LOGOUT, 5304);
	EXPECT_EQ(MARK_REPUTATION_FIRST, 5307);
	EXPECT_EQ(MARK_REPUTATION_LAST, 5323);
	EXPECT_EQ(MARK_DNS_FILTER, 5324);
}

TEST(PublicHeaders, RedirectPortsHaveTheirNumbers)
{
	EXPECT_EQ(cp_http_port(0), 10081);
	EXPECT_EQ(cp_http_port(7), 10088);
	EXPECT_EQ(cp_http_port(8), 20081);
	EXPECT_EQ(cp_http_port(23), 30088);
	EXPECT_EQ(cp_https_port(0), 10444);
	EXPECT_EQ(cp_https_port(7), 10451);
	EXPECT_EQ(cp_https_port(8), 20444);
	EXPECT_EQ(cp_https_port(23), 30451);
	EXPECT_EQ(CP_PORT_LOGOUT, 82);
	EXPECT_EQ(CP_PORT_SOCIAL_LOGIN_HTTP, 83);
	EXPECT_EQ(CP_PORT_SOCIAL_LOGIN_HTTPS, 84);
	EXPECT_EQ(CP_PORT_MIREL_HTTP, 86);
	EXPECT_EQ(CP_PORT_MIREL_HTTPS, 87);
	EXPECT_EQ(CP_PORT_DNS_FILTER_HTTP, 88);
	EXPECT_EQ(CP_PORT_DNS_FILTER_HTTPS, 89);
	EXPECT_EQ(CP_PORT_MODE_7_HTTP, 90);
	EXPECT_EQ(CP_PORT_MODE_7_HTTPS, 91);
	EXPECT_EQ(CP_PORT_REPUTATION_HTTP_FIRST, 1025);
	EXPECT_EQ(CP_PORT_REPUTATION_HTTPS_FIRST, 1042);
	EXPECT_EQ(CP_PORT_REPUTATION_LAST, 1058);
}

TEST(PublicHeaders, FixedTextsStand)
{
	EXPECT_STREQ(CP_DEVICE_NAME, "CP_dev");
	EXPECT_STREQ(CP_SOCIAL_LOGIN_ADDRESS, "2.2.2.2");
	EXPECT_STREQ(CP_DNS_FILTER_ADDRESS, "4.4.4.4");
	// Under a name that is reserved for documentation (RFC 2606), so it never is anybody's.
	EXPECT_TRUE(std::string_view(CP_SOCIAL_LOGIN_HOST).ends_with(".example.com"));
	EXPECT_LT(std::string_view(CP_SOCIAL_LOGIN_HOST).size(), 128u);
	EXPECT_EQ(CP_DEFAULT_DEBUG_LEVEL, 1);
}

} // namespace captive_portal::test
