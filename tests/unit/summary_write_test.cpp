// SPDX-License-Identifier: GPL-2.0-only
// What is written to the proc file: selections and refusals.
#include "garden/summary.h"

#include "tests/unit/summary_case.h"

namespace captive_portal::test
{

namespace
{

using Marks = std::vector<int>;
using namespace std::string_literals;

class SummaryWrite : public SummaryTest
{
protected:
	// The text is refused with this line, and selection and marks stay.
	void expect_refused(std::string_view text, const std::string &line)
	{
		const std::string before = summary_target;
		entry_of(server)->is_dump = 1;
		EXPECT_EQ(write(text), -22) << text;
		EXPECT_NUMBERLESS_LOG(error_line("summary_write [N]: " + line + "\n"));
		EXPECT_EQ(summary_target, before) << text;
		EXPECT_EQ(marks_of(server), (Marks{1, 0})) << text;
	}
	// The text is accepted without a line and becomes the selection.
	void expect_selected(std::string_view text, const char *target)
	{
		entry_of(server)->is_dump = 1;
		EXPECT_EQ(write(text), static_cast<long>(text.size())) << text;
		EXPECT_NO_LOG();
		EXPECT_STREQ(summary_target, target) << text;
		EXPECT_EQ(marks_of(server), (Marks{0, 0})) << text;
	}

	void SetUp() override
	{
		SummaryTest::SetUp();
		add(server, "a.example", 1);
		ASSERT_EQ(write("mirel"), 5);
	}
};

// ---- Selections -----------------------------------------------------------------------------------------------------

TEST(SummaryTarget, IsAllWhenTheModuleLoads)
{
	host::Machine machine;
	EXPECT_EQ(machine.load(), 0);
	EXPECT_STREQ(summary_target, "all");
	EXPECT_EQ(sizeof(summary_target), 20u);
}

TEST_F(SummaryWrite, SelectsAllAndMirel)
{
	expect_selected("all", "all");
	expect_selected("mirel", "mirel");
}

TEST_F(SummaryWrite, SelectsInterfaces)
{
	for (const char *const name : {"wlan-1-1", "wlan-1-8", "wlan-2-1", "wlan-3-8"}) {
		expect_selected(name, name);
	}
}

// Deliberate: 1-9 is the ninth of all, 2-1; 2-0 the eighth, 1-8.
TEST_F(SummaryWrite, ChecksTheCombinedIndexAlone)
{
	for (const char *const name : {"wlan-1-9", "wlan-1-24", "wlan-2-0", "wlan-4--7", "wlan-0-9"}) {
		expect_selected(name, name);
	}
}

TEST_F(SummaryWrite, TakesAnInterfaceWithWhateverFollowsItsNumbers)
{
	expect_selected("wlan-1-1\n", "wlan-1-1\n");
	expect_selected("wlan-1-1 and more", "wlan-1-1 and more");
	expect_selected("wlan-1-1.5", "wlan-1-1.5");
	expect_selected("wlan- 3- 8", "wlan- 3- 8");
	expect_selected("wlan-01-0000000008x", "wlan-01-0000000008x");
}

TEST_F(SummaryWrite, SelectsAddresses)
{
	for (const char *const address : {"10.0.0.1", "255.255.255.255", "0.0.0.0", "192.0.2.1\n", "192.0.2.1 junk",
					  "192.0.2.1.9", " 192.0.2.1", "192. 0.\t2.1", "010.000.000.001", "-0.0.0.0"}) {
		expect_selected(address, address);
	}
}

TEST_F(SummaryWrite, EndsTheTextAtItsFirstNul)
{
	expect_selected("all\0"s, "all");
	expect_selected("all\0mirel"s, "all");
	expect_selected("wlan-3-8\0\0\0\0"s, "wlan-3-8");
	expect_refused("\0all"s, "iface() is wrong!");
	expect_refused("wlan-\0001-1"s, "sscanf iface(wlan-) failed!");
}

TEST_F(SummaryWrite, ReplacesALongerSelectionWhole)
{
	expect_selected("wlan-1-1 and so on.", "wlan-1-1 and so on.");
	expect_selected("all", "all");
	for (size_t i = 3; i < sizeof(summary_target); ++i) {
		EXPECT_EQ(summary_target[i], '\0') << i;
	}
}

TEST_F(SummaryWrite, LogsTheSelectionAtDebugLevel3)
{
	debug_level = 3;
	EXPECT_EQ(write("192.0.2.1\n"), 10);
	EXPECT_NUMBERLESS_LOG(debug_line("summary_write [N]: summary_target:192.0.2.1\n\n"));
	debug_level = 2;
	EXPECT_EQ(write("all"), 3);
	EXPECT_NO_LOG();
}

TEST_F(SummaryWrite, ClearsTheMarksOfEveryEntryAndEveryName)
{
	const Ipv4Address first = ipv4(0, 0, 0, 0);
	const Ipv4Address last = ipv4(255, 255, 0, 1);
	const Ipv4Address outside = ipv4(192, 0, 2, 2);
	add(first, "a.example", 1);
	add(first, "b.example", 1);
	add(last, "c.example", 1);
	add(outside, "d.example", 0);
	for (const Ipv4Address ip : {first, last, outside, server}) {
		entry_of(ip)->is_dump = 1;
		for (fqdn_node &node : entry_of(ip)->fqdn_list) {
			node.is_dump = 1;
		}
	}
	// The same selection again, of which none of them is a part.
	EXPECT_EQ(write("mirel"), 5);
	EXPECT_EQ(marks_of(first), (Marks{0, 0, 0}));
	EXPECT_EQ(marks_of(last), (Marks{0, 0}));
	EXPECT_EQ(marks_of(outside), (Marks{0, 0}));
	EXPECT_EQ(marks_of(server), (Marks{0, 0}));
}

TEST_F(SummaryWrite, ClearsAllMarksInOneHoldOfTheCachesLock)
{
	const uint64_t cache = machine.locks.acquisitions(CP_LOCK_DNS_LIST);
	EXPECT_EQ(write("all"), 3);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_DNS_LIST), cache + 1);
}

