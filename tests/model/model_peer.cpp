// SPDX-License-Identifier: GPL-2.0-only
// The host build's side of protocol.md: reads sequences of steps, one a line, plays each on a machine of its own, and
// writes what could be seen of each step.
#include <arpa/inet.h>

#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "captive_portal/captive_portal.h"
#include "core/module.h"
#include "platform/host/machine.h"
#include "platform/host/module_image.h"
#include "tests/model/peer_text.h"

namespace captive_portal::test
{

namespace
{

using Json = nlohmann::json;
using host::UserAccess;

// What a kernel gives a line that has no level of its own.
constexpr int default_level = 4;

// ---- A caller's memory ----------------------------------------------------------------------------------------------

// The record of a step, where the step says that it lies.
class CallerBuffer
{
public:
	CallerBuffer(host::Machine &machine, const Json &step, std::span<const uint8_t> bytes)
	    : machine_(machine), size_(bytes.size())
	{
		const bool has_border = step.contains("border") && !step.at("border").is_null();
		const size_t border = has_border ? step.at("border").get<size_t>() : size_;
		if (border > size_) {
			refuse("a border outside the record");
		}
		const size_t before = pages_for(border);
		// What lies behind a border goes on for longer than any record.
		const size_t behind = has_border ? pages_for(size_ - border + sizeof(gk_list_reply)) : 0;
		const cp_user_address first = machine.user.map(before + behind, UserAccess::read_write);
		address_ = first + before * page - border;
		machine.user.write(address_, std::as_bytes(bytes));
		for (size_t i = 0; i < behind; ++i) {
			machine.user.protect(first + (before + i) * page, access_of(step.at("behind")));
		}
	}

	[[nodiscard]] cp_user_address address() const { return address_; }
	// What lies there now.
	[[nodiscard]] std::string digits() const
	{
		const std::vector<std::byte> bytes = machine_.user.read(address_, size_);
		return digits_of({reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size()});
	}

private:
	static constexpr size_t page = host::UserMemory::page_size;

	[[nodiscard]] static size_t pages_for(size_t bytes) { return (bytes + page - 1) / page; }

	[[nodiscard]] static UserAccess access_of(const std::string &kind)
	{
		if (kind != "none" && kind != "read_only") {
			refuse("memory that is " + kind);
		}
		return kind == "none" ? UserAccess::none : UserAccess::read_only;
	}

	host::Machine &machine_;
	size_t size_;
	cp_user_address address_;
};

// ---- A machine and its steps ----------------------------------------------------------------------------------------

class Player
{
public:
	Player()
	{
		machine_.hooks.add_firewall_rule(host::pre_routing_hook, -315, [this](host::PacketBuffer &packet) {
			packet.mark = firewall_mark_.value_or(packet.mark);
			return CP_ACCEPT;
		});
	}

	[[nodiscard]] Json play(const Json &step)
	{
		Json result = take(step.at("op"), step);
		Json lines = Json::array();
		for (const host::LogLine &line : machine_.log.take()) {
			lost_nodes_ += loses_a_node(line.text);
			lines.push_back({line.level == CP_LOG_DEFAULT ? default_level : static_cast<int>(line.level),
					 portable_line(line.text)});
		}
		result["log"] = std::move(lines);
		return result;
	}

	// Throws if the module has lost memory beyond the nodes of refused commands, which it deliberately does not free.
	void expect_memory_reachable() const
	{
		const std::vector<host::Allocation> lost = machine_.lost_allocations();
		const auto unexplained = static_cast<size_t>(
			std::count_if(lost.begin(), lost.end(), [this](const host::Allocation &allocation) {
				return !written_off_.contains(allocation.number);
			}));
		if (unexplained != lost_nodes_) {
			throw std::runtime_error(std::to_string(unexplained) + " allocations are lost, " +
						 std::to_string(lost_nodes_) + " may be");
		}
	}

private:
	// An interface that was refused after a node had been allocated for it.
	[[nodiscard]] static bool loses_a_node(std::string_view line)
	{
		for (const char *number : {"1885", "1952", "2018"}) {
			if (line ==
			    "[gatekeeper] if_device_write_gk: line" + std::string(number) + " invalid index number\n") {
				return true;
			}
		}
		return false;
	}

	[[nodiscard]] Json take(const std::string &op, const Json &step)
	{
		if (op == "pre" || op == "post") {
			return packet(op, step);
		}
		if (op == "ioctl") {
			return ioctl(step);
		}
		if (op == "proc_read") {
			return proc_read(step);
		}
		if (op == "proc_write") {
			const std::vector<uint8_t> text = bytes_of(step.at("text"));
			const CallerBuffer buffer(machine_, step, text);
			return {{"result", machine_.proc_write(buffer.address(), text.size())}};
		}
		if (op == "load") {
			return load();
		}
		if (op == "unload") {
			return {{"result", machine_.unload()}};
		}
		if (op == "open") {
			return {{"result", machine_.open()}};
		}
		if (op == "release") {
			return {{"result", machine_.release()}};
		}
		change_machine(op, step);
		return Json::object();
	}

	void change_machine(const std::string &op, const Json &step)
	{
		if (op == "device") {
			machine_.devices.put(step.at("name"), device_of(step));
		} else if (op == "remove_device") {
			machine_.devices.remove(step.at("name"));
		} else if (op == "clock") {
			machine_.clock.advance(step.at("seconds"));
		} else if (op == "ticks") {
			machine_.threads.advance(step.at("ticks"));
		} else if (op == "fail_allocation") {
			machine_.memory.fail_allocation(step.at("number"));
		} else if (op == "memory") {
			machine_.memory.fail_all_allocations(step.at("full"));
		} else if (op == "fail_registration") {
			fail_registration(step.at("what"), step);
		} else {
			refuse("op " + op);
		}
	}

