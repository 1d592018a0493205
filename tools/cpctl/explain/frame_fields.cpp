// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/explain/frame_fields.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace cpctl
{

namespace
{

constexpr size_t destination_mac_at = 0;
constexpr size_t source_mac_at = 6;
constexpr size_t type_at = 12;

// In an IPv4 header, and in what follows it.
constexpr size_t fragment_at = 6;
constexpr size_t protocol_at = 9;
constexpr size_t source_at = 12;
constexpr size_t destination_at = 16;
constexpr size_t source_port_at = 0;
constexpr size_t destination_port_at = 2;
constexpr size_t tcp_flags_at = 13;

std::optional<uint16_t> number_at(std::span<const uint8_t> bytes, size_t offset)
{
	if (bytes.size() < offset + 2) {
		return std::nullopt;
	}
	return static_cast<uint16_t>(bytes[offset] << 8 | bytes[offset + 1]);
}

std::optional<MacAddress> mac_at(std::span<const uint8_t> bytes, size_t offset)
{
	MacAddress mac = {};
	if (bytes.size() < offset + mac.size()) {
		return std::nullopt;
	}
	std::copy_n(bytes.begin() + static_cast<ptrdiff_t>(offset), mac.size(), mac.begin());
	return mac;
}

std::optional<Ipv4Address> address_at(std::span<const uint8_t> bytes, size_t offset)
{
	Ipv4Address address;
	if (bytes.size() < offset + sizeof(address.raw)) {
		return std::nullopt;
	}
	std::memcpy(&address.raw, &bytes[offset], sizeof(address.raw));
	return address;
}

void read_transport(std::span<const uint8_t> packet, FrameFields &fields)
{
	constexpr uint16_t fragment_offset_mask = 0x1fff;
	const size_t header = size_t{4} * (packet[0] & 0xf);
	const bool later_fragment = (number_at(packet, fragment_at).value_or(0) & fragment_offset_mask) != 0;
	if (later_fragment || packet.size() < header || !(fields.is(IpProtocol::tcp) || fields.is(IpProtocol::udp))) {
		return;
	}
	const std::span<const uint8_t> transport = packet.subspan(header);
	fields.source_port = number_at(transport, source_port_at);
	fields.destination_port = number_at(transport, destination_port_at);
	if (fields.is(IpProtocol::tcp) && transport.size() > tcp_flags_at) {
		fields.tcp_flags = transport[tcp_flags_at];
	}
}

void read_ipv4(std::span<const uint8_t> packet, FrameFields &fields)
{
	if (packet.size() > protocol_at) {
		fields.protocol = static_cast<IpProtocol>(packet[protocol_at]);
	}
	fields.source = address_at(packet, source_at);
	fields.destination = address_at(packet, destination_at);
	if (packet.size() >= ipv4_header_size) {
		read_transport(packet, fields);
	}
}

std::string name_of_type(EtherType type)
{
	switch (type) {
	case EtherType::ipv4:
		return "ipv4";
	case EtherType::arp:
		return "arp";
	case EtherType::ipv6:
		return "ipv6";
	case EtherType::vlan:
	case EtherType::service_vlan:
	case EtherType::exempt_first:
	case EtherType::exempt_second:
		break;
	}
	char text[16];
	std::snprintf(text, sizeof(text), "type 0x%04x", static_cast<unsigned>(type));
	return text;
}

std::string name_of_protocol(IpProtocol protocol)
{
	switch (protocol) {
	case IpProtocol::icmp:
		return "icmp";
	case IpProtocol::tcp:
		return "tcp";
	case IpProtocol::udp:
		return "udp";
	}
	return "ip proto " + std::to_string(static_cast<unsigned>(protocol));
}

} // namespace

FrameFields fields_of(std::span<const uint8_t> frame)
{
	FrameFields fields;
	fields.destination_mac = mac_at(frame, destination_mac_at);
	fields.source_mac = mac_at(frame, source_mac_at);
	if (const auto type = number_at(frame, type_at)) {
		fields.type = static_cast<EtherType>(*type);
	}
	if (fields.type == EtherType::ipv4) {
		read_ipv4(frame.subspan(ethernet_header_size), fields);
	}
	return fields;
}

std::string format_end(std::optional<Ipv4Address> address, std::optional<uint16_t> port)
{
	if (!address) {
		return "";
	}
	std::string text = format_ipv4(*address);
	if (port) {
		text.append(":").append(std::to_string(*port));
	}
	return text;
}

std::string format_flags(uint8_t flags)
{
	struct Name {
		uint8_t flag;
		const char *name;
	};
	constexpr Name names[] = {
		{tcp_fin, "fin"}, {tcp_syn, "syn"}, {tcp_rst, "rst"}, {tcp_psh, "psh"}, {tcp_ack, "ack"},
	};
	std::string text;
	for (const Name &name : names) {
		if ((flags & name.flag) != 0) {
			text += text.empty() ? "" : "-";
			text += name.name;
		}
	}
	return text;
}

std::string format_frame(const FrameFields &fields)
{
	if (!fields.type) {
		return "a frame that is cut short";
	}
	if (fields.type != EtherType::ipv4 || !fields.protocol) {
		return name_of_type(*fields.type);
	}
	std::string text = name_of_protocol(*fields.protocol);
	const std::string source = format_end(fields.source, fields.source_port);
	const std::string destination = format_end(fields.destination, fields.destination_port);
	if (!source.empty() && !destination.empty()) {
		text += " " + source + " > " + destination;
	}
	const std::string flags = format_flags(fields.tcp_flags.value_or(0));
	return text + (flags.empty() ? "" : " " + flags);
}

} // namespace cpctl
