// SPDX-License-Identifier: GPL-2.0-only
#include "garden/dns_name_ends.h"

#include <gtest/gtest.h>

#include <optional>
#include <random>

#include "base/debug_level.h"
#include "garden/dns_name.h"
#include "tests/unit/dns_parser_fixture.h"

namespace captive_portal::test
{

namespace
{

using End = std::optional<size_t>;

class DnsNameEndsTest : public HostTest
{
protected:
	DnsNameEndsTest() { debug_level = 3; }

	void TearDown() override
	{
		ends_.reset();
		HostTest::TearDown();
	}

	// The message lies in a block of exactly its size.
	void take(const Bytes &message)
	{
		message_ = Bytes(message.begin(), message.end());
		ends_.emplace(message_.data(), message_.data() + message_.size() - 1);
	}

	[[nodiscard]] End end_of(size_t name)
	{
		const uint8_t *const behind = ends_->behind(message_.data() + name);
		return behind == nullptr ? End() : End(static_cast<size_t>(behind - message_.data()));
	}

	[[nodiscard]] End end_of_text(size_t name) const
	{
		char text[DNS_NAME_SIZE];
		uint16_t length = 0;
		const uint8_t *const behind =
			parse_dns_domain(message_.data(), message_.data() + name, message_.data() + message_.size() - 1,
					 text, &length, DNS_NAME_SIZE);
		return behind == nullptr ? End() : End(static_cast<size_t>(behind - message_.data()));
	}

