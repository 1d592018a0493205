// SPDX-License-Identifier: GPL-2.0-only
#include "core/module.h"

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "base/debug_level.h"
#include "base/fixed_addresses.h"
#include "core/control_device.h"
#include "garden/arecord_cache.h"
#include "garden/walled_garden.h"
#include "gatekeeper/client_tables.h"
#include "platform/host/module_image.h"
#include "platform/platform.h"
#include "portal/interface_table.h"
#include "tests/support/packets.h"
#include "tests/unit/portal_case.h"

namespace captive_portal::test
{

namespace
{

using host::Event;

class Module : public HostTest
{
protected:
	void SetUp() override { build_access_point(machine); }

	// A frame of a client that nobody has admitted, on its way through the hooks.
	cp_verdict pass(const Frame &frame)
	{
		host::PacketBuffer packet = packet_of(frame);
		return machine.pre_routing(packet, "wlan-1-1");
	}
};

const FrameBuilder http_syn = frame().from(client_of_wlan_1_1).to(upstream_server).tcp(51000, 80).syn();

std::string text(const AtomicName &name)
{
	char field[CP_INTERFACE_NAME_SIZE];
	name.load(field);
	return field;
}

// ---- Start ----------------------------------------------------------------------------------------------------------

TEST_F(Module, SaysWhatItDoesAtStart)
{
	EXPECT_EQ(machine.load(), 0);
	EXPECT_LOG(debug_line("captive_portal_init\n"), debug_line("[init captive portal] minor:255, name:CP_dev\n"),
		   debug_line("dns_parse_init\n"), default_line("wake_up_process schedule_check_thread\n"));
}

TEST_F(Module, RegistersTheHooksBeforeTheDevice)
{
	EXPECT_EQ(machine.load(), 0);
	EXPECT_EQ(machine.events(), (std::vector{Event::hooks_registered, Event::misc_registered, Event::thread_created,
						 Event::thread_woken, Event::proc_created, Event::status_created}));
	EXPECT_EQ(machine.hooks.register_calls(), 1u);
	ASSERT_TRUE(machine.misc.registered().has_value());
	EXPECT_EQ(machine.misc.registered()->minor, 255);
	EXPECT_EQ(machine.misc.registered()->name, "CP_dev");
}

TEST_F(Module, HasThreeHooksOfTheBridgeFamily)
{
	EXPECT_EQ(machine.load(), 0);
	const std::vector<cp_hook> hooks = machine.hooks.registered();
	ASSERT_EQ(hooks.size(), 3u);
	const struct {
		host::HookFunction function;
		uint32_t hook_number;
		int32_t priority;
	} expected[] = {{ebt_gate_keeper, 0, -320}, {nf_cp_check, 0, -310}, {nf_cp_change, 4, 80}};
	for (size_t i = 0; i < 3; ++i) {
		EXPECT_EQ(hooks[i].function, expected[i].function) << i;
		EXPECT_EQ(hooks[i].protocol_family, 7) << i;
		EXPECT_EQ(hooks[i].hook_number, expected[i].hook_number) << i;
		EXPECT_EQ(hooks[i].priority, expected[i].priority) << i;
	}
}

TEST_F(Module, SetsTheDebugLevelBeforeAnythingIsRegistered)
{
	int32_t level = -1;
	machine.after(Event::hooks_registered, [&] { level = debug_level; });
	EXPECT_EQ(machine.load(), 0);
	EXPECT_EQ(level, 1);
	EXPECT_EQ(debug_level, 1);
}

TEST_F(Module, FillsTheTablesAfterTheDeviceIsThere)
{
	bool looked = false;
	machine.after(Event::misc_registered, [&] {
		looked = true;
		EXPECT_EQ(captive_portal_table[0].mark, 0u);
		EXPECT_EQ(login_mac_table[0].iface[0], '\0');
		EXPECT_EQ(walled_garden_table[0].mark, 0u);
		EXPECT_EQ(socialogin_addr, ipv4(0, 0, 0, 0));
	});
	EXPECT_EQ(machine.load(), 0);
	EXPECT_TRUE(looked);
	EXPECT_EQ(captive_portal_table[23].mark, 5247u);
	EXPECT_STREQ(login_mac_table[23].iface, "wlan-3-8");
	EXPECT_EQ(walled_garden_table[23].mark, 5247u);
	EXPECT_EQ(socialogin_addr, ipv4(2, 2, 2, 2));
}

TEST_F(Module, StartsTheDnsSideLast)
{
	bool looked = false;
	machine.after(Event::misc_registered, [] { dns_filter_activate = 1; });
	machine.after(Event::thread_created, [&] {
		looked = true;
		EXPECT_EQ(captive_portal_table[23].mark, 5247u);
		EXPECT_EQ(walled_garden_table[23].mark, 5247u);
		EXPECT_EQ(socialogin_addr, ipv4(2, 2, 2, 2));
		EXPECT_EQ(dns_filter_activate, 0u);
		EXPECT_EQ(dns_filter_addr, ipv4(4, 4, 4, 4));
	});
	EXPECT_EQ(machine.load(), 0);
	EXPECT_TRUE(looked);
}

TEST_F(Module, WritesWhatHooksAndCommandsReadUnderItsLocks)
{
	EXPECT_EQ(machine.load(), 0);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_CP), 2u) << "the portal's rows, and the DNS filter's switch";
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_GATEKEEPER), 2u) << "the client tables, and the MIREL lists";
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_GATEWAY), 1u);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_CHANGE_IP_PORT), 1u);
	EXPECT_EQ(machine.locks.acquisitions(CP_LOCK_WALLEDGARDEN), 1u);
}

