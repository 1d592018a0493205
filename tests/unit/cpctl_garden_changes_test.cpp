// SPDX-License-Identifier: GPL-2.0-only
// Single rules that come and go, against the module's own core.
#include "tests/unit/cpctl_core.h"

#include "garden/walled_garden.h"

namespace captive_portal::test
{

namespace
{

using Words = std::vector<std::string>;

class CpctlGardenChanges : public CpctlWithTheCore
{
protected:
	// Command 3 as a daemon sends it.
	void store(wg_set_command sub_command, int32_t row, uint32_t enable_value, const std::vector<wg_rule> &rules)
	{
		wg_cmd record = {};
		record.cmd = sub_command;
		record.iface = row;
		record.enable_value = enable_value;
		record.rule_number = static_cast<int32_t>(rules.size());
		std::ranges::copy(rules, record.rules);
		send(WALLED_GARDEN_IOCTL_SET, record);
	}
	static wg_rule domain(const char *pattern)
	{
		wg_rule rule = {};
		std::memcpy(rule.domain_name, pattern, std::strlen(pattern));
		return rule;
	}

	// A command line that is wrong: the device is not opened.
	void expect_usage_failure(const Words &words, const std::string &part)
	{
		openings = 0;
		EXPECT_EQ(run(words), 1);
		EXPECT_EQ(openings, 0);
		EXPECT_NE(err.find(part), std::string::npos) << err;
	}
};

TEST_F(CpctlGardenChanges, AddPutsRulesBehindThoseThatAreThere)
{
	(void)answer({"garden", "replace", "wlan-1-2", "on", "*.example.com"});
	EXPECT_EQ(answer({"garden", "add", "wlan-1-2", "10.1.2.0/24", "a.example"}), "");
	EXPECT_EQ(answer({"garden", "show", "wlan-1-2"}),
		  "wlan-1-2: garden on rules 3\n    *.example.com\n    10.1.2.0/24\n    a.example\n");
	EXPECT_EQ(answer({"garden", "show", "wlan-1-1"}), "wlan-1-1: garden off rules 0\n");
}

TEST_F(CpctlGardenChanges, DelTakesRulesAway)
{
	(void)answer({"garden", "replace", "wlan-3-8", "on", "a.example", "10.1.2.0/24", "b.example", "192.0.2.1"});
	EXPECT_EQ(answer({"garden", "del", "wlan-3-8", "192.0.2.1/32", "a.example"}), "");
	EXPECT_EQ(answer({"garden", "show", "wlan-3-8"}),
		  "wlan-3-8: garden on rules 2\n    10.1.2.0/24\n    b.example\n");
	EXPECT_EQ(answer({"garden", "del", "wlan-3-8", "10.1.2.77/24", "b.example"}), "");
	EXPECT_EQ(answer({"garden", "show", "wlan-3-8"}), "wlan-3-8: garden on rules 0\n");
}

TEST_F(CpctlGardenChanges, TheSwitchStaysAsItIs)
{
	for (const char *value : {"off", "on"}) {
		SCOPED_TRACE(value);
		const std::string head = std::string("wlan-1-1: garden ") + value + " rules ";
		(void)answer({"garden", "replace", "wlan-1-1", value});
		(void)answer({"garden", "add", "wlan-1-1", "a.example"});
		EXPECT_EQ(answer({"garden", "show", "wlan-1-1"}), head + "1\n    a.example\n");
		(void)answer({"garden", "del", "wlan-1-1", "a.example"});
		EXPECT_EQ(answer({"garden", "show", "wlan-1-1"}), head + "0\n");
	}
	(void)answer({"garden", "replace", "mode-7", "7"});
	(void)answer({"garden", "add", "mode-7", "a.example"});
	EXPECT_EQ(walled_garden_table[25].enable_value, 7U);
}

TEST_F(CpctlGardenChanges, AddOfWhatIsThereSaysSo)
{
	(void)answer({"garden", "replace", "wlan-1-1", "on", "a.example", "10.1.2.0/24"});
	calls.clear();
	EXPECT_EQ(run({"garden", "add", "wlan-1-1", "a.example", "10.1.2.9/24"}), 0);
	EXPECT_EQ(err, "cpctl: 'a.example' is among the rules of wlan-1-1 already\n"
		       "cpctl: '10.1.2.9/24' is among the rules of wlan-1-1 already\n");
	EXPECT_EQ(calls[3], 0U);
	// The others are added all the same, and a rule that is given twice once.
	EXPECT_EQ(run({"garden", "add", "wlan-1-1", "a.example", "b.example", "b.example"}), 0);
	EXPECT_EQ(err, "cpctl: 'a.example' is among the rules of wlan-1-1 already\n"
		       "cpctl: 'b.example' is among the rules of wlan-1-1 already\n");
	EXPECT_EQ(answer({"garden", "show", "wlan-1-1"}),
		  "wlan-1-1: garden on rules 3\n    a.example\n    10.1.2.0/24\n    b.example\n");
}

TEST_F(CpctlGardenChanges, DelOfWhatIsNotThereIsRefusedWhole)
{
	(void)answer({"garden", "replace", "wlan-1-1", "on", "a.example"});
	calls.clear();
	EXPECT_EQ(run({"garden", "del", "wlan-1-1", "a.example", "b.example"}), 2);
	EXPECT_EQ(err, "cpctl: 'b.example' is not among the rules of wlan-1-1: nothing was changed\n");
	EXPECT_EQ(calls[3], 0U);
	EXPECT_EQ(answer({"garden", "show", "wlan-1-1"}), "wlan-1-1: garden on rules 1\n    a.example\n");
}

TEST_F(CpctlGardenChanges, DelTakesARuleAsOftenAsADaemonStoredIt)
{
	store(UPDATE_RULE, 0, 1, {domain("a.example"), domain("b.example"), domain("a.example")});
	(void)answer({"garden", "del", "wlan-1-1", "a.example"});
	EXPECT_EQ(answer({"garden", "show", "wlan-1-1"}), "wlan-1-1: garden on rules 1\n    b.example\n");
}

TEST_F(CpctlGardenChanges, MoreThanTwentyFourAreRefusedWhole)
{
	Words words = {"garden", "replace", "wlan-1-1", "on"};
	for (int i = 1; i <= 23; i++) {
		words.push_back("h" + std::to_string(i) + ".example");
	}
	(void)answer(words);
	EXPECT_EQ(run({"garden", "add", "wlan-1-1", "a.example", "b.example"}), 2);
	EXPECT_EQ(err, "cpctl: the rules of wlan-1-1 are 23, and would be 25: the module takes 24 at most; nothing was "
		       "changed\n");
	EXPECT_EQ(answer({"garden", "show", "wlan-1-1"}).substr(0, 29), "wlan-1-1: garden on rules 23\n");
	(void)answer({"garden", "add", "wlan-1-1", "a.example"});
	EXPECT_EQ(answer({"garden", "show", "wlan-1-1"}).substr(0, 29), "wlan-1-1: garden on rules 24\n");
}

TEST_F(CpctlGardenChanges, MirelHasTheSame)
{
	EXPECT_EQ(answer({"mirel", "garden", "add", "a.example", "192.0.2.1"}), "");
	EXPECT_EQ(answer({"garden", "show", "mirel"}), "mirel: garden off rules 2\n    a.example\n    192.0.2.1\n");
	EXPECT_EQ(run({"mirel", "garden", "add", "a.example"}), 0);
	EXPECT_EQ(err, "cpctl: 'a.example' is among the rules of mirel already\n");
	EXPECT_EQ(answer({"mirel", "garden", "del", "a.example"}), "");
	EXPECT_EQ(run({"mirel", "garden", "del", "a.example"}), 2);
	EXPECT_EQ(err, "cpctl: 'a.example' is not among the rules of mirel: nothing was changed\n");
	EXPECT_EQ(answer({"garden", "add", "mirel", "b.example"}), "");
	EXPECT_EQ(answer({"garden", "show", "mirel"}), "mirel: garden off rules 2\n    192.0.2.1\n    b.example\n");
}

TEST_F(CpctlGardenChanges, DefaultNamesHaveTheSame)
{
	EXPECT_EQ(answer({"garden", "default", "add", "a.example", "b.example"}), "");
	EXPECT_EQ(run({"garden", "default", "add", "b.example"}), 0);
	EXPECT_EQ(err, "cpctl: 'b.example' is among the default rules already\n");
	// Names are compared letter by letter, which is warned of.
	EXPECT_EQ(run({"garden", "default", "add", "B.example"}), 0);
	EXPECT_EQ(answer({"garden", "show", "default"}),
		  "default: rules 3\n    a.example\n    b.example\n    B.example\n");
	EXPECT_EQ(answer({"garden", "default", "del", "b.example"}), "");
	EXPECT_EQ(run({"garden", "default", "del", "b.example"}), 2);
	EXPECT_EQ(err, "cpctl: 'b.example' is not among the default rules: nothing was changed\n");
	EXPECT_EQ(answer({"garden", "show", "default"}), "default: rules 2\n    a.example\n    B.example\n");
}

// The device tells the default names up to the first hole, and an address rule without its pattern.
TEST_F(CpctlGardenChanges, WhatTheDeviceDoesNotTellStays)
{
	wg_rule both = {.rule_type = 1, .ip_addr = 0x010200c0, .netmask = 0xffffffff, .domain_name = "both.example"};
	store(UPDATE_RULE, 0, 1, {both});
	(void)answer({"garden", "add", "wlan-1-1", "a.example"});
	EXPECT_EQ(machine.status_text("garden"),
		  "rule interface=wlan-1-1 type=1 address=192.0.2.1 netmask=255.255.255.255 pattern=both.example\n"
		  "rule interface=wlan-1-1 type=0 pattern=a.example\n");
	store(UPDATE_RULE, 0, 1, {});
	store(UPDATE_DEFAULT_RULE, 0, 0, {domain("a.example"), domain(""), domain("c.example")});
	EXPECT_EQ(answer({"garden", "show", "default"}), "default: rules 1\n    a.example\n");
	(void)answer({"garden", "default", "add", "d.example"});
	EXPECT_EQ(machine.status_text("garden"), "default-rule slot=0 name=a.example\n"
						 "default-rule slot=1 name=c.example\n"
						 "default-rule slot=2 name=d.example\n");
}

TEST_F(CpctlGardenChanges, ARuleThatCpctlDoesNotStoreStandsInTheWay)
{
	store(UPDATE_RULE, 0, 1, {domain("dot.example."), domain("a.example")});
	for (const char *command : {"add", "del"}) {
		SCOPED_TRACE(command);
		calls.clear();
		EXPECT_EQ(
			run({"garden", command, "wlan-1-1", command == std::string("add") ? "b.example" : "a.example"}),
			2);
		EXPECT_EQ(err,
			  "cpctl: nothing was changed: among the rules of wlan-1-1 is one that cpctl does not store "
			  "('dot.example.' would match nothing: leave the last dot out): replace them all\n");
		EXPECT_EQ(calls[3], 0U);
	}
}

TEST_F(CpctlGardenChanges, SaysWhenTheModuleHasNoMemoryForARule)
{
	(void)answer({"garden", "replace", "wlan-1-1", "on", "a.example"});
	// Before the second rule come two copies of the record and the first rule.
	machine.memory.fail_allocation(4);
	EXPECT_EQ(run({"garden", "add", "wlan-1-1", "b.example"}), 2);
	EXPECT_EQ(err, "cpctl: wlan-1-1: the module kept 1 of 2 rules: is the kernel out of memory? See dmesg\n");
}

// Nobody else can change the rules between the question and the answer.
TEST_F(CpctlGardenChanges, TheDeviceIsOpenFromTheQuestionOn)
{
	(void)answer({"garden", "add", "wlan-1-1", "a.example"});
	EXPECT_EQ(openings, 1);
	EXPECT_EQ(calls[7], 1U);
	EXPECT_EQ(calls[3], 1U);
}

TEST_F(CpctlGardenChanges, WordsAreCheckedBeforeTheDeviceIsOpened)
{
	for (const char *command : {"add", "del"}) {
		SCOPED_TRACE(command);
		expect_usage_failure({"garden", command, "wlan-1-9", "a.example"}, "no wireless interface");
		expect_usage_failure({"garden", command, "default", "a.example"}, "no wireless interface");
		expect_usage_failure({"garden", command, "wlan-1-1"}, "RULE is required");
		expect_usage_failure({"garden", command, "wlan-1-1", "10.0.0.0/33"}, "neither an address");
		expect_usage_failure({"garden", command, "wlan-1-1", "dot.example."}, "leave the last dot out");
		expect_usage_failure({"garden", command, "wlan-1-1", std::string(128, 'a')}, "128 characters");
		expect_usage_failure({"garden", "default", command}, "NAME is required");
		expect_usage_failure({"garden", "default", command, "*.example"}, "has a wildcard");
		expect_usage_failure({"garden", "default", command, "192.0.2.1"}, "is an address");
		expect_usage_failure({"mirel", "garden", command}, "RULE is required");
		Words too_many = {"garden", command, "wlan-1-1"};
		too_many.insert(too_many.end(), 25, "a.example");
		expect_usage_failure(too_many, "25 rules: the module takes 24 at most");
	}
}

// Words that are objects and commands of cpctl, too.
TEST_F(CpctlGardenChanges, AnyNameIsARule)
{
	(void)answer({"garden", "add", "wlan-1-1", "default", "show", "add", "client", "debug"});
	(void)answer({"garden", "del", "wlan-1-1", "default", "add"});
	(void)answer({"mirel", "garden", "add", "on"});
	(void)answer({"garden", "default", "add", "add", "del", "on"});
	EXPECT_EQ(answer({"garden", "show", "wlan-1-1"}),
		  "wlan-1-1: garden off rules 3\n    show\n    client\n    debug\n");
	EXPECT_EQ(answer({"garden", "show", "default"}), "default: rules 3\n    add\n    del\n    on\n");
	EXPECT_EQ(answer({"garden", "show", "mirel"}), "mirel: garden off rules 1\n    on\n");
}

TEST_F(CpctlGardenChanges, FilesOfCommandsAndConfigurationsHaveThem)
{
	standard_input = "garden replace wlan-1-1 on a.example\ngarden add wlan-1-1 b.example\n"
			 "garden del wlan-1-1 a.example\ngarden default add d.example\nmirel garden add m.example\n";
	EXPECT_EQ(run({"-b", "-"}), 0) << err;
	const std::string rules = "default-rule slot=0 name=d.example\n"
				  "rule interface=wlan-1-1 type=0 pattern=b.example\n"
				  "rule interface=mirel type=0 pattern=m.example\n";
	EXPECT_EQ(machine.status_text("garden"), rules);
	const std::string commands = standard_input;
	standard_input = "# configuration of the captive portal, format 1\n# end of configuration\n";
	EXPECT_EQ(run({"restore", "-"}), 0) << err;
	EXPECT_EQ(machine.status_text("garden"), "");
	standard_input = "# configuration of the captive portal, format 1\n" + commands + "# end of configuration\n";
	EXPECT_EQ(run({"restore", "-"}), 0) << err;
	EXPECT_EQ(machine.status_text("garden"), rules);
	// What the file itself does not have is not there to be deleted.
	standard_input = "# configuration of the captive portal, format 1\ngarden del wlan-1-1 b.example\n"
			 "# end of configuration\n";
	EXPECT_EQ(run({"restore", "-"}), 1);
	EXPECT_NE(err.find("standard input:2: 'b.example' is not among the rules of wlan-1-1"), std::string::npos)
		<< err;
	EXPECT_EQ(machine.status_text("garden"), rules);
}

TEST_F(CpctlGardenChanges, ShowTellsOfEveryRow)
{
	(void)answer({"garden", "replace", "mode-7", "on", "s.example"});
	EXPECT_EQ(answer({"garden", "show", "mode-7"}), "mode-7: garden on rules 1\n    s.example\n");
	EXPECT_EQ(answer({"garden", "show", "special-mark"}), "special-mark: garden off rules 0\n");
}

} // namespace

} // namespace captive_portal::test
