// SPDX-License-Identifier: GPL-2.0-only
// A machine whose hooks, commands, start and stop run at once, on real threads.
#pragma once

#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "tests/unit/concurrent_work.h"

namespace captive_portal::test
{

using Work = void (*)(host::Machine &, Dice &);

// One thread each.
inline constexpr Work traffic[] = {send_request, send_request, send_reply, send_reply, send_other};
// Beside those, where the cache is in use as well.
inline constexpr Work more_traffic[] = {send_request_of_crowd, send_answer};
inline constexpr Work commands[] = {portal_commands, garden_commands, gatekeeper_commands, crowd_commands,
				    environment_commands};

class Concurrency : public ::testing::Test
{
protected:
	Concurrency()
	{
		build_access_point(machine);
		machine.log.keep(false);
		machine.hooks.add_firewall_rule(host::pre_routing_hook, -315, [this](host::PacketBuffer &packet) {
			const uint32_t turn = turns_.fetch_add(1, std::memory_order_relaxed) % 16;
			if (turn == 7) {
				packet.mark = MARK_REPUTATION_FIRST + turn;
			} else if (turn == 9) {
				packet.mark = MARK_LOGOUT;
			}
			return CP_ACCEPT;
		});
	}
	~Concurrency() override { stop_traffic(); }

	// Traffic until stop_traffic(), and a bridge that changes its address and its MAC meanwhile.
	void start_traffic()
	{
		unsigned seed = 0;
		for (const Work work : traffic) {
			start_frames(work, ++seed);
		}
		start([this, now = false]() mutable {
			const Host &host = (now = !now) ? moved_access_point : access_point;
			machine.devices.put("br0", {.mac = host.mac, .ipv4 = {{host.address.raw}}});
			std::this_thread::yield();
		});
	}

	void stop_traffic()
	{
		done_ = true;
		for (std::thread &thread : threads_) {
			thread.join();
		}
		threads_.clear();
	}

	// The module with portals in three modes, a MIREL portal, a logout address and a logged-in client.
	void load_and_configure()
	{
		load_module(machine);
		set_portal(machine, CAPTIVE_PORTAL, 0, CP_MODE_ON);
		set_portal(machine, CAPTIVE_PORTAL, 1, CP_MODE_INTERNET_PASSES);
		set_portal(machine, CAPTIVE_PORTAL, 23, CP_MODE_DROP_TCP);
		set_portal(machine, CAPTIVE_PORTAL_MIREL, 0, CP_MODE_ON);
		set_portal(machine, DNS_FILTER_ENABLE, 0, 1);
		set_logout_address(machine, 0, "1.2.3.4");
		change_clients(machine, ADD_LOGIN_MAC, "wlan-1-1", second_client_of_wlan_1_1.mac);
		change_clients(machine, ADD_MIREL_BLACK_LIST_MAC, "wlan-1-1", client_of_wlan_1_2.mac);
	}

	// One process: opens the device, issues `rounds` of each kind of command on a thread of its own, and closes it. The
	// kernel lets no stop begin while the device is open; the close itself is under none of its locks.
	void run_process(int rounds, std::atomic<bool> *commands_ended = nullptr)
	{
		{
			const std::lock_guard guard(file_layer_);
			const int result = machine.open();
			if (result != 0) {
				EXPECT_TRUE(result == -6 || result == -16) << result;
				return;
			}
		}
		std::vector<std::thread> threads;
		unsigned seed = 100;
		for (const Work work : commands) {
			threads.emplace_back([this, work, rounds, dice = Dice(++seed)]() mutable {
				for (int i = 0; i < rounds; ++i) {
					work(machine, dice);
					++command_turns_;
				}
			});
		}
		for (std::thread &thread : threads) {
			thread.join();
		}
		if (commands_ended != nullptr) {
			*commands_ended = true;
		}
		EXPECT_EQ(machine.release(), 0);
	}

	[[nodiscard]] int unload()
	{
		const std::lock_guard guard(file_layer_);
		return machine.unload();
	}

	void wait_for_frames(uint64_t more)
	{
		const uint64_t end = frames_ + more;
		while (frames_ < end) {
			std::this_thread::yield();
		}
	}

	// Runs the step again and again until stop_traffic().
	template <typename Step> void start(Step step)
	{
		threads_.emplace_back([this, step = std::move(step)]() mutable {
			while (!done_) {
				step();
			}
		});
	}
	void start_frames(Work work, unsigned seed)
	{
		start([this, work, dice = Dice(seed)]() mutable {
			work(machine, dice);
			++frames_;
		});
	}

	[[nodiscard]] uint64_t frames() const { return frames_; }
	// Turns of all kinds of commands.
	[[nodiscard]] uint64_t command_turns() const { return command_turns_; }

	host::Machine machine;

private:
	std::mutex file_layer_;
	std::vector<std::thread> threads_;
	std::atomic<bool> done_ = false;
	std::atomic<uint64_t> frames_ = 0;
	std::atomic<uint64_t> command_turns_ = 0;
	std::atomic<uint32_t> turns_ = 0;
};

} // namespace captive_portal::test
