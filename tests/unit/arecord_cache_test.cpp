// SPDX-License-Identifier: GPL-2.0-only
#include "garden/arecord_cache.h"

#include <gtest/gtest.h>

#include "base/debug_level.h"
#include "tests/support/host_test.h"
#include "tests/unit/garden_cache.h"

namespace captive_portal::test
{

namespace
{

constexpr int64_t start_time = 1'000'000;

class ArecordCacheTest : public HostTest
{
protected:
	ArecordCacheTest()
	{
		init_walled_garden_table();
		machine.clock.set(start_time);
	}

	const Ipv4Address server = ipv4(192, 0, 2, 1);
};

// Buckets

TEST_F(ArecordCacheTest, ABucketIsTheFirstOctetAndTwoBitsOfTheSecond)
{
	EXPECT_EQ(arecord_bucket(ipv4(0, 0, 255, 255)), 0u);
	EXPECT_EQ(arecord_bucket(ipv4(192, 0, 2, 1)), 192u);
	EXPECT_EQ(arecord_bucket(ipv4(10, 1, 2, 3)), 266u);
	EXPECT_EQ(arecord_bucket(ipv4(198, 51, 100, 7)), 966u);
	EXPECT_EQ(arecord_bucket(ipv4(255, 255, 0, 0)), 1023u);
}

TEST_F(ArecordCacheTest, BucketsAreEmptyListsBeforeAnythingRuns)
{
	for (uint32_t bucket = 0; bucket < 1024; ++bucket) {
		EXPECT_TRUE(addresses_in(bucket).empty());
	}
	EXPECT_EQ(total_ip_count, 0);
	EXPECT_FALSE(match_dns_aRecord_garden_list(server, 0));
	add(server, "early.example", 1);
	EXPECT_TRUE(match_dns_aRecord_garden_list(server, 0));
}

// A new address

TEST_F(ArecordCacheTest, ANewAddressIsStoredWithItsName)
{
	add(server, "a.example", 0x08000001, 300);
	const dns_arecord *const entry = entry_of(server);
	ASSERT_NE(entry, nullptr);
	EXPECT_EQ(entry->ip, 0x010200c0u);
	EXPECT_EQ(entry->timeout, 1'000'300);
	EXPECT_EQ(entry->is_match_wg, 0x08000001u);
	EXPECT_EQ(entry->is_dump, 0u);
	EXPECT_EQ(names_of(server), (Names{"a.example"}));
	EXPECT_EQ(entry->fqdn_list.first()->is_dump, 0u);
	EXPECT_EQ(total_ip_count, 1);
	EXPECT_EQ(machine.live_allocations().size(), 3u);
}

TEST_F(ArecordCacheTest, ANewAddressIsStoredEvenWithMaskZeroAndEmptyName)
{
	add(server, "", 0);
	ASSERT_NE(entry_of(server), nullptr);
	EXPECT_EQ(entry_of(server)->is_match_wg, 0u);
	EXPECT_EQ(names_of(server), (Names{""}));
}

TEST_F(ArecordCacheTest, TheTimeToLiveIsUnsigned)
{
	add(server, "a.example", 0, 0xffffffff);
	EXPECT_EQ(entry_of(server)->timeout, 4'295'967'295);
}

TEST_F(ArecordCacheTest, AddressesOfOneBucketStandInTheOrderOfTheirComing)
{
	add(ipv4(10, 1, 0, 2), "a.example");
	add(ipv4(10, 1, 0, 1), "b.example");
	add(ipv4(10, 5, 0, 0), "c.example");
	EXPECT_EQ(addresses_in(266), (std::vector<uint64_t>{0x0200010a, 0x0100010a, 0x0000050a}));
	EXPECT_EQ(total_ip_count, 3);
}

TEST_F(ArecordCacheTest, TheSlotIsTrusted)
{
	const ExactText name("a.example");
	add_dns_arecord(7, 1, name.text(), server, 60);
	EXPECT_EQ(addresses_in(7), (std::vector<uint64_t>{0x010200c0}));
	EXPECT_FALSE(match_dns_aRecord_garden_list(server, 0));
}

TEST_F(ArecordCacheTest, TheCountIsLoggedAtDebugLevel3)
{
	debug_level = 3;
	add(server, "a.example");
	add(server, "b.example");
	add(ipv4(192, 0, 2, 2), "a.example");
	EXPECT_LOG(debug_line("total_ip_count=1\n"), debug_line("total_ip_count=2\n"));
	debug_level = 2;
	add(ipv4(192, 0, 2, 3), "a.example");
	EXPECT_NO_LOG();
}

// An address that is there

TEST_F(ArecordCacheTest, TwoNamesOfOneAddressAreOneEntry)
{
	add(server, "a.example");
	add(server, "b.example");
	EXPECT_EQ(total_ip_count, 1);
	EXPECT_EQ(names_of(server), (Names{"a.example", "b.example"}));
	EXPECT_EQ(addresses_in(192).size(), 1u);
}

TEST_F(ArecordCacheTest, ANameThatIsThereIsNotStoredTwice)
{
	add(server, "a.example");
	add(server, "b.example");
	add(server, "a.example");
	add(server, "b.example");
	EXPECT_EQ(names_of(server), (Names{"a.example", "b.example"}));
}

TEST_F(ArecordCacheTest, NamesAreComparedExactly)
{
	add(server, "a.example");
	add(server, "A.example");
	add(server, "a.exampl");
	add(server, "a.example.");
	add(server, "");
	EXPECT_EQ(names_of(server), (Names{"a.example", "A.example", "a.exampl", "a.example.", ""}));
}

TEST_F(ArecordCacheTest, TheNamesOfAnAddressAreNotLimited)
{
	for (int i = 0; i < 300; ++i) {
		add(server, "n" + std::to_string(i));
	}
	EXPECT_EQ(names_of(server).size(), 300u);
	EXPECT_EQ(total_ip_count, 1);
}

TEST_F(ArecordCacheTest, ANewNameWithAMaskReplacesTheMask)
{
	add(server, "a.example", 0x3);
	add(server, "b.example", 0x4);
	EXPECT_EQ(entry_of(server)->is_match_wg, 0x4u);
}

TEST_F(ArecordCacheTest, ANewNameWithoutAMaskLeavesTheMask)
{
	add(server, "a.example", 0x3);
	add(server, "b.example", 0);
	EXPECT_EQ(entry_of(server)->is_match_wg, 0x3u);
}

TEST_F(ArecordCacheTest, ANameThatIsThereLeavesTheMask)
{
	add(server, "a.example", 0x3);
	add(server, "a.example", 0x4);
	EXPECT_EQ(entry_of(server)->is_match_wg, 0x3u);
}

TEST_F(ArecordCacheTest, ALaterDeadlineExtendsAnEarlierOneDoesNotShorten)
{
	add(server, "a.example", 0, 60);
	add(server, "a.example", 0, 59);
	EXPECT_EQ(entry_of(server)->timeout, 1'000'060);
	add(server, "a.example", 0, 61);
	EXPECT_EQ(entry_of(server)->timeout, 1'000'061);
	add(server, "b.example", 0, 5);
	EXPECT_EQ(entry_of(server)->timeout, 1'000'061);
	add(server, "c.example", 0, 100);
	EXPECT_EQ(entry_of(server)->timeout, 1'000'100);
	machine.clock.advance(50);
	add(server, "a.example", 0, 60);
	EXPECT_EQ(entry_of(server)->timeout, 1'000'110);
}

TEST_F(ArecordCacheTest, DeadlinesAreComparedAsSignedNumbers)
{
	machine.clock.set(-100);
	add(server, "a.example", 0, 10);
	EXPECT_EQ(entry_of(server)->timeout, -90);
	machine.clock.set(5);
	add(server, "a.example", 0, 0);
	EXPECT_EQ(entry_of(server)->timeout, 5);
	machine.clock.set(-100);
	add(server, "a.example", 0, 10);
	EXPECT_EQ(entry_of(server)->timeout, 5);
}

TEST_F(ArecordCacheTest, AnEntryThatWasReportedStaysHiddenWhenItGainsAName)
{
	add(server, "a.example");
	entry_of(server)->is_dump = 1;
	entry_of(server)->fqdn_list.first()->is_dump = 1;
	add(server, "b.example", 0x1, 600);
	EXPECT_EQ(entry_of(server)->is_dump, 1u);
	const fqdn_node *const first = entry_of(server)->fqdn_list.first();
	EXPECT_EQ(first->is_dump, 1u);
	EXPECT_EQ(first->link.next->is_dump, 0u);
}

// The limit

TEST_F(ArecordCacheTest, A16384thAddressIsStoredAndA16385thRefused)
{
	debug_level = 1;
	fill_cache();
	EXPECT_EQ(total_ip_count, 16384);
	EXPECT_NO_LOG();
	EXPECT_NE(entry_of(filler(16383)), nullptr);
	add(ipv4(192, 0, 2, 99), "late.example", 0x80000001);
	EXPECT_EQ(total_ip_count, 16384);
	EXPECT_EQ(entry_of(ipv4(192, 0, 2, 99)), nullptr);
	EXPECT_LOG(debug_line("Exceed maximum (total_ip_count=16384), not add \"A record\" "
			      "(is_match_wg=-2147483647, late.example, 192.0.2.99)\n"));
	EXPECT_EQ(machine.live_allocations().size(), 3 * 16384u);
}

TEST_F(ArecordCacheTest, RefusesSilentlyAtDebugLevel0)
{
	fill_cache();
	debug_level = 0;
	add(ipv4(192, 0, 2, 99), "late.example");
	EXPECT_NO_LOG();
	EXPECT_EQ(entry_of(ipv4(192, 0, 2, 99)), nullptr);
}

TEST_F(ArecordCacheTest, TheAddressesOfAFullCacheStillRefreshAndGainNames)
{
	fill_cache();
	debug_level = 1;
	for (uint32_t number = 0; number < 16384; ++number) {
		add(filler(number), "full.example", 0, 61);
	}
	add(filler(5), "more.example", 0x10, 900);
	EXPECT_NO_LOG();
	EXPECT_EQ(total_ip_count, 16384);
	EXPECT_EQ(entry_of(filler(0))->timeout, 1'000'061);
	EXPECT_EQ(entry_of(filler(16383))->timeout, 1'000'061);
	EXPECT_EQ(names_of(filler(5)), (Names{"full.example", "more.example"}));
	EXPECT_EQ(entry_of(filler(5))->is_match_wg, 0x10u);
	EXPECT_EQ(entry_of(filler(5))->timeout, 1'000'900);
}

// The lookup

TEST_F(ArecordCacheTest, AnEntryMatchesForTheRowsOfItsMask)
{
	add(server, "a.example", 0x08);
	EXPECT_TRUE(match_dns_aRecord_garden_list(server, 3));
	EXPECT_FALSE(match_dns_aRecord_garden_list(server, 4));
	EXPECT_FALSE(match_dns_aRecord_garden_list(server, 2));
	EXPECT_FALSE(match_dns_aRecord_garden_list(ipv4(192, 0, 2, 2), 3));
}

TEST_F(ArecordCacheTest, TheRowIsTakenModulo32)
{
	add(server, "a.example", 0x88000000);
	EXPECT_TRUE(match_dns_aRecord_garden_list(server, 27));
	EXPECT_TRUE(match_dns_aRecord_garden_list(server, 31));
	EXPECT_TRUE(match_dns_aRecord_garden_list(server, 59));
	EXPECT_FALSE(match_dns_aRecord_garden_list(server, 32));
}

TEST_F(ArecordCacheTest, FindsAnAddressBehindOthersOfItsBucket)
{
	add(ipv4(10, 1, 0, 1), "a.example", 0x1);
	add(ipv4(10, 1, 0, 2), "b.example", 0x2);
	add(ipv4(10, 5, 0, 1), "c.example", 0x4);
	EXPECT_TRUE(match_dns_aRecord_garden_list(ipv4(10, 5, 0, 1), 2));
	EXPECT_FALSE(match_dns_aRecord_garden_list(ipv4(10, 5, 0, 1), 0));
	EXPECT_TRUE(match_dns_aRecord_garden_list(ipv4(10, 1, 0, 2), 1));
}

TEST_F(ArecordCacheTest, AStaleEntryStillMatches)
{
	add(server, "a.example", 0x1, 60);
	machine.clock.advance(1'000'000);
	EXPECT_TRUE(match_dns_aRecord_garden_list(server, 0));
}

// The refresh

TEST_F(ArecordCacheTest, ARefreshSetsTheRowsBitWhenAnyNameMatches)
{
	add(server, "a.example", 0x1);
	add(server, "b.example", 0);
	ASSERT_EQ(WgRecord(UPDATE_RULE, 5, 1).domain("b.*").write(), 0);
	entry_of(server)->is_match_wg = 0x1;
	update_dns_aRecord_list(5);
	EXPECT_EQ(entry_of(server)->is_match_wg, 0x21u);
}

TEST_F(ArecordCacheTest, ARefreshStopsAtTheFirstNameThatMatches)
{
	add(server, "a.example");
	add(server, "b.example");
	ASSERT_EQ(WgRecord(UPDATE_RULE, 5, 1).domain("*.example").write(), 0);
	const uint64_t before = machine.locks.acquisitions(CP_LOCK_WALLEDGARDEN);
	update_dns_aRecord_list(5);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_WALLEDGARDEN), before + 1);
}

TEST_F(ArecordCacheTest, ARefreshClearsTheRowsBitOfEveryEntryAndNoOther)
{
	add(server, "a.example", 0xffffffff);
	add(ipv4(192, 0, 2, 2), "b.example", 0x21);
	add(ipv4(10, 1, 2, 3), "c.example", 0x20);
	add(ipv4(255, 255, 2, 3), "d.example", 0x10);
	update_dns_aRecord_list(5);
	EXPECT_EQ(entry_of(server)->is_match_wg, 0xffffffdfu);
	EXPECT_EQ(entry_of(ipv4(192, 0, 2, 2))->is_match_wg, 0x01u);
	EXPECT_EQ(entry_of(ipv4(10, 1, 2, 3))->is_match_wg, 0u);
	EXPECT_EQ(entry_of(ipv4(255, 255, 2, 3))->is_match_wg, 0x10u);
}

TEST_F(ArecordCacheTest, ARefreshReachesTheFirstAndTheLastBucketAndEveryEntryOfOne)
{
	add(ipv4(0, 0, 0, 1), "a.example");
	add(ipv4(0, 4, 0, 1), "a.example");
	add(ipv4(0, 8, 0, 1), "a.example");
	add(ipv4(255, 3, 0, 1), "a.example");
	ASSERT_EQ(WgRecord(UPDATE_RULE, 27, 1).domain("a.example").write(), 0);
	for (const Ipv4Address ip : {ipv4(0, 0, 0, 1), ipv4(0, 4, 0, 1), ipv4(0, 8, 0, 1), ipv4(255, 3, 0, 1)}) {
		EXPECT_EQ(entry_of(ip)->is_match_wg, 0x08000000u);
	}
}

TEST_F(ArecordCacheTest, ARefreshDoesNotTouchNamesFlagsAndDeadline)
{
	add(server, "a.example", 0x20, 60);
	entry_of(server)->is_dump = 1;
	machine.clock.advance(1000);
	update_dns_aRecord_list(5);
	EXPECT_EQ(entry_of(server)->timeout, 1'000'060);
	EXPECT_EQ(entry_of(server)->is_dump, 1u);
	EXPECT_EQ(names_of(server), (Names{"a.example"}));
}

TEST_F(ArecordCacheTest, ARefreshKeepsTheExceptionHostOut)
{
	add(server, "social-login.example.com", 0x20);
	ASSERT_EQ(WgRecord(UPDATE_RULE, 5, 1).domain("*").write(), 0);
	EXPECT_EQ(entry_of(server)->is_match_wg, 0u);
}

// Locks

TEST_F(ArecordCacheTest, ALookupAndAnAdditionAreOneHoldEach)
{
	const uint64_t before = machine.locks.acquisitions(CP_LOCK_DNS_LIST);
	add(server, "a.example", 0x1);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_DNS_LIST), before + 1);
	EXPECT_TRUE(match_dns_aRecord_garden_list(server, 0));
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_DNS_LIST), before + 2);
}

