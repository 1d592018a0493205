// SPDX-License-Identifier: GPL-2.0-only
#include "portal/lookups.h"

#include <cstring>

#include "garden/walled_garden.h"
#include "portal/interface_table.h"
#include "tests/support/host_test.h"
#include "tests/unit/portal_case.h"

namespace captive_portal::test
{

namespace
{

class Lookups : public HostTest
{
protected:
	void SetUp() override { load_module(); }

	[[nodiscard]] uint64_t all_acquisitions() const
	{
		uint64_t sum = 0;
		for (int lock = 0; lock < CP_LOCKS; ++lock) {
			sum += machine.locks.acquisitions(static_cast<cp_lock_id>(lock));
		}
		return sum;
	}
};

constexpr uint32_t interface_marks[24] = {5200, 5201, 5202, 5203, 5204, 5205, 5206, 5207, 5220, 5221, 5222, 5223,
					  5224, 5225, 5226, 5227, 5240, 5241, 5242, 5243, 5244, 5245, 5246, 5247};
// Beside and between the marks of the interfaces, the special marks, and values that no row has.
constexpr uint32_t other_marks[] = {0,    1,    5199, 5208, 5219, 5228, 5239, 5248,      5301,
				    5303, 5304, 5306, 5307, 5323, 5324, 5325, 0xffffffff};

TEST_F(Lookups, ModeIsThatOfTheRowWithTheMark)
{
	for (int32_t row = 0; row < 24; ++row) {
		set_portal(machine, CAPTIVE_PORTAL, row, 100 + static_cast<uint32_t>(row));
	}
	for (uint32_t row = 0; row < 24; ++row) {
		EXPECT_EQ(is_captive_portal_enable(interface_marks[row]), 100 + row);
	}
}

TEST_F(Lookups, ModeOfAnUnknownMarkIsZeroWhateverTheRowsSay)
{
	// Rows 24 to 26 have mark 0 and are found by no mark.
	for (int32_t row = 0; row < 28; ++row) {
		set_portal(machine, CAPTIVE_PORTAL, row, 1);
	}
	for (const uint32_t mark : other_marks) {
		EXPECT_EQ(is_captive_portal_enable(mark), 0u) << mark;
	}
}

TEST_F(Lookups, ModeOfTheMirelMarkIsThatOfRow27WithoutALock)
{
	const uint64_t before = all_acquisitions();
	EXPECT_EQ(is_captive_portal_enable(5302), 0u);
	EXPECT_EQ(all_acquisitions(), before);
	set_portal(machine, CAPTIVE_PORTAL, 27, 8);
	EXPECT_EQ(is_captive_portal_enable(5302), 8u);
}

TEST_F(Lookups, ModeAndHttpsSwitchOfAnInterfaceAreReadWithoutALock)
{
	const uint64_t before = all_acquisitions();
	EXPECT_EQ(is_captive_portal_enable(5247), 0u);
	EXPECT_EQ(is_block_https_enable(5247), 1u);
	EXPECT_EQ(all_acquisitions(), before);
}

TEST_F(Lookups, HttpsSwitchIsThatOfTheRowWithTheMark)
{
	for (int32_t row = 0; row < 24; ++row) {
		set_portal(machine, BLOCK_HTTPS, row, 200 + static_cast<uint32_t>(row));
	}
	for (uint32_t row = 0; row < 24; ++row) {
		EXPECT_EQ(is_block_https_enable(interface_marks[row]), 200 + row);
	}
}

TEST_F(Lookups, HttpsSwitchOfAnUnknownMarkIsZero)
{
	for (const uint32_t mark : other_marks) {
		EXPECT_EQ(is_block_https_enable(mark), 0u) << mark;
	}
}

TEST_F(Lookups, HttpsSwitchOfTheMirelMarkIsAlwaysOne)
{
	EXPECT_EQ(is_block_https_enable(5302), 1u);
	for (const uint32_t value : {0u, 2u}) {
		set_portal(machine, BLOCK_HTTPS, 27, value);
		EXPECT_EQ(is_block_https_enable(5302), 1u) << "deliberate: row 27's own value is not looked at";
	}
}

TEST_F(Lookups, RowOfAMarkIsItsInterface)
{
	for (uint32_t row = 0; row < 24; ++row) {
		EXPECT_EQ(get_iface_by_mark(interface_marks[row]), row);
		EXPECT_EQ(find_row_by_mark(interface_marks[row]), row);
	}
}

TEST_F(Lookups, RowOfAMarkInMode7Is25)
{
	for (int32_t row = 0; row < 24; ++row) {
		set_portal(machine, CAPTIVE_PORTAL, row, 7);
		EXPECT_EQ(get_iface_by_mark(interface_marks[row]), 25u);
		set_portal(machine, CAPTIVE_PORTAL, row, 8);
		EXPECT_EQ(get_iface_by_mark(interface_marks[row]), static_cast<uint32_t>(row));
	}
}

TEST_F(Lookups, RowOfTheMirelMarkIs27InEveryMode)
{
	EXPECT_EQ(get_iface_by_mark(5302), 27u);
	set_portal(machine, CAPTIVE_PORTAL, 27, 7);
	EXPECT_EQ(get_iface_by_mark(5302), 27u);
}

TEST_F(Lookups, RowOfAnUnknownMarkIsRowZero)
{
	// Not 25 either: row 0 did not match.
	set_portal(machine, CAPTIVE_PORTAL, 0, 7);
	for (const uint32_t mark : other_marks) {
		EXPECT_EQ(get_iface_by_mark(mark), 0u) << mark << ", deliberately no error";
		EXPECT_FALSE(find_row_by_mark(mark).has_value()) << mark;
	}
}

TEST_F(Lookups, RowOfAPortIsTheInterfaceThatOwnsIt)
{
	for (int32_t radio = 0; radio < 3; ++radio) {
		for (int32_t vap = 0; vap < 8; ++vap) {
			const int32_t first = 10000 * (radio + 1);
			EXPECT_EQ(get_iface_by_port(static_cast<uint16_t>(first + 81 + vap)), 8 * radio + vap);
			EXPECT_EQ(get_iface_by_port(static_cast<uint16_t>(first + 444 + vap)), 8 * radio + vap);
		}
	}
	EXPECT_EQ(get_iface_by_port(10081), 0);
	EXPECT_EQ(get_iface_by_port(10444), 0);
	EXPECT_EQ(get_iface_by_port(30451), 23);
}

TEST_F(Lookups, RowOfAnUnknownPortIsMinusOne)
{
	// 0 is what rows 24 to 27 hold.
	for (const uint16_t port : {0, 80, 82, 443, 10080, 10089, 10443, 10452, 20080, 30452, 65535}) {
		EXPECT_EQ(get_iface_by_port(port), -1) << port;
	}
}

TEST_F(Lookups, RowLookupsTakeNoLock)
{
	const uint64_t before = all_acquisitions();
	EXPECT_EQ(get_iface_by_mark(5247), 23u);
	EXPECT_EQ(get_iface_by_port(30451), 23);
	EXPECT_EQ(all_acquisitions(), before);
}

// The hooks run before start has filled the rows: those have mark 0 and ports 0 then, and are searched in order.
class LookupsBeforeStart : public HostTest
{
};

TEST_F(LookupsBeforeStart, FindTheFirstRowThatIsNotFilledByZero)
{
	EXPECT_EQ(find_row_by_mark(0), 0u);
	EXPECT_EQ(get_iface_by_port(0), 0);
	captive_portal_table[0].mark = 5200;
	EXPECT_EQ(find_row_by_mark(0), 1u);
	EXPECT_EQ(find_row_by_mark(5200), 0u);
	EXPECT_EQ(get_iface_by_port(0), 0);
	captive_portal_table[0].http_port = 10081;
	EXPECT_EQ(get_iface_by_port(0), 0);
	EXPECT_EQ(get_iface_by_port(10081), 0);
	captive_portal_table[0].https_port = 10444;
	EXPECT_EQ(get_iface_by_port(0), 1);
	for (uint32_t row = 1; row < 23; ++row) {
		captive_portal_table[row].mark = interface_marks[row];
		captive_portal_table[row].https_port = 1;
		captive_portal_table[row].http_port = 1;
	}
	EXPECT_EQ(find_row_by_mark(0), 23u);
	EXPECT_EQ(get_iface_by_port(0), 23);
}

TEST_F(LookupsBeforeStart, FindNoRowByAMarkOrPortThatItDoesNotHaveYet)
{
	EXPECT_FALSE(find_row_by_mark(5200).has_value());
	EXPECT_FALSE(find_row_by_mark(5247).has_value());
	EXPECT_FALSE(find_row_by_mark(1).has_value());
	EXPECT_EQ(get_iface_by_port(10081), -1);
	EXPECT_EQ(get_iface_by_port(30451), -1);
	EXPECT_EQ(get_iface_by_port(1), -1);
}

// A command may be there before start has filled the rows.
TEST_F(LookupsBeforeStart, MarkZeroHasTheSettingsOfTheFirstRow)
{
	captive_portal_table[0].cp_mode = 5;
	captive_portal_table[0].block_https = 2;
	walled_garden_table[0].enable_value = 9;
	EXPECT_EQ(is_captive_portal_enable(0), 5u);
	EXPECT_EQ(is_block_https_enable(0), 2u);
	EXPECT_EQ(is_walled_garden_enable(0), 9u);
	EXPECT_EQ(is_captive_portal_enable(5200), 0u);
	EXPECT_EQ(is_walled_garden_enable(5200), 0u);
}

TEST_F(Lookups, MarkZeroHasNoRowOnceTheyAreFilled)
{
	EXPECT_FALSE(find_row_by_mark(0).has_value());
	walled_garden_table[23].enable_value = 9;
	EXPECT_EQ(is_walled_garden_enable(0), 0u);
	EXPECT_EQ(is_walled_garden_enable(5247), 9u);
	EXPECT_EQ(is_walled_garden_enable(5248), 0u);
}

TEST_F(Lookups, OnlyTheThreePrivateNetworksAreNotTheInternet)
{
	const Ipv4Address inside[] = {
		ipv4(192, 168, 0, 0), ipv4(192, 168, 255, 255), ipv4(172, 16, 0, 0), ipv4(172, 31, 255, 255),
		ipv4(10, 0, 0, 0),    ipv4(10, 255, 255, 255),  ipv4(10, 9, 8, 7),
	};
	for (const Ipv4Address address : inside) {
		EXPECT_FALSE(is_dst_internet(address)) << std::hex << address.host();
	}
	const Ipv4Address outside[] = {
		ipv4(192, 167, 255, 255), ipv4(192, 169, 0, 0),     ipv4(172, 15, 255, 255), ipv4(172, 32, 0, 0),
		ipv4(172, 32, 0, 1),      ipv4(9, 255, 255, 255),   ipv4(11, 0, 0, 0),       ipv4(11, 0, 0, 1),
		ipv4(2, 2, 2, 2),         ipv4(127, 0, 0, 1),       ipv4(169, 254, 1, 1),    ipv4(224, 0, 0, 1),
		ipv4(0, 0, 0, 0),         ipv4(255, 255, 255, 255), ipv4(168, 192, 0, 1),
	};
	for (const Ipv4Address address : outside) {
		EXPECT_TRUE(is_dst_internet(address)) << std::hex << address.host();
	}
}

TEST_F(Lookups, GatewayIsTheOneThatTheDaemonSet)
{
	EXPECT_TRUE(is_dst_gateway(ipv4(0, 0, 0, 0)));
	EXPECT_FALSE(is_dst_gateway(ipv4(192, 168, 1, 254)));
	set_gateway_address(machine, ipv4(192, 168, 1, 254));
	const uint64_t before = all_acquisitions();
	EXPECT_TRUE(is_dst_gateway(ipv4(192, 168, 1, 254)));
	EXPECT_EQ(all_acquisitions(), before) << "no lock";
	EXPECT_FALSE(is_dst_gateway(ipv4(0, 0, 0, 0)));
	EXPECT_FALSE(is_dst_gateway(ipv4(254, 1, 168, 192)));
}

TEST_F(Lookups, AccessPointIsTheFirstAddressOfBr0)
{
	machine.devices.put("br0", {.ipv4 = {{ipv4(192, 168, 1, 1).raw, ipv4(192, 168, 1, 2).raw}}});
	machine.devices.put("br1", {.ipv4 = {{ipv4(192, 168, 9, 1).raw}}});
	EXPECT_TRUE(is_dst_ap(ipv4(192, 168, 1, 1)));
	EXPECT_FALSE(is_dst_ap(ipv4(192, 168, 1, 2)));
	EXPECT_FALSE(is_dst_ap(ipv4(192, 168, 9, 1)));
}

TEST_F(Lookups, NothingIsTheAccessPointWithoutBr0OrItsAddress)
{
	// 0.0.0.0 and the address that was learned before included.
	ap_addr = ipv4(192, 168, 1, 1);
	const auto is_nothing = [] { return !is_dst_ap(ipv4(192, 168, 1, 1)) && !is_dst_ap(ipv4(0, 0, 0, 0)); };
	EXPECT_TRUE(is_nothing());
	machine.devices.put("br0", {});
	EXPECT_TRUE(is_nothing()) << "no IPv4 configuration";
	machine.devices.put("br0", {.ipv4 = std::vector<uint32_t>{}});
	EXPECT_TRUE(is_nothing()) << "no address";
}

class BridgeName : public Lookups
{
protected:
	void SetUp() override
	{
		Lookups::SetUp();
		std::memcpy(out, "untouched\0xxxxx", sizeof(out));
		machine.devices.put("eth0", {});
		machine.devices.put("eth1", {.bridge_unreachable = true});
		machine.devices.put("wlan-1-1", {.bridge = "br-guests"});
		set_debug_level(machine, 3);
	}

