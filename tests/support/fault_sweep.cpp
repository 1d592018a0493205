// SPDX-License-Identifier: GPL-2.0-only
#include "tests/support/fault_sweep.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <utility>

#include "tests/support/cast.h"
#include "tests/support/control.h"
#include "tests/support/kept_memory.h"
#include "tests/support/packets.h"
#include "tests/support/tables_text.h"

namespace captive_portal::test
{

namespace
{

using host::Allocation;
using host::Machine;
using Requests = std::map<Service, uint64_t>;

struct Fault {
	Service service;
	uint64_t number; // 1 is the operation's first request
};

constexpr int ordered_error = -16;

// What packets of the run that goes on are to meet, and what they have asked for.
struct PacketFaults {
	bool copy = false;
	bool make_writable = false;
	Requests requests;
};
PacketFaults packet_faults;

// Of all sweeps of this program.
size_t swept_operations = 0;
size_t swept_failures = 0;

long pass(host::PacketBuffer &packet, const std::function<cp_verdict()> &through)
{
	packet.fail_copy = packet_faults.copy;
	packet.fail_make_writable = packet_faults.make_writable;
	const cp_verdict verdict = through();
	packet_faults.requests[Service::packet_copy] += packet.copy_calls;
	packet_faults.requests[Service::make_writable] += packet.make_writable_calls;
	return verdict;
}

// A source line's number.
void take_number_out(LogLine &line)
{
	const size_t number = line.text.find(" [") + 2;
	const size_t end = line.text.find_first_not_of("0123456789", number);
	if (line.text.starts_with("summary_") && end > number && line.text.substr(end, 2) == "]:") {
		line.text.replace(number, end - number, "N");
	}
}

std::vector<size_t> sizes_in_use(const Machine &machine)
{
	std::vector<size_t> sizes;
	for (const Allocation &allocation : machine.live_allocations()) {
		sizes.push_back(allocation.size);
	}
	std::sort(sizes.begin(), sizes.end());
	return sizes;
}

struct Outcome {
	long result = 0;
	std::vector<LogLine> log;
	std::string tables;
	std::vector<size_t> memory;
	Requests requests;
	std::string tables_after_second_try;
};

// A machine of its own, from the operation's state to after the module's stop.
class Play
{
public:
	explicit Play(const Operation &operation) : operation_(operation)
	{
		packet_faults = {};
		build_access_point(machine_);
		if (operation.module_is_loaded) {
			load_module(machine_);
		}
		for (const Deed &deed : operation.state) {
			deed(machine_);
		}
		machine_.log.clear();
	}

	// The operation, with a fault or without, and once more without.
	[[nodiscard]] Outcome run(std::optional<Fault> fault)
	{
		Outcome outcome;
		const Requests before = requests();
		// Where somebody watches, the module asks for all that its rules name.
		machine_.memory.before_atomic_allocation([](size_t) {});
		if (fault.has_value()) {
			order(*fault);
		}
		outcome.result = operation_.run(machine_);
		forget_faults();
		outcome.requests = requests();
		for (auto &[service, number] : outcome.requests) {
			number -= before.at(service);
		}
		look(outcome);
		if (machine_.is_loaded() && operation_.module_is_loaded) {
			static_cast<void>(operation_.run(machine_));
			outcome.tables_after_second_try = tables_text(machine_);
		}
		stop();
		return outcome;
	}

	// Tables and memory after these deeds alone.
	[[nodiscard]] Outcome leave(const std::vector<Deed> &deeds)
	{
		for (const Deed &deed : deeds) {
			deed(machine_);
		}
		Outcome outcome;
		look(outcome);
		stop();
		return outcome;
	}

private:
	void order(const Fault &fault)
	{
		switch (fault.service) {
		case Service::allocation:
			machine_.memory.fail_allocation(fault.number);
			return;
		case Service::user_copy:
			machine_.user.fail_copy(fault.number);
			return;
		// Of these two every request fails, which is the n-th alone as long as there is one.
		case Service::packet_copy:
			EXPECT_EQ(fault.number, 1u);
			packet_faults.copy = true;
			return;
		case Service::make_writable:
			EXPECT_EQ(fault.number, 1u);
			packet_faults.make_writable = true;
			return;
		case Service::registration:
			order_registration(fault.number);
			return;
		}
	}

	void order_registration(uint64_t number)
	{
		switch (number) {
		case 1:
			machine_.counters.fail_next_creation(ordered_error);
			return;
		case 2:
			machine_.hooks.fail_next_registration(ordered_error);
			return;
		case 3:
			machine_.misc.fail_next_registration(ordered_error);
			return;
		case 4:
			machine_.threads.fail_next_creation();
			return;
		case 5:
			machine_.proc.fail_next_creation(ordered_error);
			return;
		case 6:
			machine_.status.fail_next_creation(ordered_error);
			return;
		default:
			ADD_FAILURE() << "there is no registration " << number;
		}
	}

	void forget_faults()
	{
		machine_.memory.fail_allocation(0);
		machine_.memory.before_atomic_allocation({});
		machine_.user.fail_copy(0);
		packet_faults.copy = false;
		packet_faults.make_writable = false;
	}