TEST_F(Module, StartsWithNamedRowsAndEmptyLists)
{
	load_module();
	for (const iface_mac_list *const table :
	     {auth_mac_table, login_mac_table, white_list, ga_white_list, mac_auth_fallback}) {
		EXPECT_STREQ(table[0].iface, "wlan-1-1");
		EXPECT_STREQ(table[7].iface, "wlan-1-8");
		EXPECT_STREQ(table[8].iface, "wlan-2-1");
		EXPECT_STREQ(table[23].iface, "wlan-3-8");
		gk_list_slot slot;
		EXPECT_EQ(table[0].list.copy_out(&slot, 1), 0u);
	}
	EXPECT_STREQ(ovra_behavior[23].iface, "wlan-3-8");
	EXPECT_EQ(ovra_behavior[23].behavior, 0u);
	EXPECT_EQ(ovra_behavior[23].status, 0u);
	EXPECT_EQ(text(owe_mapping_table[0].iface), "");
	EXPECT_EQ(text(owe_mapping_table[0].owe_iface), "wlan-1-14");
	EXPECT_EQ(text(owe_mapping_table[8].owe_iface), "wlan-3-16");
	EXPECT_TRUE(machine.live_allocations().empty());
}

TEST_F(Module, MeetsFramesBeforeItsTablesAreFilled)
{
	// A zero row has mark 0, as an unmarked frame has, and its portal is off.
	int frames = 0;
	const auto look = [&] {
		EXPECT_EQ(pass(http_syn), CP_ACCEPT);
		EXPECT_EQ(pass(FrameBuilder(http_syn).ether_type(0x86dd)), CP_ACCEPT);
		host::PacketBuffer reply =
			packet_of(frame().from(access_point).to(client_of_wlan_1_1).tcp(10081, 51000).fin_ack());
		EXPECT_EQ(machine.post_routing(reply, "wlan-1-1"), CP_ACCEPT);
		++frames;
	};
	machine.after(Event::hooks_registered, look);
	machine.after(Event::misc_registered, look);
	EXPECT_EQ(machine.load(), 0);
	EXPECT_EQ(frames, 2);
}

TEST_F(Module, ForgetsSpecialConnectionsOfFramesBeforeItsTablesAreFilled)
{
	// A firewall rule marks the very first frame; its connection is recorded in row 24, which start then clears.
	machine.hooks.add_firewall_rule(host::pre_routing_hook, -315, [](host::PacketBuffer &packet) {
		packet.mark = MARK_LOGOUT;
		return CP_ACCEPT;
	});
	machine.after(Event::misc_registered, [&] {
		EXPECT_EQ(pass(http_syn), CP_ACCEPT);
		EXPECT_EQ(connections().size(), 1u);
	});
	EXPECT_EQ(machine.load(), 0);
	EXPECT_EQ(connections(), std::vector<Connection>{});
	EXPECT_EQ(ap_addr, ipv4(0, 0, 0, 0)) << "what that frame taught is cleared";
	EXPECT_TRUE(machine.live_allocations().empty());
}

