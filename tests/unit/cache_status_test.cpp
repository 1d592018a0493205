// SPDX-License-Identifier: GPL-2.0-only
// The status file "cache": what it says, and that nobody else sees that it was read.
#include "garden/cache_status.h"

#include <algorithm>
#include <sstream>
#include <thread>

#include "garden/expiry_thread.h"
#include "platform/host/status_text.h"
#include "tests/unit/summary_case.h"

namespace captive_portal::test
{

namespace
{

class CacheStatus : public SummaryTest
{
protected:
	[[nodiscard]] std::string cache() { return machine.status_text("cache"); }

	static Ipv4Address in_bucket_5(uint32_t number) { return {5 + number * ARECORD_BUCKETS}; }

	// Calls `action` once: behind the first hold of the next walk.
	template <typename Action> void behind_the_first_hold(Action action)
	{
		machine.threads.on_yield([this, action](uint64_t) {
			machine.locks.expect_all_free("a yield of a status file");
			machine.threads.on_yield(nullptr);
			action();
		});
	}
};

TEST_F(CacheStatus, ListsAddressesInTheOrderOfBucketsWithTheirNames)
{
	add(ipv4(203, 0, 113, 10), "b.example", 0x8000001, 42);
	add(ipv4(203, 0, 113, 10), "a.example");
	add(ipv4(198, 51, 100, 7), "c.example");
	EXPECT_EQ(cache(), "cached address=203.0.113.10 bucket=203 timeout=1000060 gardens=0x8000001 shown=0\n"
			   "cached-name address=203.0.113.10 name=b.example shown=0\n"
			   "cached-name address=203.0.113.10 name=a.example shown=0\n"
			   "cached address=198.51.100.7 bucket=966 timeout=1000060 gardens=0x0 shown=0\n"
			   "cached-name address=198.51.100.7 name=c.example shown=0\n");
}

TEST_F(CacheStatus, EscapesWhatIsNoPrintableName)
{
	add(ipv4(10, 0, 0, 1), "a b\n\\");
	EXPECT_NE(cache().find(" name=a\\040b\\012\\134 shown=0\n"), std::string::npos) << cache();
}

TEST_F(CacheStatus, SaysATimeOfBeforeTheEpoch)
{
	machine.clock.set(-100);
	add(ipv4(10, 0, 0, 1), "a.example");
	EXPECT_NE(cache().find(" timeout=-40 "), std::string::npos) << cache();
}

TEST_F(CacheStatus, ShowsTheMarksOfTheProcFileAndLeavesThem)
{
	add(ipv4(10, 0, 0, 1), "a.example", 0x1);
	add(ipv4(11, 0, 0, 1), "b.example", 0x1);
	const std::string first = "[10]IP=10.0.0.1, timeout=1000060\n  match walled garden: 1-1\n  fqdn = a.example\n";
	const std::string second = "[11]IP=11.0.0.1, timeout=1000060\n  match walled garden: 1-1\n  fqdn = b.example\n";
	// Nothing is marked by it, so that all is listed behind it.
	static_cast<void>(cache());
	const std::string head = "Captive Portal DNS A Record Info, target=all\n";
	EXPECT_EQ(read(head.size() + first.size()), head + first);
	const std::string half_shown = "cached address=10.0.0.1 bucket=10 timeout=1000060 gardens=0x1 shown=1\n"
				       "cached-name address=10.0.0.1 name=a.example shown=1\n"
				       "cached address=11.0.0.1 bucket=11 timeout=1000060 gardens=0x1 shown=0\n"
				       "cached-name address=11.0.0.1 name=b.example shown=0\n";
	EXPECT_EQ(cache(), half_shown);
	EXPECT_EQ(cache(), half_shown);
	// Nothing is forgotten either: the next listing goes on where the last one ended.
	EXPECT_EQ(read(), head + second + "Finished...\n");
	EXPECT_EQ(read(), head + "Finished...\n");
}

TEST_F(CacheStatus, IsReadWhileAListingWaits)
{
	add(ipv4(10, 0, 0, 1), "a.example", 0x1);
	std::string meanwhile;
	// Between measuring and listing.
	machine.memory.before_large_allocation([this, &meanwhile](size_t) {
		machine.memory.before_large_allocation(nullptr);
		std::thread([this, &meanwhile] { meanwhile = cache(); }).join();
	});
	EXPECT_NE(read().find("fqdn = a.example\n"), std::string::npos);
	EXPECT_NE(meanwhile.find("name=a.example shown=0\n"), std::string::npos) << meanwhile;
}

TEST_F(CacheStatus, TakesTheLockAnewForEvery64Lines)
{
	for (uint32_t i = 0; i < 64; ++i) {
		add(in_bucket_5(i), "a.example");
	}
	// The host's reader asks for each part twice.
	const uint64_t before = machine.locks.acquisitions(CP_LOCK_DNS_LIST);
	const std::string lines = cache();
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_DNS_LIST) - before, 2u * (1023 + 2));
	EXPECT_EQ(std::ranges::count(lines, '\n'), 128);
	add(in_bucket_5(0), "b.example");
	const uint64_t again = machine.locks.acquisitions(CP_LOCK_DNS_LIST);
	EXPECT_EQ(std::ranges::count(cache(), '\n'), 129);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_DNS_LIST) - again, 2u * (1023 + 3));
}

TEST_F(CacheStatus, GoesOnBehindAnEntryThatExpiresAmidItsNames)
{
	for (uint32_t i = 0; i < 70; ++i) {
		add(in_bucket_5(0), "n" + std::to_string(i) + ".example", 0, 10);
	}
	add(in_bucket_5(1), "stays.example", 0, 600);
	const auto expire = [this] {
		machine.clock.set(1'000'011);
		machine.threads.advance(EXPIRY_PERIOD_TICKS);
	};
	std::ostringstream expected;
	expected << "cached address=5.0.0.0 bucket=5 timeout=1000010 gardens=0x0 shown=0\n";
	for (uint32_t i = 0; i < 63; ++i) {
		expected << "cached-name address=5.0.0.0 name=n" << i << ".example shown=0\n";
	}
	const std::string rest = "cached address=5.4.0.0 bucket=5 timeout=1000600 gardens=0x0 shown=0\n"
				 "cached-name address=5.4.0.0 name=stays.example shown=0\n";
	cp_status_text text;
	behind_the_first_hold(expire);
	write_cached_addresses(5, &text);
	EXPECT_EQ(text.characters, expected.str() + rest);
	EXPECT_EQ(cache(), rest);
}

TEST_F(CacheStatus, EndsWhenTheCacheIsEmptiedMeanwhile)
{
	for (uint32_t i = 0; i < 100; ++i) {
		add(in_bucket_5(i), "a.example");
	}
	cp_status_text text;
	behind_the_first_hold(empty_cache);
	write_cached_addresses(5, &text);
	EXPECT_EQ(std::ranges::count(text.characters, '\n'), 64);
}

TEST_F(CacheStatus, ListsAFullCache)
{
	fill_cache(0x1);
	const std::string lines = cache();
	EXPECT_EQ(std::ranges::count(lines, '\n'), 2 * 16384);
	EXPECT_EQ(lines.substr(0, lines.find('\n')),
		  "cached address=0.0.1.1 bucket=0 timeout=1000060 gardens=0x1 shown=0");
}

} // namespace

} // namespace captive_portal::test
