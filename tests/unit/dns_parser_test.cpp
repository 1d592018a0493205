// SPDX-License-Identifier: GPL-2.0-only
#include "garden/dns_parser.h"

#include <gtest/gtest.h>

#include "base/debug_level.h"
#include "garden/dns_sections.h"
#include "tests/unit/dns_parser_fixture.h"

namespace captive_portal::test
{

namespace
{

const LogLine name_error = debug_line("_parse_dns_domain() error\n");
const LogLine query_failed = debug_line("dns query parsing failed\n");
const LogLine answer_failed = debug_line("dns answer parsing failed\n");
const LogLine no_match = debug_line("Get DNS response: www.example, is_match_wg=0\n");

LogLine entries(int count)
{
	return debug_line("total_ip_count=" + std::to_string(count) + "\n");
}

using DnsParserTest = DnsParserFixture;

} // namespace

// ---- The header

TEST_F(DnsParserTest, RefusesMessagesWithoutARoomForAQuestion)
{
	const Bytes header = DnsMessage().header(1);
	for (int32_t length = 0; length <= 12; ++length) {
		EXPECT_EQ(parse(Bytes(header.begin(), header.begin() + length)), -1);
	}
	for (const int32_t length : {-1, -8, INT32_MIN}) {
		EXPECT_EQ(parse_dns(nullptr, length), -1);
	}
	EXPECT_EQ(parse_dns(nullptr, 12), -1);
	EXPECT_NO_LOG();
}

TEST_F(DnsParserTest, TakesMessagesWithExactlyOneQuestion)
{
	for (const uint16_t questions : {0, 2, 256, 257, 65535}) {
		DnsMessage message;
		message.header(1, answer_flags, questions).name("www.example").question();
		message.pointer(12).a_record(60, 192, 0, 2, 1);
		EXPECT_EQ(parse(message), 0);
		EXPECT_NO_LOG();
	}
	EXPECT_EQ(parse(DnsMessage().header(0, answer_flags, 0).u8(0)), 0);
	expect_nothing_stored();
}

TEST_F(DnsParserTest, TakesAnswersOnly)
{
	DnsMessage message;
	message.header(1, 0x0180).name("www.example").question().pointer(12).a_record(60, 192, 0, 2, 1);
	EXPECT_EQ(parse(message), 0);
	EXPECT_NO_LOG();
	expect_nothing_stored();
}

TEST_F(DnsParserTest, TakesSuccessfulAnswersOnly)
{
	for (const uint16_t rcode : {1, 2, 3, 5, 15}) {
		DnsMessage message;
		message.header(1, answer_flags | rcode).name("www.example").question();
		message.pointer(12).a_record(60, 192, 0, 2, 1);
		EXPECT_EQ(parse(message), 0);
		EXPECT_LOG(debug_line("DNS Answer: www.example fails with RCODE = " + std::to_string(rcode) + "\n"));
	}
	expect_nothing_stored();
}

TEST_F(DnsParserTest, LooksAtNoOtherFlagAndAtNoIdentifier)
{
	// Operation code, authoritative, truncated, recursion, reserved bits.
	DnsMessage message;
	message.u16(0xffff).u16(0xfff0).u16(1).u16(1).u16(0xffff).u16(0xffff);
	message.name("www.example").question().pointer(12).a_record(60, 192, 0, 2, 1);
	EXPECT_EQ(parse(message), 0);
	expect_stored({{"192.0.2.1", "www.example", 0, start_time + 60}});
}

// ---- The question

TEST_F(DnsParserTest, TakesQuestionsForIpv4AddressesOnly)
{
	for (const uint16_t type : {0, 2, 5, 28, 65, 255, 256, 257}) {
		DnsMessage message;
		message.header(1).name("www.example").question(type).pointer(12).a_record(60, 192, 0, 2, 1);
		EXPECT_EQ(parse(message), 0);
		EXPECT_NO_LOG();
	}
	expect_nothing_stored();
}

TEST_F(DnsParserTest, TestsTypeThenDirectionThenRcode)
{
	// Any line would be the one about the RCODE.
	EXPECT_EQ(parse(DnsMessage().header(0, answer_flags | 3).name("www.example").question(dns_aaaa)), 0);
	EXPECT_EQ(parse(DnsMessage().header(0, 0x0103).name("www.example").question()), 0);
	EXPECT_NO_LOG();
}

TEST_F(DnsParserTest, LooksAtNoClass)
{
	DnsMessage message;
	message.header(1).name("www.example").question(dns_a, 3).pointer(12);
	message.u16(dns_a).u16(3).u32(60).u16(4).address(192, 0, 2, 1);
	EXPECT_EQ(parse(message), 0);
	expect_stored({{"192.0.2.1", "www.example", 0, start_time + 60}});
}

TEST_F(DnsParserTest, TakesAQuestionWithoutAClass)
{
	DnsMessage message;
	message.header(0).name("www.example").u16(dns_a);
	EXPECT_EQ(parse(message), 0);
	EXPECT_LOG(no_match);
	EXPECT_EQ(parse(message.u8(0)), 0);
	EXPECT_LOG(no_match);
}

TEST_F(DnsParserTest, AnswersStartBehindTheClassEvenWhereThereIsNone)
{
	for (size_t missing = 1; missing <= 2; ++missing) {
		DnsMessage message = answer_for("www.example", 1);
		EXPECT_EQ(parse(Bytes(message.bytes().begin(), message.bytes().end() - static_cast<int>(missing))), 0);
		EXPECT_LOG(no_match, name_error, answer_failed);
	}
}

TEST_F(DnsParserTest, LeavesAQuestionWithoutATypeSilently)
{
	EXPECT_EQ(parse(DnsMessage().header(1).name("www.example")), 0);
	EXPECT_EQ(parse(DnsMessage().header(1).name("www.example").u8(0)), 0);
	EXPECT_NO_LOG();
}

TEST_F(DnsParserTest, RefusesAQuestionThatReachesTheLastByte)
{
	const Bytes message = DnsMessage().header(1).label("www");
	EXPECT_EQ(parse(message), 0);
	EXPECT_LOG(debug_line("DNS packets might be corrupt or fragmented: " + at(13) + " + 3 > " + at(15) + "\n"),
		   query_failed);
	EXPECT_EQ(parse(DnsMessage().header(1).label("www").u8(200)), 0);
	EXPECT_LOG(debug_line("DNS packets might be corrupt or fragmented: " + at(17) + " + 200 > " + at(16) + "\n"),
		   query_failed);
	expect_nothing_stored();
}

TEST_F(DnsParserTest, TakesNoPointerInTheQuestion)
{
	// A label of 192 bytes, then the zero byte: the name is empty, as the label does not fit.
	DnsMessage message;
	message.header(1).u8(0xc0).fill(192, 'a').end_of_name().question();
	message.pointer(205).a_record(60, 192, 0, 2, 1);
	EXPECT_EQ(parse(message), 0);
	expect_stored({{"192.0.2.1", "", 0, start_time + 60}});
}

TEST_F(DnsParserTest, TakesLabelsOfUpTo255Bytes)
{
	// In an owner name, 255 would be a pointer.
	DnsMessage message;
	message.header(1).labels("www").label(255, 'a').end_of_name().question();
	message.end_of_name().a_record(60, 192, 0, 2, 1);
	EXPECT_EQ(parse(message), 0);
	expect_stored({{"192.0.2.1", "www", 0, start_time + 60}});
}

// ---- Names that do not fit

struct QuestionName {
	std::vector<std::string> labels;
	std::string text;
};

TEST_F(DnsParserTest, CutsQuestionNamesBetweenLabels)
{
	const std::string a63(63, 'a');
	const QuestionName rows[] = {
		// Longest text: with and without the dot's place.
		{{a63, a63}, a63 + "." + a63},
		{{a63, std::string(62, 'b'), "c"}, a63 + "." + std::string(62, 'b')},
		{{a63, std::string(64, 'b')}, a63},
		{{std::string(126, 'a')}, std::string(126, 'a')},
		{{std::string(126, 'a'), "b"}, std::string(126, 'a')},
		// The dot is written beyond what is tested.
		{{std::string(125, 'a'), "b"}, std::string(125, 'a') + ".b"},
		{{std::string(127, 'a')}, ""},
		// Behind a cut nothing is copied, even if it would fit.
		{{std::string(127, 'a'), "www", "example"}, ""},
		{{"www", std::string(124, 'a'), "c"}, "www"},
	};
	for (const QuestionName &row : rows) {
		char name[DNS_NAME_SIZE];
		std::fill_n(name, sizeof(name), '\xee');
		DnsMessage message;
		for (const std::string &label : row.labels) {
			message.label(label);
		}
		const size_t end = message.size();
		message.end_of_name();
		const Bytes bytes = message;
		EXPECT_EQ(read_question_name(name, bytes.data(), bytes.data() + bytes.size() - 1), bytes.data() + end);
		EXPECT_STREQ(name, row.text.c_str());
		for (size_t i = row.text.size(); i < sizeof(name); ++i) {
			EXPECT_EQ(name[i], '\0') << row.text << " " << i;
		}
	}
	EXPECT_NO_LOG();
}

TEST_F(DnsParserTest, ReadsAnswersBehindAQuestionWithAnEmptyName)
{
	DnsMessage message;
	message.header(1).label(127, 'a').label("www").end_of_name().question();
	message.label("x").end_of_name().a_record(60, 192, 0, 2, 1);
	EXPECT_EQ(parse(message), 0);
	EXPECT_LOG(debug_line("Get DNS response: , is_match_wg=0\n"),
		   debug_line("(0/1, is_match_wg=0)Qerey: , Answer: x, 192.0.2.1, 16908480 mod 1024=192, ttl: 60\n"),
		   entries(1));
	expect_stored({{"192.0.2.1", "", 0, start_time + 60}});
}

TEST_F(DnsParserTest, NameEndsAtAZeroByteInALabel)
{
	permit("www.example", 5);
	DnsMessage message;
	message.header(1).labels("www").label(std::string_view("example\0x", 9)).labels("test").end_of_name();
	message.question().pointer(12).a_record(60, 192, 0, 2, 1);
	EXPECT_EQ(parse(message), 0);
	expect_stored({{"192.0.2.1", "www.example", 1u << 5, start_time + 60}});
}

TEST_F(DnsParserTest, DotInALabelIsADot)
{
	permit("www.example", 5);
	DnsMessage message;
	message.header(1).label("www.example").end_of_name().question().pointer(12).a_record(60, 192, 0, 2, 1);
	EXPECT_EQ(parse(message), 0);
	expect_stored({{"192.0.2.1", "www.example", 1u << 5, start_time + 60}});
}

// ---- The walled garden

TEST_F(DnsParserTest, AsksEveryRow)
{
	for (uint32_t row = 0; row < 28; ++row) {
		forget();
		permit("www.example", row);
		machine.log.clear();
		EXPECT_EQ(parse(answer_for("www.example", 0)), 0);
		EXPECT_LOG(debug_line("Get DNS response: www.example, is_match_wg=" + std::to_string(1 << row) + "\n"));
		permit("elsewhere.example", row);
	}
}

TEST_F(DnsParserTest, StoresTheMaskOfEveryMatchingRow)
{
	permit("*.example", 0);
	permit("www.example", 23);
	permit("www.*", 27);
	permit("example", 3);
	machine.log.clear();
	EXPECT_EQ(parse(answer_for("www.example", 1).pointer(12).a_record(60, 192, 0, 2, 1)), 0);
	// 2^27 + 2^23 + 2^0
	EXPECT_LOG(debug_line("Get DNS response: www.example, is_match_wg=142606337\n"),
		   debug_line("(0/1, is_match_wg=142606337)Qerey: www.example, Answer: www.example, 192.0.2.1, "
			      "16908480 mod 1024=192, ttl: 60\n"),
		   entries(1));
	expect_stored({{"192.0.2.1", "www.example", 142606337, start_time + 60}});
}

TEST_F(DnsParserTest, DefaultRulePermitsEveryRow)
{
	ASSERT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).domain("www.example").write(), 0);
	EXPECT_EQ(parse(answer_for("www.example", 1).pointer(12).a_record(60, 192, 0, 2, 1)), 0);
	expect_stored({{"192.0.2.1", "www.example", 0x0fffffff, start_time + 60}});
}

