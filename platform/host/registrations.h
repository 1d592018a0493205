// SPDX-License-Identifier: GPL-2.0-only
// What the module has registered: its block of bridge hooks and its control device. Either registration can be made to
// fail, and calls are counted.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <vector>

#include "platform/host/packet_buffer.h"
#include "platform/platform.h"

namespace captive_portal::host
{

using HookFunction = enum cp_verdict (*)(struct cp_packet *packet, const struct cp_ports *ports);
// A rule of the machine's firewall: sees the packet, may mark it, gives a verdict.
using FirewallRule = std::function<cp_verdict(PacketBuffer &)>;

// Hook points of the bridge, as the kernel numbers them, and its protocol family.
enum BridgeHook : uint32_t { pre_routing_hook = 0, post_routing_hook = 4 };
inline constexpr uint8_t bridge_family = 7;

class BridgeHooks
{
public:
	[[nodiscard]] int register_block(const cp_hook *hooks, uint32_t count);
	// Returns when no hook runs any more.
	void unregister_block(const cp_hook *hooks, uint32_t count);

	// The next registration gives this negative error.
	void fail_next_registration(int error) { next_error_ = error; }
	[[nodiscard]] uint32_t register_calls() const { return register_calls_; }
	[[nodiscard]] uint32_t unregister_calls() const { return unregister_calls_; }
	// In the order of registration; empty when nothing is registered.
	[[nodiscard]] std::vector<cp_hook> registered() const;

	// Runs with the module's hooks, those of the lower priority number first.
	void add_firewall_rule(uint32_t hook_number, int32_t priority, FirewallRule rule);

	// Runs the packet through everything at a hook point, up to the first drop.
	[[nodiscard]] cp_verdict run(uint32_t hook_number, PacketBuffer &packet);

private:
	struct Entry {
		uint32_t hook_number;
		int32_t priority;
		HookFunction hook; // null: a firewall rule
		FirewallRule rule;
	};

	void insert(Entry entry);

	// Shared while hooks run; a registration changes the list alone.
	mutable std::shared_mutex running_;
	std::vector<Entry> entries_; // by priority
	const cp_hook *block_ = nullptr;
	uint32_t block_count_ = 0;
	int next_error_ = 0;
	std::atomic<uint32_t> register_calls_ = 0;
	std::atomic<uint32_t> unregister_calls_ = 0;
};

// Runs one hook on one packet, registered or not, in softirq context.
[[nodiscard]] cp_verdict run_hook(HookFunction hook, PacketBuffer &packet);

class MiscDevices
{
public:
	struct Record {
		int32_t minor;
		std::string name;
	};

	[[nodiscard]] int register_device(const cp_misc_device *device);
	void deregister_device(const cp_misc_device *device);

	// The next registration gives this negative error.
	void fail_next_registration(int error) { next_error_ = error; }
	[[nodiscard]] uint32_t register_calls() const { return register_calls_; }
	[[nodiscard]] uint32_t deregister_calls() const { return deregister_calls_; }
	// The device as it was registered; absent while there is none.
	[[nodiscard]] std::optional<Record> registered() const;

private:
	mutable std::mutex mutex_;
	std::optional<Record> registered_;
	int next_error_ = 0;
	std::atomic<uint32_t> register_calls_ = 0;
	std::atomic<uint32_t> deregister_calls_ = 0;
};

} // namespace captive_portal::host
