// SPDX-License-Identifier: GPL-2.0-only
#include "tests/unit/cpctl_test.h"

namespace cpctl::test
{

namespace
{

constexpr std::string_view client_1 = "02005e100001";

class CpctlClient : public CpctlTest
{
protected:
	// Command 10 answers these in turn, the last one for ever.
	void answer_checks(const std::vector<uint32_t> &found)
	{
		device.on(GATEKEEPER_IOCTL_CHECK, [found](auto record, size_t call) {
			put32(record, 28, found[std::min(call, found.size() - 1)]);
			return 0;
		});
	}

	// Command 9 answers these lists in turn, the last one for ever.
	void answer_lists(const std::vector<std::vector<uint8_t>> &lists)
	{
		device.on(GATEKEEPER_IOCTL_GET, [lists](auto record, size_t call) {
			put_clients(record, lists[std::min(call, lists.size() - 1)]);
			return 0;
		});
	}
};

// The record of a command 8 with a client.
std::string client_record(std::string_view sub_command, std::string_view interface)
{
	return joined(sub_command, zeros(8), interface, no_name, client_1, "0000");
}

TEST_F(CpctlClient, AddSendsTheTablesSubCommand)
{
	struct Row {
		const char *table;
		std::string_view sub_command;
		std::string_view check;
	};
	for (const Row &row :
	     {Row{"white", "00000000", "12000000"}, Row{"login", "04000000", "13000000"},
	      Row{"ga-white", "1a000000", "1d000000"}, Row{"mac-auth-fallback", "1f000000", "23000000"}}) {
		SCOPED_TRACE(row.table);
		answer_checks({0, 1});
		EXPECT_EQ(run({"client", "add", row.table, "02:00:5E:10:00:01", "wlan-1-1"}), 0);
		EXPECT_EQ(device.commands(), (std::vector{10, 8, 10}));
		EXPECT_EQ(device.calls.at(0).hex(), joined(row.check, wlan_1_1, client_1, "0000", "ffffffff"));
		EXPECT_EQ(device.calls.at(1).hex(), client_record(row.sub_command, wlan_1_1));
		EXPECT_EQ(out + err, "");
	}
}

TEST_F(CpctlClient, AddReadsTablesWithoutACheck)
{
	struct Row {
		std::vector<std::string> words;
		std::string_view sub_command;
		std::string_view get;
		std::string_view interface;
	};
	for (const Row &row : {Row{{"auth", "02:00:5e:10:00:01", "wlan-2-3"}, "02000000", "07000000", wlan_2_3},
			       Row{{"mirel-white", "02:00:5e:10:00:01"}, "18000000", "15000000", no_name},
			       Row{{"mirel-black", "02:00:5e:10:00:01"}, "16000000", "14000000", no_name}}) {
		SCOPED_TRACE(row.words[0]);
		answer_lists({{0x07}, {0x07, 0x01}});
		std::vector<std::string> words = {"client", "add"};
		words.insert(words.end(), row.words.begin(), row.words.end());
		EXPECT_EQ(run(words), 0);
		EXPECT_EQ(device.commands(), (std::vector{9, 8, 9}));
		EXPECT_EQ(device.calls.at(0).hex(),
			  joined(row.get, zeros(8), row.interface, no_name, "ffffffff", zeros(16544)));
		EXPECT_EQ(device.calls.at(1).hex(), client_record(row.sub_command, row.interface));
	}
}

TEST_F(CpctlClient, AddMakesNoSecondEntry)
{
	answer_checks({1});
	EXPECT_EQ(run({"client", "add", "white", "02:00:5e:10:00:01", "wlan-1-1"}), 0);
	EXPECT_EQ(device.commands(), (std::vector{10}));
	EXPECT_EQ(err, "cpctl: 02:00:5e:10:00:01 is in white of wlan-1-1 already: no second entry made\n");
}

// The module's own sub-command would do so; without it nothing else does.
TEST_F(CpctlClient, AddToMirelWhiteTakesAListedClientOffTheBlackList)
{
	answer_lists({{0x01}});
	EXPECT_EQ(run({"client", "add", "mirel-white", "02:00:5e:10:00:01"}), 0);
	EXPECT_EQ(device.commands(), (std::vector{9, 9, 8}));
	EXPECT_EQ(get32(device.calls.at(1).record, 0), 20U);
	EXPECT_EQ(device.calls.at(2).hex(), client_record("17000000", no_name));
}

TEST_F(CpctlClient, AddSaysWhenTheModuleDropsTheEntry)
{
	answer_checks({0});
	EXPECT_EQ(run({"client", "add", "white", "02:00:5e:10:00:01", "wlan-1-1"}), 2);
	EXPECT_EQ(err,
		  "cpctl: 02:00:5e:10:00:01 is not in white of wlan-1-1 though the module took the command: see the "
		  "kernel log (dmesg)\n");
}

TEST_F(CpctlClient, AddSaysWhenAListIsTooLongToVerify)
{
	answer_lists({std::vector<uint8_t>(1034, 0x07)});
	EXPECT_EQ(run({"client", "add", "auth", "02:00:5e:10:00:01", "wlan-1-1"}), 0);
	EXPECT_EQ(device.commands(), (std::vector{9, 8, 9}));
	EXPECT_EQ(err,
		  "cpctl: the entry of 02:00:5e:10:00:01 in auth of wlan-1-1 could not be verified: the module tells "
		  "the first 1034 clients of a list; clients: permission denied\n");
}

constexpr const char *listed_in_auth = "client table=auth mac=02:00:5e:10:00:01 interface=wlan-1-1\n";
// Nobody who is asked for.
constexpr const char *others_listed = "client table=auth mac=02:00:5e:10:00:02 interface=wlan-1-1\n"
				      "client table=auth mac=02:00:5e:10:00:01 interface=wlan-1-2\n"
				      "client table=login mac=02:00:5e:10:00:01 interface=wlan-1-1\n"
				      "client table=mirel-white mac=02:00:5e:10:00:01\n"
				      "remark table=auth mac=02:00:5e:10:00:01 interface=wlan-1-1\n";

TEST_F(CpctlClient, AddLooksForTheEntryInTheStatusFileWhereAListIsTooLong)
{
	answer_lists({std::vector<uint8_t>(1034, 0x07)});
	status_files["clients"] = others_listed;
	EXPECT_EQ(run({"client", "add", "auth", "02:00:5e:10:00:01", "wlan-1-1"}), 2);
	EXPECT_EQ(err,
		  "cpctl: 02:00:5e:10:00:01 is not in auth of wlan-1-1 though the module took the command: see the "
		  "kernel log (dmesg)\n");
	EXPECT_EQ(device.commands(), (std::vector{9, 8, 9}));
	device.on(GATEKEEPER_IOCTL_SET, [this](auto, size_t) {
		status_files["clients"] += listed_in_auth;
		return 0;
	});
	EXPECT_EQ(run({"client", "add", "auth", "02:00:5e:10:00:01", "wlan-1-1"}), 0);
	EXPECT_EQ(err, "");
	EXPECT_EQ(device.commands(), (std::vector{9, 8, 9}));
	EXPECT_EQ(run({"client", "add", "auth", "02:00:5e:10:00:01", "wlan-1-1"}), 0);
	EXPECT_EQ(err, "cpctl: 02:00:5e:10:00:01 is in auth of wlan-1-1 already: no second entry made\n");
	EXPECT_EQ(device.commands(), (std::vector{9}));
}

TEST_F(CpctlClient, AddToMirelWhiteLooksThroughALongBlackList)
{
	answer_lists({{0x01}, std::vector<uint8_t>(1034, 0x07)});
	status_files["clients"] = "client table=mirel-black mac=02:00:5e:10:00:01\n";
	EXPECT_EQ(run({"client", "add", "mirel-white", "02:00:5e:10:00:01"}), 0);
	EXPECT_EQ(device.of(GATEKEEPER_IOCTL_SET).at(0).hex(), client_record("17000000", no_name));
}

TEST_F(CpctlClient, AddSaysWhenTheModuleRefusesTheCommand)
{
	answer_checks({0});
	device.on(GATEKEEPER_IOCTL_SET, [](auto, size_t) { return -1; });
	EXPECT_EQ(run({"client", "add", "white", "02:00:5e:10:00:01", "wlan-1-1"}), 2);
	EXPECT_EQ(err, "cpctl: command 8 of the control device: refused: is this program as new as the module?\n");
}

TEST_F(CpctlClient, DelSendsTheTablesSubCommand)
{
	struct Row {
		const char *table;
		std::string_view sub_command;
	};
	for (const Row &row : {Row{"white", "01000000"}, Row{"login", "05000000"}, Row{"ga-white", "1b000000"},
			       Row{"mac-auth-fallback", "20000000"}}) {
		SCOPED_TRACE(row.table);
		answer_checks({1, 0});
		EXPECT_EQ(run({"client", "del", row.table, "02:00:5e:10:00:01", "wlan-1-1"}), 0);
		EXPECT_EQ(device.commands(), (std::vector{10, 8, 10}));
		EXPECT_EQ(device.calls.at(1).hex(), client_record(row.sub_command, wlan_1_1));
	}
	answer_lists({{0x01}, {}});
	EXPECT_EQ(run({"client", "del", "auth", "02:00:5e:10:00:01", "wlan-1-1"}), 0);
	EXPECT_EQ(device.calls.at(1).hex(), client_record("03000000", wlan_1_1));
	EXPECT_EQ(run({"client", "del", "mirel-white", "02:00:5e:10:00:01"}), 0);
	EXPECT_EQ(device.calls.at(1).hex(), client_record("19000000", no_name));
	EXPECT_EQ(run({"client", "del", "mirel-black", "02:00:5e:10:00:01"}), 0);
	EXPECT_EQ(device.calls.at(1).hex(), client_record("17000000", no_name));
}

TEST_F(CpctlClient, DelTakesEveryEntryOfTheClient)
{
	answer_checks({1, 1, 1, 0});
	EXPECT_EQ(run({"client", "del", "white", "02:00:5e:10:00:01", "wlan-1-1"}), 0);
	EXPECT_EQ(device.of(GATEKEEPER_IOCTL_SET).size(), 3U);
}

TEST_F(CpctlClient, DelOfAClientThatIsNotListedIsRefused)
{
	answer_checks({0});
	EXPECT_EQ(run({"client", "del", "white", "02:00:5e:10:00:01", "wlan-1-1"}), 2);
	EXPECT_EQ(device.of(GATEKEEPER_IOCTL_SET).size(), 0U);
	EXPECT_EQ(err, "cpctl: 02:00:5e:10:00:01 is not in white of wlan-1-1: nothing to delete\n");
}

TEST_F(CpctlClient, DelGivesUpOnAListThatKeepsTheClient)
{
	answer_checks({1});
	EXPECT_EQ(run({"client", "del", "white", "02:00:5e:10:00:01", "wlan-1-1"}), 2);
	EXPECT_EQ(err, "cpctl: 02:00:5e:10:00:01 is still in white of wlan-1-1: see the kernel log (dmesg)\n");
}

TEST_F(CpctlClient, DelLooksForTheClientInTheStatusFileWhereAListIsTooLong)
{
	answer_lists({std::vector<uint8_t>(1034, 0x07)});
	status_files["clients"] = others_listed;
	EXPECT_EQ(run({"client", "del", "auth", "02:00:5e:10:00:01", "wlan-1-1"}), 2);
	EXPECT_EQ(err, "cpctl: 02:00:5e:10:00:01 is not in auth of wlan-1-1: nothing to delete\n");
	EXPECT_EQ(device.of(GATEKEEPER_IOCTL_SET).size(), 0U);
	status_files["clients"] = std::string(listed_in_auth) + listed_in_auth;
	device.on(GATEKEEPER_IOCTL_SET, [this](auto, size_t call) {
		status_files["clients"] = call == 0 ? listed_in_auth : "";
		return 0;
	});
	EXPECT_EQ(run({"client", "del", "auth", "02:00:5e:10:00:01", "wlan-1-1"}), 0);
	EXPECT_EQ(err, "");
	EXPECT_EQ(device.of(GATEKEEPER_IOCTL_SET).size(), 2U);
	status_files["clients"] = listed_in_auth;
	device.on(GATEKEEPER_IOCTL_SET, [](auto, size_t) { return 0; });
	EXPECT_EQ(run({"client", "del", "auth", "02:00:5e:10:00:01", "wlan-1-1"}), 2);
	EXPECT_EQ(err, "cpctl: 02:00:5e:10:00:01 is still in auth of wlan-1-1: see the kernel log (dmesg)\n");
	EXPECT_EQ(device.of(GATEKEEPER_IOCTL_SET).size(), 1U);
}

TEST_F(CpctlClient, DelSaysWhenAListIsTooLongToVerify)
{
	answer_lists({std::vector<uint8_t>(1034, 0x07)});
	EXPECT_EQ(run({"client", "del", "auth", "02:00:5e:10:00:01", "wlan-1-1"}), 0);
	EXPECT_EQ(device.commands(), (std::vector{9, 8, 9}));
	EXPECT_EQ(err,
		  "cpctl: the deletion of 02:00:5e:10:00:01 from auth of wlan-1-1 could not be verified: the module "
		  "tells the first 1034 clients of a list; clients: permission denied\n");
}

TEST_F(CpctlClient, AListThatNobodyUnderstandsIsNotTheUsersMistake)
{
	answer_lists({std::vector<uint8_t>(1034, 0x07)});
	status_files["clients"] = "client table=auth mac=02:00 interface=wlan-1-1\n";
	EXPECT_EQ(run({"client", "add", "auth", "02:00:5e:10:00:01", "wlan-1-1"}), 0);
	EXPECT_EQ(
		err,
		"cpctl: the entry of 02:00:5e:10:00:01 in auth of wlan-1-1 could not be verified: the module tells the "
		"first 1034 clients of a list; the module's status says 'mac=02:00', where a MAC address should be: is "
		"this cpctl as new as the module?\n");
}

// An address that add refuses may be in a list all the same.
TEST_F(CpctlClient, DelTakesGroupAddresses)
{
	answer_checks({1, 0});
	EXPECT_EQ(run({"client", "del", "white", "ff:ff:ff:ff:ff:ff", "wlan-1-1"}), 0);
	EXPECT_EQ(device.calls.at(1).hex(), joined("01000000", zeros(8), wlan_1_1, no_name, "ffffffffffff", "0000"));
}

TEST_F(CpctlClient, ShowListsTheClientsOfAnInterface)
{
	answer_lists({{0x01, 0xfe}});
	EXPECT_EQ(run({"client", "show", "login", "wlan-2-3"}), 0);
	EXPECT_EQ(device.calls.at(0).hex(), joined("08000000", zeros(8), wlan_2_3, no_name, "ffffffff", zeros(16544)));
	EXPECT_EQ(out, "02:00:5e:10:00:01 dev wlan-2-3 table login\n02:00:5e:10:00:fe dev wlan-2-3 table login\n");
}

TEST_F(CpctlClient, ShowAsksForEveryInterfaceWhenNoneIsNamed)
{
	answer_lists({{}, {0x01}, {}});
	EXPECT_EQ(run({"client", "show", "white"}), 0);
	EXPECT_EQ(device.calls.size(), 24U);
	EXPECT_EQ(out, "02:00:5e:10:00:01 dev wlan-1-2 table white\n");
}

TEST_F(CpctlClient, ShowOfAMirelTableNamesNoInterface)
{
	answer_lists({{0x01}});
	EXPECT_EQ(run({"client", "show", "mirel-black"}), 0);
	EXPECT_EQ(device.calls.size(), 1U);
	EXPECT_EQ(out, "02:00:5e:10:00:01 table mirel-black\n");
}

TEST_F(CpctlClient, ShowSaysWhenThereMayBeMore)
{
	answer_lists({std::vector<uint8_t>(1034, 0x07)});
	EXPECT_EQ(run({"client", "show", "auth", "wlan-1-1"}), 0);
	EXPECT_EQ(std::ranges::count(out, '\n'), 1034);
	EXPECT_EQ(err,
		  "cpctl: the module tells the first 1034 clients of a list; auth of wlan-1-1 may have more: clients: "
		  "permission denied\n");
}

TEST_F(CpctlClient, ShowTakesALongListFromTheStatusFile)
{
	answer_lists({std::vector<uint8_t>(1034, 0x07)});
	status_files["clients"] = std::string(others_listed) + listed_in_auth;
	EXPECT_EQ(run({"client", "show", "auth", "wlan-1-1"}), 0);
	EXPECT_EQ(out, "02:00:5e:10:00:02 dev wlan-1-1 table auth\n02:00:5e:10:00:01 dev wlan-1-1 table auth\n");
	EXPECT_EQ(err, "");
}

TEST_F(CpctlClient, CheckAnswersWithItsExitCode)
{
	answer_checks({1, 0});
	EXPECT_EQ(run({"client", "check", "ga-white", "02:00:5e:10:00:01", "wlan-1-1"}), 0);
	EXPECT_EQ(out, "02:00:5e:10:00:01 is in ga-white of wlan-1-1\n");
	answer_checks({0});
	EXPECT_EQ(run({"client", "check", "ga-white", "02:00:5e:10:00:01", "wlan-1-1"}), 2);
	EXPECT_EQ(out, "");
	EXPECT_EQ(err, "cpctl: 02:00:5e:10:00:01 is not in ga-white of wlan-1-1\n");
}

TEST_F(CpctlClient, CheckKnowsThatALongListMayHoldTheClient)
{
	answer_lists({std::vector<uint8_t>(1034, 0x07)});
	EXPECT_EQ(run({"client", "check", "auth", "02:00:5e:10:00:01", "wlan-1-1"}), 2);
	EXPECT_EQ(err,
		  "cpctl: 02:00:5e:10:00:01 is not among the clients of auth of wlan-1-1 that the module tells, and "
		  "there may be more: clients: permission denied\n");
	status_files["clients"] = others_listed;
	EXPECT_EQ(run({"client", "check", "auth", "02:00:5e:10:00:01", "wlan-1-1"}), 2);
	EXPECT_EQ(err, "cpctl: 02:00:5e:10:00:01 is not in auth of wlan-1-1\n");
	status_files["clients"] += listed_in_auth;
	EXPECT_EQ(run({"client", "check", "auth", "02:00:5e:10:00:01", "wlan-1-1"}), 0);
	EXPECT_EQ(out, "02:00:5e:10:00:01 is in auth of wlan-1-1\n");
}

TEST_F(CpctlClient, FlushUsesTheModulesOwnWhereThereIsOne)
{
	answer_lists({{}});
	EXPECT_EQ(run({"client", "flush", "ga-white", "wlan-1-1"}), 0);
	EXPECT_EQ(device.commands(), (std::vector{8, 9}));
	EXPECT_EQ(device.calls.at(0).hex(), joined("1e000000", zeros(8), wlan_1_1, zeros(24)));
	EXPECT_EQ(run({"client", "flush", "mac-auth-fallback", "all"}), 0);
	EXPECT_EQ(device.of(GATEKEEPER_IOCTL_SET).size(), 1U);
	EXPECT_EQ(device.of(GATEKEEPER_IOCTL_GET).size(), 24U);
	EXPECT_EQ(device.calls.at(0).hex(),
		  joined("22000000", zeros(8), "616c6c00000000000000000000000000", zeros(24)));
}

TEST_F(CpctlClient, FlushDeletesOneByOneWhereThereIsNone)
{
	answer_lists({{0x01, 0x02}, {}});
	EXPECT_EQ(run({"client", "flush", "login", "wlan-1-1"}), 0);
	EXPECT_EQ(device.commands(), (std::vector{9, 8, 8, 9}));
	EXPECT_EQ(device.calls.at(1).hex(), client_record("05000000", wlan_1_1));
	answer_lists({{0x01}, {}});
	EXPECT_EQ(run({"client", "flush", "mirel-black"}), 0);
	EXPECT_EQ(device.calls.at(1).hex(), client_record("17000000", no_name));
}

TEST_F(CpctlClient, FlushGoesOnBehindTheEndOfALongList)
{
	answer_lists({std::vector<uint8_t>(1034, 0x07), {0x01}, {}});
	EXPECT_EQ(run({"client", "flush", "login", "wlan-1-1"}), 0);
	EXPECT_EQ(device.of(GATEKEEPER_IOCTL_SET).size(), 1035U);
}

TEST_F(CpctlClient, FlushOfAListThatKeepsItsClientsEnds)
{
	answer_lists({std::vector<uint8_t>(1034, 0x07)});
	EXPECT_EQ(run({"client", "flush", "login", "wlan-1-1"}), 2);
	EXPECT_EQ(err, "cpctl: login of wlan-1-1 is not empty after the flush: see the kernel log (dmesg)\n");
}

TEST_F(CpctlClient, FlushPortalEmptiesFiveTables)
{
	answer_lists({{}});
	EXPECT_EQ(run({"client", "flush", "portal", "wlan-1-1"}), 0);
	EXPECT_EQ(device.commands(), (std::vector{8, 9, 9, 9, 9, 9}));
	EXPECT_EQ(device.calls.at(0).hex(), joined("09000000", zeros(8), wlan_1_1, zeros(24)));
	EXPECT_EQ(run({"client", "flush", "portal", "all"}), 0);
	EXPECT_EQ(device.of(GATEKEEPER_IOCTL_GET).size(), 120U);
	EXPECT_EQ(device.calls.at(0).hex(),
		  joined("09000000", zeros(8), "616c6c00000000000000000000000000", zeros(24)));
}

TEST_F(CpctlClient, FlushPortalSaysWhatIsLeft)
{
	answer_lists({{}, {}, {0x01}});
	EXPECT_EQ(run({"client", "flush", "portal", "wlan-1-1"}), 2);
	EXPECT_EQ(err, "cpctl: login of wlan-1-1 is not empty after the flush: see the kernel log (dmesg)\n");
}

TEST_F(CpctlClient, ArgumentsAreCheckedBeforeTheDeviceIsOpened)
{
	expect_usage_failure({"client", "add", "wite", "02:00:5e:10:00:01", "wlan-1-1"}, "no table of clients");
	expect_usage_failure({"client", "add", "portal", "02:00:5e:10:00:01", "wlan-1-1"}, "no table of clients");
	expect_usage_failure({"client", "add", "white", "02:00:5e:10:00", "wlan-1-1"}, "no MAC address");
	expect_usage_failure({"client", "add", "white", "01:00:5e:10:00:01", "wlan-1-1"}, "group address");
	expect_usage_failure({"client", "add", "white", "02:00:5e:10:00:01", "wlan-1-9"}, "no wireless interface");
	expect_usage_failure({"client", "add", "white", "02:00:5e:10:00:01", "all"}, "no wireless interface");
	expect_usage_failure({"client", "add", "white", "02:00:5e:10:00:01"}, "kept for each interface");
	expect_usage_failure({"client", "del", "white", "02:00:5e:10:00:01"}, "kept for each interface");
	expect_usage_failure({"client", "check", "white", "02:00:5e:10:00:01"}, "kept for each interface");
	expect_usage_failure({"client", "add", "mirel-black", "02:00:5e:10:00:01", "wlan-1-1"}, "for all interfaces");
	expect_usage_failure({"client", "show", "mirel-black", "wlan-1-1"}, "for all interfaces");
	expect_usage_failure({"client", "flush", "white"}, "kept for each interface");
	expect_usage_failure({"client", "flush", "portal"},
			     "name the interface whose tables are to be emptied, or 'all'");
	expect_usage_failure({"client", "flush", "portal", "ALL"}, "no wireless interface");
	expect_usage_failure({"client", "flush", "mirel-black", "all"}, "for all interfaces");
}

} // namespace

} // namespace cpctl::test