TEST_F(DnsParserTest, ComparesNamesWithCase)
{
	permit("www.example", 0);
	EXPECT_EQ(parse(answer_for("WWW.example", 1).pointer(12).a_record(60, 192, 0, 2, 1)), 0);
	expect_stored({{"192.0.2.1", "WWW.example", 0, start_time + 60}});
}

// Known, and told in docs/security.md: what a rule without a name, or the rule "*", lets a question without a name do.
TEST_F(DnsParserTest, EmptyNameMatchesAddressRulesAndTheLoneWildcard)
{
	ASSERT_EQ(WgRecord(UPDATE_RULE, 1, 1).address(ipv4(10, 1, 2, 0), ipv4(255, 255, 255, 0)).write(), 0);
	permit("*", 2);
	permit("?", 3);
	permit("*.example", 4);
	permit("**", 5);
	DnsMessage message;
	message.header(1).end_of_name().question().end_of_name().a_record(60, 192, 0, 2, 1);
	EXPECT_EQ(parse(message), 0);
	// Rows 1, 2, 3 and 5.
	expect_stored({{"192.0.2.1", "", 46, start_time + 60}});
}

// The way out that docs/security.md names.
TEST_F(DnsParserTest, NoNameMatchesAnAddressRuleWithAPatternOf127CharactersWithoutADot)
{
	wg_rule rule = address_rule(ipv4(10, 1, 2, 0), ipv4(255, 255, 255, 0));
	set_text(rule.domain_name, std::string(127, '-'));
	WgRecord record(UPDATE_RULE, 1, 1);
	record.record.rules[record.record.rule_number++] = rule;
	ASSERT_EQ(record.write(), 0);
	EXPECT_TRUE(address_matches(ipv4(10, 1, 2, 3), 1));
	for (const std::vector<size_t> &labels :
	     {std::vector<size_t>{}, {126}, {127}, {128}, {255}, {63, 63}, {125, 1}, {126, 1}, {63, 63, 1}}) {
		DnsMessage message;
		message.header(1);
		for (const size_t count : labels) {
			message.label(count, '-');
		}
		message.end_of_name().question().end_of_name().a_record(60, 192, 0, 2, 1);
		EXPECT_EQ(parse(message), 0);
		ASSERT_EQ(stored_addresses().size(), 1u);
		EXPECT_EQ(stored_addresses().front().mask, 0u);
		forget();
	}
}