	char out[CP_INTERFACE_NAME_SIZE];
};

TEST_F(BridgeName, IsThatOfThePortsBridge)
{
	get_bridge_name_by_iface("wlan-1-1", out);
	EXPECT_STREQ(out, "br-guests");
	EXPECT_NO_LOG();
}

TEST_F(BridgeName, IsCutTo15Characters)
{
	machine.devices.put("wlan-1-1", {.bridge = "bridge-name-15c"});
	get_bridge_name_by_iface("wlan-1-1", out);
	EXPECT_STREQ(out, "bridge-name-15c");
	machine.devices.put("wlan-1-1", {.bridge = "bridge-name-of-18c"});
	get_bridge_name_by_iface("wlan-1-1", out);
	EXPECT_STREQ(out, "bridge-name-of-");
}

TEST_F(BridgeName, StaysAsItIsForAnUnknownDevice)
{
	get_bridge_name_by_iface("wlan-9-9", out);
	EXPECT_EQ(std::memcmp(out, "untouched\0xxxxx", sizeof(out)), 0);
	EXPECT_LOG(debug_line("get_bridge_name_by_iface: Could not find wlan-9-9\n"));
}

TEST_F(BridgeName, IsBr0ForADeviceThatIsNoPort)
{
	get_bridge_name_by_iface("eth0", out);
	EXPECT_STREQ(out, "br0");
	EXPECT_LOG(debug_line("get_bridge_name_by_iface: eth0 is not attached to any bridge\n"));
}

TEST_F(BridgeName, IsBr0WhenTheBridgeCannotBeReached)
{
	get_bridge_name_by_iface("eth1", out);
	EXPECT_STREQ(out, "br0");
	EXPECT_LOG(debug_line("get_bridge_name_by_iface: eth1 is a bridge port but bridge info unavailable\n"));
}

TEST_F(BridgeName, IsNotTalkedAboutAtDebugLevel2)
{
	set_debug_level(machine, 2);
	for (const char *const name : {"wlan-9-9", "eth0", "eth1"}) {
		get_bridge_name_by_iface(name, out);
	}
	EXPECT_NO_LOG();
}

} // namespace

} // namespace captive_portal::test