TEST_F(SummaryWrite, NeedsNoMemory)
{
	machine.memory.fail_all_allocations(true);
	EXPECT_EQ(write("all"), 3);
	EXPECT_STREQ(summary_target, "all");
	machine.memory.fail_all_allocations(false);
}

// ---- Refusals -------------------------------------------------------------------------------------------------------

TEST_F(SummaryWrite, RefusesInterfacesWithoutTwoNumbers)
{
	for (const std::string text : {"wlan-x", "wlan", "wlan-", "wlan-1", "wlan-1-", "wlan-1-x", "wlan1-1", "wlan--",
				       "wlan-+1-1", "wlan-1 -1", "wlanwlan-1-1", "wlan 1-1"}) {
		expect_refused(text, "sscanf iface(" + text + ") failed!");
	}
}

TEST_F(SummaryWrite, RefusesInterfacesOutOfRange)
{
	for (const std::string text :
	     {"wlan-4-1", "wlan-0-1", "wlan-3-9", "wlan-1-0", "wlan-1--1", "wlan--1-1", "wlan-1-99", "wlan-99-1"}) {
		expect_refused(text, "iface(" + text + ") is wrong!");
	}
}

TEST_F(SummaryWrite, RefusesAddressesOutOfRange)
{
	for (const std::string text : {"10.0.0.256", "256.0.0.1", "10.256.0.1", "10.0.-1.1", "10.0.0.-1",
				       "300.300.300.300", "10.0.0.99999999999"}) {
		expect_refused(text, "ip address(" + text + ") is wrong!");
	}
	// 2^32 + 1 is cut to 1.
	expect_selected("10.0.0.4294967297", "10.0.0.4294967297");
}

TEST_F(SummaryWrite, RefusesEverythingElse)
{
	for (const std::string text : {"All",      "ALL",       "al", "all ", " all",     "allx",      "mirel2",
				       "mire",     "MIREL",     "x",  "eth0", "10.0.0",   "10.0.0.",   "10.0.0.x",
				       "10,0,0,1", "10 .0.0.1", "1",  ".",    "Wlan-1-1", " wlan-1-1", "a.b.c.d"}) {
		expect_refused(text, "iface(" + text + ") is wrong!");
	}
}

TEST_F(SummaryWrite, RefusesALineEndBehindAllAndMirel)
{
	expect_refused("all\n", "iface(all\n) is wrong!");
	expect_refused("mirel\n", "iface(mirel\n) is wrong!");
	expect_refused("\n", "iface(\n) is wrong!");
}

TEST_F(SummaryWrite, RefusesWritesOfNothing)
{
	expect_refused("", "iface() is wrong!");
	EXPECT_EQ(machine.proc_write(refused_address, 0), -22);
	EXPECT_NUMBERLESS_LOG(error_line("summary_write [N]: iface() is wrong!\n"));
}

