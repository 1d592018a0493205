// SPDX-License-Identifier: GPL-2.0-only
#include "garden/matched_interfaces.h"

#include <string>

#include "tests/support/host_test.h"

namespace captive_portal::test
{

namespace
{

class MatchedInterfaces : public HostTest
{
protected:
	[[nodiscard]] static std::string format(uint32_t mask)
	{
		char out[MATCHED_INTERFACES_SIZE];
		std::fill(std::begin(out), std::end(out), '#');
		format_matched_interfaces(out, mask);
		return out;
	}
};

TEST_F(MatchedInterfaces, AreNoneForAnEmptyMask)
{
	EXPECT_EQ(format(0), "");
}

TEST_F(MatchedInterfaces, AreNamedByRadioAndAccessPoint)
{
	EXPECT_EQ(format(1u << 0), " 1-1");
	EXPECT_EQ(format(1u << 7), " 1-8");
	EXPECT_EQ(format(1u << 8), " 2-1");
	EXPECT_EQ(format(1u << 15), " 2-8");
	EXPECT_EQ(format(1u << 16), " 3-1");
	EXPECT_EQ(format(1u << 23), " 3-8");
	EXPECT_EQ(format(1u << 27), " MIREL");
}

TEST_F(MatchedInterfaces, StandInOrder)
{
	EXPECT_EQ(format(1u << 27 | 1u << 23 | 1u << 9 | 1u << 2), " 1-3 2-2 3-8 MIREL");
}

TEST_F(MatchedInterfaces, DoNotShowTheRowsOfSpecialConnectionsNorBitsWithoutARow)
{
	EXPECT_EQ(format(7u << 24), "");
	EXPECT_EQ(format(0xf0000000), "");
	EXPECT_EQ(format(1u << 24 | 1u << 23 | 1u << 31), " 3-8");
}

TEST_F(MatchedInterfaces, FitAllTogether)
{
	const std::string all = " 1-1 1-2 1-3 1-4 1-5 1-6 1-7 1-8 2-1 2-2 2-3 2-4 2-5 2-6 2-7 2-8"
				" 3-1 3-2 3-3 3-4 3-5 3-6 3-7 3-8 MIREL";
	EXPECT_EQ(format(0xffffffff), all);
	EXPECT_EQ(all.size() + 1, MATCHED_INTERFACES_SIZE);
}

} // namespace

} // namespace captive_portal::test
