// SPDX-License-Identifier: GPL-2.0-only
// Hooks and commands at the same time, in real threads. The thread sanitizer's build judges every access; the address
// sanitizer's build, what is freed under a reader. Verdicts that do not depend on the moment are tested here too.
#include <atomic>
#include <functional>
#include <thread>

#include "base/debug_level.h"
#include "platform/host/registrations.h"
#include "tests/support/control.h"
#include "tests/support/frame_builder.h"
#include "tests/support/host_test.h"

namespace captive_portal::test
{

namespace
{

constexpr int rounds = 300;

class Concurrency : public HostTest
{
protected:
	void SetUp() override
	{
		build_access_point(machine);
		load_module();
		machine.log.keep(false);
	}

	// Runs each of them `rounds` times in a thread of its own, at the same time.
	static void run_together(const std::vector<std::function<void(int)>> &bodies)
	{
		std::atomic<size_t> ready = 0;
		std::vector<std::thread> threads;
		for (const auto &body : bodies) {
			threads.emplace_back([&, body] {
				++ready;
				while (ready < bodies.size()) {
					std::this_thread::yield();
				}
				for (int round = 0; round < rounds; ++round) {
					body(round);
				}
			});
		}
		for (std::thread &thread : threads) {
			thread.join();
		}
	}

	void client_sends(const Host &client, const char *interface, const FrameBuilder &frame)
	{
		host::PacketBuffer packet(FrameBuilder(frame).from(client).bytes());
		static_cast<void>(machine.pre_routing(packet, interface));
	}

	void access_point_answers(const Host &client, const char *interface, uint16_t port, uint8_t flags)
	{
		host::PacketBuffer packet(frame().from(access_point).to(client).tcp(port, 51000).flags(flags).bytes());
		EXPECT_EQ(machine.post_routing(packet, interface), CP_ACCEPT);
	}

	// Each kind of frame that takes another road through the hooks.
	void traffic(int round)
	{
		const Host &client = round % 2 == 0 ? client_of_wlan_1_1 : second_client_of_wlan_1_1;
		const auto port = static_cast<uint16_t>(51000 + round % 3);
		client_sends(client, "wlan-1-1", frame().to(upstream_server).tcp(port, 80).syn());
		client_sends(client, "wlan-1-1", frame().to(upstream_server).tcp(port, 443).syn());
		client_sends(client, "wlan-1-1", frame().to(social_login).tcp(port, 80).syn());
		client_sends(client, "wlan-1-1", frame().to(dns_filter).tcp(port, 443).syn());
		client_sends(client, "wlan-1-1", frame().to(logout_server).tcp(port, 80).syn());
		client_sends(client, "wlan-1-1", frame().to(access_point).tcp(port, 10081));
		client_sends(client, "wlan-1-14", frame().to(router).udp(68, 67));
		client_sends(client_of_wlan_3_8, "wlan-3-8", frame().to(upstream_dns).udp(port, 53));
		client_sends(client_of_wlan_3_8, "wlan-3-8", frame().to(access_point).icmp(8));
		client_sends(wired_host, "eth0", frame().to(access_point).tcp(port, 20081));
	}

	void answers(int round)
	{
		const uint8_t flags = round % 4 == 0 ? tcp_fin | tcp_ack : tcp_ack;
		for (const uint16_t port : {10081, 10444, 82, 83, 86, 88, 90, 1025}) {
			access_point_answers(client_of_wlan_1_1, "wlan-1-1", port, flags);
		}
	}

	void client_commands(int round)
	{
		const gk_set_command sub_commands[] = {
			ADD_WHITELIST_MAC,
			ADD_AUTH_MAC,
			ADD_LOGIN_MAC,
			ADD_GA_WHITELIST_MAC,
			ADD_MAC_AUTH_FALLBACK,
			ADD_MIREL_BLACK_LIST_MAC,
			DEL_WHITELIST_MAC,
			DEL_AUTH_MAC,
			DEL_LOGIN_MAC,
			DEL_GA_WHITELIST_MAC,
			DEL_MAC_AUTH_FALLBACK,
			ADD_MIREL_WHITE_LIST_MAC,
			DEL_MIREL_WHITE_LIST_MAC,
			FLUSH_CAPTIVE_PORTAL_TABLE,
		};
		for (const gk_set_command sub_command : sub_commands) {
			change_clients(machine, sub_command, "wlan-1-1", client_of_wlan_1_1.mac);
		}
		change_clients(machine, ADD_LOGIN_MAC, "wlan-1-1", second_client_of_wlan_1_1.mac);
		change_clients(machine, round % 2 == 0 ? FLUSH_CAPTIVE_PORTAL_TABLE : FLUSH_GA_WHITELIST_TABLE, "all");
		set_behavior(machine, "wlan-1-1", static_cast<uint32_t>(round % 3), static_cast<uint32_t>(round % 5));
		map_owe_interface(machine, "wlan-1-14", round % 2 == 0 ? "wlan-1-1" : "wlan-3-8");
		change_clients(machine, FLUSH_MAPPING_OWE_VAP, "");
	}