// ---- Records

TEST_F(DnsParserTest, StoresTheAddressesOfACnameChainUnderTheQuestionsName)
{
	DnsMessage message = answer_for("www.example", 2);
	message.pointer(12).record(dns_cname, 300, 15).name("alias.example");
	message.pointer(41).a_record(60, 192, 0, 2, 1);
	EXPECT_EQ(parse(message), 0);
	EXPECT_LOG(no_match,
		   debug_line("(1/2, is_match_wg=0)Qerey: www.example, Answer: alias.example, 192.0.2.1, "
			      "16908480 mod 1024=192, ttl: 60\n"),
		   entries(1));
	expect_stored({{"192.0.2.1", "www.example", 0, start_time + 60}});
}

TEST_F(DnsParserTest, FilesAddressesByTheirLowTenBits)
{
	DnsMessage message = answer_for("www.example", 3);
	message.pointer(12).a_record(60, 10, 7, 0, 1);
	message.pointer(12).a_record(61, 192, 0, 2, 1);
	message.pointer(12).a_record(62, 255, 255, 255, 255);
	EXPECT_EQ(parse(message), 0);
	EXPECT_LOG(no_match,
		   debug_line("(0/3, is_match_wg=0)Qerey: www.example, Answer: www.example, 10.7.0.1, "
			      "16779018 mod 1024=778, ttl: 60\n"),
		   entries(1),
		   debug_line("(1/3, is_match_wg=0)Qerey: www.example, Answer: www.example, 192.0.2.1, "
			      "16908480 mod 1024=192, ttl: 61\n"),
		   entries(2),
		   debug_line("(2/3, is_match_wg=0)Qerey: www.example, Answer: www.example, 255.255.255.255, "
			      "4294967295 mod 1024=1023, ttl: 62\n"),
		   entries(3));
	expect_stored({{"192.0.2.1", "www.example", 0, start_time + 61},
		       {"10.7.0.1", "www.example", 0, start_time + 60},
		       {"255.255.255.255", "www.example", 0, start_time + 62}});
}

