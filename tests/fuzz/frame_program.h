// SPDX-License-Identifier: GPL-2.0-only
// An input of the frames' fuzzer: frames, and what changes between them.
#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/host/devices.h"
#include "platform/host/packet_buffer.h"
#include "tests/fuzz/input.h"

namespace captive_portal::test
{

enum class FrameHook { pre_routing, post_routing };

struct FrameAction {
	FrameHook hook;
	host::Frame frame;
	// Its lengths and checksums are right.
	bool honest;
	// TCP over IPv4 without a tag, and honest, so that its checksum may be left to hardware.
	bool may_be_partial;
	// Absent: the hook has no device.
	std::optional<std::string> device;
	uint32_t mark;
	// What a firewall rule between the two pre-routing hooks makes of the mark.
	std::optional<uint32_t> firewall_mark;
	host::ChecksumState checksum;
	// Linear bytes of a cut packet.
	size_t linear;
	bool fail_make_writable;
	bool fail_copy;
	bool fail_memory;
};

struct ControlAction {
	int32_t command;
	std::vector<uint8_t> record;
};

struct LevelAction {
	int32_t level;
};

struct ClockAction {
	int64_t seconds;
};

struct DeviceAction {
	std::string name;
	// Absent: the device goes.
	std::optional<host::Device> device;
};

using Action = std::variant<FrameAction, ControlAction, LevelAction, ClockAction, DeviceAction>;

[[nodiscard]] std::vector<Action> decode_program(Input &input);

} // namespace captive_portal::test
