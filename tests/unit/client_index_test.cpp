// SPDX-License-Identifier: GPL-2.0-only
// The index against a naive set, its memory, and what readers see of it. All of it through the commands.
#include "gatekeeper/client_index.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <map>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/interface_name.h"
#include "platform/host/context.h"
#include "platform/host/read_sections.h"
#include "platform/platform.h"
#include "tests/support/cast.h"
#include "tests/support/frame_builder.h"
#include "tests/unit/gatekeeper_commands_fixture.h"

namespace captive_portal::test
{

namespace
{

// So many addresses have room without any memory of their own.
constexpr uint32_t first_addresses = 50;

struct ListCommands {
	uint32_t add;
	uint32_t remove;
	uint32_t list;
	ClientLists::List name;
	bool of_row;
};

constexpr std::array<ListCommands, 7> lists = {{
	{ADD_LOGIN_MAC, DEL_LOGIN_MAC, GET_LOGIN_MAC, ClientLists::login, true},
	{ADD_AUTH_MAC, DEL_AUTH_MAC, GET_AUTH_MAC, ClientLists::auth, true},
	{ADD_WHITELIST_MAC, DEL_WHITELIST_MAC, GET_WHITELIST_MAC, ClientLists::white, true},
	{ADD_GA_WHITELIST_MAC, DEL_GA_WHITELIST_MAC, GET_GA_WHITELIST_MAC, ClientLists::ga_white, true},
	{ADD_MAC_AUTH_FALLBACK, DEL_MAC_AUTH_FALLBACK, GET_MAC_AUTH_FALLBACK, ClientLists::fallback, true},
	{ADD_MIREL_WHITE_LIST_MAC, DEL_MIREL_WHITE_LIST_MAC, GET_MIREL_WHITE_LIST_MAC, ClientLists::mirel_white, false},
	{ADD_MIREL_BLACK_LIST_MAC, DEL_MIREL_BLACK_LIST_MAC, GET_MIREL_BLACK_LIST_MAC, ClientLists::mirel_black, false},
}};

MacAddress address(uint32_t number)
{
	return {{0x02, 0x40, static_cast<uint8_t>(number >> 24), static_cast<uint8_t>(number >> 16),
		 static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)}};
}

std::string name_of_row(uint32_t row)
{
	char name[CP_INTERFACE_NAME_SIZE];
	format_interface_name_of_index(name, row);
	return name;
}

gk_cmd change(uint32_t number, std::string_view iface, const MacAddress &mac)
{
	gk_cmd record = record_of(number, iface);
	std::copy(std::begin(mac.bytes), std::end(mac.bytes), record.mac);
	return record;
}

uint32_t lists_seen(const MacAddress &mac, uint32_t row)
{
	const host::ReadSection section;
	return standing_of(mac.word(), row).lists().bits;
}

class ClientIndexTest : public GatekeeperCommands
{
protected:
	void SetUp() override
	{
		GatekeeperCommands::SetUp();
		machine.log.keep(false);
	}

	void add_login(uint32_t first, uint32_t count)
	{
		for (uint32_t number = first; number < first + count; ++number) {
			run(change(ADD_LOGIN_MAC, "wlan-1-1", address(number)));
		}
	}

	// Bytes of large memory that is allocated: the index has all of it.
	[[nodiscard]] size_t index_bytes() const
	{
		size_t bytes = 0;
		for (const host::Allocation &allocation : machine.live_allocations()) {
			bytes += allocation.large ? allocation.size : 0;
		}
		return bytes;
	}
};

// What the lists hold, kept in the simplest way.
struct NaiveLists {
	// By list and row: addresses in the order of adding.
	std::map<std::pair<uint32_t, uint32_t>, std::vector<uint32_t>> lists;

	void remove_first(uint32_t name, uint32_t row, uint32_t number)
	{
		std::vector<uint32_t> &list = lists[{name, row}];
		const auto found = std::find(list.begin(), list.end(), number);
		if (found != list.end()) {
			list.erase(found);
		}
	}