TEST_F(DnsParserTest, TakesTheTimeToLiveAsAnUnsignedNumber)
{
	DnsMessage message = answer_for("www.example", 2);
	message.pointer(12).a_record(0, 192, 0, 2, 1).pointer(12).a_record(0xffffffff, 193, 0, 2, 1);
	EXPECT_EQ(parse(message), 0);
	EXPECT_TRUE(log_has(debug_line("(1/2, is_match_wg=0)Qerey: www.example, Answer: www.example, 193.0.2.1, "
				       "16908481 mod 1024=193, ttl: 4294967295\n")));
	expect_stored({{"192.0.2.1", "www.example", 0, start_time},
		       {"193.0.2.1", "www.example", 0, start_time + 4294967295}});
}

TEST_F(DnsParserTest, StepsOverOtherRecords)
{
	DnsMessage message = answer_for("www.example", 6);
	message.pointer(12).record(dns_txt, 60, 5).raw("\4text");
	message.pointer(12).record(dns_aaaa, 60, 16).fill(16, 1);
	message.end_of_name().record(dns_opt, 0, 0);
	message.pointer(12).record(0, 60, 4).address(192, 0, 2, 9);
	message.pointer(12).record(257, 60, 4).address(192, 0, 2, 9);
	message.pointer(12).a_record(60, 192, 0, 2, 1);
	EXPECT_EQ(parse(message), 0);
	expect_stored({{"192.0.2.1", "www.example", 0, start_time + 60}});
}

