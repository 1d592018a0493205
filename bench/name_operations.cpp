// SPDX-License-Identifier: GPL-2.0-only
// DNS answers, and what becomes of the names in them.
#include "bench/frames.h"
#include "bench/states.h"
#include "garden/arecord_cache.h"
#include "garden/expiry_thread.h"
#include "garden/pattern.h"
#include "tests/support/frame_builder.h"

namespace captive_portal::bench
{

namespace
{

using test::ipv4;

constexpr Host resolver = {router, ipv4(203, 0, 113, 53)};
constexpr Host client = {{0x02, 0x11, 1, 1, 1, 0}, ipv4(192, 168, 1, 11)};

// A name as the wire has it, from a dotted one that ends with a dot.
std::vector<uint8_t> wire_name(const std::string &dotted)
{
	std::vector<uint8_t> bytes;
	for (size_t start = 0; start < dotted.size();) {
		const size_t dot = dotted.find('.', start);
		bytes.push_back(static_cast<uint8_t>(dot - start));
		bytes.insert(bytes.end(), dotted.begin() + static_cast<ptrdiff_t>(start),
			     dotted.begin() + static_cast<ptrdiff_t>(dot));
		start = dot + 1;
	}
	bytes.push_back(0);
	return bytes;
}

// One question for the name, and so many addresses from `first` (host order) on.
Frame answer(const std::string &dotted, uint32_t first, uint16_t addresses)
{
	std::vector<uint8_t> message;
	const auto u16 = [&](uint32_t value) {
		message.push_back(static_cast<uint8_t>(value >> 8));
		message.push_back(static_cast<uint8_t>(value));
	};
	for (const uint32_t field : {0x1d5eU, 0x8180U, 1U, uint32_t{addresses}, 0U, 0U}) {
		u16(field);
	}
	const std::vector<uint8_t> name = wire_name(dotted);
	message.insert(message.end(), name.begin(), name.end());
	u16(1);
	u16(1);
	for (uint16_t i = 0; i < addresses; ++i) {
		const uint32_t address = first + i;
		for (const uint32_t field : {0xc00cU, 1U, 1U, 0U, 300U, 4U, address >> 16, address & 0xffff}) {
			u16(field);
		}
	}
	return frame().from(resolver).to(client).udp(53, 51000).payload(message);
}

constexpr uint32_t first_answered_address = 0xcb007114;
constexpr uint16_t answered_addresses = 4;

// 0: one rule in all. Else so many in each of 28 rows, and as many default rules.
void prepare_rules(uint64_t in_each_row)
{
	restart_module();
	if (in_each_row == 0) {
		one_rule();
	} else {
		fill_rules(static_cast<uint32_t>(in_each_row), static_cast<uint32_t>(in_each_row));
	}
}

constexpr auto rules_unit = "rules in each row (0: one in all)";
const std::vector<uint64_t> rule_sizes = {0, 1, 6, full_row_rules};

class AnswerCase : public FrameCase
{
public:
	explicit AnswerCase(FrameCaseParts parts, int32_t addresses_afterwards)
	    : FrameCase(std::move(parts)), addresses_afterwards_(addresses_afterwards)
	{
	}
	void verify() override
	{
		FrameCase::verify();
		require(total_ip_count == addresses_afterwards_, "an answer's addresses are not in the cache");
		require(!match_dns_aRecord_garden_list(be32::from_host(first_answered_address), 0),
			"a name was found in the garden");
	}

private:
	int32_t addresses_afterwards_;
};

FrameCaseParts answer_parts(const std::string &name)
{
	return {.hooks = outgoing,
		.in_name = "",
		.out_name = "wlan-1-1",
		.frames = {answer(name, first_answered_address, answered_addresses)}};
}

std::unique_ptr<Case> known_answer(uint64_t in_each_row)
{
	prepare_rules(in_each_row);
	auto result = std::make_unique<AnswerCase>(answer_parts(asked_name), answered_addresses);
	// From now on the addresses are known.
	result->restore(1);
	result->run(0);
	return result;
}

std::unique_ptr<Case> new_answer(uint64_t in_each_row)
{
	prepare_rules(in_each_row);
	FrameCaseParts parts = answer_parts(asked_name);
	parts.batch = 1;
	parts.undo = [](uint32_t) {
		// All of them are stale a second after their deadline.
		constexpr int64_t now = 1'700'000'000;
		set_wall_clock(now + 301);
		require(schedule_check_thread() == 0 && total_ip_count == 0, "the cache is not empty");
		set_wall_clock(now);
	};
	return std::make_unique<AnswerCase>(std::move(parts), answered_addresses);
}

class PatternCase : public Case
{
public:
	PatternCase(std::string pattern, std::string name) : pattern_(std::move(pattern)), name_(std::move(name)) {}
	void run(uint32_t) override { matched_ = pattern_matches(text(pattern_), text(name_)); }
	void verify() override { require(!matched_, "a pattern matched"); }

private:
	static Text text(const std::string &text) { return {text.c_str(), text.size()}; }

	std::string pattern_;
	std::string name_;
	bool matched_ = true;
};

// A name of that length made of short labels.
std::string name_of_length(uint64_t length)
{
	std::string name = "images";
	while (name.size() < length) {
		name += name.size() % 8 == 7 ? '.' : 'e';
	}
	return name.substr(0, length);
}

void add_pattern(std::vector<Operation> &list, const char *name, std::function<std::string(uint64_t)> pattern)
{
	list.push_back({.name = name,
			.unit = "characters of the name",
			.sizes = {16, 60, 127},
			.make = [pattern = std::move(pattern)](uint64_t size) {
				restart_module();
				return std::make_unique<PatternCase>(pattern(size), name_of_length(size));
			}});
}

} // namespace

void add_name_operations(std::vector<Operation> &list)
{
	list.push_back({.name = "DNS answer, addresses known",
			.unit = rules_unit,
			.sizes = rule_sizes,
			.make = known_answer,
			.baseline = "an empty hook"});
	list.push_back({.name = "DNS answer, addresses new",
			.unit = rules_unit,
			.sizes = rule_sizes,
			.make = new_answer,
			.baseline = "an empty hook"});
	add_pattern(list, "pattern: exact name", [](uint64_t size) {
		std::string pattern = name_of_length(size);
		pattern.back() = 'x';
		return pattern;
	});
	add_pattern(list, "pattern: tail", [](uint64_t) { return std::string("*.tail.shop.test."); });
	add_pattern(list, "pattern: two inner wildcards",
		    [](uint64_t) { return std::string("images*e*r.shop.test."); });
}

} // namespace captive_portal::bench