	[[nodiscard]] uint32_t seen(uint32_t number, uint32_t row) const
	{
		uint32_t bits = 0;
		for (const ListCommands &kind : ::captive_portal::test::lists) {
			const auto found = lists.find({kind.name, kind.of_row ? row : 0});
			if (found != lists.end() &&
			    std::find(found->second.begin(), found->second.end(), number) != found->second.end()) {
				bits |= kind.name;
			}
		}
		return bits;
	}
};

TEST_F(ClientIndexTest, SaysOfEveryAddressAndRowWhatTheListsHold)
{
	for (const uint32_t addresses : {6U, 80U, 600U}) {
		std::minstd_rand dice(addresses);
		NaiveLists naive;
		for (uint32_t step = 0; step < 4000; ++step) {
			const ListCommands &kind = lists[dice() % lists.size()];
			const uint32_t row = kind.of_row ? dice() % CP_WIRELESS_INTERFACES : 0;
			const uint32_t number = dice() % addresses;
			const uint32_t what = dice() % 256;
			if (what == 0) {
				run(record_of(FLUSH_CAPTIVE_PORTAL_TABLE, "all"));
				std::erase_if(naive.lists, [](const auto &entry) {
					return (entry.first.first & ClientLists::of_row) != 0;
				});
			} else if (what == 1) {
				run(record_of(FLUSH_GA_WHITELIST_TABLE, name_of_row(row)));
				naive.lists.erase({ClientLists::ga_white, row});
			} else if (what == 2) {
				run(record_of(FLUSH_MAC_AUTH_FALLBACK, "all"));
				std::erase_if(naive.lists, [](const auto &entry) {
					return entry.first.first == ClientLists::fallback;
				});
			} else if (what % 5 < 3) {
				run(change(kind.add, name_of_row(row), address(number)));
				if (kind.name == ClientLists::mirel_white) {
					naive.remove_first(ClientLists::mirel_black, 0, number);
				}
				naive.lists[{kind.name, row}].push_back(number);
			} else {
				run(change(kind.remove, name_of_row(row), address(number)));
				if (kind.name == ClientLists::mirel_white) {
					naive.remove_first(ClientLists::mirel_black, 0, number);
				}
				naive.remove_first(kind.name, row, number);
			}
			ASSERT_EQ(lists_seen(address(number), row), naive.seen(number, row)) << step;
			if (step % 250 != 0) {
				continue;
			}
			for (uint32_t each = 0; each < addresses; ++each) {
				for (uint32_t each_row = 0; each_row < CP_WIRELESS_INTERFACES; ++each_row) {
					ASSERT_EQ(lists_seen(address(each), each_row), naive.seen(each, each_row))
						<< step << ' ' << each << ' ' << each_row;
				}
			}
			gk_list_reply reply{};
			reply.cmd = kind.list;
			set_text(reply.iface, name_of_row(row));
			get_gatekeeper_list(reply);
			std::vector<uint32_t> listed;
			for (uint32_t slot = 0; slot < reply.count; ++slot) {
				const uint8_t *const mac = reply.entries[slot].mac;
				listed.push_back(uint32_t{mac[4]} << 8 | mac[5]);
			}
			ASSERT_EQ(listed, (naive.lists[{kind.name, row}])) << step;
		}
		run(record_of(FLUSH_CAPTIVE_PORTAL_TABLE, "all"));
		clear_mirel_lists();
	}
	EXPECT_TRUE(machine.live_allocations().empty()) << "nothing is listed, so nothing is kept";
}

TEST_F(ClientIndexTest, KnowsAddressesOfZerosAndOfOnes)
{
	constexpr MacAddress zeros = {};
	constexpr MacAddress ones = {{0xff, 0xff, 0xff, 0xff, 0xff, 0xff}};
	EXPECT_EQ(lists_seen(zeros, 0), 0U);
	run(change(ADD_LOGIN_MAC, "wlan-1-1", zeros));
	EXPECT_EQ(lists_seen(zeros, 0), ClientLists::login);
	EXPECT_EQ(lists_seen(ones, 0), 0U);
	run(change(ADD_AUTH_MAC, "wlan-3-8", ones));
	EXPECT_EQ(lists_seen(ones, 23), ClientLists::auth);
	EXPECT_EQ(lists_seen(zeros, 23), 0U);
}

TEST_F(ClientIndexTest, SmallTablesNeedNoMemoryForIt)
{
	add_login(0, first_addresses);
	EXPECT_EQ(index_bytes(), 0U);
	add_login(first_addresses, 1);
	EXPECT_EQ(index_bytes(), 4096U);
}

// One address in one list each: a node of 16 bytes and 48 of the index, but for the last page.
TEST_F(ClientIndexTest, TakesAtMost48BytesForAnAddress)
{
	for (uint32_t number = 0; number < 6000; ++number) {
		add_login(number, 1);
		ASSERT_LE(index_bytes(), 48 * (number + 1) + 4096) << number;
	}
	for (uint32_t number = 0; number < 6000; ++number) {
		ASSERT_EQ(lists_seen(address(number), 0), ClientLists::login) << number;
	}
	run(record_of(FLUSH_CAPTIVE_PORTAL_TABLE, "all"));
	EXPECT_TRUE(machine.live_allocations().empty());
}

TEST_F(ClientIndexTest, WithoutItsMemoryAnAddFailsLikeOneWithoutANode)
{
	machine.log.keep(true);
	for (const ListCommands &kind : lists) {
		add_login(0, first_addresses);
		const size_t live = machine.live_allocations().size();
		const MacAddress mac = address(first_addresses);
		machine.log.clear();

		machine.memory.fail_allocation(1);
		run(change(kind.add, "wlan-1-1", mac));
		const std::vector<LogLine> without_node = machine.log.take();
		machine.memory.fail_allocation(2);
		run(change(kind.add, "wlan-1-1", mac));
		EXPECT_EQ(machine.log.take(), without_node);
		EXPECT_EQ(machine.live_allocations().size(), live) << "the node was given back";
		EXPECT_EQ(lists_seen(mac, 0), 0U);

		run(change(kind.add, "wlan-1-1", mac));
		EXPECT_EQ(lists_seen(mac, 0), kind.name);
		run(change(kind.remove, "wlan-1-1", mac));
		run(record_of(FLUSH_CAPTIVE_PORTAL_TABLE, "all"));
		EXPECT_TRUE(machine.live_allocations().empty());
	}
}

// A failed ADD of the MIREL white list leaves the black one: its steps after the allocation are not taken.
TEST_F(ClientIndexTest, WithoutItsMemoryABlackClientStaysBlack)
{
	add_login(0, first_addresses - 1);
	run(change(ADD_MIREL_BLACK_LIST_MAC, "", address(1000)));
	machine.memory.fail_allocation(1);
	run(change(ADD_MIREL_WHITE_LIST_MAC, "", address(1000)));
	EXPECT_EQ(lists_seen(address(1000), 0), ClientLists::mirel_black);
}

TEST_F(ClientIndexTest, DeletingAndFlushingNeedNoMemory)
{
	add_login(0, 300);
	const uint64_t attempts = machine.memory.attempts();
	for (uint32_t number = 0; number < 299; ++number) {
		run(change(DEL_LOGIN_MAC, "wlan-1-1", address(number)));
		ASSERT_EQ(lists_seen(address(number), 0), 0U);
	}
	EXPECT_EQ(lists_seen(address(299), 0), ClientLists::login);
	run(record_of(FLUSH_CAPTIVE_PORTAL_TABLE, "wlan-1-1"));
	EXPECT_EQ(machine.memory.attempts(), attempts);
	EXPECT_EQ(index_bytes(), 0U) << "and give it back when the last address is gone";
}

TEST_F(ClientIndexTest, ShrinksWhenMostAddressesAreGone)
{
	add_login(0, 3000);
	const size_t full = index_bytes();
	for (uint32_t number = 100; number < 3000; ++number) {
		run(change(DEL_LOGIN_MAC, "wlan-1-1", address(number)));
	}
	EXPECT_EQ(index_bytes(), full);
	add_login(5000, 1);
	EXPECT_LE(index_bytes(), 8192U);
	for (uint32_t number = 0; number < 100; ++number) {
		ASSERT_EQ(lists_seen(address(number), 0), ClientLists::login);
	}
	EXPECT_EQ(lists_seen(address(5000), 0), ClientLists::login);
}

TEST_F(ClientIndexTest, GoesOnWithTheLargerArrayWhenThereIsNoMemoryForASmallerOne)
{
	add_login(0, 3000);
	const size_t full = index_bytes();
	for (uint32_t number = 100; number < 3000; ++number) {
		run(change(DEL_LOGIN_MAC, "wlan-1-1", address(number)));
	}
	machine.memory.fail_allocation(2);
	add_login(5000, 1);
	EXPECT_EQ(index_bytes(), full);
	EXPECT_EQ(lists_seen(address(5000), 0), ClientLists::login);
}

// A reader that was stopped on its way may look at the first array while it is filled anew, and miss an address there.
TEST_F(ClientIndexTest, TellsReadersOfThePastBeforeItUsesTheFirstArrayAgain)
{
	add_login(0, 3000);
	for (uint32_t number = 10; number < 3000; ++number) {
		run(change(DEL_LOGIN_MAC, "wlan-1-1", address(number)));
	}
	const uint64_t count = client_sequence.begin_reading();
	uint32_t yields = 0;
	machine.threads.on_yield([&](uint64_t) {
		++yields;
		EXPECT_FALSE(client_sequence.was_quiet_since(count));
	});
	add_login(5000, 1);
	machine.threads.on_yield({});
	EXPECT_GT(yields, 0U) << "the array was copied";
	EXPECT_EQ(index_bytes(), 0U) << "into the first one";
	EXPECT_EQ(lists_seen(address(5000), 0), ClientLists::login);
}

// Addresses of commands that were refused after their node was made stay in the index, but not for ever.
TEST_F(ClientIndexTest, RefusedAddressesDoNotMakeItGrow)
{
	add_login(0, 20);
	for (uint32_t number = 0; number < 5000; ++number) {
		run(change(ADD_WHITELIST_MAC, "wlan-9-9", address(1000 + number)));
	}
	EXPECT_EQ(collect_lost(), 5000U);
	EXPECT_LE(index_bytes(), 4096U);
	for (uint32_t number = 0; number < 20; ++number) {
		EXPECT_EQ(lists_seen(address(number), 0), ClientLists::login);
	}
	EXPECT_EQ(lists_seen(address(1000), 0), 0U);
}

// Stations with a new address each day come and go.
TEST_F(ClientIndexTest, ChangingAddressesDoNotMakeItGrow)
{
	for (uint32_t number = 0; number < 5000; ++number) {
		add_login(number, 1);
		if (number >= 60) {
			run(change(DEL_LOGIN_MAC, "wlan-1-1", address(number - 60)));
		}
		ASSERT_LE(index_bytes(), 8192U);
	}
	for (uint32_t number = 0; number < 5000; ++number) {
		ASSERT_EQ(lists_seen(address(number), 0), number >= 4940 ? ClientLists::login : 0U) << number;
	}
}

TEST_F(ClientIndexTest, GivesItsMemoryBackAtStop)
{
	add_login(0, 200);
	EXPECT_NE(index_bytes(), 0U);
	ASSERT_EQ(machine.unload(), 0);
	EXPECT_EQ(index_bytes(), 0U);
	EXPECT_EQ(machine.live_allocations().size(), 200U) << "deliberate: the lists' nodes stay";
	ASSERT_EQ(machine.load(), 0);
	EXPECT_TRUE(machine.live_allocations().empty()) << "a start frees what it finds";
	EXPECT_EQ(lists_seen(address(0), 0), 0U);
	add_login(0, 200);
	EXPECT_EQ(lists_seen(address(0), 0), ClientLists::login);
}

// While a flush clears the index address by address, all of what it flushes reads as empty, and nothing else.
TEST_F(ClientIndexTest, AFlushIsSeenWholeWhileItClearsOneAddressAfterTheOther)
{
	constexpr uint32_t clients = 600;
	for (uint32_t number = 0; number < clients; ++number) {
		run(change(ADD_GA_WHITELIST_MAC, "wlan-1-1", address(number)));
		run(change(ADD_GA_WHITELIST_MAC, "wlan-2-5", address(number)));
		run(change(ADD_LOGIN_MAC, "wlan-1-1", address(number)));
		run(change(ADD_LOGIN_MAC, "wlan-2-5", address(number)));
	}
	uint32_t looks = 0;
	std::array<uint32_t, 2> expected = {};
	machine.threads.on_yield([&](uint64_t) {
		++looks;
		for (uint32_t number = 0; number < clients; number += 7) {
			EXPECT_EQ(lists_seen(address(number), 0), expected[0]);
			EXPECT_EQ(lists_seen(address(number), 12), expected[1]);
		}
	});
	expected = {ClientLists::login, ClientLists::login | ClientLists::ga_white};
	run(record_of(FLUSH_GA_WHITELIST_TABLE, "wlan-1-1"));
	EXPECT_EQ(looks, 2U);
	expected = {ClientLists::login, ClientLists::login};
	run(record_of(FLUSH_GA_WHITELIST_TABLE, "all"));
	EXPECT_EQ(looks, 4U);
	expected = {0, 0};
	run(record_of(FLUSH_CAPTIVE_PORTAL_TABLE, "all"));
	EXPECT_EQ(looks, 8U);
	machine.threads.on_yield({});
}

// A frame asks in line, and learns of the flush from the sequence count alone: the row that is disconnected drops it.
TEST_F(ClientIndexTest, AFrameMeetsAFlushWhole)
{
	constexpr uint32_t clients = 600;
	add_login(0, clients);
	set_behavior(machine, "wlan-1-1", OVRA_PASS_DHCP, OVRA_DISCONNECTED);
	const auto verdict = [](uint32_t number) {
		Host client = client_of_wlan_1_1;
		const MacAddress mac = address(number);
		std::copy(std::begin(mac.bytes), std::end(mac.bytes), client.mac.begin());
		host::PacketBuffer packet(frame().from(client).to(upstream_server).tcp(51000, 443));
		packet.in_name = "wlan-1-1";
		return host::run_hook(ebt_gate_keeper, packet);
	};
	ASSERT_EQ(verdict(0), CP_ACCEPT);
	uint32_t looks = 0;
	machine.threads.on_yield([&](uint64_t) {
		++looks;
		std::thread bridge([&] {
			for (uint32_t number = 0; number < clients; ++number) {
				EXPECT_EQ(verdict(number), CP_DROP) << number;
			}
		});
		bridge.join();
	});
	run(record_of(FLUSH_CAPTIVE_PORTAL_TABLE, "wlan-1-1"));
	machine.threads.on_yield({});
	EXPECT_EQ(looks, 2U);
	EXPECT_TRUE(client_sequence.was_plain_since(client_sequence.begin_reading()))
		<< "frames after the flush need not look for it";
}

// Rows share words with their neighbours.
TEST_F(ClientIndexTest, AFlushOfARowLeavesTheOthers)
{
	for (uint32_t row = 0; row < CP_WIRELESS_INTERFACES; ++row) {
		list_station_everywhere(name_of_row(row));
	}
	run(change(ADD_MIREL_WHITE_LIST_MAC, "", station_mac));
	run(change(ADD_MIREL_BLACK_LIST_MAC, "", station_mac));
	std::set<uint32_t> flushed;
	for (const uint32_t row : {11U, 12U, 0U, 23U}) {
		run(record_of(FLUSH_CAPTIVE_PORTAL_TABLE, name_of_row(row)));
		flushed.insert(row);
		for (uint32_t each = 0; each < CP_WIRELESS_INTERFACES; ++each) {
			EXPECT_EQ(lists_seen(station_mac, each),
				  (flushed.contains(each) ? 0U : ClientLists::of_row) | ClientLists::of_all_rows);
		}
	}
}

TEST_F(ClientIndexTest, ACommandHoldsTheMutexOnceFromItsFirstStepOn)
{
	uint32_t held = 0;
	machine.memory.before_atomic_allocation([&held](size_t) { held = host::held_mutexes(); });
	const uint64_t before = machine.mutexes.acquisitions(CP_MUTEX_CLIENTS);
	run(change(ADD_WHITELIST_MAC, "wlan-1-1", station_mac));
	EXPECT_EQ(held, 1U << CP_MUTEX_CLIENTS);
	EXPECT_EQ(machine.mutexes.acquisitions(CP_MUTEX_CLIENTS), before + 1);
	run(change(DEL_WHITELIST_MAC, "wlan-1-1", station_mac));
	run(record_of(FLUSH_CAPTIVE_PORTAL_TABLE, "all"));
	EXPECT_EQ(machine.mutexes.acquisitions(CP_MUTEX_CLIENTS), before + 3);
	machine.memory.before_atomic_allocation({});
}

TEST_F(ClientIndexTest, AReaderThatMeetsAWriterSeesWhatTheWriterLeaves)
{
	std::atomic<bool> writes = false;
	std::atomic<uint32_t> seen = 0;
	std::thread reader([&] {
		while (!writes) {
			std::this_thread::yield();
		}
		const host::ReadSection section;
		seen = standing_of(station_mac.word(), 0).behavior();
	});
	const uint64_t before = holds();
	{
		const MutexGuard alone(Mutex::clients);
		const ClientWriteSection section;
		store_word_release(ovra_behavior[0].behavior, 6U);
		writes = true;
		// Time for the reader to look twice and to wait for the lock.
		std::this_thread::sleep_for(std::chrono::milliseconds(20));
		store_word_release(ovra_behavior[0].behavior, 7U);
	}
	reader.join();
	EXPECT_EQ(seen, 7U);
	EXPECT_LE(holds() - before, 2U) << "the writer's, and the reader's if it came in time";
}

} // namespace

} // namespace captive_portal::test
