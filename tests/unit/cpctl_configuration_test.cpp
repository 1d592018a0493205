// SPDX-License-Identifier: GPL-2.0-only
// Saving, restoring, and files of commands, against the module's own core.
#include "tests/unit/cpctl_core.h"

#include <cstdlib>
#include <random>
#include <set>

#include "cpctl/configuration_changes.h"
#include "garden/walled_garden.h"

namespace captive_portal::test
{

namespace
{

using Words = std::vector<std::string>;

const std::string first_line = "# configuration of the captive portal, format 1\n";
const std::string last_line = "# end of configuration\n";

class CpctlConfiguration : public CpctlWithTheCore
{
protected:
	std::string save() { return answer({"save"}); }

	// Runs the commands of a text, all of which are done.
	void batch(const std::string &text)
	{
		standard_input = text;
		ASSERT_EQ(run({"-b", "-"}), 0) << err << text;
	}
	// What `everything` says; the settings that nothing reads as a daemon sends them.
	void store_everything();
	void store_in_row(cp_set_command what, uint32_t row, uint32_t value, const std::string &text = "")
	{
		cp_cmd record = {};
		record.cmd = what;
		record.iface = static_cast<int32_t>(row);
		record.enable_value = value;
		text.copy(record.value, sizeof(record.value) - 1);
		send(CAPTIVE_PORTAL_IOCTL_SET, record);
	}
	int restore(const std::string &text)
	{
		standard_input = text;
		return run({"restore", "-"});
	}
	std::string changes(const std::string &text)
	{
		standard_input = text;
		return answer({"restore", "-", "--dry-run"});
	}
	static std::string whole(const std::string &commands) { return first_line + commands + last_line; }