	void client_queries(int)
	{
		for (const gk_get_command sub_command : {GET_WHITELIST_MAC, GET_LOGIN_MAC, GET_OVRA_BEHAVIOR,
							 GET_MAPPING_OWE_VAP, GET_MIREL_WHITE_LIST_MAC}) {
			gk_list_reply reply{};
			reply.cmd = sub_command;
			set_text(reply.iface, "wlan-1-1");
			set_text(reply.owe_iface, "wlan-1-14");
			EXPECT_EQ(command(machine, GATEKEEPER_IOCTL_GET, reply), 0);
			EXPECT_LE(reply.count, 1u);
		}
		gk_check_reply check{};
		check.cmd = CHECK_LOGIN_MAC;
		set_text(check.iface, "wlan-1-1");
		EXPECT_EQ(command(machine, GATEKEEPER_IOCTL_CHECK, check), 0);
		EXPECT_EQ(check.found, 0u);
	}

	void portal_commands(int round)
	{
		const uint32_t modes[] = {CP_MODE_ON, CP_MODE_INTERNET_PASSES, CP_MODE_DROP_TCP, CP_MODE_OFF};
		set_portal(machine, CAPTIVE_PORTAL, 0, modes[round % 4]);
		set_portal(machine, CAPTIVE_PORTAL_MIREL, 0, round % 2);
		set_portal(machine, BLOCK_HTTPS, 0, round % 3);
		set_portal(machine, DNS_FILTER_ENABLE, 0, round % 2);
		set_logout_address(machine, 0, round % 2 == 0 ? "1.2.3.4" : "");
		set_gateway_address(machine, round % 2 == 0 ? router.address : ipv4(0, 0, 0, 0));
		set_debug_level(machine, round % 4);
		cp_status status{};
		status.cmd = CP_GET_STATUS;
		EXPECT_EQ(command(machine, CAPTIVE_PORTAL_IOCTL_GET, status), 0);
		EXPECT_EQ(status.mark, 5200u);
		Ipv4Address gateway{};
		EXPECT_EQ(command(machine, GATEWAY_IOCTL_GET, gateway), 0);
		EXPECT_TRUE(gateway == router.address || gateway == ipv4(0, 0, 0, 0));
	}

