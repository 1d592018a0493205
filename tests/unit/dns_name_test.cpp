// SPDX-License-Identifier: GPL-2.0-only
#include "garden/dns_name.h"

#include <gtest/gtest.h>

#include <array>
#include <random>

#include "base/debug_level.h"
#include "tests/support/host_test.h"
#include "tests/support/recursive_dns_name.h"
#include "tests/unit/dns_messages.h"

namespace captive_portal::test
{

namespace
{

using namespace std::string_literals;

// Names of so many equal characters.
std::string run(size_t count, char character)
{
	return std::string(count, character);
}

const LogLine nested_error = debug_line("_parse_dns_domain() error\n");

// What is said of a label, and of the dot before a nested name, that does not fit.
LogLine label_too_long(const std::string &partial, int pos, int count, int room)
{
	return debug_line("domain length > the max size 128 (partial domain = " + partial + ", " + std::to_string(pos) +
			  " + " + std::to_string(count) + " + 1 >= " + std::to_string(room) + ")\n");
}
LogLine dot_too_long(const std::string &partial, int pos, int room)
{
	return debug_line("domain length > the max size 128 (partial domain = " + partial + ", " + std::to_string(pos) +
			  " + 1 >= " + std::to_string(room) + ")\n");
}

// Message and result lie in memory of exactly their sizes.
class DnsNameTest : public HostTest
{
protected:
	DnsNameTest() { debug_level = 3; }

	// Decodes the name at `at`; both must outlive a look at the lines.
	void decode(const Bytes &message, size_t at, int16_t room = DNS_NAME_SIZE)
	{
		message_ = Bytes(message.begin(), message.end());
		text_.assign(room > 0 ? static_cast<size_t>(room) : 0, '\xee');
		text_.shrink_to_fit();
		// An empty vector has no memory; nothing may be written to this.
		char *const out = text_.empty() ? &unwritten_ : text_.data();
		length_ = 0xeeee;
		const uint8_t *const behind =
			parse_dns_domain(message_.data(), message_.data() + at, message_.data() + message_.size() - 1,
					 out, &length_, room);
		EXPECT_EQ(message_, message) << "the message was changed";
		EXPECT_EQ(unwritten_, '\xee');
		behind_ = behind == nullptr ? std::nullopt : std::optional<size_t>(behind - message_.data());
	}

	void expect_name(size_t behind, const std::string &text, uint16_t length)
	{
		EXPECT_EQ(behind_, behind);
		expect_text(text);
		EXPECT_EQ(length_, length);
	}
	void expect_name(size_t behind, const std::string &text)
	{
		expect_name(behind, text, static_cast<uint16_t>(text.size()));
	}
	void expect_text(std::string text)
	{
		ASSERT_LE(text.size(), text_.size());
		text.resize(text_.size(), '\0');
		EXPECT_EQ(std::string(text_.begin(), text_.end()), text);
	}
	void expect_failure() { EXPECT_EQ(behind_, std::nullopt); }

	[[nodiscard]] std::string at(size_t offset) const { return pointer_text(message_.data() + offset); }
	// The line about `count` bytes from `offset` on that reach beyond the last byte.
	[[nodiscard]] LogLine corrupt(size_t offset, unsigned count) const
	{
		return debug_line("DNS packets might be corrupt or fragmented: " + at(offset) + " + " +
				  std::to_string(count) + " > " + at(message_.size() - 1) + "\n");
	}

