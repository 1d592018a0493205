// SPDX-License-Identifier: GPL-2.0-only
#include "base/packet.h"

namespace captive_portal
{

namespace
{

// The ones' complement sum of the header with its checksum field taken as zero, folded and complemented. The sum does
// not depend on byte order, so native words are added.
uint16_t ipv4_header_checksum(const uint8_t *header, uint32_t bytes)
{
	uint32_t sum = 0;
	for (uint32_t offset = 0; offset < bytes; offset += sizeof(uint16_t)) {
		if (offset != Offset::header_checksum) {
			sum += read_unaligned<uint16_t>(header + offset);
		}
	}
	while ((sum >> 16) != 0) {
		sum = (sum & 0xffff) + (sum >> 16);
	}
	return static_cast<uint16_t>(~sum);
}

} // namespace

Field<uint8_t> Packet::ip_version() const
{
	const Field<uint8_t> first = network_field<uint8_t>(Offset::version_and_header_length);
	return first.has_value() ? Field<uint8_t>(static_cast<uint8_t>(first.value() >> 4)) : Field<uint8_t>();
}

uint32_t Packet::transport_offset_of_cut_header(const cp_packet *packet)
{
	const Field<uint8_t> first = field_at<uint8_t>(cp_packet_network(packet), cp_packet_network_bytes(packet),
						       Offset::version_and_header_length);
	const Field<be16> fragment =
		field_at<be16>(cp_packet_network(packet), cp_packet_network_bytes(packet), Offset::fragment);
	if (!first.has_value() || (fragment.has_value() && Ipv4Header::is_later_fragment(fragment.value()))) {
		return beyond_any_packet;
	}
	return Ipv4Header::bytes(first.value());
}

Field<int32_t> Packet::claimed_udp_payload_bytes() const
{
	const Field<uint8_t> first = network_field<uint8_t>(Offset::version_and_header_length);
	const Field<be16> total_length = network_field<be16>(Offset::total_length);
	if (!first.has_value() || !total_length.has_value()) {
		return {};
	}
	return static_cast<int32_t>(total_length.value().host()) -
	       static_cast<int32_t>(Ipv4Header::bytes(first.value()) + Offset::udp_payload);
}

Field<int32_t> Packet::udp_payload_bytes() const
{
	const Field<be16> udp_length = transport_field<be16>(Offset::udp_length);
	if (!udp_length.has_value()) {
		return {};
	}
	// A packet that ends inside the UDP header has less than nothing behind it.
	const int64_t present = int64_t{cp_packet_network_length(packet_)} - transport_offset() - Offset::udp_payload;
	const int32_t said = udp_length.value().host() - static_cast<int32_t>(Offset::udp_payload);
	return present < said ? static_cast<int32_t>(present) : said;
}

bool Packet::is_rewritable() const
{
	return ether_type() == EtherType::ipv4 && transport_field<be16>(Offset::tcp_checksum).has_value() &&
	       transport_offset() >= Ipv4Header::minimal_bytes;
}

void WritablePacket::write_ethernet(uint32_t offset, const MacAddress &mac)
{
	write_unaligned(const_cast<uint8_t *>(cp_packet_ethernet(packet_)) + offset, mac);
}

void WritablePacket::write_end(uint32_t address_offset, uint32_t port_offset, Ipv4Address address, be16 port)
{
	uint8_t *const network = const_cast<uint8_t *>(cp_packet_network(packet_));
	const uint32_t transport = Ipv4Header::bytes(network[Offset::version_and_header_length]);
	const auto old_address = read_unaligned<Ipv4Address>(network + address_offset);
	const auto old_port = read_unaligned<be16>(network + transport + port_offset);

	write_unaligned(network + address_offset, address);
	write_unaligned(network + transport + port_offset, port);
	cp_packet_replace_checksum(packet_, transport + Offset::tcp_checksum, old_address.raw, address.raw,
				   CP_CHECKSUM_PSEUDO_HEADER);
	// The ports as 32-bit numbers: the checksum of a zero-extended value is that of the value.
	cp_packet_replace_checksum(packet_, transport + Offset::tcp_checksum, old_port.raw, port.raw,
				   CP_CHECKSUM_PAYLOAD);
}

void WritablePacket::write_destination(Ipv4Address address, be16 port)
{
	write_end(Offset::destination_address, Offset::destination_port, address, port);
}

void WritablePacket::write_source(Ipv4Address address, be16 port)
{
	write_end(Offset::source_address, Offset::source_port, address, port);
}

void WritablePacket::finish_ipv4_header()
{
	uint8_t *const network = const_cast<uint8_t *>(cp_packet_network(packet_));
	const uint32_t bytes = Ipv4Header::bytes(network[Offset::version_and_header_length]);
	write_unaligned(network + Offset::header_checksum, ipv4_header_checksum(network, bytes));
}

} // namespace captive_portal
