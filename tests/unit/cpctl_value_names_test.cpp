// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/value_names.h"

#include <gtest/gtest.h>

#include "cpctl/failure.h"

namespace cpctl
{

namespace
{

TEST(ValueNames, OfModes)
{
	EXPECT_EQ(parse_value(mode_names(), "off", "mode"), 0U);
	EXPECT_EQ(parse_value(mode_names(), "on", "mode"), 1U);
	EXPECT_EQ(parse_value(mode_names(), "internet-passes", "mode"), 7U);
	EXPECT_EQ(parse_value(mode_names(), "drop-tcp", "mode"), 8U);
	EXPECT_EQ(name_of(mode_names(), 7), "internet-passes");
}

TEST(ValueNames, OfBlockHttps)
{
	EXPECT_EQ(parse_value(block_https_names(), "pass", "value"), 0U);
	EXPECT_EQ(parse_value(block_https_names(), "block", "value"), 1U);
	EXPECT_EQ(parse_value(block_https_names(), "redirect", "value"), 2U);
}

TEST(ValueNames, OfDisconnection)
{
	EXPECT_EQ(parse_value(behavior_names(), "drop-all", "behaviour"), 0U);
	EXPECT_EQ(parse_value(behavior_names(), "pass-all", "behaviour"), 1U);
	EXPECT_EQ(parse_value(behavior_names(), "pass-dhcp", "behaviour"), 2U);
	EXPECT_EQ(parse_value(status_names(), "connected", "status"), 1U);
	EXPECT_EQ(parse_value(status_names(), "disconnected", "status"), 2U);
	EXPECT_EQ(name_of(status_names(), 0), "connected");
}

TEST(ValueNames, TakeAndShowNumbersWithoutAName)
{
	EXPECT_EQ(parse_value(mode_names(), "3", "mode"), 3U);
	EXPECT_EQ(parse_value(mode_names(), "4294967295", "mode"), 4294967295U);
	EXPECT_EQ(name_of(mode_names(), 3), "3");
}

TEST(ValueNames, RefuseOtherWordsAndSayWhichThereAre)
{
	for (const char *word : {"", "On", "-1", "+1", "0x1", "1 ", "4294967296"}) {
		EXPECT_THROW((void)parse_value(mode_names(), word, "mode"), Failure) << word;
	}
	try {
		(void)parse_value(status_names(), "away", "status");
		FAIL();
	} catch (const Failure &failure) {
		EXPECT_STREQ(failure.what(), "'away' is no status: choose one of connected, disconnected, or a number");
		EXPECT_EQ(failure.code(), ExitCode::usage);
	}
}

TEST(ValueNames, OfSwitchesTakeNoNumber)
{
	EXPECT_EQ(parse_name(switch_names(), "on", "switch"), 1U);
	EXPECT_EQ(parse_name(switch_names(), "off", "switch"), 0U);
	EXPECT_THROW((void)parse_name(switch_names(), "1", "switch"), Failure);
}

} // namespace

} // namespace cpctl