	void fail_registration(const std::string &what, const Json &step)
	{
		if (what == "hooks") {
			machine_.hooks.fail_next_registration(step.at("error"));
		} else if (what == "misc") {
			machine_.misc.fail_next_registration(step.at("error"));
		} else if (what == "proc") {
			machine_.proc.fail_next_creation(step.at("error"));
		} else if (what == "thread") {
			machine_.threads.fail_next_creation();
		} else {
			refuse("registration of " + what);
		}
	}

	[[nodiscard]] Json load()
	{
		write_memory_off();
		// A module that is loaded again comes from its file.
		host::reload_module_image();
		const int result = machine_.load();
		if (result != 0) {
			// The kernel drops the module, and the platform its hooks and counters.
			cp_unregister_hooks(captive_portal_hooks, captive_portal_hook_count);
			cp_counters_remove();
		}
		return {{"result", result}};
	}

	// What a module leaves behind when it goes is lost.
	void write_memory_off()
	{
		expect_memory_reachable();
		for (const host::Allocation &allocation : machine_.live_allocations()) {
			written_off_.insert(allocation.number);
		}
		lost_nodes_ = 0;
	}

	[[nodiscard]] static host::Device device_of(const Json &step)
	{
		host::Device device;
		const std::vector<uint8_t> mac = bytes_of(step.at("mac"));
		if (mac.size() != device.mac.size()) {
			refuse("a MAC address of another length");
		}
		std::copy(mac.begin(), mac.end(), device.mac.begin());
		if (const auto addresses = step.find("ipv4"); addresses != step.end() && !addresses->is_null()) {
			device.ipv4.emplace();
			for (const std::string text : *addresses) {
				in_addr address = {};
				if (inet_pton(AF_INET, text.c_str(), &address) != 1) {
					refuse("address " + text);
				}
				device.ipv4->push_back(address.s_addr);
			}
		}
		if (const auto bridge = step.find("bridge"); bridge != step.end() && !bridge->is_null()) {
			device.bridge = bridge->get<std::string>();
			device.bridge_unreachable = step.value("bridge_unreachable", false);
		}
		return device;
	}

	[[nodiscard]] Json ioctl(const Json &step)
	{
		const auto command = step.at("command").get<int32_t>();
		const auto call = [&](unsigned long argument) {
			return step.value("compat", false) ?
				       machine_.compat_ioctl(static_cast<uint32_t>(command), argument) :
				       machine_.ioctl(command, argument);
		};
		if (!step.contains("record")) {
			return {{"result", call(step.at("argument").get<unsigned long>())}};
		}
		const CallerBuffer buffer(machine_, step, bytes_of(step.at("record")));
		const long result = call(buffer.address());
		return {{"result", result}, {"record", buffer.digits()}};
	}

	[[nodiscard]] Json proc_read(const Json &step)
	{
		const auto length = step.at("length").get<size_t>();
		auto position = step.value<int64_t>("position", 0);
		const CallerBuffer buffer(machine_, step, std::vector<uint8_t>(length));
		const long result = machine_.proc_read(buffer.address(), length, position);
		return {{"result", result}, {"position", position}, {"bytes", buffer.digits()}};
	}

	[[nodiscard]] Json packet(const std::string &op, const Json &step)
	{
		const std::string layout = step.value("layout", "linear");
		const host::Frame frame = bytes_of(step.at("frame"));
		host::PacketBuffer packet(frame,
					  layout == "linear" ? host::Layout::linear : host::Layout::headers_only);
		if (step.value("checksum", "finished") == "partial") {
			const uint32_t transport = frame.size() > 14 ? frame[14] % 16U * 4 : 0;
			packet.set_checksum_state(host::ChecksumState::partial,
						  host::ChecksumPlace{.start = transport, .field = transport + 16});
		}
		packet.mark = step.value<uint32_t>("mark", 0);
		packet.fail_make_writable = !step.value("writable", true);
		firewall_mark_.reset();
		if (const auto mark = step.find("firewall_mark"); mark != step.end() && !mark->is_null()) {
			firewall_mark_ = mark->get<uint32_t>();
		}
		const host::PacketBuffer capture = packet.clone();
		const std::string device = step.at("device");
		const cp_verdict verdict =
			op == "pre" ? machine_.pre_routing(packet, device) : machine_.post_routing(packet, device);
		if (capture.frame() != frame) {
			throw std::runtime_error("a rewrite shows in another's copy of the frame");
		}
		return {{"verdict", static_cast<int>(verdict)},
			{"mark", packet.mark},
			{"type", static_cast<int>(packet.type)},
			{"frame", digits_of(packet.frame())}};
	}

	host::Machine machine_;
	std::optional<uint32_t> firewall_mark_;
	// Nodes that the loaded module has lost, and allocations that earlier loads have left.
	size_t lost_nodes_ = 0;
	std::set<uint64_t> written_off_;
};

Json play_all(const Json &steps)
{
	Player player;
	Json results = Json::array();
	for (const Json &step : steps) {
		results.push_back(player.play(step));
	}
	player.expect_memory_reachable();
	return results;
}

} // namespace

} // namespace captive_portal::test

int main()
{
	std::ios::sync_with_stdio(false);
	for (std::string line; std::getline(std::cin, line);) {
		try {
			std::cout << captive_portal::test::play_all(nlohmann::json::parse(line)).dump() << std::endl;
		} catch (const std::exception &error) {
			std::cerr << "model_peer: " << error.what() << std::endl;
			return 2;
		}
	}
	return 0;
}
