// SPDX-License-Identifier: GPL-2.0-only
// Readers of the client index beside commands, on real threads: no frame sees a change half done, whatever the index does
// to make room meanwhile.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <vector>

#include "base/interface_name.h"
#include "platform/host/read_sections.h"
#include "platform/platform.h"
#include "tests/support/cast.h"
#include "tests/support/frame_builder.h"
#include "tests/support/packets.h"
#include "tests/unit/gatekeeper_commands_fixture.h"

namespace captive_portal::test
{

namespace
{

gk_cmd change(uint32_t number, std::string_view iface, uint32_t address)
{
	gk_cmd record = record_of(number, iface);
	const uint8_t mac[] = {0x02,
			       0x41,
			       0,
			       static_cast<uint8_t>(address >> 16),
			       static_cast<uint8_t>(address >> 8),
			       static_cast<uint8_t>(address)};
	std::copy(std::begin(mac), std::end(mac), record.mac);
	return record;
}

ClientStanding standing_of_station(uint32_t row)
{
	const host::ReadSection section;
	return standing_of(station_mac.word(), row);
}

class ClientIndexThreads : public GatekeeperCommands
{
protected:
	void SetUp() override
	{
		GatekeeperCommands::SetUp();
		machine.log.keep(false);
	}

	// Runs `look` on two threads, over and over, while `write` runs on this one.
	void read_while(const std::function<void()> &look, const std::function<void()> &write)
	{
		std::atomic<bool> done = false;
		std::atomic<uint64_t> looks = 0;
		std::vector<std::thread> readers;
		for (int i = 0; i < 2; ++i) {
			readers.emplace_back([&] {
				while (!done) {
					look();
					++looks;
				}
			});
		}
		while (looks < 10) {
			std::this_thread::yield();
		}
		write();
		done = true;
		for (std::thread &reader : readers) {
			reader.join();
		}
	}