TEST_F(DnsParserTest, StoresAddressesOfRecordsOfEveryClass)
{
	// The internet's is 1; 255 means any.
	for (const uint16_t record_class : {0, 2, 3, 254, 255, 256, 65535}) {
		forget();
		DnsMessage message = answer_for("www.example", 1);
		message.pointer(12).u16(dns_a).u16(record_class).u32(60).u16(4).address(192, 0, 2, 1);
		EXPECT_EQ(parse(message), 0);
		expect_stored({{"192.0.2.1", "www.example", 0, start_time + 60}});
	}
}

TEST_F(DnsParserTest, ReadsTheAnswerSectionOnly)
{
	DnsMessage message;
	message.u16(1).u16(answer_flags).u16(1).u16(1).u16(1).u16(1).name("www.example").question();
	message.pointer(12).a_record(60, 192, 0, 2, 1);
	message.pointer(12).a_record(60, 192, 0, 2, 2).pointer(12).a_record(60, 192, 0, 2, 3).raw("garbage");
	EXPECT_EQ(parse(message), 0);
	expect_stored({{"192.0.2.1", "www.example", 0, start_time + 60}});
	EXPECT_FALSE(log_has(answer_failed));
}

TEST_F(DnsParserTest, TakesTheFirstFourBytesOfLongerData)
{
	DnsMessage message = answer_for("www.example", 2);
	message.pointer(12).record(dns_a, 60, 6).address(192, 0, 2, 1).raw("xy");
	message.pointer(12).a_record(60, 192, 0, 2, 2);
	EXPECT_EQ(parse(message), 0);
	expect_stored(
		{{"192.0.2.1", "www.example", 0, start_time + 60}, {"192.0.2.2", "www.example", 0, start_time + 60}});
}

