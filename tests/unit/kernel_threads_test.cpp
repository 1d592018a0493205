// SPDX-License-Identifier: GPL-2.0-only
// Threads and ticks of the host kernel, with bodies of the test's own.
#include "platform/host/kernel_threads.h"

#include "platform/host/context.h"
#include "tests/support/host_test.h"

namespace captive_portal::test
{

namespace
{

using host::ThreadState;
using End = host::KernelThreads::End;

// How often the body has looked, and what it does between two looks; reset by each test.
std::atomic<int> rounds;
std::atomic<uint32_t> ticks_to_sleep;

int sleeper()
{
	while (cp_thread_should_stop() == 0) {
		++rounds;
		cp_yield_processor();
		cp_thread_sleep(ticks_to_sleep);
	}
	return 7;
}

class KernelThreads : public HostTest
{
protected:
	void SetUp() override
	{
		rounds = 0;
		ticks_to_sleep = 10;
	}

	[[nodiscard]] ThreadState state() const { return machine.threads.threads().at(0).state; }
};

using KernelThreadsDeathTest = KernelThreads;

TEST_F(KernelThreads, RunOnceTheyAreWoken)
{
	cp_thread *const thread = cp_thread_create(sleeper, "a thread with a name of any length");
	ASSERT_NE(thread, nullptr);
	EXPECT_EQ(state(), ThreadState::created);
	EXPECT_EQ(machine.threads.threads().at(0).name, "a thread with a name of any length");
	EXPECT_EQ(rounds, 0);
	cp_thread_wake_up(thread);
	machine.threads.settle();
	EXPECT_EQ(state(), ThreadState::sleeping);
	EXPECT_EQ(rounds, 1);
	cp_thread_stop(thread);
	EXPECT_TRUE(machine.threads.threads().empty());
	EXPECT_EQ(machine.threads.ended(), (std::vector<End>{{"a thread with a name of any length", 7}}));
	EXPECT_EQ(machine.threads.create_calls(), 1u);
	EXPECT_EQ(machine.threads.wake_up_calls(), 1u);
	EXPECT_EQ(machine.threads.stop_calls(), 1u);
}

TEST_F(KernelThreads, SleepUntilTheClockOfTicksIsMoved)
{
	cp_thread_wake_up(cp_thread_create(sleeper, "t"));
	machine.threads.settle();
	machine.threads.advance(9);
	EXPECT_EQ(rounds, 1);
	machine.threads.advance(1);
	EXPECT_EQ(rounds, 2);
	EXPECT_EQ(machine.threads.ticks(), 10u);
	machine.threads.advance(35);
	EXPECT_EQ(rounds, 5);
	EXPECT_EQ(machine.threads.ticks(), 45u);
	EXPECT_EQ(state(), ThreadState::sleeping);
}

TEST_F(KernelThreads, WakeEachAtItsOwnMoment)
{
	cp_thread_wake_up(cp_thread_create(sleeper, "first"));
	machine.threads.settle();
	machine.threads.advance(5);
	cp_thread_wake_up(cp_thread_create(sleeper, "second"));
	machine.threads.settle();
	EXPECT_EQ(rounds, 2);
	machine.threads.advance(5);
	EXPECT_EQ(rounds, 3);
	machine.threads.advance(5);
	EXPECT_EQ(rounds, 4);
}

TEST_F(KernelThreads, AreNotMadeOnOrder)
{
	machine.threads.fail_next_creation();
	EXPECT_EQ(cp_thread_create(sleeper, "t"), nullptr);
	EXPECT_TRUE(machine.threads.threads().empty());
	EXPECT_NE(cp_thread_create(sleeper, "t"), nullptr);
	EXPECT_EQ(machine.events(), (std::vector{host::Event::thread_refused, host::Event::thread_created}));
}

TEST_F(KernelThreads, AreTakenAwayWithoutTheirBodiesWhenTheyHaveNotRun)
{
	cp_thread *const never_woken = cp_thread_create(sleeper, "never woken");
	cp_thread_stop(never_woken);
	machine.threads.hold_at_start(true);
	cp_thread *const held = cp_thread_create(sleeper, "held");
	cp_thread_wake_up(held);
	machine.threads.settle();
	cp_thread_stop(held);
	EXPECT_EQ(rounds, 0);
	EXPECT_EQ(machine.threads.ended(), (std::vector<End>{{"never woken", -4}, {"held", -4}}));
}

TEST_F(KernelThreads, RunWhenTheyAreHeldNoLonger)
{
	machine.threads.hold_at_start(true);
	cp_thread_wake_up(cp_thread_create(sleeper, "woken"));
	static_cast<void>(cp_thread_create(sleeper, "not woken"));
	machine.threads.settle();
	EXPECT_EQ(rounds, 0);
	machine.threads.hold_at_start(false);
	machine.threads.settle();
	EXPECT_EQ(rounds, 1);
	EXPECT_EQ(machine.threads.threads().at(1).state, ThreadState::created);
}

TEST_F(KernelThreads, TellOfYieldsAndSleeps)
{
	std::vector<std::string> told;
	machine.threads.on_yield([&](uint64_t number) { told.push_back("yield " + std::to_string(number)); });
	machine.threads.before_sleep([&] { told.push_back("sleep"); });
	cp_thread_wake_up(cp_thread_create(sleeper, "t"));
	machine.threads.settle();
	machine.threads.advance(10);
	EXPECT_EQ(told, (std::vector<std::string>{"yield 1", "sleep", "yield 2", "sleep"}));
	machine.threads.on_yield(nullptr);
	machine.threads.before_sleep(nullptr);
	machine.threads.advance(10);
	EXPECT_EQ(told.size(), 4u);
}

TEST_F(KernelThreads, AreStoppedWithTheirMachine)
{
	// The machine of this test ends with one thread asleep and one that never ran.
	cp_thread_wake_up(cp_thread_create(sleeper, "t"));
	static_cast<void>(cp_thread_create(sleeper, "u"));
	machine.threads.settle();
	machine.threads.end_all();
	EXPECT_EQ(machine.threads.ended(), (std::vector<End>{{"t", 7}, {"u", -4}}));
	cp_thread_wake_up(cp_thread_create(sleeper, "v"));
}

TEST_F(KernelThreadsDeathTest, DieWhenTheySleepOrYieldUnderALock)
{
	EXPECT_DEATH(
		{
			cp_spin_lock_bh(CP_LOCK_CP);
			cp_thread_sleep(1);
		},
		"cp_thread_sleep may sleep, but a spin lock is held");
	EXPECT_DEATH(
		{
			cp_spin_lock_bh(CP_LOCK_CP);
			cp_yield_processor();
		},
		"cp_yield_processor may sleep, but a spin lock is held");
	EXPECT_DEATH(
		{
			cp_spin_lock_bh(CP_LOCK_CP);
			static_cast<void>(cp_thread_create(sleeper, "t"));
		},
		"cp_thread_create may sleep, but a spin lock is held");
	EXPECT_DEATH(
		{
			cp_spin_lock_bh(CP_LOCK_CP);
			cp_thread_stop(nullptr);
		},
		"cp_thread_stop may sleep, but a spin lock is held");
}

TEST_F(KernelThreadsDeathTest, DieOutsideOfAThreadAndForOneThatIsNotThere)
{
	EXPECT_DEATH(cp_thread_sleep(1), "cp_thread_sleep outside of a thread");
	EXPECT_DEATH(static_cast<void>(cp_thread_should_stop()), "cp_thread_should_stop outside of a thread");
	EXPECT_DEATH(cp_thread_stop(nullptr), "a thread that is not there");
	EXPECT_DEATH(cp_thread_wake_up(nullptr), "a thread that is not there");
}

} // namespace

} // namespace captive_portal::test
