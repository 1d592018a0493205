// SPDX-License-Identifier: GPL-2.0-only
// Frames as an administrator describes them.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "cpctl/explain/module_copy.h"

namespace cpctl
{

// A frame, and what meets it on its way.
struct FrameRequest {
	// The ports of the bridge by which it comes and leaves; one of them may be empty.
	std::string in;
	std::string out;
	// What a firewall rule between the first two hooks makes of its mark.
	std::optional<uint32_t> mark = {};
	// Its destination is an address in the cache of the walled gardens.
	bool cached = false;
	// The access point's answer to the frame before it: made when that has gone its way.
	bool is_reply = false;
	uint8_t reply_flags = 0;
	FrameBytes bytes = {};
};

inline constexpr std::string_view frame_words_help =
	"FRAME says where a frame comes from, and what it is:\n"
	"  dev IFACE     the bridge's port by which it comes; out IFACE: by which it leaves\n"
	"  from MAC      who sends it; to MAC: to whom (02:00:00:00:00:fe if not given, as a router)\n"
	"  mark NUMBER   set by a firewall rule behind the gatekeeper\n"
	"  cached        its destination is in the cache of a name that the walled garden permits\n"
	"  tcp SOURCE DESTINATION port PORT [sport PORT] [syn|syn-ack|ack|fin-ack|rst]\n"
	"  udp SOURCE DESTINATION port PORT [sport PORT]\n"
	"  icmp SOURCE DESTINATION, ip SOURCE DESTINATION proto NUMBER, dhcp, arp, ipv6\n"
	"  reply [syn-ack|ack|fin-ack|rst]   what the access point answers to the frame before\n"
	"then begins another frame, which has dev, out, from and to of the one before unless it says otherwise.";

// One frame or more. Throws Failure(usage).
[[nodiscard]] std::vector<FrameRequest> parse_frames(std::span<const std::string> words);

// Where frames whose bytes come from elsewhere come from: dev, out, mark and cached alone. Throws Failure(usage).
[[nodiscard]] FrameRequest parse_frame_place(std::span<const std::string> words);

} // namespace cpctl
