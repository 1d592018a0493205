// SPDX-License-Identifier: GPL-2.0-only
// Hooks, commands, start and stop at once, on real threads. The thread sanitizer's build judges every access; the host
// kernel judges locks, their order, and writes to shared packet data; this file judges what comes out.
#include <algorithm>
#include <array>
#include <atomic>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "base/debug_level.h"
#include "tests/support/checksum_validator.h"
#include "tests/support/packets.h"
#include "tests/unit/portal_case.h"

namespace captive_portal::test
{

namespace
{

// The bridge has two addresses and two MACs that change while hooks run.
constexpr Host moved_access_point = {{0x02, 0xaa, 0, 0, 0, 0x02}, ipv4(192, 168, 1, 2)};

constexpr std::array<const char *, 5> devices = {"wlan-1-1", "wlan-1-2", "wlan-3-8", "wlan-1-15", "eth0"};
constexpr std::array<Host, 4> clients = {client_of_wlan_1_1, second_client_of_wlan_1_1, client_of_wlan_1_2,
					 client_of_wlan_3_8};
constexpr std::array<Host, 7> servers = {upstream_server, second_upstream_server, private_server, social_login,
					 dns_filter,      logout_server,          access_point};
constexpr std::array<uint16_t, 4> web_ports = {80, 443, 8080, 22};
constexpr std::array<uint16_t, 9> reply_ports = {10081, 10082, 30451, 82, 83, 86, 88, 90, 1030};
constexpr std::array<uint8_t, 4> flags = {tcp_syn, tcp_ack, tcp_fin | tcp_ack, tcp_rst};

class Dice
{
public:
	explicit Dice(unsigned seed) : engine_(seed) {}

