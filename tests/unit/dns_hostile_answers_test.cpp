// SPDX-License-Identifier: GPL-2.0-only
// Answers made to do harm. What the parser takes it takes, and some of it a careful resolver would not; nothing worse
// happens: no byte is read outside, every text is bounded, every loop ends, no memory is lost.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "tests/unit/dns_parser_fixture.h"

namespace captive_portal::test
{

namespace
{

class HostileAnswersTest : public DnsParserFixture
{
protected:
	// The addresses that the message leaves in an empty cache, sorted.
	std::vector<std::string> addresses_of(const Bytes &message)
	{
		forget();
		EXPECT_EQ(parse(message), message.size() <= 12 ? -1 : 0);
		std::vector<std::string> addresses;
		for (const Stored &stored : stored_addresses()) {
			EXPECT_LE(stored.name.size(), 127u);
			addresses.push_back(stored.address);
		}
		std::sort(addresses.begin(), addresses.end());
		return addresses;
	}
};

using Addresses = std::vector<std::string>;

const Addresses none = {};
const Addresses first = {"192.0.2.1"};

DnsMessage one_record(uint16_t answers = 1)
{
	return answer_for("www.example", answers).pointer(12).a_record(60, 192, 0, 2, 1);
}

} // namespace

TEST_F(HostileAnswersTest, TooShortForAnything)
{
	for (size_t size = 0; size <= 13; ++size) {
		EXPECT_EQ(addresses_of(Bytes(size, 0)), none);
		EXPECT_EQ(addresses_of(Bytes(size, 0xff)), none);
	}
	EXPECT_EQ(addresses_of(DnsMessage().header(0, answer_flags, 0)), none);
	EXPECT_EQ(addresses_of(Bytes(12, 0xff)), none);
}

TEST_F(HostileAnswersTest, LyingCounts)
{
	EXPECT_EQ(addresses_of(one_record(65535)), first);
	EXPECT_EQ(addresses_of(one_record(0)), none);
	DnsMessage message;
	message.u16(1).u16(answer_flags).u16(1).u16(65535).u16(65535).u16(65535).end_of_name();
	EXPECT_EQ(addresses_of(message), none);
	EXPECT_EQ(addresses_of(message.question()), none);
}

TEST_F(HostileAnswersTest, PointersTwoBytesApartOverTheWholeMessage)
{
	DnsMessage message = answer_for("www.example", 1);
	for (uint32_t offset = 29; offset < 1400; offset += 2) {
		message.pointer(offset + 2);
	}
	EXPECT_EQ(addresses_of(message), none);
	message = answer_for("www.example", 1);
	for (uint32_t offset = 29; offset < 1400; offset += 2) {
		message.pointer(offset - 2);
	}
	EXPECT_EQ(addresses_of(message), none);
}

TEST_F(HostileAnswersTest, ManyNamesOverOneLongName)
{
	// 300 labels of a byte; each record's owner points to the first.
	DnsMessage message = answer_for("www.example", 200);
	const auto start = static_cast<uint32_t>(message.size());
	for (int i = 0; i < 300; ++i) {
		message.label("a");
	}
	message.end_of_name().a_record(60, 192, 0, 2, 1);
	for (uint8_t i = 1; i < 200; ++i) {
		message.pointer(start).a_record(60, 192, 0, 2, static_cast<uint8_t>(i + 1));
	}
	debug_level = 1;
	EXPECT_EQ(addresses_of(message).size(), 200u);
}

TEST_F(HostileAnswersTest, LargestMessage)
{
	// The data of the first record are 8,000 labels; as many records as there is room for walk them all.
	DnsMessage message = answer_for("www.example", 2700);
	message.end_of_name().record(dns_txt, 60, 16001);
	const auto start = static_cast<uint32_t>(message.size());
	for (int i = 0; i < 8000; ++i) {
		message.label("a");
	}
	message.end_of_name();
	while (message.size() + 16 <= 65507) {
		message.pointer(start).record(dns_a, 60, 4).u32(static_cast<uint32_t>(message.size()));
	}
	message.fill(65507 - message.size(), 0);
	debug_level = 1;
	EXPECT_EQ(addresses_of(message).size(), 2699u);
}

TEST_F(HostileAnswersTest, RecordsThatAreTheLabelsOfTheirOwners)
{
	// Records of four bytes from offset 19 on: a pointer to offset 3, and the 65,528 that makes the step 4. From
	// there a label of 16 bytes leads to offset 20, and each 3 to the next. 359 of them, to the zero at 1,456. The
	// record at 1,447 is the first whose length is not the next but one's; it and two roots are the last.
	DnsMessage message;
	message.u8(1).u8(2).u8(0x84).u8(16).u16(1).u16(65535).u16(0).u16(0).name("a").question();
	ASSERT_EQ(message.size(), 19u);
	for (int i = 0; i < 359; ++i) {
		message.pointer(3).u16(65528);
	}
	message.fill(17, 0);
	ASSERT_EQ(message.size(), 1472u);
	EXPECT_EQ(addresses_of(message), none);
	// 16 bytes, and 27 labels of 4 with the dot, have room. The other 332 say that they have none, 358 times: no name
	// is walked more than once, and none is left early.
	const std::vector<LogLine> lines = machine.log.take();
	ASSERT_EQ(lines.size(), 2u + 358 * 332);
	EXPECT_EQ(lines.front(), debug_line("Get DNS response: a, is_match_wg=0\n"));
	EXPECT_EQ(lines.back(), debug_line("dns answer parsing failed\n"));
	debug_level = 2;
	EXPECT_EQ(addresses_of(message), none);
	EXPECT_LOG(debug_line("dns answer parsing failed\n"));
}

TEST_F(HostileAnswersTest, NameThatVisitsAllOfTheLargestMessage)
{
	// Each 1 is the length of a label, and the letter of another: the name takes every other one to the end, and, by
	// a pointer behind a label of two bytes, those between to the zero that is the first of the two.
	DnsMessage message = answer_for("www.example", 1);
	const auto start = static_cast<uint32_t>(message.size());
	message.fill(65458, 1).u8(2).u8(0).u8('a').pointer(start + 1).a_record(60, 192, 0, 2, 1);
	message.u8(0);
	ASSERT_EQ(message.size(), 65507u);
	debug_level = 2;
	EXPECT_EQ(addresses_of(message), first);
	EXPECT_NO_LOG();
}

TEST_F(HostileAnswersTest, PointersOutOfPlace)
{
	const auto owner_at = [](uint32_t offset) {
		return answer_for("www.example", 1).pointer(offset).a_record(60, 192, 0, 2, 1);
	};
	ASSERT_EQ(owner_at(12).size(), 45u);
	// To the last byte, the end, behind it; to the pointer itself and its second byte; to a letter.
	for (const uint32_t offset : {44u, 45u, 46u, 0x3fffu, 29u, 30u, 17u}) {
		EXPECT_EQ(addresses_of(owner_at(offset)), none) << offset;
	}
	// To zero bytes, which are roots: in the header, the question, the record itself.
	for (const uint32_t offset : {8u, 10u, 24u, 31u}) {
		EXPECT_EQ(addresses_of(owner_at(offset)), first) << offset;
	}
}

TEST_F(HostileAnswersTest, LabelsOfOtherTypes)
{
	for (const uint8_t type : {0x40, 0x41, 0x7f, 0x80, 0xbf}) {
		EXPECT_EQ(addresses_of(answer_for("www.example", 1).u8(type).a_record(60, 192, 0, 2, 1)), none);
		EXPECT_EQ(addresses_of(DnsMessage().header(1).u8(type).question().a_record(60, 192, 0, 2, 1)), none);
	}
}

TEST_F(HostileAnswersTest, LongestNames)
{
	DnsMessage longest;
	longest.header(1);
	for (int i = 0; i < 127; ++i) {
		longest.label("a");
	}
	longest.end_of_name().question().pointer(12).a_record(60, 192, 0, 2, 1);
	EXPECT_EQ(addresses_of(longest), first);
	// 64 letters and 63 dots.
	EXPECT_EQ(stored_addresses().front().name.size(), 127u);
	DnsMessage longer;
	longer.header(1);
	for (int i = 0; i < 1000; ++i) {
		longer.label("abc");
	}
	longer.end_of_name().question().pointer(12).a_record(60, 192, 0, 2, 1);
	EXPECT_EQ(addresses_of(longer), first);
	// 32 labels of three letters, and 31 dots.
	EXPECT_EQ(stored_addresses().front().name.size(), 127u);
}

TEST_F(HostileAnswersTest, RootAsOwnerAndAsQuestion)
{
	EXPECT_EQ(addresses_of(answer_for("www.example", 1).end_of_name().a_record(60, 192, 0, 2, 1)), first);
	DnsMessage message;
	message.header(1).end_of_name().question().end_of_name().a_record(60, 192, 0, 2, 1);
	EXPECT_EQ(addresses_of(message), first);
}

TEST_F(HostileAnswersTest, DataLengths)
{
	for (const uint16_t length : {5, 8, 0x7fff, 0x8000, 0xffff}) {
		DnsMessage message = answer_for("www.example", 1);
		message.pointer(12).record(dns_a, 60, length).address(192, 0, 2, 1);
		EXPECT_EQ(addresses_of(message), first) << length;
	}
	for (const uint16_t length : {0, 3}) {
		DnsMessage message = answer_for("www.example", 1);
		message.pointer(12).record(dns_a, 60, length).address(192, 0, 2, 1);
		EXPECT_EQ(addresses_of(message), none) << length;
	}
	for (const uint16_t length : {15, 17, 65535}) {
		DnsMessage message = answer_for("www.example", 1);
		message.pointer(12).record(dns_aaaa, 60, length).fill(16, 1);
		EXPECT_EQ(addresses_of(message), none) << length;
	}
}

TEST_F(HostileAnswersTest, CnameChains)
{
	// A loop, and 80 links that no A record belongs to.
	DnsMessage message = answer_for("www.example", 82);
	for (int i = 0; i < 81; ++i) {
		message.pointer(12).record(dns_cname, 60, 2).pointer(12);
	}
	message.labels("unrelated").end_of_name().a_record(60, 192, 0, 2, 1);
	EXPECT_EQ(addresses_of(message), first);
	// A target's name is never read.
	DnsMessage bad_target = answer_for("www.example", 2);
	bad_target.pointer(12).record(dns_cname, 60, 2).pointer(0x3fff);
	bad_target.pointer(12).a_record(60, 192, 0, 2, 1);
	EXPECT_EQ(addresses_of(bad_target), first);
}

TEST_F(HostileAnswersTest, BytesThatMeanSomethingElsewhere)
{
	for (const std::string_view label : {"%s%n%p", "a\nb", "\\", "/", "\xff\xfe", "a b", "*", "?"}) {
		DnsMessage message;
		message.header(1).label(label).label("example").end_of_name().question();
		message.pointer(12).a_record(60, 192, 0, 2, 1);
		EXPECT_EQ(addresses_of(message), first);
		const std::string name = std::string(label) + ".example";
		EXPECT_EQ(stored_addresses().front().name, name);
		EXPECT_TRUE(log_has(debug_line("Get DNS response: " + name + ", is_match_wg=0\n")));
	}
}

// The cache refuses no address: which ones a client may reach is for the hooks to say.
TEST_F(HostileAnswersTest, AddressesThatAreNoServers)
{
	DnsMessage message = answer_for("www.example", 4);
	message.pointer(12).a_record(60, 0, 0, 0, 0).pointer(12).a_record(60, 127, 0, 0, 1);
	message.pointer(12).a_record(60, 224, 0, 0, 1).pointer(12).a_record(60, 192, 168, 1, 1);
	EXPECT_EQ(addresses_of(message), (Addresses{"0.0.0.0", "127.0.0.1", "192.168.1.1", "224.0.0.1"}));
}

TEST_F(HostileAnswersTest, FillsTheCacheToItsLimitAndNoFurther)
{
	debug_level = 0;
	machine.log.keep(false);
	for (uint32_t number = 0; number < 17000; number += 1000) {
		DnsMessage message = answer_for("www.example", 1000);
		for (uint32_t i = 0; i < 1000; ++i) {
			message.pointer(12).record(dns_a, 60, 4).u32(0x0a000000 + number + i);
		}
		EXPECT_EQ(parse(message), 0);
	}
	EXPECT_EQ(total_ip_count, 16384);
	EXPECT_EQ(stored_addresses().size(), 16384u);
	forget();
}

TEST_F(HostileAnswersTest, NamesThatOnlyLookPermitted)
{
	permit("*.example", 0);
	for (const std::string_view name : {"example.test", "evil.example.test", "www.examples", "example"}) {
		EXPECT_EQ(addresses_of(answer_for(name, 1).pointer(12).a_record(60, 192, 0, 2, 1)), first);
		EXPECT_EQ(stored_addresses().front().mask, 0u) << name;
	}
	EXPECT_EQ(addresses_of(answer_for("www.example", 1).pointer(12).a_record(60, 192, 0, 2, 1)), first);
	EXPECT_EQ(stored_addresses().front().mask, 1u);
}

// Known, and told in docs/security.md: names that honest servers answer for, and that their owner chooses.
TEST_F(HostileAnswersTest, NamesOfSomebodyElseThatCountAsPermittedOnes)
{
	permit("*.permitted.example", 0);
	permit("www.permitted.example", 1);
	DnsMessage cut;
	cut.header(1).label(63, 'a').labels("permitted.example").label(63, 'b').name("attacker.test").question();
	EXPECT_EQ(addresses_of(cut.pointer(12).a_record(60, 192, 0, 2, 1)), first);
	expect_stored({{"192.0.2.1", std::string(63, 'a') + ".permitted.example", 1, start_time + 60}});
	DnsMessage hidden;
	hidden.header(1)
		.labels("www.permitted")
		.label(std::string_view("example\0x", 9))
		.name("attacker.test")
		.question();
	EXPECT_EQ(addresses_of(hidden.pointer(12).a_record(60, 192, 0, 2, 1)), first);
	expect_stored({{"192.0.2.1", "www.permitted.example", 3, start_time + 60}});
	// A rule of 64 characters, by long labels alone.
	const std::string rule = std::string(52, 'a') + ".permitted.x";
	ASSERT_EQ(rule.size(), 64u);
	permit(rule, 2);
	DnsMessage behind;
	behind.header(1).labels(rule).label(63, 'b').name("attacker.test").question();
	EXPECT_EQ(addresses_of(behind.pointer(12).a_record(60, 192, 0, 2, 1)), first);
	expect_stored({{"192.0.2.1", rule, 4, start_time + 60}});
}

TEST_F(HostileAnswersTest, NameThatBeginsWithAZeroByteCountsAsNone)
{
	ASSERT_EQ(WgRecord(UPDATE_RULE, 1, 1).address(ipv4(10, 1, 2, 0), ipv4(255, 255, 255, 0)).write(), 0);
	wg_rule closed = address_rule(ipv4(10, 1, 2, 0), ipv4(255, 255, 255, 0));
	set_text(closed.domain_name, std::string(127, '-'));
	WgRecord record(UPDATE_RULE, 2, 1);
	record.record.rules[record.record.rule_number++] = closed;
	ASSERT_EQ(record.write(), 0);
	permit("*", 3);
	DnsMessage message;
	message.header(1).label(std::string_view("\0x", 2)).name("attacker.test").question();
	EXPECT_EQ(addresses_of(message.pointer(12).a_record(60, 192, 0, 2, 1)), first);
	// Rows 1 and 3.
	expect_stored({{"192.0.2.1", "", 10, start_time + 60}});
}

TEST_F(HostileAnswersTest, NoiseOfEverySize)
{
	machine.log.keep(false);
	std::mt19937 random(53);
	for (int round = 0; round < 3000; ++round) {
		DnsMessage message;
		message.header(static_cast<uint16_t>(random()));
		const size_t size = random() % 600;
		for (size_t i = 0; i < size; ++i) {
			message.u8(random() % (random() % 2 == 0 ? 8 : 256));
		}
		addresses_of(message);
		forget();
	}
}

} // namespace captive_portal::test