	Bytes message_;
	std::optional<DnsNameEnds> ends_;
};

// `count` pointers, each to the next, and behind them the root.
DnsMessage chain(uint32_t count)
{
	DnsMessage message;
	for (uint32_t i = 1; i <= count; ++i) {
		message.pointer(2 * i);
	}
	return message.u8(0);
}

// A run of short labels, and behind it many names that all lead to its start.
DnsMessage names_through_a_run(size_t labels, size_t names)
{
	DnsMessage message;
	for (size_t i = 0; i < labels; ++i) {
		message.label("a");
	}
	message.end_of_name();
	for (size_t i = 0; i < names; ++i) {
		message.pointer(0);
	}
	return message;
}

} // namespace

TEST_F(DnsNameEndsTest, NamesOfLabelsEndBehindTheirZero)
{
	take(DnsMessage().name("www.example").name("a").u8(0));
	EXPECT_EQ(end_of(0), 13u);
	EXPECT_EQ(end_of(4), 13u);
	EXPECT_EQ(end_of(13), 16u);
	EXPECT_EQ(end_of(16), 17u);
	EXPECT_NO_LOG();
}

TEST_F(DnsNameEndsTest, ANameWithAPointerEndsBehindIt)
{
	take(DnsMessage().name("example").label("www").pointer(0).pointer(9));
	EXPECT_EQ(end_of(9), 15u);
	EXPECT_EQ(end_of(15), 17u);
}

TEST_F(DnsNameEndsTest, APointerMayLeadForward)
{
	take(DnsMessage().pointer(2).name("example"));
	EXPECT_EQ(end_of(0), 2u);
}

TEST_F(DnsNameEndsTest, EitherPointerBitAloneMakesALongLabel)
{
	take(DnsMessage().label(64, 'a').label(191, 'b').u8(0));
	EXPECT_EQ(end_of(0), 258u);
}

TEST_F(DnsNameEndsTest, ALabelNeedsAByteBehindIt)
{
	take(DnsMessage().label("abc"));
	EXPECT_EQ(end_of(0), End());
	take(DnsMessage().label("abc").u8(0));
	EXPECT_EQ(end_of(0), 5u);
	take(DnsMessage().u8(5).raw("abc"));
	EXPECT_EQ(end_of(0), End());
}

TEST_F(DnsNameEndsTest, APointerNeedsItsSecondByteAndATargetInside)
{
	take(DnsMessage().u8(0).u8(0xc0));
	EXPECT_EQ(end_of(1), End());
	take(DnsMessage().pointer(2).u8(0));
	EXPECT_EQ(end_of(0), 2u);
	take(DnsMessage().pointer(3).u8(0));
	EXPECT_EQ(end_of(0), End());
}

TEST_F(DnsNameEndsTest, ANameBehindTheMessageHasNoEnd)
{
	take(DnsMessage().u8(0));
	EXPECT_EQ(end_of(0), 1u);
	EXPECT_EQ(end_of(1), End());
}

TEST_F(DnsNameEndsTest, ThirtyTwoPointersAreFollowedAndNoMore)
{
	take(chain(32));
	EXPECT_EQ(end_of(0), 2u);
	take(chain(33));
	EXPECT_EQ(end_of(0), End());
	EXPECT_EQ(end_of(2), 4u);
}

TEST_F(DnsNameEndsTest, LoopsHaveNoEnd)
{
	take(DnsMessage().pointer(0));
	EXPECT_EQ(end_of(0), End());
	take(DnsMessage().label("a").pointer(4).label("b").pointer(0));
	EXPECT_EQ(end_of(0), End());
}

TEST_F(DnsNameEndsTest, OrdinaryNamesTakeNoMemory)
{
	take(names_through_a_run(40, 8));
	const uint64_t attempts = machine.memory.attempts();
	for (size_t name = 0; name < 8; ++name) {
		EXPECT_EQ(end_of(81 + 2 * name), 83 + 2 * name);
	}
	EXPECT_EQ(machine.memory.attempts(), attempts);
}

TEST_F(DnsNameEndsTest, ExpensiveNamesTakeOneByteOfMemoryForEachOfTheMessage)
{
	take(names_through_a_run(400, 400));
	for (size_t name = 0; name < 400; ++name) {
		EXPECT_EQ(end_of(801 + 2 * name), 803 + 2 * name);
	}
	ASSERT_EQ(machine.live_allocations().size(), 1u);
	EXPECT_EQ(machine.live_allocations().front().size, message_.size());
	ends_.reset();
	EXPECT_TRUE(machine.live_allocations().empty());
}

TEST_F(DnsNameEndsTest, WithoutMemoryTheEndsAreTheSame)
{
	machine.memory.fail_all_allocations(true);
	take(names_through_a_run(400, 400));
	const uint64_t attempts = machine.memory.attempts();
	for (size_t name = 0; name < 400; ++name) {
		EXPECT_EQ(end_of(801 + 2 * name), 803 + 2 * name);
	}
	EXPECT_EQ(machine.memory.attempts(), attempts + 1) << "memory is asked for once";
}

// Noted pointers count: a name that is one pointer too long stays so when what it leads to is known.
TEST_F(DnsNameEndsTest, WhatIsNotedCountsItsPointers)
{
	DnsMessage message = names_through_a_run(400, 1);
	const auto last_pointer = static_cast<uint32_t>(message.size()) - 2;
	for (uint32_t i = 0; i < 33; ++i) {
		message.pointer(last_pointer + 2 * i);
	}
	take(message);
	for (int i = 0; i < 100; ++i) {
		ASSERT_EQ(end_of(last_pointer), last_pointer + 2);
	}
	ASSERT_EQ(machine.live_allocations().size(), 1u);
	for (uint32_t i = 0; i < 31; ++i) {
		EXPECT_EQ(end_of(last_pointer + 2 + 2 * i), last_pointer + 4 + 2 * i);
	}
	EXPECT_EQ(end_of(last_pointer + 2 + 2 * 31), End());
	EXPECT_EQ(end_of(last_pointer + 2 + 2 * 32), End());
}

TEST_F(DnsNameEndsTest, EndsAreThoseOfTheDecoderThatKeepsTheTexts)
{
	std::mt19937 random(20240611);
	constexpr uint8_t bytes[] = {0, 1, 1, 2, 3, 7, 64, 191, 192, 192, 193, 255};
	debug_level = 0;
	for (int round = 0; round < 400; ++round) {
		Bytes message(1 + random() % 300);
		for (uint8_t &byte : message) {
			byte = random() % 4 != 0 ? bytes[random() % std::size(bytes)] : static_cast<uint8_t>(random());
		}
		take(message);
		// More than once, so that notes are made and met.
		for (int again = 0; again < 3; ++again) {
			for (size_t name = 0; name <= message.size(); ++name) {
				ASSERT_EQ(end_of(name), end_of_text(name)) << "round " << round << ", name " << name;
			}
		}
	}
}

class DnsNameEndsInAnswers : public DnsParserFixture
{
};

// Each record's data length leads four bytes on, so the next record begins inside it; each name leads through the rest
// of the message. The notes make this cheap, and the answer's one address is found behind all that.
TEST_F(DnsNameEndsInAnswers, RecordsInsideRecordsWithExpensiveNames)
{
	DnsMessage message = answer_for("www.example", 65535);
	constexpr uint32_t run = 4000;
	while (message.size() < run - 4) {
		message.pointer(run).u16(65536 - 8);
	}
	message.fill(run - message.size(), 0);
	for (int i = 0; i < 2000; ++i) {
		message.label("a");
	}
	message.end_of_name();
	std::vector<Stored> stored;
	for (const int32_t level : {2, 1}) {
		forget();
		debug_level = level;
		const uint64_t attempts = machine.memory.attempts();
		EXPECT_EQ(parse(message), 0);
		if (level == 2) {
			stored = stored_addresses();
		} else {
			EXPECT_EQ(stored_addresses(), stored);
			EXPECT_EQ(machine.memory.attempts(), attempts + 1);
			EXPECT_TRUE(machine.live_allocations().empty());
		}
	}
}

} // namespace captive_portal::test
