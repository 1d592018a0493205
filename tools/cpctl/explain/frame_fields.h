// SPDX-License-Identifier: GPL-2.0-only
// What is written in a frame, for people: fields that a frame does not have are missing.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "cpctl/addresses.h"

namespace cpctl
{

inline constexpr size_t ethernet_header_size = 14;
inline constexpr size_t ipv4_header_size = 20;
inline constexpr size_t tcp_header_size = 20;
inline constexpr size_t udp_header_size = 8;

enum class EtherType : uint16_t {
	ipv4 = 0x0800,
	arp = 0x0806,
	vlan = 0x8100,
	ipv6 = 0x86dd,
	// These two pass whoever sends them.
	exempt_first = 0x886b,
	exempt_second = 0x886c,
	service_vlan = 0x88a8,
};

enum class IpProtocol : uint8_t { icmp = 1, tcp = 6, udp = 17 };

enum TcpFlag : uint8_t { tcp_fin = 0x01, tcp_syn = 0x02, tcp_rst = 0x04, tcp_psh = 0x08, tcp_ack = 0x10 };

struct FrameFields {
	std::optional<MacAddress> source_mac;
	std::optional<MacAddress> destination_mac;
	std::optional<EtherType> type;
	// Of IPv4 alone from here on. A later fragment has no ports.
	std::optional<IpProtocol> protocol;
	std::optional<Ipv4Address> source;
	std::optional<Ipv4Address> destination;
	std::optional<uint16_t> source_port;
	std::optional<uint16_t> destination_port;
	std::optional<uint8_t> tcp_flags;

	[[nodiscard]] bool is(IpProtocol wanted) const { return protocol == wanted; }
};

[[nodiscard]] FrameFields fields_of(std::span<const uint8_t> frame);

// As "tcp 192.0.2.1:1000 > 198.51.100.1:80 syn".
[[nodiscard]] std::string format_frame(const FrameFields &fields);
// "192.0.2.1:1000", or the address alone; empty when it is missing.
[[nodiscard]] std::string format_end(std::optional<Ipv4Address> address, std::optional<uint16_t> port);
// The names of the flags with hyphens between them: "syn-ack".
[[nodiscard]] std::string format_flags(uint8_t flags);

} // namespace cpctl
