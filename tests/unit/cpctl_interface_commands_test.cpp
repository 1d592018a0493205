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

	// The status file, with these pairs in the line of a row.
	void tell_row(uint32_t row, const std::string &pairs)
	{
		status_files["status"] = "module format=1\ninterface index=9 name=wlan-2-2 mode=99 block_https=99 "
					 "logout=192.0.2.99 walled_garden=99 garden=99\ninterface index=" +
					 std::to_string(row) + " " + pairs + "\n";
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
		tell_row(10, "mode=" + std::to_string(row.mode));
		EXPECT_EQ(run({"interface", "set", "wlan-2-3", "mode", row.word}), 0);
		EXPECT_EQ(device.commands(), (std::vector{1}));
		EXPECT_EQ(device.calls.at(0).hex(), joined("01000000", "0a000000", row.bytes, zeros(16)));
		EXPECT_EQ(out + err, "");
	}
}

constexpr std::string_view not_what_was_set =
	" is not what was set though the module took the command: see the kernel log (dmesg)\n";

TEST_F(CpctlInterface, SetReadsEachSettingBackFromTheStatusFile)
{
	struct Row {
		const char *setting;
		const char *word;
		const char *there;
		const char *not_there;
	};
	answer_status_with_block_size();
	for (const auto &[interface, number] :
	     {std::pair("wlan-2-3", 10U), std::pair("special-mark", 24U), std::pair("mode-7", 25U),
	      std::pair("social-login", 26U), std::pair("mirel", 27U)}) {
		for (const Row &row :
		     {Row{"mode", "drop-tcp", "mode=8", "mode=1"},
		      Row{"block-https", "redirect", "block_https=2", "block_https=1"},
		      Row{"logout", "198.51.100.100", "logout=198.51.100.100", "logout="},
		      Row{"logout", "none", "logout=", "logout=198.51.100.100"},
		      Row{"cp-walled-garden", "4000000000", "walled_garden=4000000000", "walled_garden=0"}}) {
			SCOPED_TRACE(std::string(interface) + " " + row.setting + " " + row.word);
			const std::string_view setting = row.setting;
			const bool is_taken =
				number < 24 || setting == "cp-walled-garden" || (number == 27 && setting == "mode");
			if (!is_taken) {
				continue;
			}
			tell_row(number, row.there);
			EXPECT_EQ(run({"interface", "set", interface, row.setting, row.word}), 0);
			EXPECT_EQ(out + err, "");
			EXPECT_EQ(device.commands(), (std::vector{1}));
			tell_row(number, row.not_there);
			EXPECT_EQ(run({"interface", "set", interface, row.setting, row.word}), 2);
			EXPECT_EQ(err, joined("cpctl: ", interface, ": ", row.setting, not_what_was_set));
		}
	}
}

TEST_F(CpctlInterface, SetReadsTheGardenOfARowWithoutInterfaceBackFromTheStatusFile)
{
	tell_row(27, "garden=1");
	EXPECT_EQ(run({"interface", "set", "mirel", "garden", "on"}), 0);
	EXPECT_EQ(device.commands(), (std::vector{3}));
	EXPECT_EQ(run({"interface", "set", "mirel", "garden", "off"}), 2);
	EXPECT_EQ(err, joined("cpctl: mirel: garden", not_what_was_set));
	status_files.clear();
	EXPECT_EQ(run({"interface", "set", "mirel", "garden", "off"}), 0);
	EXPECT_EQ(err, "cpctl: mirel: garden could not be verified: status: permission denied\n");
}

TEST_F(CpctlInterface, SetAsksCommand2WhereTheStatusFileCannotBeRead)
{
	answer_status(1, 2);
	EXPECT_EQ(run({"interface", "set", "wlan-1-1", "mode", "on"}), 0);
	EXPECT_EQ(err, "");
	EXPECT_EQ(device.commands(), (std::vector{1, 2}));
	EXPECT_EQ(run({"interface", "set", "wlan-1-1", "mode", "off"}), 2);
	EXPECT_EQ(err, joined("cpctl: wlan-1-1: mode", not_what_was_set));
	EXPECT_EQ(run({"interface", "set", "wlan-3-8", "block-https", "redirect"}), 0);
	EXPECT_EQ(err, "");
	EXPECT_EQ(run({"interface", "set", "wlan-3-8", "block-https", "block"}), 2);
	EXPECT_EQ(err, joined("cpctl: wlan-3-8: block-https", not_what_was_set));
}

