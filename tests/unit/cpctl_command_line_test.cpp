// SPDX-License-Identifier: GPL-2.0-only
#include "tests/unit/cpctl_test.h"

#include <cctype>
#include <set>

#include "cpctl/kernel_device.h"

namespace cpctl::test
{

namespace
{

using std::chrono::milliseconds;

class CpctlCommandLine : public CpctlTest
{
};

TEST_F(CpctlCommandLine, OpensTheModulesDeviceAndWaitsTwoSeconds)
{
	EXPECT_EQ(run({"gateway", "show"}), 0);
	EXPECT_EQ(opened_path, "/dev/CP_dev");
	EXPECT_EQ(opened_wait, milliseconds(2000));
}

TEST_F(CpctlCommandLine, TakesOptionsInFrontOfTheObjectAndBehindIt)
{
	EXPECT_EQ(run({"-d", "/dev/other", "--wait", "0.5", "gateway", "show"}), 0);
	EXPECT_EQ(opened_path, "/dev/other");
	EXPECT_EQ(opened_wait, milliseconds(500));
	EXPECT_EQ(run({"gateway", "show", "--device=/dev/third", "--wait=0"}), 0);
	EXPECT_EQ(opened_path, "/dev/third");
	EXPECT_EQ(opened_wait, milliseconds(0));
}

TEST_F(CpctlCommandLine, RefusesAWaitThatIsNone)
{
	for (const char *wait : {"-1", "nan", "inf", "86401", "soon"}) {
		expect_usage_failure({"--wait=" + std::string(wait), "gateway", "show"}, "--wait");
	}
}

TEST_F(CpctlCommandLine, SaysWhatIsMissing)
{
	expect_usage_failure({}, "an object or a command is missing or not known");
	expect_usage_failure({"nonsense"}, "an object or a command is missing or not known");
	expect_usage_failure({"client"}, "an object or a command is missing or not known");
	expect_usage_failure({"client", "add", "white"}, "MAC is required");
	expect_usage_failure({"gateway", "show", "192.0.2.1"}, "not expected: 192.0.2.1");
	expect_usage_failure({"gateway", "show", "--colour"}, "not expected: --colour");
}

// Every command and every object that there is, as the manual's maker is told of them.
std::set<std::vector<std::string>> words_of_manual(const std::string &sections)
{
	constexpr std::string_view item = ".It Ic ";
	std::set<std::vector<std::string>> found;
	std::istringstream lines(sections);
	for (std::string line; std::getline(lines, line);) {
		if (!line.starts_with(item)) {
			continue;
		}
		std::erase(line, '\\');
		std::istringstream rest(line.substr(item.size()));
		std::vector<std::string> words;
		// Options and parameters begin with a macro, which has a capital letter.
		for (std::string word; rest >> word && std::islower(static_cast<unsigned char>(word.front())) != 0;) {
			words.push_back(word);
			found.insert(words);
		}
	}
	return found;
}

TEST_F(CpctlCommandLine, HelpIsThereForEveryWordAndNeedsNoDevice)
{
	ASSERT_EQ(run({"--generate", "man"}), 0);
	std::set<std::vector<std::string>> commands = words_of_manual(out);
	for (const std::vector<std::string> &one : std::vector<std::vector<std::string>>{
		     {"client"}, {"dns-filter"}, {"explain"}, {"garden", "default", "add"}, {"interface", "owe"}}) {
		EXPECT_TRUE(commands.contains(one)) << one.back();
	}
	commands.insert(std::vector<std::string>{});
	for (std::vector<std::string> words : commands) {
		std::string name = "cpctl";
		for (const std::string &word : words) {
			name.append(" ").append(word);
		}
		SCOPED_TRACE(name);
		words.emplace_back("--help");
		EXPECT_EQ(run(words), 0);
		EXPECT_EQ(opened_path, "");
		EXPECT_EQ(err, "");
		EXPECT_NE(out.find("Usage: " + name + " "), std::string::npos) << out;
	}
}

TEST_F(CpctlCommandLine, HelpNamesSettingsAndExitCodes)
{
	EXPECT_EQ(run({"--help"}), 0);
	EXPECT_NE(out.find("Usage: cpctl [OPTIONS] OBJECT COMMAND"), std::string::npos);
	EXPECT_NE(out.find("Exit codes: 0 done, 1 wrong command line"), std::string::npos);
	EXPECT_EQ(run({"interface", "set", "--help"}), 0);
	for (const char *setting : {"mode ", "block-https ", "logout ", "garden ", "disconnection "}) {
		EXPECT_NE(out.find("\n  " + std::string(setting)), std::string::npos) << setting;
	}
}

TEST_F(CpctlCommandLine, VersionNeedsNoDevice)
{
	EXPECT_EQ(run({"-V"}), 0);
	EXPECT_EQ(out, "cpctl 0.1.0\n");
	EXPECT_EQ(opened_path, "");
}

TEST(CpctlWithoutTheModule, ExitsWith3)
{
	std::ostringstream out;
	std::ostringstream err;
	EXPECT_EQ(
		run_command_line({"-d", "/nonexistent/CP_dev", "gateway", "show"}, {open_kernel_device, {}}, out, err),
		ExitCode::unavailable);
	EXPECT_EQ(err.str(),
		  "cpctl: /nonexistent/CP_dev: there is no such device: load the module (modprobe captive_portal), "
		  "or name its file with -d\n");
}

// Any device whose driver does not know the command.
TEST(CpctlWithAnotherDevice, ExitsWith3)
{
	std::ostringstream out;
	std::ostringstream err;
	EXPECT_EQ(run_command_line({"-d", "/dev/null", "gateway", "show"}, {open_kernel_device, {}}, out, err),
		  ExitCode::unavailable);
	EXPECT_EQ(err.str(),
		  "cpctl: command 7 of the control device: not understood: is this the module's device? See -d\n");
}

} // namespace

} // namespace cpctl::test