TEST_F(Module, ForgetsWhatCommandsDidBeforeItsTablesAreFilled)
{
	constexpr gk_set_command additions[] = {ADD_AUTH_MAC, ADD_LOGIN_MAC, ADD_WHITELIST_MAC, ADD_GA_WHITELIST_MAC,
						ADD_MAC_AUTH_FALLBACK};
	machine.after(Event::misc_registered, [&] {
		ASSERT_EQ(machine.open(), 0);
		for (const gk_set_command add : additions) {
			change_clients(machine, add, "wlan-1-1", client_of_wlan_1_1.mac);
			change_clients(machine, add, "wlan-1-1", second_client_of_wlan_1_1.mac);
			change_clients(machine, add, "wlan-3-8", client_of_wlan_3_8.mac);
		}
		change_clients(machine, ADD_MIREL_BLACK_LIST_MAC, "", client_of_wlan_1_1.mac);
		change_clients(machine, ADD_MIREL_WHITE_LIST_MAC, "", client_of_wlan_1_2.mac);
		set_portal(machine, DNS_FILTER_ENABLE, 0, 1);
		EXPECT_EQ(machine.live_allocations().size(), 17u);
		EXPECT_EQ(machine.release(), 0);
	});
	EXPECT_EQ(machine.load(), 0);
	for (const iface_mac_list *const table :
	     {auth_mac_table, login_mac_table, white_list, ga_white_list, mac_auth_fallback}) {
		gk_list_slot slot;
		EXPECT_EQ(table[0].list.copy_out(&slot, 1), 0u);
		EXPECT_EQ(table[23].list.copy_out(&slot, 1), 0u);
	}
	EXPECT_FALSE(mirel_black_list.contains(MacAddress::from(client_of_wlan_1_1.mac.data())));
	EXPECT_FALSE(mirel_white_list.contains(MacAddress::from(client_of_wlan_1_2.mac.data())));
	EXPECT_EQ(dns_filter_activate, 0u);
	EXPECT_TRUE(machine.live_allocations().empty()) << "what a command added is freed, not only forgotten";
}

TEST_F(Module, ForgetsConnectionsOfEveryRowBeforeItsTablesAreFilled)
{
	machine.after(Event::misc_registered, [&] {
		// The social-login address is still 0.0.0.0, so a frame to it leaves a connection in row 26.
		EXPECT_EQ(pass(FrameBuilder(http_syn).destination(ipv4(0, 0, 0, 0))), CP_ACCEPT);
		EXPECT_EQ(connections(), (std::vector{Connection{26, client_of_wlan_1_1.address, 51000,
								 ipv4(0, 0, 0, 0), 80, router_mac}}));
		for (uint32_t row = 0; row < CP_ROWS; ++row) {
			record({row, second_client_of_wlan_1_1.address, 51000, upstream_server.address, 80,
				router_mac});
		}
		EXPECT_EQ(machine.live_allocations().size(), 29u);
	});
	EXPECT_EQ(machine.load(), 0);
	EXPECT_EQ(connections(), std::vector<Connection>{});
	EXPECT_TRUE(machine.live_allocations().empty());
}

// ---- Failures of the start ------------------------------------------------------------------------------------------

TEST_F(Module, StartsWithoutItsHooks)
{
	machine.hooks.fail_next_registration(-12);
	EXPECT_EQ(machine.load(), 0);
	EXPECT_LOG(debug_line("captive_portal_init\n"), debug_line("[init captive portal] minor:255, name:CP_dev\n"),
		   debug_line("nf_register_hook fail\n"), debug_line("dns_parse_init\n"),
		   default_line("wake_up_process schedule_check_thread\n"));
	EXPECT_EQ(machine.events(), (std::vector{Event::hooks_refused, Event::misc_registered, Event::thread_created,
						 Event::thread_woken, Event::proc_created, Event::status_created}));
	EXPECT_TRUE(machine.hooks.registered().empty());
	EXPECT_EQ(machine.open(), 0);
	EXPECT_EQ(machine.release(), 0);
	EXPECT_EQ(captive_portal_table[0].mark, 5200u);

	EXPECT_EQ(machine.unload(), 0);
	EXPECT_EQ(machine.hooks.unregister_calls(), 1u) << "the platform knows that there is nothing to take off";
}

