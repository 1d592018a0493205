// SPDX-License-Identifier: GPL-2.0-only
// Commands and hooks at once, on the rules and the cache. The thread sanitizer judges the accesses, the cases what comes
// of them.
#include <array>
#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include <gtest/gtest.h>

#include "base/fixed_addresses.h"
#include "garden/arecord_table.h"
#include "garden/dns_side.h"
#include "platform/host/context.h"
#include "tests/support/host_test.h"
#include "tests/support/user_buffer.h"
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
		init_social_login_address();
		init_dns_filter_address();
		dns_parse_init();
		hook.wait_for_a_run();
		dns_parse_exit();
	}
	hook.wait_for_a_run();
	hook.stop();
	EXPECT_TRUE(match_dns_aRecord_garden_list(address_of(1), 0));
	free_walled_garden_rules();
	dns_parse_init();
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

// ---- The proc file and the expiry thread ----------------------------------------------------------------------------

// A process that opens the file, reads once and looks at what it got, again and again until the file is gone.
class Reader
{
public:
	Reader(host::Machine &machine, size_t length) : machine_(machine), buffer_(machine, length) {}

	// False when the file is gone.
	[[nodiscard]] bool read()
	{
		int64_t position = 0;
		const long produced = machine_.proc_read(buffer_.address(), buffer_.size(), position);
		if (produced == file_is_gone) {
			return false;
		}
		EXPECT_GE(produced, 0);
		EXPECT_EQ(position, produced);
		const std::vector<std::byte> bytes = buffer_.read();
		expect_whole({reinterpret_cast<const char *>(bytes.data()), static_cast<size_t>(produced)});
		return true;
	}

private:
	static constexpr long file_is_gone = -5;

	// One of the targets, and entries of three lines each with a name that belongs to the address.
	static void expect_whole(std::string_view listing)
	{
		const auto next_line = [&] {
			const size_t end = listing.find('\n');
			EXPECT_NE(end, std::string_view::npos) << listing;
			const std::string_view line = listing.substr(0, end);
			listing.remove_prefix(end == std::string_view::npos ? listing.size() : end + 1);
			return std::string(line);
		};
		const std::string header = next_line();
		EXPECT_TRUE(header == "Captive Portal DNS A Record Info, target=all" ||
			    header == "Captive Portal DNS A Record Info, target=wlan-1-1")
			<< header;
		while (!listing.empty()) {
			const std::string line = next_line();
			if (line == "Finished...") {
				EXPECT_TRUE(listing.empty());
				return;
			}
			EXPECT_TRUE(line.starts_with("[")) << line;
			if (!listing.empty()) {
				EXPECT_EQ(next_line(), "  match walled garden: 1-1");
			}
			if (!listing.empty()) {
				EXPECT_EQ(next_line(), "  fqdn = one.example");
			}
		}
	}

	host::Machine &machine_;
	UserBuffer buffer_;
};

[[nodiscard]] long select(host::Machine &machine, std::string_view target)
{
	UserBuffer buffer(machine, target.size());
	buffer.write(std::as_bytes(std::span(target)));
	return machine.proc_write(buffer.address(), target.size());
}

// What other threads do again and again until it ends, at the latest with the object.
class Background
{
public:
	Background() = default;
	Background(const Background &) = delete;
	Background &operator=(const Background &) = delete;
	~Background() { end(); }

	// A thread that calls `body(round)` with round 0, 1, 2, ...
	template <typename Body> void repeat(Body body)
	{
		threads_.emplace_back([this, body]() mutable {
			for (uint32_t round = 0; !ends_; ++round) {
				body(round);
			}
		});
	}
	void end()
	{
		ends_ = true;
		for (std::thread &thread : threads_) {
			thread.join();
		}
		threads_.clear();
	}

private:
	std::atomic<bool> ends_ = false;
	std::vector<std::thread> threads_;
};

