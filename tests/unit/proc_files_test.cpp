// SPDX-License-Identifier: GPL-2.0-only
// The host kernel's proc file.
#include "platform/host/proc_files.h"

#include <atomic>
#include <chrono>
#include <thread>

#include "platform/host/context.h"
#include "tests/support/host_test.h"

namespace captive_portal::test
{

namespace
{

constexpr cp_proc_file a_file = {.directory = "directory", .name = "file", .mode = 0640};

using ProcFiles = HostTest;
using ProcFilesDeathTest = HostTest;

} // namespace

TEST_F(ProcFiles, AreMadeAndTakenAway)
{
	EXPECT_EQ(cp_proc_create(&a_file), 0);
	ASSERT_TRUE(machine.proc.file().has_value());
	EXPECT_EQ(machine.proc.file()->directory, "directory");
	EXPECT_EQ(machine.proc.file()->name, "file");
	EXPECT_EQ(machine.proc.file()->mode, 0640);
	cp_proc_remove(&a_file);
	EXPECT_FALSE(machine.proc.file().has_value());
	EXPECT_EQ(machine.proc.create_calls(), 1u);
	EXPECT_EQ(machine.proc.remove_calls(), 1u);
	EXPECT_EQ(machine.events(), (std::vector{host::Event::proc_created, host::Event::proc_removed}));
}

TEST_F(ProcFiles, AreNotMadeOnOrderOnce)
{
	machine.proc.fail_next_creation(-12);
	EXPECT_EQ(cp_proc_create(&a_file), -12);
	EXPECT_FALSE(machine.proc.file().has_value());
	cp_proc_remove(&a_file);
	EXPECT_EQ(cp_proc_create(&a_file), 0);
	EXPECT_EQ(machine.events(),
		  (std::vector{host::Event::proc_refused, host::Event::proc_removed, host::Event::proc_created}));
}

TEST_F(ProcFiles, TakeCallsOnlyWhileTheyAreThere)
{
	int calls = 0;
	const auto body = [&] {
		++calls;
		return 12L;
	};
	EXPECT_EQ(machine.proc.call(body), -5);
	ASSERT_EQ(cp_proc_create(&a_file), 0);
	EXPECT_EQ(machine.proc.call(body), 12);
	cp_proc_remove(&a_file);
	EXPECT_EQ(machine.proc.call(body), -5);
	EXPECT_EQ(calls, 1);
}

TEST_F(ProcFiles, AreTakenAwayWhenNoCallRuns)
{
	ASSERT_EQ(cp_proc_create(&a_file), 0);
	std::atomic<bool> call_runs = false;
	std::atomic<bool> call_may_end = false;
	std::atomic<bool> removed = false;
	std::thread reader([&] {
		static_cast<void>(machine.proc.call([&] {
			call_runs = true;
			while (!call_may_end) {
				std::this_thread::yield();
			}
			EXPECT_FALSE(removed);
			return 0L;
		}));
	});
	while (!call_runs) {
		std::this_thread::yield();
	}
	std::thread remover([&] {
		cp_proc_remove(&a_file);
		removed = true;
	});
	std::this_thread::sleep_for(std::chrono::milliseconds(20));
	EXPECT_FALSE(removed);
	call_may_end = true;
	reader.join();
	remover.join();
	EXPECT_TRUE(removed);
}

TEST_F(ProcFilesDeathTest, DieWhenMadeTwiceOrTakenAwayAsOthers)
{
	constexpr cp_proc_file other = {.directory = "directory", .name = "other", .mode = 0640};
	ASSERT_EQ(cp_proc_create(&a_file), 0);
	EXPECT_DEATH(static_cast<void>(cp_proc_create(&a_file)), "proc file made twice");
	EXPECT_DEATH(cp_proc_remove(&other), "another proc file");
}

TEST_F(ProcFilesDeathTest, DieWhenMadeOrTakenAwayUnderALock)
{
	EXPECT_DEATH(
		{
			cp_spin_lock_bh(CP_LOCK_CP);
			static_cast<void>(cp_proc_create(&a_file));
		},
		"cp_proc_create may sleep, but a spin lock is held");
	EXPECT_DEATH(
		{
			cp_spin_lock_bh(CP_LOCK_CP);
			cp_proc_remove(&a_file);
		},
		"cp_proc_remove may sleep, but a spin lock is held");
}

} // namespace captive_portal::test
