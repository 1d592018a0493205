// SPDX-License-Identifier: GPL-2.0-only
#include "tests/support/frame_builder.h"

#include <stdexcept>

namespace captive_portal::test
{

namespace
{

constexpr size_t ethernet_header_bytes = 14;
constexpr uint16_t more_fragments_bit = 0x2000;

void append16(Frame &frame, uint32_t value)
{
	frame.push_back(static_cast<uint8_t>(value >> 8));
	frame.push_back(static_cast<uint8_t>(value));
}

void append32(Frame &frame, uint32_t value)
{
	append16(frame, value >> 16);
	append16(frame, value & 0xffff);
}

void append(Frame &frame, std::span<const uint8_t> bytes)
{
	frame.insert(frame.end(), bytes.begin(), bytes.end());
}

void store16(Frame &frame, size_t offset, uint16_t value)
{
	frame[offset] = static_cast<uint8_t>(value >> 8);
	frame[offset + 1] = static_cast<uint8_t>(value);
}

// RFC 1071, over words in network order.
uint16_t internet_checksum(std::span<const uint8_t> bytes)
{
	uint64_t sum = 0;
	for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
		sum += static_cast<uint64_t>(bytes[i] * 256 + bytes[i + 1]);
	}
	if (bytes.size() % 2 != 0) {
		sum += static_cast<uint64_t>(bytes.back() * 256);
	}
	while (sum > 0xffff) {
		sum = sum % 0x10000 + sum / 0x10000;
	}
	return static_cast<uint16_t>(0xffff - sum);
}

} // namespace

FrameBuilder &FrameBuilder::from(const Host &host)
{
	source_mac_ = host.mac;
	source_ = host.address;
	return *this;
}

FrameBuilder &FrameBuilder::to(const Host &host)
{
	destination_mac_ = host.mac;
	destination_ = host.address;
	return *this;
}

FrameBuilder &FrameBuilder::source_mac(const Mac &mac)
{
	source_mac_ = mac;
	return *this;
}

FrameBuilder &FrameBuilder::destination_mac(const Mac &mac)
{
	destination_mac_ = mac;
	return *this;
}

FrameBuilder &FrameBuilder::ether_type(uint16_t type)
{
	ether_type_ = type;
	return *this;
}

FrameBuilder &FrameBuilder::vlan(uint16_t tag)
{
	vlan_tags_.push_back(tag);
	return *this;
}

FrameBuilder &FrameBuilder::source(Ipv4Address address)
{
	source_ = address;
	return *this;
}

FrameBuilder &FrameBuilder::destination(Ipv4Address address)
{
	destination_ = address;
	return *this;
}

FrameBuilder &FrameBuilder::version(uint8_t version)
{
	version_ = version;
	return *this;
}

FrameBuilder &FrameBuilder::ihl(uint8_t words)
{
	ihl_ = words;
	return *this;
}

FrameBuilder &FrameBuilder::ip_options(std::span<const uint8_t> options)
{
	ip_options_.assign(options.begin(), options.end());
	return *this;
}

FrameBuilder &FrameBuilder::total_length(uint16_t bytes)
{
	total_length_ = bytes;
	return *this;
}

FrameBuilder &FrameBuilder::fragment_offset(uint16_t units)
{
	fragment_ = static_cast<uint16_t>((fragment_ & more_fragments_bit) | units);
	return *this;
}

FrameBuilder &FrameBuilder::more_fragments()
{
	fragment_ |= more_fragments_bit;
	return *this;
}

FrameBuilder &FrameBuilder::protocol(uint8_t protocol)
{
	protocol_ = protocol;
	return *this;
}

FrameBuilder &FrameBuilder::header_checksum(uint16_t checksum)
{
	header_checksum_ = checksum;
	return *this;
}

FrameBuilder &FrameBuilder::tcp(uint16_t source_port, uint16_t destination_port)
{
	transport_ = Transport::tcp;
	source_port_ = source_port;
	destination_port_ = destination_port;
	return *this;
}

FrameBuilder &FrameBuilder::flags(uint8_t flags)
{
	flags_ = flags;
	return *this;
}

FrameBuilder &FrameBuilder::data_offset(uint8_t words)
{
	data_offset_ = words;
	return *this;
}

FrameBuilder &FrameBuilder::tcp_options(std::span<const uint8_t> options)
{
	tcp_options_.assign(options.begin(), options.end());
	return *this;
}

FrameBuilder &FrameBuilder::transport_checksum(uint16_t checksum)
{
	transport_checksum_ = checksum;
	return *this;
}

FrameBuilder &FrameBuilder::udp(uint16_t source_port, uint16_t destination_port)
{
	transport_ = Transport::udp;
	source_port_ = source_port;
	destination_port_ = destination_port;
	return *this;
}

FrameBuilder &FrameBuilder::udp_length(uint16_t bytes)
{
	udp_length_ = bytes;
	return *this;
}

FrameBuilder &FrameBuilder::icmp(uint8_t type, uint8_t code)
{
	transport_ = Transport::icmp;
	icmp_type_ = type;
	icmp_code_ = code;
	return *this;
}

FrameBuilder &FrameBuilder::payload(std::string_view text)
{
	payload_.assign(text.begin(), text.end());
	return *this;
}

FrameBuilder &FrameBuilder::payload(std::span<const uint8_t> bytes)
{
	payload_.assign(bytes.begin(), bytes.end());
	return *this;
}

FrameBuilder &FrameBuilder::ipv6(uint8_t next_header)
{
	network_ = Network::ipv6;
	next_header_ = next_header;
	return *this;
}

FrameBuilder &FrameBuilder::network_bytes(std::span<const uint8_t> bytes)
{
	network_ = Network::raw;
	raw_.assign(bytes.begin(), bytes.end());
	return *this;
}

