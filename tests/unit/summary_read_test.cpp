// SPDX-License-Identifier: GPL-2.0-only
// What is read from the proc file: the listing, its selections, its pages and its marks.
#include "garden/summary.h"

#include "tests/unit/summary_case.h"

namespace captive_portal::test
{

namespace
{

using Marks = std::vector<int>;

const std::string finished = "Finished...\n";

class SummaryRead : public SummaryTest
{
protected:
	void select(std::string_view target) { ASSERT_EQ(write(target), static_cast<long>(target.size())); }

	// Stores what most cases list.
	void add_three()
	{
		add(server, "www.example.com", 0x1, 300);
		add(server, "cdn.example.com", 0x1, 300);
		add(ipv4(10, 7, 0, 1), "login.example.org", 0x08800000, 60);
		add(ipv4(5, 0, 0, 1), "none.example", 0, 60);
	}
	// Their parts, in the order of their buckets.
	const std::string server_lines = "[192]IP=192.0.2.1, timeout=1000300\n  match walled garden: 1-1\n";
	const std::string www = "  fqdn = www.example.com\n";
	const std::string cdn = "  fqdn = cdn.example.com\n";
	const std::string second_lines =
		"[778]IP=10.7.0.1, timeout=1000060\n  match walled garden: 3-8 MIREL\n  fqdn = login.example.org\n";
};

// ---- The listing ----------------------------------------------------------------------------------------------------

TEST_F(SummaryRead, ListsNothingOfAnEmptyCache)
{
	EXPECT_EQ(read(), header() + finished);
	EXPECT_EQ(read(), header() + finished);
}

TEST_F(SummaryRead, ListsEveryEntryOfAWalledGardenInTheOrderOfBuckets)
{
	add_three();
	EXPECT_EQ(read(4096), header() + server_lines + www + cdn + second_lines + finished);
}

TEST_F(SummaryRead, ListsTheFirstAndTheLastBucketAndEntriesInTheOrderOfTheirComing)
{
	add(ipv4(255, 3, 0, 2), "d.example", 2, 0);
	add(ipv4(255, 3, 0, 1), "c.example", 2, 0);
	add(ipv4(0, 4, 0, 9), "b.example", 2, 0);
	add(ipv4(0, 0, 0, 9), "a.example", 2, 0);
	const std::string garden = "  match walled garden: 1-2\n";
	EXPECT_EQ(read(), header() + "[0]IP=0.4.0.9, timeout=1000000\n" + garden + "  fqdn = b.example\n" +
				  "[0]IP=0.0.0.9, timeout=1000000\n" + garden + "  fqdn = a.example\n" +
				  "[1023]IP=255.3.0.2, timeout=1000000\n" + garden + "  fqdn = d.example\n" +
				  "[1023]IP=255.3.0.1, timeout=1000000\n" + garden + "  fqdn = c.example\n" + finished);
}

TEST_F(SummaryRead, PrintsSecondsUnsigned)
{
	machine.clock.set(-61);
	add(server, "a.example", 1, 60);
	EXPECT_EQ(read(), header() + "[192]IP=192.0.2.1, timeout=18446744073709551615\n" +
				  "  match walled garden: 1-1\n  fqdn = a.example\n" + finished);
}

TEST_F(SummaryRead, PrintsEveryInterface)
{
	add(server, "a.example", 0xffffffff, 0);
	EXPECT_EQ(read(),
		  header() + "[192]IP=192.0.2.1, timeout=1000000\n" +
			  "  match walled garden: 1-1 1-2 1-3 1-4 1-5 1-6 1-7 1-8 2-1 2-2 2-3 2-4 2-5 2-6 2-7 2-8"
			  " 3-1 3-2 3-3 3-4 3-5 3-6 3-7 3-8 MIREL\n  fqdn = a.example\n" +
			  finished);
}

TEST_F(SummaryRead, ListsAnEntryWhoseRowsHaveNoName)
{
	add(server, "a.example", 0x07000000, 0);
	EXPECT_EQ(read(), header() + "[192]IP=192.0.2.1, timeout=1000000\n  match walled garden:\n" +
				  "  fqdn = a.example\n" + finished);
}

TEST_F(SummaryRead, NeverListsAnEntryWithoutAMask)
{
	add(server, "none.example", 0);
	for (const char *const target : {"all", "mirel", "wlan-1-1", "192.0.2.1"}) {
		select(target);
		EXPECT_EQ(read(), header(target) + finished);
		EXPECT_EQ(marks_of(server), (Marks{0, 0}));
	}
}

TEST_F(SummaryRead, PrintsNamesAsTheyAre)
{
	add(server, "a\nb\x01%s\xff", 1, 0);
	add(server, "", 1, 0);
	add(server, std::string(127, 'n'), 1, 0);
	EXPECT_EQ(read(), header() + "[192]IP=192.0.2.1, timeout=1000000\n  match walled garden: 1-1\n" +
				  "  fqdn = a\nb\x01%s\xff\n  fqdn = \n  fqdn = " + std::string(127, 'n') + "\n" +
				  finished);
}

TEST_F(SummaryRead, ListsAFullCache)
{
	fill_cache(0x1);
	const std::string listing = read(4 * 1024 * 1024);
	const std::string first = header() + "[0]IP=0.0.1.1, timeout=1000060\n  match walled garden: 1-1\n"
					     "  fqdn = full.example\n[0]IP=0.4.1.1, ";
	const std::string last = "[1023]IP=255.63.1.1, timeout=1000060\n  match walled garden: 1-1\n"
				 "  fqdn = full.example\n" +
				 finished;
	EXPECT_TRUE(listing.starts_with(first)) << listing.substr(0, 300);
	EXPECT_TRUE(listing.ends_with(last)) << listing.substr(listing.size() - 300);
	EXPECT_EQ(std::count(listing.begin(), listing.end(), '\n'), 3 * 16384 + 2);
	EXPECT_EQ(read(), header() + finished);
}

// ---- Selections -----------------------------------------------------------------------------------------------------

TEST_F(SummaryRead, ListsOneInterface)
{
	add_three();
	select("wlan-1-1");
	EXPECT_EQ(read(), header("wlan-1-1") + server_lines + www + cdn + finished);
	select("wlan-3-8");
	EXPECT_EQ(read(), header("wlan-3-8") + second_lines + finished);
	select("wlan-1-2");
	EXPECT_EQ(read(), header("wlan-1-2") + finished);
}

TEST_F(SummaryRead, ListsEachInterfaceByItsOwnBit)
{
	for (uint32_t index = 0; index < 24; ++index) {
		add(ipv4(static_cast<uint8_t>(index), 0, 0, 1), "a.example", 1u << index, 0);
	}
	for (uint32_t index = 0; index < 24; ++index) {
		const std::string numbers = std::to_string(index / 8 + 1) + "-" + std::to_string(index % 8 + 1);
		const std::string address = std::to_string(index) + ".0.0.1";
		select("wlan-" + numbers);
		EXPECT_EQ(read(), header("wlan-" + numbers) + "[" + std::to_string(index) + "]IP=" + address +
					  ", timeout=1000000\n  match walled garden: " + numbers +
					  "\n  fqdn = a.example\n" + finished);
	}
}

// Deliberate: only the combined index is looked at.
TEST_F(SummaryRead, ListsForAVapNumberBehindTheLastTheNextRadiosInterface)
{
	add(server, "a.example", 1u << 8, 0);
	const std::string lines =
		"[192]IP=192.0.2.1, timeout=1000000\n  match walled garden: 2-1\n  fqdn = a.example\n";
	for (const char *const target : {"wlan-1-9", "wlan-2-1"}) {
		select(target);
		EXPECT_EQ(read(), header(target) + lines + finished);
	}
}

TEST_F(SummaryRead, ListsTheMirelRow)
{
	add_three();
	select("mirel");
	EXPECT_EQ(read(), header("mirel") + second_lines + finished);
}

TEST_F(SummaryRead, ListsOneAddress)
{
	add_three();
	// The same bucket, and the same address but for its bucket's bits.
	add(ipv4(192, 4, 2, 1), "other.example", 1);
	add(ipv4(192, 0, 2, 2), "other.example", 1);
	add(ipv4(193, 0, 2, 1), "other.example", 1);
	select("192.0.2.1");
	EXPECT_EQ(read(), header("192.0.2.1") + server_lines + www + cdn + finished);
	select("192.0.2.9");
	EXPECT_EQ(read(), header("192.0.2.9") + finished);
}

TEST_F(SummaryRead, LooksForAnAddressInItsOwnBucketAlone)
{
	add_dns_arecord(5, 1, {"a.example", 9}, server, 60);
	const std::string lines = "[5]IP=192.0.2.1, timeout=1000060\n  match walled garden: 1-1\n  fqdn = a.example\n";
	select("192.0.2.1");
	EXPECT_EQ(read(), header("192.0.2.1") + finished);
	select("all");
	EXPECT_EQ(read(), header() + lines + finished);
}

TEST_F(SummaryRead, ReadsTheAddressAsTheWriteDid)
{
	add_three();
	const std::string listing = server_lines + www + cdn + finished;
	for (const char *const target : {"192.0.2.1\n", "192.0.2.1 junk", "192.0.2.1.77", " 192.0.2.1", "192. 0.\t2.1",
					 "192.0.2.4294967297", "0192.000.02.01"}) {
		select(target);
		EXPECT_EQ(read(), header(target) + listing);
	}
}

TEST_F(SummaryRead, ListsTheZeroAddress)
{
	add(ipv4(0, 0, 0, 0), "zero.example", 1, 0);
	select("0.0.0.0");
	EXPECT_EQ(read(), header("0.0.0.0") + "[0]IP=0.0.0.0, timeout=1000000\n  match walled garden: 1-1\n" +
				  "  fqdn = zero.example\n" + finished);
}

TEST_F(SummaryRead, ListsNothingForAnInterfaceWithADotBehindIt)
{
	add_three();
	add(ipv4(0, 0, 0, 0), "zero.example", 1, 0);
	select("wlan-1-1.5");
	EXPECT_EQ(read(), header("wlan-1-1.5") + finished);
	EXPECT_EQ(marks_of(server), (Marks{0, 0, 0}));
}

TEST_F(SummaryRead, ListsAnInterfaceWithALineEndBehindIt)
{
	add_three();
	select("wlan-1-1\n");
	EXPECT_EQ(read(), header("wlan-1-1\n") + server_lines + www + cdn + finished);
}

TEST_F(SummaryRead, MarksOnlyWhatItLists)
{
	add_three();
	select("wlan-3-8");
	static_cast<void>(read());
	EXPECT_EQ(marks_of(server), (Marks{0, 0, 0}));
	EXPECT_EQ(marks_of(ipv4(10, 7, 0, 1)), (Marks{1, 1}));
	EXPECT_EQ(marks_of(ipv4(5, 0, 0, 1)), (Marks{0, 0}));
	// A write clears the marks, also those of what it does not select.
	select("wlan-1-1");
	EXPECT_EQ(marks_of(ipv4(10, 7, 0, 1)), (Marks{0, 0}));
}

// ---- The position ---------------------------------------------------------------------------------------------------

TEST_F(SummaryRead, EndsTheFileWithItsFirstRead)
{
	add_three();
	UserBuffer buffer(machine, 4096);
	int64_t position = 0;
	const long produced = machine.proc_read(buffer.address(), 100, position);
	EXPECT_GT(produced, 0);
	EXPECT_EQ(position, produced);
	debug_level = 3;
	EXPECT_EQ(machine.proc_read(buffer.address(), 4096, position), 0);
	EXPECT_EQ(position, produced);
	position = 1;
	EXPECT_EQ(machine.proc_read(buffer.address(), 4096, position), 0);
	EXPECT_EQ(position, 1);
	EXPECT_NO_LOG();
	EXPECT_EQ(marks_of(ipv4(10, 7, 0, 1)), (Marks{0, 0}));
}

TEST_F(SummaryRead, SetsThePositionToWhatItProducedWhereverItBegan)
{
	UserBuffer buffer(machine, 4096);
	int64_t position = -5;
	const long produced = machine.proc_read(buffer.address(), 4096, position);
	EXPECT_EQ(produced, static_cast<long>((header() + finished).size()));
	EXPECT_EQ(position, produced);
}

// ---- Pages ----------------------------------------------------------------------------------------------------------

TEST_F(SummaryRead, GoesOnWithWhatIsNotMarked)
{
	add_three();
	const size_t page = (header() + server_lines + www + cdn).size();
	EXPECT_EQ(read(page), header() + server_lines + www + cdn);
	EXPECT_EQ(marks_of(server), (Marks{1, 1, 1}));
	EXPECT_EQ(read(page), header() + second_lines + finished);
	EXPECT_EQ(read(page), header() + finished);
}

TEST_F(SummaryRead, StopsInsideAnEntryAndRepeatsItsFirstLines)
{
	add_three();
	const size_t page = (header() + server_lines + www).size();
	EXPECT_EQ(read(page), header() + server_lines + www);
	EXPECT_EQ(marks_of(server), (Marks{0, 1, 0}));
	EXPECT_EQ(read(page + 1), header() + server_lines + cdn);
	EXPECT_EQ(marks_of(server), (Marks{1, 1, 1}));
	EXPECT_EQ(read(), header() + second_lines + finished);
}

TEST_F(SummaryRead, CutsALineNowhereButInTheHeader)
{
	add(server, "www.example.com", 0x1, 300);
	const std::string lines[] = {"[192]IP=192.0.2.1, timeout=1000300\n", "  match walled garden: 1-1\n", www};
	const std::string whole = header() + lines[0] + lines[1] + lines[2];
	const auto read_again = [&](size_t length) {
		select("all");
		return read(length);
	};
	for (size_t length = 0; length <= header().size(); ++length) {
		EXPECT_EQ(read_again(length), header().substr(0, length)) << length;
	}
	size_t begin = header().size();
	for (const std::string &line : lines) {
		for (size_t length = begin; length < begin + line.size(); ++length) {
			EXPECT_EQ(read_again(length), whole.substr(0, begin)) << length;
			EXPECT_EQ(marks_of(server), (Marks{0, 0})) << length;
		}
		begin += line.size();
	}
	for (size_t length = begin; length < begin + finished.size(); ++length) {
		EXPECT_EQ(read_again(length), whole) << length;
		EXPECT_EQ(marks_of(server), (Marks{1, 1})) << length;
	}
	EXPECT_EQ(read_again(begin + finished.size()), whole + finished);
}

TEST_F(SummaryRead, LeavesTheLastLineOutWithoutRoomForIt)
{
	const size_t size = (header() + finished).size();
	EXPECT_EQ(read(size - 1), header());
	EXPECT_EQ(read(size), header() + finished);
}

// A walk with pen and paper: what a reader gets, given the lines of each entry and what is marked of them.
class PaperListing
{
public:
	struct Entry {
		std::string address_line;
		std::string garden_line;
		std::vector<std::string> names;
		size_t names_shown = 0;
		bool shown = false;
	};

