// SPDX-License-Identifier: GPL-2.0-only
// In which order the parser asks what a message is. It shows only in what is said on the way, and in what it costs.
#include <gtest/gtest.h>

#include "tests/unit/dns_parser_fixture.h"

namespace captive_portal::test
{

namespace
{

const LogLine query_failed = debug_line("dns query parsing failed\n");
const LogLine match = debug_line("http_match: match default rule\n");
const LogLine every_row_matches = debug_line("Get DNS response: www.example, is_match_wg=268435455\n");

class DnsParserOrderTest : public DnsParserFixture
{
protected:
	// Every row that is asked about www.example says so.
	void permit_by_default_rule()
	{
		ASSERT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).domain("www.example").write(), 0);
		machine.log.clear();
	}
	// Of a question whose name is the one label "www" and runs out, in a message parsed last.
	[[nodiscard]] LogLine name_runs_out() const
	{
		return debug_line("DNS packets might be corrupt or fragmented: " + at(13) + " + 3 > " + at(15) + "\n");
	}
	[[nodiscard]] size_t lines_of_matches()
	{
		size_t count = 0;
		for (const LogLine &line : machine.log.take()) {
			count += line == match ? 1 : 0;
		}
		return count;
	}
};

DnsMessage message_with_broken_name(uint16_t flags, uint16_t questions = 1)
{
	return DnsMessage().header(1, flags, questions).label("www");
}

} // namespace

TEST_F(DnsParserOrderTest, CountsQuestionsBeforeItReadsTheName)
{
	for (const uint16_t questions : {0, 2, 256, 65535}) {
		EXPECT_EQ(parse(message_with_broken_name(answer_flags, questions)), 0);
		EXPECT_NO_LOG();
	}
}

TEST_F(DnsParserOrderTest, ReadsTheNameBeforeItTellsQueriesFromAnswers)
{
	EXPECT_EQ(parse(message_with_broken_name(0x0100)), 0);
	EXPECT_LOG(name_runs_out(), query_failed);
}

TEST_F(DnsParserOrderTest, ReadsTheNameBeforeTheRcode)
{
	for (const uint16_t rcode : {1, 3, 15}) {
		EXPECT_EQ(parse(message_with_broken_name(answer_flags | rcode)), 0);
		EXPECT_LOG(name_runs_out(), query_failed);
	}
}

TEST_F(DnsParserOrderTest, AsksNoRuleForWhatIsNoSuccessfulAnswerToAnIpv4Question)
{
	permit_by_default_rule();
	EXPECT_EQ(parse(DnsMessage().header(0).name("www.example").question(dns_aaaa)), 0);
	EXPECT_NO_LOG() << "another type";
	EXPECT_EQ(parse(DnsMessage().header(0, 0x0100).name("www.example").question()), 0);
	EXPECT_NO_LOG() << "a query";
	EXPECT_EQ(parse(DnsMessage().header(0, answer_flags | 3).name("www.example").question()), 0);
	EXPECT_LOG(debug_line("DNS Answer: www.example fails with RCODE = 3\n"));
}

TEST_F(DnsParserOrderTest, AsksEveryRowOnceBeforeItTellsOfTheAnswer)
{
	permit_by_default_rule();
	EXPECT_EQ(parse(answer_for("www.example", 0)), 0);
	std::vector<LogLine> lines(28, match);
	lines.push_back(every_row_matches);
	EXPECT_EQ(machine.log.take(), lines);
}

TEST_F(DnsParserOrderTest, AsksTheRulesOnceForAllRecords)
{
	permit_by_default_rule();
	DnsMessage message = answer_for("www.example", 3);
	message.pointer(12).a_record(60, 192, 0, 2, 1);
	message.pointer(12).a_record(60, 192, 0, 2, 2);
	message.pointer(12).a_record(60, 192, 0, 2, 3);
	EXPECT_EQ(parse(message), 0);
	EXPECT_EQ(lines_of_matches(), 28u);
	EXPECT_EQ(stored_addresses().size(), 3u);
	// With nothing to store, too.
	EXPECT_EQ(parse(answer_for("www.example", 1).pointer(12).record(dns_txt, 60, 0)), 0);
	EXPECT_EQ(lines_of_matches(), 28u);
}

} // namespace captive_portal::test
