// SPDX-License-Identifier: GPL-2.0-only
#include "base/fixed_addresses.h"

#include <gtest/gtest.h>

#include "tests/support/host_test.h"

namespace captive_portal::test
{

namespace
{

using FixedAddressesTest = HostTest;

TEST_F(FixedAddressesTest, AreZeroUntilTheyAreSetAtStart)
{
	EXPECT_EQ(socialogin_addr.raw, 0u);
	EXPECT_EQ(dns_filter_addr.raw, 0u);
	init_social_login_address();
	init_dns_filter_address();
	EXPECT_EQ(socialogin_addr.raw, 0x02020202u);
	EXPECT_EQ(dns_filter_addr.raw, 0x04040404u);
}

} // namespace

} // namespace captive_portal::test
