// SPDX-License-Identifier: GPL-2.0-only
// Frames, written as a sentence: frame().from(client_of_wlan_1_1).to(upstream_server).tcp(51000, 80).syn().
//
// Lengths and checksums come out right unless they are overridden. Ports and flags are in host order. The pieces may be
// named in any order; the bytes are made when the builder is turned into a Frame.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "platform/host/packet_buffer.h"
#include "tests/support/cast.h"

namespace captive_portal::test
{

using host::Frame;

enum TcpFlag : uint8_t {
	tcp_fin = 0x01,
	tcp_syn = 0x02,
	tcp_rst = 0x04,
	tcp_psh = 0x08,
	tcp_ack = 0x10,
	tcp_urg = 0x20,
};

class FrameBuilder
{
public:
	// Ethernet and IPv4 source or destination; an IPv4 frame unless something else is said.
	FrameBuilder &from(const Host &host);
	FrameBuilder &to(const Host &host);

	FrameBuilder &source_mac(const Mac &mac);
	FrameBuilder &destination_mac(const Mac &mac);
	FrameBuilder &ether_type(uint16_t type);
	// A tag that stands in the packet's buffer, before the EtherType.
	FrameBuilder &vlan(uint16_t tag);

	FrameBuilder &source(Ipv4Address address);
	FrameBuilder &destination(Ipv4Address address);
	FrameBuilder &version(uint8_t version);
	// The header length's nibble; the header itself stays as long as its options make it.
	FrameBuilder &ihl(uint8_t words);
	// A multiple of four bytes; the header length follows.
	FrameBuilder &ip_options(std::span<const uint8_t> options);
	FrameBuilder &total_length(uint16_t bytes);
	// In units of eight bytes.
	FrameBuilder &fragment_offset(uint16_t units);
	FrameBuilder &more_fragments();
	FrameBuilder &protocol(uint8_t protocol);
	FrameBuilder &header_checksum(uint16_t checksum);

	// Sequence number 1000, ACK set, unless flags are given.
	FrameBuilder &tcp(uint16_t source_port, uint16_t destination_port);
	FrameBuilder &flags(uint8_t flags);
	FrameBuilder &syn() { return flags(tcp_syn); }
	FrameBuilder &syn_ack() { return flags(tcp_syn | tcp_ack); }
	FrameBuilder &ack() { return flags(tcp_ack); }
	FrameBuilder &fin_ack() { return flags(tcp_fin | tcp_ack); }
	FrameBuilder &data_offset(uint8_t words);
	FrameBuilder &tcp_options(std::span<const uint8_t> options);
	FrameBuilder &transport_checksum(uint16_t checksum);

	FrameBuilder &udp(uint16_t source_port, uint16_t destination_port);
	FrameBuilder &udp_length(uint16_t bytes);
	FrameBuilder &icmp(uint8_t type, uint8_t code = 0);

	// What follows the transport header, or the IPv4 header when there is none.
	FrameBuilder &payload(std::string_view text);
	FrameBuilder &payload(std::span<const uint8_t> bytes);

	// An IPv6 header with the given next header; payload() follows it.
	FrameBuilder &ipv6(uint8_t next_header);
	// Exactly these bytes behind the Ethernet header.
	FrameBuilder &network_bytes(std::span<const uint8_t> bytes);
	FrameBuilder &arp();

	// Cut to so many bytes, or padded with zeros (as a driver pads) up to so many.
	FrameBuilder &truncate(size_t frame_bytes);
	FrameBuilder &truncate_network(size_t bytes_behind_ethernet);
	FrameBuilder &pad(size_t frame_bytes);

	[[nodiscard]] Frame bytes() const;
	operator Frame() const { return bytes(); }

private:
	enum class Network { ipv4, ipv6, raw };
	enum class Transport { none, tcp, udp, icmp };

	[[nodiscard]] Frame network() const;
	[[nodiscard]] Frame ipv4_packet() const;
	[[nodiscard]] Frame ipv6_packet() const;
	[[nodiscard]] Frame transport() const;
	[[nodiscard]] Frame tcp_segment() const;
	[[nodiscard]] Frame udp_datagram() const;
	[[nodiscard]] Frame icmp_message() const;
	// Of a transport header and what follows it.
	[[nodiscard]] uint16_t checksum_with_pseudo_header(const Frame &segment, uint8_t protocol) const;

	Mac source_mac_{};
	Mac destination_mac_{};
	std::optional<uint16_t> ether_type_;
	std::vector<uint16_t> vlan_tags_;

	Network network_ = Network::ipv4;
	Ipv4Address source_{};
	Ipv4Address destination_{};
	uint8_t version_ = 4;
	std::optional<uint8_t> ihl_;
	Frame ip_options_;
	std::optional<uint16_t> total_length_;
	uint16_t fragment_ = 0;
	std::optional<uint8_t> protocol_;
	std::optional<uint16_t> header_checksum_;
	uint8_t next_header_ = 59;
	Frame raw_;

	Transport transport_ = Transport::none;
	uint16_t source_port_ = 0;
	uint16_t destination_port_ = 0;
	uint8_t flags_ = tcp_ack;
	std::optional<uint8_t> data_offset_;
	Frame tcp_options_;
	std::optional<uint16_t> transport_checksum_;
	std::optional<uint16_t> udp_length_;
	uint8_t icmp_type_ = 0;
	uint8_t icmp_code_ = 0;
	Frame payload_;

	std::optional<size_t> truncate_;
	std::optional<size_t> pad_;
};

[[nodiscard]] inline FrameBuilder frame()
{
	return {};
}

} // namespace captive_portal::test