FrameBuilder &FrameBuilder::arp()
{
	// Who has the destination? Tell the source.
	Frame message = {0, 1, 8, 0, 6, 4, 0, 1};
	append(message, source_mac_);
	append32(message, source_.host());
	message.insert(message.end(), 6, 0);
	append32(message, destination_.host());
	return ether_type(0x0806).network_bytes(message);
}

FrameBuilder &FrameBuilder::truncate(size_t frame_bytes)
{
	truncate_ = frame_bytes;
	return *this;
}

FrameBuilder &FrameBuilder::truncate_network(size_t bytes_behind_ethernet)
{
	return truncate(ethernet_header_bytes + bytes_behind_ethernet);
}

FrameBuilder &FrameBuilder::pad(size_t frame_bytes)
{
	pad_ = frame_bytes;
	return *this;
}

Frame FrameBuilder::bytes() const
{
	Frame frame;
	append(frame, destination_mac_);
	append(frame, source_mac_);
	for (const uint16_t tag : vlan_tags_) {
		append16(frame, 0x8100);
		append16(frame, tag);
	}
	append16(frame, ether_type_.value_or(network_ == Network::ipv6 ? 0x86dd : 0x0800));
	append(frame, network());
	if (truncate_.has_value()) {
		if (*truncate_ > frame.size()) {
			throw std::logic_error("frame is shorter than it shall be cut to");
		}
		frame.resize(*truncate_);
	}
	if (pad_.has_value() && frame.size() < *pad_) {
		frame.resize(*pad_, 0);
	}
	return frame;
}

Frame FrameBuilder::network() const
{
	switch (network_) {
	case Network::ipv4:
		return ipv4_packet();
	case Network::ipv6:
		return ipv6_packet();
	case Network::raw:
		break;
	}
	return raw_;
}

Frame FrameBuilder::ipv4_packet() const
{
	if (ip_options_.size() % 4 != 0 || ip_options_.size() > 40) {
		throw std::logic_error("IPv4 options do not fill words");
	}
	static constexpr uint8_t protocols[] = {0, 6, 17, 1};
	const Frame segment = transport();
	const size_t header_bytes = 20 + ip_options_.size();
	Frame packet;
	packet.push_back(static_cast<uint8_t>(version_ << 4 | ihl_.value_or(static_cast<uint8_t>(header_bytes / 4))));
	packet.push_back(0);
	append16(packet, total_length_.value_or(static_cast<uint16_t>(header_bytes + segment.size())));
	append16(packet, 0x1234);
	append16(packet, fragment_);
	packet.push_back(64);
	packet.push_back(protocol_.value_or(protocols[static_cast<size_t>(transport_)]));
	append16(packet, 0);
	append32(packet, source_.host());
	append32(packet, destination_.host());
	append(packet, ip_options_);
	store16(packet, 10, header_checksum_.value_or(internet_checksum(packet)));
	append(packet, segment);
	return packet;
}

Frame FrameBuilder::ipv6_packet() const
{
	Frame packet = {0x60, 0, 0, 0};
	append16(packet, static_cast<uint32_t>(payload_.size()));
	packet.push_back(next_header_);
	packet.push_back(64);
	// The documentation prefix, with the IPv4 addresses in the last four bytes.
	for (const Ipv4Address address : {source_, destination_}) {
		append32(packet, 0x20010db8);
		append32(packet, 0);
		append32(packet, 0);
		append32(packet, address.host());
	}
	append(packet, payload_);
	return packet;
}

Frame FrameBuilder::transport() const
{
	switch (transport_) {
	case Transport::tcp:
		return tcp_segment();
	case Transport::udp:
		return udp_datagram();
	case Transport::icmp:
		return icmp_message();
	case Transport::none:
		break;
	}
	return payload_;
}

Frame FrameBuilder::tcp_segment() const
{
	Frame segment;
	append16(segment, source_port_);
	append16(segment, destination_port_);
	append32(segment, 1000);
	append32(segment, (flags_ & tcp_ack) != 0 ? 2000 : 0);
	const auto words = static_cast<uint8_t>((20 + tcp_options_.size()) / 4);
	segment.push_back(static_cast<uint8_t>(data_offset_.value_or(words) << 4));
	segment.push_back(flags_);
	append16(segment, 64240);
	append16(segment, 0);
	append16(segment, 0);
	append(segment, tcp_options_);
	append(segment, payload_);
	store16(segment, 16, transport_checksum_.value_or(checksum_with_pseudo_header(segment, 6)));
	return segment;
}

Frame FrameBuilder::udp_datagram() const
{
	Frame datagram;
	append16(datagram, source_port_);
	append16(datagram, destination_port_);
	append16(datagram, udp_length_.value_or(static_cast<uint16_t>(8 + payload_.size())));
	append16(datagram, 0);
	append(datagram, payload_);
	const uint16_t checksum = checksum_with_pseudo_header(datagram, 17);
	store16(datagram, 6, transport_checksum_.value_or(checksum == 0 ? 0xffff : checksum));
	return datagram;
}

Frame FrameBuilder::icmp_message() const
{
	Frame message = {icmp_type_, icmp_code_, 0, 0, 0, 1, 0, 1};
	append(message, payload_);
	store16(message, 2, transport_checksum_.value_or(internet_checksum(message)));
	return message;
}

uint16_t FrameBuilder::checksum_with_pseudo_header(const Frame &segment, uint8_t protocol) const
{
	Frame covered;
	append32(covered, source_.host());
	append32(covered, destination_.host());
	append16(covered, protocol);
	append16(covered, static_cast<uint32_t>(segment.size()));
	append(covered, segment);
	return internet_checksum(covered);
}

} // namespace captive_portal::test
