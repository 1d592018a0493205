// SPDX-License-Identifier: GPL-2.0-only
// The expiry thread and addresses with so many names that one hold of the lock does not do.
#include <gtest/gtest.h>

#include "base/debug_level.h"
#include "garden/dns_side.h"
#include "garden/expiry_thread.h"
#include "tests/support/host_test.h"
#include "tests/unit/garden_cache.h"

namespace captive_portal::test
{

namespace
{

constexpr int64_t start_time = 1'000'000;

class ExpiryNames : public HostTest
{
protected:
	ExpiryNames()
	{
		init_walled_garden_table();
		machine.clock.set(start_time);
		dns_parse_init();
		machine.threads.settle();
	}
	~ExpiryNames() override
	{
		debug_level = 1;
		dns_parse_exit();
		EXPECT_TRUE(machine.live_allocations().empty());
	}

	void add_names(Ipv4Address ip, uint32_t count)
	{
		for (uint32_t i = 0; i < count; ++i) {
			add(ip, "n" + std::to_string(i), 0, 10);
		}
	}
	static std::vector<host::LogLine> lines_of_names(const std::string &first, uint32_t count)
	{
		std::vector<host::LogLine> lines = {debug_line(first)};
		for (uint32_t i = 0; i < count; ++i) {
			lines.push_back(debug_line("  fqdn = n" + std::to_string(i) + "\n"));
		}
		return lines;
	}
	void pass() { machine.threads.advance(EXPIRY_PERIOD_TICKS); }

	const Ipv4Address server = ipv4(192, 0, 2, 1);
};

TEST_F(ExpiryNames, AreLoggedInTheirOrderInHoldsOfSixtyFour)
{
	add_names(server, 200);
	debug_level = 3;
	machine.log.clear();
	const uint64_t before = machine.locks.acquisitions(CP_LOCK_DNS_LIST);
	pass();
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_DNS_LIST), before + 1 + 1023 + 4);
	std::vector<host::LogLine> lines = machine.log.take();
	ASSERT_EQ(lines.size(), 1u + 1 + 200);
	lines.erase(lines.begin());
	EXPECT_EQ(lines, lines_of_names("[192]IP=192.0.2.1, timeout=1000010, is_match_wg=0, is_dump=0\n", 200));
}

TEST_F(ExpiryNames, OfAStaleAddressGoWithItThoughAnAnswerComesInBetween)
{
	add_names(server, 200);
	machine.clock.advance(11);
	debug_level = 3;
	machine.log.clear();
	machine.threads.on_yield([this](uint64_t number) {
		// In the middle of the names.
		if (number == 192 + 2) {
			add(server, "n0", 0, 1000);
			EXPECT_EQ(total_ip_count, 1);
		}
	});
	pass();
	machine.threads.on_yield(nullptr);
	std::vector<host::LogLine> lines = machine.log.take();
	ASSERT_EQ(lines.size(), 1u + 1 + 200);
	lines.erase(lines.begin());
	EXPECT_EQ(lines,
		  lines_of_names("[192]IP=192.0.2.1, timeout=1000010, is_match_wg=0, is_dump=0 (delete)\n", 200));
	EXPECT_EQ(total_ip_count, 0);
	EXPECT_TRUE(machine.live_allocations().empty());
}

TEST_F(ExpiryNames, AreFreedOutsideTheLock)
{
	add_names(server, 5000);
	add(ipv4(192, 0, 2, 2), "other", 0, 1000);
	machine.clock.advance(11);
	uint64_t free_yields = 0;
	machine.threads.on_yield([&](uint64_t number) {
		machine.locks.expect_all_free("a yield of the pass");
		free_yields = number;
		if (number == 192 + 1) {
			EXPECT_EQ(total_ip_count, 1) << "it is gone before its names are freed";
			EXPECT_FALSE(match_dns_aRecord_garden_list(server, 0));
			add(server, "again", 1, 1000);
		}
	});
	pass();
	machine.threads.on_yield(nullptr);
	EXPECT_EQ(free_yields, 1024u + 4);
	EXPECT_EQ(names_of(server), (Names{"again"}));
	EXPECT_EQ(total_ip_count, 2);
	EXPECT_EQ(machine.live_allocations().size(), 6u);
}

} // namespace

} // namespace captive_portal::test
