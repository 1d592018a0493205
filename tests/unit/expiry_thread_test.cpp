// SPDX-License-Identifier: GPL-2.0-only
#include "garden/expiry_thread.h"

#include <thread>

#include "base/debug_level.h"
#include "tests/support/host_test.h"
#include "tests/unit/garden_cache.h"

namespace captive_portal::test
{

namespace
{

using host::ThreadState;
using End = host::KernelThreads::End;

constexpr int64_t start_time = 1'000'000;
constexpr uint32_t period = 6000;

class ExpiryThread : public HostTest
{
protected:
	void SetUp() override
	{
		machine.clock.set(start_time);
		load_module();
	}

	// The thread's next pass, whole.
	void pass() { machine.threads.advance(period); }

	// The n-th address of one bucket, 5.
	[[nodiscard]] static Ipv4Address in_bucket_5(uint32_t n)
	{
		return ipv4(5, 0, static_cast<uint8_t>(n >> 8), static_cast<uint8_t>(n));
	}

	// Unloads in a thread of its own and returns when the expiry thread has been asked to stop.
	void begin_unload()
	{
		unload = std::thread([this] { EXPECT_EQ(machine.unload(), 0); });
		while (!machine.threads.threads().front().stop_requested) {
			std::this_thread::yield();
		}
	}

