// SPDX-License-Identifier: GPL-2.0-only
// Any bytes as a DNS message, and a name anywhere in them, against the decoder as it is described. The input's last
// three bytes are no part of the message: where the name starts (two), and the room for it.
#include <algorithm>
#include <vector>

#include "base/debug_level.h"
#include "garden/dns_name.h"
#include "garden/dns_name_ends.h"
#include "platform/host/machine.h"
#include "tests/fuzz/property.h"
#include "tests/fuzz/steps.h"
#include "tests/support/recursive_dns_name.h"

namespace captive_portal::test
{

namespace
{

DecodedName decode(host::Machine &machine, const std::vector<uint8_t> &message, size_t name, int16_t room,
		   int32_t level)
{
	debug_level = level;
	DecodedName result;
	// Of exactly its size, and not clean.
	result.text.assign(static_cast<size_t>(room), '\xee');
	result.text.shrink_to_fit();
	const uint8_t *const behind =
		parse_dns_domain(message.data(), message.data() + name, message.data() + message.size() - 1,
				 result.text.data(), &result.length, room);
	if (behind != nullptr) {
		result.behind = static_cast<size_t>(behind - message.data());
	}
	result.lines = machine.log.take();
	return result;
}

// The decoder refuses what is not there, and says so from debug level 2 on.
void check_nothing_given(host::Machine &machine)
{
	const uint8_t message[] = {0};
	char text[DNS_NAME_SIZE] = {};
	uint16_t length = 0;
	for (const int32_t level : {1, 2}) {
		debug_level = level;
		REQUIRE_PROPERTY(parse_dns_domain(nullptr, message, message, text, &length, DNS_NAME_SIZE) == nullptr &&
					 parse_dns_domain(message, nullptr, message, text, &length, DNS_NAME_SIZE) ==
						 nullptr,
				 "no message or no name, no text");
		REQUIRE_PROPERTY(machine.log.take().size() == (level == 1 ? 0u : 2u), "each refusal is told of");
	}
}

host::Machine &make_machine()
{
	host::Machine &machine = *new host::Machine;
	check_nothing_given(machine);
	return machine;
}

// The reader that keeps no texts finds the same ends, of any names in any order, with its notes and without memory for
// them.
void check_ends(host::Machine &machine, const std::vector<uint8_t> &message, size_t name)
{
	constexpr size_t most_names = 64;
	constexpr int rounds = 8;
	for (const bool has_memory : {true, false}) {
		machine.memory.fail_all_allocations(!has_memory);
		DnsNameEnds ends(message.data(), message.data() + message.size() - 1);
		for (int round = 0; round < rounds; ++round) {
			for (size_t i = name; i <= std::min(name + most_names, message.size()); ++i) {
				const DecodedName decoded = decode(machine, message, i, DNS_NAME_SIZE, 0);
				const uint8_t *const behind = ends.behind(message.data() + i);
				REQUIRE_PROPERTY(behind == (decoded.behind.has_value() ?
								    message.data() + *decoded.behind :
								    nullptr),
						 "a name ends at the same byte when its text is not kept");
			}
		}
		machine.memory.fail_all_allocations(false);
	}
	REQUIRE_PROPERTY(machine.live_allocations().empty(), "the notes are given back");
}

void check(const uint8_t *data, size_t size)
{
	static host::Machine &machine = make_machine();
	constexpr size_t parameters = 3;
	if (size <= parameters) {
		return;
	}
	const std::vector<uint8_t> message(data, data + size - parameters);
	const uint8_t *const choice = data + size - parameters;
	const size_t name = (choice[0] * 256u + choice[1]) % (message.size() + 1);
	const auto room = static_cast<int16_t>(1 + choice[2] % DNS_NAME_SIZE);

	DecodedName decoded;
	const uint64_t steps = steps_of([&] { decoded = decode(machine, message, name, room, 3); });
	// With every pointer the decoder may go over the message once more.
	REQUIRE_PROPERTY(steps <= 256 + 8 * (DNS_POINTERS_PER_NAME + 1) * (message.size() + 1),
			 "the steps are bounded");
	REQUIRE_PROPERTY(std::equal(message.begin(), message.end(), data), "the message is not changed");
	REQUIRE_PROPERTY(decoded.text.back() == '\0', "the text ends inside its room");
	REQUIRE_PROPERTY(decoded.length < room, "the length is below the room");
	REQUIRE_PROPERTY(!decoded.behind.has_value() || (*decoded.behind > name && *decoded.behind <= message.size()),
			 "a name ends behind its start, inside the message or with it");
	// A name that decodes meets each byte once; a line is about a byte.
	const size_t names = decoded.behind.has_value() ? 1 : DNS_POINTERS_PER_NAME + 1;
	REQUIRE_PROPERTY(decoded.lines.size() <= names * (message.size() + 1), "the steps are bounded");
	REQUIRE_PROPERTY(decoded == decode_recursively(message, name, room), "the description is followed");

	DecodedName silent = decode(machine, message, name, room, 1);
	REQUIRE_PROPERTY(silent.lines.empty(), "nothing is said below debug level 2");
	silent.lines = decoded.lines;
	REQUIRE_PROPERTY(silent == decoded, "the debug level changes nothing else");

	check_ends(machine, message, name);
}

} // namespace

} // namespace captive_portal::test

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	captive_portal::test::check(data, size);
	return 0;
}
