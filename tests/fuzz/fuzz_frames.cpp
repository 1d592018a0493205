// SPDX-License-Identifier: GPL-2.0-only
// Frames through the three hooks, several to an input, over tables that commands between them change. Each input is run
// three times: with linear packets, with packets that are cut and share their data, and with nothing said in the log.
#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "base/debug_level.h"
#include "garden/walled_garden.h"
#include "gatekeeper/client_tables.h"
#include "tests/fuzz/frame_program.h"
#include "tests/fuzz/module_state.h"
#include "tests/fuzz/property.h"
#include "tests/fuzz/steps.h"
#include "tests/support/checksum_validator.h"
#include "tests/support/control.h"
#include "tests/support/packets.h"

namespace captive_portal::test
{

namespace
{

constexpr size_t ethernet_bytes = 14;
// A firewall rule between the gatekeeper and the portal check.
constexpr int32_t firewall_priority = -315;

enum class Way { linear, cut, silent };

// What came of one frame.
struct Outcome {
	cp_verdict verdict;
	uint32_t mark;
	host::PacketType type;
	host::Frame frame;
	std::vector<host::LogLine> log;

	friend bool operator==(const Outcome &, const Outcome &) = default;
};

// Where a packet lies is not the same each time.
std::string without_pointers(const std::string &text)
{
	std::string result;
	for (size_t start = 0; start < text.size();) {
		const size_t pointer = std::min(text.find("0x", start), text.size());
		result += text.substr(start, pointer - start);
		start = std::min(text.find_first_not_of("0123456789abcdef", pointer + 2), text.size());
		result += pointer < text.size() ? "0x" : "";
	}
	return result;
}

void print(const char *name, const Outcome &outcome)
{
	std::fprintf(stderr, "%s: verdict %d, mark %u, type %d\n  ", name, outcome.verdict, outcome.mark,
		     static_cast<int>(outcome.type));
	for (const uint8_t byte : outcome.frame) {
		std::fprintf(stderr, "%02x", byte);
	}
	std::fprintf(stderr, "\n");
	for (const host::LogLine &line : outcome.log) {
		std::fprintf(stderr, "  %s", line.text.c_str());
	}
}

struct Outcomes {
	std::vector<Outcome> frames;
	ModuleState state;
};

bool is_dns_answer(const FrameAction &action)
{
	constexpr size_t protocol = ethernet_bytes + 9;
	return action.hook == FrameHook::post_routing && action.frame.size() > protocol && action.frame[protocol] == 17;
}

uint64_t characters_of_rules()
{
	uint64_t characters = 0;
	for (const wg_row &row : walled_garden_table) {
		for (const wg_rule_node *rule = row.rule_list; rule != nullptr; rule = rule->next) {
			characters += WG_DOMAIN_NAME_SIZE;
		}
	}
	return characters;
}

// Every node that there is may be looked at, by each of the steps that look for something.
uint64_t step_limit(const FrameAction &action, size_t nodes)
{
	const uint64_t limit = 3000 + 64 * nodes;
	if (!is_dns_answer(action)) {
		return limit;
	}
	// The name is asked about in every row. Each record, at least a byte further on than the one before it, has a name
	// that may go over the message with every pointer, and an address that may be looked for among all the others.
	const uint64_t bytes = action.frame.size();
	constexpr uint64_t name = WG_DOMAIN_NAME_SIZE;
	constexpr uint64_t default_rules = CP_ROWS * (1024 + WG_DEFAULT_RULES * 8 * 2 * name);
	return limit + default_rules + 8 * characters_of_rules() * (name + 8) +
	       bytes * (34 * 8 * bytes + nodes * 4 * name + 1024);
}

// A rewrite changes addresses, ports and checksums of one end, nothing else.
void check_changed_bytes(const FrameAction &action, const host::Frame &now)
{
	const bool pre_routing = action.hook == FrameHook::pre_routing;
	const host::Frame &before = action.frame;
	REQUIRE_PROPERTY(now.size() == before.size(), "a frame keeps its length");
	if (now == before) {
		return;
	}
	REQUIRE_PROPERTY(before.size() >= ethernet_bytes + 20 + 18 && before[12] == 8 && before[13] == 0,
			 "only IPv4 with a whole TCP header is rewritten");
	const size_t transport = ethernet_bytes + (before[ethernet_bytes] & 0x0fu) * 4;
	std::vector<bool> may_change(before.size());
	const auto permit = [&](size_t first, size_t count) {
		for (size_t i = first; i < first + count; ++i) {
			may_change.at(i) = true;
		}
	};
	permit(pre_routing ? 0 : 6, 6);
	permit(ethernet_bytes + 10, 2);
	permit(ethernet_bytes + (pre_routing ? 16 : 12), 4);
	permit(transport + (pre_routing ? 2 : 0), 2);
	permit(transport + 16, 2);
	for (size_t i = 0; i < before.size(); ++i) {
		REQUIRE_PROPERTY(now[i] == before[i] || may_change[i], "only one end of a frame is rewritten");
	}
}

class FrameRun
{
public:
	explicit FrameRun(Way way) : way_(way)
	{
		machine_.threads.fail_next_creation();
		build_access_point(machine_);
		load_module(machine_);
		machine_.hooks.add_firewall_rule(host::pre_routing_hook, firewall_priority,
						 [this](host::PacketBuffer &packet) {
							 packet.mark = firewall_mark_.value_or(packet.mark);
							 return CP_ACCEPT;
						 });
		silence();
	}