TEST_F(CpctlInterface, SetSaysWhatNeitherTells)
{
	answer_status_with_block_size();
	for (const char *const setting : {"mode", "block-https"}) {
		EXPECT_EQ(run({"interface", "set", "wlan-1-1", setting, "1"}), 0);
		EXPECT_EQ(err,
			  joined("cpctl: wlan-1-1: ", setting, " could not be verified: status: permission denied\n"));
		EXPECT_EQ(device.commands(), (std::vector{1, 2}));
	}
	// No command tells these, of no row.
	answer_status(1, 1);
	for (const auto &[interface, setting, word] :
	     {std::tuple("wlan-1-1", "logout", "192.0.2.1"), std::tuple("wlan-1-1", "cp-walled-garden", "on"),
	      std::tuple("mirel", "mode", "on")}) {
		EXPECT_EQ(run({"interface", "set", interface, setting, word}), 0);
		EXPECT_EQ(err, joined("cpctl: ", interface, ": ", setting,
				      " could not be verified: status: permission denied\n"));
		EXPECT_EQ(device.commands(), (std::vector{1}));
	}
}

TEST_F(CpctlInterface, SetTakesNothingFromAStatusFileThatItDoesNotKnow)
{
	for (const auto &[text, why] :
	     {std::pair("module format=2\ninterface index=0 logout=192.0.2.1\n",
			"the module's status has format 2, which this cpctl does not know: install the cpctl that came "
			"with the module"),
	      std::pair("module format=1\ninterface index=0 mode=1\n",
			"the module's status does not say logout of interface: is this cpctl as new as the module?"),
	      std::pair("module format=1\n", "the module's status does not speak of wlan-1-1")}) {
		status_files["status"] = text;
		EXPECT_EQ(run({"interface", "set", "wlan-1-1", "logout", "192.0.2.1"}), 0);
		EXPECT_EQ(err, joined("cpctl: wlan-1-1: logout could not be verified: ", why, "\n"));
	}
}

TEST_F(CpctlInterface, SetBlockHttps)
{
	tell_row(0, "block_https=2");
	EXPECT_EQ(run({"interface", "set", "wlan-1-1", "block-https", "redirect"}), 0);
	EXPECT_EQ(device.calls.at(0).hex(), joined("05000000", "00000000", "02000000", zeros(16)));
	EXPECT_EQ(run({"interface", "set", "wlan-1-1", "block-https", "pass"}), 2);
	EXPECT_EQ(device.calls.at(0).hex(), joined("05000000", "00000000", "00000000", zeros(16)));
}

TEST_F(CpctlInterface, SetLogoutSendsTheTextOfTheAddress)
{
	tell_row(0, "logout=198.51.100.100");
	EXPECT_EQ(run({"interface", "set", "wlan-1-1", "logout", "198.51.100.100"}), 0);
	ASSERT_EQ(device.commands(), (std::vector{1}));
	EXPECT_EQ(device.calls.at(0).hex(),
		  joined("08000000", "00000000", "00000000", "3139382e35312e3130302e3130300000"));
	tell_row(0, "logout=");
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
	tell_row(0, "logout= mode=1");
	answer_garden(1, 0);
	EXPECT_EQ(run({"interface", "set", "wlan-1-1", "garden", "on", "logout", "none", "mode", "on"}), 0);
	EXPECT_EQ(device.commands(), (std::vector{3, 4, 1, 1}));
	EXPECT_EQ(get32(device.calls.at(2).record, 0), 8U);
	EXPECT_EQ(run({"interface", "set", "wlan-1-1", "garden", "on", "mode", "off", "logout", "none"}), 2);
	EXPECT_EQ(device.commands(), (std::vector{3, 4, 1}));
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
	expect_usage_failure({"interface", "set", "mirel", "disconnection", "pass-all", "connected"},
			     "mirel has no disconnection behaviour: only interfaces have one");
}

