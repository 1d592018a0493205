// SPDX-License-Identifier: GPL-2.0-only
// Commands and hooks at once, on the rules and the cache. The thread sanitizer judges the accesses, the cases what comes
// of them.
#include <atomic>
#include <string>
#include <string_view>
#include <thread>

#include <gtest/gtest.h>

#include "base/fixed_addresses.h"
#include "garden/arecord_table.h"
#include "platform/host/context.h"
#include "tests/support/host_test.h"
#include "tests/unit/garden_records.h"

namespace captive_portal::test
{

namespace
{

constexpr int rounds = 200;
constexpr uint32_t addresses = 64;

[[nodiscard]] Ipv4Address address_of(uint32_t number)
{
	return ipv4(static_cast<uint8_t>(number), 0, 2, 1);
}

void add(uint32_t number, std::string_view name, uint32_t mask)
{
	const ExactText exact(name);
	const Ipv4Address ip = address_of(number);
	add_dns_arecord(arecord_bucket(ip), mask, exact.text(), ip, 60);
}

class GardenThreadsTest : public HostTest
{
protected:
	GardenThreadsTest() { machine.log.keep(false); }
};

// Runs `body` in softirq context again and again until it is told to stop.
template <typename Body> class HookThread
{
public:
	explicit HookThread(Body body)
	    : thread_([this, body] {
		      while (!stop_) {
			      const host::SoftirqContext softirq;
			      body();
			      ++runs_;
		      }
	      })
	{
	}
	// Returns once the body has run in whole at least once since now.
	void wait_for_a_run() const
	{
		for (const uint64_t from = runs_; runs_ < from + 2;) {
			std::this_thread::yield();
		}
	}
	void stop()
	{
		stop_ = true;
		thread_.join();
	}

private:
	std::atomic<bool> stop_ = false;
	std::atomic<uint64_t> runs_ = 0;
	std::thread thread_;
};

TEST_F(GardenThreadsTest, HooksAskWhileTheTablesAreSetAtStartAndFreedAtStop)
{
	HookThread hook([] {
		(void)is_walled_garden_enable(5200);
		(void)is_walled_garden_enable(5302);
		EXPECT_FALSE(address_matches(ipv4(2, 2, 2, 2), 0));
		EXPECT_FALSE(domain_matches("a.example", 0));
		add(1, "a.example", 1);
		(void)match_dns_aRecord_garden_list(address_of(1), 0);
	});
	hook.wait_for_a_run();
	for (int i = 0; i < rounds; ++i) {
		init_walled_garden_table();
		init_fixed_addresses();
		dns_parse_init();
	}
	hook.wait_for_a_run();
	hook.stop();
	EXPECT_TRUE(match_dns_aRecord_garden_list(address_of(1), 0));
	free_walled_garden_rules();
	dns_parse_exit();
	EXPECT_TRUE(machine.live_allocations().empty());
}

TEST_F(GardenThreadsTest, AReaderNeverMeetsHalfAnUpdate)
{
	init_walled_garden_table();
	const WgRecord one = WgRecord(UPDATE_RULE, 5, 1).domain("one.a").domain("one.b");
	const WgRecord two = WgRecord(UPDATE_RULE, 5, 2).domain("two.a").domain("two.b").domain("two.c");
	ASSERT_EQ(one.write(), 0);
	HookThread hook([] { EXPECT_FALSE(domain_matches("one.c", 5)); });
	HookThread reader([] {
		wg_cmd record{};
		record.cmd = GET_WALLED_GARDEN_RULE;
		record.iface = 5;
		EXPECT_EQ(get_walled_garden_list(&record), 0);
		if (record.rule_number == 2) {
			EXPECT_EQ(record.enable_value, 1u);
			EXPECT_STREQ(record.rules[1].domain_name, "one.b");
		} else {
			EXPECT_EQ(record.rule_number, 3);
			EXPECT_EQ(record.enable_value, 2u);
			EXPECT_STREQ(record.rules[2].domain_name, "two.c");
		}
	});
	reader.wait_for_a_run();
	for (int i = 0; i < rounds; ++i) {
		EXPECT_EQ(two.write(), 0);
		EXPECT_EQ(one.write(), 0);
	}
	reader.wait_for_a_run();
	reader.stop();
	hook.stop();
}

TEST_F(GardenThreadsTest, AReaderNeverMeetsHalfASetOfDefaultRules)
{
	init_walled_garden_table();
	// Sets of one size, which share one name: the first of one, the last of the other.
	constexpr int32_t count = 8;
	WgRecord one(UPDATE_DEFAULT_RULE, 0);
	WgRecord two(UPDATE_DEFAULT_RULE, 0);
	one.domain("in.both");
	for (int i = 1; i < count; ++i) {
		one.domain("one." + std::to_string(i));
		two.domain("two." + std::to_string(i));
	}
	two.domain("in.both");
	ASSERT_EQ(one.write(), 0);

	std::atomic<uint64_t> missed = 0;
	std::atomic<uint64_t> mixed = 0;
	HookThread hook([&missed] {
		if (!domain_matches("in.both", 27)) {
			++missed;
		}
	});
	HookThread reader([&one, &two, &mixed] {
		wg_cmd record{};
		record.cmd = GET_DEFAULT_RULE;
		(void)get_walled_garden_list(&record);
		const auto is = [&record](const WgRecord &set) {
			for (int i = 0; i < count; ++i) {
				if (std::string_view(record.rules[i].domain_name) != set.record.rules[i].domain_name) {
					return false;
				}
			}
			return record.rule_number == count;
		};
		if (!is(one) && !is(two)) {
			++mixed;
		}
	});
	hook.wait_for_a_run();
	reader.wait_for_a_run();
	for (int i = 0; i < rounds / 10; ++i) {
		EXPECT_EQ(two.write(), 0);
		EXPECT_EQ(one.write(), 0);
	}
	reader.wait_for_a_run();
	reader.stop();
	hook.stop();
	EXPECT_EQ(missed, 0u);
	EXPECT_EQ(mixed, 0u);

	// The cache is empty, so its refresh asks nothing: one hold is all that a replacement takes.
	const uint64_t holds = machine.locks.acquisitions(CP_LOCK_WALLEDGARDEN);
	EXPECT_EQ(two.write(), 0);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_WALLEDGARDEN), holds + 1);
}

