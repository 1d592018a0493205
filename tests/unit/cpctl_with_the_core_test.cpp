// SPDX-License-Identifier: GPL-2.0-only
// cpctl and the module's own core together: what one writes, the other understands.
#include "tests/unit/cpctl_core.h"

#include <tuple>

#include "base/debug_level.h"
#include "garden/walled_garden.h"
#include "portal/interface_table.h"

namespace captive_portal::test
{

namespace
{

TEST_F(CpctlWithTheCore, ClientsComeAndGoInEveryTable)
{
	for (const std::string table :
	     {"white", "auth", "login", "ga-white", "mac-auth-fallback", "mirel-white", "mirel-black"}) {
		SCOPED_TRACE(table);
		const bool mirel = table.starts_with("mirel");
		const auto words = [&](const char *command, bool with_mac) {
			std::vector<std::string> result = {"client", command, table};
			if (with_mac) {
				result.emplace_back("02:00:5e:10:00:01");
			}
			if (!mirel) {
				result.emplace_back("wlan-2-3");
			}
			return result;
		};
		const std::string place = table + (mirel ? "" : " of wlan-2-3");
		EXPECT_EQ(run(words("check", true)), 2);
		EXPECT_EQ(answer(words("add", true)), "");
		EXPECT_EQ(answer(words("check", true)), "02:00:5e:10:00:01 is in " + place + "\n");
		EXPECT_EQ(answer(words("show", false)),
			  "02:00:5e:10:00:01 " + std::string(mirel ? "" : "dev wlan-2-3 ") + "table " + table + "\n");
		EXPECT_EQ(answer({"client", "show", table}), out);
		EXPECT_EQ(run(words("add", true)), 0);
		EXPECT_EQ(err, "cpctl: 02:00:5e:10:00:01 is in " + place + " already: no second entry made\n");
		EXPECT_EQ(answer(words("del", true)), "");
		EXPECT_EQ(run(words("del", true)), 2);
		EXPECT_EQ(answer(words("add", true)), "");
		EXPECT_EQ(answer(words("flush", false)), "");
		EXPECT_EQ(answer(words("show", false)), "");
	}
}

TEST_F(CpctlWithTheCore, FlushPortalLeavesOtherInterfacesAndMirelAlone)
{
	for (const char *table : {"white", "auth", "login", "ga-white", "mac-auth-fallback"}) {
		(void)answer({"client", "add", table, "02:00:5e:10:00:01", "wlan-1-1"});
		(void)answer({"client", "add", table, "02:00:5e:10:00:02", "wlan-3-8"});
	}
	(void)answer({"client", "add", "mirel-black", "02:00:5e:10:00:01"});
	(void)answer({"client", "flush", "portal", "wlan-1-1"});
	EXPECT_EQ(answer({"client", "show", "login"}), "02:00:5e:10:00:02 dev wlan-3-8 table login\n");
	EXPECT_EQ(answer({"client", "show", "mirel-black"}), "02:00:5e:10:00:01 table mirel-black\n");
	(void)answer({"client", "flush", "portal", "all"});
	EXPECT_EQ(answer({"client", "show", "login"}), "");
}

TEST_F(CpctlWithTheCore, FlushOneByOneReachesBehindTheEndOfAReply)
{
	fill_list(ADD_LOGIN_MAC, 1040);
	(void)answer({"client", "flush", "login", "wlan-1-1"});
	EXPECT_EQ(answer({"client", "show", "login", "wlan-1-1"}), "");
}

TEST_F(CpctlWithTheCore, RulesAreTakenAsTheyAreWritten)
{
	EXPECT_EQ(run({"garden", "replace", "wlan-2-1", "on", "a.example", "[*]"}), 1);
	EXPECT_EQ(err, "cpctl: '[*]' is between square brackets: no name, pattern or address is\n");
	EXPECT_EQ(run({"garden", "default", "replace", "[a,b]"}), 1);
	EXPECT_EQ(answer({"garden", "show", "wlan-2-1"}), "wlan-2-1: garden off rules 0\n");
	(void)answer({"garden", "replace", "wlan-2-1", "on", "--", "-ads.example", "--help", "--", "++"});
	EXPECT_EQ(answer({"garden", "show", "wlan-2-1"}),
		  "wlan-2-1: garden on rules 4\n    -ads.example\n    --help\n    --\n    ++\n");
}

// The same stations were added a second time, by a daemon that had forgotten them, say: what a reply shows is the same
// before and after it was deleted.
TEST_F(CpctlWithTheCore, FlushOneByOneTakesAFullReplyTwice)
{
	for (unsigned i = 0; i < 2 * 1034; i++) {
		gk_cmd record = {};
		record.cmd = ADD_LOGIN_MAC;
		std::memcpy(record.iface, "wlan-1-1", 8);
		record.mac[0] = 0x02;
		record.mac[4] = static_cast<uint8_t>(i % 1034 >> 8);
		record.mac[5] = static_cast<uint8_t>(i % 1034);
		send(GATEKEEPER_IOCTL_SET, record);
	}
	EXPECT_EQ(run({"client", "flush", "login", "wlan-1-1"}), 0) << err;
	EXPECT_EQ(machine.status_text("clients"), "");
}

TEST_F(CpctlWithTheCore, DelTakesDuplicatesThatADaemonMade)
{
	gk_cmd record = {};
	record.cmd = ADD_WHITELIST_MAC;
	std::memcpy(record.iface, "wlan-1-1", 8);
	std::memcpy(record.mac, "\x02\x00\x5e\x10\x00\x01", 6);
	for (int i = 0; i < 3; i++) {
		send(GATEKEEPER_IOCTL_SET, record);
	}
	(void)answer({"client", "del", "white", "02:00:5e:10:00:01", "wlan-1-1"});
	EXPECT_EQ(answer({"client", "show", "white"}), "");
}

TEST_F(CpctlWithTheCore, SaysWhenTheModuleHasNoMemoryForAClient)
{
	// Copies of records come before the entry: of the question for it, and of the command.
	machine.memory.fail_allocation(3);
	EXPECT_EQ(run({"client", "add", "login", "02:00:5e:10:00:01", "wlan-1-1"}), 2);
	EXPECT_EQ(err,
		  "cpctl: 02:00:5e:10:00:01 is not in login of wlan-1-1 though the module took the command: see the "
		  "kernel log (dmesg)\n");
}

// A table of an interface and one for all, of those that the module does not search.
TEST_F(CpctlWithTheCore, ClientsBehindTheEndOfAReplyComeAndGo)
{
	for (const auto &[table, sub_command, place] : {std::tuple("auth", ADD_AUTH_MAC, " dev wlan-1-1"),
							std::tuple("mirel-white", ADD_MIREL_WHITE_LIST_MAC, ""),
							std::tuple("mirel-black", ADD_MIREL_BLACK_LIST_MAC, "")}) {
		SCOPED_TRACE(table);
		fill_list(sub_command, 1040);
		const auto words = [&, table = table](const char *command) {
			std::vector<std::string> result = {"client", command, table, "02:00:5e:10:00:01"};
			if (table == std::string("auth")) {
				result.emplace_back("wlan-1-1");
			}
			return result;
		};
		// Before the command and after it.
		status_reads.clear();
		EXPECT_EQ(answer(words("add")), "");
		EXPECT_EQ(status_reads["clients"], 2U);
		EXPECT_NE(answer(words("check")), "");
		const std::string shown = answer({"client", "show", table});
		EXPECT_EQ(std::ranges::count(shown, '\n'), 1041);
		EXPECT_TRUE(shown.ends_with("02:00:00:00:04:0f" + std::string(place) + " table " + table +
					    "\n02:00:5e:10:00:01" + place + " table " + table + "\n"));
		EXPECT_EQ(answer(words("del")), "");
		EXPECT_EQ(run(words("check")), 2);
	}
}

TEST_F(CpctlWithTheCore, ShownListsThatAreNotLongNeedNoStatusFile)
{
	(void)answer({"client", "add", "auth", "02:00:5e:10:00:01", "wlan-1-1"});
	EXPECT_EQ(answer({"client", "show", "auth"}), "02:00:5e:10:00:01 dev wlan-1-1 table auth\n");
	EXPECT_EQ(status_reads["clients"], 0U);
}

TEST_F(CpctlWithTheCore, InterfaceSettingsComeBack)
{
	// As on every kernel in use.
	file_layer_answers = true;
	EXPECT_EQ(
		answer({"interface", "show", "wlan-1-1"}),
		"wlan-1-1: mode off block-https block garden off rules 0 disconnection drop-all connected mark 5200 ap "
		"0.0.0.0 logout none owe none\n");
	(void)answer({"interface", "set", "wlan-1-1", "mode", "internet-passes", "block-https", "redirect", "garden",
		      "on", "disconnection", "pass-dhcp", "disconnected", "cp-walled-garden", "7"});
	(void)answer({"interface", "owe", "map", "wlan-3-16", "wlan-1-1"});
	(void)answer({"interface", "owe", "map", "wlan-1-14", "wlan-1-1"});
	(void)answer({"interface", "owe", "map", "wlan-1-15", "wlan-1-2"});
	const std::string shown =
		"wlan-1-1: mode internet-passes block-https redirect garden on rules 0 disconnection pass-dhcp "
		"disconnected mark 5200 ap 0.0.0.0 logout none owe wlan-1-14 wlan-3-16\n";
	EXPECT_EQ(answer({"interface", "show", "wlan-1-1"}), shown);
	EXPECT_TRUE(answer({"interface", "show"}).starts_with(shown));
	EXPECT_EQ(captive_portal_table[0].cp_walled_garden, 7U);
	(void)answer({"interface", "set", "wlan-1-2", "logout", "198.51.100.100"});
	EXPECT_STREQ(captive_portal_table[1].logout_ip, "198.51.100.100");
	EXPECT_TRUE(answer({"interface", "show", "wlan-1-2"}).ends_with(" logout 198.51.100.100 owe wlan-1-15\n"));
	(void)answer({"interface", "set", "wlan-1-2", "logout", "none"});
	EXPECT_STREQ(captive_portal_table[1].logout_ip, "");
}

TEST_F(CpctlWithTheCore, ShowOfInterfacesNeedsNoDeviceWhereTheStatusFileCanBeRead)
{
	EXPECT_EQ(std::ranges::count(answer({"interface", "show"}), '\n'), 24);
	EXPECT_EQ(openings, 0);
	EXPECT_EQ(status_reads["status"], 1U);
}

TEST_F(CpctlWithTheCore, SettingsAreReadOnceEach)
{
	(void)answer({"interface", "set", "wlan-3-8", "mode", "on", "block-https", "pass", "logout", "192.0.2.1"});
	EXPECT_EQ(status_reads["status"], 3U);
	EXPECT_EQ(calls[CAPTIVE_PORTAL_IOCTL_GET], 0U);
}

TEST_F(CpctlWithTheCore, SettingsAreStoredWhereNothingTellsThem)
{
	status_files_are_readable = false;
	(void)answer({"interface", "set", "wlan-3-8", "mode", "drop-tcp"});
	EXPECT_EQ(run({"interface", "show", "wlan-3-8"}), 0);
	EXPECT_EQ(out,
		  "wlan-3-8: mode drop-tcp block-https block garden off rules 0 disconnection drop-all connected mark "
		  "5247 ap 0.0.0.0 logout unknown owe none\n");
	file_layer_answers = true;
	EXPECT_EQ(run({"interface", "set", "wlan-3-8", "mode", "on"}), 0);
	EXPECT_EQ(captive_portal_table[23].cp_mode, 1U);
	EXPECT_EQ(err, "cpctl: wlan-3-8: mode could not be verified: status: permission denied\n");
	EXPECT_EQ(run({"interface", "show", "wlan-3-8"}), 0);
	EXPECT_EQ(out,
		  "wlan-3-8: mode unknown block-https unknown garden off rules 0 disconnection drop-all connected mark "
		  "5247 ap unknown logout unknown owe none\n");
	EXPECT_NE(err.find("FIGETBSZ"), std::string::npos);
}

TEST_F(CpctlWithTheCore, OweCompanionsComeBack)
{
	(void)answer({"interface", "owe", "map", "wlan-3-16", "wlan-1-1"});
	EXPECT_EQ(answer({"interface", "owe", "show"}), "wlan-3-16 dev wlan-1-1\n");
	(void)answer({"interface", "owe", "flush"});
	EXPECT_EQ(answer({"interface", "owe", "show"}), "");
}

TEST_F(CpctlWithTheCore, GardensComeBack)
{
	(void)answer({"garden", "replace", "wlan-2-1", "on", "*.example.com", "10.1.2.0/24", "192.0.2.1",
		      "10.0.3.0/255.0.255.0", std::string(127, 'a')});
	EXPECT_EQ(answer({"garden", "show", "wlan-2-1"}),
		  "wlan-2-1: garden on rules 5\n    *.example.com\n    10.1.2.0/24\n"
		  "    192.0.2.1\n    10.0.3.0/255.0.255.0\n    " +
			  std::string(127, 'a') + "\n");
	std::vector<std::string> names = {"garden", "default", "replace"};
	for (int i = 1; i <= 24; i++) {
		names.push_back("portal-" + std::to_string(i) + ".example");
	}
	(void)answer(names);
	EXPECT_EQ(answer({"garden", "show", "default"}).substr(0, 43), "default: rules 24\n    portal-1.example\n    ");
	(void)answer({"garden", "default", "replace"});
	EXPECT_EQ(answer({"garden", "show", "default"}), "default: rules 0\n");
}

TEST_F(CpctlWithTheCore, SaysWhenTheModuleHasNoMemoryForARule)
{
	// Before it come two copies of the record and the first rule.
	machine.memory.fail_allocation(4);
	EXPECT_EQ(run({"garden", "replace", "wlan-1-1", "on", "a.example", "b.example"}), 2);
	EXPECT_EQ(err, "cpctl: wlan-1-1: the module kept 1 of 2 rules: is the kernel out of memory? See dmesg\n");
}

TEST_F(CpctlWithTheCore, MirelHasItsOwnRow)
{
	(void)answer({"mirel", "mode", "on"});
	EXPECT_EQ(captive_portal_table[27].cp_mode, 1U);
	(void)answer({"mirel", "garden", "replace", "*.example.com"});
	EXPECT_EQ(walled_garden_table[27].enable_value, 1U);
}

TEST_F(CpctlWithTheCore, GatewayFilterAndDebugLevel)
{
	EXPECT_EQ(answer({"gateway", "show"}), "gateway none\n");
	(void)answer({"gateway", "set", "192.0.2.254"});
	EXPECT_EQ(answer({"gateway", "show"}), "gateway 192.0.2.254\n");
	(void)answer({"dns-filter", "on"});
	EXPECT_EQ(dns_filter_activate, 1U);
	(void)answer({"debug", "3"});
	EXPECT_EQ(debug_level, 3);
}

TEST_F(CpctlWithTheCore, StatusAndMetricsSayWhatIsThere)
{
	(void)answer({"interface", "set", "wlan-2-3", "mode", "on"});
	(void)answer({"client", "add", "login", "02:00:5e:10:00:01", "wlan-2-3"});
	EXPECT_EQ(answer({"status", "-s"}),
		  "access point: address none mac 00:00:00:00:00:00 gateway none\n"
		  "module: debug 1 dns-filter off cached-addresses 0 mirel-white 0 mirel-black 0\n"
		  "wlan-2-3: mode on block-https block garden off rules 0 logout none connections 0\n"
		  "    clients login 1\n"
		  "27 more rows are as the module started them\n");
	EXPECT_NE(answer({"metrics"}).find("captive_portal_clients{interface=\"wlan-2-3\",table=\"login\"} 1\n"),
		  std::string::npos);
}

} // namespace

} // namespace captive_portal::test
