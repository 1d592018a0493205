// SPDX-License-Identifier: GPL-2.0-only
// cpctl monitor over a log that the test wrote, and the records of the kernel's own.
#include <cstdio>
#include <deque>
#include <fstream>

#include <nlohmann/json.hpp>

#include "cpctl/kernel_log.h"
#include "tests/unit/cpctl_test.h"

namespace cpctl::test
{

namespace
{

using std::chrono::microseconds;
using std::chrono::milliseconds;

struct LogTurn {
	KernelLogEvent event;
	KernelLogRecord record = {};
};

// Gives what the test has put there; then the user wants an end.
class FakeLog : public KernelLog
{
public:
	FakeLog(std::deque<LogTurn> &turns, Clock::time_point &now) : turns_(turns), now_(now) {}

	KernelLogEvent next(KernelLogRecord &record, milliseconds longest) override
	{
		if (turns_.empty()) {
			return KernelLogEvent::interrupted;
		}
		const LogTurn turn = turns_.front();
		turns_.pop_front();
		if (turn.event == KernelLogEvent::quiet) {
			now_ += longest;
		}
		record = turn.record;
		return turn.event;
	}

private:
	std::deque<LogTurn> &turns_;
	Clock::time_point &now_;
};

class CpctlMonitor : public ::testing::Test
{
protected:
	int run(const std::vector<std::string> &words)
	{
		std::ostringstream out_stream;
		std::ostringstream err_stream;
		std::istringstream in_stream(standard_input);
		Surroundings surroundings;
		surroundings.in = &in_stream;
		surroundings.now = [this] { return now; };
		surroundings.kernel_log = [this](KernelLogStart asked) {
			start = asked;
			return std::make_unique<FakeLog>(turns, now);
		};
		const ExitCode code = run_command_line(words, {{}, {}, surroundings}, out_stream, err_stream);
		out = out_stream.str();
		err = err_stream.str();
		return static_cast<int>(code);
	}
	void line(const std::string &text, int level = 7, int facility = 0)
	{
		turns.push_back({KernelLogEvent::record,
				 {.level = level,
				  .facility = facility,
				  .sequence = 339,
				  .since_boot = microseconds(12000345),
				  .text = text}});
	}
	void quiet() { turns.push_back({KernelLogEvent::quiet}); }