	Bytes message_;
	std::vector<char> text_;
	uint16_t length_ = 0;
	char unwritten_ = '\xee';
	std::optional<size_t> behind_;
};

} // namespace

TEST_F(DnsNameTest, DecodesLabels)
{
	decode(DnsMessage().fill(12, 0).name("www.example"), 12);
	expect_name(25, "www.example");
	EXPECT_NO_LOG();
}

TEST_F(DnsNameTest, DecodesTheRoot)
{
	decode(DnsMessage().end_of_name(), 0);
	expect_name(1, "");
	EXPECT_NO_LOG();
}

TEST_F(DnsNameTest, ClearsTheWholeRoom)
{
	decode(DnsMessage().name("a"), 0);
	expect_name(3, "a");
}

TEST_F(DnsNameTest, FollowsAPointerAndReturnsBehindIt)
{
	decode(DnsMessage().name("alias.example").pointer(0).raw("rest"), 15);
	expect_name(17, "alias.example");
	EXPECT_NO_LOG();
}

TEST_F(DnsNameTest, WritesADotBeforeTheNestedName)
{
	decode(DnsMessage().name("example").labels("www").pointer(0), 9);
	expect_name(15, "www.example");
}

TEST_F(DnsNameTest, FollowsAPointerToTheMiddleOfAName)
{
	decode(DnsMessage().name("www.example").label("cdn").pointer(4), 13);
	expect_name(19, "cdn.example");
}

TEST_F(DnsNameTest, FollowsAPointerIntoTheMiddleOfALabel)
{
	// The second byte of the label is taken for a length.
	decode(DnsMessage().label("\2abcd").end_of_name().pointer(1), 7);
	expect_failure();
	decode(DnsMessage().label("\2ab").end_of_name().pointer(1), 5);
	expect_name(7, "ab");
}

TEST_F(DnsNameTest, FollowsPointersThroughSeveralNames)
{
	decode(DnsMessage().name("example").labels("b").pointer(0).labels("a").pointer(9), 13);
	expect_name(17, "a.b.example");
}

TEST_F(DnsNameTest, FollowsAPointerForward)
{
	decode(DnsMessage().label("www").pointer(6).name("example"), 0);
	expect_name(6, "www.example");
}

TEST_F(DnsNameTest, FollowsAPointerIntoTheHeader)
{
	decode(DnsMessage().header(1).pointer(10), 12);
	expect_name(14, "");
}

TEST_F(DnsNameTest, FollowsAPointerToTheLastByte)
{
	decode(DnsMessage().pointer(3).raw("x").end_of_name(), 0);
	expect_name(2, "");
	EXPECT_NO_LOG();
}

TEST_F(DnsNameTest, WritesADotBeforeANestedRoot)
{
	decode(DnsMessage().label("a").pointer(4).end_of_name(), 0);
	expect_name(4, "a.");
}

TEST_F(DnsNameTest, RefusesAPointerBeyondTheLastByte)
{
	decode(DnsMessage().pointer(3).end_of_name(), 0);
	expect_failure();
	EXPECT_LOG(corrupt(0, 3));
	decode(DnsMessage().pointer(0x3fff).end_of_name(), 0);
	expect_failure();
	EXPECT_LOG(corrupt(0, 16383));
}

TEST_F(DnsNameTest, ReportsANestedFailureOnceForEachNesting)
{
	decode(DnsMessage().pointer(9).pointer(0).pointer(2), 4);
	expect_failure();
	EXPECT_LOG(corrupt(0, 9), nested_error, nested_error);
}

TEST_F(DnsNameTest, WritesTheDotBeforeItRefusesThePointer)
{
	decode(DnsMessage().label("a").pointer(9), 0);
	expect_failure();
	expect_text("a.");
	EXPECT_EQ(length_, 0);
	EXPECT_LOG(corrupt(0, 9));
}

TEST_F(DnsNameTest, RefusesHalfAPointerSilently)
{
	decode(DnsMessage().label("a").u8(0xc0), 2);
	expect_failure();
	EXPECT_NO_LOG();
	// Before the dot is written.
	decode(DnsMessage().label("a").u8(0xc0), 0);
	expect_failure();
	expect_text("a");
	EXPECT_NO_LOG();
}

TEST_F(DnsNameTest, RefusesAPointerToHalfAPointer)
{
	decode(DnsMessage().pointer(2).u8(0xc0), 0);
	expect_failure();
	EXPECT_LOG(nested_error);
}

TEST_F(DnsNameTest, RefusesALabelThatReachesTheLastByte)
{
	// The byte behind the label would lie outside.
	decode(DnsMessage().label("abc"), 0);
	expect_failure();
	EXPECT_LOG(corrupt(1, 3));
	decode(DnsMessage().label("a").u8(63), 0);
	expect_failure();
	EXPECT_LOG(corrupt(3, 63));
}

TEST_F(DnsNameTest, RefusesANameThatStartsBehindTheMessageSilently)
{
	decode(DnsMessage().end_of_name(), 1);
	expect_failure();
	expect_text("");
	EXPECT_EQ(length_, 0);
	EXPECT_NO_LOG();
}

TEST_F(DnsNameTest, TakesOtherTopBitsForALabel)
{
	decode(DnsMessage().label(64, 'a').end_of_name(), 0);
	expect_name(66, run(64, 'a'));
	decode(DnsMessage().label(126, 'b').end_of_name(), 0);
	expect_name(128, run(126, 'b'));
	// As a length it is walked over, though it does not fit.
	decode(DnsMessage().label(191, 'c').end_of_name(), 0);
	expect_name(193, "", 127);
	EXPECT_LOG(label_too_long("", 0, 191, 128));
}

TEST_F(DnsNameTest, KeepsBytesOfLabelsAsTheyAre)
{
	decode(DnsMessage().label("a.b").label("%s\n\xff").label("x\0y"s).end_of_name(), 0);
	expect_name(14, "a.b.%s\n\xff.x\0y"s);
	EXPECT_NO_LOG();
}

// ---- Loops

TEST_F(DnsNameTest, Follows32Pointers)
{
	DnsMessage message;
	for (uint32_t number = 1; number <= 32; ++number) {
		message.pointer(2 * number);
	}
	message.name("end");
	decode(message, 0);
	expect_name(2, "end");
	EXPECT_NO_LOG();
}

TEST_F(DnsNameTest, Follows32PointersBackwards)
{
	DnsMessage message;
	message.name("end").pointer(0);
	for (uint32_t number = 0; number < 31; ++number) {
		message.pointer(5 + 2 * number);
	}
	decode(message, 5 + 2 * 31);
	expect_name(5 + 2 * 32, "end");
	EXPECT_NO_LOG();
}

TEST_F(DnsNameTest, RefusesThe33rdPointer)
{
	DnsMessage message;
	for (uint32_t number = 1; number <= 33; ++number) {
		message.pointer(2 * number);
	}
	message.name("end");
	decode(message, 0);
	expect_failure();
	EXPECT_EQ(machine.log.take(), std::vector<LogLine>(33, nested_error));
}

TEST_F(DnsNameTest, Tests33rdPointerBeforeItCountsIt)
{
	DnsMessage message;
	for (uint32_t number = 1; number <= 32; ++number) {
		message.pointer(2 * number);
	}
	message.pointer(0x3000);
	decode(message, 0);
	expect_failure();
	std::vector<LogLine> lines(33, nested_error);
	lines.front() = corrupt(0, 0x3000);
	EXPECT_EQ(machine.log.take(), lines);
}

TEST_F(DnsNameTest, WritesTheDotBeforeThe33rdPointer)
{
	DnsMessage message;
	for (uint32_t number = 1; number <= 32; ++number) {
		message.pointer(2 * number);
	}
	message.label("a").pointer(0);
	decode(message, 0);
	expect_failure();
	expect_text("a.");
	EXPECT_EQ(machine.log.take(), std::vector<LogLine>(33, nested_error));
}

TEST_F(DnsNameTest, RefusesAPointerToItself)
{
	decode(DnsMessage().fill(12, 0).pointer(12), 12);
	expect_failure();
	expect_text("");
	EXPECT_EQ(machine.log.take(), std::vector<LogLine>(33, nested_error));
}

TEST_F(DnsNameTest, RefusesTwoPointersToEachOther)
{
	decode(DnsMessage().pointer(2).pointer(0), 0);
	expect_failure();
	EXPECT_EQ(machine.log.take(), std::vector<LogLine>(33, nested_error));
}

TEST_F(DnsNameTest, RefusesALoopWithALabel)
{
	decode(DnsMessage().label("a").pointer(0), 0);
	expect_failure();
	std::string text;
	for (int i = 0; i < 33; ++i) {
		text += "a.";
	}
	expect_text(text);
	EXPECT_EQ(machine.log.take(), std::vector<LogLine>(33, nested_error));
}

TEST_F(DnsNameTest, CutsAndRefusesALoopWithALongLabel)
{
	decode(DnsMessage().label(60, 'a').pointer(0), 0);
	expect_failure();
	expect_text(run(60, 'a') + "." + run(60, 'a') + ".");
	// Room is 128, 67, 6, and 1 from then on.
	std::vector<LogLine> lines = {label_too_long("", 0, 60, 6), dot_too_long("", 5, 6)};
	lines.insert(lines.end(), 30, label_too_long("", 0, 60, 1));
	lines.insert(lines.end(), 33, nested_error);
	EXPECT_EQ(machine.log.take(), lines);
}

// ---- Names that do not fit

TEST_F(DnsNameTest, Keeps127Characters)
{
	decode(DnsMessage().label(63, 'a').label(63, 'b').end_of_name(), 0);
	expect_name(129, run(63, 'a') + "." + run(63, 'b'));
	EXPECT_NO_LOG();
}

TEST_F(DnsNameTest, CutsBeforeTheLabelThatDoesNotFit)
{
	decode(DnsMessage().label(63, 'a').label(64, 'b').end_of_name(), 0);
	expect_name(130, run(63, 'a'), 63);
	EXPECT_LOG(label_too_long(run(63, 'a'), 63, 64, 128));
}

TEST_F(DnsNameTest, SkipsEveryLabelBehindTheCut)
{
	// The last label would fit.
	decode(DnsMessage().label("www").label(124, 'b').label("c").end_of_name(), 0);
	expect_name(132, "www", 3);
	EXPECT_LOG(label_too_long("www", 3, 124, 128), label_too_long("www", 127, 1, 128));
}

TEST_F(DnsNameTest, CutsBehindAFullRoom)
{
	decode(DnsMessage().label(126, 'a').label("b").end_of_name(), 0);
	expect_name(130, run(126, 'a'), 126);
	EXPECT_LOG(label_too_long(run(126, 'a'), 126, 1, 128));
}

TEST_F(DnsNameTest, CutAtTheFirstLabelDeliberatelyCountsAsAFullRoom)
{
	decode(DnsMessage().label(127, 'a').end_of_name(), 0);
	expect_name(129, "", 127);
	EXPECT_LOG(label_too_long("", 0, 127, 128));
	decode(DnsMessage().label(127, 'a').label("b").label("c").end_of_name(), 0);
	expect_name(133, "", 127);
	EXPECT_LOG(label_too_long("", 0, 127, 128), label_too_long("", 127, 1, 128), label_too_long("", 127, 1, 128));
}

TEST_F(DnsNameTest, StillWalksTheRestOfACutName)
{
	decode(DnsMessage().label(127, 'a').label("b").u8(9), 0);
	expect_failure();
	EXPECT_LOG(label_too_long("", 0, 127, 128), label_too_long("", 127, 1, 128), corrupt(131, 9));
	EXPECT_EQ(length_, 127);
}

TEST_F(DnsNameTest, FollowsThePointerOfACutName)
{
	decode(DnsMessage().name("example").label("www").label(124, 'b').pointer(0), 9);
	expect_name(140, "www", 3);
	EXPECT_LOG(label_too_long("www", 3, 124, 128), dot_too_long("www", 127, 128), label_too_long("", 0, 7, 1));
}

TEST_F(DnsNameTest, CutsInsideTheNestedName)
{
	const Bytes message = DnsMessage().name("ab." + run(63, 'c')).label(100, 'a').pointer(0);
	decode(message, 68);
	expect_name(171, run(100, 'a') + ".ab", 103);
	EXPECT_LOG(label_too_long("ab", 2, 63, 27));
}

TEST_F(DnsNameTest, CutBeforeTheFirstNestedLabelCountsAsAFullRoom)
{
	decode(DnsMessage().name(run(63, 'c')).label(100, 'a').pointer(0), 65);
	expect_name(168, run(100, 'a') + ".", 127);
	EXPECT_LOG(label_too_long("", 0, 63, 27));
}

TEST_F(DnsNameTest, LengthEndsWhereAnOuterNameWasCut)
{
	// The inner names are longer than the outer one's cut.
	decode(DnsMessage().name("example").label("mid").pointer(0).label("www").label(124, 'b').pointer(9), 15);
	expect_name(146, "www", 3);
}

TEST_F(DnsNameTest, LeavesTheDotOutOfAFullRoom)
{
	decode(DnsMessage().name("c").label(63, 'a').label(63, 'b').pointer(0), 3);
	expect_name(133, run(63, 'a') + "." + run(63, 'b'), 127);
	EXPECT_LOG(dot_too_long(run(63, 'a') + "." + run(63, 'b'), 127, 128), label_too_long("", 0, 1, 1));
}

TEST_F(DnsNameTest, WritesTheDotIntoTheLastPlace)
{
	decode(DnsMessage().name("c").label(126, 'a').pointer(0), 3);
	expect_name(132, run(126, 'a') + ".", 127);
	EXPECT_LOG(label_too_long("", 0, 1, 1));
}

TEST_F(DnsNameTest, ShowsAPartialDomainUpToItsFirstZeroByte)
{
	decode(DnsMessage().label("x\0y"s).label(124, 'a').end_of_name(), 0);
	expect_name(130, "x\0y"s, 3);
	EXPECT_LOG(label_too_long("x", 3, 124, 128));
}

TEST_F(DnsNameTest, FitsARoomOfAnySize)
{
	const Bytes message = DnsMessage().name("ab.c");
	decode(message, 0, 5);
	expect_name(6, "ab.c");
	EXPECT_NO_LOG();
	decode(message, 0, 4);
	expect_name(6, "ab", 2);
	EXPECT_LOG(label_too_long("ab", 2, 1, 4));
	decode(message, 0, 1);
	expect_name(6, "", 0);
	EXPECT_LOG(label_too_long("", 0, 2, 1), label_too_long("", 0, 1, 1));
	decode(DnsMessage().label("ab").pointer(0), 0, INT16_MAX);
	expect_failure();
}

TEST_F(DnsNameTest, WritesNothingWithoutRoom)
{
	for (const int16_t room : {int16_t{0}, int16_t{-1}, int16_t{INT16_MIN}}) {
		decode(DnsMessage().name("c").label("ab").label("d").pointer(0), 3, room);
		EXPECT_EQ(behind_, 10u) << room;
		decode(DnsMessage().label("a").pointer(0), 0, room);
		expect_failure();
		decode(DnsMessage().end_of_name(), 0, room);
		expect_name(1, "", 0);
	}
}

// ---- Lines and their levels

TEST_F(DnsNameTest, RefusesNullPointers)
{
	const Bytes message = DnsMessage().end_of_name();
	char text[DNS_NAME_SIZE];
	uint16_t length = 0;
	debug_level = 2;
	EXPECT_EQ(parse_dns_domain(nullptr, message.data(), message.data(), text, &length, DNS_NAME_SIZE), nullptr);
	EXPECT_LOG(debug_line("invalid parameters. (dns = (nil), domain_p = " + pointer_text(message.data()) + ")\n"));
	EXPECT_EQ(parse_dns_domain(message.data(), nullptr, message.data(), text, &length, DNS_NAME_SIZE), nullptr);
	EXPECT_LOG(debug_line("invalid parameters. (dns = " + pointer_text(message.data()) + ", domain_p = (nil))\n"));
	debug_level = 1;
	EXPECT_EQ(parse_dns_domain(nullptr, nullptr, nullptr, text, &length, DNS_NAME_SIZE), nullptr);
	EXPECT_NO_LOG();
}

TEST_F(DnsNameTest, PrintsPointersBeyondTheMessageFromDebugLevel2)
{
	const Bytes message = DnsMessage().pointer(9).pointer(0);
	debug_level = 2;
	decode(message, 2);
	EXPECT_LOG(corrupt(0, 9), nested_error);
	debug_level = 1;
	decode(message, 2);
	expect_failure();
	EXPECT_NO_LOG();
}

TEST_F(DnsNameTest, PrintsLabelsBeyondTheMessageFromDebugLevel3)
{
	debug_level = 2;
	decode(DnsMessage().label("a").label("b").pointer(0), 0);
	expect_failure();
	EXPECT_EQ(machine.log.take(), std::vector<LogLine>(33, nested_error));
	decode(DnsMessage().label("abc"), 0);
	expect_failure();
	EXPECT_NO_LOG();
}

TEST_F(DnsNameTest, PrintsNamesThatDoNotFitFromDebugLevel3)
{
	const Bytes message = DnsMessage().name("example").label("www").label(124, 'b').pointer(0);
	debug_level = 2;
	decode(message, 9);
	expect_name(140, "www", 3);
	EXPECT_NO_LOG();
}

// ---- Against the description

TEST_F(DnsNameTest, DecodesAsIfItCalledItself)
{
	// Bytes that make many short labels, pointers and ends.
	static constexpr std::array<uint8_t, 16> choice = {0,  0,  1,  1,  2,    3,    5,    17,
							   40, 63, 70, 99, 0xc0, 0xc0, 0xc0, 0xc1};
	std::mt19937 random(20240229);
	size_t decoded = 0;
	size_t refused = 0;
	for (int round = 0; round < 20000; ++round) {
		Bytes message(1 + random() % 300);
		for (uint8_t &byte : message) {
			byte = random() % 3 == 0 ? choice[random() % choice.size()] :
						   static_cast<uint8_t>(random() % 96);
		}
		const size_t name = random() % (message.size() + 1);
		const auto room = static_cast<int16_t>(random() % 4 == 0 ? 1 + random() % 64 : 128);
		decode(message, name, room);
		const DecodedName expected = decode_recursively(message_, name, room);
		ASSERT_EQ(behind_, expected.behind) << round;
		ASSERT_EQ(text_, expected.text) << round;
		ASSERT_EQ(length_, expected.length) << round;
		ASSERT_EQ(machine.log.take(), expected.lines) << round;
		++(behind_.has_value() ? decoded : refused);
	}
	EXPECT_GT(decoded, 1000u);
	EXPECT_GT(refused, 1000u);
}

} // namespace captive_portal::test
