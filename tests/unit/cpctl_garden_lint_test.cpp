// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/garden_lint.h"

#include <fstream>
#include <regex>
#include <set>

#include "cpctl/garden_rules.h"
#include "cpctl/portal_probes.h"
#include "garden/walled_garden.h"
#include "tests/unit/cpctl_core.h"

namespace captive_portal::test
{

namespace
{

using Words = std::vector<std::string>;
using cpctl::lint;
using cpctl::RuleWarning;

std::vector<RuleWarning> lint_of(const Words &texts)
{
	std::vector<wg_rule> rules;
	for (const std::string &text : texts) {
		rules.push_back(cpctl::parse_rule(text));
	}
	return lint(rules);
}

// Kinds and names, "kind name name", one a line.
std::string told(const Words &texts)
{
	std::string lines;
	for (const RuleWarning &warning : lint_of(texts)) {
		lines += warning.kind;
		for (const std::string &name : warning.names) {
			lines += " " + name;
		}
		lines += '\n';
	}
	return lines;
}

std::string text_of(const Words &texts)
{
	std::string lines;
	for (const RuleWarning &warning : lint_of(texts)) {
		lines += warning.text + '\n';
	}
	return lines;
}

TEST(CpctlGardenLint, SaysNothingOfRulesThatDoWhatTheySay)
{
	for (const Words &rules :
	     {Words{}, Words{"a.example", "*.example.com", "192.0.2.1", "198.51.100.0/24"},
	      Words{"a.example", "b.example"}, Words{"*.example.com", "example.com"}, Words{"cdn*.example.com"},
	      Words{"cdn-*.a.example.com", "*.s3.*.example.com"}, Words{"10.1.2.0/24", "10.1.3.0/24", "10.2.0.0/16"},
	      Words{"10.0.2.0/255.0.255.0", "10.0.0.0/255.0.0.255"}, Words{"xn--bcher-kva.example"},
	      Words{"localhost"}}) {
		EXPECT_EQ(text_of(rules), "");
	}
}

TEST(CpctlGardenLint, KnowsTheHostsThatSystemsAskForAPortal)
{
	EXPECT_EQ(told({"captive.apple.com"}), "opens-probe captive.apple.com\n");
	EXPECT_EQ(told({"*.apple.com"}), "opens-probe captive.apple.com www.apple.com gsp1.apple.com\n");
	EXPECT_EQ(told({"connectivitycheck.*"}).substr(0, 72),
		  "opens-probe connectivitycheck.gstatic.com connectivitycheck.android.com\n");
	EXPECT_EQ(told({"www.msftconnecttest.com", "detectportal.firefox.com", "nmcheck.gnome.org"}),
		  "opens-probe www.msftconnecttest.com\nopens-probe detectportal.firefox.com\n"
		  "opens-probe nmcheck.gnome.org\n");
	EXPECT_EQ(text_of({"*.gstatic.com"}), "'*.gstatic.com' opens connectivitycheck.gstatic.com (Android), "
					      "www.gstatic.com (ChromeOS): systems that "
					      "ask there whether there is a portal may find none\n");
	EXPECT_EQ(
		text_of({"*.google.com", "apple.com", "Captive.apple.com.example"}),
		"'*.google.com' opens www.google.com (Android), clients3.google.com (Android): systems that ask there "
		"whether there is a portal may find none\n"
		"'Captive.apple.com.example' has capital letters: the module compares letter by letter, and names are "
		"asked for in small ones\n");
}

TEST(CpctlGardenLint, TellsOfAFewHostsAndCountsTheOthers)
{
	const size_t hosts = cpctl::portal_probes().size();
	for (const char *rule : {"*", "?", "*?*"}) {
		const auto warnings = lint_of({rule});
		ASSERT_EQ(warnings.size(), 1U) << rule;
		EXPECT_EQ(warnings[0].kind, "opens-probe");
		EXPECT_EQ(warnings[0].names.size(), hosts);
		EXPECT_EQ(
			warnings[0].text,
			"'" + std::string(rule) +
				"' opens captive.apple.com (Apple), www.apple.com (Apple), gsp1.apple.com (Apple) and "
				"21 more such hosts: systems that ask there whether there is a portal may find none");
	}
}

TEST(CpctlGardenLint, TheRuleForEveryAddressOpensTheirHosts)
{
	for (const char *rule : {"0.0.0.0/0", "192.0.2.1/0"}) {
		const auto warnings = lint_of({rule});
		ASSERT_EQ(warnings.size(), 1U) << rule;
		EXPECT_EQ(warnings[0].kind, "opens-probe");
		EXPECT_EQ(warnings[0].names.size(), 24U);
	}
	EXPECT_EQ(text_of({"0.0.0.0/1"}), "");
	EXPECT_EQ(text_of({"0.0.0.0/0"}), "'0.0.0.0/0' opens every address, and so those of the hosts that systems ask "
					  "whether there is a portal: "
					  "they may find none\n");
}

TEST(CpctlGardenLint, ProbesAreNamesInSmallLettersEachOnce)
{
	std::set<std::string_view> hosts;
	for (const cpctl::PortalProbe &probe : cpctl::portal_probes()) {
		EXPECT_TRUE(hosts.insert(probe.host).second) << probe.host;
		EXPECT_EQ(probe.host.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789.-"), std::string::npos);
		EXPECT_FALSE(probe.system.empty());
	}
}

// The page's hosts are those whose answers the lab knows.
TEST(CpctlGardenLint, KnowsEachHostOfThePageAboutProbes)
{
	std::ifstream page(PROBES_PAGE);
	const std::regex row("^\\| .*`https?://([^/`]+)/");
	std::set<std::string> hosts;
	for (std::string line; std::getline(page, line);) {
		if (std::smatch found; std::regex_search(line, found, row)) {
			hosts.insert(found[1]);
		}
	}
	EXPECT_EQ(hosts.size(), 11U);
	for (const std::string &host : hosts) {
		EXPECT_TRUE(told({host}).starts_with("opens-probe " + host)) << host;
	}
}

TEST(CpctlGardenLint, AWildcardBeforeALabelOpensOtherDomains)
{
	EXPECT_EQ(told({"*example.com"}), "matches-more badexample.com\n");
	EXPECT_EQ(text_of({"*example.com"}),
		  "'*example.com' opens 'badexample.com', too: for what is below a name write "
		  "'*.example.com'\n");
	EXPECT_EQ(told({"*.example.com", "example.com"}), "");
}

TEST(CpctlGardenLint, AWildcardAtTheEndOpensWhateverIsThere)
{
	EXPECT_EQ(told({"shop.*"}), "matches-more shop.other.example\n");
	EXPECT_EQ(told({"example.com*"}), "matches-more example.com.other.example\n");
	EXPECT_EQ(told({"*.example.*"}), "matches-more a.example.other.example\n");
	EXPECT_EQ(told({"*cdn*"}), "matches-more acdn.other.example\n");
	EXPECT_EQ(text_of({"shop.*"}),
		  "'shop.*' opens 'shop.other.example', too, and so whatever domain anybody may own\n");
}

TEST(CpctlGardenLint, AQuestionMarkIsNotOneCharacter)
{
	EXPECT_EQ(told({"cdn?.example.com"}), "matches-more cdnx.y.example.com\n");
	EXPECT_EQ(text_of({"cdn?.example.com"}),
		  "'cdn?.example.com': \"?\" stands for any run of characters, not for one, and so opens "
		  "'cdnx.y.example.com', too\n");
}

TEST(CpctlGardenLint, TheLastPieceIsTakenWhereItComesFirst)
{
	EXPECT_EQ(told({"*.example"}), "matches-less a.examplex.example\n");
	EXPECT_EQ(told({"www.*.com"}),
		  "opens-probe www.apple.com www.appleiphonecell.com www.google.com www.gstatic.com "
		  "www.msftconnecttest.com www.msftncsi.com\n"
		  "matches-less www.a.comx.com\n");
	EXPECT_EQ(told({"*a*net"}), "matches-less aaa.netx.net\n");
	EXPECT_EQ(text_of({"*.example"}),
		  "'*.example' does not open 'a.examplex.example': the first '.example' of a name must "
		  "be its end, the module looks for no other\n");
	// Of several labels a name hardly has the piece twice.
	EXPECT_EQ(told({"*.co.example"}), "");
}

TEST(CpctlGardenLint, CapitalLettersMatchCapitalLetters)
{
	EXPECT_EQ(told({"*.Example.com"}), "letter-case\n");
	EXPECT_EQ(text_of({"WWW.example.com"}),
		  "'WWW.example.com' has capital letters: the module compares letter by letter, "
		  "and names are asked for in small ones\n");
}

TEST(CpctlGardenLint, WhatTheModuleKeepsShut)
{
	EXPECT_EQ(told({"social-login.example.com"}), "never-open\n");
	EXPECT_EQ(told({"2.2.2.2"}), "never-open\n");
	EXPECT_EQ(told({"2.2.2.0/24", "*.example.com"}), "");
	EXPECT_EQ(text_of({"social-login.example.com", "2.2.2.2"}),
		  "'social-login.example.com' opens nothing: the module keeps that host shut in every garden\n"
		  "'2.2.2.2' opens nothing: the module keeps that address for the social login\n");
}

TEST(CpctlGardenLint, DuplicatesAndRulesInsideOfOthers)
{
	EXPECT_EQ(text_of({"a.example", "10.1.2.0/24", "a.example", "10.1.2.9/24"}),
		  "'a.example' is there twice\n'10.1.2.9/24' opens the same as '10.1.2.0/24'\n");
	EXPECT_EQ(text_of({"10.1.2.0/24", "10.1.0.0/16", "10.1.9.1"}),
		  "'10.1.2.0/24' opens nothing that '10.1.0.0/16' does not\n"
		  "'10.1.9.1' opens nothing that '10.1.0.0/16' does not\n");
	EXPECT_EQ(text_of({"www.a.example.com", "*.example.com"}),
		  "'www.a.example.com' opens nothing that '*.example.com' does not\n");
	// The module's comparison says no: the first ".example" is not this name's end.
	EXPECT_EQ(told({"a.example.b.example", "*.example"}), "matches-less a.examplex.example\n");
	const auto warnings = lint_of({"*.apple.com", "*", "*.example.com", "192.0.2.1"});
	ASSERT_EQ(warnings.size(), 3U);
	EXPECT_EQ(warnings[0].text, "'*.apple.com' opens nothing that '*' does not");
	EXPECT_EQ(warnings[0].kind, "contained");
	EXPECT_EQ(warnings[0].rule, 0U);
	EXPECT_EQ(warnings[0].other, 1U);
	EXPECT_EQ(warnings[1].kind, "opens-probe");
	EXPECT_EQ(warnings[1].other, std::nullopt);
	EXPECT_EQ(warnings[2].rule, 2U);
	EXPECT_EQ(told({"*", "?"}).substr(0, 12), "opens-probe ");
	EXPECT_EQ(lint_of({"*", "?"}).size(), 2U);
	EXPECT_EQ(lint_of({"*", "?"})[1].kind, "contained");
}

TEST(CpctlGardenLint, RulesOfADaemonAreNoObstacle)
{
	wg_rule empty = {};
	EXPECT_TRUE(lint({empty, cpctl::parse_rule("*.example.com")}).empty());
	const wg_rule control = {.rule_type = 0, .ip_addr = 0, .netmask = 0, .domain_name = "*\x1b[2J.example"};
	ASSERT_EQ(lint({control}).size(), 2U);
	EXPECT_EQ(lint({control})[0].text.find('\x1b'), std::string::npos);
}

// ---- Against the module ---------------------------------------------------------------------------------------------------

class CpctlGardenCheck : public CpctlWithTheCore
{
};

// The names that a warning has are opened, or not, by the module itself.
TEST_F(CpctlGardenCheck, TheModuleAgrees)
{
	const Words rules = {"*.apple.com",         "*example.com", "www.*", "cdn?.example.com",
			     "connectivitycheck.*", "*.example",    "*a*net"};
	for (const std::string &rule : rules) {
		SCOPED_TRACE(rule);
		ASSERT_EQ(run({"garden", "replace", "wlan-1-1", "on", rule}), 0);
		const auto warnings = lint_of({rule});
		ASSERT_FALSE(warnings.empty());
		for (const RuleWarning &warning : warnings) {
			for (const std::string &name : warning.names) {
				const Text text = {name.data(), name.size()};
				EXPECT_EQ(match_garden_list(GardenQuery::domain, {}, &text, 0),
					  warning.kind != "matches-less")
					<< name;
			}
		}
	}
}

TEST_F(CpctlGardenCheck, ReplaceWarnsOfWhatItStored)
{
	EXPECT_EQ(run({"garden", "replace", "wlan-1-1", "on", "*.apple.com", "a.example", "a.example"}), 0);
	EXPECT_EQ(out, "");
	EXPECT_EQ(err,
		  "cpctl: warning: wlan-1-1: '*.apple.com' opens captive.apple.com (Apple), www.apple.com (Apple), "
		  "gsp1.apple.com (Apple): systems that ask there whether there is a portal may find none\n"
		  "cpctl: warning: wlan-1-1: 'a.example' is there twice\n");
	EXPECT_EQ(answer({"garden", "show", "wlan-1-1"}),
		  "wlan-1-1: garden on rules 3\n    *.apple.com\n    a.example\n    a.example\n");
	EXPECT_EQ(run({"garden", "default", "replace", "captive.apple.com"}), 0);
	EXPECT_EQ(err.substr(0, 41), "cpctl: warning: default: 'captive.apple.c");
	EXPECT_EQ(run({"mirel", "garden", "replace", "*example.com"}), 0);
	EXPECT_EQ(err.substr(0, 39), "cpctl: warning: mirel: '*example.com' o");
}

TEST_F(CpctlGardenCheck, AddWarnsOfWhatItAdded)
{
	(void)run({"garden", "replace", "wlan-1-1", "on", "*.apple.com", "10.1.2.0/24"});
	EXPECT_EQ(run({"garden", "add", "wlan-1-1", "b.example"}), 0);
	EXPECT_EQ(err, "");
	EXPECT_EQ(run({"garden", "add", "wlan-1-1", "10.1.0.0/16", "*example.com"}), 0);
	EXPECT_EQ(err, "cpctl: warning: wlan-1-1: '10.1.2.0/24' opens nothing that '10.1.0.0/16' does not\n"
		       "cpctl: warning: wlan-1-1: '*example.com' opens 'badexample.com', too: for what is below a name "
		       "write '*.example.com'\n");
	EXPECT_EQ(run({"garden", "del", "wlan-1-1", "10.1.0.0/16"}), 0);
	EXPECT_EQ(err, "");
}

TEST_F(CpctlGardenCheck, WhatWasNotStoredIsNotWarnedOf)
{
	machine.memory.fail_allocation(3);
	EXPECT_EQ(run({"garden", "replace", "wlan-1-1", "on", "*.apple.com"}), 2);
	EXPECT_EQ(err, "cpctl: wlan-1-1: the module kept 0 of 1 rules: is the kernel out of memory? See dmesg\n");
}

TEST_F(CpctlGardenCheck, CheckTellsOfOneGardenOrAll)
{
	EXPECT_EQ(answer({"garden", "check"}), "");
	(void)run({"garden", "replace", "wlan-1-1", "on", "*example.com"});
	(void)run({"garden", "replace", "social-login", "on", "Example.com"});
	(void)run({"garden", "default", "replace", "social-login.example.com"});
	(void)run({"mirel", "garden", "replace", "off", "2.2.2.2"});
	openings = 0;
	EXPECT_EQ(run({"garden", "check"}), 2);
	EXPECT_EQ(out,
		  "default: 'social-login.example.com' opens nothing: the module keeps that host shut in every garden\n"
		  "wlan-1-1: '*example.com' opens 'badexample.com', too: for what is below a name write "
		  "'*.example.com'\n"
		  "social-login: the module judges no frame by the rules of this row\n"
		  "social-login: 'Example.com' has capital letters: the module compares letter by letter, and names "
		  "are asked for in small ones\n"
		  "mirel: '2.2.2.2' opens nothing: the module keeps that address for the social login\n");
	EXPECT_EQ(err, "cpctl: 5 warnings: garden del takes a rule away, garden replace writes all of a garden anew\n");
	EXPECT_EQ(run({"garden", "check", "mirel"}), 2);
	EXPECT_EQ(out, "mirel: '2.2.2.2' opens nothing: the module keeps that address for the social login\n");
	EXPECT_EQ(err, "cpctl: 1 warning: garden del takes a rule away, garden replace writes all of a garden anew\n");
	EXPECT_EQ(run({"garden", "check", "default"}), 2);
	EXPECT_EQ(run({"garden", "check", "wlan-1-1"}), 2);
	EXPECT_EQ(answer({"garden", "check", "wlan-1-2"}), "");
	EXPECT_EQ(openings, 0);
	EXPECT_EQ(run({"garden", "check", "wlan-1-9"}), 1);
}

TEST_F(CpctlGardenCheck, RulesThatDefaultNamesMakeNeedlessAreToldOf)
{
	const std::string told =
		"wlan-1-1: 'a.example' is among the default names, which are open in every garden that is on\n";
	(void)answer({"garden", "default", "replace", "a.example", "b.example"});
	EXPECT_EQ(run({"garden", "replace", "wlan-1-1", "on", "a.example", "*.a.example", "c.example"}), 0);
	EXPECT_EQ(err, "cpctl: warning: " + told);
	// Told once, and of what was added alone.
	EXPECT_EQ(run({"garden", "add", "wlan-1-1", "b.example", "198.51.100.7"}), 0);
	EXPECT_EQ(err,
		  "cpctl: warning: wlan-1-1: 'b.example' is among the default names, which are open in every garden "
		  "that is on\n");
	EXPECT_EQ(run({"garden", "del", "wlan-1-1", "b.example"}), 0);
	EXPECT_EQ(err, "");
	EXPECT_EQ(run({"garden", "check", "wlan-1-1"}), 2);
	EXPECT_EQ(out, told);
	EXPECT_EQ(answer({"garden", "check", "default"}), "");
	// Another rule of the list comes before them.
	EXPECT_EQ(run({"garden", "replace", "wlan-1-1", "on", "a.example", "?.example"}), 0);
	EXPECT_EQ(err.substr(0, 55), "cpctl: warning: wlan-1-1: 'a.example' opens nothing tha");
	// The module opens it by the default names alone.
	(void)run({"garden", "replace", "wlan-1-1", "on"});
	const Text name = {"a.example", 9};
	EXPECT_TRUE(match_garden_list(GardenQuery::domain, {}, &name, 0));
}

TEST_F(CpctlGardenCheck, RulesThatAreNotAskedAreToldOf)
{
	const std::string told =
		"cpctl: warning: wlan-1-1: the rules of mode-7 hold in the place of these while the interface is "
		"in mode internet-passes\n";
	(void)answer({"interface", "set", "wlan-1-1", "mode", "internet-passes", "garden", "on"});
	EXPECT_EQ(answer({"garden", "replace", "wlan-1-1", "on"}), "");
	EXPECT_EQ(run({"garden", "show", "wlan-1-1"}), 0);
	EXPECT_EQ(out, "wlan-1-1: garden on rules 0\n");
	EXPECT_EQ(err, told);
	EXPECT_EQ(answer({"garden", "check", "wlan-1-1"}), "");
	EXPECT_EQ(run({"garden", "replace", "wlan-1-1", "on", "10.9.0.0/16"}), 0);
	EXPECT_EQ(err, told);
	EXPECT_EQ(run({"garden", "add", "wlan-1-1", "a.example"}), 0);
	EXPECT_EQ(err, told);
	EXPECT_EQ(run({"garden", "check", "wlan-1-1"}), 2);
	EXPECT_EQ(out, told.substr(16));
	// Neither the rules that hold, nor those of other interfaces, nor in another mode.
	EXPECT_EQ(answer({"garden", "replace", "mode-7", "on", "10.9.0.0/16"}), "");
	EXPECT_EQ(answer({"garden", "show", "mode-7"}), "mode-7: garden on rules 1\n    10.9.0.0/16\n");
	EXPECT_EQ(answer({"garden", "replace", "wlan-1-2", "on", "10.9.0.0/16"}), "");
	(void)answer({"mirel", "mode", "internet-passes"});
	EXPECT_EQ(answer({"mirel", "garden", "replace", "10.9.0.0/16"}), "");
	EXPECT_EQ(answer({"garden", "show", "mirel"}), "mirel: garden on rules 1\n    10.9.0.0/16\n");
	(void)answer({"interface", "set", "wlan-1-1", "mode", "on"});
	EXPECT_EQ(answer({"garden", "check"}), "");
	EXPECT_EQ(answer({"garden", "show", "wlan-1-1"}),
		  "wlan-1-1: garden on rules 2\n    10.9.0.0/16\n    a.example\n");

	EXPECT_EQ(run({"garden", "add", "special-mark", "a.example"}), 0);
	EXPECT_EQ(err, "cpctl: warning: special-mark: the module judges no frame by the rules of this row\n");
	EXPECT_EQ(answer({"garden", "replace", "special-mark", "off"}), "");
}

// The file was warned of when it was made; a machine that starts says nothing each time.
TEST_F(CpctlGardenCheck, RestoreDoesNotWarn)
{
	standard_input = "# configuration of the captive portal, format 1\ngarden replace wlan-1-1 on '*.apple.com'\n"
			 "# end of configuration\n";
	EXPECT_EQ(run({"restore", "-"}), 0);
	EXPECT_EQ(err, "");
	standard_input = "garden replace wlan-1-1 on '*example.com'\n";
	EXPECT_EQ(run({"-b", "-"}), 0);
	EXPECT_EQ(err.substr(0, 25), "cpctl: warning: wlan-1-1:");
	// A file of commands is checked like any other command; a configuration sets.
	standard_input = "garden check\n";
	EXPECT_EQ(run({"-b", "-"}), 2);
	standard_input = "# configuration of the captive portal, format 1\ngarden check\n# end of configuration\n";
	EXPECT_EQ(run({"restore", "-"}), 1);
}

} // namespace

} // namespace captive_portal::test
