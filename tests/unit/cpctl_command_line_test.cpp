// SPDX-License-Identifier: GPL-2.0-only
#include "tests/unit/cpctl_test.h"

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

TEST_F(CpctlCommandLine, HelpIsThereForEveryWordAndNeedsNoDevice)
{
	const std::vector<std::vector<std::string>> commands = {
		{},
		{"client"},
		{"client", "add"},
		{"client", "del"},
		{"client", "show"},
		{"client", "check"},
		{"client", "flush"},
		{"interface"},
		{"interface", "set"},
		{"interface", "show"},
		{"interface", "owe"},
		{"interface", "owe", "map"},
		{"interface", "owe", "unmap"},
		{"interface", "owe", "show"},
		{"interface", "owe", "flush"},
		{"garden"},
		{"garden", "replace"},
		{"garden", "default"},
		{"garden", "default", "replace"},
		{"garden", "show"},
		{"mirel"},
		{"mirel", "mode"},
		{"mirel", "garden"},
		{"mirel", "garden", "replace"},
		{"gateway"},
		{"gateway", "set"},
		{"gateway", "show"},
		{"dns-filter"},
		{"debug"},
		{"cache"},
		{"cache", "show"},
		{"cache", "follow"},
		{"monitor"},
		{"check"},
		{"save"},
		{"restore"},
		{"upgrade"},
	};
	for (std::vector<std::string> words : commands) {
		std::string name = "cpctl";
		for (const std::string &word : words) {
			name += " " + word;
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