TEST_F(ArecordCacheTest, ARefreshPassesEmptyBucketsInHoldsOfSixtyFourAndLetsOthersRunInBetween)
{
	add(server, "a.example");
	const uint64_t before = machine.locks.acquisitions(CP_LOCK_DNS_LIST);
	uint64_t yields = 0;
	machine.threads.on_yield([&](uint64_t number) {
		machine.locks.expect_all_free("a yield of the refresh");
		yields = number;
	});
	update_dns_aRecord_list(5);
	machine.threads.on_yield(nullptr);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_DNS_LIST), before + 17);
	EXPECT_EQ(yields, 17u);
}

// Short of memory

// The entry, its first name node, and the copy of the name.
TEST_F(ArecordCacheTest, ANewAddressIsSkippedWithoutALineWhenAnyAllocationFails)
{
	add(ipv4(192, 0, 2, 2), "there.example", 0x1);
	debug_level = 3;
	for (const uint64_t failing : {1u, 2u, 3u}) {
		machine.memory.fail_allocation(failing);
		add(server, "a.example", 0x1);
		EXPECT_EQ(entry_of(server), nullptr) << failing;
		EXPECT_EQ(total_ip_count, 1) << failing;
		EXPECT_EQ(machine.live_allocations().size(), 3u) << failing;
	}
	EXPECT_NO_LOG();
	machine.memory.fail_allocation(4);
	add(server, "a.example", 0x1);
	EXPECT_EQ(names_of(server), (Names{"a.example"}));
	EXPECT_EQ(total_ip_count, 2);
}