	std::deque<LogTurn> turns;
	Clock::time_point now;
	KernelLogStart start = KernelLogStart::at_its_begin;
	std::string standard_input;
	std::string out;
	std::string err;
};

TEST_F(CpctlMonitor, SaysTheModulesLines)
{
	line("captive_portal_init");
	line("br0: port 1(wlan-1-1) entered forwarding state", 6);
	line("[walled garden] rule_number 25 out of range", 3);
	ASSERT_EQ(run({"monitor"}), 0) << err;
	EXPECT_EQ(start, KernelLogStart::now);
	EXPECT_EQ(out, "[   12.000345] the module starts\n"
		       "[   12.000345] a command was refused: 25 rules are more than a record can hold\n");
	EXPECT_EQ(err, "");
}

TEST_F(CpctlMonitor, LeavesOutWhatProgramsWriteInTheModulesWords)
{
	line("captive_portal_init", 7, 1);
	ASSERT_EQ(run({"monitor"}), 0);
	EXPECT_EQ(out, "");
}

TEST_F(CpctlMonitor, TellsOfLostLines)
{
	turns.push_back({KernelLogEvent::lost});
	ASSERT_EQ(run({"monitor"}), 0);
	EXPECT_EQ(out, "lines are lost: the kernel log wrapped before they were read\n");
	turns.push_back({KernelLogEvent::lost});
	ASSERT_EQ(run({"-j", "monitor"}), 0);
	EXPECT_EQ(nlohmann::json::parse(out)["event"], "lost");
}

TEST_F(CpctlMonitor, AnswersInJsonALineEach)
{
	line("nf_cp_check: match walled garden, if_index=0 daddr=203.0.113.10");
	line("captive_portal_exit");
	ASSERT_EQ(run({"-j", "monitor"}), 0);
	EXPECT_EQ(std::ranges::count(out, '\n'), 2);
	EXPECT_EQ(out.substr(0, out.find('\n')),
		  R"({"event":"garden-passed","microseconds":12000345,"sequence":339,"level":7,)"
		  R"("sentence":"wlan-1-1: passed to 203.0.113.10, which is in the walled garden",)"
		  R"("fields":{"interface":"wlan-1-1","destination":"203.0.113.10"},)"
		  R"("line":"nf_cp_check: match walled garden, if_index=0 daddr=203.0.113.10"})");
}

TEST_F(CpctlMonitor, EndsWhereItsLimitsAre)
{
	for (int i = 0; i < 5; ++i) {
		line("captive_portal_init");
	}
	ASSERT_EQ(run({"monitor", "--count", "2"}), 0);
	EXPECT_EQ(std::ranges::count(out, '\n'), 2);
	turns.clear();
	quiet();
	quiet();
	quiet();
	line("captive_portal_init");
	ASSERT_EQ(run({"monitor", "--seconds", "2.5"}), 0);
	EXPECT_EQ(out, "") << "what came behind the end";
	EXPECT_EQ(now.time_since_epoch(), milliseconds(2500));
	EXPECT_EQ(turns.size(), 1u);
}

TEST_F(CpctlMonitor, TellsWhatTheLogHasWhateverTheTime)
{
	line("captive_portal_init");
	line("captive_portal_exit");
	quiet();
	line("captive_portal_init");
	ASSERT_EQ(run({"monitor", "--all", "--seconds", "0"}), 0);
	EXPECT_EQ(start, KernelLogStart::at_its_begin);
	EXPECT_EQ(std::ranges::count(out, '\n'), 2);
	EXPECT_EQ(turns.size(), 1u);
}

TEST_F(CpctlMonitor, IsNotInAFileOfCommands)
{
	standard_input = "monitor\n";
	EXPECT_EQ(run({"-b", "-"}), 1);
	EXPECT_EQ(err, "cpctl: standard input:1: this command cannot be one of a file\ncpctl: nothing was changed\n");
}

TEST(CpctlKernelLog, ReadsTheKernelsRecords)
{
	const auto record = parse_kernel_log_record("7,339,5140900,-;a text; and more\n SUBSYSTEM=net\n");
	ASSERT_TRUE(record.has_value());
	EXPECT_EQ(record->level, 7);
	EXPECT_EQ(record->facility, 0);
	EXPECT_EQ(record->sequence, 339u);
	EXPECT_EQ(record->since_boot, microseconds(5140900));
	EXPECT_EQ(record->text, "a text; and more");
	const auto of_a_program = parse_kernel_log_record("12,1,2,-,caller=T1;text");
	ASSERT_TRUE(of_a_program.has_value());
	EXPECT_EQ(of_a_program->level, 4);
	EXPECT_EQ(of_a_program->facility, 1);
	EXPECT_EQ(of_a_program->text, "text");
	for (const char *const bytes : {"", "7", "7,1,2,-", "x,1,2,-;text", "7,1;text", "7,1,y,-;text"}) {
		EXPECT_FALSE(parse_kernel_log_record(bytes).has_value()) << bytes;
	}
}

TEST(CpctlKernelLog, SaysWhyItCannotBeRead)
{
	try {
		static_cast<void>(open_kernel_log("/nonexistent/kmsg", KernelLogStart::now));
		FAIL() << "there is no such file";
	} catch (const Failure &failure) {
		EXPECT_EQ(failure.code(), ExitCode::unavailable);
		EXPECT_STREQ(failure.what(), "/nonexistent/kmsg: No such file or directory");
	}
}

// A file that ends is no kernel log; one that begins like a record is read as such.
TEST(CpctlKernelLog, EndsWithAFileThatIsNone)
{
	const std::string path = ::testing::TempDir() + "cpctl-kmsg-of-test";
	std::ofstream(path) << "7,1,2,-;text\n";
	const auto log = open_kernel_log(path, KernelLogStart::at_its_begin);
	KernelLogRecord record;
	EXPECT_EQ(log->next(record, milliseconds(0)), KernelLogEvent::record);
	EXPECT_EQ(record.text, "text");
	EXPECT_THROW(static_cast<void>(log->next(record, milliseconds(0))), Failure);
	std::remove(path.c_str());
}

} // namespace

} // namespace cpctl::test