	const Ipv4Address server = ipv4(192, 0, 2, 1);
	const LogLine out_of_loop = default_line("[schedule_check]out of loop\n");
	std::thread unload;
};

// ---- What a pass removes --------------------------------------------------------------------------------------------

TEST_F(ExpiryThread, RemovesAnEntryOfThePastWithAllItsNames)
{
	add(server, "a.example", 1, 60);
	add(server, "b.example", 1, 60);
	add(ipv4(10, 7, 0, 1), "c.example", 1, 600);
	machine.clock.advance(61);
	pass();
	EXPECT_EQ(entry_of(server), nullptr);
	EXPECT_EQ(total_ip_count, 1);
	EXPECT_EQ(names_of(ipv4(10, 7, 0, 1)), (Names{"c.example"}));
	// The entry that stays, its name's node, and the name.
	EXPECT_EQ(machine.live_allocations().size(), 3u);
	EXPECT_FALSE(match_dns_aRecord_garden_list(server, 0));
	EXPECT_TRUE(match_dns_aRecord_garden_list(ipv4(10, 7, 0, 1), 0));
}

TEST_F(ExpiryThread, LetsAnEntryWhoseDeadlineIsNowSurviveThePass)
{
	add(server, "a.example", 1, 60);
	machine.clock.set(start_time + 59);
	pass();
	EXPECT_NE(entry_of(server), nullptr);
	machine.clock.set(start_time + 60);
	pass();
	EXPECT_NE(entry_of(server), nullptr);
	machine.clock.set(start_time + 61);
	pass();
	EXPECT_EQ(entry_of(server), nullptr);
	EXPECT_EQ(total_ip_count, 0);
}

TEST_F(ExpiryThread, LetsAnEntryThatALaterAnswerRefreshedSurvive)
{
	add(server, "a.example", 1, 60);
	machine.clock.advance(50);
	add(server, "a.example", 1, 60);
	machine.clock.advance(50);
	pass();
	EXPECT_NE(entry_of(server), nullptr);
	machine.clock.advance(11);
	pass();
	EXPECT_EQ(entry_of(server), nullptr);
}

TEST_F(ExpiryThread, LeavesAStaleEntryInForceUntilItsPass)
{
	add(server, "a.example", 1, 60);
	machine.clock.advance(3600);
	machine.threads.advance(period - 1);
	EXPECT_TRUE(match_dns_aRecord_garden_list(server, 0));
	machine.threads.advance(1);
	EXPECT_FALSE(match_dns_aRecord_garden_list(server, 0));
}

TEST_F(ExpiryThread, RemovesStaleEntriesFromAnywhereInABucket)
{
	for (uint32_t n = 0; n < 5; ++n) {
		add(in_bucket_5(n), "a.example", 1, n % 2 == 0 ? 10 : 100);
	}
	machine.clock.advance(50);
	pass();
	EXPECT_EQ(addresses_in(5), (std::vector<uint64_t>{in_bucket_5(1).raw, in_bucket_5(3).raw}));
	EXPECT_EQ(total_ip_count, 2);
	add(in_bucket_5(9), "late.example");
	EXPECT_EQ(addresses_in(5), (std::vector<uint64_t>{in_bucket_5(1).raw, in_bucket_5(3).raw, in_bucket_5(9).raw}));
}

// A pass goes through a long bucket in several holds of the lock.
TEST_F(ExpiryThread, LooksAtEveryEntryOfALongBucket)
{
	for (const uint32_t length : {15u, 16u, 17u, 31u, 32u, 33u, 100u}) {
		for (uint32_t n = 0; n < length; ++n) {
			add(in_bucket_5(n), "a.example", 1, n % 3 == 0 ? 100 : 10);
		}
		machine.clock.advance(50);
		pass();
		EXPECT_EQ(addresses_in(5).size(), (length + 2) / 3) << length;
		machine.clock.advance(51);
		pass();
		EXPECT_TRUE(addresses_in(5).empty()) << length;
		EXPECT_EQ(total_ip_count, 0) << length;
	}
	EXPECT_TRUE(machine.live_allocations().empty());
}

TEST_F(ExpiryThread, EmptiesAFullCacheInOnePass)
{
	fill_cache(1, 60);
	machine.clock.advance(61);
	pass();
	EXPECT_EQ(total_ip_count, 0);
	EXPECT_TRUE(machine.live_allocations().empty());
	add(server, "a.example");
	EXPECT_EQ(total_ip_count, 1);
}

TEST_F(ExpiryThread, KeepsWhatIsStoredWhileItPasses)
{
	for (uint32_t n = 0; n < 32; ++n) {
		add(in_bucket_5(n), "old.example", 1, 10);
	}
	machine.clock.advance(11);
	machine.threads.on_yield([this](uint64_t) {
		add(in_bucket_5(200), "new.example", 1, 60);
		add(server, "new.example", 1, 60);
	});
	pass();
	machine.threads.on_yield(nullptr);
	EXPECT_EQ(addresses_in(5), (std::vector<uint64_t>{in_bucket_5(200).raw}));
	EXPECT_EQ(total_ip_count, 2);
}

// ---- The wall clock -------------------------------------------------------------------------------------------------

TEST_F(ExpiryThread, ExpiresEarlyWhenTheClockIsSetForward)
{
	add(server, "a.example", 1, 86400);
	machine.clock.set(start_time + 10'000'000);
	pass();
	EXPECT_EQ(entry_of(server), nullptr);
}

TEST_F(ExpiryThread, KeepsEntriesLongerWhenTheClockIsSetBack)
{
	add(server, "a.example", 1, 60);
	machine.clock.set(start_time - 1'000'000);
	for (int i = 0; i < 3; ++i) {
		pass();
		machine.clock.advance(60);
	}
	EXPECT_NE(entry_of(server), nullptr);
	machine.clock.set(start_time + 61);
	pass();
	EXPECT_EQ(entry_of(server), nullptr);
}

TEST_F(ExpiryThread, ReadsTheClockOnceBeforeItsFirstLine)
{
	add(server, "a.example", 1, 60);
	debug_level = 3;
	// The clock goes on as soon as the pass has begun to work.
	machine.threads.on_yield([this](uint64_t) { machine.clock.set(start_time + 1'000'000); });
	pass();
	machine.threads.on_yield(nullptr);
	EXPECT_TRUE(log_has(debug_line("[schedule_check]in while loop, now=1000000, total_ip_count=1\n")));
	EXPECT_NE(entry_of(server), nullptr) << "bucket 192 came after the clock had gone on";
}

TEST_F(ExpiryThread, ComparesSecondsAsSignedNumbers)
{
	machine.clock.set(-100);
	add(server, "a.example", 1, 60);
	pass();
	EXPECT_NE(entry_of(server), nullptr);
	machine.clock.set(-39);
	pass();
	EXPECT_EQ(entry_of(server), nullptr);
	machine.clock.set(-100);
	add(server, "a.example", 1, 60);
	machine.clock.set(5);
	pass();
	EXPECT_EQ(entry_of(server), nullptr);
	machine.clock.set(-1);
	add(server, "a.example", 1, 0xffffffff);
	machine.clock.set(0xfffffffe);
	pass();
	EXPECT_NE(entry_of(server), nullptr);
	machine.clock.set(0xffffffff);
	pass();
	EXPECT_EQ(entry_of(server), nullptr);
}

// ---- The period -----------------------------------------------------------------------------------------------------

TEST_F(ExpiryThread, PassesEvery6000Ticks)
{
	debug_level = 3;
	const LogLine begins = debug_line("[schedule_check]in while loop, now=1000000, total_ip_count=0\n");
	machine.threads.advance(5999);
	EXPECT_NO_LOG();
	machine.threads.advance(1);
	EXPECT_LOG(begins);
	machine.threads.advance(5999);
	EXPECT_NO_LOG();
	machine.threads.advance(1);
	EXPECT_LOG(begins);
	machine.threads.advance(18000);
	EXPECT_LOG(begins, begins, begins);
}

TEST_F(ExpiryThread, PassesFirstWhenItStarts)
{
	EXPECT_EQ(machine.unload(), 0);
	machine.after(host::Event::thread_created, [this] {
		debug_level = 3;
		add(server, "a.example", 0, 60);
		machine.clock.advance(61);
	});
	machine.log.clear();
	EXPECT_EQ(machine.load(), 0);
	EXPECT_TRUE(log_has(debug_line("[schedule_check]in while loop, now=1000061, total_ip_count=1\n")));
	EXPECT_EQ(entry_of(server), nullptr);
}

TEST_F(ExpiryThread, GoesByTicksAlone)
{
	debug_level = 3;
	machine.clock.advance(1'000'000);
	machine.threads.settle();
	EXPECT_NO_LOG();
}

// ---- The log --------------------------------------------------------------------------------------------------------

TEST_F(ExpiryThread, WritesTheWholeCacheAtDebugLevel3)
{
	// Buckets 192, 5 and 5.
	add(server, "stale.example", 0x08000005, 10);
	add(server, "also-stale.example", 0, 10);
	add(ipv4(5, 4, 0, 1), "hidden.example", 0x07000000, 300);
	add(ipv4(5, 8, 0, 1), "outside.example", 0, 300);
	add(ipv4(255, 255, 255, 255), "last.example", 0xffffffff, 50);
	entry_of(ipv4(5, 8, 0, 1))->is_dump = 1;
	machine.clock.set(start_time + 11);
	debug_level = 3;
	pass();
	EXPECT_LOG(debug_line("[schedule_check]in while loop, now=1000011, total_ip_count=4\n"),
		   debug_line("[5]IP=5.4.0.1, timeout=1000300, is_match_wg=117440512, is_dump=0\n"),
		   debug_line("  match walled garden:\n"), debug_line("  fqdn = hidden.example\n"),
		   debug_line("[5]IP=5.8.0.1, timeout=1000300, is_match_wg=0, is_dump=1\n"),
		   debug_line("  fqdn = outside.example\n"),
		   debug_line("[192]IP=192.0.2.1, timeout=1000010, is_match_wg=134217733, is_dump=0 (delete)\n"),
		   debug_line("  match walled garden: 1-1 1-3 MIREL\n"), debug_line("  fqdn = stale.example\n"),
		   debug_line("  fqdn = also-stale.example\n"),
		   debug_line("[1023]IP=255.255.255.255, timeout=1000050, is_match_wg=-1, is_dump=0\n"),
		   debug_line("  match walled garden: 1-1 1-2 1-3 1-4 1-5 1-6 1-7 1-8 2-1 2-2 2-3 2-4 2-5 2-6 2-7 2-8"
			      " 3-1 3-2 3-3 3-4 3-5 3-6 3-7 3-8 MIREL\n"),
		   debug_line("  fqdn = last.example\n"));
	EXPECT_EQ(total_ip_count, 3);
}

TEST_F(ExpiryThread, IsSilentBelowDebugLevel3)
{
	add(server, "stale.example", 1, 10);
	machine.clock.advance(11);
	debug_level = 2;
	pass();
	EXPECT_NO_LOG();
	EXPECT_EQ(entry_of(server), nullptr);
}

TEST_F(ExpiryThread, PrintsNegativeSeconds)
{
	machine.clock.set(-50);
	add(server, "a.example", 0, 10);
	debug_level = 3;
	pass();
	EXPECT_LOG(debug_line("[schedule_check]in while loop, now=-50, total_ip_count=1\n"),
		   debug_line("[192]IP=192.0.2.1, timeout=-40, is_match_wg=0, is_dump=0\n"),
		   debug_line("  fqdn = a.example\n"));
}

// ---- Locks ----------------------------------------------------------------------------------------------------------

TEST_F(ExpiryThread, NeverAsksTheRulesAndHoldsTheCachesLockForAFewEntriesAtATime)
{
	for (uint32_t n = 0; n < 1024; ++n) {
		add(in_bucket_5(n), "a.example", 1, 60);
	}
	const uint64_t rules = machine.locks.acquisitions(CP_LOCK_WALLEDGARDEN);
	const uint64_t cache = machine.locks.acquisitions(CP_LOCK_DNS_LIST);
	pass();
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_WALLEDGARDEN), rules);
	// 1023 buckets without an entry, and one with 1024 of them.
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_DNS_LIST), cache + 1023 + 64);
}