	// What the module has stored, line by line, with clients in no order.
	std::multiset<std::string> stored()
	{
		std::multiset<std::string> lines;
		for (const char *file : {"status", "clients", "garden"}) {
			std::istringstream text(machine.status_text(file));
			for (std::string line; std::getline(text, line);) {
				lines.insert(line);
			}
		}
		return lines;
	}
	std::string text_of_status()
	{
		return machine.status_text("status") + machine.status_text("clients") + machine.status_text("garden");
	}
	// So many commands that change something were sent.
	size_t stores() { return calls[1] + calls[3] + calls[6] + calls[8] + calls[11]; }
};

const std::string everything =
	first_line +
	R"(# Made by "cpctl save", read by "cpctl restore": commands of cpctl, one a line. What no line sets is as the module starts.

# The access point
debug 3
gateway set 192.0.2.254
dns-filter on

# Destinations that are open before login
garden default replace a.example b.example
garden replace wlan-1-1 on '*.example.com' 198.51.100.0/24 10.0.0.0/255.0.255.0
garden replace social-login 7
garden replace mirel on m.example

# OWE companions
interface owe map wlan-2-16 wlan-3-8

# Clients
client add white 02:00:5e:10:00:02 wlan-1-1
client add white 02:00:5e:10:00:01 wlan-1-1
client add login 02:00:5e:10:00:01 wlan-3-8
client add mirel-white 02:00:5e:10:00:03
client add mirel-black 02:00:5e:10:00:03

# Portals, after the clients so that none of them meets one meanwhile
interface set wlan-1-1 mode on block-https redirect logout 192.0.2.1 cp-walled-garden on
interface set wlan-3-8 mode 12 disconnection pass-dhcp disconnected
interface set special-mark logout 192.0.2.3
interface set mode-7 block-https block
interface set mirel mode drop-tcp

)" + last_line;

const std::string unread_settings = "interface set special-mark logout 192.0.2.3\n"
				    "interface set mode-7 block-https block\n";

void CpctlConfiguration::store_everything()
{
	std::string text = everything;
	text.erase(text.find(unread_settings), unread_settings.size());
	batch(text);
	store_in_row(LOGOUT_IP_NOTIFY, CP_ROW_SPECIAL_MARK, 0, "192.0.2.3");
	store_in_row(BLOCK_HTTPS, CP_ROW_MODE_7, CP_HTTPS_BLOCKED);
}

TEST_F(CpctlConfiguration, OfAModuleThatHasJustStartedHasNoCommand)
{
	std::istringstream lines(save());
	size_t commands = 0;
	for (std::string line; std::getline(lines, line);) {
		commands += line.empty() || line.front() == '#' ? 0 : 1;
	}
	EXPECT_EQ(commands, 0U);
	EXPECT_EQ(openings, 0);
}

TEST_F(CpctlConfiguration, EverythingIsSavedAsCommands)
{
	store_everything();
	EXPECT_EQ(save(), everything);
}

TEST_F(CpctlConfiguration, RestoredOnAModuleThatHasJustStarted)
{
	EXPECT_EQ(restore(everything), 0) << err;
	EXPECT_EQ(out + err, "");
	EXPECT_EQ(save(), everything);
}

TEST_F(CpctlConfiguration, RestoredOnItselfSendsNothingThatChanges)
{
	store_everything();
	const std::string before = text_of_status();
	calls.clear();
	EXPECT_EQ(restore(everything), 0) << err;
	EXPECT_EQ(stores(), 0U);
	EXPECT_EQ(changes(everything), "");
	EXPECT_EQ(text_of_status(), before);
}

TEST_F(CpctlConfiguration, OfSettingsThatNothingReadsComesBackWhole)
{
	for (const uint32_t row : {CP_ROW_SPECIAL_MARK, CP_ROW_MODE_7, CP_ROW_SOCIAL_LOGIN, CP_ROW_MIREL}) {
		store_in_row(CAPTIVE_PORTAL, row, 3);
		store_in_row(BLOCK_HTTPS, row, 4);
		store_in_row(LOGOUT_IP_NOTIFY, row, 0, "192.0.2.5");
		wg_cmd record = {};
		record.cmd = WALLED_GARDEN;
		record.iface = static_cast<int32_t>(row);
		record.enable_value = 6;
		send(WALLED_GARDEN_IOCTL_SET, record);
	}
	const std::string saved = save();
	EXPECT_NE(saved.find("interface set social-login mode 3 block-https 4 logout 192.0.2.5\n"), std::string::npos)
		<< saved;
	const auto lines = stored();
	EXPECT_EQ(restore(whole("")), 0) << err;
	EXPECT_NE(stored(), lines);
	EXPECT_EQ(restore(saved), 0) << err;
	EXPECT_EQ(out + err, "");
	EXPECT_EQ(stored(), lines);
	EXPECT_EQ(save(), saved);
	// As a file of commands it is one that somebody wrote.
	standard_input = saved;
	EXPECT_EQ(run({"-b", "-"}), 1);
	EXPECT_NE(err.find(": social-login: the module reads no mode of this row: "), std::string::npos) << err;
	EXPECT_NE(err.find(": mirel: the module reads no block-https of this row: "), std::string::npos) << err;
	EXPECT_EQ(stored(), lines);
}

TEST_F(CpctlConfiguration, WhatTheFileDoesNotSayIsAsTheModuleStarts)
{
	const auto fresh = stored();
	store_everything();
	EXPECT_EQ(restore(whole("")), 0) << err;
	EXPECT_EQ(stored(), fresh);
}

TEST_F(CpctlConfiguration, OnlyDifferencesAreChanged)
{
	store_everything();
	const std::string wanted = whole("interface set wlan-1-1 mode on block-https redirect logout 192.0.2.9\n"
					 "client add white 02:00:5e:10:00:01 wlan-1-1\n"
					 "client add auth 02:00:5e:10:00:07 wlan-1-1\n"
					 "garden replace wlan-1-1 on '*.example.com'\n"
					 "gateway set 192.0.2.254\n");
	const std::string wanted_changes =
		"- debug 3\n+ debug 1\n"
		"- dns-filter on\n+ dns-filter off\n"
		"- garden default replace a.example b.example\n+ garden default replace\n"
		"- garden replace wlan-1-1 on '*.example.com' 198.51.100.0/24 10.0.0.0/255.0.255.0\n"
		"+ garden replace wlan-1-1 on '*.example.com'\n"
		"- garden replace social-login 7\n+ garden replace social-login off\n"
		"- garden replace mirel on m.example\n+ garden replace mirel off\n"
		"- interface owe map wlan-2-16 wlan-3-8\n"
		"+ client add auth 02:00:5e:10:00:07 wlan-1-1\n"
		"- client add mirel-white 02:00:5e:10:00:03\n"
		"- interface set wlan-1-1 logout 192.0.2.1 cp-walled-garden on\n"
		"+ interface set wlan-1-1 logout 192.0.2.9 cp-walled-garden off\n"
		"- interface set wlan-3-8 mode 12 disconnection pass-dhcp disconnected\n"
		"+ interface set wlan-3-8 mode off disconnection drop-all 0\n"
		"- interface set special-mark logout 192.0.2.3\n+ interface set special-mark logout none\n"
		"- interface set mode-7 block-https block\n+ interface set mode-7 block-https pass\n"
		"- interface set mirel mode drop-tcp\n+ interface set mirel mode off\n"
		"- client add white 02:00:5e:10:00:02 wlan-1-1\n"
		"- client add login 02:00:5e:10:00:01 wlan-3-8\n";
	calls.clear();
	EXPECT_EQ(changes(wanted), wanted_changes);
	EXPECT_TRUE(calls.empty());
	EXPECT_EQ(restore(wanted), 0) << err;
	EXPECT_EQ(changes(wanted), "");
	EXPECT_EQ(answer({"client", "show", "white"}), "02:00:5e:10:00:01 dev wlan-1-1 table white\n");
}

TEST_F(CpctlConfiguration, DryRunHasColoursWhereTheyAreWanted)
{
	standard_input = whole("debug 2\n");
	EXPECT_EQ(answer({"--color=always", "restore", "-", "--dry-run"}),
		  "\x1b[31m- debug 1\x1b[0m\n\x1b[32m+ debug 2\x1b[0m\n");
	surroundings.out_is_terminal = true;
	EXPECT_EQ(answer({"restore", "-", "--dry-run"}), "\x1b[31m- debug 1\x1b[0m\n\x1b[32m+ debug 2\x1b[0m\n");
	surroundings.no_color = "1";
	EXPECT_EQ(answer({"restore", "-", "--dry-run"}), "- debug 1\n+ debug 2\n");
}

TEST_F(CpctlConfiguration, AMistakeAnywhereChangesNothing)
{
	const std::string before = text_of_status();
	const std::string file = file_with(whole("debug 3\n\nclient add white 01:00:5e:10:00:01 wlan-1-1\n"
						 "status\nmode on\ngarden replace wlan-1-1 on 'a\n"));
	EXPECT_EQ(run({"restore", file}), 1);
	EXPECT_EQ(err, "cpctl: " + file + ":7: a quotation mark (') is not closed\n");
	const std::string second = file_with(whole("debug 3\n\nclient add white 01:00:5e:10:00:01 wlan-1-1\n"
						   "status\nmode on\n--wait 3 debug 2\nrestore x\n"));
	for (const auto &words : {Words{"restore", second}, Words{"restore", second, "--dry-run"}}) {
		EXPECT_EQ(run(words), 1);
		EXPECT_EQ(
			err,
			"cpctl: " + second +
				":4: '01:00:5e:10:00:01' is a group address: the module drops every frame from one\n"
				"cpctl: " +
				second +
				":5: a configuration has only commands that set something\n"
				"cpctl: " +
				second +
				":6: an object or a command is missing or not known: see --help, also after an object "
				"or a command\n"
				"cpctl: " +
				second +
				":7: options of cpctl itself go on its command line, not into a file\n"
				"cpctl: " +
				second + ":8: this command cannot be one of a file\ncpctl: nothing was changed\n");
	}
	EXPECT_EQ(openings, 0);
	EXPECT_EQ(text_of_status(), before);
}

TEST_F(CpctlConfiguration, AFileThatIsNoWholeConfigurationIsRefused)
{
	store_everything();
	const std::string before = text_of_status();
	openings = 0;
	EXPECT_EQ(restore("debug 3\n"), 1);
	EXPECT_NE(err.find("is no saved configuration"), std::string::npos) << err;
	EXPECT_EQ(restore(""), 1);
	EXPECT_EQ(restore(everything.substr(0, everything.size() - last_line.size())), 1);
	EXPECT_NE(err.find("has been cut short"), std::string::npos) << err;
	EXPECT_EQ(restore(everything.substr(0, everything.size() - 2)), 1);
	EXPECT_EQ(restore(everything + "debug 2\n"), 1);
	EXPECT_EQ(run({"restore", "/nonexistent/file"}), 3);
	EXPECT_EQ(err, "cpctl: /nonexistent/file cannot be read: No such file or directory: name a file of commands "
		       "that you may read, or - for standard input\n");
	EXPECT_EQ(run({"restore"}), 1);
	EXPECT_EQ(openings, 0);
	EXPECT_EQ(text_of_status(), before);
}

TEST_F(CpctlConfiguration, AFailureHalfWaySaysWhereAndARepeatDoesTheRest)
{
	const std::string wanted =
		whole("gateway set 192.0.2.254\ngarden replace wlan-1-1 on a.example b.example\n"
		      "interface set wlan-1-1 mode on\nclient add login 02:00:5e:10:00:01 wlan-1-1\n");
	// Before it come the gateway, two copies of the garden's record, and the first rule.
	machine.memory.fail_allocation(4);
	EXPECT_EQ(restore(wanted), 2);
	EXPECT_EQ(
		err,
		"cpctl: garden replace wlan-1-1 on a.example b.example: wlan-1-1: the module kept 1 of 2 rules: is the "
		"kernel out of memory? See dmesg\n"
		"cpctl: stopped there: 2 of 4 commands were not tried, the first of them at client add login "
		"02:00:5e:10:00:01 wlan-1-1\n"
		"cpctl: restoring again is safe: what is done already is left alone, and no client is logged out by "
		"it\n");
	EXPECT_EQ(answer({"gateway", "show"}), "gateway 192.0.2.254\n");
	EXPECT_EQ(restore(wanted), 0) << err;
	EXPECT_EQ(changes(wanted), "");
}

// One client alone, not among others that come or go with it.
TEST_F(CpctlConfiguration, ALoneClientComesAndGoes)
{
	const std::string one =
		whole("debug 2\nclient add login 02:00:5e:10:00:01 wlan-1-1\ninterface set wlan-1-1 mode on\n");
	EXPECT_EQ(restore(one), 0) << err;
	EXPECT_EQ(machine.status_text("clients"), "client table=login mac=02:00:5e:10:00:01 interface=wlan-1-1\n");
	EXPECT_EQ(restore(whole("")), 0) << err;
	EXPECT_EQ(machine.status_text("clients"), "");
	// Of the commands' records and what they store, the third is the client's entry.
	machine.memory.fail_allocation(3);
	EXPECT_EQ(restore(one), 2);
	EXPECT_NE(err.find("client add login 02:00:5e:10:00:01 wlan-1-1: 02:00:5e:10:00:01 is not in login of wlan-1-1 "
			   "though the module took the command"),
		  std::string::npos)
		<< err;
}

TEST_F(CpctlConfiguration, WhatNoCommandSetsIsToldAndLeftOut)
{
	wg_cmd garden = {};
	garden.cmd = UPDATE_RULE;
	garden.iface = 2;
	garden.enable_value = 1;
	garden.rule_number = 3;
	std::strcpy(garden.rules[0].domain_name, "ends.with.a.dot.");
	std::strcpy(garden.rules[1].domain_name, "fine.example");
	garden.rules[2].rule_type = WG_RULE_ADDRESS;
	garden.rules[2].netmask = UINT32_MAX;
	std::strcpy(garden.rules[2].domain_name, "both.example");
	send(WALLED_GARDEN_IOCTL_SET, garden);
	garden.cmd = UPDATE_DEFAULT_RULE;
	std::strcpy(garden.rules[0].domain_name, "*.wild");
	send(WALLED_GARDEN_IOCTL_SET, garden);
	cp_cmd logout = {};
	logout.cmd = LOGOUT_IP_NOTIFY;
	std::strcpy(logout.value, "192.0.2");
	send(CAPTIVE_PORTAL_IOCTL_SET, logout);
	gk_cmd client = {};
	client.cmd = ADD_MIREL_BLACK_LIST_MAC;
	send(GATEKEEPER_IOCTL_SET, client);
	gk_cmd companion = {};
	companion.cmd = ADD_MAPPING_OWE_VAP;
	std::strcpy(companion.iface, "wlan-1-9");
	std::strcpy(companion.owe_iface, "wlan-1-14");
	send(GATEKEEPER_IOCTL_SET, companion);

	EXPECT_EQ(run({"save"}), 2);
	EXPECT_EQ(err,
		  "cpctl: not saved, because no command of cpctl sets it: the logout address '192.0.2' of wlan-1-1\n"
		  "cpctl: not saved, because no command of cpctl sets it: the companion 'wlan-1-14' of 'wlan-1-9'\n"
		  "cpctl: not saved, because no command of cpctl sets it: the default name '*.wild'\n"
		  "cpctl: not saved, because no command of cpctl sets it: the rule 'ends.with.a.dot.' of wlan-1-3\n"
		  "cpctl: not saved, because no command of cpctl sets it: the rule '0.0.0.0' with the pattern "
		  "'both.example' of wlan-1-3\n"
		  "cpctl: not saved, because no command of cpctl sets it: the client 00:00:00:00:00:00 in mirel-black\n"
		  "cpctl: all else was saved; a restore will take away what was not\n");
	const std::string saved = out;
	EXPECT_NE(saved.find("\ngarden replace wlan-1-3 on fine.example\n"), std::string::npos) << saved;
	EXPECT_NE(saved.find("\ngarden default replace fine.example both.example\n"), std::string::npos) << saved;
	EXPECT_EQ(restore(saved), 0) << err;
	EXPECT_EQ(answer({"save"}), saved);
}

// The module takes any pattern; the command line has a meaning of its own for some.
constexpr const char *odd_patterns[] = {"-ads.example", "--help", "--", "++", "[*", "{}", "%%", "default", "garden"};

wg_cmd garden_of_odd_patterns(uint32_t sub_command)
{
	wg_cmd garden = {};
	garden.cmd = sub_command;
	garden.iface = 2;
	garden.enable_value = 1;
	for (const char *pattern : odd_patterns) {
		std::strcpy(garden.rules[garden.rule_number++].domain_name, pattern);
	}
	return garden;
}

TEST_F(CpctlConfiguration, RulesThatLookLikeSomethingElseComeBack)
{
	send(WALLED_GARDEN_IOCTL_SET, garden_of_odd_patterns(UPDATE_RULE));
	wg_cmd names = garden_of_odd_patterns(UPDATE_DEFAULT_RULE);
	std::strcpy(names.rules[4].domain_name, "b]");
	send(WALLED_GARDEN_IOCTL_SET, names);
	const auto lines = stored();
	const std::string saved = save();
	EXPECT_EQ(restore(whole("")), 0) << err;
	EXPECT_EQ(machine.status_text("garden"), "");
	EXPECT_EQ(restore(saved), 0) << err << saved;
	EXPECT_EQ(stored(), lines);
}

// The command line would take them apart: "[*]" would come back as "*", which permits everything.
TEST_F(CpctlConfiguration, RulesBetweenSquareBracketsAreToldAndLeftOut)
{
	wg_cmd garden = {};
	garden.cmd = UPDATE_RULE;
	garden.iface = 2;
	garden.rule_number = 2;
	std::strcpy(garden.rules[0].domain_name, "[*]");
	std::strcpy(garden.rules[1].domain_name, "fine.example");
	send(WALLED_GARDEN_IOCTL_SET, garden);
	EXPECT_EQ(run({"save"}), 2);
	EXPECT_NE(out.find("\ngarden replace wlan-1-3 off fine.example\n"), std::string::npos) << out;
	EXPECT_NE(err.find("the rule '[*]' of wlan-1-3\n"), std::string::npos) << err;
	EXPECT_EQ(restore(whole("garden replace wlan-1-3 on '[*]'\n")), 1);
	EXPECT_EQ(machine.status_text("garden"),
		  "rule interface=wlan-1-3 type=0 pattern=[*]\nrule interface=wlan-1-3 type=0 pattern=fine.example\n");
}

TEST_F(CpctlConfiguration, LevelsAndClientsThatCountTheSameAreSavedOnce)
{
	ASSERT_EQ(MachineDevice(machine, false, calls).pass_value(ENV_SET_DEBUG_LEVEL, 100), 0);
	gk_cmd client = {};
	client.cmd = ADD_LOGIN_MAC;
	std::strcpy(client.iface, "wlan-1-1");
	std::memcpy(client.mac, "\x02\x00\x5e\x10\x00\x01", 6);
	send(GATEKEEPER_IOCTL_SET, client);
	send(GATEKEEPER_IOCTL_SET, client);
	const std::string saved = save();
	EXPECT_NE(saved.find("\ndebug 3\n"), std::string::npos);
	const size_t first = saved.find("\nclient add login 02:00:5e:10:00:01 wlan-1-1\n");
	ASSERT_NE(first, std::string::npos);
	EXPECT_EQ(saved.find("\nclient add", first + 1), std::string::npos);
	EXPECT_EQ(restore(whole("")), 0) << err;
	EXPECT_EQ(machine.status_text("clients"), "");
}

TEST_F(CpctlConfiguration, FilesAreWrittenWholeAndOthersLeftAlone)
{
	batch("debug 2\n");
	const std::string file = file_with("");
	EXPECT_EQ(answer({"save", file}), "");
	EXPECT_EQ(text_of_file(file), save());
	batch("debug 3\n");
	EXPECT_EQ(answer({"save", file}), "");
	EXPECT_EQ(text_of_file(file), save());
	const std::string other = file_with("my thesis\n");
	EXPECT_EQ(run({"save", other}), 1);
	EXPECT_NE(err.find("is nothing that cpctl wrote"), std::string::npos) << err;
	EXPECT_EQ(text_of_file(other), "my thesis\n");
	EXPECT_EQ(openings, 2);
}

TEST_F(CpctlConfiguration, SavingAndRestoringDisturbNoSelectionOfTheListing)
{
	store_everything();
	calls.clear();
	(void)save();
	EXPECT_TRUE(calls.empty());
}

// ---- Random configurations ------------------------------------------------------------------------------------------------

class RandomConfiguration
{
public:
	explicit RandomConfiguration(uint32_t seed) : random_(seed) {}

