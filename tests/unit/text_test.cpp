// SPDX-License-Identifier: GPL-2.0-only
#include "base/text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string_view>

namespace captive_portal::test
{

namespace
{

using namespace std::string_view_literals;

constexpr Text text(std::string_view view)
{
	return {view.data(), view.size()};
}

} // namespace

TEST(Text, OfAFieldEndsAtItsNul)
{
	const char field[8] = {'a', 'b', '\0', 'c', 'd', 'e', 'f', 'g'};
	EXPECT_TRUE(text_of_field(field) == text("ab"));
}

TEST(Text, OfAFieldWithoutNulEndsWithTheField)
{
	const char field[3] = {'a', 'b', 'c'};
	EXPECT_EQ(text_of_field(field).length, 3u);
	EXPECT_EQ(text_of_field(field, 2).length, 2u);
	EXPECT_EQ(text_of_field(field, 0).length, 0u);
}

TEST(Text, IsNulAtAndBehindItsEnd)
{
	EXPECT_EQ(text("ab").at(1), 'b');
	EXPECT_EQ(text("ab").at(2), '\0');
	EXPECT_EQ(text("ab").at(1000), '\0');
}

TEST(Text, IsComparedByLengthAndCharacters)
{
	EXPECT_TRUE(text("ab") == text("ab"));
	EXPECT_FALSE(text("ab") == text("aB"));
	EXPECT_FALSE(text("ab") == text("abc"));
	EXPECT_TRUE(text("") == text(""));
	EXPECT_TRUE(text("a\0b"sv) == text("a\0b"sv));
	EXPECT_FALSE(text("a\0b"sv) == text("a\0c"sv));
}

TEST(Text, StartsWithAPrefix)
{
	EXPECT_TRUE(starts_with(text("wlan-1-1"), text("wlan-")));
	EXPECT_TRUE(starts_with(text("wlan-"), text("wlan-")));
	EXPECT_TRUE(starts_with(text("x"), text("")));
	EXPECT_FALSE(starts_with(text("wlan"), text("wlan-")));
	EXPECT_FALSE(starts_with(text("Wlan-"), text("wlan-")));
}

TEST(StoreText, LeavesRoomForANulAndZeroesTheRest)
{
	char field[4];
	std::memset(field, 'x', sizeof(field));
	store_text(field, text("ab"));
	EXPECT_EQ(std::string_view(field, 4), "ab\0\0"sv);
	store_text(field, text("abcd"));
	EXPECT_EQ(std::string_view(field, 4), "abc\0"sv);
	store_text(field, text("abc"));
	EXPECT_EQ(std::string_view(field, 4), "abc\0"sv);
	store_text(field, text(""));
	EXPECT_EQ(std::string_view(field, 4), "\0\0\0\0"sv);
}

TEST(OverwriteText, WritesTextAndNulAndKeepsTheRest)
{
	char field[4] = {'w', 'x', 'y', 'z'};
	overwrite_text(field, text("a"));
	EXPECT_EQ(std::string_view(field, 4), "a\0yz"sv);
	overwrite_text(field, text("abc"));
	EXPECT_EQ(std::string_view(field, 4), "abc\0"sv);
}

TEST(OverwriteText, FillsTheFieldWithoutNulWhenTheTextIsThatLong)
{
	char field[4] = {};
	overwrite_text(field, text("abcd"));
	EXPECT_EQ(std::string_view(field, 4), "abcd"sv);
	overwrite_text(field, text("efghij"));
	EXPECT_EQ(std::string_view(field, 4), "efgh"sv);
}

} // namespace captive_portal::test