// ---- Stop -----------------------------------------------------------------------------------------------------------

TEST_F(ExpiryThread, EndsItsSleepWhenItIsAskedToStop)
{
	ASSERT_EQ(machine.threads.threads().size(), 1u);
	EXPECT_EQ(machine.threads.threads()[0].state, ThreadState::sleeping);
	debug_level = 3;
	EXPECT_EQ(machine.unload(), 0);
	EXPECT_LOG(debug_line("captive_portal_exit\n"), debug_line("dns_parse_exit\n"),
		   default_line("kthread_stop schedule_check_thread\n"), out_of_loop);
	EXPECT_EQ(machine.threads.ended(), (std::vector<End>{{"schedule_check_thread", 0}}));
	EXPECT_EQ(machine.threads.ticks(), 0u);
}

TEST_F(ExpiryThread, IsTakenAwayBeforeItHasRun)
{
	EXPECT_EQ(machine.unload(), 0);
	machine.threads.hold_at_start(true);
	EXPECT_EQ(machine.load(), 0);
	EXPECT_EQ(machine.threads.threads()[0].state, ThreadState::created);
	machine.log.clear();
	EXPECT_EQ(machine.unload(), 0);
	EXPECT_FALSE(log_has(out_of_loop)) << "the body never ran";
	EXPECT_EQ(machine.threads.ended().back(), (End{"schedule_check_thread", -4}));
}