TEST_F(DnsParserTest, SkipsARecordWithTooLittleDataSilently)
{
	for (uint16_t length = 0; length < 4; ++length) {
		forget();
		DnsMessage message = answer_for("www.example", 2);
		message.pointer(12).record(dns_a, 60, length).fill(length, 9).pointer(12).a_record(60, 192, 0, 2, 1);
		EXPECT_EQ(parse(message), 0);
		EXPECT_LOG(no_match,
			   debug_line("(1/2, is_match_wg=0)Qerey: www.example, Answer: www.example, 192.0.2.1, "
				      "16908480 mod 1024=192, ttl: 60\n"),
			   entries(1));
		expect_stored({{"192.0.2.1", "www.example", 0, start_time + 60}});
	}
}

TEST_F(DnsParserTest, FailsAtAnAddressOutsideTheMessage)
{
	for (uint16_t length : {0, 3, 4}) {
		for (size_t present = 0; present < 4; ++present) {
			DnsMessage message = answer_for("www.example", 1);
			message.pointer(12).record(dns_a, 60, length).fill(present, 9);
			EXPECT_EQ(parse(message), 0);
			EXPECT_LOG(no_match, answer_failed);
		}
	}
	expect_nothing_stored();
}

TEST_F(DnsParserTest, FailsAtFixedBytesOutsideTheMessage)
{
	const Bytes whole = answer_for("www.example", 1).pointer(12).record(dns_txt, 60, 0);
	for (size_t missing = 1; missing <= 10; ++missing) {
		EXPECT_EQ(parse(Bytes(whole.begin(), whole.end() - static_cast<int>(missing))), 0);
		EXPECT_LOG(no_match, answer_failed);
	}
	EXPECT_EQ(parse(whole), 0);
	EXPECT_LOG(no_match);
}

TEST_F(DnsParserTest, StoresAnAddressWhoseDataReachesBeyondTheMessage)
{
	DnsMessage message = answer_for("www.example", 1);
	message.pointer(12).record(dns_a, 60, 65000).address(192, 0, 2, 1);
	EXPECT_EQ(parse(message), 0);
	expect_stored({{"192.0.2.1", "www.example", 0, start_time + 60}});
	EXPECT_FALSE(log_has(answer_failed));
}

TEST_F(DnsParserTest, FailsAtARecordBehindTheMessage)
{
	DnsMessage message = answer_for("www.example", 2);
	message.pointer(12).record(dns_txt, 60, 65000).raw("text");
	EXPECT_EQ(parse(message), 0);
	EXPECT_LOG(no_match, name_error, answer_failed);
}

TEST_F(DnsParserTest, FailsWhenThereAreFewerRecordsThanCounted)
{
	EXPECT_EQ(parse(answer_for("www.example", 65535).pointer(12).a_record(60, 192, 0, 2, 1)), 0);
	EXPECT_LOG(no_match,
		   debug_line("(0/65535, is_match_wg=0)Qerey: www.example, Answer: www.example, 192.0.2.1, "
			      "16908480 mod 1024=192, ttl: 60\n"),
		   entries(1), name_error, answer_failed);
	expect_stored({{"192.0.2.1", "www.example", 0, start_time + 60}});
}

TEST_F(DnsParserTest, FailsAtAStepOf65536)
{
	// 2 bytes of name, 10 of fields, 65524 of data.
	for (const uint16_t type : {dns_txt, dns_a}) {
		forget();
		DnsMessage message = answer_for("www.example", 2);
		message.pointer(12).record(type, 60, 65524).address(192, 0, 2, 1);
		EXPECT_EQ(parse(message), 0);
		EXPECT_EQ(machine.log.take().back(), answer_failed);
		EXPECT_EQ(stored_addresses().size(), type == dns_a ? 1u : 0u);
	}
}

