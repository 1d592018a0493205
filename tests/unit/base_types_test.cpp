// SPDX-License-Identifier: GPL-2.0-only
// The small types of the bottom layer: field.h, mac_address.h, atomic_word.h, debug_level.h.
#include <gtest/gtest.h>

#include <cstring>
#include <string_view>

#include "base/atomic_word.h"
#include "base/debug_level.h"
#include "base/field.h"
#include "base/mac_address.h"
#include "tests/support/host_test.h"

namespace captive_portal::test
{

TEST(Field, WhenMissingEqualsNothing)
{
	EXPECT_FALSE(Field<int>() == 0);
	EXPECT_FALSE(Field<int>().has_value());
	EXPECT_TRUE(Field<int>(0) == 0);
	EXPECT_FALSE(Field<int>(1) == 0);
	EXPECT_EQ(Field<int>(7).value(), 7);
}

TEST(MacAddress, KnowsGroupAddresses)
{
	const auto is_group = [](const MacAddress &mac) { return MacAddress::is_group(mac.word()); };
	EXPECT_TRUE(is_group({{0x01, 0, 0, 0, 0, 0}}));
	EXPECT_TRUE(is_group({{0xff, 0xff, 0xff, 0xff, 0xff, 0xff}}));
	EXPECT_TRUE(is_group({{0x03, 0, 0, 0, 0, 0}}));
	// The locally administered bit makes no group.
	EXPECT_FALSE(is_group({{0x02, 0x01, 0x01, 0x01, 0x01, 0x01}}));
	EXPECT_FALSE(is_group({{0, 0, 0, 0, 0, 1}}));
}

TEST(MacAddress, ComparesAllSixBytes)
{
	const MacAddress mac{{2, 3, 4, 5, 6, 7}};
	EXPECT_TRUE(mac == MacAddress::from(mac.bytes));
	for (unsigned i = 0; i < 6; ++i) {
		MacAddress other = mac;
		other.bytes[i] ^= 1;
		EXPECT_FALSE(mac == other) << i;
	}
}

TEST(AtomicName, KeepsAllSixteenBytes)
{
	AtomicName name{};
	char out[CP_INTERFACE_NAME_SIZE];
	name.store({'w', 'l', 'a', 'n', '-', '1', '-', '0', '0', '0', '0', '0', '0', '0', '1', '4'});
	name.load(out);
	EXPECT_EQ(std::string_view(out, sizeof(out)), "wlan-1-000000014");
}

using DebugLevel = HostTest;

TEST_F(DebugLevel, IsReachedFromItsNumberOn)
{
	store_word(debug_level, int32_t{2});
	EXPECT_TRUE(debug_level_reaches(1));
	EXPECT_TRUE(debug_level_reaches(2));
	EXPECT_FALSE(debug_level_reaches(3));
}

// No range is checked when it is set.
TEST_F(DebugLevel, IsReachedByNothingWhenNegative)
{
	store_word(debug_level, int32_t{-1});
	EXPECT_FALSE(debug_level_reaches(1));
}

} // namespace captive_portal::test
