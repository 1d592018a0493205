// SPDX-License-Identifier: GPL-2.0-only
// Hooks, commands, start and stop at once, on real threads. The thread sanitizer's build judges every access; the host
// kernel judges locks, their order, and writes to shared packet data; this file judges what comes out.
#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "tests/unit/concurrency_fixture.h"

namespace captive_portal::test
{

namespace
{

TEST_F(Concurrency, HooksMeetCommands)
{
	load_and_configure();
	start_traffic();
	for (int round = 0; round < 3; ++round) {
		run_process(40);
	}
	wait_for_frames(500);
	stop_traffic();
	EXPECT_EQ(machine.unload(), 0);
	EXPECT_TRUE(machine.lost_allocations().empty());
}

TEST_F(Concurrency, HooksMeetMissingMemory)
{
	load_and_configure();
	start_traffic();
	for (uint64_t n = 0; n < 60; ++n) {
		machine.memory.fail_allocation(1 + n % 3);
		wait_for_frames(5);
	}
	machine.memory.fail_all_allocations(true);
	wait_for_frames(50);
	machine.memory.fail_all_allocations(false);
	stop_traffic();
	EXPECT_EQ(machine.unload(), 0);
	EXPECT_TRUE(machine.lost_allocations().empty());
}

TEST_F(Concurrency, HooksAndCommandsMeetStart)
{
	start_traffic();
	wait_for_frames(50);
	// From the device's registration on, a process can open it and change the tables that start still fills.
	std::atomic<bool> device_is_there = false;
	machine.after(host::Event::misc_registered, [&] {
		device_is_there = true;
		wait_for_frames(20);
	});
	std::thread process([&] {
		while (!device_is_there) {
			std::this_thread::yield();
		}
		run_process(10);
	});
	EXPECT_EQ(machine.load(), 0);
	process.join();
	wait_for_frames(200);
	stop_traffic();
	EXPECT_EQ(unload(), 0);
}

TEST_F(Concurrency, HooksMeetStop)
{
	load_and_configure();
	start_traffic();
	wait_for_frames(200);
	EXPECT_EQ(unload(), 0);
	EXPECT_TRUE(machine.hooks.registered().empty());
	wait_for_frames(50);
	stop_traffic();
}

TEST_F(Concurrency, StopIsRefusedWhileAProcessHasTheDevice)
{
	load_and_configure();
	start_traffic();
	std::atomic<bool> ended = false;
	std::thread process([&] { run_process(30, &ended); });
	// On a busy machine it may be through before anybody has looked.
	while (machine.module_references() == 0 && !ended) {
		std::this_thread::yield();
	}
	int result = 0;
	while ((result = unload()) == -16) {
		std::this_thread::yield();
	}
	EXPECT_EQ(result, 0);
	EXPECT_TRUE(ended) << "stop went on while commands ran";
	process.join();
	stop_traffic();
	EXPECT_FALSE(machine.is_loaded());
}

TEST_F(Concurrency, OneOfManyOpenersWins)
{
	load_module(machine);
	// The kernel opens a misc device under a mutex of its own, but releases it under none: a release meets opens.
	std::mutex misc_mutex;
	std::atomic<int> inside = 0;
	std::atomic<int> opened = 0;
	std::vector<std::thread> threads;
	for (int i = 0; i < 4; ++i) {
		threads.emplace_back([&] {
			for (int round = 0; round < 200; ++round) {
				int result = 0;
				{
					const std::lock_guard guard(misc_mutex);
					result = machine.open();
				}
				if (result != 0) {
					EXPECT_EQ(result, -16);
					continue;
				}
				EXPECT_EQ(++inside, 1);
				++opened;
				--inside;
				EXPECT_EQ(machine.release(), 0);
			}
		});
	}
	for (std::thread &thread : threads) {
		thread.join();
	}
	EXPECT_GE(opened, 1);
	EXPECT_EQ(machine.module_references(), 0);
	EXPECT_EQ(machine.open(), 0) << "no release was lost";
	EXPECT_EQ(machine.release(), 0);
}

} // namespace

} // namespace captive_portal::test