TEST_F(DnsParserTest, FailsAtAStepOf65536EvenAfterTheLastRecord)
{
	EXPECT_EQ(parse(answer_for("www.example", 1).pointer(12).record(dns_txt, 60, 65524)), 0);
	EXPECT_LOG(no_match, answer_failed);
}

TEST_F(DnsParserTest, LongerStepLeadsBackIntoTheRecord)
{
	// 65536 + 12: the next record starts behind the fixed bytes of this one.
	DnsMessage message = answer_for("www.example", 2);
	message.label("a").end_of_name().record(dns_txt, 60, 65535).raw("x");
	message.end_of_name().a_record(60, 192, 0, 2, 1);
	EXPECT_EQ(parse(message), 0);
	// The step is 3 + 10 + 65535 - 65536 = 12: one byte before the end of the fixed bytes lies 0xff, a pointer to
	// 0x3f78, which is outside.
	EXPECT_LOG(no_match,
		   debug_line("DNS packets might be corrupt or fragmented: " + at(0) + " + 16248 > " +
			      at(message.size() - 1) + "\n"),
		   name_error, answer_failed);
	forget();
	// With 65526 + 2 + 10 it is 2: the fields of this record are the next one's name.
	message = answer_for("www.example", 2);
	message.pointer(12).record(dns_a, 0x01000000, 65526).address(192, 0, 2, 1).fill(20, 0);
	EXPECT_EQ(parse(message), 0);
	// Name: 0; type 0x0100, class 0x0101; the rest does not matter.
	EXPECT_FALSE(log_has(answer_failed));
	expect_stored({{"192.0.2.1", "www.example", 0, start_time + 0x01000000}});
}

TEST_F(DnsParserTest, KeepsWhatWasStoredBeforeAFailure)
{
	DnsMessage message = answer_for("www.example", 3);
	message.pointer(12).a_record(60, 192, 0, 2, 1).pointer(0x3fff).a_record(60, 192, 0, 2, 2);
	message.pointer(12).a_record(60, 192, 0, 2, 3);
	EXPECT_EQ(parse(message), 0);
	expect_stored({{"192.0.2.1", "www.example", 0, start_time + 60}});
}

TEST_F(DnsParserTest, FailsAtAnOwnerNameThatPointsBeyondTheMessage)
{
	const DnsMessage message = answer_for("www.example", 1).pointer(45).a_record(60, 192, 0, 2, 1);
	ASSERT_EQ(message.size(), 45u);
	EXPECT_EQ(parse(message), 0);
	EXPECT_LOG(no_match,
		   debug_line("DNS packets might be corrupt or fragmented: " + at(0) + " + 45 > " + at(44) + "\n"),
		   name_error, answer_failed);
	expect_nothing_stored();
}

TEST_F(DnsParserTest, ReportsALoopOnceForEachNestingAndOnceItself)
{
	EXPECT_EQ(parse(answer_for("www.example", 1).pointer(29).a_record(60, 192, 0, 2, 1)), 0);
	std::vector<LogLine> lines(36, name_error);
	lines.front() = no_match;
	lines.back() = answer_failed;
	EXPECT_EQ(machine.log.take(), lines);
	expect_nothing_stored();
}

TEST_F(DnsParserTest, LogsTheOwnerCutToItsRoom)
{
	DnsMessage message = answer_for("www.example", 1);
	message.labels("alias").label(63, 'a').label(63, 'b').end_of_name().a_record(60, 192, 0, 2, 1);
	EXPECT_EQ(parse(message), 0);
	const std::string owner = "alias." + std::string(63, 'a');
	EXPECT_LOG(
		no_match,
		debug_line("domain length > the max size 128 (partial domain = " + owner + ", 69 + 63 + 1 >= 128)\n"),
		debug_line("(0/1, is_match_wg=0)Qerey: www.example, Answer: " + owner +
			   ", 192.0.2.1, 16908480 mod 1024=192, ttl: 60\n"),
		entries(1));
}