	explicit PaperListing(std::vector<Entry> entries) : entries_(std::move(entries)) {}

	std::string read(const std::string &header, size_t length)
	{
		std::string out = header.substr(0, length);
		const auto fits = [&](const std::string &line) { return out.size() + line.size() <= length; };
		for (Entry &entry : entries_) {
			if (entry.shown) {
				continue;
			}
			for (const std::string &line : {entry.address_line, entry.garden_line}) {
				if (!fits(line)) {
					return out;
				}
				out += line;
			}
			for (; entry.names_shown < entry.names.size(); ++entry.names_shown) {
				if (!fits(entry.names[entry.names_shown])) {
					return out;
				}
				out += entry.names[entry.names_shown];
			}
			entry.shown = true;
		}
		return fits(finished) ? out + finished : out;
	}

private:
	std::vector<Entry> entries_;
};

// Every buffer size, page after page until nothing new comes.
TEST_F(SummaryRead, PagesWithEveryBufferSize)
{
	std::vector<PaperListing::Entry> entries;
	for (uint8_t bucket = 1; bucket <= 4; ++bucket) {
		const Ipv4Address ip = ipv4(bucket, 0, 2, 1);
		const std::string number = std::to_string(bucket);
		PaperListing::Entry entry{"[" + number + "]IP=" + number + ".0.2.1, timeout=1000060\n",
					  "  match walled garden: 1-1 1-2\n",
					  {}};
		for (uint8_t n = 0; n < bucket; ++n) {
			const std::string name = std::string(n * 20u + bucket, 'a') + ".example";
			add(ip, name, 3);
			entry.names.push_back("  fqdn = " + name + "\n");
		}
		entries.push_back(entry);
	}
	add(ipv4(2, 4, 0, 0), "outside.example", 0);
	size_t whole = 0;
	for (size_t length = 0; length < 900; ++length) {
		SCOPED_TRACE(length);
		select("all");
		PaperListing paper(entries);
		UserBuffer buffer(machine, length);
		std::string before;
		for (int page = 0; page < 100; ++page) {
			const std::string expected = paper.read(header(), length);
			int64_t position = 0;
			const long produced = machine.proc_read(buffer.address(), length, position);
			ASSERT_EQ(produced, static_cast<long>(expected.size()));
			ASSERT_EQ(position, produced);
			const std::vector<std::byte> bytes = buffer.read();
			ASSERT_EQ(std::string(reinterpret_cast<const char *>(bytes.data()), expected.size()), expected);
			if (expected == before) {
				break;
			}
			before = expected;
			if (page == 0 && expected.ends_with(finished)) {
				whole = whole == 0 ? length : whole;
			}
		}
	}
	// 45 and 12 for the first and the last line, 4 * (31 + 31) for the entries, and the ten names.
	EXPECT_EQ(whole, 45u + 12 + 4 * 62 + 10 * 18 + (1 + 2 * 2 + 3 * 3 + 4 * 4) + 20 * (1 + 3 + 6));
}

// ---- Marks ----------------------------------------------------------------------------------------------------------

TEST_F(SummaryRead, ListsEntriesThatCameSince)
{
	add_three();
	static_cast<void>(read());
	EXPECT_EQ(read(), header() + finished);
	add(ipv4(1, 0, 0, 1), "new.example", 1, 0);
	EXPECT_EQ(read(), header() + "[1]IP=1.0.0.1, timeout=1000000\n  match walled garden: 1-1\n" +
				  "  fqdn = new.example\n" + finished);
	EXPECT_EQ(read(), header() + finished);
}

// Deliberate: the entry stays hidden although it gained a name.
TEST_F(SummaryRead, HidesANameThatCameToAMarkedEntryUntilTheNextWrite)
{
	add(server, "www.example.com", 0x1, 300);
	static_cast<void>(read());
	add(server, "cdn.example.com", 0x1, 300);
	EXPECT_EQ(read(), header() + finished);
	EXPECT_EQ(marks_of(server), (Marks{1, 1, 0}));
	select("all");
	EXPECT_EQ(read(), header() + server_lines + www + cdn + finished);
}

TEST_F(SummaryRead, ShowsANameThatCameToAnEntryOfWhichOnlyAPartIsMarked)
{
	add(server, "www.example.com", 0x1, 300);
	add(server, "cdn.example.com", 0x1, 300);
	EXPECT_EQ(read((header() + server_lines + www).size()), header() + server_lines + www);
	add(server, "new.example.com", 0x1, 300);
	EXPECT_EQ(read(), header() + server_lines + cdn + "  fqdn = new.example.com\n" + finished);
}

TEST_F(SummaryRead, ListsAMarkedEntryAgainAfterAWriteOfTheSameSelection)
{
	add_three();
	const std::string all = read();
	select("all");
	EXPECT_EQ(read(), all);
}

TEST_F(SummaryRead, KeepsTheMarksWhenAWriteIsRefused)
{
	add_three();
	static_cast<void>(read());
	EXPECT_EQ(write("all\n"), -22);
	EXPECT_EQ(read(), header() + finished);
}

TEST_F(SummaryRead, ForgetsTheMarksOfAnEntryThatExpired)
{
	add(server, "www.example.com", 0x1, 10);
	static_cast<void>(read());
	machine.clock.advance(11);
	machine.threads.advance(6000);
	machine.clock.set(1'000'000);
	add(server, "www.example.com", 0x1, 300);
	EXPECT_EQ(read(), header() + server_lines + www + finished);
}

TEST_F(SummaryRead, ListsAStaleEntryUntilItsPass)
{
	add(server, "www.example.com", 0x1, 300);
	machine.clock.advance(100'000);
	EXPECT_EQ(read(), header() + server_lines + www + finished);
}

// ---- The log --------------------------------------------------------------------------------------------------------

TEST_F(SummaryRead, LogsProducedBytesAndRemainingRoomAtDebugLevel3)
{
	debug_level = 3;
	static_cast<void>(read(4096));
	// 45 + 12 bytes.
	EXPECT_NUMBERLESS_LOG(debug_line("summary_read [N]: total_read=57, len=4039\n"));
	static_cast<void>(read(48));
	EXPECT_NUMBERLESS_LOG(debug_line("summary_read [N]: total_read=45, len=3\n"));
	static_cast<void>(read(10));
	EXPECT_NUMBERLESS_LOG(debug_line("summary_read [N]: total_read=10, len=0\n"));
	static_cast<void>(read(0));
	EXPECT_NUMBERLESS_LOG(debug_line("summary_read [N]: total_read=0, len=0\n"));
	debug_level = 2;
	static_cast<void>(read(4096));
	EXPECT_NO_LOG();
}

// ---- Memory ---------------------------------------------------------------------------------------------------------

TEST_F(SummaryRead, FailsWithoutMemoryAndMarksNothing)
{
	add_three();
	debug_level = 3;
	machine.log.clear();
	machine.memory.fail_allocation(1);
	UserBuffer buffer(machine, 4096);
	int64_t position = 0;
	EXPECT_EQ(machine.proc_read(buffer.address(), 4096, position), -12);
	EXPECT_EQ(position, 0);
	EXPECT_NO_LOG();
	EXPECT_EQ(marks_of(server), (Marks{0, 0, 0}));
	EXPECT_EQ(marks_of(ipv4(10, 7, 0, 1)), (Marks{0, 0}));
	debug_level = 1;
	EXPECT_EQ(read(), header() + server_lines + www + cdn + second_lines + finished);
}

TEST_F(SummaryRead, NeedsNoMemoryForNoRoom)
{
	add_three();
	machine.memory.fail_all_allocations(true);
	EXPECT_EQ(read(0), "");
	machine.memory.fail_all_allocations(false);
}

TEST_F(SummaryRead, CountsWhatCannotBeCopiedAndKeepsTheMarks)
{
	add_three();
	const std::string all = header() + server_lines + www + cdn + second_lines + finished;
	for (const cp_user_address address : {refused_address, unmapped_address}) {
		select("all");
		int64_t position = 0;
		EXPECT_EQ(machine.proc_read(address, 4096, position), static_cast<long>(all.size()));
		EXPECT_EQ(position, static_cast<int64_t>(all.size()));
		EXPECT_EQ(marks_of(server), (Marks{1, 1, 1}));
		EXPECT_EQ(read(), header() + finished);
	}
}

TEST_F(SummaryRead, CopiesUpToABorderAndCountsTheRest)
{
	add_three();
	const std::string all = header() + server_lines + www + cdn + second_lines + finished;
	for (const UserAccess behind : {UserAccess::none, UserAccess::read_only}) {
		select("all");
		UserBuffer buffer(machine, 4096, 50, behind);
		int64_t position = 0;
		EXPECT_EQ(machine.proc_read(buffer.address(), 4096, position), static_cast<long>(all.size()));
		const std::vector<std::byte> bytes = buffer.read();
		EXPECT_EQ(std::string(reinterpret_cast<const char *>(bytes.data()), 50), all.substr(0, 50));
		EXPECT_EQ(bytes[50], std::byte{0});
		EXPECT_EQ(marks_of(ipv4(10, 7, 0, 1)), (Marks{1, 1}));
	}
}

} // namespace

} // namespace captive_portal::test