// The module stores them, and finds no row but the interfaces' and MIREL's by a frame's mark.
TEST_F(CpctlInterface, SetRefusesWhatTheModuleNeverReads)
{
	const std::string interfaces = "set that of an interface, wlan-1-1 to wlan-3-8";
	const auto said = [](const std::string &row, const std::string &setting, const std::string &remedy) {
		return "cpctl: " + row + ": the module reads no " + setting + " of this row: " + remedy;
	};
	for (const std::string row : {"special-mark", "mode-7", "social-login"}) {
		expect_usage_failure({"interface", "set", row, "mode", "on"},
				     said(row, "mode", interfaces + ", or of mirel\n"));
		expect_usage_failure({"interface", "set", row, "block-https", "0"},
				     said(row, "block-https", interfaces + "\n"));
		expect_usage_failure({"interface", "set", row, "logout", "none"},
				     said(row, "logout", interfaces + "\n"));
		expect_usage_failure({"interface", "set", row, "cp-walled-garden", "on", "garden", "on"},
				     said(row, "garden", ""));
	}
	expect_usage_failure({"interface", "set", "mode-7", "garden", "off"},
			     "its rules hold where an interface in mode internet-passes has its own garden on");
	expect_usage_failure(
		{"interface", "set", "mirel", "mode", "on", "block-https", "redirect"},
		"mirel: the module reads no block-https of this row: HTTPS of clients on its black list is "
		"redirected while its garden is off");
	expect_usage_failure({"interface", "set", "mirel", "logout", "192.0.2.1"},
			     "mirel: the module reads no logout of this row: " + interfaces + "\n");
	// What is wrong otherwise is told first.
	expect_usage_failure({"interface", "set", "mode-7", "mode", "loud"}, "'loud' is no mode");
}

TEST_F(CpctlInterface, SetOfARowWithoutInterfaceTakesWhatIsReadOrKept)
{
	const auto status_of = [](const std::string &row) {
		return "module format=1 debug_level=1 dns_filter=0 gateway=0.0.0.0\ninterface " + row +
		       " mode=8 walled_garden=1 block_https=0 logout= garden=1\n";
	};
	status_files["status"] = status_of("index=27 name=mirel");
	EXPECT_EQ(run({"interface", "set", "mirel", "mode", "drop-tcp", "garden", "on", "cp-walled-garden", "on"}), 0)
		<< err;
	EXPECT_EQ(device.commands(), (std::vector{1, 3, 1}));
	status_files["status"] = status_of("index=25 name=mode-7");
	EXPECT_EQ(run({"interface", "set", "mode-7", "cp-walled-garden", "on"}), 0) << err;
	EXPECT_EQ(device.commands(), (std::vector{1}));
}

// Of a row with settings, and of one that has none.
constexpr const char *status_of_two_rows =
	"module format=1 debug_level=1 ap_address=192.0.2.1\n"
	"interface index=0 name=wlan-1-1 mark=0x1450 mode=7 block_https=0 logout=198.51.100.100 garden=1 rules=3 "
	"disconnection_behavior=1 disconnection_status=0\n"
	"interface index=1 name=wlan-1-2 mark=0x1451 mode=0 block_https=9 logout= garden=0 rules=0 "
	"disconnection_behavior=0 disconnection_status=2\n"
	"owe name=wlan-1-14 interface=wlan-1-1\n"
	"owe name=wlan-1-15 interface=\n"
	"owe name=wlan-3-16 interface=wlan-1-1\n";

TEST_F(CpctlInterface, ShowPutsTheSettingsOnOneLine)
{
	status_files["status"] = status_of_two_rows;
	EXPECT_EQ(run({"interface", "show", "wlan-1-1"}), 0);
	EXPECT_EQ(out,
		  "wlan-1-1: mode internet-passes block-https pass garden on rules 3 disconnection pass-all connected "
		  "mark 5200 ap 192.0.2.1 logout 198.51.100.100 owe wlan-1-14 wlan-3-16\n");
	EXPECT_EQ(run({"interface", "show", "wlan-1-2"}), 0);
	EXPECT_EQ(out, "wlan-1-2: mode off block-https 9 garden off rules 0 disconnection drop-all disconnected mark "
		       "5201 ap 192.0.2.1 logout none owe none\n");
	EXPECT_EQ(err, "");
	EXPECT_EQ(device.calls.size(), 0U);
}

