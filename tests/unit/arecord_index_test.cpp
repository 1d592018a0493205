// SPDX-License-Identifier: GPL-2.0-only
// What is found must be what the lists hold, whatever came and went.
#include "garden/arecord_index.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

#include "base/lock.h"
#include "garden/dns_side.h"
#include "garden/expiry_thread.h"
#include "tests/support/host_test.h"
#include "tests/unit/garden_cache.h"

namespace captive_portal::test
{

namespace
{

constexpr int64_t start_time = 1'000'000;

class ArecordIndexTest : public HostTest
{
protected:
	ArecordIndexTest()
	{
		init_walled_garden_table();
		machine.clock.set(start_time);
	}

	static dns_arecord *find(uint32_t bucket, Ipv4Address ip)
	{
		const LockGuard guard(Lock::dns_list);
		return find_entry(bucket, ip);
	}

	// Steps from the root to the deepest name.
	static uint32_t depth_below(const fqdn_node *node)
	{
		uint32_t deepest = 0;
		std::vector<std::pair<const fqdn_node *, uint32_t>> open{{node, 1}};
		while (!open.empty()) {
			const auto [at, depth] = open.back();
			open.pop_back();
			deepest = std::max(deepest, depth);
			for (const fqdn_node *below : at->below) {
				if (below != nullptr) {
					open.emplace_back(below, depth + 1);
				}
			}
		}
		return deepest;
	}

	const Ipv4Address server = ipv4(192, 0, 2, 1);
};

TEST_F(ArecordIndexTest, FindsWhatTheListsHoldWhateverComesAndGoes)
{
	// In the order in which they came.
	struct Known {
		int64_t deadline;
		Names names;
	};
	std::map<uint32_t, Known> known;
	std::mt19937 dice(20);
	const auto roll = [&](uint32_t end) { return static_cast<uint32_t>(dice() % end); };
	dns_parse_init();
	machine.threads.settle();
	int64_t now = start_time;
	for (int round = 0; round < 60; ++round) {
		for (int step = 0; step < 100; ++step) {
			// Two buckets, and few enough addresses that each comes again.
			const Ipv4Address ip = {roll(2) * 3 + roll(200) * ARECORD_BUCKETS};
			const uint32_t life = 1 + roll(300);
			const std::string name = "n" + std::to_string(roll(12)) + ".example";
			add(ip, name, 1, life);
			Known &entry = known[ip.raw];
			entry.deadline = std::max(entry.deadline, now + life);
			if (std::find(entry.names.begin(), entry.names.end(), name) == entry.names.end()) {
				entry.names.push_back(name);
			}
		}
		now += roll(120);
		machine.clock.set(now);
		machine.threads.advance(EXPIRY_PERIOD_TICKS);
		std::erase_if(known, [&](const auto &entry) { return now > entry.second.deadline; });

		ASSERT_EQ(total_ip_count, static_cast<int32_t>(known.size()));
		for (uint32_t number = 0; number < 200; ++number) {
			for (const uint32_t bucket : {0U, 3U}) {
				const Ipv4Address ip = {bucket + number * ARECORD_BUCKETS};
				const bool is_known = known.contains(ip.raw);
				ASSERT_EQ(find(bucket, ip), entry_of(ip));
				ASSERT_EQ(entry_of(ip) != nullptr, is_known);
				ASSERT_EQ(match_dns_aRecord_garden_list(ip, 0), is_known);
				if (is_known) {
					ASSERT_EQ(names_of(ip), known[ip.raw].names);
				}
			}
		}
	}
	dns_parse_exit();
	EXPECT_TRUE(machine.live_allocations().empty());
}

TEST_F(ArecordIndexTest, FindsAnAddressInTheBucketItWasFiledInAlone)
{
	add_dns_arecord(7, 1, {"a.example", 9}, server, 60);
	EXPECT_NE(find(7, server), nullptr);
	EXPECT_EQ(find(arecord_bucket(server), server), nullptr);
	add_dns_arecord(7, 1, {"b.example", 9}, server, 60);
	EXPECT_EQ(total_ip_count, 1);
	add(server, "a.example");
	EXPECT_EQ(total_ip_count, 2);
}

TEST_F(ArecordIndexTest, ReachesEachOfManyNamesInFewSteps)
{
	constexpr int count = 20000;
	Names names;
	for (int round = 0; round < 2; ++round) {
		for (int i = 0; i < count; ++i) {
			// Of all lengths, with all remainders of whole words.
			const std::string name = std::string(static_cast<size_t>(i % 61), 'x') + std::to_string(i);
			add(server, name, 1, 60);
			if (round == 0) {
				names.push_back(name);
			}
		}
	}
	EXPECT_EQ(names_of(server), names);
	EXPECT_EQ(machine.live_allocations().size(), 1u + 2 * count);
	// A tree of that many in random order is 14.3 deep at best, and hardly ever more than twice that.
	EXPECT_LE(depth_below(entry_of(server)->fqdn_list.first()), 32u);
}

TEST_F(ArecordIndexTest, TellsNamesApartThatDifferInOneByteOrInTheirEnd)
{
	std::string name(127, 'a');
	Names names{name};
	add(server, name);
	for (size_t i = 0; i < name.size(); ++i) {
		std::string other = name;
		other[i] = 'b';
		names.push_back(other);
		add(server, other);
		other.resize(i);
		names.push_back(other);
		add(server, other);
	}
	EXPECT_EQ(names_of(server), names);
	for (const std::string &known : names) {
		add(server, known);
	}
	EXPECT_EQ(names_of(server).size(), names.size());
}

TEST_F(ArecordIndexTest, StartEmptiesACacheThatTakesSeveralHolds)
{
	for (uint32_t i = 0; i < 100; ++i) {
		add({5 + i * ARECORD_BUCKETS}, "a.example", 1);
		add({ARECORD_BUCKETS - 1 + i * ARECORD_BUCKETS}, "a.example", 1);
	}
	const uint64_t before = machine.locks.acquisitions(CP_LOCK_DNS_LIST);
	empty_cache();
	EXPECT_GE(machine.locks.acquisitions(CP_LOCK_DNS_LIST), before + 3);
	EXPECT_EQ(total_ip_count, 0);
	EXPECT_TRUE(machine.live_allocations().empty());
	EXPECT_FALSE(match_dns_aRecord_garden_list({5}, 0));
	add({5}, "a.example", 1);
	EXPECT_TRUE(match_dns_aRecord_garden_list({5}, 0));
}

TEST_F(ArecordIndexTest, StopForgetsAllInHoldsOfThirtyTwoAddressesAndTheNextStartBeginsAnew)
{
	for (uint32_t i = 0; i < 5000; ++i) {
		add({i * 7919}, "a.example", 1);
	}
	const uint64_t before = machine.locks.acquisitions(CP_LOCK_DNS_LIST);
	free_all_entries();
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_DNS_LIST), before + 157);
	EXPECT_EQ(total_ip_count, 5000);
	EXPECT_TRUE(machine.live_allocations().empty());
	for (uint32_t i = 0; i < 5000; ++i) {
		ASSERT_FALSE(match_dns_aRecord_garden_list({i * 7919}, 0));
	}
	add(server, "a.example", 1);
	EXPECT_TRUE(match_dns_aRecord_garden_list(server, 0));
}

} // namespace

} // namespace captive_portal::test