	void garden_commands(int round)
	{
		set_garden(
			machine, UPDATE_RULE, 0, 1,
			{domain_rule("*.example.org"), address_rule(upstream_server.address, ipv4(255, 255, 255, 0))});
		set_garden(machine, WALLED_GARDEN, 0, round % 2);
		set_garden(machine, UPDATE_DEFAULT_RULE, 0, 0, {domain_rule("portal.example.net")});
		set_garden(machine, UPDATE_MIREL_RULE, 0, round % 2);
		wg_cmd reply{};
		reply.cmd = GET_WALLED_GARDEN_RULE;
		EXPECT_EQ(command(machine, WALLED_GARDEN_IOCTL_GET, reply), 0);
		EXPECT_EQ(reply.rule_number, 2);
	}
};

} // namespace

TEST_F(Concurrency, OfTrafficAndClientCommands)
{
	set_portal(machine, CAPTIVE_PORTAL, 0, CP_MODE_ON);
	run_together({
		[&](int round) { traffic(round); },
		[&](int round) { traffic(round + 1); },
		[&](int round) { client_commands(round); },
	});
}

TEST_F(Concurrency, OfTrafficAnswersAndPortalCommands)
{
	set_portal(machine, CAPTIVE_PORTAL, 0, CP_MODE_ON);
	run_together({
		[&](int round) { traffic(round); },
		[&](int round) { answers(round); },
		[&](int round) { portal_commands(round); },
	});
}

TEST_F(Concurrency, OfTrafficAndGardenCommands)
{
	set_portal(machine, CAPTIVE_PORTAL, 0, CP_MODE_ON);
	run_together({
		[&](int round) { traffic(round); },
		[&](int round) { garden_commands(round); },
	});
}

TEST_F(Concurrency, OfQueriesAndTraffic)
{
	run_together({
		[&](int round) { client_queries(round); },
		[&](int round) { client_queries(round); },
		[&](int round) { traffic(round); },
	});
}

TEST_F(Concurrency, OfTrafficAndTheModulesComingAndGoing)
{
	ASSERT_EQ(machine.unload(), 0);
	std::atomic<bool> stop = false;
	std::thread traffic_thread([&] {
		for (int round = 0; !stop; ++round) {
			traffic(round);
			answers(round);
		}
	});
	for (int round = 0; round < 30; ++round) {
		ASSERT_EQ(machine.load(), 0);
		set_portal(machine, CAPTIVE_PORTAL, 0, CP_MODE_ON);
		std::this_thread::sleep_for(std::chrono::milliseconds(1));
		ASSERT_EQ(machine.unload(), 0);
	}
	stop = true;
	traffic_thread.join();
}

// A client that is listed all the time is never taken for an unknown one while others come and go around it.
TEST_F(Concurrency, NeverHidesAListedClient)
{
	set_portal(machine, CAPTIVE_PORTAL, 0, CP_MODE_DROP_TCP);
	change_clients(machine, ADD_LOGIN_MAC, "wlan-1-1", second_client_of_wlan_1_1.mac);
	run_together({
		[&](int) {
			host::PacketBuffer packet(
				frame().from(second_client_of_wlan_1_1).to(upstream_server).tcp(1, 80).bytes());
			EXPECT_EQ(machine.pre_routing(packet, "wlan-1-1"), CP_ACCEPT);
			EXPECT_EQ(packet.mark, 0u);
		},
		[&](int) {
			change_clients(machine, ADD_LOGIN_MAC, "wlan-1-1", client_of_wlan_1_1.mac);
			change_clients(machine, DEL_LOGIN_MAC, "wlan-1-1", client_of_wlan_1_1.mac);
		},
	});
}

// The flush of all rows is one step: whoever has seen one row empty never sees another one full after that.
TEST_F(Concurrency, NeverShowsAFlushOfAllRowsHalfDone)
{
	const auto listed = [&](const char *interface) {
		gk_check_reply check{};
		check.cmd = CHECK_WHITELIST_MAC;
		set_text(check.iface, interface);
		std::copy(client_of_wlan_1_1.mac.begin(), client_of_wlan_1_1.mac.end(), check.mac);
		EXPECT_EQ(command(machine, GATEKEEPER_IOCTL_CHECK, check), 0);
		return check.found == 1;
	};
	for (int round = 0; round < 50; ++round) {
		for (const char *const interface : {"wlan-1-1", "wlan-2-4", "wlan-3-8"}) {
			change_clients(machine, ADD_WHITELIST_MAC, interface, client_of_wlan_1_1.mac);
		}
		std::thread reader([&] {
			while (listed("wlan-1-1")) {
			}
			EXPECT_FALSE(listed("wlan-3-8"));
			EXPECT_FALSE(listed("wlan-2-4"));
		});
		change_clients(machine, FLUSH_CAPTIVE_PORTAL_TABLE, "all");
		reader.join();
	}
}

#ifdef __SANITIZE_THREAD__
// The sanitizer's build proves nothing if the host kernel itself puts the module's threads in order: two threads that
// share nothing but the log and the allocator must still be seen to race.
TEST(ConcurrencyDeathTest, IsJudgedByTheThreadSanitizer)
{
	::testing::FLAGS_gtest_death_test_style = "threadsafe";
	EXPECT_DEATH(
		{
			host::Machine machine;
			std::atomic<bool> written = false;
			std::thread writer([&] {
				debug_level = 1;
				cp_log(CP_LOG_DEBUG, "one\n");
				cp_free(cp_zalloc_atomic(8));
				written.store(true, std::memory_order_relaxed);
			});
			while (!written.load(std::memory_order_relaxed)) {
			}
			cp_log(CP_LOG_DEBUG, "two\n");
			cp_free(cp_zalloc_atomic(8));
			debug_level = 2;
			writer.join();
		},
		"data race");
}
#endif

} // namespace captive_portal::test
