// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/interface_names.h"

#include <gtest/gtest.h>

#include "cpctl/failure.h"

namespace cpctl
{

namespace
{

TEST(InterfaceName, GivesTheRowOfEveryWirelessInterface)
{
	EXPECT_EQ(parse_interface("wlan-1-1").row, 0U);
	EXPECT_EQ(parse_interface("wlan-1-8").row, 7U);
	EXPECT_EQ(parse_interface("wlan-2-1").row, 8U);
	EXPECT_EQ(parse_interface("wlan-3-8").row, 23U);
	EXPECT_EQ(interface_of_row(9).name, "wlan-2-2");
}

// The module would take most of these for some interface.
TEST(InterfaceName, HasOneSpelling)
{
	for (const char *text :
	     {"", "wlan", "wlan-1", "wlan-1-", "wlan-0-1", "wlan-1-0", "wlan-1-9", "wlan-2-0", "wlan-4-1", "wlan-1-1 ",
	      " wlan-1-1", "wlan-01-1", "wlan- 1-1", "WLAN-1-1", "wlan-1-1.5", "wlan-1-14", "all", "br0"}) {
		EXPECT_THROW((void)parse_interface(text), Failure) << text;
	}
}

TEST(OweInterfaceName, GivesTheRowOfEveryCompanion)
{
	EXPECT_EQ(parse_owe_interface("wlan-1-14").row, 0U);
	EXPECT_EQ(parse_owe_interface("wlan-1-16").row, 2U);
	EXPECT_EQ(parse_owe_interface("wlan-2-14").row, 3U);
	EXPECT_EQ(parse_owe_interface("wlan-3-16").row, 8U);
	EXPECT_EQ(owe_interface_of_row(5).name, "wlan-2-16");
}

TEST(OweInterfaceName, HasOneSpelling)
{
	for (const char *text : {"", "wlan-1-1", "wlan-1-13", "wlan-1-17", "wlan-4-14", "wlan-1-014"}) {
		EXPECT_THROW((void)parse_owe_interface(text), Failure) << text;
	}
}

TEST(NameField, IsFilledWithNuls)
{
	char field[8] = {'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x'};
	store_name(field, "abc");
	EXPECT_EQ(std::string_view(field, 8), std::string_view("abc\0\0\0\0\0", 8));
}

TEST(NameField, EndsAtItsNulOrItsLastByte)
{
	const char short_text[4] = {'a', 'b', '\0', 'c'};
	const char full[4] = {'a', 'b', 'c', 'd'};
	EXPECT_EQ(text_of(short_text), "ab");
	EXPECT_EQ(text_of(full), "abcd");
}

} // namespace

} // namespace cpctl
