// SPDX-License-Identifier: GPL-2.0-only
#include "cpctl/explain/frame_bytes.h"

#include <algorithm>
#include <charconv>
#include <cstring>

#include "cpctl/failure.h"
#include "cpctl/quoted.h"

namespace cpctl
{

namespace
{

constexpr uint8_t time_to_live = 64;
constexpr uint16_t window = 64240;
constexpr uint32_t sequence_number = 1000;

void append(FrameBytes &bytes, std::span<const uint8_t> more)
{
	bytes.insert(bytes.end(), more.begin(), more.end());
}

void append8(FrameBytes &bytes, uint8_t number)
{
	bytes.push_back(number);
}

void append16(FrameBytes &bytes, uint16_t number)
{
	bytes.push_back(static_cast<uint8_t>(number >> 8));
	bytes.push_back(static_cast<uint8_t>(number));
}

void append32(FrameBytes &bytes, uint32_t number)
{
	append16(bytes, static_cast<uint16_t>(number >> 16));
	append16(bytes, static_cast<uint16_t>(number));
}

void append_address(FrameBytes &bytes, Ipv4Address address)
{
	uint8_t octets[sizeof(address.raw)];
	std::memcpy(octets, &address.raw, sizeof(octets));
	append(bytes, octets);
}

void put16(FrameBytes &bytes, size_t offset, uint16_t number)
{
	bytes[offset] = static_cast<uint8_t>(number >> 8);
	bytes[offset + 1] = static_cast<uint8_t>(number);
}

uint16_t internet_checksum(std::span<const uint8_t> bytes)
{
	uint32_t sum = 0;
	for (size_t i = 0; i < bytes.size(); i++) {
		sum += i % 2 == 0 ? bytes[i] << 8 : bytes[i];
	}
	while (sum >> 16 != 0) {
		sum = (sum & 0xffff) + (sum >> 16);
	}
	return static_cast<uint16_t>(~sum);
}

uint16_t transport_checksum(Ipv4Address from, Ipv4Address to, IpProtocol protocol, std::span<const uint8_t> segment)
{
	FrameBytes covered;
	append_address(covered, from);
	append_address(covered, to);
	append16(covered, static_cast<uint16_t>(protocol));
	append16(covered, static_cast<uint16_t>(segment.size()));
	append(covered, segment);
	return internet_checksum(covered);
}

} // namespace

FrameBytes frame_of_type(const EthernetEnds &macs, EtherType type, std::span<const uint8_t> payload)
{
	FrameBytes frame;
	append(frame, macs.destination);
	append(frame, macs.source);
	append16(frame, static_cast<uint16_t>(type));
	append(frame, payload);
	return frame;
}

FrameBytes ip_frame(const EthernetEnds &macs, Ipv4Address from, Ipv4Address to, IpProtocol protocol,
		    std::span<const uint8_t> payload)
{
	constexpr uint8_t version_and_header_words = 0x45;
	constexpr uint16_t do_not_fragment = 0x4000;
	constexpr size_t checksum_at = 10;
	FrameBytes packet;
	append8(packet, version_and_header_words);
	append8(packet, 0);
	append16(packet, static_cast<uint16_t>(ipv4_header_size + payload.size()));
	append16(packet, 0);
	append16(packet, do_not_fragment);
	append8(packet, time_to_live);
	append8(packet, static_cast<uint8_t>(protocol));
	append16(packet, 0);
	append_address(packet, from);
	append_address(packet, to);
	put16(packet, checksum_at, internet_checksum(packet));
	append(packet, payload);
	return frame_of_type(macs, EtherType::ipv4, packet);
}

FrameBytes tcp_frame(const EthernetEnds &macs, const Endpoint &from, const Endpoint &to, uint8_t flags)
{
	constexpr uint8_t header_words = 5 << 4;
	constexpr size_t checksum_at = 16;
	FrameBytes segment;
	append16(segment, from.port);
	append16(segment, to.port);
	append32(segment, sequence_number);
	append32(segment, (flags & tcp_ack) != 0 ? sequence_number : 0);
	append8(segment, header_words);
	append8(segment, flags);
	append16(segment, window);
	append32(segment, 0);
	put16(segment, checksum_at, transport_checksum(from.address, to.address, IpProtocol::tcp, segment));
	return ip_frame(macs, from.address, to.address, IpProtocol::tcp, segment);
}

FrameBytes udp_frame(const EthernetEnds &macs, const Endpoint &from, const Endpoint &to,
		     std::span<const uint8_t> payload)
{
	constexpr size_t checksum_at = 6;
	FrameBytes datagram;
	append16(datagram, from.port);
	append16(datagram, to.port);
	append16(datagram, static_cast<uint16_t>(udp_header_size + payload.size()));
	append16(datagram, 0);
	append(datagram, payload);
	put16(datagram, checksum_at, transport_checksum(from.address, to.address, IpProtocol::udp, datagram));
	return ip_frame(macs, from.address, to.address, IpProtocol::udp, datagram);
}

FrameBytes parse_hex(std::string_view text)
{
	std::string digits;
	std::ranges::copy_if(text, std::back_inserter(digits),
			     [](char sign) { return sign != ' ' && sign != ':' && sign != '\n'; });
	FrameBytes bytes;
	for (size_t i = 0; i < digits.size(); i += 2) {
		uint8_t byte = 0;
		const char *const pair = digits.data() + i;
		const auto [end, error] =
			std::from_chars(pair, digits.data() + std::min(i + 2, digits.size()), byte, 16);
		if (error != std::errc() || end != pair + 2) {
			throw usage_failure(quoted(text) + " is no frame: write it as pairs of hexadecimal digits");
		}
		bytes.push_back(byte);
	}
	if (bytes.empty()) {
		throw usage_failure("a frame of no bytes: write it as pairs of hexadecimal digits");
	}
	return bytes;
}

FrameBytes without_tag(FrameBytes frame)
{
	constexpr ptrdiff_t tag_at = 12;
	constexpr ptrdiff_t tag_size = 4;
	const auto type = fields_of(frame).type;
	if ((type == EtherType::vlan || type == EtherType::service_vlan) &&
	    frame.size() >= ethernet_header_size + tag_size) {
		frame.erase(frame.begin() + tag_at, frame.begin() + tag_at + tag_size);
	}
	return frame;
}

} // namespace cpctl
