// SPDX-License-Identifier: GPL-2.0-only
// A report that takes several holds of the lock, and what may happen between two of them.
#include "garden/report.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "garden/expiry_thread.h"
#include "platform/host/context.h"
#include "tests/unit/summary_case.h"

namespace captive_portal::test
{

namespace
{

using Marks = std::vector<int>;

const std::string finished = "Finished...\n";
constexpr size_t plenty = size_t{8} << 20;

class ReportTest : public SummaryTest
{
protected:
	void select_all() { ASSERT_EQ(write("all"), 3); }

	static Ipv4Address in_bucket_5(uint32_t number) { return {5 + number * ARECORD_BUCKETS}; }

	// The lines of an entry of bucket 5 whose second octet is `number` * 4, and whose names are n0.example and so on.
	static std::string lines_in_bucket_5(uint32_t number, uint32_t names, uint32_t ttl = 60)
	{
		std::string lines = "[5]IP=5." + std::to_string(number * 4) +
				    ".0.0, timeout=" + std::to_string(1'000'000 + ttl) +
				    "\n  match walled garden: 1-1\n";
		for (uint32_t i = 0; i < names; ++i) {
			lines += "  fqdn = n" + std::to_string(i) + ".example\n";
		}
		return lines;
	}
	static void add_names(Ipv4Address ip, uint32_t names, uint32_t ttl = 60)
	{
		for (uint32_t i = 0; i < names; ++i) {
			add(ip, "n" + std::to_string(i) + ".example", 0x1, ttl);
		}
	}

	// Calls `action` once in the next read: between measuring and listing.
	template <typename Action> void before_the_listing(Action action)
	{
		machine.memory.before_large_allocation([this, action](size_t) {
			machine.memory.before_large_allocation(nullptr);
			action();
		});
	}
	// Calls `action` once in the next read: behind its `number`-th hold, 1 being the first.
	template <typename Action> void behind_hold(uint64_t number, Action action)
	{
		machine.threads.on_yield([this, number, action](uint64_t yield) {
			machine.locks.expect_all_free("a yield of a report");
			if (yield == number) {
				machine.threads.on_yield(nullptr);
				action();
			}
		});
	}
	// A pass of the expiry thread `seconds` after the start.
	void expire_after(int64_t seconds)
	{
		machine.clock.set(1'000'000 + seconds);
		machine.threads.advance(EXPIRY_PERIOD_TICKS);
		machine.clock.set(1'000'000);
	}