// The name node and the copy of the name.
TEST_F(ArecordCacheTest, ANameThatCannotBeHadLeavesMaskAndNamesAndStillRaisesTheDeadline)
{
	add(server, "a.example", 0x1, 60);
	debug_level = 3;
	for (const uint32_t failing : {1u, 2u}) {
		machine.memory.fail_allocation(failing);
		add(server, "b.example", 0x2, 60 + failing);
		EXPECT_EQ(entry_of(server)->is_match_wg, 0x1u) << failing;
		EXPECT_EQ(names_of(server), (Names{"a.example"})) << failing;
		EXPECT_EQ(entry_of(server)->timeout, 1'000'060 + failing) << failing;
		EXPECT_EQ(machine.live_allocations().size(), 3u) << failing;
	}
	EXPECT_NO_LOG();
	machine.memory.fail_allocation(3);
	add(server, "b.example", 0x2, 60);
	EXPECT_EQ(entry_of(server)->is_match_wg, 0x2u);
	EXPECT_EQ(names_of(server), (Names{"a.example", "b.example"}));
}

TEST_F(ArecordCacheTest, ANameThatIsThereNeedsNoMemory)
{
	add(server, "a.example", 0x1, 60);
	machine.memory.fail_all_allocations(true);
	add(server, "a.example", 0x1, 90);
	EXPECT_TRUE(match_dns_aRecord_garden_list(server, 0));
	machine.memory.fail_all_allocations(false);
	EXPECT_EQ(entry_of(server)->timeout, 1'000'090);
}

} // namespace

} // namespace captive_portal::test
