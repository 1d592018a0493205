// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/completion.h"

#include "cpctl/command_tree.h"
#include "cpctl/manual.h"
#include "tests/unit/cpctl_test.h"

namespace cpctl::test
{

namespace
{

class CpctlCompletion : public CpctlTest
{
protected:
	// The words offered behind `words`, of which the last is being typed, without what they are.
	std::string offered(std::vector<std::string> words)
	{
		words.insert(words.begin(), "--complete");
		opened_path.clear();
		EXPECT_EQ(run(words), 0);
		EXPECT_EQ(opened_path, "");
		EXPECT_EQ(err, "");
		std::istringstream lines(out);
		std::string found;
		for (std::string line; std::getline(lines, line);) {
			found += found.empty() ? "" : " ";
			found += line.substr(0, line.find('\t'));
		}
		return found;
	}
};

TEST_F(CpctlCompletion, OffersObjectsAndCommandsWithTheirHelp)
{
	EXPECT_EQ(run({"--complete", "cl"}), 0);
	EXPECT_EQ(out, "client\tTables of client MAC addresses\n");
	EXPECT_EQ(offered({"gateway", ""}), "set show");
	EXPECT_EQ(offered({"interface", "owe", "f"}), "flush");
}

TEST_F(CpctlCompletion, OffersTablesAndInterfaces)
{
	EXPECT_EQ(offered({"client", "add", ""}),
		  "white auth login ga-white mac-auth-fallback mirel-white mirel-black");
	EXPECT_EQ(offered({"client", "flush", "p"}), "portal");
	EXPECT_EQ(offered({"client", "add", "login", ""}), "");
	EXPECT_EQ(offered({"client", "add", "login", "02:00:5e:10:00:01", "wlan-2-"}),
		  "wlan-2-1 wlan-2-2 wlan-2-3 wlan-2-4 wlan-2-5 wlan-2-6 wlan-2-7 wlan-2-8");
	EXPECT_EQ(offered({"client", "show", "login", "wlan-3-8"}), "wlan-3-8");
	EXPECT_EQ(offered({"interface", "owe", "map", "wlan-2-"}), "wlan-2-14 wlan-2-15 wlan-2-16");
}

TEST_F(CpctlCompletion, OffersGardensByWhatACommandTakes)
{
	EXPECT_EQ(offered({"garden", ""}), "add del replace default show check");
	EXPECT_EQ(offered({"garden", "default", ""}), "add del replace");
	EXPECT_EQ(offered({"mirel", "garden", ""}), "add del replace");
	EXPECT_EQ(offered({"garden", "add", "m"}), "mode-7 mirel");
	EXPECT_EQ(offered({"garden", "del", "wlan-3-8"}), "wlan-3-8");
	EXPECT_EQ(offered({"garden", "add", "d"}), "");
	EXPECT_EQ(offered({"garden", "check", "d"}), "default");
	EXPECT_EQ(offered({"garden", "show", "s"}), "special-mark social-login");
}

TEST_F(CpctlCompletion, OffersWordsOfFrames)
{
	EXPECT_EQ(run({"--complete", "explain", "d"}), 0);
	EXPECT_EQ(out, "dev\tthe bridge's port by which it comes\ndhcp\ta client looks for a server\n");
	EXPECT_EQ(offered({"explain", "dev", "wlan-3-"}),
		  "wlan-3-1 wlan-3-2 wlan-3-3 wlan-3-4 wlan-3-5 wlan-3-6 wlan-3-7 wlan-3-8");
	EXPECT_EQ(offered({"explain", "dev", "wlan-1-1", "from", ""}), "");
	EXPECT_EQ(offered({"explain", "dev", "wlan-1-1", "tcp", "192.0.2.1", "198.51.100.1", "s"}),
		  "sport syn syn-ack");
	EXPECT_EQ(offered({"explain", "arp", "then", "out", "wlan-1-1", "re"}), "reply");
	EXPECT_EQ(offered({"explain", "--pcap", ""}), ":files");
}

TEST_F(CpctlCompletion, OffersModesAndBehavioursOfSettings)
{
	EXPECT_EQ(offered({"interface", "set", "wlan-1-1", "mode", ""}), "off on internet-passes drop-tcp");
	EXPECT_EQ(offered({"interface", "set", "wlan-1-1", ""}),
		  "mode block-https logout garden cp-walled-garden disconnection");
	EXPECT_EQ(offered({"interface", "set", "wlan-1-1", "mode", "on", "b"}), "block-https");
	EXPECT_EQ(offered({"interface", "set", "wlan-1-1", "disconnection", "pass"}), "pass-all pass-dhcp");
	EXPECT_EQ(offered({"interface", "set", "wlan-1-1", "disconnection", "7", ""}), "connected disconnected");
	EXPECT_EQ(offered({"interface", "set", "wlan-1-1", "nonsense", ""}), "");
}

TEST_F(CpctlCompletion, OffersOptionsOfTheCommandAndOfThoseAboveIt)
{
	EXPECT_EQ(offered({"status", "--s"}), "--statistics");
	EXPECT_EQ(offered({"status", "--j"}), "--json");
	EXPECT_EQ(offered({"status", "--h"}), "--help");
	EXPECT_EQ(offered({"--device", ""}), ":files");
	EXPECT_EQ(offered({"--wait", "3", "gateway", "sh"}), "show");
}

TEST_F(CpctlCompletion, OffersNothingBehindTheLastWord)
{
	EXPECT_EQ(offered({"gateway", "show", ""}), "");
	EXPECT_EQ(offered({"debug", "1", ""}), "");
	EXPECT_EQ(offered({"nonsense", ""}), "");
	EXPECT_EQ(offered({"client", "add", "login", "02:00:5e:10:00:01", "wlan-1-1", ""}), "");
	EXPECT_EQ(offered({}), "");
}

TEST(CpctlListedWords, AreThoseThatADescriptionBeginsWith)
{
	using Words = std::vector<std::string>;
	EXPECT_EQ(listed_words("on or off"), (Words{"on", "off"}));
	EXPECT_EQ(listed_words("on, off, or show"), (Words{"on", "off", "show"}));
	EXPECT_EQ(listed_words("off, drop-tcp, or a number"), (Words{"off", "drop-tcp"}));
	EXPECT_EQ(listed_words("0 (nothing) to 3; the module starts with 1"), (Words{"0", "1", "2", "3"}));
	EXPECT_EQ(listed_words("wlan-1-14 to wlan-2-15, default or mirel"),
		  (Words{"wlan-1-14", "wlan-1-15", "wlan-2-14", "wlan-2-15", "default", "mirel"}));
	EXPECT_EQ(listed_words("Only lines about wlan-1-1 to wlan-1-2, or mirel"),
		  (Words{"wlan-1-1", "wlan-1-2", "mirel"}));
	EXPECT_EQ(listed_words("Seconds, 0 to 86400"), Words{});
	EXPECT_EQ(listed_words("white, or portal: the five tables, and others"), (Words{"white", "portal"}));
	EXPECT_EQ(listed_words("A.B.C.D, or none"), (Words{"none"}));
	EXPECT_EQ(listed_words("All interfaces when left out"), Words{});
	EXPECT_EQ(listed_words("Exact domain name; at most 24"), Words{});
	EXPECT_EQ(listed_words(""), Words{});
}

class CpctlManual : public CpctlTest
{
};

TEST_F(CpctlManual, TellsOptionsAndCommands)
{
	EXPECT_EQ(run({"--generate", "man"}), 0);
	EXPECT_EQ(out.find(".Sh OPTIONS\n"), 0U);
	for (const char *part : {
		     "\n.It Fl j , Fl \\-json\nAnswer in JSON.\n",
		     "\n.It Fl \\-wait Ar SECONDS\n",
		     "\n.Sh COMMANDS\n.Ss client\nTables of client MAC addresses.\n",
		     "\n.It Ic client add Ar TABLE Ar MAC Oo Ar IFACE Oc\nAdd a client to a table.\n",
		     "\n.It Ic status Oo Fl \\-statistics Oc\n",
		     "\n.It Ic garden replace Ar IFACE Ar SWITCH Oo Ar RULE ... Oc\n",
		     "\n.It Ic garden add Ar IFACE Ar RULE ...\n",
		     "\n.It Ic garden default del Ar NAME ...\n",
		     "\n.It Ic mirel garden add Ar RULE ...\n",
		     "\n.It Ic garden check Oo Ar IFACE Oc\n",
		     "\n  logout ADDRESS|none ",
	     }) {
		EXPECT_NE(out.find(part), std::string::npos) << part;
	}
	// What is below every command's help is told once, by hand.
	EXPECT_EQ(out.find("Exit codes"), std::string::npos);
}

TEST_F(CpctlManual, EndsSentencesAndBrackets)
{
	const Command upgrade{
		.name = "upgrade",
		.description = "Load another",
		.footer = "below all",
		.options = {{.names = {"-h", "--help"}, .value = "", .description = "Help"},
			    {.names = {"--old"}, .value = "FILE", .description = "Loaded again. As modinfo says"}},
		.parameters = {{.name = "MODULE", .description = ".ko", .required = true, .repeated = false}},
		.commands = {},
	};
	const Command top{.name = "cpctl",
			  .description = "",
			  .footer = "below all",
			  .options = {},
			  .parameters = {},
			  .commands = {upgrade}};
	EXPECT_EQ(manual_sections(top), ".Sh OPTIONS\n"
					"Options stand anywhere on the command line.\n"
					".Bl -tag -width Ds\n"
					".El\n"
					".Sh COMMANDS\n"
					".Ss upgrade\n"
					".Bl -tag -width Ds\n"
					".It Ic upgrade Oo Fl \\-old Ar FILE Oc Ar MODULE\n"
					"Load another.\n"
					".Bl -tag -width OWE_IFACE -compact\n"
					".It Ar MODULE\n"
					"\\&.ko.\n"
					".It Fl \\-old Ar FILE\n"
					"Loaded again.\n"
					"As modinfo says.\n"
					".El\n"
					".El\n");
}

TEST_F(CpctlManual, OtherFormatsAreNotKnown)
{
	expect_usage_failure({"--generate", "cookies"}, "an object or a command is missing");
	expect_usage_failure({"--generate"}, "an object or a command is missing");
}

} // namespace

} // namespace cpctl::test
