// SPDX-License-Identifier: GPL-2.0-only
// Any patterns and rules against any names and addresses.
#include <vector>

#include "base/debug_level.h"
#include "garden/arecord_cache.h"
#include "garden/pattern.h"
#include "garden/walled_garden.h"
#include "tests/fuzz/control_model.h"
#include "tests/fuzz/pools.h"
#include "tests/fuzz/property.h"
#include "tests/fuzz/reference.h"
#include "tests/fuzz/steps.h"
#include "tests/support/control.h"

namespace captive_portal::test
{

namespace
{

// A text in a heap block of exactly its size.
class ExactText
{
public:
	explicit ExactText(const std::string &text) : bytes_(text.begin(), text.end()) {}
	[[nodiscard]] Text text() const { return {bytes_.data(), bytes_.size()}; }

private:
	std::vector<char> bytes_;
};

// One pattern alone, with and without memory for the copy that it is worked on in.
void check_pattern(host::Machine &machine, const std::string &pattern, const std::string &name)
{
	const ExactText exact_pattern(pattern);
	const ExactText exact_name(name);
	const bool expected = reference_pattern_matches(pattern, name);
	const auto matches = [&] { return pattern_matches(exact_pattern.text(), exact_name.text()); };

	debug_level = 3;
	machine.log.clear();
	const size_t allocated = machine.live_allocations().size();
	bool matched = false;
	const uint64_t steps = steps_of([&] { matched = matches(); });
	REQUIRE_PROPERTY(matched == expected, "the pattern matches as the reference says");
	// Each character of the pattern is tried at most once at each place of the name.
	REQUIRE_PROPERTY(steps <= 64 + 16 * (pattern.size() + name.size()) + 8 * pattern.size() * name.size(),
			 "the steps are bounded");
	REQUIRE_PROPERTY(machine.log.take().size() <= (matched ? 0u : 1u), "only a text left over is told of");
	REQUIRE_PROPERTY(machine.live_allocations().size() == allocated, "the copy is given back");

	debug_level = 0;
	REQUIRE_PROPERTY(matches() == expected && machine.log.take().empty(), "the debug level changes nothing");
	machine.memory.fail_all_allocations(true);
	const bool needs_no_memory = pattern.find_first_of("*?") == std::string::npos || pattern.size() == 1;
	REQUIRE_PROPERTY(matches() == (needs_no_memory && expected), "a pattern without memory does not match");
	machine.memory.fail_all_allocations(false);
}

// Writes up to 24 rules into the row, or as default rules, and says what must be there now.
void write_rules(host::Machine &machine, Input &input, uint32_t row, wg_set_command sub_command, ModuleState &expected)
{
	wg_cmd record{};
	record.cmd = sub_command;
	record.iface = static_cast<int32_t>(row);
	record.enable_value = 1;
	record.rule_number = static_cast<int32_t>(input.below(WG_RULES_PER_RECORD + 1));
	for (int32_t i = 0; i < record.rule_number; ++i) {
		wg_rule &rule = record.rules[i];
		rule.rule_type = input.below(3);
		rule.ip_addr = pick_address(input).raw;
		rule.netmask = be32::from_host(~0u << input.below(32)).raw;
		set_text(rule.domain_name, pick_pattern(input));
	}
	const ControlEffect effect = apply(expected, {.command = WALLED_GARDEN_IOCTL_SET,
						      .record = bytes_of(record),
						      .argument = 0,
						      .readable = sizeof(record),
						      .writable = sizeof(record),
						      .failing_allocation = 0});
	REQUIRE_PROPERTY(effect.result == 0, "rules can be written");
	REQUIRE_PROPERTY(command(machine, WALLED_GARDEN_IOCTL_SET, record) == 0, "rules can be written");
	machine.log.clear();
}

uint64_t characters_of(const std::vector<ModuleState::Rule> &rules)
{
	uint64_t characters = 0;
	for (const ModuleState::Rule &rule : rules) {
		characters += 4 + rule.domain.size();
	}
	return characters;
}

bool permits_name(const std::string &name, uint32_t row, uint64_t characters_of_rules)
{
	const ExactText exact(name);
	const Text text = exact.text();
	bool permitted = false;
	const uint64_t steps = steps_of([&] { permitted = match_garden_list(GardenQuery::domain, {}, &text, row); });
	const uint64_t default_characters = WG_DEFAULT_RULES * (WG_DOMAIN_NAME_SIZE + name.size());
	REQUIRE_PROPERTY(steps <= 1024 + 8 * default_characters + 8 * characters_of_rules * (name.size() + 8),
			 "the steps are bounded");
	return permitted;
}

// All rows at once, as answers ask and as the cache is judged: at no debug level another answer than row by row.
void check_rows(host::Machine &machine, const ModuleState &state, const std::string &name)
{
	uint32_t permitted = 0;
	uint64_t characters = 0;
	for (uint32_t row = 0; row < CP_ROWS; ++row) {
		permitted |= static_cast<uint32_t>(reference_permits_name(state, row, name)) << row;
		characters += characters_of(state.gardens[row].rules);
	}
	const ExactText exact(name);
	const int32_t level = debug_level;
	for (debug_level = 0; debug_level <= 3; ++debug_level) {
		uint32_t rows = 0;
		const uint64_t steps = steps_of([&] { rows = match_garden_rows(exact.text()); });
		REQUIRE_PROPERTY(rows == permitted, "the rows permit the name");
		REQUIRE_PROPERTY(steps <=
					 CP_ROWS * (1024 + 8 * WG_DEFAULT_RULES * (WG_DOMAIN_NAME_SIZE + name.size())) +
						 8 * characters * (name.size() + 8),
				 "the steps are bounded");
	}
	debug_level = level;
	// Without memory a rule may fail to match, and no other matches instead.
	machine.log.clear();
	machine.memory.fail_all_allocations(true);
	const uint32_t without_memory = match_garden_rows(exact.text());
	machine.memory.fail_all_allocations(false);
	REQUIRE_PROPERTY((without_memory & ~permitted) == 0, "no rule matches for want of memory");
	const std::string longer = name + std::string(WG_DOMAIN_NAME_SIZE, 'x');
	const ExactText exact_longer(longer);
	const uint32_t permit_longer = match_garden_rows(exact_longer.text());
	for (uint32_t row = 0; row < CP_ROWS; ++row) {
		REQUIRE_PROPERTY((permit_longer >> row & 1) ==
					 static_cast<uint32_t>(reference_permits_name(state, row, longer)),
				 "the rows permit the longer name");
	}
	machine.log.clear();
}

void check_rules(host::Machine &machine, Input &input)
{
	const uint32_t row = input.below(CP_ROWS);
	const uint32_t other_row = (row + 1) % CP_ROWS;
	ModuleState state = module_state();
	write_rules(machine, input, row, UPDATE_DEFAULT_RULE, state);
	write_rules(machine, input, row, UPDATE_RULE, state);
	for (uint32_t count = input.below(4); count > 0; --count) {
		write_rules(machine, input, input.below(CP_ROWS), UPDATE_RULE, state);
	}
	std::vector<std::string> names;
	for (uint32_t count = input.below(8); count > 0; --count) {
		names.push_back(text_in_field(pick_domain(input).c_str(), 127));
	}
	debug_level = static_cast<int32_t>(input.below(4));

	for (const std::string &name : names) {
		REQUIRE_PROPERTY(permits_name(name, row, characters_of(state.gardens[row].rules)) ==
					 reference_permits_name(state, row, name),
				 "the rules permit the name");
		// A rule holds for its row alone, a default rule for all.
		REQUIRE_PROPERTY(permits_name(name, other_row, characters_of(state.gardens[other_row].rules)) ==
					 reference_permits_name(state, other_row, name),
				 "the default rules permit the name");
		check_rows(machine, state, name);
	}
	for (uint32_t count = input.below(8); count > 0; --count) {
		const Ipv4Address address = pick_address(input);
		REQUIRE_PROPERTY(match_garden_list(GardenQuery::address, address, nullptr, row) ==
					 reference_permits_address(state, row, address.raw),
				 "the rules permit the address");
	}

	// What was judged by the old rules is judged anew by the next.
	for (const std::string &name : names) {
		const Ipv4Address address = pick_address(input);
		add_dns_arecord(arecord_bucket(address), input.number<uint32_t>(), {name.data(), name.size()}, address,
				input.byte());
	}
	state = module_state();
	write_rules(machine, input, row, input.below(2) != 0 ? UPDATE_RULE : UPDATE_DEFAULT_RULE, state);
	REQUIRE_PROPERTY(module_state() == state, "the new rules judge every cached address");
	for (const ModuleState::CachedAddress &entry : state.cache) {
		REQUIRE_PROPERTY(match_dns_aRecord_garden_list({static_cast<uint32_t>(entry.address)}, row) ==
					 ((entry.mask >> row & 1) != 0),
				 "the cache permits what its mask says");
	}
}

// A query without what its type needs, or of no type, is refused; the first is told of from debug level 1 on.
void check_wrong_queries(host::Machine &machine)
{
	for (const int32_t level : {0, 1}) {
		debug_level = level;
		machine.log.clear();
		REQUIRE_PROPERTY(!match_garden_list(GardenQuery::domain, {}, nullptr, 0), "no name, no match");
		REQUIRE_PROPERTY(!match_garden_list(GardenQuery::address, {}, nullptr, 0), "no address, no match");
		REQUIRE_PROPERTY(!match_garden_list(static_cast<GardenQuery>(2), {}, nullptr, 0), "no type, no match");
		REQUIRE_PROPERTY(machine.log.take().size() == 2 * static_cast<size_t>(level),
				 "each refusal is told of");
	}
}

// The switch of a row, by the mark that its packets carry.
void check_switches(host::Machine &machine, Input &input)
{
	const uint32_t row = input.below(CP_ROWS);
	const uint32_t value = input.below(3);
	set_garden(machine, WALLED_GARDEN, static_cast<int32_t>(row), value);
	const uint32_t mark = pick_mark(input);
	const bool is_rows = row < CP_WIRELESS_INTERFACES ? mark == cp_interface_mark(row) :
							    row == CP_ROW_MIREL && mark == MARK_MIREL_BLACK;
	REQUIRE_PROPERTY(is_walled_garden_enable(mark) == (is_rows ? value : 0), "a mark asks for its row's switch");
}

void check(const uint8_t *data, size_t size)
{
	host::Machine machine;
	machine.threads.fail_next_creation();
	load_module(machine);
	check_wrong_queries(machine);
	Input input(data, size);
	const uint8_t kind = input.byte();
	if ((kind & 1) != 0) {
		check_rules(machine, input);
	} else if ((kind & 2) != 0) {
		check_switches(machine, input);
	} else {
		const size_t length = input.below(WG_DOMAIN_NAME_SIZE);
		const std::string pattern = input.text(length);
		check_pattern(machine, pattern, input.text(input.size()));
	}
	REQUIRE_PROPERTY(machine.lost_allocations().empty(), "no memory is lost");
	REQUIRE_PROPERTY(machine.unload() == 0 && machine.live_allocations().empty(), "stop gives back every rule");
}

} // namespace

} // namespace captive_portal::test

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	captive_portal::test::check(data, size);
	return 0;
}
