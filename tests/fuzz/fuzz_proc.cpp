// SPDX-License-Identifier: GPL-2.0-only
// Reads and writes of the proc file, of any length, at any position, to and from any memory, while addresses come and
// expire.
#include <algorithm>
#include <cstring>

#include "base/debug_level.h"
#include "garden/arecord_cache.h"
#include "garden/expiry_thread.h"
#include "tests/fuzz/pools.h"
#include "tests/fuzz/proc_model.h"
#include "tests/fuzz/property.h"
#include "tests/fuzz/reference.h"
#include "tests/fuzz/steps.h"
#include "tests/support/control.h"

namespace captive_portal::test
{

namespace
{

constexpr size_t most_actions = 64;
constexpr size_t longest_write = 64;
constexpr size_t largest_buffer = 3 * host::UserMemory::page_size;
constexpr int64_t start_of_time = 1000;
constexpr long no_memory = -12;

constexpr const char *targets[] = {
	"all",       "mirel", "wlan-1-1",    "wlan-2-0",        "wlan-3-9", "wlan-1-1.5", "203.0.113.10", "1.2.3.4abc",
	"256.1.1.1", "1.2.3", " 1. 2. 3. 4", "255.255.255.255", "0.0.0.0",  "wlan-1-1\n", "all\n",
};

class ProcRun
{
public:
	explicit ProcRun(Input &input) : input_(input)
	{
		machine_.threads.hold_at_start(false);
		machine_.clock.set(start_of_time);
		load_module(machine_);
		state_ = module_state();
	}

	void act();
	void finish() const { REQUIRE_PROPERTY(machine_.lost_allocations().empty(), "no memory is lost"); }

private:
	void answer();
	void write();
	void read();
	void expire();
	[[nodiscard]] uint64_t steps_of_walk() const;

