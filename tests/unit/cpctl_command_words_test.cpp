// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/command_words.h"

#include <gtest/gtest.h>

#include <sstream>

#include "cpctl/failure.h"

namespace cpctl::test
{

namespace
{

std::vector<CommandWords> read(const std::string &text)
{
	std::istringstream in(text);
	return read_command_words(in, "f");
}

std::string mistake_of(const std::string &text)
{
	try {
		(void)read(text);
	} catch (const Failure &failure) {
		EXPECT_EQ(failure.code(), ExitCode::usage);
		return failure.what();
	}
	return "none";
}

using Words = std::vector<std::string>;

TEST(CpctlCommandWords, LinesHaveWordsAndNumbers)
{
	const auto lines = read("one  two\tthree \n\n   \n  four\r\nfive");
	ASSERT_EQ(lines.size(), 3U);
	EXPECT_EQ(lines[0].words, (Words{"one", "two", "three"}));
	EXPECT_EQ(lines[0].line, 1U);
	EXPECT_EQ(lines[1].words, (Words{"four"}));
	EXPECT_EQ(lines[1].line, 4U);
	EXPECT_EQ(lines[2].words, (Words{"five"}));
	EXPECT_EQ(lines[2].line, 5U);
	EXPECT_TRUE(read("").empty());
}

TEST(CpctlCommandWords, CommentsBeginAtAWord)
{
	const auto lines = read("# all of it\na # the rest 'of it\nb#c '#d'\n");
	ASSERT_EQ(lines.size(), 2U);
	EXPECT_EQ(lines[0].words, (Words{"a"}));
	EXPECT_EQ(lines[1].words, (Words{"b#c", "#d"}));
}

TEST(CpctlCommandWords, QuotesAndBackslashesAreTheShells)
{
	EXPECT_EQ(read(R"('*.example.com' "a b" c'd e'f '' a\ b \\ "\"\\" '\')")[0].words,
		  (Words{"*.example.com", "a b", "cd ef", "", "a b", "\\", "\"\\", "\\"}));
}

TEST(CpctlCommandWords, SaysWhereAMistakeIs)
{
	EXPECT_EQ(mistake_of("a\nb 'c\n"), "f:2: a quotation mark (') is not closed");
	EXPECT_EQ(mistake_of("b \"c"), "f:1: a quotation mark (\") is not closed");
	EXPECT_EQ(mistake_of("b \\\n"), "f:1: a backslash at the line's end: a command is one line");
	EXPECT_EQ(mistake_of(std::string("a\n\nb\0c", 6)), "f:3: a control character: this is no file of commands");
	EXPECT_EQ(mistake_of("\x7f"
			     "ELF"),
		  "f:1: a control character: this is no file of commands");
}

TEST(CpctlCommandWords, QuotesOnlyWhatNeedsIt)
{
	EXPECT_EQ(quote_word("198.51.100.0/24"), "198.51.100.0/24");
	EXPECT_EQ(quote_word("02:00:5e:10:00:01"), "02:00:5e:10:00:01");
	EXPECT_EQ(quote_word("*.example.com"), "'*.example.com'");
	EXPECT_EQ(quote_word(""), "''");
	EXPECT_EQ(quote_word("#"), "'#'");
	EXPECT_EQ(quote_word("it's"), "\"it's\"");
	EXPECT_EQ(quote_word("'\"$`\\"), R"("'\"\$\`\\")");
	EXPECT_EQ(join_words({"garden", "replace", "*.a"}), "garden replace '*.a'");
}

TEST(CpctlCommandWords, EveryGraphicSignComesBackFromItsQuotes)
{
	for (int first = ' '; first < 0x7f; first++) {
		for (int second = ' '; second < 0x7f; second++) {
			const std::string word = {static_cast<char>(first), static_cast<char>(second)};
			const auto lines = read(quote_word(word));
			ASSERT_EQ(lines.size(), 1U) << word;
			ASSERT_EQ(lines[0].words, Words{word});
		}
	}
}

} // namespace

} // namespace cpctl::test
