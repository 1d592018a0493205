// SPDX-License-Identifier: GPL-2.0-only
#include "platform/host/machine.h"

#include <array>

#include "platform/host/bookkeeping.h"
#include "platform/host/context.h"
#include "platform/host/module_image.h"

namespace captive_portal::host
{

namespace
{

std::atomic<Machine *> the_machine = nullptr;

} // namespace

Machine::Machine()
{
	Machine *none = nullptr;
	if (!the_machine.compare_exchange_strong(none, this)) {
		die("two machines at a time");
	}
	reload_module_image();
}

Machine::~Machine()
{
	// They are the module's code, and need the machine.
	threads.end_all();
	locks.expect_all_free("at the machine's end");
	mutexes.expect_all_free("at the machine's end");
	the_machine = nullptr;
}

Machine &Machine::current()
{
	Machine *const machine = the_machine.load(std::memory_order_relaxed);
	if (machine == nullptr) {
		die("the module runs without a machine");
	}
	return *machine;
}

std::vector<Allocation> Machine::lost_allocations() const
{
	return memory.unreachable_from(module_image());
}

void Machine::put_module()
{
	if (--module_references_ < 0) {
		die("module reference given back that was not taken");
	}
}

cp_verdict Machine::pre_routing(PacketBuffer &packet, const std::string &in_name)
{
	packet.in_name = in_name;
	packet.out_name.reset();
	return hooks.run(pre_routing_hook, packet);
}

cp_verdict Machine::post_routing(PacketBuffer &packet, const std::string &out_name)
{
	packet.in_name.reset();
	packet.out_name = out_name;
	return hooks.run(post_routing_hook, packet);
}

std::vector<Event> Machine::events() const
{
	const BookkeepingGuard guard(events_mutex_);
	return events_;
}

void Machine::after(Event event, std::function<void()> action)
{
	const BookkeepingGuard guard(events_mutex_);
	actions_[event] = std::move(action);
}

void Machine::happened(Event event)
{
	std::function<void()> action;
	{
		const BookkeepingGuard guard(events_mutex_);
		events_.push_back(event);
		if (const auto found = actions_.find(event); found != actions_.end()) {
			action = found->second;
		}
	}
	if (action) {
		action();
	}
}

} // namespace captive_portal::host