// ---- Lines and their levels

TEST_F(DnsParserTest, PrintsNothingBelowDebugLevel2)
{
	debug_level = 1;
	EXPECT_EQ(parse(DnsMessage().header(1).label("www")), 0);
	EXPECT_EQ(parse(answer_for("www.example", 2).pointer(12).a_record(60, 192, 0, 2, 1)), 0);
	EXPECT_EQ(parse(DnsMessage().header(1, answer_flags | 3).name("www.example").question()), 0);
	EXPECT_NO_LOG();
	EXPECT_EQ(stored_addresses().size(), 1u);
}

TEST_F(DnsParserTest, PrintsFailuresFromDebugLevel2)
{
	debug_level = 2;
	EXPECT_EQ(parse(DnsMessage().header(1).label("www")), 0);
	EXPECT_LOG(query_failed);
	EXPECT_EQ(parse(answer_for("www.example", 2).pointer(12).a_record(60, 192, 0, 2, 1)), 0);
	EXPECT_LOG(name_error, answer_failed);
	EXPECT_EQ(parse(answer_for("www.example", 1).pointer(12)), 0);
	EXPECT_LOG(answer_failed);
	EXPECT_EQ(parse(DnsMessage().header(1, answer_flags | 3).name("www.example").question()), 0);
	EXPECT_NO_LOG();
}

TEST_F(DnsParserTest, SectionsRefuseNullPointers)
{
	const Bytes message = DnsMessage().end_of_name();
	const uint8_t *const byte = message.data();
	char name[DNS_NAME_SIZE] = "";
	const std::string message_text = pointer_text(byte);
	const std::string name_text = pointer_text(name);
	for (const int32_t level : {2, 1}) {
		debug_level = level;
		EXPECT_EQ(read_question_name(nullptr, byte, byte), nullptr);
		EXPECT_EQ(read_question_name(name, nullptr, byte), nullptr);
		EXPECT_FALSE(store_answers(nullptr, name, byte, byte, 1, 0));
		EXPECT_FALSE(store_answers(byte, nullptr, byte, byte, 1, 0));
		EXPECT_FALSE(store_answers(byte, name, nullptr, byte, 1, 0));
		if (level == 2) {
			EXPECT_LOG(debug_line("invalid parameters. (buff = (nil), query = " + message_text + ")\n"),
				   debug_line("invalid parameters. (buff = " + name_text + ", query = (nil))\n"),
				   debug_line("invalid parameters. (dns = (nil), buff = " + name_text +
					      ", answer = " + message_text + ")\n"),
				   debug_line("invalid parameters. (dns = " + message_text +
					      ", buff = (nil), answer = " + message_text + ")\n"),
				   debug_line("invalid parameters. (dns = " + message_text + ", buff = " + name_text +
					      ", answer = (nil))\n"));
		}
		EXPECT_NO_LOG();
	}
}

// ---- Memory

TEST_F(DnsParserTest, StoresNothingWithoutMemory)
{
	machine.memory.fail_all_allocations(true);
	EXPECT_EQ(parse(answer_for("www.example", 1).pointer(12).a_record(60, 192, 0, 2, 1)), 0);
	machine.memory.fail_all_allocations(false);
	expect_nothing_stored();
}

TEST_F(DnsParserTest, AllocatesOnlyForTheCache)
{
	const uint64_t before = machine.memory.attempts();
	EXPECT_EQ(parse(answer_for("www.example", 1).pointer(12).a_record(60, 192, 0, 2, 1)), 0);
	// An entry, its first name's node and that name.
	EXPECT_EQ(machine.memory.attempts() - before, 3u);
	EXPECT_EQ(parse(answer_for("www.example", 1).pointer(12).a_record(60, 192, 0, 2, 1)), 0);
	EXPECT_EQ(machine.memory.attempts() - before, 3u);
}

} // namespace captive_portal::test