// This hook takes no lock at all, so nothing but the word itself orders it against the command.
TEST_F(GardenThreadsTest, TheMirelSwitchIsReadWholeWithoutALock)
{
	init_walled_garden_table();
	HookThread hook([] {
		const uint32_t value = is_walled_garden_enable(5302);
		EXPECT_TRUE(value == 0 || value == 0xffffffff) << value;
	});
	hook.wait_for_a_run();
	for (int i = 0; i < rounds; ++i) {
		EXPECT_EQ(WgRecord(WALLED_GARDEN, 27, 0xffffffff).write(), 0);
		EXPECT_EQ(WgRecord(UPDATE_MIREL_RULE, 0, 0).write(), 0);
		init_walled_garden_table();
	}
	hook.stop();
	EXPECT_EQ(is_walled_garden_enable(5302), 0u);
}

// The refresh lets the lock go between buckets, so two of them overlap. Whichever reaches an entry last has to see the
// rules that stand in the end.
TEST_F(GardenThreadsTest, TwoUpdatesOfOneRowLeaveTheCacheAsTheLastRulesSay)
{
	init_walled_garden_table();
	for (uint32_t number = 0; number < addresses; ++number) {
		add(number, number % 2 == 0 ? "even.example" : "odd.example", 0);
	}
	HookThread hook([] { (void)match_dns_aRecord_garden_list(address_of(3), 5); });
	const auto update = [](const char *pattern) {
		const WgRecord record = WgRecord(UPDATE_RULE, 5, 1).domain(pattern);
		for (int i = 0; i < rounds; ++i) {
			EXPECT_EQ(record.write(), 0);
		}
	};
	std::thread even(update, "even.*");
	std::thread odd(update, "odd.*");
	even.join();
	odd.join();
	hook.wait_for_a_run();
	hook.stop();
	const std::string last = walled_garden_table[5].rule_list->domain_name;
	ASSERT_TRUE(last == "even.*" || last == "odd.*") << last;
	for (uint32_t number = 0; number < addresses; ++number) {
		const bool is_even = number % 2 == 0;
		EXPECT_EQ(match_dns_aRecord_garden_list(address_of(number), 5), is_even == (last == "even.*"))
			<< number;
	}
}

TEST_F(GardenThreadsTest, ACacheThatSeveralHooksFillCountsEachAddressOnce)
{
	init_walled_garden_table();
	const auto fill = [](const char *name) {
		const host::SoftirqContext softirq;
		for (int i = 0; i < rounds; ++i) {
			for (uint32_t number = 0; number < addresses; ++number) {
				add(number, name, 1);
			}
		}
	};
	std::thread first(fill, "first.example");
	std::thread second(fill, "second.example");
	for (int i = 0; i < 20; ++i) {
		EXPECT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).domain("first.example").write(), 0);
	}
	first.join();
	second.join();
	EXPECT_EQ(total_ip_count, 64);
	// An entry, and two names with their copies, for each.
	EXPECT_EQ(machine.live_allocations().size(), 64u * 5);
}

} // namespace

} // namespace captive_portal::test