	// What the reader gets is not looked at, nor written behind its first page.
	uint64_t holds_of_a_read(size_t length)
	{
		UserBuffer buffer(machine, 4096);
		int64_t position = 0;
		const uint64_t before = machine.locks.acquisitions(CP_LOCK_DNS_LIST);
		EXPECT_GE(machine.proc_read(buffer.address(), length, position), 0);
		return machine.locks.acquisitions(CP_LOCK_DNS_LIST) - before;
	}
};

// True when the condition comes true within a twentieth of a second.
template <typename Condition> [[nodiscard]] bool comes_true(Condition condition)
{
	using namespace std::chrono_literals;
	for (int i = 0; i < 50; ++i) {
		if (condition()) {
			return true;
		}
		std::this_thread::sleep_for(1ms);
	}
	return condition();
}

// ---- Memory ---------------------------------------------------------------------------------------------------------

TEST_F(ReportTest, AsksOnceForAsMuchMemoryAsTheListingMayNeedAndNoMoreThanTheReaderHas)
{
	std::vector<size_t> sizes;
	machine.memory.before_large_allocation([&](size_t size) { sizes.push_back(size); });
	add_names(server, 10);
	static_cast<void>(read(100));
	// Another entry's name has been shown.
	add(ipv4(1, 0, 0, 1), "none.example", 0x1);
	select_all();
	entry_of(ipv4(1, 0, 0, 1))->is_dump = 1;
	int64_t position = 0;
	UserBuffer buffer(machine, 4096);
	// What is behind the buffer is never reached.
	EXPECT_GT(machine.proc_read(buffer.address(), size_t{1} << 40, position), 0);
	ASSERT_EQ(sizes.size(), 2u);
	// Both with room for a line of 256.
	EXPECT_EQ(sizes[0], 100u + 256);
	// An entry of ten names, each with ten characters around it: at most as long as this with a header of 256.
	EXPECT_GE(sizes[1], 256u + 12 + 55 + 23 + 102 + 10 * 20 + 256);
	EXPECT_LE(sizes[1], 256u + 12 + 55 + 23 + 102 + 10 * 20 + 256 + 4);
}

TEST_F(ReportTest, MeasuresOnlyTheAddressThatIsSelected)
{
	std::vector<size_t> sizes;
	add_names(server, 10);
	add_names(ipv4(192, 4, 2, 1), 100);
	add_names(ipv4(10, 0, 0, 1), 100);
	ASSERT_EQ(write("192.0.2.1"), 9);
	machine.memory.before_large_allocation([&](size_t size) { sizes.push_back(size); });
	static_cast<void>(read());
	ASSERT_EQ(sizes.size(), 1u);
	EXPECT_LT(sizes[0], 1000u);
}

// The longest lines that there are, which get that long when the memory is there already.
TEST_F(ReportTest, HasRoomForWhatGetsLongerMeanwhile)
{
	constexpr uint8_t entries = 30;
	const auto address = [](uint8_t i) { return ipv4(255, static_cast<uint8_t>(255 - 4 * i), 255, 255); };
	const std::string names[] = {'a' + std::string(126, 'n'), 'b' + std::string(126, 'n')};
	machine.clock.set(-61);
	std::string expected = header();
	for (uint8_t i = 0; i < entries; ++i) {
		// Half of them are in no garden yet.
		add(address(i), names[0], i % 2, 0);
		add(address(i), names[1], i % 2, 0);
		expected += "[1023]IP=255." + std::to_string(255 - 4 * i) +
			    ".255.255, timeout=18446744073709551615\n  match walled garden:"
			    " 1-1 1-2 1-3 1-4 1-5 1-6 1-7 1-8 2-1 2-2 2-3 2-4 2-5 2-6 2-7 2-8"
			    " 3-1 3-2 3-3 3-4 3-5 3-6 3-7 3-8 MIREL\n  fqdn = " +
			    names[0] + "\n  fqdn = " + names[1] + "\n";
	}
	before_the_listing([&] {
		ASSERT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).domain(names[0]).write(), 0);
		for (uint8_t i = 0; i < entries; ++i) {
			add(address(i), names[0], 0, 60);
		}
	});
	EXPECT_TRUE(read() == expected + finished);
	ASSERT_EQ(WgRecord(UPDATE_DEFAULT_RULE, 0).write(), 0);
}

// ---- What comes and goes meanwhile ----------------------------------------------------------------------------------

TEST_F(ReportTest, LeavesOutWhatComesBetweenMeasuringAndListing)
{
	add_names(in_bucket_5(0), 2);
	before_the_listing([&] {
		add(in_bucket_5(0), "n2.example", 0x1);
		add_names(in_bucket_5(1), 3);
	});
	EXPECT_EQ(read(), header() + lines_in_bucket_5(0, 2) + finished);
	EXPECT_EQ(marks_of(in_bucket_5(0)), (Marks{1, 1, 1, 0}));
	EXPECT_EQ(marks_of(in_bucket_5(1)), (Marks{0, 0, 0, 0}));
	// As if it had come behind the listing: the address is listed next, the name of a shown entry after a write.
	EXPECT_EQ(read(), header() + lines_in_bucket_5(1, 3) + finished);
	EXPECT_EQ(read(), header() + finished);
	select_all();
	EXPECT_EQ(read(), header() + lines_in_bucket_5(0, 3) + lines_in_bucket_5(1, 3) + finished);
}

TEST_F(ReportTest, LeavesOutWhatComesBehindAnyOfItsHolds)
{
	add_names(in_bucket_5(0), 100);
	add_names(in_bucket_5(2), 100);
	const std::string there = lines_in_bucket_5(0, 100) + lines_in_bucket_5(2, 100) + finished;
	uint64_t hold = 1;
	for (bool is_in_time = true; is_in_time; ++hold) {
		SCOPED_TRACE(hold);
		select_all();
		is_in_time = false;
		behind_hold(hold, [&] {
			is_in_time = true;
			add_names(in_bucket_5(3), 1, 10);
		});
		EXPECT_EQ(read(), header() + there);
		machine.threads.on_yield(nullptr);
		EXPECT_EQ(read(), header() + (is_in_time ? lines_in_bucket_5(3, 1, 10) : "") + finished);
		expire_after(11);
		EXPECT_EQ(total_ip_count, 2);
	}
	EXPECT_GT(hold, 32u);
}

TEST_F(ReportTest, ListsAnAddressThatWentAndCameAgainTheNextTime)
{
	add_names(in_bucket_5(0), 1, 10);
	add_names(in_bucket_5(1), 1);
	before_the_listing([&] {
		expire_after(11);
		add_names(in_bucket_5(0), 1);
	});
	EXPECT_EQ(read(), header() + lines_in_bucket_5(1, 1) + finished);
	EXPECT_EQ(read(), header() + lines_in_bucket_5(0, 1) + finished);
}