	uint32_t below(uint32_t end) { return static_cast<uint32_t>(engine_()) % end; }
	template <typename T, size_t size> const T &one_of(const std::array<T, size> &all) { return all[below(size)]; }

private:
	std::minstd_rand engine_;
};

// The 16-bit number at `offset`.
uint16_t port_at(const Frame &frame, size_t offset)
{
	return static_cast<uint16_t>(frame.at(offset) * 256 + frame.at(offset + 1));
}

bool starts_at(const Frame &frame, size_t offset, const Host &host)
{
	const uint32_t address = static_cast<uint32_t>(port_at(frame, offset)) << 16 | port_at(frame, offset + 2);
	return address == host.address.host();
}

bool has_mac(const Frame &frame, size_t offset, const Mac &mac)
{
	return std::equal(mac.begin(), mac.end(), frame.begin() + static_cast<ptrdiff_t>(offset));
}

// ---- Traffic --------------------------------------------------------------------------------------------------------

// A client's segment through both pre-routing hooks: it leaves as it came, or whole on its way to the access point.
void send_request(host::Machine &machine, Dice &dice)
{
	const Host client = dice.one_of(clients);
	const Frame before = frame().from(client)
				     .to(dice.one_of(servers))
				     .tcp(static_cast<uint16_t>(50000 + dice.below(8)), dice.one_of(web_ports))
				     .flags(dice.one_of(flags))
				     .payload("request");
	host::PacketBuffer packet = packet_of(before);
	const host::PacketBuffer capture = packet.clone();
	const cp_verdict verdict = machine.pre_routing(packet, dice.one_of(devices));
	const Frame after = packet.frame();
	if (after != before) {
		EXPECT_EQ(verdict, CP_ACCEPT);
		EXPECT_EQ(packet.type, host::PacketType::host);
		EXPECT_TRUE(checksums_are_right(packet));
		// A reader may meet the two addresses' change, but never half an address. Before the first one is
		// learned, and while the tables are filled, both are zero.
		EXPECT_TRUE(starts_at(after, 30, access_point) || starts_at(after, 30, moved_access_point) ||
			    starts_at(after, 30, {{}, ipv4(0, 0, 0, 0)}));
		EXPECT_TRUE(has_mac(after, 0, access_point.mac) || has_mac(after, 0, moved_access_point.mac) ||
			    has_mac(after, 0, Mac{}));
	}
	EXPECT_EQ(capture.frame(), before);
}

void send_reply(host::Machine &machine, Dice &dice)
{
	const Frame before = frame().from(dice.below(2) == 0 ? access_point : moved_access_point)
				     .to(dice.one_of(clients))
				     .tcp(dice.one_of(reply_ports), static_cast<uint16_t>(50000 + dice.below(8)))
				     .flags(dice.one_of(flags))
				     .payload("reply");
	host::PacketBuffer packet = packet_of(before, host::ChecksumState::partial);
	const host::PacketBuffer capture = packet.clone();
	const Frame unfinished = packet.frame();
	EXPECT_EQ(machine.post_routing(packet, dice.one_of(devices)), CP_ACCEPT);
	if (packet.frame() != unfinished) {
		EXPECT_TRUE(checksums_are_right(packet));
		const Frame after = frame_on_wire(packet);
		// The port, the address and the MAC come from one entry.
		const uint16_t port = port_at(after, 34);
		EXPECT_TRUE(std::find(web_ports.begin(), web_ports.end(), port) != web_ports.end()) << port;
		EXPECT_TRUE(has_mac(after, 6, router_mac) || has_mac(after, 6, access_point.mac));
	}
	EXPECT_EQ(capture.frame(), unfinished);
}

void send_other(host::Machine &machine, Dice &dice)
{
	const Host client = dice.one_of(clients);
	const FrameBuilder others[] = {
		frame().from(client).to(upstream_dns).udp(40000, 53), frame().from(client).to(broadcast).udp(68, 67),
		frame().from(client).to(access_point).icmp(8), frame().from(client).to(upstream_server).ipv6(6),
		frame().from(client).to(router).arp()};
	const Frame before = others[dice.below(5)];
	host::PacketBuffer packet(before);
	(void)machine.pre_routing(packet, dice.one_of(devices));
	EXPECT_EQ(packet.frame(), before);
}

// ---- Commands -------------------------------------------------------------------------------------------------------

void portal_commands(host::Machine &machine, Dice &dice)
{
	constexpr std::array<uint32_t, 6> settings = {CP_WALLED_GARDEN,     CAPTIVE_PORTAL,   BLOCK_HTTPS,
						      CAPTIVE_PORTAL_MIREL, LOGOUT_IP_NOTIFY, DNS_FILTER_ENABLE};
	constexpr std::array<uint32_t, 5> values = {0, 1, 2, 7, 8};
	constexpr std::array<const char *, 3> addresses = {"", "1.2.3.4", "203.0.113.10"};
	cp_cmd setting{.cmd = dice.one_of(settings),
		       .iface = static_cast<int32_t>(dice.below(28)),
		       .enable_value = dice.one_of(values),
		       .value = ""};
	if (dice.below(2) == 0) {
		setting.iface = static_cast<int32_t>(dice.below(2));
	}
	set_text(setting.value, dice.one_of(addresses));
	EXPECT_EQ(command(machine, CAPTIVE_PORTAL_IOCTL_SET, setting), 0);

	cp_status status{};
	status.cmd = CP_GET_STATUS;
	status.iface = dice.below(25);
	EXPECT_EQ(command(machine, CAPTIVE_PORTAL_IOCTL_GET, status), 0);

	const Ipv4Address address = dice.below(2) == 0 ? router.address : private_server.address;
	EXPECT_EQ(command(machine, GATEWAY_IOCTL_SET, address), 0);
	uint32_t back = 0;
	EXPECT_EQ(command(machine, GATEWAY_IOCTL_GET, back), 0);
	// Start may still be filling the tables, and then takes the address back to none; half an address never comes.
	EXPECT_TRUE(back == router.address.raw || back == private_server.address.raw || back == 0) << back;
}

void garden_commands(host::Machine &machine, Dice &dice)
{
	constexpr std::array<uint32_t, 4> updates = {WALLED_GARDEN, UPDATE_DEFAULT_RULE, UPDATE_RULE,
						     UPDATE_MIREL_RULE};
	wg_cmd update{};
	update.cmd = dice.one_of(updates);
	update.iface = static_cast<int32_t>(dice.below(28));
	update.enable_value = dice.below(2);
	update.rule_number = static_cast<int32_t>(dice.below(4));
	update.rules[0] = address_rule(upstream_server.address, ipv4(255, 255, 255, 0));
	update.rules[1] = domain_rule("*.example.com");
	update.rules[2] = domain_rule("www.example.org");
	EXPECT_EQ(command(machine, WALLED_GARDEN_IOCTL_SET, update), 0);

	wg_cmd list{};
	list.cmd = dice.below(2) == 0 ? GET_WALLED_GARDEN_RULE : GET_DEFAULT_RULE;
	list.iface = static_cast<int32_t>(dice.below(24));
	EXPECT_EQ(command(machine, WALLED_GARDEN_IOCTL_GET, list), 0);
	EXPECT_LE(list.rule_number, 3) << "a list is replaced in one hold";
}

void gatekeeper_commands(host::Machine &machine, Dice &dice)
{
	constexpr std::array<uint32_t, 21> changes = {ADD_WHITELIST_MAC,
						      DEL_WHITELIST_MAC,
						      ADD_AUTH_MAC,
						      DEL_AUTH_MAC,
						      ADD_LOGIN_MAC,
						      DEL_LOGIN_MAC,
						      FLUSH_CAPTIVE_PORTAL_TABLE,
						      SET_OVRA_BEHAVIOR,
						      ADD_MAPPING_OWE_VAP,
						      FLUSH_MAPPING_OWE_VAP,
						      ADD_MIREL_BLACK_LIST_MAC,
						      DEL_MIREL_BLACK_LIST_MAC,
						      ADD_MIREL_WHITE_LIST_MAC,
						      DEL_MIREL_WHITE_LIST_MAC,
						      ADD_GA_WHITELIST_MAC,
						      DEL_GA_WHITELIST_MAC,
						      FLUSH_GA_WHITELIST_TABLE,
						      ADD_MAC_AUTH_FALLBACK,
						      DEL_MAC_AUTH_FALLBACK,
						      FLUSH_MAC_AUTH_FALLBACK,
						      DEL_LOGIN_MAC};
	constexpr std::array<const char *, 3> interfaces = {"wlan-1-1", "wlan-1-2", "wlan-3-8"};
	gk_cmd change{};
	change.cmd = dice.one_of(changes);
	change.behavior = dice.below(4);
	change.status = dice.below(3);
	set_text(change.iface, dice.one_of(interfaces));
	set_text(change.owe_iface, "wlan-1-15");
	const Mac mac = dice.one_of(clients).mac;
	std::copy(mac.begin(), mac.end(), change.mac);
	EXPECT_EQ(command(machine, GATEKEEPER_IOCTL_SET, change), 0);

	constexpr std::array<uint32_t, 9> lists = {
		GET_WHITELIST_MAC,        GET_AUTH_MAC,         GET_LOGIN_MAC,
		GET_OVRA_BEHAVIOR,        GET_MAPPING_OWE_VAP,  GET_MIREL_BLACK_LIST_MAC,
		GET_MIREL_WHITE_LIST_MAC, GET_GA_WHITELIST_MAC, GET_MAC_AUTH_FALLBACK};
	gk_list_reply list{};
	list.cmd = dice.one_of(lists);
	set_text(list.iface, dice.one_of(interfaces));
	set_text(list.owe_iface, "wlan-1-15");
	EXPECT_EQ(command(machine, GATEKEEPER_IOCTL_GET, list), 0);

	constexpr std::array<uint32_t, 4> checks = {CHECK_WHITELIST_MAC, CHECK_LOGIN_MAC, CHECK_GA_WHITELIST_MAC,
						    CHECK_MAC_AUTH_FALLBACK};
	gk_check_reply check{};
	check.cmd = dice.one_of(checks);
	set_text(check.iface, dice.one_of(interfaces));
	std::copy(mac.begin(), mac.end(), check.mac);
	EXPECT_EQ(command(machine, GATEKEEPER_IOCTL_CHECK, check), 0);
	EXPECT_LE(check.found, 1u);
}

void environment_commands(host::Machine &machine, Dice &dice)
{
	EXPECT_EQ(machine.ioctl(ENV_SET_DEBUG_LEVEL, dice.below(4)), 0);
	EXPECT_EQ(machine.compat_ioctl(ENV_SET_DEBUG_LEVEL, dice.below(4)), 0);
	EXPECT_EQ(machine.ioctl(5, 0), -1);
	EXPECT_EQ(machine.ioctl(CAPTIVE_PORTAL_IOCTL_SET, unmapped_address), -1);
	add_dns_arecord(arecord_bucket(upstream_server.address), dice.below(16), text_of_field("www.example.com"),
			upstream_server.address, 1 + dice.below(100));
}

// ---- All at once ----------------------------------------------------------------------------------------------------

using Work = void (*)(host::Machine &, Dice &);

// One thread each.
constexpr Work traffic[] = {send_request, send_request, send_reply, send_reply, send_other};
constexpr Work commands[] = {portal_commands, garden_commands, gatekeeper_commands, environment_commands};

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
			start([this, work, dice = Dice(++seed)]() mutable {
				work(machine, dice);
				++frames_;
			});
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

