// SPDX-License-Identifier: GPL-2.0-only
// Frames as an administrator describes them.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
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

// Lines of two blanks, a word with what follows it, and what it says: completion reads them.
inline constexpr std::string_view frame_words_help =
	"FRAME says where a frame comes from, and what it is:\n"
	"  dev IFACE                the bridge's port by which it comes\n"
	"  out IFACE                the one by which it leaves\n"
	"  from MAC                 who sends it\n"
	"  to MAC                   to whom; to a router if not given\n"
	"  mark NUMBER              set by a firewall rule behind the gatekeeper\n"
	"  cached                   as if its destination were in the cache, for a name that the garden permits\n"
	"  tcp SOURCE DESTINATION   with port, sport and one of the flags, syn if not given\n"
	"  udp SOURCE DESTINATION   with port or sport\n"
	"  icmp SOURCE DESTINATION  a ping\n"
	"  ip SOURCE DESTINATION    of another protocol, with proto\n"
	"  dhcp                     a client looks for a server\n"
	"  arp                      a client looks for an address\n"
	"  ipv6                     whatever is in it\n"
	"  reply                    what the access point answers to the request before it, with one of the flags\n"
	"  port NUMBER              to which it is sent\n"
	"  sport NUMBER             from which it is sent\n"
	"  proto NUMBER             of a protocol\n"
	"  syn                      the first segment of a connection\n"
	"  syn-ack                  the answer to it\n"
	"  ack                      a segment in between\n"
	"  fin-ack                  the last one\n"
	"  rst                      a reset\n"
	"  then                     begins another frame, which has dev, out, from and to of the one before";

// One frame or more. Throws Failure(usage).
[[nodiscard]] std::vector<FrameRequest> parse_frames(std::span<const std::string> words);

// Where frames whose bytes come from elsewhere come from: dev, out, mark and cached alone. Throws Failure(usage).
[[nodiscard]] FrameRequest parse_frame_place(std::span<const std::string> words);

} // namespace cpctl