TEST_F(GardenThreadsTest, ReadersWritersAnswersRulesAndExpiryGoTogether)
{
	load_module();
	machine.log.keep(false);
	ASSERT_EQ(WgRecord(UPDATE_RULE, 0, 1).domain("one.example").write(), 0);
	Background background;
	for (uint32_t hook = 0; hook < 2; ++hook) {
		background.repeat([](uint32_t round) {
			const host::SoftirqContext softirq;
			// In a bucket of many, too.
			const Ipv4Address ip = round % 2 == 0 ? address_of(round % addresses) :
								ipv4(7, 0, 0, static_cast<uint8_t>(round % 100));
			const ExactText name("one.example");
			add_dns_arecord(arecord_bucket(ip), 1, name.text(), ip, round % 7);
			(void)match_dns_aRecord_garden_list(ip, 0);
		});
	}
	for (const size_t length : {size_t{64} * 1024, size_t{200}}) {
		background.repeat([reader = std::make_shared<Reader>(machine, length)](uint32_t) {
			EXPECT_TRUE(reader->read());
		});
	}
	background.repeat([&](uint32_t round) {
		const std::string_view target = round % 2 == 0 ? "all" : "wlan-1-1";
		EXPECT_EQ(select(machine, target), static_cast<long>(target.size()));
		EXPECT_EQ(select(machine, "x"), -22);
	});
	background.repeat([](uint32_t) { EXPECT_EQ(WgRecord(UPDATE_RULE, 1, 1).domain("two.*").write(), 0); });
	for (int i = 0; i < rounds; ++i) {
		machine.clock.advance(1);
		machine.threads.advance(6000);
	}
	background.end();
	machine.clock.advance(100);
	machine.threads.advance(6000);
	EXPECT_EQ(total_ip_count, 0);
	EXPECT_EQ(machine.unload(), 0);
	EXPECT_TRUE(machine.live_allocations().empty());
}

// Whatever else is done to the cache, an address that stays is listed once between two writes, by one of the readers.
TEST_F(GardenThreadsTest, TwoReadersNeverListTheSameAddress)
{
	load_module();
	machine.log.keep(false);
	constexpr uint32_t staying = 200;
	for (uint32_t number = 0; number < staying; ++number) {
		const ExactText name("one.example");
		// In three buckets.
		add_dns_arecord(number % 3, 1, name.text(),
				ipv4(9, 9, static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)), 1'000'000);
	}
	Background background;
	// Addresses that come and go between those that stay, and names that come to them.
	background.repeat([](uint32_t round) {
		const host::SoftirqContext softirq;
		const ExactText name(round % 2 == 0 ? "one.example" : "two.example");
		const Ipv4Address ip = ipv4(8, 8, 8, static_cast<uint8_t>(round % 100));
		add_dns_arecord(round % 3, 1, name.text(), ip, round % 3);
	});
	background.repeat([&](uint32_t) {
		machine.clock.advance(1);
		machine.threads.advance(6000);
	});
	background.repeat([](uint32_t) { EXPECT_EQ(WgRecord(UPDATE_RULE, 1, 1).domain("three.*").write(), 0); });
	for (int round = 0; round < rounds / 10; ++round) {
		ASSERT_EQ(select(machine, "all"), 3);
		std::array<std::string, 2> listings;
		std::vector<std::thread> readers;
		for (std::string &listing : listings) {
			readers.emplace_back([&] {
				// One may come when the other has listed all, so each comes several times.
				for (int i = 0; i < 3; ++i) {
					UserBuffer buffer(machine, 64 * 1024);
					int64_t position = 0;
					const long produced =
						machine.proc_read(buffer.address(), buffer.size(), position);
					ASSERT_GT(produced, 0);
					const std::vector<std::byte> bytes = buffer.read();
					listing.append(reinterpret_cast<const char *>(bytes.data()),
						       static_cast<size_t>(produced));
				}
			});
		}
		for (std::thread &reader : readers) {
			reader.join();
		}
		const std::string both = listings[0] + listings[1];
		uint32_t listed = 0;
		for (size_t at = both.find("IP=9.9."); at != std::string::npos; at = both.find("IP=9.9.", at + 1)) {
			++listed;
		}
		EXPECT_EQ(listed, staying);
		for (uint32_t number = 0; number < staying; ++number) {
			const std::string address =
				"IP=9.9." + std::to_string(number >> 8) + "." + std::to_string(number % 256) + ",";
			EXPECT_NE(both.find(address), std::string::npos) << address;
		}
	}
	background.end();
	EXPECT_EQ(machine.unload(), 0);
	EXPECT_TRUE(machine.live_allocations().empty());
}

TEST_F(GardenThreadsTest, TheModuleUnloadsUnderReadersAndWriters)
{
	for (int round = 0; round < 20; ++round) {
		load_module();
		machine.log.keep(false);
		for (uint32_t number = 0; number < addresses; ++number) {
			add(number, "one.example", 1);
		}
		std::atomic<int> ready = 0;
		std::thread reader([&] {
			Reader file(machine, 4096);
			while (file.read()) {
				++ready;
			}
		});
		std::thread writer([&] {
			while (select(machine, "all") == 3) {
				++ready;
			}
		});
		std::thread pass([&] { machine.threads.advance(6000); });
		while (ready < 4) {
			std::this_thread::yield();
		}
		EXPECT_EQ(machine.unload(), 0);
		reader.join();
		writer.join();
		pass.join();
		EXPECT_TRUE(machine.live_allocations().empty());
	}
}

} // namespace

} // namespace captive_portal::test
