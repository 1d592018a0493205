// SPDX-License-Identifier: GPL-2.0-only
// Any bytes as a DNS message on its way to a client.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "base/debug_level.h"
#include "garden/arecord_table.h"
#include "garden/dns_name.h"
#include "garden/dns_parser.h"
#include "garden/dns_sections.h"
#include "garden/walled_garden.h"
#include "platform/host/machine.h"
#include "tests/fuzz/property.h"
#include "tests/fuzz/steps.h"
#include "tests/support/cast.h"
#include "tests/support/control.h"

namespace captive_portal::test
{

namespace
{

// Rows with rules: a pattern, every name, an address.
constexpr uint32_t rows_with_rules = 1u << 0 | 1u << 1 | 1u << 27;

struct StoredAddress {
	uint64_t address;
	std::string name;
	uint32_t mask;
	int64_t deadline;

	friend bool operator==(const StoredAddress &, const StoredAddress &) = default;
};

std::vector<StoredAddress> stored_addresses()
{
	std::vector<StoredAddress> all;
	for (const ArecordBucket &bucket : dns_aRecord) {
		for (const dns_arecord &entry : bucket) {
			for (const fqdn_node &node : entry.fqdn_list) {
				all.push_back({entry.ip, node.fqdn, entry.is_match_wg, entry.timeout});
			}
		}
	}
	return all;
}

void write_rule(int32_t row, const wg_rule &rule)
{
	wg_cmd command{};
	command.cmd = UPDATE_RULE;
	command.iface = row;
	command.enable_value = 1;
	command.rule_number = 1;
	command.rules[0] = rule;
	REQUIRE_PROPERTY(if_device_write_wg(&command, sizeof(command)) == 0, "rules can be written");
}

// The sections' readers refuse what is not there, and say so from debug level 2 on.
void check_nothing_given(host::Machine &machine)
{
	const uint8_t message[] = {0};
	char name[DNS_NAME_SIZE] = {};
	for (const int32_t level : {1, 2}) {
		debug_level = level;
		REQUIRE_PROPERTY(read_question_name(nullptr, message, message) == nullptr, "no room, no name");
		REQUIRE_PROPERTY(read_question_name(name, nullptr, message) == nullptr, "no question, no name");
		REQUIRE_PROPERTY(!store_answers(nullptr, name, message, message, 1, 1), "no message, no answer");
		REQUIRE_PROPERTY(!store_answers(message, nullptr, message, message, 1, 1), "no name, no answer");
		REQUIRE_PROPERTY(!store_answers(message, name, nullptr, message, 1, 1), "no section, no answer");
		REQUIRE_PROPERTY(machine.log.take().size() == (level == 1 ? 0u : 5u), "each refusal is told of");
	}
}

host::Machine &make_machine()
{
	host::Machine &machine = *new host::Machine;
	check_nothing_given(machine);
	init_walled_garden_table();
	write_rule(0, domain_rule("*.example"));
	write_rule(1, domain_rule("*"));
	write_rule(27, address_rule(ipv4(10, 0, 0, 0), ipv4(255, 0, 0, 0)));
	return machine;
}

void forget(host::Machine &machine)
{
	empty_cache();
	machine.log.clear();
}

// The name is asked about in 28 rows. Each record starts a byte further on at least; where addresses are stored, each
// may be looked for among all of them. `per_name` for each owner name.
uint64_t step_limit(size_t records, size_t stored, uint64_t per_name)
{
	constexpr uint64_t matching = CP_ROWS * (64 + 16 * WG_DEFAULT_RULES + 32 * DNS_NAME_SIZE);
	const uint64_t per_record = 64 + (stored != 0 ? 8 * (DNS_NAME_SIZE + stored) : 0);
	return matching + records * (per_record + per_name);
}

void check(const uint8_t *data, size_t size)
{
	static host::Machine &machine = make_machine();
	const std::vector<uint8_t> message(data, data + size);
	const auto parse = [&](int32_t level) {
		debug_level = level;
		const int32_t result = parse_dns(message.data(), static_cast<int32_t>(message.size()));
		REQUIRE_PROPERTY(result == (size <= 12 ? -1 : 0), "the result tells of the length alone");
		REQUIRE_PROPERTY(size == 0 || std::memcmp(message.data(), data, size) == 0,
				 "the message is not changed");
	};

	// A long message may say a line for each label of each name, which is too much to ask for.
	const int32_t told = size <= 600 ? 3 : 1;
	forget(machine);
	const uint64_t steps = steps_of([&] { parse(told); });
	const std::vector<StoredAddress> stored = stored_addresses();
	const size_t count = size <= 12 ? 0 : message[6] * 256u + message[7];
	const size_t most_records = std::min(count, size);
	// Who is to be told of every label pays for them: a name may go over the message with each pointer.
	REQUIRE_PROPERTY(
		steps <= 16 * size + step_limit(most_records, stored.size(), 8 * (DNS_POINTERS_PER_NAME + 1) * size),
		"the steps are bounded");
	REQUIRE_PROPERTY(stored.size() <= count, "no more addresses than records");
	REQUIRE_PROPERTY(static_cast<size_t>(total_ip_count) <= stored.size(), "every address has a name");
	for (const StoredAddress &one : stored) {
		const auto *const bytes = reinterpret_cast<const uint8_t *>(&one.address);
		REQUIRE_PROPERTY(std::search(message.begin() + 12, message.end(), bytes, bytes + 4) != message.end(),
				 "addresses come from the message");
		REQUIRE_PROPERTY(one.name.size() <= 127, "names are at most 127 characters");
		REQUIRE_PROPERTY((one.mask & ~rows_with_rules) == 0, "only rules permit");
		REQUIRE_PROPERTY(one.name == stored.front().name, "one name a message");
	}
	// Records may overlap, but each starts a byte further on at least. It says, with its cut labels, at most one line
	// a byte; the last name may go round with every pointer.
	const size_t records = std::min(count, size);
	REQUIRE_PROPERTY(machine.log.take().size() <= (records + 33) * (size + 4) + 64, "the steps are bounded");

	parse(told);
	REQUIRE_PROPERTY(stored_addresses() == stored, "a second look stores nothing new");
	if (told == 3) {
		forget(machine);
		parse(2);
		REQUIRE_PROPERTY(stored_addresses() == stored, "the debug level changes nothing");
		machine.log.clear();
	}
	forget(machine);
	const uint64_t silent_steps = steps_of([&] { parse(0); });
	REQUIRE_PROPERTY(stored_addresses() == stored, "the debug level changes nothing");
	// Only the last name may go over the message with each pointer; those before it together do so a few times.
	REQUIRE_PROPERTY(silent_steps <=
				 16 * (DNS_POINTERS_PER_NAME + 16) * size + step_limit(most_records, stored.size(), 0),
			 "the steps for each byte are bounded");
	REQUIRE_PROPERTY(machine.log.take().empty(), "nothing is said at debug level 0");
}

} // namespace

} // namespace captive_portal::test

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	captive_portal::test::check(data, size);
	return 0;
}