TEST_F(ExpiryThread, EndsItsPassBeforeItStops)
{
	// The first bucket, one before the stale entries, among them, behind them, the last.
	for (const uint64_t yield : {1, 5, 6, 7, 8, 500, 1025}) {
		machine.clock.set(start_time);
		for (uint32_t n = 0; n < 32; ++n) {
			add(in_bucket_5(n), "a.example", 1, n % 2 == 0 ? 10 : 100);
		}
		add(ipv4(255, 3, 0, 1), "a.example", 1, 100);
		EXPECT_EQ(total_ip_count, 33);
		machine.clock.advance(11);
		machine.log.clear();
		uint64_t yields = 0;
		machine.threads.on_yield([&](uint64_t number) {
			yields = number;
			if (number == yield) {
				begin_unload();
			}
		});
		pass();
		ASSERT_TRUE(unload.joinable()) << yield;
		unload.join();
		machine.threads.on_yield(nullptr);
		EXPECT_EQ(yields, 1025u) << yield;
		EXPECT_EQ(total_ip_count, 17) << "stop leaves the count; what expired was counted: " << yield;
		EXPECT_TRUE(machine.live_allocations().empty()) << yield;
		EXPECT_TRUE(log_has(out_of_loop)) << yield;
		EXPECT_EQ(machine.threads.ended().back(), (End{"schedule_check_thread", 0})) << yield;
		load_module();
	}
}

TEST_F(ExpiryThread, DoesNotSleepWhenTheStopCameAfterItLastLooked)
{
	machine.threads.before_sleep([this] { begin_unload(); });
	pass();
	unload.join();
	machine.threads.before_sleep(nullptr);
	EXPECT_TRUE(log_has(out_of_loop));
	EXPECT_EQ(machine.threads.ticks(), 6000u) << "no second period was needed";
	EXPECT_EQ(machine.threads.ended(), (std::vector<End>{{"schedule_check_thread", 0}}));
}

} // namespace

} // namespace captive_portal::test