	host::Machine machine_;
	Input &input_;
	ModuleState state_;
};

// Of the entry of an address, as it came after `before`, or of the name that has come to it; if nothing came, of nothing.
void set_listed_of_what_came(ModuleState &state, const ModuleState &before, uint64_t address, bool listed)
{
	const auto entry_in = [address](auto &cache) {
		return std::ranges::find_if(cache, [address](const auto &entry) { return entry.address == address; });
	};
	const auto entry = entry_in(state.cache);
	if (entry == state.cache.end()) {
		return;
	}
	const auto old_entry = entry_in(before.cache);
	if (old_entry == before.cache.end()) {
		entry->listed = listed;
	} else if (old_entry->names.size() != entry->names.size()) {
		entry->names.back().listed = listed;
	}
}

void ProcRun::act()
{
	switch (input_.below(12)) {
	case 0:
	case 1:
	case 2:
	case 3:
		answer();
		break;
	case 4:
	case 5:
		write();
		break;
	case 6:
		machine_.clock.advance(input_.byte());
		break;
	case 7:
		expire();
		break;
	case 8:
		debug_level = static_cast<int32_t>(input_.below(5)) - 1;
		break;
	default:
		read();
		break;
	}
	machine_.log.clear();
	REQUIRE_PROPERTY(module_state() == state_, "the cache and its marks are as described");
}

void ProcRun::answer()
{
	const Ipv4Address address = pick_address(input_);
	const std::string name = text_in_field(pick_domain(input_).c_str(), 127);
	const uint32_t mask = (input_.byte() & 1) != 0 ? input_.number<uint32_t>() : 1u << input_.below(32);
	const auto ttl = (input_.byte() & 7) != 0 ? uint32_t{input_.byte()} : input_.number<uint32_t>();
	const uint32_t failing_allocation = input_.below(8);
	machine_.memory.fail_allocation(failing_allocation);
	add_dns_arecord(arecord_bucket(address), mask, {name.data(), name.size()}, address, ttl);
	machine_.memory.fail_allocation(0);
	apply_answer(state_, mask, name, address.raw, machine_.clock.seconds() + ttl, failing_allocation);
}

void ProcRun::write()
{
	const uint8_t choice = input_.byte();
	std::string text = choice < std::size(targets) ? targets[choice] : input_.text(choice % longest_write);
	const size_t count = text.size() + ((input_.byte() & 0x0f) == 1 ? input_.number<uint32_t>() : 0u);
	// The caller's memory ends behind the text; an unreadable part counts as NULs.
	UserBuffer buffer(machine_, std::max<size_t>(text.size(), 1));
	buffer.write(std::as_bytes(std::span(text)));
	if ((choice & 0xe0) == 0xe0) {
		buffer.protect_all(UserAccess::none);
		text.clear();
	}
	const size_t taken = std::min<size_t>(count, 19);
	// A range that is not the caller's to its end is read up to there.
	text.resize(std::min(text.size(), taken));

	const ModuleState before = state_;
	const long expected = apply_write(state_, text, count);
	long result = 0;
	const uint64_t steps = steps_of([&] { result = machine_.proc_write(buffer.address(), count); });
	REQUIRE_PROPERTY(result == expected, "a write gives what is described");
	REQUIRE_PROPERTY(result >= 0 || state_ == before, "a refused write changes nothing");
	REQUIRE_PROPERTY(steps <= 1000 + steps_of_walk(), "the steps of a write are bounded");
	const std::vector<host::LogLine> lines = machine_.log.take();
	REQUIRE_PROPERTY(result >= 0 || lines.size() == 1, "a refusal is told of in one line");
}

// One walk over the cache.
uint64_t ProcRun::steps_of_walk() const
{
	uint64_t steps = 8 * uint64_t{ARECORD_BUCKETS};
	for (const ModuleState::CachedAddress &entry : state_.cache) {
		steps += 256 + 32 * entry.names.size();
	}
	return steps;
}

void ProcRun::read()
{
	const uint8_t faults = input_.byte();
	const size_t length = (faults & 1) != 0 ? input_.number<uint16_t>() % 2048u : input_.number<size_t>();
	int64_t position = (faults & 6) != 0 ? 0 : input_.number<int64_t>();
	const bool fails = (faults & 0x18) == 0x18;
	// A name may come between the two walks of a read.
	const bool grows = (faults & 0x60) == 0x60;

	const size_t room = std::clamp<size_t>(length, 1, largest_buffer);
	UserBuffer buffer(machine_, room);
	const std::vector<std::byte> clean(room, std::byte{0xee});
	buffer.write(clean);
	bool grown = false;
	const ModuleState before = state_;
	ModuleState grown_state = state_;
	Ipv4Address address = {};
	if (grows) {
		address = pick_address(input_);
		const std::string name = text_in_field(pick_domain(input_).c_str(), 127);
		apply_answer(grown_state, ~0u, name, address.raw, start_of_time);
		machine_.memory.before_large_allocation([&, name](size_t) {
			if (!grown) {
				add_dns_arecord(arecord_bucket(address), ~0u, {name.data(), name.size()}, address, 0);
			}
			grown = true;
		});
		machine_.clock.set(start_of_time);
	}
	machine_.memory.fail_all_allocations(fails && !grows);
	const int64_t old_position = position;
	long result = 0;
	const uint64_t steps = steps_of([&] { result = machine_.proc_read(buffer.address(), length, position); });
	machine_.memory.fail_all_allocations(false);
	machine_.memory.before_large_allocation({});
	if (grown) {
		state_ = grown_state;
	}
	// Bounded first, then listed.
	REQUIRE_PROPERTY(steps <= 2000 + 4 * steps_of_walk(), "the steps of a read are bounded");

	std::string expected;
	if (old_position <= 0) {
		ModuleState marked = state_;
		// What came while the read was under way is not part of its listing.
		set_listed_of_what_came(marked, before, address.raw, true);
		expected = apply_read(marked, length);
		set_listed_of_what_came(marked, before, address.raw, false);
		if (fails && !grows && !expected.empty()) {
			REQUIRE_PROPERTY(result == no_memory && position == old_position, "no memory, no listing");
			expected.clear();
		} else {
			state_ = marked;
			REQUIRE_PROPERTY(result == static_cast<long>(expected.size()) &&
						 position == static_cast<int64_t>(expected.size()),
					 "a read gives what it listed");
		}
	} else {
		REQUIRE_PROPERTY(result == 0 && position == old_position, "behind the start there is nothing");
	}
	std::vector<std::byte> in_memory = clean;
	const size_t copied = std::min(expected.size(), room);
	std::memcpy(in_memory.data(), expected.data(), copied);
	REQUIRE_PROPERTY(buffer.read() == in_memory,
			 "the listing is the described one, and nothing behind it is written");
}

void ProcRun::expire()
{
	machine_.threads.advance(EXPIRY_PERIOD_TICKS);
	apply_expiry(state_, machine_.clock.seconds());
}

void check(const uint8_t *data, size_t size)
{
	Input input(data, size);
	ProcRun run(input);
	for (size_t action = 0; action < most_actions && !input.empty(); ++action) {
		run.act();
	}
	run.finish();
}

} // namespace

} // namespace captive_portal::test

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	captive_portal::test::check(data, size);
	return 0;
}