	void add_others(uint32_t count)
	{
		for (uint32_t number = 0; number < count; ++number) {
			run(change(ADD_LOGIN_MAC, number % 2 == 0 ? "wlan-1-2" : "wlan-3-7", number));
		}
	}
};

TEST_F(ClientIndexThreads, AListedClientStaysListedWhileTheIndexGrowsAndShrinks)
{
	run(record_of(ADD_LOGIN_MAC, "wlan-1-1"));
	run(record_of(ADD_MIREL_BLACK_LIST_MAC, ""));
	std::atomic<uint64_t> wrong = 0;
	read_while(
		[&] {
			const ClientStanding standing = standing_of_station(0);
			wrong += standing.lists().bits != (ClientLists::login | ClientLists::mirel_black) ? 1 : 0;
			wrong += standing_of_station(1).lists().bits != ClientLists::mirel_black ? 1 : 0;
		},
		[&] {
			for (int round = 0; round < 4; ++round) {
				add_others(400);
				if (round % 2 == 0) {
					run(record_of(FLUSH_CAPTIVE_PORTAL_TABLE, "wlan-1-2"));
					run(record_of(FLUSH_CAPTIVE_PORTAL_TABLE, "wlan-3-7"));
				}
				for (uint32_t number = 0; number < 400; ++number) {
					run(change(DEL_LOGIN_MAC, number % 2 == 0 ? "wlan-1-2" : "wlan-3-7", number));
				}
				// One address more makes the index smaller.
				run(change(ADD_LOGIN_MAC, "wlan-2-2", 5000 + static_cast<uint32_t>(round)));
			}
		});
	EXPECT_EQ(wrong, 0U);
}

// Whoever has seen one interface flushed does not see another that is not.
TEST_F(ClientIndexThreads, AFlushOfAllIsNeverSeenHalfDone)
{
	// Odd while the station is being put on the lists.
	std::atomic<uint64_t> phase = 1;
	std::atomic<uint64_t> wrong = 0;
	std::atomic<uint64_t> judged = 0;
	constexpr uint32_t rows[] = {0, 11, 12, 23};
	read_while(
		[&] {
			const uint64_t before = phase;
			if (before % 2 != 0) {
				return;
			}
			bool flushed = false;
			bool half_done = false;
			for (const uint32_t row : {0U, 23U, 11U, 12U, 0U}) {
				const uint32_t seen = standing_of_station(row).lists().bits;
				half_done = half_done || (seen != 0 && seen != ClientLists::of_row) ||
					    (flushed && seen != 0);
				flushed = flushed || seen == 0;
			}
			if (phase == before) {
				wrong += half_done ? 1 : 0;
				judged += flushed ? 1 : 0;
			}
		},
		[&] {
			for (int round = 0; round < 30 || (judged < 20 && round < 3000); ++round) {
				add_others(60);
				for (const uint32_t row : rows) {
					char name[CP_INTERFACE_NAME_SIZE];
					format_interface_name_of_index(name, row);
					list_station_everywhere(name);
				}
				++phase;
				run(record_of(FLUSH_CAPTIVE_PORTAL_TABLE, "all"));
				std::this_thread::yield();
				++phase;
			}
		});
	EXPECT_EQ(wrong, 0U);
	EXPECT_GT(judged, 0U);
	EXPECT_TRUE(machine.live_allocations().empty());
}

// The behaviour that is there meanwhile would drop it.
TEST_F(ClientIndexThreads, AFrameThatMeetsAWriterIsJudgedByWhatTheWriterLeaves)
{
	std::atomic<bool> writes = false;
	std::atomic<int> verdict = -1;
	std::thread bridge([&] {
		while (!writes) {
			std::this_thread::yield();
		}
		host::PacketBuffer packet =
			packet_of(frame().from(client_of_wlan_1_1).to(upstream_server).tcp(51000, 443).syn());
		packet.in_name = "wlan-1-1";
		verdict = host::run_hook(ebt_gate_keeper, packet);
	});
	{
		const MutexGuard alone(Mutex::clients);
		const ClientWriteSection section;
		store_word_release(ovra_behavior[0].behavior, 3U);
		store_word_release(ovra_behavior[0].status, 2U);
		writes = true;
		// Time for the frame to look twice and to wait for the lock.
		std::this_thread::sleep_for(std::chrono::milliseconds(20));
		store_word_release(ovra_behavior[0].behavior, 1U);
	}
	bridge.join();
	EXPECT_EQ(verdict, CP_ACCEPT);
}

TEST_F(ClientIndexThreads, AClientThatBecomesWhiteIsNeverOnNeitherList)
{
	run(record_of(ADD_MIREL_BLACK_LIST_MAC, ""));
	std::atomic<uint64_t> wrong = 0;
	read_while([&] { wrong += standing_of_station(5).lists().bits == 0 ? 1 : 0; },
		   [&] {
			   for (int round = 0; round < 300; ++round) {
				   run(record_of(ADD_MIREL_WHITE_LIST_MAC, ""));
				   run(record_of(ADD_MIREL_BLACK_LIST_MAC, ""));
			   }
		   });
	EXPECT_EQ(wrong, 0U);
}

TEST_F(ClientIndexThreads, ABehaviorIsNeverSeenWithTheStatusOfAnother)
{
	std::atomic<uint64_t> wrong = 0;
	// Odd behaviours come with OVRA_DISCONNECTED.
	set_behavior(machine, "wlan-1-1", 2, 1);
	read_while(
		[&] {
			const ClientStanding standing = standing_of_station(0);
			wrong += standing.is_disconnected() != (standing.behavior() % 2 != 0) ? 1 : 0;
		},
		[&] {
			for (uint32_t round = 0; round < 600; ++round) {
				set_behavior(machine, "wlan-1-1", round, round % 2 != 0 ? OVRA_DISCONNECTED : 1);
			}
		});
	EXPECT_EQ(wrong, 0U);
}

TEST_F(ClientIndexThreads, CommandsOfManyThreadsKeepListsAndIndexTogether)
{
	std::vector<std::thread> writers;
	for (uint32_t writer = 0; writer < 3; ++writer) {
		writers.emplace_back([this, writer] {
			for (uint32_t round = 0; round < 150; ++round) {
				run(change(ADD_LOGIN_MAC, "wlan-1-1", round));
				run(change(ADD_WHITELIST_MAC, "wlan-1-1", round + writer));
				run(change(DEL_LOGIN_MAC, "wlan-1-1", round / 2));
				gk_check_reply check{};
				check.cmd = CHECK_LOGIN_MAC;
				set_text(check.iface, "wlan-1-1");
				check_gatekeeper_list(check);
			}
		});
	}
	for (std::thread &writer : writers) {
		writer.join();
	}
	for (uint32_t number = 0; number < 160; ++number) {
		const MacAddress mac = MacAddress::from(change(0, "", number).mac);
		const host::ReadSection section;
		const ClientLists seen = standing_of(mac.word(), 0).lists();
		EXPECT_EQ(seen.has(ClientLists::login), login_mac_table[0].list.contains(mac)) << number;
		EXPECT_EQ(seen.has(ClientLists::white), white_list[0].list.contains(mac)) << number;
	}
}

} // namespace

} // namespace captive_portal::test
