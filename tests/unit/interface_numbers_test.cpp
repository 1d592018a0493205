// SPDX-License-Identifier: GPL-2.0-only
#include "base/interface_numbers.h"

#include <gtest/gtest.h>

namespace captive_portal::test
{

namespace
{

constexpr uint32_t none = 24;

TEST(InterfaceNumbers, MarksLeadBackToTheirInterface)
{
	EXPECT_EQ(interface_of_mark(5200), 0u);
	EXPECT_EQ(interface_of_mark(5207), 7u);
	EXPECT_EQ(interface_of_mark(5220), 8u);
	EXPECT_EQ(interface_of_mark(5247), 23u);
	// Every mark there can be in a 17-bit range, against the table in words: 5200..5207, 5220..5227, 5240..5247.
	for (uint32_t mark = 0; mark < 1u << 17; ++mark) {
		uint32_t expected = none;
		for (uint32_t index = 0; index < 24; ++index) {
			if (mark == 5200 + 20 * (index / 8) + index % 8) {
				expected = index;
			}
		}
		ASSERT_EQ(interface_of_mark(mark), expected) << mark;
	}
	EXPECT_EQ(interface_of_mark(0xffffffff), none);
	EXPECT_EQ(interface_of_mark(0x80000000 + 5200), none);
}

TEST(InterfaceNumbers, BothPortsLeadBackToTheirInterface)
{
	EXPECT_EQ(interface_of_port(10081), 0u);
	EXPECT_EQ(interface_of_port(10451), 7u);
	EXPECT_EQ(interface_of_port(20444), 8u);
	EXPECT_EQ(interface_of_port(30451), 23u);
	for (uint32_t port = 0; port <= 65535; ++port) {
		uint32_t expected = none;
		for (uint32_t index = 0; index < 24; ++index) {
			const uint32_t http = 10081 + 10000 * (index / 8) + index % 8;
			if (port == http || port == http + 363) {
				expected = index;
			}
		}
		ASSERT_EQ(interface_of_port(static_cast<uint16_t>(port)), expected) << port;
	}
}

} // namespace

} // namespace captive_portal::test
