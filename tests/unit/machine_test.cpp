// SPDX-License-Identifier: GPL-2.0-only
#include "platform/host/machine.h"

#include "base/debug_level.h"
#include "tests/support/host_test.h"

namespace captive_portal::test
{

using Machine = HostTest;

TEST_F(Machine, StartsWithAModuleImageThatIsAllZero)
{
	EXPECT_EQ(debug_level, 0);
	debug_level = 3;
}

TEST_F(Machine, LoadsTheModule)
{
	load_module();
	EXPECT_EQ(debug_level, 1);
}

} // namespace captive_portal::test
