// SPDX-License-Identifier: GPL-2.0-only
#include "platform/host/kernel_memory.h"

#include <gtest/gtest-spi.h>

#include "base/debug_level.h"
#include "portal/interface_table.h"
#include "tests/support/host_test.h"
#include "tests/support/kept_memory.h"

namespace captive_portal::test
{

using KernelMemory = HostTest;
using KernelMemoryDeathTest = HostTest;

TEST_F(KernelMemory, FailsTheOrderedAllocationAlone)
{
	machine.memory.fail_allocation(2);
	void *const first = cp_zalloc_atomic(1);
	void *const second = cp_zalloc_atomic(1);
	void *const third = cp_zalloc_atomic(1);
	EXPECT_NE(first, nullptr);
	EXPECT_EQ(second, nullptr);
	EXPECT_NE(third, nullptr);
	EXPECT_EQ(machine.memory.attempts(), 3u);
	cp_free(first);
	cp_free(third);
}

TEST_F(KernelMemory, FailsEveryAllocationOnOrder)
{
	machine.memory.fail_all_allocations(true);
	EXPECT_EQ(cp_zalloc_atomic(1), nullptr);
	EXPECT_EQ(cp_zalloc_atomic(1), nullptr);
	machine.memory.fail_all_allocations(false);
	void *const memory = cp_zalloc_atomic(1);
	EXPECT_NE(memory, nullptr);
	cp_free(memory);
}

TEST_F(KernelMemory, EndsAtFourMebibytes)
{
	EXPECT_EQ(cp_zalloc_atomic(4u * 1024 * 1024 + 1), nullptr);
	void *const memory = cp_zalloc_atomic(4u * 1024 * 1024);
	EXPECT_NE(memory, nullptr);
	cp_free(memory);
}

TEST_F(KernelMemory, IgnoresTheFreeOfNull)
{
	cp_free(nullptr);
}

TEST_F(KernelMemory, ListsWhatLivesOldestFirst)
{
	void *const first = cp_zalloc_atomic(10);
	void *const second = cp_zalloc_atomic(20);
	void *const third = cp_zalloc_atomic(30);
	cp_free(second);
	const std::vector<host::Allocation> live = machine.live_allocations();
	ASSERT_EQ(live.size(), 2u);
	EXPECT_EQ(live[0].size, 10u);
	EXPECT_EQ(live[0].number, 1u);
	EXPECT_EQ(live[1].size, 30u);
	EXPECT_EQ(live[1].number, 3u);
	cp_free(first);
	cp_free(third);
}

// A list that hangs off a table of the module is kept, not lost; the machine frees it.
TEST_F(KernelMemory, KeepsWhatTheModuleReaches)
{
	auto **const first = static_cast<void **>(cp_zalloc_atomic(sizeof(void *)));
	*first = cp_zalloc_atomic(5);
	captive_portal_table[27].table_list = reinterpret_cast<table_list_entry *>(first);
	EXPECT_TRUE(machine.lost_allocations().empty());
	EXPECT_EQ(machine.live_allocations().size(), 2u);
}

TEST_F(KernelMemory, LosesWhatNothingPointsTo)
{
	void *const memory = cp_zalloc_atomic(123);
	ASSERT_EQ(machine.lost_allocations().size(), 1u);
	EXPECT_EQ(machine.lost_allocations()[0].size, 123u);
	EXPECT_NONFATAL_FAILURE(expect_nothing_lost(machine), "lost: allocation number 1 of 123 bytes");
	cp_free(memory);
	EXPECT_TRUE(machine.lost_allocations().empty());
}

// A kept kind is known by its size; what has that size and is in no list is none.
TEST_F(KernelMemory, OfAKeptKindIsOnlyWhatTheListsHold)
{
	expect_only_kept_memory(machine);
	for (const KeptKind &kind : kept_kinds()) {
		void *const memory = cp_zalloc_atomic(kind.bytes);
		EXPECT_NONFATAL_FAILURE(expect_only_kept_memory(machine), "and in the lists as " + kind.name);
		cp_free(memory);
	}
	void *const memory = cp_zalloc_atomic(123);
	EXPECT_NONFATAL_FAILURE(expect_only_kept_memory(machine),
				"left after the stop: allocation number 3 of 123 bytes");
	cp_free(memory);
}

TEST_F(KernelMemory, GivesLargeMemoryOfAnySizeThatIsNotZeroed)
{
	constexpr size_t size = (size_t{4} << 20) + 1;
	EXPECT_EQ(cp_zalloc_atomic(size), nullptr);
	auto *const memory = static_cast<unsigned char *>(cp_alloc_large(size));
	ASSERT_NE(memory, nullptr);
	EXPECT_NE(memory[0], 0);
	EXPECT_NE(memory[size - 1], 0);
	EXPECT_EQ(machine.live_allocations().at(0).size, size);
	cp_free_large(memory);
	cp_free_large(nullptr);
	EXPECT_TRUE(machine.live_allocations().empty());
}

TEST_F(KernelMemory, FailsLargeAllocationsOnOrderAndTellsOfThem)
{
	std::vector<size_t> sizes;
	machine.memory.before_large_allocation([&](size_t size) { sizes.push_back(size); });
	machine.memory.fail_allocation(1);
	EXPECT_EQ(cp_alloc_large(10), nullptr);
	void *const memory = cp_alloc_large(20);
	EXPECT_NE(memory, nullptr);
	cp_free_large(memory);
	cp_free(cp_zalloc_atomic(30));
	EXPECT_EQ(sizes, (std::vector<size_t>{10, 20}));
}

TEST_F(KernelMemory, TellsOfAtomicAllocations)
{
	std::vector<size_t> sizes;
	machine.memory.before_atomic_allocation([&](size_t size) { sizes.push_back(size); });
	machine.memory.fail_allocation(1);
	EXPECT_EQ(cp_zalloc_atomic(10), nullptr);
	cp_free(cp_zalloc_atomic(20));
	cp_free_large(cp_alloc_large(30));
	EXPECT_EQ(sizes, (std::vector<size_t>{10, 20}));
}

TEST_F(KernelMemoryDeathTest, DiesWhenFreedByTheOtherAllocator)
{
	void *const small = cp_zalloc_atomic(1);
	void *const large = cp_alloc_large(1);
	EXPECT_DEATH(cp_free_large(small), "freed by the other");
	EXPECT_DEATH(cp_free(large), "freed by the other");
	cp_free(small);
	cp_free_large(large);
}

TEST_F(KernelMemoryDeathTest, DiesWhenLargeMemoryIsAskedForOrFreedUnderALock)
{
	EXPECT_DEATH(
		{
			cp_spin_lock_bh(CP_LOCK_CP);
			static_cast<void>(cp_alloc_large(1));
		},
		"cp_alloc_large may sleep, but a spin lock is held");
	EXPECT_DEATH(
		{
			cp_spin_lock_bh(CP_LOCK_CP);
			cp_free_large(nullptr);
		},
		"cp_free_large may sleep, but a spin lock is held");
}

TEST_F(KernelMemoryDeathTest, DiesWhenFreedTwice)
{
	void *const memory = cp_zalloc_atomic(1);
	cp_free(memory);
	EXPECT_DEATH(cp_free(memory), "free of memory that is not allocated");
}

TEST_F(KernelMemoryDeathTest, DiesWhenFreedInTheMiddle)
{
	auto *const memory = static_cast<char *>(cp_zalloc_atomic(2));
	EXPECT_DEATH(cp_free(memory + 1), "free of memory that is not allocated");
	cp_free(memory);
}

#ifdef __SANITIZE_ADDRESS__
TEST_F(KernelMemoryDeathTest, DiesWhenReadAfterItsFreeOrPastItsEnd)
{
	auto *const memory = static_cast<volatile char *>(cp_zalloc_atomic(3));
	EXPECT_DEATH(static_cast<void>(memory[3]), "heap-buffer-overflow");
	cp_free(const_cast<char *>(memory));
	EXPECT_DEATH(static_cast<void>(memory[0]), "heap-use-after-free");
}
#endif

} // namespace captive_portal::test
