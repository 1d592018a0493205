// SPDX-License-Identifier: GPL-2.0-only
// cpctl cache show and cpctl cache follow, over files that the test wrote and over the module's own core.
#include <nlohmann/json.hpp>

#include "cpctl/cached_addresses.h"
#include "tests/unit/cpctl_core.h"
#include "tests/unit/garden_cache.h"

namespace captive_portal::test
{

namespace
{

using Words = std::vector<std::string>;

class CpctlCache : public CpctlWithTheCore
{
protected:
	void SetUp() override
	{
		machine.clock.set(1'000'000);
		CpctlWithTheCore::SetUp();
		surroundings.wall_clock = [] { return 1'000'000; };
		surroundings.pause = [this](std::chrono::milliseconds longest) { return pause(longest); };
		surroundings.now = [this] { return cpctl::Clock::time_point(passed); };
		add(ipv4(203, 0, 113, 10), "www.example.net", 0x8000001, 42);
		add(ipv4(198, 51, 100, 7), "a.example.org", 0, 600);
		add(ipv4(198, 51, 100, 7), "B.example.org");
	}

	// Each pause is a turn of the test: what happens then. Without more turns the user ends it.
	bool pause(std::chrono::milliseconds longest)
	{
		passed += longest;
		pauses.push_back(longest);
		if (turns.empty()) {
			return false;
		}
		const auto turn = turns.front();
		turns.erase(turns.begin());
		turn();
		return true;
	}
	void expect_usage_failure(const Words &words, const std::string &part)
	{
		EXPECT_EQ(run(words), 1);
		EXPECT_NE(err.find(part), std::string::npos) << err;
		EXPECT_EQ(openings, 0);
	}