	[[nodiscard]] Outcomes run(const std::vector<Action> &program);

private:
	void act(const FrameAction &action);
	void act(const ControlAction &action);
	void act(const LevelAction &action) { debug_level = action.level; }
	void act(const ClockAction &action) { machine_.clock.advance(action.seconds); }
	void act(const DeviceAction &action);

	[[nodiscard]] host::PacketBuffer packet_for(const FrameAction &action) const;
	[[nodiscard]] cp_verdict send(const FrameAction &action, host::PacketBuffer &packet);
	void silence()
	{
		if (way_ == Way::silent) {
			debug_level = 0;
		}
	}

	const Way way_;
	host::Machine machine_;
	std::optional<uint32_t> firewall_mark_;
	size_t commands_ = 0;
	std::vector<Outcome> outcomes_;
};

host::PacketBuffer FrameRun::packet_for(const FrameAction &action) const
{
	// What fails depends on where the packet's bytes are, so then they are in the same place each time.
	const bool cut = way_ == Way::cut || action.fail_copy || action.fail_memory;
	if (cut && action.checksum == host::ChecksumState::finished) {
		return {action.frame, action.linear};
	}
	return packet_of(action.frame, action.checksum, cut ? host::Layout::headers_only : host::Layout::linear);
}

cp_verdict FrameRun::send(const FrameAction &action, host::PacketBuffer &packet)
{
	if (!action.device.has_value()) {
		const bool pre_routing = action.hook == FrameHook::pre_routing;
		return machine_.hooks.run(pre_routing ? host::pre_routing_hook : host::post_routing_hook, packet);
	}
	return action.hook == FrameHook::pre_routing ? machine_.pre_routing(packet, *action.device) :
						       machine_.post_routing(packet, *action.device);
}

void FrameRun::act(const FrameAction &action)
{
	host::PacketBuffer packet = packet_for(action);
	packet.mark = action.mark;
	packet.fail_make_writable = action.fail_make_writable;
	packet.fail_copy = action.fail_copy;
	const host::Frame before = packet.frame();
	std::optional<host::PacketBuffer> clone;
	if (way_ == Way::cut) {
		clone = packet.clone();
	}
	firewall_mark_ = action.firewall_mark;
	machine_.memory.fail_all_allocations(action.fail_memory);
	const size_t nodes = machine_.live_allocations().size();

	cp_verdict verdict = CP_DROP;
	const uint64_t steps = steps_of([&] { verdict = send(action, packet); });

	machine_.memory.fail_all_allocations(false);
	REQUIRE_PROPERTY(steps <= step_limit(action, nodes), "the steps are bounded");
	REQUIRE_PROPERTY(!clone.has_value() || clone->frame() == before, "a clone does not see a rewrite");
	const bool rewritten = packet.frame() != before;
	REQUIRE_PROPERTY(!rewritten || !action.fail_make_writable, "what cannot be made writable is not written");
	if (action.checksum != host::ChecksumState::partial) {
		check_changed_bytes(action, packet.frame());
	}
	REQUIRE_PROPERTY(!rewritten || !action.honest || checksums_are_right(packet), "right checksums stay right");
	REQUIRE_PROPERTY(rewritten || packet.type == host::PacketType::other_host || verdict == CP_ACCEPT,
			 "only a redirected packet is for this machine");
	// A connection and one more, or an address, a name and its text for each record, none of which is empty.
	const size_t most_new_nodes = is_dns_answer(action) ? 3 * action.frame.size() : 2;
	REQUIRE_PROPERTY(machine_.live_allocations().size() <= nodes + most_new_nodes,
			 "no more is stored than a frame holds");
	std::vector<host::LogLine> log = machine_.log.take();
	for (host::LogLine &line : log) {
		line.text = without_pointers(line.text);
	}
	REQUIRE_PROPERTY(way_ != Way::silent || log.empty(), "nothing is said at debug level 0");
	outcomes_.push_back({verdict, packet.mark, packet.type, frame_on_wire(packet), std::move(log)});
}

void FrameRun::act(const ControlAction &action)
{
	UserBuffer buffer(machine_, action.record.size());
	buffer.write(std::as_bytes(std::span(action.record)));
	const long result = machine_.ioctl(action.command, buffer.address());
	REQUIRE_PROPERTY(result <= 0, "a setting command has no residue");
	machine_.log.clear();
	++commands_;
}

void FrameRun::act(const DeviceAction &action)
{
	if (action.device.has_value()) {
		machine_.devices.put(action.name, *action.device);
	} else {
		machine_.devices.remove(action.name);
	}
}

Outcomes FrameRun::run(const std::vector<Action> &program)
{
	for (const Action &action : program) {
		std::visit([this](const auto &one) { act(one); }, action);
		silence();
	}
	const std::vector<host::Allocation> lost = machine_.lost_allocations();
	REQUIRE_PROPERTY(lost.size() <= commands_, "no memory is lost");
	for (const host::Allocation &allocation : lost) {
		REQUIRE_PROPERTY(allocation.size == sizeof(mac_entry), "only nodes made before a refusal are lost");
	}
	return {std::move(outcomes_), module_state()};
}

Outcomes run(Way way, const std::vector<Action> &program)
{
	return FrameRun(way).run(program);
}

void check(const uint8_t *data, size_t size)
{
	Input input(data, size);
	const std::vector<Action> program = decode_program(input);
	Outcomes linear = run(Way::linear, program);
	const Outcomes cut = run(Way::cut, program);
	for (size_t i = 0; i < linear.frames.size(); ++i) {
		if (linear.frames[i] != cut.frames[i]) {
			print("linear", linear.frames[i]);
			print("cut", cut.frames[i]);
		}
		REQUIRE_PROPERTY(linear.frames[i] == cut.frames[i], "cut and linear packets fare alike");
		linear.frames[i].log.clear();
	}
	REQUIRE_PROPERTY(linear.state == cut.state, "cut and linear packets leave the same tables");
	const Outcomes silent = run(Way::silent, program);
	REQUIRE_PROPERTY(silent.frames == linear.frames && silent.state == linear.state,
			 "the debug level changes nothing");
}

} // namespace

} // namespace captive_portal::test

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	captive_portal::test::check(data, size);
	return 0;
}
