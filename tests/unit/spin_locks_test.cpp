// SPDX-License-Identifier: GPL-2.0-only
// The host kernel's locks and what they watch over, together with the guard of base/lock.h.
#include "platform/host/spin_locks.h"

#include <thread>

#include "base/lock.h"
#include "platform/host/context.h"
#include "tests/support/host_test.h"

namespace captive_portal::test
{

using SpinLocks = HostTest;
using SpinLocksDeathTest = HostTest;

TEST_F(SpinLocks, AreHeldAsLongAsTheGuardLives)
{
	{
		const LockGuard guard(Lock::cp);
		EXPECT_EQ(host::held_locks(), 1u << CP_LOCK_CP);
	}
	EXPECT_EQ(host::held_locks(), 0u);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_CP), 1u);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_GATEWAY), 0u);
}

TEST_F(SpinLocks, NestWalledGardenInDnsList)
{
	const LockGuard outer(Lock::dns_list);
	const LockGuard inner(Lock::walledgarden);
	EXPECT_EQ(host::held_locks(), 1u << CP_LOCK_DNS_LIST | 1u << CP_LOCK_WALLEDGARDEN);
}

TEST_F(SpinLocks, ExcludeOtherThreads)
{
	int counter = 0;
	const auto count = [&] {
		for (int i = 0; i < 1000; ++i) {
			const LockGuard guard(Lock::gatekeeper);
			++counter;
		}
	};
	std::thread first(count);
	std::thread second(count);
	first.join();
	second.join();
	EXPECT_EQ(counter, 2000);
}

TEST_F(SpinLocksDeathTest, DieWhenTakenTwice)
{
	EXPECT_DEATH(
		{
			const LockGuard first(Lock::cp);
			const LockGuard second(Lock::cp);
		},
		"cp_lock taken twice");
}

// The pair the other way round, and a third lock inside the pair, among all pairs that may not nest.
TEST_F(SpinLocksDeathTest, DieInEveryOtherNesting)
{
	const Lock locks[] = {Lock::gatekeeper,     Lock::cp,       Lock::gateway,
			      Lock::change_ip_port, Lock::dns_list, Lock::walledgarden};
	for (const Lock outer : locks) {
		for (const Lock inner : locks) {
			if (outer == inner || (outer == Lock::dns_list && inner == Lock::walledgarden)) {
				continue;
			}
			EXPECT_DEATH(
				{
					const LockGuard first(outer);
					const LockGuard second(inner);
				},
				"lock order: ");
		}
	}
	EXPECT_DEATH(
		{
			const LockGuard first(Lock::dns_list);
			const LockGuard second(Lock::walledgarden);
			const LockGuard third(Lock::cp);
		},
		"lock order: cp_lock");
}

TEST_F(SpinLocksDeathTest, DieWhenReleasedButNotHeld)
{
	EXPECT_DEATH(cp_spin_unlock_bh(CP_LOCK_CP), "does not hold it");
}

TEST_F(SpinLocksDeathTest, DieWhenTheirNumberDoesNotExist)
{
	EXPECT_DEATH(cp_spin_lock_bh(CP_LOCKS), "does not exist");
}

TEST_F(SpinLocksDeathTest, DieWhenSomethingSleepsUnderThem)
{
	uint32_t word = 0;
	const LockGuard guard(Lock::gateway);
	EXPECT_DEATH(static_cast<void>(cp_copy_from_user(&word, 0x10000, 4)), "cp_copy_from_user may sleep");
	EXPECT_DEATH(static_cast<void>(cp_copy_to_user(0x10000, &word, 4)), "cp_copy_to_user may sleep");
	EXPECT_DEATH(static_cast<void>(cp_memdup_user(0x10000, 4)), "cp_memdup_user may sleep");
	EXPECT_DEATH(static_cast<void>(cp_register_hooks(nullptr, 0)), "cp_register_hooks may sleep");
	EXPECT_DEATH(cp_unregister_hooks(nullptr, 0), "cp_unregister_hooks may sleep");
	EXPECT_DEATH(static_cast<void>(cp_misc_register(nullptr)), "cp_misc_register may sleep");
	EXPECT_DEATH(cp_misc_deregister(nullptr), "cp_misc_deregister may sleep");
}

TEST_F(SpinLocks, AllowAtomicAllocationUnderThem)
{
	const LockGuard guard(Lock::gateway);
	void *const memory = cp_zalloc_atomic(8);
	EXPECT_NE(memory, nullptr);
	cp_free(memory);
}

TEST(MachineEndDeathTest, DiesWhenALockIsHeld)
{
	EXPECT_DEATH(
		{
			const host::Machine machine;
			cp_spin_lock_bh(CP_LOCK_DNS_LIST);
		},
		"dns_list_lock is held at the machine's end");
}

} // namespace captive_portal::test