TEST_F(CpctlInterface, ShowAsksTheDeviceWhereTheStatusFileCannotBeRead)
{
	answer_status(7, 0);
	answer_garden(1, 3);
	answer_disconnection(1, 0);
	EXPECT_EQ(run({"interface", "show", "wlan-1-1"}), 0);
	EXPECT_EQ(out,
		  "wlan-1-1: mode internet-passes block-https pass garden on rules 3 disconnection pass-all connected "
		  "mark 5200 ap 192.0.2.1 logout unknown owe none\n");
	EXPECT_EQ(err, "cpctl: logout is unknown, which no command of the control device tells: status: permission "
		       "denied\n");
	EXPECT_EQ(device.of(CAPTIVE_PORTAL_IOCTL_GET).at(0).hex(),
		  joined("02000000", "00000000", "ffffffff", zeros(308)));
	EXPECT_EQ(device.of(WALLED_GARDEN_IOCTL_GET).at(0).hex(),
		  joined("04000000", "00000000", "00000000", "ffffffff", zeros(3360)));
	// A row that the file does not have.
	status_files["status"] = status_of_two_rows;
	EXPECT_EQ(run({"interface", "show", "wlan-3-8"}), 0);
	EXPECT_EQ(err, "cpctl: logout is unknown, which no command of the control device tells: the module's status "
		       "does not speak of wlan-3-8\n");
}

TEST_F(CpctlInterface, ShowAsksTheDeviceForTheCompanions)
{
	answer_garden(0, 0);
	device.on(GATEKEEPER_IOCTL_GET, [](auto record, size_t call) {
		if (call == 2 || call == 6) {
			put_text(record, 12, "wlan-2-3");
		}
		return 0;
	});
	answer_status(0, 1);
	EXPECT_EQ(run({"interface", "show", "wlan-2-3"}), 0);
	EXPECT_TRUE(out.ends_with(" owe wlan-1-16 wlan-3-14\n")) << out;
}

TEST_F(CpctlInterface, ShowSaysWhatNeitherTells)
{
	answer_status_with_block_size();
	answer_garden(0, 0);
	answer_disconnection(0, 2);
	EXPECT_EQ(run({"interface", "show", "wlan-3-8"}), 0);
	EXPECT_EQ(out,
		  "wlan-3-8: mode unknown block-https unknown garden off rules 0 disconnection drop-all disconnected "
		  "mark 5247 ap unknown logout unknown owe none\n");
	EXPECT_EQ(err, "cpctl: mode, block-https, ap and logout are unknown: status: permission denied; and the "
		       "question for the first three, command 2 of the control device, has the number of the kernel's "
		       "own FIGETBSZ, and this kernel's file layer answered it in the module's place\n");
}

TEST_F(CpctlInterface, ShowOfAllSaysOnceWhatNeitherTells)
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

TEST_F(CpctlInterface, OweUnmapPairsWithNothing)
{
	EXPECT_EQ(run({"interface", "owe", "unmap", "wlan-1-14"}), 0) << err;
	EXPECT_EQ(device.commands(), (std::vector{8, 9}));
	EXPECT_EQ(device.calls.at(0).hex(), joined("0c000000", zeros(8), no_name, wlan_1_14, zeros(8)));
	EXPECT_EQ(device.calls.at(1).hex().substr(0, 96), joined("0e000000", zeros(8), no_name, wlan_1_14, "ffffffff"));
	expect_usage_failure({"interface", "owe", "unmap", "wlan-1-1"}, "no OWE interface");
}

TEST_F(CpctlInterface, OweUnmapSaysWhenThePairIsStillThere)
{
	device.on(GATEKEEPER_IOCTL_GET, [](auto record, size_t) {
		put_text(record, 12, "wlan-1-1");
		return 0;
	});
	EXPECT_EQ(run({"interface", "owe", "unmap", "wlan-1-14"}), 2);
	EXPECT_EQ(err, "cpctl: wlan-1-14 is still paired with 'wlan-1-1' though the module took the command: see the "
		       "kernel log (dmesg)\n");
}

TEST_F(CpctlInterface, OweUnmapSaysWhyTheModuleRefused)
{
	device.on(GATEKEEPER_IOCTL_SET, [](auto, size_t) { return -ENOMEM; });
	EXPECT_EQ(run({"interface", "owe", "unmap", "wlan-1-14"}), 2);
	EXPECT_EQ(err, "cpctl: command 8 of the control device: the kernel has no memory for it now; nothing was "
		       "changed\n");
	EXPECT_EQ(device.commands(), (std::vector{8}));
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