	std::vector<std::function<void()>> turns;
	std::vector<std::chrono::milliseconds> pauses;
	std::chrono::milliseconds passed{0};
};

constexpr const char *net = "203.0.113.10 left 42s gardens wlan-1-1 mirel\n    www.example.net\n";
constexpr const char *org = "198.51.100.7 left 600s gardens none\n    a.example.org\n    B.example.org\n";

TEST_F(CpctlCache, IsListedWithoutTheDevice)
{
	EXPECT_EQ(answer({"cache", "show"}), std::string(net) + org);
	EXPECT_EQ(openings, 0);
}

TEST_F(CpctlCache, IsSelectedByInterfaceNameAndAddress)
{
	EXPECT_EQ(answer({"cache", "show", "wlan-1-1"}), net);
	EXPECT_EQ(answer({"cache", "show", "mirel"}), net);
	EXPECT_EQ(answer({"cache", "show", "wlan-1-2"}), "");
	EXPECT_EQ(answer({"cache", "show", "--address", "198.51.100.7"}), org);
	EXPECT_EQ(answer({"cache", "show", "--address", "198.51.100.8"}), "");
	EXPECT_EQ(answer({"cache", "show", "--name", "b.EXAMPLE.*"}), org);
	EXPECT_EQ(answer({"cache", "show", "--name", "example.org"}), "");
	EXPECT_EQ(answer({"cache", "show", "wlan-1-1", "--name", "*.org"}), "");
}

TEST_F(CpctlCache, RefusesSelectionsThatAreNone)
{
	expect_usage_failure({"cache", "show", "wlan-1-9"}, "no wireless interface");
	expect_usage_failure({"cache", "show", "--address", "1.2.3"}, "'1.2.3'");
	for (const char *const interval : {"0", "0.01", "nan", "3601", "-1"}) {
		expect_usage_failure({"cache", "follow", std::string("--interval=") + interval}, "--interval");
	}
	for (const char *const seconds : {"-1", "nan", "inf"}) {
		expect_usage_failure({"cache", "follow", std::string("--seconds=") + seconds}, "--seconds");
	}
	expect_usage_failure({"cache", "follow", "--count", "-1"}, "--count");
}

TEST_F(CpctlCache, SaysWhatIsPastItsTimeAndWhatEveryInterfacePermits)
{
	surroundings.wall_clock = [] { return 1'000'045; };
	add(ipv4(192, 0, 2, 1), "all.example", 0xfffffff);
	EXPECT_EQ(answer({"cache", "show"}),
		  "192.0.2.1 left 15s gardens wlan-1-1 to wlan-3-8 special-mark mode-7 social-login mirel\n"
		  "    all.example\n"
		  "203.0.113.10 due 3s ago gardens wlan-1-1 mirel\n    www.example.net\n"
		  "198.51.100.7 left 555s gardens none\n    a.example.org\n    B.example.org\n");
}

TEST_F(CpctlCache, DoesNothingToATerminal)
{
	add(ipv4(192, 0, 2, 1), "a\x1b[2J\n\x9b.example");
	EXPECT_NE(answer({"cache", "show", "--address", "192.0.2.1"}).find("\n    a?[2J??.example\n"),
		  std::string::npos)
		<< out;
}

TEST_F(CpctlCache, AnswersInJson)
{
	const auto json = nlohmann::json::parse(answer({"-j", "cache", "show"}))["addresses"];
	ASSERT_EQ(json.size(), 2u);
	EXPECT_EQ(json[0], nlohmann::json::parse(R"({"address": "203.0.113.10", "timeout": 1000042, "seconds_left": 42,
		"gardens": ["wlan-1-1", "mirel"], "names": ["www.example.net"]})"));
	EXPECT_EQ(json[1]["gardens"], nlohmann::json::array());
	EXPECT_EQ(answer({"-j", "cache", "show", "wlan-3-8"}), "{\"addresses\":[]}\n");
	EXPECT_GT(std::ranges::count(answer({"-p", "cache", "show"}), '\n'), 10);
}

TEST_F(CpctlCache, FollowsWhatComesAndGoes)
{
	turns = {
		[] {},
		[] { add(ipv4(192, 0, 2, 1), "new.example", 0x2); },
		[] { add(ipv4(192, 0, 2, 1), "also.example"); },
		[] { add(ipv4(198, 51, 100, 7), "c.example.org", 0x1); },
		[] { empty_cache(); },
	};
	EXPECT_EQ(answer({"cache", "follow"}), "+ 192.0.2.1 new.example gardens wlan-1-2\n"
					       "+ 192.0.2.1 also.example gardens wlan-1-2\n"
					       "- 198.51.100.7 B.example.org gardens none\n"
					       "- 198.51.100.7 a.example.org gardens none\n"
					       "+ 198.51.100.7 B.example.org gardens wlan-1-1\n"
					       "+ 198.51.100.7 a.example.org gardens wlan-1-1\n"
					       "+ 198.51.100.7 c.example.org gardens wlan-1-1\n"
					       "- 192.0.2.1 also.example gardens wlan-1-2\n"
					       "- 192.0.2.1 new.example gardens wlan-1-2\n"
					       "- 198.51.100.7 B.example.org gardens wlan-1-1\n"
					       "- 198.51.100.7 a.example.org gardens wlan-1-1\n"
					       "- 198.51.100.7 c.example.org gardens wlan-1-1\n"
					       "- 203.0.113.10 www.example.net gardens wlan-1-1 mirel\n");
	EXPECT_EQ(pauses, std::vector<std::chrono::milliseconds>(6, std::chrono::milliseconds(1000)));
	EXPECT_EQ(openings, 0);
}

TEST_F(CpctlCache, FollowsASelection)
{
	turns = {
		[] {
			add(ipv4(192, 0, 2, 1), "new.example.org", 0x1);
			add(ipv4(192, 0, 2, 2), "new.example.com", 0x1);
			add(ipv4(192, 0, 2, 3), "new.example.org", 0x2);
		},
	};
	EXPECT_EQ(answer({"-j", "cache", "follow", "wlan-1-1", "--name", "*.org"}),
		  "{\"event\":\"add\",\"address\":\"192.0.2.1\",\"name\":\"new.example.org\",\"gardens\":[\"wlan-1-1\"]"
		  "}\n");
}

TEST_F(CpctlCache, EndsWhereItsLimitsAre)
{
	const auto many = [] {
		for (uint8_t i = 0; i < 10; ++i) {
			add(ipv4(192, 0, 2, i), "new.example");
		}
	};
	turns = {many};
	EXPECT_EQ(std::ranges::count(answer({"cache", "follow", "--count", "3"}), '\n'), 3);
	EXPECT_EQ(pauses.size(), 1u);
	empty_cache();
	turns = {[] {}, [] {}, many, [] { FAIL() << "the time was over"; }};
	pauses.clear();
	EXPECT_EQ(std::ranges::count(answer({"cache", "follow", "--seconds", "2.5"}), '\n'), 10);
	EXPECT_EQ(pauses, (std::vector<std::chrono::milliseconds>{std::chrono::milliseconds(1000),
								  std::chrono::milliseconds(1000),
								  std::chrono::milliseconds(500)}));
	EXPECT_EQ(answer({"cache", "follow", "--seconds", "0"}), "");
	EXPECT_EQ(answer({"cache", "follow", "--count", "0"}), "");
}

TEST_F(CpctlCache, EndsWithTheModule)
{
	turns = {[this] { EXPECT_EQ(machine.unload(), 0); }};
	const auto read = [this](const std::string &name) -> std::string {
		const auto text = machine.status.read(name);
		if (!text) {
			throw cpctl::Failure(cpctl::ExitCode::unavailable, "gone");
		}
		return *text;
	};
	std::ostringstream out_stream;
	std::ostringstream err_stream;
	EXPECT_EQ(cpctl::run_command_line({"cache", "follow"}, {{}, read, surroundings}, out_stream, err_stream),
		  cpctl::ExitCode::unavailable);
	EXPECT_EQ(err_stream.str(), "cpctl: gone\n");
}

TEST_F(CpctlCache, IsListedFromAFileOfCommandsAndNotFollowed)
{
	standard_input = "cache show wlan-1-1\n";
	EXPECT_EQ(answer({"-b", "-"}), net);
	standard_input = "cache follow\n";
	EXPECT_EQ(run({"-b", "-"}), 1);
	EXPECT_EQ(err, "cpctl: standard input:1: this command cannot be one of a file\ncpctl: nothing was changed\n");
}

TEST(CpctlCachedAddresses, KeepTheLastOfAnAddressThatCameBack)
{
	const auto entries = cpctl::read_cached_addresses([](const std::string &) {
		return std::string("cached address=192.0.2.1 bucket=192 timeout=5 gardens=0x1 shown=0\n"
				   "cached-name address=192.0.2.1 name=a.example shown=0\n"
				   "of-tomorrow key=1\n"
				   "cached address=192.0.2.1 bucket=192 timeout=9 gardens=0x0 shown=0\n"
				   "cached-name address=192.0.2.1 name=b.example shown=0\n");
	});
	ASSERT_EQ(entries.size(), 1u);
	EXPECT_EQ(entries[0].timeout, 9);
	EXPECT_EQ(entries[0].gardens, 0u);
	EXPECT_EQ(entries[0].names, std::vector<std::string>{"b.example"});
}

TEST(CpctlCachedAddresses, RefuseANameOfNoAddress)
{
	EXPECT_THROW(static_cast<void>(cpctl::read_cached_addresses([](const std::string &) {
			     return std::string("cached-name address=192.0.2.1 name=a.example shown=0\n");
		     })),
		     cpctl::Failure);
}

TEST(CpctlNamesLikeAPattern, StandForRunsAndSingleCharacters)
{
	for (const auto &[name, pattern] : {std::pair{"a.example", "a.example"},
					    {"A.example", "a.EXAMPLE"},
					    {"a.example.example", "*.example"},
					    {"", "*"},
					    {"", ""},
					    {"abc", "a?c"},
					    {"aab", "*ab"},
					    {"abab", "a*b"}}) {
		EXPECT_TRUE(cpctl::is_like(name, pattern)) << name << " " << pattern;
	}
	for (const auto &[name, pattern] : {std::pair{"a.example", "a.exampl"},
					    {"ac", "a?c"},
					    {"", "?"},
					    {"a", ""},
					    {"abc", "*ab"},
					    {"xab", "ab*"}}) {
		EXPECT_FALSE(cpctl::is_like(name, pattern)) << name << " " << pattern;
	}
}

} // namespace

} // namespace captive_portal::test
