// SPDX-License-Identifier: GPL-2.0-only
// Files of commands that run with one opening of the device, against the module's own core.
#include "tests/unit/cpctl_core.h"

#include "cpctl/command_words.h"
#include "gatekeeper/client_tables.h"

namespace captive_portal::test
{

namespace
{

using Words = std::vector<std::string>;

class CpctlBatch : public CpctlWithTheCore
{
protected:
	int batch(const std::string &text, const Words &options = {})
	{
		standard_input = text;
		Words words = options;
		words.insert(words.end(), {"-b", "-"});
		return run(words);
	}
	size_t lines_of(const char *file)
	{
		const std::string text = machine.status_text(file);
		return static_cast<size_t>(std::ranges::count(text, '\n'));
	}
};

TEST_F(CpctlBatch, RunsEveryCommandWithOneOpening)
{
	EXPECT_EQ(batch("# two settings and a question\n"
			"interface set wlan-1-1 mode on\n\n"
			"garden replace wlan-1-1 on '*.example.com' # open\n"
			"client add login 02:00:5e:10:00:01 wlan-1-1\n"
			"garden show wlan-1-1\n"),
		  0)
		<< err;
	EXPECT_EQ(out, "wlan-1-1: garden on rules 1\n    *.example.com\n");
	EXPECT_EQ(err, "");
	EXPECT_EQ(openings, 1);
	EXPECT_EQ(lines_of("clients"), 1U);
}

TEST_F(CpctlBatch, TakesAFileToo)
{
	const std::string file = file_with("gateway set 192.0.2.254\ngateway show");
	EXPECT_EQ(answer({"--batch", file}), "gateway 192.0.2.254\n");
	EXPECT_EQ(answer({"-b" + file}), "gateway 192.0.2.254\n");
	EXPECT_EQ(run({"-b", file + ".not"}), 3);
	EXPECT_EQ(err, "cpctl: " + file +
			       ".not cannot be read: No such file or directory: name a file of commands "
			       "that you may read, or - for standard input\n");
	EXPECT_EQ(answer({"-b", file_with("# nothing\n\n")}), "");
}

TEST_F(CpctlBatch, RefusesWhatTheModuleNeverReads)
{
	EXPECT_EQ(batch("gateway set 192.0.2.254\ninterface set mode-7 block-https block\n"), 1);
	EXPECT_EQ(err, "cpctl: standard input:2: mode-7: the module reads no block-https of this row: set that of an "
		       "interface, wlan-1-1 to wlan-3-8\ncpctl: nothing was changed\n");
	EXPECT_EQ(openings, 0);
	EXPECT_EQ(batch("interface set mirel mode on garden on\ninterface set mode-7 cp-walled-garden on\n"), 0) << err;
}

TEST_F(CpctlBatch, ChecksAllLinesBeforeTheFirstRuns)
{
	EXPECT_EQ(batch("gateway set 192.0.2.254\n"
			"client add login 02:00:5e:10:00:0z wlan-1-1\n"
			"interface set wlan-1-9 mode on\n"
			"-j status\n--help\nupgrade x\nnonsense\n-b other\n"),
		  1);
	EXPECT_EQ(err,
		  "cpctl: standard input:2: '02:00:5e:10:00:0z' is no MAC address: write 02:00:5e:10:00:01\n"
		  "cpctl: standard input:3: 'wlan-1-9' is no wireless interface: they are wlan-1-1 to wlan-3-8 "
		  "(radio 1 to 3, virtual access point 1 to 8)\n"
		  "cpctl: standard input:4: options of cpctl itself go on its command line, not into a file\n"
		  "cpctl: standard input:5: help and version go on the command line\n"
		  "cpctl: standard input:6: this command cannot be one of a file\n"
		  "cpctl: standard input:7: an object or a command is missing or not known: see --help, also after an "
		  "object or a command\n"
		  "cpctl: standard input:8: options of cpctl itself go on its command line, not into a file\n"
		  "cpctl: nothing was changed\n");
	EXPECT_EQ(openings, 0);
}

TEST_F(CpctlBatch, TellsTwentyMistakesAndHowManyMore)
{
	std::string text;
	for (int line = 0; line < 25; line++) {
		text += "nonsense\n";
	}
	EXPECT_EQ(batch(text), 1);
	EXPECT_NE(err.find("standard input:20: "), std::string::npos);
	EXPECT_EQ(err.find("standard input:21: "), std::string::npos);
	EXPECT_NE(err.find("cpctl: and 5 more mistakes\ncpctl: nothing was changed\n"), std::string::npos) << err;
}

TEST_F(CpctlBatch, GoesAloneOnTheCommandLine)
{
	EXPECT_EQ(run({"-b", file_with("gateway set 192.0.2.1\n"), "gateway", "show"}), 1);
	EXPECT_EQ(err, "cpctl: --batch takes its commands from the file alone: leave the others out\n");
	EXPECT_EQ(run({"--force", "gateway", "show"}), 1);
	EXPECT_EQ(err, "cpctl: --force is for --batch and upgrade\n");
	EXPECT_EQ(run({"-j", "-b", "x"}), 1);
	EXPECT_EQ(run({}), 1);
	EXPECT_EQ(openings, 0);
}

TEST_F(CpctlBatch, StopsAtTheFirstFailureAndSaysWhere)
{
	const std::string text = "gateway set 192.0.2.1\nclient check login 02:00:5e:10:00:01 wlan-1-1\n"
				 "gateway set 192.0.2.2\ngateway set 192.0.2.3\n";
	EXPECT_EQ(batch(text), 2);
	EXPECT_EQ(err, "cpctl: standard input:2: 02:00:5e:10:00:01 is not in login of wlan-1-1\n"
		       "cpctl: stopped there: 2 of 4 commands were not tried, the first of them at standard input:3\n");
	EXPECT_EQ(answer({"gateway", "show"}), "gateway 192.0.2.1\n");
	EXPECT_EQ(batch(text, {"--force"}), 2);
	EXPECT_EQ(err, "cpctl: standard input:2: 02:00:5e:10:00:01 is not in login of wlan-1-1\n"
		       "cpctl: 1 of 4 commands failed; the others were run\n");
	EXPECT_EQ(answer({"gateway", "show"}), "gateway 192.0.2.3\n");
	EXPECT_EQ(batch("gateway show\nclient check login 02:00:5e:10:00:01 wlan-1-1\n"), 2);
	EXPECT_NE(err.find("\ncpctl: it was the last command\n"), std::string::npos) << err;
}

TEST_F(CpctlBatch, ClientsOnTheirListsGetNoSecondEntry)
{
	const std::string text =
		"client add login 02:00:5e:10:00:01 wlan-1-1\nclient add auth 02:00:5e:10:00:01 wlan-1-1\n"
		"client add login 02:00:5e:10:00:01 wlan-1-1\n";
	EXPECT_EQ(batch(text), 0);
	EXPECT_EQ(err, "cpctl: 1 client was listed already: no second entry made\n");
	EXPECT_EQ(batch(text), 0);
	EXPECT_EQ(err, "cpctl: 3 clients were listed already: no second entry made\n");
	EXPECT_EQ(lines_of("clients"), 2U);
}

TEST_F(CpctlBatch, ClientsLeaveWithAllTheirEntries)
{
	gk_cmd client = {};
	client.cmd = ADD_AUTH_MAC;
	std::strcpy(client.iface, "wlan-1-1");
	std::memcpy(client.mac, "\x02\x00\x5e\x10\x00\x01", 6);
	send(GATEKEEPER_IOCTL_SET, client);
	send(GATEKEEPER_IOCTL_SET, client);
	EXPECT_EQ(batch("client del auth 02:00:5e:10:00:01 wlan-1-1\n"), 0) << err;
	EXPECT_EQ(lines_of("clients"), 0U);
	EXPECT_EQ(batch("client add auth 02:00:5e:10:00:02 wlan-1-1\nclient del auth 02:00:5e:10:00:01 wlan-1-1\n"
			"client add auth 02:00:5e:10:00:03 wlan-1-1\n"),
		  2);
	EXPECT_EQ(err, "cpctl: standard input:2: 02:00:5e:10:00:01 is not in auth of wlan-1-1: nothing to delete\n"
		       "cpctl: stopped there: 1 of 3 commands were not tried, the first of them at standard input:3\n");
	EXPECT_EQ(lines_of("clients"), 1U);
}

TEST_F(CpctlBatch, MirelListsTakeFromEachOtherAsTheyDoInSingleCommands)
{
	EXPECT_EQ(batch("client add mirel-black 02:00:5e:10:00:01\nclient add mirel-white 02:00:5e:10:00:01\n"), 0);
	EXPECT_EQ(machine.status_text("clients"), "client table=mirel-white mac=02:00:5e:10:00:01\n");
	EXPECT_EQ(batch("client add mirel-black 02:00:5e:10:00:01\nclient add mirel-white 02:00:5e:10:00:01\n"), 0);
	EXPECT_EQ(machine.status_text("clients"), "client table=mirel-white mac=02:00:5e:10:00:01\n");
	EXPECT_EQ(batch("client add mirel-black 02:00:5e:10:00:01\nclient del mirel-white 02:00:5e:10:00:01\n"), 0);
	EXPECT_EQ(err, "");
	EXPECT_EQ(machine.status_text("clients"), "");
}

TEST_F(CpctlBatch, AClientThatTheModuleDroppedIsFound)
{
	// For each client a copy of the record, then the entry.
	machine.memory.fail_allocation(4);
	EXPECT_EQ(batch("client add login 02:00:5e:10:00:01 wlan-1-1\nclient add login 02:00:5e:10:00:02 wlan-1-1\n"
			"client add login 02:00:5e:10:00:03 wlan-1-1\ngateway set 192.0.2.1\n"),
		  2);
	EXPECT_EQ(err,
		  "cpctl: standard input:2: 02:00:5e:10:00:02 is not in login of wlan-1-1 though the module took the "
		  "command: see the kernel log (dmesg)\n"
		  "cpctl: stopped there: 1 of 4 commands were not tried, the first of them at standard input:4\n");
	EXPECT_EQ(lines_of("clients"), 2U);
}

TEST_F(CpctlBatch, AClientBetweenOtherCommandsThatTheModuleDroppedIsFound)
{
	machine.memory.fail_allocation(3);
	EXPECT_EQ(batch("gateway set 192.0.2.1\nclient add login 02:00:5e:10:00:01 wlan-1-1\ngateway set 192.0.2.2\n"),
		  2);
	EXPECT_EQ(err,
		  "cpctl: standard input:2: 02:00:5e:10:00:01 is not in login of wlan-1-1 though the module took the "
		  "command: see the kernel log (dmesg)\n"
		  "cpctl: stopped there: 1 of 3 commands were not tried, the first of them at standard input:3\n");
	EXPECT_EQ(lines_of("clients"), 0U);
}

// Whoever may open the device need not be allowed to read the status files.
TEST_F(CpctlBatch, OnlyClientsNextToOneAnotherNeedTheStatusFile)
{
	status_files_are_readable = false;
	EXPECT_EQ(batch("client add login 02:00:5e:10:00:01 wlan-1-1\n"), 0);
	EXPECT_EQ(err, "");
	EXPECT_EQ(batch("client del login 02:00:5e:10:00:01 wlan-1-1\ngateway set 192.0.2.1\n"), 0);
	EXPECT_EQ(err, "");
	EXPECT_EQ(batch("client add login 02:00:5e:10:00:01 wlan-1-1\nclient add login 02:00:5e:10:00:02 wlan-1-1\n"),
		  3);
	EXPECT_EQ(err, "cpctl: from standard input:1 on: clients: permission denied\n");
	EXPECT_EQ(lines_of("clients"), 0U);
}

TEST_F(CpctlBatch, ManyClientsNeedOneCallEach)
{
	constexpr size_t clients = 2000;
	std::string text;
	for (size_t client = 0; client < clients; client++) {
		char line[64];
		(void)std::snprintf(line, sizeof(line), "client add login 02:00:5e:10:%02x:%02x wlan-%zu-%zu\n",
				    static_cast<unsigned>(client >> 8 & 0xff), static_cast<unsigned>(client & 0xff),
				    client % 3 + 1, client % 8 + 1);
		text += line;
	}
	ASSERT_EQ(batch(text), 0) << err;
	EXPECT_EQ(calls[GATEKEEPER_IOCTL_SET], clients);
	EXPECT_EQ(calls[GATEKEEPER_IOCTL_GET] + calls[GATEKEEPER_IOCTL_CHECK], 0U);
	// Before the first and after the last.
	EXPECT_EQ(status_reads["clients"], 2U);
	EXPECT_EQ(openings, 1);
	EXPECT_EQ(lines_of("clients"), clients);
}

// Their own lists tell enough; the file has the clients of all.
TEST_F(CpctlBatch, AClientBetweenOtherCommandsReadsNoStatusFile)
{
	EXPECT_EQ(batch("client add login 02:00:5e:10:00:01 wlan-1-1\ngateway set 192.0.2.1\n"
			"client add login 02:00:5e:10:00:02 wlan-1-1\ngateway set 192.0.2.2\n"
			"client del login 02:00:5e:10:00:01 wlan-1-1\n"),
		  0)
		<< err;
	EXPECT_EQ(status_reads["clients"], 0U);
	EXPECT_EQ(machine.status_text("clients"), "client table=login mac=02:00:5e:10:00:02 interface=wlan-1-1\n");
}

// Lines of clients are read without the parser of the command line.
TEST_F(CpctlBatch, ReadsClientsAsTheCommandLineDoes)
{
	for (const char *const line :
	     {"client add login 02:00:5e:10:00:01 wlan-1-1", "client add mirel-black 02-00-5E-10-00-01",
	      "client add mirel-white 02:00:5e:10:00:01 ''", "client add auth 02:00:5e:10:00:01 wlan-3-8 ",
	      "client add 'ga-white' 02:00:5e:10:00:01 wlan-2-4"}) {
		SCOPED_TRACE(line);
		std::istringstream text(line);
		ASSERT_EQ(run(cpctl::read_command_words(text, "line").at(0).words), 0) << err;
		const std::string stored = machine.status_text("clients");
		ASSERT_EQ(lines_of("clients"), 1U);
		std::string deletion = line;
		deletion.replace(0, std::strlen("client add"), "client del");
		ASSERT_EQ(batch(deletion), 0) << err;
		ASSERT_EQ(lines_of("clients"), 0U);
		EXPECT_EQ(batch(line), 0) << err;
		EXPECT_EQ(machine.status_text("clients"), stored);
		ASSERT_EQ(batch(deletion), 0) << err;
	}
	for (const char *const line :
	     {"client add login 02:00:5e:10:00:01", "client add login", "client add login 02:00:5e:10:00:01 wlan-1-9",
	      "client add login 02:00:5e:10:00:01 wlan-1-1 wlan-1-2", "client add logins 02:00:5e:10:00:01 wlan-1-1",
	      "client add login 02:00:5e:10:00 wlan-1-1", "client add login 03:00:5e:10:00:01 wlan-1-1",
	      "client add mirel-white 02:00:5e:10:00:01 wlan-1-1", "client adds login 02:00:5e:10:00:01 wlan-1-1",
	      "client add login 02:00:5e:10:00:01 --nothing", "client del '[login]' 02:00:5e:10:00:01 wlan-1-1"}) {
		SCOPED_TRACE(line);
		std::istringstream text(line);
		ASSERT_EQ(run(cpctl::read_command_words(text, "line").at(0).words), 1);
		const std::string mistake = err.substr(std::strlen("cpctl: "));
		EXPECT_EQ(batch(line), 1);
		EXPECT_EQ(err, "cpctl: standard input:1: " + mistake + "cpctl: nothing was changed\n");
	}
	EXPECT_EQ(lines_of("clients"), 0U);
}

TEST_F(CpctlBatch, SaysHowFarItHasComeAfterASecondOnATerminal)
{
	std::string text;
	for (int line = 0; line < 40; line++) {
		text += "gateway set 192.0.2." + std::to_string(line) + "\n";
	}
	int looks = 0;
	surroundings.now = [&looks] { return cpctl::Clock::time_point(std::chrono::milliseconds(900 * looks++)); };
	EXPECT_EQ(batch(text), 0);
	EXPECT_EQ(err, "");
	surroundings.err_is_terminal = true;
	looks = 0;
	EXPECT_EQ(batch(text), 0);
	EXPECT_EQ(err, "\rcpctl: 32 of 40\r\x1b[K");
}

} // namespace

} // namespace captive_portal::test
