// SPDX-License-Identifier: GPL-2.0-only
#include "portal/portal_commands.h"

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "portal/interface_table.h"
#include "tests/support/control.h"
#include "tests/support/host_test.h"

namespace captive_portal::test
{

namespace
{

// The whole table, as bytes.
std::vector<std::byte> table()
{
	const auto bytes = std::as_bytes(std::span(captive_portal_table));
	return {bytes.begin(), bytes.end()};
}

cp_cmd setting(uint32_t number, int32_t iface, uint32_t enable_value, std::string_view value = "")
{
	cp_cmd record{.cmd = number, .iface = iface, .enable_value = enable_value, .value = ""};
	set_text(record.value, value);
	return record;
}

class PortalCommands : public HostTest
{
protected:
	void SetUp() override
	{
		load_module();
		// The lines come whatever the level is.
		set_debug_level(machine, 0);
	}

	[[nodiscard]] long set(const cp_cmd &record) { return command(machine, 1, record); }
};

TEST_F(PortalCommands, StoreTheWalledGardenValue)
{
	EXPECT_EQ(set(setting(0, 5, 17)), 0);
	EXPECT_LOG(debug_line("[captive portal]if_device_write_cp: CP_WALLED_GARDEN iface=5 enable_value=17\n"));
	EXPECT_EQ(captive_portal_table[5].cp_walled_garden, 17u);
	EXPECT_EQ(captive_portal_table[5].cp_mode, 0u);
}

TEST_F(PortalCommands, StoreThePortalMode)
{
	EXPECT_EQ(set(setting(1, 23, 8)), 0);
	EXPECT_LOG(debug_line("[captive portal]if_device_write_cp: CAPTIVE_PORTAL iface=23 enable_value=8\n"));
	EXPECT_EQ(captive_portal_table[23].cp_mode, 8u);
}

TEST_F(PortalCommands, StoreTheHttpsSwitch)
{
	EXPECT_EQ(set(setting(5, 0, 0)), 0);
	EXPECT_LOG(debug_line("[captive portal]if_device_write_cp: BLOCK_HTTPS iface=0 enable_value=0\n"));
	EXPECT_EQ(captive_portal_table[0].block_https, 0u);
}

TEST_F(PortalCommands, PrintAndStoreValuesOf32Bits)
{
	EXPECT_EQ(set(setting(1, 3, 0xffffffff)), 0);
	EXPECT_LOG(debug_line("[captive portal]if_device_write_cp: CAPTIVE_PORTAL iface=3 enable_value=-1\n"));
	EXPECT_EQ(captive_portal_table[3].cp_mode, 0xffffffff);
}

TEST_F(PortalCommands, TouchNoOtherFieldAndNoOtherRow)
{
	for (const uint32_t number : {0u, 1u, 5u}) {
		std::vector<cp_row> expected(captive_portal_table, captive_portal_table + CP_ROWS);
		(number == 0 ? expected[9].cp_walled_garden :
		 number == 1 ? expected[9].cp_mode :
			       expected[9].block_https) = 77;
		EXPECT_EQ(set(setting(number, 9, 77, "1.2.3.4")), 0);
		EXPECT_EQ(std::memcmp(captive_portal_table, expected.data(), sizeof(captive_portal_table)), 0)
			<< number;
	}
}

TEST_F(PortalCommands, SetTheMirelModeOnRow27WhateverTheRowSays)
{
	for (const int32_t iface : {3, 27, -1, 28, 1000000}) {
		captive_portal_table[27].cp_mode = 0;
		EXPECT_EQ(set(setting(7, iface, 1)), 0);
		EXPECT_LOG(debug_line("[captive portal]if_device_write_cp: CAPTIVE_PORTAL iface=27 enable_value=1\n"));
		EXPECT_EQ(captive_portal_table[27].cp_mode, 1u);
		EXPECT_EQ(captive_portal_table[3].cp_mode, 0u);
	}
}

TEST_F(PortalCommands, SetTheDnsFilterWhateverTheRowSays)
{
	for (const int32_t iface : {0, -1, 28}) {
		const auto before = table();
		EXPECT_EQ(set(setting(9, iface, 2)), 0);
		EXPECT_LOG(debug_line("[captive portal]if_device_write_cp: DNS_FILTER_ENABLE enable_value=2\n"));
		EXPECT_EQ(dns_filter_activate, 2u);
		EXPECT_EQ(table(), before);
		EXPECT_EQ(set(setting(9, iface, 0)), 0);
		EXPECT_LOG(debug_line("[captive portal]if_device_write_cp: DNS_FILTER_ENABLE enable_value=0\n"));
		EXPECT_EQ(dns_filter_activate, 0u);
	}
}

TEST_F(PortalCommands, StoreTheLogoutAddress)
{
	EXPECT_EQ(set(setting(8, 4, 1, "1.2.3.4")), 0);
	EXPECT_LOG(debug_line("[captive portal]if_device_write_cp: LOGOUT_IP_NOTIFY iface=4 value=1.2.3.4\n"));
	EXPECT_STREQ(captive_portal_table[4].logout_ip, "1.2.3.4");
	EXPECT_EQ(captive_portal_table[4].logout_address.raw, 0x04030201u);
	EXPECT_EQ(captive_portal_table[4].cp_mode, 0u);
}

TEST_F(PortalCommands, ClearAllOfTheLogoutAddressForAnEmptyOne)
{
	EXPECT_EQ(set(setting(8, 4, 0, "192.168.100.200")), 0);
	machine.log.clear();
	// What stands behind the NUL does not count.
	EXPECT_EQ(set(setting(8, 4, 0,
			      std::string_view("\0"
					       "1.2.3.4",
					       8))),
		  0);
	EXPECT_LOG(debug_line("[captive portal]if_device_write_cp: LOGOUT_IP_NOTIFY iface=4 value=\n"));
	EXPECT_EQ(std::string_view(captive_portal_table[4].logout_ip, 16),
		  std::string_view("\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 16));
	EXPECT_EQ(captive_portal_table[4].logout_address.raw, 0u);
}

// The address is the one that the stored text says, not the one that was sent.
TEST_F(PortalCommands, ReadTheLogoutAddressIn15Characters)
{
	EXPECT_EQ(set(setting(8, 4, 0, "203.0.113.000109")), 0);
	EXPECT_EQ(captive_portal_table[4].logout_address.raw, 0x0a7100cbu);
}

TEST_F(PortalCommands, StoreAShorterLogoutAddressOverALongerOne)
{
	EXPECT_EQ(set(setting(8, 4, 0, "192.168.100.200")), 0);
	EXPECT_EQ(set(setting(8, 4, 0, "9.9.9.9")), 0);
	EXPECT_STREQ(captive_portal_table[4].logout_ip, "9.9.9.9");
}

TEST_F(PortalCommands, Keep15CharactersOfALogoutAddressOf16)
{
	EXPECT_EQ(set(setting(8, 4, 0, "0123456789abcdef")), 0);
	EXPECT_LOG(debug_line("[captive portal]if_device_write_cp: LOGOUT_IP_NOTIFY iface=4 value=0123456789abcdef\n"));
	EXPECT_EQ(std::string_view(captive_portal_table[4].logout_ip, 16), std::string_view("0123456789abcde\0", 16));
}

TEST_F(PortalCommands, StoreAnyTextAsLogoutAddress)
{
	EXPECT_EQ(set(setting(8, 0, 0, "%s%n no address")), 0);
	EXPECT_LOG(debug_line("[captive portal]if_device_write_cp: LOGOUT_IP_NOTIFY iface=0 value=%s%n no address\n"));
	EXPECT_STREQ(captive_portal_table[0].logout_ip, "%s%n no address");
}

TEST_F(PortalCommands, RefuseUnassignedSubCommandsUnderTheLock)
{
	const auto before = table();
	for (const uint32_t number : {2u, 3u, 4u, 6u, 10u, 11u, 0x80000000u, 0xffffffffu}) {
		const uint64_t holds = machine.locks.acquisitions(CP_LOCK_CP);
		EXPECT_EQ(set(setting(number, 3, 1, "1.2.3.4")), -1) << number;
		EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_CP), holds + 1);
	}
	EXPECT_NO_LOG();
	EXPECT_EQ(table(), before);
	EXPECT_EQ(dns_filter_activate, 0u);
}

TEST_F(PortalCommands, TakeEveryRowUpTo27)
{
	for (int32_t row = 0; row < 28; ++row) {
		EXPECT_EQ(set(setting(0, row, 40)), 0);
		EXPECT_EQ(set(setting(1, row, 41)), 0);
		EXPECT_EQ(set(setting(5, row, 42)), 0);
		EXPECT_EQ(set(setting(8, row, 0, "5.6.7.8")), 0);
		EXPECT_EQ(captive_portal_table[row].cp_walled_garden, 40u);
		EXPECT_EQ(captive_portal_table[row].cp_mode, 41u);
		EXPECT_EQ(captive_portal_table[row].block_https, 42u);
		EXPECT_STREQ(captive_portal_table[row].logout_ip, "5.6.7.8");
	}
}

TEST_F(PortalCommands, LogAndRefuseARowThatDoesNotExist)
{
	const auto before = table();
	for (const int32_t row : {-1, 28, 2147483647, static_cast<int32_t>(0x80000000)}) {
		const std::string number = std::to_string(row);
		EXPECT_EQ(set(setting(0, row, 1)), -1);
		EXPECT_LOG(debug_line("[captive portal]if_device_write_cp: CP_WALLED_GARDEN iface=" + number +
				      " enable_value=1\n"));
		EXPECT_EQ(set(setting(1, row, 1)), -1);
		EXPECT_LOG(debug_line("[captive portal]if_device_write_cp: CAPTIVE_PORTAL iface=" + number +
				      " enable_value=1\n"));
		EXPECT_EQ(set(setting(5, row, 0)), -1);
		EXPECT_LOG(debug_line("[captive portal]if_device_write_cp: BLOCK_HTTPS iface=" + number +
				      " enable_value=0\n"));
		EXPECT_EQ(set(setting(8, row, 0, "1.2.3.4")), -1);
		EXPECT_LOG(debug_line("[captive portal]if_device_write_cp: LOGOUT_IP_NOTIFY iface=" + number +
				      " value=1.2.3.4\n"));
	}
	EXPECT_EQ(table(), before);
}

// ---- Status ---------------------------------------------------------------------------------------------------------

cp_status filled_with(uint8_t byte, uint32_t number, uint32_t iface)
{
	cp_status record;
	std::memset(&record, byte, sizeof(record));
	record.cmd = number;
	record.iface = iface;
	return record;
}

bool same(const cp_status &a, const cp_status &b)
{
	return std::memcmp(&a, &b, sizeof(a)) == 0;
}

class PortalStatus : public PortalCommands
{
protected:
	void SetUp() override
	{
		PortalCommands::SetUp();
		ap_addr = be32::from_host(0xc0a80101);
	}
};

TEST_F(PortalStatus, IsThatOfTheRow)
{
	set_portal(machine, CAPTIVE_PORTAL, 9, 7);
	set_portal(machine, CP_WALLED_GARDEN, 9, 55); // stored for the daemon; the status does not tell of it
	set_portal(machine, BLOCK_HTTPS, 9, 3);
	set_garden(machine, WALLED_GARDEN, 9, 12);
	cp_status record = filled_with(0xa5, 2, 9);
	cp_status expected = record;
	expected.mark = 5221;
	expected.cp_mode = 7;
	expected.walled_garden = 12;
	expected.block_https = 3;
	expected.ap_addr = 0x0101a8c0;
	EXPECT_EQ(command(machine, 2, record), 0);
	EXPECT_TRUE(same(record, expected));
	EXPECT_NO_LOG();
}

TEST_F(PortalStatus, HasEachFieldAtItsPlace)
{
	set_portal(machine, CAPTIVE_PORTAL, 23, 0x11223344);
	const cp_status record = filled_with(0, 2, 23);
	UserRecord<cp_status> user(machine, record);
	EXPECT_EQ(machine.ioctl(2, user.address()), 0);
	const std::vector<std::byte> bytes = user.read();
	ASSERT_EQ(bytes.size(), 320u);
	const uint8_t expected[32] = {2, 0, 0, 0, 23, 0, 0, 0, 0x7f, 0x14, 0, 0, 0x44, 0x33, 0x22, 0x11,
				      0, 0, 0, 0, 1,  0, 0, 0, 192,  168,  1, 1, 0,    0,    0,    0};
	EXPECT_EQ(std::memcmp(bytes.data(), expected, sizeof(expected)), 0);
}

TEST_F(PortalStatus, OfRow24IsZeroButForTheLiveAddress)
{
	cp_status record = filled_with(0xff, 2, 24);
	cp_status expected = record;
	expected.mark = 0;
	expected.cp_mode = 0;
	expected.walled_garden = 0;
	expected.block_https = 0;
	expected.ap_addr = 0x0101a8c0;
	EXPECT_EQ(command(machine, 2, record), 0);
	EXPECT_TRUE(same(record, expected)) << "deliberate: 24 is no interface";
}

TEST_F(PortalStatus, OfAnyHigherRowComesBackAsSent)
{
	for (const uint32_t row : {25u, 26u, 27u, 28u, 0x80000000u, 0xffffffffu}) {
		cp_status record = filled_with(0x5a, 2, row);
		const cp_status sent = record;
		EXPECT_EQ(command(machine, 2, record), 0);
		EXPECT_TRUE(same(record, sent)) << row;
	}
}

TEST_F(PortalStatus, OfAnotherSubCommandComesBackAsSent)
{
	for (const uint32_t number : {0u, 1u, 3u, 0x102u, 0xffffffffu}) {
		cp_status record = filled_with(0x5a, number, 0);
		const cp_status sent = record;
		EXPECT_EQ(command(machine, 2, record), 0);
		EXPECT_TRUE(same(record, sent)) << number;
	}
}

TEST_F(PortalStatus, IsReadUnderThePortalsLockAlone)
{
	cp_status record = filled_with(0, 2, 0);
	const uint64_t portal_holds = machine.locks.acquisitions(CP_LOCK_CP);
	const uint64_t garden_holds = machine.locks.acquisitions(CP_LOCK_WALLEDGARDEN);
	EXPECT_EQ(command(machine, 2, record), 0);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_CP), portal_holds + 1);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_WALLEDGARDEN), garden_holds);
}

// ---- Gateway --------------------------------------------------------------------------------------------------------

TEST_F(PortalCommands, StoreAndGiveTheGateway)
{
	const uint64_t holds = machine.locks.acquisitions(CP_LOCK_GATEWAY);
	const std::array<uint8_t, 4> address = {192, 168, 1, 254};
	EXPECT_EQ(command(machine, 6, address), 0);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_GATEWAY), holds + 1);
	EXPECT_EQ(ap_gateway.raw, 0xfe01a8c0u);
	uint32_t back = 0;
	EXPECT_EQ(command(machine, 7, back), 0);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_GATEWAY), holds + 2);
	EXPECT_EQ(back, 0xfe01a8c0u);
	EXPECT_NO_LOG();
}

TEST_F(PortalCommands, GiveNoGatewayBeforeOneIsSet)
{
	uint32_t back = 0xffffffff;
	EXPECT_EQ(command(machine, 7, back), 0);
	EXPECT_EQ(back, 0u);
}

} // namespace

} // namespace captive_portal::test
