// SPDX-License-Identifier: GPL-2.0-only
#include "base/in_aton.h"

#include <gtest/gtest.h>

#include <string_view>

#include "tests/support/cast.h"

namespace captive_portal::test
{

namespace
{

using namespace std::string_view_literals;

Ipv4Address aton(std::string_view text)
{
	return in_aton({text.data(), text.size()});
}

} // namespace

TEST(InAton, ReadsDottedQuads)
{
	EXPECT_EQ(aton("192.168.1.1"), ipv4(192, 168, 1, 1));
	EXPECT_EQ(aton("0.0.0.0"), ipv4(0, 0, 0, 0));
	EXPECT_EQ(aton("255.255.255.255"), ipv4(255, 255, 255, 255));
	EXPECT_EQ(aton("2.2.2.2").raw, 0x02020202u);
	// In network order: the first octet lies first in memory.
	EXPECT_EQ(aton("1.2.3.4").raw, 0x04030201u);
}

TEST(InAton, TakesTheEmptyTextAsZero)
{
	EXPECT_EQ(aton(""), ipv4(0, 0, 0, 0));
	EXPECT_EQ(in_aton({nullptr, 0}), ipv4(0, 0, 0, 0));
}

TEST(InAton, TakesMissingNumbersAsZero)
{
	EXPECT_EQ(aton("1"), ipv4(1, 0, 0, 0));
	EXPECT_EQ(aton("1.2"), ipv4(1, 2, 0, 0));
	EXPECT_EQ(aton("1.2.3."), ipv4(1, 2, 3, 0));
	EXPECT_EQ(aton("..."), ipv4(0, 0, 0, 0));
	EXPECT_EQ(aton(".5"), ipv4(0, 5, 0, 0));
}

TEST(InAton, EndsANumberAtNewlineToo)
{
	EXPECT_EQ(aton("1\n2\n3\n4"), ipv4(1, 2, 3, 4));
	EXPECT_EQ(aton("1.2.3.4\n"), ipv4(1, 2, 3, 4));
}

TEST(InAton, StopsAtNul)
{
	EXPECT_EQ(aton("1.2\0.3.4"sv), ipv4(1, 2, 0, 0));
}

TEST(InAton, IgnoresWhatFollowsTheFourthNumber)
{
	EXPECT_EQ(aton("1.2.3.4.5"), ipv4(1, 2, 3, 4));
}

// Deliberate: no range is checked. Each number is or-ed in behind the earlier ones shifted by eight bits, so its upper
// bits fall into the octets before it: 256 as second number sets bit 0 of the first octet.
TEST(InAton, DoesNotCheckRanges)
{
	EXPECT_EQ(aton("256.0.0.0"), ipv4(0, 0, 0, 0));
	EXPECT_EQ(aton("0.256.0.0"), ipv4(1, 0, 0, 0));
	EXPECT_EQ(aton("0.0.0.65535"), ipv4(0, 0, 255, 255));
	EXPECT_EQ(aton("2.511.0.0"), ipv4(3, 255, 0, 0));
}

// Deliberate: any character counts by its distance to '0', and none but '.', newline and NUL ends a number.
TEST(InAton, CountsEveryCharacterAsDigit)
{
	// 'a' - '0' is 49.
	EXPECT_EQ(aton("0.0.0.a"), ipv4(0, 0, 0, 49));
	// ' ' - '0' is -16: -16 x 10 + 5 = -155, whose 32 bits are or-ed over all octets.
	EXPECT_EQ(aton("0.0.0. 5"), ipv4(255, 255, 255, 101));
	// Characters are unsigned: 0xff - '0' is 207.
	EXPECT_EQ(aton("0.0.0.\xff"), ipv4(0, 0, 0, 207));
	// 1 x 10 - 3 = 7, 7 x 10 + 2 = 72.
	EXPECT_EQ(aton("1-2"), ipv4(72, 0, 0, 0));
}

TEST(InAton, StaysInsideItsText)
{
	const char field[4] = {'1', '2', '3', '4'};
	// 1234 is 4 x 256 + 210.
	EXPECT_EQ(in_aton(text_of_field(field)), ipv4(210, 0, 0, 0));
}

} // namespace captive_portal::test
