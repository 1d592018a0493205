// SPDX-License-Identifier: GPL-2.0-only
// What cpctl says that the module takes a port for, against what it does with a frame that comes by it.
#include "cpctl/port_names.h"

#include "cpctl/interface_names.h"
#include "tests/support/cast.h"
#include "tests/support/frame_builder.h"
#include "tests/unit/cpctl_core.h"

namespace captive_portal::test
{

namespace
{

TEST(CpctlPortNames, AreTakenForInterfacesAndCompanions)
{
	using cpctl::taken_for;
	EXPECT_EQ(taken_for("wlan-1-1"), "wlan-1-1");
	EXPECT_EQ(taken_for("wlan-3-16"), "wlan-3-16");
	EXPECT_EQ(taken_for("wlan-1-9"), "wlan-2-1");
	EXPECT_EQ(taken_for("wlan-2-0"), "wlan-1-8");
	EXPECT_EQ(taken_for("wlan-01-1"), "wlan-1-1");
	EXPECT_EQ(taken_for("wlan-1-1.100"), "wlan-1-1");
	EXPECT_EQ(taken_for("wlan-4-1"), std::nullopt);
	EXPECT_EQ(taken_for("wlan-4-14"), std::nullopt);
	EXPECT_EQ(taken_for("wlan-1"), std::nullopt);
	EXPECT_EQ(taken_for("wlan0"), std::nullopt);
	EXPECT_EQ(taken_for("wlan-1-+1"), std::nullopt);
	EXPECT_TRUE(cpctl::is_wireless_to_module("wlan"));
	EXPECT_FALSE(cpctl::is_wireless_to_module("wla"));
	EXPECT_FALSE(cpctl::is_wireless_to_module("ath-1-1"));
}

class CpctlPortNamesWithTheCore : public CpctlWithTheCore
{
protected:
	void SetUp() override
	{
		build_access_point(machine);
		CpctlWithTheCore::SetUp();
		// Each interface marks what comes by it; each companion is paired with one of them.
		for (uint32_t row = 0; row < CP_WIRELESS_INTERFACES; row++) {
			cp_cmd record = {};
			record.cmd = CAPTIVE_PORTAL;
			record.iface = static_cast<int32_t>(row);
			record.enable_value = CP_MODE_ON;
			send(CAPTIVE_PORTAL_IOCTL_SET, record);
		}
		for (uint32_t row = 0; row < CP_OWE_INTERFACES; row++) {
			const std::string companion = cpctl::owe_interface_of_row(row).name;
			(void)answer({"interface", "owe", "map", companion, partner_of(row)});
		}
	}

	static std::string partner_of(uint32_t companion) { return cpctl::interface_of_row(2 * companion).name; }

	// The interface by whose mark the module knows the frame; "dropped" or "passed" where there is no mark.
	static std::string judged_as(const std::string &device)
	{
		host::PacketBuffer packet(frame().from(client_of_wlan_1_1).to(upstream_server).tcp(51000, 80).syn());
		packet.in_name = device;
		if (host::run_hook(ebt_gate_keeper, packet) != CP_ACCEPT) {
			return "dropped";
		}
		for (uint32_t row = 0; row < CP_WIRELESS_INTERFACES; row++) {
			if (packet.mark == 5200 + 20 * (row / 8) + row % 8) {
				return cpctl::interface_of_row(row).name;
			}
		}
		return "passed";
	}

	static std::string told(const std::string &device)
	{
		if (!cpctl::is_wireless_to_module(device)) {
			return "passed";
		}
		std::string name = cpctl::taken_for(device).value_or("dropped");
		for (uint32_t row = 0; row < CP_OWE_INTERFACES; row++) {
			if (cpctl::owe_interface_of_row(row).name == name) {
				return partner_of(row);
			}
		}
		return name;
	}
};

TEST_F(CpctlPortNamesWithTheCore, AreWhatTheModuleTakesThemFor)
{
	std::vector<std::string> names = {
		"eth0",       "wla",           "wlan",         "wlan0",          "wlan-",          "wlan--1-1",
		"wlan--1-17", "wlan-1--1",     "wlan-1-",      "wlan-1-1-1",     "wlan-1-1.5",     "wlan-01-01",
		"wlan-1_1",   "wlan-0x1-1",    "wlan-+1-1",    "wlan-1-+1",      "wlan-1-x",       "wlanx-1-1",
		"Wlan-1-1",   "wlan-99999999", "wlan-4294967", "wlan-536870912", "wlan-1-99999999"};
	for (int radio = 0; radio <= 5; radio++) {
		for (int vap = 0; vap <= 40; vap++) {
			names.push_back("wlan-" + std::to_string(radio) + "-" + std::to_string(vap));
		}
	}
	for (const std::string &name : names) {
		EXPECT_EQ(told(name), judged_as(name)) << name;
	}
}

} // namespace

} // namespace captive_portal::test
