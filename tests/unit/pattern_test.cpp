// SPDX-License-Identifier: GPL-2.0-only
#include "garden/pattern.h"

#include <gtest/gtest.h>

#include "base/debug_level.h"
#include "tests/support/host_test.h"
#include "tests/unit/garden_records.h"

namespace captive_portal::test
{

namespace
{

class PatternTest : public HostTest
{
protected:
	PatternTest() { debug_level = 3; }
	void TearDown() override
	{
		EXPECT_TRUE(machine.live_allocations().empty());
		HostTest::TearDown();
	}

	[[nodiscard]] static bool matches(std::string_view pattern, std::string_view domain)
	{
		const ExactText exact_pattern(pattern);
		const ExactText exact_domain(domain);
		return pattern_matches(exact_pattern.text(), exact_domain.text());
	}
};

struct Row {
	const char *pattern;
	const char *domain;
	bool match;
};

std::ostream &operator<<(std::ostream &stream, const Row &row)
{
	return stream << '"' << row.pattern << "\" on \"" << row.domain << '"';
}

class PatternRows : public PatternTest, public testing::WithParamInterface<Row>
{
};

TEST_P(PatternRows, Matches)
{
	EXPECT_EQ(matches(GetParam().pattern, GetParam().domain), GetParam().match);
}

INSTANTIATE_TEST_SUITE_P(WithoutWildcard, PatternRows,
			 testing::Values(Row{"example.com", "example.com", true},
					 Row{"example.com", "Example.com", false},
					 Row{"Example.com", "example.com", false},
					 Row{"example.com", "example.co", false},
					 Row{"example.com", "example.comm", false}, Row{"example.com", "", false},
					 Row{"", "example.com", false}, Row{"", "", true}));

INSTANTIATE_TEST_SUITE_P(OneWildcardAlone, PatternRows,
			 testing::Values(Row{"*", "", true}, Row{"*", "a", true}, Row{"*", "a.example.com", true},
					 Row{"?", "", true}, Row{"?", "a", true}, Row{"?", "a.example.com", true}));

INSTANTIATE_TEST_SUITE_P(LeadingWildcard, PatternRows,
			 testing::Values(Row{"*.example.com", "cdn.example.com", true},
					 Row{"*.example.com", ".example.com", true},
					 Row{"*.example.com", "example.com", false},
					 Row{"*.example.com", "cdn.example.org", false},
					 Row{"*.example.com", "cdn.example.com.evil", false},
					 Row{"*.Example.com", "cdn.example.com", false}, Row{"*a", "a", true},
					 Row{"?.example.com", "long.cdn.example.com", true}));

INSTANTIATE_TEST_SUITE_P(TrailingWildcard, PatternRows,
			 testing::Values(Row{"login.*", "login.anything", true}, Row{"login.*", "login.", true},
					 Row{"login.*", "login", false}, Row{"login.*", "x.login.a", false},
					 Row{"login.*", "", false}, Row{"a?", "a", true}, Row{"a?", "abc", true}));

// A sign that stands for one character would refuse "ac" and "abbbc".
INSTANTIATE_TEST_SUITE_P(QuestionMarkSpansAnyRun, PatternRows,
			 testing::Values(Row{"a?c", "ac", true}, Row{"a?c", "abc", true}, Row{"a?c", "abbbc", true},
					 Row{"a*c", "ac", true}, Row{"a*c", "abc", true}, Row{"a*c", "abbbc", true},
					 Row{"a?c", "abcd", false}, Row{"a?c", "xac", false}, Row{"a?c", "ab", false}));

// A matcher that tries again further right would accept all of these.
INSTANTIATE_TEST_SUITE_P(PiecesAreNeverRetried, PatternRows,
			 testing::Values(Row{"*.example", "a.example.example", false}, Row{"a*c", "abcbc", false},
					 Row{"*a", "aa", false}, Row{"*a*b", "abab", false}));

INSTANTIATE_TEST_SUITE_P(SeveralPieces, PatternRows,
			 testing::Values(Row{"a*b*c", "abc", true}, Row{"a*b?c", "axxbyyc", true},
					 Row{"a*b*c", "acb", false}, Row{"*a*", "xxaxx", true}, Row{"*a*", "a", true},
					 Row{"*a*", "xx", false}, Row{"ab*ab", "ab", false}, Row{"ab*ab", "abab", true},
					 Row{"ab*ba", "aba", false}));

INSTANTIATE_TEST_SUITE_P(EmptyPieces, PatternRows,
			 testing::Values(Row{"**", "", true}, Row{"?*", "a", true}, Row{"**", "a.b", true},
					 Row{"a**b", "ab", true}, Row{"a*?b", "axb", true}, Row{"**b", "ab", true},
					 Row{"a**", "a", true}, Row{"a**", "ba", false}));

TEST_F(PatternTest, TakesAPatternAndADomainOf127Characters)
{
	const std::string domain = std::string(63, 'a') + "." + std::string(63, 'b');
	EXPECT_TRUE(matches(domain, domain));
	EXPECT_TRUE(matches(std::string(63, 'a') + "*" + std::string(63, 'b'), domain));
	EXPECT_FALSE(matches(std::string(126, 'a') + "*", domain));
	EXPECT_TRUE(matches(std::string(127, '*'), domain));
}

TEST_F(PatternTest, AllocatesNothingWithoutNeed)
{
	EXPECT_TRUE(matches("example.com", "example.com"));
	EXPECT_FALSE(matches("example.com", "example.org"));
	EXPECT_TRUE(matches("*", "example.com"));
	EXPECT_TRUE(matches("?", "example.com"));
	EXPECT_EQ(machine.memory.attempts(), 0u);
}

TEST_F(PatternTest, WorksOnOneCopyThatItFrees)
{
	EXPECT_TRUE(matches("*.example.com", "cdn.example.com"));
	EXPECT_EQ(machine.memory.attempts(), 1u);
	EXPECT_TRUE(machine.live_allocations().empty());
	EXPECT_FALSE(matches("*.example.com", "cdn.example.org"));
	EXPECT_EQ(machine.memory.attempts(), 2u);
	EXPECT_TRUE(machine.live_allocations().empty());
	EXPECT_TRUE(matches("**", ""));
	EXPECT_EQ(machine.memory.attempts(), 3u);
}

TEST_F(PatternTest, DoesNotMatchWhenTheCopyCannotBeHad)
{
	machine.memory.fail_allocation(1);
	EXPECT_FALSE(matches("*.example.com", "cdn.example.com"));
	EXPECT_NO_LOG();
	EXPECT_TRUE(matches("*.example.com", "cdn.example.com"));
}

TEST_F(PatternTest, LogsHowMuchOfTheDomainIsLeftOver)
{
	EXPECT_FALSE(matches("*.example", "a.example.example"));
	EXPECT_LOG(debug_line("wildcard case : isLastCharWC=[0], strlen(url_src_ptr)=[8]\n"));
	EXPECT_FALSE(matches("a?c", "abcd"));
	EXPECT_LOG(debug_line("wildcard case : isLastCharWC=[0], strlen(url_src_ptr)=[1]\n"));
}

TEST_F(PatternTest, LogsNothingBelowDebugLevel3)
{
	debug_level = 2;
	EXPECT_FALSE(matches("*.example", "a.example.example"));
	EXPECT_NO_LOG();
}

TEST_F(PatternTest, LogsNothingWhenAPieceIsMissingOrTheStartDiffersOrAllFits)
{
	EXPECT_FALSE(matches("*.example.com", "example.com"));
	EXPECT_FALSE(matches("login.*", "x.login.a"));
	EXPECT_FALSE(matches("example.com", "example.com.org"));
	EXPECT_TRUE(matches("a*c", "abc"));
	EXPECT_TRUE(matches("a*", "abc"));
	EXPECT_TRUE(matches("*", "abc"));
	EXPECT_NO_LOG();
}

} // namespace

} // namespace captive_portal::test
