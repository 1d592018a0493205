// SPDX-License-Identifier: GPL-2.0-only
#include "portal/interface_table.h"

#include <algorithm>
#include <cstring>

#include "base/fixed_addresses.h"
#include "portal/connections.h"
#include "tests/support/host_test.h"
#include "tests/unit/portal_case.h"

namespace captive_portal::test
{

namespace
{

using InterfaceTable = HostTest;

struct Row {
	uint32_t mark;
	uint16_t http_port;
	uint16_t https_port;
};

constexpr Row wireless_rows[24] = {
	{5200, 10081, 10444}, {5201, 10082, 10445}, {5202, 10083, 10446}, {5203, 10084, 10447}, {5204, 10085, 10448},
	{5205, 10086, 10449}, {5206, 10087, 10450}, {5207, 10088, 10451}, {5220, 20081, 20444}, {5221, 20082, 20445},
	{5222, 20083, 20446}, {5223, 20084, 20447}, {5224, 20085, 20448}, {5225, 20086, 20449}, {5226, 20087, 20450},
	{5227, 20088, 20451}, {5240, 30081, 30444}, {5241, 30082, 30445}, {5242, 30083, 30446}, {5243, 30084, 30447},
	{5244, 30085, 30448}, {5245, 30086, 30449}, {5246, 30087, 30450}, {5247, 30088, 30451},
};

bool all_zero(const cp_row &row)
{
	const auto *const bytes = reinterpret_cast<const unsigned char *>(&row);
	return std::all_of(bytes, bytes + sizeof(row), [](unsigned char byte) { return byte == 0; });
}

TEST_F(InterfaceTable, IsAllZeroBeforeStart)
{
	for (const cp_row &row : captive_portal_table) {
		EXPECT_TRUE(all_zero(row));
	}
	EXPECT_EQ(socialogin_addr, ipv4(0, 0, 0, 0));
	EXPECT_EQ(dns_filter_addr, ipv4(0, 0, 0, 0));
}

TEST_F(InterfaceTable, GivesEachWirelessRowItsMarkAndPorts)
{
	load_module();
	for (uint32_t i = 0; i < 24; ++i) {
		SCOPED_TRACE(i);
		EXPECT_EQ(captive_portal_table[i].mark, wireless_rows[i].mark);
		EXPECT_EQ(captive_portal_table[i].http_port, wireless_rows[i].http_port);
		EXPECT_EQ(captive_portal_table[i].https_port, wireless_rows[i].https_port);
	}
}

TEST_F(InterfaceTable, StartsWithPortalsOffAndHttpsBlocked)
{
	load_module();
	for (uint32_t i = 0; i < 24; ++i) {
		SCOPED_TRACE(i);
		const cp_row &row = captive_portal_table[i];
		EXPECT_EQ(row.cp_mode, 0u);
		EXPECT_EQ(row.cp_walled_garden, 0u);
		EXPECT_EQ(row.block_https, 1u);
		EXPECT_EQ(std::string_view(row.logout_ip, sizeof(row.logout_ip)),
			  std::string_view("\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 16));
		EXPECT_EQ(row.table_list, nullptr);
	}
}

TEST_F(InterfaceTable, LeavesTheSpecialRowsZero)
{
	load_module();
	for (uint32_t i = 24; i < 28; ++i) {
		EXPECT_TRUE(all_zero(captive_portal_table[i])) << i;
	}
}

TEST_F(InterfaceTable, StartsWithTheFixedAddressesAndNoLearnedOnes)
{
	load_module();
	EXPECT_EQ(socialogin_addr, ipv4(2, 2, 2, 2));
	EXPECT_EQ(dns_filter_addr, ipv4(4, 4, 4, 4));
	EXPECT_EQ(dns_filter_activate, 0u);
	EXPECT_EQ(ap_addr, ipv4(0, 0, 0, 0));
	EXPECT_EQ(ap_gateway, ipv4(0, 0, 0, 0));
	EXPECT_EQ(load_ap_mac(), MacAddress{});
}

TEST_F(InterfaceTable, IsFilledUnderTheLocksOfItsFields)
{
	init_captive_portal_table();
	EXPECT_GE(machine.locks.acquisitions(CP_LOCK_CP), 1u);
	EXPECT_GE(machine.locks.acquisitions(CP_LOCK_CHANGE_IP_PORT), 1u);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_GATEWAY), 0u);
}

// The device can be opened before the table is filled.
TEST_F(InterfaceTable, OverwritesWhatAnEarlyCommandHasSet)
{
	for (const uint32_t row : {0u, 23u}) {
		captive_portal_table[row].cp_mode = 7;
		captive_portal_table[row].cp_walled_garden = 1;
		captive_portal_table[row].block_https = 2;
		std::strcpy(captive_portal_table[row].logout_ip, "192.168.100.254");
		captive_portal_table[row].logout_address = {0xfe64a8c0};
	}
	init_captive_portal_table();
	for (const uint32_t row : {0u, 23u}) {
		EXPECT_EQ(captive_portal_table[row].cp_mode, 0u);
		EXPECT_EQ(captive_portal_table[row].cp_walled_garden, 0u);
		EXPECT_EQ(captive_portal_table[row].block_https, 1u);
		EXPECT_EQ(std::string_view(captive_portal_table[row].logout_ip, 16),
			  std::string_view("\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 16));
		EXPECT_EQ(captive_portal_table[row].logout_address.raw, 0u);
	}
}

TEST_F(InterfaceTable, ClearsTheMirelModeAndTheSharedLists)
{
	captive_portal_table[27].cp_mode = 7;
	captive_portal_table[27].cp_walled_garden = 1;
	for (const uint32_t row : {0u, 23u, 24u, 25u, 27u}) {
		record({row, ipv4(192, 168, 1, 11), 51000, ipv4(203, 0, 113, 10), 80, router_mac});
	}
	init_captive_portal_table();
	EXPECT_EQ(captive_portal_table[27].cp_mode, 0u);
	EXPECT_EQ(captive_portal_table[27].cp_walled_garden, 0u);
	EXPECT_EQ(connections(), std::vector<Connection>{});
	EXPECT_TRUE(machine.live_allocations().empty()) << "an entry of a list that was cleared is freed";
}

TEST_F(InterfaceTable, ClearsTheLearnedAddressesAndTheGateway)
{
	ap_addr = ipv4(192, 168, 1, 1);
	ap_gateway = ipv4(192, 168, 1, 254);
	store_ap_mac({{1, 2, 3, 4, 5, 6}});
	clear_access_point_addresses();
	EXPECT_EQ(ap_addr, ipv4(0, 0, 0, 0));
	EXPECT_EQ(ap_gateway, ipv4(0, 0, 0, 0));
	EXPECT_EQ(load_ap_mac(), MacAddress{});
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_GATEWAY), 1u);
}

TEST_F(InterfaceTable, KeepsEachByteOfTheLearnedMac)
{
	store_ap_mac({{0xff, 0x80, 0x7f, 0x01, 0x00, 0xfe}});
	EXPECT_EQ(load_ap_mac(), (MacAddress{{0xff, 0x80, 0x7f, 0x01, 0x00, 0xfe}}));
	store_ap_mac({});
	EXPECT_EQ(load_ap_mac(), MacAddress{});
}

} // namespace

} // namespace captive_portal::test
