// SPDX-License-Identifier: GPL-2.0-only
// Refreshes that take several holds of the lock, and what may happen between two of them.
#include <gtest/gtest.h>

#include "base/debug_level.h"
#include "garden/arecord_table.h"
#include "garden/dns_side.h"
#include "garden/expiry_thread.h"
#include "tests/support/host_test.h"
#include "tests/unit/garden_cache.h"

namespace captive_portal::test
{

namespace
{

constexpr int64_t start_time = 1'000'000;

class ArecordRefreshTest : public HostTest
{
protected:
	ArecordRefreshTest()
	{
		init_walled_garden_table();
		machine.clock.set(start_time);
		dns_parse_init();
		machine.threads.settle();
	}
	~ArecordRefreshTest() override
	{
		dns_parse_exit();
		free_walled_garden_rules();
		EXPECT_TRUE(machine.live_allocations().empty());
	}

	static Ipv4Address in_bucket_5(uint32_t number) { return {5 + number * ARECORD_BUCKETS}; }

	// So many names that one hold does not do.
	void add_names(Ipv4Address ip, uint32_t count, uint32_t ttl = 60)
	{
		for (uint32_t i = 0; i < count; ++i) {
			add(ip, "n" + std::to_string(i) + ".example", 0, ttl);
		}
	}

	const Ipv4Address server = ipv4(192, 0, 2, 1);
};

TEST_F(ArecordRefreshTest, GoesOnInALongBucketInHoldsOfThirtyTwoNames)
{
	for (uint32_t i = 0; i < 100; ++i) {
		add(in_bucket_5(i), i % 3 == 0 ? "a.example" : "b.example");
	}
	ASSERT_EQ(WgRecord(UPDATE_RULE, 4).domain("a.*").write(), 0);
	const uint64_t before = machine.locks.acquisitions(CP_LOCK_DNS_LIST);
	uint64_t yields = 0;
	machine.threads.on_yield([&](uint64_t number) {
		machine.locks.expect_all_free("a yield of the refresh");
		yields = number;
	});
	update_dns_aRecord_list(4);
	machine.threads.on_yield(nullptr);
	// Behind bucket 5 there are 1,018 empty ones, passed by in holds of 64.
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_DNS_LIST), before + 4 + 16);
	EXPECT_EQ(yields, 20u);
	for (uint32_t i = 0; i < 100; ++i) {
		EXPECT_EQ(entry_of(in_bucket_5(i))->is_match_wg, i % 3 == 0 ? 0x10u : 0u) << i;
	}
}

TEST_F(ArecordRefreshTest, MarksAnEntryOfManyNamesWhenAllAreJudged)
{
	add_names(server, 100);
	add(server, "last.org");
	ASSERT_EQ(WgRecord(UPDATE_RULE, 4).domain("n3.example").domain("last.org").write(), 0);
	EXPECT_EQ(entry_of(server)->is_match_wg, 0x10u);
	// Row 4 loses its bit in the last hold, not before; row 5 needs the name that comes last.
	ASSERT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).write(), 0);
	ASSERT_EQ(WgRecord(UPDATE_RULE, 5).domain("last.org").write(), 0);
	EXPECT_EQ(entry_of(server)->is_match_wg, 0x30u);
	int seen_marked = 0;
	machine.threads.on_yield([&](uint64_t) { seen_marked += entry_of(server)->is_match_wg == 0x30u ? 1 : 0; });
	ASSERT_EQ(WgRecord(UPDATE_RULE, 4).domain("other.example").write(), 0);
	machine.threads.on_yield(nullptr);
	// Bucket 192 comes after three holds of 64 empty ones, and takes four holds.
	EXPECT_EQ(seen_marked, 3 + 3);
	EXPECT_EQ(entry_of(server)->is_match_wg, 0x20u);
	ASSERT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).domain("last.org").write(), 0);
	EXPECT_EQ(entry_of(server)->is_match_wg, 0x0fffffffu);
	ASSERT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).write(), 0);
	EXPECT_EQ(entry_of(server)->is_match_wg, 0x20u);
	// All rows at once: one is found in the first hold, one in the last.
	ASSERT_EQ(WgRecord(UPDATE_RULE, 4).domain("n3.example").write(), 0);
	ASSERT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).write(), 0);
	EXPECT_EQ(entry_of(server)->is_match_wg, 0x30u);
}

