// SPDX-License-Identifier: GPL-2.0-only
// The compiled rules against the patterns themselves: for every name, each row must answer what a walk over its rules
// with pattern_matches() answers.
#include "garden/rule_index.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>

#include "base/debug_level.h"
#include "garden/pattern.h"
#include "tests/support/host_test.h"
#include "tests/unit/garden_records.h"

namespace captive_portal::test
{

namespace
{

constexpr uint32_t all_rows = 0x0fffffff;

class RuleIndexTest : public HostTest
{
protected:
	RuleIndexTest() { init_walled_garden_table(); }
	~RuleIndexTest() override
	{
		free_walled_garden_rules();
		EXPECT_TRUE(machine.live_allocations().empty());
	}

	using Patterns = std::vector<std::string>;

	void set_row(uint32_t row, const Patterns &patterns)
	{
		WgRecord record(row == 27 ? UPDATE_MIREL_RULE : UPDATE_RULE, static_cast<int32_t>(row));
		for (const std::string &pattern : patterns) {
			record.domain(pattern);
		}
		ASSERT_EQ(record.write(), 0);
		rows_[row] = patterns;
	}

	void set_defaults(const Patterns &names)
	{
		WgRecord record(UPDATE_DEFAULT_RULE, 0);
		for (const std::string &name : names) {
			record.domain(name);
		}
		ASSERT_EQ(record.write(), 0);
		defaults_ = names;
	}

	static bool matches(const std::string &pattern, const std::string &name)
	{
		// A rule keeps 127 characters.
		const ExactText exact_pattern(pattern.substr(0, 127));
		const ExactText exact_name(name);
		return pattern_matches(exact_pattern.text(), exact_name.text());
	}

	[[nodiscard]] uint32_t expected(const std::string &name) const
	{
		if (name == "social-login.example.com") {
			return 0;
		}
		for (const std::string &known : defaults_) {
			if (!known.empty() && known == name) {
				return all_rows;
			}
		}
		uint32_t rows = 0;
		for (uint32_t row = 0; row < rows_.size(); ++row) {
			for (const std::string &pattern : rows_[row]) {
				rows |= static_cast<uint32_t>(matches(pattern, name)) << row;
			}
		}
		return rows;
	}

	void expect_right(const std::string &name)
	{
		const ExactText exact(name);
		ASSERT_EQ(match_garden_rows(exact.text()), expected(name)) << name;
		// One by one, as where somebody can see each attempt.
		machine.memory.before_atomic_allocation([](size_t) {});
		ASSERT_EQ(match_garden_rows(exact.text()), expected(name)) << name;
		machine.memory.before_atomic_allocation(nullptr);
		for (uint32_t row = 0; row < 28; row += 9) {
			ASSERT_EQ(domain_matches(name, row), (expected(name) >> row & 1) != 0) << name << ' ' << row;
		}
	}

	std::array<Patterns, 28> rows_;
	Patterns defaults_;
};

TEST_F(RuleIndexTest, AgreesWithThePatternsOnRandomRulesAndNames)
{
	std::mt19937 dice(5);
	const auto roll = [&](uint32_t end) { return static_cast<uint32_t>(dice() % end); };
	const auto text_of = [&](const std::string &alphabet, uint32_t longest) {
		std::string text;
		for (uint32_t length = roll(longest + 1); length != 0; --length) {
			text += alphabet[roll(static_cast<uint32_t>(alphabet.size()))];
		}
		return text;
	};
	uint32_t found = 0;
	for (int round = 0; round < 300; ++round) {
		// Few letters, so that pieces repeat and overlap; more in every other round.
		const std::string letters = round % 2 == 0 ? "ab" : "abcxyz.-0\x80\xc1";
		const auto pattern = [&] { return text_of(letters + (roll(2) == 0 ? "*?" : "*"), 9); };
		for (int change = 0; change < 6; ++change) {
			Patterns patterns;
			for (uint32_t count = roll(25); count != 0; --count) {
				patterns.push_back(roll(4) == 0 ? text_of(letters, 6) : pattern());
			}
			// Some rows share all their rules.
			const uint32_t row = roll(28);
			set_row(row, patterns);
			if (roll(2) == 0) {
				set_row((row + 5) % 28, patterns);
			}
		}
		if (round % 7 == 0) {
			set_defaults({text_of(letters, 4), "", text_of(letters, 4)});
		}
		if (round % 31 == 0) {
			for (uint32_t row = 0; row < 28; ++row) {
				set_row(row, {});
			}
		}
		for (int name = 0; name < 20; ++name) {
			const std::string asked = text_of(letters, 14);
			expect_right(asked);
			found += expected(asked) != 0 && expected(asked) != all_rows ? 1 : 0;
		}
	}
	EXPECT_GT(found, 1000u) << "names that some rows have and others have not";
}

TEST_F(RuleIndexTest, AgreesOnHostilePatterns)
{
	const std::string a127(127, 'a');
	const Patterns hostile = {
		"",    "*",   "?",       "**",  "*?*", "*a*a*a*",  "a*a*a*a",  "*a",       "a*",  "?a?",  "a",   "aa*",
		"*aa", "a*a", "*ab*ba*", "a?b", a127,  a127 + "a", "*" + a127, a127 + "*", "*.a", "a*.a", ".*.", "a**a",
	};
	ASSERT_EQ(hostile.size(), 24u);
	for (uint32_t row = 0; row < 24; ++row) {
		set_row(row, {hostile[row]});
	}
	set_row(24, hostile);
	set_row(25, {});
	set_row(27, {"", ""});
	Patterns names = {"",   "a", "aa", "aaa", "aaaa", "ab", "aba",  "abba",
			  "ba", "b", ".a", "a.a", "..",   ".",  "b.a.b"};
	names.push_back(a127);
	names.push_back(a127 + "b");
	names.push_back("b" + a127);
	names.push_back(std::string(126, 'a'));
	names.push_back(std::string(126, 'a') + "b");
	names.push_back(std::string(300, 'a'));
	names.emplace_back("social-login.example.com");
	for (const std::string &name : names) {
		expect_right(name);
	}
}

TEST_F(RuleIndexTest, AgreesOnManyRulesWithOneTail)
{
	// More than one search visits, and more rules than one place is searched for equals.
	for (uint32_t row = 0; row < 28; ++row) {
		Patterns patterns;
		for (uint32_t i = 0; i < 24; ++i) {
			patterns.push_back("*" + std::to_string(row % 5) + "x" + std::to_string(i) + "*.example.com");
		}
		set_row(row, patterns);
	}
	for (const char *name : {"3x7.example.com", "1x1.2x2.3x3.example.com", "none.example.com", "4x23.example.com",
				 "4x23.example.com."}) {
		expect_right(name);
	}
	for (uint32_t row = 0; row < 28; row += 2) {
		set_row(row, {"*.example.com"});
	}
	expect_right("3x7.example.com");
	expect_right("x.example.com");
}

TEST_F(RuleIndexTest, ASearchThatTakesTooLongGoesOnRowByRow)
{
	for (uint32_t row = 0; row < 28; ++row) {
		Patterns patterns;
		for (uint32_t i = 0; i < 24; ++i) {
			patterns.push_back(std::to_string(row) + "-" + std::to_string(i) + "*.example.com");
		}
		set_row(row, patterns);
	}
	const uint64_t before = machine.locks.acquisitions(CP_LOCK_WALLEDGARDEN);
	EXPECT_EQ(match_garden_rows({"6-3.example.com", 15}), 1U << 6);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_WALLEDGARDEN), before + 1 + 28);
	EXPECT_EQ(match_garden_rows({"6-3.example.org", 15}), 0u);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_WALLEDGARDEN), before + 1 + 28 + 1);
}

