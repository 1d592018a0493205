// SPDX-License-Identifier: GPL-2.0-only
#include "tests/support/host_test.h"

#include <algorithm>

#include "tests/support/control.h"
#include "tests/support/kept_memory.h"

namespace captive_portal::test
{

bool log_has(const LogLine &line)
{
	const std::vector<LogLine> lines = host::Machine::current().log.lines();
	return std::find(lines.begin(), lines.end(), line) != lines.end();
}

void expect_nothing_lost(const host::Machine &machine)
{
	for (const host::Allocation &allocation : machine.lost_allocations()) {
		ADD_FAILURE() << "lost: allocation number " << allocation.number << " of " << allocation.size
			      << " bytes";
	}
}

void HostTest::TearDown()
{
	expect_nothing_lost(machine);
	if (!machine.is_loaded() && machine.hooks.unregister_calls() != 0) {
		expect_only_kept_memory(machine);
	}
}

void HostTest::load_module()
{
	::captive_portal::test::load_module(machine);
}

} // namespace captive_portal::test