TEST_F(SummaryWrite, RefusesAloudAtDebugLevel0)
{
	debug_level = 0;
	expect_refused("x", "iface(x) is wrong!");
}

// ---- Lengths --------------------------------------------------------------------------------------------------------

TEST_F(SummaryWrite, TakesOneCharacter)
{
	expect_refused("a", "iface(a) is wrong!");
}

TEST_F(SummaryWrite, Takes19Characters)
{
	expect_selected("wlan-1-1-----------", "wlan-1-1-----------");
	expect_selected("192.0.2.1, for one.", "192.0.2.1, for one.");
	EXPECT_EQ(summary_target[19], '\0');
}

TEST_F(SummaryWrite, RefusesMoreThan19WithTheFirst19)
{
	expect_refused("wlan-1-1-----------+", "iface(wlan-1-1-----------) is wrong!");
	expect_refused("192.0.2.1 01234567890", "iface(192.0.2.1 012345678) is wrong!");
	expect_refused("wlan-x" + std::string(14, 'y'), "iface(wlan-xyyyyyyyyyyyyy) is wrong!");
	expect_refused("10.0.0.256" + std::string(10, ' '), "iface(10.0.0.256         ) is wrong!");
	expect_refused(std::string(4096, 'z'), "iface(" + std::string(19, 'z') + ") is wrong!");
	expect_refused(std::string(1 << 20, 'z'), "iface(" + std::string(19, 'z') + ") is wrong!");
}

TEST_F(SummaryWrite, RefusesMoreThan19EvenIfTheTextEndsBefore)
{
	expect_refused("all"s + std::string(17, '\0'), "iface(all) is wrong!");
	expect_refused(std::string(20, '\0'), "iface() is wrong!");
}

// ---- Memory that cannot be read -------------------------------------------------------------------------------------

TEST_F(SummaryWrite, TakesMemoryThatCannotBeReadForAnEmptyText)
{
	for (const cp_user_address address : {refused_address, unmapped_address}) {
		for (const size_t count : {1u, 3u, 19u, 20u, 4096u}) {
			EXPECT_EQ(machine.proc_write(address, count), -22) << count;
			EXPECT_NUMBERLESS_LOG(error_line("summary_write [N]: iface() is wrong!\n"));
		}
	}
	UserBuffer buffer(machine, 3);
	buffer.write(std::as_bytes(std::span("all", 3)));
	buffer.protect_all(UserAccess::none);
	EXPECT_EQ(machine.proc_write(buffer.address(), 3), -22);
	EXPECT_NUMBERLESS_LOG(error_line("summary_write [N]: iface() is wrong!\n"));
	EXPECT_STREQ(summary_target, "mirel");
}

TEST_F(SummaryWrite, ReadsThroughMemoryThatCannotBeWritten)
{
	UserBuffer buffer(machine, 3);
	buffer.write(std::as_bytes(std::span("all", 3)));
	buffer.protect_all(UserAccess::read_only);
	EXPECT_EQ(machine.proc_write(buffer.address(), 3), 3);
	EXPECT_STREQ(summary_target, "all");
}

// What lies before the border was copied, as from a record.
TEST_F(SummaryWrite, TakesWhatCannotBeReadBehindABorderForNuls)
{
	UserBuffer buffer(machine, 8, 3, UserAccess::none);
	buffer.write(std::as_bytes(std::span("allmirel", 8)));
	EXPECT_EQ(machine.proc_write(buffer.address(), 8), 8);
	EXPECT_STREQ(summary_target, "all");
	UserBuffer cut(machine, 8, 6, UserAccess::none);
	cut.write(std::as_bytes(std::span("wlan-1-1", 8)));
	EXPECT_EQ(machine.proc_write(cut.address(), 8), -22);
	EXPECT_NUMBERLESS_LOG(error_line("summary_write [N]: sscanf iface(wlan-1) failed!\n"));
}

// Every byte that a text may have in its first places, and none harms.
TEST_F(SummaryWrite, AcceptsNothingElseByAccident)
{
	UserBuffer buffer(machine, 2);
	for (int first = 0; first < 256; ++first) {
		for (int second = 0; second < 256; ++second) {
			const char text[] = {static_cast<char>(first), static_cast<char>(second)};
			buffer.write(std::as_bytes(std::span(text)));
			EXPECT_EQ(machine.proc_write(buffer.address(), 2), -22);
		}
	}
	EXPECT_STREQ(summary_target, "mirel");
}

} // namespace

} // namespace captive_portal::test
