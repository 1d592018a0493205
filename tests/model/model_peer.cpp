// SPDX-License-Identifier: GPL-2.0-only
// The host build's side of protocol.md: reads sequences of steps, one a line, plays each on a machine of its own, and
// writes what could be seen of each step.
#include <arpa/inet.h>

#include <cstdio>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <regex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "platform/host/machine.h"
#include "platform/host/module_image.h"
#include "tests/support/user_buffer.h"

namespace captive_portal::test
{

namespace
{

using Json = nlohmann::json;

// What a kernel gives a line that has no level of its own.
constexpr int default_level = 4;

// A step that the protocol does not know: the one who sent it is wrong, not the module.
[[noreturn]] void refuse(const std::string &why)
{
	throw std::runtime_error("bad step: " + why);
}

// ---- Bytes and texts ------------------------------------------------------------------------------------------------

int digit_value(char digit)
{
	if (digit >= '0' && digit <= '9') {
		return digit - '0';
	}
	if (digit >= 'a' && digit <= 'f') {
		return digit - 'a' + 10;
	}
	refuse("not lower-case hexadecimal");
}

std::vector<uint8_t> bytes_of(const std::string &digits)
{
	if (digits.size() % 2 != 0) {
		refuse("half a byte");
	}
	std::vector<uint8_t> bytes(digits.size() / 2);
	for (size_t i = 0; i < bytes.size(); ++i) {
		bytes[i] = static_cast<uint8_t>(digit_value(digits[2 * i]) * 16 + digit_value(digits[2 * i + 1]));
	}
	return bytes;
}

template <typename Bytes> std::string digits_of(const Bytes &bytes)
{
	constexpr char digits[] = "0123456789abcdef";
	std::string text;
	text.reserve(2 * bytes.size());
	for (const auto byte : bytes) {
		text += digits[static_cast<uint8_t>(byte) >> 4];
		text += digits[static_cast<uint8_t>(byte) & 15];
	}
	return text;
}

// Log lines may hold any byte; each becomes the character of that number.
std::string utf8_of(std::string_view bytes)
{
	std::string text;
	for (const char byte : bytes) {
		const auto value = static_cast<uint8_t>(byte);
		if (value < 0x80) {
			text += byte;
		} else {
			text += static_cast<char>(0xc0 | value >> 6);
			text += static_cast<char>(0x80 | (value & 0x3f));
		}
	}
	return text;
}

// Source lines and addresses of memory differ from build to build.
std::string without_private_numbers(const std::string &text)
{
	static const std::regex source_line("^(summary_write|summary_read) \\[[0-9]+\\]");
	static const std::regex pointers(
		"fragmented: (?:0x[0-9a-f]+|\\(nil\\)) \\+ ([0-9-]+) > (?:0x[0-9a-f]+|\\(nil\\))\n$");
	if (text.starts_with("summary_")) {
		return std::regex_replace(text, source_line, "$1 [LINE]");
	}
	if (text.starts_with("DNS packets might")) {
		return std::regex_replace(text, pointers, "fragmented: PTR + $1 > PTR\n");
	}
	return text;
}

// ---- A caller's memory ----------------------------------------------------------------------------------------------

// The record of a step, where the step says that it lies.
class CallerBuffer
{
public:
	CallerBuffer(host::Machine &machine, const Json &step, std::span<const uint8_t> bytes) : size_(bytes.size())
	{
		// A byte of its own in front: an empty buffer, and a border at 0, need a place as well.
		std::vector<uint8_t> all(1);
		all.insert(all.end(), bytes.begin(), bytes.end());
		if (const auto border = step.find("border"); border != step.end() && !border->is_null()) {
			const std::string kind = step.at("behind");
			if (kind != "none" && kind != "read_only") {
				refuse("memory that is " + kind);
			}
			buffer_.emplace(machine, all.size(), border->get<size_t>() + 1,
					kind == "none" ? UserAccess::none : UserAccess::read_only);
		} else {
			buffer_.emplace(machine, all.size());
		}
		buffer_->write(std::as_bytes(std::span(all)));
	}

	[[nodiscard]] cp_user_address address() const { return buffer_->address() + 1; }
	[[nodiscard]] std::string digits() const { return digits_of(buffer_->read()).substr(2, 2 * size_); }

private:
	size_t size_;
	std::optional<UserBuffer> buffer_;
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
			lines.push_back({line.level == CP_LOG_DEFAULT ? default_level : static_cast<int>(line.level),
					 utf8_of(without_private_numbers(line.text))});
		}
		result["log"] = std::move(lines);
		return result;
	}

private:
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
		// A module that is loaded again comes from its file.
		host::reload_module_image();
		return {{"result", machine_.load()}};
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
		}
		device.bridge_unreachable = step.value("bridge_unreachable", false);
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
			// Whole TCP segments alone come with a sum that is still to be finished.
			const uint32_t transport = frame.at(14) % 16U * 4;
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
};

Json play_all(const Json &steps)
{
	Player player;
	Json results = Json::array();
	for (const Json &step : steps) {
		results.push_back(player.play(step));
	}
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
