// SPDX-License-Identifier: GPL-2.0-only
#include "base/scan_decimal.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>

#include "tests/unit/garden_records.h"

namespace captive_portal::test
{

namespace
{

// The number and the position behind it.
using Scanned = std::optional<std::pair<uint32_t, size_t>>;

[[nodiscard]] Scanned scan(std::string_view text, size_t from = 0)
{
	const ExactText exact(text);
	size_t position = from;
	const Field<uint32_t> number = scan_decimal(exact.text(), position);
	return number.has_value() ? Scanned(std::pair(number.value(), position)) : std::nullopt;
}

} // namespace

TEST(ScanDecimal, ReadsDigitsAndStopsBehindThem)
{
	EXPECT_EQ(scan("0"), Scanned(std::pair(0u, 1u)));
	EXPECT_EQ(scan("7x"), Scanned(std::pair(7u, 1u)));
	EXPECT_EQ(scan("1024-3"), Scanned(std::pair(1024u, 4u)));
	EXPECT_EQ(scan("12 34"), Scanned(std::pair(12u, 2u)));
}

TEST(ScanDecimal, StartsAtThePositionAndMayReachTheTextsEnd)
{
	EXPECT_EQ(scan("ab45", 2), Scanned(std::pair(45u, 4u)));
	EXPECT_EQ(scan("ab45", 3), Scanned(std::pair(5u, 4u)));
	EXPECT_EQ(scan("ab45", 4), std::nullopt);
	EXPECT_EQ(scan("ab45", 9), std::nullopt);
}

TEST(ScanDecimal, SkipsBlanksBeforeTheNumber)
{
	EXPECT_EQ(scan(" 1"), Scanned(std::pair(1u, 2u)));
	EXPECT_EQ(scan("\t\n\v\f\r 1"), Scanned(std::pair(1u, 7u)));
	EXPECT_EQ(scan("\xa0"
		       "1"),
		  Scanned(std::pair(1u, 2u)));
	EXPECT_EQ(scan("  "), std::nullopt);
	EXPECT_EQ(scan("\x1f"
		       "1"),
		  std::nullopt);
	EXPECT_EQ(scan("\x0e"
		       "1"),
		  std::nullopt);
	EXPECT_EQ(scan("\x85"
		       "1"),
		  std::nullopt);
}

TEST(ScanDecimal, TakesAMinusOnlyBeforeADigit)
{
	EXPECT_EQ(scan("-1"), Scanned(std::pair(0xffffffffu, 2u)));
	EXPECT_EQ(scan(" -20"), Scanned(std::pair(0xffffffecu, 4u)));
	EXPECT_EQ(scan("-0"), Scanned(std::pair(0u, 2u)));
	EXPECT_EQ(scan("-"), std::nullopt);
	EXPECT_EQ(scan("- 1"), std::nullopt);
	EXPECT_EQ(scan("--1"), std::nullopt);
	EXPECT_EQ(scan("-x"), std::nullopt);
}

TEST(ScanDecimal, KnowsNoPlusAndNoHexadecimal)
{
	EXPECT_EQ(scan("+1"), std::nullopt);
	EXPECT_EQ(scan("0x10"), Scanned(std::pair(0u, 1u)));
	EXPECT_EQ(scan("a"), std::nullopt);
}

TEST(ScanDecimal, ReadsLeadingZeroesAsDecimal)
{
	EXPECT_EQ(scan("010"), Scanned(std::pair(10u, 3u)));
	EXPECT_EQ(scan("0000000000000000000000000000012"), Scanned(std::pair(12u, 31u)));
}

TEST(ScanDecimal, TakesTheValueModulo64BitsAndCutsItTo32)
{
	EXPECT_EQ(scan("4294967295"), Scanned(std::pair(0xffffffffu, 10u)));
	EXPECT_EQ(scan("4294967296"), Scanned(std::pair(0u, 10u)));
	EXPECT_EQ(scan("4294967297"), Scanned(std::pair(1u, 10u)));
	EXPECT_EQ(scan("18446744073709551615"), Scanned(std::pair(0xffffffffu, 20u)));
	EXPECT_EQ(scan("18446744073709551617"), Scanned(std::pair(1u, 20u)));
	EXPECT_EQ(scan("-18446744073709551617"), Scanned(std::pair(0xffffffffu, 21u)));
	EXPECT_EQ(scan("-4294967295"), Scanned(std::pair(1u, 11u)));
}

TEST(ScanDecimal, FindsNothingInAnEmptyText)
{
	EXPECT_EQ(scan(""), std::nullopt);
	EXPECT_EQ(scan(std::string_view("\0001", 2)), std::nullopt);
}

} // namespace captive_portal::test