	[[nodiscard]] Requests requests() const
	{
		Requests all = packet_faults.requests;
		all[Service::allocation] = machine_.memory.attempts();
		all[Service::user_copy] = machine_.user.copies();
		all[Service::packet_copy] += 0;
		all[Service::make_writable] += 0;
		all[Service::registration] = uint64_t{machine_.counters.create_calls()} +
					     machine_.hooks.register_calls() + machine_.misc.register_calls() +
					     machine_.threads.create_calls() + machine_.proc.create_calls() +
					     machine_.status.create_calls();
		return all;
	}

	void look(Outcome &outcome)
	{
		machine_.locks.expect_all_free("after the operation");
		machine_.mutexes.expect_all_free("after the operation");
		outcome.log = machine_.log.take();
		std::for_each(outcome.log.begin(), outcome.log.end(), take_number_out);
		expect_nothing_lost(machine_);
		outcome.memory = sizes_in_use(machine_);
		outcome.tables = tables_text(machine_);
	}

	void stop()
	{
		if (!machine_.is_loaded()) {
			return;
		}
		const size_t clients = listed_clients();
		const size_t connections = listed_connections();
		EXPECT_EQ(machine_.unload(), 0);
		expect_only_kept_memory(machine_);
		EXPECT_EQ(machine_.live_allocations().size(), clients + connections);
	}

	const Operation &operation_;
	Machine machine_;
};

const std::vector<AfterFault> &rows_of(const Operation &operation, Service service)
{
	switch (service) {
	case Service::allocation:
		return operation.allocations;
	case Service::user_copy:
		return operation.user_copies;
	case Service::packet_copy:
		return operation.packet_copies;
	case Service::make_writable:
		return operation.make_writables;
	case Service::registration:
		break;
	}
	return operation.registrations;
}

const std::pair<Service, const char *> all_services[] = {
	{Service::allocation, "allocation"},     {Service::user_copy, "copy from or to user space"},
	{Service::packet_copy, "packet copy"},   {Service::make_writable, "packet made writable"},
	{Service::registration, "registration"},
};

bool is_all_of_it(const std::vector<Deed> &leaves)
{
	return leaves.size() == 1 && leaves.front() == nullptr;
}

void expect_row(const Operation &operation, const AfterFault &row, Fault fault, const Outcome &done)
{
	const Outcome outcome = Play(operation).run(fault);
	EXPECT_GE(outcome.requests.at(fault.service), fault.number) << "the request was made";
	EXPECT_EQ(outcome.result, row.result);
	EXPECT_EQ(outcome.log, row.log);
	const Outcome expected = is_all_of_it(row.leaves) ? done : Play(operation).leave(row.leaves);
	EXPECT_EQ(outcome.tables, expected.tables);
	EXPECT_EQ(outcome.memory, expected.memory);
	if (row.second_try_heals) {
		EXPECT_EQ(outcome.tables_after_second_try,
			  is_all_of_it(row.leaves) ? done.tables_after_second_try : done.tables);
	}
}

} // namespace

std::vector<Deed> all_of_it()
{
	return {nullptr};
}

void fail_each_request(const Operation &operation)
{
	SCOPED_TRACE(operation.name);
	const Outcome done = Play(operation).run({});
	EXPECT_EQ(done.result, operation.result);
	++swept_operations;
	for (const auto &[service, name] : all_services) {
		SCOPED_TRACE(name);
		const std::vector<AfterFault> &rows = rows_of(operation, service);
		EXPECT_EQ(done.requests.at(service), rows.size()) << "a row for each request";
		for (size_t i = 0; i < rows.size(); ++i) {
			SCOPED_TRACE("number " + std::to_string(i + 1) + ": " + rows[i].what);
			expect_row(operation, rows[i], {service, i + 1}, done);
			++swept_failures;
		}
	}
}

void SweepTotals::TearDown()
{
	const ::testing::UnitTest &all = *::testing::UnitTest::GetInstance();
	if (all.test_to_run_count() != all.total_test_count()) {
		return;
	}
	std::printf("%zu failures of %zu operations\n", swept_failures, swept_operations);
	EXPECT_EQ(swept_operations, operations_);
	EXPECT_EQ(swept_failures, failures_);
}

long pass_in(Machine &machine, const host::Frame &frame, const std::string &in, std::optional<uint32_t> firewall_mark)
{
	host::PacketBuffer packet = packet_of(frame);
	if (firewall_mark.has_value()) {
		machine.hooks.add_firewall_rule(host::pre_routing_hook, -315,
						[mark = *firewall_mark](host::PacketBuffer &marked) {
							marked.mark = mark;
							return CP_ACCEPT;
						});
	}
	return pass(packet, [&] { return machine.pre_routing(packet, in); });
}

long pass_out(Machine &machine, const host::Frame &frame, const std::string &out, host::Layout layout)
{
	host::PacketBuffer packet(frame, layout);
	return pass(packet, [&] { return machine.post_routing(packet, out); });
}

} // namespace captive_portal::test
