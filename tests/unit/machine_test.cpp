// SPDX-License-Identifier: GPL-2.0-only
// The machine as a whole, and the module image that it loads.
#include "platform/host/machine.h"

#include <algorithm>

#include "base/debug_level.h"
#include "garden/arecord_cache.h"
#include "gatekeeper/client_tables.h"
#include "platform/host/module_image.h"
#include "portal/interface_table.h"
#include "tests/support/control.h"
#include "tests/support/host_test.h"

namespace captive_portal::test
{

namespace
{

bool lies_in_image(const void *variable)
{
	for (const std::span<const std::byte> part : host::module_image()) {
		const auto *const bytes = static_cast<const std::byte *>(variable);
		if (bytes >= part.data() && bytes < part.data() + part.size()) {
			return true;
		}
	}
	return false;
}

} // namespace

using Machine = HostTest;
using MachineDeathTest = HostTest;

TEST(ModuleImage, HoldsTheVariablesOfEveryRoom)
{
	EXPECT_TRUE(lies_in_image(&debug_level));
	EXPECT_TRUE(lies_in_image(&captive_portal_table));
	EXPECT_TRUE(lies_in_image(&ap_addr));
	EXPECT_TRUE(lies_in_image(&login_mac_table));
	EXPECT_TRUE(lies_in_image(&total_ip_count));
}

TEST(ModuleImage, IsAsAFreshLoadForEachMachine)
{
	for (int round = 0; round < 2; ++round) {
		const host::Machine machine;
		EXPECT_EQ(debug_level, 0);
		EXPECT_EQ(captive_portal_table[27].cp_mode, 0u);
		EXPECT_EQ(white_list[23].iface[0], '\0');
		EXPECT_TRUE(mirel_black_list.copy_out(nullptr, 0) == 0);
		debug_level = 3;
		captive_portal_table[27].cp_mode = 8;
		white_list[23].iface[0] = 'w';
	}
}

TEST_F(Machine, LoadsAndUnloadsTheModule)
{
	EXPECT_EQ(machine.load(), 0);
	EXPECT_TRUE(machine.is_loaded());
	EXPECT_EQ(machine.hooks.registered().size(), 3u);
	EXPECT_TRUE(machine.misc.registered().has_value());
	EXPECT_EQ(machine.unload(), 0);
	EXPECT_FALSE(machine.is_loaded());
}

TEST_F(Machine, OpensTheControlDeviceOnlyWhileItIsRegistered)
{
	EXPECT_EQ(machine.open(), -6);
	load_module();
	EXPECT_EQ(machine.open(), 0);
	EXPECT_EQ(machine.unload(), -16);
	EXPECT_EQ(machine.release(), 0);
	EXPECT_EQ(machine.unload(), 0);
	EXPECT_EQ(machine.open(), -6);
}

TEST_F(Machine, ActsRightAfterAnEvent)
{
	std::vector<host::Event> seen;
	machine.after(host::Event::hooks_registered, [&] {
		seen.push_back(host::Event::hooks_registered);
		EXPECT_EQ(machine.hooks.registered().size(), 3u);
		EXPECT_FALSE(machine.misc.registered().has_value());
	});
	EXPECT_EQ(machine.load(), 0);
	EXPECT_EQ(seen.size(), 1u);
}

TEST_F(Machine, HasAClockThatTestsSet)
{
	machine.clock.set(1000);
	EXPECT_EQ(cp_wall_clock_seconds(), 1000);
	machine.clock.advance(60);
	EXPECT_EQ(cp_wall_clock_seconds(), 1060);
	machine.clock.advance(-2000);
	EXPECT_EQ(cp_wall_clock_seconds(), -940);
}

TEST_F(Machine, TakesACommandsRecordAndGivesItBack)
{
	load_module();
	cp_status record{};
	record.cmd = CP_GET_STATUS;
	record.iface = 23;
	EXPECT_EQ(command(machine, CAPTIVE_PORTAL_IOCTL_GET, record), 0);
	EXPECT_EQ(record.mark, 5247u);
}

TEST_F(MachineDeathTest, DiesForASecondMachine)
{
	EXPECT_DEATH(const host::Machine second, "two machines");
}

TEST_F(MachineDeathTest, DiesWhenAReferenceIsGivenBackThatWasNotTaken)
{
	EXPECT_DEATH(cp_module_put(), "was not taken");
}

TEST_F(MachineDeathTest, DiesWhenUnloadedButNotLoaded)
{
	EXPECT_DEATH(static_cast<void>(machine.unload()), "not loaded");
}

} // namespace captive_portal::test
