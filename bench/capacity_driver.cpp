// SPDX-License-Identifier: GPL-2.0-only
// Figures that are no cost of one operation, as JSON: memory of each entry, and what two processors do at once.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <optional>
#include <thread>
#include <vector>

#include "bench/frames.h"
#include "bench/light_memory.h"
#include "bench/states.h"

namespace
{

using namespace captive_portal;
using namespace captive_portal::bench;
using test::ipv4;
using Clock = std::chrono::steady_clock;

// ---- Memory, by slab sizes ----

double bytes_of_client()
{
	restart_module();
	const int64_t before = live_block_bytes();
	fill_clients(full_client_list);
	constexpr double clients = full_client_list * (CP_WIRELESS_INTERFACES * 5 + 2);
	return static_cast<double>(live_block_bytes() - before) / clients;
}

// Recorded as frames record them, so that an index is there too.
double bytes_of_connection()
{
	constexpr uint32_t connections = 4096;
	restart_module();
	set_all_portals(CP_MODE_ON);
	const int64_t before = live_block_bytes();
	FlatPacket packet;
	for (uint32_t number = 0; number < connections; ++number) {
		const Client client = connection_client(number);
		const Frame syn = frame().from({{0x02, 0x11, 1, 1, 1, 0}, client.address})
					  .to({router, ipv4(203, 0, 113, 10)})
					  .tcp(client.port.host(), 80)
					  .syn();
		packet.arrive(syn, "wlan-1-1", nullptr);
		static_cast<void>(incoming.at_pre_routing[0](packet.view(), packet.ports()));
		require(incoming.at_pre_routing[1](packet.view(), packet.ports()) == CP_ACCEPT && packet.is_for_host(),
			"a SYN was not redirected");
	}
	return static_cast<double>(live_block_bytes() - before) / connections;
}

// ---- Two processors ----

struct Rate {
	double runs_per_second; // of processor time, all threads together
	bool undisturbed;       // each thread had a processor nearly all the time
};

double thread_seconds()
{
	timespec now;
	clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
	return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Runs `body(thread)` over and over on so many threads for a while.
template <typename Body> Rate measure_rate(unsigned threads, const Body &body)
{
	constexpr std::chrono::duration<double> duration(0.005);
	constexpr unsigned runs_between_looks = 256;
	std::atomic<unsigned> ready = 0;
	std::atomic<bool> stop = false;
	std::vector<Rate> rates(threads);
	std::vector<std::thread> running;
	for (unsigned thread = 0; thread < threads; ++thread) {
		running.emplace_back([&, thread] {
			++ready;
			while (ready.load() < threads) {
			}
			const Clock::time_point start = Clock::now();
			const double processor_start = thread_seconds();
			uint64_t runs = 0;
			while (!stop.load(std::memory_order_relaxed)) {
				for (unsigned i = 0; i < runs_between_looks; ++i) {
					body(thread);
				}
				runs += runs_between_looks;
			}
			const double processor = thread_seconds() - processor_start;
			const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
			rates[thread] = {static_cast<double>(runs) / processor,
					 processor > 0.95 * elapsed && processor > 0.9 * duration.count()};
		});
	}
	while (ready.load() < threads) {
		std::this_thread::yield();
	}
	std::this_thread::sleep_for(duration);
	stop = true;
	for (std::thread &thread : running) {
		thread.join();
	}
	Rate all = {0, true};
	for (const Rate &rate : rates) {
		all.runs_per_second += rate.runs_per_second;
		all.undisturbed = all.undisturbed && rate.undisturbed;
	}
	return all;
}

// Two threads' rate over one's, the median of the tries in which no other program took a processor away; missing when
// there were too few.
template <typename Body> std::optional<double> gain_of_second_thread(const Body &body)
{
	constexpr auto patience = std::chrono::seconds(8);
	constexpr size_t enough = 5;
	std::vector<double> gains;
	for (const Clock::time_point start = Clock::now();
	     Clock::now() - start < patience && gains.size() < 2 * enough;) {
		const Rate two = measure_rate(2, body);
		const Rate one = measure_rate(1, body);
		if (two.undisturbed && one.undisturbed) {
			gains.push_back(two.runs_per_second / one.runs_per_second);
		}
	}
	if (gains.size() < enough) {
		return {};
	}
	std::sort(gains.begin(), gains.end());
	return gains[gains.size() / 2];
}

// Shares nothing, and takes about as long as a frame.
void private_work(volatile uint64_t &state)
{
	uint64_t value = state;
	for (int i = 0; i < 100; ++i) {
		value = value * 6364136223846793005 + 1442695040888963407;
	}
	state = value;
}

// What part of the gain without sharing the frames reach; null when other programs kept the processors busy.
void print_share(const char *name, std::optional<double> gain, std::optional<double> without_sharing)
{
	if (gain.has_value() && without_sharing.has_value()) {
		std::printf(",\n\t\"second_processor_%s\": %.3f", name, *gain / *without_sharing);
	} else {
		std::printf(",\n\t\"second_processor_%s\": null", name);
	}
}

void print_two_processors()
{
	struct alignas(256) Own {
		volatile uint64_t state = 1;
	};
	std::vector<Own> own(2);
	const std::optional<double> without_sharing =
		gain_of_second_thread([&](unsigned thread) { private_work(own[thread].state); });

	restart_module();
	set_all_portals(CP_MODE_ON);
	fill_clients(128);
	const auto frame_gain = [&](const std::string &interface, uint32_t row, bool admitted) {
		std::vector<std::unique_ptr<FrameCase>> cases;
		for (uint32_t thread = 0; thread < 2; ++thread) {
			const MacAddress mac = client_mac(login_table, row, admitted ? 100 + thread : 0xffff);
			test::Host client = {{}, ipv4(192, 168, 1, 50)};
			std::memcpy(client.mac.data(), mac.bytes, client.mac.size());
			cases.push_back(std::make_unique<FrameCase>(FrameCaseParts{
				.hooks = forwarding,
				.in_name = interface,
				.frames = {frame().from(client).to({router, ipv4(203, 0, 113, 53)}).udp(51000, 53)},
				.batch = 1}));
			cases.back()->restore(1);
		}
		return gain_of_second_thread([&](unsigned thread) { cases[thread]->run(0); });
	};
	print_share("admitted", frame_gain(interface_name(10), 10, true), without_sharing);
	print_share("unadmitted", frame_gain(interface_name(10), 10, false), without_sharing);
}

} // namespace

int main()
{
	std::printf("{\n\t\"bytes_per_client\": %.1f,\n\t\"bytes_per_connection\": %.1f", bytes_of_client(),
		    bytes_of_connection());
	print_two_processors();
	std::printf("\n}\n");
	return 0;
}
