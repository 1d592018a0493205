// SPDX-License-Identifier: GPL-2.0-only
// Frames from what people say of them: lengths and checksums come out right.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "cpctl/addresses.h"
#include "cpctl/explain/frame_fields.h"
#include "cpctl/explain/module_copy.h"

namespace cpctl
{

struct EthernetEnds {
	MacAddress source = {};
	MacAddress destination = {};
};

// One end of a connection, or of a datagram's way.
struct Endpoint {
	Ipv4Address address;
	uint16_t port = 0;
};

[[nodiscard]] FrameBytes tcp_frame(const EthernetEnds &macs, const Endpoint &from, const Endpoint &to, uint8_t flags);
[[nodiscard]] FrameBytes udp_frame(const EthernetEnds &macs, const Endpoint &from, const Endpoint &to,
				   std::span<const uint8_t> payload);
[[nodiscard]] FrameBytes ip_frame(const EthernetEnds &macs, Ipv4Address from, Ipv4Address to, IpProtocol protocol,
				  std::span<const uint8_t> payload);
[[nodiscard]] FrameBytes frame_of_type(const EthernetEnds &macs, EtherType type, std::span<const uint8_t> payload);

// Pairs of hexadecimal digits, with blanks, colons or nothing between them; a usage failure for anything else.
[[nodiscard]] FrameBytes parse_hex(std::string_view text);

// As the kernel hands a frame to a bridge: one VLAN tag is taken off it and kept beside it.
[[nodiscard]] FrameBytes without_tag(FrameBytes frame);

} // namespace cpctl
