// SPDX-License-Identifier: GPL-2.0-only
#include "tests/unit/cpctl_test.h"

namespace cpctl::test
{

namespace
{

constexpr uint32_t block_size = 4096;

class CpctlInterface : public CpctlTest
{
protected:
	// As a kernel whose file layer answers command 2.
	void answer_status_with_block_size()
	{
		device.on(CAPTIVE_PORTAL_IOCTL_GET, [](auto record, size_t) {
			put32(record, 0, block_size);
			return 0;
		});
	}

	// As the module: mark, mode, walled garden, block_https, ap.
	void answer_status(uint32_t mode, uint32_t block_https)
	{
		device.on(CAPTIVE_PORTAL_IOCTL_GET, [mode, block_https](auto record, size_t) {
			put32(record, 8, 5200);
			put32(record, 12, mode);
			put32(record, 16, 1);
			put32(record, 20, block_https);
			put32(record, 24, 0x010200c0);
			return 0;
		});
	}

	void answer_garden(uint32_t enable_value, uint32_t rule_number)
	{
		device.on(WALLED_GARDEN_IOCTL_GET, [enable_value, rule_number](auto record, size_t) {
			put32(record, 8, enable_value);
			put32(record, 12, rule_number);
			return 0;
		});
	}

	void answer_disconnection(uint32_t behavior, uint32_t status)
	{
		device.on(GATEKEEPER_IOCTL_GET, [behavior, status](auto record, size_t) {
			put32(record, 4, behavior);
			put32(record, 8, status);
			return 0;
		});
	}
};

TEST_F(CpctlInterface, SetModeSendsTheNumberOfTheName)
{
	struct Row {
		const char *word;
		uint32_t mode;
		std::string_view bytes;
	};
	for (const Row &row :
	     {Row{"off", 0, "00000000"}, Row{"on", 1, "01000000"}, Row{"internet-passes", 7, "07000000"},
	      Row{"drop-tcp", 8, "08000000"}, Row{"300", 300, "2c010000"}}) {
		SCOPED_TRACE(row.word);
		answer_status(row.mode, 1);
		EXPECT_EQ(run({"interface", "set", "wlan-2-3", "mode", row.word}), 0);
		EXPECT_EQ(device.commands(), (std::vector{1, 2}));
		EXPECT_EQ(device.calls.at(0).hex(), joined("01000000", "0a000000", row.bytes, zeros(16)));
		EXPECT_EQ(out + err, "");
	}
}

TEST_F(CpctlInterface, SetReadsBackWhereTheKernelLetsTheModuleAnswer)
{
	answer_status(0, 1);
	EXPECT_EQ(run({"interface", "set", "wlan-1-1", "mode", "on"}), 2);
	EXPECT_EQ(err,
		  "cpctl: wlan-1-1: mode is not what was set though the module took the command: see the kernel log "
		  "(dmesg)\n");
	answer_status_with_block_size();
	EXPECT_EQ(run({"interface", "set", "wlan-1-1", "mode", "on"}), 0);
	EXPECT_EQ(err, "");
}

TEST_F(CpctlInterface, SetBlockHttps)
{
	answer_status(0, 2);
	EXPECT_EQ(run({"interface", "set", "wlan-1-1", "block-https", "redirect"}), 0);
	EXPECT_EQ(device.calls.at(0).hex(), joined("05000000", "00000000", "02000000", zeros(16)));
	EXPECT_EQ(run({"interface", "set", "wlan-1-1", "block-https", "pass"}), 2);
	EXPECT_EQ(device.calls.at(0).hex(), joined("05000000", "00000000", "00000000", zeros(16)));
}

TEST_F(CpctlInterface, SetLogoutSendsTheTextOfTheAddress)
{
	EXPECT_EQ(run({"interface", "set", "wlan-1-1", "logout", "198.51.100.100"}), 0);
	ASSERT_EQ(device.commands(), (std::vector{1}));
	EXPECT_EQ(device.calls.at(0).hex(),
		  joined("08000000", "00000000", "00000000", "3139382e35312e3130302e3130300000"));
	EXPECT_EQ(run({"interface", "set", "wlan-1-1", "logout", "none"}), 0);
	EXPECT_EQ(device.calls.at(0).hex(), joined("08000000", "00000000", "00000000", zeros(16)));
}

TEST_F(CpctlInterface, SetGardenLeavesTheRulesAlone)
{
	answer_garden(1, 3);
	EXPECT_EQ(run({"interface", "set", "wlan-1-2", "garden", "on"}), 0);
	EXPECT_EQ(device.commands(), (std::vector{3, 4}));
	EXPECT_EQ(device.calls.at(0).hex(), joined("00000000", "01000000", "01000000", zeros(3364)));
	EXPECT_EQ(run({"interface", "set", "wlan-1-2", "garden", "off"}), 2);
	EXPECT_EQ(err,
		  "cpctl: wlan-1-2: garden is not what was set though the module took the command: see the kernel log "
		  "(dmesg)\n");
}

TEST_F(CpctlInterface, SetDisconnectionSendsBehaviourAndStatus)
{
	answer_disconnection(2, 2);
	EXPECT_EQ(run({"interface", "set", "wlan-1-1", "disconnection", "pass-dhcp", "disconnected"}), 0);
	EXPECT_EQ(device.commands(), (std::vector{8, 9}));
	EXPECT_EQ(device.calls.at(0).hex(), joined("0a000000", "02000000", "02000000", wlan_1_1, zeros(24)));
	EXPECT_EQ(device.calls.at(1).hex().substr(0, 96), joined("0b000000", zeros(8), wlan_1_1, no_name, "ffffffff"));
	EXPECT_EQ(run({"interface", "set", "wlan-1-1", "disconnection", "pass-all", "connected"}), 2);
	EXPECT_EQ(device.calls.at(0).hex(), joined("0a000000", "01000000", "01000000", wlan_1_1, zeros(24)));
	EXPECT_EQ(run({"interface", "set", "wlan-1-1", "disconnection", "pass-dhcp", "3"}), 2);
	EXPECT_EQ(device.calls.at(0).hex(), joined("0a000000", "02000000", "03000000", wlan_1_1, zeros(24)));
	EXPECT_EQ(run({"interface", "set", "wlan-1-1", "disconnection", "pass-all", "disconnected"}), 2);
}

TEST_F(CpctlInterface, SetTakesSeveralSettingsInOrder)
{
	answer_status(1, 1);
	answer_garden(1, 0);
	EXPECT_EQ(run({"interface", "set", "wlan-1-1", "garden", "on", "logout", "none", "mode", "on"}), 0);
	EXPECT_EQ(device.commands(), (std::vector{3, 4, 1, 1, 2}));
}

TEST_F(CpctlInterface, SetChecksAllSettingsBeforeTheFirstIsSent)
{
	expect_usage_failure({"interface", "set", "wlan-1-1", "mode", "on", "garden", "maybe"}, "'maybe' is no switch");
	expect_usage_failure({"interface", "set", "wlan-1-1", "mode"}, "after 'mode' its value is missing");
	expect_usage_failure({"interface", "set", "wlan-1-1", "disconnection", "pass-all"}, "its value is missing");
	expect_usage_failure({"interface", "set", "wlan-1-1", "color", "on"}, "'color' is no setting");
	expect_usage_failure({"interface", "set", "wlan-1-1"}, "SETTINGS is required");
	expect_usage_failure({"interface", "set", "wlan-1-14", "mode", "on"}, "no wireless interface");
	expect_usage_failure({"interface", "set", "wlan-1-1", "mode", "loud"}, "'loud' is no mode");
	expect_usage_failure({"interface", "set", "wlan-1-1", "block-https", "maybe"}, "no value of block-https");
	expect_usage_failure({"interface", "set", "wlan-1-1", "logout", "198.51.100"}, "no IPv4 address");
	expect_usage_failure({"interface", "set", "wlan-1-1", "logout", "0.0.0.0"}, "no logout address");
	expect_usage_failure({"interface", "set", "wlan-1-1", "disconnection", "pass", "connected"}, "behaviour");
	expect_usage_failure({"interface", "set", "wlan-1-1", "disconnection", "pass-all", "away"}, "status");
}

TEST_F(CpctlInterface, ShowPutsTheSettingsOnOneLine)
{
	answer_status(7, 0);
	answer_garden(1, 3);
	answer_disconnection(1, 0);
	EXPECT_EQ(run({"interface", "show", "wlan-1-1"}), 0);
	EXPECT_EQ(out,
		  "wlan-1-1: mode internet-passes block-https pass garden on rules 3 disconnection pass-all connected "
		  "mark 5200 ap 192.0.2.1\n");
	EXPECT_EQ(err, "");
	EXPECT_EQ(device.of(CAPTIVE_PORTAL_IOCTL_GET).at(0).hex(),
		  joined("02000000", "00000000", "ffffffff", zeros(308)));
	EXPECT_EQ(device.of(WALLED_GARDEN_IOCTL_GET).at(0).hex(),
		  joined("04000000", "00000000", "00000000", "ffffffff", zeros(3360)));
}

TEST_F(CpctlInterface, ShowSaysWhyTheModuleCouldNotAnswer)
{
	answer_status_with_block_size();
	answer_garden(0, 0);
	answer_disconnection(0, 2);
	EXPECT_EQ(run({"interface", "show", "wlan-3-8"}), 0);
	EXPECT_EQ(out,
		  "wlan-3-8: mode unknown block-https unknown garden off rules 0 disconnection drop-all disconnected "
		  "mark 5247 ap unknown\n");
	EXPECT_EQ(err, "cpctl: mode, block-https and ap are unknown: the question for them, command 2 of the control "
		       "device, has "
		       "the number of the kernel's own FIGETBSZ, and this kernel's file layer answered it in the "
		       "module's place\n");
}

TEST_F(CpctlInterface, ShowOfAllSaysItOnce)
{
	answer_status_with_block_size();
	answer_garden(0, 0);
	EXPECT_EQ(run({"interface", "show"}), 0);
	EXPECT_EQ(std::ranges::count(out, '\n'), 24);
	EXPECT_EQ(std::ranges::count(err, '\n'), 1);
}

TEST_F(CpctlInterface, OweMapPairsTwoNames)
{
	device.on(GATEKEEPER_IOCTL_GET, [](auto record, size_t) {
		put_text(record, 12, "wlan-1-1");
		return 0;
	});
	EXPECT_EQ(run({"interface", "owe", "map", "wlan-1-14", "wlan-1-1"}), 0);
	EXPECT_EQ(device.commands(), (std::vector{8, 9}));
	EXPECT_EQ(device.calls.at(0).hex(), joined("0c000000", zeros(8), wlan_1_1, wlan_1_14, zeros(8)));
	EXPECT_EQ(device.calls.at(1).hex().substr(0, 96), joined("0e000000", zeros(8), no_name, wlan_1_14, "ffffffff"));
}

TEST_F(CpctlInterface, OweMapSaysWhenThePairIsNotThere)
{
	EXPECT_EQ(run({"interface", "owe", "map", "wlan-1-14", "wlan-1-1"}), 2);
	EXPECT_EQ(err, "cpctl: wlan-1-14 is paired with nothing though the module took the command: see the kernel log "
		       "(dmesg)\n");
	expect_usage_failure({"interface", "owe", "map", "wlan-1-1", "wlan-1-14"}, "no OWE interface");
	expect_usage_failure({"interface", "owe", "map", "wlan-1-14", "wlan-1-9"}, "no wireless interface");
}

TEST_F(CpctlInterface, OweShowListsThePairs)
{
	device.on(GATEKEEPER_IOCTL_GET, [](auto record, size_t call) {
		if (call == 4) {
			put_text(record, 12, "wlan-2-3");
		}
		return 0;
	});
	EXPECT_EQ(run({"interface", "owe", "show"}), 0);
	EXPECT_EQ(device.calls.size(), 9U);
	EXPECT_EQ(out, "wlan-2-15 dev wlan-2-3\n");
}

TEST_F(CpctlInterface, OweFlushForgetsThePairs)
{
	EXPECT_EQ(run({"interface", "owe", "flush"}), 0);
	EXPECT_EQ(device.calls.size(), 10U);
	EXPECT_EQ(device.calls.at(0).hex(), joined("10000000", zeros(48)));
	device.on(GATEKEEPER_IOCTL_GET, [](auto record, size_t) {
		put_text(record, 12, "wlan-2-3");
		return 0;
	});
	EXPECT_EQ(run({"interface", "owe", "flush"}), 2);
	EXPECT_EQ(err, "cpctl: wlan-1-14 is still paired after the flush: see the kernel log (dmesg)\n");
}

} // namespace

} // namespace cpctl::test