TEST_F(Module, FailsWithoutItsDeviceAndLeavesTheHooks)
{
	machine.misc.fail_next_registration(-16);
	EXPECT_EQ(machine.load(), -16);
	EXPECT_LOG(debug_line("captive_portal_init\n"), debug_line("[init captive portal] minor:255, name:CP_dev\n"),
		   debug_line("[captive portal] cannot register miscdev on minor=255 (err=-16)\n"),
		   debug_line("[captive portal] captive_portal_misc_dev failed!!\n"));
	EXPECT_FALSE(machine.is_loaded());
	EXPECT_EQ(machine.misc.deregister_calls(), 1u) << "deliberate: of a device that was never registered";
	EXPECT_EQ(machine.hooks.unregister_calls(), 0u);
	EXPECT_EQ(machine.hooks.registered().size(), 3u) << "deliberate: the platform takes them off";
	EXPECT_EQ(machine.open(), -6);
	EXPECT_EQ(machine.events(),
		  (std::vector{Event::hooks_registered, Event::misc_refused, Event::misc_deregistered}));
}

TEST_F(Module, LeavesItsTablesZeroWhenItFails)
{
	machine.misc.fail_next_registration(-12);
	EXPECT_EQ(machine.load(), -12);
	EXPECT_EQ(debug_level, 1);
	EXPECT_EQ(captive_portal_table[0].mark, 0u);
	EXPECT_EQ(captive_portal_table[0].block_https, 0u);
	EXPECT_EQ(login_mac_table[0].iface[0], '\0');
	EXPECT_EQ(text(owe_mapping_table[0].owe_iface), "");
	EXPECT_EQ(walled_garden_table[0].mark, 0u);
	EXPECT_EQ(socialogin_addr, ipv4(0, 0, 0, 0));
	EXPECT_EQ(dns_filter_addr, ipv4(0, 0, 0, 0));
	// The hooks that are left run over these tables.
	EXPECT_EQ(pass(http_syn), CP_ACCEPT);
}

TEST_F(Module, FailsWithoutDeviceAndHooks)
{
	machine.hooks.fail_next_registration(-1);
	machine.misc.fail_next_registration(-16);
	EXPECT_EQ(machine.load(), -16);
	EXPECT_LOG(debug_line("captive_portal_init\n"), debug_line("[init captive portal] minor:255, name:CP_dev\n"),
		   debug_line("nf_register_hook fail\n"),
		   debug_line("[captive portal] cannot register miscdev on minor=255 (err=-16)\n"),
		   debug_line("[captive portal] captive_portal_misc_dev failed!!\n"));
	EXPECT_EQ(machine.events(), (std::vector{Event::hooks_refused, Event::misc_refused, Event::misc_deregistered}));
}

// ---- The hooks together ---------------------------------------------------------------------------------------------

TEST_F(Module, RunsGatekeeperFirewallAndCheckInThisOrder)
{
	load_module();
	set_portal(machine, CAPTIVE_PORTAL, 0, 1);
	std::vector<uint32_t> marks;
	machine.hooks.add_firewall_rule(host::pre_routing_hook, -315, [&](host::PacketBuffer &packet) {
		marks.push_back(packet.mark);
		packet.mark = MARK_REPUTATION_FIRST + 3;
		return CP_ACCEPT;
	});
	host::PacketBuffer packet = packet_of(http_syn);
	EXPECT_EQ(machine.pre_routing(packet, "wlan-1-1"), CP_ACCEPT);
	EXPECT_EQ(marks, std::vector<uint32_t>{5200});
	EXPECT_EQ(packet.frame(), Frame(frame().from(client_of_wlan_1_1).to(access_point).tcp(51000, 1028).syn()));
}