TEST_F(ReportTest, LeavesOutWhatGoesBetweenMeasuringAndListing)
{
	add_names(in_bucket_5(0), 3);
	add_names(in_bucket_5(1), 3, 10);
	add_names(in_bucket_5(2), 3);
	before_the_listing([&] { expire_after(11); });
	EXPECT_EQ(read(), header() + lines_in_bucket_5(0, 3) + lines_in_bucket_5(2, 3) + finished);
}

// Whichever entry goes, and wherever the report is just then: it is listed whole or not at all, and those behind it are
// listed.
TEST_F(ReportTest, NeverListsAPartOfAnEntryThatGoes)
{
	for (const uint32_t going : {0u, 1u, 2u}) {
		SCOPED_TRACE(going);
		std::string without;
		std::string with;
		for (uint32_t i = 0; i < 3; ++i) {
			const std::string lines = lines_in_bucket_5(i, 100, i == going ? 10 : 60);
			without += i == going ? "" : lines;
			with += lines;
		}
		int times_without = 0;
		int times_with = 0;
		for (uint64_t hold = 1; times_without + times_with + 1 == static_cast<int>(hold); ++hold) {
			SCOPED_TRACE(hold);
			for (uint32_t i = 0; i < 3; ++i) {
				add_names(in_bucket_5(i), 100, i == going ? 10 : 60);
			}
			select_all();
			bool is_in_time = false;
			behind_hold(hold, [&] {
				is_in_time = true;
				expire_after(11);
				EXPECT_EQ(total_ip_count, 2);
			});
			const std::string listing = read();
			machine.threads.on_yield(nullptr);
			expire_after(61);
			if (is_in_time) {
				times_without += listing == header() + without + finished ? 1 : 0;
				times_with += listing == header() + with + finished ? 1 : 0;
			} else {
				EXPECT_EQ(listing, header() + with + finished);
			}
		}
		// Half of the holds measure, and some list; the last one of all is not followed by a listing.
		EXPECT_GT(times_without, 20);
		EXPECT_GT(times_with, 14);
		EXPECT_EQ(times_without + times_with, 2 * (5 + 16));
	}
}

TEST_F(ReportTest, FindsRoomWhereAnEntryWentThatHadNone)
{
	add_names(in_bucket_5(0), 100, 10);
	add_names(in_bucket_5(1), 1);
	const std::string expected = header() + lines_in_bucket_5(1, 1) + finished;
	// Room for most of the first entry, in the middle of which the first hold of the listing ends.
	const size_t length = (header() + lines_in_bucket_5(0, 90, 10)).size();
	uint64_t behind_first_of_listing = 0;
	before_the_listing([&] {
		behind_hold(1, [&] {
			++behind_first_of_listing;
			expire_after(11);
		});
	});
	EXPECT_EQ(read(length), expected);
	EXPECT_EQ(behind_first_of_listing, 1u);
}

TEST_F(ReportTest, ShowsTheMaskAsItIsWhenItComesToTheEntry)
{
	add_names(in_bucket_5(0), 1);
	add_names(in_bucket_5(1), 1);
	before_the_listing([&] { entry_of(in_bucket_5(0))->is_match_wg = 0; });
	EXPECT_EQ(read(), header() + lines_in_bucket_5(1, 1) + finished);
	EXPECT_EQ(marks_of(in_bucket_5(0)), (Marks{0, 0}));
}

// ---- Holds ----------------------------------------------------------------------------------------------------------

// Marks that are set in one hold of the listing: one for each visit.
TEST_F(ReportTest, VisitsSixtyFourEntriesAndNamesInAHold)
{
	for (uint32_t i = 0; i < ARECORD_LIMIT; ++i) {
		add(in_bucket_5(i), "a.example", 0x1);
	}
	const auto marks = [] {
		uint64_t count = 0;
		for (const dns_arecord &entry : dns_aRecord[5]) {
			count += entry.is_dump;
			count += entry.fqdn_list.first()->is_dump;
		}
		return count;
	};
	uint64_t before = 0;
	uint64_t most = 0;
	machine.threads.on_yield([&](uint64_t number) {
		machine.locks.expect_all_free("a yield of a report");
		// Each time would take long.
		if (number % 16 < 2) {
			const uint64_t now = marks();
			most = std::max(most, number % 16 == 1 ? now - before : 0);
			before = now;
		}
	});
	// One hold to begin with; then twice: 512 for the bucket, 16 for the 1,018 behind it.
	EXPECT_EQ(holds_of_a_read(plenty), 1u + 2 * (512 + 16));
	machine.threads.on_yield(nullptr);
	EXPECT_EQ(most, 64u);
	EXPECT_EQ(marks(), 2u * 16384);
	EXPECT_EQ(read(), header() + finished);
}

