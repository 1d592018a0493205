// SPDX-License-Identifier: GPL-2.0-only
#include "base/interface_name.h"

#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace captive_portal::test
{

namespace
{

// A text in a heap block of exactly its size, without a NUL, so that a read past the end is caught.
class ExactText
{
public:
	explicit ExactText(std::string_view text) : characters_(text.begin(), text.end())
	{
		characters_.shrink_to_fit();
	}
	operator Text() const { return {characters_.data(), characters_.size()}; }

private:
	std::vector<char> characters_;
};

struct Numbers {
	uint32_t radio;
	uint32_t vap;
};

struct ScanCase {
	const char *name;
	std::string_view text;
	std::optional<Numbers> numbers;
};

std::ostream &operator<<(std::ostream &stream, const ScanCase &row)
{
	return stream << row.name;
}

class InterfaceNameScan : public ::testing::TestWithParam<ScanCase>
{
};

using namespace std::string_view_literals;

const ScanCase scans[] = {
	{"Plain", "wlan-1-1"sv, {{1, 1}}},
	{"TwoDigits", "wlan-3-16"sv, {{3, 16}}},
	{"Zeros", "wlan-0-0"sv, {{0, 0}}},
	{"LeadingZerosAreDecimal", "wlan-010-08"sv, {{10, 8}}},
	{"ManyLeadingZeros", "wlan-000000000000000000000000001-1"sv, {{1, 1}}},
	{"TextBehindIsIgnored", "wlan-1-2xyz"sv, {{1, 2}}},
	{"ThirdNumberIsIgnored", "wlan-1-2-3"sv, {{1, 2}}},
	{"DotBehindIsIgnored", "wlan-1-1.5"sv, {{1, 1}}},

	{"SpaceBeforeFirst", "wlan- 1-1"sv, {{1, 1}}},
	{"SpaceBeforeSecond", "wlan-1- 1"sv, {{1, 1}}},
	{"TabIsBlank", "wlan-\t1-1"sv, {{1, 1}}},
	{"NewlineIsBlank", "wlan-\n1-1"sv, {{1, 1}}},
	{"VerticalTabIsBlank", "wlan-\v1-1"sv, {{1, 1}}},
	{"FormFeedIsBlank", "wlan-\f1-1"sv, {{1, 1}}},
	{"CarriageReturnIsBlank", "wlan-\r1-1"sv, {{1, 1}}},
	{"NoBreakSpaceIsBlank",
	 "wlan-\xa0"
	 "1-\xa0"
	 "1"sv,
	 {{1, 1}}},
	{"ManyBlanks", "wlan- \t\n\v\f\r\xa0 1- \t 2"sv, {{1, 2}}},
	{"OtherHighCharactersAreNoBlanks",
	 "wlan-\xa1"
	 "1-1"sv,
	 {}},
	{"BackspaceIsNoBlank", "wlan-\b1-1"sv, {}},
	{"BlankBeforeTheSecondMinusIsNone", "wlan-1 -1"sv, {}},
	{"BlankBeforeThePrefix", " wlan-1-1"sv, {}},
	{"BlankBeforeTheFirstMinus", "wlan -1-1"sv, {}},

	{"MinusOfFirst", "wlan--1-1"sv, {{0xffffffff, 1}}},
	{"MinusOfSecond", "wlan-1--1"sv, {{1, 0xffffffff}}},
	{"MinusZero", "wlan--0-1"sv, {{0, 1}}},
	{"BlankThenMinus", "wlan- -1-1"sv, {{0xffffffff, 1}}},
	{"MinusThenBlank", "wlan-- 1-1"sv, {}},
	{"TwoMinuses", "wlan---1-1"sv, {}},
	{"MinusAlone", "wlan-1--"sv, {}},
	{"PlusIsNoSign", "wlan-+1-1"sv, {}},
	{"PlusIsNoSignOfSecond", "wlan-1-+1"sv, {}},

	{"HexadecimalIsNotRead", "wlan-0x1-1"sv, {}},
	// The second number is 0; the rest is text behind it.
	{"HexadecimalSecondIsZero", "wlan-1-0x8"sv, {{1, 0}}},

	{"LargestInt", "wlan-2147483647-1"sv, {{0x7fffffff, 1}}},
	{"CutTo32Bits", "wlan-4294967297-1"sv, {{1, 1}}},
	{"SecondCutTo32Bits", "wlan-1-4294967304"sv, {{1, 8}}},
	{"Modulo2To64", "wlan-18446744073709551617-1"sv, {{1, 1}}},
	{"AboveModulo2To64", "wlan-36893488147419103234-1"sv, {{2, 1}}},
	// 10^20 modulo 2^64 is 7766279631452241920 = 0x6bc75e2d63100000.
	{"HundredMillionMillionMillion", "wlan-100000000000000000000-1"sv, {{0x63100000, 1}}},
	{"MinusModulo2To64", "wlan--18446744073709551615-1"sv, {{1, 1}}},

	{"Empty", ""sv, {}},
	{"PrefixCut", "wlan"sv, {}},
	{"PrefixAlone", "wlan-"sv, {}},
	{"OneNumber", "wlan-1"sv, {}},
	{"OneNumberAndMinus", "wlan-1-"sv, {}},
	{"LetterForNumber", "wlan-a-1"sv, {}},
	{"LetterForSecond", "wlan-1-a"sv, {}},
	{"OtherSeparator", "wlan-1.1"sv, {}},
	{"UpperCase", "WLAN-1-1"sv, {}},
	{"OtherPrefix", "wlan1-1"sv, {}},
	{"Wired", "eth0"sv, {}},
	{"SixteenCharactersWithoutNul", "wlan-1-000000023"sv, {{1, 23}}},
};

INSTANTIATE_TEST_SUITE_P(Scans, InterfaceNameScan, ::testing::ValuesIn(scans),
			 [](const auto &info) { return std::string(info.param.name); });

TEST_P(InterfaceNameScan, GivesTheNumbersOfTheKernelsScanner)
{
	const ExactText text(GetParam().text);
	const Field<InterfaceNumbers> numbers = scan_interface_name(text);
	ASSERT_EQ(numbers.has_value(), GetParam().numbers.has_value());
	if (numbers.has_value()) {
		EXPECT_EQ(numbers.value().radio, GetParam().numbers->radio);
		EXPECT_EQ(numbers.value().vap, GetParam().numbers->vap);
	}
}

std::optional<uint32_t> interface_index(std::string_view name)
{
	const Field<uint32_t> index = interface_index_of_name(ExactText(name));
	return index.has_value() ? std::optional(index.value()) : std::nullopt;
}

std::optional<uint32_t> owe_index(std::string_view name)
{
	const Field<uint32_t> index = owe_index_of_name(ExactText(name));
	return index.has_value() ? std::optional(index.value()) : std::nullopt;
}

} // namespace

TEST(InterfaceIndexOfName, IsRadioMajor)
{
	EXPECT_EQ(interface_index("wlan-1-1"), 0u);
	EXPECT_EQ(interface_index("wlan-1-8"), 7u);
	EXPECT_EQ(interface_index("wlan-2-1"), 8u);
	EXPECT_EQ(interface_index("wlan-2-8"), 15u);
	EXPECT_EQ(interface_index("wlan-3-1"), 16u);
	EXPECT_EQ(interface_index("wlan-3-8"), 23u);
}

// Deliberate: radio and VAP are not tested one by one.
TEST(InterfaceIndexOfName, ChecksTheCombinedIndexAlone)
{
	EXPECT_EQ(interface_index("wlan-1-9"), 8u);
	EXPECT_EQ(interface_index("wlan-2-0"), 7u);
	EXPECT_EQ(interface_index("wlan-0-9"), 0u);
	EXPECT_EQ(interface_index("wlan-0-32"), 23u);
	EXPECT_EQ(interface_index("wlan-4--7"), 16u);
}

TEST(InterfaceIndexOfName, IsUnsignedArithmeticOf32Bits)
{
	// 536870912 x 8 is 2^32.
	EXPECT_EQ(interface_index("wlan-536870913-1"), 0u);
	EXPECT_EQ(interface_index("wlan--1-17"), 0u);
}

TEST(InterfaceIndexOfName, IsMissingOutsideTheRows)
{
	EXPECT_EQ(interface_index("wlan-1-0"), std::nullopt);
	EXPECT_EQ(interface_index("wlan-0-8"), std::nullopt);
	EXPECT_EQ(interface_index("wlan-0-33"), std::nullopt);
	EXPECT_EQ(interface_index("wlan-3-9"), std::nullopt);
	EXPECT_EQ(interface_index("wlan-4-1"), std::nullopt);
	EXPECT_EQ(interface_index("wlan-1"), std::nullopt);
	EXPECT_EQ(interface_index(""), std::nullopt);
	EXPECT_EQ(interface_index("all"), std::nullopt);
}

TEST(OweIndexOfName, HasThreeRowsForEachRadio)
{
	EXPECT_EQ(owe_index("wlan-1-14"), 0u);
	EXPECT_EQ(owe_index("wlan-1-16"), 2u);
	EXPECT_EQ(owe_index("wlan-2-14"), 3u);
	EXPECT_EQ(owe_index("wlan-3-16"), 8u);
}

// Deliberate: the OWE commands do not look at the VAP by itself.
TEST(OweIndexOfName, ChecksTheCombinedIndexAlone)
{
	EXPECT_EQ(owe_index("wlan-1-17"), 3u);
	EXPECT_EQ(owe_index("wlan-2-13"), 2u);
	EXPECT_EQ(owe_index("wlan-1-13"), std::nullopt);
	EXPECT_EQ(owe_index("wlan-3-17"), std::nullopt);
	EXPECT_EQ(owe_index("wlan-1-1"), std::nullopt);
	EXPECT_EQ(owe_index("wlan-x-14"), std::nullopt);
}

TEST(PlainInterfaceIndex, KnowsEveryNameOfTwoSingleDigits)
{
	for (char radio = '0'; radio <= '9'; ++radio) {
		for (char vap = '0'; vap <= '9'; ++vap) {
			const char name[CP_INTERFACE_NAME_SIZE] = {'w', 'l', 'a', 'n', '-', radio, '-', vap};
			EXPECT_EQ(plain_interface_index(name),
				  radio <= '3' ? static_cast<uint32_t>((radio - '0') * 8 + (vap - '0') - 9) :
						 not_a_plain_name);
		}
	}
}

// Of every name it either says what the scanner says, or nothing. Whatever lies in a field behind the name does not matter.
TEST(PlainInterfaceIndex, AgreesWithTheScanner)
{
	constexpr std::string_view alphabet = "0159-+ x.wlan\xa0\xff/:"sv;
	std::vector<std::string> names = {"",         "w",        "wlan",       "wlan-",     "wlam-1-1",
					  "xlan-1-1", "wlan1-1-", "wlan-1-1.5", "wlan-1-1 ", "wlan-3-8x"};
	for (size_t index = 0; index < alphabet.size() * alphabet.size() * alphabet.size() * alphabet.size(); ++index) {
		std::string name = "wlan-";
		for (size_t rest = index; name.size() < 9; rest /= alphabet.size()) {
			name += alphabet[rest % alphabet.size()];
		}
		names.push_back(name);
		names.push_back(name.substr(0, 8));
	}
	size_t plain_names = 0;
	for (const std::string &name : names) {
		char field[CP_INTERFACE_NAME_SIZE];
		std::memset(field, '1', sizeof(field));
		std::memcpy(field, name.c_str(), name.size() + 1);
		const uint32_t plain = plain_interface_index(field);
		if (plain == not_a_plain_name) {
			continue;
		}
		++plain_names;
		const Field<InterfaceNumbers> scanned = scan_interface_name({name.data(), name.size()});
		ASSERT_TRUE(scanned.has_value()) << name;
		EXPECT_EQ(plain, cp_interface_index(scanned.value().radio, scanned.value().vap)) << name;
		EXPECT_LE(scanned.value().vap, 9u) << name;
	}
	EXPECT_GT(plain_names, 16u);
}

TEST(FormatInterfaceName, WritesTheNameAndFillsTheFieldWithNuls)
{
	char field[CP_INTERFACE_NAME_SIZE];
	std::memset(field, 'x', sizeof(field));
	format_interface_name(field, 3, 16);
	EXPECT_EQ(std::string_view(field, sizeof(field)), "wlan-3-16\0\0\0\0\0\0\0"sv);
	format_interface_name(field, 99, 10);
	EXPECT_EQ(std::string_view(field, sizeof(field)), "wlan-99-10\0\0\0\0\0\0"sv);
}

TEST(FormatInterfaceName, NamesTheInterfacesByIndex)
{
	const std::pair<uint32_t, const char *> names[] = {
		{0, "wlan-1-1"}, {7, "wlan-1-8"}, {8, "wlan-2-1"}, {16, "wlan-3-1"}, {23, "wlan-3-8"},
	};
	for (const auto &[index, name] : names) {
		char field[CP_INTERFACE_NAME_SIZE];
		format_interface_name_of_index(field, index);
		EXPECT_STREQ(field, name);
	}
}

} // namespace captive_portal::test