TEST_F(Module, CarriesAWholeConnectionOfAnUnadmittedClient)
{
	load_module();
	set_portal(machine, CAPTIVE_PORTAL, 0, 1);
	host::PacketBuffer syn = packet_of(http_syn);
	EXPECT_EQ(machine.pre_routing(syn, "wlan-1-1"), CP_ACCEPT);
	EXPECT_EQ(syn.frame(), Frame(frame().from(client_of_wlan_1_1).to(access_point).tcp(51000, 10081).syn()));
	EXPECT_EQ(syn.type, host::PacketType::host);

	const FrameBuilder reply = frame().from(access_point).to(client_of_wlan_1_1).tcp(10081, 51000);
	const FrameBuilder seen = frame().from(upstream_server).to(client_of_wlan_1_1).tcp(80, 51000);
	host::PacketBuffer syn_ack = packet_of(FrameBuilder(reply).syn_ack());
	EXPECT_EQ(machine.post_routing(syn_ack, "wlan-1-1"), CP_ACCEPT);
	EXPECT_EQ(syn_ack.frame(), Frame(FrameBuilder(seen).syn_ack()));
	host::PacketBuffer page = packet_of(FrameBuilder(reply).ack().payload("HTTP/1.1 200 OK\r\n"));
	EXPECT_EQ(machine.post_routing(page, "wlan-1-1"), CP_ACCEPT);
	EXPECT_EQ(page.frame(), Frame(FrameBuilder(seen).ack().payload("HTTP/1.1 200 OK\r\n")));
	host::PacketBuffer end = packet_of(FrameBuilder(reply).fin_ack());
	EXPECT_EQ(machine.post_routing(end, "wlan-1-1"), CP_ACCEPT);
	EXPECT_EQ(end.frame(), Frame(FrameBuilder(seen).fin_ack()));
	EXPECT_EQ(connections(), std::vector<Connection>{});

	host::PacketBuffer late = packet_of(FrameBuilder(reply).ack());
	EXPECT_EQ(machine.post_routing(late, "wlan-1-1"), CP_ACCEPT);
	EXPECT_EQ(late.frame(), Frame(FrameBuilder(reply).ack()));
}

// An unadmitted client's SYN straight to its own portal port passes the gatekeeper and is dropped by the check; to port
// 80 or 443 of the access point it passes.
TEST_F(Module, DropsAnUnadmittedClientsSynToItsOwnPortalPort)
{
	load_module();
	set_portal(machine, CAPTIVE_PORTAL, 0, 1);
	const FrameBuilder to_ap = frame().from(client_of_wlan_1_1).to(access_point);
	for (const auto &[port, verdict] : {std::pair<uint16_t, cp_verdict>{10081, CP_DROP},
					    {10444, CP_DROP},
					    {80, CP_ACCEPT},
					    {443, CP_ACCEPT},
					    {22, CP_DROP}}) {
		const Frame syn = FrameBuilder(to_ap).tcp(51000, port).syn();
		host::PacketBuffer packet = packet_of(syn);
		EXPECT_EQ(machine.pre_routing(packet, "wlan-1-1"), verdict) << port;
		EXPECT_EQ(packet.mark, 5200u);
		EXPECT_EQ(packet.frame(), syn);
	}
	EXPECT_EQ(connections(), std::vector<Connection>{});
}

// ---- Stop -----------------------------------------------------------------------------------------------------------

TEST_F(Module, TakesTheHooksOffBeforeTheDevice)
{
	load_module();
	bool looked = false;
	machine.after(Event::hooks_unregistered, [&] {
		looked = true;
		EXPECT_TRUE(machine.hooks.registered().empty());
		EXPECT_TRUE(machine.misc.registered().has_value());
	});
	EXPECT_EQ(machine.unload(), 0);
	EXPECT_TRUE(looked);
	EXPECT_LOG(debug_line("captive_portal_exit\n"), debug_line("dns_parse_exit\n"),
		   default_line("kthread_stop schedule_check_thread\n"), default_line("[schedule_check]out of loop\n"));
	EXPECT_EQ(machine.events(), (std::vector{Event::hooks_registered, Event::misc_registered, Event::thread_created,
						 Event::thread_woken, Event::proc_created, Event::status_created,
						 Event::hooks_unregistered, Event::misc_deregistered,
						 Event::status_removed, Event::thread_stopped, Event::proc_removed}));
	EXPECT_EQ(machine.hooks.unregister_calls(), 1u);
	EXPECT_EQ(machine.misc.deregister_calls(), 1u);
}

