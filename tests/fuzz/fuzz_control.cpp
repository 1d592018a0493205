// SPDX-License-Identifier: GPL-2.0-only
// Calls of the control device: every command and any other number, records from known values and from any bytes, in
// memory that is the caller's in part or not at all, while allocations fail.
#include <cstring>
#include <utility>
#include <vector>

#include "base/debug_level.h"
#include "core/control_device.h"
#include "garden/arecord_cache.h"
#include "gatekeeper/client_tables.h"
#include "tests/fuzz/control_model.h"
#include "tests/fuzz/control_records.h"
#include "tests/fuzz/pools.h"
#include "tests/fuzz/property.h"
#include "tests/fuzz/steps.h"
#include "tests/support/control.h"

namespace captive_portal::test
{

namespace
{

constexpr size_t most_calls = 48;

// The caller's memory: where the record lies, and what of it can be reached.
struct Memory {
	UserBuffer buffer;
	cp_user_address address;
};

Memory make_memory(host::Machine &machine, Input &input, ControlCall &call)
{
	const size_t size = call.record.size();
	const uint32_t kind = input.below(8);
	const size_t border = 1 + input.number<uint16_t>() % size;
	call.readable = size;
	call.writable = size;
	const auto behind_border = [&](UserAccess access) { return UserBuffer(machine, size, border, access); };
	switch (kind) {
	case 0: {
		UserBuffer buffer = behind_border(UserAccess::none);
		call.readable = call.writable = border;
		return {buffer, buffer.address()};
	}
	case 1: {
		UserBuffer buffer = behind_border(UserAccess::read_only);
		call.writable = border;
		return {buffer, buffer.address()};
	}
	case 2: {
		UserBuffer buffer = behind_border(UserAccess::read_write);
		return {buffer, buffer.address()};
	}
	case 3: {
		UserBuffer buffer(machine, size);
		buffer.protect_all(UserAccess::read_only);
		call.writable = 0;
		return {buffer, buffer.address()};
	}
	case 4:
		call.readable = call.writable = 0;
		return {UserBuffer(machine, size), (border & 1) != 0 ? refused_address : unmapped_address};
	default: {
		UserBuffer buffer(machine, size);
		return {buffer, buffer.address()};
	}
	}
}

constexpr int32_t commands[] = {
	CAPTIVE_PORTAL_IOCTL_SET, CAPTIVE_PORTAL_IOCTL_GET, WALLED_GARDEN_IOCTL_SET, WALLED_GARDEN_IOCTL_GET,
	GATEWAY_IOCTL_SET,        GATEWAY_IOCTL_GET,        GATEKEEPER_IOCTL_SET,    GATEKEEPER_IOCTL_GET,
	GATEKEEPER_IOCTL_CHECK,   GATEKEEPER_IOCTL_SET,     GATEKEEPER_IOCTL_SET,
};

// Which command, and whether a 32-bit caller makes it.
struct Choice {
	int32_t command;
	bool compat;
};

Choice choose_command(Input &input)
{
	const uint8_t choice = input.byte();
	const bool compat = (choice & 0x80) != 0;
	const uint32_t known = choice & 0x1f;
	if (known < std::size(commands)) {
		return {commands[known], compat};
	}
	return {known % 2 != 0 ? ENV_SET_DEBUG_LEVEL : input.number<int32_t>(), compat};
}

long make_call(host::Machine &machine, const Choice &choice, cp_user_address argument)
{
	return choice.compat ? machine.compat_ioctl(static_cast<uint32_t>(choice.command), argument) :
			       machine.ioctl(choice.command, argument);
}

// Cached addresses, so that new rules have something to judge.
void cache_addresses(host::Machine &machine)
{
	constexpr const char *names[] = {"www.example", "a.example.example", CP_SOCIAL_LOGIN_HOST};
	machine.clock.set(1000);
	for (const char *const name : names) {
		add_dns_arecord(arecord_bucket(upstream_server.address), 0, {name, std::strlen(name)},
				upstream_server.address, 60);
	}
	add_dns_arecord(arecord_bucket(private_server.address), 1u << 31, {names[0], std::strlen(names[0])},
			private_server.address, 60);
}

uint64_t step_limit(const ModuleState &state, const ControlCall &call)
{
	// Every list of the row is walked at most twice, every byte of a record looked at a few times.
	uint64_t listed = state.mirel_black.size() + state.mirel_white.size();
	for (const ModuleState::Rows *rows :
	     {&state.auth, &state.login, &state.white_list, &state.ga_white_list, &state.mac_auth_fallback}) {
		for (const ModuleState::MacAddresses &list : *rows) {
			listed += list.size();
		}
	}
	const uint64_t limit = 2000 + 64 * listed + 8 * call.record.size();
	if (call.command != WALLED_GARDEN_IOCTL_SET) {
		return limit;
	}
	// The cache's names, at most 24 characters, are asked about by each row's rules.
	constexpr uint64_t names = 4;
	constexpr uint64_t default_rules = WG_DEFAULT_RULES * 8 * (WG_DOMAIN_NAME_SIZE + 24);
	constexpr uint64_t rules = WG_RULES_PER_RECORD * 8 * (WG_DOMAIN_NAME_SIZE + 1) * (24 + 8);
	return limit + CP_ROWS * (8 * ARECORD_BUCKETS + names * (1024 + default_rules + rules));
}

void check_device_file(host::Machine &machine, Input &input, uint32_t &opened)
{
	if (opened != 0 && input.below(2) != 0) {
		REQUIRE_PROPERTY(machine.release() == 0, "the device can be closed");
		--opened;
	} else {
		REQUIRE_PROPERTY(machine.open() == (opened == 0 ? 0 : -16), "one opener at a time");
		opened = 1;
	}
	REQUIRE_PROPERTY(machine.module_references() == static_cast<int32_t>(opened),
			 "an open device holds the module");
}

void check_call(host::Machine &machine, Input &input, ModuleState &state, size_t &lost)
{
	const Choice choice = choose_command(input);
	ControlCall call{.command = choice.command,
			 .record = make_record(input, choice.command),
			 .argument = 0,
			 .readable = 0,
			 .writable = 0,
			 .failing_allocation = 0};
	const uint8_t faults = input.byte();
	if ((faults & 0x0f) == 1) {
		input.fill(call.record);
	}
	if ((faults & 0x30) == 0x30) {
		call.failing_allocation = 1 + input.below(32);
	}
	const Memory memory = make_memory(machine, input, call);
	UserBuffer buffer = memory.buffer;
	buffer.write(std::as_bytes(std::span(call.record)));
	cp_user_address argument = memory.address;
	if (choice.command == ENV_SET_DEBUG_LEVEL) {
		argument = input.number<cp_user_address>();
	}

	const ControlEffect effect = apply(state, call);
	if (call.failing_allocation != 0) {
		machine.memory.fail_allocation(call.failing_allocation);
	}
	long result = 0;
	const uint64_t steps = steps_of([&] { result = make_call(machine, choice, argument); });
	machine.memory.fail_allocation(0);

	REQUIRE_PROPERTY(result == effect.result, "the result is the described one");
	const std::vector<std::byte> found = buffer.read();
	REQUIRE_PROPERTY(std::memcmp(found.data(), effect.record.data(), found.size()) == 0,
			 "the caller finds the described record");
	const ModuleState after = module_state();
	// A rule whose pattern finds no memory for its copy judges no cached name.
	if (call.failing_allocation > 2) {
		state.cache = after.cache;
	}
	REQUIRE_PROPERTY(after == state, "the tables are as described");
	REQUIRE_PROPERTY(steps <= step_limit(state, call), "the steps are bounded");
	if (choice.command == ENV_SET_DEBUG_LEVEL) {
		const auto level = static_cast<int32_t>(static_cast<uint32_t>(argument));
		REQUIRE_PROPERTY(debug_level == level, "the debug level is the argument");
	}
	lost += effect.lost;
	const std::vector<host::LogLine> lines = machine.log.take();
	REQUIRE_PROPERTY(lines.size() <= 3 + size_t{WG_RULES_PER_RECORD} + CP_ROWS * 4u * WG_RULES_PER_RECORD,
			 "what is said is bounded");
}

void check(const uint8_t *data, size_t size)
{
	host::Machine machine;
	machine.threads.fail_next_creation();
	load_module(machine);
	cache_addresses(machine);
	ModuleState state = module_state();
	size_t lost = 0;
	uint32_t opened = 0;
	Input input(data, size);
	for (size_t call = 0; call < most_calls && !input.empty(); ++call) {
		if (input.below(16) == 0) {
			check_device_file(machine, input, opened);
		} else {
			check_call(machine, input, state, lost);
		}
	}
	const std::vector<host::Allocation> allocations = machine.lost_allocations();
	REQUIRE_PROPERTY(allocations.size() == lost, "only nodes made before a refusal are lost");
	for (const host::Allocation &allocation : allocations) {
		REQUIRE_PROPERTY(allocation.size == sizeof(mac_entry), "only nodes made before a refusal are lost");
	}
}

} // namespace

} // namespace captive_portal::test

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	captive_portal::test::check(data, size);
	return 0;
}