	host::Machine machine;

private:
	template <typename Step> void start(Step step)
	{
		threads_.emplace_back([this, step = std::move(step)]() mutable {
			while (!done_) {
				step();
			}
		});
	}

	std::mutex file_layer_;
	std::vector<std::thread> threads_;
	std::atomic<bool> done_ = false;
	std::atomic<uint64_t> frames_ = 0;
	std::atomic<uint32_t> turns_ = 0;
};

TEST_F(Concurrency, HooksMeetCommands)
{
	load_and_configure();
	start_traffic();
	for (int round = 0; round < 3; ++round) {
		run_process(40);
	}
	wait_for_frames(500);
	stop_traffic();
	EXPECT_EQ(machine.unload(), 0);
	EXPECT_TRUE(machine.lost_allocations().empty());
}

TEST_F(Concurrency, HooksMeetMissingMemory)
{
	load_and_configure();
	start_traffic();
	for (uint64_t n = 0; n < 60; ++n) {
		machine.memory.fail_allocation(1 + n % 3);
		wait_for_frames(5);
	}
	machine.memory.fail_all_allocations(true);
	wait_for_frames(50);
	machine.memory.fail_all_allocations(false);
	stop_traffic();
	EXPECT_EQ(machine.unload(), 0);
	EXPECT_TRUE(machine.lost_allocations().empty());
}

TEST_F(Concurrency, HooksAndCommandsMeetStart)
{
	start_traffic();
	wait_for_frames(50);
	// From the device's registration on, a process can open it and change the tables that start still fills.
	std::atomic<bool> device_is_there = false;
	machine.after(host::Event::misc_registered, [&] {
		device_is_there = true;
		wait_for_frames(20);
	});
	std::thread process([&] {
		while (!device_is_there) {
			std::this_thread::yield();
		}
		run_process(10);
	});
	EXPECT_EQ(machine.load(), 0);
	process.join();
	wait_for_frames(200);
	stop_traffic();
	EXPECT_EQ(unload(), 0);
}

TEST_F(Concurrency, HooksMeetStop)
{
	load_and_configure();
	start_traffic();
	wait_for_frames(200);
	EXPECT_EQ(unload(), 0);
	EXPECT_TRUE(machine.hooks.registered().empty());
	wait_for_frames(50);
	stop_traffic();
}

TEST_F(Concurrency, StopIsRefusedWhileAProcessHasTheDevice)
{
	load_and_configure();
	start_traffic();
	std::atomic<bool> ended = false;
	std::thread process([&] { run_process(30, &ended); });
	// On a busy machine it may be through before anybody has looked.
	while (machine.module_references() == 0 && !ended) {
		std::this_thread::yield();
	}
	int result = 0;
	while ((result = unload()) == -16) {
		std::this_thread::yield();
	}
	EXPECT_EQ(result, 0);
	EXPECT_TRUE(ended) << "stop went on while commands ran";
	process.join();
	stop_traffic();
	EXPECT_FALSE(machine.is_loaded());
}

TEST_F(Concurrency, OneOfManyOpenersWins)
{
	load_module(machine);
	// The kernel opens a misc device under a mutex of its own, but releases it under none: a release meets opens.
	std::mutex misc_mutex;
	std::atomic<int> inside = 0;
	std::atomic<int> opened = 0;
	std::vector<std::thread> threads;
	for (int i = 0; i < 4; ++i) {
		threads.emplace_back([&] {
			for (int round = 0; round < 200; ++round) {
				int result = 0;
				{
					const std::lock_guard guard(misc_mutex);
					result = machine.open();
				}
				if (result != 0) {
					EXPECT_EQ(result, -16);
					continue;
				}
				EXPECT_EQ(++inside, 1);
				++opened;
				--inside;
				EXPECT_EQ(machine.release(), 0);
			}
		});
	}
	for (std::thread &thread : threads) {
		thread.join();
	}
	EXPECT_GE(opened, 1);
	EXPECT_EQ(machine.module_references(), 0);
	EXPECT_EQ(machine.open(), 0) << "no release was lost";
	EXPECT_EQ(machine.release(), 0);
}

} // namespace

} // namespace captive_portal::test