TEST_F(Module, StopsTheDnsSideAfterTheDeviceIsGone)
{
	load_module();
	add_dns_arecord(arecord_bucket(upstream_server.address), 1, text_of_field("www.example.com"),
			upstream_server.address, 60);
	machine.after(Event::misc_deregistered, [&] {
		EXPECT_TRUE(match_dns_aRecord_garden_list(upstream_server.address, 0));
		EXPECT_FALSE(log_has(debug_line("dns_parse_exit\n")));
	});
	EXPECT_EQ(machine.unload(), 0);
	EXPECT_TRUE(machine.live_allocations().empty());
}

TEST_F(Module, WaitsAtStopForTheHooksThatRun)
{
	load_module();
	std::atomic<bool> hook_runs = false;
	std::atomic<bool> hook_may_end = false;
	std::atomic<bool> device_gone = false;
	machine.hooks.add_firewall_rule(host::pre_routing_hook, -300, [&](host::PacketBuffer &) {
		hook_runs = true;
		while (!hook_may_end) {
			std::this_thread::yield();
		}
		EXPECT_FALSE(device_gone) << "stop went on while a hook ran";
		return CP_ACCEPT;
	});
	machine.after(Event::misc_deregistered, [&] { device_gone = true; });
	std::thread traffic([&] { EXPECT_EQ(pass(http_syn), CP_ACCEPT); });
	while (!hook_runs) {
		std::this_thread::yield();
	}
	std::thread stop([&] { EXPECT_EQ(machine.unload(), 0); });
	std::this_thread::sleep_for(std::chrono::milliseconds(50));
	EXPECT_FALSE(device_gone);
	hook_may_end = true;
	traffic.join();
	stop.join();
	EXPECT_TRUE(device_gone);
}

TEST_F(Module, KeepsClientsAndConnectionsAtStopAndFreesTheGarden)
{
	load_module();
	change_clients(machine, ADD_LOGIN_MAC, "wlan-1-1", client_of_wlan_1_1.mac);
	change_clients(machine, ADD_MIREL_BLACK_LIST_MAC, "wlan-1-1", client_of_wlan_1_1.mac);
	record({24, client_of_wlan_1_1.address, 51000, upstream_server.address, 80, router_mac});
	const size_t kept = machine.live_allocations().size();
	EXPECT_EQ(kept, 3u);
	set_garden(machine, UPDATE_RULE, 0, 1, {domain_rule("*.example.com"), domain_rule("example.com")});
	EXPECT_EQ(machine.live_allocations().size(), kept + 2);
	EXPECT_EQ(machine.unload(), 0);
	EXPECT_EQ(machine.live_allocations().size(), kept) << "deliberate: lists of clients and connections stay";
	EXPECT_EQ(connections().size(), 1u);
}

TEST_F(Module, DoesNotTouchTheDevicesFlagAtStartAndStop)
{
	cp_dev_in_use = 1;
	EXPECT_EQ(machine.load(), 0);
	EXPECT_EQ(cp_dev_in_use, 1u);
	EXPECT_EQ(machine.unload(), 0);
	EXPECT_EQ(cp_dev_in_use, 1u);
}

TEST_F(Module, StartsAgainAfterAStop)
{
	for (int round = 0; round < 3; ++round) {
		host::reload_module_image();
		load_module();
		set_portal(machine, CAPTIVE_PORTAL, 0, 1);
		EXPECT_EQ(pass(frame().from(client_of_wlan_1_1).to(upstream_server).icmp(8)), CP_DROP);
		EXPECT_EQ(machine.unload(), 0);
		EXPECT_EQ(pass(frame().from(client_of_wlan_1_1).to(upstream_server).icmp(8)), CP_ACCEPT);
	}
}

} // namespace

} // namespace captive_portal::test
