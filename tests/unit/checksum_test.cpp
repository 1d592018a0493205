// SPDX-License-Identifier: GPL-2.0-only
#include "platform/host/checksum.h"

#include <gtest/gtest.h>

namespace captive_portal::test
{

// The example of RFC 1071, section 3.
TEST(Checksum, SumsTheStandardsExample)
{
	const uint8_t bytes[] = {0x00, 0x01, 0xf2, 0x03, 0xf4, 0xf5, 0xf6, 0xf7};
	EXPECT_EQ(host::ones_complement_sum(bytes), 0xddf2);
}

TEST(Checksum, TakesAMissingLastByteAsZero)
{
	const uint8_t bytes[] = {0x12, 0x34, 0x56};
	EXPECT_EQ(host::ones_complement_sum(bytes), 0x1234 + 0x5600);
	EXPECT_EQ(host::ones_complement_sum({}), 0);
	EXPECT_EQ(host::ones_complement_sum({}, 0x1ffff), 1);
}

TEST(Checksum, FoldsCarriesMoreThanOnce)
{
	EXPECT_EQ(host::fold(0x0001ffff), 1);
	EXPECT_EQ(host::fold(0xffffffff), 0xffff);
	EXPECT_EQ(host::fold(0), 0);
}

// A sum of 0x1234 over a packet with the word 0x00010002 in it; the word becomes 0x00050009: 4 and 7 more.
TEST(Checksum, FollowsAChangedWord)
{
	EXPECT_EQ(host::sum_after_change(0x1234, 0x00010002, 0x00050009), 0x123f);
	EXPECT_EQ(host::checksum_after_change(0xedcb, 0x00010002, 0x00050009), 0xedc0);
	// Less, with a borrow around the end.
	EXPECT_EQ(host::sum_after_change(0x0001, 0x00000005, 0x00000002), 0xfffd);
}

} // namespace captive_portal::test
