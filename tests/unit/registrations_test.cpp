// SPDX-License-Identifier: GPL-2.0-only
// Hook points and the control device's registration, with hooks of the test's own.
#include "platform/host/registrations.h"

#include <atomic>
#include <thread>

#include "platform/host/context.h"
#include "tests/support/frame_builder.h"
#include "tests/support/host_test.h"

namespace captive_portal::test
{

namespace
{

using host::PacketBuffer;

// What ran, in order; reset by each test.
std::vector<std::string> ran;

cp_verdict note_first(cp_packet *packet, const cp_ports *ports)
{
	ran.push_back(std::string("first on ") + ports->in_name);
	*packet->mark += 1;
	return CP_ACCEPT;
}

cp_verdict note_second(cp_packet *packet, const cp_ports *)
{
	ran.push_back("second with mark " + std::to_string(*packet->mark));
	return *packet->mark == 13 ? CP_DROP : CP_ACCEPT;
}

cp_verdict note_third(cp_packet *, const cp_ports *ports)
{
	ran.push_back(std::string("third on ") + ports->out_name + (ports->in_name == nullptr ? "" : " with ingress"));
	return CP_ACCEPT;
}

// Not in the order of priorities.
constexpr cp_hook block[] = {
	{note_second, 7, 0, -310},
	{note_first, 7, 0, -320},
	{note_third, 7, 4, 80},
};

Frame any_frame()
{
	return frame().from(client_of_wlan_1_1).to(upstream_server).udp(1, 2);
}

class BridgeHooks : public HostTest
{
protected:
	void SetUp() override { ran.clear(); }
};

using BridgeHooksDeathTest = BridgeHooks;
using MiscDevices = HostTest;

} // namespace

TEST_F(BridgeHooks, RunInOrderOfPriority)
{
	ASSERT_EQ(cp_register_hooks(block, 3), 0);
	PacketBuffer packet(any_frame());
	EXPECT_EQ(machine.pre_routing(packet, "wlan-1-1"), CP_ACCEPT);
	EXPECT_EQ(ran, (std::vector<std::string>{"first on wlan-1-1", "second with mark 1"}));
	EXPECT_EQ(machine.hooks.registered().size(), 3u);
}

TEST_F(BridgeHooks, HaveNoIngressDeviceAtPostRouting)
{
	ASSERT_EQ(cp_register_hooks(block, 3), 0);
	PacketBuffer packet(any_frame());
	EXPECT_EQ(machine.post_routing(packet, "wlan-1-1"), CP_ACCEPT);
	EXPECT_EQ(ran, (std::vector<std::string>{"third on wlan-1-1"}));
}

TEST_F(BridgeHooks, StopAtADrop)
{
	ASSERT_EQ(cp_register_hooks(block, 3), 0);
	machine.hooks.add_firewall_rule(host::pre_routing_hook, -300, [](PacketBuffer &) {
		ran.push_back("rule");
		return CP_ACCEPT;
	});
	PacketBuffer packet(any_frame());
	packet.mark = 12;
	EXPECT_EQ(machine.pre_routing(packet, "wlan-1-1"), CP_DROP);
	EXPECT_EQ(ran, (std::vector<std::string>{"first on wlan-1-1", "second with mark 13"}));
}

TEST_F(BridgeHooks, LetAFirewallRuleMarkBetweenThem)
{
	ASSERT_EQ(cp_register_hooks(block, 3), 0);
	machine.hooks.add_firewall_rule(host::pre_routing_hook, -315, [](PacketBuffer &packet) {
		packet.mark = 5307;
		return CP_ACCEPT;
	});
	PacketBuffer packet(any_frame());
	EXPECT_EQ(machine.pre_routing(packet, "eth0"), CP_ACCEPT);
	EXPECT_EQ(ran, (std::vector<std::string>{"first on eth0", "second with mark 5307"}));
}

TEST_F(BridgeHooks, FailToRegisterOnOrderOnce)
{
	machine.hooks.fail_next_registration(-12);
	EXPECT_EQ(cp_register_hooks(block, 3), -12);
	EXPECT_TRUE(machine.hooks.registered().empty());
	cp_unregister_hooks(block, 3);
	EXPECT_EQ(cp_register_hooks(block, 3), 0);
	EXPECT_EQ(machine.hooks.register_calls(), 2u);
	EXPECT_EQ(machine.hooks.unregister_calls(), 1u);
	EXPECT_EQ(machine.events(),
		  (std::vector<host::Event>{host::Event::hooks_refused, host::Event::hooks_unregistered,
					    host::Event::hooks_registered}));
}

TEST_F(BridgeHooks, RunNoMoreWhenTheyAreUnregistered)
{
	ASSERT_EQ(cp_register_hooks(block, 3), 0);
	cp_unregister_hooks(block, 3);
	PacketBuffer packet(any_frame());
	EXPECT_EQ(machine.pre_routing(packet, "wlan-1-1"), CP_ACCEPT);
	EXPECT_TRUE(ran.empty());
}

namespace
{

std::atomic<bool> hook_runs;
std::atomic<bool> hook_may_end;

cp_verdict wait_in_hook(cp_packet *, const cp_ports *)
{
	hook_runs = true;
	while (!hook_may_end) {
		std::this_thread::yield();
	}
	return CP_ACCEPT;
}

constexpr cp_hook waiting_block[] = {{wait_in_hook, 7, 0, 0}};

} // namespace

TEST_F(BridgeHooks, AreWaitedForWhenTheyAreUnregistered)
{
	hook_runs = false;
	hook_may_end = false;
	ASSERT_EQ(cp_register_hooks(waiting_block, 1), 0);
	std::thread traffic([&] {
		PacketBuffer packet(any_frame());
		static_cast<void>(machine.pre_routing(packet, "wlan-1-1"));
	});
	while (!hook_runs) {
		std::this_thread::yield();
	}
	std::atomic<bool> unregistered = false;
	std::thread unload([&] {
		cp_unregister_hooks(waiting_block, 1);
		unregistered = true;
	});
	std::this_thread::sleep_for(std::chrono::milliseconds(20));
	EXPECT_FALSE(unregistered);
	hook_may_end = true;
	traffic.join();
	unload.join();
	EXPECT_TRUE(unregistered);
}

TEST_F(BridgeHooksDeathTest, DieWhenTheyReturnWithALock)
{
	const auto hook = [](cp_packet *, const cp_ports *) {
		cp_spin_lock_bh(CP_LOCK_CP);
		return CP_ACCEPT;
	};
	PacketBuffer packet(any_frame());
	EXPECT_DEATH(static_cast<void>(host::run_hook(hook, packet)), "a hook returned with a spin lock held");
}

TEST_F(BridgeHooksDeathTest, DieWhenTheySleep)
{
	const auto hook = [](cp_packet *, const cp_ports *) {
		uint32_t word = 0;
		static_cast<void>(cp_copy_from_user(&word, 0, sizeof(word)));
		return CP_ACCEPT;
	};
	PacketBuffer packet(any_frame());
	EXPECT_DEATH(static_cast<void>(host::run_hook(hook, packet)), "may sleep, but a hook is running");
}

TEST_F(BridgeHooksDeathTest, DieForAnUnknownVerdict)
{
	PacketBuffer packet(any_frame());
	EXPECT_DEATH(static_cast<void>(host::run_hook(
			     [](cp_packet *, const cp_ports *) { return static_cast<cp_verdict>(2); }, packet)),
		     "unknown verdict 2");
}

TEST_F(BridgeHooksDeathTest, DieWhenRegisteredTwiceOrForAnotherFamilyOrUnregisteredAsOthers)
{
	constexpr cp_hook of_ipv4[] = {{note_first, 2, 0, 0}};
	EXPECT_DEATH(static_cast<void>(cp_register_hooks(of_ipv4, 1)), "not of the bridge's family");
	ASSERT_EQ(cp_register_hooks(block, 3), 0);
	EXPECT_DEATH(static_cast<void>(cp_register_hooks(block, 3)), "hooks registered twice");
	EXPECT_DEATH(cp_unregister_hooks(block, 2), "another block of hooks");
}

TEST_F(MiscDevices, AreRegisteredUnderTheirName)
{
	const cp_misc_device device = {255, "CP_dev"};
	ASSERT_EQ(cp_misc_register(&device), 0);
	ASSERT_TRUE(machine.misc.registered().has_value());
	EXPECT_EQ(machine.misc.registered()->minor, 255);
	EXPECT_EQ(machine.misc.registered()->name, "CP_dev");
	cp_misc_deregister(&device);
	EXPECT_FALSE(machine.misc.registered().has_value());
}

TEST_F(MiscDevices, FailToRegisterOnOrderOnce)
{
	const cp_misc_device device = {255, "CP_dev"};
	machine.misc.fail_next_registration(-16);
	EXPECT_EQ(cp_misc_register(&device), -16);
	EXPECT_FALSE(machine.misc.registered().has_value());
	cp_misc_deregister(&device);
	EXPECT_EQ(cp_misc_register(&device), 0);
	EXPECT_EQ(machine.misc.register_calls(), 2u);
	EXPECT_EQ(machine.misc.deregister_calls(), 1u);
}

} // namespace captive_portal::test
