// SPDX-License-Identifier: GPL-2.0-only
#include "platform/host/registrations.h"

#include <algorithm>
#include <utility>

#include "platform/host/context.h"
#include "platform/host/read_sections.h"

namespace captive_portal::host
{

void BridgeHooks::insert(Entry entry)
{
	const auto behind =
		std::upper_bound(entries_.begin(), entries_.end(), entry.priority,
				 [](int32_t priority, const Entry &other) { return priority < other.priority; });
	entries_.insert(behind, std::move(entry));
}

int BridgeHooks::register_block(const cp_hook *hooks, uint32_t count)
{
	might_sleep("cp_register_hooks");
	++register_calls_;
	if (const int error = std::exchange(next_error_, 0); error != 0) {
		return error;
	}
	const std::unique_lock alone(running_);
	if (block_ != nullptr) {
		die("hooks registered twice");
	}
	for (uint32_t i = 0; i < count; ++i) {
		if (hooks[i].protocol_family != bridge_family) {
			die("hook %u is not of the bridge's family", i);
		}
		insert({hooks[i].hook_number, hooks[i].priority, hooks[i].function, {}});
	}
	block_ = hooks;
	block_count_ = count;
	return 0;
}

void BridgeHooks::unregister_block(const cp_hook *hooks, uint32_t count)
{
	might_sleep("cp_unregister_hooks");
	++unregister_calls_;
	const std::unique_lock alone(running_);
	if (block_ == nullptr) {
		return;
	}
	if (hooks != block_ || count != block_count_) {
		die("another block of hooks is unregistered than was registered");
	}
	std::erase_if(entries_, [](const Entry &entry) { return entry.hook != nullptr; });
	block_ = nullptr;
	block_count_ = 0;
}

std::vector<cp_hook> BridgeHooks::registered() const
{
	const std::shared_lock shared(running_);
	return {block_, block_ + block_count_};
}

void BridgeHooks::add_firewall_rule(uint32_t hook_number, int32_t priority, FirewallRule rule)
{
	const std::unique_lock alone(running_);
	insert({hook_number, priority, nullptr, std::move(rule)});
}

cp_verdict BridgeHooks::run(uint32_t hook_number, PacketBuffer &packet)
{
	const std::shared_lock shared(running_);
	for (const Entry &entry : entries_) {
		if (entry.hook_number != hook_number) {
			continue;
		}
		const cp_verdict verdict = entry.hook != nullptr ? run_hook(entry.hook, packet) : entry.rule(packet);
		if (verdict != CP_ACCEPT) {
			return verdict;
		}
	}
	return CP_ACCEPT;
}

cp_verdict run_hook(HookFunction hook, PacketBuffer &packet)
{
	const SoftirqContext softirq;
	const ReadSection section;
	PacketView view(packet);
	const cp_verdict verdict = hook(view.seam(), view.ports());
	expect_no_lock_held("a hook");
	view.finish();
	if (verdict != CP_ACCEPT && verdict != CP_DROP) {
		die("a hook gave the unknown verdict %d", static_cast<int>(verdict));
	}
	return verdict;
}

int MiscDevices::register_device(const cp_misc_device *device)
{
	might_sleep("cp_misc_register");
	++register_calls_;
	if (const int error = std::exchange(next_error_, 0); error != 0) {
		return error;
	}
	const std::lock_guard guard(mutex_);
	if (registered_.has_value()) {
		die("control device registered twice");
	}
	registered_ = Record{device->minor, device->name};
	return 0;
}

void MiscDevices::deregister_device(const cp_misc_device *)
{
	might_sleep("cp_misc_deregister");
	++deregister_calls_;
	const std::lock_guard guard(mutex_);
	registered_.reset();
}

std::optional<MiscDevices::Record> MiscDevices::registered() const
{
	const std::lock_guard guard(mutex_);
	return registered_;
}

} // namespace captive_portal::host
