// SPDX-License-Identifier: GPL-2.0-only
#include "base/packet.h"

namespace captive_portal
{

namespace
{

constexpr uint32_t minimal_header_words = 5;
constexpr uint32_t bytes_per_header_word = 4;
constexpr uint16_t fragment_offset_mask = 0x1fff;

constexpr uint32_t header_words(uint8_t version_and_header_length)
{
	return version_and_header_length & 0x0f;
}

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

bool Packet::is_later_fragment() const
{
	const Field<be16> fragment = network_field<be16>(Offset::fragment);
	return fragment.has_value() && (fragment.value().host() & fragment_offset_mask) != 0;
}

Field<uint32_t> Packet::transport_offset() const
{
	const Field<uint8_t> first = network_field<uint8_t>(Offset::version_and_header_length);
	if (!first.has_value()) {
		return {};
	}
	if (is_later_fragment()) {
		return {};
	}
	return header_words(first.value()) * bytes_per_header_word;
}

bool Packet::is_rewritable() const
{
	return ether_type() == EtherType::ipv4 && transport_field<be16>(Offset::tcp_checksum).has_value() &&
	       transport_offset().value() >= minimal_header_words * bytes_per_header_word;
}

void WritablePacket::write_ethernet(uint32_t offset, const MacAddress &mac)
{
	write_unaligned(const_cast<uint8_t *>(packet_.ethernet) + offset, mac);
}

void WritablePacket::write_end(uint32_t address_offset, uint32_t port_offset, Ipv4Address address, be16 port)
{
	uint8_t *const network = const_cast<uint8_t *>(packet_.network);
	const uint32_t transport = header_words(network[Offset::version_and_header_length]) * bytes_per_header_word;
	const auto old_address = read_unaligned<Ipv4Address>(network + address_offset);
	const auto old_port = read_unaligned<be16>(network + transport + port_offset);

	write_unaligned(network + address_offset, address);
	write_unaligned(network + transport + port_offset, port);
	cp_packet_replace_checksum(&packet_, transport + Offset::tcp_checksum, old_address.raw, address.raw,
				   CP_CHECKSUM_PSEUDO_HEADER);
	// The ports as 32-bit numbers: the checksum of a zero-extended value is that of the value.
	cp_packet_replace_checksum(&packet_, transport + Offset::tcp_checksum, old_port.raw, port.raw,
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
	uint8_t *const network = const_cast<uint8_t *>(packet_.network);
	const uint32_t bytes = header_words(network[Offset::version_and_header_length]) * bytes_per_header_word;
	write_unaligned(network + Offset::header_checksum, ipv4_header_checksum(network, bytes));
}

} // namespace captive_portal
