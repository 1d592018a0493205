// SPDX-License-Identifier: GPL-2.0-only
#include "garden/dns_side.h"

#include "base/debug_level.h"
#include "tests/support/host_test.h"
#include "tests/unit/garden_cache.h"

namespace captive_portal::test
{

namespace
{

using host::Event;

const LogLine init_line = debug_line("dns_parse_init\n");
const LogLine wake_up_line = default_line("wake_up_process schedule_check_thread\n");
const LogLine exit_line = debug_line("dns_parse_exit\n");
const LogLine stop_line = default_line("kthread_stop schedule_check_thread\n");
const LogLine out_of_loop = default_line("[schedule_check]out of loop\n");

class DnsSide : public HostTest
{
protected:
	DnsSide() { machine.clock.set(1'000'000); }

	const Ipv4Address server = ipv4(192, 0, 2, 1);
};

// ---- Start ----------------------------------------------------------------------------------------------------------

TEST_F(DnsSide, StartsTheThreadThenMakesTheFile)
{
	dns_parse_init();
	EXPECT_LOG(init_line, wake_up_line);
	EXPECT_EQ(machine.events(), (std::vector{Event::thread_created, Event::thread_woken, Event::proc_created}));
	EXPECT_EQ(total_ip_count, 0);
	ASSERT_EQ(machine.threads.threads().size(), 1u);
	EXPECT_EQ(machine.threads.threads()[0].name, "schedule_check_thread");
	EXPECT_EQ(machine.threads.wake_up_calls(), 1u);
}

TEST_F(DnsSide, MakesAFileThatEverybodyMayRead)
{
	dns_parse_init();
	ASSERT_TRUE(machine.proc.file().has_value());
	EXPECT_EQ(machine.proc.file()->directory, "cp_dns_aRecord");
	EXPECT_EQ(machine.proc.file()->name, "summary");
	EXPECT_EQ(machine.proc.file()->mode, 0444);
	EXPECT_EQ(machine.proc.create_calls(), 1u);
}

TEST_F(DnsSide, FreesAtItsStartWhatAHookHasStored)
{
	add(server, "early.example", 1);
	add(server, "earlier.example", 1);
	add(ipv4(192, 0, 2, 2), "other.example", 1);
	dns_parse_init();
	EXPECT_EQ(total_ip_count, 0);
	EXPECT_EQ(entry_of(server), nullptr);
	EXPECT_TRUE(machine.live_allocations().empty());
	add(server, "late.example", 1);
	EXPECT_EQ(names_of(server), (Names{"late.example"}));
	EXPECT_EQ(total_ip_count, 1);
}

TEST_F(DnsSide, EmptiesTheCacheBeforeTheThreadIsThere)
{
	add(server, "early.example", 1);
	bool looked = false;
	machine.after(Event::thread_created, [&] {
		looked = true;
		EXPECT_EQ(entry_of(server), nullptr);
		EXPECT_EQ(total_ip_count, 0);
		EXPECT_FALSE(log_has(wake_up_line));
		EXPECT_FALSE(machine.proc.file().has_value());
	});
	dns_parse_init();
	EXPECT_TRUE(looked);
}

// ---- Without a thread -----------------------------------------------------------------------------------------------

TEST_F(DnsSide, DoesWithoutAThread)
{
	machine.threads.fail_next_creation();
	dns_parse_init();
	EXPECT_LOG(init_line);
	EXPECT_EQ(machine.events(), (std::vector{Event::thread_refused, Event::proc_created}));
	EXPECT_EQ(machine.threads.wake_up_calls(), 0u);
	add(server, "a.example", 1, 10);
	dns_parse_exit();
	EXPECT_LOG(exit_line);
	EXPECT_EQ(machine.threads.stop_calls(), 0u);
	EXPECT_TRUE(machine.live_allocations().empty());
	EXPECT_FALSE(machine.proc.file().has_value());
}

TEST_F(DnsSide, LoadsWithoutAThreadAndThenNothingExpires)
{
	machine.threads.fail_next_creation();
	EXPECT_EQ(machine.load(), 0);
	fill_cache(1, 10);
	machine.clock.advance(1000);
	machine.threads.advance(60'000);
	EXPECT_EQ(total_ip_count, 16384);
	machine.log.clear();
	add(server, "late.example");
	EXPECT_LOG(debug_line("Exceed maximum (total_ip_count=16384), not add \"A record\" "
			      "(is_match_wg=0, late.example, 192.0.2.1)\n"));
	EXPECT_EQ(machine.unload(), 0);
	EXPECT_TRUE(machine.live_allocations().empty());
}

TEST_F(DnsSide, HasAThreadAgainAfterALoadWithoutOne)
{
	machine.threads.fail_next_creation();
	EXPECT_EQ(machine.load(), 0);
	EXPECT_EQ(machine.unload(), 0);
	EXPECT_EQ(machine.load(), 0);
	EXPECT_EQ(machine.threads.threads().size(), 1u);
	EXPECT_EQ(machine.unload(), 0);
	EXPECT_EQ(machine.threads.stop_calls(), 1u);
}

// ---- Without a file -------------------------------------------------------------------------------------------------

TEST_F(DnsSide, DoesWithoutAFile)
{
	machine.proc.fail_next_creation(-12);
	EXPECT_EQ(machine.load(), 0);
	EXPECT_FALSE(machine.proc.file().has_value());
	EXPECT_EQ(machine.threads.threads().size(), 1u);
	add(server, "a.example", 1, 10);
	machine.clock.advance(11);
	machine.threads.advance(6000);
	EXPECT_EQ(total_ip_count, 0);
	int64_t position = 0;
	EXPECT_EQ(machine.proc_read(0, 0, position), -5);
	EXPECT_EQ(machine.unload(), 0);
	EXPECT_EQ(machine.proc.remove_calls(), 1u);
}

TEST_F(DnsSide, DoesWithoutBoth)
{
	machine.threads.fail_next_creation();
	machine.proc.fail_next_creation(-17);
	EXPECT_EQ(machine.load(), 0);
	EXPECT_EQ(machine.unload(), 0);
	EXPECT_EQ(machine.events(),
		  (std::vector{Event::hooks_registered, Event::misc_registered, Event::thread_refused,
			       Event::proc_refused, Event::status_created, Event::hooks_unregistered,
			       Event::misc_deregistered, Event::status_removed, Event::proc_removed}));
}

// ---- Stop -----------------------------------------------------------------------------------------------------------

TEST_F(DnsSide, StopsTheThreadThenFreesTheCacheThenRemovesTheFile)
{
	dns_parse_init();
	machine.threads.settle();
	add(server, "a.example", 1);
	add(server, "b.example", 1);
	add(ipv4(192, 4, 9, 9), "c.example", 1);
	machine.log.clear();
	int looked = 0;
	machine.after(Event::thread_stopped, [&] {
		++looked;
		EXPECT_EQ(names_of(server).size(), 2u);
		EXPECT_TRUE(machine.proc.file().has_value());
	});
	machine.after(Event::proc_removed, [&] {
		++looked;
		EXPECT_TRUE(machine.live_allocations().empty());
	});
	dns_parse_exit();
	EXPECT_EQ(looked, 2);
	EXPECT_LOG(exit_line, stop_line, out_of_loop);
	EXPECT_TRUE(machine.live_allocations().empty());
	EXPECT_TRUE(addresses_in(192).empty());
	EXPECT_EQ(total_ip_count, 2) << "the count deliberately stays";
	EXPECT_FALSE(machine.proc.file().has_value());
}

TEST_F(DnsSide, FreesAFullCacheAtItsStop)
{
	load_module();
	fill_cache();
	add(filler(0), "second.example");
	EXPECT_EQ(machine.live_allocations().size(), 3 * 16384u + 2);
	EXPECT_EQ(machine.unload(), 0);
	EXPECT_TRUE(machine.live_allocations().empty());
}

TEST_F(DnsSide, GivesNothingToAProcessThatStillHoldsTheFileOpen)
{
	load_module();
	EXPECT_EQ(machine.unload(), 0);
	int64_t position = 0;
	EXPECT_EQ(machine.proc_read(0, 4096, position), -5);
	EXPECT_EQ(machine.proc_write(0, 3), -5);
	EXPECT_EQ(position, 0);
}

TEST_F(DnsSide, StartsAndStopsAgainAndAgain)
{
	for (int round = 0; round < 20; ++round) {
		EXPECT_EQ(machine.load(), 0);
		add(server, "a.example", 1);
		EXPECT_EQ(machine.unload(), 0);
		EXPECT_TRUE(machine.live_allocations().empty());
	}
	EXPECT_EQ(machine.threads.ended().size(), 20u);
}

} // namespace

} // namespace captive_portal::test