TEST_F(ReportTest, VisitsSixtyFourNamesOfAnEntryInAHold)
{
	// 63 a hold, and one is left; then the buckets behind.
	add_names(in_bucket_5(0), 16 * 63 + 1);
	EXPECT_EQ(holds_of_a_read(plenty), 1u + 2 * (17 + 16));
	select_all();
	EXPECT_EQ(read(), header() + lines_in_bucket_5(0, 16 * 63 + 1) + finished);
}

TEST_F(ReportTest, PassesByEmptyBucketsSixtyFourInAHold)
{
	EXPECT_EQ(holds_of_a_read(plenty), 1u + 2 * 16);
	ASSERT_EQ(write("192.0.2.1"), 9);
	EXPECT_EQ(holds_of_a_read(plenty), 1u + 2);
	EXPECT_EQ(holds_of_a_read(0), 0u);
}

TEST_F(ReportTest, GoesNoFurtherThanTheReadersRoom)
{
	for (uint32_t i = 0; i < 1000; ++i) {
		add(in_bucket_5(i), "a.example", 0x1);
	}
	// Measuring ends among the first 32 entries; 47 fit.
	EXPECT_EQ(holds_of_a_read(4096), 1u + 1 + 2);
}

// ---- One at a time --------------------------------------------------------------------------------------------------

TEST_F(ReportTest, LetsAnotherReaderWait)
{
	add_names(in_bucket_5(0), 3);
	std::string second;
	std::atomic<bool> is_through = false;
	std::thread reader;
	before_the_listing([&] {
		reader = std::thread([&] {
			second = read();
			is_through = true;
		});
		EXPECT_FALSE(comes_true([&] { return is_through.load(); }));
	});
	const std::string first = read();
	reader.join();
	EXPECT_EQ(first, header() + lines_in_bucket_5(0, 3) + finished);
	EXPECT_EQ(second, header() + finished);
}

TEST_F(ReportTest, LetsAWriteWait)
{
	add_names(in_bucket_5(0), 100);
	std::atomic<bool> is_through = false;
	std::thread writer;
	// Behind the first hold of the listing.
	before_the_listing([&] {
		behind_hold(1, [&] {
			writer = std::thread([&] {
				EXPECT_EQ(write("mirel"), 5);
				is_through = true;
			});
			EXPECT_FALSE(comes_true([&] { return is_through.load(); }));
			// One that is refused changes nothing, and waits for nobody.
			std::thread([&] { EXPECT_EQ(write("none"), -22); }).join();
		});
	});
	const std::string listing = read();
	ASSERT_TRUE(writer.joinable());
	writer.join();
	EXPECT_EQ(listing, header() + lines_in_bucket_5(0, 100) + finished);
	// All of its marks went, none before it was set.
	EXPECT_EQ(marks_of(in_bucket_5(0)), Marks(101, 0));
	EXPECT_EQ(read(), header("mirel") + finished);
}

TEST_F(ReportTest, LetsStopWait)
{
	add_names(in_bucket_5(0), 100);
	add_names(in_bucket_5(1), 100);
	std::thread stop;
	std::atomic<bool> is_through = false;
	before_the_listing([&] {
		stop = std::thread([&] {
			free_all_entries();
			is_through = true;
		});
		EXPECT_FALSE(comes_true([&] { return is_through.load(); }));
	});
	EXPECT_EQ(read(), header() + lines_in_bucket_5(0, 100) + lines_in_bucket_5(1, 100) + finished);
	stop.join();
	EXPECT_EQ(read(), header() + finished);
}

// The copy may wait for a page of the reader's as long as the reader likes.
TEST_F(ReportTest, IsCopiedWhenOthersMayGoOn)
{
	add_names(in_bucket_5(0), 3);
	int copies = 0;
	machine.user.before_copy_out([&] {
		++copies;
		EXPECT_EQ(host::held_mutexes(), 0u);
		std::thread([&] {
			EXPECT_EQ(write("mirel"), 5);
			int64_t position = 0;
			EXPECT_EQ(machine.proc_read(0, 0, position), 0);
			free_all_entries();
		}).join();
	});
	EXPECT_EQ(read(), header() + lines_in_bucket_5(0, 3) + finished);
	EXPECT_EQ(copies, 1);
}

} // namespace

} // namespace captive_portal::test