TEST_F(ArecordRefreshTest, JudgesAnewWhatItHasJudgedByOldRules)
{
	add_names(server, 100);
	ASSERT_EQ(WgRecord(UPDATE_RULE, 4).domain("other.example").write(), 0);
	machine.threads.on_yield([&](uint64_t number) {
		// In the middle of the entry.
		if (number == 3 + 2) {
			ASSERT_EQ(WgRecord(UPDATE_RULE, 4).domain("n0.example").write(), 0);
		}
	});
	update_dns_aRecord_list(4);
	machine.threads.on_yield(nullptr);
	EXPECT_EQ(entry_of(server)->is_match_wg, 0x10u);
	machine.threads.on_yield([&](uint64_t number) {
		if (number == 3 + 2) {
			ASSERT_EQ(WgRecord(UPDATE_RULE, 4).domain("other.example").write(), 0);
		}
	});
	ASSERT_EQ(WgRecord(UPDATE_RULE, 4).domain("n99.example").write(), 0);
	machine.threads.on_yield(nullptr);
	EXPECT_EQ(entry_of(server)->is_match_wg, 0u);
}

TEST_F(ArecordRefreshTest, GoesOnBehindAnEntryThatExpiresUnderIt)
{
	for (uint32_t i = 0; i < 3; ++i) {
		add_names(in_bucket_5(i), 100, i == 1 ? 10 : 1000);
	}
	add(in_bucket_5(1), "permitted.org", 0, 10);
	add(in_bucket_5(7), "permitted.org", 0, 1000);
	machine.clock.advance(11);
	// Bucket 5 comes in the first hold. Its first entry takes three holds and four names of the fourth; the fourth ends in
	// entry 1.
	machine.threads.on_yield([&](uint64_t number) {
		if (number == 4) {
			machine.threads.on_yield(nullptr);
			machine.threads.advance(EXPIRY_PERIOD_TICKS);
			EXPECT_EQ(total_ip_count, 3);
		}
	});
	ASSERT_EQ(WgRecord(UPDATE_RULE, 4).domain("permitted.org").domain("n99.example").write(), 0);
	EXPECT_EQ(entry_of(in_bucket_5(1)), nullptr);
	for (const uint32_t i : {0U, 2U, 7U}) {
		EXPECT_EQ(entry_of(in_bucket_5(i))->is_match_wg, 0x10u) << i;
	}
}

TEST_F(ArecordRefreshTest, ForgetsWhatItFoundAboutAnEntryThatExpiresUnderIt)
{
	add_names(in_bucket_5(0), 100, 10);
	add(in_bucket_5(1), "other.org", 0, 1000);
	ASSERT_EQ(WgRecord(UPDATE_RULE, 4).domain("n0.example").write(), 0);
	EXPECT_EQ(entry_of(in_bucket_5(0))->is_match_wg, 0x10u);
	machine.clock.advance(11);
	bool expired = false;
	machine.threads.on_yield([&](uint64_t number) {
		// Behind the first hold of bucket 5: row 4 is found, and other rows are still looked for.
		if (number == 1) {
			expired = true;
			machine.threads.on_yield(nullptr);
			machine.threads.advance(EXPIRY_PERIOD_TICKS);
			EXPECT_EQ(total_ip_count, 1);
		}
	});
	ASSERT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).write(), 0);
	EXPECT_TRUE(expired);
	EXPECT_EQ(entry_of(in_bucket_5(1))->is_match_wg, 0u);
}

TEST_F(ArecordRefreshTest, AsksRowAfterRowAtDebugLevel3)
{
	add(server, "www.example.com");
	ASSERT_EQ(WgRecord(UPDATE_RULE, 2).domain("*.example").write(), 0);
	ASSERT_EQ(WgRecord(UPDATE_MIREL_RULE, 0).domain("*.examp").write(), 0);
	debug_level = 3;
	machine.log.clear();
	const auto rest = [](const char *length) {
		return debug_line("wildcard case : isLastCharWC=[0], strlen(url_src_ptr)=[" + std::string(length) +
				  "]\n");
	};
	const uint64_t before = machine.locks.acquisitions(CP_LOCK_DNS_LIST);
	ASSERT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).write(), 0);
	EXPECT_LOG(debug_line("if_device_write_wg: UPDATE_DEFAULT_RULE wg_cmd->rule_number = 0\n"), rest("4"),
		   rest("6"));
	// 17 holds for each row: three of 64 empty buckets, one with the entry, 13 for the rest.
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_DNS_LIST), before + 28 * 17);
	debug_level = 2;
	ASSERT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).write(), 0);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_DNS_LIST), before + 28 * 17 + 17);
	debug_level = 3;
	ASSERT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).domain("www.example.com").write(), 0);
	EXPECT_EQ(entry_of(server)->is_match_wg, 0x0fffffffu);
}

} // namespace

} // namespace captive_portal::test
