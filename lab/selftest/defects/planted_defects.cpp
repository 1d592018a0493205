// SPDX-License-Identifier: GPL-2.0-only
// Defects of the kinds that the lab must see, in an object that is compiled as the module's core is. They are in no
// module but the one that lab/selftest/planted builds: there each debug level below brings one about.
#include "base/lock.h"
#include "base/memory.h"
#include "platform/platform.h"

extern "C" void cp_planted_warning(void);

namespace captive_portal
{

namespace
{

struct Clients {
	uint8_t macs[4][6];
};

// Keeps the compiler from knowing the index.
volatile uint32_t one_past_the_end = sizeof(Clients);

void read_outside_an_object()
{
	const Owned<Clients> clients(allocate_zeroed<Clients>());
	if (clients) {
		const volatile uint8_t *const bytes = &clients->macs[0][0];
		(void)bytes[one_past_the_end];
	}
}

// No two processors need to meet: the order alone is wrong.
void take_locks_in_both_orders()
{
	{
		const LockGuard outer(Lock::dns_list);
		const LockGuard inner(Lock::walledgarden);
	}
	const LockGuard outer(Lock::walledgarden);
	const LockGuard inner(Lock::dns_list);
}

// Several: a stale pointer on a stack may hide one of them.
void lose_memory()
{
	for (int i = 0; i < 20; ++i) {
		(void)allocate_zeroed<Clients>();
	}
}

} // namespace

void planted_defect(int32_t debug_level)
{
	switch (debug_level) {
	case 9001:
		cp_planted_warning();
		break;
	case 9002:
		read_outside_an_object();
		break;
	case 9003:
		take_locks_in_both_orders();
		break;
	case 9004:
		lose_memory();
		break;
	default:
		break;
	}
}

} // namespace captive_portal
