// SPDX-License-Identifier: GPL-2.0-only
// The seam's questions about devices, and the devices that tests begin with.
#include "platform/host/devices.h"

#include <cstring>

#include "tests/support/cast.h"
#include "tests/support/host_test.h"

namespace captive_portal::test
{

using Devices = HostTest;

TEST_F(Devices, OfTheAccessPointAreABridgeAndItsPorts)
{
	build_access_point(machine);
	uint32_t address = 0;
	EXPECT_EQ(cp_first_ipv4_of_device("br0", &address), CP_IPV4_FOUND);
	EXPECT_EQ(address, 0x0101a8c0u);
	uint8_t mac[6] = {};
	EXPECT_EQ(cp_hardware_address_of_device("br0", mac), 1);
	EXPECT_EQ(std::memcmp(mac, "\x02\xaa\0\0\0\1", 6), 0);
	for (const char *const port : {"wlan-1-1", "wlan-3-8", "eth0"}) {
		char bridge[16] = {};
		EXPECT_EQ(cp_bridge_of_port(port, bridge, sizeof(bridge)), CP_BRIDGE_FOUND) << port;
		EXPECT_STREQ(bridge, "br0");
	}
}

TEST_F(Devices, ThatAreMissingAreTold)
{
	uint32_t address = 77;
	uint8_t mac[6] = {1, 2, 3, 4, 5, 6};
	char bridge[16] = "unchanged";
	EXPECT_EQ(cp_first_ipv4_of_device("br0", &address), CP_IPV4_NO_DEVICE);
	EXPECT_EQ(cp_hardware_address_of_device("br0", mac), 0);
	EXPECT_EQ(cp_bridge_of_port("wlan-1-1", bridge, sizeof(bridge)), CP_BRIDGE_NO_DEVICE);
	EXPECT_EQ(address, 77u);
	EXPECT_EQ(mac[0], 1);
	EXPECT_STREQ(bridge, "unchanged");
	EXPECT_EQ(machine.devices.lookups(), 3u);
}

TEST_F(Devices, MayHaveNoConfigurationOrNoAddressOrMany)
{
	uint32_t address = 77;
	machine.devices.put("br0", {});
	EXPECT_EQ(cp_first_ipv4_of_device("br0", &address), CP_IPV4_NO_CONFIGURATION);
	machine.devices.put("br0", {.ipv4 = std::vector<uint32_t>{}});
	EXPECT_EQ(cp_first_ipv4_of_device("br0", &address), CP_IPV4_NO_ADDRESS);
	EXPECT_EQ(address, 77u);
	machine.devices.put("br0", {.ipv4 = {{ipv4(10, 0, 0, 1).raw, ipv4(10, 0, 0, 2).raw}}});
	EXPECT_EQ(cp_first_ipv4_of_device("br0", &address), CP_IPV4_FOUND);
	EXPECT_EQ(address, 0x0100000au);
}

TEST_F(Devices, MayBeNoPortsOrPortsOfAnUnreachableBridge)
{
	char bridge[16] = "unchanged";
	machine.devices.put("lo", {});
	machine.devices.put("wlan-1-1", {.bridge = "br0", .bridge_unreachable = true});
	EXPECT_EQ(cp_bridge_of_port("lo", bridge, sizeof(bridge)), CP_BRIDGE_NOT_A_PORT);
	EXPECT_EQ(cp_bridge_of_port("wlan-1-1", bridge, sizeof(bridge)), CP_BRIDGE_UNREACHABLE);
	EXPECT_STREQ(bridge, "unchanged");
	machine.devices.remove("lo");
	EXPECT_EQ(cp_bridge_of_port("lo", bridge, sizeof(bridge)), CP_BRIDGE_NO_DEVICE);
}

TEST_F(Devices, HaveTheirBridgesNameCutToTheRoomThereIs)
{
	char bridge[6];
	machine.devices.put("wlan-1-1", {.bridge = "br-guests"});
	EXPECT_EQ(cp_bridge_of_port("wlan-1-1", bridge, sizeof(bridge)), CP_BRIDGE_FOUND);
	EXPECT_STREQ(bridge, "br-gu");
}

} // namespace captive_portal::test
