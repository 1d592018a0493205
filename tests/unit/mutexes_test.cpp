// SPDX-License-Identifier: GPL-2.0-only
// The host kernel's mutexes and read sections.
#include "platform/host/mutexes.h"

#include <atomic>
#include <thread>

#include "base/lock.h"
#include "base/mutex.h"
#include "platform/host/context.h"
#include "platform/host/read_sections.h"
#include "tests/support/host_test.h"

namespace captive_portal::test
{

using Mutexes = HostTest;
using MutexesDeathTest = HostTest;
using ReadSections = HostTest;
using ReadSectionsDeathTest = HostTest;

TEST_F(Mutexes, AreHeldAsLongAsTheGuardLives)
{
	{
		const MutexGuard guard(Mutex::clients);
		EXPECT_EQ(host::held_mutexes(), 1u << CP_MUTEX_CLIENTS);
		const LockGuard inner(Lock::gatekeeper);
	}
	EXPECT_EQ(host::held_mutexes(), 0u);
	EXPECT_EQ(machine.mutexes.acquisitions(CP_MUTEX_CLIENTS), 1u);
}

TEST_F(Mutexes, ExcludeOtherThreadsAndLetTheirHolderSleep)
{
	int counter = 0;
	const auto count = [&] {
		for (int i = 0; i < 200; ++i) {
			const MutexGuard guard(Mutex::clients);
			host::might_sleep("a holder");
			++counter;
		}
	};
	std::thread first(count);
	std::thread second(count);
	first.join();
	second.join();
	EXPECT_EQ(counter, 400);
}

TEST_F(MutexesDeathTest, DieWhereAKernelWouldComplain)
{
	EXPECT_DEATH(
		{
			const MutexGuard first(Mutex::clients);
			const MutexGuard second(Mutex::clients);
		},
		"clients_mutex taken while mutexes 0x1 are held");
	EXPECT_DEATH(
		{
			const MutexGuard first(Mutex::clients);
			const MutexGuard second(Mutex::reports);
		},
		"reports_mutex taken while mutexes 0x1 are held");
	EXPECT_DEATH(
		{
			const MutexGuard first(Mutex::reports);
			const MutexGuard second(Mutex::clients);
		},
		"clients_mutex taken while mutexes 0x2 are held");
	EXPECT_DEATH(
		{
			const LockGuard spin(Lock::gatekeeper);
			const MutexGuard mutex(Mutex::clients);
		},
		"clients_mutex may sleep, but a spin lock is held");
	EXPECT_DEATH(
		{
			const host::SoftirqContext softirq;
			const MutexGuard mutex(Mutex::clients);
		},
		"clients_mutex may sleep, but a hook is running");
	EXPECT_DEATH(cp_mutex_unlock(CP_MUTEX_CLIENTS), "does not hold it");
	EXPECT_DEATH(cp_mutex_lock(CP_MUTEXES), "does not exist");
	EXPECT_DEATH(
		{
			cp_mutex_lock(CP_MUTEX_CLIENTS);
			host::expect_no_lock_held("a call");
		},
		"a call returned with a mutex held");
}

TEST_F(ReadSections, AreWaitedFor)
{
	std::atomic<int> stage = 0;
	std::atomic<bool> left = false;
	std::thread reader([&] {
		const host::ReadSection section;
		stage = 1;
		while (stage < 2) {
			std::this_thread::yield();
		}
		for (int i = 0; i < 1000; ++i) {
			std::this_thread::yield();
		}
		left = true;
	});
	while (stage < 1) {
		std::this_thread::yield();
	}
	stage = 2;
	host::wait_for_readers();
	EXPECT_TRUE(left);
	reader.join();
	host::wait_for_readers();
}

TEST_F(ReadSectionsDeathTest, DieWhenTheirThreadWaitsForItself)
{
	const host::ReadSection section;
	EXPECT_DEATH(host::wait_for_readers(), "waits for readers inside a read section");
	EXPECT_DEATH({ const host::ReadSection second; }, "begins inside a read section");
}

TEST_F(ReadSectionsDeathTest, SurroundEveryHook)
{
	host::PacketBuffer packet(std::vector<uint8_t>(60));
	EXPECT_DEATH((void)host::run_hook(
			     [](cp_packet *, const cp_ports *) {
				     host::wait_for_readers();
				     return CP_ACCEPT;
			     },
			     packet),
		     "inside a read section");
}

TEST_F(ReadSections, LargeMemoryIsZeroedAndFreedAfterThem)
{
	auto *const memory = static_cast<cp_deferred_free *>(cp_zalloc_large(100));
	ASSERT_NE(memory, nullptr);
	EXPECT_EQ(memory->platform[0], nullptr);
	EXPECT_EQ(static_cast<const uint8_t *>(static_cast<void *>(memory))[99], 0);
	EXPECT_EQ(machine.live_allocations().size(), 1u);
	cp_free_large_after_readers(memory);
	EXPECT_TRUE(machine.live_allocations().empty());
	machine.memory.fail_allocation(1);
	EXPECT_EQ(cp_zalloc_large(100), nullptr);
}

} // namespace captive_portal::test