	std::string commands()
	{
		std::string text;
		for (uint32_t left = number(60); left != 0; left--) {
			text += command() + "\n";
		}
		return text;
	}

private:
	uint32_t number(uint32_t below) { return std::uniform_int_distribution<uint32_t>(0, below - 1)(random_); }
	std::string one_of(const std::vector<std::string> &words)
	{
		return words[number(static_cast<uint32_t>(words.size()))];
	}
	std::string interface()
	{
		return "wlan-" + std::to_string(1 + number(3)) + "-" + std::to_string(1 + number(8));
	}
	std::string row()
	{
		return number(3) == 0 ? one_of({"special-mark", "mode-7", "social-login", "mirel"}) : interface();
	}
	std::string address() { return "192.0.2." + std::to_string(1 + number(250)); }
	std::string client()
	{
		static constexpr char digits[] = "0123456789abcdef";
		return std::string("02:00:5e:10:00:0") + digits[number(16)];
	}
	std::string any_number() { return std::to_string(number(3) == 0 ? number(UINT32_MAX) : number(4)); }
	std::string rules(uint32_t most, bool names_only)
	{
		std::string text;
		for (uint32_t left = number(most + 1); left != 0; left--) {
			switch (names_only ? 0 : number(5)) {
			case 1:
				text += " " + address() + "/" + std::to_string(number(33));
				break;
			case 2:
				text += " " + address() + "/255.0." + std::to_string(number(256)) + ".1";
				break;
			case 3:
				text += " '*" + std::string(number(120), 'a') + "?b'";
				break;
			case 4:
				text += " \"it's#\\\\\\\"" + std::to_string(number(9)) + "\"";
				break;
			default:
				text += " h" + any_number() + ".example";
			}
		}
		return text;
	}
	std::string command()
	{
		switch (number(14)) {
		case 0:
			return "interface set " + row() + " mode " +
			       one_of({"off", "on", "internet-passes", any_number()});
		case 1:
			return "interface set " + row() + " block-https " +
			       one_of({"pass", "block", "redirect", any_number()});
		case 2:
			return "interface set " + row() + " logout " + one_of({"none", address()});
		case 3:
			return "interface set " + row() + " cp-walled-garden " + any_number() + " garden " +
			       any_number();
		case 4:
			return "interface set " + interface() + " disconnection " +
			       one_of({"drop-all", "pass-all", "pass-dhcp", any_number()}) + " " +
			       one_of({"connected", "disconnected", any_number()});
		case 5:
			return "garden replace " + row() + " " + one_of({"on", "off", any_number()}) + rules(24, false);
		case 6:
			return "garden default replace" + rules(24, true);
		case 7:
			return "interface owe map wlan-" + std::to_string(1 + number(3)) + "-" +
			       std::to_string(14 + number(3)) + " " + interface();
		case 8:
			return "gateway set " + one_of({"none", address()});
		case 9:
			return one_of({"dns-filter " + any_number(), "debug " + std::to_string(number(4)),
				       "mirel mode " + any_number(), "mirel garden replace on" + rules(24, false)});
		case 10:
			return "client add " + one_of({"mirel-white", "mirel-black"}) + " " + client();
		default:
			return "client add " + one_of({"white", "auth", "login", "ga-white", "mac-auth-fallback"}) +
			       " " + client() + " " + interface();
		}
	}

	std::mt19937 random_;
};

TEST_F(CpctlConfiguration, RandomOnesComeBackOnAFreshModuleAndOnAnyOther)
{
	// More of them take minutes under a sanitizer: CPCTL_CONFIGURATIONS=200 asks for so many.
	const char *const wanted = std::getenv("CPCTL_CONFIGURATIONS");
	const unsigned long configurations = wanted == nullptr ? 20 : std::stoul(wanted);
	for (uint32_t seed = 1; seed <= configurations; seed++) {
		SCOPED_TRACE(seed);
		// From what the seed before this one has left.
		ASSERT_EQ(restore(whole(RandomConfiguration(seed).commands())), 0) << err;
		const auto lines = stored();
		const std::string saved = save();

		ASSERT_EQ(machine.unload(), 0);
		ASSERT_EQ(machine.load(), 0);
		ASSERT_EQ(restore(saved), 0) << err;
		ASSERT_EQ(stored(), lines);

		// On itself nothing changes, order and all.
		const std::string before = text_of_status();
		calls.clear();
		ASSERT_EQ(restore(saved), 0) << err;
		ASSERT_EQ(stores(), 0U);
		ASSERT_EQ(text_of_status(), before);
	}
}

} // namespace

} // namespace captive_portal::test