TEST_F(RuleIndexTest, StopFreesTheRulesOfOneRowAtATime)
{
	for (uint32_t row = 0; row < 28; ++row) {
		set_row(row, {"a.example"});
	}
	const uint64_t before = machine.locks.acquisitions(CP_LOCK_WALLEDGARDEN);
	free_walled_garden_rules();
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_WALLEDGARDEN), before + 28);
	EXPECT_EQ(match_garden_rows({"a.example", 9}), 0u);
}

TEST_F(RuleIndexTest, OneRuleOfManyRowsIsAskedInOneHold)
{
	for (uint32_t row = 0; row < 28; ++row) {
		set_row(row, {"*.one.example", "exact.example", "www.*"});
	}
	const uint64_t before = machine.locks.acquisitions(CP_LOCK_WALLEDGARDEN);
	EXPECT_EQ(match_garden_rows({"a.one.example", 13}), all_rows);
	EXPECT_EQ(match_garden_rows({"exact.example", 13}), all_rows);
	EXPECT_EQ(match_garden_rows({"www.a.example", 13}), all_rows);
	EXPECT_EQ(match_garden_rows({"other.example", 13}), 0u);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_WALLEDGARDEN), before + 4);
	set_row(7, {"other.example"});
	EXPECT_EQ(match_garden_rows({"a.one.example", 13}), all_rows & ~(1U << 7));
	EXPECT_EQ(match_garden_rows({"other.example", 13}), 1U << 7);
}

TEST_F(RuleIndexTest, MatchingNeedsNoMemoryUnlessSomebodyWatches)
{
	set_row(3, {"*.example", "a.*"});
	const uint64_t before = machine.memory.attempts();
	EXPECT_EQ(match_garden_rows({"a.example", 9}), 1U << 3);
	EXPECT_TRUE(domain_matches("a.example", 3));
	EXPECT_EQ(machine.memory.attempts(), before);
	machine.memory.fail_all_allocations(true);
	EXPECT_EQ(match_garden_rows({"a.example", 9}), 0u);
	machine.memory.fail_all_allocations(false);
	machine.memory.fail_allocation(2);
	EXPECT_EQ(match_garden_rows({"b.org", 5}), 0u);
	EXPECT_EQ(machine.memory.attempts(), before + 4) << "two for each pattern of the row";
}

TEST_F(RuleIndexTest, SaysWhatEachAttemptSaysAtDebugLevel3)
{
	set_row(2, {"*.a"});
	set_row(9, {"*.a", "*.b"});
	debug_level = 3;
	machine.log.clear();
	EXPECT_EQ(match_garden_rows({"x.ab", 4}), 0u);
	const LogLine line = debug_line("wildcard case : isLastCharWC=[0], strlen(url_src_ptr)=[1]\n");
	EXPECT_LOG(line, line);
	debug_level = 2;
	const uint64_t before = machine.memory.attempts();
	EXPECT_EQ(match_garden_rows({"x.ab", 4}), 0u);
	EXPECT_NO_LOG();
	EXPECT_EQ(machine.memory.attempts(), before);
}

TEST_F(RuleIndexTest, ARuleThatCannotBeHadEndsTheIndexedRowToo)
{
	machine.memory.fail_allocation(3);
	ASSERT_EQ(WgRecord(UPDATE_RULE, 5).domain("a.example").domain("b.example").domain("c.example").write(), 0);
	EXPECT_EQ(match_garden_rows({"a.example", 9}), 1U << 5);
	EXPECT_EQ(match_garden_rows({"b.example", 9}), 0u);
	EXPECT_EQ(match_garden_rows({"c.example", 9}), 0u);
}

} // namespace

} // namespace captive_portal::test
