// SPDX-License-Identifier: GPL-2.0-only
// The caller's address space, and the records that tests place in it.
#include "platform/host/user_memory.h"

#include <array>
#include <cstring>

#include "tests/support/host_test.h"
#include "tests/support/user_buffer.h"

namespace captive_portal::test
{

namespace
{

using Record = std::array<uint8_t, 10>;

constexpr Record numbers = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
constexpr Record others = {0xa1, 0xa2, 0xa3, 0xa4, 0xa5, 0xa6, 0xa7, 0xa8, 0xa9, 0xaa};

} // namespace

using UserMemory = HostTest;
using UserMemoryDeathTest = HostTest;

TEST_F(UserMemory, IsCopiedInAndOut)
{
	UserRecord<Record> user(machine, numbers);
	Record kernel{};
	EXPECT_EQ(cp_copy_from_user(kernel.data(), user.address(), kernel.size()), 0u);
	EXPECT_EQ(kernel, numbers);
	EXPECT_EQ(cp_copy_to_user(user.address(), others.data(), others.size()), 0u);
	EXPECT_EQ(user.load(), others);
}

TEST_F(UserMemory, IsMappedWhereTheCallerWantsIt)
{
	machine.user.map_at(0xffff'f000, UserAccess::read_only);
	machine.user.write(0xffff'f000, std::as_bytes(std::span(numbers)));
	Record kernel{};
	EXPECT_EQ(cp_copy_from_user(kernel.data(), 0xffff'f000, kernel.size()), 0u);
	EXPECT_EQ(kernel, numbers);
	EXPECT_EQ(cp_copy_to_user(0xffff'f000, others.data(), others.size()), 10u);
}

TEST_F(UserMemoryDeathTest, DiesWhenItIsMappedTwice)
{
	machine.user.map_at(0x5000'0000, UserAccess::read_write);
	EXPECT_DEATH(machine.user.map_at(0x5000'0000, UserAccess::read_write), "no place for a user page");
	EXPECT_DEATH(machine.user.map_at(0x5000'0001, UserAccess::read_write), "no place for a user page");
}

TEST_F(UserMemory, OfARecordEndsAtAPage)
{
	UserRecord<Record> user(machine, numbers);
	std::array<uint8_t, 11> kernel;
	kernel.fill(0xee);
	EXPECT_EQ(cp_copy_from_user(kernel.data(), user.address(), 11), 1u);
	EXPECT_EQ(kernel, (std::array<uint8_t, 11>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 0}));
	EXPECT_EQ(cp_copy_to_user(user.address(), kernel.data(), 11), 1u);
}

TEST_F(UserMemory, StopsAtTheBorderOfAnUnreadablePage)
{
	UserRecord<Record> user(machine, numbers, 4, UserAccess::none);
	Record kernel;
	kernel.fill(0xee);
	EXPECT_EQ(cp_copy_from_user(kernel.data(), user.address(), kernel.size()), 6u);
	EXPECT_EQ(kernel, (Record{1, 2, 3, 4, 0, 0, 0, 0, 0, 0}));
	EXPECT_EQ(cp_copy_to_user(user.address(), others.data(), others.size()), 6u);
	EXPECT_EQ(user.load(), (Record{0xa1, 0xa2, 0xa3, 0xa4, 5, 6, 7, 8, 9, 10}));
}

TEST_F(UserMemory, IsReadButNotWrittenBehindTheBorderOfAReadOnlyPage)
{
	UserRecord<Record> user(machine, numbers, 4, UserAccess::read_only);
	Record kernel{};
	EXPECT_EQ(cp_copy_from_user(kernel.data(), user.address(), kernel.size()), 0u);
	EXPECT_EQ(kernel, numbers);
	EXPECT_EQ(cp_copy_to_user(user.address(), others.data(), others.size()), 6u);
}

TEST_F(UserMemory, RefusesAllOfAReadOnlyRecord)
{
	UserRecord<Record> user(machine, numbers);
	user.protect_all(UserAccess::read_only);
	EXPECT_EQ(cp_copy_to_user(user.address(), others.data(), others.size()), 10u);
	EXPECT_EQ(user.load(), numbers);
}

TEST_F(UserMemory, RefusesWhatIsNotTheCallersBeforeTheFirstByte)
{
	Record kernel;
	for (const cp_user_address address : {refused_address, host::UserMemory::address_limit - 9, UINTPTR_MAX}) {
		kernel.fill(0xee);
		EXPECT_EQ(cp_copy_from_user(kernel.data(), address, kernel.size()), 10u);
		EXPECT_EQ(kernel, Record{});
		EXPECT_EQ(cp_copy_to_user(address, kernel.data(), kernel.size()), 10u);
	}
}

TEST_F(UserMemory, HasNothingAtNull)
{
	Record kernel;
	kernel.fill(0xee);
	EXPECT_EQ(cp_copy_from_user(kernel.data(), unmapped_address, kernel.size()), 10u);
	EXPECT_EQ(kernel, Record{});
}

TEST_F(UserMemory, IsDuplicatedWhole)
{
	const UserRecord<Record> user(machine, numbers);
	void *const copy = cp_memdup_user(user.address(), sizeof(Record));
	ASSERT_NE(copy, nullptr);
	EXPECT_EQ(std::memcmp(copy, numbers.data(), sizeof(Record)), 0);
	cp_free(copy);
}

TEST_F(UserMemory, IsNotDuplicatedInPart)
{
	const UserRecord<Record> user(machine, numbers, 9, UserAccess::none);
	EXPECT_EQ(cp_memdup_user(user.address(), sizeof(Record)), nullptr);
	EXPECT_EQ(cp_memdup_user(refused_address, sizeof(Record)), nullptr);
	EXPECT_TRUE(machine.live_allocations().empty());
}

TEST_F(UserMemory, IsNotDuplicatedWithoutMemory)
{
	const UserRecord<Record> user(machine, numbers);
	machine.memory.fail_allocation(1);
	EXPECT_EQ(cp_memdup_user(user.address(), sizeof(Record)), nullptr);
}

// Either direction counts, and a copy that is ordered to fail copies nothing.
TEST_F(UserMemory, FailsTheCopyThatWasOrderedAndNoOther)
{
	const UserRecord<Record> user(machine, numbers);
	const uint64_t copies = machine.user.copies();
	machine.user.fail_copy(2);
	Record kernel;
	EXPECT_EQ(cp_copy_from_user(kernel.data(), user.address(), kernel.size()), 0u);
	EXPECT_EQ(kernel, numbers);
	EXPECT_EQ(cp_copy_to_user(user.address(), Record{}.data(), kernel.size()), 10u);
	EXPECT_EQ(user.load(), numbers);
	EXPECT_EQ(cp_copy_from_user(kernel.data(), user.address(), kernel.size()), 0u);
	EXPECT_EQ(machine.user.copies(), copies + 3);
	machine.user.fail_copy(1);
	EXPECT_EQ(cp_copy_from_user(kernel.data(), user.address(), kernel.size()), 10u);
	EXPECT_EQ(kernel, Record{});
	machine.user.fail_copy(1);
	EXPECT_EQ(cp_memdup_user(user.address(), sizeof(Record)), nullptr);
	EXPECT_TRUE(machine.live_allocations().empty());
}

TEST_F(UserMemory, HoldsRecordsOfManyPages)
{
	std::vector<std::byte> bytes(16592, std::byte{0x5a});
	UserBuffer user(machine, bytes.size());
	user.write(bytes);
	std::vector<std::byte> kernel(bytes.size());
	EXPECT_EQ(cp_copy_from_user(kernel.data(), user.address(), kernel.size()), 0u);
	EXPECT_EQ(kernel, bytes);
	EXPECT_EQ((user.address() + user.size()) % 4096, 0u);
}

TEST_F(UserMemory, LetsATestInBeforeItIsCopiedOut)
{
	UserBuffer user(machine, 4);
	std::vector<std::byte> before;
	machine.user.before_copy_out([&] { before = user.read(); });
	const uint32_t number = 0x5a5a5a5a;
	EXPECT_EQ(cp_copy_to_user(user.address(), &number, sizeof(number)), 0u);
	EXPECT_EQ(before, std::vector(4, std::byte{0}));
	EXPECT_EQ(user.read(), std::vector(4, std::byte{0x5a}));
}

TEST_F(UserMemoryDeathTest, DiesWhenTheTestItselfStraysOutside)
{
	UserBuffer user(machine, 4);
	EXPECT_DEATH(static_cast<void>(machine.user.read(user.address(), 5)), "no user page");
	EXPECT_DEATH(machine.user.protect(unmapped_address, UserAccess::none), "no user page");
}

} // namespace captive_portal::test
